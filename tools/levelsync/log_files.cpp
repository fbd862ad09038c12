#include "log_files.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "core/calendar.h"
#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr DWORD EVERY_SHARE = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr std::size_t LOOKED_AT = 65'536; // bytes at the front and at the end of a file, to see what it is
constexpr std::int64_t TICKS_PER_MS = 10'000;

/// What FindFirstFile has found.
class Search
{
public:
    Search(const std::wstring& pattern, WIN32_FIND_DATAW& found) : m_handle(::FindFirstFileW(pattern.c_str(), &found))
    {
    }
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;
    ~Search()
    {
        if (is_open())
            ::FindClose(m_handle);
    }

    bool is_open() const noexcept { return m_handle != INVALID_HANDLE_VALUE; }
    bool next(WIN32_FIND_DATAW& found) const { return ::FindNextFileW(m_handle, &found) != FALSE; }

private:
    HANDLE m_handle;
};

std::int64_t since_1601(const SYSTEMTIME& time)
{
    FILETIME file_time{};
    ::SystemTimeToFileTime(&time, &file_time);
    return static_cast<std::int64_t>(
        (static_cast<std::uint64_t>(file_time.dwHighDateTime) << 32) | file_time.dwLowDateTime);
}

/// This machine's zone, by its rules for summer and winter.
class MachineZone final : public kor::core::RuledZone
{
    int minutes_ahead_at(std::int64_t utc) const override
    {
        const std::uint64_t ticks = ticks_of(utc);
        const FILETIME file_time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
        SYSTEMTIME there{};
        SYSTEMTIME local{};
        if (::FileTimeToSystemTime(&file_time, &there) == FALSE ||
            ::SystemTimeToTzSpecificLocalTime(nullptr, &there, &local) == FALSE)
            return 0;
        return static_cast<int>((since_1601(local) - since_1601(there)) / (TICKS_PER_MS * kor::core::MS_PER_MINUTE));
    }
};

/// The part of a file that is looked at to see what it is.
std::string part_of(LogFile& file, std::uint64_t at)
{
    std::string part(LOOKED_AT, '\0');
    part.resize(file.read(at, part.data(), part.size()));
    return part;
}

/// The first and the last part.
std::vector<std::string> ends_of(LogFile& file)
{
    std::vector<std::string> parts{part_of(file, 0)};
    const std::uint64_t size = file.size();
    if (size > LOOKED_AT)
        parts.push_back(part_of(file, size - LOOKED_AT));
    return parts;
}

/// As an editor marks it in front.
bool is_utf16(LogFile& file)
{
    char mark[2] = {};
    return file.read(0, mark, sizeof mark) == sizeof mark &&
           ((mark[0] == '\xFF' && mark[1] == '\xFE') || (mark[0] == '\xFE' && mark[1] == '\xFF'));
}

bool is_log(LogFile& file)
{
    const std::vector<std::string> parts = ends_of(file);
    return std::any_of(parts.begin(), parts.end(), &kor::core::looks_like_log);
}

/// Looks at the lines of a file that tell their zone: true when one of them agrees with the machine's.
bool agrees(LogFile& file, const kor::core::RuledZone& machine, int& told, bool& any)
{
    for (const std::string& part : ends_of(file))
    {
        std::size_t at = 0;
        while (at < part.size())
        {
            const std::size_t end = std::min(part.find('\n', at), part.size());
            const kor::core::LogLine line = kor::core::read_log_line(std::string_view(part).substr(at, end - at));
            at = end + 1;
            if (!line.has_zone)
                continue;
            any = true;
            told = line.zone_minutes;
            const std::int64_t wall = kor::core::wall_milliseconds(line.time);
            if (machine.minutes_ahead(wall, kor::core::LogZone::NOT_TOLD) == told)
                return true;
        }
    }
    return false;
}

std::string sentence(const std::wstring& path, unsigned long error)
{
    return shown(utf8(path)) + " cannot be read, so its lines are missing: " + system_text(error) + '.';
}
} // namespace

