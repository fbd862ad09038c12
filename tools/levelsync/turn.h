// turn.h - who may change the level file now, and whose overrides still have somebody who looks after them.

#ifndef LEVELSYNC_TURN_H
#define LEVELSYNC_TURN_H

#include <string>

#include "owned.h"
#include "tool.h"

namespace levelsync
{
// Both are locked bytes of the file logger.lock beside the level file. The system lets go of them when their holder
// ends, however it ends, and they count between sessions, accounts and, on a share, machines.

/// The right to change the file, for as long as this object lives. One LevelSync has it at a time.
class Turn
{
public:
    /// Waits for it. Throws Failure after half a minute, with who has it, or when the right to lock is missing.
    explicit Turn(const Tool& tool);

private:
    OwnedHandle m_file;
};

/// What the keeper of an override (a change with an end) holds while it lives. Several may hold the same.
class Keeping
{
public:
    Keeping() = default;
    Keeping(const Folder& folder, long long change);

    /// True when nobody holds it: whoever was to take the change back has ended.
    static bool is_over(const Folder& folder, long long change);

private:
    OwnedHandle m_file;
};
/// The duty to keep the file as a site wants it, for as long as this object lives: one agent of a folder has it.
class AgentDuty
{
public:
    /// Throws Failure where another one has it.
    explicit AgentDuty(const Tool& tool);

private:
    OwnedHandle m_file;
};
} // namespace levelsync

#endif // LEVELSYNC_TURN_H
