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

/// True for the path or the name of a program's file, such as viewer.exe. Of anything else the settings would be those of
/// all programs, or of none.
bool is_program(const std::string& program);

/// program: one for which is_program is true; Windows knows it by its name. folder: a relative one counts from the current
/// folder, unless it has a variable in it. Both return an ExitCode, and say what has been done, or on standard error what has
/// not.
int have_registered(const std::string& program, const std::string& folder);
int have_unregistered(const std::string& program);
} // namespace lumlogwatch

#endif // LUMLOGWATCH_COMMANDS_H
