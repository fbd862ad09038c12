// calendar.h - days, dates and milliseconds of the Gregorian calendar, without a zone.

#ifndef KOR_CORE_CALENDAR_H
#define KOR_CORE_CALENDAR_H

#include <cstdint>

namespace kor::core
{
constexpr std::int64_t MS_PER_SECOND = 1000;
constexpr std::int64_t SECONDS_PER_MINUTE = 60;
constexpr std::int64_t SECONDS_PER_HOUR = 60 * SECONDS_PER_MINUTE;
constexpr std::int64_t SECONDS_PER_DAY = 24 * SECONDS_PER_HOUR;
constexpr std::int64_t MS_PER_MINUTE = SECONDS_PER_MINUTE * MS_PER_SECOND;
constexpr std::int64_t MS_PER_DAY = SECONDS_PER_DAY * MS_PER_SECOND;

constexpr std::int64_t floor_divide(std::int64_t value, std::int64_t by) noexcept
{
    return value / by - (value % by < 0 ? 1 : 0);
}

struct Date
{
    std::int64_t year;
    std::int64_t month; ///< 1 to 12
    std::int64_t day;   ///< 1 to 31; one beyond the end of its month leads into the next
};

// Days are counted in eras of 400 years that begin on 1 March, so that a leap day ends a year.
constexpr std::int64_t YEARS_PER_ERA = 400;
constexpr std::int64_t DAYS_PER_ERA = 146097;
constexpr std::int64_t DAYS_TO_1970 = 719468; // from 1 March of the year 0

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
} // namespace kor::core

#endif // KOR_CORE_CALENDAR_H
