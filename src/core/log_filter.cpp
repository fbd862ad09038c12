#include "core/log_filter.h"

#include <algorithm>
#include <utility>

namespace kor::core
{
namespace
{
template <typename Value, typename Other>
bool is_wanted(const std::vector<Value>& wanted, const Other& value)
{
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), value) != wanted.end();
}

constexpr char lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }
} // namespace

LogSelection::LogSelection(LogFilter filter, int monitor_package)
    : m_filter(std::move(filter)), m_monitor_package(monitor_package)
{
}

bool LogSelection::wants(const LogRecord& record)
{
    if (record.begins) // later parts go with the first
        m_last = decide(record);
    return m_last;
}

bool LogSelection::decide(const LogRecord& record)
{
    const LogLine& line = record.line;
    if (m_wanted_sources.size() <= record.source)
        m_wanted_sources.resize(record.source + 1);
    Process& process = process_of(line);
    if (line.kind == LogLine::START_BANNER)
        process = Process(); // its id may have been another's
    if (line.kind == LogLine::MESSAGE)
    {
        process.client = line.client;
        process.session = line.session;
    }
    if (line.kind == LogLine::MESSAGE || line.kind == LogLine::START_BANNER)
        process.application = line.application;
    if (record.time < m_filter.since || record.time >= m_filter.until || !fits(record, process) ||
        !contains_text(record.text(), m_filter.text))
        return false;
    process.wanted = true;
    m_wanted_sources[record.source] = true;
    return true;
}

bool LogSelection::fits(const LogRecord& record, const Process& process)
{
    const LogLine& line = record.line;
    switch (line.kind)
    {
    case LogLine::BARE: // in front of all others of a file
        return !asks_for_lines() && m_filter.level >= LogFilter::ANY_LEVEL;
    case LogLine::FULL_NOTICE:
    case LogLine::ROTATION_NOTICE:
        return !asks_for_lines() || m_wanted_sources[record.source];
    case LogLine::MESSAGE:
        return line.level <= m_filter.level && is_wanted(m_filter.packages, line.package) &&
               fits_identity(line, process) && fits_work(process);
    case LogLine::MEASUREMENT:
        return line.level <= m_filter.level && is_wanted(m_filter.packages, m_monitor_package) &&
               fits_identity(line, process) && fits_work(process);
    default: // banners and crashes
        return fits_identity(line, process) && fits_work(process) && (m_filter.packages.empty() || process.wanted);
    }
}

bool LogSelection::fits_identity(const LogLine& line, const Process& process) const
{
    if (!is_wanted(m_filter.processes, line.process))
        return false;
    // A crash names the program's file, and the banners of a monitor log name nothing.
    const bool has_name = line.kind == LogLine::MESSAGE || line.kind == LogLine::MEASUREMENT ||
                          line.kind == LogLine::START_BANNER || line.kind == LogLine::END_BANNER ||
                          line.kind == LogLine::GOES_ON_ELSEWHERE || line.kind == LogLine::GOES_ON_HERE;
    return is_wanted(m_filter.applications, has_name ? line.application : std::string_view(process.application));
}

bool LogSelection::fits_work(const Process& process)
{
    return is_wanted(m_filter.sessions, process.session) && fits_client(process.client);
}

bool LogSelection::fits_client(const std::string& client)
{
    if (!m_filter.client_fits)
        return true;
    if (client.empty())
        return false;
    if (m_clients.size() >= MOST_REMEMBERED)
        m_clients.clear();
    const auto [known, is_new] = m_clients.try_emplace(client, false);
    if (is_new)
        known->second = m_filter.client_fits(client);
    return known->second;
}

LogSelection::Process& LogSelection::process_of(const LogLine& line)
{
    if (m_processes.size() >= MOST_REMEMBERED)
        m_processes.clear();
    return m_processes[line.process];
}

bool LogSelection::asks_for_lines() const noexcept
{
    return !m_filter.sessions.empty() || m_filter.client_fits || !m_filter.packages.empty() ||
           !m_filter.processes.empty() || !m_filter.applications.empty();
}

bool contains_text(std::string_view text, std::string_view part) noexcept
{
    const auto same = [](char a, char b) { return lower(a) == lower(b); };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end() || part.empty();
}
} // namespace kor::core
