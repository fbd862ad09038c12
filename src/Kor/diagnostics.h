// diagnostics.h - what the configuration code tells: warnings always, traces on request.

#ifndef KOR_DIAGNOSTICS_H
#define KOR_DIAGNOSTICS_H

#include <cstdio>

#include "win/console.h"

namespace kor
{
/// True when PRISMATE_LOG_DEBUG was set at the first question; the process keeps that answer.
bool is_tracing();

/// Prints to standard output when is_tracing(). A macro, so that nothing is evaluated otherwise and
/// compilers check the format.
#define KOR_TRACE(...)                                   \
    do                                                   \
    {                                                    \
        if (::kor::is_tracing())                         \
            ::kor::win::print_line(stdout, __VA_ARGS__); \
    } while (false)

/// Prints a warning about something that was not used as it was given.
#define KOR_WARN(...) ::kor::win::print_line(stdout, "Kor_LogFile - Warning - " __VA_ARGS__)

/// True in a program that has KOR_TOOL_PROGRAM in it.
bool is_tool_program();

/// For who has set no PRISMATE_LOG_DIR.
inline void warn_of_missing_directory() { KOR_WARN("No configuration file\n"); }
} // namespace kor

#endif // KOR_DIAGNOSTICS_H
