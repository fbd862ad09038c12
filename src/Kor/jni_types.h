// jni_types.h - the little of Java's native interface that the entry points need, so that the library
// builds without a Java development kit.
//
// The table's layout is part of that interface and fixed for good. Where the kit's own header was
// included before, its declarations hold; a test compiles the entry points against those.

#ifndef KOR_JNI_TYPES_H
#define KOR_JNI_TYPES_H

#ifndef _JAVASOFT_JNI_H_

#define JNIEXPORT __declspec(dllexport)
#define JNICALL

using jint = long;
using jsize = jint;
using jboolean = unsigned char;
struct JavaObject;
struct JavaString;
using jclass = JavaObject*;
using jstring = JavaString*;

struct JNIEnv;

/// What a Java machine offers to native code, as far as it is used here.
struct JavaFunctionTable
{
    void* before[168]; // the number of entries in front of the first that is used
    jsize(JNICALL* GetStringUTFLength)(JNIEnv*, jstring);
    const char*(JNICALL* GetStringUTFChars)(JNIEnv*, jstring, jboolean*);
    void(JNICALL* ReleaseStringUTFChars)(JNIEnv*, jstring, const char*);
};

/// A Java thread's access to its machine.
struct JNIEnv
{
    const JavaFunctionTable* functions;

    jsize GetStringUTFLength(jstring text) { return functions->GetStringUTFLength(this, text); }
    const char* GetStringUTFChars(jstring text, jboolean* is_copy)
    {
        return functions->GetStringUTFChars(this, text, is_copy);
    }
    void ReleaseStringUTFChars(jstring text, const char* characters)
    {
        functions->ReleaseStringUTFChars(this, text, characters);
    }
};

#endif // _JAVASOFT_JNI_H_
#endif // KOR_JNI_TYPES_H
