#include "hosts.h"

#include <windows.h>

// Needs the types of windows.h.
#include <tlhelp32.h>
#include <winternl.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>

#include "core/calendar.h"
#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr wchar_t LIBRARY[] = L"LUMlog.dll";
constexpr wchar_t FOLDER_VARIABLE[] = L"PRISMATE_LOG_DIR";
constexpr wchar_t DEFAULT_FOLDER[] = L"log"; // below the current folder, where the variable is not set
constexpr std::size_t LOOKED_AT = 262'144;   // bytes at the end of a log
constexpr std::size_t LONGEST_PATH = 32'768; // characters, also of a variable
constexpr std::size_t MOST_ENVIRONMENT = 1 << 20;
constexpr int TRIES = 5; // a process that loads modules at that moment makes a snapshot fail

// Clocks of lines and of starts differ by this at most.
constexpr std::int64_t CLOCKS_APART_MS = 2'000;

// A process keeps its environment and its folders in its own memory, where Windows has no function to ask for them.
// These places have been the same since 64-bit Windows exists; debuggers read them there.
constexpr std::size_t PARAMETERS_IN_BLOCK = 0x20;
constexpr std::size_t DIRECTORY_IN_PARAMETERS = 0x38;
constexpr std::size_t ENVIRONMENT_IN_PARAMETERS = 0x80;

Time time_of(const FILETIME& file_time) { return time_of_ticks(file_time.dwLowDateTime, file_time.dwHighDateTime); }

std::wstring last_part(const std::wstring& path) { return path.substr(path.find_last_of(L"\\/") + 1); }

/// Memory of another process, of which nothing is believed.
class ForeignMemory
{
public:
    explicit ForeignMemory(HANDLE process) : m_process(process) {}

    template <class Value>
    bool read(std::uint64_t at, Value& value) const
    {
        SIZE_T count = 0;
        return at != 0 &&
               ::ReadProcessMemory(m_process, reinterpret_cast<const void*>(at), &value, sizeof value, &count) !=
                   FALSE &&
               count == sizeof value;
    }

    /// As many characters as can be read, in steps so small that one lies in memory or does not.
    std::wstring read_text(std::uint64_t at, std::size_t most) const
    {
        constexpr std::size_t STEP = 4096;
        std::wstring text;
        while (text.size() * sizeof(wchar_t) < most)
        {
            wchar_t piece[STEP / sizeof(wchar_t)];
            const std::uint64_t from = at + text.size() * sizeof(wchar_t);
            const std::size_t wanted = std::min(STEP - from % STEP, most - text.size() * sizeof(wchar_t));
            SIZE_T count = 0;
            if (::ReadProcessMemory(m_process, reinterpret_cast<const void*>(from), piece, wanted, &count) == FALSE ||
                count < sizeof(wchar_t))
                break;
            text.append(piece, count / sizeof(wchar_t));
        }
        return text;
    }

private:
    HANDLE m_process;
};

/// Where the process keeps its parameters, 0 when that cannot be told.
std::uint64_t parameters_of(HANDLE process, const ForeignMemory& memory)
{
    using Query = NTSTATUS(NTAPI*)(HANDLE, PROCESSINFOCLASS, void*, ULONG, ULONG*);
    static const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationProcess")));
    PROCESS_BASIC_INFORMATION basic{};
    std::uint64_t parameters = 0;
    if (query == nullptr || query(process, ProcessBasicInformation, &basic, sizeof basic, nullptr) != 0 ||
        !memory.read(reinterpret_cast<std::uint64_t>(basic.PebBaseAddress) + PARAMETERS_IN_BLOCK, parameters))
        return 0;
    return parameters;
}

/// The process's current folder.
std::wstring directory_of(const ForeignMemory& memory, std::uint64_t parameters)
{
    std::uint16_t bytes = 0;
    std::uint64_t text = 0;
    if (!memory.read(parameters + DIRECTORY_IN_PARAMETERS, bytes) ||
        !memory.read(parameters + DIRECTORY_IN_PARAMETERS + 8, text))
        return {};
    return memory.read_text(text, bytes);
}

