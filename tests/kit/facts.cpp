#include "facts.h"

#include <windows.h>

#include <iterator>
#include <memory>
#include <vector>

#include "kit_children.h"
#include "processes.h"

namespace kit
{
namespace
{
constexpr wchar_t SOURCE[] = L"LUMlog test kit";

class Lines
{
public:
    void add(const std::string& name, const std::string& value) { m_text += name + ": " + value + '\n'; }
    const std::string& text() const noexcept { return m_text; }

private:
    std::string m_text;
};

std::string number(unsigned long long value) { return std::to_string(value); }
std::string yes_or_no(bool value) { return value ? "yes" : "no"; }

std::string registry_text(const wchar_t* key, const wchar_t* name)
{
    wchar_t value[512] = {};
    DWORD size = sizeof value;
    const LSTATUS result = ::RegGetValueW(HKEY_LOCAL_MACHINE, key, name, RRF_RT_REG_SZ, nullptr, value, &size);
    return result == ERROR_SUCCESS ? utf8(value) : "not there";
}

void add_system(Lines& lines)
{
    const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    using GetVersion = LONG(WINAPI*)(OSVERSIONINFOEXW*);
    OSVERSIONINFOEXW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    reinterpret_cast<GetVersion>(reinterpret_cast<void*>(::GetProcAddress(ntdll, "RtlGetVersion")))(&version);
    lines.add(
        "Windows", number(version.dwMajorVersion) + "." + number(version.dwMinorVersion) + "." +
                       number(version.dwBuildNumber) + (version.wProductType == VER_NT_WORKSTATION ? "" : " server"));
    using GetWine = const char* (*)();
    const auto wine = reinterpret_cast<GetWine>(reinterpret_cast<void*>(::GetProcAddress(ntdll, "wine_get_version")));
    lines.add("Wine", wine == nullptr ? "no" : wine());
    lines.add(
        "processor", registry_text(L"HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", L"ProcessorNameString"));
    SYSTEM_INFO system = {};
    ::GetNativeSystemInfo(&system);
    lines.add("processors", number(system.dwNumberOfProcessors));
    MEMORYSTATUSEX memory = {};
    memory.dwLength = sizeof memory;
    ::GlobalMemoryStatusEx(&memory);
    lines.add("memory in MB", number(memory.ullTotalPhys >> 20));
    lines.add("code pages", number(::GetACP()) + " " + number(::GetOEMCP()));
    SYSTEMTIME now = {};
    ::GetSystemTime(&now);
    lines.add(
        "day", number(now.wYear) + "-" + number(now.wMonth) + "-" + number(now.wDay) + " " + number(now.wHour) + ":" +
                   number(now.wMinute) + " UTC");
    DWORD adjustment = 0;
    DWORD tick = 0;
    BOOL is_off = FALSE;
    ::GetSystemTimeAdjustment(&adjustment, &tick, &is_off);
    lines.add("clock tick in 100 ns", number(tick) + ", adjusted to " + number(adjustment) + (is_off ? " (off)" : ""));
    lines.add(
        "LocalDumps",
        registry_text(L"SOFTWARE\\Microsoft\\Windows\\Windows Error Reporting\\LocalDumps", L"DumpFolder"));
}

bool is_elevated()
{
    HANDLE token = nullptr;
    if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token) == FALSE)
        return false;
    TOKEN_ELEVATION elevation = {};
    DWORD size = sizeof elevation;
    ::GetTokenInformation(token, TokenElevation, &elevation, size, &size);
    ::CloseHandle(token);
    return elevation.TokenIsElevated != 0;
}

void add_rights(Lines& lines)
{
    DWORD session = 0;
    ::ProcessIdToSessionId(::GetCurrentProcessId(), &session);
    lines.add("elevated", yes_or_no(is_elevated()));
    lines.add("session", number(session));
    const HANDLE block =
        ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, L"Global\\LUMlog test kit");
    lines.add("may make a block of the machine", block != nullptr ? "yes" : "no, error " + number(::GetLastError()));
    if (block != nullptr)
        ::CloseHandle(block);
}

