// What the library adds to the life of a short process, and to its memory: whole runs of startup_line.exe and of
// startup_empty.exe, in turns, with the machine's configuration block already there. Prints JSON.
//
// Run it with everything on one processor: elsewhere the time that Wine's server takes to wake up on
// another one is most of what is measured.

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "bench_log.h"
#include "programs.h"

namespace
{
constexpr int RUNS = 40;

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

/// The bytes that a process has for itself, as it prints them.
double private_bytes(const LogDirectory& directory, const std::string& path)
{
    ChildOptions options = directory.for_child({{"KORAL_LOG_DEVELOP", ""}});
    options.program = path;
    options.arguments = {"memory"};
    const Child child("memory", options);
    const ChildResult result = child.wait(20000);
    if (!result.finished || result.exit_code != 0 || result.out.empty())
        fail(path + " tells nothing of its memory");
    return std::strtod(result.out.c_str(), nullptr);
}

/// As a machine has it where every package has as many rules as it can have.
std::string configuration_with_rules()
{
    std::string rules;
    for (int rule = 0; rule < 10; ++rule)
        rules += "(7;10.1.2." + std::to_string(rule + 1) + ")";
    std::string text = TO_FILE;
    for (int package = 0; package < PACKAGE_COUNT; ++package)
        text += "PACKAGE_" + std::to_string(package) + ' ' + std::to_string(package) + " 4 [" + rules + "]\n";
    return text;
}

/// Runs of a program that writes a line, each after one of the empty program.
class Runs
{
public:
    explicit Runs(const std::string& logger)
        : m_directory(logger), m_empty(beside_this_program("startup_empty.exe")),
          m_line(beside_this_program("startup_line.exe"))
    {
        if (Kor_LogFile::UpdateSMFromFile(m_directory.file("logger").c_str()) != 0)
            fail("the machine's configuration cannot be changed");
        run(m_empty);
        run(m_line);
        m_memory = private_bytes(m_directory, m_line) - private_bytes(m_directory, m_empty);
        for (int i = 0; i < RUNS; ++i)
        {
            m_empty_ms.push_back(run(m_empty));
            m_line_ms.push_back(run(m_line));
        }
        // Each run leaves a banner at its start, the line, and a banner at its end.
        if (m_directory.lines("startup.log").size() != 3 * (RUNS + 2))
            fail("startup.log does not hold what was written");
    }

    void print(const char* name) const
    {
        std::printf(
            "\"%s\": {\"runs\": %d, \"empty_ms\": %.3f, \"line_ms\": %.3f, \"private_bytes\": %.0f}", name, RUNS,
            median(m_empty_ms), median(m_line_ms), m_memory);
    }

private:
    const LogDirectory m_directory;
    const std::string m_empty, m_line;
    double m_memory = 0;
    std::vector<double> m_empty_ms, m_line_ms;
};
} // namespace

int main()
{
    const LogDirectory directory(full_configuration());
    KorGLog.Open("holder.log", "bench", false); // makes the block and keeps it there
    std::printf("{");
    Runs(full_configuration()).print("plain");
    std::printf(", ");
    Runs(configuration_with_rules()).print("rules");
    std::printf("}\n");
    return 0;
}
