// console.h - the console of a process that may have none.

#ifndef KOR_WIN_CONSOLE_H
#define KOR_WIN_CONSOLE_H

#include <cstdio>

namespace kor::win
{
/// Gives a process without a console one, with standard output and standard error on it. Returns
/// false when the process has a console already.
bool open_console_if_none() noexcept;

// Colours of the console's text.
constexpr unsigned short BRIGHT_GREEN = 10;
constexpr unsigned short BRIGHT_RED = 12;
constexpr unsigned short YELLOW = 14;
constexpr unsigned short WHITE = 7; ///< the one that consoles start with

void set_console_colour(unsigned short colour) noexcept;

// Text on standard output and standard error, which are the same console for most programs.

/// To be called before text that begins a line: ends one that leave_line_open has left on standard error.
void begin_line() noexcept;

/// As fprintf, on a new line.
#if defined(__GNUC__) || defined(__clang__)
__attribute__((__format__(__printf__, 2, 3)))
#endif
void print_line(std::FILE* stream, const char* format, ...) noexcept;

/// Notes that standard error ends in the middle of a line, as it does after a text that is fixed and has no newline.
void leave_line_open() noexcept;
} // namespace kor::win

#endif // KOR_WIN_CONSOLE_H
