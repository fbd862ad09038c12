// collect: logs and what belongs to them in one archive, for whoever looks into it elsewhere.

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_Package.h"
#include "archive.h"
#include "command.h"
#include "conf.h"
#include "core/log_filter.h"
#include "core/log_mask.h"
#include "failure.h"
#include "file.h"
#include "hosts.h"
#include "log_files.h"
#include "log_query.h"
#include "masking.h"
#include "spool.h"
#include "stop.h"
#include "text.h"

namespace levelsync
{
namespace
{
using kor::core::LogFilter;
using kor::core::LogMask;
using kor::core::LogRecord;

/// A file of the archive.
struct Content
{
    std::string name; ///< in the archive
    std::unique_ptr<kor::core::LogBytes> bytes;
    std::uint64_t size = 0;
    Time modified = 0;
    std::optional<std::size_t> lines; ///< of a log of which not all is taken
};

struct LeftOut
{
    std::string name;
    std::string why; ///< "older than --since"
};

enum class Kind
{
    LEVEL_FILE,
    HISTORY,
    REPORT,
    DUMP,
    NONE, ///< of LevelSync itself
    OTHER
};

std::wstring last_part(const std::wstring& path) { return path.substr(path.find_last_of(L"\\/") + 1); }

bool ends_with(const std::string& name, std::string_view ending)
{
    return name.size() > ending.size() && name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
}

Kind kind_of(const std::wstring& path)
{
    const std::string name = lower_case(utf8(last_part(path)));
    if (name == "logger")
        return Kind::LEVEL_FILE;
    if (name == "logger.history")
        return Kind::HISTORY;
    if (name == "logger.lock")
        return Kind::NONE;
    if (ends_with(name, ".xml") || ends_with(name, ".mp")) // the latter are statistics that go on from run to run
        return Kind::REPORT;
    return ends_with(name, ".dmp") ? Kind::DUMP : Kind::OTHER;
}

bool is_text(Kind kind) { return kind == Kind::LEVEL_FILE || kind == Kind::HISTORY || kind == Kind::REPORT; }

std::wstring absolute(const std::string& path)
{
    std::wstring result(32'768, L'\0');
    result.resize(::GetFullPathNameW(wide(path).c_str(), static_cast<DWORD>(result.size()), result.data(), nullptr));
    return result;
}

std::wstring own_path(HMODULE module)
{
    std::wstring path(32'768, L'\0');
    path.resize(::GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

/// "10.0.19045": what GetVersionEx tells depends on the program.
std::string windows_version()
{
    using GetVersion = LONG(WINAPI*)(OSVERSIONINFOW*);
    const auto get = reinterpret_cast<GetVersion>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (get == nullptr || get(&version) != 0)
        return {};
    return std::to_string(version.dwMajorVersion) + '.' + std::to_string(version.dwMinorVersion) + '.' +
           std::to_string(version.dwBuildNumber);
}

std::string size_text(std::uint64_t bytes)
{
    constexpr std::uint64_t KB = 1024;
    if (bytes < KB)
        return counted(static_cast<std::size_t>(bytes), "byte", "bytes");
    return bytes < KB * KB ? std::to_string(bytes / KB) + " KB" : std::to_string(bytes / KB / KB) + " MB";
}

/// All that goes into an archive.
class Collection
{
public:
    Collection(const Tool& tool, const LogFilter& filter, bool takes_whole_logs, bool is_masked)
        : m_tool(tool), m_filter(filter), m_takes_whole_logs(takes_whole_logs), m_is_masked(is_masked)
    {
    }

    void gather(const std::wstring& archive)
    {
        FoundLogs found = find_logs(m_tool.folder.path);
        m_problems = found.problems;
        HostList hosts = find_hosts();
        const LogEnds ends(found.logs);
        add_hosts_by_logs(hosts, ends);
        const std::vector<std::wstring> others = files_beside(found.logs, archive);
        if (m_is_masked)
            learn(found.logs, others);
        add_about(hosts, ends);
        add_logs(std::move(found.logs));
        for (const std::wstring& path : others)
            add_file(path);
        note_other_folders(hosts);
    }

    const std::vector<Content>& contents() const noexcept { return m_contents; }
    const std::vector<LeftOut>& left_out() const noexcept { return m_left_out; }
    const std::vector<std::string>& problems() const noexcept { return m_problems; }

private:
    std::vector<std::wstring> files_beside(const LogFiles& logs, const std::wstring& archive) const
    {
        std::vector<std::wstring> others;
        for (const std::wstring& path : files_of(m_tool.folder.path))
        {
            const bool is_log =
                std::any_of(logs.begin(), logs.end(), [&path](const auto& log) { return log->path() == path; });
            if (!is_log && ::lstrcmpiW(path.c_str(), archive.c_str()) != 0)
                others.push_back(path);
        }
        return others;
    }

    std::string masked_name(const std::wstring& path)
    {
        const std::string name = utf8(last_part(path));
        return m_is_masked ? m_mask.mask(name) : name;
    }

    /// Takes up all names and addresses first, so that one is replaced also where it stands before it is known.
    void learn(const LogFiles& logs, const std::vector<std::wstring>& others)
    {
        m_mask.add_user(own_account());
        MergedLogs all(logs, m_filter.since);
        LogRecord record;
        MaskedParts parts(m_mask);
        while (all.next(record))
        {
            if (record.begins)
                m_mask.learn(record.line);
            static_cast<void>(parts.add(record.text(), record.ends));
        }
        for (const std::wstring& path : others)
            if (is_text(kind_of(path)))
                static_cast<void>(masked_bytes(path));
    }

    void add_logs(LogFiles logs)
    {
        if (m_takes_whole_logs && !m_is_masked)
            for (auto& log : logs)
                add_whole("logs/", std::move(log));
        else
            add_lines(logs);
    }

    void add_whole(const char* folder, std::unique_ptr<LogFile> file)
    {
        Content content;
        content.name = folder + utf8(last_part(file->path()));
        content.size = file->size();
        content.modified = file->last_written();
        content.bytes = std::move(file);
        m_contents.push_back(std::move(content));
    }

    void add_lines(const LogFiles& logs)
    {
        std::vector<std::unique_ptr<Spool>> spools;
        std::vector<MaskedParts> masked;
        for (std::size_t i = 0; i < logs.size(); ++i)
        {
            spools.push_back(std::make_unique<Spool>());
            masked.emplace_back(m_mask);
        }
        std::vector<std::size_t> counts(logs.size());
        MergedLogs all(logs, m_filter.since);
        kor::core::LogSelection selection(m_filter, KOR_PACKAGE_PERFMON);
        LogRecord record;
        while (all.next(record))
        {
            if (!selection.wants(record))
                continue;
            counts[record.source] += record.begins ? 1 : 0;
            if (m_is_masked)
                spools[record.source]->append(masked[record.source].add(record.text(), record.ends));
            else
                spools[record.source]->append(record.text());
        }
        for (std::size_t i = 0; i < logs.size(); ++i)
            if (counts[i] == 0)
                m_left_out.push_back({masked_name(logs[i]->path()), "no line of it fits"});
            else
                add_spool(
                    "logs/" + masked_name(logs[i]->path()), std::move(spools[i]), logs[i]->last_written(), counts[i]);
    }

    void add_spool(std::string name, std::unique_ptr<Spool> spool, Time modified, std::optional<std::size_t> lines)
    {
        Content content;
        content.name = std::move(name);
        content.size = spool->size();
        content.modified = modified;
        content.lines = lines;
        content.bytes = std::move(spool);
        m_contents.push_back(std::move(content));
    }

    void add_file(const std::wstring& path)
    {
        const Kind kind = kind_of(path);
        if (kind == Kind::NONE)
            return;
        if (kind == Kind::OTHER)
            return m_left_out.push_back({masked_name(path), "no log, report or dump"});
        auto file = std::make_unique<LogFile>(path);
        if (file->error() != ERROR_SUCCESS)
            return m_left_out.push_back({masked_name(path), "cannot be read: " + system_text(file->error())});
        const bool is_of_a_time = kind == Kind::REPORT || kind == Kind::DUMP;
        if (is_of_a_time && file->last_written() < m_filter.since)
            return m_left_out.push_back({masked_name(path), "older than --since"});
        if (kind == Kind::DUMP && m_is_masked)
            return m_left_out.push_back({masked_name(path), "the memory in a dump cannot be masked"});
        const char* const folder = kind == Kind::DUMP ? "dumps/" : kind == Kind::REPORT ? "reports/" : "";
        if (m_is_masked)
            add_masked(folder, *file);
        else
            add_whole(folder, std::move(file));
    }

    std::string masked_bytes(const std::wstring& path)
    {
        const std::string bytes = read_whole(path).value_or(std::string());
        return kind_of(path) == Kind::HISTORY ? masked_json_lines(m_mask, bytes) : masked_text(m_mask, bytes);
    }

    void add_masked(const char* folder, const LogFile& file)
    {
        auto spool = std::make_unique<Spool>();
        spool->append(masked_bytes(file.path()));
        add_spool(folder + masked_name(file.path()), std::move(spool), file.last_written(), std::nullopt);
    }

    void add_about(const HostList& hosts, const LogEnds& ends)
    {
        const std::wstring library = own_path(::GetModuleHandleW(L"LUMlog.dll"));
        Json about;
        about["time"] = utc_text(now());
        about["command"] = m_tool.command_line;
        about["masked"] = m_is_masked;
        about["folder"] = utf8(m_tool.folder.path);
        about["levelsync"] = m_tool.version;
        about["library"] = {{"path", utf8(library)}, {"version", version_of(library)}};
        about["windows"] = windows_version();
        add_running(about);
        about["processes"] = Json::array();
        for (const Host& host : hosts.hosts)
        {
            Json row = json_of(host, ends);
            row["program_version"] = version_of(host.program);
            about["processes"].push_back(std::move(row));
        }
        about["processes_not_looked_into"] = hosts.closed.size();
        if (m_is_masked)
            mask_json(m_mask, about);
        auto spool = std::make_unique<Spool>();
        spool->append(about.dump(2, ' ', false, Json::error_handler_t::replace) + '\n');
        add_spool("about.json", std::move(spool), now(), std::nullopt);
    }

    /// What the processes share, as far as the level file in the archive does not tell it.
    void add_running(Json& about) const
    {
        const Running running = read_running();
        Json json{{"block", running.block}};
        json["output"] = running.conf ? Json(output_of(*running.conf)) : Json();
        json["size_limit_in_mb"] = running.conf ? Json(running.conf->sizeLimitInMb) : Json();
        json["differs_from_file"] = Json::array();
        const bool has_file = ::GetFileAttributesW(m_tool.folder.file.c_str()) != INVALID_FILE_ATTRIBUTES;
        if (running.conf && has_file)
            json["differs_from_file"] = texts_of(differences(*read_conf(m_tool.folder.file), *running.conf));
        about["running"] = running.conf ? json : Json();
    }

    /// Where the logs of running processes are that are not here.
    void note_other_folders(const HostList& hosts)
    {
        std::vector<std::wstring> noted{m_tool.folder.path};
        for (const Host& host : hosts.hosts)
        {
            const auto is_same = [&host](const std::wstring& folder)
            { return ::lstrcmpiW(folder.c_str(), host.folder->c_str()) == 0; };
            if (!host.folder || std::any_of(noted.begin(), noted.end(), is_same))
                continue;
            noted.push_back(*host.folder);
            m_problems.push_back(
                host.name() + " (" + std::to_string(host.id) + ") logs to " + shown(utf8(*host.folder)) +
                ", which is not in it: LevelSync collect ... --dir \"" + shown(utf8(*host.folder)) + "\".");
        }
    }

    const Tool& m_tool;
    const LogFilter& m_filter;
    const bool m_takes_whole_logs;
    const bool m_is_masked;
    LogMask m_mask;
    std::vector<Content> m_contents;
    std::vector<LeftOut> m_left_out;
    std::vector<std::string> m_problems; // whole sentences
};

class Collect final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("FILE", m_file, "The archive to write, as in case.zip")->required();
        m_query.declare(options);
        options.add_option("--text", m_query.text, "Lines with this text, in letters of either case");
        options.add_flag("--mask", m_is_masked, "Replace addresses and names of users by stand-ins");
        options.add_flag("--force", m_may_replace, "Write over an archive that is there");
        options.add_flag("--dry-run", m_is_dry_run, "Say what would be in it, and write nothing");
    }

    ExitCode run(Tool& tool) override
    {
        const LogFilter filter = m_query.filter(tool);
        const std::wstring path = absolute(m_file);
        require_free(path);
        const StopSignal stop;
        Collection collection(tool, filter, m_query.empty(), m_is_masked);
        collection.gather(path);
        if (!m_is_dry_run)
            write(tool, collection, path, stop);
        LogFile written(path);
        const std::uint64_t size = m_is_dry_run ? 0 : written.size();
        if (tool.json)
            print_json(tool, collection, path, size);
        else
            print(tool.console, collection, path, size);
        return DONE;
    }

private:
    void require_free(const std::wstring& path) const
    {
        const DWORD attributes = ::GetFileAttributesW(path.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES)
            return;
        if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
            throw Failure(
                shown(utf8(path)) + " is a folder.", "Name a file in it, as in LevelSync collect case.zip.",
                WRONG_CALL);
        if (!m_may_replace)
            throw Failure(
                "There is a file " + shown(utf8(path)) + " already.",
                "Nothing was written. Give another name, or --force to write over it.");
    }

    static void write(const Tool& tool, const Collection& collection, const std::wstring& path, const StopSignal& stop)
    {
        Archive archive(path);
        for (const Content& content : collection.contents())
            archive.add(content.name, *content.bytes, content.size, content.modified);
        archive.write(
            [&](double done)
            {
                tool.console.progress("Packing, " + std::to_string(static_cast<int>(done * 100)) + " %");
                return stop.wait(0);
            });
    }

    void print_json(const Tool& tool, const Collection& collection, const std::wstring& path, std::uint64_t size) const
    {
        Json contents = Json::array();
        for (const Content& content : collection.contents())
        {
            contents.push_back({{"name", content.name}, {"bytes", content.size}});
            if (content.lines)
                contents.back()["lines"] = *content.lines;
        }
        Json left_out = Json::array();
        for (const LeftOut& each : collection.left_out())
            left_out.push_back({{"name", each.name}, {"why", each.why}});
        tool.print(
            {{"file", shown(utf8(path))},
             {"dry_run", m_is_dry_run},
             {"bytes", m_is_dry_run ? Json() : Json(size)},
             {"masked", m_is_masked},
             {"contents", contents},
             {"left_out", left_out},
             {"problems", collection.problems()}});
    }

    void print(Console& console, const Collection& collection, const std::wstring& path, std::uint64_t size) const
    {
        for (const std::string& problem : collection.problems())
            console.error(problem, Style::CAREFUL);
        const std::string name = shown(utf8(path));
        console.line(m_is_dry_run ? "Would write " + name + ':' : name + ", " + size_text(size) + ':', Style::STRONG);
        std::size_t width = 0;
        for (const Content& content : collection.contents())
            width = std::max(width, columns_of(shown(content.name)));
        for (const Content& content : collection.contents())
            console.line(
                "  " + padded(shown(content.name), width + 2) + size_text(content.size) +
                (content.lines ? ", " + counted(*content.lines, "line", "lines") : std::string()));
        if (!collection.left_out().empty())
            console.line("Left out:", Style::STRONG);
        for (const LeftOut& each : collection.left_out())
            console.line("  " + shown(each.name) + ": " + each.why);
        if (m_is_masked)
            console.line(
                "Addresses and names of users are replaced by stand-ins, each by the same one everywhere. Look through "
                "it before you send it: who else is named in a message, nobody can tell.");
    }

    std::string m_file;
    LogQuery m_query;
    bool m_is_masked = false;
    bool m_may_replace = false;
    bool m_is_dry_run = false;
};
} // namespace

extern const CommandEntry command_collect{
    "collect", "Logs, level file, history, reports, dumps and versions in one archive, for the developer",
    "LevelSync collect case.zip --client 192.0.2.7 --since 1h --mask", &make_command<Collect>};
} // namespace levelsync
