// A message on its ordinary way takes no memory from the heap.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <string>

#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"

namespace
{
KOR_IMPORT(malloc); // operator new of the library ends here too
KOR_IMPORT(calloc);
KOR_IMPORT(realloc);
KOR_IMPORT(_strdup);
KOR_IMPORT(HeapAlloc);
KOR_IMPORT(LocalAlloc);

/// What the library's own code asks of the heap while this exists. Where it does not import a function,
/// it cannot call it either.
class AllocationCount
{
public:
    bool installed() const noexcept { return m_malloc.installed(); }
    int calls() const noexcept
    {
        return m_malloc.calls() + m_calloc.calls() + m_realloc.calls() + m_strdup.calls() + m_heap.calls() +
               m_local.calls();
    }

private:
    Hook<mallocImport> m_malloc;
    Hook<callocImport> m_calloc;
    Hook<reallocImport> m_realloc;
    Hook<_strdupImport> m_strdup;
    Hook<HeapAllocImport> m_heap;
    Hook<LocalAllocImport> m_local;
};

/// A log on its way to one output. Each check runs for both outputs; the parameterised tests of the
/// framework would say that more briefly, but what they compare types with is in each object file and in
/// the run-time library, which Clang's linker refuses.
class AllocatingLog
{
public:
    explicit AllocatingLog(const std::string& file) : m_directory(file), m_log(777, false)
    {
        m_log.Open("test.log", "viewer");
        m_log.SetIPAndSID("10.1.2.3", 42);
        m_log.SetThreadName("Loader");
    }

    Kor_LogFile& log() noexcept { return m_log; }

    /// The allocations of one call, after a first one that sets up what the thread and the package need.
    template <class Call>
    int allocations_of(Call call)
    {
        CapturedStream err(stderr);
        call(m_log);
        const AllocationCount count;
        if (!count.installed())
            return -1;
        call(m_log);
        return count.calls();
    }

private:
    const LogDirectory m_directory;
    Kor_LogFile m_log;
};

/// What the call allocates on the way to the private file, and to standard error.
template <class Call>
void expect_no_allocation(Call call)
{
    EXPECT_EQ(AllocatingLog(TO_FILE).allocations_of(call), 0) << "to the private file";
    EXPECT_EQ(AllocatingLog(TO_STDERR).allocations_of(call), 0) << "to standard error";
}
} // namespace

TEST(LogAllocation, ALineWithAHeadlineAllocatesNothing)
{
    expect_no_allocation(
        [](Kor_LogFile& log)
        {
            ASSERT_EQ(log.StoreParams("Kor_Image", "Load", 210, 4, 17), 1);
            log.Log("request %d of %s took %.1f ms\n", 4711, "client", 2.5);
        });
}

TEST(LogAllocation, ABareLineAllocatesNothing)
{
    expect_no_allocation([](Kor_LogFile& log) { log.LogNoHeadline("request %d of %s", 4711, "client"); });
    expect_no_allocation([](Kor_LogFile& log) { log.LogNoHeadline(30001, "request %d of %s", 4711, "client"); });
}

TEST(LogAllocation, TheLongestLineAllocatesNothing)
{
    const std::string longest(5000, 'x');
    expect_no_allocation(
        [&longest](Kor_LogFile& log)
        {
            ASSERT_EQ(log.StoreParams("Kor_Image", "Load", 210, 4, 17), 1);
            log.Log("%s", longest.c_str());
        });
}

TEST(LogAllocation, AMessageThatNobodyWantsAllocatesNothing)
{
    expect_no_allocation(
        [](Kor_LogFile& log)
        {
            EXPECT_EQ(log.StoreParams("Kor_Image", "Load", 210, 7, 17), 0);
            EXPECT_EQ(log.CheckMsgLevel(17 * PACKAGE_RANGE, 7), 0);
        });
}

TEST(LogAllocation, TheCountSeesAllocationsOfTheLibrary)
{
    AllocatingLog sample(TO_FILE);
    EXPECT_GE(sample.allocations_of([](Kor_LogFile&) { const Kor_LogMTVarsPtr made; }), 1); // by operator new
    EXPECT_GE(sample.allocations_of([](Kor_LogFile& log) { log.SetThreadName("Other"); }), 1);
}