std::wstring joined_path(const std::wstring& directory, const std::wstring& path)
{
    const bool is_absolute = path.size() >= 2 && (path[1] == L':' || (path[0] == L'\\' && path[1] == L'\\'));
    std::wstring whole = is_absolute ? path : directory;
    if (!is_absolute)
        whole += (whole.empty() || whole.back() == L'\\' ? L"" : L"\\") + path;
    std::wstring result(LONGEST_PATH, L'\0');
    result.resize(::GetFullPathNameW(whole.c_str(), static_cast<DWORD>(result.size()), result.data(), nullptr));
    while (result.size() > 3 && (result.back() == L'\\' || result.back() == L'/'))
        result.pop_back();
    return result;
}

/// What of the environment is about logs.
void read_environment(HANDLE process, Host& host)
{
    const ForeignMemory memory(process);
    const std::uint64_t parameters = parameters_of(process, memory);
    std::uint64_t environment = 0;
    if (parameters == 0 || !memory.read(parameters + ENVIRONMENT_IN_PARAMETERS, environment))
        return;
    const std::wstring block = memory.read_text(environment, MOST_ENVIRONMENT);
    std::wstring folder;
    for (std::size_t at = 0; at < block.size() && block[at] != L'\0';)
    {
        const std::size_t end = std::min(block.find(L'\0', at), block.size());
        const std::wstring entry = block.substr(at, end - at);
        at = end + 1;
        const std::size_t equals = entry.find(L'=', 1);
        const std::wstring name = entry.substr(0, equals);
        if (equals == std::wstring::npos || (name.rfind(L"PRISMATE_", 0) != 0 && name.rfind(L"KORAL_", 0) != 0))
            continue;
        host.variables[shown(utf8(name))] = shown(utf8(entry.substr(equals + 1)));
        if (name == FOLDER_VARIABLE)
            folder = entry.substr(equals + 1);
    }
    if (block.empty())
        return;
    host.has_variable = !folder.empty();
    const std::wstring directory = directory_of(memory, parameters);
    if (host.has_variable || !directory.empty())
        host.folder = joined_path(directory, host.has_variable ? folder : DEFAULT_FOLDER);
}

/// The path of the library in that process; empty when it has none. error: why it cannot be told.
std::wstring library_in(unsigned long id, unsigned long& error)
{
    OwnedHandle snapshot;
    error = ERROR_SUCCESS;
    for (int tries = 0; tries < TRIES && !is_valid(snapshot); ++tries)
    {
        snapshot.reset(::CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, id));
        error = is_valid(snapshot) ? ERROR_SUCCESS : ::GetLastError();
        if (error != ERROR_BAD_LENGTH)
            break;
    }
    MODULEENTRY32W module{};
    module.dwSize = sizeof module;
    for (BOOL more = is_valid(snapshot) ? ::Module32FirstW(snapshot.get(), &module) : FALSE; more != FALSE;
         more = ::Module32NextW(snapshot.get(), &module))
        if (::lstrcmpiW(module.szModule, LIBRARY) == 0)
            return module.szExePath;
    return {};
}

/// Lets this process look into those of other accounts, services above all. False where it has no right to.
bool may_look_into_others()
{
    HANDLE opened = nullptr;
    if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &opened) == FALSE)
        return false;
    const OwnedHandle token(opened);
    TOKEN_PRIVILEGES wanted{};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    return ::LookupPrivilegeValueW(nullptr, L"SeDebugPrivilege", &wanted.Privileges[0].Luid) != FALSE &&
           ::AdjustTokenPrivileges(token.get(), FALSE, &wanted, 0, nullptr, nullptr) != FALSE &&
           ::GetLastError() == ERROR_SUCCESS; // it also succeeds with "not all assigned"
}

