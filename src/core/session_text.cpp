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
    if (m_time_length == 0 || time != m_time)
    {
        write_session_time(m_time_text, local_session_time(m_clock, time));
        m_time_length = SESSION_TIME_LENGTH;
        m_time = time;
    }
    m_to.put({m_time_text, m_time_length});
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

void SessionWriter::put_event(const SessionEvent& event)
{
    using Gatherer = Kor_SessionLogGatherer;
    if ((event.flags & Gatherer::HIDDEN) != 0)
        return;
    const bool configuration = (event.flags & Gatherer::CONFIGURATION) != 0;
    m_to.put(configuration ? L"<configuration" : L"<event");
    put_identity(event.type, event.subject);
    m_to.put(L" weight='");
    m_to.put_number(static_cast<std::int32_t>(event.weight)); // as readers know it: signed
    m_to.put(L"' level='");
    m_to.put_number((event.flags & Gatherer::LEVEL_MASK) >> Gatherer::LEVEL_SHIFT);
    m_to.put(L"' begintime='");
    put_time(event.begin_time);
    m_to.put(L"' endtime='");
    put_time(event.end_time);
    m_to.put(L"'><info>");
    m_to.put_escaped(event.info);
    m_to.put(configuration ? L"</info></configuration>" : L"</info></event>");
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

void SessionWriter::put_statistics(const SessionStatistics& statistics)
{
    m_to.put(L"<statentry");
    put_identity(statistics.type, statistics.subject);
    m_to.put(L" count='");
    m_to.put_number(static_cast<std::int32_t>(statistics.count)); // as readers know it: 32 bits, signed
    m_to.put(L"'>");
    put_triple(L"weight", statistics.weight);
    put_triple(L"totaltimeinmilliseconds", statistics.total_time);
    put_triple(L"unittimeinmilliseconds", statistics.unit_time);
    m_to.put(L"</statentry>");
}

void SessionWriter::put_lists(const SessionEvents& events)
{
    m_to.put(L"<context>");
    for (const auto& entry : events.context())
        put_event(entry.second);
    m_to.put(L"</context><history>");
    for (const SessionEvent& event : events.history())
        put_event(event);
    m_to.put(L"</history><errors>");
    for (const SessionEvent& event : events.errors())
        put_event(event);
    m_to.put(L"</errors><warnings>");
    for (const SessionEvent& event : events.warnings())
        put_event(event);
    m_to.put(L"</warnings>");
}

void SessionWriter::put_all_statistics(const SessionEvents& events)
{
    m_to.put(L"<stats start='");
    put_time(events.statistics_start());
    m_to.put(L"'>");
    for (const auto& entry : events.statistics())
        put_statistics(entry.second);
    m_to.put(L"</stats>");
}

std::wstring hex_text(std::uint32_t value)
{
    constexpr wchar_t DIGITS[] = L"0123456789abcdef";
    std::wstring text = L"0x00000000";
    for (std::size_t i = text.size(); value != 0; value >>= 4)
        text[--i] = DIGITS[value & 0xF];
    return text;
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
