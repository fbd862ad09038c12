// site_source.h - the page's view of a site of many machines.

#ifndef LEVELSYNC_PAGE_SITE_SOURCE_H
#define LEVELSYNC_PAGE_SITE_SOURCE_H

#include <string>
#include <vector>

#include "feed.h"
#include "site/keeper.h"
#include "source.h"

namespace levelsync
{
/// Questions are answered from a copy, by the commands of --site: no answer waits for the store. Changes are made in the
/// store itself, and others may ask meanwhile.
class SiteSource final : public PageSource
{
public:
    /// Throws Failure for what is no address of a site.
    explicit SiteSource(Tool& tool);

    std::string stamp() override;
    Json state(const PageSubject& whom) override;
    Json explain(int package, const PageSubject& whom) override;
    Json processes() override;
    Json lines(const PageLines& wanted) override;
    Json raise(const PageRaise& wanted, PageTurn& turn) override;
    Json undo(long long change, PageTurn& turn) override;
    void tick() override;
    void end(const std::string& why) override;

private:
    static constexpr ULONGLONG LOOK_FOR_PART_MS = 5'000;

    std::string stamp_of(const SiteKeeper::Known& known) const;
    Json site_of(const SiteKeeper::Known& known) const;
    void fill(Json& state, const SiteKeeper::Known& known, const PageSubject& whom);
    Tool tool_for(std::shared_ptr<const SiteCopy> copy) const;
    Json change(const std::string& command, std::vector<std::string> words, const std::string& said, PageTurn& turn);
    void look_for_part();

    Tool& m_tool;
    SiteKeeper m_keeper;
    LineFeeds m_feeds;         // of this machine
    bool m_takes_part = false; // this machine, in the site
    ULONGLONG m_looked_for_part = 0;
    std::vector<Time> m_ends; // of what is raised: then there is something else to say
    bool m_is_changing = false;
    bool m_has_ended = false;
};
} // namespace levelsync

#endif // LEVELSYNC_PAGE_SITE_SOURCE_H
