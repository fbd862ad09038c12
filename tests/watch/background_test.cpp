// Hosts whose watcher is started by a thread of the library's own.

#include "watched_hosts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Kor_CrashHandlers.h"
#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "import_hook.h"
#include "lumlog_crash.hpp"

namespace
{
using ::testing::HasSubstr;

constexpr unsigned long NOT_STARTED = 40; // exit codes
constexpr unsigned long NOT_ENDED = 41;
constexpr unsigned long ENDED = 5;

bool start_in_background() { return Kor_CrashHandlers::Install() && Kor_SessionLogHost::startWatcherInBackground(); }

bool is_watched() { return Kor_SessionLogWatcher::FindWatcher() != 0 && count_watched() == 1; }

void write_to_null()
{
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
}

/// In the place of CreateProcessW: a program whose start takes until somebody lets it.
HANDLE start_is_let = nullptr;

BOOL WINAPI start_late(
    const wchar_t* path, wchar_t* line, SECURITY_ATTRIBUTES* process, SECURITY_ATTRIBUTES* thread, BOOL inherit,
    DWORD flags, void* environment, const wchar_t* folder, STARTUPINFOW* startup, PROCESS_INFORMATION* made)
{
    ::WaitForSingleObject(start_is_let, PATIENCE_MS);
    return ::CreateProcessW(path, line, process, thread, inherit, flags, environment, folder, startup, made);
}

BOOL WINAPI refuse_to_start(
    const wchar_t*, wchar_t*, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*, BOOL, DWORD, void*, const wchar_t*,
    STARTUPINFOW*, PROCESS_INFORMATION*)
{
    ::SetLastError(ERROR_FILE_NOT_FOUND);
    return FALSE;
}
} // namespace

KOR_CHILD(is_watched_from_the_background)
{
    const Signal end(args[0]);
    start_is_let = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const ImportHook hook("CreateProcessW", reinterpret_cast<void*>(&start_late));
    KorGLog.Open("test.log", "viewer");
    if (!start_in_background() || !Kor_SessionLogHost::heartbeat("gui", 3'600'000))
        return NOT_STARTED;
    const bool has_begun = Kor_SessionLogWatcher::FindWatcher() != 0;
    const bool is_recorded = KorGLog.SetRecorder(64 * 1024, 7) == 0;
    KOR_LOG(KorGLog, 7, 310, "page %d is read", 13);
    ::SetEvent(start_is_let);
    if (has_begun || !is_recorded || !end.wait())
        return NOT_ENDED;
    ::TerminateProcess(::GetCurrentProcess(), ENDED);
    return NOT_ENDED;
}

KOR_CHILD(crashes_while_its_watcher_starts)
{
    start_is_let = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    const ImportHook hook("CreateProcessW", reinterpret_cast<void*>(&start_late));
    KorGLog.Open("test.log", "viewer");
    if (!start_in_background())
        return NOT_STARTED;
    write_to_null();
    return NOT_ENDED;
}

KOR_CHILD(has_no_watcher_to_start)
{
    const Signal end(args[0]);
    const ImportHook hook("CreateProcessW", reinterpret_cast<void*>(&refuse_to_start));
    KorGLog.Open("test.log", "viewer");
    return start_in_background() && end.wait() ? ENDED : NOT_STARTED;
}

KOR_CHILD(starts_a_watcher_and_ends)
{
    KorGLog.Open("test.log", "viewer");
    return Kor_CrashHandlers::Install() && lum::start_watcher_in_background() ? ENDED : NOT_STARTED;
}

KOR_CHILD(starts_a_watcher_in_background_too_early)
{
    KorGLog.Open("test.log", "viewer");
    return Kor_SessionLogHost::startWatcherInBackground() || lum::start_watcher_in_background() ? NOT_STARTED : ENDED;
}

namespace
{
TEST(WatchedFromTheBackground, AnEndThatNoHandlerSeesIsToldOnceTheWatcherIsThere)
{
    const Leavings left;
    const HostToEnd host(left.directory(), "is_watched_from_the_background");
    ASSERT_TRUE(comes_true(&is_watched));
    EXPECT_EQ(host.end(), ENDED);
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(left.crashes(), 1u);
    EXPECT_EQ(left.reports(), 1u);
    const auto lines = left.files("lastlines-", ".log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(left.directory().text(lines.front()), HasSubstr("page 13 is read"));
}

TEST(WatchedFromTheBackground, ACrashBeforeIsAsWithout)
{
    const Leavings left;
    Child host("crashes_while_its_watcher_starts", left.directory().for_child());
    host.ensure_begun();
    EXPECT_EQ(host.wait(PATIENCE_MS).exit_code, 0xC0000005u);
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(left.crashes(), 1u);
    EXPECT_EQ(left.reports(), 1u);
    EXPECT_EQ(left.dumps(), 1u);
}

TEST(WatchedFromTheBackground, ThatThereIsNoWatcherStandsInTheLog)
{
    const Leavings left;
    const HostToEnd host(left.directory(), "has_no_watcher_to_start");
    EXPECT_TRUE(comes_true(
        [&]
        {
            return left.directory().text().find("This process is not watched: LUMlogWatch.exe, which is to be beside "
                                                "LUMlog.dll or the program, does not start.") != std::string::npos;
        }));
    EXPECT_EQ(host.end(), ENDED);
    EXPECT_TRUE(nobody_is_watched());
}

TEST(WatchedFromTheBackground, AnOrderlyEndBeforeLeavesNothing)
{
    for (int round = 0; round < 10; ++round)
    {
        const Leavings left;
        Child host("starts_a_watcher_and_ends", left.directory().for_child());
        host.ensure_begun();
        EXPECT_EQ(host.wait(PATIENCE_MS).exit_code, ENDED);
        ASSERT_TRUE(nobody_is_watched());
        EXPECT_EQ(left.crash_lines(), "");
        EXPECT_EQ(left.reports() + left.dumps() + left.files("lastlines-", ".log").size(), 0u);
    }
}

TEST(WatchedFromTheBackground, NothingIsUnderWayWithoutAReporter)
{
    const LogDirectory directory;
    EXPECT_EQ(run_child("starts_a_watcher_in_background_too_early", directory.for_child()).exit_code, ENDED);
    EXPECT_THAT(
        directory.text(), HasSubstr("This process is not watched: Kor_SessionLog is not there, or not switched on."));
    EXPECT_EQ(Kor_SessionLogWatcher::FindWatcher(), 0u);
}
} // namespace
