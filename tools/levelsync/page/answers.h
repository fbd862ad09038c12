// answers.h - what commands say, as the page's script reads it, whether of a machine or of a site.

#ifndef LEVELSYNC_PAGE_ANSWERS_H
#define LEVELSYNC_PAGE_ANSWERS_H

#include <string>
#include <vector>

#include "core/level_file.h"
#include "source.h"

namespace levelsync
{
/// The options of a command, each with its value in one word, so that no value is taken for an option.
std::vector<std::string> options_for(const PageSubject& whom);

/// Fills "packages" of a state with those that have a name, with the level in force. Where whom cannot be told apart,
/// "problem" says why, and the level is that for everybody.
void add_packages(const Tool& tool, const PageSubject& whom, Json& state);

/// The level of one package, and why.
Json explained(const Tool& tool, int package, const PageSubject& whom);

/// What of a change is of no use on the page: the lines of the file, which may be long.
Json without_lines(Json change);

/// A raise as the history has it: "page: set Replay debug --client 192.0.2.7 --for 15m".
std::string command_for(const PageRaise& wanted, const std::string& package_name);

/// Throws Failure for one that is too long.
void check_reason(const std::string& reason);

/// The level that a package has for everybody. A rule only ever raises it.
int own_level(const kor::core::LevelFile& file, int package);

/// Throws Failure that says so: there is nothing to raise.
[[noreturn]] void refuse_to_raise(const std::string& package, int own);
} // namespace levelsync

#endif // LEVELSYNC_PAGE_ANSWERS_H
