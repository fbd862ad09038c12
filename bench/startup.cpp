// What the library adds to the life of a short process: whole runs of startup_line.exe and of
// startup_empty.exe, in turns, with the machine's configuration block already there. Prints JSON.
//
// Run it with everything on one processor: elsewhere the time that Wine's server takes to wake up on
// another one is most of what is measured.

#include <algorithm>
#include <chrono>
#include <vector>

#include "Kor_LogFile.h"
#include "bench_log.h"

namespace
{
constexpr int RUNS = 40;

std::string program(const std::string& name)
{
    char path[MAX_PATH + 1] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string own(path);
    return own.substr(0, own.rfind('\\') + 1) + name;
}

/// The milliseconds from the process's creation to its end.
double run(const std::string& path)
{
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    std::string line = '"' + path + '"';
    const auto before = std::chrono::steady_clock::now();
    if (::CreateProcessA(path.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process) ==
        FALSE)
        fail("cannot start " + path);
    ::WaitForSingleObject(process.hProcess, INFINITE);
    const auto after = std::chrono::steady_clock::now();
    DWORD exit_code = 1;
    ::GetExitCodeProcess(process.hProcess, &exit_code);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    if (exit_code != 0)
        fail(path + " failed");
    return std::chrono::duration<double, std::milli>(after - before).count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}
} // namespace

int main()
{
    const LogDirectory directory(full_configuration());
    KorGLog.Open("holder.log", "bench", false); // makes the block and keeps it there
    const std::string empty = program("startup_empty.exe");
    const std::string with_line = program("startup_line.exe");
    run(empty);
    run(with_line);

    std::vector<double> empty_ms;
    std::vector<double> line_ms;
    for (int i = 0; i < RUNS; ++i)
    {
        empty_ms.push_back(run(empty));
        line_ms.push_back(run(with_line));
    }
    // Each run leaves a banner at its start, the line, and a banner at its end.
    if (directory.lines("startup.log").size() != 3 * (RUNS + 1))
        fail("startup.log does not hold what was written");
    std::printf("{\"runs\": %d, \"empty_ms\": %.3f, \"line_ms\": %.3f}\n", RUNS, median(empty_ms), median(line_ms));
    return 0;
}
