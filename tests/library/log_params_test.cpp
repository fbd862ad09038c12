// StoreParams and what a message takes from it.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>

#include "bounded.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

class LogParams : public ::testing::Test
{
protected:
    LogParams() : m_log(777, false)
    {
        m_log.Open("test.log", "viewer");
        m_log.RegisterLogDestination(&m_seen);
    }
    ~LogParams() override { m_log.UnregisterLogDestination(&m_seen); }

    const RecordedMessage& last() const { return m_seen.messages.back(); }

    // Package 3 takes levels up to 5, package 4 none above 0, the others up to 4.
    const LogDirectory m_directory{TO_FILE + "Net 3 5\nMute 4 0\n"};
    RecordingDestination m_seen;
    Kor_LogFile m_log;
};

TEST_F(LogParams, TheLevelTestTakesEverythingUpToThePackagesLevel)
{
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 5, 3), 1);
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 6, 3), 0);
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 0, 3), 1);
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 4, 5), 1);
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 5, 5), 0);
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 1, 4), 0);
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 0, 4), 1);
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 4, 749), 1);
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 5, 749), 0);
}

TEST_F(LogParams, APackageThatDoesNotExistHasTheDefaultLevel)
{
    for (const int package : {750, -1, 2147483647, -2147483647 - 1})
    {
        EXPECT_EQ(m_log.StoreParams("f", "g", 1, 4, package), 1) << package;
        EXPECT_EQ(m_log.StoreParams("f", "g", 1, 5, package), 0) << package;
    }
}

TEST_F(LogParams, TheLastArgumentIsNotLookedAt)
{
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 5, 3, 0), 1);
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 6, 3, 0), 0);
    EXPECT_EQ(m_log.StoreParams("f", "g", 1, 5, 3, -7), 1);
}

TEST_F(LogParams, AMessageCarriesFileFunctionLineLevelAndPackage)
{
    ASSERT_EQ(m_log.StoreParams("Kor_Image", "Load", 210, 5, 3), 1);
    m_log.Log("hello");

    EXPECT_EQ(m_directory.lines(), Lines{"<time> NOTICE  (003) viewer (<pid>,<tid>)  Kor_Image(210) Load -> hello"});
    EXPECT_EQ(last().file_name, "Kor_Image");
    EXPECT_EQ(last().function, "Load");
    EXPECT_EQ(last().line, 210);
    EXPECT_EQ(last().level, 5);
    EXPECT_EQ(last().package, 3);
}

TEST_F(LogParams, TheFileNameStartsPastItsLastBackslash)
{
    const struct
    {
        const char* given;
        const char* kept;
    } rows[] = {
        {"C:\\src\\image\\Kor_Image.cpp", "Kor_Image.cpp"},
        {"Kor_Image.cpp", "Kor_Image.cpp"},
        {"\\Kor_Image.cpp", "Kor_Image.cpp"},
        {"src/image/Kor_Image.cpp", "src/image/Kor_Image.cpp"}, // only backslashes count
        {"a\\b/c", "b/c"},
        {"C:\\src\\", ""},
        {"", ""},
    };
    for (const auto& row : rows)
    {
        ASSERT_EQ(m_log.StoreParams(row.given, "Load", 210, 4, 3), 1);
        m_log.Log("x");
        EXPECT_EQ(last().file_name, row.kept) << row.given;
    }
}

TEST_F(LogParams, TheFileNameIsKeptAsAPointerIntoTheCallersText)
{
    char path[] = "C:\\src\\Kor_Image.cpp";
    ASSERT_EQ(m_log.StoreParams(path, "Load", 210, 4, 3), 1);
    path[7] = 'X'; // what the message shows is read when it is written
    m_log.Log("x");

    EXPECT_EQ(last().file, path + 7);
    EXPECT_EQ(last().file_name, "Xor_Image.cpp");
}

