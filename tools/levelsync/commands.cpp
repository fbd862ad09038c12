// The table of commands: one line for each. COMMAND(x) stands for command_x of commands/x.cpp.

#include "command.h"

#define LEVELSYNC_COMMANDS COMMAND(list)

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
