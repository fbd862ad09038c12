// lines: the lines of all logs of the folder, merged by time.

#include <algorithm>
#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Kor_Package.h"
#include "command.h"
#include "core/log_filter.h"
#include "core/repeated_lines.h"
#include "failure.h"
#include "live_lines.h"
#include "log_files.h"
#include "log_query.h"
#include "log_text.h"
#include "text.h"

namespace levelsync
{
namespace
{
using kor::core::LogFilter;
using kor::core::LogLine;
using kor::core::LogRecord;

constexpr std::size_t MOST_HINTS = 5; // of the same kind

/// What there was to choose from, for somebody who got nothing.
class Seen
{
public:
    void add(const LogRecord& record)
    {
        if (!record.begins)
            return;
        if (m_count == 0)
            m_first = record.time;
        m_last = std::max(m_last, record.time);
        ++m_count;
        const LogLine& line = record.line;
        if (line.kind != LogLine::MESSAGE)
            return;
        note(m_clients, line.client);
        note(m_sessions, line.session == 0 ? std::string() : std::to_string(line.session));
        note(m_applications, line.application);
    }

    std::size_t count() const noexcept { return m_count; }

    std::string text(const LogQuery& query) const
    {
        std::string text = "Looked through " + counted(m_count, "line", "lines") + " from " + local_text(m_first) +
                           " to " + local_text(m_last) + '.';
        text += hint(!query.whom.clients.empty(), "Clients", m_clients);
        text += hint(!query.whom.sessions.empty(), "Sessions", m_sessions);
        text += hint(!query.whom.applications.empty(), "Applications", m_applications);
        if (!query.packages.empty())
            text +=
                " A package writes what its level lets through: LevelSync explain shows it, LevelSync tail raises it.";
        return text;
    }

private:
    static void note(std::set<std::string>& to, std::string_view what)
    {
        if (!what.empty() && to.size() <= MOST_HINTS)
            to.insert(shown(what));
    }

    static std::string hint(bool wanted, const char* what, const std::set<std::string>& from)
    {
        if (!wanted)
            return {};
        std::vector<std::string> some(from.begin(), from.end());
        if (some.empty())
            return std::string(" ") + what + " in them: none.";
        const bool more = some.size() > MOST_HINTS;
        some.resize(std::min(some.size(), MOST_HINTS));
        return std::string(" ") + what +
               " in them: " + (more ? joined(some, ", ") + " and others." : joined(some) + '.');
    }

    std::size_t m_count = 0;
    Time m_first = 0;
    Time m_last = 0;
    std::set<std::string> m_clients;
    std::set<std::string> m_sessions;
    std::set<std::string> m_applications;
};

class Lines final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("TEXT", m_query.text, "Lines with this text, in letters of either case");
        m_query.declare(options);
        options.add_option("-n,--last", m_last, "The last so many of them")->positive()->type_name("N");
        options
            .add_option(
                "--live", m_process,
                "Of the running process of that id, from its memory, with those that were not written; where it keeps "
                "some")
            ->type_name("PID");
    }

    ExitCode run(Tool& tool) override
    {
        const LogFilter filter = m_query.filter(tool);
        if (m_process)
        {
            LiveLines lines(*m_process);
            print(tool, filter, lines, {"process " + std::to_string(*m_process)}, {false});
            return DONE;
        }
        const FoundLogs found = find_logs(tool.folder.path);
        for (const std::string& problem : found.problems)
            tool.console.error(problem, Style::CAREFUL);
        if (found.logs.empty())
            throw Failure(
                "There are no logs in " + shown(utf8(tool.folder.path)) + '.',
                "LevelSync ps shows where the running processes log to; --dir FOLDER names another folder.");
        Names names;
        std::vector<bool> are_last_lines;
        for (const auto& log : found.logs)
        {
            names.push_back(log->name());
            are_last_lines.push_back(holds_last_lines(*log));
        }
        MergedLogs all(found.logs, filter.since);
        print(tool, filter, all, names, are_last_lines);
        return DONE;
    }

private:
    using Names = std::vector<std::string>; // of the logs that the records are from

    /// all: gives the records, as MergedLogs does. are_last_lines: as RepeatedLines has it.
    template <class Records>
    void print(
        Tool& tool, const LogFilter& filter, Records& all, const Names& names, const std::vector<bool>& are_last_lines)
    {
        kor::core::RepeatedLines repeated(are_last_lines);
        std::vector<std::size_t> printed(names.size());
        kor::core::LogSelection selection(filter, KOR_PACKAGE_PERFMON);
        Seen seen;
        LogRecord record;
        while (all.next(record))
        {
            seen.add(record);
            if (!selection.wants(record) || repeated.has_been(record))
                continue;
            printed[record.source] += record.begins ? 1 : 0;
            m_first = m_has_first ? m_first : record.time;
            m_has_first = true;
            m_latest = std::max(m_latest, record.time);
            give(tool, record, names[record.source]);
        }
        for (const std::string& text : m_kept)
            tool.console.print(text);
        tool.console.flush();
        if (!tool.json)
            summarize(tool, seen, printed, names);
    }

    void give(Tool& tool, const LogRecord& record, const std::string& log)
    {
        const bool all = m_last == 0;
        if (all && !tool.json)
            print_record(tool.console, record);
        if (all && tool.json)
            tool.console.print(json_of(record, log).dump() + '\n');
        if (all)
            return;
        std::string text = tool.json ? json_of(record, log).dump() + '\n' : text_of(tool.console, record);
        if (!record.begins && !tool.json && !m_kept.empty())
            m_kept.back() += text;
        else
            m_kept.push_back(std::move(text));
        if (m_kept.size() > m_last)
            m_kept.pop_front();
    }

    void summarize(Tool& tool, const Seen& seen, const std::vector<std::size_t>& printed, const Names& names) const
    {
        std::vector<std::string> from;
        std::size_t sum = 0;
        for (std::size_t i = 0; i < printed.size(); ++i)
        {
            sum += printed[i];
            if (printed[i] > 0)
                from.push_back(names[i] + " (" + std::to_string(printed[i]) + ')');
        }
        if (sum > 0)
        {
            const bool fewer = m_last > 0 && m_last < sum;
            tool.console.error(
                (fewer ? "The last " + std::to_string(m_last) + " of " : std::string()) +
                    counted(sum, "line", "lines") + " of " + joined(from) + ", " + local_text(m_first) + " to " +
                    local_text(m_latest),
                Style::FAINT);
            return;
        }
        tool.console.error("No line fits.", Style::CAREFUL);
        if (seen.count() > 0)
            tool.console.error(seen.text(m_query));
        else
            tool.console.error("No line of " + counted(names.size(), "log", "logs") + " is from that time.");
    }

    LogQuery m_query;
    std::optional<std::uint32_t> m_process;
    std::size_t m_last = 0;
    std::deque<std::string> m_kept; // of --last
    Time m_first = 0;
    Time m_latest = 0;
    bool m_has_first = false;
};
} // namespace

extern const CommandEntry command_lines{
    "lines", "The lines of all logs, merged by time",
    "LevelSync lines --client 192.0.2.7 --level warning --since 1h\n"
    "  LevelSync lines --package Replay --last 20\n"
    "  LevelSync lines --session 3 \"front.png\"\n"
    "  LevelSync lines --live 4312 --level info --last 50",
    &make_command<Lines>};
} // namespace levelsync
