#include "core/session_time.h"

#include <algorithm>
#include <iterator>

namespace kor::core
{
namespace
{
constexpr std::int64_t MS_PER_SECOND = 1000;
constexpr std::int64_t SECONDS_PER_MINUTE = 60;
constexpr std::int64_t SECONDS_PER_HOUR = 60 * SECONDS_PER_MINUTE;
constexpr std::int64_t SECONDS_PER_DAY = 24 * SECONDS_PER_HOUR;

// Days are counted in eras of 400 years that begin on 1 March, so that a leap day ends a year.
constexpr std::int64_t YEARS_PER_ERA = 400;
constexpr std::int64_t DAYS_PER_ERA = 146097;
constexpr std::int64_t DAYS_TO_1970 = 719468; // from 1 March of the year 0

constexpr std::int64_t floor_divide(std::int64_t value, std::int64_t by) noexcept
{
    return value / by - (value % by < 0 ? 1 : 0);
}

struct Date
{
    std::int64_t year;
    std::int64_t month; // 1 to 12
    std::int64_t day;   // 1 to 31
};

/// month: 1 to 12.
constexpr std::int64_t days_since_1970(const Date& date) noexcept
{
    const std::int64_t year = date.year - (date.month <= 2 ? 1 : 0);
    const std::int64_t era = floor_divide(year, YEARS_PER_ERA);
    const std::int64_t year_of_era = year - era * YEARS_PER_ERA;
    const std::int64_t month_from_march = (date.month + 9) % 12;
    const std::int64_t day_of_year = (153 * month_from_march + 2) / 5 + date.day - 1;
    const std::int64_t day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
    return era * DAYS_PER_ERA + day_of_era - DAYS_TO_1970;
}

constexpr Date date_of(std::int64_t days) noexcept
{
    days += DAYS_TO_1970;
    const std::int64_t era = floor_divide(days, DAYS_PER_ERA);
    const std::int64_t day_of_era = days - era * DAYS_PER_ERA;
    const std::int64_t year_of_era = (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const std::int64_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const std::int64_t month_from_march = (5 * day_of_year + 2) / 153;
    const std::int64_t month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
    const std::int64_t day = day_of_year - (153 * month_from_march + 2) / 5 + 1;
    return {year_of_era + era * YEARS_PER_ERA + (month <= 2 ? 1 : 0), month, day};
}

static_assert(days_since_1970({1970, 1, 1}) == 0 && days_since_1970({2000, 3, 1}) == 11017);

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
