#include "core/text_blocks.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cwchar>

namespace kor::core
{
namespace
{
constexpr std::wstring_view REPLACEMENT = L"\xFFFD";

constexpr bool is_high_surrogate(wchar_t c) noexcept { return c >= 0xD800 && c <= 0xDBFF; }
constexpr bool is_low_surrogate(wchar_t c) noexcept { return c >= 0xDC00 && c <= 0xDFFF; }

/// Of the characters below 64, where all those stand that are to be escaped.
constexpr bool is_special_below_64(wchar_t c) noexcept
{
    if (c < 0x20)
        return c != L'\t' && c != L'\n' && c != L'\r';
    return c == L'&' || c == L'<' || c == L'>' || c == L'"' || c == L'\'';
}

constexpr std::array<bool, 64> make_special_table() noexcept
{
    std::array<bool, 64> table{};
    for (std::size_t c = 0; c < table.size(); ++c)
        table[c] = is_special_below_64(static_cast<wchar_t>(c));
    return table;
}

constexpr std::array<bool, 64> SPECIAL = make_special_table();

constexpr bool is_plain(wchar_t c) noexcept
{
    const auto code = static_cast<std::uint32_t>(c);
    if (code < SPECIAL.size())
        return !SPECIAL[code];
    return code < 0xD800 || (code > 0xDFFF && code < 0xFFFE);
}

/// Digits are the same in every character set: widens them.
void put_digits(TextBlocks& to, const char* begin, const char* end)
{
    wchar_t wide[8];
    while (begin != end)
    {
        std::size_t count = 0;
        for (; begin != end && count < std::size(wide); ++begin)
            wide[count++] = static_cast<wchar_t>(*begin);
        to.put({wide, count});
    }
}
} // namespace

std::size_t count_plain(std::wstring_view text) noexcept
{
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), is_plain) - text.begin());
}

std::wstring_view xml_form(std::wstring_view text, std::size_t& length) noexcept
{
    length = 1;
    switch (text[0])
    {
    case L'&':
        return L"&amp;";
    case L'<':
        return L"&lt;";
    case L'>':
        return L"&gt;";
    case L'"':
        return L"&quot;";
    case L'\'':
        return L"&apos;";
    default:
        break;
    }
    if (is_plain(text[0]))
        return text.substr(0, 1);
    if (!is_high_surrogate(text[0]) || text.size() < 2 || !is_low_surrogate(text[1]))
        return REPLACEMENT;
    length = 2;
    return text.substr(0, 2);
}

std::wstring replace_forbidden(std::wstring_view text)
{
    std::wstring result;
    while (!text.empty())
    {
        std::size_t length = count_plain(text);
        std::wstring_view next = text.substr(0, length);
        if (length == 0)
        {
            next = xml_form(text, length);
            if (next.front() == L'&')
                next = text.substr(0, 1); // allowed, as it can be escaped
        }
        result += next;
        text.remove_prefix(length);
    }
    return result;
}

void TextBlocks::put(std::wstring_view text)
{
    while (!text.empty())
    {
        if (m_used == BLOCK_SIZE)
            flush();
        const std::size_t count = std::min(text.size(), BLOCK_SIZE - m_used);
        std::wmemcpy(m_block + m_used, text.data(), count);
        m_used += count;
        text.remove_prefix(count);
    }
}

void TextBlocks::put_escaped(std::wstring_view text)
{
    for (;;)
    {
        const std::size_t plain = count_plain(text);
        put(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty())
            return;
        std::size_t length = 0;
        put(xml_form(text, length));
        text.remove_prefix(length);
    }
}

void TextBlocks::put_number(std::int64_t value)
{
    char digits[24];
    put_digits(*this, digits, std::to_chars(digits, std::end(digits), value).ptr);
}

void TextBlocks::put_fraction(double value)
{
    // The largest double has 309 digits in front of the point.
    char digits[328];
    put_digits(*this, digits, std::to_chars(digits, std::end(digits), value, std::chars_format::fixed, 6).ptr);
}

void TextBlocks::flush()
{
    const std::size_t count = m_used;
    m_used = 0;
    if (count > 0)
        write(m_block, count);
}
} // namespace kor::core
