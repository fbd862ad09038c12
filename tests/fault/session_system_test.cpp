// What the gatherer tells of machine, process and crash, for every answer that the system may give.

#include "Kor_SessionLogGatherer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <dbghelp.h>
#include <psapi.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"
#include "report_text.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{
using Lines = std::vector<std::string>;
using Gatherer = Kor_SessionLogGatherer;
using All = std::vector<Attributes>;

KOR_IMPORT(RegOpenKeyExW);
KOR_IMPORT(RegQueryValueExW);
KOR_IMPORT(RegCloseKey);
KOR_IMPORT(GetVersionExA);
KOR_IMPORT(GetProcAddress);
KOR_IMPORT(GetSystemInfo);
KOR_IMPORT(GetComputerNameW);
KOR_IMPORT(GetLogicalDriveStringsW);
KOR_IMPORT(GetDriveTypeW);
KOR_IMPORT(GetDiskFreeSpaceExW);
KOR_IMPORT(GetModuleFileNameW);
KOR_IMPORT(OpenProcess);
KOR_IMPORT(malloc);
KOR_IMPORT(SystemTimeToTzSpecificLocalTime);
/// As the DLL imports it.
struct MemoryInfoImport
{
    using Signature = decltype(hook_signature_of(&::K32GetProcessMemoryInfo));
    static constexpr const char* NAME = "K32GetProcessMemoryInfo";
};

/// A value of the registry, and what the question for it returns.
struct Value
{
    DWORD type;
    std::string bytes;
    LSTATUS result = ERROR_SUCCESS;
};
using Values = std::map<std::wstring, Value>;

/// Bytes of a text with its end.
Value text(const std::wstring& value)
{
    return {REG_SZ, {reinterpret_cast<const char*>(value.c_str()), (value.size() + 1) * sizeof(wchar_t)}};
}

Value number(std::uint32_t value) { return {REG_DWORD, {reinterpret_cast<const char*>(&value), sizeof value}}; }

Values usual_processor()
{
    return {
        {L"ProcessorNameString", text(L"Example CPU @ 2.60GHz")},
        {L"VendorIdentifier", text(L"ExampleVendor")},
        {L"Identifier", text(L"Family 6 Model 15")},
        {L"~MHz", number(2600)}};
}

Attributes usual_processor_as_told(const std::string& number)
{
    return {
        {"Number", number},
        {"ProcessorName", "Example CPU @ 2.60GHz"},
        {"VendorIdentifier", "ExampleVendor"},
        {"Identifier", "Family 6 Model 15"},
        {"Frequency", "2600 MHz"}};
}

/// A drive, and what the questions for it return.
struct Drive
{
    std::wstring root;
    UINT type = DRIVE_FIXED;
    bool has_space = true;
    std::uint64_t free_for_user = 0;
    std::uint64_t total = 0;
    std::uint64_t free = 0;
    DWORD error = ERROR_NOT_READY;
};

// For functions that the library asks GetProcAddress for.
WORD native_architecture = 9;
DWORD edition = 0;
BOOL edition_is_known = TRUE;
int second_release = 0;
std::vector<DWORD> edition_questions;

void WINAPI get_native_system_info(SYSTEM_INFO* info) { info->wProcessorArchitecture = native_architecture; }

BOOL WINAPI get_product_info(DWORD major, DWORD minor, DWORD pack_major, DWORD pack_minor, DWORD* to)
{
    edition_questions = {major, minor, pack_major, pack_minor};
    *to = edition;
    return edition_is_known;
}

int WINAPI get_system_metrics(int index) { return index == 89 ? second_release : 4711; }

template <class Function>
FARPROC as_proc(Function* function)
{
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
}

/// A machine that a test describes, and the lines of the general log at level 7.
class SessionSystem : public ::testing::Test
{
protected:
    SessionSystem()
    {
        EXPECT_TRUE(m_open_key.installed() && m_query.installed() && m_close_key.installed() && m_version.installed());
        EXPECT_TRUE(m_proc_address.installed() && m_system_info.installed() && m_computer.installed());
        EXPECT_TRUE(m_drive_strings.installed() && m_drive_type.installed() && m_free_space.installed());
        EXPECT_TRUE(m_module_name.installed() && m_open_process.installed() && m_memory_info.installed());
        KorGLog.Open("test.log", "viewer", false);
        EXPECT_EQ(Gatherer::myInstance, nullptr) << "each case needs a process of its own";
        Gatherer::Activate(true);
        m_session = Gatherer::GetInstance();
        m_windows.dwMajorVersion = 6;
        m_windows.dwMinorVersion = 1;
        m_windows.dwBuildNumber = 7601;
        m_windows.dwPlatformId = 2;
        m_windows.wProductType = 1;
        std::strcpy(m_windows.szCSDVersion, "Service Pack 1");
    }

    /// What a report says now.
    std::string report() const { return report_of(*m_session); }

    /// What it says of the machine, which is gathered now.
    std::string gathered()
    {
        m_session->gatherSystemInfo();
        const std::string all = report();
        const std::size_t last = all.rfind("<System>");
        return last == std::string::npos ? all : all.substr(last);
    }

    /// The description of a system of this version, "none" when it has none.
    std::string description()
    {
        const All systems = elements(gathered(), "OS");
        if (systems.size() != 1)
            return std::to_string(systems.size()) + " elements";
        const auto found = systems[0].find("Description");
        return found == systems[0].end() ? "none" : found->second;
    }

    /// The lines about the gatherer without the numbers of source lines, and without those of the reports.
    Lines told() const
    {
        Lines lines;
        for (std::string line : m_directory.lines())
        {
            const std::size_t open = line.find("  Kor_SessionLogGatherer(");
            if (open == std::string::npos || line.find(" Crash report written to ") != std::string::npos)
                continue;
            line.replace(open + 25, line.find(')', open) - open - 25, "n");
            lines.push_back(line);
        }
        return lines;
    }

    Drive* find_drive(const wchar_t* root)
    {
        for (Drive& drive : m_drives)
            if (drive.root == root)
                return &drive;
        ADD_FAILURE() << "no such drive";
        return nullptr;
    }

