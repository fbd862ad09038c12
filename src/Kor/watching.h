// watching.h - one process that is watched, as its watcher has it.

#ifndef KOR_WATCHING_H
#define KOR_WATCHING_H

#include <windows.h>

#include <list>
#include <optional>
#include <string>
#include <vector>

#include "Kor/minidump.h"
#include "core/watch_layout.h"
#include "core/watch_reading.h"
#include "win/watch_objects.h"

namespace kor
{
/// Watches one process from its entry in the table to its end, on a thread of its own: writing a minidump takes seconds.
class WatchedByUs
{
public:
    /// Takes the handles that the process has given, or opens it by its id. Both must live as long as this. Throws when there
    /// is no memory.
    WatchedByUs(core::WatchedEntry& entry, const DumpWriter& dumps);

    /// False when the process is gone, or may not be looked at.
    bool is_there() const noexcept { return m_process && m_section.view() != nullptr; }

    /// Does what there is to do until the process has ended. Throws when there is no memory.
    void watch();

private:
    struct Lines;

    const core::WatchedProcess& told() const noexcept
    {
        return *static_cast<const core::WatchedProcess*>(m_section.view());
    }
    core::WatchedProcess& shared() noexcept { return *static_cast<core::WatchedProcess*>(m_section.view()); }

    void take_given_handles(const core::WatchedEntry& entry) noexcept;
    void look_at_news();
    void find_recorder();
    void answer_request();
    bool change_request(core::DumpRequest from, core::DumpRequest to) noexcept;
    bool dump(const std::wstring& path, MINIDUMP_EXCEPTION_INFORMATION* crash);
    void tell_modules() noexcept;
    void look_at_heartbeats();
    void report_hang(const core::LateHeartbeat& late);
    void tell_hang(const core::LateHeartbeat& late) const;
    void report_end();

    std::wstring folder() const;
    std::wstring program() const;
    std::wstring path_of(const wchar_t* type, const wchar_t* end) const;
    void write_last_lines();
    void write_report(const std::wstring& path, DWORD code, const wchar_t* event_id) const;

    static BOOL WINAPI note_module(void* list, MINIDUMP_CALLBACK_INPUT* input, MINIDUMP_CALLBACK_OUTPUT* output);

    const DumpWriter& m_dumps;
    core::ProcessIdentity m_identity;
    win::OwnedHandle m_process;
    win::NamedSection m_section;
    win::OwnedHandle m_news;
    win::OwnedHandle m_answer;
    win::OwnedHandle m_recorder;    // a section
    std::wstring m_folder_at_begin; // for a process that has written over it since
    core::HeartbeatWatch m_heartbeats;
    ModuleList m_modules;
};
} // namespace kor

#endif // KOR_WATCHING_H
