#include "core/log_line.h"

#include <algorithm>
#include <iterator>

#include "core/calendar.h"
#include "core/file_rotation.h"

namespace kor::core
{
namespace
{
constexpr std::string_view LEVEL_NAMES[] = {"NONE",    "SEVERE", "CRITICAL", "ERROR",
                                            "WARNING", "NOTICE", "INFO",     "DEBUG"};

constexpr std::size_t TIME_LENGTH = 29; // "2024-03-05 14:07:09.042+02:00"
constexpr std::string_view ARROW = " ->";
constexpr std::string_view CLIENT = "ClientIP(";
constexpr std::string_view SESSION = "SessionId(";
constexpr std::string_view BANNER_EDGE = "=====";

constexpr bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }
constexpr bool begins_with(std::string_view text, std::string_view with) noexcept
{
    return text.substr(0, with.size()) == with;
}
constexpr bool ends_with(std::string_view text, std::string_view with) noexcept
{
    return text.size() >= with.size() && text.substr(text.size() - with.size()) == with;
}

bool take(std::string_view& text, std::string_view what) noexcept
{
    if (!begins_with(text, what))
        return false;
    text.remove_prefix(what.size());
    return true;
}

/// Exactly so many digits.
bool take_digits(std::string_view& text, std::size_t count, int& value) noexcept
{
    if (text.size() < count)
        return false;
    value = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        if (!is_digit(text[i]))
            return false;
        value = value * 10 + (text[i] - '0');
    }
    text.remove_prefix(count);
    return true;
}

/// As "%d" prints a number, of at most 18 digits.
bool take_integer(std::string_view& text, std::int64_t& value) noexcept
{
    constexpr std::size_t MOST_DIGITS = 18;
    const bool negative = !text.empty() && text.front() == '-';
    std::size_t at = negative ? 1 : 0;
    const std::size_t first = at;
    value = 0;
    for (; at < text.size() && is_digit(text[at]); ++at)
    {
        if (at - first == MOST_DIGITS)
            return false;
        value = value * 10 + (text[at] - '0');
    }
    if (at == first)
        return false;
    if (negative)
        value = -value;
    text.remove_prefix(at);
    return true;
}

/// "32,280"
bool take_ids(std::string_view& text, LogLine& line) noexcept
{
    return take_integer(text, line.process) && take(text, ",") && take_integer(text, line.thread);
}

constexpr bool is_date(const LocalTime& time) noexcept
{
    return time.month >= 1 && time.month <= 12 && time.day >= 1 && time.day <= 31;
}

constexpr bool is_clock(const LocalTime& time) noexcept
{
    return time.hour <= 23 && time.minute <= 59 && time.second <= 59;
}

/// "14:07:09.042"
bool take_clock(std::string_view& text, LocalTime& time) noexcept
{
    return take_digits(text, 2, time.hour) && take(text, ":") && take_digits(text, 2, time.minute) && take(text, ":") &&
           take_digits(text, 2, time.second) && take(text, ".") && take_digits(text, 3, time.milliseconds) &&
           is_clock(time);
}

/// "2024-03-05 14:07:09.042+02:00"
bool take_full_time(std::string_view& text, LogLine& line) noexcept
{
    if (text.size() < TIME_LENGTH || !is_digit(text.front()))
        return false;
    std::string_view rest = text;
    LocalTime& time = line.time;
    int hours = 0;
    int minutes = 0;
    if (!take_digits(rest, 4, time.year) || !take(rest, "-") || !take_digits(rest, 2, time.month) || !take(rest, "-") ||
        !take_digits(rest, 2, time.day) || !take(rest, " ") || !is_date(time) || !take_clock(rest, time))
        return false;
    const char sign = rest.front(); // there, as the text is long enough
    rest.remove_prefix(1);
    if ((sign != '+' && sign != '-') || !take_digits(rest, 2, hours) || !take(rest, ":") ||
        !take_digits(rest, 2, minutes))
        return false;
    line.zone_minutes = (hours * 60 + minutes) * (sign == '-' ? -1 : 1);
    line.has_time = true;
    line.has_zone = true;
    text = rest;
    return true;
}

