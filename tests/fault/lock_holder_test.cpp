// The library's locks when whoever holds one may not be looked at, does not move, or has ended.

#include <gtest/gtest.h>
#include <windows.h>

#include <sys/timeb.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "Kor_UIFeatureLog.h"
#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"
#include "slow_clock.h"

namespace
{
using Gatherer = Kor_SessionLogGatherer;
using Lines = std::vector<std::string>;
using Work = std::function<void()>;

KOR_IMPORT(GetComputerNameW);
KOR_IMPORT(GetCurrentThreadId);
KOR_IMPORT(GetThreadTimes);
KOR_IMPORT(LoadLibraryExW);
KOR_IMPORT(OpenThread);
KOR_IMPORT(WriteFile);
KOR_IMPORT(_ftime64);
KOR_IMPORT(_strdup);
KOR_IMPORT(malloc);

constexpr ULONGLONG LONGEST_WAIT_MS = 10'000;
constexpr ULONGLONG LEEWAY_MS = 200;
constexpr int FEW_SLEEPS = 100;

// A thread inside of a lock -------------------------------------------------------
/// A system call of the library in which one thread stays until it is told to go on.
class Halt
{
public:
    /// The calling thread stays in its next call of that function, or in one after it.
    void stop_me_at(const char* function, int calls_before = 0)
    {
        m_function = function;
        m_calls_before = calls_before;
        m_thread = ::GetCurrentThreadId();
    }

    bool wait_until_entered() const { return m_entered.wait(); }
    void go_on() const { m_leave.set(); }

    /// To be called first by what stands for a function.
    void pass(const char* function)
    {
        if (m_thread != ::GetCurrentThreadId() || m_function != function || m_calls_before-- > 0)
            return;
        m_thread = 0;
        m_entered.set();
        m_leave.wait(60000);
    }

private:
    NamedEvent m_entered{unique_name("entered")};
    NamedEvent m_leave{unique_name("leave")};
    std::atomic<DWORD> m_thread{0};
    std::string m_function;
    int m_calls_before = 0;
};

/// The functions that the library calls while it holds its locks.
class Halts
{
public:
    explicit Halts(Halt& halt)
        : m_write(
              [this, &halt](HANDLE file, const void* bytes, DWORD size, DWORD* done, OVERLAPPED* overlapped) -> BOOL
              {
                  halt.pass("WriteFile");
                  return m_write.original(file, bytes, size, done, overlapped);
              }),
          m_time(
              [this, &halt](struct __timeb64* time)
              {
                  halt.pass("_ftime64");
                  m_time.original(time);
              }),
          m_copy(
              [this, &halt](const char* text) -> char*
              {
                  halt.pass("_strdup");
                  return m_copy.original(text);
              }),
          m_memory(
              [this, &halt](std::size_t size) -> void*
              {
                  halt.pass("malloc");
                  return m_memory.original(size);
              }),
          m_name(
              [this, &halt](wchar_t* name, DWORD* size) -> BOOL
              {
                  halt.pass("GetComputerNameW");
                  return m_name.original(name, size);
              }),
          m_library(
              [this, &halt](const wchar_t* name, HANDLE file, DWORD flags) -> HMODULE
              {
                  halt.pass("LoadLibraryExW");
                  return m_library.original(name, file, flags);
              })
    {
    }

    bool installed() const
    {
        return m_write.installed() && m_time.installed() && m_copy.installed() && m_memory.installed() &&
               m_name.installed() && m_library.installed();
    }

private:
    Hook<WriteFileImport> m_write;
    Hook<_ftime64Import> m_time;
    Hook<_strdupImport> m_copy;
    Hook<mallocImport> m_memory;
    Hook<GetComputerNameWImport> m_name;
    Hook<LoadLibraryExWImport> m_library;
};

/// Threads may not be looked at, as where the caller impersonates somebody who may not.
class DeniedThreads
{
public:
    explicit DeniedThreads(DWORD error = ERROR_ACCESS_DENIED)
        : m_hook(
              [this, error](DWORD, BOOL, DWORD) -> HANDLE
              {
                  if (++m_calls == SOME)
                      m_asked.set();
                  ::SetLastError(error);
                  return nullptr;
              })
    {
    }

    bool installed() const { return m_hook.installed(); }
    const NamedEvent& asked() const { return m_asked; } ///< set when it was asked for some times

private:
    static constexpr int SOME = 3;

