// undo: takes a change back.

#include "command.h"
#include "failure.h"
#include "override.h"
#include "site/site_change.h"

namespace levelsync
{
namespace
{
/// The last change that stands and is no taking back itself.
long long last_change(const History& history)
{
    const auto& changes = history.changes();
    for (auto change = changes.rbegin(); change != changes.rend(); ++change)
        if (!change->takes_back && !change->lines.empty() && history.is_in_force(*change))
            return change->id;
    throw Failure(
        "There is no change to take back.",
        "LevelSync history shows the changes; LevelSync undo N also takes back one that took something back.");
}

class Undo final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option(
            "N", m_id, "Number of the change, as LevelSync history shows it; the last one where it is missing");
        add_reason_option(options, m_reason);
        add_change_options(options, m_options);
    }

    ExitCode run(Tool& tool) override
    {
        const long long id = m_id != 0 ? m_id : last_change(History(tool.folder));
        report(tool, take_back(tool, id, m_options), m_options);
        return DONE;
    }

    ExitCode run_on_site(Tool& tool) override
    {
        const SiteChangeOptions options{m_options.is_dry_run, m_reason, {}, {}};
        const auto store = open_site(tool);
        report(tool, take_back_on_site(tool, *store, m_id, options), options);
        return DONE;
    }

private:
    long long m_id = 0;
    std::string m_reason;
    ChangeOptions m_options;
};
} // namespace

extern const CommandEntry command_undo{
    "undo", "Takes back the last change, or an earlier one", "LevelSync undo 7", &make_command<Undo>};
} // namespace levelsync
