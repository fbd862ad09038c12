// bounded_text.h - builds a text in a caller's buffer; what does not fit is cut, never written past it.

#ifndef KOR_CORE_BOUNDED_TEXT_H
#define KOR_CORE_BOUNDED_TEXT_H

#include <algorithm>
#include <cassert>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kor::core
{
/// Copies a text that does not overlap, and returns the end of the copy. For the lengths of words and lines it is
/// quicker than a call into the C runtime, which is not the compiler's own here.
char* copy_text(char* to, const char* from, std::size_t length) noexcept;

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
        const std::size_t length = std::min(text.size(), room());
        m_at = copy_text(m_at, text.data(), length);
        m_cut = m_cut || length < text.size();
        return *this;
    }

    /// A literal, whose length the compiler knows.
    template <std::size_t SIZE>
    BoundedText& add(const char (&literal)[SIZE]) noexcept
    {
        constexpr std::size_t LENGTH = SIZE - 1;
        assert(short_text(literal).size() == LENGTH);
        if (LENGTH > room())
            return add(std::string_view(literal, LENGTH));
        std::memcpy(m_at, literal, LENGTH);
        m_at += LENGTH;
        return *this;
    }

    /// A text that ends at its terminator. It is read once, as another thread may be changing it, and no further than
    /// to the first character that is cut.
    BoundedText& add_terminated(const char* text) noexcept
    {
        for (; !m_cut && *text != '\0'; ++text)
            add(*text);
        return *this;
    }

    /// A buffer is not all text: which part of it is, has to be said.
    template <std::size_t SIZE>
    BoundedText& add(char (&buffer)[SIZE]) = delete;

    BoundedText& add(char one) noexcept
    {
        if (m_at == m_end)
            m_cut = true;
        else
            *m_at++ = one;
        return *this;
    }

    /// As "%0<width>d" prints it: zeros between the sign and the digits up to width, at most 20, in all.
    BoundedText& add_number(std::int64_t value, int width = 0) noexcept
    {
        if (value >= 0)
            return add_unsigned(static_cast<std::uint64_t>(value), width);
        return add('-').add_unsigned(0 - static_cast<std::uint64_t>(value), std::min(width, 20) - 1);
    }

    /// As "%0<width>u" prints it, with a width of at most 20.
    BoundedText& add_unsigned(std::uint64_t value, int width = 0) noexcept
    {
        constexpr int MOST_DIGITS = 20;
        if (width <= 1 && room() >= MOST_DIGITS) // as most: without a copy
        {
            m_at = std::to_chars(m_at, m_end, value).ptr;
            return *this;
        }
        char digits[MOST_DIGITS];
        const std::string_view text(
            digits, static_cast<std::size_t>(std::to_chars(digits, digits + MOST_DIGITS, value).ptr - digits));
        for (int count = static_cast<int>(text.size()); count < std::min(width, MOST_DIGITS); ++count)
            add('0');
        return add(text);
    }

    /// As "%-<width>s" prints it.
    BoundedText& add_left_aligned(std::string_view text, std::size_t width) noexcept
    {
        add(text);
        for (std::size_t column = text.size(); column < width; ++column)
            add(' ');
        return *this;
    }

    BoundedText& add_repeated(char one, std::size_t count) noexcept
    {
        const std::size_t shown = std::min(count, room());
        std::memset(m_at, one, shown);
        m_at += shown;
        m_cut = m_cut || shown < count;
        return *this;
    }

    /// As "%<width>.<most>s" prints it, or with left "%-<width>.<most>s". Reads the text as add_terminated does, and
    /// no more than most characters of it. False when the text was cut and that leaves open whether blanks belong
    /// in front of it.
    bool add_aligned(const char* text, std::size_t most, std::size_t width, bool left) noexcept
    {
        char* const begin = m_at;
        const std::size_t room_before = room();
        for (; most != 0 && !m_cut && *text != '\0'; ++text, --most)
            add(*text);
        const auto length = static_cast<std::size_t>(m_at - begin);
        if (m_cut)
            return left || width <= room_before;
        if (width <= length)
            return true;
        const std::size_t padding = width - length;
        add_repeated(' ', padding);
        if (!left)
        {
            const std::size_t indent = std::min(padding, room_before);
            std::memmove(begin + indent, begin, std::min(length, room_before - indent));
            std::memset(begin, ' ', indent);
        }
        return true;
    }

    /// Goes on behind what stands in the buffer already, at most size - 1 characters.
    BoundedText& skip(std::size_t length) noexcept
    {
        m_at += std::min(length, room());
        return *this;
    }

    /// Terminates the text. Returns its length, -1 when some of it was cut.
    int finish() noexcept
    {
        *m_at = '\0';
        return m_cut ? -1 : static_cast<int>(m_at - m_begin);
    }

private:
    std::size_t room() const noexcept { return static_cast<std::size_t>(m_end - m_at); }

    char* m_begin;
    char* m_at;
    char* m_end; // of the characters; the terminator fits behind it
    bool m_cut = false;
};
} // namespace kor::core

#endif // KOR_CORE_BOUNDED_TEXT_H
