// The native methods of the Java class, called by name with a function table of the test's own.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <climits>
#include <stdexcept>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "captured_stream.h"
#include "import_hook.h"
#include "java_machine.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(malloc);
KOR_IMPORT(free);

/// A native method by the last part of its exported name; a missing one ends the test program.
template <class Function>
Function* native(const char* name)
{
    const FARPROC found =
        ::GetProcAddress(library_module(), (std::string("Java_lumaris_infra_log_KoralLog_") + name).c_str());
    if (found == nullptr)
    {
        std::fprintf(stderr, "no native method %s\n", name);
        std::_Exit(97);
    }
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(found));
}

/// The class as Java sees it: static methods, strings by reference, null allowed.
class JavaClass
{
public:
    int open(JavaString* app_name)
    {
        java.return_to_java();
        return native<jint(JNIEnv*, jclass, jstring)>("open__Ljava_lang_String_2")(java.env(), nullptr, app_name);
    }
    int open(JavaString* file_name, JavaString* app_name)
    {
        java.return_to_java();
        return native<jint(JNIEnv*, jclass, jstring, jstring)>("open__Ljava_lang_String_2Ljava_lang_String_2")(
            java.env(), nullptr, file_name, app_name);
    }
    int close() { return native<jint(JNIEnv*, jclass)>("close")(java.env(), nullptr); }
    bool check(int package, int level)
    {
        const jboolean result =
            native<jboolean(JNIEnv*, jclass, jint, jint)>("checkMsgLevel")(java.env(), nullptr, package, level);
        EXPECT_LE(result, 1); // Java takes other values for neither true nor false
        return result == 1;
    }
    int tlog(JavaString* text)
    {
        java.return_to_java();
        return native<jint(JNIEnv*, jclass, jint, jstring)>("tlog")(java.env(), nullptr, 4711, text);
    }
    int tlogln(int package, int level, JavaString* text)
    {
        java.return_to_java();
        return native<jint(JNIEnv*, jclass, jint, jint, jstring)>("tlogln")(java.env(), nullptr, package, level, text);
    }
    int tlogln(int package, int level, const std::string& text)
    {
        JavaString string{text};
        return tlogln(package, level, &string);
    }
    bool check_for(JavaString* client, int session, int package, int level)
    {
        java.return_to_java();
        const jboolean result = native<jboolean(JNIEnv*, jclass, jstring, jint, jint, jint)>("checkMsgLevelFor")(
            java.env(), nullptr, client, session, package, level);
        EXPECT_LE(result, 1);
        return result == 1;
    }
    int tlogln_for(JavaString* client, int session, int package, int level, JavaString* text)
    {
        java.return_to_java();
        return native<jint(JNIEnv*, jclass, jstring, jint, jint, jint, jstring)>("tloglnFor")(
            java.env(), nullptr, client, session, package, level, text);
    }

    JavaMachine java;
};

/// KorGLog with a private file; package 3 writes up to level 4, package 310 up to 7.
class JavaEntry : public ::testing::Test, protected JavaClass
{
protected:
    JavaEntry() { EXPECT_EQ(KorGLog.Open("test.log", "koral", false), 0); }
    ~JavaEntry() override
    {
        KorGLog.ClearAllLogDestinations();
        EXPECT_TRUE(java.all_released());
    }

    Lines lines() const { return m_directory.lines(); }

    /// The line that a text becomes, without what is the same in all of package 3, level 4.
    std::string line_of(const std::string& text)
    {
        const std::size_t before = lines().size();
        EXPECT_EQ(tlogln(3, 4, text), 0);
        const Lines all = lines();
        if (all.size() != before + 1)
            return std::to_string(all.size() - before) + " lines";
        const std::string start = "<time> WARNING (003) koral (<pid>,<tid>";
        const std::string& line = all.back();
        return line.rfind(start, 0) == 0 ? line.substr(start.size()) : line;
    }

