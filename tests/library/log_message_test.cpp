// The writing members: texts, newlines, headlines and codes, as the private file gets them.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstring>

#include "captured_stream.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

int send(Kor_LogFile& log, unsigned long code, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    const int result = log.SendLog(code, format, args);
    va_end(args);
    return result;
}

int send(Kor_LogFile& log, bool add_newline, unsigned long code, const char* format, ...)
{
    std::va_list args;
    va_start(args, format);
    const int result = log.SendLog(code, format, args, add_newline);
    va_end(args);
    return result;
}

/// `length` characters that show where a cut fell.
std::string digits(std::size_t length)
{
    std::string text;
    for (std::size_t i = 0; i < length; ++i)
        text += static_cast<char>('0' + i % 10);
    return text;
}

class LogMessage : public ::testing::Test
{
protected:
    LogMessage() : m_log(777, false)
    {
        m_log.Open("test.log", "viewer");
        m_log.RegisterLogDestination(&m_seen);
    }
    ~LogMessage() override { m_log.UnregisterLogDestination(&m_seen); }

    const RecordedMessage& last() const { return m_seen.messages.back(); }

    /// Makes the calling thread's context one that is not accepted, and forgets how.
    void refuse()
    {
        with_context(m_log, [](Kor_LogMTVars& context) { context.m_accepted = 0; });
        m_seen.messages.clear();
        write_file(m_directory.file("test.log"), "");
    }

    const LogDirectory m_directory;
    RecordingDestination m_seen;
    Kor_LogFile m_log;
};

// The forms ----------------------------------------------------------------------
TEST_F(LogMessage, LogWritesAHeadlineAndTheFormattedText)
{
    m_log.StoreParams("Kor_Image", "Load", 210, 4, 17);
    m_log.Log("loaded %d of %s, %5.1f%%", 3, "four", 75.0);

    EXPECT_EQ(
        m_directory.lines(),
        Lines{"<time> WARNING (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> loaded 3 of four,  75.0%"});
    EXPECT_FALSE(last().bare);
    EXPECT_EQ(last().text, "loaded 3 of four,  75.0%\n");
    EXPECT_EQ(last().length, 25u);
}

TEST_F(LogMessage, LogNoHeadlineWritesTheTextAlone)
{
    EXPECT_EQ(m_log.LogNoHeadline("loaded %d", 3), 0);

    EXPECT_EQ(m_directory.text(), "loaded 3\n");
    EXPECT_TRUE(last().bare);
}

TEST_F(LogMessage, EveryCodeButTheHeadlineCodeIsWrittenBare)
{
    const unsigned long codes[] = {0, 1, 65534, 65536, 2170000, 4294967295ul};
    for (const unsigned long code : codes)
        EXPECT_EQ(m_log.LogNoHeadline(code, "code %lu", code), 0);
    EXPECT_EQ(m_log.LogNoHeadline(65535ul, "code 65535"), 0); // named so, and yet with a headline

    EXPECT_EQ(
        m_directory.lines(), (Lines{
                                 "code 0", "code 1", "code 65534", "code 65536", "code 2170000", "code 4294967295",
                                 "<time> SEVERE  (000) viewer (<pid>,<tid>)   -> code 65535"}));
    EXPECT_TRUE(m_seen.messages.front().bare);
    EXPECT_FALSE(last().bare);
}

TEST_F(LogMessage, TheCodeOfAMessageDoesNotSetItsPackage)
{
    m_log.StoreParams("f", "g", 1, 4, 3);
    m_log.LogNoHeadline(2170005ul, "x");

    EXPECT_EQ(last().package, 3);
}

