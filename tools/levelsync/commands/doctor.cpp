// doctor: why nothing is logged, or not what somebody expects.

#include <windows.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "command.h"
#include "conf.h"
#include "core/file_rotation.h"
#include "core/level_check.h"
#include "core/log_line.h"
#include "core/size_limit.h"
#include "failure.h"
#include "file.h"
#include "filters.h"
#include "hosts.h"
#include "log_query.h"
#include "packages.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::uint64_t LITTLE_SPACE = 100 * 1024 * 1024; // bytes free on a disk
constexpr std::size_t MOST_NAMED = 5;                     // of the same kind in one sentence
constexpr std::size_t LOOKED_AT = 4'096;                  // bytes at the end of a log, for its notice
constexpr int FULL_DETAIL = 7;

// What programs without administrators' rights share within one Windows session. The name never changes, as programs
// that were built with different versions of the library share it.
constexpr wchar_t SESSION_BLOCK[] = L"Local\\SM_LOG_OBJ_NAME_12_0";

constexpr std::string_view ENDING = ".log";
constexpr char FILES_VARIABLE[] = "PRISMATE_LOG_FILES";

/// Something that was found. Whole sentences.
struct Ailment
{
    bool is_wrong = true; ///< lines are lost by it; false: it may be meant so
    std::string what;
    std::string next;
};

std::string folder_text(const std::wstring& folder) { return shown(utf8(folder)); }

bool same_path(const std::wstring& a, const std::wstring& b) { return ::lstrcmpiW(a.c_str(), b.c_str()) == 0; }