    const LogDirectory m_directory{TO_FILE + "Viewer 310 7\nQuiet 311 0\n"};
};

// tlogln -------------------------------------------------------------------------
TEST_F(JavaEntry, APrefixGivesThreadClassMethodAndLine)
{
    EXPECT_EQ(tlogln(3, 4, "<main,Viewer.load:77>image loaded"), 0);
    EXPECT_EQ(lines(), Lines{"<time> WARNING (003) koral (<pid>,<tid>|main)  Viewer(77) load -> image loaded"});
    EXPECT_EQ(java.acquired, 1);
    EXPECT_EQ(java.released, 1);
}

TEST_F(JavaEntry, TheThreadKeepsTheNameOfItsLastPrefix)
{
    EXPECT_EQ(line_of("<one,C.m:1>a"), "|one)  C(1) m -> a");
    EXPECT_EQ(line_of("no prefix"), "|one)   -> no prefix");
    EXPECT_EQ(line_of("<two,C.m:2>b"), "|two)  C(2) m -> b");
    EXPECT_EQ(line_of("<two,C.m:3>c"), "|two)  C(3) m -> c");
    on_another_thread([] { EXPECT_EQ(JavaClass().tlogln(3, 4, "of another thread"), 0); });
    EXPECT_EQ(lines().back(), "<time> WARNING (003) koral (<pid>,<tid>)   -> of another thread");
}

TEST_F(JavaEntry, ANameThatTheThreadHasAlreadyIsNotSetAgain)
{
    EXPECT_EQ(line_of("<one,C.m:1>a"), "|one)  C(1) m -> a");
    ASSERT_TRUE(KorGLog.CheckMsgLevel(3 * PACKAGE_RANGE, 4));
    EXPECT_TRUE(KorGLog.IsRejected(5, 3)); // the package's level is known
    EXPECT_EQ(line_of("<one,C.m:2>b"), "|one)  C(2) m -> b");
    EXPECT_TRUE(KorGLog.IsRejected(5, 3)); // and still is
    EXPECT_EQ(tlogln(3, 7, "<two,C.m:2>not wanted"), 0);
    EXPECT_EQ(line_of("x"), "|two)   -> x"); // installed though the message was not wanted
}

TEST_F(JavaEntry, ANameThatTheThreadGaveAnotherLogIsInstalledHereToo)
{
    on_another_thread(
        []
        {
            Kor_LogFile other(777, false);
            other.SetThreadName("main");
            EXPECT_EQ(JavaClass().tlogln(3, 4, "<main,Viewer.load:77>image loaded"), 0);
        });
    EXPECT_EQ(lines(), Lines{"<time> WARNING (003) koral (<pid>,<tid>|main)  Viewer(77) load -> image loaded"});
}

TEST_F(JavaEntry, ADestinationGetsTheBodyWithoutThePrefix)
{
    RecordingDestination seen;
    KorGLog.RegisterLogDestination(&seen);
    EXPECT_EQ(tlogln(3, 4, "<main,Viewer.load:77>image loaded"), 0);
    ASSERT_EQ(seen.messages.size(), 1u);
    EXPECT_EQ(seen.messages[0].text, "image loaded");
    EXPECT_EQ(seen.messages[0].length, 12u);
}

TEST_F(JavaEntry, WithoutAPrefixThePlaceIsUnknown)
{
    RecordingDestination seen;
    KorGLog.RegisterLogDestination(&seen);
    EXPECT_EQ(tlogln(3, 4, "image loaded"), 0);

    EXPECT_EQ(lines(), Lines{"<time> WARNING (003) koral (<pid>,<tid>)   -> image loaded"});
    ASSERT_EQ(seen.messages.size(), 1u);
    EXPECT_EQ(seen.messages[0].file_name, "unknown_class");
    EXPECT_EQ(seen.messages[0].function, "unknown_func");
    EXPECT_EQ(seen.messages[0].line, 0);
    EXPECT_EQ(seen.messages[0].text, "image loaded");
    EXPECT_EQ(seen.messages[0].length, 12u);
    EXPECT_FALSE(seen.messages[0].bare);
}

