#include "core/conversion.h"

#include <algorithm>

namespace kor::core
{
namespace
{
constexpr int LARGEST_NUMBER = 100'000'000; // far more than any text has, far less than an int

int take_number(const char*& at) noexcept
{
    if (*at == '*')
    {
        ++at;
        return Conversion::ARGUMENT;
    }
    int number = 0;
    for (; *at >= '0' && *at <= '9'; ++at)
        number = std::min(number * 10 + (*at - '0'), LARGEST_NUMBER);
    return number;
}

void take_flags(const char*& at, Conversion& conversion) noexcept
{
    for (;; ++at)
    {
        if (*at == '-')
            conversion.left = true;
        else if (*at == '0')
            conversion.zeros = true;
        else if (*at != '+' && *at != ' ' && *at != '#')
            return;
    }
}

struct Length
{
    bool narrow = false;
    bool wide = false;
};

Length take_length(const char*& at) noexcept
{
    Length length;
    for (;; ++at)
    {
        if (*at == 'h')
            length.narrow = true;
        else if (*at == 'l' || *at == 'w')
            length.wide = true;
        else if (*at == 'I' && ((at[1] == '6' && at[2] == '4') || (at[1] == '3' && at[2] == '2')))
            at += 2;
        else if (*at != 'I' && *at != 'L')
            return length;
    }
}

Conversion::Kind kind_of(char type, Length length) noexcept
{
    switch (type)
    {
    case 's':
        return length.wide ? Conversion::WIDE_TEXT : Conversion::OTHER;
    case 'S':
        return length.narrow ? Conversion::OTHER : Conversion::WIDE_TEXT;
    case 'c':
        return length.wide ? Conversion::WIDE_CHARACTER : Conversion::OTHER;
    case 'C':
        return length.narrow ? Conversion::OTHER : Conversion::WIDE_CHARACTER;
    case 'd':
    case 'i':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
    case 'e':
    case 'E':
    case 'f':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
    case 'p':
    case 'n':
    case 'Z':
        return Conversion::OTHER;
    default:
        return Conversion::NONE;
    }
}

Utf8 encode(std::uint32_t code) noexcept
{
    const auto byte = [](std::uint32_t value) { return static_cast<char>(static_cast<unsigned char>(value)); };
    const auto rest = [&byte, code](int shift) { return byte(0x80 | ((code >> shift) & 0x3F)); };
    if (code < 0x80)
        return {{byte(code)}, 1};
    if (code < 0x800)
        return {{byte(0xC0 | (code >> 6)), rest(0)}, 2};
    if (code < 0x10000)
        return {{byte(0xE0 | (code >> 12)), rest(6), rest(0)}, 3};
    return {{byte(0xF0 | (code >> 18)), rest(12), rest(6), rest(0)}, 4};
}
} // namespace

Conversion read_conversion(const char* format) noexcept
{
    Conversion conversion;
    const char* at = format + 1;
    take_flags(at, conversion);
    if (*at == '*' || (*at >= '1' && *at <= '9'))
        conversion.width = take_number(at);
    if (*at == '.')
    {
        ++at;
        conversion.precision = take_number(at);
    }
    const Length length = take_length(at);
    conversion.kind = kind_of(*at, length);
    if (*at != '\0')
        ++at;
    conversion.size = static_cast<std::size_t>(at - format);
    return conversion;
}

bool WideText::next(Utf8& character) noexcept
{
    constexpr std::uint32_t REPLACEMENT = 0xFFFD;
    if (m_most == 0 || *m_at == L'\0')
        return false;
    auto code = static_cast<std::uint32_t>(*m_at);
    const wchar_t* behind = m_at + 1;
    const bool is_first_half = code >= 0xD800 && code < 0xDC00;
    if (is_first_half && m_most >= 3) // else neither a whole pair nor what stands for half of one is wanted
    {
        const auto second = static_cast<std::uint32_t>(*behind);
        if (second >= 0xDC00 && second < 0xE000)
        {
            code = 0x10000 + ((code - 0xD800) << 10) + (second - 0xDC00);
            ++behind;
        }
    }
    if ((code >= 0xD800 && code < 0xE000) || code > 0x10FFFF)
        code = REPLACEMENT;
    character = encode(code);
    if (character.size > m_most)
    {
        m_most = 0;
        return false;
    }
    m_most -= character.size;
    m_at = behind;
    return true;
}
} // namespace kor::core
