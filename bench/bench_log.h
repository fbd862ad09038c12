// bench_log.h - what the benchmark programs share.

#ifndef KOR_BENCH_LOG_H
#define KOR_BENCH_LOG_H

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Kor_Package.h"
#include "log_directory.h"

constexpr int BENCH_PACKAGE = 17;
constexpr int WANTED_LEVEL = 4;   // the package's level
constexpr int REJECTED_LEVEL = 6; // a level that nobody asked for

/// A `logger` file as a machine has it: every package has a line. Private file, no size limit.
inline std::string full_configuration()
{
    std::string text = TO_FILE;
    for (int package = 0; package < PACKAGE_COUNT; ++package)
        text += "PACKAGE_" + std::to_string(package) + ' ' + std::to_string(package) + " 4 // a package\n";
    return text;
}

/// For a result that makes the measurement worthless: says why and ends the program.
[[noreturn]] inline void fail(const std::string& why)
{
    std::fprintf(stderr, "benchmark failed: %s\n", why.c_str());
    std::fflush(stderr);
    std::_Exit(1);
}

inline void run_benchmarks(int argc, char** argv)
{
    ::benchmark::Initialize(&argc, argv);
    if (::benchmark::ReportUnrecognizedArguments(argc, argv))
        std::_Exit(1);
    ::benchmark::RunSpecifiedBenchmarks();
    ::benchmark::Shutdown();
}

#endif // KOR_BENCH_LOG_H
