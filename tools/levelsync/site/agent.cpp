#include "site/agent.h"

#include <windows.h>

#include <algorithm>
#include <exception>

#include "Kor_LogFile.h"
#include "failure.h"
#include "file.h"
#include "override.h"
#include "site/refusal.h"
#include "site/site_change.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::uint64_t TRY_AGAIN_MS = 30'000; // what was refused; overrides end while nothing else changes
constexpr std::size_t MOST_EFFECTS = 5;
constexpr wchar_t REPLACED_FILE[] = L"logger.local";

std::string first_effects(const Kor_LogConf& from, const Kor_LogConf& to)
{
    std::vector<std::string> effects = texts_of(differences(from, to));
    const std::size_t more = effects.size() - std::min(effects.size(), MOST_EFFECTS);
    effects.resize(effects.size() - more);
    if (more > 0)
        effects.push_back(counted(more, "further change", "further changes"));
    return joined(effects, ", ");
}

/// A file may be one that cannot be put beside another: then it says something else.
bool says_the_same(const std::string& one, const std::string& other)
{
    return one == other || kor::core::LevelFile(one).says_the_same(kor::core::LevelFile(other));
}
} // namespace

void AgentOptions::declare(Options& options)
{
    options.add_option("--machine", machine, "What the site calls this machine; its computer name where it is missing")
        ->type_name("NAME");
    options.add_option("--group", groups, "A group that it belongs to; a later one counts for more")
        ->type_name("NAME")
        ->take_all();
    options.add_option("--every", every_s, "Seconds between two looks at the store")
        ->type_name("SECONDS")
        ->positive()
        ->capture_default_str();
    options.add_flag(
        "--take-back-local", takes_back_local, "Begin with what the site wants, whatever was changed here");
}

void AgentOptions::check() const
{
    constexpr std::uint32_t LONGEST_S = 3'600;
    if (!machine.empty() && !kor::core::is_site_name(machine))
        throw Failure(
            '"' + machine + "\" can be no name of a machine.", "Letters, digits, and - _ . behind the first.",
            WRONG_CALL);
    for (const std::string& group : groups)
        if (!kor::core::is_site_name(group))
            throw Failure(
                '"' + group + "\" can be no name of a group.", "Letters, digits, and - _ . behind the first.",
                WRONG_CALL);
    if (groups.size() > kor::core::MOST_SITE_GROUPS)
        throw Failure("A machine belongs to 64 groups at most.", "Leave some out.", WRONG_CALL);
    if (every_s > LONGEST_S)
        throw Failure("A change should not wait for more than an hour.", "Say less than --every 3600.", WRONG_CALL);
}

Agent::Agent(Tool& tool, SiteStore& store, const AgentOptions& options)
    : m_tool(tool), m_store(store), m_options(options), m_duty(tool), m_state(load_agent_state(tool.folder, tool.site)),
      m_history(tool.folder)
{
    m_report.machine = options.machine.empty() ? kor::core::site_name_of(machine_name()) : options.machine;
    m_report.groups = options.groups;
    m_report.version = tool.version;
    m_report.folder = shown(utf8(tool.folder.path));
}

void Agent::look()
{
    MachineReport& report = m_report;
    report.wrong.clear();
    report.local.clear();
    try
    {
        look_at_store();
    }
    catch (const Failure& failure)
    {
        report.wrong.push_back(failure.what());
    }
    try
    {
        look_at_machine();
    }
    catch (const Failure& failure)
    {
        report.wrong.push_back(failure.what());
    }
    report.state = m_state.applied_at ? m_state.mark.state : std::string();
    report.applied = m_state.applied_at;
    say();
}

// The store -----------------------------------------------------------------------------------------------
void Agent::look_at_store()
{
    m_is_away = true; // unless it answers
    try
    {
        const SiteMark mark = m_store.mark();
        m_is_away = false;
        // What was refused is looked at again: a store that went back can come to the same numbers by another way.
        const bool is_known = m_state.wish && mark == m_state.mark && m_refused.empty();
        const bool is_refused = !m_refused.empty() && mark == m_refused_mark;
        if (!is_known && (!is_refused || ::GetTickCount64() - m_refused_at >= TRY_AGAIN_MS))
        {
            m_refused_mark = mark;
            m_refused_at = ::GetTickCount64();
            take(m_store.read(m_options.groups));
            m_refused.clear();
        }
    }
    catch (const Refusal& refusal)
    {
        m_is_away = false;
        m_refused = refusal.what();
    }
    if (!m_refused.empty())
        throw Failure("What the site wants is refused, and the last good state stays: " + m_refused, "");
}