/// What can be told of any process.
Host describe(unsigned long id, const std::wstring& name)
{
    Host host;
    host.id = id;
    host.program = name;
    ::ProcessIdToSessionId(id, &host.windows_session);
    const OwnedHandle limited(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    std::wstring path(LONGEST_PATH, L'\0');
    auto size = static_cast<DWORD>(path.size());
    if (is_valid(limited) && ::QueryFullProcessImageNameW(limited.get(), 0, path.data(), &size) != FALSE)
        host.program = path.substr(0, size);
    FILETIME started{};
    FILETIME other{};
    if (is_valid(limited) && ::GetProcessTimes(limited.get(), &started, &other, &other, &other) != FALSE)
        host.started = time_of(started);
    const OwnedHandle process(::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, id));
    if (is_valid(process))
        read_environment(process.get(), host);
    return host;
}

bool is_of(const LastLine& line, const Host& host)
{
    return host.started == 0 || line.time >= host.started - CLOCKS_APART_MS;
}
} // namespace

std::string Host::name() const
{
    std::wstring name = last_part(program);
    name.resize(std::min(name.find_last_of(L'.'), name.size()));
    return shown(utf8(name));
}

std::string version_of(const std::wstring& path)
{
    DWORD ignored = 0;
    const DWORD size = ::GetFileVersionInfoSizeW(path.c_str(), &ignored);
    std::vector<char> block(size);
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (size == 0 || ::GetFileVersionInfoW(path.c_str(), 0, size, block.data()) == FALSE ||
        ::VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &length) == FALSE ||
        length < sizeof *fixed)
        return {};
    return std::to_string(HIWORD(fixed->dwFileVersionMS)) + '.' + std::to_string(LOWORD(fixed->dwFileVersionMS)) + '.' +
           std::to_string(HIWORD(fixed->dwFileVersionLS));
}

HostList find_hosts()
{
    HostList list;
    const OwnedHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!is_valid(snapshot))
        throw Failure("The processes cannot be listed: " + system_text(::GetLastError()) + '.', "Try again.");
    const bool sees_all = may_look_into_others();
    PROCESSENTRY32W process{};
    process.dwSize = sizeof process;
    for (BOOL more = ::Process32FirstW(snapshot.get(), &process); more != FALSE;
         more = ::Process32NextW(snapshot.get(), &process))
    {
        const unsigned long id = process.th32ProcessID;
        if (id == 0 || id == ::GetCurrentProcessId())
            continue;
        unsigned long error = 0;
        const std::wstring library = library_in(id, error);
        if (!library.empty())
        {
            Host host = describe(id, process.szExeFile);
            host.library = library;
            host.version = version_of(library);
            list.hosts.push_back(std::move(host));
        }
        else if (
            error == ERROR_ACCESS_DENIED &&
            !sees_all) // what then stays closed are Windows' own, which load no other DLL
        {
            list.closed.push_back({id, process.szExeFile, error});
        }
    }
    std::sort(list.hosts.begin(), list.hosts.end(), [](const Host& a, const Host& b) { return a.id < b.id; });
    return list;
}

LogEnds::LogEnds(const LogFiles& logs)
{
    const std::unique_ptr<kor::core::LogZone> zone = zone_of(logs);
    for (const auto& log : logs)
        look(*log, *zone);
}

void LogEnds::look(LogFile& file, const kor::core::LogZone& zone)
{
    const std::uint64_t size = file.size();
    const std::uint64_t begin = size > LOOKED_AT ? size - LOOKED_AT : 0;
    kor::core::LogSplitter splitter(file, begin, size); // whoever writes there may be faster
    kor::core::LogPiece piece;
    bool whole = begin == 0; // what is read first is the rest of a line
    while (splitter.next(piece))
    {
        const kor::core::LogLine line =
            whole && piece.begins_line ? kor::core::read_log_line(piece.line()) : kor::core::LogLine();
        whole = true;
        if (!line.has_zone || line.process < 0)
            continue;
        const std::int64_t wall = kor::core::wall_milliseconds(line.time);
        const Time time = wall - zone.minutes_ahead(wall, line.zone_minutes) * kor::core::MS_PER_MINUTE;
        LastLine& last = m_last[static_cast<unsigned long>(line.process)];
        if (time < last.time)
            continue;
        last.file = file.path();
        last.time = time;
        last.application = shown(line.application);
        if (line.kind == kor::core::LogLine::MESSAGE)
        {
            last.client = shown(line.client);
            last.session = line.session;
        }
        else if (line.kind == kor::core::LogLine::START_BANNER)
        {
            last.client.clear();
            last.session = 0;
        }
        last.has_ended = line.kind == kor::core::LogLine::END_BANNER;
    }
}

