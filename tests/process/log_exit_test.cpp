// The end of processes and threads, and of the DLL itself, while the log is in use.

#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <sys/timeb.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"
#include "rounds.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(GetLocalTime);
KOR_IMPORT(GetTimeZoneInformation);
KOR_IMPORT(SystemTimeToTzSpecificLocalTime);
KOR_IMPORT(WriteFile);
KOR_IMPORT(_ftime64);

const std::string START_BANNER = "===== viewer (<pid>) Start Session at <time>, User <user> on <host> =====";
const std::string END_BANNER = "===== viewer (<pid>) End Session at <time>, User <user> on <host> =====";

// Ways out -----------------------------------------------------------------------
[[noreturn]] void sleep_for_ever()
{
    for (;;)
        ::Sleep(INFINITE);
}

KOR_CHILD(leaves_by)
{
    KorGLog.Open("test.log", "viewer");
    KorGLog.LogNoHeadline("before the end");
    const std::string& way = args[0];
    if (way == "ExitProcess")
        ::ExitProcess(5);
    if (way == "exit")
        std::exit(5);
    if (way == "ExitProcess on a thread")
    {
        std::thread(
            []
            {
                KorGLog.LogNoHeadline("from the thread");
                ::ExitProcess(5);
            })
            .detach();
        sleep_for_ever();
    }
    if (way == "exit on a thread")
    {
        std::thread(
            []
            {
                KorGLog.LogNoHeadline("from the thread");
                std::exit(5);
            })
            .detach();
        sleep_for_ever();
    }
    return way == "return" ? 5 : 6;
}

ChildResult leave_by(const LogDirectory& directory, const char* way)
{
    ChildOptions options = directory.for_child();
    options.arguments = {way};
    return run_child("leaves_by", options);
}

TEST(LogExit, EveryCleanWayOutWritesTheEndBannerAndKeepsTheExitCode)
{
    for (const char* const way : {"return", "exit", "ExitProcess", "exit on a thread", "ExitProcess on a thread"})
    {
        const LogDirectory directory;
        const ChildResult child = leave_by(directory, way);
        EXPECT_TRUE(child.finished) << way;
        EXPECT_EQ(child.exit_code, 5u) << way;
        EXPECT_EQ(child.err, "") << way;

        Lines expected{START_BANNER, "before the end"};
        if (std::string(way).find("thread") != std::string::npos)
            expected.push_back("from the thread");
        expected.push_back(END_BANNER);
        EXPECT_EQ(directory.lines(), expected) << way;
    }
}

// Exit under load ----------------------------------------------------------------
KOR_CHILD(leaves_while_threads_write)
{
    KorGLog.Open("test.log", "viewer");
    std::atomic<int> running{0};
    for (int i = 0; i < 4; ++i)
    {
        std::thread(
            [i, &running]
            {
                KorGLog.LogNoHeadline("thread %d begins", i);
                ++running;
                for (;;)
                    KorGLog.LogNoHeadline("thread %d writes a line", i);
            })
            .detach();
    }
    while (running < 4)
        ::Sleep(1);
    if (args[0] == "return")
        return 7;
    if (args[0] == "exit")
        std::exit(7);
    ::ExitProcess(7);
}

TEST(LogExit, AProcessThatEndsWhileThreadsWriteEndsWithWholeLinesAndItsBanner)
{
    for (const char* const way : {"return", "exit", "ExitProcess", "ExitProcess", "return"})
    {
        const LogDirectory directory;
        ChildOptions options = directory.for_child();
        options.arguments = {way};
        const ChildResult child = run_child("leaves_while_threads_write", options);
        EXPECT_TRUE(child.finished) << way;
        EXPECT_EQ(child.exit_code, 7u) << way;

        const Lines lines = directory.lines();
        ASSERT_GE(lines.size(), 6u) << way;
        EXPECT_EQ(lines.back(), END_BANNER) << way;
        for (std::size_t i = 1; i + 1 < lines.size(); ++i)
        {
            const std::string& line = lines[i];
            EXPECT_TRUE(
                line.rfind("thread ", 0) == 0 && (line.compare(8, std::string::npos, " writes a line") == 0 ||
                                                  line.compare(8, std::string::npos, " begins") == 0))
                << way << ": " << line;
        }
    }
}

