// history: who changed what.

#include "history.h"

#include <algorithm>

#include "command.h"
#include "override.h"
#include "site/site_change.h"
#include "text.h"

namespace levelsync
{
namespace
{
std::string state_of(const History& history, const Change& change)
{
    if (!change.failure.empty())
        return "not done: " + change.failure;
    if (change.is_open())
        return "in the making";
    if (const Change* const by = history.taken_back_by(change))
        return "taken back by " + std::to_string(by->id);
    if (change.until)
        return until_text(*change.until);
    return "";
}

class ShowHistory final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("-n", m_count, "The last so many, 20 where it is missing")->type_name("COUNT");
    }

    ExitCode run(Tool& tool) override
    {
        const History history(tool.folder);
        const auto& changes = history.changes();
        const std::size_t first = changes.size() > m_count ? changes.size() - m_count : 0;
        Json rows = Json::array();
        for (std::size_t i = first; i < changes.size(); ++i)
            if (tool.json)
                rows.push_back(row(history, changes[i]));
            else
                print(tool.console, history, changes[i]);
        if (tool.json)
            tool.print({{"changes", rows}});
        else if (changes.empty())
            tool.console.line("Nobody has changed anything with LevelSync yet.");
        return DONE;
    }

    ExitCode run_on_site(Tool& tool) override
    {
        const auto store = open_site(tool);
        const SiteHistory history(*store);
        const auto& changes = history.changes();
        Json rows = Json::array();
        for (std::size_t i = changes.size() - std::min(m_count, changes.size()); i < changes.size(); ++i)
            if (tool.json)
                rows.push_back(row(history, changes[i]));
            else
                print(tool.console, history, changes[i]);
        if (tool.json)
            tool.print({{"site", tool.site}, {"changes", rows}});
        else if (changes.empty())
            tool.console.line("Nobody has changed anything on this site with LevelSync yet.");
        return DONE;
    }

private:
    static std::string site_state_of(const SiteHistory& history, const SiteChange& change)
    {
        if (const SiteChange* const by = history.taken_back_by(change))
            return "taken back by " + std::to_string(by->id);
        if (!change.until)
            return {};
        return *change.until > now() ? until_text(*change.until) : "over since " + local_text(*change.until);
    }

    static Json row(const SiteHistory& history, const SiteChange& change)
    {
        Json json = json_of(change);
        json["in_force"] = history.is_in_force(change) && (!change.until || *change.until > now());
        json["state"] = site_state_of(history, change);
        return json;
    }

    static void print(Console& console, const SiteHistory& history, const SiteChange& change)
    {
        console.print(padded(std::to_string(change.id), 5), Style::STRONG);
        console.print(local_text(change.time) + "  " + shown(change.user) + " on " + shown(change.machine) + ": ");
        console.line(shown(change.command));
        for (const std::string& effect : change.effects)
            console.line("     " + shown(effect));
        if (!change.reason.empty())
            console.line("     why: " + shown(change.reason));
        const std::string state = site_state_of(history, change);
        if (!state.empty())
            console.line("     " + state, Style::FAINT);
    }

    static Json row(const History& history, const Change& change)
    {
        Json json = json_of(change);
        json["in_force"] = history.is_in_force(change);
        json["state"] = state_of(history, change);
        return json;
    }

    static void print(Console& console, const History& history, const Change& change)
    {
        console.print(padded(std::to_string(change.id), 5), Style::STRONG);
        console.print(local_text(change.time) + "  " + change.user + " on " + change.machine + ": ");
        console.line(change.command);
        for (const std::string& effect : change.effects)
            console.line("     " + effect);
        const std::string state = state_of(history, change);
        if (!state.empty())
            console.line("     " + state, Style::FAINT);
    }

    std::size_t m_count = 20;
};
} // namespace

extern const CommandEntry command_history{
    "history", "Who changed what, when, and with which words", "LevelSync history -n 5", &make_command<ShowHistory>};
} // namespace levelsync