TEST_F(LogParams, ARejectedCallLeavesTheParametersAsTheyWere)
{
    ASSERT_EQ(m_log.StoreParams("Kor_Image", "Load", 210, 3, 3), 1);
    ASSERT_EQ(m_log.StoreParams("other", "Other", 1, 6, 5), 0);
    m_log.Log("x");

    EXPECT_EQ(m_directory.lines(), Lines{"<time> ERROR   (003) viewer (<pid>,<tid>)  Kor_Image(210) Load -> x"});
}

TEST_F(LogParams, ThePlaceIsForgottenAfterOneMessageButLevelAndPackageStay)
{
    ASSERT_EQ(m_log.StoreParams("Kor_Image", "Load", 210, 3, 17), 1);
    m_log.Log("one");
    m_log.Log("two"); // the level is not tested here, only by StoreParams

    EXPECT_EQ(
        m_directory.lines(), (Lines{
                                 "<time> ERROR   (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> one",
                                 "<time> ERROR   (017) viewer (<pid>,<tid>)   -> two"}));
    EXPECT_EQ(last().file_name, "unknown file");
    EXPECT_EQ(last().function, "unknown function");
    EXPECT_EQ(last().line, 0);
}

TEST_F(LogParams, LogDoesNotTestTheLevelItself)
{
    ASSERT_EQ(m_log.StoreParams("Kor_Image", "Load", 210, 7, 3), 0);
    m_log.Log("written all the same");

    EXPECT_EQ(m_seen.messages.size(), 1u);
}

TEST_F(LogParams, StoreParamsAcceptsAContextThatWasNotAccepted)
{
    with_context(m_log, [](Kor_LogMTVars& context) { context.m_accepted = 0; });
    m_log.Log("not accepted");
    ASSERT_EQ(m_log.StoreParams("f", "g", 1, 6, 3), 0);
    m_log.Log("rejected, so still not accepted");
    ASSERT_EQ(m_log.StoreParams("f", "g", 1, 5, 3), 1);
    m_log.Log("accepted");

    EXPECT_EQ(
        m_directory.lines(),
        (Lines{"a look at the context", "<time> NOTICE  (003) viewer (<pid>,<tid>)  f(1) g -> accepted"}));
}

TEST_F(LogParams, SetOutLogLevelChangesTheLevelOfTheNextMessage)
{
    ASSERT_EQ(m_log.StoreParams("f", "g", 1, 3, 3), 1);
    m_log.SetOutLogLevel(7);
    m_log.Log("x");

    EXPECT_EQ(m_directory.lines(), Lines{"<time> DEBUG   (003) viewer (<pid>,<tid>)  f(1) g -> x"});
    EXPECT_EQ(last().level, 7);
}

TEST_F(LogParams, EachThreadHasParametersOfItsOwn)
{
    ASSERT_EQ(m_log.StoreParams("Kor_Image", "Load", 210, 3, 17), 1);
    unsigned long other = 0;
    on_another_thread(
        [&]
        {
            other = ::GetCurrentThreadId();
            m_log.Log("other"); // a new context: level 1, package 0, accepted
        });
    m_log.Log("mine");

    const Lines raw = lines_of(read_file(m_directory.file("test.log")));
    ASSERT_EQ(raw.size(), 2u);
    const std::string process = std::to_string(::GetCurrentProcessId());
    EXPECT_EQ(raw[0].substr(29), " SEVERE  (000) viewer (" + process + "," + std::to_string(other) + ")   -> other");
    EXPECT_EQ(
        raw[1].substr(29), " ERROR   (017) viewer (" + process + "," + std::to_string(::GetCurrentThreadId()) +
                               ")  Kor_Image(210) Load -> mine");
}

TEST_F(LogParams, StoreParamsTakesTheTimeOfTheMessage)
{
    SYSTEMTIME before{};
    SYSTEMTIME after{};
    ::GetLocalTime(&before);
    ASSERT_EQ(m_log.StoreParams("f", "g", 1, 3, 3), 1);
    ::GetLocalTime(&after);
    m_log.Log("x");

    const auto text = [](const SYSTEMTIME& t)
    {
        char buffer[64];
        std::snprintf(
            buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute,
            t.wSecond, t.wMilliseconds);
        return std::string(buffer);
    };
    const std::string stamp = m_directory.text().substr(0, 23);
    EXPECT_LE(text(before), stamp);
    EXPECT_LE(stamp, text(after));
}

