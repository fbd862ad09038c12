// override.h - changes with an end, which are taken back whatever happens.

#ifndef LEVELSYNC_OVERRIDE_H
#define LEVELSYNC_OVERRIDE_H

#include <cstdint>
#include <string>

#include "change.h"
#include "tool.h"

namespace levelsync
{
// An override stands in the history with its end before it stands in the level file. Whoever made it keeps it: holds
// the lock of its number (Keeping) and takes it back at the end. One that nobody keeps any more, or whose end has
// passed, is taken back by the next LevelSync.

/// Takes back the overrides that are due, and says so on standard error. A missing right is said and changes nothing.
void take_back_due(Tool& tool);

/// Takes one change back, unless somebody did already.
Outcome take_back(Tool& tool, long long id, const ChangeOptions& options);

/// Takes an override back at its end; lines that somebody else changed since stay. Returns what there is to say, nothing
/// when somebody did it already, or when it has to be due and is not: who made it was still at it when it was looked at.
std::string end_override(Tool& tool, long long id, const std::string& why, bool has_to_be_due = false);

/// Tells when somebody else has taken an override back.
class OverrideWatch
{
public:
    OverrideWatch(const Folder& folder, long long id);

    /// Cheap as long as nothing happens. False also while the history cannot be read.
    bool is_taken_back();

private:
    bool has_grown();

    const Folder& m_folder;
    long long m_id;
    std::wstring m_path; // of the history; reading all of it each second would be much
    std::uint64_t m_size = 0;
};

/// Keeps an override on this screen until its end, or until the program is to stop; then takes it back.
void keep_here(Tool& tool, Outcome outcome, Time until);

/// Hands the keeping to a process in the background.
void keep_in_background(Tool& tool, Outcome outcome, Time until);

/// What that process does. ready: the name of the event that it sets once it keeps the override.
void keep_silently(Tool& tool, long long id, const std::string& ready);

/// "until 02:15:00, in 14 min 59 s".
std::string until_text(Time until);
} // namespace levelsync

#endif // LEVELSYNC_OVERRIDE_H