/// args: the way out.
KOR_CHILD(ends_while_threads_write_lines_with_a_time)
{
    KorGLog.Open("test.log", "viewer");
    std::atomic<int> running{0};
    for (int i = 0; i < 4; ++i)
    {
        std::thread(
            [i, &running]
            {
                for (bool first = true;; first = false)
                {
                    KorGLog.StoreParams("host", "thread", i, 3, 17);
                    KorGLog.Log("writes a line");
                    running += first;
                }
            })
            .detach();
    }
    while (running < 4)
        ::Sleep(1);
    if (args[0] == "return")
        return 7;
    ::ExitProcess(7);
}

TEST(LogExit, ProcessesEndInTimeWhileTheirThreadsWriteLinesWithATime)
{
    const int ends = rounds_wanted("LUMLOG_TEST_ENDS", 40);
    int hung = 0;
    int without_banner = 0;
    for (int i = 0; i < ends; ++i)
    {
        const LogDirectory directory;
        ChildOptions options = directory.for_child();
        options.arguments = {i % 2 == 0 ? "ExitProcess" : "return"};
        const ChildResult child = run_child("ends_while_threads_write_lines_with_a_time", options);
        hung += !child.finished;
        const Lines lines = directory.lines();
        const std::string last = lines.empty() ? "(nothing)" : lines.back();
        without_banner += last != END_BANNER;
        EXPECT_EQ(last, END_BANNER) << "of end " << i + 1;
        if ((i + 1) % 100 == 0 || i + 1 == ends)
        {
            std::printf("%d ends: %d hung, %d without the end banner\n", i + 1, hung, without_banner);
            std::fflush(stdout);
        }
    }
    EXPECT_EQ(hung, 0);
}

/// What asks for the zone. A thread that was ended in there may have a lock of the system's that whoever asks after it
/// waits for: once the process is ending, such a question ends it.
class DeadlyZone
{
public:
    static constexpr UINT WAS_ASKED = 99;

    DeadlyZone()
        : m_local(
              [this](SYSTEMTIME* time)
              {
                  die_if_ending();
                  m_local.original(time);
              }),
          m_zone(
              [this](TIME_ZONE_INFORMATION* zone) -> DWORD
              {
                  die_if_ending();
                  return m_zone.original(zone);
              }),
          m_convert(
              [this](const TIME_ZONE_INFORMATION* zone, const SYSTEMTIME* from, SYSTEMTIME* to) -> BOOL
              {
                  die_if_ending();
                  return m_convert.original(zone, from, to);
              }),
          m_time(
              [this](struct __timeb64* time)
              {
                  die_if_ending();
                  m_time.original(time);
              })
    {
    }

    bool installed() const
    {
        return m_is_ending != nullptr && m_local.installed() && m_zone.installed() && m_convert.installed() &&
               m_time.installed();
    }

private:
    void die_if_ending() const
    {
        if (m_is_ending() != FALSE)
            ::TerminateProcess(::GetCurrentProcess(), WAS_ASKED);
    }

    using IsEnding = BOOLEAN NTAPI();
    IsEnding* const m_is_ending = reinterpret_cast<IsEnding*>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlDllShutdownInProgress")));
    Hook<GetLocalTimeImport> m_local;
    Hook<GetTimeZoneInformationImport> m_zone;
    Hook<SystemTimeToTzSpecificLocalTimeImport> m_convert;
    Hook<_ftime64Import> m_time;
};

/// Takes the time of each line, the end banner's too.
class TimeOfLines final : public Kor_LogDestBase
{
public:
    int LogMessage(Kor_LogMTVarsPtr, bool, const char*, unsigned int) override
    {
        return Kor_PerfmonTimerData::GetTickCount() > 0 ? 0 : -1;
    }
};

