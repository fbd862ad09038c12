// clock.h - the time of day as the shared records count it.

#ifndef KOR_WIN_CLOCK_H
#define KOR_WIN_CLOCK_H

#include <cstdint>
#include <ctime>

namespace kor::win
{
/// Milliseconds since 1 January 1970 UTC.
std::uint64_t milliseconds_since_1970();

/// Whole milliseconds of the system clock at its full resolution, to tell one from the next.
std::uint64_t precise_milliseconds() noexcept;

/// The local time now, as headlines have it: by the zone of Windows. The C runtime has one of its own where
/// the variable TZ is set. The day of the year and whether there is summer time are not told.
std::tm local_time() noexcept;
} // namespace kor::win

#endif // KOR_WIN_CLOCK_H
