// The named timers.

#include "Kor_PerfmonLogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <sys/timeb.h>

#include <memory>
#include <type_traits>

#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(_ftime64);
KOR_IMPORT(malloc);
KOR_IMPORT(free);

static_assert(std::has_virtual_destructor_v<Kor_PerfmonTimers>);
static_assert(std::has_virtual_destructor_v<Kor_PerfmonTimerData>);
static_assert(sizeof(Kor_PerfmonTimerData) == 32);

/// A clock that a test sets, in milliseconds, and a general log that takes what the timers tell.
class Timers : public ::testing::Test
{
protected:
    Timers()
    {
        EXPECT_TRUE(m_clock.installed());
        KorGLog.Open("test.log", "viewer", false);
    }

    /// What was written to the general log since the last call, without time, process and thread.
    Lines told()
    {
        Lines lines = m_directory.lines();
        lines.erase(lines.begin(), lines.begin() + m_seen);
        m_seen += static_cast<std::ptrdiff_t>(lines.size());
        for (std::string& line : lines)
        {
            // "<time> LEVEL   (106) viewer (<pid>,<tid>)  Kor_PerfmonLogFile(line) function -> text"
            const std::size_t function = line.find(") Kor_PerfmonTimers::");
            line = line.substr(7, 7) + line.substr(function == std::string::npos ? 0 : function + 2);
        }
        return lines;
    }

    std::int64_t m_now = 1000000;
    std::int64_t m_step = 0; ///< by which each reading moves the clock on
    Hook<_ftime64Import> m_clock{[this](struct __timeb64* time)
                                 {
                                     m_now += m_step;
                                     time->time = m_now / 1000;
                                     time->millitm = static_cast<unsigned short>(m_now % 1000);
                                 }};
    const LogDirectory m_directory{TO_FILE};
    std::ptrdiff_t m_seen = 0;
    Kor_PerfmonTimers m_timers;
    std::int64_t m_time = -7;
};
} // namespace

// One timer ----------------------------------------------------------------------
TEST_F(Timers, TheTickIsSecondsTimes1000AndMilliseconds)
{
    m_now = 1709647629042;
    EXPECT_EQ(Kor_PerfmonTimerData::GetTickCount(), 1709647629042u);
}

TEST_F(Timers, ANewRecordStartsAtZeroAndRuns)
{
    Kor_PerfmonTimerData data;
    EXPECT_EQ(data.GetTime(), 1000000); // stopped by the question
    m_now += 5;
    EXPECT_EQ(data.GetTime(), 1000000);
}

TEST_F(Timers, ARecordCountsFromItsStartToItsLastStop)
{
    Kor_PerfmonTimerData data;
    data.Reset();
    m_now += 5;
    data.Stop();
    EXPECT_EQ(data.GetTime(), 5);
    m_now += 7;
    EXPECT_EQ(data.GetTime(), 5);
    data.Stop();
    EXPECT_EQ(data.GetTime(), 12);
    data.Reset();
    m_now += 3;
    EXPECT_EQ(data.GetTime(), 3);
}

TEST_F(Timers, AClockThatGoesBackShowsInTheResult)
{
    Kor_PerfmonTimerData data;
    data.Reset();
    m_now -= 50;
    EXPECT_EQ(data.GetTime(), -50);
}

TEST_F(Timers, ACopyHasTheSameTimesAndIsNotEqual)
{
    Kor_PerfmonTimerData data;
    data.Reset();
    m_now += 5;
    data.Stop();
    Kor_PerfmonTimerData copy(data);
    EXPECT_EQ(copy.GetTime(), 5);
    EXPECT_TRUE(data == data);
    EXPECT_FALSE(data == copy);
}

// Timers by name -----------------------------------------------------------------
TEST_F(Timers, AddingStartsATimer)
{
    EXPECT_EQ(m_timers.AddTimer("load"), 0);
    m_now += 5;
    EXPECT_EQ(m_timers.GetTime("load", m_time), 1);
    EXPECT_EQ(m_time, 5);
    EXPECT_EQ(told(), Lines{});
}

