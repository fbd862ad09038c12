// The timer of a scope.

#include "Kor_PerfmonScope.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <sys/timeb.h>

#include <regex>
#include <type_traits>
#include <vector>

#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(_ftime64);

static_assert(!std::is_copy_constructible_v<Kor_PerfmonScope> && !std::is_copy_assignable_v<Kor_PerfmonScope>);
static_assert(std::is_nothrow_move_constructible_v<Kor_PerfmonScope>);

class Scope : public ::testing::Test
{
protected:
    Scope()
    {
        KorGLog.Open("test.log", "viewer", false);
        KorPLog.Open("perf.log", "viewer");
    }
    ~Scope() override
    {
        KorPLog.Close();
        EXPECT_EQ(KorPLog.Timers().entries(), 0u);   // none is left
        EXPECT_EQ(m_directory.text("test.log"), ""); // and no timer was missed
    }

    /// Level and message of each line behind the banner.
    Lines lines() const
    {
        Lines lines = lines_of(m_directory.text("perf.log"));
        lines.erase(lines.begin());
        for (std::string& line : lines)
            line = line.substr(19, 2) + line.substr(line.find(": =") + 3);
        return lines;
    }

    std::int64_t m_now = 1000000;
    Hook<_ftime64Import> m_clock{[this](struct __timeb64* time)
                                 {
                                     time->time = m_now / 1000;
                                     time->millitm = static_cast<unsigned short>(m_now % 1000);
                                 }};
    const LogDirectory m_directory{TO_FILE + "Monitor 109 6\n"};
};
} // namespace

TEST_F(Scope, WritesItsTimeWhenItEnds)
{
    {
        const Kor_PerfmonScope timing("load album");
        m_now += 1234;
        EXPECT_EQ(lines(), Lines{});
        EXPECT_EQ(KorPLog.Timers().entries(), 1u);
    }
    EXPECT_EQ(lines(), Lines{"5 T=load album,ms=1234"});
}

TEST_F(Scope, StopsEarlyOnRequestAndOnce)
{
    {
        Kor_PerfmonScope timing("load", 6);
        m_now += 5;
        EXPECT_EQ(timing.Stop(), 5);
        m_now += 5;
        EXPECT_EQ(timing.Stop(), Kor_PerfmonScope::NOT_MEASURED);
    }
    EXPECT_EQ(lines(), Lines{"6 T=load,ms=5"});
}

TEST_F(Scope, MovedItGoesOnAndIsWrittenOnce)
{
    {
        Kor_PerfmonScope outer("moved");
        {
            Kor_PerfmonScope inner(std::move(outer));
            m_now += 5;
        }
        EXPECT_EQ(lines(), Lines{"5 T=moved,ms=5"});
        m_now += 5;
    }
    EXPECT_EQ(lines(), Lines{"5 T=moved,ms=5"});
}

TEST_F(Scope, AssignedToItEndsItsOwnMeasurementFirst)
{
    {
        Kor_PerfmonScope timing("first");
        m_now += 5;
        timing = Kor_PerfmonScope("second", 6);
        EXPECT_EQ(lines(), Lines{"5 T=first,ms=5"});
        m_now += 7;
        Kor_PerfmonScope& same = timing;
        timing = std::move(same);
    }
    EXPECT_EQ(lines(), (Lines{"5 T=first,ms=5", "6 T=second,ms=7"}));
}

TEST_F(Scope, NestedOnesOfOneTitleAreApart)
{
    {
        const Kor_PerfmonScope outer("load");
        m_now += 5;
        {
            const Kor_PerfmonScope inner("load");
            m_now += 3;
        }
        m_now += 1;
    }
    EXPECT_EQ(lines(), (Lines{"5 T=load,ms=3", "5 T=load,ms=9"}));
}

TEST_F(Scope, OfALevelThatIsNotWrittenItMeasuresNothing)
{
    for (const char* const level : {"6", "0"})
    {
        m_directory.configure(TO_FILE + "Monitor 109 " + level + "\n");
        KorGLog.ReadFile();
        KorGLog.ClearCacheTable(); // the first to ask finds nothing computed yet
        Kor_PerfmonScope timing("load", 7);
        EXPECT_EQ(KorPLog.Timers().entries(), 0u);
        m_directory.configure(TO_FILE + "Monitor 109 7\n");
        KorGLog.ReadFile();
        KorGLog.ClearCacheTable();
        EXPECT_EQ(timing.Stop(), Kor_PerfmonScope::NOT_MEASURED); // too late for this one
    }
    EXPECT_EQ(lines(), Lines{});
}

TEST_F(Scope, TitlesMayBeMissingOrHoldPercentSigns)
{
    {
        const Kor_PerfmonScope none(nullptr);
        const Kor_PerfmonScope odd("100%d%n");
    }
    EXPECT_EQ(lines(), (Lines{"5 T=100%d%n,ms=0", "5 T=,ms=0"}));
}

TEST_F(Scope, ManyThreadsTimeTheSameTitle)
{
    run_on_threads(
        8,
        [](int)
        {
            for (int i = 0; i < 100; ++i)
                const Kor_PerfmonScope timing("load");
        });
    EXPECT_EQ(lines(), Lines(800, "5 T=load,ms=0"));
}
