// The ways into the general log for C and Java. No C++ exception may leave them: the frames of their
// callers cannot be unwound.

#include "Kor_JLogJNIInterface.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "Kor/jni_types.h"
#include "Kor_ClientScope.h"
#include "Kor_LogFile.h"
#include "core/location_prefix.h"
#include "win/console.h"

namespace
{
constexpr char SOURCE_NAME[] = "Kor_JLogJNIInterface";

/// Runs body and returns its result; what it throws, a destination's exceptions included, ends here.
template <class Body>
int contained(Body body, int result_of_failure) noexcept
{
    try
    {
        return body();
    }
    catch (...)
    {
        return result_of_failure;
    }
}

/// The bytes of a Java string, in Java's form of UTF-8, as a text of our own.
class JavaText
{
public:
    JavaText(JNIEnv* env, jstring text) noexcept : m_text(nullptr, &std::free), m_length(0), m_is_null(text == nullptr)
    {
        if (m_is_null)
            return;
        const auto length = static_cast<std::size_t>(std::max<jsize>(env->GetStringUTFLength(text), 0));
        const char* const characters = env->GetStringUTFChars(text, nullptr);
        if (characters == nullptr)
            return;
        m_text.reset(static_cast<char*>(std::malloc(length + 1)));
        if (m_text)
        {
            std::memcpy(m_text.get(), characters, length);
            m_text.get()[length] = '\0';
            m_length = length;
        }
        env->ReleaseStringUTFChars(text, characters);
    }

    /// False when there was no memory for it, here or in Java, which then throws an error of its own.
    bool is_known() const noexcept { return m_is_null || m_text; }

    /// Null for Java's null.
    char* text() const noexcept { return m_text.get(); }
    std::size_t length() const noexcept { return m_length; }

private:
    std::unique_ptr<char, decltype(&std::free)> m_text;
    std::size_t m_length;
    bool m_is_null;
};

/// Reports and translates the result of an Open.
jint opened(int result)
{
    if (result == 0)
        return 0;
    kor::win::print_line(stdout, "Fail to open system log.\n");
    return -1;
}

/// A name makes the levels of all packages be computed anew, so one that the thread has is not set.
void name_thread(const std::string& name)
{
    KorGLog.GetApplicationName(); // as all members do, makes the thread's context, which forgets its name
    char** const known = Kor_LogMTVars::m_thread_name.find();
    if (known == nullptr || *known == nullptr || name != *known)
        KorGLog.SetThreadName(name.c_str());
}

int write_located(int package, int level, std::string_view text)
{
    const kor::core::LocatedText located = kor::core::read_location(text);
    std::string class_name = "unknown_class";
    std::string function = "unknown_func";
    if (located.has_prefix)
    {
        name_thread(std::string(located.thread));
        class_name = located.class_name;
        function = located.function;
    }
    if (static_cast<unsigned int>(level) < static_cast<unsigned int>(Kor_LogMTVars::LEVEL_COUNT))
        KorGLog.LogTextAt(
            class_name.c_str(), function.c_str(), located.line, level, package, located.body.data(),
            static_cast<int>(located.body.size()));
    return 0;
}

/// The first code of a package; for a number that is none, a code without a package.
long code_of_package(jint package)
{
    constexpr std::int64_t lowest = std::numeric_limits<std::int32_t>::min();
    constexpr std::int64_t highest = std::numeric_limits<std::int32_t>::max();
    return static_cast<long>(std::clamp(static_cast<std::int64_t>(package) * PACKAGE_RANGE, lowest, highest));
}

jboolean is_wanted(jint package, jint level)
{
    return KorGLog.CheckMsgLevel(code_of_package(package), static_cast<int>(level)) != 0 ? 1 : 0;
}

void write_java_text(jint package, jint level, const JavaText& message)
{
    const std::string_view body = message.text() == nullptr ? std::string_view("(null)") // as printf shows one
                                                            : std::string_view(message.text(), message.length());
    contained([&] { return write_located(static_cast<int>(package), static_cast<int>(level), body); }, 0);
}
} // namespace

