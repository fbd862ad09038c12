// log_filter.h - which records of logs somebody wants to see.

#ifndef KOR_CORE_LOG_FILTER_H
#define KOR_CORE_LOG_FILTER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/log_records.h"

namespace kor::core
{
/// What to look for. An empty list, and what is not set, asks for nothing; of a list one entry has to fit.
struct LogFilter
{
    static constexpr int ANY_LEVEL = 7;

    std::int64_t since = std::numeric_limits<std::int64_t>::min(); ///< milliseconds since 1970, UTC
    std::int64_t until = std::numeric_limits<std::int64_t>::max(); ///< the first that is too late
    int level = ANY_LEVEL;                                         ///< up to this one
    std::vector<int> packages;
    std::vector<std::int64_t> sessions;
    std::vector<std::int64_t> processes;
    std::vector<std::string> applications;
    std::function<bool(std::string_view client)> client_fits; ///< null: all do; asked once for each client
    std::string text; ///< somewhere in the record; upper and lower case letters of ASCII are the same
};

/// Looks at the records of all files in the order of their times.
///
/// Lines without a headline do not tell whom they are about. A measurement or a crash counts as being for the client
/// and the session that its process served last before it, and the banners of a process and the notice that its file
/// is full come along with what was wanted of them.
class LogSelection
{
public:
    /// monitor_package: of measurements.
    LogSelection(LogFilter filter, int monitor_package);

    bool wants(const LogRecord& record);

private:
    static constexpr std::size_t MOST_REMEMBERED = 65536; // processes, clients; then all are forgotten

    struct Process
    {
        std::string application;
        std::string client;
        std::int64_t session = 0;
        bool wanted = false; // something of it
    };

    bool decide(const LogRecord& record);
    bool fits(const LogRecord& record, const Process& process);
    bool fits_identity(const LogLine& line, const Process& process) const;
    bool fits_work(const Process& process);
    bool fits_client(const std::string& client);
    Process& process_of(const LogLine& line);
    bool asks_for_lines() const noexcept;

    const LogFilter m_filter;
    const int m_monitor_package;
    std::unordered_map<std::int64_t, Process> m_processes;
    std::unordered_map<std::string, bool> m_clients;
    std::vector<bool> m_wanted_sources;
    bool m_last = false;
};

/// True when text has the part in it, whatever the case of ASCII letters.
bool contains_text(std::string_view text, std::string_view part) noexcept;
} // namespace kor::core

#endif // KOR_CORE_LOG_FILTER_H
