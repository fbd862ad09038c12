#include "core/repeated_lines.h"

#include <algorithm>
#include <utility>

namespace kor::core
{
RepeatedLines::RepeatedLines(std::vector<bool> are_last_lines)
    : m_are_last_lines(std::move(are_last_lines)),
      m_is_needed(std::find(m_are_last_lines.begin(), m_are_last_lines.end(), true) != m_are_last_lines.end())
{
}

bool RepeatedLines::has_been(const LogRecord& record)
{
    if (!m_is_needed || !record.begins || !record.ends) // no last line is as long as a record that has parts
        return false;
    if (record.time != m_time)
        m_counts.clear();
    m_time = record.time;
    Count& count = m_counts[std::string(record.text())];
    const bool is_last_line = m_are_last_lines[record.source];
    std::size_t& here = is_last_line ? count.among_last_lines : count.in_logs;
    const std::size_t there = is_last_line ? count.in_logs : count.among_last_lines;
    ++here;
    return here <= there;
}
} // namespace kor::core
