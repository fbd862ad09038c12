#include "win/zone_clock.h"

#include <windows.h>

#include "win/clock.h"
#include "win/process_end.h"

namespace kor::win
{
namespace
{
constexpr std::int64_t MS_PER_MINUTE = 60'000;
constexpr std::int64_t UNITS_PER_MS = 10'000;                 // a FILETIME counts 100 ns
constexpr std::int64_t MS_FROM_1601_TO_1970 = 11644473600000; // and starts in 1601

FILETIME file_time_of(std::int64_t ms_since_1970) noexcept
{
    const auto units = static_cast<std::uint64_t>((ms_since_1970 + MS_FROM_1601_TO_1970) * UNITS_PER_MS);
    return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
}

std::int64_t ms_since_1970(const FILETIME& time) noexcept
{
    const std::uint64_t units = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
    return static_cast<std::int64_t>(units) / UNITS_PER_MS - MS_FROM_1601_TO_1970;
}

/// Local time minus UTC, 0 where Windows cannot tell. Once the process is ending, that of the present.
std::int64_t offset_at(std::int64_t utc) noexcept
{
    if (process_is_ending())
        return known_zone_offset_ms();
    const FILETIME time = file_time_of(utc);
    FILETIME local_time{};
    SYSTEMTIME universal{};
    SYSTEMTIME local{};
    if (!::FileTimeToSystemTime(&time, &universal) || !::SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local) ||
        !::SystemTimeToFileTime(&local, &local_time))
        return 0;
    return ms_since_1970(local_time) - utc;
}
} // namespace

std::int64_t ZoneClock::local(std::int64_t utc)
{
    const std::int64_t minute = utc / MS_PER_MINUTE;
    if (minute != m_minute)
    {
        m_offset = offset_at(minute * MS_PER_MINUTE);
        m_minute = minute;
    }
    return utc + m_offset;
}

std::int64_t KnownZoneClock::local(std::int64_t utc) { return utc + known_zone_offset_ms(); }
} // namespace kor::win
