// tail: raises a package, shows what comes of it, and takes it back.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "Kor_Package.h"
#include "change.h"
#include "command.h"
#include "failure.h"
#include "filters.h"
#include "follow.h"
#include "hosts.h"
#include "log_query.h"
#include "log_text.h"
#include "override.h"
#include "stop.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::int64_t LOOK_EVERY_MS = 50;
constexpr ULONGLONG LOOK_AT_OVERRIDE_MS = 1'000; // whether somebody else has taken it back
constexpr std::int64_t SILENCE_MS = 10'000;      // then it is said why nothing may come
constexpr std::int64_t LAST_LINES_MS = 200;      // for lines that were on their way
constexpr char DEFAULT_LENGTH[] = "10m";

class Tail final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("PACKAGE", m_package, "Number, name, or pattern of names (Re*)")->required();
        m_filters.declare(options);
        options.add_option("--level", m_level, "Raise to this level: number or name")->capture_default_str();
        options.add_option("--for", m_for, "Take it back after so long: 15m, 2h, 90s")
            ->type_name("TIME")
            ->capture_default_str();
        options.add_flag("--dry-run", m_is_dry_run, "Say what would be raised, and change nothing");
    }

    ExitCode run(Tool& tool) override
    {
        const int level = read_level(m_level);
        const auto length = read_duration(m_for);
        if (!length)
            throw Failure('"' + m_for + "\" is no such time.", "Say it as in --for 15m, 90s or 2h.", WRONG_CALL);
        const kor::core::RuleFilters rule = m_filters.for_rule();

        const StopSignal stop; // from here on nothing ends the process before the change is taken back
        const std::vector<std::wstring> followed = log_folders(tool.folder);
        ChangeOptions options;
        options.is_dry_run = m_is_dry_run;
        options.until = now() + *length;
        std::optional<Follower> follower;
        Outcome outcome = change(
            tool,
            [&](Editor& editor, const History&)
            {
                const std::vector<int> packages = editor.names().find(m_package);
                for (const int package : packages)
                    raise(editor, package, level, rule);
                follower.emplace(followed, selection(packages, level)); // before the first line can come
            },
            options);
        if (m_is_dry_run)
            return say_what_would_be(tool, outcome, options);
        m_raised_at = now();
        say_beginning(tool, outcome, *options.until);
        const std::string why = show_safely(tool, *follower, stop, outcome.id, *options.until);
        end(tool, *follower, outcome.id, why);
        return DONE;
    }

