// append_file.h - the log file: a handle that appends, and the C stream that stands for it.

#ifndef KOR_WIN_APPEND_FILE_H
#define KOR_WIN_APPEND_FILE_H

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "core/headline.h"
#include "core/message.h"
#include "win/owner_lock.h"

namespace kor::win
{
/// What a log says where it goes on in another file: whole lines with their newlines, or nothing. Each writes its text
/// into a buffer, cut where it does not fit, and returns the length.
class FileSeam
{
public:
    FileSeam() = default;
    FileSeam(const FileSeam&) = delete;
    FileSeam& operator=(const FileSeam&) = delete;
    virtual ~FileSeam() = default;

    virtual std::size_t write_end(core::Buffer to) const noexcept = 0;   ///< of the file that was renamed
    virtual std::size_t write_begin(core::Buffer to) const noexcept = 0; ///< of the next one

    /// What stands in a file that cannot be renamed, to the byte. notice: that, as a line of a log.
    virtual std::size_t write_notice(core::Buffer to, std::string_view notice) const noexcept;
};

/// What a file that rotates is to keep to while a line is written.
struct FileBounds
{
    std::int64_t bytes; ///< that the file may have; 0: any number
    const FileSeam& seam;
};

/// Appends whole lines to a file that others may read, copy, rename, truncate or delete meanwhile.
///
/// Any thread may write; lines of several threads never mix. A line that could not be written is lost,
/// as its caller does not wait for it, but what follows one that was cut off begins where a line begins. A
/// file that was deleted is made again within a second of further lines.
///
/// With set_rotation, and a line's bounds, a file for which the next line would be too much is renamed first and the
/// line begins a new one; so does the next line after somebody else has renamed the file, half a second later at most.
/// A file that cannot be renamed grows on.
class AppendFile
{
public:
    /// shown: what is open, for who looks without waiting for those who write.
    explicit AppendFile(std::atomic<std::FILE*>& shown) noexcept : m_stream(shown) {}
    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;
    ~AppendFile() { close(); }

    /// Opens or creates path (of system_path), with a text stream over it in mode "a". Each line that is written
    /// meanwhile goes to this file or to the one before. False, with the one before closed, when that fails.
    bool open(const std::wstring& path);

    /// Takes a stream that somebody else opened. It is written to as it is, and closed in the end.
    void adopt(std::FILE* stream) noexcept;

    /// Closes what is open. False when nothing was.
    bool close() noexcept;

    /// Appends text, each newline as "\r\n" as a stream in text mode would, and leaves nothing of it
    /// in a buffer of this process. False for a closed file, which takes nothing.
    bool write(std::string_view text) noexcept;

    /// The same for a line in parts. bounds: null for none.
    bool write(const core::LineParts& line, const FileBounds* bounds = nullptr) noexcept;

    /// Writes lines as they are, with newlines alone, and in one piece however long they are. False when they were not
    /// written, or only in part; never for a stream of somebody else's.
    bool write_as_it_is(std::string_view lines, const FileBounds& bounds) noexcept;

    /// Keeps so many older files from now on; 0: the file is not renamed.
    void set_rotation(int files) noexcept;

    /// True for a file that is renamed when it has its size. Changes at any time.
    bool rotates() const noexcept { return m_rotates.load(std::memory_order_relaxed); }

    /// Size in bytes, a stream's position in the case of somebody else's; seek_end looks for the end
    /// of such a stream first.
    std::int64_t size(bool seek_end) noexcept;

private:
    bool is_own() const noexcept { return !m_path.empty(); }
    void write_adopted(std::string_view text) noexcept;
    bool write_text(std::string_view text, const FileBounds* bounds) noexcept;
    bool write_ready(char* ready, const char* end) noexcept;
    void write_rest(std::string_view text, char* room) noexcept;
    bool write_bytes(const char* bytes, std::size_t count) noexcept;
    void look_after_file() noexcept;
    bool is_deleted() const noexcept;
    bool point_stream_at(const wchar_t* path) noexcept;
    bool take_descriptor(int descriptor) noexcept;
    bool write_mended(char* ready, const char* end) noexcept;
    void write_line(std::string_view text) noexcept;
    std::int64_t measured() const noexcept;
    void begin_file() noexcept;
    void keep_bounds(std::size_t count, const FileBounds& bounds) noexcept;
    void look_at_name(const FileSeam& seam) noexcept;
    void rotate(const FileSeam& seam) noexcept;
    bool go_on_in_new_file(const FileSeam& seam) noexcept;
    void note_failure(DWORD error, bool is_renamed, const FileSeam& seam) noexcept;

    std::atomic<std::FILE*>& m_stream; // changes with the lock held
    HANDLE m_handle = nullptr;         // the stream's, which owns it
    std::wstring m_path;
    OwnerLock m_lock;
    bool m_in_line = false;     // what was written last does not end in a newline
    bool m_line_broken = false; // and the rest of it will not come
    bool m_parked = false;      // the stream writes to nowhere until the file can be made again
    ULONGLONG m_looked_at = 0;

    std::atomic<int> m_older_files{0}; // that are kept
    std::atomic<bool> m_rotates{false};
    std::int64_t m_size = 0;       // at the last measurement, and what this process has written since
    std::int64_t m_begun_size = 0; // with nothing in the file but what says that the log goes on there
    int m_until_measured = 0;      // lines
    ULONGLONG m_name_seen_at = 0;  // when the name was last looked at
    ULONGLONG m_retry_at = 0;      // when renaming may be tried again
    int m_failures = 0;            // in a row
    ULONGLONG m_busy_since = 0;    // when another process was first found to be renaming it; 0: it was not
};
} // namespace kor::win

#endif // KOR_WIN_APPEND_FILE_H