    NamedEvent m_asked{unique_name("asked")};
    std::atomic<int> m_calls{0};
    Hook<OpenThreadImport> m_hook;
};

/// A thread that uses a lock while threads may not be looked at.
class LockUser
{
public:
    LockUser(const DeniedThreads& denied, Work use) : LockUser(denied.asked(), std::move(use)) {}

    /// asked: set when the library has looked for the lock's holder.
    LockUser(const NamedEvent& asked, Work use)
        : m_asked(asked), m_thread(
                              [this, work = std::move(use)]
                              {
                                  work();
                                  m_through = true;
                                  m_asked.set();
                              },
                              90000)
    {
    }

    /// True when it looks for the holder and does not go on.
    bool waits() const { return m_asked.wait() && !m_through; }

    void join() { m_thread.join(); }

private:
    const NamedEvent& m_asked;
    std::atomic<bool> m_through{false};
    BoundedThread m_thread;
};

class LockHolder : public ::testing::Test
{
protected:
    LockHolder()
    {
        EXPECT_TRUE(m_halts.installed());
        KorGLog.Open("test.log", "viewer", false);
    }

    /// A thread that holds a lock: hold() gets it and calls the function while it has it.
    std::unique_ptr<BoundedThread> start_holder(const char* function, Work hold)
    {
        auto holder = std::make_unique<BoundedThread>(
            [this, function, work = std::move(hold)]
            {
                m_halt.stop_me_at(function);
                work();
            },
            90000);
        EXPECT_TRUE(m_halt.wait_until_entered());
        return holder;
    }

    /// Runs use, which needs that lock, on another thread; true when it waits for the holder, who must not be
    /// looked at for the given reason.
    bool waits(const Work& use, DWORD error = ERROR_ACCESS_DENIED)
    {
        const DeniedThreads denied(error);
        EXPECT_TRUE(denied.installed());
        LockUser user(denied, use);
        const bool waiting = user.waits();
        m_halt.go_on();
        user.join();
        return waiting;
    }

