#include "site/view.h"

#include "site/refusal.h"
#include "text.h"

namespace levelsync
{
SiteView view_site(SiteStore& store, const std::vector<std::string>& groups)
{
    const SiteRead read = store.read(std::nullopt);
    SiteView view;
    view.mark = read.mark;
    view.wish = wish_of(read, groups);
    kor::core::MergedSite merged = kor::core::merge_site(view.wish, now());
    if (!merged.problem.empty())
        throw Refusal(shown(merged.problem));
    view.bytes = std::move(merged.bytes);
    view.conf = conf_of(view.bytes);
    return view;
}

void add_groups_option(Options& options, std::vector<std::string>& groups)
{
    options.add_option("--group", groups, "With --site: as the machines of that group have it")
        ->type_name("NAME")
        ->take_all();
}
} // namespace levelsync
