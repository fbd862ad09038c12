// times.h - points in time and durations, as people and files have them.

#ifndef LEVELSYNC_TIMES_H
#define LEVELSYNC_TIMES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace levelsync
{
/// Milliseconds since 1970 UTC.
using Time = std::int64_t;

Time now();

/// From and to what the system counts in: tenths of a microsecond since 1601, UTC. Both halves of a FILETIME.
Time time_of_ticks(std::uint32_t low, std::uint32_t high);
std::uint64_t ticks_of(Time time);

/// "2026-11-22T01:15:49.123Z", which sorts as it is.
std::string utc_text(Time time);
std::optional<Time> read_utc(std::string_view text);

/// For people, in local time: "01:15:49" of today, else "2026-11-22 01:15:49".
std::string local_text(Time time);

/// "15m", "90s", "1h30m", "2d": the milliseconds; nothing for what is no such duration, or none of 1 s to 30 d.
std::optional<std::int64_t> read_duration(std::string_view text);

/// "14 min 59 s", the two largest units.
std::string duration_text(std::int64_t milliseconds);

/// How long something took that is mostly over in an instant: "less than 1 ms", "350 ms", "14 s".
std::string wait_text(std::int64_t milliseconds);
} // namespace levelsync

#endif // LEVELSYNC_TIMES_H
