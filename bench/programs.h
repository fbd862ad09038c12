// programs.h - for benchmarks that run whole programs.

#ifndef KOR_BENCH_PROGRAMS_H
#define KOR_BENCH_PROGRAMS_H

#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

/// The path of a program in the folder of this one.
inline std::string beside_this_program(const std::string& name)
{
    char path[MAX_PATH + 1] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string own(path);
    return own.substr(0, own.rfind('\\') + 1) + name;
}

inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}

#endif // KOR_BENCH_PROGRAMS_H