TEST_F(LogMessage, SendLogFormatsAndAddsTheNewline)
{
    EXPECT_EQ(send(m_log, 65535ul, "%s %d", "a", 1), 0);
    EXPECT_EQ(send(m_log, 65534ul, "%s %d", "b", 2), 0);
    EXPECT_EQ(send(m_log, true, 65534ul, "%s %d", "c", 3), 0);

    EXPECT_EQ(m_directory.lines(), (Lines{"<time> SEVERE  (000) viewer (<pid>,<tid>)   -> a 1", "b 2", "c 3"}));
    EXPECT_EQ(last().text, "c 3\n");
}

TEST_F(LogMessage, SendLogDoesNotAskWhetherTheContextIsAccepted)
{
    refuse();
    EXPECT_EQ(send(m_log, 65534ul, "written"), 0);

    EXPECT_EQ(m_directory.text(), "written\n");
}

TEST_F(LogMessage, WithoutANewlineAddedTheFileStillGetsOneAndDestinationsDoNot)
{
    EXPECT_EQ(send(m_log, false, 65534ul, "%s %d", "a", 1), 0);

    EXPECT_EQ(m_directory.text(), "a 1\n");
    EXPECT_EQ(last().text, "a 1");
    EXPECT_EQ(last().length, 3u);
}

TEST_F(LogMessage, SendLogNoLimitWritesAFinishedTextAsItIs)
{
    char percent[] = "100%s %n done";
    EXPECT_EQ(m_log.SendLogNoLimit(65534, percent, static_cast<int>(sizeof percent - 1)), 0);
    char with_newline[] = "line\n";
    EXPECT_EQ(m_log.SendLogNoLimit(65535, with_newline, 5), 0);

    EXPECT_EQ(m_directory.lines(), (Lines{"100%s %n done", "<time> SEVERE  (000) viewer (<pid>,<tid>)   -> line"}));
    EXPECT_EQ(m_seen.messages[0].text, "100%s %n done");
    EXPECT_EQ(m_seen.messages[0].length, 13u);
}

TEST_F(LogMessage, SendLogNoLimitHasNoLimit)
{
    std::string text = digits(100000);
    EXPECT_EQ(m_log.SendLogNoLimit(65534, text.data(), 100000), 0);
    EXPECT_EQ(m_directory.text(), text + "\n");
    EXPECT_EQ(last().text, text);

    write_file(m_directory.file("test.log"), "");
    EXPECT_EQ(m_log.SendLogNoLimit(65535, text.data(), 100000), 0);
    const std::string written = m_directory.text();
    EXPECT_EQ(written.substr(written.find("->")), "-> " + text + "\n");
}

TEST_F(LogMessage, LinesOfAboutTheSizeOfTheirBufferAreWhole)
{
    // Of newlines, which take twice their room in the file; with a headline the size is reached earlier.
    for (const unsigned long code : {65534ul, 65535ul})
        for (int length = 2200; length <= 2310; ++length)
        {
            std::string newlines(static_cast<std::size_t>(length), '\n');
            std::string expected;
            for (int i = 0; i < length; ++i)
                expected += "\r\n";
            write_file(m_directory.file("test.log"), "");
            m_log.SendLogNoLimit(code, newlines.data(), length);

            const std::string bytes = read_file(m_directory.file("test.log"));
            const std::size_t headline = bytes.find("\r\n");
            ASSERT_EQ(bytes.substr(headline), expected) << code << ' ' << length;
            ASSERT_EQ(bytes.substr(0, headline).find("->") != std::string::npos, code == 65535);
        }
}

TEST_F(LogMessage, SendLogNoLimitLooksForTheNewlineWhereTheLengthEnds)
{
    char text[] = "one\ntwo";
    m_log.SendLogNoLimit(65534, text, 4); // the text is written whole, but is taken to end with its newline
    EXPECT_EQ(m_directory.text(), "one\ntwo");

    write_file(m_directory.file("test.log"), "");
    m_log.ReOpen("test.log", "viewer", false);
    m_log.SendLogNoLimit(65534, text, 7);
    EXPECT_EQ(m_directory.text(), "one\ntwo\n");
}

