// remove_file.h - a file that disappears while others have it open.

#ifndef KOR_TESTS_REMOVE_FILE_H
#define KOR_TESTS_REMOVE_FILE_H

#include <windows.h>

#include <string>

#include "temp_directory.h"

/// Takes the file's name away at once, as Windows 10 does and as rm does on the system below Wine.
/// Wine's own DeleteFile leaves the name until the last handle is closed, and tells no one.
/// False when the name is still there after ten seconds.
inline bool remove_open_file(const std::string& path)
{
    using UnixName = char*(CDECL*)(const wchar_t*);
    const auto unix_name = reinterpret_cast<UnixName>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA("kernel32.dll"), "wine_get_unix_file_name")));
    if (unix_name == nullptr)
    {
        ::DeleteFileA(path.c_str());
    }
    else
    {
        const std::wstring wide(path.begin(), path.end()); // ASCII
        std::string line = "rm -f \"" + std::string(unix_name(wide.c_str())) + '"';
        STARTUPINFOA startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process{};
        if (!::CreateProcessA(
                "Z:\\bin\\rm", line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
            return false;
        ::CloseHandle(process.hProcess); // there is none to wait for
        ::CloseHandle(process.hThread);
    }
    for (int i = 0; i < 1000 && file_exists(path); ++i)
        ::Sleep(10);
    return !file_exists(path);
}

#endif // KOR_TESTS_REMOVE_FILE_H