int OpenLog(const char* file_name, const char* app_name)
{
    return contained([=] { return KorGLog.Open(file_name, app_name); }, -1);
}

void WriteLog(int level, unsigned int code, int line, const char* file, const char* function, const char* text)
{
    const auto write = [=]
    {
        const auto package = static_cast<int>(code / static_cast<unsigned int>(PACKAGE_RANGE));
        // Without arguments a conversion in the text meets none, rather than what happens to lie there.
        return KorGLog.LogAtArgs(file, function, line, level, package, text, nullptr);
    };
    contained(write, 0);
}

extern "C"
{
    JNIEXPORT jint JNICALL
    Java_lumaris_infra_log_KoralLog_open__Ljava_lang_String_2(JNIEnv* env, jclass, jstring app_name)
    {
        const JavaText name(env, app_name);
        return opened(name.is_known() ? contained([&] { return KorGLog.Open(name.text()); }, -1) : -1);
    }

    JNIEXPORT jint JNICALL Java_lumaris_infra_log_KoralLog_open__Ljava_lang_String_2Ljava_lang_String_2(
        JNIEnv* env, jclass, jstring file_name, jstring app_name)
    {
        const JavaText file(env, file_name);
        if (!file.is_known()) // Java has an error pending, and nothing more may be asked of it
            return opened(-1);
        const JavaText name(env, app_name);
        return opened(name.is_known() ? OpenLog(file.text(), name.text()) : -1);
    }

    JNIEXPORT jint JNICALL Java_lumaris_infra_log_KoralLog_close(JNIEnv*, jclass) { return KorGLog.Close(); }

    JNIEXPORT jboolean JNICALL Java_lumaris_infra_log_KoralLog_checkMsgLevel(JNIEnv*, jclass, jint package, jint level)
    {
        return is_wanted(package, level);
    }

    JNIEXPORT jboolean JNICALL Java_lumaris_infra_log_KoralLog_checkMsgLevelFor(
        JNIEnv* env, jclass, jstring client, jint session, jint package, jint level)
    {
        const JavaText address(env, client);
        if (!address.is_known())
            return 0;
        const Kor_ClientScope scope(address.text(), session);
        return is_wanted(package, level);
    }

    JNIEXPORT jint JNICALL Java_lumaris_infra_log_KoralLog_tlog(JNIEnv* env, jclass, jint, jstring text)
    {
        const JavaText message(env, text);
        if (!message.is_known())
            return 0;
        const auto write = [&]
        {
            constexpr int LINE = 186; // what tools that sort lines by their source know this one by
            constexpr int LEVEL_SEVERE = 1;
            if (KorGLog.StoreParams(
                    SOURCE_NAME, "Java_lumaris_infra_log_KoralLog_tlog", LINE, LEVEL_SEVERE, KOR_PACKAGE_LIBRARY) != 0)
                KorGLog.LogNoHeadline("%s", message.text());
            return 0;
        };
        return contained(write, 0);
    }

    JNIEXPORT jint JNICALL
    Java_lumaris_infra_log_KoralLog_tlogln(JNIEnv* env, jclass, jint package, jint level, jstring text)
    {
        const JavaText message(env, text);
        if (message.is_known())
            write_java_text(package, level, message);
        return 0;
    }

    JNIEXPORT jint JNICALL Java_lumaris_infra_log_KoralLog_tloglnFor(
        JNIEnv* env, jclass, jstring client, jint session, jint package, jint level, jstring text)
    {
        const JavaText address(env, client);
        if (!address.is_known()) // Java has an error pending, and nothing more may be asked of it
            return 0;
        const JavaText message(env, text);
        if (!message.is_known())
            return 0;
        // For this line alone: a thread of Java may go on, after it, on another thread of the system.
        const Kor_ClientScope scope(address.text(), session);
        write_java_text(package, level, message);
        return 0;
    }
}
