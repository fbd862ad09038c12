// watched.h - this process as one that is watched: what it tells its watcher, and what it asks of it in a crash.

#ifndef KOR_WATCHED_H
#define KOR_WATCHED_H

#include <windows.h>

#include <atomic>
#include <string>
#include <string_view>

#include "Kor/minidump.h"
#include "core/session_changes.h"
#include "core/watch_layout.h"
#include "win/watch_objects.h"

namespace kor
{
/// Where the files of a process go, and what they are named after.
struct WatchedNames
{
    std::wstring_view folder; ///< with a backslash at its end
    std::wstring_view program;
    std::string_view program_text; ///< its path, as in crashes.log
};

/// There is one from the first start of a watcher on. Once made it stays until the library goes.
class Watched
{
public:
    /// section: with a WatchedProcess in it.
    Watched(
        win::NamedSection section, win::NamedSection table, win::OwnedHandle news, win::OwnedHandle answer,
        win::OwnedHandle wake) noexcept;
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

    /// Sees to it that there is a watcher that knows of this process. False, with what is wrong as text, when there is none.
    bool find_or_start_watcher(const char*& wrong) noexcept;

    /// Throws when there is no memory.
    void set_names(const WatchedNames& names);
    void set_line_only(bool only) noexcept;

    /// One of WatchSteps. Takes no memory and no lock.
    void tell_step(core::WatchSteps step) noexcept;
    void tell_report_name(std::wstring_view name) noexcept;
    void tell_event(const core::ToldEvent& told) noexcept;
    /// Has the watcher find the lines that are recorded.
    void tell_recorder() noexcept;

    bool heartbeat(std::string_view name, DWORD period_ms) noexcept;

    /// Has the watcher write a minidump of this process, and put the modules that it finds into modules. name: of the file.
    /// False when it did not: then nobody writes one, and the caller may. Takes no memory and no lock of others, and two
    /// seconds where no watcher answers; none as long as the first one is being started.
    bool dump(std::wstring_view name, EXCEPTION_POINTERS* exception, ModuleList& modules) noexcept;

private:
    core::WatchedProcess& told() noexcept { return *static_cast<core::WatchedProcess*>(m_section.view()); }
    core::WatchTable& table() noexcept { return *static_cast<core::WatchTable*>(m_table.view()); }

    core::WatchedEntry* enter() noexcept;
    bool find_watcher() noexcept;
    bool start_watcher() noexcept;
    void give_handles(core::WatchedEntry& entry) noexcept;
    bool change_request(core::DumpRequest from, core::DumpRequest to) noexcept;
    core::DumpRequest request() noexcept;
    void wait_while(core::DumpRequest state, DWORD limit_ms) noexcept;
    void take_modules(ModuleList& modules) noexcept;

    win::NamedSection m_section;
    win::NamedSection m_table;
    win::OwnedHandle m_news;
    win::OwnedHandle m_answer;
    win::OwnedHandle m_wake;
    win::OwnedHandle m_watcher; // its process
    core::WatchedEntry* m_entry = nullptr;
    std::atomic<bool> m_has_begun{false}; // from then on other threads may look at the watcher's process
    std::atomic<bool> m_recorder_is_told{false};
};

/// Null as long as nobody has asked for a watcher.
extern std::atomic<Watched*> watched;

/// Null, with what is wrong as text, when it cannot be had. Any thread may call it.
Watched* find_or_make_watched(const char*& wrong) noexcept;

inline void tell_watcher(core::WatchSteps step) noexcept
{
    if (Watched* const process = watched.load(std::memory_order_acquire))
        process->tell_step(step);
}

inline void tell_watcher_of_recorder() noexcept
{
    if (Watched* const process = watched.load(std::memory_order_acquire))
        process->tell_recorder();
}

/// Tells the watcher that the process ends as it should, or no longer has the library.
struct WatchedEnd
{
    WatchedEnd() noexcept = default;
    WatchedEnd(const WatchedEnd&) = delete;
    WatchedEnd& operator=(const WatchedEnd&) = delete;
    ~WatchedEnd();
};
} // namespace kor

#endif // KOR_WATCHED_H
