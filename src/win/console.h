// console.h - the console of a process that may have none.

#ifndef KOR_WIN_CONSOLE_H
#define KOR_WIN_CONSOLE_H

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
} // namespace kor::win

#endif // KOR_WIN_CONSOLE_H
