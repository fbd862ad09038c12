#include "site_source.h"

#include <windows.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

#include "answers.h"
#include "call.h"
#include "failure.h"
#include "packages.h"
#include "site/agent_state.h"
#include "site/documents.h"
#include "site/site_change.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr int CHANGES_SHOWN = 30;

/// True for three bytes of UTF-8 that turn the letters behind them around: U+202A to U+202E, U+2066 to U+2069.
bool turns_letters(std::string_view bytes)
{
    const auto is_from_to = [&](std::string_view front, char first, char last)
    { return bytes.substr(0, 2) == front && bytes[2] >= first && bytes[2] <= last; };
    return bytes.size() == 3 && (is_from_to("\xE2\x80", '\xAA', '\xAE') || is_from_to("\xE2\x81", '\xA6', '\xA9'));
}

/// As a console would show it, and with nothing in it that makes what stands beside it read otherwise.
std::string settled(const std::string& text)
{
    std::string result = shown(text);
    for (std::size_t at = 0; (at = result.find('\xE2', at)) != std::string::npos; ++at)
        if (turns_letters(std::string_view(result).substr(at, 3)))
            result.replace(at, 3, "\xC2\xB7");
    return result;
}

/// What others have written into a store.
Json without_controls(const Json& json)
{
    if (json.is_string())
        return settled(json.get<std::string>());
    Json result = json;
    if (json.is_structured())
        for (auto one = result.begin(); one != result.end(); ++one)
            *one = without_controls(*one);
    return result;
}

/// The number of the change that an override came with: 12 of "12" and "12-2". 0: somebody else's.
long long change_of(const std::string& id)
{
    constexpr std::size_t MOST_DIGITS = 15;
    const std::size_t end = std::min(id.find('-'), id.size());
    const auto is_number = [&id](std::size_t first, std::size_t last)
    { return first < last && id.find_first_not_of("0123456789", first) >= last; };
    const bool is_own = end <= MOST_DIGITS && is_number(0, end) && (end == id.size() || is_number(end + 1, id.size()));
    return is_own ? std::stoll(id.substr(0, end)) : 0;
}

Json raised_row(const Json& over)
{
    const std::string id = over["id"].get<std::string>();
    const long long change = change_of(id);
    return {
        {"id", change},
        {"override", id},
        {"is_of_several", change != 0 && id.find('-') != std::string::npos},
        {"effects", {over["text"]}},
        {"user", over["author"]},
        {"machine", over["machine"]},
        {"command", ""},
        {"reason", over["reason"]},
        {"until", over["until"]}};
}

/// A change as the page has it. What replaced a whole text is taken back by publishing the old one.
Json change_row(const Json& change)
{
    Json row = without_lines(change);
    row["has_lines"] = row["has_lines"] == true || !change["begun"].empty() || !change["ended"].empty();
    row.erase("begun");
    row.erase("ended");
    return row;
}

/// The lists of groups that one may ask for: each group, and those that machines have together.
Json groups_to_ask_for(const SiteCopy& copy)
{
    std::set<std::vector<std::string>> lists;
    for (const std::string& group : groups_of(copy.read))
        lists.insert({group});
    const std::set<std::vector<std::string>> known = lists;
    for (const SiteMachine& machine : copy.machines)
    {
        const std::vector<std::string> groups = read_report(machine).groups;
        const bool has_sections = std::any_of(
            groups.begin(), groups.end(), [&known](const std::string& group) { return known.count({group}) != 0; });
        const bool are_names = std::all_of(groups.begin(), groups.end(), &kor::core::is_site_name);
        if (groups.size() > 1 && has_sections && are_names)
            lists.insert(groups);
    }
    return Json(lists);
}

/// Whatever group a machine belongs to: a rule that raises nothing anywhere is a mistake.
void require_lower_somewhere(const Folder& folder, const SiteCopy& copy, int package, int level)
{
    std::vector<std::vector<std::string>> kinds{{}};
    for (const std::string& group : groups_of(copy.read))
        kinds.push_back({group});
    for (const auto& groups : kinds)
    {
        kor::core::SiteWish wish = wish_of(copy.read, groups);
        wish.overrides.clear(); // they end
        const kor::core::MergedSite merged = kor::core::merge_site(wish, now());
        const kor::core::LevelFile file(merged.bytes);
        if (!merged.problem.empty() || own_level(file, package) < level)
            return; // where the site is refused, the change says why
        if (&groups == &kinds.back())
            refuse_to_raise(PackageNames(folder, &file, nullptr).text(package), own_level(file, package));
    }
}

/// Lets go of the turn while the store is waited for; one change at a time.
class Waiting
{
public:
    Waiting(PageTurn& turn, bool& is_changing) : m_turn(turn), m_is_changing(is_changing)
    {
        if (m_is_changing)
            throw Failure(
                "Another change of this page waits for the store.", "Nothing was changed. Try again in a moment.");
        m_is_changing = true;
        m_turn.unlock();
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    ~Waiting()
    {
        m_turn.lock();
        m_is_changing = false;
    }

private:
    PageTurn& m_turn;
    bool& m_is_changing;
};
} // namespace

SiteSource::SiteSource(Tool& tool) : m_tool(tool), m_keeper(open_site(tool)), m_feeds(tool.folder) { look_for_part(); }

std::string SiteSource::stamp() { return stamp_of(m_keeper.known()); }

std::string SiteSource::stamp_of(const SiteKeeper::Known& known) const
{
    const Time time = now();
    const auto live = std::count_if(m_ends.begin(), m_ends.end(), [time](Time end) { return end > time; });
    return std::to_string(known.number) + '/' + std::to_string(live) + (m_takes_part ? "/here" : "");
}

