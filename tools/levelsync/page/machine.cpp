#include "machine.h"

#include <windows.h>

#include <algorithm>
#include <utility>

#include "Kor_LogFile.h"
#include "answers.h"
#include "call.h"
#include "failure.h"
#include "file.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr int CHANGES_SHOWN = 30;

/// Of a file, what changes with its bytes.
std::string stamp_of(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == FALSE)
        return "-";
    return std::to_string(data.ftLastWriteTime.dwHighDateTime) + '.' +
           std::to_string(data.ftLastWriteTime.dwLowDateTime) + '.' + std::to_string(data.nFileSizeLow);
}

void require_lower(const Editor& editor, int package, int level)
{
    const int own = own_level(editor.file(), package);
    if (own >= level)
        refuse_to_raise(editor.names().text(package), own);
}
} // namespace

MachineSource::MachineSource(Tool& tool) : m_tool(tool), m_feeds(tool.folder) {}

std::string MachineSource::stamp()
{
    return std::to_string(Kor_LogFile::GetSharedChangeCount()) + '/' + stamp_of(m_tool.folder.file) + '/' +
           stamp_of(m_tool.folder.name(L"logger.history"));
}

Json MachineSource::state(const PageSubject& whom)
{
    Json state;
    state["stamp"] = stamp(); // before all of it is looked at: what changes meanwhile is asked for again
    state["time"] = utc_text(now());
    state["machine"] = machine_name();
    const Json status = call(m_tool, "status");
    for (const char* const name : {"file", "file_exists", "running", "block", "agrees", "differences"})
        state[name] = status[name];
    state["output"] = status.contains("output") ? Json(output_text(status["output"].get<int>())) : Json();
    state["raised"] = Json::array();
    for (const Json& override : status["overrides"])
    {
        Json row = without_lines(override);
        row["is_kept_here"] = keeps(override["id"].get<long long>());
        state["raised"].push_back(std::move(row));
    }
    state["changes"] = Json::array();
    const Json history = call(m_tool, "history", {"-n", std::to_string(CHANGES_SHOWN)});
    for (const Json& change : history["changes"])
        state["changes"].push_back(without_lines(change));
    state["problem"] = Json();
    state["packages"] = Json::array();
    if (state["file_exists"] == true || state["running"] == true)
        add_packages(m_tool, whom, state);
    return state;
}

Json MachineSource::explain(int package, const PageSubject& whom) { return explained(m_tool, package, whom); }

Json MachineSource::processes() { return call(m_tool, "ps"); }

Json MachineSource::lines(const PageLines& wanted)
{
    LineFeed& feed = m_feeds.of(wanted.package);
    feed.poll();
    return feed.since(wanted);
}

std::string MachineSource::command_of(const PageRaise& wanted) const
{
    std::optional<kor::core::LevelFile> file;
    if (std::optional<std::string> bytes = read_whole(m_tool.folder.file))
        file.emplace(std::move(*bytes));
    const Running running = read_running();
    const PackageNames names(m_tool.folder, file ? &*file : nullptr, running.conf.get());
    const std::string text = command_for(wanted, names.of(wanted.package));
    const std::string reason = shown(wanted.reason);
    return reason.empty() ? text : text + " (reason: " + reason + ')';
}

Json MachineSource::raise(const PageRaise& wanted, PageTurn&)
{
    if (m_has_ended)
        throw Failure("LevelSync page is ending.", "Nothing was changed. Start it again.");
    const auto length = read_duration(wanted.length);
    if (!length)
        throw Failure('"' + wanted.length + "\" is no such time.", "Choose one of the page's.", WRONG_CALL);
    check_reason(wanted.reason);
    const kor::core::RuleFilters rule = wanted.whom.filters().for_rule();
    ChangeOptions options;
    options.until = now() + *length;
    options.command = command_of(wanted);
    m_feeds.of(wanted.package);            // before the first line can come
    m_tool.command_line = options.command; // for who waits for the turn meanwhile
    Outcome outcome = change(
        m_tool,
        [&](Editor& editor, const History&)
        {
            require_lower(editor, wanted.package, wanted.level);
            edit_level(editor, wanted.package, wanted.level, rule);
        },
        options);
    if (outcome.id == 0)
        throw Failure(
            "That is so already; nothing had to be changed.",
            "Where it is an override, take it back first to raise it for longer.");
    m_kept.emplace_back(m_tool.folder, outcome.id, *options.until, std::move(outcome.keeping));
    return {
        {"id", outcome.id},
        {"effects", outcome.effects},
        {"until", utc_text(*options.until)},
        {"running", outcome.is_running},
        {"agrees", outcome.agrees}};
}

Json MachineSource::undo(long long change, PageTurn&)
{
    m_tool.command_line = "page: undo " + std::to_string(change);
    const Json report = call(m_tool, "undo", {std::to_string(change)});
    m_kept.remove_if([change](const Kept& kept) { return kept.id == change; });
    return {{"effects", report["effects"]}};
}

bool MachineSource::keeps(long long id) const
{
    return std::any_of(m_kept.begin(), m_kept.end(), [id](const Kept& kept) { return kept.id == id; });
}

void MachineSource::tick()
{
    for (auto kept = m_kept.begin(); kept != m_kept.end();)
    {
        if (kept->until <= now())
            take_back_kept(kept->id, "its time is over");
        else if (!kept->watch.is_taken_back())
        {
            ++kept;
            continue;
        }
        kept = m_kept.erase(kept);
    }
    m_feeds.poll();
    const ULONGLONG ticks = ::GetTickCount64();
    if (ticks - m_looked_for_due < LOOK_FOR_DUE_MS)
        return;
    m_looked_for_due = ticks;
    take_back_due(m_tool);
}

void MachineSource::end(const std::string& why)
{
    m_has_ended = true;
    for (const Kept& kept : m_kept)
        take_back_kept(kept.id, why);
    m_kept.clear();
}

/// What cannot be taken back now stays for the next LevelSync, as nobody looks after it any more.
void MachineSource::take_back_kept(long long id, const std::string& why)
{
    try
    {
        const std::string text = end_override(m_tool, id, why);
        if (!text.empty())
            m_tool.console.line(text, Style::GOOD);
    }
    catch (const Failure& failure)
    {
        m_tool.console.error(
            "Override " + std::to_string(id) + " could not be taken back: " + failure.what() + ' ' + failure.next(),
            Style::BAD);
    }
    m_tool.console.flush();
}
} // namespace levelsync