LogFile::LogFile(std::wstring path) : m_path(std::move(path))
{
    m_file.reset(::CreateFileW(m_path.c_str(), GENERIC_READ, EVERY_SHARE, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!is_valid(m_file))
        m_error = ::GetLastError();
}

std::size_t LogFile::read(std::uint64_t at, char* to, std::size_t size)
{
    OVERLAPPED position{};
    position.Offset = static_cast<DWORD>(at);
    position.OffsetHigh = static_cast<DWORD>(at >> 32);
    DWORD count = 0;
    const auto wanted = static_cast<DWORD>(std::min<std::size_t>(size, 1U << 30));
    if (!is_valid(m_file) || ::ReadFile(m_file.get(), to, wanted, &count, &position) == FALSE)
        return 0;
    return count;
}

std::uint64_t LogFile::size() const
{
    LARGE_INTEGER size{};
    return is_valid(m_file) && ::GetFileSizeEx(m_file.get(), &size) != FALSE ? static_cast<std::uint64_t>(size.QuadPart)
                                                                             : 0;
}

Time LogFile::last_written() const
{
    // By the handle: the folder's entry may be as old as the writer's opening of the file.
    FILETIME written{};
    if (!is_valid(m_file) || ::GetFileTime(m_file.get(), nullptr, nullptr, &written) == FALSE)
        return 0;
    return time_of_ticks(written.dwLowDateTime, written.dwHighDateTime);
}

std::string LogFile::name() const { return shown(utf8(m_path.substr(m_path.find_last_of(L"\\/") + 1))); }

std::wstring LogFile::identity() const
{
    BY_HANDLE_FILE_INFORMATION known{};
    if (!is_valid(m_file) || ::GetFileInformationByHandle(m_file.get(), &known) == FALSE)
        return m_path;
    return std::to_wstring(known.dwVolumeSerialNumber) + L':' + std::to_wstring(known.nFileIndexHigh) + L':' +
           std::to_wstring(known.nFileIndexLow);
}

std::vector<std::wstring> files_of(const std::wstring& folder)
{
    WIN32_FIND_DATAW found{};
    const Search search(folder + L"\\*", found);
    if (!search.is_open())
    {
        const DWORD error = ::GetLastError();
        const bool is_missing = error == ERROR_PATH_NOT_FOUND || error == ERROR_FILE_NOT_FOUND;
        throw Failure(
            is_missing ? "There is no folder " + shown(utf8(folder)) + "."
                       : shown(utf8(folder)) + " cannot be listed: " + system_text(error) + ".",
            is_missing
                ? "LevelSync ps shows where the running processes log to. Name that folder with --dir FOLDER, or set "
                  "PRISMATE_LOG_DIR as the servers have it."
                : "Run LevelSync under an account that may read that folder.");
    }
    std::vector<std::wstring> paths;
    do
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            paths.push_back(folder + L'\\' + found.cFileName);
    while (search.next(found));
    std::sort(paths.begin(), paths.end());
    return paths;
}

bool is_other_kind(const std::wstring& path)
{
    const std::size_t dot = path.find_last_of(L".\\/");
    const std::string ending = dot == std::wstring::npos ? std::string() : lower_case(utf8(path.substr(dot)));
    const std::string name = lower_case(utf8(path.substr(path.find_last_of(L"\\/") + 1)));
    if (name == "logger" || name == "logger.new")
        return true;
    // What a dump holds of a process's memory looks like a log in places.
    for (const char* const other : {".dmp", ".mp", ".xml", ".html", ".exe", ".dll", ".zip", ".history", ".lock"})
        if (ending == other)
            return true;
    return false;
}

bool holds_last_lines(const LogFile& log)
{
    constexpr std::string_view BEGIN = "lastlines-"; // as the library names them
    return lower_case(log.name()).compare(0, BEGIN.size(), BEGIN) == 0;
}

FoundLogs find_logs(const std::wstring& folder)
{
    FoundLogs found;
    for (const std::wstring& path : files_of(folder))
    {
        if (is_other_kind(path))
            continue;
        auto file = std::make_unique<LogFile>(path);
        if (file->error() == ERROR_FILE_NOT_FOUND) // gone since
            continue;
        if (file->error() != ERROR_SUCCESS)
            found.problems.push_back(sentence(path, file->error()));
        else if (is_utf16(*file))
            found.problems.push_back(
                shown(utf8(path)) + " is UTF-16, which no program writes a log in, so its lines are missing. Somebody "
                                    "has saved it so: save it as UTF-8 to have them here.");
        else if (is_log(*file))
            found.logs.push_back(std::move(file));
    }
    return found;
}

MergedLogs::MergedLogs(const LogFiles& logs, Time since) : m_zone(zone_of(logs))
{
    std::vector<kor::core::LogReader*> readers;
    for (const auto& log : logs)
    {
        kor::core::LogFileFacts facts;
        facts.last_written = log->last_written();
        facts.end = log->size(); // what comes later comes after this call
        facts.begin = facts.last_written >= since ? kor::core::find_log_start(*log, facts.end, since) : facts.end;
        m_readers.push_back(std::make_unique<kor::core::LogReader>(*log, *m_zone, facts));
        readers.push_back(m_readers.back().get());
    }
    m_merge.emplace(std::move(readers));
}

bool MergedLogs::next(kor::core::LogRecord& record) { return m_merge->next(record); }

std::unique_ptr<kor::core::LogZone> zone_of(const LogFiles& logs)
{
    auto machine = std::make_unique<MachineZone>();
    int told = 0;
    bool any = false;
    for (const auto& log : logs)
        if (agrees(*log, *machine, told, any))
            return machine;
    if (!any)
        return machine;
    return std::make_unique<kor::core::FixedZone>(told);
}
} // namespace levelsync
