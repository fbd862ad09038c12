// view.h - what the machines of a site get.

#ifndef LEVELSYNC_SITE_VIEW_H
#define LEVELSYNC_SITE_VIEW_H

#include <string>
#include <vector>

#include "command.h"
#include "conf.h"
#include "options.h"
#include "site/documents.h"
#include "site/store.h"

namespace levelsync
{
struct SiteView
{
    SiteMark mark;
    kor::core::SiteWish wish; ///< with the groups asked for
    std::string bytes;        ///< of the level file that it comes to
    Conf conf;                ///< what the library reads in that
};

/// Throws Refusal where it comes to nothing.
SiteView view_site(SiteStore& store, const std::vector<std::string>& groups);

/// --group, for what is asked about the machines of groups.
void add_groups_option(Options& options, std::vector<std::string>& groups);

/// Machines and overrides of a site, on one screen.
ExitCode show_site_status(Tool& tool);

/// What in a site's texts would not count as it looks.
ExitCode check_site(Tool& tool);
} // namespace levelsync

#endif // LEVELSYNC_SITE_VIEW_H
