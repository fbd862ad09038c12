// headline.h - the texts in front of a message: time, place, context, and the three headline layouts.

#ifndef KOR_CORE_HEADLINE_H
#define KOR_CORE_HEADLINE_H

#include <cstddef>
#include <string_view>

namespace kor::core
{
/// A buffer with its size; texts that do not fit are cut and terminated.
struct Buffer
{
    char* data;
    std::size_t size;
};

/// Minutes between local time and UTC as a sign with hours and minutes.
struct Zone
{
    char sign; ///< '+' for UTC and east of it
    int hours;
    int minutes;
};

/// bias: UTC minus local time, in minutes.
Zone zone_of_bias(long bias) noexcept;

struct LocalTime
{
    int year, month, day, hour, minute, second, milliseconds;
};

/// "2024-03-05 14:07:09.042+02:00". Returns the length.
int write_time(Buffer to, const LocalTime& time, const Zone& zone) noexcept;

/// "file(12) function", without the function when it is empty. Returns the length, -1 when cut.
int write_location(Buffer to, std::string_view file, int line, std::string_view function) noexcept;

/// "ClientIP(a) SessionId(n)", each part only when there is one (ip null, session below 1: none).
/// Returns false, and leaves the buffer alone, when there is neither.
bool write_client(Buffer to, const char* ip, long session) noexcept;

/// "application (process,thread", which stays the same for all lines of a thread. Returns the length, -1 when
/// cut.
int write_origin(Buffer to, std::string_view application, int process, unsigned int thread) noexcept;

struct Headline
{
    std::string_view time;
    int level;
    std::string_view level_name;
    int package;
    std::string_view origin; ///< of write_origin
    int process;
    unsigned int thread;
    const char* thread_name; ///< null: none
    std::string_view context;
    bool has_context;
    std::string_view location;
    bool has_location;
    int milliseconds;
};

// Each returns the length, -1 when the text was cut.
int write_full(Buffer to, const Headline& from) noexcept;
int write_partial_ws(Buffer to, const Headline& from) noexcept;
int write_partial_unix(Buffer to, const Headline& from) noexcept;

/// The part of a source path past its last backslash.
const char* file_name_of(const char* path) noexcept;
} // namespace kor::core

#endif // KOR_CORE_HEADLINE_H