/// "05/03 14:07:09.042", day first.
bool take_short_time(std::string_view& text, LogLine& line) noexcept
{
    std::string_view rest = text;
    LocalTime& time = line.time;
    if (!take_digits(rest, 2, time.day) || !take(rest, "/") || !take_digits(rest, 2, time.month) || !take(rest, " ") ||
        !is_date(time) || !take_clock(rest, time))
        return false;
    line.has_time = true;
    text = rest;
    return true;
}

/// "WARNING (017) " and "CRITICAL(017) ".
bool take_level_and_package(std::string_view& text, LogLine& line) noexcept
{
    const std::size_t length = std::min(text.find_first_of(" ("), text.size());
    const auto* const name = std::find(std::begin(LEVEL_NAMES), std::end(LEVEL_NAMES), text.substr(0, length));
    if (name == std::end(LEVEL_NAMES))
        return false;
    std::string_view rest = text.substr(length);
    while (take(rest, " "))
    {
    }
    std::int64_t package = 0;
    if (!take(rest, "(") || !take_integer(rest, package) || !take(rest, ") "))
        return false;
    line.level = static_cast<int>(name - std::begin(LEVEL_NAMES));
    line.package = static_cast<int>(std::clamp<std::int64_t>(package, -1, 1'000'000));
    text = rest;
    return true;
}

/// Splits "host.cpp(113) replay". A place that was cut may be the name of the file alone.
void read_place(std::string_view place, LogLine& line) noexcept
{
    line.file = place;
    for (std::size_t open = place.find('('); open != std::string_view::npos; open = place.find('(', open + 1))
    {
        std::string_view rest = place.substr(open + 1);
        std::int64_t number = 0;
        if (!take_integer(rest, number) || !take(rest, ")") || (!rest.empty() && rest.front() != ' '))
            continue;
        line.file = place.substr(0, open);
        line.source_line = number;
        line.function = rest.substr(rest.empty() ? 0 : 1);
        return;
    }
}

/// "ClientIP(192.0.2.7) SessionId(3)", "ClientIP(192.0.2.7)", "SessionId(3)" or nothing.
void take_client(std::string_view& text, LogLine& line) noexcept
{
    if (begins_with(text, CLIENT))
    {
        const std::string_view part = text.substr(0, MAX_HEADLINE_PART);
        const std::size_t end = part.find(')', CLIENT.size());
        line.client = part.substr(CLIENT.size(), end == std::string_view::npos ? end : end - CLIENT.size());
        text.remove_prefix(std::min(part.size(), end == std::string_view::npos ? part.size() : end + 1));
        if (!begins_with(text, " SessionId("))
            return;
        text.remove_prefix(1);
    }
    std::string_view rest = text;
    std::int64_t session = 0;
    if (!take(rest, SESSION) || !take_integer(rest, session) || !take(rest, ")"))
        return;
    line.session = session;
    text = rest;
}

/// Where the arrow stands that ends a headline, npos when there is none.
std::size_t find_arrow(std::string_view text) noexcept
{
    for (std::size_t at = text.find(ARROW); at != std::string_view::npos; at = text.find(ARROW, at + 1))
    {
        const std::size_t end = at + ARROW.size();
        if (end == text.size() || text[end] == ' ')
            return at;
    }
    return std::string_view::npos;
}

/// What stands behind "(32,280|Worker-2)": client, place and arrow. Returns how much of text that is, npos when the
/// arrow is missing.
std::size_t read_client_and_place(std::string_view text, LogLine& line) noexcept
{
    std::string_view rest = text;
    take(rest, " ");
    take_client(rest, line);
    take(rest, " ");
    const std::size_t arrow = find_arrow(rest);
    const std::string_view place = rest.substr(0, arrow);
    if (!place.empty())
        read_place(place, line);
    if (arrow == std::string_view::npos)
        return arrow;
    return static_cast<std::size_t>(rest.data() - text.data()) + arrow + ARROW.size();
}

/// What can stand behind the parenthesis that ends the origin, which a thread's name may have in it too.
bool can_end_origin(std::string_view rest) noexcept
{
    return begins_with(rest, "  ") || begins_with(rest, " ClientIP(") || begins_with(rest, " SessionId(");
}

