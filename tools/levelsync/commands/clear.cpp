// clear: takes rules away.

#include "change.h"
#include "command.h"
#include "failure.h"
#include "filters.h"

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

private:
    std::string m_package;
    Filters m_filters;
    ChangeOptions m_options;
};
} // namespace

extern const CommandEntry command_clear{
    "clear", "Takes rules of packages away: all, or those for some", "LevelSync clear replay --client 192.0.2.7",
    &make_command<Clear>};
} // namespace levelsync
