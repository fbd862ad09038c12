// level_file.cpp - any bytes as a `logger` file that tools change: an edit changes one line, the reader then sees what
// was asked for and nothing else, and taking it back gives the old bytes.

#include "core/level_file.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "core/level_check.h"
#include "require.h"

using namespace kor::core;

namespace
{
/// The first bytes of an input say what to do, the others are the file.
class Choices
{
public:
    Choices(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    std::size_t take(std::size_t below)
    {
        if (m_size == 0)
            return 0;
        --m_size;
        return *m_data++ % below;
    }

    std::string rest() const { return {reinterpret_cast<const char*>(m_data), m_size}; }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
};

/// Numbers that files of a few lines are likely to have, and the ends of what there is.
constexpr int PACKAGES[] = {0, 1, 3, 4, 17, 310, 320, 330, 749};

const char* const ENTRIES[4][3] = {
    {"192.0.2.7", "10.0.0.0", "2001:db8::/32"},
    {"viewer", "archive", "a,b"},
    {"1", "4312", "x"},
    {"3", "8", "4294967295"}};

RuleFilters filters_from(Choices& choices)
{
    RuleFilters filters;
    for (std::size_t list = 0; list < 4; ++list)
        for (std::size_t count = choices.take(3); count > 0; --count)
            filters.lists[list].emplace_back(ENTRIES[list][choices.take(3)]);
    return filters;
}

struct Asked
{
    std::size_t kind;
    int package;
    int level;
    RuleFilters filters;
};

LevelEdit edited(const LevelFile& file, const Asked& asked)
{
    const NewPackage made{"Made", 4};
    switch (asked.kind)
    {
    case 0:
        return set_level(file, asked.package, asked.level, made);
    case 1:
        return set_rule(file, asked.package, asked.level, asked.filters, made);
    case 2:
        return clear_rule(file, asked.package, asked.filters);
    case 3:
        return clear_rules(file, asked.package);
    case 4:
        return set_output(file, asked.level % 4);
    default:
        return set_size_limit(file, static_cast<std::uint32_t>(asked.level) * 1'000);
    }
}

/// The levels of all packages that the file names, and what they are for.
std::map<int, std::pair<int, std::vector<std::string>>> packages_of(const LevelFile& file)
{
    std::map<int, std::pair<int, std::vector<std::string>>> packages;
    for (const auto& [number, package] : file.packages())
    {
        auto& [level, rules] = packages[number];
        level = package.level;
        for (const std::string_view rule : package.rules)
            rules.emplace_back(rule);
    }
    return packages;
}

/// Every line but one is the same, byte for byte; one may have come or gone. A file that ended without a line end gets
/// one when a line is added.
void require_one_line(const LevelFile& before, const LevelFile& after)
{
    const auto& old_lines = before.lines();
    const auto& new_lines = after.lines();
    const auto same = [](const LevelLine& a, const LevelLine& b) { return a.text == b.text && a.end == b.end; };
    std::size_t front = 0;
    while (front < old_lines.size() && front < new_lines.size() && same(old_lines[front], new_lines[front]))
        ++front;
    std::size_t old_rest = old_lines.size() - front;
    std::size_t new_rest = new_lines.size() - front;
    while (old_rest > 0 && new_rest > 0 && same(old_lines[front + old_rest - 1], new_lines[front + new_rest - 1]))
    {
        --old_rest;
        --new_rest;
    }
    const bool is_appended = !old_lines.empty() && old_lines.back().end.empty() &&
                             new_lines.size() == old_lines.size() + 1 &&
                             after.bytes().compare(0, before.bytes().size(), before.bytes()) == 0;
    require((old_rest <= 1 && new_rest <= 1) || is_appended);
}

void require_what_was_asked(const LevelFile& before, const LevelFile& after, const Asked& asked)
{
    auto old_packages = packages_of(before);
    auto new_packages = packages_of(after);
    const bool is_about_package = asked.kind < 4;
    if (asked.kind == 0)
        require(new_packages.at(asked.package).first == asked.level);
    if (asked.kind == 1)
    {
        const auto& rules = new_packages.at(asked.package).second;
        require(std::any_of(
            rules.begin(), rules.end(),
            [&asked](const std::string& rule)
            { return filters_of(rule) == asked.filters && split_rule(rule).level == asked.level; }));
    }
    if (asked.kind == 3)
        require(new_packages.at(asked.package).second.empty());
    require(after.output().value_or(-1) == (asked.kind == 4 ? asked.level % 4 : before.output().value_or(-1)));
    require(
        after.size_limit() ==
        (asked.kind == 5 ? static_cast<std::uint32_t>(asked.level) * 1'000 : before.size_limit()));
    if (is_about_package)
    {
        old_packages.erase(asked.package);
        new_packages.erase(asked.package);
    }
    require(old_packages == new_packages);
}

void edit_and_take_back(const LevelFile& file, const Asked& asked)
{
    const LevelEdit edit = edited(file, asked);
    if (!edit)
        return;
    const LevelFile after(edit.bytes);
    require_one_line(file, after);
    require_what_was_asked(file, after, asked);
    const LevelEdit again = edited(after, asked);
    // A rule that is cleared may leave others that have the same entries beside more.
    require(asked.kind == 2 || again.problem == EditProblem::NO_CHANGE);
    const LevelEdit back = take_back(after, edit.change);
    require(static_cast<bool>(back));
    require(back.bytes == file.bytes());
}

void check(const LevelFile& file)
{
    const std::size_t lines = std::max<std::size_t>(file.lines().size(), 1);
    for (const Finding& finding : check_level_file(file))
    {
        require(finding.line < lines);
        require(!finding.what.empty() && !finding.instead.empty());
        if (finding.line < file.lines().size())
            require(finding.column + finding.size <= file.lines()[finding.line].text.size());
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Choices choices(data, size);
    Asked asked{};
    asked.kind = choices.take(6);
    asked.package = PACKAGES[choices.take(std::size(PACKAGES))];
    asked.level = static_cast<int>(choices.take(8));
    asked.filters = filters_from(choices);
    if (asked.kind == 1 && asked.filters.empty())
        asked.kind = 0; // which is how a level for everybody is given
    const LevelFile file(choices.rest());
    check(file);
    edit_and_take_back(file, asked);
    return 0;
}
