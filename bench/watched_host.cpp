// A host that asks for a watcher, at once or in the background. Prints the milliseconds that this call takes, those of CreateProcess for a program that
// does nothing, and the nanoseconds of a line and of a message that nobody wants, before and after.

#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>

#include "Kor_CrashHandlers.h"
#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "bench_log.h"
#include "programs.h"

namespace
{
using Clock = std::chrono::steady_clock;

template <class Unit>
double since(Clock::time_point before)
{
    return std::chrono::duration<double, Unit>(Clock::now() - before).count();
}

/// The call alone: the program ends when it likes.
double create_empty_program()
{
    const std::string path = beside_this_program("startup_empty.exe");
    std::string line = '"' + path + '"';
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    const auto before = Clock::now();
    if (::CreateProcessA(path.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process) ==
        FALSE)
        fail("cannot start " + path);
    const double took = since<std::milli>(before);
    ::WaitForSingleObject(process.hProcess, INFINITE);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    return took;
}

double message_ns(int level, int count)
{
    const auto before = Clock::now();
    for (int i = 0; i < count; ++i)
        KOR_LOG(KorGLog, level, BENCH_PACKAGE, "request %d of %s took %d us", i, "client", 250);
    return since<std::nano>(before) / count;
}
} // namespace

int main(int, char** argv)
{
    constexpr int LINES = 4'000;
    constexpr int REJECTED = 1'000'000;
    constexpr DWORD TIME_TO_BEGIN_MS = 200; // of the watcher, on the same processor
    KorGLog.Open("watched.log", "bench");
    if (!Kor_CrashHandlers::Install())
        fail("no crash handlers");
    message_ns(WANTED_LEVEL, LINES); // what a first line makes is made
    const double line_before = message_ns(WANTED_LEVEL, LINES);
    const double rejected_before = message_ns(REJECTED_LEVEL, REJECTED);
    const bool in_background = argv[1] == std::string_view("in_background");
    const auto before = Clock::now();
    if (!(in_background ? Kor_SessionLogHost::startWatcherInBackground() : Kor_SessionLogHost::startWatcher()))
        fail("no watcher");
    const double start = since<std::milli>(before);
    ::Sleep(TIME_TO_BEGIN_MS);
    const double line_after = message_ns(WANTED_LEVEL, LINES);
    const double rejected_after = message_ns(REJECTED_LEVEL, REJECTED);
    std::printf(
        "%f %f %f %f %f %f\n", start, create_empty_program(), line_before, line_after, rejected_before, rejected_after);
    return 0;
}
