// A message on its ordinary way takes no memory from the heap.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <functional>

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

class LogAllocation : public ::testing::TestWithParam<std::string>
{
protected:
    LogAllocation() : m_log(777, false)
    {
        m_log.Open("test.log", "viewer");
        m_log.SetIPAndSID("10.1.2.3", 42);
        m_log.SetThreadName("Loader");
    }

    /// The allocations of one call, after a first one that sets up what the thread and the package need.
    static int allocations_of(const std::function<void()>& call)
    {
        CapturedStream err(stderr);
        call();
        int calls = -1;
        {
            const AllocationCount count;
            if (count.installed())
            {
                call();
                calls = count.calls();
            }
        }
        return calls;
    }

    const LogDirectory m_directory{GetParam()};
    Kor_LogFile m_log;
};

TEST_P(LogAllocation, ALineWithAHeadlineAllocatesNothing)
{
    EXPECT_EQ(
        allocations_of(
            [this]
            {
                ASSERT_EQ(m_log.StoreParams("Kor_Image", "Load", 210, 4, 17), 1);
                m_log.Log("request %d of %s took %.1f ms\n", 4711, "client", 2.5);
            }),
        0);
}

TEST_P(LogAllocation, ABareLineAllocatesNothing)
{
    EXPECT_EQ(allocations_of([this] { m_log.LogNoHeadline("request %d of %s", 4711, "client"); }), 0);
    EXPECT_EQ(allocations_of([this] { m_log.LogNoHeadline(30001, "request %d of %s", 4711, "client"); }), 0);
}

TEST_P(LogAllocation, TheLongestLineAllocatesNothing)
{
    const std::string longest(5000, 'x');
    EXPECT_EQ(
        allocations_of(
            [&]
            {
                ASSERT_EQ(m_log.StoreParams("Kor_Image", "Load", 210, 4, 17), 1);
                m_log.Log("%s", longest.c_str());
            }),
        0);
}

TEST_P(LogAllocation, AMessageThatNobodyWantsAllocatesNothing)
{
    EXPECT_EQ(
        allocations_of(
            [this]
            {
                EXPECT_EQ(m_log.StoreParams("Kor_Image", "Load", 210, 7, 17), 0);
                EXPECT_EQ(m_log.CheckMsgLevel(17 * PACKAGE_RANGE, 7), 0);
            }),
        0);
}

TEST_P(LogAllocation, TheCountSeesAllocationsOfTheLibrary)
{
    EXPECT_GE(allocations_of([] { const Kor_LogMTVarsPtr made; }), 1); // by operator new
    EXPECT_GE(allocations_of([this] { m_log.SetThreadName("Other"); }), 1);
}

INSTANTIATE_TEST_SUITE_P(
    , LogAllocation, ::testing::Values(TO_FILE, TO_STDERR),
    [](const auto& values) { return values.param == TO_FILE ? "ToThePrivateFile" : "ToStandardError"; });
} // namespace