/// args: who ends the process, the thread that has "opened" the logs or "another", which has never written a line.
KOR_CHILD(ends_without_a_question_for_the_zone)
{
    static DeadlyZone* const zone = new DeadlyZone; // to the end
    if (!zone->installed())
        return 90;
    static TimeOfLines* const times = new TimeOfLines;
    KorGLog.RegisterLogDestination(times);
    KorGLog.Open("test.log", "viewer");
    KorPLog.Open("perf.log", "viewer");
    if (args[0] == "opened")
        ::ExitProcess(7);
    std::thread([] { ::ExitProcess(7); }).detach();
    sleep_for_ever();
}

TEST(LogExit, NobodyIsAskedForTheZoneOnceTheProcessIsEnding)
{
    for (const char* const who : {"opened", "another"})
    {
        const LogDirectory directory(TO_FILE + "Monitor 109 7\n");
        ChildOptions options = directory.for_child();
        options.arguments = {who};
        const ChildResult child = run_child("ends_without_a_question_for_the_zone", options);
        EXPECT_TRUE(child.finished) << who;
        EXPECT_EQ(child.exit_code, 7u) << who; // and not WAS_ASKED
        EXPECT_EQ(directory.lines(), (Lines{START_BANNER, END_BANNER})) << who;
        EXPECT_NE(directory.text("perf.log").find(" end session ====="), std::string::npos) << who;
    }
}

/// Threads that stop, for good, inside a write of the log.
class StuckInWrite
{
public:
    StuckInWrite()
        : m_entered(unique_name("entered")),
          m_hook(
              [this](HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped) -> BOOL
              {
                  if (::GetCurrentThreadId() == m_thread_id)
                  {
                      m_entered.set();
                      sleep_for_ever();
                  }
                  return ::WriteFile(file, bytes, size, written, overlapped);
              })
    {
    }

    bool installed() const { return m_hook.installed(); }

    /// Starts a thread that comes no further than its second write; null when it did.
    HANDLE start()
    {
        m_entered.reset();
        const HANDLE thread = ::CreateThread(nullptr, 0, &StuckInWrite::body, this, 0, nullptr);
        return m_entered.wait() ? thread : nullptr;
    }

private:
    static DWORD WINAPI body(void* self)
    {
        KorGLog.LogNoHeadline("goes well");
        static_cast<StuckInWrite*>(self)->m_thread_id = ::GetCurrentThreadId();
        KorGLog.LogNoHeadline("gets stuck");
        return 0;
    }

    NamedEvent m_entered;
    std::atomic<DWORD> m_thread_id{0};
    Hook<WriteFileImport> m_hook;
};

KOR_CHILD(leaves_while_a_thread_is_inside_a_write)
{
    KorGLog.Open("test.log", "viewer");
    static StuckInWrite stuck; // the hook stays until the process ends
    if (!stuck.installed())
        return 1;
    if (stuck.start() == nullptr)
        return 2;
    ::ExitProcess(7);
}

TEST(LogExit, AProcessEndsInTimeThoughAThreadWasInsideAWrite)
{
    const LogDirectory directory;
    const ChildResult child = run_child("leaves_while_a_thread_is_inside_a_write", directory.for_child());

    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 7u);
    EXPECT_EQ(directory.lines(), (Lines{START_BANNER, "goes well", END_BANNER}));
}

// Threads that are ended from outside --------------------------------------------
KOR_CHILD(ends_threads_inside_a_write)
{
    KorGLog.Open("test.log", "viewer");
    StuckInWrite stuck;
    if (!stuck.installed())
        return 1;
    for (int i = 0; i < 3; ++i)
    {
        const HANDLE thread = stuck.start();
        if (thread == nullptr)
            return 2;
        ::TerminateThread(thread, 0);
        if (::WaitForSingleObject(thread, 10000) != WAIT_OBJECT_0)
            return 3;
        ::CloseHandle(thread);
        KorGLog.LogNoHeadline("after the end of thread %d", i);
        run_on_threads(2, [](int) { KorGLog.LogNoHeadline("from another thread"); });
    }
    return 7;
}

