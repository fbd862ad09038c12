// numbers.h - numbers out of text that anyone may have written: no overflow, whatever it holds.

#ifndef KOR_CORE_NUMBERS_H
#define KOR_CORE_NUMBERS_H

#include <cstdint>
#include <string_view>

namespace kor::core
{
constexpr bool is_blank(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Takes blanks, an optional sign and digits off the front of text. False, with text where the
/// blanks ended, when no digit follows. What does not fit stops at the ends of std::int64_t.
bool take_number(std::string_view& text, std::int64_t& value) noexcept;

/// Takes blanks and then a word without blanks off the front of text; an empty word when none is left.
std::string_view take_word(std::string_view& text) noexcept;

/// The number at the front of text, 0 when there is none.
std::int64_t number_at_front(std::string_view text) noexcept;

/// The same of wide text.
std::int64_t number_at_front(std::wstring_view text) noexcept;

/// The decimal floating-point number at the front of text, with a point whatever the locale; 0 when there is none, and
/// for what is no finite double.
double fraction_at_front(std::wstring_view text) noexcept;

/// value, or the nearest that an int can hold.
int clamp_to_int(std::int64_t value) noexcept;
} // namespace kor::core

#endif // KOR_CORE_NUMBERS_H
