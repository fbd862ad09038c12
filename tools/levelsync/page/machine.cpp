#include "machine.h"

#include <windows.h>

#include <algorithm>
#include <map>
#include <utility>

#include "Kor_LogFile.h"
#include "call.h"
#include "failure.h"
#include "file.h"
#include "hosts.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr int CHANGES_SHOWN = 30;
constexpr std::size_t LONGEST_REASON = 200; // characters

/// The options of a command, each with its value in one word, so that no value is taken for an option.
std::vector<std::string> options_for(const PageSubject& whom)
{
    std::vector<std::string> words;
    if (!whom.client.empty())
        words.push_back("--client=" + whom.client);
    if (!whom.application.empty())
        words.push_back("--app=" + whom.application);
    if (whom.session)
        words.push_back("--session=" + std::to_string(*whom.session));
    return words;
}

/// A word as a person types it.
std::string typed(const std::string& word)
{
    return word.find_first_of(" \t") == std::string::npos && !word.empty() ? word : '"' + word + '"';
}

/// Of a file, what changes with its bytes.
std::string stamp_of(const std::wstring& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == FALSE)
        return "-";
    return std::to_string(data.ftLastWriteTime.dwHighDateTime) + '.' +
           std::to_string(data.ftLastWriteTime.dwLowDateTime) + '.' + std::to_string(data.nFileSizeLow);
}

/// What of a change is of no use on the page: the lines of the file, which may be long.
Json without_lines(Json change)
{
    change["has_lines"] = !change["lines"].empty();
    change.erase("lines");
    change.erase("file");
    return change;
}

/// A rule only ever raises a level.
void require_lower(const Editor& editor, int package, int level)
{
    const auto found = editor.file().packages().find(package);
    const int own = found == editor.file().packages().end() ? Kor_LogConf::DEFAULT_LEVEL : found->second.level;
    if (own >= level)
        throw Failure(
            editor.names().text(package) + " has level " + level_text(own) + " for everybody already.",
            own < 7 ? "Nothing was changed. Choose a finer level." : "Nothing was changed: there is no finer level.");
}
} // namespace

Filters PageSubject::filters() const
{
    Filters filters;
    if (!client.empty())
        filters.clients.push_back(client);
    if (!application.empty())
        filters.applications.push_back(application);
    if (session)
        filters.sessions.push_back(*session);
    return filters;
}

MachineSource::MachineSource(Tool& tool) : m_tool(tool) {}

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
        add_packages(state, whom);
    return state;
}

/// Those that have a name, with the level in force. Where whom cannot be told apart, with the level for everybody.
void MachineSource::add_packages(Json& state, const PageSubject& whom) const
{
    std::map<int, int> levels;
    try
    {
        static_cast<void>(whom.filters().for_rule()); // says what is wrong with a name or an address
        std::vector<std::string> words = options_for(whom);
        words.emplace_back("*");
        const Json explained = call(m_tool, "explain", words);
        for (const Json& answer : explained["packages"])
            levels[answer["package"].get<int>()] = answer["level"].get<int>();
    }
    catch (const Failure& failure)
    {
        state["problem"] = {{"error", failure.what()}, {"next", failure.next()}};
    }
    const Json listed = call(m_tool, "list");
    for (const Json& row : listed["packages"])
    {
        const auto level = levels.find(row["package"].get<int>());
        state["packages"].push_back(
            {{"package", row["package"]},
             {"name", row["name"]},
             {"comment", row["comment"]},
             {"own_level", row["level"]},
             {"level", level == levels.end() ? row["level"] : Json(level->second)}});
    }
}

Json MachineSource::explain(int package, const PageSubject& whom)
{
    std::vector<std::string> words = options_for(whom);
    words.push_back(std::to_string(package));
    const Json report = call(m_tool, "explain", words);
    Json answer = report["packages"].at(0);
    answer["source"] = report["source"];
    return answer;
}

Json MachineSource::processes() { return call(m_tool, "ps"); }

Json MachineSource::lines(const PageLines& wanted)
{
    LineFeed& feed = feed_of(wanted.package);
    feed.poll();
    return feed.since(wanted);
}

LineFeed& MachineSource::feed_of(int package)
{
    const ULONGLONG ticks = ::GetTickCount64();
    for (UsedFeed& used : m_feeds)
    {
        if (used.feed.package() != package)
            continue;
        used.used_at = ticks;
        return used.feed;
    }
    if (m_feeds.size() >= MOST_FEEDS)
        m_feeds.erase(std::min_element(
            m_feeds.begin(), m_feeds.end(),
            [](const UsedFeed& a, const UsedFeed& b) { return a.used_at < b.used_at; }));
    return m_feeds.emplace_back(UsedFeed{LineFeed(log_folders(m_tool.folder), package), ticks}).feed;
}

std::string MachineSource::command_for(const PageRaise& wanted) const
{
    std::optional<kor::core::LevelFile> file;
    if (std::optional<std::string> bytes = read_whole(m_tool.folder.file))
        file.emplace(std::move(*bytes));
    const Running running = read_running();
    const PackageNames names(m_tool.folder, file ? &*file : nullptr, running.conf.get());
    const std::string& name = names.of(wanted.package);
    std::string text =
        "page: set " + typed(name.empty() ? std::to_string(wanted.package) : name) + ' ' + level_name(wanted.level);
    if (!wanted.whom.client.empty())
        text += " --client " + typed(wanted.whom.client);
    if (!wanted.whom.application.empty())
        text += " --app " + typed(wanted.whom.application);
    if (wanted.whom.session)
        text += " --session " + std::to_string(*wanted.whom.session);
    text += " --for " + wanted.length;
    const std::string reason = shown(wanted.reason);
    return reason.empty() ? text : text + " (reason: " + reason + ')';
}

Json MachineSource::raise(const PageRaise& wanted)
{
    if (m_has_ended)
        throw Failure("LevelSync page is ending.", "Nothing was changed. Start it again.");
    const auto length = read_duration(wanted.length);
    if (!length)
        throw Failure('"' + wanted.length + "\" is no such time.", "Choose one of the page's.", WRONG_CALL);
    if (columns_of(wanted.reason) > LONGEST_REASON)
        throw Failure(
            "The reason has more than " + std::to_string(LONGEST_REASON) + " characters.",
            "Nothing was changed. Say it shorter.", WRONG_CALL);
    const kor::core::RuleFilters rule = wanted.whom.filters().for_rule();
    ChangeOptions options;
    options.until = now() + *length;
    options.command = command_for(wanted);
    feed_of(wanted.package);               // before the first line can come
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

Json MachineSource::undo(long long change)
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
    const ULONGLONG ticks = ::GetTickCount64();
    m_feeds.remove_if([ticks](const UsedFeed& used) { return ticks - used.used_at > FEED_IDLE_MS; });
    for (UsedFeed& used : m_feeds)
        used.feed.poll();
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
