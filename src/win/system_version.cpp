#include "win/system_version.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "win/library.h"
#include "win/text.h"

namespace kor::win
{
namespace
{
std::uint32_t processor_architecture() noexcept
{
    SYSTEM_INFO info{};
    const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
    if (auto* const get_native_info = find_function<void WINAPI(SYSTEM_INFO*)>(kernel, "GetNativeSystemInfo"))
        get_native_info(&info);
    else
        ::GetSystemInfo(&info);
    return info.wProcessorArchitecture;
}

std::uint32_t edition_of(DWORD major, DWORD minor) noexcept
{
    const HMODULE kernel = ::GetModuleHandleW(L"kernel32.dll");
    auto* const get_product_info =
        find_function<BOOL WINAPI(DWORD, DWORD, DWORD, DWORD, DWORD*)>(kernel, "GetProductInfo");
    DWORD edition = 0;
    if (get_product_info == nullptr || !get_product_info(major, minor, 0, 0, &edition))
        return 0;
    return edition;
}

bool is_second_release() noexcept
{
    const OwnedLibrary user = load_system_library(L"user32.dll");
    auto* const get_metrics = find_function<int WINAPI(int)>(user.get(), "GetSystemMetrics");
    return get_metrics != nullptr && get_metrics(SM_SERVERR2) != 0;
}
} // namespace

std::optional<OSVERSIONINFOEXA> system_version() noexcept
{
    OSVERSIONINFOEXA version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (!::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&version)))
        return std::nullopt;
    return version;
}

std::wstring service_pack_of(const OSVERSIONINFOEXA& version)
{
    const char* const begin = std::begin(version.szCSDVersion);
    return wide_for_thread(std::string(begin, std::find(begin, std::end(version.szCSDVersion), '\0')).c_str());
}

core::SystemVersion describe(const OSVERSIONINFOEXA& version)
{
    core::SystemVersion result;
    result.major = version.dwMajorVersion;
    result.minor = version.dwMinorVersion;
    result.platform = version.dwPlatformId;
    result.product_type = version.wProductType;
    result.suite_mask = version.wSuiteMask;
    result.architecture = processor_architecture();
    if (result.major == 6 && result.minor == 0)
        result.edition = edition_of(result.major, result.minor);
    if (result.major == 5 && result.minor == 2) // for no other is user32 loaded
        result.second_release = is_second_release();
    result.service_pack = service_pack_of(version);
    return result;
}
} // namespace kor::win
