// What it costs that threads work for clients of their own, in a process where they do.

#include <string>

#include "Kor_ClientScope.h"
#include "Kor_LogFile.h"
#include "bench_log.h"
#include "lumlog.hpp"
#include "rejecting_peer.h"

namespace
{
constexpr int RAISED_PACKAGE = 18; // for one client, whom no thread here works for
constexpr int RAISED_LEVEL = 7;

void macro(benchmark::State& state, int package)
{
    const Kor_ClientScope scope("192.0.2.8", 42);
    int number = 0;
    for (auto _ : state)
        KOR_LOG(KorGLog, REJECTED_LEVEL, package, "request %d of %s took %d us", ++number, "client", 250);
    if (number != 0)
        fail("KOR_LOG accepted a message");
}

void modern_macro(benchmark::State& state, int package)
{
    const Kor_ClientScope scope("192.0.2.8", 42);
    int number = 0;
    for (auto _ : state)
        LUM_LOG(REJECTED_LEVEL, package, "request %d of %s took %d us", ++number, "client", 250);
    if (number != 0)
        fail("LUM_LOG accepted a message");
}

void enter(benchmark::State& state)
{
    for (auto _ : state)
        const Kor_ClientScope scope("192.0.2.8", 42);
}

void enter_task(benchmark::State& state)
{
    const Kor_ClientScope scope("192.0.2.8", 42);
    const Kor_ClientScope::Client client = Kor_ClientScope::Current();
    for (auto _ : state)
        const Kor_ClientScope task(client);
}

/// The first check of a package for a client whom nobody worked for lately: that of a rule.
void new_client(benchmark::State& state)
{
    int client = 0;
    for (auto _ : state)
    {
        ++client;
        const std::string address = "10.1." + std::to_string(client / 250 % 250) + '.' + std::to_string(client % 250);
        const Kor_ClientScope scope(address.c_str(), client);
        benchmark::DoNotOptimize(KorGLog.IsWanted(RAISED_LEVEL, RAISED_PACKAGE));
    }
}

void line(benchmark::State& state, bool within)
{
    const Kor_ClientScope scope(within ? Kor_ClientScope("192.0.2.8", 42).Current() : Kor_ClientScope::Client());
    int number = 0;
    for (auto _ : state)
        KOR_LOG(KorGLog, WANTED_LEVEL, BENCH_PACKAGE, "request %d of %s took %d us", ++number, "client", 250);
}
} // namespace

int main(int argc, char** argv)
{
    const LogDirectory directory(
        full_configuration() + "RAISED " + std::to_string(RAISED_PACKAGE) + " 4 [(7;192.0.2.7)]\n");
    const EnvironmentVariable develop("KORAL_LOG_DEVELOP", "1");
    KorGLog.Open("shared.log", "bench", false);
    KorGLog.SetIPAndSID("192.0.2.8", 42);

    benchmark::RegisterBenchmark("line/process", [](benchmark::State& s) { line(s, false); });
    benchmark::RegisterBenchmark("line/thread", [](benchmark::State& s) { line(s, true); });
    benchmark::RegisterBenchmark("KOR_LOG/nobody", [](benchmark::State& s) { macro(s, BENCH_PACKAGE); });
    benchmark::RegisterBenchmark("KOR_LOG/another", [](benchmark::State& s) { macro(s, RAISED_PACKAGE); });
    benchmark::RegisterBenchmark("LUM_LOG/nobody", [](benchmark::State& s) { modern_macro(s, BENCH_PACKAGE); });
    benchmark::RegisterBenchmark("LUM_LOG/another", [](benchmark::State& s) { modern_macro(s, RAISED_PACKAGE); });
    benchmark::RegisterBenchmark("spdlog/debug", &spdlog_debug);
    benchmark::RegisterBenchmark("scope/address", &enter);
    benchmark::RegisterBenchmark("scope/task", &enter_task);
    benchmark::RegisterBenchmark("scope/new_client", &new_client);
    run_benchmarks(argc, argv);
    return 0;
}
