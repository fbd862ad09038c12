// set: a level for everybody, or for some.

#include "change.h"
#include "command.h"
#include "failure.h"
#include "file.h"
#include "filters.h"
#include "override.h"
#include "site/site_change.h"
#include "text.h"

namespace levelsync
{
namespace
{
class Set final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("PACKAGE", m_package, "Number, name, or pattern of names (Re*)")->required();
        options.add_option("LEVEL", m_level, "Number or name: 7, debug")->required();
        m_filters.declare(options);
        options.add_option("--for", m_for, "Take it back after so long: 15m, 2h, 90s")->type_name("TIME");
        options.add_flag("--detach", m_detach, "With --for: a process in the background takes it back");
        add_reason_option(options, m_reason);
        add_change_options(options, m_options);
    }

    ExitCode run(Tool& tool) override
    {
        const int level = read_level(m_level);
        const kor::core::RuleFilters filters = rule_filters(level);
        m_options.until = end_of(m_for, m_detach);
        Outcome outcome = change(
            tool,
            [&](Editor& editor, const History&)
            {
                for (const int package : editor.names().find(m_package))
                    edit_level(editor, package, level, filters);
                warn_of_higher_level(tool, editor, level, filters);
            },
            m_options);
        report(tool, outcome, m_options);
        tool.console.flush();
        if (!m_options.until || outcome.id == 0)
            return DONE;
        if (m_detach)
            keep_in_background(tool, std::move(outcome), *m_options.until);
        else
            keep_here(tool, std::move(outcome), *m_options.until);
        return DONE;
    }

    /// With an end it is an override of its own; without one the base file gets it.
    ExitCode run_on_site(Tool& tool) override
    {
        const int level = read_level(m_level);
        const kor::core::RuleFilters filters = rule_filters(level);
        if (m_detach || !m_options.is_published)
            throw Failure(
                "On a site an override ends by itself, and each change counts for all machines.",
                "Leave --detach and --no-publish out.", WRONG_CALL);
        const SiteChangeOptions options{m_options.is_dry_run, m_reason, end_of(m_for, false), {}};
        const auto store = open_site(tool);
        const auto editing = [&](SiteEditor& editor)
        {
            for (const int package : editor.base().names().find(m_package))
                if (options.until)
                    editor.begin(override_of(editor, package, level, filters, *options.until));
                else
                    edit_level(editor.base(), package, level, filters);
            warn_of_higher_level(tool, editor.base(), level, filters);
        };
        report(tool, change_site(tool, *store, editing, options), options);
        return DONE;
    }

private:
    /// Throws Failure for a rule that would lower a level.
    kor::core::RuleFilters rule_filters(int level) const
    {
        kor::core::RuleFilters filters = m_filters.for_rule();
        if (level == 0 && !filters.empty())
            throw Failure(
                "A rule raises a level, to 1 or more.",
                "To write less for everybody: LevelSync set " + m_package + " 0.", WRONG_CALL);
        return filters;
    }

    kor::core::SiteOverride override_of(
        const SiteEditor& editor, int package, int level, const kor::core::RuleFilters& filters, Time until) const
    {
        kor::core::SiteOverride over;
        over.package = package;
        over.name = editor.base().names().of(package);
        if (over.name.find_first_of(" \t") != std::string::npos)
            over.name.clear();
        over.level = level;
        over.filters = filters;
        over.author = own_account();
        over.machine = machine_name();
        over.reason = m_reason;
        over.made = now();
        over.until = until;
        return over;
    }

    static std::optional<Time> end_of(const std::string& duration, bool is_detached)
    {
        if (duration.empty() && is_detached)
            throw Failure("--detach is for an override.", "Say for how long, as in --for 15m.", WRONG_CALL);
        if (duration.empty())
            return std::nullopt;
        const auto length = read_duration(duration);
        if (!length)
            throw Failure(
                '"' + duration + "\" is no such time.", "Say it as in --for 15m, 90s, 2h or 1h30m; 30d is the most.",
                WRONG_CALL);
        return now() + *length;
    }

    /// A rule never lowers a level.
    static void
    warn_of_higher_level(const Tool& tool, const Editor& editor, int level, const kor::core::RuleFilters& filters)
    {
        if (filters.empty())
            return;
        for (const int package : editor.wanted())
        {
            const auto found = editor.file().packages().find(package);
            if (found != editor.file().packages().end() && found->second.level >= level)
                tool.console.error(
                    editor.names().text(package) + " has level " + level_text(found->second.level) +
                        " for everybody, and a rule never lowers it: this one changes nothing.",
                    Style::CAREFUL);
        }
    }

    std::string m_package;
    std::string m_level;
    Filters m_filters;
    std::string m_for;
    std::string m_reason;
    bool m_detach = false;
    ChangeOptions m_options;
};
} // namespace

extern const CommandEntry command_set{
    "set", "Sets the level of packages, for everybody or for some",
    "LevelSync set replay debug --client 192.0.2.7 --for 15m", &make_command<Set>};
} // namespace levelsync
