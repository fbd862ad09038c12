// log_records.h - a log file as records: a line with all that belongs to it, and when that was.

#ifndef KOR_CORE_LOG_RECORDS_H
#define KOR_CORE_LOG_RECORDS_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

#include "core/log_line.h"
#include "core/log_split.h"

namespace kor::core
{
/// By how much local time was ahead of UTC where a log was written.
///
/// A thread notes that at its first message and keeps it. After the clocks have been changed for summer, threads from
/// before write the new time of day with the old offset, an hour off. Who knows the zone's rules can tell.
class LogZone
{
public:
    static constexpr int NOT_TOLD = std::numeric_limits<int>::min();

    virtual ~LogZone() = default;

    /// Minutes ahead of UTC when the clock on the wall showed this (milliseconds since 1970). told: what the line says.
    virtual int minutes_ahead(std::int64_t wall, int told) const = 0;
};

/// A zone whose rules are known.
class RuledZone : public LogZone
{
public:
    /// What lines say counts where it is right, and where it is nothing that this zone ever has: such a line is from
    /// elsewhere.
    int minutes_ahead(std::int64_t wall, int told) const final;

protected:
    /// Minutes ahead of UTC at that time (milliseconds since 1970, UTC).
    virtual int minutes_ahead_at(std::int64_t utc) const = 0;

private:
    // Of the line before: asking the rules takes longer than reading a line.
    mutable std::int64_t m_last_span = std::numeric_limits<std::int64_t>::min();
    mutable int m_last_told = 0;
    mutable int m_last_result = 0;
};

/// A zone of which only this is known.
class FixedZone final : public LogZone
{
public:
    explicit FixedZone(int minutes) noexcept : m_minutes(minutes) {}

    int minutes_ahead(std::int64_t, int told) const override { return told == NOT_TOLD ? m_minutes : told; }

private:
    int m_minutes;
};

/// The years of lines that have day and month alone, from one line to the next.
class LineYears
{
public:
    /// The first line is taken to be from this year.
    explicit LineYears(int first_year) noexcept : m_year(first_year) {}

    /// Sets the year of a line: that of the line before, or the next one where it would otherwise be more than a month
    /// earlier. Clocks are set back by less.
    void complete(LocalTime& time) noexcept;

    /// A line that tells its year was read.
    void note(const LocalTime& time) noexcept;

    int year() const noexcept { return m_year; }

private:
    int m_year;
    std::int64_t m_last = 0;
    bool m_has_last = false;
};

/// Bytes of a record at most; a longer one comes in parts.
constexpr std::size_t MAX_LOG_RECORD = 1024 * 1024;

/// A line and those that belong to it. A message of several lines is one, and so is a stack trace behind its message,
/// as nothing in a file tells it from one.
struct LogRecord
{
    LogRecord() = default;
    LogRecord(const LogRecord&) = delete;
    LogRecord& operator=(const LogRecord&) = delete;

    /// Exchanges the bytes, and the views with them.
    void swap(LogRecord& other) noexcept;

    /// Adds to the bytes; the views hold.
    void append(std::string_view more);

    std::string_view text() const noexcept { return {bytes.data(), bytes.size()}; }

    std::size_t source = 0;  ///< of a merge: which of the files
    std::int64_t time = 0;   ///< milliseconds since 1970, UTC; of a line without a time that of its neighbour
    LogLine line;            ///< the first line; of a later part what it was in the first, without its views
    bool begins = true;      ///< false: a later part
    bool ends = true;        ///< false: more parts follow
    std::vector<char> bytes; ///< as they stand in the file, nuls in front of lines left out
};

/// What is known of a file from outside.
struct LogFileFacts
{
    std::uint64_t begin = 0;                 ///< where to begin: 0, or what find_log_start returned
    std::uint64_t end = LogSplitter::NO_END; ///< where to stop
    std::int64_t last_written = 0;           ///< milliseconds since 1970, UTC
};

/// The records of one file, in the order in which they stand there.
class LogReader
{
public:
    /// bytes and zone live as long as this.
    LogReader(LogBytes& bytes, const LogZone& zone, const LogFileFacts& facts);

    /// False at the end of the file.
    bool next(LogRecord& record);

private:
    /// What a record is given a time by: its own, or that of a neighbour.
    struct Time
    {
        std::int64_t value = 0;
        bool known = false;
    };

    bool read_piece(LogPiece& piece);
    bool read_pending();
    void set_pending(const LogPiece& piece, const LogLine& line);
    bool gather(LogRecord& record);
    Time time_of(const LogLine& line);
    void set_time(LogRecord& record, const Time& own);
    int first_year() const;

    LogBytes& m_bytes;
    const LogZone& m_zone;
    const LogFileFacts m_facts;
    LogSplitter m_splitter;
    LineYears m_years{0};
    bool m_years_known = false;
    LogRecord m_pending; // the first line of what comes next
    Time m_pending_time;
    bool m_has_pending = false;
    bool m_in_record = false; // a part was given, and more follow
    LogLine m_line;           // of the record that was given last, without its views
    Time m_time;
};

/// A position near the front of what is from that time on, at a headline that is from before, or 0. Looks at some
/// places of the file alone. Lines from before the clock was set back may lie in front of it.
std::uint64_t find_log_start(LogBytes& bytes, std::uint64_t size, std::int64_t since);

/// True when a part of a file has a line that only a log has.
bool looks_like_log(std::string_view part) noexcept;
} // namespace kor::core

#endif // KOR_CORE_LOG_RECORDS_H
