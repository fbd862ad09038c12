// crash_files.h - the files that crashes and sessions leave: their names, and the line of a crash.

#ifndef KOR_CRASH_FILES_H
#define KOR_CRASH_FILES_H

#include <string>
#include <string_view>

#include "core/crash_texts.h"

namespace kor
{
constexpr wchar_t CRASH_LOG_NAME[] = L"crashes.log";

/// The time now. Asks for no zone, which a crash may have left locked.
core::LocalTime crash_time() noexcept;

/// Makes a path of the directory, which ends with a backslash, the type, the program, the present time, and the end of the
/// name. Takes no memory where path has room for it.
void name_file(
    std::wstring& path, std::wstring_view directory, std::wstring_view type, std::wstring_view program,
    std::wstring_view end);

/// Appends to the log of all crashes. Silent where that fails. Takes no memory.
void append_crash_line(const wchar_t* path, const core::CrashLine& line) noexcept;
} // namespace kor

#endif // KOR_CRASH_FILES_H
