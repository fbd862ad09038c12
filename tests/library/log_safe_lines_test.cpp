// Texts from outside that are kept from passing for lines of the log.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <stdexcept>

#include "Kor_PerfmonLogFile.h"
#include "captured_stream.h"
#include "core/log_line.h"
#include "import_hook.h"
#include "log_directory.h"
#include "lumlog.h"
#include "open_line.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(ReportEventA);

const std::string FORGED = "2026-11-22 08:00:00.123+01:00 NOTICE  (320) viewer (32,280)   -> all is well";
const std::string HEAD = "<time> SEVERE  (003) viewer (<pid>,<tid>)  host.cpp(7) main -> ";

#define SAY(...) m_log.LogAt("host.cpp", "main", 7, 1, 3, __VA_ARGS__)

class SafeLines : public ::testing::Test
{
protected:
    SafeLines() { m_log.SetSafeLines(true); }
    ~SafeLines() override { m_log.SetSafeLines(false); }

    void open(const char* application = "viewer") { ASSERT_EQ(m_log.Open("test.log", application), 0); }

    void log_text(const std::string& text)
    {
        m_log.LogTextAt("host.cpp", "main", 7, 1, 3, text.c_str(), static_cast<int>(text.size()));
    }

    Lines lines() const { return m_directory.lines(); }

    const LogDirectory m_directory;
    Kor_LogFile m_log{777, false};
};
} // namespace

TEST_F(SafeLines, WithoutThemTextsGoOutAsTheyAre)
{
    m_log.SetSafeLines(false);
    open();
    SAY("red \x1b[31m\nsecond");
    EXPECT_EQ(lines(), (Lines{HEAD + "red \x1b[31m", "second"}));
}

TEST_F(SafeLines, OrdinaryLinesAreTheSame)
{
    open();
    SAY("read %d pages\tof %s", 12, "front.png");
    SAY("ends itself\n");
    log_text("finished\n");
    EXPECT_EQ(lines(), (Lines{HEAD + "read 12 pages\tof front.png", HEAD + "ends itself", HEAD + "finished"}));
}

TEST_F(SafeLines, ControlCharactersInMessagesAreEscaped)
{
    open();
    SAY("name %s", "\x1b]0;owned\a");
    log_text("bell\a\r\n");
    EXPECT_EQ(lines(), (Lines{HEAD + "name \\x1b]0;owned\\x07", HEAD + "bell\\x07\\r"}));
}

TEST_F(SafeLines, FurtherLinesOfAMessageBeginWithBlanks)
{
    open();
    SAY("user %s", ("x\n" + FORGED).c_str());
    log_text("x\r\n" + FORGED + "\n");
    const Lines all = lines_of(read_file(m_directory.file("test.log")));
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[1], "    " + FORGED);
    EXPECT_EQ(all[3], "    " + FORGED);
    EXPECT_EQ(kor::core::read_log_line(all[1]).kind, kor::core::LogLine::BARE);
}

TEST_F(SafeLines, LinesWithoutAHeadlineBeginWithBlanksToo)
{
    open();
    m_log.LogNoHeadline("%s", FORGED.c_str());
    m_log.LogNoHeadline(4711, "===== %s", "x\ny");
    char text[] = "z\n";
    m_log.SendLogNoLimit(KOR_MSG_NO_HEADLINE, text, 2);
    m_log.LogNoHeadline("%s", "");
    EXPECT_EQ(m_directory.text(), "    " + FORGED + "\n    ===== x\n    y\n    z\n\n");
}

TEST_F(SafeLines, TheBannersStayAsTheyAreButForTheName)
{
    Kor_LogFile log(777, true);
    log.Open("test.log", ("evil\n" + FORGED).c_str());
    const Lines all = lines();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].rfind("===== evil\\n" + FORGED, 0), 0u) << all[0];
    log.Open("viewer");
    m_log.SetSafeLines(false);
}

TEST_F(SafeLines, ALongNameInABannerIsCut)
{
    Kor_LogFile log(777, true);
    log.Open("test.log", ("\x1b" + std::string(1000, 'x')).c_str());
    const Lines all = lines();
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].rfind("===== \\x1b" + std::string(251, 'x') + " (", 0), 0u) << all[0];
}

