// wide_directory.h - a configuration and log directory of any name and length.

#ifndef KOR_TESTS_WIDE_DIRECTORY_H
#define KOR_TESTS_WIDE_DIRECTORY_H

#include <windows.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "log_directory.h"

/// A new directory below a temporary one, whatever its name, with a `logger` file in it; removed at the end of the
/// scope. What names it to the library is a WideLogFolder.
class WideDirectory
{
public:
    /// names: of the directory and those above it, one below the other.
    explicit WideDirectory(const std::vector<std::wstring>& names, const std::string& logger = TO_FILE)
        : m_path(m_base.path().begin(), m_base.path().end())
    {
        for (const std::wstring& name : names)
        {
            m_path += L'\\' + name;
            ::CreateDirectoryW(verbatim().c_str(), nullptr);
        }
        configure(logger);
    }

    /// The same with one name below the temporary directory, so that the whole path has that many characters.
    explicit WideDirectory(std::size_t length) : WideDirectory(std::vector<std::wstring>{})
    {
        m_path += L'\\' + std::wstring(length - m_path.size() - 1, L'a');
        ::CreateDirectoryW(verbatim().c_str(), nullptr);
        configure(TO_FILE);
    }

    void configure(const std::string& logger) const
    {
        const HANDLE file = ::CreateFileW(
            (verbatim() + L"\\logger").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
            nullptr);
        DWORD count = 0;
        ::WriteFile(file, logger.data(), static_cast<DWORD>(logger.size()), &count, nullptr);
        ::CloseHandle(file);
    }
    WideDirectory(const WideDirectory&) = delete;
    WideDirectory& operator=(const WideDirectory&) = delete;
    ~WideDirectory()
    {
        const std::wstring base(m_base.path().begin(), m_base.path().end());
        remove_contents(L"\\\\?\\" + base);
    }

    const std::wstring& path() const noexcept { return m_path; }

    /// With the prefix for which Windows takes a path as it is, of any length.
    std::wstring verbatim() const { return L"\\\\?\\" + m_path; }

    /// A file's text with "\n" at the ends of lines.
    std::string text(const std::wstring& name) const { return text_of(bytes(verbatim() + L'\\' + name)); }

    /// The names of the files, without `logger`.
    std::vector<std::wstring> names() const
    {
        std::vector<std::wstring> names = contents(verbatim());
        for (auto name = names.begin(); name != names.end();)
            name = *name == L"logger" ? names.erase(name) : name + 1;
        return names;
    }

private:
    static std::string bytes(const std::wstring& path)
    {
        const HANDLE file = ::CreateFileW(
            path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
            0, nullptr);
        std::string result;
        char piece[4096];
        DWORD count = 0;
        while (file != INVALID_HANDLE_VALUE && ::ReadFile(file, piece, sizeof piece, &count, nullptr) && count > 0)
            result.append(piece, count);
        if (file != INVALID_HANDLE_VALUE)
            ::CloseHandle(file);
        return result;
    }

    static std::vector<std::wstring> contents(const std::wstring& directory)
    {
        std::vector<std::wstring> names;
        WIN32_FIND_DATAW found{};
        const HANDLE search = ::FindFirstFileW((directory + L"\\*").c_str(), &found);
        if (search == INVALID_HANDLE_VALUE)
            return names;
        do
            if (std::wstring(found.cFileName) != L"." && std::wstring(found.cFileName) != L"..")
                names.emplace_back(found.cFileName);
        while (::FindNextFileW(search, &found));
        ::FindClose(search);
        return names;
    }

    static void remove_contents(const std::wstring& directory)
    {
        for (const std::wstring& name : contents(directory))
        {
            const std::wstring path = directory + L'\\' + name;
            if (::DeleteFileW(path.c_str()))
                continue;
            remove_contents(path);
            ::RemoveDirectoryW(path.c_str());
        }
    }

    TempDirectory m_base;
    std::wstring m_path;
};

/// PRISMATE_LOG_DIR with a wide value for the length of a scope.
class WideLogFolder
{
public:
    explicit WideLogFolder(const std::wstring& folder) { ::SetEnvironmentVariableW(NAME, folder.c_str()); }
    WideLogFolder(const WideLogFolder&) = delete;
    WideLogFolder& operator=(const WideLogFolder&) = delete;
    ~WideLogFolder() { ::SetEnvironmentVariableW(NAME, nullptr); }

private:
    static constexpr const wchar_t* NAME = L"PRISMATE_LOG_DIR";
};

#endif // KOR_TESTS_WIDE_DIRECTORY_H
