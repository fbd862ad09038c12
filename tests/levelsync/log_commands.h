// log_commands.h - lines of logs as the library writes them, and Ctrl-C, for tests of the commands that read logs.

#ifndef KOR_TESTS_LOG_COMMANDS_H
#define KOR_TESTS_LOG_COMMANDS_H

#include <windows.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

#include "child.h"
#include "level_sync.h"

/// The report of --json; a discarded value where the output is none.
inline nlohmann::json json_of(const Ran& ran) { return nlohmann::json::parse(ran.out, nullptr, false); }

/// Calls LevelSync with --json.
inline nlohmann::json report_of(const Site& site, const std::string& line)
{
    return json_of(site.run(line + " --json"));
}

/// What a message tells of itself. Times are UTC.
struct Said
{
    std::string time; ///< "2026-11-21 08:00:00.000"
    std::string text;
    const char* level = "INFO    "; ///< eight characters
    int package = 320;
    std::string application = "viewer";
    unsigned process = 32;
    std::string whom = {}; ///< "ClientIP(192.0.2.7) SessionId(3)"; empty: none
};

/// The line, or lines, of a private file.
inline std::string line(const Said& said)
{
    const std::string number = std::to_string(said.package);
    const std::string line = said.time + "+00:00 " + said.level + '(' + number + ") " + said.application + " (" +
                             std::to_string(said.process) + ",280) " + (said.whom.empty() ? "" : said.whom + ' ') +
                             "host.cpp(113) replay -> " + said.text;
    std::string bytes;
    for (const char c : line)
        bytes += c == '\n' ? std::string("\r\n") : std::string(1, c);
    return bytes + "\r\n";
}

/// kind: "Start" or "End".
inline std::string banner(const std::string& time, const std::string& kind, const std::string& user = "root")
{
    return "===== viewer (32) " + kind + " Session at " + time + "+00:00, User " + user + " on VM =====\r\n";
}

/// The time so many seconds ago, as lines have it in UTC.
inline std::string ago(int seconds)
{
    FILETIME time{};
    ::GetSystemTimeAsFileTime(&time);
    ULARGE_INTEGER ticks{};
    ticks.LowPart = time.dwLowDateTime;
    ticks.HighPart = time.dwHighDateTime;
    ticks.QuadPart -= static_cast<ULONGLONG>(seconds) * 10'000'000;
    time.dwLowDateTime = ticks.LowPart;
    time.dwHighDateTime = ticks.HighPart;
    SYSTEMTIME fields{};
    ::FileTimeToSystemTime(&time, &fields);
    char text[64];
    std::snprintf(
        text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", fields.wYear, fields.wMonth, fields.wDay, fields.wHour,
        fields.wMinute, fields.wSecond, fields.wMilliseconds);
    return text;
}

/// Lets a file have been written last at that time (UTC).
inline bool set_written(const std::string& path, WORD year, WORD month, WORD day, WORD hour)
{
    const SYSTEMTIME fields{year, month, 0, day, hour, 0, 0, 0};
    FILETIME time{};
    ::SystemTimeToFileTime(&fields, &time);
    const HANDLE file = ::CreateFileA(
        path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    const bool is_set = ::SetFileTime(file, nullptr, nullptr, &time) != FALSE;
    ::CloseHandle(file);
    return is_set;
}

/// Adds to a file that others may have open.
inline bool append_to(const std::string& path, const std::string& bytes)
{
    const HANDLE file = ::CreateFileA(
        path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS, 0,
        nullptr);
    DWORD written = 0;
    const bool is_done = ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) != FALSE;
    ::CloseHandle(file);
    return is_done && written == bytes.size();
}

/// What the system does in a process where somebody presses Ctrl-C. False where it could not be done.
inline bool press_ctrl_c(const Child& child)
{
    const HANDLE process = ::OpenProcess(PROCESS_ALL_ACCESS, FALSE, child.pid());
    // System DLLs lie at the same place in all processes.
    const auto routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA("kernelbase.dll"), "CtrlRoutine")));
    const HANDLE thread = routine == nullptr ? nullptr
                                             : ::CreateRemoteThread(
                                                   process, nullptr, 0, routine,
                                                   reinterpret_cast<void*>(ULONG_PTR{CTRL_C_EVENT}), 0, nullptr);
    const bool is_done = thread != nullptr;
    ::CloseHandle(thread);
    ::CloseHandle(process);
    return is_done;
}

#endif // KOR_TESTS_LOG_COMMANDS_H
