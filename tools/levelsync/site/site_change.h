// site_change.h - changes of a site, whole or not at all. What commands and pages call.

#ifndef LEVELSYNC_SITE_SITE_CHANGE_H
#define LEVELSYNC_SITE_SITE_CHANGE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "change.h"
#include "site/documents.h"
#include "site/store.h"

namespace levelsync
{
/// The changes that the store has noted, the oldest first.
class SiteHistory
{
public:
    explicit SiteHistory(SiteStore& store, std::size_t most = MOST_CHANGES_KEPT);

    const std::vector<SiteChange>& changes() const noexcept { return m_changes; }

    /// Throws Failure where there is none.
    const SiteChange& find(long long id) const;

    /// Who took it back, and was not taken back; null where nobody has.
    const SiteChange* taken_back_by(const SiteChange& change) const;
    bool is_in_force(const SiteChange& change) const { return taken_back_by(change) == nullptr; }

private:
    std::vector<SiteChange> m_changes;
};

/// A site while a command changes it.
class SiteEditor
{
public:
    SiteEditor(const Folder& folder, kor::core::SiteWish wish, long long id);

    /// The base file; what is applied to it is part of the change.
    Editor& base() noexcept { return m_base; }
    const Editor& base() const noexcept { return m_base; }

    /// Those that there are now, without what ended in this change.
    const std::vector<kor::core::SiteOverride>& overrides() const noexcept { return m_wish.overrides; }

    /// Gives the override its id, where it has none.
    void begin(kor::core::SiteOverride over);
    void end(const std::string& id);

    /// In place of the base file, or of the section of a group.
    void replace_base(std::string text);
    void replace_section(const std::string& group, std::string text);

    const std::vector<kor::core::SiteOverride>& begun() const noexcept { return m_begun; }
    const std::vector<kor::core::SiteOverride>& ended() const noexcept { return m_ended; }
    const std::vector<kor::core::SiteSection>& sections() const noexcept { return m_sections; }

    /// What the site wants after the change.
    kor::core::SiteWish wish() const;
    bool is_changed() const noexcept;

private:
    kor::core::SiteWish m_wish;
    Editor m_base;
    std::optional<std::string> m_new_base;
    std::vector<kor::core::SiteOverride> m_begun;
    std::vector<kor::core::SiteOverride> m_ended;
    std::vector<kor::core::SiteSection> m_sections;
    long long m_id;
};

struct SiteChangeOptions
{
    bool is_dry_run = false;
    std::string reason;
    std::optional<Time> until;
    std::optional<long long> takes_back;
};

struct SiteOutcome
{
    long long id = 0; ///< 0: nothing had to be done, or was to be
    SiteChange change;
};

/// Called with the site as it is then, perhaps more than once; throws Failure to change nothing.
using SiteEditing = std::function<void(SiteEditor& editor)>;

/// Reads the site, edits it, makes sure that every machine can take what comes of it, and writes it in one step. Where
/// somebody else was faster it is read again. Throws Failure with everything as it was.
SiteOutcome
change_site(const Tool& tool, SiteStore& store, const SiteEditing& editing, const SiteChangeOptions& options);

/// Takes a change back; 0: the last one that stands and took nothing back itself.
SiteOutcome take_back_on_site(const Tool& tool, SiteStore& store, long long id, SiteChangeOptions options);

/// What became of a change: its effects, how to take it back; for programs with --json.
void report(const Tool& tool, const SiteOutcome& outcome, const SiteChangeOptions& options);

/// The store that --site names.
std::unique_ptr<SiteStore> open_site(const Tool& tool);

/// The options of commands that change a site: --reason.
void add_reason_option(Options& options, std::string& reason);
} // namespace levelsync

#endif // LEVELSYNC_SITE_SITE_CHANGE_H