TEST_F(LogMessage, SendLogNoLimitBearsAnEmptyText)
{
    char text[] = "";
    EXPECT_EQ(m_log.SendLogNoLimit(65534, text, 0), 0);
    EXPECT_EQ(m_log.SendLogNoLimit(65535, text, 0), 0);

    EXPECT_EQ(m_directory.lines(), (Lines{"", "<time> SEVERE  (000) viewer (<pid>,<tid>)   -> "}));
}

// Newlines and the limit of 2047 -------------------------------------------------
TEST_F(LogMessage, ATextThatEndsInANewlineIsNotGivenASecondOne)
{
    m_log.LogNoHeadline("one\n");
    m_log.LogNoHeadline("\n");
    m_log.LogNoHeadline("two\n\n");
    m_log.Log("three\n");

    EXPECT_EQ(
        m_directory.lines(), (Lines{"one", "", "two", "", "<time> SEVERE  (000) viewer (<pid>,<tid>)   -> three"}));
}

TEST_F(LogMessage, AnEmptyTextIsANewline)
{
    m_log.LogNoHeadline("%s", "");

    EXPECT_EQ(m_directory.text(), "\n");
    EXPECT_EQ(last().text, "\n");
    EXPECT_EQ(last().length, 1u);
}

TEST_F(LogMessage, AMessageIsCutAt2046CharactersAndANewline)
{
    const struct
    {
        std::size_t length; // without a newline
        std::size_t kept;
    } rows[] = {{2045, 2045}, {2046, 2046}, {2047, 2046}, {2048, 2046}, {2049, 2046}, {5000, 2046}};
    for (const auto& row : rows)
    {
        const std::string text = digits(row.length);
        const auto expect_cut = [&]
        {
            EXPECT_EQ(m_directory.text(), text.substr(0, row.kept) + "\n") << row.length;
            EXPECT_EQ(last().text, text.substr(0, row.kept) + "\n") << row.length;
            EXPECT_EQ(last().length, row.kept + 1) << row.length;
        };
        write_file(m_directory.file("test.log"), "");
        m_log.LogNoHeadline("%s", text.c_str());
        expect_cut();
        write_file(m_directory.file("test.log"), "");
        m_log.LogNoHeadline("%1s", text.c_str()); // with a width it is the C runtime that formats
        expect_cut();
    }
}

TEST_F(LogMessage, AMessageWithItsOwnNewlineIsCutInTheSamePlace)
{
    const struct
    {
        std::size_t length; // the newline not counted
        std::size_t kept;
    } rows[] = {{2044, 2044}, {2045, 2045}, {2046, 2046}, {2047, 2046}, {2048, 2046}, {5000, 2046}};
    for (const auto& row : rows)
    {
        const std::string text = digits(row.length);
        write_file(m_directory.file("test.log"), "");
        m_log.LogNoHeadline("%s\n", text.c_str());

        EXPECT_EQ(m_directory.text(), text.substr(0, row.kept) + "\n") << row.length;
        EXPECT_EQ(last().length, row.kept + 1) << row.length;
    }
}

TEST_F(LogMessage, TheCutCountsTheTextAndNotTheHeadline)
{
    const std::string text = digits(3000);
    m_log.StoreParams("Kor_Image", "Load", 210, 4, 17);
    m_log.Log("%s", text.c_str());

    const std::string written = m_directory.text();
    EXPECT_EQ(written.substr(written.find("->")), "-> " + text.substr(0, 2046) + "\n");
}

