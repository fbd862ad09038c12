// log_files.h - the log files of a folder, open for reading while programs write to them.

#ifndef LEVELSYNC_LOG_FILES_H
#define LEVELSYNC_LOG_FILES_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/log_merge.h"
#include "core/log_records.h"
#include "core/log_split.h"
#include "owned.h"
#include "times.h"

namespace levelsync
{
/// An open file. Whoever writes to it, renames or deletes it is not hindered.
class LogFile final : public kor::core::LogBytes
{
public:
    /// error of GetLastError where it cannot be opened; then it is empty.
    explicit LogFile(std::wstring path);

    std::size_t read(std::uint64_t at, char* to, std::size_t size) override;

    /// Closes it. Then it is empty.
    void let_go() noexcept { m_file.reset(); }

    /// Opens it again, as which the other was opened.
    void take(LogFile& other) noexcept
    {
        m_path.swap(other.m_path);
        m_file = std::move(other.m_file);
    }

    bool is_open() const noexcept { return is_valid(m_file); }
    std::uint64_t size() const; ///< at present
    Time last_written() const;
    unsigned long error() const noexcept { return m_error; }

    const std::wstring& path() const noexcept { return m_path; }
    std::string name() const; ///< of the file alone, to be shown

    /// The same for two names of one file, and for no other file while both are open.
    std::wstring identity() const;

private:
    std::wstring m_path;
    OwnedHandle m_file;
    unsigned long m_error = 0;
};

using LogFiles = std::vector<std::unique_ptr<LogFile>>;

/// What was found in a folder.
struct FoundLogs
{
    LogFiles logs;                     ///< in the order of their names
    std::vector<std::string> problems; ///< whole sentences: what could not be read
};

/// The files in a folder that hold lines of a log, whatever they are called. Throws Failure when there is no such
/// folder, or it cannot be listed.
FoundLogs find_logs(const std::wstring& folder);

/// All files of a folder but its folders, in the order of their names. Throws as above.
std::vector<std::wstring> files_of(const std::wstring& folder);

/// True for a name by which a file is known to be no log: dumps, reports, programs, and the level file, which nobody
/// may hold open while it is replaced.
bool is_other_kind(const std::wstring& path);

/// True for the file that a crash has left of the last lines which the process kept in memory.
bool holds_last_lines(const LogFile& log);

/// The zone that the logs were written in: this machine's with its rules, unless the logs come from elsewhere.
std::unique_ptr<kor::core::LogZone> zone_of(const LogFiles& logs);

/// The records of all logs in the order of their times, as far as they are written now. A record's source is its log's
/// place in the list, which lives as long as this.
class MergedLogs
{
public:
    /// Records from before that time may come first: files are entered somewhere in front of it.
    MergedLogs(const LogFiles& logs, Time since);

    /// False at the end of all.
    bool next(kor::core::LogRecord& record);

private:
    std::unique_ptr<kor::core::LogZone> m_zone;
    std::vector<std::unique_ptr<kor::core::LogReader>> m_readers;
    std::optional<kor::core::LogMerge> m_merge;
};
} // namespace levelsync

#endif // LEVELSYNC_LOG_FILES_H
