#include "win/clock.h"

#include <ace/Time_Value.h>

namespace kor::win
{
std::uint64_t milliseconds_since_1970()
{
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    return ACE_Time_Value(now).get_msec();
}

std::uint64_t precise_milliseconds() noexcept
{
    constexpr std::uint64_t UNITS_PER_MS = 10'000; // of 100 ns
    FILETIME now{};
    ::GetSystemTimePreciseAsFileTime(&now);
    return ((std::uint64_t{now.dwHighDateTime} << 32) | now.dwLowDateTime) / UNITS_PER_MS;
}

std::tm local_time() noexcept
{
    constexpr int FIRST_YEAR = 1900;
    SYSTEMTIME now{};
    ::GetLocalTime(&now);
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
} // namespace kor::win
