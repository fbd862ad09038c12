// path.h - the folder of the library's files, and its files as the system opens them.

#ifndef KOR_WIN_PATH_H
#define KOR_WIN_PATH_H

#include <windows.h>

#include <optional>
#include <string>

namespace kor::win
{
/// The value of PRISMATE_LOG_DIR, nothing when it is not set.
std::optional<std::wstring> configured_folder();

/// A path that somebody gave, as CreateFileW, _wfopen and _wmkdir take it: full, with backslashes, and of any
/// length. It names what the same path names in those calls, as long as they can take that at all. One that begins
/// with \\?\ is kept as it is, but for separators.
std::wstring system_path(const std::wstring& path);

/// CreateFileW for a path of any form and length: where the path cannot be opened as it stands, which takes no memory, it
/// goes through system_path. INVALID_HANDLE_VALUE with the last error set when that does not help.
HANDLE open_file(const wchar_t* path, DWORD access, DWORD sharing, DWORD disposition) noexcept;

/// A file name that a caller gave in the code page of the C runtime's fopen.
std::wstring wide_file_name(const char* name);

/// A path for a message: in the process's code page, or in UTF-8 where that lacks some of its characters.
std::string path_text(const std::wstring& path);
} // namespace kor::win

#endif // KOR_WIN_PATH_H
