// startup_memory.h - how much memory a process has for itself.

#ifndef KOR_BENCH_STARTUP_MEMORY_H
#define KOR_BENCH_STARTUP_MEMORY_H

#include <windows.h>

#include <psapi.h>

#include <cstdio>

/// Prints the bytes of memory that are this process's alone, if it was asked for with an argument. Wine counts those
/// that have been touched, Windows those that have been promised.
inline void print_private_memory(int argc)
{
    PROCESS_MEMORY_COUNTERS counters{};
    if (argc > 1 && ::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters) != FALSE)
        std::printf("%llu\n", static_cast<unsigned long long>(counters.PagefileUsage));
}

#endif // KOR_BENCH_STARTUP_MEMORY_H