TEST(LogExit, AThreadThatIsEndedInsideAWriteBlocksNobody)
{
    const LogDirectory directory;
    const ChildResult child = run_child("ends_threads_inside_a_write", directory.for_child());

    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 7u);
    Lines expected{START_BANNER};
    for (int i = 0; i < 3; ++i)
    {
        expected.push_back("goes well");
        expected.push_back("after the end of thread " + std::to_string(i));
        expected.push_back("from another thread");
        expected.push_back("from another thread");
    }
    expected.push_back(END_BANNER);
    EXPECT_EQ(directory.lines(), expected);
}

/// A destination in which one thread, told by its id, stays for good.
struct StuckDestination : Kor_LogDestBase
{
    int LogMessage(Kor_LogMTVarsPtr, bool, const char*, unsigned int) override
    {
        ++calls;
        if (::GetCurrentThreadId() == stuck_thread)
        {
            entered.set();
            sleep_for_ever();
        }
        return 0;
    }
    std::atomic<int> calls{0};
    std::atomic<DWORD> stuck_thread{0};
    NamedEvent entered{unique_name("entered")};
};

KOR_CHILD(ends_a_thread_inside_a_destination)
{
    KorGLog.Open("test.log", "viewer");
    StuckDestination destination;
    KorGLog.RegisterLogDestination(&destination);
    const HANDLE thread = ::CreateThread(
        nullptr, 0,
        [](void* raw) -> DWORD
        {
            static_cast<StuckDestination*>(raw)->stuck_thread = ::GetCurrentThreadId();
            KorGLog.LogNoHeadline("stays in the destination");
            return 0;
        },
        &destination, 0, nullptr);
    if (!destination.entered.wait())
        return 1;
    ::TerminateThread(thread, 0);
    ::WaitForSingleObject(thread, 10000);
    ::CloseHandle(thread);

    KorGLog.LogNoHeadline("after the end of the thread");
    on_another_thread([] { KorGLog.LogNoHeadline("from another thread"); });
    const int calls = destination.calls;
    KorGLog.UnregisterLogDestination(&destination);
    return calls == 3 ? 7 : 2;
}

TEST(LogExit, AThreadThatIsEndedInsideADestinationBlocksNobody)
{
    const LogDirectory directory;
    const ChildResult child = run_child("ends_a_thread_inside_a_destination", directory.for_child());

    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 7u);
    EXPECT_EQ(
        directory.lines(), (Lines{
                               START_BANNER, "stays in the destination", "after the end of the thread",
                               "from another thread", END_BANNER}));
}

KOR_CHILD(ends_threads_at_any_moment)
{
    KorGLog.Open("test.log", "viewer");
    for (int round = 0; round < 40; ++round)
    {
        // One at a time: a thread that has to wait for another uses handles, and closing one takes a
        // lock of Wine's own which a thread that is ended there keeps for ever.
        std::atomic<int> lines{0};
        const HANDLE thread = ::CreateThread(
            nullptr, 0,
            [](void* raw) -> DWORD
            {
                for (;;)
                {
                    KorGLog.LogNoHeadline("a line of a thread that will be ended");
                    ++*static_cast<std::atomic<int>*>(raw);
                }
            },
            &lines, 0, nullptr);
        while (lines < 3 + round % 7) // past its first line, which allocates, and the heap has a lock
            ::Sleep(0);
        ::TerminateThread(thread, 0);
        ::WaitForSingleObject(thread, 10000);
        ::CloseHandle(thread);
        KorGLog.LogNoHeadline("after round %d", round);
    }
    return 7;
}