    std::vector<Values> m_processors{usual_processor()};
    std::set<std::size_t> m_locked_processors;
    static constexpr std::uintptr_t FIRST_KEY = 0x7A000000;
    static constexpr std::uintptr_t LAST_KEY = 0x7A00FFFF;
    std::set<HKEY> m_open_keys;
    int m_closed_keys = 0;
    OSVERSIONINFOEXA m_windows{};
    bool m_has_version = true;
    std::set<std::string> m_missing_functions;
    std::wstring m_computer_name = L"HOST-7";
    std::vector<Drive> m_drives{{L"C:\\", DRIVE_FIXED, true, 1, 2, 3}};
    std::wstring m_program = L"C:\\Suite\\viewer.exe";
    bool m_process_opens = true;
    PROCESS_MEMORY_COUNTERS_EX m_memory{};
    bool m_memory_is_known = true;

    const Hook<RegOpenKeyExWImport> m_open_key{
        [this](HKEY root, const wchar_t* path, DWORD options, REGSAM access, HKEY* key) -> LSTATUS
        {
            EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
            EXPECT_EQ(options, 0u);
            EXPECT_EQ(access, static_cast<REGSAM>(KEY_QUERY_VALUE));
            const std::wstring folder = L"Hardware\\Description\\System\\CentralProcessor\\";
            const std::wstring name = path;
            EXPECT_EQ(name.substr(0, folder.size()), folder);
            const std::size_t number = std::stoul(name.substr(folder.size()));
            EXPECT_EQ(name, folder + std::to_wstring(number));
            if (number >= m_processors.size())
                return ERROR_FILE_NOT_FOUND;
            if (m_locked_processors.count(number) != 0)
                return ERROR_ACCESS_DENIED;
            *key = reinterpret_cast<HKEY>(number + FIRST_KEY);
            EXPECT_TRUE(m_open_keys.insert(*key).second);
            return ERROR_SUCCESS;
        }};
    const Hook<RegQueryValueExWImport> m_query{
        [this](HKEY key, const wchar_t* name, DWORD*, DWORD* type, BYTE* to, DWORD* size) -> LSTATUS
        {
            EXPECT_EQ(m_open_keys.count(key), 1u);
            const Values& values = m_processors.at(reinterpret_cast<std::uintptr_t>(key) - FIRST_KEY);
            const auto found = values.find(name);
            if (found == values.end())
                return ERROR_FILE_NOT_FOUND;
            const Value& value = found->second;
            *type = value.type;
            const auto needed = static_cast<DWORD>(value.bytes.size());
            const DWORD room = *size;
            *size = needed;
            if (to == nullptr)
                return value.result == ERROR_MORE_DATA ? ERROR_SUCCESS : value.result;
            if (room < needed || value.result != ERROR_SUCCESS)
                return value.result != ERROR_SUCCESS ? value.result : ERROR_MORE_DATA;
            std::memcpy(to, value.bytes.data(), needed);
            return ERROR_SUCCESS;
        }};
    const Hook<RegCloseKeyImport> m_close_key{
        [this](HKEY key) -> LSTATUS
        {
            if (reinterpret_cast<std::uintptr_t>(key) < FIRST_KEY || reinterpret_cast<std::uintptr_t>(key) > LAST_KEY)
                return ::RegCloseKey(key); // not of this test
            EXPECT_EQ(m_open_keys.erase(key), 1u);
            ++m_closed_keys;
            return ERROR_SUCCESS;
        }};
    const Hook<GetVersionExAImport> m_version{
        [this](OSVERSIONINFOA* to) -> BOOL
        {
            if (to->dwOSVersionInfoSize == sizeof(OSVERSIONINFOA))
                return ::GetVersionExA(to); // the XML library's
            EXPECT_EQ(to->dwOSVersionInfoSize, 156u);
            m_windows.dwOSVersionInfoSize = 156;
            if (m_has_version)
                std::memcpy(to, &m_windows, sizeof m_windows);
            return m_has_version;
        }};
    const Hook<GetProcAddressImport> m_proc_address{
        [this](HMODULE module, const char* name) -> FARPROC
        {
            const std::map<std::string, FARPROC> functions = {
                {"GetNativeSystemInfo", as_proc(&get_native_system_info)},
                {"GetProductInfo", as_proc(&get_product_info)},
                {"GetSystemMetrics", as_proc(&get_system_metrics)},
            };
            if (m_missing_functions.count(name) != 0)
                return nullptr;
            const auto found = functions.find(name);
            return found != functions.end() ? found->second : ::GetProcAddress(module, name);
        }};
    const Hook<GetSystemInfoImport> m_system_info{[](SYSTEM_INFO* info)
                                                  {
                                                      ::GetSystemInfo(info);
                                                      info->wProcessorArchitecture = 0;
                                                  }};
    const Hook<GetComputerNameWImport> m_computer{
        [this](wchar_t* to, DWORD* size) -> BOOL
        {
            EXPECT_EQ(*size, static_cast<DWORD>(MAX_COMPUTERNAME_LENGTH + 1));
            if (m_computer_name.empty() || m_computer_name.size() >= *size)
                return FALSE;
            *size = static_cast<DWORD>(m_computer_name.size());
            std::wmemcpy(to, m_computer_name.c_str(), m_computer_name.size() + 1);
            return TRUE;
        }};
    const Hook<GetLogicalDriveStringsWImport> m_drive_strings{
        [this](DWORD size, wchar_t* to) -> DWORD
        {
            EXPECT_EQ(size, 150u);
            if (m_drives.empty())
            {
                ::SetLastError(5);
                return 0;
            }
            std::wstring roots;
            for (const Drive& drive : m_drives)
                roots += drive.root + L'\0';
            const auto length = static_cast<DWORD>(roots.size());
            if (length + 1 > size)
            {
                std::wmemcpy(to, roots.c_str(), size); // which is then worth nothing
                return length + 1;
            }
            std::wmemcpy(to, roots.c_str(), roots.size() + 1);
            return length;
        }};
    const Hook<GetDriveTypeWImport> m_drive_type{
        [this](const wchar_t* root) -> UINT
        {
            const Drive* const drive = find_drive(root);
            return drive == nullptr ? 0 : drive->type;
        }};
    const Hook<GetDiskFreeSpaceExWImport> m_free_space{
        [this](const wchar_t* root, ULARGE_INTEGER* user, ULARGE_INTEGER* total, ULARGE_INTEGER* free) -> BOOL
        {
            const Drive* const drive = find_drive(root);
            user->QuadPart = drive->free_for_user;
            total->QuadPart = drive->total;
            free->QuadPart = drive->free;
            ::SetLastError(drive->has_space ? 0 : drive->error);
            return drive->has_space;
        }};
    const Hook<GetModuleFileNameWImport> m_module_name{
        [this](HMODULE module, wchar_t* to, DWORD size) -> DWORD
        {
            EXPECT_EQ(module, nullptr);
            EXPECT_EQ(size, 256u);
            const std::size_t length = std::min<std::size_t>(m_program.size(), size);
            std::wmemcpy(to, m_program.c_str(), length); // without an end where it does not fit
            if (length < size)
                to[length] = L'\0';
            return static_cast<DWORD>(length);
        }};
    const Hook<OpenProcessImport> m_open_process{
        [this](DWORD access, BOOL inherit, DWORD id) -> HANDLE
        {
            EXPECT_EQ(access, 0x410u);
            EXPECT_EQ(id, ::GetCurrentProcessId());
            return m_process_opens ? ::OpenProcess(access, inherit, id) : nullptr;
        }};
    const Hook<MemoryInfoImport> m_memory_info{
        [this](HANDLE, PROCESS_MEMORY_COUNTERS* to, DWORD size) -> BOOL
        {
            EXPECT_EQ(size, 80u);
            std::memcpy(to, &m_memory, sizeof m_memory);
            return m_memory_is_known;
        }};
    const LogDirectory m_directory{LIBRARY_TO_FILE};
    Gatherer* m_session = nullptr;
};

