// call.h - commands of LevelSync as the page calls them.

#ifndef LEVELSYNC_PAGE_CALL_H
#define LEVELSYNC_PAGE_CALL_H

#include <string>
#include <vector>

#include "tool.h"

namespace levelsync
{
/// What a command reports with --json, of the site where the tool names one. words: as they could be typed behind its name. Throws what the command throws.
Json call(const Tool& tool, const std::string& name, const std::vector<std::string>& words = {});
} // namespace levelsync

#endif // LEVELSYNC_PAGE_CALL_H