/// Takes "viewer (32,280|Worker-2)" with its last parenthesis. False when that is cut.
bool take_origin(std::string_view& text, LogLine& line) noexcept
{
    for (std::size_t open = text.find(" ("); open != std::string_view::npos; open = text.find(" (", open + 1))
    {
        std::string_view rest = text.substr(open + 2);
        LogLine ids;
        if (!take_ids(rest, ids) || rest.empty() || (rest.front() != ')' && rest.front() != '|'))
            continue;
        line.process = ids.process;
        line.thread = ids.thread;
        line.application = text.substr(0, open);
        if (take(rest, ")"))
        {
            text = rest;
            return true;
        }
        rest.remove_prefix(1);
        std::size_t end = rest.find(')');
        const std::size_t first = end;
        while (end != std::string_view::npos && !can_end_origin(rest.substr(end + 1)))
            end = rest.find(')', end + 1);
        if (end == std::string_view::npos)
            end = first;
        line.thread_name = rest.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        return end != std::string_view::npos;
    }
    line.application = text;
    text = {};
    return false;
}

bool read_message(std::string_view line, LogLine& result) noexcept
{
    // The arrow of a headline that was cut is missing, and one that the message has is no part of it.
    const std::string_view head = line.substr(0, MAX_HEADLINE);
    std::string_view rest = head;
    if (!take_full_time(rest, result) || !take(rest, " ") || !take_level_and_package(rest, result))
        return false;
    result.kind = LogLine::MESSAGE;
    std::size_t end = std::string_view::npos;
    if (take_origin(rest, result))
    {
        const std::size_t length = read_client_and_place(rest, result);
        if (length != std::string_view::npos)
            end = static_cast<std::size_t>(rest.data() - head.data()) + length;
    }
    result.cut = end == std::string_view::npos;
    std::string_view text = line.substr(result.cut ? head.size() : end);
    take(text, " ");
    result.text = text;
    return true;
}

/// Behind the front edge: "viewer (32) Start Session at <time>, User root on VM =====".
bool read_session_banner(std::string_view rest, std::string_view marker, LogLine::Kind kind, LogLine& result) noexcept
{
    const std::size_t close = rest.find(marker);
    if (close == std::string_view::npos)
        return false;
    const std::size_t open = rest.substr(0, close).rfind(" (");
    if (open == std::string_view::npos)
        return false;
    std::string_view id = rest.substr(open + 2, close - open - 2);
    std::string_view behind = rest.substr(close + marker.size());
    std::int64_t process = 0;
    if (!take_integer(id, process) || !id.empty() || !take_full_time(behind, result))
        return false;
    result.kind = kind;
    result.process = process;
    result.application = rest.substr(0, open);
    if (!take(behind, ", User ") || !ends_with(behind, " ====="))
    {
        result.cut = true;
        return true;
    }
    behind.remove_suffix(BANNER_EDGE.size() + 1);
    const std::size_t on = behind.rfind(" on ");
    result.user = behind.substr(0, on);
    if (on != std::string_view::npos)
        result.computer = behind.substr(on + 4);
    return true;
}

/// Behind the front edge: "user root on VM (32) start session =====".
bool read_monitor_banner(std::string_view rest, std::string_view end, LogLine::Kind kind, LogLine& result) noexcept
{
    if (!take(rest, "user ") || !ends_with(rest, end))
        return false;
    rest.remove_suffix(end.size());
    const std::size_t open = rest.rfind(" (");
    const std::size_t on = rest.substr(0, open).rfind(" on ");
    if (open == std::string_view::npos || on == std::string_view::npos)
        return false;
    std::string_view id = rest.substr(open + 2);
    std::int64_t process = 0;
    if (!take_integer(id, process) || !id.empty())
        return false;
    result.kind = kind;
    result.process = process;
    result.user = rest.substr(0, on);
    result.computer = rest.substr(on + 4, open - on - 4);
    return true;
}