TEST_F(Timers, AddingANameAgainKeepsTheTimerAndReturnsOne)
{
    EXPECT_EQ(m_timers.AddTimer("load"), 0);
    m_now += 5;
    EXPECT_EQ(m_timers.AddTimer("load"), 1);
    EXPECT_EQ(told(), Lines{"WARNINGKor_PerfmonTimers::AddTimer -> test, load Already exists"});
    m_now += 2;
    EXPECT_EQ(m_timers.GetTime("load", m_time), 1);
    EXPECT_EQ(m_time, 7);
}

TEST_F(Timers, NamesDifferByCase)
{
    EXPECT_EQ(m_timers.AddTimer("Load"), 0);
    EXPECT_EQ(m_timers.AddTimer("load"), 0);
    EXPECT_EQ(m_timers.Stop("LOAD"), 0);
}

TEST_F(Timers, ReadingARunningTimerFreezesItAndALaterStopMovesIt)
{
    m_timers.AddTimer("load");
    m_now += 5;
    m_timers.GetTime("load", m_time);
    m_now += 5;
    m_timers.GetTime("load", m_time);
    EXPECT_EQ(m_time, 5);
    EXPECT_EQ(m_timers.Stop("load"), 1);
    m_timers.GetTime("load", m_time);
    EXPECT_EQ(m_time, 10);
}

TEST_F(Timers, ReadingAndResettingStartsAnew)
{
    m_timers.AddTimer("load");
    m_now += 5;
    EXPECT_EQ(m_timers.GetTimeAndReset("load", m_time), 1);
    EXPECT_EQ(m_time, 5);
    m_now += 3;
    EXPECT_EQ(m_timers.GetTime("load", m_time), 1);
    EXPECT_EQ(m_time, 3);
    EXPECT_EQ(told(), Lines{});
}

TEST_F(Timers, ResettingReadsTheClockASecondTime)
{
    m_timers.AddTimer("load");
    m_step = 1;
    m_timers.GetTimeAndReset("load", m_time); // one reading for the result, one for the new start
    EXPECT_EQ(m_time, 1);
    m_timers.GetTime("load", m_time);
    EXPECT_EQ(m_time, 1);
    EXPECT_EQ(m_now, 1000003);
}

TEST_F(Timers, ResettingAStoppedTimerGivesItsTimeAndStartsItAnew)
{
    m_timers.AddTimer("load");
    m_now += 5;
    m_timers.Stop("load");
    m_now += 100;
    EXPECT_EQ(m_timers.GetTimeAndReset("load", m_time), 1);
    EXPECT_EQ(m_time, 5);
    m_now += 3;
    m_timers.GetTime("load", m_time);
    EXPECT_EQ(m_time, 3);
}

TEST_F(Timers, AfterItsEndTheSetHasNoTimersAndTakesNone)
{
    alignas(Kor_PerfmonTimers) static unsigned char place[sizeof(Kor_PerfmonTimers)];
    auto* const timers = new (place) Kor_PerfmonTimers;
    timers->AddTimer("load");
    timers->~Kor_PerfmonTimers();
    EXPECT_EQ(timers->AddTimer("other"), 1);
    EXPECT_EQ(timers->Stop("load"), 0);
    EXPECT_EQ(timers->GetTime("load", m_time), 0);
    EXPECT_EQ(timers->GetTimeAndReset("load", m_time), 0);
    EXPECT_EQ(timers->GetTimerData("load"), nullptr);
    EXPECT_EQ(timers->Remove("load"), 0);
    EXPECT_EQ(m_time, -7);
}

TEST_F(Timers, ReadingAndRemovingForgetsTheName)
{
    m_timers.AddTimer("load");
    m_now += 5;
    EXPECT_EQ(m_timers.GetTimeAndRemove("load", m_time), 1);
    EXPECT_EQ(m_time, 5);
    EXPECT_EQ(told(), Lines{});
    EXPECT_EQ(m_timers.AddTimer("load"), 0);
}

