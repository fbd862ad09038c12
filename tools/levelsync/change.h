// change.h - a change of the level file, from the turn to the line in the log.

#ifndef LEVELSYNC_CHANGE_H
#define LEVELSYNC_CHANGE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "conf.h"
#include "core/level_file.h"
#include "history.h"
#include "options.h"
#include "packages.h"
#include "tool.h"
#include "turn.h"

namespace levelsync
{
/// The level file while a command changes it.
class Editor
{
public:
    Editor(const Folder& folder, std::string bytes, const Kor_LogConf* running);

    const kor::core::LevelFile& file() const noexcept { return m_file; }
    const PackageNames& names() const noexcept { return m_names; }

    /// Takes an edit of file() over. One that changes nothing is noted as wanted; one that cannot be made is thrown as
    /// a Failure that says why and what to do.
    void apply(const kor::core::LevelEdit& edit, int what);

    const std::vector<kor::core::LineChange>& lines() const noexcept { return m_lines; }

    /// The packages (or first lines, as in LineChange::what) that the command is about.
    const std::vector<int>& wanted() const noexcept { return m_wanted; }

private:
    kor::core::LevelFile m_file;
    PackageNames m_names;
    std::vector<kor::core::LineChange> m_lines;
    std::vector<int> m_wanted;
};

struct ChangeOptions
{
    bool is_dry_run = false;
    bool is_published = true;
    std::optional<Time> until;           ///< an override
    std::optional<long long> takes_back; ///< the number of a change
    std::string command;                 ///< for the history
};

/// The options that every command has which changes the file: --dry-run and --no-publish.
void add_change_options(Options& options, ChangeOptions& change);

/// What became of a change.
struct Outcome
{
    long long id = 0;                              ///< in the history; 0: nothing had to be done, or was to be
    std::vector<kor::core::LineChange> lines = {}; ///< of the file
    std::vector<std::string> effects = {};         ///< for whom what changes
    bool is_running = false;                       ///< there are processes that share a configuration
    bool agrees = true;                            ///< what they share is what the file says
    Keeping keeping = {};                          ///< of an override
};

/// Called under the turn with the file as it is then, perhaps more than once; throws Failure to change nothing.
using Editing = std::function<void(Editor& editor, const History& history)>;

/// Changes the file and gives the change, and nothing else that the file says differently, to the processes.
///
/// Takes its turn; notes the change in the history before it touches the file; puts the new file in place in one step;
/// publishes; leaves a line in the general log. A file that somebody else changed in between is read again. Throws
/// Failure with everything as it was.
Outcome change(Tool& tool, const Editing& editing, const ChangeOptions& options);

/// Gives a package a level for everybody, or with filters for some. A package that the file does not name gets a line.
void edit_level(Editor& editor, int package, int level, const kor::core::RuleFilters& filters);

/// Publishes a whole file. Nothing else is changed. effects: as change() has them.
Outcome publish_file(Tool& tool, Kor_LogConf& conf, const std::string& command, const std::string& name);

/// Makes a whole new file of the one that there is (nothing: there is none); nothing: it stays as it is.
using Making =
    std::function<std::optional<std::string>(const std::optional<std::string>& bytes, const History& history)>;

/// Puts a whole file in place and gives all of it to the processes, as change() does with a part: under its turn, noted in
/// the history, in one step, with a line in the general log. What is so already is not done again.
Outcome replace_file(Tool& tool, const Making& making, const std::string& command);

/// The level file's bytes; throws Failure when there is none.
std::string require_level_file(const Folder& folder);

/// Throws Failure for a file whose lines are not what they look like: nothing in it is changed.
void require_readable(const kor::core::LevelFile& file);

/// Prints what became of a change: its effects, who obeys, how to take it back; for programs with --json.
void report(Tool& tool, const Outcome& outcome, const ChangeOptions& options);
void change_and_report(Tool& tool, const Editing& editing, const ChangeOptions& options);
} // namespace levelsync

#endif // LEVELSYNC_CHANGE_H
