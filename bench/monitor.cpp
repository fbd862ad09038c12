// What measuring costs: the timers, and lines of the performance-monitor log that are wanted or not.

#include <windows.h>

#include <sys/timeb.h>

#include <string>
#include <unordered_map>

#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "Kor_PerfmonScope.h"
#include "bench_log.h"

namespace
{
void timer_add_remove(benchmark::State& state)
{
    const RWCString name("load");
    std::int64_t time = 0;
    for (auto _ : state)
    {
        if (KorPLog.Timers().AddTimer(name) != 0 || KorPLog.Timers().GetTimeAndRemove(name, time) != 1)
            fail("the timer is not there");
    }
}

void timer_read(benchmark::State& state)
{
    const RWCString name("load");
    KorPLog.Timers().AddTimer(name);
    std::int64_t time = 0;
    for (auto _ : state)
    {
        if (KorPLog.Timers().GetTimeAndReset(name, time) != 1)
            fail("the timer is not there");
    }
    KorPLog.Timers().Remove(name);
}

/// The two readings of the clock that a reset takes.
void clock_read(benchmark::State& state)
{
    struct __timeb64 time;
    for (auto _ : state)
    {
        ::_ftime64(&time);
        ::_ftime64(&time);
        benchmark::DoNotOptimize(time);
    }
}

void store_params(benchmark::State& state, int level, int expected)
{
    for (auto _ : state)
    {
        if (KorPLog.StoreParams(__FILE__, __LINE__, level, KOR_PACKAGE_PERFMON) != expected)
            fail("StoreParams answered otherwise");
    }
}

void scope_unwanted(benchmark::State& state)
{
    for (auto _ : state)
        const Kor_PerfmonScope timing("load", REJECTED_LEVEL);
}

void line(benchmark::State& state)
{
    KorPLog.StoreParams(__FILE__, __LINE__, WANTED_LEVEL, KOR_PACKAGE_PERFMON);
    for (auto _ : state)
        KorPLog.FLog("load", "fg", "cpu", 12.34, "ms", std::int64_t{1500});
}
} // namespace

int main(int argc, char** argv)
{
    const LogDirectory fresh(full_configuration());
    const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
    KorGLog.Open("bench.log", "bench", false);
    KorPLog.Open("bench.perf", "bench");
    benchmark::RegisterBenchmark("timer/add-remove", &timer_add_remove);
    benchmark::RegisterBenchmark("timer/read-reset", &timer_read);
    benchmark::RegisterBenchmark("clock/twice", &clock_read);
    benchmark::RegisterBenchmark("params/rejected", &store_params, REJECTED_LEVEL, 0);
    benchmark::RegisterBenchmark("params/accepted", &store_params, WANTED_LEVEL, 1);
    benchmark::RegisterBenchmark("scope/unwanted", &scope_unwanted);
    benchmark::RegisterBenchmark("line/flog", &line)->Iterations(500)->UseRealTime();
    run_benchmarks(argc, argv);
    return 0;
}