const LastLine* LogEnds::of(const Host& host) const
{
    const auto found = m_last.find(host.id);
    return found == m_last.end() || !is_of(found->second, host) ? nullptr : &found->second;
}

Json json_of(const Host& host, const LogEnds& ends)
{
    Json row{{"pid", host.id}, {"program", shown(utf8(host.program))}};
    const LastLine* const last = ends.of(host);
    row["application"] = last == nullptr ? Json() : Json(last->application);
    row["log"] = last == nullptr ? Json() : Json(shown(utf8(last->file)));
    row["last_line"] = last == nullptr ? Json() : Json(utc_text(last->time));
    row["client"] = last == nullptr || last->client.empty() ? Json() : Json(last->client);
    row["session"] = last == nullptr || last->session == 0 ? Json() : Json(last->session);
    row["folder"] = host.folder ? Json(shown(utf8(*host.folder))) : Json();
    row["started"] = host.started == 0 ? Json() : Json(utc_text(host.started));
    row["windows_session"] = host.windows_session;
    row["library"] = host.library.empty() ? Json() : Json(shown(utf8(host.library)));
    row["version"] = host.version.empty() ? Json() : Json(host.version);
    row["variables"] = host.variables;
    row["looked_into"] = host.was_seen;
    return row;
}

FoundLogs find_all_logs(const std::wstring& folder, const HostList& list)
{
    FoundLogs all;
    std::set<std::wstring> folders{folder};
    for (const Host& host : list.hosts)
        if (host.folder)
            folders.insert(*host.folder);
    std::set<std::wstring> known;
    for (const std::wstring& each : folders)
    {
        FoundLogs found;
        try
        {
            found = find_logs(each);
        }
        catch (const Failure& failure)
        {
            // A process may name a folder that is not there, which is no reason to stop.
            if (::GetFileAttributesW(each.c_str()) != INVALID_FILE_ATTRIBUTES)
                all.problems.emplace_back(failure.what());
            continue;
        }
        for (auto& log : found.logs)
            if (known.insert(log->identity()).second)
                all.logs.push_back(std::move(log));
        all.problems.insert(all.problems.end(), found.problems.begin(), found.problems.end());
    }
    return all;
}

std::vector<std::wstring> log_folders(const Folder& folder)
{
    std::vector<std::wstring> folders{folder.path};
    for (const Host& host : find_hosts().hosts)
    {
        const bool exists = host.folder && ::GetFileAttributesW(host.folder->c_str()) != INVALID_FILE_ATTRIBUTES;
        const auto is_same = [&](const std::wstring& known)
        { return ::lstrcmpiW(known.c_str(), host.folder->c_str()) == 0; };
        if (exists && std::none_of(folders.begin(), folders.end(), is_same))
            folders.push_back(*host.folder);
    }
    return folders;
}

void add_hosts_by_logs(HostList& list, const LogEnds& ends)
{
    const auto knows_it = [&](const ClosedProcess& closed)
    {
        Host host = describe(closed.id, closed.program);
        const LastLine* const line = ends.of(host);
        if (line == nullptr || line->has_ended || host.started == 0)
            return false;
        host.was_seen = false;
        list.hosts.push_back(std::move(host));
        return true;
    };
    list.closed.erase(std::remove_if(list.closed.begin(), list.closed.end(), knows_it), list.closed.end());
    std::sort(list.hosts.begin(), list.hosts.end(), [](const Host& a, const Host& b) { return a.id < b.id; });
}
} // namespace levelsync
