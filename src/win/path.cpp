#include "win/path.h"

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

HANDLE open_file(const wchar_t* path, DWORD access, DWORD sharing, DWORD disposition) noexcept
{
    const auto open = [&](const wchar_t* name)
    { return ::CreateFileW(name, access, sharing, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr); };
    const HANDLE file = open(path);
    if (file != INVALID_HANDLE_VALUE || path == nullptr)
        return file;
    const DWORD error = ::GetLastError();
    try
    {
        const std::wstring other = system_path(path);
        if (core::is_verbatim(other) && other != path)
            return open(other.c_str());
    }
    catch (...) // no memory
    {
    }
    ::SetLastError(error);
    return file;
}

std::wstring wide_file_name(const char* name) { return wide(name, ::AreFileApisANSI() ? CP_ACP : CP_OEMCP); }

std::string path_text(const std::wstring& path) { return narrow_or_utf8(path.c_str()); }
} // namespace kor::win