    const LogDirectory m_directory;
    Halt m_halt;
    const Halts m_halts{m_halt};
};

// A holder that may not be looked at -----------------------------------------------
TEST_F(LockHolder, OfTheLogFileLivesThoughItMayNotBeLookedAt)
{
    const auto holder = start_holder("WriteFile", [] { KorGLog.LogNoHeadline("first"); });
    EXPECT_TRUE(waits([] { KorGLog.LogNoHeadline("second"); }));
    holder->join();
    EXPECT_EQ(m_directory.lines(), (Lines{"first", "second"}));
}

TEST_F(LockHolder, LivesWhateverKeepsItFromBeingLookedAt)
{
    for (const DWORD error :
         {DWORD{ERROR_NOT_ENOUGH_MEMORY}, DWORD{ERROR_TOO_MANY_OPEN_FILES}, DWORD{ERROR_NO_SYSTEM_RESOURCES}})
    {
        Halt halt;
        const Halts halts(halt);
        BoundedThread holder(
            [&]
            {
                halt.stop_me_at("WriteFile");
                KorGLog.LogNoHeadline("first");
            });
        ASSERT_TRUE(halt.wait_until_entered());
        m_halt.go_on();
        const DeniedThreads denied(error);
        const LockUser user(denied, [] { KorGLog.LogNoHeadline("second"); });
        EXPECT_TRUE(user.waits()) << error;
        halt.go_on();
    }
}

TEST_F(LockHolder, OfTheIdentityLivesThoughItMayNotBeLookedAt)
{
    KorGLog.SetIP(nullptr); // the first call asks for a variable
    Kor_LogFile other(777, false);
    const auto holder = start_holder("_strdup", [&] { other.Open("another"); });
    DWORD error = 0;
    EXPECT_TRUE(waits(
        [&]
        {
            ::SetLastError(1234);
            KorGLog.SetIP("10.0.0.1");
            error = ::GetLastError();
        }));
    EXPECT_EQ(error, 1234u);
    holder->join();
    EXPECT_STREQ(Kor_LogMTVars::m_app_name, "another");
    EXPECT_STREQ(Kor_LogMTVars::m_str_ip_address, "10.0.0.1");
}

TEST_F(LockHolder, OfTheTimersLivesThoughItMayNotBeLookedAt)
{
    Kor_PerfmonTimers timers;
    const auto holder = start_holder("_ftime64", [&] { EXPECT_EQ(timers.AddTimer("a"), 0); });
    EXPECT_TRUE(waits([&] { EXPECT_EQ(timers.AddTimer("b"), 0); }));
    holder->join();
    EXPECT_EQ(timers.Remove("a"), 1);
    EXPECT_EQ(timers.Remove("b"), 1);
}

TEST_F(LockHolder, OfTheMonitorsNamesLivesThoughItMayNotBeLookedAt)
{
    Kor_PerfmonLogFile log(0);
    const auto holder = start_holder("_strdup", [&] { log.Open("viewer"); });
    EXPECT_TRUE(waits([&] { log.SetContext("context"); }));
    holder->join();
}

TEST_F(LockHolder, OfTheGathererLivesThoughItMayNotBeLookedAt)
{
    Gatherer::Activate(true);
    Gatherer* const session = Gatherer::GetInstance();
    ASSERT_NE(session, nullptr);
    const auto holder = start_holder("GetComputerNameW", [&] { session->gatherSystemInfo(); });
    EXPECT_TRUE(waits([&] { session->reportEvent(L"T", L"s", Gatherer::COUNTED, 1, nullptr); }));
    holder->join();
    EXPECT_EQ(session->getHistorySize(), 128u); // as ever
}

TEST_F(LockHolder, OfTheCrashReporterLivesThoughItMayNotBeLookedAt)
{
    Gatherer::Activate(true);
    Kor_SessionLog::Activate(true);
    Kor_SessionLog* first = nullptr;
    Kor_SessionLog* second = nullptr;
    const auto holder = start_holder("LoadLibraryExW", [&] { first = Kor_SessionLog::GetInstance(); });
    EXPECT_TRUE(waits([&] { second = Kor_SessionLog::GetInstance(); }));
    holder->join();
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(first, second);
    EXPECT_TRUE(Kor_SessionLog::IsActive());
    Kor_SessionLogHost::destroy();
}

TEST_F(LockHolder, OfTheFeatureLogLivesThoughItMayNotBeLookedAt)
{
    Kor_UIFeatureLog* first = nullptr;
    Kor_UIFeatureLog* second = nullptr;
    const auto holder = start_holder("malloc", [&] { first = Kor_UIFeatureLog::GetInstance(); });
    EXPECT_TRUE(waits([&] { second = Kor_UIFeatureLog::GetInstance(); }));
    holder->join();
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(first, second);
}

TEST_F(LockHolder, NobodyWaitsForAThreadThatIsKeepingTheNameOfAFolder)
{
    for (int calls = 0; calls < 3; ++calls) // whatever of it takes memory
    {
        Halt halt;
        const Halts halts(halt);
        const std::string folder = m_directory.path() + std::to_string(calls) + std::string(300, 'x');
        const EnvironmentVariable variable("PRISMATE_LOG_DIR", folder);
        std::string first;
        BoundedThread holder(
            [&]
            {
                halt.stop_me_at("malloc", calls);
                first = Kor_LogFile::GetLogConfigDir();
            });
        ASSERT_TRUE(halt.wait_until_entered());
        m_halt.go_on();
        const SlowClock clock;
        ASSERT_TRUE(clock.installed());
        const char* second = nullptr;
        on_another_thread([&] { second = Kor_LogFile::GetLogConfigDir(); });
        EXPECT_EQ(clock.sleeps(), 0);
        halt.go_on();
        holder.join();
        EXPECT_EQ(first, folder);
        EXPECT_EQ(second, folder);
        EXPECT_EQ(Kor_LogFile::GetLogConfigDir(), second); // kept once
    }
}

// A holder that does not move ---------------------------------------------------------
TEST_F(LockHolder, IsWaitedForByTheClockThoughASleepTakesATick)
{
    const auto holder = start_holder("WriteFile", [] { KorGLog.LogNoHeadline("first"); });
    const DeniedThreads denied;
    const SlowClock clock;
    ASSERT_TRUE(denied.installed() && clock.installed());
    on_another_thread([] { KorGLog.LogNoHeadline("second"); });
    EXPECT_GE(clock.elapsed(), LONGEST_WAIT_MS);
    EXPECT_LE(clock.elapsed(), LONGEST_WAIT_MS + LEEWAY_MS);
    m_halt.go_on();
}

TEST_F(LockHolder, IsWaitedForOnceByACrashHandler)
{
    Gatherer::Activate(true);
    Kor_SessionLog::Activate(true);
    Gatherer* const session = Gatherer::GetInstance();
    Kor_SessionLog* const reporter = Kor_SessionLog::GetInstance();
    ASSERT_TRUE(session != nullptr && reporter != nullptr);
    const auto holder = start_holder("GetComputerNameW", [&] { session->gatherSystemInfo(); });
    const DeniedThreads denied;
    const SlowClock clock;
    ASSERT_TRUE(denied.installed() && clock.installed());
    reporter->createReport(nullptr);
    Kor_SessionLogHost::saveState();
    EXPECT_LE(clock.elapsed(), LONGEST_WAIT_MS + LEEWAY_MS);
    m_halt.go_on();
    holder->join();
    Kor_SessionLogHost::destroy();
}

TEST_F(LockHolder, IsWaitedForThoughTheMachineSleptMeanwhile)
{
    const auto holder = start_holder("WriteFile", [] { KorGLog.LogNoHeadline("first"); });
    const DeniedThreads denied;
    SlowClock* asleep = nullptr;
    SlowClock clock(
        [&](int sleeps)
        {
            constexpr ULONGLONG HOUR_MS = 3'600'000;
            if (sleeps == 5)
                asleep->advance(HOUR_MS);
        });
    asleep = &clock;
    ASSERT_TRUE(denied.installed() && clock.installed());
    on_another_thread([] { KorGLog.LogNoHeadline("second"); });
    EXPECT_GE(clock.sleeps(), static_cast<int>((LONGEST_WAIT_MS - 1000) / SlowClock::TICK_MS));
    m_halt.go_on();
}

TEST_F(LockHolder, OfTheLogFileThatDoesNotMoveIsWaitedForOnce)
{
    const auto holder = start_holder("WriteFile", [] { KorGLog.LogNoHeadline("first"); });
    {
        const DeniedThreads denied;
        const SlowClock clock;
        ASSERT_TRUE(denied.installed() && clock.installed());
        on_another_thread([] { KorGLog.LogNoHeadline("second"); });
        EXPECT_GE(clock.elapsed(), LONGEST_WAIT_MS);
        const int sleeps = clock.sleeps();
        on_another_thread([] { KorGLog.LogNoHeadline("third"); });
        KorGLog.LogNoHeadline("fourth");
        EXPECT_EQ(clock.sleeps(), sleeps);
    }
    m_halt.go_on();
    holder->join();
    KorGLog.LogNoHeadline("fifth");
    EXPECT_EQ(m_directory.lines(), (Lines{"second", "third", "fourth", "first", "fifth"}));
}

TEST_F(LockHolder, ThatHasLostItsLockDoesNotGiveAnotherThreadsBack)
{
    const auto holder = start_holder("WriteFile", [] { KorGLog.LogNoHeadline("first"); });
    Halt heirs;
    const Halts halts(heirs);
    std::unique_ptr<BoundedThread> heir;
    {
        const DeniedThreads denied;
        const SlowClock clock;
        ASSERT_TRUE(halts.installed() && denied.installed() && clock.installed());
        heir = std::make_unique<BoundedThread>(
            [&]
            {
                heirs.stop_me_at("WriteFile");
                KorGLog.LogNoHeadline("second");
            });
        ASSERT_TRUE(heirs.wait_until_entered());
    }
    m_halt.go_on();
    holder->join();
    const DeniedThreads denied;
    LockUser user(denied, [] { KorGLog.LogNoHeadline("third"); });
    EXPECT_TRUE(user.waits());
    heirs.go_on();
    user.join();
    heir->join();
    EXPECT_EQ(m_directory.lines(), (Lines{"first", "second", "third"}));
}

TEST_F(LockHolder, ThatComesBackForAnotherTurnIsNotRobbed)
{
    Halt second_turn;
    const auto holder = start_holder(
        "WriteFile",
        [&]
        {
            KorGLog.LogNoHeadline("first");
            second_turn.stop_me_at("WriteFile");
            KorGLog.LogNoHeadline("second");
        });
    const Halts halts(second_turn);
    {
        const DeniedThreads denied;
        const SlowClock clock(
            [&](int sleeps)
            {
                if (sleeps != 300)
                    return;
                m_halt.go_on();
                EXPECT_TRUE(second_turn.wait_until_entered());
            });
        ASSERT_TRUE(denied.installed() && clock.installed());
        on_another_thread([] { KorGLog.LogNoHeadline("goes without the lock"); });
        EXPECT_GE(clock.elapsed(), LONGEST_WAIT_MS);
    }
    const DeniedThreads denied;
    LockUser user(denied, [] { KorGLog.LogNoHeadline("third"); });
    EXPECT_TRUE(user.waits());
    second_turn.go_on();
    user.join();
    holder->join();
    EXPECT_EQ(m_directory.lines(), (Lines{"first", "goes without the lock", "second", "third"}));
}

TEST_F(LockHolder, OfTheGathererThatDoesNotMoveIsWaitedForOnceAndThenItIsAsEver)
{
    Gatherer::Activate(true);
    Gatherer* const session = Gatherer::GetInstance();
    ASSERT_NE(session, nullptr);
    const auto holder = start_holder("GetComputerNameW", [&] { session->gatherSystemInfo(); });
    {
        const DeniedThreads denied;
        const SlowClock clock;
        ASSERT_TRUE(denied.installed() && clock.installed());
        EXPECT_EQ(session->getHistorySize(), 0u);
        EXPECT_GE(clock.elapsed(), LONGEST_WAIT_MS);
        const int sleeps = clock.sleeps();
        EXPECT_EQ(session->getHistorySize(), 0u);
        on_another_thread([&] { EXPECT_EQ(session->getHistorySize(), 0u); });
        EXPECT_EQ(clock.sleeps(), sleeps);
    }
    m_halt.go_on();
    holder->join();
    EXPECT_EQ(session->getHistorySize(), 128u);
    const auto next = std::make_unique<BoundedThread>([&] { session->gatherSystemInfo(); });
    next->join();
    EXPECT_EQ(session->getHistorySize(), 128u);
}

TEST_F(LockHolder, OfTheTimersThatDoesNotMoveKeepsThem)
{
    Kor_PerfmonTimers timers;
    const auto holder = start_holder("_ftime64", [&] { EXPECT_EQ(timers.AddTimer("a"), 0); });
    {
        const DeniedThreads denied;
        const SlowClock clock;
        ASSERT_TRUE(denied.installed() && clock.installed());
        EXPECT_EQ(timers.AddTimer("b"), 1);
        EXPECT_LE(clock.elapsed(), LONGEST_WAIT_MS + LEEWAY_MS);
    }
    m_halt.go_on();
    holder->join();
    EXPECT_EQ(timers.AddTimer("b"), 0);
    EXPECT_EQ(timers.Remove("a"), 1);
}

TEST_F(LockHolder, DoesNotWaitForItself)
{
    Hook<WriteFileImport>* own = nullptr;
    Hook<WriteFileImport> writes(
        [&](HANDLE file, const void* bytes, DWORD size, DWORD* done, OVERLAPPED* overlapped) -> BOOL
        {
            if (own->calls() == 1) // as a crash handler would, when this call crashed
                KorGLog.LogNoHeadline("inner");
            return own->original(file, bytes, size, done, overlapped);
        });
    own = &writes;
    const SlowClock clock;
    ASSERT_TRUE(writes.installed() && clock.installed());
    on_another_thread([] { KorGLog.LogNoHeadline("outer"); });
    EXPECT_EQ(clock.sleeps(), 0);
    EXPECT_EQ(m_directory.lines(), (Lines{"inner", "outer"}));
}

TEST_F(LockHolder, LivesThoughTheSystemDoesNotTellWhenItBegan)
{
    const auto holder = start_holder("WriteFile", [] { KorGLog.LogNoHeadline("first"); });
    const NamedEvent asked(unique_name("asked"));
    Hook<GetThreadTimesImport> times(
        [&](HANDLE thread, FILETIME*, FILETIME*, FILETIME*, FILETIME*) -> BOOL
        {
            if (thread != ::GetCurrentThread())
                asked.set();
            return FALSE;
        });
    ASSERT_TRUE(times.installed());
    LockUser user(asked, [] { KorGLog.LogNoHeadline("second"); });
    EXPECT_TRUE(user.waits());
    m_halt.go_on();
    user.join();
}

// A holder that has ended, and whose id another thread has -------------------------------
/// Gives a living thread the id of one that has ended, as Windows may at any time.
class ReusedId
{
public:
    ReusedId(DWORD id, DWORD heir)
        : m_current([id, heir]() -> DWORD { return ::GetCurrentThreadId() == heir ? id : ::GetCurrentThreadId(); }),
          m_open(
              [id, heir](DWORD access, BOOL inherit, DWORD thread) -> HANDLE
              { return ::OpenThread(access, inherit, thread == id ? heir : thread); })
    {
    }

