// clock.h - the time of day as the shared records count it, and as people read it.

#ifndef KOR_WIN_CLOCK_H
#define KOR_WIN_CLOCK_H

#include <windows.h>

#include <cstdint>
#include <ctime>

namespace kor::win
{
/// Milliseconds since 1 January 1970 UTC.
std::uint64_t milliseconds_since_1970();

/// Whole milliseconds of the system clock at its full resolution, to tell one from the next.
std::uint64_t precise_milliseconds() noexcept;

/// The local time now, by the zone of Windows. The C runtime has one of its own where the variable TZ is set.
///
/// Once the process is ending: the system clock's time in the zone that is known. Whoever asks for the zone then may
/// wait for good for a thread that was ended while it did so.
SYSTEMTIME local_system_time() noexcept;

/// The same, for who has just read the clock: now is what precise_milliseconds told.
SYSTEMTIME local_system_time(std::uint64_t now) noexcept;

/// The same, as headlines have it. The day of the year and whether there is summer time are not told.
std::tm local_time() noexcept;

/// The system clock's time in the zone that is known, always. For a crash, which may have left the question for the zone
/// locked.
SYSTEMTIME known_local_time() noexcept;

/// Local time minus UTC at the last call of local_system_time, or when the library was loaded.
std::int64_t known_zone_offset_ms() noexcept;
} // namespace kor::win

#endif // KOR_WIN_CLOCK_H
