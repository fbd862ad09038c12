#include "win/append_file.h"

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "core/file_rotation.h"
#include "core/size_limit.h"
#include "win/file_rotation.h"
#include "win/owned.h"
#include "win/path.h"
#include "win/process_end.h"

namespace kor::win
{
namespace
{
constexpr ULONGLONG LOOK_AFTER_MS = 1000; // a look costs about half a line

constexpr ULONGLONG LOOK_AT_NAME_MS = 500;
constexpr ULONGLONG RETRY_MS = 1000;
constexpr ULONGLONG BUSY_MS = 10; // more than another process takes to rename a file
constexpr ULONGLONG LONGEST_BUSY_MS = 5000;
constexpr int FAILURE_TOLD = 2; // what only a second try shows is worth a line; scanners and backups pass
constexpr std::int64_t SEAM_ROOM = 256;
constexpr std::size_t SEAM_LINE_SIZE = 1024;

// Characters translated and written at once: an ordinary line with its headline in one piece.
constexpr std::size_t CHUNK = core::LINE_SIZE;

constexpr std::string_view LINE_BREAK = "\r\n";
constexpr std::size_t READY_SIZE = LINE_BREAK.size() + 2 * CHUNK;

/// A C file descriptor over path for appending, -1 when that fails. Shared in every way, so that
/// tools can rotate and delete what a server has open for weeks.
int open_descriptor(const wchar_t* path) noexcept
{
    OwnedFile file(::CreateFileW(
        path, FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return -1;
    const int descriptor = ::_open_osfhandle(reinterpret_cast<intptr_t>(file.get()), _O_APPEND | _O_TEXT);
    if (descriptor != -1)
        static_cast<void>(file.release()); // the descriptor's now
    return descriptor;
}

std::FILE* open_stream(const wchar_t* path) noexcept
{
    const int descriptor = open_descriptor(path);
    std::FILE* const stream = descriptor == -1 ? nullptr : ::_fdopen(descriptor, "at");
    if (descriptor != -1 && stream == nullptr)
        ::_close(descriptor);
    return stream;
}

HANDLE handle_of(int descriptor) noexcept { return reinterpret_cast<HANDLE>(::_get_osfhandle(descriptor)); }
} // namespace

std::size_t FileSeam::write_notice(core::Buffer to, std::string_view notice) const noexcept
{
    return static_cast<std::size_t>(core::append_text_mode(to.data, notice.substr(0, to.size / 2)) - to.data);
}

bool AppendFile::open(const std::wstring& path)
{
    std::wstring kept(path); // before there is anything that a lack of memory could leave open
    std::FILE* stream = open_stream(path.c_str());
    // What is open may be what stands in the way: a stream that shares with nobody, a file that is to be deleted.
    if (stream == nullptr && close())
        stream = open_stream(path.c_str());
    if (stream == nullptr)
        return false;
    std::FILE* before;
    {
        const OwnerLockGuard guard(m_lock);
        m_path.swap(kept);
        m_handle = handle_of(::_fileno(stream));
        m_in_line = false;
        m_line_broken = false;
        m_parked = false;
        m_looked_at = ::GetTickCount64();
        m_rotates = m_older_files > 0;
        if (m_rotates)
            begin_file();
        before = m_stream.exchange(stream);
    }
    if (before != nullptr)
        std::fclose(before);
    return true;
}

void AppendFile::adopt(std::FILE* stream) noexcept
{
    close();
    const OwnerLockGuard guard(m_lock);
    m_path.clear();
    m_rotates = false; // nobody knows its name
    m_stream = stream;
}

void AppendFile::set_rotation(int files) noexcept
{
    const OwnerLockGuard guard(m_lock);
    m_older_files = std::clamp(files, 0, core::MOST_OLDER_FILES);
    const bool rotated = m_rotates.exchange(m_older_files > 0 && m_stream != nullptr && is_own());
    if (m_rotates && !rotated)
        begin_file();
}

bool AppendFile::close() noexcept
{
    const OwnerLockGuard guard(m_lock);
    std::FILE* const stream = m_stream.exchange(nullptr);
    if (stream != nullptr)
        std::fclose(stream);
    return stream != nullptr;
}

bool AppendFile::write(std::string_view text) noexcept { return write_text(text, nullptr); }

bool AppendFile::write_text(std::string_view text, const FileBounds* bounds) noexcept
{
    // The first chunk, which is all of an ordinary line, is ready before anybody has to wait for it.
    char ready[READY_SIZE];
    const std::string_view part = text.substr(0, CHUNK);
    const char* const end = core::append_text_mode(ready + LINE_BREAK.size(), part);

    const OwnerLockGuard guard(m_lock);
    if (m_stream == nullptr)
        return false;
    if (!is_own())
    {
        write_adopted(text);
        return true;
    }
    if (bounds != nullptr)
        keep_bounds(text.size(), *bounds);
    if (write_ready(ready, end))
        write_rest(text.substr(part.size()), ready);
    return true;
}

bool AppendFile::write(const core::LineParts& line, const FileBounds* bounds) noexcept
{
    if (line.size() > CHUNK)
        return write_text(core::ComposedLine(line).text(), bounds);
    // Straight into its final form: each further copy would be a good part of what a line costs.
    char ready[READY_SIZE];
    const char* const end = core::append_text_mode(ready + LINE_BREAK.size(), line);

    const OwnerLockGuard guard(m_lock);
    if (m_stream == nullptr)
        return false;
    if (!is_own())
    {
        write_adopted({ready, static_cast<std::size_t>(core::append(ready, line) - ready)});
        return true;
    }
    if (bounds != nullptr)
        keep_bounds(static_cast<std::size_t>(end - ready), *bounds);
    write_ready(ready, end);
    return true;
}

bool AppendFile::write_as_it_is(std::string_view lines, const FileBounds& bounds) noexcept
{
    const OwnerLockGuard guard(m_lock);
    if (m_stream == nullptr || !is_own())
        return false;
    keep_bounds(lines.size(), bounds);
    look_after_file();
    if (m_line_broken && !write_bytes("\n", 1))
        return false;
    return write_bytes(lines.data(), lines.size());
}

void AppendFile::write_adopted(std::string_view text) noexcept
{
    std::fwrite(text.data(), 1, text.size(), m_stream);
    std::fflush(m_stream);
}

/// Writes what stands in front of end, behind the room that is left for a line break at the beginning.
bool AppendFile::write_ready(char* ready, const char* end) noexcept
{
    look_after_file();
    return write_mended(ready, end);
}

bool AppendFile::write_mended(char* ready, const char* end) noexcept
{
    char* from = ready + LINE_BREAK.size();
    if (m_line_broken)
    {
        from = ready;
        std::memcpy(from, LINE_BREAK.data(), LINE_BREAK.size());
    }
    return write_bytes(from, static_cast<std::size_t>(end - from));
}

/// Writes what is left of a long line, with the room of its first chunk.
void AppendFile::write_rest(std::string_view text, char* room) noexcept
{
    while (!text.empty())
    {
        const std::string_view part = text.substr(0, CHUNK);
        const char* const end = core::append_text_mode(room, part);
        if (!write_bytes(room, static_cast<std::size_t>(end - room)))
            return;
        text.remove_prefix(part.size());
    }
}

/// Notes whether a line was cut off.
bool AppendFile::write_bytes(const char* bytes, std::size_t count) noexcept
{
    DWORD written = 0;
    const bool done = ::WriteFile(m_handle, bytes, static_cast<DWORD>(count), &written, nullptr) != FALSE;
    if (written != 0)
        m_in_line = bytes[written - 1] != '\n';
    m_size += written;
    const bool whole = done && written == count;
    m_line_broken = !whole && m_in_line;
    return whole;
}

std::int64_t AppendFile::size(bool seek_end) noexcept
{
    const OwnerLockGuard guard(m_lock);
    if (m_stream == nullptr)
        return 0;
    if (!is_own())
    {
        if (seek_end)
            std::fseek(m_stream, 0, SEEK_END);
        return ::_ftelli64(m_stream); // ftell stops at 2 GB
    }
    return measured();
}

std::int64_t AppendFile::measured() const noexcept
{
    LARGE_INTEGER bytes{};
    return ::GetFileSizeEx(m_handle, &bytes) != FALSE ? bytes.QuadPart : 0;
}

void AppendFile::look_after_file() noexcept
{
    const ULONGLONG now = ::GetTickCount64();
    if (now - m_looked_at < LOOK_AFTER_MS)
        return;
    m_looked_at = now;
    if (!m_parked && !is_deleted())
        return;
    // A deleted file may keep its name until the last handle to it is gone. So if the name cannot be
    // had at once, let go of the old file first.
    m_parked = !point_stream_at(m_path.c_str()) && !(point_stream_at(L"NUL") && point_stream_at(m_path.c_str()));
}

bool AppendFile::is_deleted() const noexcept
{
    FILE_STANDARD_INFO info{};
    return ::GetFileInformationByHandleEx(m_handle, FileStandardInfo, &info, sizeof info) != FALSE &&
           (info.DeletePending != FALSE || info.NumberOfLinks == 0);
}

bool AppendFile::point_stream_at(const wchar_t* path) noexcept
{
    const int descriptor = open_descriptor(path);
    return descriptor != -1 && take_descriptor(descriptor);
}

/// For the stream's, in place of what that had.
bool AppendFile::take_descriptor(int descriptor) noexcept
{
    const bool done = ::_dup2(descriptor, ::_fileno(m_stream)) == 0;
    ::_close(descriptor);
    m_handle = handle_of(::_fileno(m_stream));
    m_in_line = m_in_line && !done;
    m_line_broken = m_line_broken && !done;
    return done;
}

// Rotation ----------------------------------------------------------------------------------------------
/// Finds out what there is of a file that lines are to be added to.
void AppendFile::begin_file() noexcept
{
    m_size = measured();
    m_begun_size = 0;
    m_until_measured = core::SIZE_COUNTDOWN_BELOW_LIMIT;
    m_name_seen_at = ::GetTickCount64();
    m_retry_at = 0;
    m_failures = 0;
    m_busy_since = 0;
    // A process that was killed in the middle of a line has left it so.
    const OwnedFile reader(
        open_file(m_path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_EXISTING));
    constexpr LARGE_INTEGER LAST_BYTE{{static_cast<DWORD>(-1), -1}};
    char last = '\n';
    DWORD count = 0;
    if (reader && m_size > 0 && ::SetFilePointerEx(reader.get(), LAST_BYTE, nullptr, FILE_END) != FALSE &&
        ::ReadFile(reader.get(), &last, 1, &count, nullptr) != FALSE && count == 1)
        m_in_line = m_line_broken = last != '\n';
}

/// Before a line of count bytes.
void AppendFile::keep_bounds(std::size_t count, const FileBounds& bounds) noexcept
{
    if (!m_rotates || m_parked || process_is_ending())
        return;
    const ULONGLONG now = ::GetTickCount64();
    if (now - m_name_seen_at >= LOOK_AT_NAME_MS)
    {
        m_name_seen_at = now;
        look_at_name(bounds.seam);
    }
    if (m_until_measured-- == 0) // others may write to the file too
    {
        m_until_measured = core::SIZE_COUNTDOWN_BELOW_LIMIT;
        m_size = measured();
    }
    const std::int64_t most = bounds.bytes - SEAM_ROOM - static_cast<std::int64_t>(count);
    if (bounds.bytes <= 0 || m_size <= std::max(most, m_begun_size) || now < m_retry_at)
        return;
    m_size = measured(); // it may have been cleared
    if (m_size > std::max(most, m_begun_size))
        rotate(bounds.seam);
}

void AppendFile::look_at_name(const FileSeam& seam) noexcept
{
    if (m_retry_at <= m_name_seen_at && !is_name_of(m_path.c_str(), m_handle) && !go_on_in_new_file(seam))
        note_failure(::GetLastError(), true, seam);
}

void AppendFile::rotate(const FileSeam& seam) noexcept
{
    DWORD error = ERROR_NOT_ENOUGH_MEMORY;
    bool is_renamed = false;
    try
    {
        FileRotation rotation(m_path, m_older_files);
        const ULONGLONG now = ::GetTickCount64();
        switch (rotation.rename(m_handle, m_busy_since == 0 || now - m_busy_since < LONGEST_BUSY_MS))
        {
        case FileRotation::Outcome::BUSY:
            m_busy_since = m_busy_since == 0 ? now : m_busy_since;
            m_retry_at = now + BUSY_MS;
            return;
        case FileRotation::Outcome::FAILED:
            error = rotation.error();
            break;
        case FileRotation::Outcome::ANOTHER:
            if (go_on_in_new_file(seam))
                return;
            error = ::GetLastError();
            is_renamed = true;
            break;
        case FileRotation::Outcome::RENAMED:
            if (go_on_in_new_file(seam))
                return rotation.remove_oldest();
            error = ::GetLastError();
            is_renamed = true;
            rotation.undo();
            break;
        }
    }
    catch (const std::bad_alloc&)
    {
    }
    note_failure(error, is_renamed, seam);
}

/// Opens or makes what the name stands for now. False, with the file before still open, when that fails.
bool AppendFile::go_on_in_new_file(const FileSeam& seam) noexcept
{
    const int descriptor = open_descriptor(m_path.c_str());
    if (descriptor == -1)
        return false;
    char line[SEAM_LINE_SIZE];
    write_line({line, seam.write_end({line, sizeof line})});
    const bool done = take_descriptor(descriptor);
    if (done)
    {
        begin_file();
        write_line({line, seam.write_begin({line, sizeof line})});
        m_begun_size = m_size;
    }
    return done;
}

void AppendFile::write_line(std::string_view text) noexcept
{
    char ready[LINE_BREAK.size() + 2 * SEAM_LINE_SIZE];
    const char* const end = core::append_text_mode(ready + LINE_BREAK.size(), text);
    if (!text.empty())
        write_mended(ready, end);
}

/// The file itself tells of it, as that is what its readers look at.
void AppendFile::note_failure(DWORD error, bool is_renamed, const FileSeam& seam) noexcept
{
    m_retry_at = ::GetTickCount64() + RETRY_MS;
    if (++m_failures != FAILURE_TOLD)
        return;
    try
    {
        const std::string name = path_text(m_path.substr(m_path.find_last_of(L"\\/") + 1));
        char line[SEAM_LINE_SIZE];
        core::BoundedText text(line, sizeof line);
        (is_renamed ? core::write_reopen_notice : core::write_rename_notice)(text, name, error);
        const int length = text.finish();
        const std::string_view notice(line, length < 0 ? sizeof line - 1 : static_cast<std::size_t>(length));
        char ready[LINE_BREAK.size() + 2 * SEAM_LINE_SIZE];
        char* const told = ready + LINE_BREAK.size();
        const std::size_t size = seam.write_notice({told, 2 * SEAM_LINE_SIZE}, notice);
        if (size != 0)
            write_mended(ready, told + size);
    }
    catch (const std::bad_alloc&)
    {
    }
}
} // namespace kor::win
