#include "core/session_text.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace kor::core
{
std::int64_t local_session_time(LocalClock& clock, std::uint64_t time)
{
    return clock.local(static_cast<std::int64_t>(std::min(time, static_cast<std::uint64_t>(LAST_SESSION_TIME))));
}

void SessionWriter::put_time(std::uint64_t time)
{
    if (!m_has_time || time != m_time)
    {
        const std::int64_t local = local_session_time(m_clock, time);
        if (!m_has_time || !update_session_time(m_time_text, m_local_time, local))
            write_session_time(m_time_text, local);
        m_has_time = true;
        m_time = time;
        m_local_time = local;
    }
    m_to.put({m_time_text, SESSION_TIME_LENGTH});
}

void SessionWriter::put_identity(std::wstring_view type, std::wstring_view subject)
{
    m_to.put(L" type='");
    m_to.put_escaped(type);
    m_to.put(L"'");
    if (subject.empty())
        return;
    m_to.put(L" subject='");
    m_to.put_escaped(subject);
    m_to.put(L"'");
}

void SessionWriter::put_event(const SessionEvent& event) { put_event(event, event.begin_time, event.end_time); }

void SessionWriter::put_event(const SessionEvent& event, std::uint64_t begin_time, std::uint64_t end_time)
{
    using Gatherer = Kor_SessionLogGatherer;
    if ((event.flags & Gatherer::HIDDEN) != 0)
        return;
    constexpr std::wstring_view BEGINS[] = {L"<event", L"<configuration"};
    constexpr std::wstring_view ENDS[] = {L"</info></event>", L"</info></configuration>"};
    const std::size_t kind = (event.flags & Gatherer::CONFIGURATION) != 0 ? 1 : 0;
    m_to.put(BEGINS[kind]);
    put_identity(event.type, event.subject);
    m_to.put(L" weight='");
    m_to.put_number(static_cast<std::int32_t>(event.weight)); // as readers know it: signed
    m_to.put(L"' level='");
    m_to.put_number((event.flags & Gatherer::LEVEL_MASK) >> Gatherer::LEVEL_SHIFT);
    m_to.put(L"' begintime='");
    put_time(begin_time);
    m_to.put(L"' endtime='");
    put_time(end_time);
    m_to.put(L"'><info>");
    m_to.put_escaped(event.info);
    m_to.put(ENDS[kind]);
}

void SessionWriter::put_triple(std::wstring_view name, const Triple& triple)
{
    m_to.put(L"<");
    m_to.put(name);
    m_to.put(L" min='");
    m_to.put_fraction(triple.min);
    m_to.put(L"' avg='");
    m_to.put_fraction(triple.avg);
    m_to.put(L"' max='");
    m_to.put_fraction(triple.max);
    m_to.put(L"' />");
}

void SessionWriter::put_statistics(const SessionEventKey& key, const SessionNumbers& numbers)
{
    m_to.put(L"<statentry");
    put_identity(key.type, key.subject);
    m_to.put(L" count='");
    m_to.put_number(static_cast<std::int32_t>(numbers.count)); // as readers know it: 32 bits, signed
    m_to.put(L"'>");
    put_triple(L"weight", numbers.weight);
    put_triple(L"totaltimeinmilliseconds", numbers.total_time);
    put_triple(L"unittimeinmilliseconds", numbers.unit_time);
    m_to.put(L"</statentry>");
}

void SessionWriter::put_lists(const SessionEvents& events)
{
    m_to.put(L"<context>");
    for (const auto& entry : events.context())
        put_event(entry.second);
    put_finished_lists(events.history(), events.errors(), events.warnings());
}

void SessionWriter::put_lists(const SessionSnapshot& snapshot)
{
    m_to.put(L"<context>");
    for (const SessionEvent& event : snapshot.context)
        put_event(event);
    put_finished_lists(snapshot.history, snapshot.errors, snapshot.warnings);
}

/// What comes behind the events of the context.
void SessionWriter::put_finished_lists(
    const SessionEventView& history, const SessionEventView& errors, const SessionEventView& warnings)
{
    m_to.put(L"</context><history>");
    put_events(history);
    m_to.put(L"</history><errors>");
    put_events(errors);
    m_to.put(L"</errors><warnings>");
    put_events(warnings);
    m_to.put(L"</warnings>");
}

void SessionWriter::put_events(const SessionEventView& events)
{
    for (const SessionEvent& event : events)
        put_event(event);
}

void SessionWriter::put_all_statistics(const SessionEvents& events)
{
    begin_statistics(events.statistics_start());
    for (const auto& [identity, statistics] : events.statistics())
        put_statistics({identity.type, identity.subject}, SessionNumbers(statistics));
    m_to.put(L"</stats>");
}

void SessionWriter::put_all_statistics(const SessionSnapshot& snapshot)
{
    begin_statistics(snapshot.statistics_start);
    for (const auto& [identity, numbers] : snapshot.statistics)
        put_statistics({identity->type, identity->subject}, numbers);
    m_to.put(L"</stats>");
}

void SessionWriter::begin_statistics(std::uint64_t start)
{
    m_to.put(L"<stats start='");
    put_time(start);
    m_to.put(L"'>");
}

void SessionWriter::put_what_waits(const SessionChangeList& waiting, std::size_t lost, std::uint64_t now)
{
    m_to.put(L"<context></context><history>");
    put_waiting(waiting, ReportList::HISTORY);
    m_to.put(L"</history><errors>");
    put_waiting(waiting, ReportList::ERRORS);
    m_to.put(L"</errors><warnings>");
    put_waiting(waiting, ReportList::WARNINGS);
    if (lost != 0)
    {
        begin_own_warning(now);
        m_to.put_number(static_cast<std::int64_t>(lost));
        m_to.put(EVENTS_LOST);
        m_to.put(L"</info></event>");
    }
    begin_own_warning(now);
    m_to.put(REST_MISSING);
    m_to.put(L"</info></event></warnings>");
    begin_statistics(now);
    m_to.put(L"</stats>");
}

void SessionWriter::put_waiting(const SessionChangeList& waiting, ReportList list)
{
    waiting.tell(list, [this](const ToldEvent& told) { put_event(*told.event, told.begin_time, told.end_time); });
}

void SessionWriter::begin_own_warning(std::uint64_t now)
{
    m_to.put(L"<event");
    put_identity(L"Warning", OWN_WARNING_SUBJECT);
    m_to.put(L" weight='1' level='0' begintime='");
    put_time(now);
    m_to.put(L"' endtime='");
    put_time(now);
    m_to.put(L"'><info>");
}

std::wstring size_text(std::uint64_t bytes)
{
    constexpr std::uint64_t KIBI = 1024;
    char digits[48];
    char* end = digits;
    const wchar_t* unit = L" KB";
    if (bytes <= KIBI)
    {
        end = std::to_chars(digits, std::end(digits), bytes).ptr;
        unit = L" Bytes";
    }
    else if (bytes % KIBI == 0)
        end = std::to_chars(digits, std::end(digits), bytes / KIBI).ptr;
    else
    {
        const double kibibytes = static_cast<double>(bytes) / static_cast<double>(KIBI);
        end = std::to_chars(digits, std::end(digits), kibibytes, std::chars_format::fixed, 3).ptr;
    }
    return std::wstring(digits, end) + unit;
}
} // namespace kor::core
