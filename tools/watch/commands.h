// commands.h - what the command line has done about programs that Windows is to write minidumps of.

#ifndef LUMLOGWATCH_COMMANDS_H
#define LUMLOGWATCH_COMMANDS_H

#include <string>

namespace lumlogwatch
{
enum ExitCode
{
    DONE = 0,
    NOT_DONE = 1,
    WRONG_CALL = 2
};

/// program: the path or the name of its file, as Windows knows it by its name. Both return an ExitCode, and say on standard
/// error what has not been done.
int have_registered(const std::string& program, const std::string& folder);
int have_unregistered(const std::string& program);
} // namespace lumlogwatch

#endif // LUMLOGWATCH_COMMANDS_H
