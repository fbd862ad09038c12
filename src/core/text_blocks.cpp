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

/// Of ASCII characters, where all those stand that are to be escaped.
constexpr bool is_special_ascii(wchar_t c) noexcept
{
    if (c < 0x20)
        return c != L'\t' && c != L'\n' && c != L'\r';
    return c == L'&' || c == L'<' || c == L'>' || c == L'"' || c == L'\'';
}

constexpr std::array<bool, 128> make_special_table() noexcept
{
    std::array<bool, 128> table{};
    for (std::size_t c = 0; c < table.size(); ++c)
        table[c] = is_special_ascii(static_cast<wchar_t>(c));
    return table;
}

// All of ASCII, so that the usual texts take the same branch at each character.
constexpr std::array<bool, 128> SPECIAL = make_special_table();

constexpr bool is_plain(wchar_t c) noexcept
{
    const auto code = static_cast<std::uint32_t>(c);
    if (code < SPECIAL.size())
        return !SPECIAL[code];
    return code < 0xD800 || (code > 0xDFFF && code < 0xFFFE);
}
} // namespace

std::size_t count_plain(std::wstring_view text) noexcept
{
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), is_plain) - text.begin());
}

std::wstring_view xml_form(std::wstring_view text, std::size_t& length) noexcept
{
    using namespace std::string_view_literals; // whose lengths the compiler knows
    length = 1;
    switch (text[0])
    {
    case L'&':
        return L"&amp;"sv;
    case L'<':
        return L"&lt;"sv;
    case L'>':
        return L"&gt;"sv;
    case L'"':
        return L"&quot;"sv;
    case L'\'':
        return L"&apos;"sv;
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

void TextBlocks::put_in_pieces(std::wstring_view text)
{
    while (!text.empty())
    {
        if (m_used == BLOCK_SIZE)
            flush();
        const std::wstring_view piece = text.substr(0, BLOCK_SIZE - m_used);
        put(piece);
        text.remove_prefix(piece.size());
    }
}

void TextBlocks::put_escaped(std::wstring_view text)
{
    for (;;)
    {
        text.remove_prefix(put_plain(text));
        if (text.empty())
            return;
        if (m_used == BLOCK_SIZE)
        {
            flush();
            continue;
        }
        std::size_t length = 0;
        put(xml_form(text, length));
        text.remove_prefix(length);
    }
}

/// Puts what stands at the front of text and XML allows as it is, as far as there is room. Returns how much that was.
std::size_t TextBlocks::put_plain(std::wstring_view text)
{
    const std::size_t most = std::min(text.size(), BLOCK_SIZE - m_used);
    wchar_t* const to = m_block + m_used;
    std::size_t count = 0;
    for (; count < most && is_plain(text[count]); ++count)
        to[count] = text[count];
    m_used += count;
    return count;
}

/// Digits are the same in every character set.
void TextBlocks::put_digits(const char* begin, const char* end)
{
    if (static_cast<std::size_t>(end - begin) > BLOCK_SIZE - m_used)
        flush();
    m_used = static_cast<std::size_t>(std::copy(begin, end, m_block + m_used) - m_block);
}

void TextBlocks::put_number(std::int64_t value)
{
    char digits[24];
    put_digits(digits, std::to_chars(digits, std::end(digits), value).ptr);
}

void TextBlocks::put_fraction(double value)
{
    // The largest double has 309 digits in front of the point.
    char digits[328];
    put_digits(digits, std::to_chars(digits, std::end(digits), value, std::chars_format::fixed, 6).ptr);
}

void TextBlocks::flush()
{
    const std::size_t count = m_used;
    m_used = 0;
    if (count > 0)
        write(m_block, count);
}
} // namespace kor::core
