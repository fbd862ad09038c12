#include "file.h"

#include <vector>

#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr DWORD EVERY_SHARE = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr DWORD KEPT_ATTRIBUTES =
    FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
constexpr ULONGLONG PATIENCE_MS = 3'000; // a host that starts reads the file within milliseconds
constexpr DWORD PAUSE_MS = 10;

bool is_missing(DWORD error) noexcept { return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND; }

[[noreturn]] void fail_to_write(const std::wstring& path, DWORD error)
{
    if (error == ERROR_ACCESS_DENIED)
        throw Failure(
            own_account() + " has no right to write " + shown(utf8(path)) + ".",
            "Nothing was changed. Run LevelSync as an administrator, or ask for the right to write in that folder.");
    throw Failure(
        shown(utf8(path)) + " cannot be written: " + system_text(error) + ".",
        error == ERROR_SHARING_VIOLATION ? "Nothing was changed. Close the program that has it open, and try again."
                                         : "Nothing was changed.");
}

/// Who may do what with the file: copied to the one that takes its place, as far as this account may.
void copy_rights(const std::wstring& from, const std::wstring& to)
{
    DWORD size = 0;
    ::GetFileSecurityW(from.c_str(), DACL_SECURITY_INFORMATION, nullptr, 0, &size);
    std::vector<char> descriptor(size);
    if (size > 0 &&
        ::GetFileSecurityW(from.c_str(), DACL_SECURITY_INFORMATION, descriptor.data(), size, &size) != FALSE)
        ::SetFileSecurityW(to.c_str(), DACL_SECURITY_INFORMATION, descriptor.data());
}

DWORD write_new(const std::wstring& path, std::string_view bytes)
{
    const OwnedHandle file(
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!is_valid(file))
        return ::GetLastError();
    DWORD written = 0;
    if (::WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) == FALSE)
        return ::GetLastError();
    if (written != bytes.size())
        return ERROR_DISK_FULL;
    return ::FlushFileBuffers(file.get()) == FALSE ? ::GetLastError() : ERROR_SUCCESS;
}
} // namespace

std::string own_account()
{
    wchar_t name[257] = {};
    DWORD size = 257;
    return ::GetUserNameW(name, &size) != FALSE ? shown(utf8(name)) : "This account";
}

void require_folder(const std::wstring& path)
{
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
        throw Failure(
            "There is no folder " + shown(utf8(path)) + ".",
            "Name the folder of the level file with --dir FOLDER, or set PRISMATE_LOG_DIR as the servers have it.");
}

std::optional<std::string> read_whole(const std::wstring& path)
{
    const OwnedHandle file(::CreateFileW(
        path.c_str(), GENERIC_READ, EVERY_SHARE, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    DWORD error = is_valid(file) ? ERROR_SUCCESS : ::GetLastError();
    if (is_missing(error))
        return std::nullopt;
    std::string bytes;
    std::vector<char> piece(1 << 16);
    DWORD count = 0;
    while (error == ERROR_SUCCESS)
    {
        if (::ReadFile(file.get(), piece.data(), static_cast<DWORD>(piece.size()), &count, nullptr) == FALSE)
            error = ::GetLastError();
        else if (count == 0)
            return bytes;
        else
            bytes.append(piece.data(), count);
    }
    throw Failure(
        shown(utf8(path)) + " cannot be read: " + system_text(error) + ".",
        error == ERROR_ACCESS_DENIED ? own_account() + " needs the right to read it." : "Nothing was changed.");
}

Replacement::Replacement(const std::wstring& path, std::string_view bytes) : m_path(path), m_beside(path + L".new")
{
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    const bool exists = attributes != INVALID_FILE_ATTRIBUTES;
    if (exists && (attributes & FILE_ATTRIBUTE_READONLY) != 0)
        throw Failure(
            shown(utf8(path)) + " is marked read-only.",
            "Nothing was changed. Somebody did that on purpose; take the mark off if the file is to be changed.");
    const DWORD error = write_new(m_beside, bytes);
    m_is_beside = true;
    if (error != ERROR_SUCCESS)
    {
        ::DeleteFileW(m_beside.c_str());
        fail_to_write(error == ERROR_ACCESS_DENIED ? m_path : m_beside, error);
    }
    if (exists)
    {
        copy_rights(path, m_beside);
        ::SetFileAttributesW(m_beside.c_str(), attributes & KEPT_ATTRIBUTES);
    }
}

Replacement::~Replacement()
{
    if (m_is_beside)
        ::DeleteFileW(m_beside.c_str());
}

void Replacement::put_in_place()
{
    const ULONGLONG end = ::GetTickCount64() + PATIENCE_MS;
    // One step of the file system, unlike ReplaceFile, which can leave nothing under the name when it is interrupted.
    while (::MoveFileExW(m_beside.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) == FALSE)
    {
        const DWORD error = ::GetLastError();
        const bool may_pass = error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
        if (!may_pass || ::GetTickCount64() >= end)
            fail_to_write(m_path, error);
        ::Sleep(PAUSE_MS);
    }
    m_is_beside = false;
}
} // namespace levelsync
