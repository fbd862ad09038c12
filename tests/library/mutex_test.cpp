// The two locks.

#include "Mutex.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <stdexcept>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(CreateMutexA);
KOR_IMPORT(WaitForSingleObject);
KOR_IMPORT(ReleaseMutex);
KOR_IMPORT(CloseHandle);

/// A thread that takes a lock, and gives it back at once.
class Taker
{
public:
    explicit Taker(Mutex_Base& mutex)
        : m_taken(unique_name("taken")), m_thread(
                                             [this, &mutex]
                                             {
                                                 mutex.Lock();
                                                 m_taken.set();
                                                 mutex.Unlock();
                                             })
    {
    }

    bool waits() const { return !m_taken.wait(30); } // a lock that is free is taken long before
    bool took() const { return m_taken.wait(); }

private:
    NamedEvent m_taken;
    BoundedThread m_thread;
};

TEST(RecursiveMutex, LockedTwiceAndUnlockedTwiceItIsFreeForAnotherThread)
{
    ThreadAPI_RecursiveMutex mutex;
    mutex.Lock();
    mutex.Lock();
    Taker taker(mutex);
    EXPECT_TRUE(taker.waits());
    mutex.Unlock();
    EXPECT_TRUE(taker.waits()); // each Lock needs its Unlock
    mutex.Unlock();
    EXPECT_TRUE(taker.took());
}

TEST(RecursiveMutex, ALockLeftBehindByAThreadThatEndedIsTakenOver)
{
    ThreadAPI_RecursiveMutex mutex;
    on_another_thread([&] { mutex.Lock(); });
    on_another_thread(
        [&]
        {
            mutex.Lock();
            mutex.Unlock();
        });
    Taker taker(mutex);
    EXPECT_TRUE(taker.took());
}

TEST(RecursiveMutex, AThreadThatDoesNotHoldItCannotFreeIt)
{
    ThreadAPI_RecursiveMutex mutex;
    mutex.Lock();
    on_another_thread([&] { mutex.Unlock(); });
    Taker taker(mutex);
    EXPECT_TRUE(taker.waits());
    mutex.Unlock();
    EXPECT_TRUE(taker.took());
}

TEST(RecursiveMutex, OneThreadAtATimeIsInside)
{
    ThreadAPI_RecursiveMutex mutex;
    int inside = 0;
    bool alone = true;
    run_on_threads(
        4,
        [&](int)
        {
            for (int i = 0; i < 200; ++i)
            {
                mutex.Lock();
                mutex.Lock();
                alone = alone && ++inside == 1;
                --inside;
                mutex.Unlock();
                mutex.Unlock();
            }
        });
    EXPECT_TRUE(alone);
}

TEST(RecursiveMutex, DestroyedWhileHeldItIsReleasedOnceAndThenClosed)
{
    auto mutex = std::make_unique<ThreadAPI_RecursiveMutex>();
    mutex->Lock();
    Lines calls;
    Hook<ReleaseMutexImport> releases(
        [&](HANDLE handle) -> BOOL
        {
            const BOOL released = ::ReleaseMutex(handle);
            calls.push_back(released ? "released" : "not released");
            return released;
        });
    Hook<CloseHandleImport> closes(
        [&](HANDLE handle) -> BOOL
        {
            calls.push_back("closed");
            return ::CloseHandle(handle);
        });
    ASSERT_TRUE(releases.installed() && closes.installed());
    mutex.reset();

    EXPECT_EQ(calls, (Lines{"released", "closed"}));
}

TEST(RecursiveMutex, DestroyedWhileFreeItIsClosed)
{
    auto mutex = std::make_unique<ThreadAPI_RecursiveMutex>();
    Hook<CloseHandleImport> closes;
    ASSERT_TRUE(closes.installed());
    mutex.reset();

    EXPECT_EQ(closes.calls(), 1);
}

TEST(RecursiveMutex, TheMutexObjectIsUnnamedAndNotOwnedAtFirst)
{
    int calls = 0;
    Hook<CreateMutexAImport> hook(
        [&](SECURITY_ATTRIBUTES* attributes, BOOL owned, const char* name) -> HANDLE
        {
            ++calls;
            EXPECT_EQ(attributes, nullptr);
            EXPECT_FALSE(owned);
            EXPECT_EQ(name, nullptr);
            return ::CreateMutexA(attributes, owned, name);
        });
    ASSERT_TRUE(hook.installed());
    const ThreadAPI_RecursiveMutex mutex;

    EXPECT_EQ(calls, 1);
}

TEST(PlainMutex, OneThreadAtATimeIsInside)
{
    Mutex mutex;
    int inside = 0;
    bool alone = true;
    run_on_threads(
        4,
        [&](int)
        {
            for (int i = 0; i < 1000; ++i)
            {
                mutex.Lock();
                alone = alone && ++inside == 1;
                --inside;
                mutex.Unlock();
            }
        });
    EXPECT_TRUE(alone);
}

