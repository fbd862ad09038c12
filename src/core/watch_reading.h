// watch_reading.h - what a watcher makes of the memory of a process that it watches, in which nothing is taken on trust.

#ifndef KOR_CORE_WATCH_READING_H
#define KOR_CORE_WATCH_READING_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/session_events.h"
#include "core/watch_layout.h"

namespace kor::core
{
/// A clock that all processes of a machine share, and that stands still while the machine sleeps, in milliseconds.
using WatchTime = std::uint64_t;

/// True when that is the memory of this process in a version that is known.
bool is_watched_process(const WatchedProcess& from, std::size_t size, const ProcessIdentity& identity) noexcept;

/// A text of size characters at most, up to its nul.
std::wstring watched_text(const char16_t* from, std::size_t size);

/// The name of a file that begins and ends so, without a folder. Empty where it is anything else: what has been written over
/// names nothing elsewhere, and none of the other files there.
std::wstring
watched_file_name(const char16_t* from, std::size_t size, std::wstring_view begin = {}, std::wstring_view end = {});

/// The folder of all files, empty where what stands there is none, as it has been written over.
std::wstring watched_folder(const WatchedProcess& from);

/// The program as in crashes.log, for a line of a log.
std::string watched_program_text(const WatchedProcess& from);

/// Copies a text into what a process tells, cut where there is no room for it and its nul.
void tell_text(char16_t* to, std::size_t size, std::wstring_view from) noexcept;

/// True for the end of a process that is nobody's fault. came_to_end: its DLLs were told of it.
bool is_orderly_end(std::uint32_t exit_code, bool came_to_end) noexcept;

/// What a process that has not ended orderly has still to be written for it: of WATCH_LINE, WATCH_LAST_LINES and
/// WATCH_REPORT. now: when it was found to have ended. A crash writes for a minute at most; what was written long before the
/// end was of something else.
std::uint32_t missing_steps(const WatchedProcess& from, WatchTime now) noexcept;

/// What was reported last, oldest first, in the lists of a report. What was just being written is left out.
struct WatchedEvents
{
    explicit WatchedEvents(const WatchedProcess& from);

    SessionEventList history;
    SessionEventList errors;
    SessionEventList warnings;
};

/// Tells the watcher of an event. Any thread may do so at any time, and nobody waits.
void tell_event(
    WatchedProcess& to, const SessionEvent& event, std::uint32_t list, std::uint64_t begin, std::uint64_t end);

/// How many modules there are that can be read.
std::uint32_t watched_module_count(const WatchedProcess& from) noexcept;

/// A heartbeat that did not come, or came back.
struct LateHeartbeat
{
    std::uint32_t slot;
    std::string name;
    WatchTime silence; ///< how long ago the last one was; of one that is back: how long it was away
    bool is_back;
};

/// Looks at the heartbeats of one process again and again, and tells of each hang once.
class HeartbeatWatch
{
public:
    static constexpr WatchTime NEVER = ~WatchTime{0};

    /// Knows of what the watcher before this one has told.
    void take_over(const WatchedProcess& from) noexcept;

    /// A bit for each that is late.
    std::uint32_t late() const noexcept;

    /// What has changed since the last time. Nobody is late while the process writes of its crash; and where this was called
    /// long after it should have been, as the machine stood still, everybody gets their time once more.
    std::vector<LateHeartbeat> look(const WatchedProcess& from, WatchTime now);

    /// When to look again at the latest.
    WatchTime next_look(const WatchedProcess& from, WatchTime now) const noexcept;

    /// The same as milliseconds to wait for, as the system counts them; WAIT_FOR_EVER for NEVER alone.
    std::uint32_t time_to_next_look(const WatchedProcess& from, WatchTime now) const noexcept;
    static constexpr std::uint32_t WAIT_FOR_EVER = ~std::uint32_t{0};

private:
    struct State
    {
        bool is_late = false;
        WatchTime late_since = 0;       // the last beat in front of the hang
        WatchTime excused_beat = NEVER; // one that counts as if it had come later
        WatchTime excused_at = 0;

        WatchTime counted_from(WatchTime beat) const noexcept { return beat == excused_beat ? excused_at : beat; }
    };

    State m_states[MOST_HEARTBEATS];
    WatchTime m_due = NEVER; // when to look next, as of the last look
};

/// Null when there has been no beat of that name.
WatchedHeartbeat* find_heartbeat(WatchedProcess& in, std::string_view name) noexcept;

/// Finds it too, and otherwise takes room for it, where it promises nothing yet. Null without a name or with one that does
/// not fit, as two names must not become one, and when there are as many already as there is room for. For one thread at a
/// time.
WatchedHeartbeat* add_heartbeat(WatchedProcess& to, std::string_view name) noexcept;

/// Notes a beat. True when it promises more than the one before: the watcher has to look earlier than it was going to.
bool tell_heartbeat(WatchedHeartbeat& to, std::uint32_t period_ms, WatchTime now) noexcept;
} // namespace kor::core

#endif // KOR_CORE_WATCH_READING_H
