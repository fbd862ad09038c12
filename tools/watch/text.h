// text.h - texts of the command line and of the system.

#ifndef LUMLOGWATCH_TEXT_H
#define LUMLOGWATCH_TEXT_H

#include <cstdio>
#include <string>
#include <string_view>

namespace lumlogwatch
{
std::string utf8(std::wstring_view text);

/// Of UTF-8.
std::wstring wide(std::string_view text);

/// What the system calls an error of GetLastError, with its number.
std::string system_text(unsigned long error);

/// Prints UTF-8 as it is, or on a console as the characters that it means.
void print(std::FILE* to, const std::string& text);
} // namespace lumlogwatch

#endif // LUMLOGWATCH_TEXT_H
