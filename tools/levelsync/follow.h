// follow.h - what programs write to their logs from now on.

#ifndef LEVELSYNC_FOLLOW_H
#define LEVELSYNC_FOLLOW_H

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/log_filter.h"
#include "core/log_records.h"
#include "core/log_split.h"
#include "log_files.h"
#include "times.h"

namespace levelsync
{
/// Follows the log files of some folders: those that are there, from their present ends on, and those that come. A file
/// that is renamed is followed under its new name, one that is cleared from its front. Lines are given once they are
/// whole, each with what has come of its message. A file that nobody writes to is not kept open, as a file that is open
/// cannot be replaced.
class Follower
{
public:
    /// log: the name of the file.
    using Give = std::function<void(const kor::core::LogRecord& record, const std::string& log)>;

    /// Marks the ends. selection decides about each record. A copy of a log that comes later gives what is new in it.
    Follower(std::vector<std::wstring> folders, kor::core::LogSelection selection);

    /// Gives what was written since the last call and is wanted, in the order of the times.
    void poll(const Give& give);

    /// Files that are followed.
    std::size_t count() const noexcept { return m_sources.size(); }

private:
    struct Source
    {
        Source(std::unique_ptr<LogFile> opened, std::uint64_t begin) : file(std::move(opened)), splitter(*file, begin)
        {
        }

        std::unique_ptr<LogFile> file; // closed while nothing is written to it
        kor::core::LogSplitter splitter;
        ULONGLONG grown_at = 0;
        Time time = 0;       // of the last record
        bool wanted = false; // the last record was
    };

    void look_for_files(bool is_first);
    void add(std::unique_ptr<LogFile> file, std::wstring identity, bool is_first);
    void read(std::size_t index, std::deque<kor::core::LogRecord>& records);
    void begin_record(std::size_t index, const kor::core::LogPiece& piece, std::deque<kor::core::LogRecord>& records);

    std::vector<std::wstring> m_folders;
    kor::core::LogSelection m_selection;
    Time m_since; // what was there before is not new, wherever it appears
    std::unique_ptr<kor::core::LogZone> m_zone;
    std::deque<Source> m_sources;                // which stay where they are
    std::map<std::wstring, std::size_t> m_known; // places of the files, by their identities
    ULONGLONG m_looked_at = 0;
};
} // namespace levelsync

#endif // LEVELSYNC_FOLLOW_H