TEST_F(LogMessage, WithoutANewlineAddedATooLongTextHasTheLengthMinusOne)
{
    const struct
    {
        std::size_t length;
        unsigned int told;
    } rows[] = {{2046, 2046}, {2047, 2047}, {2048, 0xFFFFFFFF}, {5000, 0xFFFFFFFF}};
    for (const auto& row : rows)
    {
        const std::string text = digits(row.length);
        const auto expect_told = [&]
        {
            EXPECT_EQ(m_directory.text(), text.substr(0, 2047) + "\n") << row.length;
            EXPECT_EQ(last().text, text.substr(0, 2047)) << row.length;
            EXPECT_EQ(last().length, row.told) << row.length;
        };
        write_file(m_directory.file("test.log"), "");
        EXPECT_EQ(send(m_log, false, 65534ul, "%s", text.c_str()), 0);
        expect_told();
        write_file(m_directory.file("test.log"), "");
        EXPECT_EQ(send(m_log, false, 65534ul, "%1s", text.c_str()), 0);
        expect_told();
    }
}

TEST_F(LogMessage, TheFileHoldsTextWithCarriageReturns)
{
    m_log.LogNoHeadline("one");
    m_log.LogNoHeadline("two\nthree\n");

    EXPECT_EQ(read_file(m_directory.file("test.log")), "one\r\ntwo\r\nthree\r\n");
}

TEST_F(LogMessage, ALineIsInTheFileWhenTheCallReturns)
{
    for (int i = 1; i <= 3; ++i)
    {
        m_log.LogNoHeadline("line %d", i);
        EXPECT_EQ(m_directory.lines().size(), static_cast<std::size_t>(i));
    }
}

TEST_F(LogMessage, TheSystemsOwnConversionsAreUnderstood)
{
    m_log.LogNoHeadline("%s", "plain");
    const char* const format = "%I64d %Iu %ls %hs %e";
    send(m_log, 65534ul, format, -9000000000ll, static_cast<std::size_t>(7), L"wide", "narrow", 1.5);

    EXPECT_EQ(m_directory.text(), "plain\n-9000000000 7 wide narrow 1.500000e+000\n");
}

TEST_F(LogMessage, ANullStringIsShownAsOne)
{
    const char* const none = nullptr;
    send(m_log, 65534ul, "<%s>", none);

    EXPECT_EQ(m_directory.text(), "<(null)>\n");
}

// Acceptance ---------------------------------------------------------------------
TEST_F(LogMessage, AContextThatIsNotAcceptedWritesNothing)
{
    refuse();
    CapturedStream out(stdout);

    m_log.Log("x");
    EXPECT_EQ(m_log.LogNoHeadline("x"), -1);
    EXPECT_EQ(m_log.LogNoHeadline(17ul, "x"), -1);
    m_log.PrintAndLog("x");
    EXPECT_EQ(m_log.PrintOrLog(nullptr, "x"), -1);
    m_log.OSErrLog(2, "x");
    m_log.OSLog("x", 2);

    EXPECT_EQ(m_directory.text(), "");
    EXPECT_TRUE(m_seen.messages.empty());
    EXPECT_EQ(out.text(), "");
}

// PrintAndLog and PrintOrLog -----------------------------------------------------
TEST_F(LogMessage, PrintAndLogPrintsTheTextAndLogsItWithAHeadlineAsItIs)
{
    CapturedStream out(stdout);
    m_log.StoreParams("Kor_Image", "Load", 210, 4, 17);
    m_log.PrintAndLog("loaded %d", 3);
    m_log.PrintAndLog("loaded %d\n", 4);
    out.stop();

    EXPECT_EQ(out.text(), "loaded 3loaded 4\n");
    EXPECT_EQ(
        m_directory.lines(), (Lines{
                                 "<time> WARNING (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> loaded 3",
                                 "<time> WARNING (017) viewer (<pid>,<tid>)   -> loaded 4"}));
    EXPECT_EQ(m_seen.messages[0].text, "loaded 3"); // no newline was added
    EXPECT_EQ(m_seen.messages[1].text, "loaded 4\n");
    EXPECT_FALSE(last().bare);
}

