// clock.h - the time of day as the shared records count it.

#ifndef KOR_WIN_CLOCK_H
#define KOR_WIN_CLOCK_H

#include <cstdint>

namespace kor::win
{
/// Milliseconds since 1 January 1970 UTC.
std::uint64_t milliseconds_since_1970();

/// Whole milliseconds of the system clock at its full resolution, to tell one from the next.
std::uint64_t precise_milliseconds() noexcept;
} // namespace kor::win

#endif // KOR_WIN_CLOCK_H
