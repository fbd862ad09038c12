// temp_directory.h - a fresh directory for one test, and whole files as strings.

#ifndef KOR_TESTS_TEMP_DIRECTORY_H
#define KOR_TESTS_TEMP_DIRECTORY_H

#include <windows.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "named_event.h"

/// An empty directory, removed with everything in it at the end of the scope. Its path is ASCII.
class TempDirectory
{
public:
    TempDirectory()
    {
        char base[MAX_PATH + 1] = {};
        ::GetTempPathA(sizeof base, base);
        m_path = base + unique_name("kor-test");
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored); // of an earlier process with the same id
        std::filesystem::create_directories(m_path);
    }
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;
    ~TempDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    const std::string& path() const noexcept { return m_path; }

    /// The path of a file in the directory.
    std::string file(const std::string& name) const { return m_path + '\\' + name; }

private:
    std::string m_path;
};

/// The exact bytes of a file, also while others have it open; empty when it cannot be read.
inline std::string read_file(const std::string& path)
{
    const HANDLE file = ::CreateFileA(
        path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0,
        nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return {};
    std::string result;
    char piece[16384];
    DWORD count = 0;
    while (::ReadFile(file, piece, sizeof piece, &count, nullptr) && count > 0)
        result.append(piece, count);
    ::CloseHandle(file);
    return result;
}

/// Makes a file of exactly these bytes, in place of what was there; false when that failed.
inline bool write_file(const std::string& path, const std::string& bytes)
{
    const HANDLE file = ::CreateFileA(
        path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, CREATE_ALWAYS, 0,
        nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    DWORD count = 0;
    const bool written =
        ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) && count == bytes.size();
    ::CloseHandle(file);
    return written;
}

inline bool file_exists(const std::string& path)
{
    return ::GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

#endif // KOR_TESTS_TEMP_DIRECTORY_H
