// log_line.h - the lines of logs as they are read again: what each tells of itself.

#ifndef KOR_CORE_LOG_LINE_H
#define KOR_CORE_LOG_LINE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/headline.h"

namespace kor::core
{
/// Characters of a headline; the writer cuts what is longer, its arrow included.
constexpr std::size_t MAX_HEADLINE = 199;
/// Characters of the client part within it, and of the place.
constexpr std::size_t MAX_HEADLINE_PART = 99;

/// "SEVERE" for 1 and so on; empty for what is no level from 0 to 7.
std::string_view level_name(int level) noexcept;

/// What one line of a general log, a monitor log or the log of crashes says. The views point into the line.
struct LogLine
{
    enum Kind
    {
        BARE,          ///< belongs to the line before it, or was written without a headline
        MESSAGE,       ///< has a headline
        START_BANNER,  ///< of a general log
        END_BANNER,    ///< of a general log
        FULL_NOTICE,   ///< the file is past its size limit
        MEASUREMENT,   ///< of a monitor log
        MONITOR_START, ///< banners of a monitor log, which have no time
        MONITOR_END,
        CRASH,             ///< of the log of crashes
        GOES_ON_ELSEWHERE, ///< the end of a file that was renamed because of its size
        GOES_ON_HERE,      ///< the beginning of the next one
        ROTATION_NOTICE    ///< the file should be renamed and cannot be
    };

    static constexpr int NONE = -1;

    Kind kind = BARE;
    bool cut = false;      ///< the headline is not whole; what there is of it was read
    bool has_time = false; ///< time holds
    bool has_zone = false; ///< zone_minutes holds, and time.year
    LocalTime time{};      ///< year 0: the line does not tell
    int zone_minutes = 0;  ///< local time minus UTC
    int level = NONE;      ///< 0 to 7; 1 for a crash
    int package = NONE;    ///< of a message
    std::int64_t process = NONE;
    std::int64_t thread = NONE;
    std::int64_t session = 0;     ///< 0: none
    std::string_view application; ///< in a crash the program's path
    std::string_view thread_name; ///< empty: none
    std::string_view client;      ///< empty: none
    std::string_view file;        ///< of the source, empty: the message does not say where it is from
    std::int64_t source_line = 0;
    std::string_view function;
    std::string_view user;     ///< of a banner
    std::string_view computer; ///< of a banner
    std::string_view text;     ///< the message; of any other kind the whole line
};

/// Understands a line without its line break. Whatever it holds: nothing is read beyond it, and what has none of the
/// forms is bare.
LogLine read_log_line(std::string_view line) noexcept;

/// True for a line that begins a record of its own, false for one that belongs to what stands before it.
constexpr bool begins_record(const LogLine& line) noexcept { return line.kind != LogLine::BARE; }

/// Milliseconds since 1 January 1970 of the clock on the wall.
std::int64_t wall_milliseconds(const LocalTime& time) noexcept;
} // namespace kor::core

#endif // KOR_CORE_LOG_LINE_H
