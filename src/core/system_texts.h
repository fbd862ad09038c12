// system_texts.h - names for what Windows tells by number: the system itself, exceptions, drives.

#ifndef KOR_CORE_SYSTEM_TEXTS_H
#define KOR_CORE_SYSTEM_TEXTS_H

#include <cstdint>
#include <string>
#include <string_view>

namespace kor::core
{
/// What names a Windows. Numbers are those of the system's own interfaces.
struct SystemVersion
{
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t platform = 0;     ///< dwPlatformId
    std::uint32_t product_type = 0; ///< wProductType
    std::uint32_t suite_mask = 0;   ///< wSuiteMask
    std::uint32_t architecture = 0; ///< wProcessorArchitecture
    std::uint32_t edition = 0;      ///< of GetProductInfo; counts for 6.0 only
    bool second_release = false;    ///< GetSystemMetrics(SM_SERVERR2) is not 0; counts for 5.2 only
    std::wstring service_pack;      ///< szCSDVersion
};

/// The name of the product, such as "Microsoft Windows 7  Service Pack 1". Empty for what is no Windows NT 5 or later.
/// Of 6.1 and later the edition and the word size are left out; of 10 and later all but the maker's name.
std::wstring product_name(const SystemVersion& version);

/// "EXCEPTION_UNKNOWN" where there is none.
const wchar_t* exception_name(std::uint32_t code) noexcept;

/// type: what GetDriveType returns.
const wchar_t* drive_type_name(std::uint32_t type) noexcept;
/// What files are named after: the file name of a program without its directory, up to its first dot.
std::wstring_view program_name(std::wstring_view path) noexcept;
} // namespace kor::core

#endif // KOR_CORE_SYSTEM_TEXTS_H
