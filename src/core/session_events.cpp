#include "core/session_events.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kor::core
{
namespace
{
using Gatherer = Kor_SessionLogGatherer;

constexpr std::uint32_t STATES = Gatherer::STATE | Gatherer::STATE_OF_TYPE;
constexpr std::uint32_t SPAN = Gatherer::BEGIN_OF_SPAN | Gatherer::END_OF_SPAN;

bool has_all(std::uint32_t flags, std::uint32_t wanted) noexcept { return (flags & wanted) == wanted; }
bool has_any(std::uint32_t flags, std::uint32_t wanted) noexcept { return (flags & wanted) != 0; }

SessionEventKey context_key(const SessionEvent& event) noexcept
{
    if (has_any(event.flags, Gatherer::STATE_OF_TYPE))
        return {event.type, {}};
    return {event.type, event.subject};
}

SessionEventId owned(const SessionEventKey& key) { return {std::wstring(key.type), std::wstring(key.subject)}; }

/// The part in front of the point. What a hostile state file has made of the value must not overflow.
double whole_part(double value) noexcept
{
    constexpr double LIMIT = 18446744073709551615.0; // of 64 bits
    return value > 0 ? std::floor(std::min(value, LIMIT)) : 0;
}

double average_share(const SessionStatistics& statistics) noexcept
{
    return whole_part(static_cast<double>(statistics.count) * statistics.weight.avg);
}
} // namespace

// Statistics ------------------------------------------------------------------------------------------
void update_triple(Triple& triple, double value, double weight_before, double weight) noexcept
{
    if (weight_before == 0)
    {
        triple = {value, value, value};
        return;
    }
    triple.avg = (weight * value + weight_before * triple.avg) / (weight + weight_before);
    triple.min = std::min(triple.min, value);
    triple.max = std::max(triple.max, value);
}

void count_event(SessionStatistics& statistics, const SessionEvent& event) noexcept
{
    const auto count = static_cast<double>(statistics.count);
    const double weight = event.weight;
    if (has_all(event.flags, SPAN))
    {
        // As a difference of doubles: a clock that was set back makes it negative, not enormous.
        const double duration = static_cast<double>(event.end_time) - static_cast<double>(event.begin_time);
        const double unit_time = event.weight == 0 ? duration : duration / weight;
        update_triple(statistics.unit_time, unit_time, average_share(statistics), weight);
        update_triple(statistics.total_time, duration, count, 1);
    }
    update_triple(statistics.weight, weight, count, 1);
    ++statistics.count;
}

void SessionEvents::update_statistics(const SessionEventKey& key, const SessionEvent& event)
{
    if (!has_any(event.flags, Gatherer::COUNTED))
        return;
    SessionEventKey counted_as = key;
    if (const auto alias = m_aliases.find(key); alias != m_aliases.end())
        counted_as = {alias->second.type, alias->second.subject};
    auto entry = m_statistics.find(counted_as);
    if (entry == m_statistics.end())
    {
        SessionStatistics fresh;
        fresh.type = counted_as.type;
        fresh.subject = counted_as.subject;
        entry = m_statistics.emplace(owned(counted_as), std::move(fresh)).first;
    }
    count_event(entry->second, event);
}

void SessionEvents::load_statistics(SessionStatistics&& statistics)
{
    SessionEventId id{statistics.type, statistics.subject};
    m_statistics.insert_or_assign(std::move(id), std::move(statistics));
}

// Events ----------------------------------------------------------------------------------------------
void SessionEvents::report(SessionEvent&& event, std::uint64_t now)
{
    if (has_any(event.flags, Gatherer::END_OF_SPAN))
        end_span(std::move(event), now);
    else if (has_any(event.flags, Gatherer::BEGIN_OF_SPAN))
        begin_span(std::move(event), now);
    else
        report_instant(std::move(event), now);
}

void SessionEvents::add_history(SessionEvent&& event)
{
    if (has_any(event.flags, Gatherer::HIDDEN))
        return;
    m_history.push_back(std::move(event));
    while (m_history.size() > m_history_size)
        m_history.pop_front();
}

/// Counts an event that is over and puts it into the history. key may refer to texts of the event.
void SessionEvents::finish(const SessionEventKey& key, SessionEvent&& event)
{
    update_statistics(key, event);
    add_history(std::move(event));
}

void SessionEvents::end_span(SessionEvent&& event, std::uint64_t now)
{
    event.end_time = now;
    const SessionEventKey key = context_key(event);
    const auto entry = m_context.find(key);
    if (entry == m_context.end() || !has_any(entry->second.flags, Gatherer::BEGIN_OF_SPAN))
    {
        event.flags &= ~SPAN;
        finish(key, std::move(event));
    }
    else if (has_any(entry->second.flags, Gatherer::END_OF_SPAN)) // a state whose span is over
        add_history(std::move(event));
    else
        close_span(entry, std::move(event), now);
}

void SessionEvents::close_span(Context::iterator entry, SessionEvent&& end, std::uint64_t now)
{
    SessionEvent& span = entry->second;
    span.info += end.info; // first, as it may find no memory
    if (end.weight != 0)
        span.weight = end.weight;
    span.end_time = now;
    span.flags |= (end.flags & (STATES | Gatherer::COUNTED)) | Gatherer::END_OF_SPAN;
    update_statistics({entry->first.type, entry->first.subject}, span);
    span.flags &= ~Gatherer::COUNTED; // or a state would be counted again when it is replaced
    if (has_any(span.flags, STATES))
        return;
    add_history(std::move(span));
    m_context.erase(entry);
}

/// The entry that has the key of an event. The end where there was none: the event is in the context then.
SessionEvents::Context::iterator SessionEvents::find_or_enter(const SessionEventKey& key, SessionEvent& event)
{
    const auto entry = m_context.find(key);
    if (entry == m_context.end())
    {
        SessionEventId id = owned(key); // before the texts that it refers to are gone
        m_context.emplace(std::move(id), std::move(event));
    }
    return entry;
}

/// Finishes the event of an entry and puts another one in its place.
void SessionEvents::replace(Context::iterator entry, SessionEvent&& event)
{
    finish({entry->first.type, entry->first.subject}, std::move(entry->second));
    entry->second = std::move(event);
}

void SessionEvents::begin_span(SessionEvent&& event, std::uint64_t now)
{
    event.begin_time = now;
    const SessionEventKey key = context_key(event);
    const auto entry = find_or_enter(key, event);
    if (entry == m_context.end())
        return;
    if (has_any(entry->second.flags, Gatherer::STATE) && !has_any(event.flags, Gatherer::STATE))
    {
        event.flags &= ~SPAN;
        finish(key, std::move(event));
        return;
    }
    replace(entry, std::move(event));
}

void SessionEvents::report_instant(SessionEvent&& event, std::uint64_t now)
{
    event.begin_time = now;
    event.end_time = now;
    const SessionEventKey key = context_key(event);
    if (!has_any(event.flags, STATES))
    {
        finish(key, std::move(event));
        return;
    }
    const auto entry = find_or_enter(key, event);
    if (entry == m_context.end())
        return;
    entry->second.flags &= ~SPAN;
    replace(entry, std::move(event));
}

void SessionEvents::remove_from_context(const wchar_t* type, const wchar_t* subject, bool include_spans)
{
    const SessionEventKey first{type == nullptr ? L"" : type, subject == nullptr ? L"" : subject};
    auto entry = m_context.lower_bound(first);
    while (entry != m_context.end() && (type == nullptr || entry->first.type == type) &&
           (subject == nullptr || entry->first.subject == subject))
    {
        SessionEvent& event = entry->second;
        if (!include_spans && !has_any(event.flags, STATES))
        {
            ++entry;
            continue;
        }
        if (has_any(event.flags, Gatherer::BEGIN_OF_SPAN))
            event.flags &= ~SPAN;
        finish({entry->first.type, entry->first.subject}, std::move(event));
        entry = m_context.erase(entry);
    }
}

void SessionEvents::load_context(SessionEvent&& event)
{
    SessionEventId id{event.type, event.subject};
    m_context.try_emplace(std::move(id), std::move(event));
}

// Snapshots -------------------------------------------------------------------------------------------
SessionSnapshot SessionEvents::snapshot(bool is_report) const
{
    SessionSnapshot taken;
    taken.statistics_start = m_statistics_start;
    taken.statistics.reserve(m_statistics.size());
    for (const auto& [identity, statistics] : m_statistics)
        taken.statistics.push_back({&identity, SessionNumbers(statistics)});
    if (!is_report)
        return taken;
    taken.context.reserve(m_context.size());
    for (const auto& entry : m_context)
        taken.context.push_back(entry.second);
    taken.history = m_history.view();
    taken.errors = m_errors.view();
    taken.warnings = m_warnings.view();
    return taken;
}

std::size_t SessionEvents::snapshot_size(bool is_report) const noexcept
{
    const std::size_t statistics = m_statistics.size() * sizeof(SessionSnapshot::Statistics);
    if (!is_report)
        return statistics;
    constexpr std::size_t OVERHEAD = 64; // of the heap and of containers, for each allocation
    const std::size_t events = m_history.size() + m_errors.size() + m_warnings.size();
    std::size_t context = 0;
    for (const auto& entry : m_context)
        context +=
            sizeof(SessionEvent) + 3 * OVERHEAD +
            (entry.second.type.size() + entry.second.subject.size() + entry.second.info.size()) * sizeof(wchar_t);
    return statistics + context + events / SessionEventView::BLOCK_SIZE * OVERHEAD;
}

// Names for names, and times --------------------------------------------------------------------------
void SessionEvents::set_alias(SessionEventKey of, SessionEventKey counted_as)
{
    m_aliases.insert_or_assign(owned(of), owned(counted_as));
}

void SessionEvents::set_time(SessionEventKey key, std::uint64_t now) { m_times.insert_or_assign(owned(key), now); }

std::uint64_t SessionEvents::time_of(SessionEventKey key) const
{
    const auto found = m_times.find(key);
    return found == m_times.end() ? 0 : found->second;
}
} // namespace kor::core