TEST_F(JavaEntry, ALineThatIsNoNumberWritesTheWholeTextAndKeepsTheName)
{
    RecordingDestination seen;
    KorGLog.RegisterLogDestination(&seen);
    EXPECT_EQ(line_of("<main,Viewer.load:x7>image loaded"), "|main)   -> <main,Viewer.load:x7>image loaded");
    ASSERT_EQ(seen.messages.size(), 1u);
    EXPECT_EQ(seen.messages[0].file_name, "Viewer");
    EXPECT_EQ(seen.messages[0].function, "load");
    EXPECT_EQ(seen.messages[0].line, 0);
}

TEST_F(JavaEntry, EveryShapeOfABrokenPrefixIsWrittenWhole)
{
    for (const char* const text :
         {"<", ">", "<>", "<,>", "<,.>", "main,V.l:7>t", "<main V.l:7>t", "<main,V l:7>t", "<main,V.l 7>t",
          "<main,V.l:7 t", "", " "})
        EXPECT_EQ(line_of(text), std::string(")   -> ") + text);
    EXPECT_EQ(line_of("<,.:>t"), "|)   -> t"); // nothing in it, but whole
    EXPECT_EQ(line_of("<a> b,c.d:7"), "|a> b)   -> <a> b,c.d:7");
}

TEST_F(JavaEntry, LineNumbersAreThoseOfC)
{
    EXPECT_EQ(line_of("<t,C.m:0x4D>a"), "|t)  C(77) m -> a");
    EXPECT_EQ(line_of("<t,C.m:077>a"), "|t)  C(63) m -> a");
    EXPECT_EQ(line_of("<t,C.m:-5>a"), "|t)  C(-5) m -> a");
    EXPECT_EQ(line_of("<t,C.m:2147483648>a"), "|t)   -> <t,C.m:2147483648>a");
}

TEST_F(JavaEntry, ADottedClassNameIsSplitAtItsFirstDot)
{
    EXPECT_EQ(line_of("<t,lumaris.Viewer.load:7>a"), "|t)  lumaris(7) Viewer.load -> a");
}