// KOR_LOG ------------------------------------------------------------------------
int g_evaluations;

int counted(int value)
{
    ++g_evaluations;
    return value;
}

TEST_F(LogParams, KorLogEvaluatesNoArgumentOfARejectedMessage)
{
    for (int i = 0; i < 3; ++i) // first with an empty cache, then with a filled one
    {
        g_evaluations = 0;
        KOR_LOG(m_log, 6, 3, "%d", counted(1));
        EXPECT_EQ(g_evaluations, 0);
    }
    EXPECT_TRUE(m_seen.messages.empty());
}

TEST_F(LogParams, KorLogEvaluatesEachArgumentOfAnAcceptedMessageOnce)
{
    g_evaluations = 0;
    KOR_LOG(m_log, counted(5), counted(3), "%d and %d", counted(1), counted(2));

    EXPECT_EQ(g_evaluations, 4);
    ASSERT_EQ(m_seen.messages.size(), 1u);
    EXPECT_EQ(last().text, "1 and 2\n");
}

TEST_F(LogParams, KorLogTellsFileFunctionAndLine)
{
    const int line = __LINE__ + 1;
    KOR_LOG(m_log, 5, 3, "x");

    EXPECT_EQ(last().line, line);
    EXPECT_EQ(last().function, "TestBody");
    EXPECT_NE(std::string(__FILE__).find(last().file_name), std::string::npos);
    EXPECT_EQ(last().file_name.find('\\'), std::string::npos);
}

TEST_F(LogParams, KorLogIsOneStatement)
{
    bool other = false;
    if (other)
        KOR_LOG(m_log, 5, 3, "not this");
    else
        other = true;

    EXPECT_TRUE(other);
    EXPECT_TRUE(m_seen.messages.empty());
}

/// Logs an error of its own, in another package and at another place, and rejects a message.
int logs_itself(Kor_LogFile& log)
{
    if (log.StoreParams("other.cpp", "logs_itself", 7, 3, 5) != 0)
        log.Log("from within");
    log.StoreParams("other.cpp", "logs_itself", 8, 6, 6);
    return 12;
}

TEST_F(LogParams, KorLogTellsItsOwnPlaceWhenAnArgumentLogs)
{
    const int line = __LINE__ + 1;
    KOR_LOG(m_log, 4, 3, "free: %d", logs_itself(m_log));

    const std::string place = std::string(KOR_FILE_NAME) + "(" + std::to_string(line) + ") TestBody";
    EXPECT_EQ(
        m_directory.lines(), (Lines{
                                 "<time> ERROR   (005) viewer (<pid>,<tid>)  other.cpp(7) logs_itself -> from within",
                                 "<time> WARNING (003) viewer (<pid>,<tid>)  " + place + " -> free: 12",
                             }));
    ASSERT_EQ(m_seen.messages.size(), 2u);
    EXPECT_EQ(last().level, 4);
    EXPECT_EQ(last().package, 3);
    EXPECT_EQ(last().line, line);
}

int logs_with_the_macro(Kor_LogFile& log)
{
    KOR_LOG(log, 5, 3, "inner");
    return 1;
}

TEST_F(LogParams, KorLogInsideOfKorLogWritesBoth)
{
    KOR_LOG(m_log, 4, 3, "outer %d", logs_with_the_macro(m_log));

    ASSERT_EQ(m_seen.messages.size(), 2u);
    EXPECT_EQ(m_seen.messages[0].text, "inner\n");
    EXPECT_EQ(m_seen.messages[0].level, 5);
    EXPECT_EQ(m_seen.messages[0].function, "logs_with_the_macro");
    EXPECT_EQ(last().text, "outer 1\n");
    EXPECT_EQ(last().level, 4);
    EXPECT_EQ(last().function, "TestBody");
}