TEST_F(Timers, WhatIsNotThereIsReportedAndChangesNothing)
{
    EXPECT_EQ(m_timers.Stop("a"), 0);
    EXPECT_EQ(m_timers.GetTime("b", m_time), 0);
    EXPECT_EQ(m_timers.GetTimeAndReset("c", m_time), 0);
    EXPECT_EQ(m_timers.GetTimerData("d"), nullptr);
    EXPECT_EQ(m_time, -7);
    EXPECT_EQ(
        told(), (Lines{
                    "WARNINGKor_PerfmonTimers::Stop -> Timer to stop a was not found",
                    "WARNINGKor_PerfmonTimers::GetTime -> Didn't find time of b",
                    "WARNINGKor_PerfmonTimers::GetTimeAndReset -> Didn't find time of c",
                    "WARNINGKor_PerfmonTimers::GetTimerData -> Didn't find time of d",
                }));
}

TEST_F(Timers, RemovingWhatIsNotThereIsReportedTwice)
{
    EXPECT_EQ(m_timers.Remove("a"), 0);
    EXPECT_EQ(
        told(), (Lines{
                    "WARNINGKor_PerfmonTimers::GetTimerData -> Didn't find time of a",
                    "WARNINGKor_PerfmonTimers::Remove -> Didn't find timer data a for deletion",
                }));
}

TEST_F(Timers, ReadingAndRemovingWhatIsNotThereIsReportedThreeTimes)
{
    EXPECT_EQ(m_timers.GetTimeAndRemove("a", m_time), 0);
    EXPECT_EQ(m_time, -7);
    EXPECT_EQ(
        told(), (Lines{
                    "WARNINGKor_PerfmonTimers::GetTime -> Didn't find time of a",
                    "WARNINGKor_PerfmonTimers::GetTimerData -> Didn't find time of a",
                    "WARNINGKor_PerfmonTimers::Remove -> Didn't find timer data a for deletion",
                }));
}

TEST_F(Timers, AtDebugLevelEachQuestionIsTold)
{
    m_directory.configure(LIBRARY_TO_FILE);
    KorGLog.ReadFile();
    KorGLog.ClearCacheTable();
    m_timers.AddTimer("a");
    m_timers.Stop("a");
    m_timers.GetTime("a", m_time);
    m_timers.GetTimeAndReset("a", m_time);
    m_timers.GetTimerData("a");
    m_timers.GetTimeAndRemove("a", m_time);
    EXPECT_EQ(
        told(), (Lines{
                    "DEBUG  Kor_PerfmonTimers::GetTime -> GetTime",
                    "DEBUG  Kor_PerfmonTimers::GetTimeAndReset -> GetTimeAndReset",
                    "DEBUG  Kor_PerfmonTimers::GetTimerData -> GetTimerData",
                    "DEBUG  Kor_PerfmonTimers::GetTime -> GetTime",
                    "DEBUG  Kor_PerfmonTimers::GetTimerData -> GetTimerData",
                }));
    m_timers.GetTime("none", m_time);
    m_timers.GetTimeAndReset("none", m_time);
    m_timers.GetTimerData("none");
    EXPECT_EQ(
        told(), (Lines{
                    "DEBUG  Kor_PerfmonTimers::GetTime -> GetTime",
                    "WARNINGKor_PerfmonTimers::GetTime -> Didn't find time of none",
                    "DEBUG  Kor_PerfmonTimers::GetTimeAndReset -> GetTimeAndReset",
                    "WARNINGKor_PerfmonTimers::GetTimeAndReset -> Didn't find time of none",
                    "DEBUG  Kor_PerfmonTimers::GetTimerData -> GetTimerData",
                    "WARNINGKor_PerfmonTimers::GetTimerData -> Didn't find time of none",
                }));
}

TEST_F(Timers, AWarningNamesTheLibrarysPackageAndSource)
{
    m_timers.Stop("a");
    const std::string line = m_directory.lines().back();
    EXPECT_EQ(line.rfind("<time> WARNING (106) viewer (<pid>,<tid>)  Kor_PerfmonLogFile(", 0), 0u) << line;
}

