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
} // namespace kor::win
