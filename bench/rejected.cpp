// What a message costs that nobody wants: the common case. One program for all contenders, so that
// their ratios are taken in one run.

#include "Kor_LogFile.h"
#include "bench_log.h"
#include "floor/floor.h"
#include "lumlog.hpp"
#include "rejecting_peer.h"

namespace
{
/// The log that uses the block of the machine is KorGLog, as in every host; this one has a
/// configuration of its own, as with KORAL_LOG_DEVELOP=1.
Kor_LogFile* private_log = nullptr;

void store_params(benchmark::State& state, Kor_LogFile& log)
{
    int wanted = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            wanted += log.StoreParams(__FILE__, __func__, __LINE__, REJECTED_LEVEL, BENCH_PACKAGE));
    if (wanted != 0)
        fail("StoreParams accepted a message");
}

void check_level(benchmark::State& state, Kor_LogFile& log)
{
    int wanted = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(wanted += log.CheckMsgLevel(BENCH_PACKAGE * PACKAGE_RANGE, REJECTED_LEVEL));
    if (wanted != 0)
        fail("CheckMsgLevel accepted a message");
}

void macro_shared(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state)
        KOR_LOG(KorGLog, REJECTED_LEVEL, BENCH_PACKAGE, "request %d of %s took %d us", ++number, "client", 250);
    if (number != 0)
        fail("KOR_LOG accepted a message");
}

void macro_private(benchmark::State& state)
{
    int number = 0;
    Kor_LogFile& log = *private_log;
    for (auto _ : state)
        KOR_LOG(log, REJECTED_LEVEL, BENCH_PACKAGE, "request %d of %s took %d us", ++number, "client", 250);
    if (number != 0)
        fail("KOR_LOG accepted a message");
}

// By the interface for every compiler, whose log is KorGLog.
void modern_macro(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state)
        LUM_LOG(REJECTED_LEVEL, BENCH_PACKAGE, "request %d of %s took %d us", ++number, "client", 250);
    if (number != 0)
        fail("LUM_LOG accepted a message");
}

// Of a call whose one argument is a finished text the compiler leaves nothing but the comparison of the levels.
void macro_of_text(benchmark::State& state)
{
    for (auto _ : state)
        KOR_LOG(KorGLog, REJECTED_LEVEL, BENCH_PACKAGE, "request of a client");
}

void spdlog_of_text(benchmark::State& state)
{
    spdlog::logger* const logger = peer().get();
    for (auto _ : state)
        logger->debug("request of a client");
}

void floor_call(benchmark::State& state)
{
    int wanted = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(wanted += floor_is_wanted(REJECTED_LEVEL));
}

void floor_inline(benchmark::State& state)
{
    int number = 0;
    for (auto _ : state)
    {
        if (!floor_is_rejected(REJECTED_LEVEL))
            benchmark::DoNotOptimize(++number);
    }
}
} // namespace

int main(int argc, char** argv)
{
    const LogDirectory directory(full_configuration());
    {
        const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
        private_log = new Kor_LogFile(0, false);
        private_log->Open("private.log", "bench", false);
    }
    KorGLog.Open("shared.log", "bench", false);
    if (private_log->CheckMsgLevel(BENCH_PACKAGE * PACKAGE_RANGE, WANTED_LEVEL) == 0 ||
        KorGLog.CheckMsgLevel(BENCH_PACKAGE * PACKAGE_RANGE, WANTED_LEVEL) == 0)
        fail("the package's level is not the configuration's");

    benchmark::RegisterBenchmark("StoreParams/private", [](benchmark::State& s) { store_params(s, *private_log); });
    benchmark::RegisterBenchmark("StoreParams/shared", [](benchmark::State& s) { store_params(s, KorGLog); });
    benchmark::RegisterBenchmark("CheckMsgLevel/private", [](benchmark::State& s) { check_level(s, *private_log); });
    benchmark::RegisterBenchmark("CheckMsgLevel/shared", [](benchmark::State& s) { check_level(s, KorGLog); });
    benchmark::RegisterBenchmark("KOR_LOG/private", &macro_private);
    benchmark::RegisterBenchmark("KOR_LOG/shared", &macro_shared);
    benchmark::RegisterBenchmark("LUM_LOG/shared", &modern_macro);
    benchmark::RegisterBenchmark("spdlog/debug", &spdlog_debug);
    benchmark::RegisterBenchmark("KOR_LOG/text", &macro_of_text);
    benchmark::RegisterBenchmark("spdlog/text", &spdlog_of_text);
    benchmark::RegisterBenchmark("floor/call", &floor_call);
    benchmark::RegisterBenchmark("floor/inline", &floor_inline);
    run_benchmarks(argc, argv);
    delete private_log;
    return 0;
}
