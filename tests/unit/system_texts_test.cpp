#include "core/system_texts.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "core/session_text.h"

using kor::core::drive_type_name;
using kor::core::exception_name;
using kor::core::product_name;
using kor::core::program_name;
using kor::core::size_text;
using kor::core::SystemVersion;

namespace
{
constexpr std::uint32_t NT = 2;
constexpr std::uint32_t WORKSTATION = 1;
constexpr std::uint32_t DOMAIN_CONTROLLER = 2;
constexpr std::uint32_t SERVER = 3;
constexpr std::uint32_t X86 = 0;
constexpr std::uint32_t IA64 = 6;
constexpr std::uint32_t AMD64 = 9;
constexpr std::uint32_t ARM64 = 12;

// Suites.
constexpr std::uint32_t ENTERPRISE = 0x2;
constexpr std::uint32_t DATACENTER = 0x80;
constexpr std::uint32_t PERSONAL = 0x200;
constexpr std::uint32_t BLADE = 0x400;
constexpr std::uint32_t COMPUTE = 0x4000;

SystemVersion make_version(std::uint32_t major, std::uint32_t minor, std::uint32_t product_type)
{
    SystemVersion version;
    version.platform = NT;
    version.major = major;
    version.minor = minor;
    version.product_type = product_type;
    version.architecture = AMD64;
    return version;
}

// Version 6 and later ---------------------------------------------------------------------------------
TEST(ProductName, OfVersionSixFollowsFromTheMinorVersionAndTheProductType)
{
    struct Row
    {
        std::uint32_t minor, product_type;
        const wchar_t* name;
    };
    const Row rows[] = {
        {3, WORKSTATION, L"Microsoft Windows 8.1 "},
        {3, SERVER, L"Microsoft Windows Server 2012 R2 "},
        {3, DOMAIN_CONTROLLER, L"Microsoft Windows Server 2012 R2 "},
        {2, WORKSTATION, L"Microsoft Windows 8 "},
        {2, SERVER, L"Microsoft Windows Server 2012 "},
        {2, DOMAIN_CONTROLLER, L"Microsoft Windows Server 2012 "},
        {1, WORKSTATION, L"Microsoft Windows 7 "},
        {1, SERVER, L"Microsoft Windows Server 2008 R2 "},
        {1, DOMAIN_CONTROLLER, L"Microsoft Windows Server 2008 R2 "},
        {0, WORKSTATION, L"Microsoft Windows Vista , 64-bit"},
        {0, SERVER, L"Microsoft Windows Server 2008 , 64-bit"},
        {0, DOMAIN_CONTROLLER, L"Microsoft Windows Server 2008 , 64-bit"},
        {4, WORKSTATION, L"Microsoft "},
        {4, SERVER, L"Microsoft "},
    };
    for (const Row& row : rows)
        EXPECT_EQ(product_name(make_version(6, row.minor, row.product_type)), row.name) << row.minor;
}

TEST(ProductName, HasTheServicePackBehindASpaceOfItsOwn)
{
    struct Row
    {
        std::uint32_t major, minor;
        const wchar_t* name;
    };
    const Row rows[] = {
        {6, 3, L"Microsoft Windows 8.1  Service Pack 1"},
        {6, 2, L"Microsoft Windows 8  Service Pack 1"},
        {6, 1, L"Microsoft Windows 7  Service Pack 1"},
        {6, 0, L"Microsoft Windows Vista , 64-bit Service Pack 1"},
        {6, 9, L"Microsoft  Service Pack 1"},
        {10, 0, L"Microsoft  Service Pack 1"},
        {5, 1, L"Microsoft Windows XP Professional Service Pack 1"},
        {5, 7, L"Microsoft  Service Pack 1"},
    };
    for (const Row& row : rows)
    {
        SystemVersion version = make_version(row.major, row.minor, WORKSTATION);
        version.service_pack = L"Service Pack 1";
        EXPECT_EQ(product_name(version), row.name);
    }
}

TEST(ProductName, OfVersionSixZeroHasTheEdition)
{
    const wchar_t* const editions[] = {
        L"", // 0
        L"Ultimate Edition",
        L"Home Basic Edition",
        L"Home Premium Edition",
        L"Enterprise Edition",
        L"", // 5
        L"Business Edition",
        L"Standard Edition",
        L"Datacenter Edition",
        L"Small Business Server",
        L"Enterprise Edition", // 10
        L"Starter Edition",
        L"Datacenter Edition (core installation)",
        L"Standard Edition (core installation)",
        L"Enterprise Edition (core installation)",
        L"Enterprise Edition for Itanium-based Systems", // 15
        L"",
        L"Web Server Edition",
        L"Cluster Server Edition",
        L"",
        L"", // 20
        L"",
        L"",
        L"",
        L"",
        L"Small Business Server Premium Edition", // 25
        L"",
        L"",
    };
    std::uint32_t number = 0;
    for (const wchar_t* const edition : editions)
    {
        SystemVersion version = make_version(6, 0, SERVER);
        version.edition = number;
        EXPECT_EQ(product_name(version), L"Microsoft Windows Server 2008 " + std::wstring(edition) + L", 64-bit")
            << number;
        version.product_type = WORKSTATION;
        version.architecture = X86;
        EXPECT_EQ(product_name(version), L"Microsoft Windows Vista " + std::wstring(edition) + L", 32-bit") << number;
        ++number;
    }
    SystemVersion version = make_version(6, 0, WORKSTATION);
    version.edition = 0xABCDABCD; // a copy that was never activated
    EXPECT_EQ(product_name(version), L"Microsoft Windows Vista , 64-bit");
}

TEST(ProductName, OfVersionSixZeroHasTheWordSizeOfTheTwoUsualArchitectures)
{
    struct Row
    {
        std::uint32_t architecture;
        const wchar_t* name;
    };
    const Row rows[] = {
        {X86, L"Microsoft Windows Vista Ultimate Edition, 32-bit"},
        {AMD64, L"Microsoft Windows Vista Ultimate Edition, 64-bit"},
        {IA64, L"Microsoft Windows Vista Ultimate Edition"},
        {ARM64, L"Microsoft Windows Vista Ultimate Edition"},
        {0xFFFF, L"Microsoft Windows Vista Ultimate Edition"},
    };
    for (const Row& row : rows)
    {
        SystemVersion version = make_version(6, 0, WORKSTATION);
        version.edition = 1;
        version.architecture = row.architecture;
        EXPECT_EQ(product_name(version), row.name);
    }
}

TEST(ProductName, OfVersionsAfterSixZeroHasNeitherEditionNorWordSize)
{
    for (const std::uint32_t minor : {1u, 2u, 3u})
    {
        for (const std::uint32_t architecture : {X86, AMD64})
        {
            SystemVersion version = make_version(6, minor, WORKSTATION);
            const std::wstring plain = product_name(version);
            version.edition = 1;
            version.architecture = architecture;
            version.suite_mask = PERSONAL | ENTERPRISE;
            version.second_release = true;
            EXPECT_EQ(product_name(version), plain);
        }
    }
    SystemVersion version = make_version(6, 1, WORKSTATION);
    version.edition = 1;
    EXPECT_EQ(product_name(version), L"Microsoft Windows 7 ");
}

TEST(ProductName, OfLaterMajorVersionsIsTheMakersName)
{
    for (const std::uint32_t major : {7u, 10u, 11u, 0xFFFFFFFFu})
        for (const std::uint32_t minor : {0u, 1u, 2u, 3u})
            for (const std::uint32_t product_type : {WORKSTATION, SERVER})
                EXPECT_EQ(product_name(make_version(major, minor, product_type)), L"Microsoft ") << major;
}

// Version 5 -------------------------------------------------------------------------------------------
TEST(ProductName, OfVersionFiveTwoFollowsFromReleaseArchitectureAndSuite)
{
    struct Row
    {
        bool second_release;
        std::uint32_t product_type, architecture, suite_mask;
        const wchar_t* name;
    };
    const Row rows[] = {
        {false, WORKSTATION, AMD64, 0, L"Microsoft Windows XP Professional x64 Edition"},
        {false, WORKSTATION, AMD64, DATACENTER, L"Microsoft Windows XP Professional x64 Edition"},
        {true, WORKSTATION, AMD64, 0, L"Microsoft Windows Server 2003 R2, "},
        {false, WORKSTATION, X86, 0, L"Microsoft Windows Server 2003, "},
        {false, WORKSTATION, IA64, ENTERPRISE, L"Microsoft Windows Server 2003, "},
        {true, WORKSTATION, X86, 0, L"Microsoft Windows Server 2003 R2, "},

        {false, SERVER, IA64, DATACENTER,
         L"Microsoft Windows Server 2003, Datacenter Edition for Itanium-based Systems"},
        {false, SERVER, IA64, DATACENTER | ENTERPRISE,
         L"Microsoft Windows Server 2003, Datacenter Edition for Itanium-based Systems"},
        {false, SERVER, IA64, ENTERPRISE,
         L"Microsoft Windows Server 2003, Enterprise Edition for Itanium-based Systems"},
        {false, SERVER, IA64, COMPUTE | BLADE, L"Microsoft Windows Server 2003, "},
        {true, SERVER, IA64, DATACENTER,
         L"Microsoft Windows Server 2003 R2, Datacenter Edition for Itanium-based Systems"},

        {false, SERVER, AMD64, DATACENTER, L"Microsoft Windows Server 2003, Datacenter x64 Edition"},
        {false, SERVER, AMD64, DATACENTER | ENTERPRISE, L"Microsoft Windows Server 2003, Datacenter x64 Edition"},
        {false, SERVER, AMD64, ENTERPRISE, L"Microsoft Windows Server 2003, Enterprise x64 Edition"},
        {false, SERVER, AMD64, 0, L"Microsoft Windows Server 2003, Standard x64 Edition"},
        {false, SERVER, AMD64, COMPUTE | BLADE, L"Microsoft Windows Server 2003, Standard x64 Edition"},
        {true, SERVER, AMD64, 0, L"Microsoft Windows Server 2003 R2, Standard x64 Edition"},
        {true, DOMAIN_CONTROLLER, AMD64, ENTERPRISE, L"Microsoft Windows Server 2003 R2, Enterprise x64 Edition"},

        {false, SERVER, X86, COMPUTE, L"Microsoft Windows Server 2003, Compute Cluster Edition"},
        {false, SERVER, X86, COMPUTE | DATACENTER | ENTERPRISE | BLADE,
         L"Microsoft Windows Server 2003, Compute Cluster Edition"},
        {false, SERVER, X86, DATACENTER | ENTERPRISE | BLADE, L"Microsoft Windows Server 2003, Datacenter Edition"},
        {false, SERVER, X86, ENTERPRISE | BLADE, L"Microsoft Windows Server 2003, Enterprise Edition"},
        {false, SERVER, X86, BLADE, L"Microsoft Windows Server 2003, Web Edition"},
        {false, SERVER, X86, 0, L"Microsoft Windows Server 2003, Standard Edition"},
        {false, SERVER, X86, PERSONAL, L"Microsoft Windows Server 2003, Standard Edition"},
        {false, DOMAIN_CONTROLLER, ARM64, 0, L"Microsoft Windows Server 2003, Standard Edition"},
        {true, SERVER, X86, BLADE, L"Microsoft Windows Server 2003 R2, Web Edition"},
    };
    for (const Row& row : rows)
    {
        SystemVersion version = make_version(5, 2, row.product_type);
        version.second_release = row.second_release;
        version.architecture = row.architecture;
        version.suite_mask = row.suite_mask;
        version.edition = 1; // counts for a later version only
        EXPECT_EQ(product_name(version), row.name);
    }
}

TEST(ProductName, OfVersionFiveOneFollowsFromTheSuite)
{
    SystemVersion version = make_version(5, 1, WORKSTATION);
    EXPECT_EQ(product_name(version), L"Microsoft Windows XP Professional");
    version.suite_mask = ENTERPRISE | BLADE | COMPUTE | DATACENTER;
    EXPECT_EQ(product_name(version), L"Microsoft Windows XP Professional");
    version.suite_mask = PERSONAL | ENTERPRISE;
    EXPECT_EQ(product_name(version), L"Microsoft Windows XP Home Edition");
    version.product_type = SERVER;
    version.second_release = true;
    EXPECT_EQ(product_name(version), L"Microsoft Windows XP Home Edition");
}

TEST(ProductName, OfVersionFiveZeroFollowsFromProductTypeAndSuite)
{
    struct Row
    {
        std::uint32_t product_type, suite_mask;
        const wchar_t* name;
    };
    const Row rows[] = {
        {WORKSTATION, 0, L"Microsoft Windows 2000 Professional"},
        {WORKSTATION, DATACENTER | ENTERPRISE, L"Microsoft Windows 2000 Professional"},
        {SERVER, DATACENTER, L"Microsoft Windows 2000 Datacenter Server"},
        {SERVER, DATACENTER | ENTERPRISE, L"Microsoft Windows 2000 Datacenter Server"},
        {SERVER, ENTERPRISE, L"Microsoft Windows 2000 Advanced Server"},
        {SERVER, 0, L"Microsoft Windows 2000 Server"},
        {DOMAIN_CONTROLLER, PERSONAL | BLADE | COMPUTE, L"Microsoft Windows 2000 Server"},
    };
    for (const Row& row : rows)
    {
        SystemVersion version = make_version(5, 0, row.product_type);
        version.suite_mask = row.suite_mask;
        EXPECT_EQ(product_name(version), row.name);
    }
}

TEST(ProductName, OfVersionFiveWithAnotherMinorVersionIsTheMakersName)
{
    EXPECT_EQ(product_name(make_version(5, 3, WORKSTATION)), L"Microsoft ");
    EXPECT_EQ(product_name(make_version(5, 3, SERVER)), L"Microsoft ");
}

// None ------------------------------------------------------------------------------------------------
TEST(ProductName, IsNoneOfOtherPlatformsAndOfVersionsBeforeFive)
{
    for (const std::uint32_t platform : {0u, 1u, 3u})
    {
        SystemVersion version = make_version(6, 1, WORKSTATION);
        version.platform = platform;
        version.service_pack = L"Service Pack 1";
        EXPECT_EQ(product_name(version), L"") << platform;
    }
    for (const std::uint32_t major : {0u, 3u, 4u})
    {
        SystemVersion version = make_version(major, 0, WORKSTATION);
        version.service_pack = L"Service Pack 6";
        EXPECT_EQ(product_name(version), L"") << major;
    }
}

// Exceptions ------------------------------------------------------------------------------------------
TEST(ExceptionName, IsThatOfTheCode)
{
    struct Row
    {
        std::uint32_t code;
        const wchar_t* name;
    };
    const Row rows[] = {
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
    for (const Row& row : rows)
        EXPECT_EQ(std::wstring(exception_name(row.code)), row.name) << std::hex << row.code;
}

TEST(ExceptionName, OfAnyOtherCodeIsUnknown)
{
    const std::uint32_t codes[] = {0,          1,          0x80000000, 0x80000005, 0xC0000004, 0xC0000007,
                                   0xC000008B, 0xC0000097, 0xC00000FC, 0xC00000FE, 0xC0000409, 0x20474343,
                                   0xE06D7362, 0xE06D7364, 0xE0434352, 0xFFFFFFFF};
    for (const std::uint32_t code : codes)
        EXPECT_EQ(std::wstring(exception_name(code)), L"EXCEPTION_UNKNOWN") << std::hex << code;
}

// Drives and files ------------------------------------------------------------------------------------
TEST(DriveTypeName, IsThatOfTheNumber)
{
    const wchar_t* const names[] = {L"unknown",         L"No-root-dir", L"Removable", L"fixed",
                                    L"Remote(network)", L"CD/DVD",      L"RAMDisk",   L"not-supported"};
    std::uint32_t type = 0;
    for (const wchar_t* const name : names)
        EXPECT_EQ(std::wstring(drive_type_name(type++)), name);
    EXPECT_EQ(std::wstring(drive_type_name(8)), L"not-supported");
    EXPECT_EQ(std::wstring(drive_type_name(0xFFFFFFFF)), L"not-supported");
}

TEST(ProgramName, IsTheNameOfTheFileUpToItsFirstDot)
{
    struct Row
    {
        const wchar_t* path;
        const wchar_t* name;
    };
    const Row rows[] = {
        {L"C:\\Program Files\\Suite\\viewer.exe", L"viewer"},
        {L"C:\\Suite 1.2\\viewer.exe", L"viewer"},
        {L"viewer.exe", L"viewer"},
        {L"C:\\Suite\\viewer", L"viewer"},
        {L"C:\\Suite\\viewer.2.exe", L"viewer"},
        {L"\\\\host\\share\\viewer.exe", L"viewer"},
        {L"C:\\Suite\\.exe", L""},
        {L"C:\\Suite\\", L""},
        {L"\\", L""},
        {L"", L""},
        {L"C:/Suite/viewer.exe", L"C:/Suite/viewer"}, // only a backslash ends a directory
    };
    for (const Row& row : rows)
        EXPECT_EQ(program_name(row.path), row.name);
}

// Numbers ---------------------------------------------------------------------------------------------
TEST(SizeText, IsInBytesUpToAKilobyteAndInKilobytesBeyond)
{
    struct Row
    {
        std::uint64_t bytes;
        const wchar_t* text;
    };
    const Row rows[] = {
        {0, L"0 Bytes"},
        {1, L"1 Bytes"},
        {1000, L"1000 Bytes"},
        {1023, L"1023 Bytes"},
        {1024, L"1024 Bytes"},
        {1025, L"1.001 KB"},
        {1500, L"1.465 KB"},
        {2047, L"1.999 KB"},
        {2048, L"2 KB"},
        {2049, L"2.001 KB"},
        {3072, L"3 KB"},
        {1048576, L"1024 KB"},
        {1048577, L"1024.001 KB"},
        {4294967296, L"4194304 KB"},
        {18446744073709547520u, L"18014398509481980 KB"},     // 4 KB less than nothing
        {18446744073709551615u, L"18014398509481984.000 KB"}, // a byte less: the nearest that has a fraction
    };
    for (const Row& row : rows)
        EXPECT_EQ(size_text(row.bytes), row.text) << row.bytes;
}
} // namespace