void Agent::take(const SiteRead& read)
{
    const SiteMark& mark = read.mark;
    const std::int64_t seen = m_state.position_of(mark.store);
    if (mark.position < seen)
        throw Refusal(
            "The store has revision " + std::to_string(mark.position) + ", and " + std::to_string(seen) +
            " was seen already: it has gone back in time.");
    kor::core::SiteWish wish = wish_of(read, m_options.groups);
    const kor::core::MergedSite merged = kor::core::merge_site(wish, now());
    if (!merged.problem.empty())
        throw Refusal(shown(merged.problem));
    m_state.wish = std::move(wish);
    m_state.mark = mark;
    m_state.note_position(mark);
    m_is_merged = false;
    m_failure.clear();
    // Before anything of it is in force: whatever happens then, nothing older comes after it.
    save_agent_state(m_tool.folder, m_state);
}

void Agent::merge_when_due()
{
    if (m_is_merged && (!m_next_end || now() < *m_next_end))
        return;
    kor::core::MergedSite merged = kor::core::merge_site(*m_state.wish, now());
    if (!merged.problem.empty())
        throw Refusal(shown(merged.problem));
    m_merged = std::move(merged.bytes);
    m_next_end = merged.next_end;
    m_is_merged = true;
}

// The machine ---------------------------------------------------------------------------------------------
void Agent::look_at_machine()
{
    if (!m_state.wish)
    {
        if (m_report.wrong.empty())
            m_report.wrong.push_back("Nothing has come from the site yet.");
        return;
    }
    merge_when_due();
    if (!m_history.read().overrides().empty())
        take_back_due(m_tool);
    const LocalOverrides overrides(m_history.read(), m_state.kept);
    const auto file = read_whole(m_tool.folder.file);
    const bool is_new = !m_state.applied_at || fingerprint(m_merged) != m_state.applied;
    if (is_new || m_options.takes_back_local || !file)
        put(overrides, is_new ? "what the site wants" : "what the site wants, as it was changed here");
    else
        look_at_local(*file, overrides);
    for (std::string& text : overrides.texts())
        m_report.local.push_back(std::move(text));
    if (!m_verdict.empty())
        m_report.local.push_back(m_verdict);
    look_at_running();
}

/// The site wants what it wanted before: whatever is different was done here.
void Agent::look_at_local(const std::string& file, const LocalOverrides& overrides)
{
    const bool is_as_before = file == m_looked_at && overrides.ids() == m_state.kept;
    if (is_as_before)
        return;
    const std::string expected = overrides.put_into(m_merged);
    if (says_the_same(file, expected))
    {
        m_verdict.clear();
        m_looked_at = file;
        if (overrides.ids() == m_state.kept && !m_state.changed_since)
            return;
        m_state.kept = overrides.ids();
        m_state.left = file;
        m_state.changed_since.reset();
        return save_agent_state(m_tool.folder, m_state);
    }
    if (overrides.is_same_but_for_them(file, expected))
        return put(overrides, "what the site wants, as an override of this machine is over");
    if (!m_state.changed_since)
    {
        m_state.changed_since = now();
        save_agent_state(m_tool.folder, m_state);
    }
    m_looked_at = file;
    m_verdict = "Changed on this machine since " + local_text(*m_state.changed_since) +
                author_of_change(m_history.read(), *m_state.applied_at) + ": " +
                first_effects(*conf_of(expected), *conf_of(file)) +
                ". It stays until the site's state changes, or LevelSync agent is begun with --take-back-local.";
}

