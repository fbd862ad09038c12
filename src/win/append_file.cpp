#include "win/append_file.h"

#include <fcntl.h>
#include <io.h>

#include <cstring>

#include "win/owned.h"

namespace kor::win
{
namespace
{
constexpr ULONGLONG LOOK_AFTER_MS = 1000; // a look costs about half a line

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
    m_stream = stream;
}

bool AppendFile::close() noexcept
{
    const OwnerLockGuard guard(m_lock);
    std::FILE* const stream = m_stream.exchange(nullptr);
    if (stream != nullptr)
        std::fclose(stream);
    return stream != nullptr;
}

bool AppendFile::write(std::string_view text) noexcept
{
    // The first chunk, which is all of an ordinary line, is ready before anybody has to wait for it.
    char ready[READY_SIZE];
    const std::string_view part = text.substr(0, CHUNK);
    const char* const end = core::append_text_mode(ready + LINE_BREAK.size(), part);

    const OwnerLockGuard guard(m_lock);
    if (m_stream == nullptr)
        return false;
    if (!is_own())
        write_adopted(text);
    else if (write_ready(ready, end))
        write_rest(text.substr(part.size()), ready);
    return true;
}

bool AppendFile::write(const core::LineParts& line) noexcept
{
    if (line.size() > CHUNK)
        return write(core::ComposedLine(line).text());
    // Straight into its final form: each further copy would be a good part of what a line costs.
    char ready[READY_SIZE];
    const char* const end = core::append_text_mode(ready + LINE_BREAK.size(), line);

    const OwnerLockGuard guard(m_lock);
    if (m_stream == nullptr)
        return false;
    if (is_own())
        write_ready(ready, end);
    else
        write_adopted({ready, static_cast<std::size_t>(core::append(ready, line) - ready)});
    return true;
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
    if (descriptor == -1)
        return false;
    const bool done = ::_dup2(descriptor, ::_fileno(m_stream)) == 0;
    ::_close(descriptor);
    m_handle = handle_of(::_fileno(m_stream));
    m_in_line = m_in_line && !done;
    m_line_broken = m_line_broken && !done;
    return done;
}
} // namespace kor::win
