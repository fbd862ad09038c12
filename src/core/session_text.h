// session_text.h - events and statistics as session reports have them.

#ifndef KOR_CORE_SESSION_TEXT_H
#define KOR_CORE_SESSION_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "core/session_events.h"
#include "core/session_time.h"
#include "core/text_blocks.h"

namespace kor::core
{
/// Tells what a clock on the wall shows at a time.
class LocalClock
{
public:
    LocalClock() = default;
    LocalClock(const LocalClock&) = delete;
    LocalClock& operator=(const LocalClock&) = delete;
    virtual ~LocalClock() = default;

    /// Local milliseconds since 1 January 1970 there, of milliseconds since then in UTC.
    virtual std::int64_t local(std::int64_t utc) = 0;
};

/// A time of the gatherer as the clock shows it. One that a file has brought along may be anything: what lies beyond
/// LAST_SESSION_TIME counts as that.
std::int64_t local_session_time(LocalClock& clock, std::uint64_t time);

/// Puts the parts of a report that gatherers have collected.
class SessionWriter
{
public:
    /// Both must live as long as this.
    SessionWriter(TextBlocks& to, LocalClock& clock) noexcept : m_to(to), m_clock(clock) {}

    void put_time(std::uint64_t time);
    /// Nothing for an event that is HIDDEN.
    void put_event(const SessionEvent& event);
    void put_statistics(const SessionStatistics& statistics);
    /// The four lists that only reports have.
    void put_lists(const SessionEvents& events);
    /// The element `stats` with all that is in it.
    void put_all_statistics(const SessionEvents& events);

private:
    void put_identity(std::wstring_view type, std::wstring_view subject);
    void put_triple(std::wstring_view name, const Triple& triple);

    TextBlocks& m_to;
    LocalClock& m_clock;
    // The last time, as one that happened in an instant has it twice. None before the first.
    std::uint64_t m_time = 0;
    std::size_t m_time_length = 0;
    wchar_t m_time_text[SESSION_TIME_LENGTH];
};

/// "0x0000002a"
std::wstring hex_text(std::uint32_t value);

/// A size in memory for people: "1024 Bytes", "2 KB", "1.465 KB".
std::wstring size_text(std::uint64_t bytes);
} // namespace kor::core

#endif // KOR_CORE_SESSION_TEXT_H