TEST_F(LogMessage, PrintAndLogPrintsALongTextWholeAndLogsItsBeginning)
{
    const std::string text = digits(5000);
    CapturedStream out(stdout);
    m_log.PrintAndLog("%s", text.c_str());
    out.stop();

    EXPECT_EQ(out.text(), text);
    EXPECT_EQ(last().text, text.substr(0, 2047));
    EXPECT_EQ(last().length, 0xFFFFFFFFu);
}

TEST_F(LogMessage, PrintOrLogPrintsToAStreamAndForgetsTheParameters)
{
    const std::string path = m_directory.file("print.txt");
    std::FILE* const stream = std::fopen(path.c_str(), "w");
    ASSERT_NE(stream, nullptr);
    m_log.StoreParams("Kor_Image", "Load", 210, 4, 17);

    EXPECT_EQ(m_log.PrintOrLog(stream, "loaded %d", 3), 0);

    EXPECT_EQ(read_file(path), "loaded 3"); // flushed, no newline
    EXPECT_EQ(m_directory.text(), "");
    EXPECT_TRUE(m_seen.messages.empty());
    m_log.Log("after");
    EXPECT_EQ(m_directory.lines(), Lines{"<time> WARNING (017) viewer (<pid>,<tid>)   -> after"});
    std::fclose(stream);
}

TEST_F(LogMessage, PrintOrLogToAStreamDoesNotAskWhetherTheContextIsAccepted)
{
    refuse();
    const std::string path = m_directory.file("print.txt");
    std::FILE* const stream = std::fopen(path.c_str(), "w");
    ASSERT_NE(stream, nullptr);

    EXPECT_EQ(m_log.PrintOrLog(stream, "printed"), 0);

    EXPECT_EQ(read_file(path), "printed");
    std::fclose(stream);
}

TEST_F(LogMessage, PrintOrLogWithoutAStreamLogsBareAndAddsNoNewline)
{
    m_log.StoreParams("Kor_Image", "Load", 210, 4, 17);
    EXPECT_EQ(m_log.PrintOrLog(nullptr, "loaded %d", 3), 0);

    EXPECT_EQ(m_directory.text(), "loaded 3\n");
    EXPECT_EQ(last().text, "loaded 3");
    EXPECT_TRUE(last().bare);
}

// System errors ------------------------------------------------------------------
/// The system's text in the form that the library asks for: one line of any length.
std::string system_text(unsigned int error)
{
    char* text = nullptr;
    ::FormatMessageA(
        0x13FF, nullptr, error, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char*>(&text), 0, nullptr);
    const std::string result = text == nullptr ? "" : text;
    ::LocalFree(text);
    return result;
}

constexpr unsigned int NO_SUCH_ERROR = 0x2FFFFFFF; // an application's own number, never the system's

TEST_F(LogMessage, OSErrLogAppendsTheSystemsTextToTheFormattedOne)
{
    ASSERT_NE(system_text(2), "");
    m_log.StoreParams("Kor_Image", "Load", 210, 3, 17);
    m_log.OSErrLog(2, "cannot open %s (%d):", "a.img", 7);

    EXPECT_EQ(last().text, "cannot open a.img (7): " + system_text(2) + "\n");
    EXPECT_FALSE(last().bare);
    EXPECT_EQ(
        m_directory.lines().front(),
        "<time> ERROR   (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> cannot open a.img (7): " + system_text(2));
}

TEST_F(LogMessage, OSErrLogSaysSoWhenTheSystemHasNoText)
{
    m_log.OSErrLog(NO_SUCH_ERROR, "cannot open %s:", "a.img");
    EXPECT_EQ(last().text, "cannot open a.img: Unable to fetch message for system error 805306367.\n");

    m_log.OSErrLog(0xDFFFFFFF, "x"); // shown as a signed number
    EXPECT_EQ(last().text, "x Unable to fetch message for system error -536870913.\n");
}

