// documents.h - what stands in a site's store: overrides, changes, and what machines say of themselves.

#ifndef LEVELSYNC_SITE_DOCUMENTS_H
#define LEVELSYNC_SITE_DOCUMENTS_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/level_file.h"
#include "core/site.h"
#include "site/store.h"
#include "times.h"
#include "tool.h"

namespace levelsync
{
std::string document_of(const kor::core::SiteOverride& over);
Json json_of(const kor::core::SiteOverride& over);

/// Throws Refusal for what is none.
kor::core::SiteOverride read_override(const std::string& id, const std::string& bytes);

/// What a store's values ask for. groups: those of the machine; nothing stands for none. Throws Refusal.
kor::core::SiteWish wish_of(const SiteRead& read, const std::vector<std::string>& groups);

/// The groups that have a section.
std::vector<std::string> groups_of(const SiteRead& read);

/// One change of a site.
struct SiteChange
{
    using Override = kor::core::SiteOverride;

    long long id = 0;
    Time time = 0;
    std::string user;
    std::string machine; ///< where the user sat
    std::string command;
    std::string reason;
    std::vector<kor::core::LineChange> lines; ///< of the base file
    std::vector<Override> begun;
    std::vector<Override> ended;
    std::vector<std::string> effects;
    std::optional<Time> until;
    std::optional<long long> takes_back;
};

Json json_of(const SiteChange& change);
std::string history_key(long long id);

/// Nothing for what is none: somebody else's file beside the others.
std::optional<SiteChange> read_site_change(const std::string& bytes);

/// What an agent says of its machine.
struct MachineReport
{
    std::string machine;
    std::vector<std::string> groups;
    std::string version;
    std::string folder;
    std::string state;           ///< of the site that the machine has, as SiteMark::state; empty: none yet
    std::optional<Time> applied; ///< since when
    Time said = 0;
    std::vector<std::string> wrong; ///< whole sentences
    std::vector<std::string> local; ///< what is different here, whole sentences
    bool is_stopped = false;        ///< in good order
};

Json json_of(const MachineReport& report);
MachineReport read_report(const SiteMachine& machine);
} // namespace levelsync

#endif // LEVELSYNC_SITE_DOCUMENTS_H
