#include "Kor/crash_files.h"

#include <iterator>

#include "win/clock.h"
#include "win/output_file.h"

namespace kor
{
core::LocalTime crash_time() noexcept
{
    const SYSTEMTIME now = win::known_local_time();
    return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

void name_file(
    std::wstring& path, std::wstring_view directory, std::wstring_view type, std::wstring_view program,
    std::wstring_view end)
{
    wchar_t stamp[core::FILE_STAMP_LENGTH];
    core::write_file_stamp(stamp, crash_time());
    path.assign(directory).append(type).append(L"-").append(program).append(stamp, std::size(stamp)).append(end);
}

void append_crash_line(const wchar_t* path, const core::CrashLine& line) noexcept
{
    win::OutputFile file = win::OutputFile::append(path);
    if (!file.is_open())
        return;
    char text[core::CRASH_LINE_SIZE];
    const std::string_view bytes = core::write_crash_line(text, line);
    file.write(bytes.data(), bytes.size());
}
} // namespace kor