private:
    /// What is that high for everybody stays as it is.
    static void raise(Editor& editor, int package, int level, const kor::core::RuleFilters& rule)
    {
        const auto found = editor.file().packages().find(package);
        const int own = found == editor.file().packages().end() ? Kor_LogConf::DEFAULT_LEVEL : found->second.level;
        if (own >= level)
            edit_level(editor, package, own, {});
        else
            edit_level(editor, package, level, rule);
    }

    kor::core::LogSelection selection(const std::vector<int>& packages, int level) const
    {
        kor::core::LogFilter filter;
        filter.packages = packages;
        filter.level = level;
        filter.applications = m_filters.applications;
        filter.processes.assign(m_filters.processes.begin(), m_filters.processes.end());
        filter.sessions.assign(m_filters.sessions.begin(), m_filters.sessions.end());
        filter.client_fits = client_test(m_filters.clients);
        return kor::core::LogSelection(std::move(filter), KOR_PACKAGE_PERFMON);
    }

    static ExitCode say_what_would_be(Tool& tool, const Outcome& outcome, const ChangeOptions& options)
    {
        report(tool, outcome, options);
        return DONE;
    }

    /// On standard error, as all that is no line of a log.
    static void say_beginning(Tool& tool, const Outcome& outcome, Time until)
    {
        if (outcome.id == 0)
            tool.console.error("It is at that level already; nothing was changed.", Style::CAREFUL);
        for (const std::string& effect : outcome.effects)
            tool.console.error(effect + ' ' + until_text(until) + "; Ctrl-C takes it back now.", Style::STRONG);
        if (!outcome.is_running)
            tool.console.error("No process shares a configuration now; lines come once one starts.", Style::CAREFUL);
    }

    /// Whatever goes wrong while lines are shown, the change is taken back.
    std::string show_safely(Tool& tool, Follower& follower, const StopSignal& stop, long long id, Time until)
    {
        try
        {
            return show(tool, follower, stop, id, until);
        }
        catch (const std::exception&)
        {
            if (id != 0)
                tool.console.error(end_override(tool, id, "its lines could not be shown"), Style::STRONG);
            throw;
        }
    }

    /// Why it is over; empty when somebody else has taken the change back.
    std::string show(Tool& tool, Follower& follower, const StopSignal& stop, long long id, Time until)
    {
        OverrideWatch watch(tool.folder, id);
        ULONGLONG looked_at = ::GetTickCount64();
        bool said_why = false;
        for (;;)
        {
            give_lines(tool, follower);
            const std::int64_t left = until - now();
            if (left <= 0)
                return "its time is over";
            if (m_count == 0 && !said_why && now() - m_raised_at >= SILENCE_MS)
            {
                say_silence(tool);
                said_why = true;
            }
            if (stop.wait(std::min(left, LOOK_EVERY_MS)))
                return "LevelSync was told to stop";
            if (::GetTickCount64() - looked_at < LOOK_AT_OVERRIDE_MS)
                continue;
            looked_at = ::GetTickCount64();
            if (id != 0 && watch.is_taken_back())
                return {};
        }
    }

    void give_lines(Tool& tool, Follower& follower)
    {
        follower.poll(
            [&](const kor::core::LogRecord& record, const std::string& log)
            {
                if (m_count == 0)
                    m_first_after = record.time - m_raised_at;
                m_count += record.begins ? 1 : 0;
                if (tool.json)
                    tool.console.print(json_of(record, log).dump() + '\n');
                else
                    print_record(tool.console, record);
            });
        tool.console.flush();
    }

    void say_silence(Tool& tool) const
    {
        tool.console.error("No line has come yet.", Style::CAREFUL);
        HostList list = find_hosts();
        const FoundLogs logs = find_all_logs(tool.folder.path, list);
        const LogEnds ends(logs.logs);
        add_hosts_by_logs(list, ends);
        std::vector<std::string> running;
        for (const Host& host : list.hosts)
        {
            const LastLine* const last = ends.of(host);
            running.push_back(
                host.name() + " (" + std::to_string(host.id) + ")" +
                (last == nullptr || last->client.empty() ? std::string(", without a client")
                                                         : ", last for client " + last->client) +
                (last == nullptr || last->session == 0 ? std::string()
                                                       : " in session " + std::to_string(last->session)));
        }
        tool.console.error(
            running.empty() ? "No process with the library is seen to run."
                            : "These run: " + joined(running) + ". LevelSync doctor tells more.");
    }

    void end(Tool& tool, Follower& follower, long long id, const std::string& why)
    {
        const std::string taken_back = id == 0 || why.empty() ? std::string() : end_override(tool, id, why);
        ::Sleep(LAST_LINES_MS);
        give_lines(tool, follower);
        if (id != 0 && why.empty())
            tool.console.error("Somebody else has taken it back.", Style::CAREFUL);
        if (!taken_back.empty())
            tool.console.error(taken_back, Style::STRONG);
        std::string text = counted(m_count, "line", "lines") + '.';
        if (m_count > 0)
            text = counted(m_count, "line", "lines") + ", the first " + wait_text(m_first_after) + " after the change.";
        tool.console.error(text);
    }

    std::string m_package;
    Filters m_filters;
    std::string m_level = "debug";
    std::string m_for = DEFAULT_LENGTH;
    bool m_is_dry_run = false;
    Time m_raised_at = 0;
    Time m_first_after = 0;
    std::size_t m_count = 0;
};
} // namespace

extern const CommandEntry command_tail{
    "tail", "Raises a package, shows its lines as they come, and takes it back",
    "LevelSync tail Replay --client 192.0.2.7 --for 10m", &make_command<Tail>};
} // namespace levelsync
