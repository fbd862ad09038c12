#include "core/session_changes.h"

namespace kor::core
{
namespace
{
SessionEvent&& at(SessionEvent&& event, std::uint64_t time) noexcept
{
    event.begin_time = event.end_time = time;
    return std::move(event);
}
} // namespace

void report_event(SessionEvents& events, SessionEvent&& event, std::uint64_t time)
{
    events.report(std::move(event), time);
}

void report_error(SessionEvents& events, SessionEvent&& event, std::uint64_t time)
{
    events.report_error(at(std::move(event), time));
}

void report_warning(SessionEvents& events, SessionEvent&& event, std::uint64_t time)
{
    events.report_warning(at(std::move(event), time));
}

void add_to_history(SessionEvents& events, SessionEvent&& event, std::uint64_t)
{
    events.add_history(std::move(event));
}

void StatisticsUpdate::operator()(SessionEvents& events, std::uint64_t) const
{
    events.update_statistics({id.type, id.subject}, event);
}

void TimeNote::operator()(SessionEvents& events, std::uint64_t time) const
{
    events.set_time({id.type, id.subject}, time);
}

void Alias::operator()(SessionEvents& events, std::uint64_t) const
{
    events.set_alias({of.type, of.subject}, {counted_as.type, counted_as.subject});
}

void ContextRemoval::operator()(SessionEvents& events, std::uint64_t) const
{
    events.remove_from_context(
        any_type ? nullptr : id.type.c_str(), any_subject ? nullptr : id.subject.c_str(), include_spans);
}

void HistorySize::operator()(SessionEvents& events, std::uint64_t) const { events.set_history_size(value); }
} // namespace kor::core
