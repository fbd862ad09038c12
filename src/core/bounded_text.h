// bounded_text.h - builds a text in a caller's buffer; what does not fit is cut, never written past it.

#ifndef KOR_CORE_BOUNDED_TEXT_H
#define KOR_CORE_BOUNDED_TEXT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kor::core
{
/// std::memcpy, where compilers do not see it: of a buffer that is too short for this to be called, GCC 12
/// warns at its highest optimisation.
void copy_long_text(char* to, const char* from, std::size_t length) noexcept;

/// Copies a text that does not overlap. For the lengths of words and lines it is quicker than a call
/// into the C runtime, which is not the compiler's own here.
inline void copy_text(char* to, const char* from, std::size_t length) noexcept
{
    struct Block
    {
        std::uint64_t words[2];
    };
    const auto copy_ends = [=](auto chunk)
    {
        auto last = chunk;
        std::memcpy(&chunk, from, sizeof chunk);
        std::memcpy(&last, from + length - sizeof last, sizeof last);
        std::memcpy(to, &chunk, sizeof chunk);
        std::memcpy(to + length - sizeof last, &last, sizeof last);
    };
    if (length > 512)
        copy_long_text(to, from, length);
    else if (length >= sizeof(Block))
    {
        for (std::size_t at = 0; at + sizeof(Block) <= length; at += sizeof(Block))
            std::memcpy(to + at, from + at, sizeof(Block));
        std::memcpy(to + length - sizeof(Block), from + length - sizeof(Block), sizeof(Block));
    }
    else if (length >= 8)
        copy_ends(std::uint64_t{});
    else if (length >= 4)
        copy_ends(std::uint32_t{});
    else if (length >= 2)
        copy_ends(std::uint16_t{});
    else if (length == 1)
        *to = *from;
}

/// As std::strlen, for the names in a headline: without a call into the C runtime.
inline std::string_view short_text(const char* text) noexcept
{
    std::size_t length = 0;
    while (text[length] != '\0')
        ++length;
    return {text, length};
}

/// Appends to a buffer that has room for size - 1 characters and a terminator.
class BoundedText
{
public:
    /// size: at least 1.
    BoundedText(char* buffer, std::size_t size) noexcept : m_begin(buffer), m_at(buffer), m_end(buffer + size - 1) {}

    BoundedText& add(std::string_view text) noexcept
    {
        const std::size_t room = static_cast<std::size_t>(m_end - m_at);
        const std::size_t length = std::min(text.size(), room);
        copy_text(m_at, text.data(), length);
        m_at += length;
        m_cut = m_cut || length < text.size();
        return *this;
    }

    BoundedText& add(char one) noexcept
    {
        if (m_at == m_end)
            m_cut = true;
        else
            *m_at++ = one;
        return *this;
    }

    /// As "%0<width>d" prints it: zeros between the sign and the digits up to width in all.
    BoundedText& add_number(std::int64_t value, int width = 0) noexcept
    {
        char digits[24];
        char* first = digits + sizeof digits;
        std::uint64_t rest = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
        do
        {
            *--first = static_cast<char>('0' + rest % 10);
            rest /= 10;
        } while (rest != 0);
        const int sign = value < 0 ? 1 : 0;
        while (digits + sizeof digits - first < std::min(width, 20) - sign)
            *--first = '0';
        if (sign != 0)
            *--first = '-';
        return add(std::string_view(first, static_cast<std::size_t>(digits + sizeof digits - first)));
    }

    /// As "%-<width>s" prints it.
    BoundedText& add_left_aligned(std::string_view text, std::size_t width) noexcept
    {
        add(text);
        for (std::size_t column = text.size(); column < width; ++column)
            add(' ');
        return *this;
    }

    /// Terminates the text. Returns its length, -1 when some of it was cut.
    int finish() noexcept
    {
        *m_at = '\0';
        return m_cut ? -1 : static_cast<int>(m_at - m_begin);
    }

private:
    char* m_begin;
    char* m_at;
    char* m_end; // of the characters; the terminator fits behind it
    bool m_cut = false;
};
} // namespace kor::core

#endif // KOR_CORE_BOUNDED_TEXT_H
