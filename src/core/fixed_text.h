// fixed_text.h - texts in arrays of fixed size, as records that processes share have them.

#ifndef KOR_CORE_FIXED_TEXT_H
#define KOR_CORE_FIXED_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace kor::core
{
/// The text up to its terminator, or all of the array when it has none.
template <std::size_t Size>
std::string_view bounded(const char (&text)[Size]) noexcept
{
    const void* const end = std::memchr(text, '\0', Size);
    return {text, end == nullptr ? Size : static_cast<std::size_t>(static_cast<const char*>(end) - text)};
}

/// Copies as much of text as fits with its terminator. Returns false when some of it was cut.
template <std::size_t Size>
bool copy_cut(char (&to)[Size], const char* text) noexcept
{
    const std::string_view all(text == nullptr ? "" : text);
    const std::size_t length = std::min(all.size(), Size - 1);
    std::memmove(to, all.data(), length);
    to[length] = '\0';
    return length == all.size();
}
} // namespace kor::core

#endif // KOR_CORE_FIXED_TEXT_H