Tool SiteSource::tool_for(std::shared_ptr<const SiteCopy> copy) const
{
    return {m_tool.console, true,        m_tool.folder,      m_tool.command_line,
            m_tool.version, m_tool.site, m_tool.credentials, [copy = std::move(copy)] { return open_copy(copy); }};
}

/// What a page for one machine knows nothing of.
Json SiteSource::site_of(const SiteKeeper::Known& known) const
{
    Json site;
    site["address"] = m_tool.site;
    site["as_of"] = known.copy ? Json(utc_text(known.copy->as_of)) : Json();
    site["away"] = known.trouble ? Json{{"error", known.trouble->what()}, {"next", known.trouble->next()}}
                   : !known.copy
                       ? Json{{"error", "The store has not answered yet."}, {"next", "It is asked again and again."}}
                       : Json();
    site["problem"] = "";
    site["summary"] = "";
    site["takes_part"] = m_takes_part;
    site["groups"] = Json::array();
    site["machines"] = Json::array();
    return site;
}

Json SiteSource::state(const PageSubject& whom)
{
    const SiteKeeper::Known known = m_keeper.known();
    Json state;
    state["time"] = utc_text(now());
    state["machine"] = machine_name();
    state["site"] = site_of(known);
    for (const char* const name : {"raised", "changes", "packages"})
        state[name] = Json::array();
    state["problem"] = Json();
    m_ends.clear();
    if (known.copy)
        fill(state, known, whom);
    state["stamp"] = stamp_of(known);
    return without_controls(state);
}

void SiteSource::fill(Json& state, const SiteKeeper::Known& known, const PageSubject& whom)
{
    const Tool tool = tool_for(known.copy);
    const Json status = call(tool, "status");
    Json& site = state["site"];
    for (const char* const name : {"problem", "summary", "machines"})
        site[name] = status[name];
    for (const Json& over : status["overrides"])
    {
        state["raised"].push_back(raised_row(over));
        m_ends.push_back(read_utc(over["until"].get<std::string>()).value_or(0));
    }
    const Json history = call(tool, "history", {"-n", std::to_string(CHANGES_SHOWN)});
    for (const Json& change : history["changes"])
        state["changes"].push_back(change_row(change));
    if (site["problem"] != "")
        return; // no machine takes it: there are no levels to tell
    site["groups"] = groups_to_ask_for(*known.copy);
    add_packages(tool, whom, state);
}

Json SiteSource::explain(int package, const PageSubject& whom)
{
    const SiteKeeper::Known known = m_keeper.known();
    if (!known.copy)
        throw Failure("The store has not answered yet.", "It is asked again and again.");
    return without_controls(explained(tool_for(known.copy), package, whom));
}

/// Those of the machines are told by their own pages.
Json SiteSource::processes() { return {{"processes", Json::array()}, {"not_looked_into", Json::array()}}; }

Json SiteSource::lines(const PageLines& wanted)
{
    if (!m_takes_part)
        throw Failure(
            "This machine takes no part in the site.",
            "The lines are on its machines: LevelSync page shows them there.");
    LineFeed& feed = m_feeds.of(wanted.package);
    feed.poll();
    return feed.since(wanted);
}

Json SiteSource::change(
    const std::string& command, std::vector<std::string> words, const std::string& said, PageTurn& turn)
{
    if (m_has_ended)
        throw Failure("LevelSync page is ending.", "Nothing was changed. Start it again.");
    const Waiting waiting(turn, m_is_changing);
    std::string out;
    std::string err;
    Console console(out, err); // the other one is for who has the turn
    const Tool tool{console, true, m_tool.folder, said, m_tool.version, m_tool.site, m_tool.credentials};
    Json report = call(tool, command, words);
    m_keeper.look_again();
    report["warning"] = err;
    return report;
}

Json SiteSource::raise(const PageRaise& wanted, PageTurn& turn)
{
    check_reason(wanted.reason);
    const auto copy = m_keeper.known().copy;
    std::string name;
    if (copy && copy->refusal.empty())
    {
        require_lower_somewhere(m_tool.folder, *copy, wanted.package, wanted.level);
        const kor::core::LevelFile base(wish_of(copy->read, {}).base.value_or(std::string()));
        name = PackageNames(m_tool.folder, &base, nullptr).of(wanted.package);
    }
    if (m_takes_part)
        m_feeds.of(wanted.package); // before the first line can come
    std::vector<std::string> words = options_for(wanted.whom);
    words.push_back("--for=" + wanted.length);
    if (!wanted.reason.empty()) // an option without a value would take the next word
        words.push_back("--reason=" + wanted.reason);
    words.push_back(std::to_string(wanted.package));
    words.push_back(level_name(wanted.level));
    const Json report = change("set", std::move(words), command_for(wanted, name), turn);
    return without_controls(
        {{"id", report["id"]},
         {"effects", report["effects"]},
         {"until", report["until"]},
         {"warning", report["warning"]}});
}

Json SiteSource::undo(long long change_id, PageTurn& turn)
{
    const std::string number = std::to_string(change_id);
    const Json report = change("undo", {number}, "page: undo " + number, turn);
    return without_controls({{"effects", report["effects"]}});
}

void SiteSource::tick()
{
    m_feeds.poll();
    if (::GetTickCount64() - m_looked_for_part >= LOOK_FOR_PART_MS)
        look_for_part();
}

void SiteSource::look_for_part()
{
    m_looked_for_part = ::GetTickCount64();
    m_takes_part = takes_part(m_tool.folder, m_tool.site);
}

/// What was raised has an end of its own.
void SiteSource::end(const std::string&) { m_has_ended = true; }
} // namespace levelsync
