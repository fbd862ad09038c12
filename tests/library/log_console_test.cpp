// Output to standard error: its form, and the colours of the console.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "captured_stream.h"
#include "environment.h"
#include "import_hook.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(SetConsoleTextAttribute);
KOR_IMPORT(ReportEventA);

class LogConsole : public ::testing::Test
{
protected:
    LogConsole() : m_log(777, false) { m_log.Open("test.log", "viewer"); }

    const LogDirectory m_directory{TO_STDERR};
    Kor_LogFile m_log;
};

TEST_F(LogConsole, LinesGoToStandardErrorAndNotToTheFile)
{
    CapturedStream err(stderr);
    m_log.StoreParams("Kor_Image", "Load", 210, 4, 17);
    m_log.Log("hello\n");
    m_log.LogNoHeadline("bare\n");

    EXPECT_EQ(
        masked_lines(err.text()),
        (Lines{"<time> WARNING (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> hello", "bare"}));
    EXPECT_EQ(m_directory.text(), "");
}

TEST_F(LogConsole, ATextWithoutANewlineGetsABlankAndANewline)
{
    CapturedStream err(stderr);
    char text[] = "as it is";
    m_log.PrintOrLog(nullptr, "bare");
    m_log.SendLogNoLimit(65535, text, 8);
    m_log.LogNoHeadline("added before"); // the message itself gets its newline, so no blank

    EXPECT_EQ(
        masked_lines(err.text()),
        (Lines{"bare ", "<time> SEVERE  (000) viewer (<pid>,<tid>)   -> as it is ", "added before"}));
}

TEST_F(LogConsole, TheLevelDecidesTheColour)
{
    const struct
    {
        int level;
        std::vector<int> attributes;
    } rows[] = {
        {0, {12, 7}}, {1, {12, 7}}, {2, {12, 7}}, {3, {12, 7}},
        {4, {14, 7}}, {5, {10, 7}}, {6, {10, 7}}, {7, {7}}, // keeps the colour that is, and resets all the same
    };
    for (const auto& row : rows)
    {
        CapturedStream err(stderr);
        std::vector<int> attributes;
        Hook<SetConsoleTextAttributeImport> hook(
            [&](HANDLE, WORD attribute) -> BOOL
            {
                attributes.push_back(attribute);
                return TRUE;
            });
        ASSERT_TRUE(hook.installed());
        m_log.SetOutLogLevel(row.level);
        m_log.Log("x");

        EXPECT_EQ(attributes, row.attributes) << "headline, level " << row.level;
        attributes.clear();
        m_log.LogNoHeadline("x");
        EXPECT_EQ(attributes, row.attributes) << "bare, level " << row.level;
    }
}

TEST_F(LogConsole, TheColourIsThatOfStandardOutputAndHoldsUntilTheLineIsOut)
{
    CapturedStream err(stderr);
    std::vector<std::string> steps;
    Hook<SetConsoleTextAttributeImport> hook(
        [&](HANDLE console, WORD attribute) -> BOOL
        {
            EXPECT_EQ(console, ::GetStdHandle(STD_OUTPUT_HANDLE));
            steps.push_back(std::to_string(attribute) + " after \"" + err.arrived() + "\"");
            return TRUE;
        });
    ASSERT_TRUE(hook.installed());
    m_log.SetOutLogLevel(4);
    m_log.LogNoHeadline("x");

    EXPECT_EQ(steps, (std::vector<std::string>{"14 after \"\"", "7 after \"x\n\""}));
}

TEST_F(LogConsole, DestinationsGetTheTextWithoutTheConsolesBlank)
{
    CapturedStream err(stderr);
    RecordingDestination seen;
    m_log.RegisterLogDestination(&seen);
    m_log.PrintOrLog(nullptr, "bare");
    m_log.UnregisterLogDestination(&seen);

    ASSERT_EQ(seen.messages.size(), 1u);
    EXPECT_EQ(seen.messages[0].text, "bare");
}

TEST_F(LogConsole, AMessageThatWasCutIsWrittenUpToItsTerminator)
{
    CapturedStream err(stderr);
    const std::string text(3000, 'x');
    m_log.PrintOrLog(nullptr, "%s", text.c_str());

    EXPECT_EQ(err.text(), std::string(2047, 'x') + " \n");
}

// Output 2 without a file --------------------------------------------------------
/// Where a line goes that is meant for a private file when none is open.
std::string place_without_a_file(const char* console_variable)
{
    const EnvironmentVariable console("PRISMATE_LOG_CONSOLE", console_variable);
    const LogDirectory directory;
    CapturedStream err(stderr);
    Hook<ReportEventAImport> reports(
        [&](HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCSTR*, LPVOID) -> BOOL { return TRUE; });
    EXPECT_TRUE(reports.installed());
    Kor_LogFile log(777, false);
    log.Open("viewer");
    log.LogNoHeadline("x");
    err.stop();
    return (err.text() == "x\n" ? "console " : "") + std::to_string(reports.calls());
}

TEST(LogConsoleMode, OutputTwoWithoutAFileGoesToTheConsoleOnlyInConsoleMode)
{
    EXPECT_EQ(place_without_a_file("1"), "console 0");
    EXPECT_EQ(place_without_a_file(""), "1"); // the event log
}

TEST(LogConsoleMode, OnlyExactlyOneTurnsConsoleModeOn)
{
    for (const char* const value : {"1 ", " 1", "11", "0", "2", "true", "1\n"})
        EXPECT_EQ(place_without_a_file(value), "1") << '<' << value << '>';
}

TEST(LogConsoleMode, ConsoleModeDoesNotMoveAnOutputThatHasItsPlace)
{
    const EnvironmentVariable console("PRISMATE_LOG_CONSOLE", "1");
    const LogDirectory directory;
    CapturedStream err(stderr);
    Kor_LogFile log(777, false);
    log.Open("test.log", "viewer");
    log.LogNoHeadline("x");

    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(directory.text(), "x\n");
}

TEST(LogConsoleMode, TheConsoleModeIsThatOfConstruction)
{
    const LogDirectory directory;
    CapturedStream err(stderr);
    Kor_LogFile log(777, false);
    const EnvironmentVariable console("PRISMATE_LOG_CONSOLE", "1");
    Hook<ReportEventAImport> reports(
        [&](HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCSTR*, LPVOID) -> BOOL { return TRUE; });
    ASSERT_TRUE(reports.installed());
    log.Open("viewer");
    log.LogNoHeadline("x");

    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(reports.calls(), 1);
}

TEST(LogConsoleMode, AnUnknownOutputGoesToTheEventLog)
{
    for (const int output : {3, -1000, 77})
    {
        const LogDirectory directory;
        CapturedStream err(stderr);
        Hook<ReportEventAImport> reports(
            [&](HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCSTR*, LPVOID) -> BOOL { return TRUE; });
        ASSERT_TRUE(reports.installed());
        Kor_LogFile log(777, false);
        log.Open("test.log", "viewer");
        const_cast<Kor_LogConf*>(log.GetConf())->output = output;
        log.LogNoHeadline("x");

        EXPECT_EQ(err.text(), "") << output;
        EXPECT_EQ(directory.text(), "") << output;
        EXPECT_EQ(reports.calls(), 1) << output;
    }
}
} // namespace
