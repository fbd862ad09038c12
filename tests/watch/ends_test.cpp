// Ends of watched processes: of those that no handler sees everything is told, of orderly ones nothing.

#include "watched_hosts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Kor_CrashHandlers.h"
#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "lumlog_crash.hpp"
#include "rounds.h"

namespace
{
using ::testing::HasSubstr;

constexpr unsigned long NOT_WATCHED = 40; // exit codes
constexpr unsigned long NOT_ENDED = 41;
constexpr unsigned long ORDERLY = 7;
constexpr unsigned long NTSTATUS_ERROR = 0xC0000374;
constexpr unsigned long LOGOFF = 0x40010004;
constexpr unsigned long CONTROL_C = 0xC000013A;

bool open_watched_host()
{
    KorGLog.Open("test.log", "viewer");
    return Kor_CrashHandlers::Install() && KorGLog.SetRecorder(64 * 1024, 7) == 0 && Kor_SessionLogHost::startWatcher();
}

/// As the system's own thread has a service stop: main waits for it and returns.
int stop_as_a_service()
{
    const HANDLE stop = ::CreateEventA(nullptr, TRUE, FALSE, nullptr);
    std::thread([stop] { ::SetEvent(stop); }).join();
    ::WaitForSingleObject(stop, INFINITE);
    return ORDERLY;
}

void report_work()
{
    Kor_SessionLogGatherer* const session = Kor_SessionLogGatherer::GetInstance();
    session->reportEvent(L"Login", L"user1", Kor_SessionLogGatherer::COUNTED, 1, L"album %d & 13", 12);
    session->reportError(L"Loader", L"cannot read %ls", L"front.png");
    session->reportWarning(L"Loader", L"only %d images", 12);
    KOR_LOG(KorGLog, 7, 310, "page %d is read", 13);
}

void write_to_null()
{
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
}

/// What compilers make of a check that failed, in code that all of them compile.
void interrupt_29h()
{
    constexpr unsigned char CODE[] = {0xB9, 7, 0, 0, 0, 0xCD, 0x29, 0xC3}; // mov ecx, 7; int 29h; ret
    void* const memory = ::VirtualAlloc(nullptr, sizeof CODE, MEM_RESERVE | MEM_COMMIT, PAGE_EXECUTE_READWRITE);
    std::memcpy(memory, CODE, sizeof CODE);
    reinterpret_cast<void (*)()>(memory)();
}

int end_in_this_way(const std::string& way)
{
    if (way == "return")
        return ORDERLY;
    if (way == "exit")
        std::exit(ORDERLY);
    if (way == "_exit")
        ::_exit(ORDERLY);
    if (way == "ExitProcess")
        ::ExitProcess(ORDERLY);
    if (way == "service")
        return stop_as_a_service();
    if (way == "logoff")
        ::TerminateProcess(::GetCurrentProcess(), LOGOFF);
    if (way == "control-c")
        ::TerminateProcess(::GetCurrentProcess(), CONTROL_C);
    if (way == "fast-fail")
        ::RaiseFailFastException(nullptr, nullptr, 0);
    if (way == "int 29h")
        interrupt_29h();
    if (way == "NTSTATUS")
        ::ExitProcess(NTSTATUS_ERROR);
    if (way == "broken heap") // as the system ends a process whose heap it finds broken
        ::TerminateProcess(::GetCurrentProcess(), NTSTATUS_ERROR);
    if (way == "terminate")
        ::TerminateProcess(::GetCurrentProcess(), 3);
    if (way == "null-write")
        write_to_null();
    return NOT_ENDED;
}
} // namespace

KOR_CHILD(ends_watched)
{
    if (!open_watched_host())
        return NOT_WATCHED;
    report_work();
    ::Sleep(static_cast<DWORD>(std::atoi(args[1].c_str()))); // a moment like any other
    return end_in_this_way(args[0]);
}

namespace
{
/// A host that ends so, and what it leaves.
class EndingHost : public Leavings
{
public:
    EndingHost(const std::string& way, unsigned int after_ms) : m_host("ends_watched", options_for(way, after_ms))
    {
        m_host.ensure_begun();
    }

    void wait() { m_result = m_host.wait(PATIENCE_MS); }
    unsigned long exit_code() const { return m_result.finished ? m_result.exit_code : 0; }

private:
    ChildOptions options_for(const std::string& way, unsigned int after_ms) const
    {
        ChildOptions options = directory().for_child();
        options.arguments = {way, std::to_string(after_ms)};
        return options;
    }

