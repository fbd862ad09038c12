// small_text.h - short wide texts, as of numbers, without memory of the heap.

#ifndef KOR_CORE_SMALL_TEXT_H
#define KOR_CORE_SMALL_TEXT_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace kor::core
{
/// At most 40 characters. What does not fit is cut.
class SmallText
{
public:
    SmallText& add(wchar_t c) noexcept
    {
        if (m_size < std::size(m_text))
            m_text[m_size++] = c;
        return *this;
    }

    template <class Number>
    SmallText& add_number(Number value) noexcept
    {
        char digits[24];
        const char* const end = std::to_chars(digits, std::end(digits), value).ptr;
        for (const char* digit = digits; digit != end; ++digit)
            add(static_cast<wchar_t>(*digit));
        return *this;
    }

    /// "0x0000002a"
    SmallText& add_hex(std::uint32_t value) noexcept
    {
        constexpr int BITS_OF_DIGIT = 4;
        add(L'0').add(L'x');
        for (int shift = 32 - BITS_OF_DIGIT; shift >= 0; shift -= BITS_OF_DIGIT)
            add(L"0123456789abcdef"[value >> shift & 0xF]);
        return *this;
    }

    operator std::wstring_view() const noexcept { return {m_text, m_size}; }

private:
    std::size_t m_size = 0;
    wchar_t m_text[40];
};
} // namespace kor::core

#endif // KOR_CORE_SMALL_TEXT_H