bool read_banner(std::string_view line, LogLine& result) noexcept
{
    std::string_view rest = line;
    if (!take(rest, BANNER_EDGE) || !take(rest, " "))
        return false;
    result.text = line;
    return read_session_banner(rest, ") Start Session at ", LogLine::START_BANNER, result) ||
           read_session_banner(rest, ") End Session at ", LogLine::END_BANNER, result) ||
           read_session_banner(rest, SEAM_AT_END, LogLine::GOES_ON_ELSEWHERE, result) ||
           read_session_banner(rest, SEAM_AT_BEGIN, LogLine::GOES_ON_HERE, result) ||
           read_monitor_banner(rest, ") start session =====", LogLine::MONITOR_START, result) ||
           read_monitor_banner(rest, ") end session =====", LogLine::MONITOR_END, result);
}

/// "C:\app\viewer.exe[1200,3344] Exception Code: 0xc0000005"
bool read_crash(std::string_view rest, LogLine& result) noexcept
{
    if (!take(rest, " Crashed Process Details: "))
        return false;
    const std::size_t end = rest.rfind("] Exception Code: 0x");
    const std::size_t open = rest.substr(0, end).rfind('[');
    if (end == std::string_view::npos || open == std::string_view::npos)
        return false;
    std::string_view ids = rest.substr(open + 1, end - open - 1);
    LogLine read;
    if (!take_ids(ids, read) || !ids.empty())
        return false;
    result.kind = LogLine::CRASH;
    result.level = 1;
    result.process = read.process;
    result.thread = read.thread;
    result.application = rest.substr(0, open);
    return true;
}

/// "5 measure[376,380] A4: =T=load album,ms=20"
bool read_measurement(std::string_view rest, LogLine& result) noexcept
{
    std::int64_t level = 0;
    if (!take(rest, " ") || !take_integer(rest, level) || level < 0 || level > 7 || !take(rest, " "))
        return false;
    for (std::size_t open = rest.find('['); open != std::string_view::npos; open = rest.find('[', open + 1))
    {
        std::string_view behind = rest.substr(open + 1);
        LogLine ids;
        if (!take_ids(behind, ids) || !take(behind, "]"))
            continue;
        result.kind = LogLine::MEASUREMENT;
        result.level = static_cast<int>(level);
        result.process = ids.process;
        result.thread = ids.thread;
        result.application = rest.substr(0, open);
        result.cut = behind.find(": =") == std::string_view::npos;
        return true;
    }
    return false;
}

bool read_short_line(std::string_view line, LogLine& result) noexcept
{
    std::string_view rest = line;
    if (!take_short_time(rest, result))
        return false;
    result.text = line;
    return read_crash(rest, result) || read_measurement(rest, result);
}

bool read_rotation_notice(std::string_view line, LogLine& result) noexcept
{
    if (!begins_with(line, ROTATION_NOTICE_BEGIN) ||
        (line.find(NOT_RENAMED) == std::string_view::npos && line.find(NOT_REOPENED) == std::string_view::npos))
        return false;
    result.kind = LogLine::ROTATION_NOTICE;
    result.text = line;
    return true;
}

bool read_notice(std::string_view line, LogLine& result) noexcept
{
    if (!begins_with(line, "*** Log file size (ESTIMATED around ") ||
        line.find("mb) exceed limit defined in logger file.") == std::string_view::npos)
        return false;
    result.kind = LogLine::FULL_NOTICE;
    result.text = line;
    return true;
}
} // namespace

std::string_view level_name(int level) noexcept
{
    return level < 0 || level >= static_cast<int>(std::size(LEVEL_NAMES)) ? std::string_view() : LEVEL_NAMES[level];
}

LogLine read_log_line(std::string_view line) noexcept
{
    for (const auto read : {&read_message, &read_banner, &read_short_line, &read_notice, &read_rotation_notice})
    {
        LogLine result;
        if (read(line, result))
            return result;
    }
    LogLine bare;
    bare.text = line;
    return bare;
}

std::int64_t wall_milliseconds(const LocalTime& time) noexcept
{
    const std::int64_t seconds = days_since_1970({time.year, time.month, time.day}) * SECONDS_PER_DAY +
                                 time.hour * SECONDS_PER_HOUR + time.minute * SECONDS_PER_MINUTE + time.second;
    return seconds * MS_PER_SECOND + time.milliseconds;
}
} // namespace kor::core
