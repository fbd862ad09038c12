#include "core/site.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "core/level_check.h"

namespace kor::core
{
namespace
{
constexpr std::string_view FRONT = "2\nfile_size_limit_in_mb=0\n"; // what package lines need in front of them
constexpr std::size_t FRONT_LINES = 2;
constexpr int DEFAULT_LEVEL = 4; // of packages without a line
constexpr int HIGHEST_LEVEL = 7;
constexpr std::size_t MOST_PACKAGE_NAME_CHARACTERS = 39;

bool is_ascii_word(char c) noexcept
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

/// UTF-8 without anything that drives a screen.
bool can_be_shown(std::string_view text) noexcept
{
    const bool has_control = std::any_of(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; });
    return !has_control && is_valid_utf8(text);
}

std::string size_problem(std::size_t size, std::size_t most)
{
    return "has " + std::to_string(size) + " bytes; " + std::to_string(most) + " are the most.";
}

/// The first thing in a level file that does not count as it looks; lines are counted from the one behind skipped.
std::string first_finding(const LevelFile& file, std::size_t skipped = 0)
{
    for (const Finding& finding : check_level_file(file))
        if (finding.oddity == Oddity::WRONG)
            return "line " + std::to_string(finding.line - std::min(finding.line, skipped) + 1) + ": " + finding.what;
    return {};
}

std::string problem_of_text(std::string_view text, std::size_t most)
{
    if (text.size() > most)
        return size_problem(text.size(), most);
    if (!is_valid_utf8(text))
        return "is no UTF-8.";
    return {};
}

std::string name_for(const SiteOverride& over)
{
    return over.name.empty() ? "Package" + std::to_string(over.package) : over.name;
}

/// What stands in an override and is no rule.
std::string problem_of_fields(const SiteOverride& over)
{
    if (!is_site_name(over.id))
        return "has no id that can be one.";
    if (over.package < 0)
        return "names no package.";
    if (over.level < 0 || over.level > HIGHEST_LEVEL)
        return "has the level " + std::to_string(over.level) + "; levels are 0 to 7.";
    const std::string name = name_for(over);
    if (name.size() > MOST_PACKAGE_NAME_CHARACTERS || !can_be_shown(name) || name.find(' ') != std::string::npos)
        return "has a name of a package that can be none.";
    for (const std::string* const text : {&over.author, &over.machine})
        if (text->size() > MOST_SITE_AUTHOR_BYTES || !can_be_shown(*text))
            return "has an author that can be none.";
    if (over.reason.size() > MOST_SITE_REASON_BYTES || !can_be_shown(over.reason))
        return "has a reason that is too long, or cannot be shown.";
    for (const auto& list : over.filters.lists)
        if (!std::all_of(list.begin(), list.end(), &can_be_shown))
            return "is for somebody whose name cannot be shown.";
    if (over.until <= over.made || over.until - over.made > LONGEST_SITE_OVERRIDE_MS)
        return "ends before it begins, or lasts for more than 30 days.";
    return {};
}

// Merging -------------------------------------------------------------------------------------------------

std::string text_of(EditProblem problem)
{
    switch (problem)
    {
    case EditProblem::LINE_TOO_LONG:
        return "the line would have more than 199 characters";
    case EditProblem::TOO_MANY_RULES:
        return "that would be an 11th rule";
    case EditProblem::TOO_MANY_ENTRIES:
        return "a rule holds ten entries of each kind";
    case EditProblem::NOT_WRITABLE:
        return "that cannot be written in a rule";
    default:
        return "the file does not read as it is meant";
    }
}

/// One package while sections and overrides are put into it: a file of its own, which is read in no time.
class PackageLine
{
public:
    /// neighbour: a line of the base whose columns a new one takes.
    PackageLine(int package, std::optional<std::string_view> line, std::string_view neighbour)
        : m_package(package), m_file(std::string(FRONT).append(line.value_or(neighbour)).append("\n"))
    {
    }

    std::string give(int level, const RuleFilters& filters, const NewPackage& made)
    {
        return take(
            filters.empty() ? set_level(m_file, m_package, level, made)
                            : set_rule(m_file, m_package, level, filters, made));
    }

    /// The line, as the base is to have it.
    std::string text() const
    {
        const auto found = m_file.packages().find(m_package);
        return found == m_file.packages().end() ? std::string() : std::string(m_file.lines()[found->second.line].text);
    }

    /// True when another file says the same of the package.
    bool is_in(const LevelFile& other) const
    {
        const auto mine = m_file.packages().find(m_package);
        const auto its = other.packages().find(m_package);
        return mine != m_file.packages().end() && its != other.packages().end() &&
               mine->second.level == its->second.level && mine->second.rules == its->second.rules;
    }

private:
    std::string take(const LevelEdit& edit)
    {
        if (edit)
            m_file = LevelFile(edit.bytes);
        return edit || edit.problem == EditProblem::NO_CHANGE ? std::string() : text_of(edit.problem);
    }

