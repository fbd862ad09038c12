// The end of a process that has both logs open.

#include "Kor_PerfmonLogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "import_hook.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

/// Its end is that of a host's own static object: both logs are there.
struct MeasuresAtItsEnd
{
    ~MeasuresAtItsEnd()
    {
        if (!active)
            return;
        KorPLog.FLog("end", "d", "of", 1);
        KorGLog.LogNoHeadline("at the end");
        std::int64_t time = -1;
        if (KorPLog.Timers().GetTimeAndRemove("life", time) == 1 && time >= 0)
            KorPLog.LogNoHeadline("timed\n");
    }
    bool active = false;
} measures_at_its_end;

HANDLE events_file = nullptr;

/// Takes no memory, as a thread that is stopped while it does leaves the heap unusable for the rest of the
/// process under Wine, whose own function would.
BOOL WINAPI note_event(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCSTR* texts, void*)
{
    DWORD count = 0;
    ::WriteFile(events_file, texts[0], static_cast<DWORD>(std::strlen(texts[0])), &count, nullptr);
    return TRUE;
}

/// Sends the library's events to a file, until the very end of the process.
void note_events()
{
    events_file = ::CreateFileA(
        (std::string(std::getenv("PRISMATE_LOG_DIR")) + "\\events.log").c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
        FILE_SHARE_READ, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    const auto* const hook = new ImportHook("ReportEventA", reinterpret_cast<void*>(&note_event));
    if (!hook->installed())
        std::_Exit(6);
}

KOR_CHILD(ends_with_both_logs)
{
    if (args.size() > 1)
        note_events();
    KorGLog.Open("test.log", "viewer");
    KorPLog.Open("perf.log", "viewer");
    KorPLog.Timers().AddTimer("life");
    measures_at_its_end.active = true;
    if (args[0] == "while threads write")
    {
        std::atomic<int> running{0};
        for (int i = 0; i < 4; ++i)
        {
            std::thread(
                [&running]
                {
                    ++running;
                    for (;;)
                        KorPLog.LogNoHeadline("a line of a thread\n");
                })
                .detach();
        }
        while (running < 4)
            ::Sleep(1);
    }
    return 5;
}

/// The child's monitor log, and what it left of the general one.
struct Logs
{
    Lines monitor;
    Lines general;
};

Logs logs_of(const char* way)
{
    const LogDirectory directory(TO_FILE + "Monitor 109 7\n");
    ChildOptions options = directory.for_child();
    options.arguments = {way};
    const ChildResult child = run_child("ends_with_both_logs", options);
    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 5u);
    EXPECT_EQ(child.err, "");
    return {lines_of(directory.text("perf.log")), directory.lines()};
}

void expect_ends(const Logs& logs)
{
    ASSERT_GE(logs.monitor.size(), 4u);
    EXPECT_EQ(logs.monitor.front().rfind("===== user ", 0), 0u);
    EXPECT_NE(logs.monitor.front().find(" start session ====="), std::string::npos);
    EXPECT_EQ(logs.monitor.back().rfind("===== user ", 0), 0u);
    EXPECT_NE(logs.monitor.back().find(" end session ====="), std::string::npos);
    EXPECT_EQ(
        logs.general, (Lines{
                          "===== viewer (<pid>) Start Session at <time>, User <user> on <host> =====",
                          "at the end",
                          "===== viewer (<pid>) End Session at <time>, User <user> on <host> =====",
                      }));
}

TEST(MonitorExit, BothLogsEndWithTheirBannersAndTheMonitorLogUsesTheGeneralOneUntilThen)
{
    const Logs logs = logs_of("return");
    expect_ends(logs);
    ASSERT_EQ(logs.monitor.size(), 4u);
    EXPECT_NE(logs.monitor[1].find(": =T=end,of=1"), std::string::npos);
    EXPECT_EQ(logs.monitor[2], "timed");
}

TEST(MonitorExit, BothLogsEndWithTheirBannersWhileThreadsWrite)
{
    for (int round = 0; round < 3; ++round)
    {
        const Logs logs = logs_of("while threads write");
        expect_ends(logs);
        for (std::size_t i = 1; i + 1 < logs.monitor.size(); ++i)
        {
            const std::string& line = logs.monitor[i];
            EXPECT_TRUE(
                line == "a line of a thread" || line == "timed" || line.find(": =T=end,of=1") != std::string::npos)
                << line;
        }
    }
}

TEST(MonitorExit, AProcessEndsInOrderWhileThreadsCollectTextsForTheEventLog)
{
    for (int round = 0; round < 5; ++round)
    {
        const LogDirectory directory(TO_EVENT_LOG + "Monitor 109 7\n");
        ChildOptions options = directory.for_child();
        options.arguments = {"while threads write", "events"};
        const ChildResult child = run_child("ends_with_both_logs", options);
        EXPECT_TRUE(child.finished);
        EXPECT_EQ(child.exit_code, 5u);
        const std::string events = directory.text("events.log");
        EXPECT_NE(events.find(" end session ====="), std::string::npos);
        EXPECT_NE(events.find("a line of a thread\n"), std::string::npos);
    }
}

KOR_CHILD(loads_the_library_and_ends)
{
    return KorPLog.Close() == -1 ? 5 : 6; // never opened
}

TEST(MonitorExit, ALogThatWasNeverOpenedWritesNothing)
{
    const LogDirectory directory;
    const ChildResult child = run_child("loads_the_library_and_ends", directory.for_child());
    EXPECT_EQ(child.exit_code, 5u);
    EXPECT_EQ(child.out, "");
}
} // namespace