TEST_F(JavaEntry, OnlyLevelsZeroToSevenAreWritten)
{
    for (const int level : {8, 9, 255, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(tlogln(310, level, "<t" + std::to_string(level) + ",C.m:7>a"), 0);
    EXPECT_EQ(lines(), Lines{});
    EXPECT_STREQ(*Kor_LogMTVars::m_thread_name.find(), "t-2147483648"); // the name was taken all the same
    EXPECT_EQ(java.released, 6);
    for (int level = 0; level <= 7; ++level)
        EXPECT_EQ(tlogln(310, level, "a"), 0);
    EXPECT_EQ(lines().size(), 8u);
}

TEST_F(JavaEntry, LevelEightIsNotWrittenThoughThePackageWritesEverything)
{
    KorGLog.SetCustomLogLevel(3, 255, false);
    KorGLog.ClearCacheTable();
    EXPECT_EQ(tlogln(3, 8, "a"), 0);
    EXPECT_EQ(lines(), Lines{});
    EXPECT_EQ(tlogln(3, 7, "b"), 0);
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(JavaEntry, AMessageThatNobodyWantsIsNotWritten)
{
    tlogln(3, 5, "a");
    tlogln(311, 1, "b");
    tlogln(-1, 5, "c");
    tlogln(750, 5, "d");
    EXPECT_EQ(lines(), Lines{});
    tlogln(750, 4, "e"); // as for a package that the configuration does not name
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(JavaEntry, TheTextIsNoFormatAndKeepsItsNewlines)
{
    EXPECT_EQ(line_of("100%d %s %n"), ")   -> 100%d %s %n");
    tlogln(3, 4, "one\n");
    tlogln(3, 4, "two\nthree\n\n");
    const Lines all = lines();
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[1].substr(all[1].find("->")), "-> one");
    EXPECT_EQ(all[2].substr(all[2].find("->")), "-> two");
    EXPECT_EQ(all[3], "three");
    EXPECT_EQ(all[4], "");
}

TEST_F(JavaEntry, ModifiedUtf8IsWrittenAsItIs)
{
    const std::string text = "gr\xC3\xBC\xC3\x9F \xE5\x83\x8F \xED\xA0\xBD\xED\xB8\x80 \xC0\x80 end";
    EXPECT_EQ(
        line_of(
            "<f\xC3\xA4"
            "den,Kl\xC3\xA4sse.m\xC3\xB6:7>" +
            text),
        "|f\xC3\xA4"
        "den)  Kl\xC3\xA4sse(7) m\xC3\xB6 -> " +
            text);
}

TEST_F(JavaEntry, ATextOfAMegabyteIsWrittenWhole)
{
    const std::string text(1 << 20, 'x');
    EXPECT_EQ(line_of("<t,C.m:7>" + text), "|t)  C(7) m -> " + text);
}

TEST_F(JavaEntry, LongNamesInAPrefixAreCutInTheHeadlineOnly)
{
    const std::string name(100000, 'n');
    EXPECT_EQ(tlogln(3, 4, '<' + name + ',' + name + '.' + name + ":7>the text"), 0);
    const Lines all = lines();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_LT(all[0].size(), 300u);
    EXPECT_EQ(all[0].substr(all[0].size() - 9), " the text");
}

TEST_F(JavaEntry, AnEmptyTextIsALine) { EXPECT_EQ(line_of(""), ")   -> "); }

TEST_F(JavaEntry, ANullTextIsWrittenAsNull)
{
    EXPECT_EQ(tlogln(3, 4, nullptr), 0);
    EXPECT_EQ(tlog(nullptr), 0);
    EXPECT_EQ(lines(), (Lines{"<time> WARNING (003) koral (<pid>,<tid>)   -> (null)", "(null)"}));
    EXPECT_EQ(java.acquired, 0);
}

TEST_F(JavaEntry, ATextThatJavaHasNoMemoryForIsNotWritten)
{
    JavaString text{"x"};
    java.refuse = &text;
    EXPECT_EQ(tlogln(3, 4, &text), 0);
    EXPECT_EQ(tlog(&text), 0);
    EXPECT_EQ(lines(), Lines{});
    EXPECT_EQ(java.refused, 2);
    EXPECT_EQ(java.released, 0);
}

TEST_F(JavaEntry, WithoutMemoryForACopyTheCharactersAreReleasedAndNothingIsWritten)
{
    JavaString text{std::string(100000, 'x')};
    Hook<mallocImport>* mallocs = nullptr;
    int failed = 0;
    Hook<mallocImport> hook(
        [&](std::size_t size) -> void*
        {
            if (size < 90000)
                return mallocs->original(size);
            ++failed;
            return nullptr;
        });
    mallocs = &hook;
    ASSERT_TRUE(hook.installed());
    EXPECT_EQ(tlogln(3, 4, &text), 0);
    EXPECT_EQ(tlog(&text), 0);
    EXPECT_EQ(failed, 2);
    EXPECT_EQ(lines(), Lines{});
    EXPECT_EQ(java.acquired, 2);
    EXPECT_EQ(java.released, 2);
}

TEST_F(JavaEntry, ACopyHasRoomForItsTerminator)
{
    std::size_t size_of_copy = 0;
    Hook<mallocImport>* mallocs = nullptr;
    Hook<mallocImport> hook(
        [&](std::size_t size)
        {
            size_of_copy = std::max(size_of_copy, size);
            return mallocs->original(size);
        });
    mallocs = &hook;
    ASSERT_TRUE(hook.installed());
    EXPECT_EQ(tlogln(3, 7, std::string(100000, 'x')), 0); // not wanted: only the copy is made
    EXPECT_EQ(size_of_copy, 100001u);
}

TEST_F(JavaEntry, ALengthBelowZeroIsAnEmptyText)
{
    java.odd_length = -1;
    EXPECT_EQ(tlogln(3, 4, "text"), 0);
    EXPECT_EQ(lines(), Lines{"<time> WARNING (003) koral (<pid>,<tid>)   -> "});
}

TEST_F(JavaEntry, EveryCopyIsFreed)
{
    const auto used = [this]
    {
        tlogln(3, 4, "<main,Viewer.load:77>image loaded");
        tlogln(3, 4, "<main,Viewer.load:x7>image loaded");
        tlogln(3, 9, "<main,Viewer.load:77>image loaded");
        tlogln(3, 7, std::string(5000, 'x'));
        JavaString text{"a text that is longer than a short one"};
        tlog(&text);
    };
    used();
    int live = 0;
    Hook<mallocImport>* mallocs = nullptr;
    Hook<freeImport>* frees = nullptr;
    Hook<mallocImport> malloc_hook(
        [&](std::size_t size)
        {
            ++live;
            return mallocs->original(size);
        });
    mallocs = &malloc_hook;
    Hook<freeImport> free_hook(
        [&](void* memory)
        {
            live -= memory != nullptr ? 1 : 0;
            frees->original(memory);
        });
    frees = &free_hook;
    ASSERT_TRUE(malloc_hook.installed() && free_hook.installed());
    used();
    EXPECT_GE(malloc_hook.calls(), 5);
    EXPECT_EQ(live, 0);
}

TEST_F(JavaEntry, ADestinationsExceptionDoesNotReachJavaAndLosesNoMemory)
{
    struct Thrower : Kor_LogDestBase
    {
        int LogMessage(Kor_LogMTVarsPtr, bool, const char*, unsigned int) override
        {
            throw std::runtime_error("from the destination");
        }
    } thrower;
    KorGLog.RegisterLogDestination(&thrower);
    EXPECT_EQ(tlogln(3, 4, "<main,Viewer.load:77>one"), 0);
    JavaString text{"two"};
    EXPECT_EQ(tlog(&text), 0);
    KorGLog.UnregisterLogDestination(&thrower);
    EXPECT_EQ(lines().size(), 4u); // each with one about the destination

    // The names of the class and the method are gone by now, and nothing may point at them.
    with_context(KorGLog, [](Kor_LogMTVars& context) { EXPECT_STREQ(context.m_file, "unknown file"); });
}

// tlog ---------------------------------------------------------------------------
TEST_F(JavaEntry, TlogWritesABareLine)
{
    RecordingDestination seen;
    KorGLog.RegisterLogDestination(&seen);
    JavaString text{"<main,Viewer.load:77>100%d"};
    EXPECT_EQ(tlog(&text), 0);

    EXPECT_EQ(lines(), Lines{"<main,Viewer.load:77>100%d"});
    ASSERT_EQ(seen.messages.size(), 1u);
    EXPECT_TRUE(seen.messages[0].bare);
    EXPECT_EQ(seen.messages[0].file_name, "Kor_JLogJNIInterface");
    EXPECT_EQ(seen.messages[0].function, "Java_lumaris_infra_log_KoralLog_tlog");
    EXPECT_EQ(seen.messages[0].line, 186);
    EXPECT_EQ(seen.messages[0].level, 1);
    EXPECT_EQ(seen.messages[0].package, 106);
}

TEST_F(JavaEntry, TlogIsCutWhereMessagesAre)
{
    JavaString text{std::string(5000, 'x')};
    EXPECT_EQ(tlog(&text), 0);
    EXPECT_EQ(lines(), Lines{std::string(2046, 'x')});
}

TEST_F(JavaEntry, TlogWritesNothingWhenTheLibrarysPackageIsSilent)
{
    m_directory.configure(TO_FILE + "Library 106 0\n");
    KorGLog.ReadFile();
    KorGLog.ClearCacheTable();
    JavaString text{"x"};
    EXPECT_EQ(tlog(&text), 0);
    EXPECT_EQ(lines(), Lines{});
    EXPECT_EQ(java.released, 1);
}

// checkMsgLevel and close --------------------------------------------------------
TEST_F(JavaEntry, CheckMsgLevelAsksForAPackage)
{
    EXPECT_TRUE(check(3, 4));
    EXPECT_FALSE(check(3, 5));
    EXPECT_TRUE(check(310, 7));
    EXPECT_FALSE(check(311, 1));
    KorGLog.SetCustomLogLevel(12, 5, false);
    KorGLog.ClearCacheTable();
    EXPECT_TRUE(check(12, 5));
    EXPECT_FALSE(check(12, 6));
}

TEST_F(JavaEntry, CheckMsgLevelTakesANumberThatIsNoPackageForOneThatIsNotNamed)
{
    KorGLog.SetCustomLogLevel(0, 7, false);
    KorGLog.ClearCacheTable();
    EXPECT_TRUE(check(0, 7));
    for (const int package : {750, 429497, INT_MAX, -750, INT_MIN})
    {
        EXPECT_TRUE(check(package, 4)) << package;
        EXPECT_FALSE(check(package, 5)) << package;
    }
}

// Of a client --------------------------------------------------------------------
TEST_F(JavaEntry, ALineOfAClientNamesItAndTheNextDoesNot)
{
    JavaString client{"192.0.2.7"};
    JavaString text{"<one,C.m:1>text"};
    KorGLog.SetIP("192.0.2.1");
    EXPECT_EQ(tlogln_for(&client, 3, 3, 4, &text), 0);
    EXPECT_EQ(tlogln_for(&client, 0, 3, 4, &text), 0);
    EXPECT_EQ(tlogln_for(nullptr, 4, 3, 4, &text), 0);
    EXPECT_EQ(tlogln_for(nullptr, 0, 3, 4, nullptr), 0);
    EXPECT_EQ(tlogln(3, 4, &text), 0);
    const std::string head = "<time> WARNING (003) koral (<pid>,<tid>|one) ";
    EXPECT_EQ(
        lines(),
        (Lines{
            head + "ClientIP(192.0.2.7) SessionId(3) C(1) m -> text", head + "ClientIP(192.0.2.7) C(1) m -> text",
            head + "SessionId(4) C(1) m -> text", head + "  -> (null)", head + "ClientIP(192.0.2.1) C(1) m -> text"}));
}

TEST_F(JavaEntry, AClientThatJavaHasNoMemoryForWritesNothing)
{
    JavaString client{"192.0.2.7"};
    JavaString text{"text"};
    java.refuse = &client;
    EXPECT_EQ(tlogln_for(&client, 3, 3, 4, &text), 0);
    EXPECT_FALSE(check_for(&client, 3, 3, 4));
    java.refuse = &text;
    EXPECT_EQ(tlogln_for(&client, 3, 3, 4, &text), 0);
    EXPECT_EQ(java.refused, 3);
    EXPECT_EQ(lines(), Lines());
}

/// Package 3 writes up to level 4, and to 7 for one client and for one session.
class JavaEntryOfClients : public ::testing::Test, protected JavaClass
{
protected:
    JavaEntryOfClients() { EXPECT_EQ(KorGLog.Open("test.log", "koral", false), 0); }

    const LogDirectory m_directory{TO_FILE + "Pages 3 4 [(7;192.0.2.7)(7;;;;9)]\n"};
};

TEST_F(JavaEntryOfClients, RulesAreAskedAboutTheClientThatIsNamed)
{
    JavaString client{"192.0.2.7"};
    JavaString other{"192.0.2.8"};
    JavaString text{"text"};
    EXPECT_TRUE(check_for(&client, 0, 3, 7));
    EXPECT_FALSE(check_for(&other, 0, 3, 7));
    EXPECT_TRUE(check_for(&other, 9, 3, 7));
    EXPECT_TRUE(check_for(nullptr, 9, 3, 7));
    EXPECT_FALSE(check_for(nullptr, 0, 3, 7));
    EXPECT_TRUE(check_for(nullptr, 0, 3, 4));
    EXPECT_FALSE(check(3, 7));
    EXPECT_EQ(tlogln_for(&client, 0, 3, 7, &text), 0);
    EXPECT_EQ(tlogln_for(&other, 0, 3, 7, &text), 0);
    EXPECT_EQ(m_directory.lines(), Lines{"<time> DEBUG   (003) koral (<pid>,<tid>) ClientIP(192.0.2.7)  -> text"});
    EXPECT_TRUE(java.all_released());
}

TEST_F(JavaEntry, CloseDoesNothing)
{
    EXPECT_EQ(close(), 0);
    EXPECT_EQ(line_of("still open"), ")   -> still open");
}

// open ---------------------------------------------------------------------------
class JavaOpen : public ::testing::Test, protected JavaClass
{
protected:
    JavaOpen() : m_out(stdout) {}
    ~JavaOpen() override { EXPECT_TRUE(java.all_released()); }

    const LogDirectory m_directory;
    CapturedStream m_out;
    JavaString m_file{"test.log"};
    JavaString m_name{"k\xC3\xB6ral"};
};

TEST_F(JavaOpen, OpenWithOneNameOpensNoFile)
{
    m_directory.configure(TO_STDERR);
    CapturedStream err(stderr);
    EXPECT_EQ(open(&m_name), 0);
    EXPECT_STREQ(KorGLog.GetApplicationName(), "k\xC3\xB6ral");
    EXPECT_NE(err.text().find("===== k\xC3\xB6ral ("), std::string::npos);
    EXPECT_EQ(m_out.text(), "");
    EXPECT_EQ(java.released, 1);
}

TEST_F(JavaOpen, OpenWithTwoNamesOpensTheFileAndTakesTheName)
{
    EXPECT_EQ(open(&m_file, &m_name), 0);
    EXPECT_EQ(m_directory.text().rfind("===== k\xC3\xB6ral (", 0), 0u);
    EXPECT_EQ(m_out.text(), "");
    EXPECT_EQ(java.released, 2);
    EXPECT_EQ(open(&m_file, &m_file), 0); // open already
    EXPECT_STREQ(KorGLog.GetApplicationName(), "k\xC3\xB6ral");
}

TEST_F(JavaOpen, NullNamesCountAsEmptyOnes)
{
    m_directory.configure(TO_STDERR);
    CapturedStream err(stderr);
    EXPECT_EQ(open(nullptr, nullptr), 0);
    EXPECT_STREQ(KorGLog.GetApplicationName(), "");
    EXPECT_EQ(open(nullptr), 0);
    EXPECT_EQ(m_out.text(), "");
    EXPECT_EQ(java.acquired, 0);
}

TEST_F(JavaOpen, ANameThatJavaHasNoMemoryForFailsWithALineAndOpensNothing)
{
    java.refuse = &m_name;
    EXPECT_EQ(open(&m_name), -1);
    EXPECT_EQ(m_out.text(), "Fail to open system log.\n");
    EXPECT_EQ(open(&m_file, &m_name), -1);
    java.refuse = &m_file;
    EXPECT_EQ(open(&m_file, &m_name), -1);
    EXPECT_EQ(m_out.text(), "Fail to open system log.\nFail to open system log.\nFail to open system log.\n");
    EXPECT_EQ(KorGLog.GetApplicationName(), nullptr);
    EXPECT_EQ(java.acquired, 1); // the file's name, before the application's was refused
}
} // namespace
