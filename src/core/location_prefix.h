// location_prefix.h - where a message comes from, as told at the front of its own text.

#ifndef KOR_CORE_LOCATION_PREFIX_H
#define KOR_CORE_LOCATION_PREFIX_H

#include <cstdint>
#include <string_view>

namespace kor::core
{
/// A text, and what its prefix "<thread,class.method:line>" says. The views are parts of the text.
struct LocatedText
{
    bool has_prefix;             ///< false: one of the five separators is missing, and the body is the whole text
    std::string_view thread;     ///< from '<' to the first ',' after it
    std::string_view class_name; ///< from there to the first '.': of a name with several, the first part
    std::string_view function;   ///< from there to the first ':'
    std::int32_t line;           ///< 0 when what stands there is no number; the body is then the whole text
    std::string_view body;
};

/// Looks for the prefix anywhere in a text.
LocatedText read_location(std::string_view text) noexcept;

/// Reads what strtol with base 0 reads: blanks, a sign, decimal digits, or hexadecimal ones behind 0x,
/// or octal ones behind 0. False, and 0, when something else is left or the number needs more than 32
/// bits. Nothing at all is 0.
bool read_line_number(std::string_view field, std::int32_t& line) noexcept;
} // namespace kor::core

#endif // KOR_CORE_LOCATION_PREFIX_H