    int m_package;
    LevelFile m_file;
};

class Merger
{
public:
    explicit Merger(const std::string& base) : m_base(base)
    {
        for (const auto& [number, package] : m_base.packages())
            m_last_line = std::max(m_last_line.value_or(0), package.line);
    }

    std::string add(const SiteSection& section)
    {
        const LevelFile file(std::string(FRONT) + section.text);
        for (const auto& [number, package] : file.packages())
        {
            const NewPackage made{std::string(package.name), package.level};
            std::string problem = line_of(number).give(package.level, {}, made);
            for (const std::string_view rule : package.rules)
                if (problem.empty())
                    problem = line_of(number).give(split_rule(rule).level, filters_of(rule), made);
            if (!problem.empty())
                return "The section of group " + section.name +
                       " cannot be put into the base file: " + std::string(package.name) + ", " + problem + ".";
        }
        return {};
    }

    std::string add(const SiteOverride& over)
    {
        const std::string problem =
            line_of(over.package).give(over.level, over.filters, {name_for(over), DEFAULT_LEVEL});
        if (problem.empty())
            return {};
        return "Override " + over.id + " cannot be put into the base file: " + name_for(over) + ", " + problem + ".";
    }

    /// Nothing when the whole does not read as its parts do.
    std::optional<std::string> bytes() const
    {
        std::string merged = with_new_lines(with_changed_lines());
        const LevelFile file(merged);
        const bool is_right = std::all_of(
            m_changed.begin(), m_changed.end(), [&file](const auto& changed) { return changed.second.is_in(file); });
        const bool is_whole = file.output() == m_base.output() && file.size_limit() == m_base.size_limit();
        return is_right && is_whole ? std::optional<std::string>(std::move(merged)) : std::nullopt;
    }

private:
    PackageLine& line_of(int package)
    {
        const auto known = m_changed.find(package);
        if (known != m_changed.end())
            return known->second;
        const auto found = m_base.packages().find(package);
        std::optional<std::string_view> line;
        if (found != m_base.packages().end())
            line = m_base.lines()[found->second.line].text;
        const std::string_view neighbour = m_last_line ? m_base.lines()[*m_last_line].text : std::string_view("#");
        return m_changed.emplace(package, PackageLine(package, line, neighbour)).first->second;
    }

    std::string_view line_end() const
    {
        return m_base.lines().front().end.empty() ? std::string_view("\n") : m_base.lines().front().end;
    }

    std::vector<std::string> with_changed_lines() const
    {
        std::vector<std::string> lines;
        for (const LevelLine& line : m_base.lines())
            lines.push_back(std::string(line.text).append(line.end));
        for (const auto& [number, changed] : m_changed)
        {
            const auto found = m_base.packages().find(number);
            if (found == m_base.packages().end())
                continue;
            const std::size_t index = found->second.line;
            lines[index] = changed.text().append(m_base.lines()[index].end);
        }
        return lines;
    }

    /// Behind the last package, or behind the first lines where there is none.
    std::string with_new_lines(std::vector<std::string> lines) const
    {
        std::string added;
        for (const auto& [number, changed] : m_changed)
            if (m_base.packages().count(number) == 0)
                added.append(changed.text()).append(line_end());
        const std::size_t behind = m_last_line.value_or(*m_base.size_limit_line());
        if (!added.empty() && m_base.lines()[behind].end.empty())
            lines[behind].append(line_end());
        lines[behind].append(added);
        std::string bytes;
        for (const std::string& line : lines)
            bytes += line;
        return bytes;
    }

    LevelFile m_base;
    std::optional<std::size_t> m_last_line; // of a package
    std::map<int, PackageLine> m_changed;
};

std::string first_problem(const SiteWish& wish)
{
    if (!wish.base)
        return "The site has no base file.";
    std::string problem = problem_of_site_base(*wish.base);
    if (wish.groups.size() > MOST_SITE_GROUPS)
        problem = "There are " + std::to_string(wish.groups.size()) + " groups; a machine belongs to " +
                  std::to_string(MOST_SITE_GROUPS) + " at most.";
    if (wish.overrides.size() > MOST_SITE_OVERRIDES)
        problem = "There are " + std::to_string(wish.overrides.size()) + " overrides; " +
                  std::to_string(MOST_SITE_OVERRIDES) + " are the most.";
    for (auto group = wish.groups.begin(); problem.empty() && group != wish.groups.end(); ++group)
        problem = problem_of_site_section(*group);
    for (auto over = wish.overrides.begin(); problem.empty() && over != wish.overrides.end(); ++over)
        problem = problem_of_site_override(*over);
    return problem;
}

std::vector<const SiteOverride*> live_overrides(const SiteWish& wish, std::int64_t now)
{
    std::vector<const SiteOverride*> live;
    for (const SiteOverride& over : wish.overrides)
        if (over.until > now)
            live.push_back(&over);
    std::sort(
        live.begin(), live.end(),
        [](const SiteOverride* a, const SiteOverride* b)
        { return std::tie(a->made, a->id) < std::tie(b->made, b->id); });
    return live;
}
} // namespace

