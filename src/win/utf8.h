// utf8.h - texts between UTF-8, which programs hand over, and what Windows and the C runtime take.

#ifndef KOR_WIN_UTF8_H
#define KOR_WIN_UTF8_H

#include <string>
#include <string_view>

#include "core/json_line.h"

namespace kor::win
{
/// What is no UTF-8 becomes U+FFFD.
std::wstring wide_of_utf8(std::string_view text);

/// Lone halves of surrogate pairs become U+FFFD.
std::string utf8_of_wide(std::wstring_view text);

/// text in the process's code page; what that lacks becomes a question mark.
std::string narrow_of_utf8(std::string_view text);

/// Out of the process's code page.
std::string utf8_of_narrow(std::string_view text);

/// What each byte from 0x80 on is in the process's code page; core::REPLACEMENT for half a character.
core::CodePage code_page() noexcept;

/// Writes UTF-16 without using the heap, cut where it does not fit; for crash handlers. Returns false when it was cut.
bool put_wide_of_utf8(const char* text, wchar_t* buffer, int size) noexcept;
} // namespace kor::win

#endif // KOR_WIN_UTF8_H
