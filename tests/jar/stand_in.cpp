// The native methods of the Java class for a system that has no DLL: each call is told on standard error, with what the
// DLL would know the calling thread by.

#include <jni.h>

#include <unistd.h>

#include <cstdio>

namespace
{
void say(JNIEnv* env, const char* call, jstring text)
{
    const char* characters = text == nullptr ? nullptr : env->GetStringUTFChars(text, nullptr);
    std::fprintf(stderr, "%s %d %s\n", call, static_cast<int>(gettid()), characters == nullptr ? "" : characters);
    if (characters != nullptr)
        env->ReleaseStringUTFChars(text, characters);
}
} // namespace

extern "C"
{
    JNIEXPORT jint JNICALL
    Java_lumaris_infra_log_KoralLog_open__Ljava_lang_String_2(JNIEnv* env, jclass, jstring application)
    {
        say(env, "open", application);
        return 0;
    }

    JNIEXPORT jboolean JNICALL Java_lumaris_infra_log_KoralLog_checkMsgLevel(JNIEnv*, jclass, jint, jint)
    {
        return JNI_TRUE;
    }

    JNIEXPORT jboolean JNICALL
    Java_lumaris_infra_log_KoralLog_checkMsgLevelFor(JNIEnv*, jclass, jstring, jint, jint, jint)
    {
        return JNI_TRUE;
    }

    JNIEXPORT jint JNICALL Java_lumaris_infra_log_KoralLog_tlogln(JNIEnv* env, jclass, jint, jint, jstring text)
    {
        say(env, "line", text);
        return 0;
    }

    JNIEXPORT jint JNICALL
    Java_lumaris_infra_log_KoralLog_tloglnFor(JNIEnv* env, jclass, jstring, jint, jint, jint, jstring text)
    {
        say(env, "line", text);
        return 0;
    }
}
