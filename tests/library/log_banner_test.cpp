// The lines that a log writes when it opens and when it is destroyed.

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

KOR_IMPORT(ReportEventA);
KOR_IMPORT(SetConsoleTextAttribute);

struct Event
{
    int type;
    int category;
    unsigned long code;
    Lines texts;
};

/// Keeps what would go to the event log.
class Events
{
public:
    Events()
        : m_hook(
              [this](HANDLE, WORD type, WORD category, DWORD code, PSID, WORD count, DWORD, LPCSTR* texts, LPVOID)
              {
                  all.push_back({type, category, code, Lines(texts, texts + count)});
                  return TRUE;
              })
    {
        EXPECT_TRUE(m_hook.installed());
    }

    std::vector<Event> all;

private:
    Hook<ReportEventAImport> m_hook;
};

std::string process() { return std::to_string(::GetCurrentProcessId()); }

std::string user()
{
    char name[255] = {};
    DWORD size = sizeof name;
    ::GetUserNameA(name, &size);
    return name;
}

std::string computer()
{
    char name[255] = {};
    DWORD size = sizeof name;
    ::GetComputerNameA(name, &size);
    return name;
}

/// The line with a time in it that must have the form of one.
std::string without_time(const std::string& line)
{
    const std::size_t at = line.find(" at ");
    if (at == std::string::npos || !is_time_text(line.substr(at + 4, 29)))
        return "no time in: " + line;
    return line.substr(0, at + 4) + "<time>" + line.substr(at + 33);
}

TEST(LogBanner, ALogBeginsAndEndsWithABanner)
{
    const LogDirectory directory;
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
        log.LogNoHeadline("between");
    }
    const Lines lines = lines_of(read_file(directory.file("test.log")));
    ASSERT_EQ(lines.size(), 3u);
    const std::string end = " Session at <time>, User " + user() + " on " + computer() + " =====";
    EXPECT_EQ(without_time(lines[0]), "===== viewer (" + process() + ") Start" + end);
    EXPECT_EQ(lines[1], "between");
    EXPECT_EQ(without_time(lines[2]), "===== viewer (" + process() + ") End" + end);
}

TEST(LogBanner, WithoutTheFlagThereIsNone)
{
    const LogDirectory directory;
    {
        Kor_LogFile log(777, false);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    }
    EXPECT_EQ(directory.text(), "");
}

TEST(LogBanner, TheThreeArgumentOpenDecidesAboutTheBanners)
{
    const LogDirectory directory;
    {
        Kor_LogFile with(777, false);
        ASSERT_EQ(with.Open("with.log", "viewer", true), 0);
        Kor_LogFile without(777, true);
        ASSERT_EQ(without.Open("without.log", "viewer", false), 0);
    }
    EXPECT_EQ(directory.lines("with.log").size(), 2u);
    EXPECT_EQ(directory.text("without.log"), "");
}

TEST(LogBanner, EveryFormOfOpenWritesTheBanner)
{
    const LogDirectory directory(TO_STDERR);
    const Lines banner{"===== viewer (<pid>) Start Session at <time>, User <user> on <host> ====="};
    CapturedStream first(stderr);
    Kor_LogFile by_name(777, true);
    by_name.Open("viewer");
    first.stop();
    EXPECT_EQ(masked_lines(first.text()), banner);

    CapturedStream second(stderr);
    Kor_LogFile by_stream(777, true);
    by_stream.Open(std::fopen(directory.file("stream.log").c_str(), "a"), "viewer");
    second.stop();
    EXPECT_EQ(masked_lines(second.text()), banner);

    CapturedStream last(stderr);
    Kor_LogFile by_file(777, true);
    by_file.Open("test.log", "viewer");
    last.stop();
    EXPECT_EQ(masked_lines(last.text()), banner);

    CapturedStream ends(stderr); // of the three
}

