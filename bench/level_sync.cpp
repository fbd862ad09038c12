// LevelSync -u of a file that has all that a file can have, beside a process that loads the library, which reads that
// file as well, and ends. Whole runs in turns, with the machine's configuration block already there. Prints JSON.
//
// Run it with everything on one processor, as startup.cpp.

#include <chrono>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "bench_log.h"
#include "programs.h"

namespace
{
constexpr int RUNS = 40;

/// Every package with ten rules; one of them at this level.
std::string configuration(int level_of_package_17)
{
    std::string rules;
    for (int rule = 0; rule < 10; ++rule)
        rules += "(7;10.1.2." + std::to_string(rule + 1) + ")";
    std::string text = TO_FILE;
    for (int package = 0; package < PACKAGE_COUNT; ++package)
        text += "PACKAGE_" + std::to_string(package) + ' ' + std::to_string(package) + ' ' +
                std::to_string(package == BENCH_PACKAGE ? level_of_package_17 : 4) + " [" + rules + "]\n";
    return text;
}

/// The milliseconds of a whole process.
double run(const LogDirectory& directory, const std::string& program, std::vector<std::string> arguments)
{
    ChildOptions options = directory.for_child({{"KORAL_LOG_DEVELOP", ""}});
    options.program = program;
    options.arguments = std::move(arguments);
    const auto before = std::chrono::steady_clock::now();
    const Child child("measured", options);
    const ChildResult result = child.wait(20000);
    const auto after = std::chrono::steady_clock::now();
    if (!result.finished || result.exit_code != 0)
        fail(program + " failed: " + result.err);
    return std::chrono::duration<double, std::milli>(after - before).count();
}
} // namespace

int main()
{
    const LogDirectory directory(configuration(4));
    KorGLog.Open("holder.log", "bench", false); // makes the block and keeps it there
    const std::string load = beside_this_program("startup_load.exe");
    const std::string level_sync = beside_this_program("LevelSync.exe");
    std::vector<double> load_ms;
    std::vector<double> publish_ms;
    for (int i = 0; i < RUNS; ++i)
    {
        const int level = 5 + i % 2;
        directory.configure(configuration(level));
        load_ms.push_back(run(directory, load, {}));
        publish_ms.push_back(run(directory, level_sync, {"-u"}));
        if (KorGLog.GetLogLevel(BENCH_PACKAGE * PACKAGE_RANGE) != level)
            fail("what was published does not count");
    }
    std::printf(
        "{\"runs\": %d, \"load_ms\": %.3f, \"publish_ms\": %.3f, \"ratio\": %.3f}\n", RUNS, median(load_ms),
        median(publish_ms), median(publish_ms) / median(load_ms));
    return 0;
}
