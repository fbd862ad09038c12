// watched_hosts.h - hosts that are watched, and what is left of them.

#ifndef KOR_TESTS_WATCHED_HOSTS_H
#define KOR_TESTS_WATCHED_HOSTS_H

#include <windows.h>

#include <tlhelp32.h> // behind windows.h

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Kor_SessionLogWatcher.h"
#include "child.h"
#include "core/watch_layout.h"
#include "log_directory.h"
#include "report_text.h"

constexpr DWORD PATIENCE_MS = 100'000; // a minidump takes Wine a second, and half a minute where the machine is busy

/// Asks again and again; false when it did not come true in time. For what nothing tells of.
template <class Condition>
bool comes_true(Condition&& condition, DWORD patience_ms = PATIENCE_MS)
{
    const ULONGLONG end = ::GetTickCount64() + patience_ms;
    while (!condition())
    {
        if (::GetTickCount64() >= end)
            return false;
        ::Sleep(20);
    }
    return true;
}

inline unsigned int count_watched()
{
    return Kor_SessionLogWatcher::ForEachWatched([](void*, unsigned long, const wchar_t*) {}, nullptr);
}

/// Processes of LUMlogWatch.exe that there are.
inline int count_watchers()
{
    const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32 entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL there = ::Process32First(snapshot, &entry); there; there = ::Process32Next(snapshot, &entry))
        count += ::_stricmp(entry.szExeFile, "LUMlogWatch.exe") == 0 ? 1 : 0;
    ::CloseHandle(snapshot);
    return count;
}

/// A host's entry goes when everything is written, and the watchers go with the last.
inline bool nobody_is_watched()
{
    return comes_true(
        [] { return count_watched() == 0 && Kor_SessionLogWatcher::FindWatcher() == 0 && count_watchers() == 0; });
}

/// An event by which a test lets a child go on.
class Signal
{
public:
    explicit Signal(const std::string& name) : m_event(::CreateEventA(nullptr, TRUE, FALSE, name.c_str())) {}
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;
    ~Signal() { ::CloseHandle(m_event); }

    void give() const { ::SetEvent(m_event); }
    bool wait(DWORD limit_ms = PATIENCE_MS) const { return ::WaitForSingleObject(m_event, limit_ms) == WAIT_OBJECT_0; }

private:
    HANDLE m_event;
};

/// A folder with what hosts have left in it.
class Leavings
{
public:
    const LogDirectory& directory() const noexcept { return m_directory; }

    std::string crash_lines() const { return m_directory.text("crashes.log"); }
    std::size_t crashes() const { return lines_of(crash_lines()).size(); }

    /// File names that begin and end so.
    std::vector<std::string> files(const std::string& begin, const std::string& end) const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(m_directory.path()))
        {
            const std::string name = entry.path().filename().string();
            if (name.compare(0, begin.size(), begin) == 0 && name.size() >= end.size() &&
                name.compare(name.size() - end.size(), end.size(), end) == 0)
                found.push_back(name);
        }
        return found;
    }
    std::size_t reports() const { return files("crash-", ".xml").size(); }
    std::size_t dumps() const { return files("minidump-", ".dmp").size(); }

    /// The text of the one report of that type, empty when there is none.
    std::string report(const std::string& type = "crash-") const
    {
        const auto found = files(type, ".xml");
        return found.size() == 1 ? utf8_of(read_file(m_directory.file(found.front()))) : std::string();
    }

private:
    LogDirectory m_directory;
};

/// The memory that all watched processes of the session share.
class SharedTable
{
public:
    SharedTable()
        : m_section(::CreateFileMappingA(
              INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(kor::core::WatchTable),
              kor::core::WATCH_TABLE_NAME.data())),
          m_view(::MapViewOfFile(m_section, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(kor::core::WatchTable)))
    {
    }
    SharedTable(const SharedTable&) = delete;
    SharedTable& operator=(const SharedTable&) = delete;
    ~SharedTable()
    {
        ::UnmapViewOfFile(m_view);
        ::CloseHandle(m_section);
    }

    kor::core::WatchTable& operator*() const { return *static_cast<kor::core::WatchTable*>(m_view); }
    kor::core::WatchTable* operator->() const { return static_cast<kor::core::WatchTable*>(m_view); }

private:
    HANDLE m_section;
    void* m_view;
};

/// A host that ends when it is told to, by the event that its last argument names. One of each name at a time.
class HostToEnd
{
public:
    HostToEnd(
        const LogDirectory& directory, const std::string& body, std::vector<std::string> arguments = {},
        const std::string& name = "host")
        : m_end("watch_end_" + name), m_process(body, options(directory, std::move(arguments), "watch_end_" + name))
    {
        m_process.ensure_begun();
    }

    unsigned long pid() const noexcept { return m_process.pid(); }
    void kill() const noexcept { m_process.kill(); }
    /// Returns the exit code.
    unsigned long end() const
    {
        m_end.give();
        return m_process.wait(PATIENCE_MS).exit_code;
    }

private:
    static ChildOptions
    options(const LogDirectory& directory, std::vector<std::string> arguments, const std::string& end)
    {
        ChildOptions options = directory.for_child();
        options.arguments = std::move(arguments);
        options.arguments.push_back(end);
        return options;
    }

    Signal m_end;
    Child m_process;
};

/// A watched host that has done some work and waits to be ended. Its body is in ends_test.cpp.
class WaitingHost
{
public:
    explicit WaitingHost(const LogDirectory& directory, const std::string& name = "host")
        : m_ready("watch_ready_" + name), m_host(directory, "waits_watched", {"watch_ready_" + name}, name)
    {
    }

    /// False when it was not to be had.
    bool is_watched() const { return m_ready.wait(); }
    unsigned long pid() const noexcept { return m_host.pid(); }
    void kill() const noexcept { m_host.kill(); }
    /// Returns the exit code, 0.
    unsigned long end_orderly() const { return m_host.end(); }

private:
    Signal m_ready;
    HostToEnd m_host;
};

/// Ends a process as a user does who loses patience.
inline bool end_process(unsigned long id)
{
    const HANDLE process = ::OpenProcess(PROCESS_TERMINATE, FALSE, id);
    const bool is_ended = ::TerminateProcess(process, 9) != FALSE;
    ::CloseHandle(process);
    return is_ended;
}

inline std::string folder_of_programs()
{
    char path[MAX_PATH] = {};
    ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string own = path;
    return own.substr(0, own.find_last_of('\\') + 1);
}

inline std::uint64_t creation_time_of(HANDLE process)
{
    FILETIME created{};
    FILETIME unused{};
    ::GetProcessTimes(process, &created, &unused, &unused, &unused);
    return std::uint64_t{created.dwHighDateTime} << 32 | created.dwLowDateTime;
}

#endif // KOR_TESTS_WATCHED_HOSTS_H
