// session_events.h - what a session keeps of the events that are reported: context, history, statistics.

#ifndef KOR_CORE_SESSION_EVENTS_H
#define KOR_CORE_SESSION_EVENTS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Kor_SessionLogGatherer.h"
#include "core/session_event_list.h"

namespace kor::core
{
using SessionEvent = Kor_SessionLogGatherer::ReportEventNode;
using SessionEventId = Kor_SessionLogGatherer::Kor_SessionLogEventID;
using SessionStatistics = Kor_SessionLogGatherer::ReportStatNode;
using Triple = Kor_SessionLogGatherer::ReportTriple;

/// The identity of an event whose texts are somebody else's.
struct SessionEventKey
{
    std::wstring_view type;
    std::wstring_view subject;
};

/// By type, then subject, code unit by code unit. Looks up keys without making texts of them.
struct SessionEventOrder
{
    using is_transparent = void;

    template <class A, class B>
    bool operator()(const A& a, const B& b) const noexcept
    {
        const int types = std::wstring_view(a.type).compare(b.type);
        return types != 0 ? types < 0 : std::wstring_view(a.subject).compare(b.subject) < 0;
    }
};

template <class T>
using SessionEventMap = std::map<SessionEventId, T, SessionEventOrder>;

/// Takes a sample into a triple: value, which stands for `weight` samples, after those that stand for
/// `weight_before`.
void update_triple(Triple& triple, double value, double weight_before, double weight) noexcept;

/// Takes an event into statistics that count others already, or that count none yet.
void count_event(SessionStatistics& statistics, const SessionEvent& event) noexcept;

/// What is known of all events that are counted together, without their identity's texts.
struct SessionNumbers
{
    explicit SessionNumbers(const SessionStatistics& from) noexcept
        : count(from.count), weight(from.weight), total_time(from.total_time), unit_time(from.unit_time)
    {
    }

    std::uint64_t count;
    Triple weight;
    Triple total_time;
    Triple unit_time;
};

/// What a report or a state file tells of a session, as it was at one moment. What becomes of the session's events does
/// not matter to it, as long as there is the session.
struct SessionSnapshot
{
    struct Statistics
    {
        const SessionEventId* identity; ///< the session's, which stays
        SessionNumbers numbers;
    };

    // Of reports alone.
    std::vector<SessionEvent> context;
    SessionEventView history;
    SessionEventView errors;
    SessionEventView warnings;

    std::uint64_t statistics_start = 0;
    std::vector<Statistics> statistics;
};

/// The events of a session. The time is told to it. Not for several threads at a time. Without memory an operation
/// throws, and leaves everything in order, though an event may be lost.
class SessionEvents
{
public:
    explicit SessionEvents(std::uint64_t now) : m_statistics_start(now) {}

    /// Begin and end time of event are set here.
    void report(SessionEvent&& event, std::uint64_t now);
    void report_error(SessionEvent&& event) { m_errors.push_back(std::move(event)); }
    void report_warning(SessionEvent&& event) { m_warnings.push_back(std::move(event)); }

    void add_history(SessionEvent&& event);
    void update_statistics(const SessionEventKey& key, const SessionEvent& event);

    /// See Kor_SessionLogGatherer. Null: any.
    void remove_from_context(const wchar_t* type, const wchar_t* subject, bool include_spans);

    void set_alias(SessionEventKey of, SessionEventKey counted_as);
    void set_time(SessionEventKey key, std::uint64_t now);
    std::uint64_t time_of(SessionEventKey key) const;

    /// What is known already stays.
    void load_context(SessionEvent&& event);
    /// Takes the place of what is known.
    void load_statistics(SessionStatistics&& statistics);
    void set_statistics_start(std::uint64_t start) noexcept { m_statistics_start = start; }

    std::uint32_t history_size() const noexcept { return m_history_size; }
    void set_history_size(std::uint32_t size) noexcept { m_history_size = size; }

    const SessionEventMap<SessionStatistics>& statistics() const noexcept { return m_statistics; }
    std::uint64_t statistics_start() const noexcept { return m_statistics_start; }
    const SessionEventView& history() const noexcept { return m_history; }
    const SessionEventMap<SessionEvent>& context() const noexcept { return m_context; }
    const SessionEventView& errors() const noexcept { return m_errors; }
    const SessionEventView& warnings() const noexcept { return m_warnings; }

    /// What there is to tell now: of a report all, else the statistics.
    SessionSnapshot snapshot(bool is_report) const;
    /// The bytes that a snapshot takes, not much less.
    std::size_t snapshot_size(bool is_report) const noexcept;

private:
    using Context = SessionEventMap<SessionEvent>;

    void end_span(SessionEvent&& event, std::uint64_t now);
    void begin_span(SessionEvent&& event, std::uint64_t now);
    void report_instant(SessionEvent&& event, std::uint64_t now);
    void close_span(Context::iterator entry, SessionEvent&& end, std::uint64_t now);
    Context::iterator find_or_enter(const SessionEventKey& key, SessionEvent& event);
    void replace(Context::iterator entry, SessionEvent&& event);
    void finish(const SessionEventKey& key, SessionEvent&& event);

    std::uint32_t m_history_size = Kor_SessionLogGatherer::DEFAULT_HISTORY_SIZE;
    SessionEventMap<SessionStatistics> m_statistics; // entries are never removed
    std::uint64_t m_statistics_start;
    SessionEventList m_history; // oldest first
    Context m_context;
    SessionEventList m_errors;
    SessionEventList m_warnings;
    SessionEventMap<SessionEventId> m_aliases;
    SessionEventMap<std::uint64_t> m_times;
};
} // namespace kor::core

#endif // KOR_CORE_SESSION_EVENTS_H