TEST(LogExit, ThreadsThatAreEndedAtAnyMomentBlockNobody)
{
    const LogDirectory directory;
    const ChildResult child = run_child("ends_threads_at_any_moment", directory.for_child());

    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 7u);
    int rounds = 0;
    for (const std::string& line : directory.lines())
        rounds += line == "after round " + std::to_string(rounds);
    EXPECT_EQ(rounds, 40);
    EXPECT_EQ(directory.lines().back(), END_BANNER);
}

// Crashes ------------------------------------------------------------------------
KOR_CHILD(dies)
{
    KorGLog.Open("test.log", "viewer");
    for (int i = 0; i < 100; ++i)
        KorGLog.LogNoHeadline("line %d", i);
    if (args[0] == "TerminateProcess")
        ::TerminateProcess(::GetCurrentProcess(), 9);
    volatile int* const nowhere = nullptr;
    *nowhere = 1;
    return 0;
}

TEST(LogExit, AProcessThatDiesHasItsLinesInTheFile)
{
    for (const char* const way : {"TerminateProcess", "crash"})
    {
        const LogDirectory directory;
        ChildOptions options = directory.for_child();
        options.arguments = {way};
        const ChildResult child = run_child("dies", options);
        EXPECT_TRUE(child.finished) << way;
        EXPECT_EQ(child.exit_code, way == std::string("crash") ? 0xC0000005u : 9u) << way;

        const Lines lines = directory.lines();
        ASSERT_EQ(lines.size(), 101u) << way;
        EXPECT_EQ(lines.back(), "line 99") << way;
    }
}

// Loading and unloading ----------------------------------------------------------
/// A copy of the DLL under a name of its own, so that its coming and going is not that of the one
/// which the test program is linked with.
class LoadedCopy
{
public:
    explicit LoadedCopy(const std::string& path) : m_module(::LoadLibraryA(path.c_str()))
    {
        m_log = reinterpret_cast<Kor_LogFile*>(address("KorGLog"));
        find(m_open, "_ZN11Kor_LogFile4OpenEPKcS1_");
        find(m_write, "_ZN11Kor_LogFile13LogNoHeadlineEPKcz");
        find(m_set_thread_name, "_ZN11Kor_LogFile13SetThreadNameEPKc");
    }
    LoadedCopy(const LoadedCopy&) = delete;
    LoadedCopy& operator=(const LoadedCopy&) = delete;
    ~LoadedCopy() { ::FreeLibrary(m_module); }

    bool complete() const { return m_log && m_open && m_write && m_set_thread_name; }

    int open(const char* file, const char* app) const { return m_open(m_log, file, app); }
    int write(const char* text) const { return m_write(m_log, "%s", text); }
    void set_thread_name(const char* name) const { m_set_thread_name(m_log, name); }

private:
    void* address(const char* name) const
    {
        return m_module == nullptr ? nullptr : reinterpret_cast<void*>(::GetProcAddress(m_module, name));
    }
    template <class F>
    void find(F& function, const char* name) const
    {
        function = reinterpret_cast<F>(address(name));
    }

    HMODULE m_module;
    Kor_LogFile* m_log;
    int (*m_open)(Kor_LogFile*, const char*, const char*) = nullptr;
    int (*m_write)(Kor_LogFile*, const char*, ...) = nullptr;
    void (*m_set_thread_name)(Kor_LogFile*, const char*) = nullptr;
};

/// Copies the DLL of this process to `path`.
bool copy_library(const std::string& path)
{
    char library[MAX_PATH + 1] = {};
    ::GetModuleFileNameA(library_module(), library, sizeof library);
    return ::CopyFileA(library, path.c_str(), FALSE) != 0;
}

constexpr int CYCLES = 100;

/// The first slots of both kinds that are free: they move up when slots are not given back.
std::pair<DWORD, DWORD> free_slots()
{
    const std::pair<DWORD, DWORD> slots(::FlsAlloc(nullptr), ::TlsAlloc());
    ::FlsFree(slots.first);
    ::TlsFree(slots.second);
    return slots;
}

