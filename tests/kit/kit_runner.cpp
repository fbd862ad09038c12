// kit_runner.cpp - runs the test programs of a kit, each case in a process of its own, and writes one file of results.
//
// kit_runner [--only TEXT]... [--skip-benchmarks] [--timeout SECONDS]
//
// The kit is the folder above this program's: bin with all programs, cases.txt with a line "PROGRAM CASE" for each case,
// benchmarks.txt with a line for each benchmark program. The results go to results.txt there.

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "facts.h"
#include "kit_children.h"
#include "processes.h"

namespace
{
struct Case
{
    std::string program;
    std::string name;
};

struct Options
{
    std::vector<std::string> only; ///< texts, of which one has to stand in a case's line; empty: all cases
    bool has_benchmarks = true;
    unsigned timeout_s = 180;
};

std::vector<std::string> lines_of(const std::wstring& path)
{
    std::vector<std::string> lines;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(::_wfopen(path.c_str(), L"r"), &std::fclose);
    if (file == nullptr)
        return lines;
    char line[1024];
    while (std::fgets(line, sizeof line, file.get()) != nullptr)
    {
        std::string text(line);
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
            text.pop_back();
        if (!text.empty())
            lines.push_back(text);
    }
    return lines;
}

bool is_wanted(const std::string& line, const std::vector<std::string>& only)
{
    return only.empty() ||
           std::any_of(
               only.begin(), only.end(), [&](const std::string& text) { return line.find(text) != std::string::npos; });
}

std::vector<Case> cases_of(const std::wstring& kit, const std::vector<std::string>& only)
{
    std::vector<Case> cases;
    for (const std::string& line : lines_of(kit + L"\\cases.txt"))
    {
        const std::size_t blank = line.find(' ');
        if (blank != std::string::npos && is_wanted(line, only))
            cases.push_back({line.substr(0, blank), line.substr(blank + 1)});
    }
    return cases;
}

/// What a person sees, and what the file of results keeps.
class Report
{
public:
    explicit Report(const std::wstring& path) : m_file(::_wfopen(path.c_str(), L"w"), &std::fclose) {}
    bool is_open() const noexcept { return m_file != nullptr; }

    void note(const std::string& text)
    {
        std::fprintf(m_file.get(), "%s\n", text.c_str());
        std::fflush(m_file.get()); // what is there at a crash of the machine is worth having
    }

    void say(const std::string& text)
    {
        std::printf("%s\n", text.c_str());
        std::fflush(stdout);
        note(text);
    }

private:
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file;
};

/// True when the case passed. A failure counts also when the program ends with 0 after it, and so does a case that did
/// not run: one that is not in the program any more.
bool run_case(const std::wstring& kit, const Case& test, unsigned timeout_s, Report& report)
{
    const kit::Ended ended = kit::run(
        kit + L"\\bin\\" + kit::wide(test.program), L"--gtest_filter=" + kit::wide(test.name), kit + L"\\bin",
        timeout_s * 1000);
    const bool passed = ended.is_over && ended.code == 0 && ended.output.find(": Failure") == std::string::npos &&
                        ended.output.find("[  PASSED  ] 1 test") != std::string::npos;
    if (passed)
        return true;
    report.say("FAILED " + test.program + " " + test.name);
    report.note(
        ended.is_over ? "    ended with " + std::to_string(ended.code) : "    was not over in time, and was ended");
    report.note(ended.output);
    return false;
}

void run_benchmarks(const std::wstring& kit, Report& report)
{
    for (const std::string& name : lines_of(kit + L"\\benchmarks.txt"))
    {
        std::printf("measuring with %s ...\n", name.c_str());
        const kit::Ended ended =
            kit::run(kit + L"\\bin\\" + kit::wide(name), L"--benchmark_min_time=0.1", kit + L"\\bin", 600'000);
        report.note("-- " + name + (ended.is_over ? "" : " (was not over in time)"));
        report.note(ended.output);
    }
}

Options options_of(int count, char** values)
{
    Options options;
    for (int i = 1; i < count; ++i)
    {
        const std::string word = values[i];
        if (word == "--only" && i + 1 < count)
            options.only.emplace_back(values[++i]);
        else if (word == "--skip-benchmarks")
            options.has_benchmarks = false;
        else if (word == "--timeout" && i + 1 < count)
            options.timeout_s = static_cast<unsigned>(std::strtoul(values[++i], nullptr, 10));
        else
        {
            std::printf("There is no option %s.\n", word.c_str());
            std::exit(2);
        }
    }
    return options;
}
} // namespace

int main(int count, char** values)
{
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    if (count == 2 && std::string(values[1]) == "--overflow")
        return kit::overflow_stack();
    if (count == 3 && std::string(values[1]) == "--append")
        return kit::append_lines(kit::own_kit() + L"\\appends.txt");
    const Options options = options_of(count, values);
    const std::wstring kit = kit::own_kit();
    Report report(kit + L"\\results.txt");
    if (!report.is_open())
    {
        std::puts("results.txt cannot be written: unpack the kit where you may write.\n0 passed, 1 failed");
        return 1;
    }
    report.note("== The machine\n" + kit::facts(kit));
    report.note("== Failures");
    const std::vector<Case> cases = cases_of(kit, options.only);
    int passed = 0;
    int failed = cases.empty() ? 1 : 0;
    if (cases.empty())
        report.say("No case in cases.txt fits.");
    for (std::size_t i = 0; i < cases.size(); ++i)
    {
        if (i % 100 == 0)
            std::printf("%u of %u cases ...\n", static_cast<unsigned>(i), static_cast<unsigned>(cases.size()));
        (run_case(kit, cases[i], options.timeout_s, report) ? passed : failed) += 1;
    }
    if (options.has_benchmarks)
    {
        report.note("== Benchmarks");
        run_benchmarks(kit, report);
    }
    report.say(std::to_string(passed) + " passed, " + std::to_string(failed) + " failed");
    return failed == 0 ? 0 : 1;
}
