#include "win/output_file.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "win/path.h"

namespace kor::win
{
namespace
{
/// What readers can be in the way of, again and again until it is done or SHORTLY_MS are over.
template <class Step>
bool try_shortly(Step step)
{
    constexpr DWORD PAUSE_MS = 10;
    const ULONGLONG end = ::GetTickCount64() + OutputFile::SHORTLY_MS;
    for (;;)
    {
        if (step())
            return true;
        if (::GetTickCount64() >= end)
            return false;
        ::Sleep(PAUSE_MS); // nothing tells when a reader is done
    }
}
} // namespace

OutputFile OutputFile::create(const wchar_t* path) noexcept
{
    return OutputFile(open_file(path, GENERIC_WRITE, FILE_SHARE_READ, CREATE_ALWAYS));
}

OutputFile OutputFile::append(const wchar_t* path) noexcept
{
    return OutputFile(
        open_file(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, OPEN_ALWAYS));
}

OutputFile OutputFile::create_successor(const wchar_t* path)
{
    // One for each thread of each process: two may be saving at once.
    const std::wstring name = std::wstring(path) + L"." + std::to_wstring(::GetCurrentProcessId()) + L"-" +
                              std::to_wstring(::GetCurrentThreadId());
    OutputFile file(open_file(name.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_READ, CREATE_ALWAYS));
    if (file.is_open())
        file.set_vanishing(true);
    return file;
}

bool OutputFile::set_vanishing(bool vanishing) noexcept
{
    FILE_DISPOSITION_INFO disposition{};
    disposition.DeleteFile = vanishing ? TRUE : FALSE;
    return ::SetFileInformationByHandle(m_file.get(), FileDispositionInfo, &disposition, sizeof disposition) != FALSE;
}

bool OutputFile::write(const void* data, std::size_t size) noexcept
{
    constexpr std::size_t MOST_AT_ONCE = 1 << 20; // of the DWORD that WriteFile takes, far below its end
    auto at = static_cast<const char*>(data);
    while (size > 0)
    {
        const auto piece = static_cast<DWORD>(std::min(size, MOST_AT_ONCE));
        DWORD written = 0;
        if (!::WriteFile(m_file.get(), at, piece, &written, nullptr) || written == 0)
            return false;
        at += written;
        size -= written;
    }
    return true;
}

OutputFile::Replaced OutputFile::replace(const wchar_t* path)
{
    Replaced how = Replaced::Not;
    if (rename(path))
        how = Replaced::ByName;
    else if (copy_over(path))
        how = Replaced::InPlace;
    m_file = OwnedFile();
    return how;
}

bool OutputFile::rename(const wchar_t* path)
{
    const std::wstring name = system_path(path); // one that is not full would be within the file's own directory
    const std::size_t length = name.size() * sizeof(wchar_t);
    const std::size_t size = sizeof(FILE_RENAME_INFO) + length;
    const auto memory = std::make_unique<unsigned char[]>(size);
    auto* const rename = reinterpret_cast<FILE_RENAME_INFO*>(memory.get());
    rename->ReplaceIfExists = TRUE;
    rename->FileNameLength = static_cast<DWORD>(length);
    std::memcpy(rename->FileName, name.data(), length);

    if (!set_vanishing(false)) // a file that is about to go cannot be renamed
        return false;
    if (try_shortly(
            [&] {
                return ::SetFileInformationByHandle(m_file.get(), FileRenameInfo, rename, static_cast<DWORD>(size)) !=
                       FALSE;
            }))
        return true;
    set_vanishing(true);
    return false;
}

/// Two cannot do so at once: the second finds the file in use.
bool OutputFile::copy_over(const wchar_t* path) noexcept
{
    OutputFile old(INVALID_HANDLE_VALUE);
    try_shortly(
        [&]
        {
            old = OutputFile(open_file(path, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, OPEN_ALWAYS));
            return old.is_open() || ::GetLastError() != ERROR_SHARING_VIOLATION;
        });
    LARGE_INTEGER old_size{};
    LARGE_INTEGER size{};
    if (!old.is_open() || !::GetFileSizeEx(old.m_file.get(), &old_size) || !::GetFileSizeEx(m_file.get(), &size))
        return false;
    // All room first: a disk that has no more of it is to fail before anything is lost.
    if (size.QuadPart > old_size.QuadPart && !old.set_size(size.QuadPart))
        return false;
    return copy_to(old) && old.set_size(size.QuadPart);
}

bool OutputFile::copy_to(OutputFile& other) noexcept
{
    constexpr LARGE_INTEGER BEGIN{};
    if (!::SetFilePointerEx(m_file.get(), BEGIN, nullptr, FILE_BEGIN) ||
        !::SetFilePointerEx(other.m_file.get(), BEGIN, nullptr, FILE_BEGIN))
        return false;
    for (;;)
    {
        unsigned char piece[8192];
        DWORD count = 0;
        if (!::ReadFile(m_file.get(), piece, sizeof piece, &count, nullptr))
            return false;
        if (count == 0)
            return true;
        if (!other.write(piece, count))
            return false;
    }
}

bool OutputFile::set_size(LONGLONG size) noexcept
{
    LARGE_INTEGER end{};
    end.QuadPart = size;
    return ::SetFilePointerEx(m_file.get(), end, nullptr, FILE_BEGIN) && ::SetEndOfFile(m_file.get());
}
} // namespace kor::win
