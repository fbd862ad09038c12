// append_file.h - the log file: a handle that appends, and the C stream that stands for it.

#ifndef KOR_WIN_APPEND_FILE_H
#define KOR_WIN_APPEND_FILE_H

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "core/message.h"
#include "win/owner_lock.h"

namespace kor::win
{
/// Appends whole lines to a file that others may read, copy, rename, truncate or delete meanwhile.
///
/// Any thread may write; lines of several threads never mix. A line that could not be written is lost,
/// as its caller does not wait for it, but what follows one that was cut off begins where a line begins. A
/// file that was deleted is made again within a second of further lines.
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

    /// The same for a line in parts.
    bool write(const core::LineParts& line) noexcept;

    /// Size in bytes, a stream's position in the case of somebody else's; seek_end looks for the end
    /// of such a stream first.
    std::int64_t size(bool seek_end) noexcept;

private:
    bool is_own() const noexcept { return !m_path.empty(); }
    void write_adopted(std::string_view text) noexcept;
    bool write_ready(char* ready, const char* end) noexcept;
    void write_rest(std::string_view text, char* room) noexcept;
    bool write_bytes(const char* bytes, std::size_t count) noexcept;
    void look_after_file() noexcept;
    bool is_deleted() const noexcept;
    bool point_stream_at(const wchar_t* path) noexcept;

    std::atomic<std::FILE*>& m_stream; // changes with the lock held
    HANDLE m_handle = nullptr;         // the stream's, which owns it
    std::wstring m_path;
    OwnerLock m_lock;
    bool m_in_line = false;     // what was written last does not end in a newline
    bool m_line_broken = false; // and the rest of it will not come
    bool m_parked = false;      // the stream writes to nowhere until the file can be made again
    ULONGLONG m_looked_at = 0;
};
} // namespace kor::win

#endif // KOR_WIN_APPEND_FILE_H
