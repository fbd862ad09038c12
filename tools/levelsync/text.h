// text.h - texts of the command line, of files and of the screen.

#ifndef LEVELSYNC_TEXT_H
#define LEVELSYNC_TEXT_H

#include <string>
#include <string_view>
#include <vector>

namespace levelsync
{
std::string utf8(std::wstring_view text);

/// Of UTF-8; what is none becomes U+FFFD.
std::wstring wide(std::string_view text);

bool is_utf8(std::string_view bytes);

/// Bytes that anyone may have written, as they can be shown: valid UTF-8 (bytes that are none are taken for the system's
/// own code page) in which nothing drives a terminal.
std::string shown(std::string_view bytes);

/// "1 rule", "3 rules".
std::string counted(std::size_t count, std::string_view one, std::string_view many);

/// "a, b and c".
std::string joined(const std::vector<std::string>& parts, std::string_view last = " and ");

/// A text with blanks behind it up to so many columns (characters, not bytes), which may be fewer than it has.
std::string padded(std::string_view text, std::size_t columns);
std::size_t columns_of(std::string_view text) noexcept;

/// ASCII letters alone: for names that people type.
std::string lower_case(std::string_view text);

/// True when name is what the pattern stands for: * any characters, ? any one, letters of either case.
bool matches(std::string_view pattern, std::string_view name);
bool is_pattern(std::string_view text) noexcept;
} // namespace levelsync

#endif // LEVELSYNC_TEXT_H
