// machine.h - the page's view of this machine.

#ifndef LEVELSYNC_PAGE_MACHINE_H
#define LEVELSYNC_PAGE_MACHINE_H

#include <list>
#include <string>
#include <vector>

#include "change.h"
#include "feed.h"
#include "override.h"
#include "source.h"

namespace levelsync
{
class MachineSource final : public PageSource
{
public:
    explicit MachineSource(Tool& tool);

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
    static constexpr ULONGLONG LOOK_FOR_DUE_MS = 10'000;

    /// An override that was made here, and is looked after.
    struct Kept
    {
        Kept(const Folder& folder, long long change, Time end, Keeping held)
            : id(change), until(end), keeping(std::move(held)), watch(folder, change)
        {
        }

        long long id;
        Time until;
        Keeping keeping;
        OverrideWatch watch;
    };

    std::string command_of(const PageRaise& wanted) const;
    bool keeps(long long id) const;
    void take_back_kept(long long id, const std::string& why);

    Tool& m_tool;
    bool m_has_ended = false;
    ULONGLONG m_looked_for_due = 0;
    std::list<Kept> m_kept;
    LineFeeds m_feeds;
};
} // namespace levelsync

#endif // LEVELSYNC_PAGE_MACHINE_H
