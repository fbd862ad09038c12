#include "core/system_texts.h"

#include <iterator>

namespace kor::core
{
namespace
{
// Of winnt.h.
constexpr std::uint32_t PLATFORM_NT = 2;
constexpr std::uint32_t PRODUCT_WORKSTATION = 1;
constexpr std::uint32_t ARCHITECTURE_X86 = 0;
constexpr std::uint32_t ARCHITECTURE_IA64 = 6;
constexpr std::uint32_t ARCHITECTURE_AMD64 = 9;
constexpr std::uint32_t SUITE_ENTERPRISE = 0x2;
constexpr std::uint32_t SUITE_DATACENTER = 0x80;
constexpr std::uint32_t SUITE_PERSONAL = 0x200;
constexpr std::uint32_t SUITE_BLADE = 0x400;
constexpr std::uint32_t SUITE_COMPUTE_SERVER = 0x4000;

struct NumberedText
{
    std::uint32_t number;
    const wchar_t* text;
};

template <std::size_t N>
const wchar_t* find_text(const NumberedText (&table)[N], std::uint32_t number, const wchar_t* otherwise) noexcept
{
    for (const NumberedText& entry : table)
        if (entry.number == number)
            return entry.text;
    return otherwise;
}

// By the numbers of GetProductInfo.
constexpr NumberedText EDITIONS[] = {
    {1, L"Ultimate Edition"},
    {2, L"Home Basic Edition"},
    {3, L"Home Premium Edition"},
    {4, L"Enterprise Edition"},
    {6, L"Business Edition"},
    {7, L"Standard Edition"},
    {8, L"Datacenter Edition"},
    {9, L"Small Business Server"},
    {10, L"Enterprise Edition"},
    {11, L"Starter Edition"},
    {12, L"Datacenter Edition (core installation)"},
    {13, L"Standard Edition (core installation)"},
    {14, L"Enterprise Edition (core installation)"},
    {15, L"Enterprise Edition for Itanium-based Systems"},
    {17, L"Web Server Edition"},
    {18, L"Cluster Server Edition"},
    {25, L"Small Business Server Premium Edition"},
};

// By the codes of winnt.h; the last is what a C++ exception of the Microsoft compiler carries.
constexpr NumberedText EXCEPTIONS[] = {
    {0xC0000005, L"EXCEPTION_ACCESS_VIOLATION"},
    {0x80000001, L"EXCEPTION_GUARD_PAGE"},
    {0x80000002, L"EXCEPTION_DATATYPE_MISALIGNMENT"},
    {0x80000003, L"EXCEPTION_BREAKPOINT"},
    {0x80000004, L"EXCEPTION_SINGLE_STEP"},
    {0xC0000006, L"EXCEPTION_IN_PAGE_ERROR"},
    {0xC0000008, L"EXCEPTION_INVALID_HANDLE"},
    {0xC000001D, L"EXCEPTION_ILLEGAL_INSTRUCTION"},
    {0xC0000025, L"EXCEPTION_NONCONTINUABLE_EXCEPTION"},
    {0xC0000026, L"EXCEPTION_INVALID_DISPOSITION"},
    {0xC000008C, L"EXCEPTION_ARRAY_BOUNDS_EXCEEDED"},
    {0xC000008D, L"EXCEPTION_FLT_DENORMAL_OPERAND"},
    {0xC000008E, L"EXCEPTION_FLT_DIVIDE_BY_ZERO"},
    {0xC000008F, L"EXCEPTION_FLT_INEXACT_RESULT"},
    {0xC0000090, L"EXCEPTION_FLT_INVALID_OPERATION"},
    {0xC0000091, L"EXCEPTION_FLT_OVERFLOW"},
    {0xC0000092, L"EXCEPTION_FLT_STACK_CHECK"},
    {0xC0000093, L"EXCEPTION_FLT_UNDERFLOW"},
    {0xC0000094, L"EXCEPTION_INT_DIVIDE_BY_ZERO"},
    {0xC0000095, L"EXCEPTION_INT_OVERFLOW"},
    {0xC0000096, L"EXCEPTION_PRIV_INSTRUCTION"},
    {0xC00000FD, L"EXCEPTION_STACK_OVERFLOW"},
    {0xE06D7363, L"(C++ thrown() exception)"},
};

bool is_workstation(const SystemVersion& version) noexcept { return version.product_type == PRODUCT_WORKSTATION; }
bool has_suite(const SystemVersion& version, std::uint32_t suite) noexcept { return (version.suite_mask & suite) != 0; }

std::wstring edition_of_6_0(const SystemVersion& version)
{
    std::wstring name = find_text(EDITIONS, version.edition, L"");
    if (version.architecture == ARCHITECTURE_AMD64)
        name += L", 64-bit";
    else if (version.architecture == ARCHITECTURE_X86)
        name += L", 32-bit";
    return name;
}

std::wstring name_of_6(const SystemVersion& version)
{
    const bool workstation = is_workstation(version);
    switch (version.minor)
    {
    case 3:
        return workstation ? L"Windows 8.1 " : L"Windows Server 2012 R2 ";
    case 2:
        return workstation ? L"Windows 8 " : L"Windows Server 2012 ";
    case 1:
        return workstation ? L"Windows 7 " : L"Windows Server 2008 R2 ";
    case 0:
        return (workstation ? L"Windows Vista " : L"Windows Server 2008 ") + edition_of_6_0(version);
    default:
        return {};
    }
}

const wchar_t* server_edition_of_5_2(const SystemVersion& version) noexcept
{
    const bool datacenter = has_suite(version, SUITE_DATACENTER);
    const bool enterprise = has_suite(version, SUITE_ENTERPRISE);
    switch (version.architecture)
    {
    case ARCHITECTURE_IA64:
        if (datacenter)
            return L"Datacenter Edition for Itanium-based Systems";
        return enterprise ? L"Enterprise Edition for Itanium-based Systems" : L"";
    case ARCHITECTURE_AMD64:
        if (datacenter)
            return L"Datacenter x64 Edition";
        return enterprise ? L"Enterprise x64 Edition" : L"Standard x64 Edition";
    default:
        break;
    }
    if (has_suite(version, SUITE_COMPUTE_SERVER))
        return L"Compute Cluster Edition";
    if (datacenter)
        return L"Datacenter Edition";
    if (enterprise)
        return L"Enterprise Edition";
    return has_suite(version, SUITE_BLADE) ? L"Web Edition" : L"Standard Edition";
}

std::wstring name_of_5_2(const SystemVersion& version)
{
    std::wstring name;
    if (version.second_release)
        name = L"Windows Server 2003 R2, ";
    else if (is_workstation(version) && version.architecture == ARCHITECTURE_AMD64)
        name = L"Windows XP Professional x64 Edition";
    else
        name = L"Windows Server 2003, ";
    return is_workstation(version) ? name : name + server_edition_of_5_2(version);
}

std::wstring name_of_5_0(const SystemVersion& version)
{
    const std::wstring name = L"Windows 2000 ";
    if (is_workstation(version))
        return name + L"Professional";
    if (has_suite(version, SUITE_DATACENTER))
        return name + L"Datacenter Server";
    return name + (has_suite(version, SUITE_ENTERPRISE) ? L"Advanced Server" : L"Server");
}

std::wstring name_of_5(const SystemVersion& version)
{
    switch (version.minor)
    {
    case 2:
        return name_of_5_2(version);
    case 1:
        return has_suite(version, SUITE_PERSONAL) ? L"Windows XP Home Edition" : L"Windows XP Professional";
    case 0:
        return name_of_5_0(version);
    default:
        return {};
    }
}
} // namespace

std::wstring product_name(const SystemVersion& version)
{
    if (version.platform != PLATFORM_NT || version.major < 5)
        return {};
    std::wstring name = L"Microsoft ";
    if (version.major == 6)
        name += name_of_6(version);
    else if (version.major == 5)
        name += name_of_5(version);
    if (!version.service_pack.empty())
        name += L" " + version.service_pack;
    return name;
}

const wchar_t* exception_name(std::uint32_t code) noexcept { return find_text(EXCEPTIONS, code, L"EXCEPTION_UNKNOWN"); }

const wchar_t* drive_type_name(std::uint32_t type) noexcept
{
    constexpr const wchar_t* NAMES[] = {L"unknown",         L"No-root-dir", L"Removable", L"fixed",
                                        L"Remote(network)", L"CD/DVD",      L"RAMDisk"};
    return type < std::size(NAMES) ? NAMES[type] : L"not-supported";
}

std::wstring_view program_name(std::wstring_view path) noexcept
{
    path.remove_prefix(path.rfind(L'\\') + 1); // nothing when there is no directory
    return path.substr(0, path.find(L'.'));
}
} // namespace kor::core
