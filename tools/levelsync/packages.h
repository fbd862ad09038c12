// packages.h - the packages that a person means.

#ifndef LEVELSYNC_PACKAGES_H
#define LEVELSYNC_PACKAGES_H

#include <map>
#include <string>
#include <vector>

#include "conf.h"
#include "core/level_file.h"
#include "tool.h"

namespace levelsync
{
/// What packages are called: by the file, by what runs where the file has no name for one, and by programs where that has
/// none either. As they can be shown.
class PackageNames
{
public:
    PackageNames(const Folder& folder, const kor::core::LevelFile* file, const Kor_LogConf* running);

    /// Empty for a package without one.
    const std::string& of(int package) const;

    /// The programs that call a package as of() does, where only programs do; empty for others. "viewer.exe and archive.exe"
    std::string programs(int package) const;

    /// "Replay", or "package 320".
    std::string text(int package) const;

    const std::map<int, std::string>& all() const noexcept { return m_names; }

    /// The packages that a word stands for: a number from 0 to 749, a name in letters of either case, or a pattern of
    /// names with * and ?. Throws Failure where there is none, and where a name stands for several.
    std::vector<int> find(const std::string& word) const;

private:
    void add_from_programs(const std::wstring& path);

    std::map<int, std::string> m_names;
    std::map<int, std::vector<std::string>> m_programs;
};
} // namespace levelsync

#endif // LEVELSYNC_PACKAGES_H
