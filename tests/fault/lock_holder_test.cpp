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
KOR_IMPORT(LoadLibraryExW);
KOR_IMPORT(OpenThread);
KOR_IMPORT(WriteFile);
KOR_IMPORT(_ftime64);
KOR_IMPORT(_strdup);
KOR_IMPORT(malloc);

constexpr ULONGLONG LONGEST_WAIT_MS = 10'000;
constexpr ULONGLONG LEEWAY_MS = 200;

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
} // namespace
