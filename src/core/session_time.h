// session_time.h - the form in which session reports have times.

#ifndef KOR_CORE_SESSION_TIME_H
#define KOR_CORE_SESSION_TIME_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace kor::core
{
/// "2024-01-31 23:59:59.007"
constexpr std::size_t SESSION_TIME_LENGTH = 23;

/// The last millisecond of the year 9999, beyond which the form has no room.
constexpr std::int64_t LAST_SESSION_TIME = 253402300799999;
/// The first one of the year 0.
constexpr std::int64_t FIRST_SESSION_TIME = -62167219200000;

/// Writes a time of a clock on the wall, in milliseconds since 1 January 1970 there, and sets no end. A time
/// outside FIRST_ to LAST_SESSION_TIME is written as the nearer of them.
void write_session_time(wchar_t (&to)[SESSION_TIME_LENGTH], std::int64_t milliseconds) noexcept;

/// Makes the text of one time that of another, where that takes no more than its milliseconds: in the same second. False
/// where it takes more.
bool update_session_time(wchar_t (&text)[SESSION_TIME_LENGTH], std::int64_t from, std::int64_t to) noexcept;

/// Reads such a time as if the clock showed UTC. The fields are read as scanf does, with blanks and signs, and a
/// month or a day beyond its range leads into the next year or month. Nothing when the text has another length or
/// other separators, or when the time lies before 1970 or after the year 3000.
std::optional<std::uint64_t> read_session_time(std::wstring_view text) noexcept;
} // namespace kor::core

#endif // KOR_CORE_SESSION_TIME_H
