#include "times.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>

#include "core/numbers.h"

namespace levelsync
{
namespace
{
constexpr std::int64_t TICKS_PER_MS = 10'000;
constexpr std::int64_t MS_FROM_1601_TO_1970 = 11'644'473'600'000;
constexpr std::int64_t LONGEST_MS = 30LL * 24 * 60 * 60 * 1000;

SYSTEMTIME fields_of(Time time)
{
    const std::uint64_t ticks = ticks_of(time);
    const FILETIME file_time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    SYSTEMTIME fields{};
    ::FileTimeToSystemTime(&file_time, &fields);
    return fields;
}

Time time_of(const FILETIME& file_time) { return time_of_ticks(file_time.dwLowDateTime, file_time.dwHighDateTime); }

struct Unit
{
    char letter;
    const char* name;
    std::int64_t milliseconds;
};
constexpr Unit UNITS[] = {{'d', "d", 86'400'000}, {'h', "h", 3'600'000}, {'m', "min", 60'000}, {'s', "s", 1'000}};
} // namespace

Time now()
{
    FILETIME file_time{};
    ::GetSystemTimeAsFileTime(&file_time);
    return time_of(file_time);
}

Time time_of_ticks(std::uint32_t low, std::uint32_t high)
{
    const auto ticks = static_cast<std::int64_t>((static_cast<std::uint64_t>(high) << 32) | low);
    return ticks / TICKS_PER_MS - MS_FROM_1601_TO_1970;
}

std::uint64_t ticks_of(Time time)
{
    const Time since_1601 = std::max<Time>(time + MS_FROM_1601_TO_1970, 0); // a FILETIME has nothing before
    return static_cast<std::uint64_t>(since_1601) * TICKS_PER_MS;
}

std::string utc_text(Time time)
{
    const SYSTEMTIME t = fields_of(time);
    char text[64];
    std::snprintf(
        text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute,
        t.wSecond, t.wMilliseconds);
    return text;
}

std::optional<Time> read_utc(std::string_view text)
{
    constexpr std::string_view FORM = "0000-00-00T00:00:00.000Z";
    if (text.size() != FORM.size())
        return std::nullopt;
    WORD values[7] = {};
    std::size_t field = 0;
    for (std::size_t i = 0; i < FORM.size(); ++i)
    {
        const bool is_digit = text[i] >= '0' && text[i] <= '9';
        if (FORM[i] == '0' ? !is_digit : text[i] != FORM[i])
            return std::nullopt;
        if (is_digit)
            values[field] = static_cast<WORD>(values[field] * 10 + (text[i] - '0'));
        else
            ++field;
    }
    const SYSTEMTIME fields{values[0], values[1], 0, values[2], values[3], values[4], values[5], values[6]};
    FILETIME file_time{};
    if (::SystemTimeToFileTime(&fields, &file_time) == FALSE)
        return std::nullopt;
    return time_of(file_time);
}

std::string local_text(Time time)
{
    const auto local = [](Time of)
    {
        const SYSTEMTIME utc = fields_of(of);
        SYSTEMTIME fields{};
        return ::SystemTimeToTzSpecificLocalTime(nullptr, &utc, &fields) != FALSE ? fields : utc;
    };
    const SYSTEMTIME t = local(time);
    const SYSTEMTIME today = local(now());
    char text[64];
    std::snprintf(
        text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond);
    const bool is_today = t.wYear == today.wYear && t.wMonth == today.wMonth && t.wDay == today.wDay;
    return is_today ? text + 11 : text;
}

std::optional<std::int64_t> read_duration(std::string_view text)
{
    std::int64_t sum = 0;
    const Unit* next = UNITS;
    while (!text.empty())
    {
        std::int64_t value = 0;
        if (text.front() < '0' || text.front() > '9' || !kor::core::take_number(text, value) || text.empty())
            return std::nullopt;
        while (next != std::end(UNITS) && next->letter != text.front())
            ++next;
        if (next == std::end(UNITS) || value > LONGEST_MS / next->milliseconds)
            return std::nullopt;
        sum += value * next->milliseconds;
        ++next; // from the largest to the smallest, each once
        text.remove_prefix(1);
    }
    if (sum < 1'000 || sum > LONGEST_MS)
        return std::nullopt;
    return sum;
}

std::string duration_text(std::int64_t milliseconds)
{
    std::string text;
    int parts = 0;
    for (const Unit& unit : UNITS)
    {
        const std::int64_t count = milliseconds / unit.milliseconds;
        if (count > 0 && parts < 2)
        {
            text += (text.empty() ? "" : " ") + std::to_string(count) + ' ' + unit.name;
            milliseconds -= count * unit.milliseconds;
        }
        parts += parts > 0 || count > 0 ? 1 : 0;
    }
    return text.empty() ? "0 s" : text;
}

std::string wait_text(std::int64_t milliseconds)
{
    if (milliseconds >= 1'000)
        return duration_text(milliseconds);
    return milliseconds < 1 ? "less than 1 ms" : std::to_string(milliseconds) + " ms";
}
} // namespace levelsync
