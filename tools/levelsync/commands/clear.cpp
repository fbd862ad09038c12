// clear: takes rules away.

#include "change.h"
#include "command.h"
#include "failure.h"
#include "filters.h"
#include "site/site_change.h"

namespace levelsync
{
namespace
{
class Clear final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("PACKAGE", m_package, "Number, name, or pattern of names (Re*)")->required();
        m_filters.declare(options);
        add_reason_option(options, m_reason);
        add_change_options(options, m_options);
    }

    ExitCode run(Tool& tool) override
    {
        const kor::core::RuleFilters filters = m_filters.for_rule();
        change_and_report(
            tool,
            [&](Editor& editor, const History&)
            {
                const std::vector<int> packages = editor.names().find(m_package);
                for (const int package : packages)
                {
                    kor::core::LevelEdit edit = filters.empty()
                                                    ? kor::core::clear_rules(editor.file(), package)
                                                    : kor::core::clear_rule(editor.file(), package, filters);
                    // Of many packages not each has what is to go.
                    if (edit || packages.size() == 1)
                        editor.apply(edit, package);
                }
            },
            m_options);
        return DONE;
    }

    ExitCode run_on_site(Tool& tool) override
    {
        const kor::core::RuleFilters filters = m_filters.for_rule();
        const SiteChangeOptions options{m_options.is_dry_run, m_reason, {}, {}};
        const auto store = open_site(tool);
        const auto editing = [&](SiteEditor& editor)
        {
            const std::vector<int> packages = editor.base().names().find(m_package);
            for (const int package : packages)
                clear_on_site(editor, package, filters, packages.size() == 1);
        };
        report(tool, change_site(tool, *store, editing, options), options);
        return DONE;
    }

private:
    /// Rules of the base file, and overrides that are rules.
    static void
    clear_on_site(SiteEditor& editor, int package, const kor::core::RuleFilters& filters, bool is_only_package)
    {
        std::vector<std::string> ending;
        for (const kor::core::SiteOverride& over : editor.overrides())
            if (over.package == package && (filters.empty() ? !over.filters.empty() : over.filters == filters))
                ending.push_back(over.id);
        for (const std::string& id : ending)
            editor.end(id);
        const kor::core::LevelFile& file = editor.base().file();
        const kor::core::LevelEdit edit =
            filters.empty() ? kor::core::clear_rules(file, package) : kor::core::clear_rule(file, package, filters);
        if (edit || (is_only_package && ending.empty()))
            editor.base().apply(edit, package);
    }

    std::string m_package;
    Filters m_filters;
    std::string m_reason;
    ChangeOptions m_options;
};
} // namespace

extern const CommandEntry command_clear{
    "clear", "Takes rules of packages away: all, or those for some", "LevelSync clear replay --client 192.0.2.7",
    &make_command<Clear>};
} // namespace levelsync
