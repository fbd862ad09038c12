#include "core/watch_reading.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "core/fixed_text.h"
#include "core/session_changes.h"

namespace kor::core
{
namespace
{
constexpr WatchTime LOOK_AT_LATE_MS = 500; // how often at a process that hangs, until it is back
constexpr WatchTime MISSED_LOOK_MS = 500;  // more than a busy machine keeps a thread waiting

/// Control characters would stand in a log line or a report.
template <std::size_t SIZE>
std::string plain_text(const char (&from)[SIZE])
{
    char copy[SIZE];
    std::copy(std::begin(from), std::end(from), std::begin(copy)); // once, as it may be changing
    std::string text(bounded(copy));
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, '?');
    return text;
}
} // namespace

bool is_watched_process(const WatchedProcess& from, std::size_t size, const ProcessIdentity& identity) noexcept
{
    return size >= sizeof from && from.magic.load(std::memory_order_acquire) == WATCH_MAGIC &&
           from.version == WATCH_VERSION && from.size == sizeof from && from.identity == identity;
}

std::wstring watched_text(const char16_t* from, std::size_t size)
{
    std::wstring text;
    for (std::size_t i = 0; i < size; ++i)
    {
        const char16_t one = from[i];
        if (one == u'\0')
            break;
        text += static_cast<wchar_t>(one);
    }
    return text;
}

std::wstring watched_file_name(const char16_t* from, std::size_t size, std::wstring_view begin, std::wstring_view end)
{
    std::wstring name = watched_text(from, size);
    const bool is_elsewhere = name.find_first_of(L"\\/:") != std::wstring::npos;
    const bool is_such = name.size() >= begin.size() + end.size() && name.compare(0, begin.size(), begin) == 0 &&
                         name.compare(name.size() - end.size(), end.size(), end) == 0;
    return is_elsewhere || !is_such ? std::wstring() : name;
}

std::wstring watched_folder(const WatchedProcess& from)
{
    std::wstring folder = watched_text(from.folder, std::size(from.folder));
    const bool is_whole =
        folder.size() > 2 && (folder.compare(0, 2, L"\\\\") == 0 || folder.compare(1, 2, L":\\") == 0);
    return is_whole && folder.back() == L'\\' ? folder : std::wstring();
}

std::string watched_program_text(const WatchedProcess& from) { return plain_text(from.program_text); }

void tell_text(char16_t* to, std::size_t size, std::wstring_view from) noexcept
{
    const std::size_t length = std::min(from.size(), size - 1);
    for (std::size_t i = 0; i < length; ++i)
        to[i] = static_cast<char16_t>(from[i]);
    to[length] = u'\0';
}

namespace
{
/// What has been written of a crash that the process is still at, or has ended in.
std::uint32_t steps_of_now(const WatchedProcess& from, WatchTime now) noexcept
{
    constexpr WatchTime OF_NOW_MS = 120'000;
    const std::uint32_t steps = from.steps.load(std::memory_order_acquire);
    const WatchTime time = from.step_time.load(std::memory_order_relaxed);
    return time <= now && now - time <= OF_NOW_MS ? steps : 0;
}

/// Nobody comes back from a crash; what it writes takes its time.
bool is_crashing(const WatchedProcess& from, WatchTime now) noexcept
{
    return (steps_of_now(from, now) & WATCH_LINE) != 0;
}
} // namespace

bool is_orderly_end(std::uint32_t exit_code, bool came_to_end) noexcept
{
    constexpr std::uint32_t TERMINATED_BY_SYSTEM =
        0x40010004;                                 // DBG_TERMINATE_PROCESS: a logoff, or the machine goes down
    constexpr std::uint32_t CONTROL_C = 0xC000013A; // also when the window of a console is closed
    constexpr std::uint32_t SEVERITY = 0xF0000000;
    constexpr std::uint32_t SYSTEM_ERROR = 0xC0000000; // of an NTSTATUS
    if (exit_code == TERMINATED_BY_SYSTEM || exit_code == CONTROL_C)
        return true;
    return came_to_end && (exit_code & SEVERITY) != SYSTEM_ERROR;
}

