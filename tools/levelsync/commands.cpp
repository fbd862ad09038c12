// The table of commands: one line for each. COMMAND(x) stands for command_x of commands/x.cpp, or of a folder of its own. The first is what
// LevelSync without a command does.

#include "command.h"

#include "failure.h"

// clang-format off
#define LEVELSYNC_COMMANDS \
    COMMAND(status)        \
    COMMAND(publish)       \
    COMMAND(list)          \
    COMMAND(explain)       \
    COMMAND(set)           \
    COMMAND(clear)         \
    COMMAND(output)        \
    COMMAND(limit)         \
    COMMAND(undo)          \
    COMMAND(history)       \
    COMMAND(check)         \
    COMMAND(diff)          \
    COMMAND(watch)         \
    COMMAND(ps)            \
    COMMAND(lines)         \
    COMMAND(tail)          \
    COMMAND(doctor)        \
    COMMAND(collect)       \
    COMMAND(page)          \
    COMMAND(agent)         \
    COMMAND(service)       \
    COMMAND(keep)
// clang-format on

#define COMMAND(name) extern const CommandEntry command_##name;
namespace levelsync
{
LEVELSYNC_COMMANDS
} // namespace levelsync
#undef COMMAND

#define COMMAND(name) &command_##name,
const std::vector<const levelsync::CommandEntry*>& levelsync::all_commands()
{
    static const std::vector<const CommandEntry*> table{LEVELSYNC_COMMANDS};
    return table;
}

levelsync::ExitCode levelsync::Command::run_on_site(Tool&)
{
    throw Failure(
        "That is about one machine, and not about a site.",
        "With --site there are status, list, explain, set, clear, publish FILE, undo, history, check and page.",
        WRONG_CALL);
}