/// Colours as the library sets them, read back from the screen.
void add_console(Lines& lines)
{
    const HANDLE screen = ::CreateConsoleScreenBuffer(
        GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr, CONSOLE_TEXTMODE_BUFFER, nullptr);
    if (screen == INVALID_HANDLE_VALUE)
        return lines.add("console", "none, error " + number(::GetLastError()));
    std::string colours;
    for (const WORD colour : {WORD{12}, WORD{14}, WORD{10}, WORD{7}})
    {
        DWORD count = 0;
        WORD found = 0;
        CONSOLE_SCREEN_BUFFER_INFO info = {};
        ::GetConsoleScreenBufferInfo(screen, &info);
        ::SetConsoleTextAttribute(screen, colour);
        ::WriteConsoleW(screen, L"x", 1, &count, nullptr);
        ::ReadConsoleOutputAttribute(screen, &found, 1, info.dwCursorPosition, &count);
        colours += " " + number(colour) + "=" + number(found);
    }
    ::CloseHandle(screen);
    lines.add("console colours, set and seen", colours.substr(1));
}

/// How many of the lines that two processes append to one file arrive.
void add_appends(Lines& lines, const std::wstring& kit)
{
    const std::wstring path = kit + L"\\appends.txt";
    ::DeleteFileW(path.c_str());
    lines.add(
        "appended by two processes", number(append_with_two_processes(path)) + " of " + number(2 * APPENDED_LINES));
    ::DeleteFileW(path.c_str());
}

std::string last_line(const std::string& text)
{
    std::string line = text.substr(0, text.find_last_not_of("\r\n") + 1);
    return line.substr(line.find_last_of('\n') + 1);
}

/// Newest record of the Application log that is of our source: its texts.
std::string newest_event()
{
    const HANDLE log = ::OpenEventLogW(nullptr, L"Application");
    if (log == nullptr)
        return "the log cannot be opened, error " + number(::GetLastError());
    std::vector<BYTE> bytes(0x10000);
    DWORD count = 0;
    DWORD needed = 0;
    std::string found = "none of ours was found";
    if (::ReadEventLogW(
            log, EVENTLOG_SEQUENTIAL_READ | EVENTLOG_BACKWARDS_READ, 0, bytes.data(), static_cast<DWORD>(bytes.size()),
            &count, &needed) != FALSE)
        for (DWORD at = 0; at + sizeof(EVENTLOGRECORD) <= count;)
        {
            const auto* const record = reinterpret_cast<const EVENTLOGRECORD*>(bytes.data() + at);
            if (std::wstring(reinterpret_cast<const wchar_t*>(record + 1)) == SOURCE)
            {
                const auto* const text = reinterpret_cast<const wchar_t*>(bytes.data() + at + record->StringOffset);
                found = "code " + number(record->EventID) + ", category " + number(record->EventCategory) +
                        ", strings " + number(record->NumStrings) + ", the first: " + utf8(text);
                break;
            }
            at += record->Length;
        }
    ::CloseEventLog(log);
    return found;
}

/// Registers a source, writes an event, looks for it, and takes the source away again.
void add_event_log(Lines& lines, const std::wstring& kit)
{
    const std::wstring admin = kit + L"\\bin\\lumlog-admin.exe";
    const std::wstring name = std::wstring(L"\"") + SOURCE + L"\"";
    for (const wchar_t* const command : {L"register ", L"test ", L"status "})
    {
        const Ended ended = run(admin, command + name, kit, 60'000);
        lines.add(
            "event log, " + utf8(command) + "ends with",
            number(ended.code) + ": " + last_line(ended.output.substr(0, ended.output.find("\n    "))));
    }
    lines.add("event log, read back", newest_event());
    lines.add("event log, unregister ends with", number(run(admin, L"unregister " + name, kit, 60'000).code));
}

void add_stack(Lines& lines, const std::wstring& kit)
{
    const Ended ended = run(kit + L"\\bin\\kit_runner.exe", L"--overflow", kit, 60'000);
    lines.add(
        "a handler after a stack overflow has what it asked for",
        ended.code == STACK_WAS_KEPT ? "yes" : "no, the process ended with " + number(ended.code));
}
} // namespace

std::string facts(const std::wstring& kit)
{
    Lines lines;
    add_system(lines);
    add_rights(lines);
    add_console(lines);
    add_event_log(lines, kit);
    add_appends(lines, kit);
    add_stack(lines, kit);
    return lines.text();
}
} // namespace kit