std::uint32_t missing_steps(const WatchedProcess& from, WatchTime now) noexcept
{
    constexpr std::uint32_t ALL = WATCH_LINE | WATCH_LAST_LINES | WATCH_REPORT;
    std::uint32_t missing = ALL & ~steps_of_now(from, now);
    if (from.line_only.load(std::memory_order_relaxed) != 0)
        missing &= ~std::uint32_t{WATCH_REPORT};
    return missing;
}

// Events -------------------------------------------------------------------------------------------------------------
WatchedEvents::WatchedEvents(const WatchedProcess& from)
{
    std::vector<std::pair<std::uint64_t, std::uint32_t>> order; // sequence, slot
    for (std::uint32_t slot = 0; slot < WATCHED_EVENTS; ++slot)
        if (const std::uint64_t sequence = from.event_ring[slot].sequence.load(std::memory_order_acquire);
            sequence != 0)
            order.emplace_back(sequence, slot);
    std::sort(order.begin(), order.end());
    for (const auto& [sequence, slot] : order)
    {
        const WatchedEvent& told = from.event_ring[slot];
        SessionEvent event;
        event.type = watched_text(told.type, std::size(told.type));
        event.subject = watched_text(told.subject, std::size(told.subject));
        event.info = watched_text(told.info, std::size(told.info));
        event.flags = told.flags;
        event.weight = told.weight;
        event.begin_time = told.begin_time;
        event.end_time = told.end_time;
        const std::uint32_t list = told.list;
        std::atomic_thread_fence(std::memory_order_acquire);
        if (told.sequence.load(std::memory_order_relaxed) != sequence)
            continue;
        if (list == static_cast<std::uint32_t>(ReportList::ERRORS))
            errors.push_back(std::move(event));
        else if (list == static_cast<std::uint32_t>(ReportList::WARNINGS))
            warnings.push_back(std::move(event));
        else
            history.push_back(std::move(event));
    }
}

void tell_event(
    WatchedProcess& to, const SessionEvent& event, std::uint32_t list, std::uint64_t begin, std::uint64_t end)
{
    const std::uint64_t sequence = to.events.fetch_add(1) + 1;
    WatchedEvent& told = to.event_ring[sequence % WATCHED_EVENTS];
    told.sequence.store(WatchedEvent::CHANGING);
    std::atomic_thread_fence(std::memory_order_release);
    tell_text(told.type, std::size(told.type), event.type);
    tell_text(told.subject, std::size(told.subject), event.subject);
    tell_text(told.info, std::size(told.info), event.info);
    told.flags = event.flags;
    told.weight = event.weight;
    told.begin_time = begin;
    told.end_time = end;
    told.list = list;
    told.sequence.store(sequence, std::memory_order_release);
}

std::uint32_t watched_module_count(const WatchedProcess& from) noexcept
{
    return std::min(from.module_count.load(std::memory_order_acquire), MOST_WATCHED_MODULES);
}

// Heartbeats -----------------------------------------------------------------------------------------------------------
void HeartbeatWatch::take_over(const WatchedProcess& from) noexcept
{
    const std::uint32_t late = from.late_heartbeats.load(std::memory_order_relaxed);
    for (std::uint32_t slot = 0; slot < MOST_HEARTBEATS; ++slot)
    {
        m_states[slot].is_late = (late >> slot & 1) != 0;
        m_states[slot].late_since = from.heartbeats[slot].beat.load(std::memory_order_relaxed);
    }
}

std::uint32_t HeartbeatWatch::late() const noexcept
{
    std::uint32_t late = 0;
    for (std::uint32_t slot = 0; slot < MOST_HEARTBEATS; ++slot)
        late |= std::uint32_t{m_states[slot].is_late} << slot;
    return late;
}