void Agent::put(const LocalOverrides& overrides, const std::string& why)
{
    // What cannot be done is noted in the history each time, and so not tried with each look.
    if (!m_failure.empty() && ::GetTickCount64() - m_failed_at < TRY_AGAIN_MS)
        throw Failure(m_failure, "");
    const std::string expected = overrides.put_into(m_merged);
    const auto making = [&](const std::optional<std::string>& file, const History&) -> std::optional<std::string>
    {
        keep_replaced(file, overrides);
        return expected;
    };
    Outcome outcome;
    try
    {
        outcome = replace_file(
            m_tool, making, "LevelSync agent: " + why + ", state " + m_state.mark.state + " of " + m_tool.site);
    }
    catch (const Failure& failure)
    {
        m_failure = failure.what();
        m_failed_at = ::GetTickCount64();
        throw;
    }
    m_failure.clear();
    m_state.applied = fingerprint(m_merged);
    m_state.applied_at = now();
    m_state.left = expected;
    m_state.kept = overrides.ids();
    m_state.changed_since.reset();
    m_options.takes_back_local = false;
    m_verdict.clear();
    m_looked_at = expected;
    save_agent_state(m_tool.folder, m_state);
    tell(
        "applied",
        "State " + m_state.mark.state + " is in force here" +
            (outcome.effects.empty() ? std::string(".") : ": " + joined(outcome.effects, ", ") + '.'),
        Style::GOOD);
}

/// What somebody has written by hand, and what was there before the first time, is not lost with the file.
void Agent::keep_replaced(const std::optional<std::string>& file, const LocalOverrides& overrides)
{
    const bool is_own = !file || (m_state.applied_at && overrides.is_same_but_for_them(*file, m_state.left));
    if (is_own)
        return;
    Replacement(m_tool.folder.name(REPLACED_FILE), *file).put_in_place();
    tell(
        "replaced",
        "The level file was changed here; as it was it stands in " + shown(utf8(m_tool.folder.name(REPLACED_FILE))) +
            " now.",
        Style::CAREFUL);
}

/// Programs can give each other a configuration without any file.
void Agent::look_at_running()
{
    const std::uint64_t count = Kor_LogFile::GetSharedChangeCount();
    if (count != m_running_count || m_running_file != m_looked_at)
    {
        const Running running = read_running();
        m_running_verdict.clear();
        if (running.conf)
        {
            const std::string effects = first_effects(*conf_of(m_looked_at), *running.conf);
            if (!effects.empty())
                m_running_verdict =
                    "What the processes of this machine go by is not what its file says: " + effects + '.';
        }
        m_running_count = count;
        m_running_file = m_looked_at;
    }
    if (!m_running_verdict.empty())
        m_report.local.push_back(m_running_verdict);
}

// Words ---------------------------------------------------------------------------------------------------
void Agent::say()
{
    std::string words;
    for (const auto* const list : {&m_report.wrong, &m_report.local})
        for (const std::string& text : *list)
            words += (words.empty() ? "" : " ") + text;
    if (words != m_told)
        tell(
            m_report.wrong.empty() ? "state" : "trouble", words.empty() ? "All is as the site wants it." : words,
            words.empty() ? Style::GOOD : Style::CAREFUL);
    m_told = words;
    if (m_is_away)
        return;
    try
    {
        // The same words with the same time cost a store little.
        MachineReport report = m_report;
        report.said = 0;
        const std::string said = json_of(report).dump();
        if (said != m_said)
            m_report.said = now();
        m_said = said;
        m_store.report(m_report.machine, json_of(m_report).dump(2, ' ', false, Json::error_handler_t::replace) + '\n');
    }
    catch (const Failure& failure)
    {
        tell("trouble", std::string("The site could not be told of this machine: ") + failure.what(), Style::CAREFUL);
    }
}

void Agent::tell(const std::string& event, const std::string& text, Style style)
{
    Console& console = m_tool.console;
    if (m_tool.json)
        console.print(Json{{"time", utc_text(now())}, {"event", event}, {"text", text}}.dump() + '\n');
    else
        console.line(local_text(now()) + "  " + text, style);
    console.flush();
}

void Agent::leave()
{
    m_report.is_stopped = true;
    m_report.said = now();
    try
    {
        m_store.leave(m_report.machine, json_of(m_report).dump(2, ' ', false, Json::error_handler_t::replace) + '\n');
    }
    catch (const Failure&) // it looks gone after a while
    {
    }
    tell("stopped", "The agent ends; the machine goes on with what it has.");
}

ExitCode run_agent(Tool& tool, const AgentOptions& options, const std::function<bool(std::int64_t)>& wait)
{
    options.check();
    const auto store = open_site(tool);
    Agent agent(tool, *store, options);
    do
        agent.look();
    while (!wait(static_cast<std::int64_t>(options.every_s) * 1'000));
    agent.leave();
    return DONE;
}
} // namespace levelsync
