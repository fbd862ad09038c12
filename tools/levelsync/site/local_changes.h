// local_changes.h - what somebody has changed on a machine that a site looks after.

#ifndef LEVELSYNC_SITE_LOCAL_CHANGES_H
#define LEVELSYNC_SITE_LOCAL_CHANGES_H

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "history.h"
#include "tool.h"

namespace levelsync
{
/// The machine's history, read again only where it has grown.
class HistoryReader
{
public:
    explicit HistoryReader(const Folder& folder) : m_folder(folder) {}

    /// Throws Failure when it cannot be read.
    const History& read();

private:
    const Folder& m_folder;
    std::unique_ptr<History> m_history;
    std::uint64_t m_size = 0;
};

/// The overrides of this machine, which stay until their end.
class LocalOverrides
{
public:
    /// before: those that a file was made with before, for the packages that they were about.
    LocalOverrides(const History& history, const std::vector<long long>& before);

    const std::vector<long long>& ids() const noexcept { return m_ids; }

    /// The file with them. What does not go together with it stays out.
    std::string put_into(const std::string& bytes) const;

    /// True when two files say the same of everything but what overrides are about, now or before.
    bool is_same_but_for_them(const std::string& one, const std::string& other) const;

    /// "Override 3 of root on this machine until 14:20:00: Replay 6 to 7 for everybody."
    std::vector<std::string> texts() const;

private:
    std::vector<Change> m_changes;
    std::vector<long long> m_ids;
    std::set<int> m_whats; ///< as LineChange::what
};

/// " by root (LevelSync set replay 7)": the last change of the file by LevelSync since then that is no override; empty
/// where there is none.
std::string author_of_change(const History& history, Time since);
} // namespace levelsync

#endif // LEVELSYNC_SITE_LOCAL_CHANGES_H
