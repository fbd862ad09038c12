// What a watcher costs its hosts: whole runs of watched_host.exe, of which the first ones start the watcher, at once or in the
// background, and the others find one there. Prints JSON.
//
// Run it with everything on one processor, as startup.cpp.

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "Kor_CrashHandlers.h"
#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogWatcher.h"
#include "bench_log.h"
#include "programs.h"

namespace
{
constexpr int RUNS = 15;
constexpr unsigned PATIENCE_MS = 60'000;

const char* const FIGURES[] = {"start_ms",      "create_process_ms",  "line_before_ns",
                               "line_after_ns", "rejected_before_ns", "rejected_after_ns"};

void wait_until_no_watcher_is_there()
{
    const ULONGLONG end = ::GetTickCount64() + PATIENCE_MS;
    while (Kor_SessionLogWatcher::FindWatcher() != 0)
    {
        if (::GetTickCount64() >= end)
            fail("the watcher stays");
        ::Sleep(5);
    }
}

std::vector<double> run_host(const LogDirectory& directory, const char* how)
{
    ChildOptions options = directory.for_child();
    options.program = beside_this_program("watched_host.exe");
    options.arguments = {how};
    const Child host("measured", options);
    const ChildResult result = host.wait(PATIENCE_MS);
    if (!result.finished || result.exit_code != 0)
        fail("watched_host.exe failed: " + result.err);
    std::vector<double> figures;
    std::istringstream said(result.out);
    for (double figure = 0; said >> figure;)
        figures.push_back(figure);
    if (figures.size() != std::size(FIGURES))
        fail("watched_host.exe says something else: " + result.out);
    return figures;
}

void print_runs(const char* name, const LogDirectory& directory, const char* how, void (*prepare)())
{
    std::vector<std::vector<double>> of_figure(std::size(FIGURES));
    for (int i = 0; i < RUNS; ++i)
    {
        prepare();
        const std::vector<double> figures = run_host(directory, how);
        for (std::size_t figure = 0; figure < figures.size(); ++figure)
            of_figure[figure].push_back(figures[figure]);
    }
    std::printf("\"%s\": {\"runs\": %d", name, RUNS);
    for (std::size_t figure = 0; figure < of_figure.size(); ++figure)
        std::printf(", \"%s\": %.4f", FIGURES[figure], median(of_figure[figure]));
    std::printf("}");
}
} // namespace

int main()
{
    const LogDirectory directory(full_configuration());
    std::printf("{");
    print_runs("first", directory, "at_once", &wait_until_no_watcher_is_there);
    std::printf(", ");
    print_runs("background", directory, "in_background", &wait_until_no_watcher_is_there);
    std::printf(", ");
    wait_until_no_watcher_is_there();
    KorGLog.Open("holder.log", "bench", false);
    if (!Kor_CrashHandlers::Install() || !Kor_SessionLogHost::startWatcher())
        fail("no watcher");
    print_runs("joined", directory, "at_once", [] {});
    std::printf("}\n");
    return 0;
}
