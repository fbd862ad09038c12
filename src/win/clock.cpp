#include "win/clock.h"

#include <ace/Time_Value.h>

#include <atomic>

#include "win/process_end.h"

namespace kor::win
{
namespace
{
constexpr std::uint64_t UNITS_PER_MS = 10'000; // a FILETIME counts 100 ns
constexpr std::uint64_t MS_PER_MINUTE = 60'000;

std::uint64_t milliseconds_of(const FILETIME& time) noexcept
{
    return ((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime) / UNITS_PER_MS;
}

/// Local time minus UTC. The two differ by whole minutes, and were read one after the other.
std::int64_t offset_between(std::uint64_t utc, const SYSTEMTIME& local) noexcept
{
    constexpr auto MINUTE = static_cast<std::int64_t>(MS_PER_MINUTE);
    FILETIME time{};
    ::SystemTimeToFileTime(&local, &time);
    const auto difference = static_cast<std::int64_t>(milliseconds_of(time) - utc);
    return (difference + (difference < 0 ? -MINUTE / 2 : MINUTE / 2)) / MINUTE * MINUTE;
}

SYSTEMTIME ask_for_local_time() noexcept
{
    SYSTEMTIME local{};
    ::GetLocalTime(&local);
    return local;
}

/// Known from the load on: a process may end before it has written a line.
std::atomic<std::int64_t> known_offset_ms{offset_between(precise_milliseconds(), ask_for_local_time())};
std::atomic<std::uint64_t> known_in_minute{0};

/// Once a minute, as a zone changes on the minute.
void note_zone(std::uint64_t now, const SYSTEMTIME& local) noexcept
{
    constexpr std::uint64_t CLOSE_MS = 1000; // else the thread had to wait in between, or somebody has set the clock
    const std::uint64_t minute = now / MS_PER_MINUTE;
    if (known_in_minute.load(std::memory_order_relaxed) == minute || precise_milliseconds() - now > CLOSE_MS)
        return;
    known_offset_ms.store(offset_between(now, local), std::memory_order_relaxed);
    known_in_minute.store(minute, std::memory_order_relaxed);
}

SYSTEMTIME in_known_zone(std::uint64_t now) noexcept
{
    const std::uint64_t units = (now + static_cast<std::uint64_t>(known_zone_offset_ms())) * UNITS_PER_MS;
    const FILETIME time{static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
    SYSTEMTIME local{};
    ::FileTimeToSystemTime(&time, &local);
    return local;
}
} // namespace

SYSTEMTIME known_local_time() noexcept { return in_known_zone(precise_milliseconds()); }

std::uint64_t milliseconds_since_1970()
{
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    return ACE_Time_Value(now).get_msec();
}

std::uint64_t precise_milliseconds() noexcept
{
    FILETIME now{};
    ::GetSystemTimePreciseAsFileTime(&now);
    return milliseconds_of(now);
}

SYSTEMTIME local_system_time() noexcept { return local_system_time(precise_milliseconds()); }

SYSTEMTIME local_system_time(std::uint64_t now) noexcept
{
    if (process_is_ending())
        return in_known_zone(now);
    const SYSTEMTIME local = ask_for_local_time();
    note_zone(now, local);
    return local;
}

std::tm local_time() noexcept
{
    constexpr int FIRST_YEAR = 1900;
    const SYSTEMTIME now = local_system_time();
    std::tm time{};
    time.tm_year = now.wYear - FIRST_YEAR;
    time.tm_mon = now.wMonth - 1;
    time.tm_mday = now.wDay;
    time.tm_wday = now.wDayOfWeek;
    time.tm_hour = now.wHour;
    time.tm_min = now.wMinute;
    time.tm_sec = now.wSecond;
    return time;
}

std::int64_t known_zone_offset_ms() noexcept { return known_offset_ms.load(std::memory_order_relaxed); }
} // namespace kor::win