TEST_F(LogMessage, OSErrLogBearsALongFormat)
{
    const std::string format = digits(5000);
    m_log.OSErrLog(2, "%s", format.c_str());
    EXPECT_EQ(last().text, format.substr(0, 2046) + "\n");
    void (Kor_LogFile::*const log_error)(unsigned int, const char*, ...) = &Kor_LogFile::OSErrLog;
    (m_log.*log_error)(2, format.c_str());
    EXPECT_EQ(last().text, format.substr(0, 2046) + "\n");
}

TEST_F(LogMessage, OSLogTellsTheCallTheCodeAndTheSystemsText)
{
    m_log.StoreParams("Kor_Image", "Load", 210, 3, 17);
    m_log.OSLog("CreateFile(%s)", 2); // the call is no format

    EXPECT_EQ(
        last().text, "System call <CreateFile(%s)> failed. Error code: 2. Error details: " + system_text(2) + "\n");
    EXPECT_EQ(m_directory.lines().front().substr(0, 57), "<time> ERROR   (017) viewer (<pid>,<tid>)  Kor_Image(210)");
}

TEST_F(LogMessage, OSLogLeavesCodeAndTextAwayWhenTheSystemHasNoText)
{
    m_log.OSLog("CreateFile", NO_SUCH_ERROR);

    EXPECT_EQ(last().text, "System call <CreateFile> failed.\n");
}

// The levels ---------------------------------------------------------------------
TEST_F(LogMessage, EachLevelHasItsNameInTheHeadline)
{
    const char* const names[] = {"NONE    ", "SEVERE  ", "CRITICAL", "ERROR   ",
                                 "WARNING ", "NOTICE  ", "INFO    ", "DEBUG   "};
    m_log.StoreParams("f", "g", 0, 4, 749);
    for (int level = 0; level <= 7; ++level)
    {
        m_log.SetOutLogLevel(level);
        m_log.Log("x");
        EXPECT_EQ(
            m_directory.lines().back(), std::string("<time> ") + names[level] + "(749) viewer (<pid>,<tid>)   -> x");
    }
}

TEST_F(LogMessage, ALevelOutOfRangeIsWrittenWithoutHarm)
{
    for (const int level : {-1, 8, 100, INT_MAX, INT_MIN})
    {
        m_log.SetOutLogLevel(level);
        m_log.Log("still here");
        EXPECT_EQ(last().text, "still here\n") << level;
    }
    EXPECT_EQ(m_directory.lines().size(), 5u);
}

TEST(LogLevels, CheckMsgLevelDividesTheCodeByTenThousand)
{
    const LogDirectory directory(TO_FILE + "Zero 0 6\nTwo 2 3\nThree 3 5\nFour 4 2\nLast 749 7\n");
    Kor_LogFile log(777, false);

    EXPECT_EQ(log.CheckMsgLevel(30012, 5), 1);
    EXPECT_EQ(log.CheckMsgLevel(30012, 6), 0);
    EXPECT_EQ(log.CheckMsgLevel(30012, 4), 1);
    EXPECT_EQ(log.CheckMsgLevel(30000, 5), 1);
    EXPECT_EQ(log.CheckMsgLevel(39999, 5), 1);
    EXPECT_EQ(log.CheckMsgLevel(29999, 4), 0);
    EXPECT_EQ(log.CheckMsgLevel(40000, 3), 0);
    EXPECT_EQ(log.CheckMsgLevel(0, 6), 1);
    EXPECT_EQ(log.CheckMsgLevel(-9999, 6), 1); // truncated toward zero
    EXPECT_EQ(log.CheckMsgLevel(7499999, 7), 1);
    EXPECT_EQ(log.CheckMsgLevel(30012, -1), 1);
    EXPECT_EQ(log.CheckMsgLevel(30012, INT_MIN), 1); // compared with signs
    EXPECT_EQ(log.CheckMsgLevel(30012, INT_MAX), 0);
}

