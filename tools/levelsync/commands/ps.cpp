// ps: the processes that have the library loaded.

#include <algorithm>
#include <string>
#include <vector>

#include "command.h"
#include "failure.h"
#include "hosts.h"
#include "text.h"

namespace levelsync
{
namespace
{
/// The log as somebody in the folder would name it.
std::string file_text(const std::wstring& file, const Folder& folder)
{
    const std::size_t slash = file.find_last_of(L'\\');
    const bool is_here =
        slash != std::wstring::npos && ::lstrcmpiW(file.substr(0, slash).c_str(), folder.path.c_str()) == 0;
    return shown(utf8(is_here ? file.substr(slash + 1) : file));
}

using Row = std::vector<std::string>;

void print_table(Console& console, const std::vector<Row>& rows)
{
    std::vector<std::size_t> widths(rows.front().size());
    for (const Row& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], columns_of(row[i]));
    for (std::size_t r = 0; r < rows.size(); ++r)
    {
        std::string line;
        for (std::size_t i = 0; i < rows[r].size(); ++i)
            line += i + 1 == rows[r].size() ? rows[r][i] : padded(rows[r][i], widths[i] + 2);
        console.line(line, r == 0 ? Style::STRONG : Style::PLAIN);
    }
}

class Ps final : public Command
{
public:
    void declare(Options&) override {}

    ExitCode run(Tool& tool) override
    {
        HostList list = find_hosts();
        const FoundLogs logs = find_all_logs(tool.folder.path, list);
        const LogEnds ends(logs.logs);
        add_hosts_by_logs(list, ends);
        if (tool.json)
            tool.print(json_of(list, ends));
        else
            print(tool, list, ends);
        return DONE;
    }

private:
    static Json json_of(const HostList& list, const LogEnds& ends)
    {
        Json processes = Json::array();
        for (const Host& host : list.hosts)
            processes.push_back(levelsync::json_of(host, ends));
        Json closed = Json::array();
        for (const ClosedProcess& process : list.closed)
            closed.push_back({{"pid", process.id}, {"program", shown(utf8(process.program))}});
        return {{"processes", processes}, {"not_looked_into", closed}};
    }

    static void print(Tool& tool, const HostList& list, const LogEnds& ends)
    {
        std::vector<Row> rows{{"PID", "PROGRAM", "APPLICATION", "CLIENT", "SESSION", "LAST LINE", "LOG"}};
        for (const Host& host : list.hosts)
        {
            const LastLine* const last = ends.of(host);
            if (last == nullptr)
                rows.push_back({std::to_string(host.id), host.name(), "-", "-", "-", "-", why_no_log(host)});
            else
                rows.push_back(
                    {std::to_string(host.id), host.name(), last->application, last->client.empty() ? "-" : last->client,
                     last->session == 0 ? "-" : std::to_string(last->session), local_text(last->time),
                     file_text(last->file, tool.folder)});
        }
        if (list.hosts.empty())
            tool.console.line("No running process is seen that has the library loaded.");
        else
            print_table(tool.console, rows);
        if (!list.closed.empty())
            tool.console.error(
                counted(list.closed.size(), "process", "processes") +
                    " of other accounts could not be looked into. As an administrator, LevelSync sees all of them.",
                Style::CAREFUL);
    }

    static std::string why_no_log(const Host& host)
    {
        return host.folder ? "no line in " + shown(utf8(*host.folder)) : "not told: its folder cannot be read";
    }
};
} // namespace

extern const CommandEntry command_ps{
    "ps", "The processes that have the library loaded, with client, session and log", "LevelSync ps",
    &make_command<Ps>};
} // namespace levelsync