std::string line(const std::string& level, const std::string& function, const std::string& message)
{
    return "<time> " + level + "(106) viewer (<pid>,<tid>)  Kor_SessionLogGatherer(n) " + function + " -> " + message;
}

const std::string GATHER = "Kor_SessionLogGatherer::gatherSystemInfo";
const std::string REPORT_EXCEPTION = "Kor_SessionLogGatherer::reportException";

// Processors ------------------------------------------------------------------------------------------
TEST_F(SessionSystem, ProcessorsAreThoseOfTheRegistryInTheirOrder)
{
    m_processors.resize(3, usual_processor());
    m_processors[1][L"~MHz"] = number(3100);
    Attributes second = usual_processor_as_told("1");
    second["Frequency"] = "3100 MHz";
    EXPECT_EQ(
        elements(gathered(), "Processor"), (All{usual_processor_as_told("0"), second, usual_processor_as_told("2")}));
    EXPECT_EQ(m_open_key.calls(), 4);
    EXPECT_EQ(m_closed_keys, 3);
    EXPECT_THAT(m_open_keys, IsEmpty());
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(SessionSystem, ProcessorsEndAtTheFirstThatCannotBeOpened)
{
    m_processors.resize(4, usual_processor());
    m_locked_processors = {2};
    EXPECT_THAT(elements(gathered(), "Processor"), SizeIs(2));
    EXPECT_EQ(m_open_key.calls(), 3);
    EXPECT_THAT(m_open_keys, IsEmpty());

    m_locked_processors = {0};
    EXPECT_THAT(elements(gathered(), "Processor"), SizeIs(0));
}

TEST_F(SessionSystem, ProcessorsEndEvenWhereTheRegistryDoesNot)
{
    m_processors.resize(5000);
    EXPECT_THAT(elements(gathered(), "Processor"), SizeIs(4096));
}

TEST_F(SessionSystem, AProcessorsValueThatCannotBeReadIsLeftOut)
{
    const std::pair<const wchar_t*, const char*> names[] = {
        {L"ProcessorNameString", "ProcessorName"},
        {L"VendorIdentifier", "VendorIdentifier"},
        {L"Identifier", "Identifier"},
        {L"~MHz", "Frequency"}};
    for (const auto& [name, attribute] : names)
    {
        Attributes expected = usual_processor_as_told("0");
        expected.erase(attribute);
        // There is none; it may not be read; it has grown since its size was told; it is of another kind.
        for (const LSTATUS result : {2, 5, 234, 0})
        {
            m_processors = {usual_processor()};
            Value& value = m_processors[0][name];
            value.result = result;
            if (result == ERROR_SUCCESS)
                value.type = REG_BINARY;
            if (result == ERROR_FILE_NOT_FOUND)
                m_processors[0].erase(name);
            EXPECT_EQ(elements(gathered(), "Processor"), All{expected}) << attribute << ' ' << result;
        }
    }
    EXPECT_THAT(m_open_keys, IsEmpty());
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(SessionSystem, AProcessorWithoutAnyValueHasItsNumber)
{
    m_processors = {{}};
    EXPECT_EQ(elements(gathered(), "Processor"), (All{{{"Number", "0"}}}));
}

TEST_F(SessionSystem, AProcessorsTextsMayBeOfAnyLengthAndHaveNoEndOrSeveral)
{
    const std::string ab("a\0b\0", 4);
    const std::pair<Value, std::string> texts[] = {
        {text(L""), ""},
        {{REG_SZ, ""}, ""},
        {{REG_SZ, ab}, "ab"},
        {{REG_SZ, ab + std::string(6, '\0')}, "ab"},
        {text(L"a<b>&\"'"), "a<b>&\"'"},
        {text(L"\x00E4\x20AC"), "\xC3\xA4\xE2\x82\xAC"},
        {text(L"a\x0001\xD800z"), "a\xEF\xBF\xBD\xEF\xBF\xBDz"}, // what XML does not allow
        {text(std::wstring(5000, L'x')), std::string(5000, 'x')},
    };
    for (const auto& [value, told] : texts)
    {
        m_processors = {{{L"Identifier", value}}};
        EXPECT_EQ(elements(gathered(), "Processor"), (All{{{"Number", "0"}, {"Identifier", told}}}));
    }
}

TEST_F(SessionSystem, AProcessorsTextThatEndsInHalfACharacterIsLeftOut)
{
    m_processors = {{{L"Identifier", {REG_SZ, std::string("a\0b\0c", 5)}}}};
    EXPECT_EQ(elements(gathered(), "Processor"), (All{{{"Number", "0"}}}));
}

TEST_F(SessionSystem, AProcessorsFrequencyIsASignedNumber)
{
    const std::pair<std::uint32_t, const char*> frequencies[] = {
        {0, "0 MHz"}, {0x7FFFFFFF, "2147483647 MHz"}, {0x80000000, "-2147483648 MHz"}, {0xFFFFFFFF, "-1 MHz"}};
    for (const auto& [value, told] : frequencies)
    {
        m_processors = {{{L"~MHz", number(value)}}};
        EXPECT_EQ(elements(gathered(), "Processor").at(0).at("Frequency"), told);
    }
}

// The system ------------------------------------------------------------------------------------------
TEST_F(SessionSystem, IsToldWithNameVersionBuildServicePackAndHost)
{
    EXPECT_EQ(
        elements(gathered(), "OS"), (All{
                                        {{"Description", "Microsoft Windows 7  Service Pack 1"},
                                         {"Version", "6.1"},
                                         {"Build", "7601"},
                                         {"CSDVersion", "Service Pack 1"},
                                         {"HostName", "HOST-7"}}}));
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(SessionSystem, HasTheElementsInTheirOrder)
{
    m_processors.resize(2, usual_processor());
    std::string names;
    const std::string all = gathered();
    for (std::size_t at = all.find('<'); at != std::string::npos; at = all.find('<', at + 1))
    {
        names += all.substr(at, all.find_first_of(" />", at + 2) - at) + ' ';
        if (names.find("</System") != std::string::npos)
            break;
    }
    EXPECT_EQ(names, "<System <Processor <Processor <OS <Disks <Volume </Disks </System ");
}

TEST_F(SessionSystem, WithoutAServicePackHasAnEmptyOne)
{
    m_windows.szCSDVersion[0] = '\0';
    EXPECT_EQ(
        elements(gathered(), "OS"), (All{
                                        {{"Description", "Microsoft Windows 7 "},
                                         {"Version", "6.1"},
                                         {"Build", "7601"},
                                         {"CSDVersion", ""},
                                         {"HostName", "HOST-7"}}}));
}

TEST_F(SessionSystem, ThatDoesNotTellItsVersionHasItsHostAlone)
{
    m_has_version = false;
    EXPECT_EQ(elements(gathered(), "OS"), (All{{{"HostName", "HOST-7"}}}));
}

TEST_F(SessionSystem, ThatDoesNotTellItsHostHasNone)
{
    m_computer_name.clear();
    const All systems = elements(gathered(), "OS");
    ASSERT_THAT(systems, SizeIs(1));
    EXPECT_EQ(systems[0].count("HostName"), 0u);
    EXPECT_EQ(systems[0].at("Build"), "7601");
}

TEST_F(SessionSystem, OfAnotherKindHasNoNameButAVersion)
{
    m_windows.dwPlatformId = 1;
    m_windows.dwMajorVersion = 4;
    m_windows.dwMinorVersion = 10;
    m_windows.dwBuildNumber = 67766222;
    EXPECT_EQ(
        elements(gathered(), "OS"),
        (All{{{"Version", "4.10"}, {"Build", "67766222"}, {"CSDVersion", "Service Pack 1"}, {"HostName", "HOST-7"}}}));
}

TEST_F(SessionSystem, MayHaveAServicePackThatFillsItsRoom)
{
    std::memset(m_windows.szCSDVersion, 'p', 128); // and leaves none for its end
    m_windows.wServicePackMajor = 0x7171;          // which comes right behind it
    EXPECT_EQ(elements(gathered(), "OS").at(0).at("CSDVersion"), std::string(128, 'p'));
    EXPECT_EQ(description(), "Microsoft Windows 7  " + std::string(128, 'p'));
}

TEST_F(SessionSystem, NumbersOfItsVersionAreSigned)
{
    m_windows.dwMajorVersion = 0xFFFFFFFF;
    m_windows.dwMinorVersion = 0x80000000;
    m_windows.dwBuildNumber = 0xFFFFFFFE;
    const Attributes system = elements(gathered(), "OS").at(0);
    EXPECT_EQ(system.at("Version"), "-1.-2147483648");
    EXPECT_EQ(system.at("Build"), "-2");
}

TEST_F(SessionSystem, IsNamedByEachOfItsVersions)
{
    struct Row
    {
        DWORD major, minor;
        BYTE product_type;
        WORD suite_mask, architecture;
        DWORD edition;
        int second_release;
        const char* name;
    };
    const Row rows[] = {
        {10, 0, 1, 0, 9, 1, 1, "Microsoft "},
        {10, 0, 3, 0, 9, 8, 1, "Microsoft "},
        {6, 4, 1, 0, 9, 1, 1, "Microsoft "},
        {6, 3, 1, 0, 9, 1, 1, "Microsoft Windows 8.1 "},
        {6, 3, 3, 0, 9, 1, 1, "Microsoft Windows Server 2012 R2 "},
        {6, 2, 1, 0, 9, 1, 1, "Microsoft Windows 8 "},
        {6, 2, 2, 0, 9, 1, 1, "Microsoft Windows Server 2012 "},
        {6, 1, 1, 0, 9, 1, 1, "Microsoft Windows 7 "},
        {6, 1, 3, 0, 9, 1, 1, "Microsoft Windows Server 2008 R2 "},
        {6, 0, 1, 0, 9, 1, 1, "Microsoft Windows Vista Ultimate Edition, 64-bit"},
        {6, 0, 1, 0, 0, 11, 0, "Microsoft Windows Vista Starter Edition, 32-bit"},
        {6, 0, 3, 0, 6, 15, 0, "Microsoft Windows Server 2008 Enterprise Edition for Itanium-based Systems"},
        {6, 0, 3, 0, 9, 25, 0, "Microsoft Windows Server 2008 Small Business Server Premium Edition, 64-bit"},
        {5, 2, 1, 0, 9, 1, 0, "Microsoft Windows XP Professional x64 Edition"},
        {5, 2, 1, 0, 9, 1, 1, "Microsoft Windows Server 2003 R2, "},
        {5, 2, 3, 0, 9, 1, 1, "Microsoft Windows Server 2003 R2, Standard x64 Edition"},
        {5, 2, 3, 0x80, 6, 1, 0, "Microsoft Windows Server 2003, Datacenter Edition for Itanium-based Systems"},
        {5, 2, 3, 0x4002, 0, 1, 0, "Microsoft Windows Server 2003, Compute Cluster Edition"},
        {5, 2, 3, 0x400, 0, 1, 0, "Microsoft Windows Server 2003, Web Edition"},
        {5, 1, 1, 0x200, 0, 1, 1, "Microsoft Windows XP Home Edition"},
        {5, 1, 1, 0, 0, 1, 1, "Microsoft Windows XP Professional"},
        {5, 0, 1, 0, 0, 1, 1, "Microsoft Windows 2000 Professional"},
        {5, 0, 3, 0x2, 0, 1, 1, "Microsoft Windows 2000 Advanced Server"},
        {5, 0, 3, 0, 0, 1, 1, "Microsoft Windows 2000 Server"},
        {4, 0, 1, 0, 0, 1, 1, "none"},
    };
    for (const Row& row : rows)
    {
        m_windows.dwMajorVersion = row.major;
        m_windows.dwMinorVersion = row.minor;
        m_windows.wProductType = row.product_type;
        m_windows.wSuiteMask = row.suite_mask;
        native_architecture = row.architecture;
        edition = row.edition;
        second_release = row.second_release;
        m_windows.szCSDVersion[0] = '\0';
        EXPECT_EQ(description(), row.name);
        std::strcpy(m_windows.szCSDVersion, "SP2");
        EXPECT_EQ(description(), row.name == std::string("none") ? "none" : row.name + std::string(" SP2"));
    }
    EXPECT_EQ(m_system_info.calls(), 0);
}

TEST_F(SessionSystem, OfVersionSixZeroIsAskedForItsEditionOfThatVersion)
{
    m_windows.dwMinorVersion = 0;
    edition = 1;
    EXPECT_EQ(description(), "Microsoft Windows Vista Ultimate Edition, 64-bit Service Pack 1");
    EXPECT_EQ(edition_questions, (std::vector<DWORD>{6, 0, 0, 0}));
    edition_is_known = FALSE;
    EXPECT_EQ(description(), "Microsoft Windows Vista , 64-bit Service Pack 1");
    edition_is_known = TRUE;
    m_missing_functions = {"GetProductInfo"};
    EXPECT_EQ(description(), "Microsoft Windows Vista , 64-bit Service Pack 1");
}

TEST_F(SessionSystem, WithoutANativeArchitectureHasThatOfTheProcess)
{
    m_windows.dwMinorVersion = 0;
    m_missing_functions = {"GetNativeSystemInfo"};
    EXPECT_EQ(description(), "Microsoft Windows Vista , 32-bit Service Pack 1");
    EXPECT_EQ(m_system_info.calls(), 1);
}

TEST_F(SessionSystem, WithoutMetricsIsNoSecondRelease)
{
    m_windows.dwMajorVersion = 5;
    m_windows.dwMinorVersion = 2;
    m_windows.wProductType = 3;
    second_release = 1;
    m_missing_functions = {"GetSystemMetrics"};
    EXPECT_EQ(description(), "Microsoft Windows Server 2003, Standard x64 Edition Service Pack 1");
}

TEST_F(SessionSystem, GatheredTwiceIsThereTwice)
{
    m_session->gatherSystemInfo();
    m_computer_name = L"HOST-8";
    m_session->gatherSystemInfo();
    const std::string all = report();
    EXPECT_THAT(elements(all, "System"), SizeIs(2));
    EXPECT_THAT(elements(all, "Disks"), SizeIs(2));
    const All systems = elements(all, "OS");
    ASSERT_THAT(systems, SizeIs(2));
    EXPECT_EQ(systems[0].at("HostName"), "HOST-7");
    EXPECT_EQ(systems[1].at("HostName"), "HOST-8");
}

// Disks -----------------------------------------------------------------------------------------------
TEST_F(SessionSystem, DrivesAreToldInTheirOrderWithTypeAndSpace)
{
    m_drives = {
        {L"A:\\", 2, false}, {L"C:\\", 3, true, 1, 2, 3}, {L"Z:\\", 4, true, 18446744073709551615u, 4294967296, 0}};
    EXPECT_EQ(
        elements(gathered(), "Volume"), (
                                            All{{{"DriveLetter", "A:\\"}, {"Type", "Removable"}},
                                                {{"DriveLetter", "C:\\"},
                                                 {"Type", "fixed"},
                                                 {"UserFreeBytes", "1"},
                                                 {"UserTotalBytes", "2"},
                                                 {"DiskFreeBytes", "3"}},
                                                {{"DriveLetter", "Z:\\"},
                                                 {"Type", "Remote(network)"},
                                                 {"UserFreeBytes", "18446744073709551615"},
                                                 {"UserTotalBytes", "4294967296"},
                                                 {"DiskFreeBytes", "0"}}}));
    EXPECT_THAT(told(), ElementsAre(line("DEBUG   ", "gatherDiskDetails", "GetDiskFreeSpaceEx failed (21)")));
}

TEST_F(SessionSystem, DrivesAreOfEightKinds)
{
    const char* const kinds[] = {"unknown",         "No-root-dir", "Removable", "fixed",
                                 "Remote(network)", "CD/DVD",      "RAMDisk",   "not-supported"};
    m_drives.clear();
    for (UINT type = 0; type < 8; ++type)
        m_drives.push_back({std::wstring(1, static_cast<wchar_t>(L'C' + type)) + L":\\", type});
    const All volumes = elements(gathered(), "Volume");
    ASSERT_THAT(volumes, SizeIs(8));
    for (std::size_t type = 0; type < 8; ++type)
        EXPECT_EQ(volumes[type].at("Type"), kinds[type]);
}

TEST_F(SessionSystem, AllDrivesOfTheAlphabetFit)
{
    m_drives.clear();
    for (wchar_t letter = L'A'; letter <= L'Z'; ++letter)
        m_drives.push_back({std::wstring(1, letter) + L":\\"});
    const All volumes = elements(gathered(), "Volume");
    ASSERT_THAT(volumes, SizeIs(26));
    EXPECT_EQ(volumes[25].at("DriveLetter"), "Z:\\");
}

TEST_F(SessionSystem, DrivesThatFillTheirRoomAreAllTold)
{
    m_drives.clear();
    for (int i = 0; i < 37; ++i) // 148 characters
        m_drives.push_back({std::wstring(1, static_cast<wchar_t>(L'A' + i)) + L":\\"});
    EXPECT_THAT(elements(gathered(), "Volume"), SizeIs(37));
}

TEST_F(SessionSystem, DrivesThatNeedMoreRoomAreNoneAndNoFailure)
{
    m_drives.clear();
    for (int i = 0; i < 38; ++i)
        m_drives.push_back({std::wstring(1, static_cast<wchar_t>(L'A' + i)) + L":\\"});
    const std::string all = gathered();
    EXPECT_THAT(elements(all, "Disks"), SizeIs(1));
    EXPECT_THAT(elements(all, "Volume"), SizeIs(0));
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(SessionSystem, DrivesThatAreNotToldAreAnEmptyElementAndALine)
{
    m_drives.clear();
    const std::string all = gathered();
    EXPECT_THAT(elements(all, "Disks"), SizeIs(1));
    EXPECT_THAT(elements(all, "Volume"), SizeIs(0));
    EXPECT_THAT(told(), ElementsAre(line("ERROR   ", "gatherDiskDetails", "GetLogicalDriveStrings failed (5)")));
}

TEST_F(SessionSystem, DrivesAreAskedWithoutADialogForTheUser)
{
    DWORD inside = 0;
    DWORD before = 0;
    ASSERT_TRUE(::SetThreadErrorMode(SEM_NOOPENFILEERRORBOX, &before));
    {
        const Hook<GetDiskFreeSpaceExWImport> space(
            [&](const wchar_t*, ULARGE_INTEGER*, ULARGE_INTEGER*, ULARGE_INTEGER*) -> BOOL
            {
                inside = ::GetThreadErrorMode();
                return FALSE;
            });
        m_session->gatherSystemInfo();
        EXPECT_EQ(space.calls(), 1);
    }
    EXPECT_EQ(inside & SEM_FAILCRITICALERRORS, static_cast<DWORD>(SEM_FAILCRITICALERRORS));
    EXPECT_EQ(::GetThreadErrorMode(), static_cast<DWORD>(SEM_NOOPENFILEERRORBOX));
    ::SetThreadErrorMode(before, nullptr);
}

// Exceptions ------------------------------------------------------------------------------------------
class SessionException : public SessionSystem
{
protected:
    SessionException()
    {
        m_record.ExceptionCode = 0xC0000005;
        m_record.ExceptionAddress = reinterpret_cast<void*>(std::uintptr_t{0x00007FF6FEDC0012});
        m_pointers = {&m_record, nullptr};
        m_memory.cb = 80;
        m_memory.PageFaultCount = 1;
        m_memory.PeakWorkingSetSize = 2;
        m_memory.WorkingSetSize = 3;
        m_memory.QuotaPeakPagedPoolUsage = 4;
        m_memory.QuotaPagedPoolUsage = 5;
        m_memory.QuotaPeakNonPagedPoolUsage = 6;
        m_memory.QuotaNonPagedPoolUsage = 7;
        m_memory.PagefileUsage = 8;
        m_memory.PeakPagefileUsage = 9;
        m_memory.PrivateUsage = 10;
    }

    EXCEPTION_RECORD m_record{};
    EXCEPTION_POINTERS m_pointers{};
};

TEST_F(SessionException, IsToldWithProgramCodeNameAndAddress)
{
    m_session->reportException(&m_pointers, L"4711 <x>");
    const std::string all = report();
    EXPECT_EQ(
        elements(all, "Exception"), (All{
                                        {{"Module", "C:\\Suite\\viewer.exe"},
                                         {"Code", "0xc0000005"},
                                         {"EventID", "4711 <x>"},
                                         {"Description", "EXCEPTION_ACCESS_VIOLATION"},
                                         {"Address", "0xfedc0012"}}}));
    EXPECT_EQ(
        elements(inside(all, "Exception"), "memory"), (All{
                                                          {{"page_fault_count", "1"},
                                                           {"peak_working_set_size", "2"},
                                                           {"working_set_size", "3"},
                                                           {"quota_peak_paged_pool_usage", "4"},
                                                           {"quota_paged_pool_usage", "5"},
                                                           {"quota_peak_non_paged_pool_usage", "6"},
                                                           {"quota_non_paged_pool_usage", "7"},
                                                           {"page_file_usage", "8"},
                                                           {"peak_page_file_usage", "9"},
                                                           {"private_usage", "10"}}}));
    const std::string content = inside(all, "Exception");
    EXPECT_LT(content.find("<memory "), content.find("<Disks>"));
    EXPECT_THAT(elements(content, "Volume"), SizeIs(1));
    EXPECT_EQ(content.find("LoadedModules"), std::string::npos);
    EXPECT_NE(all.find("<LoadedModules/>", all.find("</Exception>")), std::string::npos) << all;
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(SessionException, OfWhichNothingIsKnownIsToldAllTheSame)
{
    const Attributes unknown = {
        {"Module", "C:\\Suite\\viewer.exe"},
        {"Code", "0x00000000"},
        {"Description", "EXCEPTION_UNKNOWN"},
        {"Address", "0x00000000"}};
    EXCEPTION_POINTERS empty{};
    m_session->reportException(nullptr, nullptr);
    m_session->reportException(&empty, nullptr);
    EXPECT_EQ(elements(report(), "Exception"), (All{unknown, unknown}));
}

TEST_F(SessionException, HasTheHostsNameOnlyWhenThereIsOne)
{
    m_session->reportException(&m_pointers, nullptr);
    m_session->reportException(&m_pointers, L"");
    const All exceptions = elements(report(), "Exception");
    ASSERT_THAT(exceptions, SizeIs(2));
    EXPECT_EQ(exceptions[0].count("EventID"), 0u);
    EXPECT_EQ(exceptions[1].count("EventID"), 1u);
}

TEST_F(SessionException, IsNamedByItsCode)
{
    const std::pair<DWORD, std::pair<const char*, const char*>> rows[] = {
        {0xE06D7363, {"0xe06d7363", "(C++ thrown() exception)"}},
        {0xE06D7364, {"0xe06d7364", "EXCEPTION_UNKNOWN"}},
        {0x80000003, {"0x80000003", "EXCEPTION_BREAKPOINT"}},
        {0x0000002A, {"0x0000002a", "EXCEPTION_UNKNOWN"}}};
    for (const auto& [code, texts] : rows)
    {
        m_record.ExceptionCode = code;
        m_session->reportException(&m_pointers, nullptr);
        const All exceptions = elements(report(), "Exception");
        EXPECT_EQ(exceptions.back().at("Code"), texts.first);
        EXPECT_EQ(exceptions.back().at("Description"), texts.second);
    }
}

TEST_F(SessionException, ASecondOneIsThereBesideTheFirst)
{
    m_session->reportException(&m_pointers, L"1");
    m_session->reportException(&m_pointers, L"2");
    const std::string all = report();
    const All exceptions = elements(all, "Exception");
    ASSERT_THAT(exceptions, SizeIs(2));
    EXPECT_EQ(exceptions[0].at("EventID"), "1");
    EXPECT_EQ(exceptions[1].at("EventID"), "2");
    EXPECT_THAT(elements(all, "LoadedModules"), SizeIs(2));
    EXPECT_THAT(elements(all, "System"), SizeIs(0));
}

TEST_F(SessionException, HasTheFrontOfAPathThatIsTooLong)
{
    m_program = L"C:\\" + std::wstring(300, L'x');
    m_session->reportException(&m_pointers, nullptr);
    EXPECT_EQ(elements(report(), "Exception").at(0).at("Module"), "C:\\" + std::string(252, 'x'));
}

TEST_F(SessionException, HasTheLow32BitsOfMemoryCounters)
{
    m_memory.PageFaultCount = 0xFFFFFFFF;
    m_memory.PeakWorkingSetSize = 0x1FFFFFFFF;
    m_memory.WorkingSetSize = 0x100000000;
    m_memory.PrivateUsage = 0xABCDEF0180000000;
    m_session->reportException(&m_pointers, nullptr);
    const Attributes memory = elements(report(), "memory").at(0);
    EXPECT_EQ(memory.at("page_fault_count"), "4294967295");
    EXPECT_EQ(memory.at("peak_working_set_size"), "4294967295");
    EXPECT_EQ(memory.at("working_set_size"), "0");
    EXPECT_EQ(memory.at("private_usage"), "2147483648");
}

TEST_F(SessionException, HasNoMemoryWhereItCannotBeMeasured)
{
    m_process_opens = false;
    m_session->reportException(&m_pointers, nullptr);
    EXPECT_EQ(m_memory_info.calls(), 0);
    m_process_opens = true;
    m_memory_is_known = false;
    m_session->reportException(&m_pointers, nullptr);
    EXPECT_EQ(m_memory_info.calls(), 1);
    const std::string all = report();
    EXPECT_THAT(elements(all, "Exception"), SizeIs(2));
    EXPECT_THAT(elements(all, "memory"), SizeIs(0));
    EXPECT_THAT(elements(all, "Disks"), SizeIs(2));
    EXPECT_THAT(elements(all, "LoadedModules"), SizeIs(2));
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(SessionException, TellsOfDrivesThatFailAsTheSystemDoes)
{
    m_drives = {{L"A:\\", 2, false}};
    m_session->reportException(&m_pointers, nullptr);
    m_drives.clear();
    m_session->reportException(&m_pointers, nullptr);
    EXPECT_THAT(
        told(), ElementsAre(
                    line("DEBUG   ", "gatherDiskDetails", "GetDiskFreeSpaceEx failed (21)"),
                    line("ERROR   ", "gatherDiskDetails", "GetLogicalDriveStrings failed (5)")));
}

// Modules ---------------------------------------------------------------------------------------------
std::vector<MINIDUMP_MODULE_CALLBACK> modules_of_dump;

/// Writes no dump, but asks for each module as a real one does.
BOOL WINAPI write_dump(
    HANDLE, DWORD, HANDLE, MINIDUMP_TYPE, MINIDUMP_EXCEPTION_INFORMATION*, MINIDUMP_USER_STREAM_INFORMATION*,
    MINIDUMP_CALLBACK_INFORMATION* callback)
{
    for (const MINIDUMP_MODULE_CALLBACK& module : modules_of_dump)
    {
        MINIDUMP_CALLBACK_INPUT input{};
        MINIDUMP_CALLBACK_OUTPUT output{};
        input.CallbackType = ModuleCallback;
        input.Module = module;
        output.ModuleWriteFlags = 0xFFFF;
        callback->CallbackRoutine(callback->CallbackParam, &input, &output);
    }
    return TRUE;
}

TEST_F(SessionException, HasTheModulesOfTheLastDumpInTheirOrder)
{
    wchar_t first[] = L"C:\\Suite\\viewer.exe";
    wchar_t second[] = L"C:\\Suite\\a & b.dll";
    MINIDUMP_MODULE_CALLBACK module{};
    module.FullPath = first;
    module.BaseOfImage = 0x00007FF6FEDC0000;
    module.SizeOfImage = 4096;
    module.TimeDateStamp = 1709647629; // 2024-03-05 14:07:09
    module.VersionInfo.dwFileVersionMS = 0x00010002;
    module.VersionInfo.dwFileVersionLS = 0x0003FFFF;
    module.VersionInfo.dwProductVersionMS = 0xFFFF0000;
    module.VersionInfo.dwProductVersionLS = 0x000A000B;
    modules_of_dump.push_back(module);
    module = {};
    module.FullPath = second;
    module.BaseOfImage = 0x10000000;
    module.SizeOfImage = 0x80000000;
    module.TimeDateStamp = 0xFFFFFFFF; // 2106-02-07 06:28:15
    modules_of_dump.push_back(module);

    const Hook<SystemTimeToTzSpecificLocalTimeImport> zone(
        [](const TIME_ZONE_INFORMATION*, const SYSTEMTIME* universal, SYSTEMTIME* local) -> BOOL
        {
            *local = *universal;
            return TRUE;
        });
    const Hook<GetProcAddressImport> dumps(
        [](HMODULE module_handle, const char* name) -> FARPROC {
            return std::strcmp(name, "MiniDumpWriteDump") == 0 ? as_proc(&write_dump)
                                                               : ::GetProcAddress(module_handle, name);
        });
    Kor_SessionLog::Activate(true);
    Kor_SessionLog* const reporter = Kor_SessionLog::GetInstance();
    ASSERT_NE(reporter, nullptr);
    m_session->reportException(&m_pointers, L"before");
    reporter->produceMinidump(&m_pointers);
    m_session->reportException(&m_pointers, L"after");
    const std::string all = report();
    EXPECT_THAT(elements(all, "LoadedModules"), SizeIs(2));
    EXPECT_NE(all.find("<LoadedModules/>"), std::string::npos); // of the first
    EXPECT_EQ(
        elements(all, "Module"), (
                                     All{{{"FullPath", "C:\\Suite\\viewer.exe"},
                                          {"BaseAddress", "0xfedc0000"},
                                          {"ImageSize", "4096"},
                                          {"ImageTimeStamp", "2024-03-05 14:07:09.000"},
                                          {"FileVersion", "1.2.3.65535"},
                                          {"ProductVersion", "65535.0.10.11"}},
                                         {{"FullPath", "C:\\Suite\\a & b.dll"},
                                          {"BaseAddress", "0x10000000"},
                                          {"ImageSize", "-2147483648"},
                                          {"ImageTimeStamp", "2106-02-07 06:28:15.000"},
                                          {"FileVersion", "0.0.0.0"},
                                          {"ProductVersion", "0.0.0.0"}}}));
}

// What is thrown --------------------------------------------------------------------------------------
TEST_F(SessionException, AThrowAmongTheProcessorsIsToldAndTheRestIsThere)
{
    m_processors.resize(3, usual_processor());
    const Hook<RegQueryValueExWImport> values(
        [&](HKEY key, const wchar_t* name, DWORD*, DWORD* type, BYTE* to, DWORD* size) -> LSTATUS
        {
            if (reinterpret_cast<std::uintptr_t>(key) == FIRST_KEY + 1 && std::wstring(name) == L"Identifier")
                throw std::runtime_error("of the test");
            return m_query.original(key, name, nullptr, type, to, size);
        });
    const std::string all = gathered();
    EXPECT_THAT(
        told(), ElementsAre(line("ERROR   ", "gatherProcessorDetails", "Exception in gatherProcessorDetails()")));
    EXPECT_THAT(elements(all, "Processor"), SizeIs(2));
    EXPECT_THAT(elements(all, "OS"), SizeIs(1));
    EXPECT_THAT(elements(all, "Disks"), SizeIs(1));
    EXPECT_THAT(m_open_keys, IsEmpty());
}

TEST_F(SessionException, AThrowElsewhereEndsTheOperationAndWhatWasAddedStays)
{
    const Hook<GetDriveTypeWImport> types([](const wchar_t*) -> UINT { throw std::runtime_error("of the test"); });
    m_session->gatherSystemInfo();
    m_session->reportException(&m_pointers, nullptr);
    EXPECT_THAT(
        told(), ElementsAre(
                    line("ERROR   ", GATHER, "Exception in SessionLogGatherer::gatherSystemInfo()"),
                    line("ERROR   ", REPORT_EXCEPTION, "Exception in SessionLogGatherer::reportException()")));
    const std::string all = report();
    EXPECT_THAT(elements(all, "OS"), SizeIs(1));
    EXPECT_THAT(elements(all, "Exception"), SizeIs(1));
    EXPECT_THAT(elements(all, "memory"), SizeIs(1));
    EXPECT_EQ(elements(all, "Volume"), (All{{{"DriveLetter", "C:\\"}}, {{"DriveLetter", "C:\\"}}}));
    EXPECT_THAT(elements(all, "LoadedModules"), SizeIs(0));
    on_another_thread([&] { EXPECT_EQ(m_session->getHistorySize(), 128u); }); // which is not kept out
}

// Memory of the library's own -------------------------------------------------------------------------
/// Runs the operation again and again until the document has no memory left to grow.
int run_out_of_memory(const std::function<void()>& operation)
{
    constexpr std::size_t SMALLEST_REFUSED = 8192; // what a document grows by is larger, what lines take is not
    Hook<mallocImport>* own = nullptr;
    int refused = 0;
    Hook<mallocImport> mallocs(
        [&](std::size_t size) -> void*
        {
            if (size < SMALLEST_REFUSED)
                return own->original(size);
            ++refused;
            return nullptr;
        });
    own = &mallocs;
    EXPECT_TRUE(mallocs.installed());
    for (int i = 0; i < 1000 && refused == 0; ++i)
        operation();
    return refused;
}

TEST_F(SessionException, AnExceptionThatThereIsNoMemoryForIsToldInTheGeneralLog)
{
    EXPECT_GT(run_out_of_memory([&] { m_session->reportException(&m_pointers, L"4711"); }), 0);
    EXPECT_THAT(
        told(),
        ElementsAre(line("ERROR   ", REPORT_EXCEPTION, "Out of memory in SessionLogGatherer::reportException()")));
    const std::size_t before = elements(report(), "Exception").size();
    EXPECT_GT(before, 0u);
    m_session->reportException(&m_pointers, L"with memory again");
    const All exceptions = elements(report(), "Exception");
    EXPECT_EQ(exceptions.size(), before + 1);
    EXPECT_EQ(exceptions.back().at("EventID"), "with memory again");
}

TEST_F(SessionException, AMachineThatThereIsNoMemoryForIsToldInTheGeneralLog)
{
    m_processors.clear();
    EXPECT_GT(run_out_of_memory([&] { m_session->gatherSystemInfo(); }), 0);
    EXPECT_THAT(
        told(), ElementsAre(line("ERROR   ", GATHER, "Out of memory in SessionLogGatherer::gatherSystemInfo()")));
    EXPECT_GT(elements(report(), "System").size(), 0u);
}
} // namespace