TEST_F(Timers, TheRecordOfATimerStaysTheSets)
{
    m_timers.AddTimer("load");
    Kor_PerfmonTimerData* const data = m_timers.GetTimerData("load");
    ASSERT_NE(data, nullptr);
    m_now += 5;
    data->Stop();
    m_now += 5;
    m_timers.GetTime("load", m_time);
    EXPECT_EQ(m_time, 5);
    EXPECT_EQ(m_timers.GetTimerData("load"), data);
}

TEST_F(Timers, ANumberMakesNamesOfRepeatedOperations)
{
    EXPECT_EQ(Kor_PerfmonTimers::GenerateID("scan", 12), "scan12");
    EXPECT_EQ(Kor_PerfmonTimers::GenerateID("", -3), "-3");
    EXPECT_EQ(Kor_PerfmonTimers::GenerateID("scan", 0), "scan0");
    EXPECT_EQ(Kor_PerfmonTimers::GenerateID("s", 2147483647L), "s2147483647");
}

TEST_F(Timers, RemovingDeletesTheRecordAndTheEndOfTheSetDoesNot)
{
    auto set = std::make_unique<Kor_PerfmonTimers>();
    set->AddTimer("kept");
    Kor_PerfmonTimerData* const kept = set->GetTimerData("kept");
    set->AddTimer("removed");
    {
        const void* const removed = set->GetTimerData("removed");
        bool freed = false;
        Hook<freeImport>* frees = nullptr;
        Hook<freeImport> hook(
            [&](void* memory)
            {
                freed = freed || memory == removed;
                frees->original(memory);
            });
        frees = &hook;
        ASSERT_TRUE(hook.installed());
        EXPECT_EQ(set->Remove("removed"), 1);
        EXPECT_TRUE(freed);
    }
    set.reset();
    m_now += 5;
    EXPECT_EQ(kept->GetTime(), 5); // whoever asked for it may still have it
    delete kept;
}

TEST_F(Timers, WithoutMemoryATimerIsNotAddedAndThatIsTold)
{
    {
        Hook<mallocImport>* mallocs = nullptr;
        Hook<mallocImport> hook([&](std::size_t size)
                                { return size == sizeof(Kor_PerfmonTimerData) ? nullptr : mallocs->original(size); });
        mallocs = &hook;
        ASSERT_TRUE(hook.installed());
        EXPECT_EQ(m_timers.AddTimer("load"), 1);
    }
    EXPECT_EQ(told(), Lines{"WARNINGKor_PerfmonTimers::AddTimer -> No memory to add timer load"});
    EXPECT_EQ(m_timers.AddTimer("load"), 0);
}

TEST_F(Timers, ManyThreadsMayUseTheSetAtOnce)
{
    std::atomic<int> wrong{0};
    run_on_threads(
        8,
        [&](int number)
        {
            for (int i = 0; i < 500; ++i)
            {
                const RWCString name =
                    Kor_PerfmonTimers::GenerateID(Kor_PerfmonTimers::GenerateID("t", number) + ".", i);
                std::int64_t time = -1;
                if (m_timers.AddTimer(name) != 0 || m_timers.GetTimeAndReset(name, time) != 1 ||
                    m_timers.GetTimeAndRemove(name, time) != 1 || time < 0)
                    ++wrong;
            }
        });
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(m_timers.entries(), 0u);
    EXPECT_EQ(told(), Lines{});
}

TEST_F(Timers, OfManyThreadsThatRemoveATimerOneDoes)
{
    for (int round = 0; round < 50; ++round)
    {
        m_timers.AddTimer("shared");
        std::atomic<int> removed{0};
        run_on_threads(4, [&](int) { removed += m_timers.Remove("shared"); });
        EXPECT_EQ(removed, 1);
    }
}

TEST_F(Timers, TheProcesssSetIsThatOfItsMonitorLog)
{
    EXPECT_EQ(KorPLog.Timers().AddTimer("load"), 0);
    EXPECT_EQ(KorPLog.Timers().Remove("load"), 1);
}
