// session_text.h - events and statistics as session reports have them.

#ifndef KOR_CORE_SESSION_TEXT_H
#define KOR_CORE_SESSION_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "core/session_events.h"
#include "core/session_time.h"
#include "core/session_waiting.h"
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

// What stands around all that a report or a state file tells.
inline constexpr wchar_t REPORT_BEGIN[] = L"\xFEFF<?xml version=\"1.0\" encoding=\"utf-16\"?>"
                                          L"<?xml-stylesheet type=\"text/xsl\" href=\"SessionLogSummary.xsl\"?>"
                                          L"<lumariscontext>";
inline constexpr wchar_t REPORT_END[] = L"</lumariscontext>";

/// The library's own warnings in a report.
constexpr std::wstring_view OWN_WARNING_SUBJECT = L"Kor_SessionLogGatherer";
/// Behind the number of events.
constexpr std::wstring_view EVENTS_LOST = L" events were lost: another thread had the gatherer for too long.";
constexpr std::wstring_view REST_MISSING =
    L"Another thread has the gatherer and does not give it back. What was reported before, statistics, and what was "
    L"gathered of the machine are missing.";

/// Puts the parts of a report that gatherers have collected.
class SessionWriter
{
public:
    /// Both must live as long as this.
    SessionWriter(TextBlocks& to, LocalClock& clock) noexcept : m_to(to), m_clock(clock) {}

    void put_time(std::uint64_t time);
    /// Nothing for an event that is HIDDEN.
    void put_event(const SessionEvent& event);
    void put_statistics(const SessionEventKey& key, const SessionNumbers& numbers);
    /// The four lists that only reports have.
    void put_lists(const SessionEvents& events);
    void put_lists(const SessionSnapshot& snapshot);
    /// The element `stats` with all that is in it.
    void put_all_statistics(const SessionEvents& events);
    void put_all_statistics(const SessionSnapshot& snapshot);

    /// Lists and statistics of a report without the events of the session, which cannot be had: what waits for them, how
    /// many were lost, and that the rest is missing. Takes no memory.
    void put_what_waits(const SessionChangeList& waiting, std::size_t lost, std::uint64_t now);

private:
    void put_event(const SessionEvent& event, std::uint64_t begin_time, std::uint64_t end_time);
    void put_waiting(const SessionChangeList& waiting, ReportList list);
    void begin_own_warning(std::uint64_t now);
    void put_identity(std::wstring_view type, std::wstring_view subject);
    void put_triple(std::wstring_view name, const Triple& triple);
    void put_events(const SessionEventView& events);
    void put_finished_lists(
        const SessionEventView& history, const SessionEventView& errors, const SessionEventView& warnings);
    void begin_statistics(std::uint64_t start);

    TextBlocks& m_to;
    LocalClock& m_clock;
    // The last time, as what happened in an instant has it twice, and its neighbours the same second.
    std::uint64_t m_time = 0;
    std::int64_t m_local_time = 0;
    bool m_has_time = false;
    wchar_t m_time_text[SESSION_TIME_LENGTH];
};

/// A size in memory for people: "1024 Bytes", "2 KB", "1.465 KB".
std::wstring size_text(std::uint64_t bytes);
} // namespace kor::core

#endif // KOR_CORE_SESSION_TEXT_H
