#include "core/numbers.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace kor::core
{
namespace
{
void skip_blanks(std::string_view& text) noexcept
{
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
}

bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }

/// The ASCII characters at the front of a text, as many as the longest number in decimal digits has.
class AsciiFront
{
public:
    explicit AsciiFront(std::wstring_view text) noexcept
    {
        for (const wchar_t c : text.substr(0, sizeof m_text))
        {
            if (static_cast<std::uint32_t>(c) > 0x7F)
                break;
            m_text[m_length++] = static_cast<char>(c);
        }
    }

    std::string_view view() const noexcept { return {m_text, m_length}; }

private:
    char m_text[400]; // a double has 309 digits in front of the point
    std::size_t m_length = 0;
};
} // namespace

bool take_number(std::string_view& text, std::int64_t& value) noexcept
{
    skip_blanks(text);
    const bool has_sign = !text.empty() && (text.front() == '-' || text.front() == '+');
    const bool negative = has_sign && text.front() == '-';
    std::string_view digits = text.substr(has_sign ? 1 : 0);
    if (digits.empty() || !is_digit(digits.front()))
        return false;

    constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();
    // Counted downwards, for there is one more negative number than there are positive ones.
    std::int64_t below_zero = 0;
    bool overflow = false;
    for (; !digits.empty() && is_digit(digits.front()); digits.remove_prefix(1))
    {
        const std::int64_t digit = digits.front() - '0';
        overflow = overflow || below_zero < (smallest + digit) / 10;
        if (!overflow)
            below_zero = below_zero * 10 - digit;
    }
    text = digits;
    if (negative)
        value = overflow ? smallest : below_zero;
    else
        value = overflow || below_zero == smallest ? largest : -below_zero;
    return true;
}

std::string_view take_word(std::string_view& text) noexcept
{
    skip_blanks(text);
    const auto end = static_cast<std::size_t>(std::find_if(text.begin(), text.end(), is_blank) - text.begin());
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end);
    return word;
}

std::int64_t number_at_front(std::string_view text) noexcept
{
    std::int64_t value = 0;
    take_number(text, value);
    return value;
}

std::int64_t number_at_front(std::wstring_view text) noexcept { return number_at_front(AsciiFront(text).view()); }

double fraction_at_front(std::wstring_view text) noexcept
{
    const AsciiFront front(text);
    std::string_view digits = front.view();
    skip_blanks(digits);
    if (!digits.empty() && digits.front() == '+')
    {
        digits.remove_prefix(1);
        if (!digits.empty() && digits.front() == '-') // which from_chars would take
            return 0;
    }
    double value = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return result.ec == std::errc() && std::isfinite(value) ? value : 0;
}

int clamp_to_int(std::int64_t value) noexcept
{
    return static_cast<int>(
        std::clamp<std::int64_t>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}
} // namespace kor::core
