// agent_state.h - what an agent knows of its site, kept on disk for when the store is away or the machine starts anew.

#ifndef LEVELSYNC_SITE_AGENT_STATE_H
#define LEVELSYNC_SITE_AGENT_STATE_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "site/documents.h"
#include "site/store.h"
#include "tool.h"

namespace levelsync
{
struct AgentState
{
    std::string site;                                            ///< address
    SiteMark mark;                                               ///< of wish
    std::vector<std::pair<std::string, std::int64_t>> positions; ///< the latest seen of each store, the last store last
    std::optional<kor::core::SiteWish> wish;                     ///< the last good one
    std::uint64_t applied = 0; ///< fingerprint of the level file that the site wanted last
    std::optional<Time> applied_at;
    std::string left;                  ///< the file as the agent left it
    std::vector<long long> kept;       ///< overrides of this machine in that
    std::optional<Time> changed_since; ///< when somebody's change of the file was first seen

    /// The latest position seen of that store; 0: none.
    std::int64_t position_of(const std::string& store) const;
    void note_position(const SiteMark& mark);
};

/// The file logger.site beside the level file. What cannot be read, or is of another site, is as if it were not there.
AgentState load_agent_state(const Folder& folder, const std::string& site);

/// True where an agent has put what that site wants into the folder.
bool takes_part(const Folder& folder, const std::string& site);

/// In one step. Throws Failure when that cannot be done.
void save_agent_state(const Folder& folder, const AgentState& state);
} // namespace levelsync

#endif // LEVELSYNC_SITE_AGENT_STATE_H