bool exists(const std::wstring& path) { return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::string who(const Host& host) { return host.name() + " (" + std::to_string(host.id) + ")"; }

/// The folder to look at: who names none means that of the processes.
Folder folder_for(const Folder& named, const HostList& hosts)
{
    if (named.is_given || exists(named.file))
        return named;
    for (const Host& host : hosts.hosts)
        if (host.folder)
        {
            Folder theirs{*host.folder, false, {}};
            theirs.file = theirs.name(L"logger");
            return theirs;
        }
    return named;
}

/// All that is looked at, once.
struct Sight
{
    explicit Sight(const Tool& tool)
        : hosts(find_hosts()), folder(folder_for(tool.folder, hosts)), running(read_running()),
          logs(find_all_logs(folder.path, hosts)), ends(logs.logs)
    {
        add_hosts_by_logs(hosts, ends);
        if (std::optional<std::string> bytes = read_whole(folder.file))
            file.emplace(std::move(*bytes));
    }

    HostList hosts;
    Folder folder;
    std::optional<kor::core::LevelFile> file;
    Running running;
    FoundLogs logs;
    LogEnds ends;
};

class Examination
{
public:
    explicit Examination(const Sight& sight) : m_sight(sight) {}

    void examine()
    {
        look_at_folder();
        look_at_hosts();
        look_at_file();
        look_at_block();
        look_at_output();
        look_at_logs();
        look_at_disk();
        std::stable_partition(
            m_ailments.begin(), m_ailments.end(), [](const Ailment& ailment) { return ailment.is_wrong; });
    }

    /// Whether a package is written in each process, and why not.
    void look_at_package(const std::string& word, const Filters& filters)
    {
        if (!m_sight.running.conf)
            return;
        const Kor_LogConf& conf = *m_sight.running.conf;
        const PackageNames names(m_sight.folder, m_sight.file ? &*m_sight.file : nullptr, &conf);
        bool works_for_them = m_sight.hosts.hosts.empty();
        for (const int package : names.find(word))
            for (const Host& host : m_sight.hosts.hosts)
                if (is_asked_about(host, filters))
                {
                    works_for_them = true;
                    look_at_package_in(conf, package, names, host, filters);
                }
        if (!works_for_them)
            doubtful(
                "No running process is seen to work" + filters.text() + '.',
                "LevelSync ps shows for whom each wrote its last line; LevelSync lines shows when one last worked for "
                "them.");
    }

    const std::vector<Ailment>& ailments() const noexcept { return m_ailments; }
    const std::vector<std::string>& fine() const noexcept { return m_fine; }

private:
    void wrong(std::string what, std::string next) { m_ailments.push_back({true, std::move(what), std::move(next)}); }
    void doubtful(std::string what, std::string next)
    {
        m_ailments.push_back({false, std::move(what), std::move(next)});
    }
    void good(std::string what) { m_fine.push_back(std::move(what)); }

    void look_at_folder()
    {
        const Folder& folder = m_sight.folder;
        if (!folder.is_given)
            doubtful(
                "Neither --dir nor PRISMATE_LOG_DIR names a folder here, so " + folder_text(folder.path) +
                    " is looked at" + whose_folder() + '.',
                "Name the folder of the servers for other commands, too, as in LevelSync lines --dir \"" +
                    folder_text(folder.path) + "\".");
        if (!exists(folder.path))
            wrong(
                "There is no folder " + folder_text(folder.path) +
                    ": processes that log there cannot open their files, and write to the event log.",
                "Make the folder and start them again, or set PRISMATE_LOG_DIR to the right one.");
        else
            good("folder " + folder_text(folder.path));
    }

    std::string whose_folder() const
    {
        for (const Host& host : m_sight.hosts.hosts)
            if (host.folder && same_path(*host.folder, m_sight.folder.path))
                return ", where " + who(host) + " logs to";
        return {};
    }

    void look_at_hosts()
    {
        const HostList& list = m_sight.hosts;
        if (list.hosts.empty())
            wrong(
                "No running process is seen that has the library loaded.",
                "Start the program. If it runs, it does not load LUMlog.dll" +
                    std::string(
                        list.closed.empty() ? "." : ", or runs under an account that LevelSync may not look at."));
        if (!list.closed.empty())
            doubtful(
                counted(list.closed.size(), "process", "processes") + " of other accounts could not be looked into.",
                "Run LevelSync doctor as an administrator to see them.");
        for (const Host& host : list.hosts)
        {
            look_at_folder_of(host);
            look_at_variables_of(host);
            look_at_lines_of(host);
        }
    }

    void look_at_folder_of(const Host& host)
    {
        if (!host.folder || same_path(*host.folder, m_sight.folder.path))
            return;
        const std::string theirs = folder_text(*host.folder);
        const std::string why = host.has_variable
                                    ? ", as its PRISMATE_LOG_DIR says"
                                    : ": it has no PRISMATE_LOG_DIR, so that is log in its current folder";
        if (!exists(*host.folder))
            wrong(
                who(host) + " logs to " + theirs + why +
                    ". That folder is not there, so its lines go to the event log.",
                "Set PRISMATE_LOG_DIR for it to " + folder_text(m_sight.folder.path) + " and start it again.");
        else
            doubtful(
                who(host) + " has another folder in force, " + theirs + why + '.',
                "Its lines: LevelSync lines --dir \"" + theirs +
                    "\". To have them here, set PRISMATE_LOG_DIR for it to " + folder_text(m_sight.folder.path) +
                    " and start it again.");
    }

    void look_at_variables_of(const Host& host)
    {
        const auto value_of = [&host](const char* name)
        {
            const auto found = host.variables.find(name);
            return found == host.variables.end() ? std::string() : found->second;
        };
        if (value_of("KORAL_LOG_DEVELOP").substr(0, 1) == "1")
            wrong(
                who(host) + " was started with KORAL_LOG_DEVELOP=1: it goes by the file as it was then, and no change "
                            "reaches it.",
                "Take the variable away and start it again.");
        else if (const std::string output = value_of("KORAL_LOG_OUTPUT"); !output.empty())
            doubtful(
                who(host) + " was started with KORAL_LOG_OUTPUT=" + output +
                    ", which changes the output of all processes.",
                "Take the variable away; LevelSync -u puts into force again what the file says.");
        const std::string files = value_of(FILES_VARIABLE);
        int count = 0;
        if (!files.empty() && !kor::core::read_file_count(files, count))
            doubtful(
                who(host) + " was started with PRISMATE_LOG_FILES=" + files + ", which is no number from 0 to 999.",
                "Set it to how many renamed files are to be kept, as in PRISMATE_LOG_FILES=5, and start it again.");
        else if (count > 0 && size_limit() == 0)
            doubtful(
                who(host) + " was started with PRISMATE_LOG_FILES=" + files +
                    ", and there is no size limit: its file grows and is never renamed.",
                "LevelSync limit 10 has it renamed at 10 MB.");
    }

    void look_at_lines_of(const Host& host)
    {
        const LastLine* const last = m_sight.ends.of(host);
        if (last != nullptr)
        {
            good(who(host) + " wrote to " + name_of(last->file) + " at " + local_text(last->time));
            look_for_renamed(host, *last);
        }
        else if (host.folder && exists(*host.folder))
            doubtful(
                who(host) + " has written no line to a log in " + folder_text(*host.folder) + " since it started.",
                "It has not opened its log yet, or could not: then it says so on its standard error, and its lines go "
                "to the event log.");
    }

    static std::string name_of(const std::wstring& path)
    {
        return shown(utf8(path.substr(path.find_last_of(L"\\/") + 1)));
    }

    /// True for a file that its processes rename themselves.
    static bool rotates(const Host& host, const LastLine& last)
    {
        int count = 0;
        const auto files = host.variables.find(FILES_VARIABLE);
        if (files != host.variables.end() && kor::core::read_file_count(files->second, count) && count > 0)
            return true;
        LogFile file(last.file);
        return end_of(file).find(kor::core::SEAM_AT_END) != std::string::npos;
    }

    /// A process goes on writing to its file when that is renamed. Programs call their file as they call themselves.
    void look_for_renamed(const Host& host, const LastLine& last)
    {
        const std::string name = lower_case(name_of(last.file));
        const std::string application = lower_case(last.application);
        const std::string usual = std::string(application).append(ENDING);
        const bool is_like_it = !application.empty() && name != usual && name.size() > application.size() &&
                                name.compare(0, application.size(), application) == 0 &&
                                std::string_view("._-").find(name[application.size()]) != std::string_view::npos;
        const bool is_a_log =
            name.size() > ENDING.size() && name.compare(name.size() - ENDING.size(), ENDING.size(), ENDING) == 0;
        if (rotates(host, last))
            return; // its next line is in the new file
        const std::wstring folder = last.file.substr(0, last.file.find_last_of(L"\\/") + 1);
        if (!is_like_it || (is_a_log && !exists(folder + wide(usual))))
            return; // it may have given its file that name
        doubtful(
            who(host) + " writes to " + name_of(last.file) + ": it looks as if its file was renamed while it ran.",
            "Its newest lines are there; it begins a new file when it starts again.");
    }

    void look_at_file()
    {
        if (!m_sight.file)
            return wrong(
                "There is no file " + folder_text(m_sight.folder.file) +
                    ": the first process to start takes the defaults, standard error and level 4.",
                "Put the level file there, and publish it: LevelSync -u.");
        std::size_t count = 0;
        for (const kor::core::Finding& finding : kor::core::check_level_file(*m_sight.file))
            count += finding.oddity == kor::core::Oddity::WRONG ? 1 : 0;
        if (count > 0)
            wrong(
                counted(count, "thing", "things") + " in the level file counts differently than it looks.",
                "LevelSync check shows what, and what to write instead.");
        else
            good("the level file");
    }

    void look_at_block()
    {
        const Running& running = m_sight.running;
        if (!running.conf && running.error != ERROR_FILE_NOT_FOUND)
            return wrong(
                "What the processes share cannot be read: " + system_text(running.error) + '.',
                "Run LevelSync as an administrator.");
        if (!running.conf && has_session_block())
            return wrong(
                "No process shares the configuration of the machine, which LevelSync looks at as an administrator. "
                "Programs of this Windows session share one of their own, and no change of LevelSync reaches them.",
                "Run LevelSync in this session without administrators' rights to change theirs; or end them: those "
                "that start as services or as an administrator share the machine's.");
        if (!running.conf)
            return doubtful(
                "No process shares a configuration.", "The next one to start reads the level file and shares it.");
        if (!running.is_of_machine)
            doubtful(
                "What LevelSync sees is shared within this Windows session alone (" + shown(running.block) +
                    "); services and other sessions have a configuration of their own.",
                "Run LevelSync as an administrator, whose block is the machine's.");
        if (running.is_of_machine && has_session_block())
            doubtful(
                "This Windows session has a configuration of its own beside that of the machine: programs without "
                "administrators' rights go by the session's, and a change reaches either of the two.",
                "End the programs of this session; those that start then join the machine's.");
        if (!m_sight.file)
            return;
        const Conf from_file = read_conf(m_sight.folder.file);
        std::vector<std::string> texts = texts_of(differences(*running.conf, *from_file));
        if (texts.empty())
            return good("what runs is what the file says");
        const std::size_t count = texts.size();
        texts.resize(std::min(texts.size(), MOST_NAMED));
        wrong(
            "What runs is not what the file says: " + joined(texts) +
                (count > texts.size() ? ", and " + std::to_string(count - texts.size()) + " more." : "."),
            "LevelSync -u puts the file into force; LevelSync diff shows both. What runs may come from the folder of "
            "the process that started first.");
    }

    static bool has_session_block()
    {
        const OwnedHandle mapping(::OpenFileMappingW(FILE_MAP_READ, FALSE, SESSION_BLOCK));
        return is_valid(mapping);
    }

    void look_at_output()
    {
        if (!m_sight.running.conf)
            return;
        const Kor_LogConf& conf = *m_sight.running.conf;
        const int output = output_of(conf);
        if (output < Kor_LogConf::OUTPUT_PRIVATE_FILE)
            wrong(
                "Lines go to " + output_text(output) + ", not to the files.",
                "LevelSync output files changes that for all processes.");
        else
            good("output: " + output_text(output));
        std::vector<std::string> silent;
        for (int package = 0; package < PACKAGE_COUNT; ++package)
            if (conf.packageLevels[package] == 0 && rules_of(conf, package).empty())
                silent.push_back(package_text(conf, package));
        if (silent.empty())
            return;
        const std::size_t count = silent.size();
        silent.resize(std::min(silent.size(), MOST_NAMED));
        doubtful(
            "Level 0 writes nothing at all: " + joined(silent) +
                (count > silent.size() ? " and " + std::to_string(count - silent.size()) + " more." : "."),
            "LevelSync set PACKAGE 4 gives a package the usual level.");
    }

    void look_at_logs()
    {
        for (const std::string& problem : m_sight.logs.problems)
            doubtful(problem, "Run LevelSync under an account that may read it.");
        const unsigned limit = size_limit();
        if (limit == 0)
            return;
        for (const auto& log : m_sight.logs.logs)
            if (is_full(*log, limit))
                wrong(
                    log->name() + " is full: it has " + std::to_string(log->size() / 1024 / 1024) +
                        " MB, the limit is " + std::to_string(limit) + " MB. Nothing is written to it any more.",
                    "Save it and clear it, or allow more, as in LevelSync limit " + std::to_string(2 * limit) +
                        "; then LevelSync -u, so that processes look at once. For good: start the program with "
                        "PRISMATE_LOG_FILES=5, and it renames a full file and begins a new one.");
            else if (could_not_be_renamed(*log, limit))
                doubtful(
                    log->name() + " has " + std::to_string(log->size() / 1024 / 1024) + " MB, the limit is " +
                        std::to_string(limit) +
                        " MB: it should have been renamed, and somebody has it open who does "
                        "not allow that, or its folder cannot be written to. No line is lost.",
                    "Close what has it open, such as an editor; a notice in it has the error. Then it is renamed "
                    "within "
                    "a second of the next line.");
    }

    /// In megabytes, 0: none.
    unsigned size_limit() const
    {
        if (m_sight.running.conf)
            return static_cast<unsigned>(m_sight.running.conf->GetSizeLimitInMb());
        return m_sight.file ? m_sight.file->size_limit() : 0;
    }

    /// Past the limit, and the process that writes there has said so.
    static bool is_full(LogFile& log, unsigned limit)
    {
        return kor::core::judge_size(static_cast<std::int64_t>(log.size()), limit).exceeded &&
               end_of(log).find("exceed limit defined in logger file.") != std::string::npos;
    }

    /// Past the limit all the same, beside files that were renamed, or with a notice that it cannot be.
    static bool could_not_be_renamed(LogFile& log, unsigned limit)
    {
        return kor::core::judge_size(static_cast<std::int64_t>(log.size()), limit).exceeded &&
               (exists(kor::core::numbered_path(log.path(), 1)) ||
                end_of(log).find(kor::core::NOT_RENAMED) != std::string::npos);
    }

    static std::string end_of(LogFile& log)
    {
        const std::uint64_t size = log.size();
        std::string end(LOOKED_AT, '\0');
        end.resize(log.read(size - std::min<std::uint64_t>(size, LOOKED_AT), end.data(), end.size()));
        return end;
    }

    void look_at_disk()
    {
        ULARGE_INTEGER available{};
        if (::GetDiskFreeSpaceExW(m_sight.folder.path.c_str(), &available, nullptr, nullptr) == FALSE)
            return;
        const std::string text = std::to_string(available.QuadPart / 1024 / 1024) + " MB are free on the disk of " +
                                 folder_text(m_sight.folder.path) + '.';
        if (available.QuadPart == 0)
            wrong("The disk of " + folder_text(m_sight.folder.path) + " is full: lines are lost.", "Make room on it.");
        else if (available.QuadPart < LITTLE_SPACE)
            doubtful("Only " + text, "Make room on it before it is full: then lines are lost.");
    }

    std::string application_of(const Host& host) const
    {
        const LastLine* const last = m_sight.ends.of(host);
        return last == nullptr ? host.name() : last->application;
    }

    /// False for one that is another, or that works for others.
    bool is_asked_about(const Host& host, const Filters& filters) const
    {
        const auto is_wanted = [](const auto& list, const auto& value)
        { return list.empty() || std::find(list.begin(), list.end(), value) != list.end(); };
        const LastLine* const last = m_sight.ends.of(host);
        const auto fits = client_test(filters.clients);
        const bool is_for_others = last != nullptr && !last->client.empty() && fits && !fits(last->client);
        return !is_for_others && is_wanted(filters.applications, application_of(host)) &&
               is_wanted(filters.processes, static_cast<std::uint32_t>(host.id));
    }

    void look_at_package_in(
        const Kor_LogConf& conf, int package, const PackageNames& names, const Host& host, const Filters& filters)
    {
        const LastLine* const last = m_sight.ends.of(host);
        const std::string application = application_of(host);
        std::string client = !filters.clients.empty() ? filters.clients.front() : last == nullptr ? "" : last->client;
        const std::int64_t session = !filters.sessions.empty() ? static_cast<std::int64_t>(filters.sessions.front())
                                     : last == nullptr         ? 0
                                                               : last->session;
        int level = conf.packageLevels[package];
        std::vector<std::string> unfit;
        for (const Kor_LogLevelRule* const rule : rules_of(conf, package))
        {
            const bool fits = rule->DoesComply(
                RWCString(client.c_str()), application.c_str(), host.id, static_cast<unsigned long>(session));
            if (fits)
                level = std::max(level, static_cast<int>(rule->logLevel));
            else if (rule->logLevel > conf.packageLevels[package])
                unfit.push_back("its rule for " + whom_text(*rule));
        }
        const std::string place = names.text(package) + " has level " + level_text(level) + " in " + who(host) +
                                  (client.empty() ? ", which serves no client" : ", for client " + client) +
                                  (session == 0 ? std::string() : " in session " + std::to_string(session));
        if (level >= FULL_DETAIL)
            return good(place);
        doubtful(
            place + ": what is finer than that is not written." +
                (unfit.empty() ? std::string() : " These do not fit: " + joined(unfit) + "."),
            "LevelSync tail " + (names.of(package).empty() ? std::to_string(package) : names.of(package)) +
                (client.empty() ? "" : " --client " + client) +
                " raises it for a while; LevelSync explain tells why each rule does not fit.");
    }

    const Sight& m_sight;
    std::vector<Ailment> m_ailments;
    std::vector<std::string> m_fine;
};

class Doctor final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("PACKAGE", m_package, "Also why this package is not written: number, name or pattern");
        m_filters.declare(options);
    }

    ExitCode run(Tool& tool) override
    {
        const Sight sight(tool);
        Examination examination(sight);
        examination.examine();
        if (!m_package.empty())
            examination.look_at_package(m_package, m_filters);
        if (tool.json)
            tool.print(json_of(examination));
        else
            print(tool.console, examination);
        const auto& ailments = examination.ailments();
        const bool is_wrong =
            std::any_of(ailments.begin(), ailments.end(), [](const Ailment& ailment) { return ailment.is_wrong; });
        return is_wrong ? NOT_DONE : DONE;
    }

private:
    static Json json_of(const Examination& examination)
    {
        Json found = Json::array();
        for (const Ailment& ailment : examination.ailments())
            found.push_back(
                {{"kind", ailment.is_wrong ? "wrong" : "doubtful"}, {"what", ailment.what}, {"next", ailment.next}});
        return {{"found", found}, {"fine", examination.fine()}};
    }

    static void print(Console& console, const Examination& examination)
    {
        std::size_t number = 0;
        for (const Ailment& ailment : examination.ailments())
        {
            console.line(
                std::to_string(++number) + ". " + ailment.what, ailment.is_wrong ? Style::BAD : Style::CAREFUL);
            console.line("   " + ailment.next);
        }
        if (examination.ailments().empty())
            console.line("Nothing was found that keeps lines away.", Style::GOOD);
        if (!examination.fine().empty())
            console.line("In order: " + joined(examination.fine(), ", ") + '.');
    }

    std::string m_package;
    Filters m_filters;
};
} // namespace

extern const CommandEntry command_doctor{
    "doctor", "Why nothing is logged, and what to do about it; exit code 1 where something keeps lines away",
    "LevelSync doctor\n  LevelSync doctor Replay --client 192.0.2.7", &make_command<Doctor>};
} // namespace levelsync