KOR_CHILD(loads_and_unloads)
{
    std::pair<DWORD, DWORD> slots;
    for (int i = 0; i < CYCLES; ++i)
    {
        if (i == 1)
            slots = free_slots(); // after the slot that this program's own first thread takes for good
        const LoadedCopy copy(args[0]);
        if (!copy.complete())
            return 1;
        if (copy.open("test.log", "viewer") != 0)
            return 2;
        copy.set_thread_name("Main");
        copy.write("main thread");
        on_another_thread(
            [&]
            {
                copy.set_thread_name("Other");
                copy.write("other thread");
            });
    }
    return free_slots() == slots ? 7 : 3;
}

TEST(LogExit, TheLibraryCanBeLoadedAndUnloadedOverAndOver)
{
    const LogDirectory directory;
    const std::string copy = directory.file("kor_copy.dll");
    ASSERT_TRUE(copy_library(copy));
    ChildOptions options = directory.for_child();
    options.arguments = {copy};
    const ChildResult child = run_child("loads_and_unloads", options);

    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 7u);
    Lines expected;
    for (int i = 0; i < CYCLES; ++i)
        expected.insert(expected.end(), {START_BANNER, "main thread", "other thread", END_BANNER});
    EXPECT_EQ(directory.lines(), expected);
}

KOR_CHILD(unloads_before_its_threads_end)
{
    const NamedEvent written(unique_name("written"));
    const NamedEvent unloaded(unique_name("unloaded"));
    std::vector<std::unique_ptr<BoundedThread>> threads;
    for (int i = 0; i < 20; ++i)
    {
        const LoadedCopy copy(args[0]);
        if (!copy.complete())
            return 1;
        copy.open("test.log", "viewer");
        written.reset();
        threads.push_back(std::make_unique<BoundedThread>(
            [&]
            {
                copy.set_thread_name("Stays");
                copy.write("a thread that stays");
                written.set();
                unloaded.wait();
            }));
        if (!written.wait())
            return 2;
    }
    unloaded.set();
    threads.clear(); // they end after the copy whose slots they used
    return 7;
}

TEST(LogExit, TheLibraryCanBeUnloadedBeforeTheThreadsThatUsedItEnd)
{
    const LogDirectory directory;
    const std::string copy = directory.file("kor_copy.dll");
    ASSERT_TRUE(copy_library(copy));
    ChildOptions options = directory.for_child();
    options.arguments = {copy};
    const ChildResult child = run_child("unloads_before_its_threads_end", options);

    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 7u);
    EXPECT_EQ(directory.lines().size(), 60u);
}

KOR_CHILD(unloads_while_threads_are_gone_by_force)
{
    const LoadedCopy copy(args[0]);
    if (!copy.complete())
        return 1;
    copy.open("test.log", "viewer");
    copy.write("before");
    const NamedEvent written(unique_name("written"));
    struct Work
    {
        const LoadedCopy& copy;
        const NamedEvent& written;
    } work{copy, written};
    const HANDLE thread = ::CreateThread(
        nullptr, 0,
        [](void* raw) -> DWORD
        {
            static_cast<Work*>(raw)->copy.write("by a thread that is ended");
            static_cast<Work*>(raw)->written.set();
            sleep_for_ever();
        },
        &work, 0, nullptr);
    if (!written.wait())
        return 2;
    ::TerminateThread(thread, 0);
    ::WaitForSingleObject(thread, 10000);
    ::CloseHandle(thread);
    return 7;
}

TEST(LogExit, TheLibraryCanBeUnloadedAfterAThreadThatUsedItWasEnded)
{
    const LogDirectory directory;
    const std::string copy = directory.file("kor_copy.dll");
    ASSERT_TRUE(copy_library(copy));
    ChildOptions options = directory.for_child();
    options.arguments = {copy};
    const ChildResult child = run_child("unloads_while_threads_are_gone_by_force", options);

    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 7u);
    EXPECT_EQ(directory.lines(), (Lines{START_BANNER, "before", "by a thread that is ended", END_BANNER}));
}
} // namespace