    Child m_host;
    ChildResult m_result;
};

/// One that has ended, once its watcher has done everything.
class EndedHost : public EndingHost
{
public:
    explicit EndedHost(const std::string& way) : EndingHost(way, 0)
    {
        wait();
        EXPECT_TRUE(nobody_is_watched()) << way;
    }
};

// Orderly ends ---------------------------------------------------------------------------------------------------
void expect_nothing_told(const std::string& way, unsigned long code)
{
    const EndedHost host(way);
    EXPECT_EQ(host.exit_code(), code) << way;
    EXPECT_EQ(host.crash_lines(), "") << way;
    EXPECT_EQ(host.reports(), 0u) << way;
    EXPECT_EQ(host.dumps(), 0u) << way;
    EXPECT_EQ(host.files("lastlines-", ".log").size(), 0u) << way;
}

TEST(WatchedEnds, OfAReturnFromMainNothingIsTold) { expect_nothing_told("return", ORDERLY); }
TEST(WatchedEnds, OfExitNothingIsTold) { expect_nothing_told("exit", ORDERLY); }
TEST(WatchedEnds, OfExitWithoutCleanUpNothingIsTold) { expect_nothing_told("_exit", ORDERLY); }
TEST(WatchedEnds, OfExitProcessNothingIsTold) { expect_nothing_told("ExitProcess", ORDERLY); }
TEST(WatchedEnds, OfAServiceThatStopsNothingIsTold) { expect_nothing_told("service", ORDERLY); }
TEST(WatchedEnds, OfALogoffNothingIsTold) { expect_nothing_told("logoff", LOGOFF); }
TEST(WatchedEnds, OfAControlCNothingIsTold) { expect_nothing_told("control-c", CONTROL_C); }

// Ends that no handler sees --------------------------------------------------------------------------------------
void expect_all_told(const EndedHost& host, unsigned long code, const std::string& code_text)
{
    EXPECT_EQ(host.exit_code(), code);
    EXPECT_EQ(host.crashes(), 1u) << host.crash_lines();
    EXPECT_THAT(host.crash_lines(), HasSubstr("watch_tests.exe["));
    EXPECT_THAT(host.crash_lines(), HasSubstr(",0] Exception Code: " + code_text + "\n"));
    const std::string report = host.report();
    EXPECT_THAT(report, HasSubstr(" Code=\"" + code_text + '"'));
    EXPECT_THAT(report, HasSubstr("<info>album 12 &amp; 13</info>"));
    EXPECT_THAT(inside(report, "errors"), HasSubstr("<info>cannot read front.png</info>"));
    EXPECT_THAT(inside(report, "warnings"), HasSubstr("<info>only 12 images</info>"));
    const auto lines = host.files("lastlines-", ".log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(host.directory().text(lines.front()), HasSubstr("page 13 is read"));
}

TEST(WatchedEnds, OfAFastFailAllIsTold) { expect_all_told(EndedHost("fast-fail"), 0xC0000602, "0xc0000602"); }
TEST(WatchedEnds, OfInterrupt29hAllIsTold) { expect_all_told(EndedHost("int 29h"), 0xC0000409, "0xc0000409"); }
TEST(WatchedEnds, OfAnExitWithAnErrorOfTheSystemAllIsTold)
{
    expect_all_told(EndedHost("NTSTATUS"), NTSTATUS_ERROR, "0xc0000374");
}
TEST(WatchedEnds, OfABrokenHeapThatTheSystemHasFoundAllIsTold)
{
    expect_all_told(EndedHost("broken heap"), NTSTATUS_ERROR, "0xc0000374");
}
TEST(WatchedEnds, OfATerminateProcessOfItsOwnAllIsTold) { expect_all_told(EndedHost("terminate"), 3, "0x00000003"); }

KOR_CHILD(waits_watched)
{
    if (!open_watched_host())
        return NOT_WATCHED;
    report_work();
    const Signal ready(args[0]);
    const Signal end(args[1]);
    ready.give();
    return end.wait() ? 0 : NOT_ENDED;
}

TEST(WatchedEnds, OfAKillFromOutsideAllIsTold)
{
    const Leavings left;
    const WaitingHost host(left.directory());
    ASSERT_TRUE(host.is_watched());
    host.kill();
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_THAT(left.crash_lines(), HasSubstr("Exception Code: 0x0000dead\n"));
    EXPECT_THAT(left.report(), HasSubstr(" Code=\"0x0000dead\""));
    EXPECT_THAT(left.report(), HasSubstr("<info>cannot read front.png</info>"));
}

// Crashes that the handler sees -----------------------------------------------------------------------------------
TEST(WatchedEnds, OfACrashAllIsToldOnceAndByTheHandler)
{
    const EndedHost host("null-write");
    EXPECT_EQ(host.exit_code(), 0xC0000005);
    EXPECT_EQ(host.crashes(), 1u) << host.crash_lines();
    EXPECT_EQ(host.dumps(), 1u);
    EXPECT_EQ(host.files("lastlines-", ".log").size(), 1u);
    EXPECT_THAT(host.report(), HasSubstr(" Code=\"0xc0000005\""));
    EXPECT_THAT(host.report(), HasSubstr("<statentry ")); // which only the process itself has
    EXPECT_GE(elements(host.report(), "Module").size(), 4u);
    EXPECT_THAT(host.directory().text(), HasSubstr("in watch_tests.exe+0x")); // by the modules that the watcher found
}

// Several ---------------------------------------------------------------------------------------------------------
TEST(WatchedEnds, OfTwoProcessesAreSeenByOneWatcher)
{
    const Leavings left;
    const WaitingHost first(left.directory(), "first");
    ASSERT_TRUE(first.is_watched());
    ASSERT_TRUE(comes_true([] { return Kor_SessionLogWatcher::FindWatcher() != 0; }));
    const unsigned long watcher = Kor_SessionLogWatcher::FindWatcher();
    const WaitingHost second(left.directory(), "second");
    ASSERT_TRUE(second.is_watched());
    EXPECT_EQ(count_watched(), 2u);
    EXPECT_EQ(Kor_SessionLogWatcher::FindWatcher(), watcher);
    second.kill();
    ASSERT_TRUE(comes_true([] { return count_watched() == 1; }));
    EXPECT_EQ(Kor_SessionLogWatcher::FindWatcher(), watcher);
    EXPECT_EQ(first.end_orderly(), 0u);
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(left.crashes(), 1u) << left.crash_lines();
}

TEST(WatchedEnds, OfOneProgramInTheSameSecondLeaveAReportEach)
{
    constexpr unsigned int HOSTS = 3;
    const Leavings left;
    std::vector<std::unique_ptr<WaitingHost>> hosts;
    for (unsigned int i = 0; i < HOSTS; ++i)
    {
        hosts.push_back(std::make_unique<WaitingHost>(left.directory(), std::to_string(i)));
        ASSERT_TRUE(hosts.back()->is_watched());
    }
    ASSERT_TRUE(comes_true([] { return count_watched() == HOSTS; }));
    for (const auto& host : hosts)
        host->kill();
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(left.crashes(), std::size_t{HOSTS}) << left.crash_lines();
    EXPECT_EQ(left.reports(), std::size_t{HOSTS});
}

// Steps of a crash ------------------------------------------------------------------------------------------------
KOR_CHILD(is_ended_after_steps_of_a_crash)
{
    if (!open_watched_host())
        return NOT_WATCHED;
    report_work();
    const int steps = std::atoi(args[0].c_str());
    if (steps >= 1)
        Kor_SessionLogHost::reportToCrashLogFile(nullptr);
    if (steps >= 2)
        Kor_SessionLog::GetInstance()->produceMinidump(nullptr);
    if (steps >= 3)
        Kor_SessionLog::GetInstance()->createReport(nullptr);
    ::TerminateProcess(::GetCurrentProcess(), 5);
    return NOT_ENDED;
}

TEST(WatchedEnds, InTheMiddleOfACrashAreToldOnce)
{
    for (int steps = 0; steps <= 3; ++steps)
    {
        const Leavings left;
        ChildOptions options = left.directory().for_child();
        options.arguments = {std::to_string(steps)};
        Child host("is_ended_after_steps_of_a_crash", options);
        host.ensure_begun();
        EXPECT_EQ(host.wait(PATIENCE_MS).exit_code, 5u);
        ASSERT_TRUE(nobody_is_watched());
        EXPECT_EQ(left.crashes(), 1u) << steps;
        EXPECT_EQ(left.reports(), 1u) << steps;
        EXPECT_EQ(left.files("lastlines-", ".log").size(), 1u) << steps;
        EXPECT_EQ(left.dumps(), steps >= 2 ? 1u : 0u);
        EXPECT_EQ(left.report().find("Written by the watcher") == std::string::npos, steps == 3) << steps;
    }
}

// What hosts ask for -------------------------------------------------------------------------------------------------
KOR_CHILD(wants_the_line_alone_and_is_ended)
{
    Kor_SessionLog::setReportToCrashLogFileOnly(true);
    if (!open_watched_host())
        return NOT_WATCHED;
    ::TerminateProcess(::GetCurrentProcess(), 5);
    return NOT_ENDED;
}

TEST(WatchedEnds, LeaveTheLineAloneWhereTheHostWantsThat)
{
    const Leavings left;
    Child host("wants_the_line_alone_and_is_ended", left.directory().for_child());
    host.ensure_begun();
    EXPECT_EQ(host.wait(PATIENCE_MS).exit_code, 5u);
    ASSERT_TRUE(nobody_is_watched());
    EXPECT_EQ(left.crashes(), 1u);
    EXPECT_EQ(left.reports(), 0u);
}

KOR_CHILD(starts_a_watcher_too_early)
{
    KorGLog.Open("test.log", "viewer");
    const bool without_reporter = Kor_SessionLogHost::startWatcher() || lum_watch_start() == LUM_OK;
    const bool without_watcher = Kor_SessionLogHost::heartbeat("gui", 1000) || lum::heartbeat("gui", 1000);
    return without_reporter || without_watcher ? 1 : 0;
}

TEST(WatchedEnds, AreNotPromisedWithoutAReporter)
{
    const LogDirectory directory;
    EXPECT_EQ(run_child("starts_a_watcher_too_early", directory.for_child()).exit_code, 0u);
    EXPECT_THAT(
        directory.text(), HasSubstr("This process is not watched: Kor_SessionLog is not there, or not switched on."));
    EXPECT_EQ(Kor_SessionLogWatcher::FindWatcher(), 0u);
}

// All ways, again and again --------------------------------------------------------------------------------------------
/// Of these at the same time, one ends in a way that no handler sees, or crashes, each second time.
constexpr int HOSTS_AT_ONCE = 5;

TEST(WatchedEndsAtRandom, AreToldOnceAndOrderlyOnesNever)
{
    const int rounds = rounds_wanted("LUMLOG_TEST_WATCHED_ENDS", 20);
    const char* const orderly[] = {"return", "exit", "_exit", "ExitProcess", "service", "logoff", "control-c"};
    const char* const crashes[] = {"fast-fail", "int 29h", "NTSTATUS", "terminate", "null-write"};
    std::mt19937 random(4711);
    int crashed = 0;
    int false_reports = 0;
    int missing = 0;
    for (int round = 0; round < rounds;)
    {
        std::vector<std::unique_ptr<EndingHost>> hosts;
        std::vector<bool> is_crash;
        for (; hosts.size() < HOSTS_AT_ONCE && round < rounds; ++round)
        {
            is_crash.push_back(round % (2 * HOSTS_AT_ONCE) == HOSTS_AT_ONCE + 3);
            const char* const way =
                is_crash.back() ? crashes[random() % std::size(crashes)] : orderly[random() % std::size(orderly)];
            hosts.push_back(std::make_unique<EndingHost>(way, random() % 50));
        }
        for (const auto& host : hosts)
            host->wait();
        ASSERT_TRUE(nobody_is_watched());
        for (std::size_t i = 0; i < hosts.size(); ++i)
        {
            const EndingHost& host = *hosts[i];
            ASSERT_NE(host.exit_code(), NOT_WATCHED);
            crashed += is_crash[i] ? 1 : 0;
            false_reports += !is_crash[i] && host.crashes() + host.reports() + host.dumps() != 0 ? 1 : 0;
            missing += is_crash[i] && (host.crashes() != 1 || host.reports() != 1) ? 1 : 0;
        }
        if (round % 100 == 0 || round == rounds)
        {
            std::printf(
                "%d orderly ends, %d crashes: %d false reports, %d missing\n", round - crashed, crashed, false_reports,
                missing);
            std::fflush(stdout); // who waits for ten thousand of them reads a pipe
        }
    }
    EXPECT_EQ(false_reports, 0);
    EXPECT_EQ(missing, 0);
}
} // namespace
