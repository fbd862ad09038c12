// file_store.h - a site in a folder that machines share.

#ifndef LEVELSYNC_SITE_FILE_STORE_H
#define LEVELSYNC_SITE_FILE_STORE_H

#include "owned.h"
#include "site/store.h"

namespace levelsync
{
/// The files base, groups\NAME, overrides\ID.json, history\NUMBER.json and machines\NAME.json. Anything may put them there;
/// LevelSyncs take turns by a locked byte of site.lock.
class FileStore final : public SiteStore
{
public:
    explicit FileStore(const std::string& folder);

    SiteMark mark() override;
    SiteRead read(const std::optional<std::vector<std::string>>& groups) override;
    bool write(const std::vector<SiteWrite>& writes) override;
    std::vector<SiteValue> history(std::size_t most) override;
    std::optional<SiteValue> value(const std::string& key) override;
    void report(const std::string& machine, const std::string& bytes) override;
    void leave(const std::string& machine, const std::string& bytes) override;
    std::vector<SiteMachine> machines() override;

private:
    struct Listed;

    std::wstring path_of(const std::string& key) const;
    std::vector<Listed> list(const std::string& folder, std::size_t most) const;
    std::vector<Listed> list_state() const;
    SiteRead load(const std::vector<Listed>& files) const;
    OwnedHandle take_turn() const;

    std::wstring m_folder;
    std::string m_listing; // of what m_mark is of
    SiteMark m_mark;
    std::uint64_t m_loaded_at = 0;
    std::string m_said;
    std::uint64_t m_said_at = 0;
};
} // namespace levelsync

#endif // LEVELSYNC_SITE_FILE_STORE_H