TEST_F(SafeLines, NamesInHeadlinesAreEscaped)
{
    open("view\ner");
    m_log.SetThreadName("Worker\x1b[2J");
    m_log.SetIPAndSID(
        "192.0.2.7\n"
        "2026",
        3);
    SAY("x");
    m_log.LogAt("ho\tst.cpp", "ma\nin", 7, 1, 3, "y");
    m_log.SetThreadName(nullptr);
    m_log.SetIP(nullptr);
    const Lines all = lines_of(read_file(m_directory.file("test.log")));
    ASSERT_EQ(all.size(), 2u);
    EXPECT_NE(all[0].find(" view\\ner ("), std::string::npos) << all[0];
    EXPECT_NE(
        all[0].find("|Worker\\x1b[2J) ClientIP(192.0.2.7\\n2026) SessionId(3) host.cpp(7) main -> x"),
        std::string::npos)
        << all[0];
    EXPECT_NE(all[1].find(" ho\\tst.cpp(7) ma\\nin -> y"), std::string::npos) << all[1];
}

TEST_F(SafeLines, AHeadlineStaysWithinItsLength)
{
    open(std::string(60, '\x1b').c_str());
    SAY("text");
    const Lines all = lines_of(read_file(m_directory.file("test.log")));
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].size(), kor::core::MAX_HEADLINE + std::string(" text").size());
    EXPECT_EQ(kor::core::read_log_line(all[0]).text, "text");
}

TEST_F(SafeLines, AMessageThatWasCutSaysHowMuchIsMissing)
{
    open();
    SAY("%s", std::string(3000, 'x').c_str());
    SAY("%s", std::string(2046, 'y').c_str());
    log_text(std::string(5000, 'z')); // of any length
    EXPECT_EQ(
        lines(), (Lines{
                     HEAD + std::string(2033, 'x') + "... [967 cut]", HEAD + std::string(2046, 'y'),
                     HEAD + std::string(5000, 'z')}));
}

TEST_F(SafeLines, WithoutThemACutMessageIsJustCut)
{
    m_log.SetSafeLines(false);
    open();
    SAY("%s", std::string(3000, 'x').c_str());
    EXPECT_EQ(lines(), Lines{HEAD + std::string(2046, 'x')});
}

TEST_F(SafeLines, DestinationsGetTheSameText)
{
    open();
    RecordingDestination seen;
    m_log.RegisterLogDestination(&seen);
    SAY("a\nb");
    m_log.LogNoHeadline("c\x1b");
    SAY("%s", std::string(3000, 'x').c_str());
    m_log.UnregisterLogDestination(&seen);
    ASSERT_EQ(seen.messages.size(), 3u);
    EXPECT_EQ(seen.messages[0].text, "a\n    b\n");
    EXPECT_EQ(seen.messages[0].length, 8u);
    EXPECT_EQ(seen.messages[1].text, "    c\\x1b\n");
    EXPECT_EQ(seen.messages[2].length, 2047u); // what they may keep ready for a text
}

TEST_F(SafeLines, WhatADestinationThrowsIsMadeSafeToo)
{
    open();
    RecordingDestination throws([](Kor_LogMTVars&) { throw std::runtime_error("x\n" + FORGED); });
    m_log.RegisterLogDestination(&throws);
    SAY("said");
    m_log.UnregisterLogDestination(&throws);
    const Lines all = lines_of(read_file(m_directory.file("test.log")));
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[2], "    " + FORGED);
}

TEST_F(SafeLines, EventsHaveTheSameText)
{
    m_directory.configure(TO_EVENT_LOG);
    Kor_LogFile log(777, false);
    Lines texts;
    Hook<ReportEventAImport> report(
        [&](HANDLE, WORD, WORD, DWORD, PSID, WORD count, DWORD, LPCSTR* given, void*) -> BOOL
        {
            texts.insert(texts.end(), given, given + count);
            return TRUE;
        });
    ASSERT_TRUE(report.installed());
    log.Open("viewer");
    log.SetThreadName("a\nb");
    log.LogAt("host.cpp", "main", 7, 1, 3, "one\n%s", "two\x1b");
    log.SetThreadName(nullptr);
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_NE(texts[0].find(" a\\nb]"), std::string::npos) << texts[0];
    EXPECT_EQ(texts[1], "one\n    two\\x1b\n");
}

