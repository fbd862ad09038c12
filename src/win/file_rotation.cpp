#include "win/file_rotation.h"

#include <cstring>
#include <memory>

namespace kor::win
{
namespace
{
constexpr DWORD EVERY_SHARE = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

OwnedFile open_existing(const wchar_t* path, DWORD access, DWORD sharing) noexcept
{
    return OwnedFile(::CreateFileW(path, access, sharing, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

/// True also when it cannot be told: a name that is taken for another file's would be left for nothing.
bool is_same_file(HANDLE a, HANDLE b) noexcept
{
    BY_HANDLE_FILE_INFORMATION first{};
    BY_HANDLE_FILE_INFORMATION second{};
    if (!::GetFileInformationByHandle(a, &first) || !::GetFileInformationByHandle(b, &second))
        return true;
    return first.dwVolumeSerialNumber == second.dwVolumeSerialNumber && first.nFileIndexHigh == second.nFileIndexHigh &&
           first.nFileIndexLow == second.nFileIndexLow;
}
} // namespace

bool is_name_of(const wchar_t* path, HANDLE open) noexcept
{
    const OwnedFile named = open_existing(path, FILE_READ_ATTRIBUTES, EVERY_SHARE);
    return named ? is_same_file(named.get(), open) : ::GetLastError() != ERROR_FILE_NOT_FOUND;
}

FileRotation::Outcome FileRotation::rename(HANDLE open, bool is_patient)
{
    // Where there is no lock to be had it goes without: each step holds with two at once.
    m_turn.emplace(core::rotation_lock_name(m_path).c_str(), 0);
    if (m_turn->in_use() && is_patient)
        return Outcome::BUSY;
    m_file = open_existing(m_path.c_str(), DELETE | FILE_READ_ATTRIBUTES | SYNCHRONIZE, EVERY_SHARE);
    m_error = m_file ? ERROR_SUCCESS : ::GetLastError();
    if (m_error != ERROR_SUCCESS)
        return m_error == ERROR_FILE_NOT_FOUND ? Outcome::ANOTHER : Outcome::FAILED;
    if (!is_same_file(m_file.get(), open))
        return Outcome::ANOTHER;
    const int number = core::free_a_number(*this, m_kept);
    if (number == 0)
        m_error = ERROR_ALREADY_EXISTS;
    else if (!give_name(core::numbered_path(m_path, static_cast<unsigned long>(number))))
        m_error = ::GetLastError();
    return m_error == ERROR_SUCCESS ? Outcome::RENAMED : Outcome::FAILED;
}

void FileRotation::undo() { give_name(m_path); }

void FileRotation::remove_oldest() { core::remove_oldest(*this, m_kept); }

bool FileRotation::is_free(int number)
{
    const std::wstring path = core::numbered_path(m_path, static_cast<unsigned long>(number));
    return ::GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES && ::GetLastError() == ERROR_FILE_NOT_FOUND;
}

bool FileRotation::move(int from, int to)
{
    const std::wstring path = core::numbered_path(m_path, static_cast<unsigned long>(from));
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return false;
    return ::MoveFileExW(path.c_str(), core::numbered_path(m_path, static_cast<unsigned long>(to)).c_str(), 0) != FALSE;
}

void FileRotation::remove(int number)
{
    const std::wstring path = core::numbered_path(m_path, static_cast<unsigned long>(number));
    // Open like this, nobody can be writing to it or begin to.
    const OwnedFile guard = open_existing(path.c_str(), DELETE | SYNCHRONIZE, FILE_SHARE_READ | FILE_SHARE_DELETE);
    if (guard)
        ::DeleteFileW(path.c_str());
}

/// Only where nothing has it.
bool FileRotation::give_name(const std::wstring& path)
{
    const std::size_t length = path.size() * sizeof(wchar_t);
    const std::size_t size = sizeof(FILE_RENAME_INFO) + length;
    const auto memory = std::make_unique<unsigned char[]>(size);
    auto* const rename = reinterpret_cast<FILE_RENAME_INFO*>(memory.get());
    rename->ReplaceIfExists = FALSE;
    rename->FileNameLength = static_cast<DWORD>(length);
    std::memcpy(rename->FileName, path.data(), length);
    return ::SetFileInformationByHandle(m_file.get(), FileRenameInfo, rename, static_cast<DWORD>(size)) != FALSE;
}
} // namespace kor::win