TEST(PlainMutex, BothLocksServeThroughTheirBase)
{
    Mutex plain;
    ThreadAPI_RecursiveMutex recursive;
    for (Mutex_Base* const mutex : {static_cast<Mutex_Base*>(&plain), static_cast<Mutex_Base*>(&recursive)})
    {
        mutex->Lock();
        Taker taker(*mutex);
        EXPECT_TRUE(taker.waits());
        mutex->Unlock();
        EXPECT_TRUE(taker.took());
    }
}

// Failure ------------------------------------------------------------------------
/// Makes a lock whose mutex object cannot be created, and uses it.
KOR_CHILD(uses_a_mutex_that_could_not_be_made)
{
    if (KorGLog.Open("test.log", "viewer", false) != 0)
        return 1;
    Hook<CreateMutexAImport> hook(
        [](SECURITY_ATTRIBUTES*, BOOL, const char*) -> HANDLE
        {
            ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        });
    if (!hook.installed())
        return 2;
    {
        ThreadAPI_RecursiveMutex mutex;
        if (hook.calls() != 1)
            return 3;
        KorGLog.LogNoHeadline("made");
        mutex.Lock();
        mutex.Lock();
        KorGLog.LogNoHeadline("locked");
        mutex.Unlock();
        KorGLog.LogNoHeadline("unlocked");
        KorGLog.LogNoHeadline("destroying");
    } // nothing to unlock, nothing to close: no message
    KorGLog.LogNoHeadline("destroyed");
    return 0;
}

/// The line with the source line, which is nobody's business, as (n).
std::string without_source_line(std::string line)
{
    const std::size_t open = line.find(" Mutex(");
    if (open == std::string::npos)
        return line;
    const std::size_t close = line.find(')', open);
    return line.replace(open + 7, close - open - 7, "n");
}

TEST(RecursiveMutex, WithoutItsObjectEveryCallReturnsAndLogsItsMessageOnce)
{
    const LogDirectory directory;
    const ChildResult child = run_child("uses_a_mutex_that_could_not_be_made", directory.for_child());
    ASSERT_EQ(child.exit_code, 0u);

    Lines lines = directory.lines();
    for (std::string& line : lines)
        line = without_source_line(line);
    const std::string start = "<time> ERROR   (106) viewer (<pid>,<tid>)  Mutex(n) ThreadAPI_RecursiveMutex::";
    const std::string lock = start + "Lock -> Requested Lock on a mutex object that failed to initialize";
    EXPECT_EQ(
        lines, (Lines{
                   start + "ThreadAPI_RecursiveMutex -> Failed to create mutex object handle",
                   "made",
                   lock,
                   lock,
                   "locked",
                   start + "Unlock -> Requested Unlock on a mutex object that failed to initialize",
                   "unlocked",
                   "destroying",
                   "destroyed",
               }));
}

TEST(RecursiveMutex, TheMessagesNeedLevelThreeInTheLibrarysPackage)
{
    const LogDirectory directory(TO_FILE + "Library 106 2\n");
    const ChildResult child = run_child("uses_a_mutex_that_could_not_be_made", directory.for_child());

    EXPECT_EQ(child.exit_code, 0u);
    EXPECT_EQ(directory.lines(), (Lines{"made", "locked", "unlocked", "destroying", "destroyed"}));
}

TEST(RecursiveMutex, ADestinationsExceptionDoesNotEndTheReports)
{
    struct Thrower : Kor_LogDestBase
    {
        int LogMessage(Kor_LogMTVarsPtr, bool, const char*, unsigned int) override
        {
            throw std::runtime_error("from the destination");
        }
    } thrower;
    const LogDirectory directory;
    KorGLog.Open("test.log", "viewer", false);
    std::unique_ptr<ThreadAPI_RecursiveMutex> mutex;
    {
        Hook<CreateMutexAImport> hook([](SECURITY_ATTRIBUTES*, BOOL, const char*) -> HANDLE { return nullptr; });
        ASSERT_TRUE(hook.installed());
        mutex = std::make_unique<ThreadAPI_RecursiveMutex>();
    }
    KorGLog.RegisterLogDestination(&thrower);
    EXPECT_NO_THROW(mutex->Lock());
    KorGLog.UnregisterLogDestination(&thrower);
    mutex->Lock();
    EXPECT_EQ(directory.lines().size(), 4u); // of the construction, of both calls, and of the destination
}

TEST(RecursiveMutex, WithoutItsObjectALogStillServesItsDestinations)
{
    struct Counter : Kor_LogDestBase
    {
        int LogMessage(Kor_LogMTVarsPtr, bool, const char*, unsigned int) override { return ++calls; }
        int calls = 0;
    } counter;
    const LogDirectory directory;
    Hook<CreateMutexAImport> hook([](SECURITY_ATTRIBUTES*, BOOL, const char*) -> HANDLE { return nullptr; });
    ASSERT_TRUE(hook.installed());
    {
        Kor_LogFile log(777, false);
        EXPECT_EQ(log.Open("test.log", "viewer"), 0);
        log.RegisterLogDestination(&counter);
        log.LogNoHeadline("x");
        log.UnregisterLogDestination(&counter);
        log.LogNoHeadline("y");
    }
    EXPECT_EQ(counter.calls, 1);
    EXPECT_EQ(directory.text(), "x\ny\n");
}
} // namespace
