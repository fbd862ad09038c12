#include "Kor/private_file.h"

#include <windows.h>

#include "Kor/diagnostics.h"
#include "core/file_rotation.h"
#include "win/environment.h"
#include "win/path.h"

namespace kor
{
std::wstring private_file_name(const char* name)
{
    std::wstring wide = win::wide_file_name(name);
    if (wide.empty() || is_tool_program() || win::environment("PRISMATE_LOG_FILE_PER_PROCESS") != "1")
        return wide;
    return core::numbered_path(wide, ::GetCurrentProcessId());
}

std::optional<int> configured_file_count()
{
    const std::optional<std::string> text = win::environment("PRISMATE_LOG_FILES");
    int count = 0;
    if (!text)
        return std::nullopt;
    if (core::read_file_count(*text, count))
        return count;
    KOR_WARN(
        "PRISMATE_LOG_FILES=%s is no number from 0 to %d, so it does not count\n", text->c_str(),
        core::MOST_OLDER_FILES);
    return std::nullopt;
}
} // namespace kor
