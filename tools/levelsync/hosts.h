// hosts.h - the running processes that have the library loaded, and what their logs tell of them.

#ifndef LEVELSYNC_HOSTS_H
#define LEVELSYNC_HOSTS_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "log_files.h"
#include "times.h"
#include "tool.h"

namespace levelsync
{
/// A running process that has the library.
struct Host
{
    unsigned long id = 0;
    std::wstring program; ///< path of the program; its name alone where the path cannot be told
    std::wstring library; ///< path of the library
    std::string version;  ///< of the library; empty: not told
    Time started = 0;     ///< 0: not told
    unsigned long windows_session = 0;

    // From its environment, as it was when it started. Nothing where it cannot be read.
    std::optional<std::wstring> folder;           ///< of its logs, absolute
    bool has_variable = false;                    ///< PRISMATE_LOG_DIR says which
    std::map<std::string, std::string> variables; ///< KORAL_... and PRISMATE_... that are set

    bool was_seen = true; ///< false: known by its log alone, as it may not be looked into

    std::string name() const; ///< of the program, without folder and ending
};

/// A process that could not be looked into.
struct ClosedProcess
{
    unsigned long id = 0;
    std::wstring program;
    unsigned long error = 0;
};

struct HostList
{
    std::vector<Host> hosts; ///< in the order of their ids, without this process
    std::vector<ClosedProcess> closed;
};

/// "1.2.3" of a program or a DLL; empty for a file that has none.
std::string version_of(const std::wstring& path);

/// Looks through all processes of the machine. Changes nothing in them.
HostList find_hosts();

/// What the last lines of a log say of a process.
struct LastLine
{
    std::wstring file;
    Time time = 0;
    std::string application;
    std::string client; ///< that it served then; empty: none
    std::int64_t session = 0;
    bool has_ended = false; ///< its end banner
};

/// The ends of log files, by the processes that wrote there.
class LogEnds
{
public:
    /// Looks at the end of each file. The files stay open as long as they were.
    explicit LogEnds(const LogFiles& logs);

    /// The last line of that process since it started; null when none is near the end of a file.
    const LastLine* of(const Host& host) const;

    /// All processes that have lines there, by id.
    const std::map<unsigned long, LastLine>& all() const noexcept { return m_last; }

private:
    void look(LogFile& file, const kor::core::LogZone& zone);

    std::map<unsigned long, LastLine> m_last;
};

/// All that is known of a host.
Json json_of(const Host& host, const LogEnds& ends);

/// Logs of the folder and of the folders of all hosts, each once.
FoundLogs find_all_logs(const std::wstring& folder, const HostList& list);

/// The folder of the level file, and where running processes have others that are there, those: each once.
std::vector<std::wstring> log_folders(const Folder& folder);

/// Adds to the hosts those processes that could not be looked into but have written to a log since they started.
void add_hosts_by_logs(HostList& list, const LogEnds& ends);
} // namespace levelsync

#endif // LEVELSYNC_HOSTS_H