TEST(LogBanner, WithInfoTheStartBannerTellsOfTheSharedBlock)
{
    const EnvironmentVariable info("PRISMATE_LOG_INFO", "x");
    const LogDirectory directory;
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    }
    EXPECT_EQ(
        directory.lines(), (Lines{
                               "===== viewer (<pid>) Start Session at <time>, User <user> on <host> =====",
                               " params: file mapping name is empty size 4383776", // the name is chosen: "empty"
                               "===== viewer (<pid>) End Session at <time>, User <user> on <host> =====",
                           }));
}

TEST(LogBanner, TheBannerWithInfoIsOneMessage)
{
    const EnvironmentVariable info("PRISMATE_LOG_INFO", "x");
    const LogDirectory directory;
    RecordingDestination seen;
    Kor_LogFile log(777, true);
    log.RegisterLogDestination(&seen);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    log.UnregisterLogDestination(&seen);

    ASSERT_EQ(seen.messages.size(), 1u);
    EXPECT_TRUE(seen.messages[0].bare);
    EXPECT_EQ(seen.messages[0].level, 4);
    EXPECT_EQ(lines_of(seen.messages[0].text).size(), 2u);
}

TEST(LogBanner, InTheEventLogTheBannersAreShorter)
{
    const LogDirectory directory(TO_EVENT_LOG);
    Events events;
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    }
    ASSERT_EQ(events.all.size(), 2u);
    ASSERT_EQ(events.all[0].texts.size(), 1u);
    ASSERT_EQ(events.all[1].texts.size(), 1u);
    EXPECT_EQ(
        without_time(events.all[0].texts[0]),
        "===== viewer (" + process() + ") Start Session at <time>, User " + user() + " =====\n");
    EXPECT_EQ(
        without_time(events.all[1].texts[0]),
        "===== viewer (" + process() + ") End Session at <time>, User " + user() + " =====\n");
    EXPECT_EQ(events.all[0].code, 65534u);
    EXPECT_EQ(events.all[1].code, 65534u);
    EXPECT_EQ(events.all[0].category, 0);
}

TEST(LogBanner, InTheEventLogTheInfoVariableChangesNothing)
{
    const EnvironmentVariable info("PRISMATE_LOG_INFO", "x");
    const LogDirectory directory(TO_EVENT_LOG);
    Events events;
    Kor_LogFile log(777, true);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);

    ASSERT_EQ(events.all.size(), 1u);
    EXPECT_EQ(
        without_time(events.all[0].texts[0]),
        "===== viewer (" + process() + ") Start Session at <time>, User " + user() + " =====\n");
}

TEST(LogBanner, InTheEventLogTheStartIsSevereAndTheEndAWarning)
{
    const LogDirectory directory(TO_EVENT_LOG);
    Events events;
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    }
    ASSERT_EQ(events.all.size(), 2u);
    EXPECT_EQ(events.all[0].type, EVENTLOG_ERROR_TYPE);   // level 1
    EXPECT_EQ(events.all[1].type, EVENTLOG_WARNING_TYPE); // level 4
}

TEST(LogBanner, ElsewhereTheStartIsAWarningAndTheEndSevere)
{
    for (const std::string& output : {TO_STDERR, TO_FILE})
    {
        const LogDirectory directory(output);
        CapturedStream err(stderr);
        RecordingDestination seen;
        {
            Kor_LogFile log(777, true);
            log.RegisterLogDestination(&seen);
            ASSERT_EQ(log.Open("test.log", "viewer"), 0);
        }
        ASSERT_EQ(seen.messages.size(), 2u); // destinations are forgotten after the end banner, not before
        EXPECT_EQ(seen.messages[0].level, 4);
        EXPECT_EQ(seen.messages[1].level, 1);
    }
}

TEST(LogBanner, OnTheConsoleTheBannersHaveTheirColours)
{
    const LogDirectory directory(TO_STDERR);
    CapturedStream err(stderr);
    std::vector<int> attributes;
    Hook<SetConsoleTextAttributeImport> hook(
        [&](HANDLE, WORD attribute) -> BOOL
        {
            attributes.push_back(attribute);
            return TRUE;
        });
    ASSERT_TRUE(hook.installed());
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    }
    EXPECT_EQ(attributes, (std::vector<int>{14, 7, 12, 7}));
}