bool is_site_name(std::string_view name) noexcept
{
    return !name.empty() && name.size() <= MOST_SITE_NAME_CHARACTERS && is_ascii_word(name.front()) &&
           std::all_of(
               name.begin(), name.end(), [](char c) { return is_ascii_word(c) || c == '-' || c == '_' || c == '.'; });
}

std::string site_name_of(std::string_view machine)
{
    std::string name(machine.substr(0, MOST_SITE_NAME_CHARACTERS));
    for (char& c : name)
        if (!is_ascii_word(c) && c != '-' && c != '_' && c != '.')
            c = '-';
    if (name.empty() || !is_ascii_word(name.front()))
        name.insert(0, "m");
    name.resize(std::min(name.size(), MOST_SITE_NAME_CHARACTERS));
    return name;
}

bool is_valid_utf8(std::string_view bytes) noexcept
{
    for (std::size_t i = 0; i < bytes.size();)
    {
        const auto first = static_cast<unsigned char>(bytes[i++]);
        if (first < 0x80)
            continue;
        const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
        if (first < 0xC2 || first > 0xF4)
            return false;
        std::uint32_t value = first & (0x3Fu >> more);
        for (int rest = 0; rest < more; ++rest, ++i)
        {
            if (i >= bytes.size() || (static_cast<unsigned char>(bytes[i]) & 0xC0) != 0x80)
                return false;
            value = (value << 6) | (static_cast<unsigned char>(bytes[i]) & 0x3Fu);
        }
        constexpr std::uint32_t SMALLEST[] = {0, 0x80, 0x800, 0x10000};
        if (value < SMALLEST[more] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
            return false;
    }
    return true;
}

std::string problem_of_site_base(std::string_view text)
{
    std::string problem = problem_of_text(text, MOST_SITE_BASE_BYTES);
    if (!problem.empty())
        return "The base file " + problem;
    const LevelFile file{std::string(text)};
    problem = first_finding(file);
    if (!problem.empty())
        return "The base file has a line that is read differently than it looks, " + problem;
    if (!file.size_limit_line())
        return "The base file lacks its first lines, output and size limit.";
    return {};
}

std::string problem_of_site_section(const SiteSection& section)
{
    if (!is_site_name(section.name))
        return "A group has a name that can be none.";
    const std::string whose = "The section of group " + section.name + ' ';
    std::string problem = problem_of_text(section.text, MOST_SITE_GROUP_BYTES);
    if (!problem.empty())
        return whose + problem;
    problem = first_finding(LevelFile(std::string(FRONT) + section.text), FRONT_LINES);
    if (!problem.empty())
        return whose + "has a line that is read differently than it looks, " + problem;
    return {};
}

std::string problem_of_site_override(const SiteOverride& over)
{
    const std::string whose = "Override " + (is_site_name(over.id) ? over.id + ' ' : std::string());
    std::string problem = problem_of_fields(over);
    if (!problem.empty())
        return whose + problem;
    PackageLine line(over.package, std::nullopt, "#");
    problem = line.give(over.level, over.filters, {name_for(over), DEFAULT_LEVEL});
    if (!problem.empty())
        return whose + "cannot be a rule: " + problem + '.';
    problem = first_finding(LevelFile(std::string(FRONT) + line.text()), FRONT_LINES);
    if (!problem.empty())
        return whose + "is read differently than it looks, " + problem.substr(problem.find(": ") + 2);
    return {};
}

MergedSite merge_site(const SiteWish& wish, std::int64_t now)
{
    MergedSite merged;
    merged.problem = first_problem(wish);
    if (!merged.problem.empty())
        return merged;
    Merger merger(*wish.base);
    for (const SiteSection& section : wish.groups)
    {
        merged.problem = merger.add(section);
        if (!merged.problem.empty())
            return merged;
    }
    for (const SiteOverride* const over : live_overrides(wish, now))
    {
        merged.problem = merger.add(*over);
        if (!merged.problem.empty())
            return merged;
        merged.live.push_back(over->id);
        merged.next_end = std::min(merged.next_end.value_or(over->until), over->until);
    }
    if (auto bytes = merger.bytes())
        merged.bytes = std::move(*bytes);
    else
        merged.problem = "What the site wants cannot be put together: the lines of the base file depend on each other.";
    return merged;
}
} // namespace kor::core
