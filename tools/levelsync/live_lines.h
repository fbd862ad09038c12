// live_lines.h - the last lines of a running process, which it keeps in memory.

#ifndef LEVELSYNC_LIVE_LINES_H
#define LEVELSYNC_LIVE_LINES_H

#include <memory>
#include <string>

#include "core/log_merge.h"
#include "core/log_records.h"

namespace levelsync
{
/// They are read once; the process is not disturbed.
class LiveLines
{
public:
    /// Throws Failure, with what to do, where no such process runs or it keeps none.
    explicit LiveLines(unsigned long process);
    LiveLines(const LiveLines&) = delete;
    LiveLines& operator=(const LiveLines&) = delete;
    ~LiveLines();

    /// False at the end.
    bool next(kor::core::LogRecord& record);

private:
    class Bytes;

    const std::unique_ptr<Bytes> m_bytes;
    const std::unique_ptr<kor::core::LogZone> m_zone;
    kor::core::LogReader m_reader;
    kor::core::LogMerge m_merge;
};
} // namespace levelsync

#endif // LEVELSYNC_LIVE_LINES_H