std::vector<LateHeartbeat> HeartbeatWatch::look(const WatchedProcess& from, WatchTime now)
{
    std::vector<LateHeartbeat> changes;
    if (is_crashing(from, now))
        return changes;
    // While the watcher could not look, the process may have stood still as well: machines are paused, and a minidump stops
    // whom it is of.
    const bool was_stopped = m_due < now && now - m_due > MISSED_LOOK_MS;
    for (std::uint32_t slot = 0; slot < MOST_HEARTBEATS; ++slot)
    {
        const WatchedHeartbeat& beat = from.heartbeats[slot];
        State& state = m_states[slot];
        if (beat.is_named.load(std::memory_order_acquire) == 0)
            continue;
        const std::uint32_t period = beat.period_ms.load(std::memory_order_acquire);
        const WatchTime last = beat.beat.load(std::memory_order_relaxed);
        const bool is_late = period != 0 && last < now && now - state.counted_from(last) > period &&
                             (!state.is_late || last == state.late_since);
        if (is_late == state.is_late)
            continue;
        if (is_late && was_stopped && state.excused_beat != last)
        {
            state.excused_beat = last;
            state.excused_at = now;
            continue;
        }
        // Where it was taken back, there was no beat, and none can come from the future.
        const WatchTime back = last > state.late_since ? std::min(last, now) : now;
        changes.push_back(
            {slot, plain_text(beat.name), is_late ? now - last : back - std::min(state.late_since, back), !is_late});
        state.is_late = is_late;
        state.late_since = last;
    }
    m_due = next_look(from, now);
    return changes;
}

WatchTime HeartbeatWatch::next_look(const WatchedProcess& from, WatchTime now) const noexcept
{
    WatchTime next = NEVER;
    for (std::uint32_t slot = 0; slot < MOST_HEARTBEATS; ++slot)
    {
        const WatchedHeartbeat& beat = from.heartbeats[slot];
        const std::uint32_t period = beat.period_ms.load(std::memory_order_acquire);
        if (beat.is_named.load(std::memory_order_acquire) == 0 || (period == 0 && !m_states[slot].is_late))
            continue;
        const State& state = m_states[slot];
        const WatchTime from_when = std::min(state.counted_from(beat.beat.load(std::memory_order_relaxed)), now);
        const bool is_settled = state.is_late || is_crashing(from, now);
        next = std::min(next, is_settled ? now + LOOK_AT_LATE_MS : std::max(from_when + period, now) + 1);
    }
    return next;
}

std::uint32_t HeartbeatWatch::time_to_next_look(const WatchedProcess& from, WatchTime now) const noexcept
{
    const WatchTime next = next_look(from, now);
    if (next == NEVER)
        return WAIT_FOR_EVER;
    return static_cast<std::uint32_t>(std::min<WatchTime>(next - now, WAIT_FOR_EVER - 1)); // a promise may be as long
}

WatchedHeartbeat* find_heartbeat(WatchedProcess& in, std::string_view name) noexcept
{
    for (WatchedHeartbeat& heartbeat : in.heartbeats)
        if (heartbeat.is_named.load(std::memory_order_acquire) != 0 && bounded(heartbeat.name) == name)
            return &heartbeat;
    return nullptr;
}

WatchedHeartbeat* add_heartbeat(WatchedProcess& to, std::string_view name) noexcept
{
    if (WatchedHeartbeat* const found = find_heartbeat(to, name))
        return found;
    if (name.empty() || name.size() >= sizeof(WatchedHeartbeat::name))
        return nullptr;
    WatchedHeartbeat* const added = std::find_if(
        std::begin(to.heartbeats), std::end(to.heartbeats),
        [](const WatchedHeartbeat& one) { return one.is_named.load(std::memory_order_relaxed) == 0; });
    if (added == std::end(to.heartbeats))
        return nullptr;
    added->name[name.copy(added->name, name.size())] = '\0';
    added->is_named.store(1, std::memory_order_release);
    return added;
}

bool tell_heartbeat(WatchedHeartbeat& to, std::uint32_t period_ms, WatchTime now) noexcept
{
    // In this order: who sees a first promise must not see it kept since the machine was started.
    to.beat.store(now, std::memory_order_relaxed);
    const std::uint32_t before = to.period_ms.exchange(period_ms, std::memory_order_acq_rel);
    return period_ms != 0 && (before == 0 || period_ms < before);
}
} // namespace kor::core