TEST_F(SafeLines, StandardErrorHasTheSameText)
{
    begin_on_a_new_line();
    m_directory.configure(TO_STDERR);
    Kor_LogFile log(777, false);
    log.Open("viewer");
    CapturedStream err(stderr);
    log.LogNoHeadline("%s", "drive\x1b[2J");
    EXPECT_EQ(err.text(), "    drive\\x1b[2J\n");
}

TEST_F(SafeLines, TheMonitorLogIsSafeToo)
{
    KorGLog.Open("test.log", "viewer", false); // whose output it goes by
    Kor_PerfmonLogFile monitor(0);
    monitor.Open("monitor.log", "mea\nsure");
    monitor.SetContext("A4\x1b");
    if (monitor.StoreParams("host.cpp", 1, 1, 0) != 0)
        monitor.Log("=T=%s,ms=%d\n", "load\nalbum\a", 20);
    const Lines all = lines_of(read_file(m_directory.file("monitor.log")));
    ASSERT_EQ(all.size(), 3u); // with a banner
    EXPECT_NE(all[1].find(" mea\\nsure["), std::string::npos) << all[1];
    EXPECT_NE(all[1].find("A4\\x1b: ==T=load"), std::string::npos) << all[1];
    EXPECT_EQ(all[2], "    album\\x07,ms=20");
}

TEST_F(SafeLines, TheVariableCountsInsteadOfTheProgram)
{
    open();
    {
        const EnvironmentVariable off("PRISMATE_LOG_SAFE", "0");
        m_log.SetSafeLines(true);
        SAY("a\x1b");
    }
    {
        const EnvironmentVariable on("PRISMATE_LOG_SAFE", "1");
        m_log.SetSafeLines(false);
        SAY("b\x1b");
    }
    EXPECT_EQ(lines(), (Lines{HEAD + "a\x1b", HEAD + "b\\x1b"}));
}

TEST_F(SafeLines, TheVariableAloneWillDo)
{
    m_log.SetSafeLines(false);
    const EnvironmentVariable on("PRISMATE_LOG_SAFE", "1");
    open();
    SAY("a\x1b");
    EXPECT_EQ(lines(), Lines{HEAD + "a\\x1b"});
}

TEST_F(SafeLines, AnotherValueIsToldOfAndDoesNotCount)
{
    begin_on_a_new_line();
    m_log.SetSafeLines(false);
    const EnvironmentVariable odd("PRISMATE_LOG_SAFE", "yes");
    CapturedStream out(stdout);
    open();
    EXPECT_EQ(out.text(), "Kor_LogFile - Warning - PRISMATE_LOG_SAFE=yes is neither 1 nor 0, so it does not count\n");
    SAY("a\x1b");
    EXPECT_EQ(lines(), Lines{HEAD + "a\x1b"});
}

TEST_F(SafeLines, CProgramsHaveThemToo)
{
    lum_set_safe_lines(0);
    open();
    SAY("a\x1b");
    lum_set_safe_lines(1);
    SAY("b\x1b");
    EXPECT_EQ(lines(), (Lines{HEAD + "a\x1b", HEAD + "b\\x1b"}));
}

TEST(Rotation, CProgramsAskForAsManyFilesAsThereCanBe)
{
    EXPECT_EQ(lum_set_rotation(0), LUM_OK);
    EXPECT_EQ(lum_set_rotation(999), LUM_OK);
    EXPECT_EQ(lum_set_rotation(-1), LUM_FAILED);
    EXPECT_EQ(lum_set_rotation(1000), LUM_FAILED);
    EXPECT_EQ(lum_set_rotation(0), LUM_OK);
}
