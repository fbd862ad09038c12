// session_report.h - what tests of session reports and state files share.

#ifndef KOR_TESTS_SESSION_REPORT_H
#define KOR_TESTS_SESSION_REPORT_H

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <regex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <xercesc/framework/XMLFormatter.hpp>

#include "Kor_SessionLogGatherer.h"
#include "import_hook.h"
#include "log_directory.h"

/// 2024-01-31 08:00:00.000 UTC
constexpr std::int64_t MORNING = 1706688000000;

/// Keeps the bytes of a report. `then`, when given, is told of each piece first.
class ByteTarget final : public xercesc::XMLFormatTarget
{
public:
    explicit ByteTarget(std::function<void()> then = nullptr) : m_then(std::move(then)) {}

    void writeChars(const XMLByte* piece, XMLSize_t count, xercesc::XMLFormatter*) override
    {
        if (m_then)
            m_then();
        bytes.append(reinterpret_cast<const char*>(piece), count);
        is_flushed = false;
    }
    void flush() override { is_flushed = true; }

    std::string bytes;
    bool is_flushed = false;

private:
    std::function<void()> m_then;
};

/// UTF-16 text, low byte first.
inline std::wstring wide_text(std::string_view bytes)
{
    std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
    return text;
}

/// Its bytes, with the mark in front that says so.
inline std::string utf16_bytes(std::wstring_view text)
{
    const std::wstring marked = L'\xFEFF' + std::wstring(text);
    return {reinterpret_cast<const char*>(marked.data()), marked.size() * sizeof(wchar_t)};
}

/// A report's text with "{machine}" for what the XML library has written: the element SessionLogData and the white
/// space around it.
inline std::wstring without_machine(const std::wstring& text)
{
    static constexpr std::wstring_view OPEN = L"<lumariscontext>";
    static constexpr std::wstring_view EMPTY = L"<SessionLogData/>";
    static constexpr std::wstring_view CLOSE = L"</SessionLogData>";
    const std::size_t begin = text.find(OPEN);
    if (begin == std::wstring::npos)
        return text;
    std::size_t end = text.find(EMPTY, begin);
    if (end != std::wstring::npos)
        end += EMPTY.size();
    else if ((end = text.find(CLOSE, begin)) != std::wstring::npos)
        end += CLOSE.size();
    else
        return text;
    end = std::min(text.find_first_not_of(L" \r\n", end), text.size());
    return text.substr(0, begin + OPEN.size()) + L"{machine}" + text.substr(end);
}

/// The report or the state as text, the mark at its beginning included.
inline std::wstring report_text(const Kor_SessionLogGatherer& gatherer, bool is_report = true)
{
    ByteTarget target;
    gatherer.generateReport(&target, is_report);
    return wide_text(target.bytes);
}

/// The lists of a report, from `<context>` to the end of the last.
inline std::wstring lists_text(const Kor_SessionLogGatherer& gatherer)
{
    const std::wstring text = report_text(gatherer);
    const std::size_t begin = text.find(L"<context>");
    const std::size_t end = text.find(L"<stats ");
    return begin == std::wstring::npos || end == std::wstring::npos ? text : text.substr(begin, end - begin);
}

/// The element `stats` of a report.
inline std::wstring stats_text(const Kor_SessionLogGatherer& gatherer)
{
    const std::wstring text = report_text(gatherer, false);
    const std::size_t begin = text.find(L"<stats ");
    const std::size_t end = text.find(L"</lumariscontext>");
    return begin == std::wstring::npos || end == std::wstring::npos ? text : text.substr(begin, end - begin);
}

KOR_IMPORT(GetSystemTimeAsFileTime);
KOR_IMPORT(SystemTimeToTzSpecificLocalTime);

/// The library's clock: `now` in milliseconds since 1970 UTC, and the zone's minutes ahead of UTC.
class FixedSessionClock
{
public:
    explicit FixedSessionClock(std::int64_t time = MORNING, int minutes_ahead = 0)
        : now(time), ahead(minutes_ahead), m_time([this](FILETIME* result) { *result = file_time_of(now); }),
          m_zone(
              [this](const TIME_ZONE_INFORMATION*, const SYSTEMTIME* utc, SYSTEMTIME* local) -> BOOL
              { return convert(*utc, *local); })
    {
    }

    bool installed() const noexcept { return m_time.installed() && m_zone.installed(); }
    int conversions() const noexcept { return m_zone.calls(); }

    std::atomic<std::int64_t> now;
    std::atomic<int> ahead;

private:
    static FILETIME file_time_of(std::int64_t time) noexcept
    {
        const auto units = static_cast<std::uint64_t>((time + 11644473600000) * 10000); // of 100 ns since 1601
        return {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
    }

    BOOL convert(const SYSTEMTIME& utc, SYSTEMTIME& local) const
    {
        FILETIME time{};
        if (!::SystemTimeToFileTime(&utc, &time))
            return FALSE;
        const std::uint64_t units = ((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime) +
                                    static_cast<std::uint64_t>(std::int64_t{ahead} * 600'000'000);
        time.dwLowDateTime = static_cast<DWORD>(units);
        time.dwHighDateTime = static_cast<DWORD>(units >> 32);
        return ::FileTimeToSystemTime(&time, &local);
    }

    Hook<GetSystemTimeAsFileTimeImport> m_time;
    Hook<SystemTimeToTzSpecificLocalTimeImport> m_zone;
};

/// The lines of a log with "n" for the numbers of the lines in the library's sources.
inline std::vector<std::string> library_lines(const LogDirectory& directory, const std::string& name = "test.log")
{
    static const std::regex number(R"((  Kor_SessionLog\w*)\(\d+\) )");
    std::vector<std::string> lines = directory.lines(name);
    for (std::string& line : lines)
        line = std::regex_replace(line, number, "$1(n) ");
    return lines;
}

/// The names in a directory, but for those that every test has there.
inline std::vector<std::string> files_of(const LogDirectory& directory)
{
    std::vector<std::string> names;
    WIN32_FIND_DATAA found{};
    const HANDLE search = ::FindFirstFileA(directory.file("*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return names;
    do
    {
        const std::string name = found.cFileName;
        if (name != "." && name != ".." && name != "logger" && name != "test.log")
            names.push_back(name);
    } while (::FindNextFileA(search, &found));
    ::FindClose(search);
    return names;
}

#endif // KOR_TESTS_SESSION_REPORT_H
