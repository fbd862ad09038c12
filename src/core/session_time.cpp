#include "core/session_time.h"

#include <algorithm>
#include <iterator>

#include "core/calendar.h"

namespace kor::core
{
namespace
{
wchar_t* write_digits(wchar_t* to, std::int64_t value, int digits) noexcept
{
    for (int i = digits - 1; i >= 0; --i, value /= 10)
        to[i] = static_cast<wchar_t>(L'0' + value % 10);
    return to + digits;
}

wchar_t* write_field(wchar_t* to, std::int64_t value, int digits, wchar_t separator) noexcept
{
    to = write_digits(to, value, digits);
    *to = separator;
    return to + 1;
}

constexpr bool is_blank(wchar_t c) noexcept { return c == L' ' || (c >= L'\t' && c <= L'\r'); }
constexpr bool is_digit(wchar_t c) noexcept { return c >= L'0' && c <= L'9'; }

/// Takes a number of at most `width` characters, its sign among them, off the front of text, as scanf would.
bool take_field(std::wstring_view& text, std::size_t width, std::int64_t& value) noexcept
{
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    std::wstring_view field = text.substr(0, width);
    const bool negative = !field.empty() && field.front() == L'-';
    if (!field.empty() && (negative || field.front() == L'+'))
        field.remove_prefix(1);
    const std::size_t signs = std::min(text.size(), width) - field.size();
    std::size_t digits = 0;
    value = 0;
    for (; digits < field.size() && is_digit(field[digits]); ++digits)
        value = value * 10 + (field[digits] - L'0');
    if (negative)
        value = -value;
    text.remove_prefix(signs + digits);
    return digits > 0;
}

bool take_separator(std::wstring_view& text, wchar_t separator) noexcept
{
    if (separator == L' ') // any number of blanks, also none
    {
        while (!text.empty() && is_blank(text.front()))
            text.remove_prefix(1);
        return true;
    }
    if (text.empty() || text.front() != separator)
        return false;
    text.remove_prefix(1);
    return true;
}
} // namespace

void write_session_time(wchar_t (&to)[SESSION_TIME_LENGTH], std::int64_t milliseconds) noexcept
{
    milliseconds = std::clamp(milliseconds, FIRST_SESSION_TIME, LAST_SESSION_TIME);
    const std::int64_t seconds = floor_divide(milliseconds, MS_PER_SECOND);
    const std::int64_t days = floor_divide(seconds, SECONDS_PER_DAY);
    const std::int64_t second_of_day = seconds - days * SECONDS_PER_DAY;
    const Date date = date_of(days);
    wchar_t* at = write_field(to, date.year, 4, L'-');
    at = write_field(at, date.month, 2, L'-');
    at = write_field(at, date.day, 2, L' ');
    at = write_field(at, second_of_day / SECONDS_PER_HOUR, 2, L':');
    at = write_field(at, second_of_day / SECONDS_PER_MINUTE % 60, 2, L':');
    at = write_field(at, second_of_day % 60, 2, L'.');
    write_digits(at, milliseconds - seconds * MS_PER_SECOND, 3);
}

bool update_session_time(wchar_t (&text)[SESSION_TIME_LENGTH], std::int64_t from, std::int64_t to) noexcept
{
    constexpr int DIGITS = 3;
    const std::int64_t second = floor_divide(to, MS_PER_SECOND);
    if (to < FIRST_SESSION_TIME || to > LAST_SESSION_TIME || floor_divide(from, MS_PER_SECOND) != second)
        return false;
    write_digits(text + SESSION_TIME_LENGTH - DIGITS, to - second * MS_PER_SECOND, DIGITS);
    return true;
}

std::optional<std::uint64_t> read_session_time(std::wstring_view text) noexcept
{
    constexpr std::int64_t END = 32535216000; // of the year 3000, in seconds: what the C runtime converts
    struct Field
    {
        std::size_t width;
        wchar_t separator; // in front of it
    };
    constexpr Field FIELDS[] = {{4, L' '}, {2, L'-'}, {2, L'-'}, {2, L' '}, {2, L':'}, {2, L':'}, {3, L'.'}};

    if (text.size() != SESSION_TIME_LENGTH)
        return std::nullopt;
    std::int64_t values[std::size(FIELDS)];
    for (std::size_t i = 0; i < std::size(FIELDS); ++i)
        if (!take_separator(text, FIELDS[i].separator) || !take_field(text, FIELDS[i].width, values[i]))
            return std::nullopt;

    const auto [year, month, day, hour, minute, second, millisecond] = values;
    const std::int64_t years = floor_divide(month - 1, 12); // beyond the year
    const std::int64_t days = days_since_1970({year + years, month - years * 12, 1}) + day - 1;
    const std::int64_t seconds =
        days * SECONDS_PER_DAY + hour * SECONDS_PER_HOUR + minute * SECONDS_PER_MINUTE + second;
    const std::int64_t time = seconds * MS_PER_SECOND + millisecond;
    if (seconds < 0 || seconds >= END || time < 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(time);
}
} // namespace kor::core