    bool installed() const { return m_current.installed() && m_open.installed(); }

private:
    Hook<GetCurrentThreadIdImport> m_current;
    Hook<OpenThreadImport> m_open;
};

/// Ends a thread inside of a lock; its id, 0 when that did not work.
DWORD end_holder(Halt& halt, const char* function, Work hold)
{
    struct Holder
    {
        Halt& halt;
        const char* function;
        Work hold;
    } holder{halt, function, std::move(hold)};
    DWORD id = 0;
    const HANDLE thread = ::CreateThread(
        nullptr, 0,
        [](void* raw) -> DWORD
        {
            auto& self = *static_cast<Holder*>(raw);
            self.halt.stop_me_at(self.function);
            self.hold();
            return 0;
        },
        &holder, 0, &id);
    if (!halt.wait_until_entered())
        return 0;
    ::TerminateThread(thread, 0);
    const bool ended = ::WaitForSingleObject(thread, 10000) == WAIT_OBJECT_0;
    ::CloseHandle(thread);
    return ended ? id : 0;
}

enum ChildEnd
{
    GOOD = 7,
    NOT_READY = 1,
    WAITED = 2,
    WRONG = 3
};

/// args: who uses the lock, "heir" or "another".
/// use() is to return false when it went wrong.
int use_after_end(const char* function, Work hold, const std::string& who, const std::function<bool()>& use)
{
    static Halt halt; // the thread that is ended stays in it
    static Halts halts(halt);
    const DWORD id = halts.installed() ? end_holder(halt, function, std::move(hold)) : 0;
    if (id == 0)
        return NOT_READY;
    bool good = true;
    const auto use_some_times = [&]
    {
        for (int i = 0; i < 3; ++i)
            good = use() && good;
    };
    NamedEvent begin(unique_name("begin"));
    std::atomic<DWORD> heirs_id{0};
    NamedEvent known(unique_name("known"));
    BoundedThread heir(
        [&]
        {
            heirs_id = ::GetCurrentThreadId();
            known.set();
            begin.wait();
            if (who == "heir")
                use_some_times();
        });
    if (!known.wait())
        return NOT_READY;
    const ReusedId reused(id, heirs_id);
    const SlowClock clock;
    if (!reused.installed() || !clock.installed())
        return NOT_READY;
    if (who == "another")
        on_another_thread(use_some_times);
    begin.set();
    heir.join();
    if (clock.sleeps() > FEW_SLEEPS)
        return WAITED;
    return good ? GOOD : WRONG;
}

KOR_CHILD(writes_after_the_end_of_a_writer)
{
    KorGLog.Open("test.log", "viewer", false);
    return use_after_end(
        "WriteFile", [] { KorGLog.LogNoHeadline("is lost"); }, args[0],
        [] { return KorGLog.LogNoHeadline("goes on") == 0; });
}

KOR_CHILD(reports_after_the_end_of_a_reporter)
{
    Gatherer::Activate(true);
    static Gatherer* const session = Gatherer::GetInstance();
    return use_after_end(
        "GetComputerNameW", [] { session->gatherSystemInfo(); }, args[0],
        [] { return session->getHistorySize() == 0; }); // which nobody can mend
}

KOR_CHILD(measures_after_the_end_of_a_measurer)
{
    static Kor_PerfmonTimers timers;
    return use_after_end(
        "_ftime64", [] { timers.AddTimer("a"); }, args[0], [] { return timers.AddTimer("b") == 1; }); // likewise
}

void expect_goes_on(const char* child, const LogDirectory& directory)
{
    for (const char* const who : {"heir", "another"})
    {
        ChildOptions options = directory.for_child();
        options.arguments = {who};
        const ChildResult result = run_child(child, options);
        EXPECT_TRUE(result.finished) << who;
        EXPECT_EQ(result.exit_code, static_cast<unsigned long>(GOOD)) << who;
    }
}

TEST(EndedLockHolder, OfTheLogFileIsNotTakenForTheThreadThatHasItsId)
{
    const LogDirectory directory;
    expect_goes_on("writes_after_the_end_of_a_writer", directory);
    EXPECT_EQ(directory.lines(), Lines(6, "goes on"));
}

TEST(EndedLockHolder, OfTheGathererIsNotTakenForTheThreadThatHasItsId)
{
    const LogDirectory directory;
    expect_goes_on("reports_after_the_end_of_a_reporter", directory);
}

TEST(EndedLockHolder, OfTheTimersIsNotTakenForTheThreadThatHasItsId)
{
    const LogDirectory directory;
    expect_goes_on("measures_after_the_end_of_a_measurer", directory);
}
} // namespace
