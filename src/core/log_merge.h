// log_merge.h - the records of several log files in the order of their times.

#ifndef KOR_CORE_LOG_MERGE_H
#define KOR_CORE_LOG_MERGE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/log_records.h"

namespace kor::core
{
/// Merges files by time. Each file keeps its own order, whatever its clock did: a record that is earlier than the one
/// before it comes right behind that. Records of the same millisecond come in the order of the files.
///
/// Takes a block and a record of memory for each file, however large they are.
class LogMerge
{
public:
    /// The readers live as long as this. A record's source is the index in here.
    explicit LogMerge(std::vector<LogReader*> readers);

    /// False when all are at their ends.
    bool next(LogRecord& record);

private:
    struct Head
    {
        LogRecord record;
        std::int64_t order = 0; // the latest time up to this record
    };

    bool comes_later(std::size_t a, std::size_t b) const noexcept;
    bool advance(std::size_t source);

    std::vector<LogReader*> m_readers;
    std::vector<Head> m_heads;
    std::vector<std::size_t> m_queue; // a heap of those that have a record
};
} // namespace kor::core

#endif // KOR_CORE_LOG_MERGE_H
