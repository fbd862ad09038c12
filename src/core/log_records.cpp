#include "core/log_records.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "core/calendar.h"

namespace kor::core
{
namespace
{
constexpr std::int64_t MOST_SET_BACK = 31 * MS_PER_DAY; // of a clock

// A line that tells no year is from before the file was written last, as far as clocks and zones agree.
constexpr std::int64_t ZONES_APART = 2 * MS_PER_DAY;

constexpr std::int64_t SEASON = 91 * MS_PER_DAY;

constexpr int LEAP_YEAR = 2000; // every day there is

// Lines of threads with an old zone are an hour off, and so may be some from before a clock was set.
constexpr std::int64_t START_MARGIN = 2 * SECONDS_PER_HOUR * MS_PER_SECOND;

constexpr std::uint64_t MOST_PROBED = 1024 * 1024; // bytes without a headline

/// The same part of a copy of what view is in.
void rebase(std::string_view& view, const char* from, const char* to) noexcept
{
    if (view.data() != nullptr) // also an empty one tells a place
        view = std::string_view(to + (view.data() - from), view.size());
}

void rebase(LogLine& line, const char* from, const char* to) noexcept
{
    for (std::string_view* const view :
         {&line.application, &line.thread_name, &line.client, &line.file, &line.function, &line.user, &line.computer,
          &line.text})
        rebase(*view, from, to);
}

LogLine without_views(LogLine line) noexcept
{
    for (std::string_view* const view :
         {&line.application, &line.thread_name, &line.client, &line.file, &line.function, &line.user, &line.computer,
          &line.text})
        *view = {};
    return line;
}

std::int64_t utc_of(const LogLine& line) noexcept
{
    return wall_milliseconds(line.time) - line.zone_minutes * MS_PER_MINUTE;
}

/// The first line behind the position that has time and zone.
bool find_timed_line(LogBytes& bytes, std::uint64_t from, std::uint64_t end, std::uint64_t& at, std::int64_t& time)
{
    LogSplitter splitter(bytes, from, std::min(end, from + MOST_PROBED));
    LogPiece piece;
    bool whole = from == 0; // what is read first is the rest of a line
    while (splitter.next(piece))
    {
        const LogLine line = piece.begins_line && whole ? read_log_line(piece.line()) : LogLine();
        whole = true;
        if (!line.has_zone)
            continue;
        at = piece.at;
        time = utc_of(line);
        return true;
    }
    return false;
}
} // namespace

int RuledZone::minutes_ahead(std::int64_t wall, int told) const
{
    constexpr std::int64_t SPAN = 15 * MS_PER_MINUTE; // zones differ by whole ones, and change at whole ones
    const std::int64_t span = floor_divide(wall, SPAN);
    if (span == m_last_span && told == m_last_told)
        return m_last_result;
    // Wherever in the year this is, one of these is in summer and one in winter.
    const int offsets[] = {
        minutes_ahead_at(wall), minutes_ahead_at(wall - SEASON), minutes_ahead_at(wall + SEASON),
        minutes_ahead_at(wall - 2 * SEASON), minutes_ahead_at(wall + 2 * SEASON)};
    int result = told;
    bool is_of_zone = told == NOT_TOLD;
    for (const int offset : offsets)
        is_of_zone = is_of_zone || offset == told;
    const auto is_right = [&](int offset) { return minutes_ahead_at(wall - offset * MS_PER_MINUTE) == offset; };
    if (is_of_zone && (told == NOT_TOLD || !is_right(told)))
    {
        const auto* const right = std::find_if(std::begin(offsets), std::end(offsets), is_right);
        if (right != std::end(offsets))
            result = *right;
        else if (told == NOT_TOLD) // within the hour that is left out in spring
            result = offsets[0];
    }
    m_last_span = span;
    m_last_told = told;
    m_last_result = result;
    return result;
}

void LineYears::complete(LocalTime& time) noexcept
{
    time.year = m_year;
    if (m_has_last)
    {
        time.year = m_year - 1;
        while (wall_milliseconds(time) < m_last - MOST_SET_BACK)
            ++time.year;
    }
    note(time);
}

void LineYears::note(const LocalTime& time) noexcept
{
    m_year = time.year;
    m_last = wall_milliseconds(time);
    m_has_last = true;
}

void LogRecord::swap(LogRecord& other) noexcept
{
    std::swap(source, other.source);
    std::swap(time, other.time);
    std::swap(line, other.line);
    std::swap(begins, other.begins);
    std::swap(ends, other.ends);
    bytes.swap(other.bytes); // which leaves them where they are in memory
}

void LogRecord::append(std::string_view more)
{
    if (bytes.size() + more.size() > bytes.capacity())
    {
        std::vector<char> larger;
        larger.reserve(std::max(bytes.size() + more.size(), 2 * bytes.capacity()));
        larger.assign(bytes.begin(), bytes.end());
        rebase(line, bytes.data(), larger.data());
        bytes.swap(larger);
    }
    bytes.insert(bytes.end(), more.begin(), more.end());
}

LogReader::LogReader(LogBytes& bytes, const LogZone& zone, const LogFileFacts& facts)
    : m_bytes(bytes), m_zone(zone), m_facts(facts), m_splitter(bytes, facts.begin, facts.end)
{
}

bool LogReader::next(LogRecord& record)
{
    record.bytes.clear();
    record.begins = !m_in_record;
    if (m_in_record)
    {
        record.line = m_line;
        record.time = m_time.value;
        m_in_record = !gather(record);
        record.ends = !m_in_record;
        return true;
    }
    if (!m_has_pending && !read_pending())
        return false;
    record.swap(m_pending);
    m_has_pending = false;
    const Time own = m_pending_time;
    m_in_record = !gather(record);
    record.begins = true;
    record.ends = !m_in_record;
    set_time(record, own);
    m_line = without_views(record.line);
    return true;
}

bool LogReader::read_piece(LogPiece& piece) { return m_splitter.next(piece) || m_splitter.rest(piece); }

bool LogReader::read_pending()
{
    LogPiece piece;
    if (!read_piece(piece))
        return false;
    set_pending(piece, read_log_line(piece.line()));
    return true;
}

void LogReader::set_pending(const LogPiece& piece, const LogLine& line)
{
    m_pending.bytes.assign(piece.bytes.begin(), piece.bytes.end());
    m_pending.line = line;
    rebase(m_pending.line, piece.bytes.data(), m_pending.bytes.data());
    m_pending_time = time_of(line);
    m_has_pending = true;
}

/// Adds the lines that belong to a record. False when it has more of them than there is room for.
bool LogReader::gather(LogRecord& record)
{
    LogPiece piece;
    while (record.bytes.size() < MAX_LOG_RECORD)
    {
        if (!read_piece(piece))
            return true;
        if (piece.begins_line)
        {
            const LogLine line = read_log_line(piece.line());
            if (begins_record(line))
            {
                set_pending(piece, line);
                return true;
            }
        }
        record.append(piece.bytes);
    }
    return false;
}

LogReader::Time LogReader::time_of(const LogLine& line)
{
    if (!line.has_time)
        return {};
    if (line.has_zone)
    {
        m_years.note(line.time);
        m_years_known = true;
        const std::int64_t wall = wall_milliseconds(line.time);
        return {wall - m_zone.minutes_ahead(wall, line.zone_minutes) * MS_PER_MINUTE, true};
    }
    if (!m_years_known)
        m_years = LineYears(first_year());
    m_years_known = true;
    LocalTime time = line.time;
    m_years.complete(time);
    const std::int64_t wall = wall_milliseconds(time);
    return {wall - m_zone.minutes_ahead(wall, LogZone::NOT_TOLD) * MS_PER_MINUTE, true};
}

void LogReader::set_time(LogRecord& record, const Time& own)
{
    const bool belongs_to_next = !m_time.known || record.line.kind == LogLine::MONITOR_START;
    if (own.known)
        m_time = own;
    else if (belongs_to_next && m_has_pending && m_pending_time.known)
        m_time = m_pending_time;
    else if (!m_time.known)
        m_time = {m_facts.last_written, true};
    record.time = m_time.value;
}

/// The year of the first line that does not tell it. The file has to be read for that: the last line is from the
/// year in which the file was written last, and it takes all lines to know how many years that is after the first.
int LogReader::first_year() const
{
    LogSplitter splitter(m_bytes, m_facts.begin, m_facts.end);
    LineYears years(LEAP_YEAR);
    LocalTime last{};
    LogPiece piece;
    while (splitter.next(piece) || splitter.rest(piece))
    {
        const LogLine line = piece.begins_line ? read_log_line(piece.line()) : LogLine();
        if (!line.has_time)
            continue;
        last = line.time;
        years.complete(last);
        if (line.has_zone)
            return line.time.year - (years.year() - LEAP_YEAR);
    }
    last.year = static_cast<int>(date_of(floor_divide(m_facts.last_written, MS_PER_DAY)).year);
    if (wall_milliseconds(last) > m_facts.last_written + ZONES_APART)
        --last.year;
    return last.year - (years.year() - LEAP_YEAR);
}

std::uint64_t find_log_start(LogBytes& bytes, std::uint64_t size, std::int64_t since)
{
    if (since < std::numeric_limits<std::int64_t>::min() + START_MARGIN)
        return 0; // from any time on
    std::uint64_t begin = 0;
    std::uint64_t end = size;
    while (end - begin > LOG_BLOCK_SIZE)
    {
        const std::uint64_t middle = begin + (end - begin) / 2;
        std::uint64_t at = 0;
        std::int64_t time = 0;
        if (find_timed_line(bytes, middle, end, at, time) && time < since - START_MARGIN)
            begin = at;
        else
            end = middle;
    }
    return begin;
}

bool looks_like_log(std::string_view part) noexcept
{
    while (!part.empty())
    {
        const std::size_t end = std::min(part.find('\n'), part.size());
        std::string_view line = part.substr(0, end);
        part.remove_prefix(std::min(end + 1, part.size()));
        line.remove_prefix(std::min(line.find_first_not_of('\0'), line.size()));
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (begins_record(read_log_line(line)))
            return true;
    }
    return false;
}
} // namespace kor::core