TEST_F(LogParams, KorLogFollowsALevelThatChanges)
{
    KOR_LOG(m_log, 6, 3, "rejected");
    ASSERT_EQ(m_log.SetCustomLogLevel(3, 6, true), 0);
    KOR_LOG(m_log, 6, 3, "accepted");
    ASSERT_EQ(m_log.SetCustomLogLevel(3, 5, true), 0);
    KOR_LOG(m_log, 6, 3, "rejected again");

    ASSERT_EQ(m_seen.messages.size(), 1u);
    EXPECT_EQ(last().text, "accepted\n");
}

TEST_F(LogParams, IsWantedIsWhatStoreParamsReturnsAndNotesNothing)
{
    ASSERT_EQ(m_log.StoreParams("before.cpp", "before", 5, 2, 3), 1);
    for (int package = -1; package <= 751; ++package)
        for (int level = 0; level <= 8; ++level)
        {
            const bool wanted = m_log.IsWanted(level, package);
            Kor_LogFile& log = m_log;
            EXPECT_EQ(wanted, log.CheckMsgLevel(long{package} * PACKAGE_RANGE, level) != 0)
                << "package " << package << " level " << level;
        }
    m_log.Log("x");
    EXPECT_EQ(last().line, 5);
    EXPECT_EQ(last().level, 2);
}

// LogAt --------------------------------------------------------------------------
TEST_F(LogParams, LogAtWritesTheLineOfItsPlace)
{
    EXPECT_EQ(m_log.LogAt("C:\\src\\album.cpp", "load", 77, 4, 3, "%s has %d pages", "front.png", 12), 1);

    EXPECT_EQ(
        m_directory.lines(),
        Lines{"<time> WARNING (003) viewer (<pid>,<tid>)  album.cpp(77) load -> front.png has 12 pages"});
    EXPECT_EQ(last().text, "front.png has 12 pages\n");
}

TEST_F(LogParams, LogAtWritesNothingThatIsNotWanted)
{
    for (int i = 0; i < 2; ++i) // first with an empty cache, then with a filled one
        EXPECT_EQ(m_log.LogAt("album.cpp", "load", 77, 6, 3, "x"), 0);
    EXPECT_EQ(m_log.LogAt("album.cpp", "load", 77, 1, 4, "x"), 0);
    EXPECT_EQ(m_log.LogTextAt("album.cpp", "load", 77, 6, 3, "x", 1), 0);

    EXPECT_EQ(m_directory.text(), "");
    EXPECT_TRUE(m_seen.messages.empty());
}

TEST_F(LogParams, LogAtLeavesTheContextAsStoreParamsAndLogDo)
{
    m_log.LogAt("album.cpp", "load", 77, 3, 3, "x");
    m_log.Log("y"); // level, package and accepted stay, the place goes

    EXPECT_EQ(
        m_directory.lines(), (Lines{
                                 "<time> ERROR   (003) viewer (<pid>,<tid>)  album.cpp(77) load -> x",
                                 "<time> ERROR   (003) viewer (<pid>,<tid>)   -> y",
                             }));
}

TEST_F(LogParams, LogAtTakesAMissingFileAndFunction)
{
    m_log.LogAt(nullptr, nullptr, 7, 3, 3, "x");
    EXPECT_EQ(m_directory.lines(), Lines{"<time> ERROR   (003) viewer (<pid>,<tid>)  unknown file(7) -> x"});
}

int log_at(Kor_LogFile& log, int level, const char* format, ...) KOR_PRINTF(3, 4);
int log_at(Kor_LogFile& log, int level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = log.LogAtArgs("album.cpp", "load", 77, level, 3, format, args);
    va_end(args);
    return result;
}

TEST_F(LogParams, LogAtArgsIsLogAtWithAList)
{
    EXPECT_EQ(log_at(m_log, 5, "%s %d", "page", 3), 1);
    EXPECT_EQ(log_at(m_log, 6, "%s %d", "page", 4), 0);
    EXPECT_EQ(m_log.LogAtArgs("album.cpp", "load", 78, 5, 3, "without arguments", nullptr), 1);

    EXPECT_EQ(
        m_directory.lines(), (Lines{
                                 "<time> NOTICE  (003) viewer (<pid>,<tid>)  album.cpp(77) load -> page 3",
                                 "<time> NOTICE  (003) viewer (<pid>,<tid>)  album.cpp(78) load -> without arguments",
                             }));
}

