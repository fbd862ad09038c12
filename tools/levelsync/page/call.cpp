#include "call.h"

#include <algorithm>

#include "command.h"

namespace levelsync
{
Json call(const Tool& tool, const std::string& name, const std::vector<std::string>& words)
{
    const auto& table = all_commands();
    const auto entry =
        std::find_if(table.begin(), table.end(), [&name](const CommandEntry* known) { return known->name == name; });
    const std::unique_ptr<Command> command = (*entry)->make();
    take_words([&command](Options& options) { command->declare(options); }, words);

    std::string report;
    std::string warnings;
    {
        Console console(report, warnings);
        Tool inner{console,      true,      tool.folder,      tool.command_line,
                   tool.version, tool.site, tool.credentials, tool.open_store};
        if (tool.site.empty())
            command->run(inner);
        else
            command->run_on_site(inner);
    }
    if (!warnings.empty())
        tool.console.error(warnings);
    return Json::parse(report);
}
} // namespace levelsync