TEST(LogBanner, TheOutputOfTheMomentDecidesTheFormOfTheEndBanner)
{
    const LogDirectory directory(TO_EVENT_LOG);
    Events events;
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
        log.SetCustomLogLevel(Kor_LogConf::OUTPUT_PRIVATE_FILE, 3, 4, false);
    }
    EXPECT_EQ(events.all.size(), 1u);
    EXPECT_EQ(directory.lines(), Lines{"===== viewer (<pid>) End Session at <time>, User <user> on <host> ====="});
}

TEST(LogBanner, OutputTwoWithoutAFileSendsTheLongBannerToTheEventLog)
{
    const LogDirectory directory;
    Events events;
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.Open("viewer"), 0);
    }
    ASSERT_EQ(events.all.size(), 2u);
    EXPECT_NE(events.all[0].texts[0].find(" on " + computer() + " =====\n"), std::string::npos);
    EXPECT_EQ(events.all[0].type, EVENTLOG_WARNING_TYPE);
    EXPECT_EQ(events.all[1].type, EVENTLOG_ERROR_TYPE);
}

TEST(LogBanner, TheBannersAreWrittenWhateverTheThreadsContextAccepts)
{
    const LogDirectory directory;
    RecordingDestination seen;
    {
        Kor_LogFile log(777, true);
        with_context(log, [](Kor_LogMTVars& context) { context.m_accepted = 0; });
        log.RegisterLogDestination(&seen);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
        with_context(log, [](Kor_LogMTVars& context) { context.m_accepted = 0; });
        log.Log("not this");
    }
    const Lines lines = directory.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].substr(0, 26), "===== viewer (<pid>) Start");
    EXPECT_EQ(lines[2].substr(0, 24), "===== viewer (<pid>) End");
}

TEST(LogBanner, TheBannersAreWrittenWhateverTheLevelsSay)
{
    const LogDirectory directory(TO_FILE + "Zero 0 0\nLibrary 106 0\n");
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    }
    EXPECT_EQ(directory.lines().size(), 2u);
}

TEST(LogBanner, TheBannerLeavesTheThreadAcceptedWithItsLevel)
{
    const LogDirectory directory;
    Kor_LogFile log(777, true);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    log.Log("at the banner's level");

    EXPECT_EQ(directory.lines().back(), "<time> WARNING (000) viewer (<pid>,<tid>)   -> at the banner's level");
}

// The log of the process ---------------------------------------------------------
KOR_CHILD(opens_the_process_log)
{
    if (KorGLog.Open("test.log", "viewer") != 0)
        return 1;
    KorGLog.StoreParams("Kor_Image", "Load", 210, 4, 17);
    KorGLog.Log("hello");
    return 0;
}

TEST(LogBanner, TheLogOfTheProcessHasItsBannersOn)
{
    const LogDirectory directory;
    const ChildResult child = run_child("opens_the_process_log", directory.for_child());

    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 0u);
    EXPECT_EQ(
        directory.lines(), (Lines{
                               "===== viewer (<pid>) Start Session at <time>, User <user> on <host> =====",
                               "<time> WARNING (017) viewer (<pid>,<tid>)  Kor_Image(210) Load -> hello",
                               "===== viewer (<pid>) End Session at <time>, User <user> on <host> =====",
                           }));
    EXPECT_EQ(child.out, "");
    EXPECT_EQ(child.err, "");
}

KOR_CHILD(does_nothing) { return 0; }

TEST(LogBanner, AProcessThatNeverOpensItsLogStillSaysGoodbye)
{
    const LogDirectory directory(TO_STDERR);
    const ChildResult child = run_child("does_nothing", directory.for_child());

    EXPECT_EQ(child.exit_code, 0u);
    EXPECT_EQ(child.out, "");
    EXPECT_EQ(
        masked_lines(child.err), Lines{"===== (null) (<pid>) End Session at <time>, User <user> on <host> ====="});
}
} // namespace
