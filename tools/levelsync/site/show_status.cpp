// Machines and overrides of a site, on one screen.

#include <algorithm>

#include "failure.h"
#include "override.h"
#include "site/refusal.h"
#include "site/site_change.h"
#include "site/view.h"
#include "text.h"

namespace levelsync
{
namespace
{
/// What is to be told of a machine.
struct Row
{
    enum State
    {
        HAS_IT,
        NOT_YET,
        DIFFERS, ///< something local is in force there
        REFUSES, ///< something is wrong
        STOPPED,
        GONE
    };

    MachineReport report;
    State state;
};

constexpr const char* STATES[] = {"has it", "not yet", "differs", "in trouble", "stopped", "gone"};
constexpr const char* STATES_OF_MANY[] = {"have it", "not yet", "differ", "in trouble", "stopped", "gone"};
constexpr const char* STATE_KEYS[] = {"has_it", "not_yet", "differs", "in_trouble", "stopped", "gone"};
constexpr Style STYLES[] = {Style::GOOD, Style::CAREFUL, Style::CAREFUL, Style::BAD, Style::FAINT, Style::BAD};

Row::State state_of(const SiteMachine& machine, const MachineReport& report, const SiteMark& mark)
{
    if (report.is_stopped)
        return Row::STOPPED;
    if (!machine.is_there)
        return Row::GONE;
    if (!report.wrong.empty())
        return Row::REFUSES;
    if (report.state != mark.state)
        return Row::NOT_YET;
    return report.local.empty() ? Row::HAS_IT : Row::DIFFERS;
}

struct Status
{
    SiteMark mark;
    kor::core::SiteWish wish;
    std::string problem; ///< why no machine takes it; empty: all can
    std::vector<Row> machines;
};

Status look(SiteStore& store)
{
    Status status;
    try
    {
        const SiteRead read = store.read(std::nullopt);
        status.mark = read.mark;
        status.wish = wish_of(read, {});
        status.problem = shown(kor::core::merge_site(status.wish, now()).problem);
    }
    catch (const Refusal& refusal)
    {
        status.problem = refusal.what();
    }
    for (const SiteMachine& machine : store.machines())
    {
        MachineReport report = read_report(machine);
        const Row::State state = state_of(machine, report, status.mark);
        status.machines.push_back({std::move(report), state});
    }
    return status;
}

std::string over_text(const kor::core::SiteOverride& over)
{
    static const char* const WHAT[] = {"client", "application", "process", "session"};
    std::vector<std::string> parts;
    for (std::size_t list = 0; list < std::size(WHAT); ++list)
        if (!over.filters.lists[list].empty())
            parts.push_back(std::string(WHAT[list]) + ' ' + joined(over.filters.lists[list], " or "));
    const std::string name = over.name.empty() ? "package " + std::to_string(over.package) : over.name;
    return shown(name + ' ' + level_text(over.level) + " for " + (parts.empty() ? "everybody" : joined(parts, ", ")));
}

/// "3 machines: 2 have it and 1 not yet."
std::string summary_of(const Status& status)
{
    if (status.machines.empty())
        return "No machine has said anything yet. LevelSync agent --site ... runs on each.";
    std::size_t counts[std::size(STATES)] = {};
    for (const Row& row : status.machines)
        ++counts[row.state];
    std::vector<std::string> parts;
    for (std::size_t state = 0; state < std::size(STATES); ++state)
        if (counts[state] != 0)
            parts.push_back(counted(counts[state], STATES[state], STATES_OF_MANY[state]));
    return counted(status.machines.size(), "machine", "machines") + ": " + joined(parts) + '.';
}

Json report_of(const Tool& tool, const Status& status)
{
    Json json;
    json["site"] = tool.site;
    json["state"] = status.mark.state;
    json["problem"] = status.problem;
    json["overrides"] = Json::array();
    for (const auto& over : status.wish.overrides)
        if (over.until > now())
        {
            json["overrides"].push_back(json_of(over));
            json["overrides"].back()["text"] = over_text(over);
        }
    json["summary"] = summary_of(status);
    json["machines"] = Json::array();
    for (const Row& row : status.machines)
    {
        Json machine = json_of(row.report);
        machine["is"] = STATE_KEYS[row.state];
        json["machines"].push_back(machine);
    }
    return json;
}

void print_overrides(Console& console, const Status& status)
{
    bool is_first = true;
    for (const auto& over : status.wish.overrides)
    {
        if (over.until <= now())
            continue;
        if (is_first)
        {
            console.line();
            console.line("Overrides, over at their end or by LevelSync --site ... undo N:", Style::STRONG);
        }
        is_first = false;
        console.print("  " + padded(over.id, 6));
        console.print(until_text(over.until), Style::CAREFUL);
        console.line(
            ": " + over_text(over) + " (" + shown(over.author) + " on " + shown(over.machine) +
            (over.reason.empty() ? "" : ": " + shown(over.reason)) + ")");
    }
}

void print_machines(Console& console, const Status& status)
{
    if (status.machines.empty())
        return;
    console.line();
    std::size_t width = 7; // "MACHINE"
    for (const Row& row : status.machines)
        width = std::max(width, columns_of(row.report.machine));
    console.line(padded("MACHINE", width + 2) + padded("IT", 12) + padded("SINCE", 21) + "VERSION", Style::STRONG);
    for (const Row& row : status.machines)
    {
        const MachineReport& report = row.report;
        console.print(padded(report.machine, width + 2));
        console.print(padded(STATES[row.state], 12), STYLES[row.state]);
        const auto since =
            row.state == Row::GONE || row.state == Row::STOPPED ? report.said : report.applied.value_or(0);
        console.line(padded(since == 0 ? "" : local_text(since), 21) + report.version);
        for (const std::string& wrong : report.wrong)
            console.line("  " + wrong, Style::BAD);
        for (const std::string& local : report.local)
            console.line("  " + local, Style::CAREFUL);
    }
}

void print(const Tool& tool, const Status& status)
{
    Console& console = tool.console;
    console.print(padded("Site", 12), Style::STRONG);
    console.line(shown(tool.site));
    console.print(padded("State", 12), Style::STRONG);
    console.line(status.mark.state.empty() ? "cannot be told" : status.mark.state);
    if (!status.problem.empty())
    {
        console.print(padded("Refused", 12), Style::STRONG);
        console.line(status.problem + " The machines go on with what they have.", Style::BAD);
    }
    print_overrides(console, status);
    print_machines(console, status);
    console.line();
    console.line(summary_of(status));
}
} // namespace

ExitCode show_site_status(Tool& tool)
{
    const auto store = open_site(tool);
    const Status status = look(*store);
    if (tool.json)
        tool.print(report_of(tool, status));
    else
        print(tool, status);
    return status.problem.empty() ? DONE : NOT_DONE;
}

// Checking ------------------------------------------------------------------------------------------------
ExitCode check_site(Tool& tool)
{
    const auto store = open_site(tool);
    std::vector<std::string> problems;
    const auto note = [&problems](const std::string& problem)
    {
        if (!problem.empty())
            problems.push_back(shown(problem));
    };
    try
    {
        const SiteRead read = store->read(std::nullopt);
        kor::core::SiteWish wish;
        for (const SiteValue& value : read.values)
            if (value.key == "base")
                wish.base = value.bytes;
            else if (value.key.compare(0, 7, "groups/") == 0)
                wish.groups.push_back({value.key.substr(7), value.bytes});
        note(wish.base ? kor::core::problem_of_site_base(*wish.base) : "The site has no base file.");
        for (const auto& section : wish.groups)
            note(kor::core::problem_of_site_section(section));
        for (const SiteValue& value : read.values)
            if (value.key.compare(0, 10, "overrides/") == 0)
                try
                {
                    wish.overrides.push_back(read_override(value.key.substr(10), value.bytes));
                    note(kor::core::problem_of_site_override(wish.overrides.back()));
                }
                catch (const Refusal& refusal)
                {
                    note(refusal.what());
                }
        const auto sections = std::exchange(wish.groups, {});
        if (problems.empty())
            note(kor::core::merge_site(wish, now()).problem);
        for (const auto& section : sections)
        {
            wish.groups = {section};
            if (problems.empty())
                note(kor::core::merge_site(wish, now()).problem);
        }
    }
    catch (const Refusal& refusal)
    {
        note(refusal.what());
    }
    if (tool.json)
        tool.print({{"site", tool.site}, {"problems", problems}});
    for (const std::string& problem : problems)
        if (!tool.json)
            tool.console.line(problem, Style::BAD);
    if (!tool.json && problems.empty())
        tool.console.line("Every machine can take what the site wants.", Style::GOOD);
    return problems.empty() ? DONE : NOT_DONE;
}
} // namespace levelsync
