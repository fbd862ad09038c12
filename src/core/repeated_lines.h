// repeated_lines.h - lines that stand in two places, shown once.

#ifndef KOR_CORE_REPEATED_LINES_H
#define KOR_CORE_REPEATED_LINES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "core/log_records.h"

namespace kor::core
{
/// What a process has written to its log stands among its last lines as well, with the same bytes. Of merged records this
/// tells which have been there already. Those that a program has written twice are there twice.
///
/// Takes memory for the records of one millisecond.
class RepeatedLines
{
public:
    /// are_last_lines: of each source of the records, whether it holds the last lines of a process.
    explicit RepeatedLines(std::vector<bool> are_last_lines);

    /// For each record that is to be shown, in the order of the merge. True when it has come from the other place before.
    bool has_been(const LogRecord& record);

private:
    struct Count
    {
        std::size_t in_logs = 0;
        std::size_t among_last_lines = 0;
    };

    std::vector<bool> m_are_last_lines;
    bool m_is_needed;
    std::int64_t m_time = 0;
    std::unordered_map<std::string, Count> m_counts; // of that time
};
} // namespace kor::core

#endif // KOR_CORE_REPEATED_LINES_H
