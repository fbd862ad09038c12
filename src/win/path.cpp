#include "win/path.h"

#include <windows.h>

#include "core/file_path.h"
#include "win/environment.h"
#include "win/text.h"

namespace kor::win
{
namespace
{
/// Empty when the system makes nothing of path.
std::wstring full_path(const std::wstring& path)
{
    std::wstring result(path.size() + MAX_PATH, L'\0');
    for (;;)
    {
        const DWORD length =
            ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(result.size()), result.data(), nullptr);
        const bool fits = length < result.size();
        result.resize(length); // when it does not fit, the length includes the terminator
        if (fits)
            return result;
    }
}
} // namespace

std::optional<std::wstring> configured_folder() { return environment(L"PRISMATE_LOG_DIR"); }

std::wstring system_path(const std::wstring& path)
{
    if (core::is_verbatim(path))
        return core::tidy_verbatim(path);
    std::wstring full = full_path(path);
    return full.empty() ? path : core::lift_length_limit(std::move(full));
}

std::wstring wide_file_name(const char* name) { return wide(name, ::AreFileApisANSI() ? CP_ACP : CP_OEMCP); }

std::string path_text(const std::wstring& path) { return narrow_or_utf8(path.c_str()); }
} // namespace kor::win
