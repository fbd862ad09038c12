// session_changes.h - what is done to the events of a session, as objects that can wait.

#ifndef KOR_CORE_SESSION_CHANGES_H
#define KOR_CORE_SESSION_CHANGES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "core/session_events.h"

// Each is called with the events and the time at which it was wanted. size: about how many bytes it takes.
namespace kor::core
{
inline std::size_t size_of(const SessionEventId& id) noexcept
{
    return sizeof id + (id.type.size() + id.subject.size()) * sizeof(wchar_t);
}

inline std::size_t size_of(const SessionEvent& event) noexcept
{
    return sizeof event + (event.type.size() + event.subject.size() + event.info.size()) * sizeof(wchar_t);
}

/// The lists of a report, but for the context.
enum class ReportList
{
    HISTORY,
    ERRORS,
    WARNINGS
};

/// What can be told of a change without the events that it is for.
struct ToldEvent
{
    const SessionEvent* event = nullptr; ///< null: nothing
    ReportList list = ReportList::HISTORY;
    std::uint64_t begin_time = 0;
    std::uint64_t end_time = 0;
};

/// Something becomes of an event: DO(events, event, time). The event goes with it, unless the change is needed again.
template <void (*DO)(SessionEvents&, SessionEvent&&, std::uint64_t), ReportList LIST>
class EventChange
{
public:
    explicit EventChange(SessionEvent&& event) noexcept : m_event(std::move(event)) {}

    void operator()(SessionEvents& events, std::uint64_t time) && { DO(events, std::move(m_event), time); }
    void operator()(SessionEvents& events, std::uint64_t time) const& { DO(events, SessionEvent(m_event), time); }
    std::size_t size() const noexcept { return size_of(m_event); }

    ToldEvent told(std::uint64_t time) const noexcept
    {
        constexpr std::uint32_t BEGIN = Kor_SessionLogGatherer::BEGIN_OF_SPAN;
        constexpr std::uint32_t END = Kor_SessionLogGatherer::END_OF_SPAN;
        if (m_event.begin_time != 0 || m_event.end_time != 0)
            return {&m_event, LIST, m_event.begin_time, m_event.end_time};
        const std::uint32_t ends = m_event.flags & (BEGIN | END);
        return {&m_event, LIST, (ends & END) != 0 ? 0 : time, ends == BEGIN ? 0 : time};
    }

private:
    SessionEvent m_event;
};

void report_event(SessionEvents& events, SessionEvent&& event, std::uint64_t time);
void report_error(SessionEvents& events, SessionEvent&& event, std::uint64_t time);
void report_warning(SessionEvents& events, SessionEvent&& event, std::uint64_t time);
void add_to_history(SessionEvents& events, SessionEvent&& event, std::uint64_t time);

using EventReport = EventChange<&report_event, ReportList::HISTORY>;
using ErrorReport = EventChange<&report_error, ReportList::ERRORS>;
using WarningReport = EventChange<&report_warning, ReportList::WARNINGS>;
using HistoryAddition = EventChange<&add_to_history, ReportList::HISTORY>;

struct StatisticsUpdate
{
    SessionEventId id;
    SessionEvent event;

    void operator()(SessionEvents& events, std::uint64_t time) const;
    std::size_t size() const noexcept { return size_of(id) + size_of(event); }
};

struct TimeNote
{
    SessionEventId id;

    void operator()(SessionEvents& events, std::uint64_t time) const;
    std::size_t size() const noexcept { return size_of(id); }
};

struct Alias
{
    SessionEventId of;
    SessionEventId counted_as;

    void operator()(SessionEvents& events, std::uint64_t time) const;
    std::size_t size() const noexcept { return size_of(of) + size_of(counted_as); }
};

struct ContextRemoval
{
    bool any_type; ///< the identity's type does not count
    bool any_subject;
    SessionEventId id;
    bool include_spans;

    void operator()(SessionEvents& events, std::uint64_t time) const;
    std::size_t size() const noexcept { return size_of(id); }
};

/// Other changes tell of no event.
template <class Change>
ToldEvent told_by(const Change&, std::uint64_t) noexcept
{
    return {};
}

template <void (*DO)(SessionEvents&, SessionEvent&&, std::uint64_t), ReportList LIST>
ToldEvent told_by(const EventChange<DO, LIST>& change, std::uint64_t time) noexcept
{
    return change.told(time);
}

struct HistorySize
{
    std::uint32_t value;

    void operator()(SessionEvents& events, std::uint64_t time) const;
    std::size_t size() const noexcept { return sizeof *this; }
};
} // namespace kor::core

#endif // KOR_CORE_SESSION_CHANGES_H