TEST_F(LogParams, LogTextAtWritesATextOfAnyLengthAsItIs)
{
    const std::string text = "100%d %s " + std::string(5000, 'x') + '\n';
    EXPECT_EQ(m_log.LogTextAt("album.cpp", "load", 77, 5, 3, text.c_str(), static_cast<int>(text.size())), 1);
    EXPECT_EQ(m_log.LogTextAt("album.cpp", "load", 78, 5, 3, nullptr, 0), 1);

    EXPECT_EQ(
        m_directory.lines(),
        (Lines{
            "<time> NOTICE  (003) viewer (<pid>,<tid>)  album.cpp(77) load -> " + text.substr(0, text.size() - 1),
            "<time> NOTICE  (003) viewer (<pid>,<tid>)  album.cpp(78) load -> ",
        }));
    EXPECT_EQ(m_seen.messages[0].text, text);
}

TEST_F(LogParams, IsRejectedNeverContradictsStoreParams)
{
    for (int package = -1; package <= 751; ++package)
    {
        for (int level = 0; level <= 8; ++level)
        {
            const bool before = m_log.IsRejected(level, package);
            const bool accepted = m_log.StoreParams("f", "g", 1, level, package) != 0;
            const bool after = m_log.IsRejected(level, package);
            EXPECT_FALSE(accepted && (before || after)) << "package " << package << " level " << level;
        }
    }
    EXPECT_TRUE(m_log.IsRejected(6, 3)); // once known, a rejection is quick
}

// Last error and errno -----------------------------------------------------------
TEST_F(LogParams, AMessageLeavesTheLastErrorAndErrnoAsTheyWere)
{
    ASSERT_EQ(m_log.GetLogLevel(30000), 5);
    const auto set = []
    {
        ::SetLastError(1234);
        errno = 77;
    };
    const auto expect_kept = [](const char* what)
    {
        const unsigned long error = ::GetLastError();
        const int number = errno;
        EXPECT_EQ(error, 1234u) << what;
        EXPECT_EQ(number, 77) << what;
    };
    char text[] = "text\n";

    set();
    m_log.StoreParams("f", "g", 1, 5, 3);
    expect_kept("StoreParams, accepted");
    set();
    m_log.Log("x %d", 1);
    expect_kept("Log");
    set();
    m_log.StoreParams("f", "g", 1, 6, 3);
    expect_kept("StoreParams, rejected");
    set();
    m_log.LogNoHeadline("x");
    expect_kept("LogNoHeadline");
    set();
    m_log.PrintOrLog(nullptr, "x");
    expect_kept("PrintOrLog");
    set();
    m_log.SendLogNoLimit(KOR_MSG_HEADLINE, text, 5);
    expect_kept("SendLogNoLimit");
    set();
    m_log.OSErrLog(2, "x");
    expect_kept("OSErrLog");
    set();
    m_log.OSLog("open", 2);
    expect_kept("OSLog");
    m_log.SetCustomLogLevel(Kor_LogConf::OUTPUT_SYSLOG_FILE, 3, 5, false);
    set();
    m_log.Log("x");
    expect_kept("Log into the event log");
}

TEST_F(LogParams, TheFirstMessageOfAThreadLeavesTheLastErrorAndErrnoAsTheyWere)
{
    unsigned long error = 0;
    int number = 0;
    on_another_thread(
        [&]
        {
            ::SetLastError(1234);
            errno = 77;
            m_log.StoreParams("f", "g", 1, 4, 30);
            m_log.Log("x");
            error = ::GetLastError();
            number = errno;
        });
    EXPECT_EQ(error, 1234u);
    EXPECT_EQ(number, 77);
}
} // namespace