TEST(LogLevels, GetLogLevelDividesTheCodeInTheSameWay)
{
    const LogDirectory directory(TO_FILE + "Zero 0 6\nThree 3 5\nLast 749 7\n");
    Kor_LogFile log(777, false);

    EXPECT_EQ(log.GetLogLevel(30012), 5);
    EXPECT_EQ(log.GetLogLevel(40000), 4);
    EXPECT_EQ(log.GetLogLevel(-9999), 6);
    EXPECT_EQ(log.GetLogLevel(7499999), 7);
}

TEST(LogLevels, ACodeOutsideOfThePackagesHasTheDefaultLevel)
{
    const LogDirectory directory(TO_FILE + "Zero 0 6\n");
    Kor_LogFile log(777, false);

    for (const int code : {7500000, -10000, INT_MAX, INT_MIN})
    {
        EXPECT_EQ(log.GetLogLevel(code), 4) << code;
        EXPECT_EQ(log.CheckMsgLevel(code, 4), 1) << code;
        EXPECT_EQ(log.CheckMsgLevel(code, 5), 0) << code;
    }
}

// SetCustomLogLevel --------------------------------------------------------------
TEST(LogLevels, SetCustomLogLevelSetsAPackagesLevelAndKeepsTheOutput)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);

    EXPECT_EQ(log.SetCustomLogLevel(3, 7, false), 0);

    EXPECT_EQ(log.GetLogLevel(30000), 7);
    EXPECT_EQ(log.GetLogLevel(40000), 4);
    EXPECT_EQ(log.GetConf()->GetOutput(), 2);
}

TEST(LogLevels, SetCustomLogLevelSetsTheOutputUnlessItIsMinusOne)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);

    EXPECT_EQ(log.SetCustomLogLevel(Kor_LogConf::OUTPUT_STDERR, 3, 7, false), 0);
    EXPECT_EQ(log.GetConf()->GetOutput(), 0);
    const int none = -1;
    Kor_LogConf::Output keep;
    std::memcpy(&keep, &none, sizeof keep); // callers pass it, though the enumeration does not have it
    EXPECT_EQ(log.SetCustomLogLevel(keep, 3, 6, false), 0);
    EXPECT_EQ(log.GetConf()->GetOutput(), 0);
    EXPECT_EQ(log.SetCustomLogLevel(Kor_LogConf::OUTPUT_SYSLOG_FILE, 3, 6, false), 0);
    EXPECT_EQ(log.GetConf()->GetOutput(), 1);
    EXPECT_EQ(log.GetConf()->GetPackageDefaultLogLevel(3), 6);
}

TEST(LogLevels, APublishedLevelIsInForceAtTheNextCheck)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.GetLogLevel(30000), 4);
    const unsigned long long stamp = log.GetConf()->GetChangeCount();

    EXPECT_EQ(log.SetCustomLogLevel(3, 7, true), 0);

    EXPECT_NE(log.GetConf()->GetChangeCount(), stamp);
    EXPECT_EQ(log.GetLogLevel(30000), 7);
    EXPECT_EQ(log.StoreParams("f", "g", 1, 7, 3), 1);
}

TEST(LogLevels, ALevelThatIsNotPublishedIsInForceAfterTheNextRebuild)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.GetLogLevel(30000), 4);
    const unsigned long long stamp = log.GetConf()->GetChangeCount();

    EXPECT_EQ(log.SetCustomLogLevel(3, 7, false), 0);
    EXPECT_EQ(log.GetConf()->GetChangeCount(), stamp);
    log.ClearCacheTable();

    EXPECT_EQ(log.GetLogLevel(30000), 7);
}

TEST(LogLevels, SetCustomLogLevelRefusesAPackageThatDoesNotExist)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    for (const int package : {-1, 750, INT_MAX, INT_MIN})
        EXPECT_EQ(log.SetCustomLogLevel(package, 7, false), -1) << package;
}
} // namespace
