// site.h - what a site of many machines wants, and the level file that it comes to on one of them.

#ifndef KOR_CORE_SITE_H
#define KOR_CORE_SITE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/level_file.h"

namespace kor::core
{
// What a store may hold. Anybody who can write to it may have written anything: what is beyond these is refused.
constexpr std::size_t MOST_SITE_BASE_BYTES = 1 << 20; ///< 750 packages with ten rules each have a fifth of it
constexpr std::size_t MOST_SITE_GROUP_BYTES = 1 << 18;
constexpr std::size_t MOST_SITE_OVERRIDE_BYTES = 1 << 13; ///< of the document that says it
constexpr std::size_t MOST_SITE_GROUPS = 64;              ///< of one machine
constexpr std::size_t MOST_SITE_OVERRIDES = 1'000;
constexpr std::size_t MOST_SITE_NAME_CHARACTERS = 64;
constexpr std::size_t MOST_SITE_AUTHOR_BYTES = 256;
constexpr std::size_t MOST_SITE_REASON_BYTES = 1'000;
constexpr std::int64_t LONGEST_SITE_OVERRIDE_MS = 30LL * 24 * 60 * 60 * 1000;

/// A section for the machines of a group: package lines of a level file, and comments.
struct SiteSection
{
    std::string name;
    std::string text;
};

/// A level with an end.
struct SiteOverride
{
    std::string id;
    int package = 0;
    std::string name; ///< of the package, for a line where the file has none
    int level = 0;
    RuleFilters filters; ///< empty: for everybody
    std::string author;
    std::string machine; ///< where the author sat
    std::string reason;
    std::int64_t made = 0; ///< milliseconds since 1970 UTC, as is until
    std::int64_t until = 0;
};

/// What the site wants of one machine.
struct SiteWish
{
    std::optional<std::string> base; ///< a level file
    std::vector<SiteSection> groups; ///< of those that the machine belongs to: a later one counts for more
    std::vector<SiteOverride> overrides;
};

/// The level file that a wish comes to, or why there is none.
struct MergedSite
{
    std::string problem; ///< a whole sentence; empty: bytes are the file
    std::string bytes;
    std::vector<std::string> live;        ///< ids of the overrides that count
    std::optional<std::int64_t> next_end; ///< of the first of them
};

/// Names of groups, of machines and of overrides: letters of ASCII, digits, and "-", "_" and "." behind the first.
bool is_site_name(std::string_view name) noexcept;

/// The name that a machine goes by: what can be no part of one is "-".
std::string site_name_of(std::string_view machine);

/// True for characters of Unicode in their shortest form, without surrogates.
bool is_valid_utf8(std::string_view bytes) noexcept;

// Each a whole sentence that says what is wrong, or nothing. Host names count as known.
std::string problem_of_site_base(std::string_view text);
std::string problem_of_site_section(const SiteSection& section);
std::string problem_of_site_override(const SiteOverride& over);

/// Puts base, groups and the overrides that are not over together; the one that was made later counts for more. All or
/// nothing: a wish with anything wrong in it has a problem and no file. Every line that no group and no override is about
/// keeps its bytes.
MergedSite merge_site(const SiteWish& wish, std::int64_t now);
} // namespace kor::core

#endif // KOR_CORE_SITE_H
