#ifndef CORE_EIGHT_BYTES_H
#define CORE_EIGHT_BYTES_H

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Looks at the bytes of texts: at eight of them with a few instructions, which is what most of a text takes, and at single
/// ones where something was found.
namespace kor::core
{
constexpr std::size_t EIGHT = sizeof(std::uint64_t);
constexpr std::uint64_t EACH_BYTE = 0x0101010101010101;
constexpr std::uint64_t TOP_BITS = EACH_BYTE << 7;

/// True when one of the bytes is 0.
constexpr bool has_zero(std::uint64_t bytes) noexcept { return ((bytes - EACH_BYTE) & ~bytes & TOP_BITS) != 0; }

/// True when one of the bytes is this one.
constexpr bool has_byte(std::uint64_t bytes, unsigned char byte) noexcept { return has_zero(bytes ^ EACH_BYTE * byte); }

/// Has one of TOP_BITS when one of the bytes is no printable ASCII character; which one of them, it does not say. Several
/// of these can be put together with "or" and looked at once.
constexpr std::uint64_t not_printable(std::uint64_t bytes) noexcept
{
    // What is below a blank borrows, DEL carries into the top bit, and what is above ASCII has it.
    return (bytes - EACH_BYTE * 0x20) | (bytes + EACH_BYTE) | bytes;
}

/// The byte there, 0 behind the end.
inline unsigned char byte_at(std::string_view text, std::size_t at) noexcept
{
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

/// first <= last.
constexpr bool is_within(unsigned int value, unsigned int first, unsigned int last) noexcept
{
    return value - first <= last - first;
}
} // namespace kor::core

#endif
