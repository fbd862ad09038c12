// command.h - a command of LevelSync, and the table of all of them.

#ifndef LEVELSYNC_COMMAND_H
#define LEVELSYNC_COMMAND_H

#include <memory>
#include <vector>

#include "options.h"
#include "tool.h"

namespace levelsync
{
class Command
{
public:
    Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    /// Adds the command's own options; --json, --dir and --help are there already.
    virtual void declare(Options& options) = 0;

    /// Does it. Throws Failure with what went wrong and what to do next.
    virtual ExitCode run(Tool& tool) = 0;

    /// The same on the site that --site names; commands that make no sense there say so.
    virtual ExitCode run_on_site(Tool& tool);
};

/// A row of the table.
struct CommandEntry
{
    const char* name;
    const char* summary; ///< one line, for LevelSync --help; null: not shown there
    const char* example; ///< for the command's own --help; lines separated by "\n"
    std::unique_ptr<Command> (*make)();
};

template <class Made>
std::unique_ptr<Command> make_command()
{
    return std::make_unique<Made>();
}

/// All commands, in the order in which --help has them.
const std::vector<const CommandEntry*>& all_commands();
} // namespace levelsync

#endif // LEVELSYNC_COMMAND_H
