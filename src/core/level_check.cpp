#include "core/level_check.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

#include "core/address.h"
#include "core/numbers.h"
#include "core/rule_text.h"

namespace kor::core
{
namespace
{
constexpr std::string_view SIZE_LIMIT_KEY = "file_size_limit_in_mb=";
constexpr std::size_t SIZE_LIMIT_DIGITS = 19;
constexpr std::size_t MOST_RULES = 10;
constexpr std::size_t MOST_ENTRIES = 10;
constexpr std::size_t MOST_NAME_CHARACTERS = 39;
constexpr std::size_t MOST_APPLICATION_CHARACTERS = 19;
constexpr std::size_t LISTS = 4;
constexpr int IPV6_BITS = 128;

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

std::string line_number(std::size_t index) { return "line " + std::to_string(index + 1); }

std::string_view trimmed(std::string_view text) noexcept
{
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Addresses -----------------------------------------------------------------------------------------------
using Octets = std::array<int, 4>;

/// "192.0.2.7" and nothing else that the system might take for an address.
std::optional<Octets> read_ipv4(std::string_view text)
{
    Octets octets{};
    for (std::size_t i = 0; i < octets.size(); ++i)
    {
        std::int64_t value = 0;
        if (text.empty() || text.front() < '0' || text.front() > '9' || !take_number(text, value) || value > 255)
            return std::nullopt;
        octets[i] = static_cast<int>(value);
        const bool is_last = i + 1 == octets.size();
        if (is_last ? !text.empty() : text.empty() || text.front() != '.')
            return std::nullopt;
        if (!is_last)
            text.remove_prefix(1);
    }
    return octets;
}

/// True for what is written of digits and points, and is no IPv4 address as it looks: resolvers fill up one with fewer
/// numbers (192.0.2 is 192.0.0.2 to them), and read a number with a zero in front to the base of 8.
bool is_misread_ipv4(std::string_view text)
{
    const bool is_numeric =
        !text.empty() &&
        std::all_of(text.begin(), text.end(), [](char c) { return c == '.' || (c >= '0' && c <= '9'); });
    return is_numeric && !is_ipv4_text(text);
}

constexpr char MISREAD[] = " looks like an IPv4 address and is read as another one, if it is read at all.";
constexpr char FOUR_NUMBERS[] =
    "Write four numbers from 0 to 255, as in 192.0.2.7; a network has zeros at its end, as in 192.0.2.0.";

std::string write_ipv4(const Octets& octets)
{
    std::string text;
    for (const int octet : octets)
        text.append(text.empty() ? "" : ".").append(std::to_string(octet));
    return text;
}

/// The length of the network that an IPv4 entry stands for.
int bits_of(const Octets& octets)
{
    if (octets[1] == 0 && octets[2] == 0 && octets[3] == 0)
        return 8;
    if (octets[2] == 0 && octets[3] == 0)
        return 16;
    return octets[3] == 0 ? 24 : 32;
}

/// The address with zeros behind so many bits, a multiple of 8.
Octets network_of(Octets octets, int bits)
{
    for (std::size_t i = static_cast<std::size_t>(bits) / 8; i < octets.size(); ++i)
        octets[i] = 0;
    return octets;
}

std::string range_text(const Octets& octets)
{
    const int bits = bits_of(octets);
    std::string text;
    for (std::size_t i = 0; i < octets.size(); ++i)
        text.append(i == 0 ? "" : ".")
            .append(static_cast<int>(i) * 8 < bits ? std::to_string(octets[i]) : std::string("x"));
    return text;
}

bool is_whole_number(std::string_view text)
{
    std::int64_t value = 0;
    return take_number(text, value) && text.empty();
}

// The checker ---------------------------------------------------------------------------------------------
class Checker
{
public:
    Checker(const LevelFile& file, const HostLookup& lookup) : m_file(file), m_lookup(lookup) {}

    std::vector<Finding> run()
    {
        check_front();
        for (m_index = 0; m_index < m_file.lines().size(); ++m_index)
            check_line();
        check_missing_lines();
        std::stable_sort(
            m_findings.begin(), m_findings.end(),
            [](const Finding& a, const Finding& b)
            { return std::make_pair(a.line, a.column) < std::make_pair(b.line, b.column); });
        return std::move(m_findings);
    }

private:
    const LevelLine& line() const { return m_file.lines()[m_index]; }

    void add(std::string_view part, Oddity oddity, std::string what, std::string instead)
    {
        Finding finding;
        finding.line = m_index;
        const char* const begin = line().text.data();
        finding.column = part.data() == nullptr ? 0 : static_cast<std::size_t>(part.data() - begin);
        finding.size = part.size();
        finding.oddity = oddity;
        finding.what = std::move(what);
        finding.instead = std::move(instead);
        m_findings.push_back(std::move(finding));
    }

    void wrong(std::string_view part, std::string what, std::string instead)
    {
        add(part, Oddity::WRONG, std::move(what), std::move(instead));
    }

    void doubtful(std::string_view part, std::string what, std::string instead)
    {
        add(part, Oddity::DOUBTFUL, std::move(what), std::move(instead));
    }

    void check_front();
    void check_missing_lines();
    void check_line();
    void check_cut();
    void check_characters();
    void check_output();
    void check_size_limit();
    void check_comment_like();
    void check_package();
    bool check_numbers();
    void check_twice();
    void check_rules();
    void check_around_rules(std::string_view rest, const std::vector<std::string_view>& rules);
    bool check_rule(std::string_view rule);
    bool check_level_text(std::string_view rule, int level);
    void check_reach(std::string_view rule, int level);
    void check_entries(std::string_view list, std::size_t which, bool is_only_list);
    void check_address(std::string_view entry, bool is_alone);
    void check_network(std::string_view entry, const AddressText& parts, const Octets& octets);
    void check_application(std::string_view entry);
    void check_id(std::string_view entry, std::size_t which, std::string_view rule);
    int found(std::string_view host);

    const LevelFile& m_file;
    const HostLookup& m_lookup;
    std::map<std::string, int> m_known_hosts;
    /// Levels of rules with nothing to find in them: the same ones stand behind many packages.
    std::unordered_map<std::string_view, int> m_sound_rules;
    std::vector<Finding> m_findings;
    std::size_t m_index = 0;
    const LevelPackage* m_package = nullptr; ///< of the line whose rules are looked at
};

void Checker::check_front()
{
    if (!m_file.has_byte_order_mark())
        return;
    m_index = 0;
    wrong(
        line().text.substr(0, m_file.bytes().front() == '\xEF' ? 3 : 2),
        "The file begins with a byte-order mark, so its first line begins with no number: every process would write to "
        "standard error.",
        m_file.bytes().front() == '\xEF'
            ? "Save it as UTF-8 without a byte-order mark."
            : "It is UTF-16, which cannot be read. Save it as UTF-8 without a byte-order mark.");
}

void Checker::check_missing_lines()
{
    m_index = m_file.lines().empty() ? 0 : m_file.lines().size() - 1;
    Finding finding;
    finding.line = m_index;
    if (!m_file.output_line())
    {
        finding.what = "No line says where messages go: they go to standard error.";
        finding.instead = "Begin the file with the lines 2 and file_size_limit_in_mb=10.";
        m_findings.push_back(finding);
    }
    else if (!m_file.size_limit_line())
    {
        finding.oddity = Oddity::DOUBTFUL;
        finding.what = "Nothing stands behind the output: there is no size limit, and the next line that somebody adds "
                       "is taken for it.";
        finding.instead = "Write file_size_limit_in_mb=0 behind it.";
        m_findings.push_back(finding);
    }
}

void Checker::check_line()
{
    if (m_file.cut_line() == m_index)
        check_cut();
    if (!line().is_read)
        return;
    check_characters();
    switch (line().said.kind)
    {
    case LoggerLine::OUTPUT:
        return check_output();
    case LoggerLine::SIZE_LIMIT:
        return check_size_limit();
    case LoggerLine::PACKAGE:
    case LoggerLine::PACKAGE_OUT_OF_RANGE:
    case LoggerLine::UNREADABLE:
        return check_package();
    case LoggerLine::NOTHING:
        return;
    }
}

void Checker::check_cut()
{
    const std::size_t behind = m_file.lines().size() - m_index - 1;
    const std::string lost = behind == 0 ? "" : ", nor is what follows it";
    const std::size_t ctrl_z = line().text.find('\x1A');
    if (!line().is_read && ctrl_z != 0)
    {
        wrong(
            line().text.substr(MAX_LOGGER_LINE),
            "The line has " + std::to_string(line().text.size()) +
                " characters, and reading ends at one of more than " + std::to_string(MAX_LOGGER_LINE) +
                ": it is not read" + lost + ".",
            "Shorten it to " + std::to_string(MAX_LOGGER_LINE) +
                " characters; the comment is what can go, and a comment can have a line of its own.");
        return;
    }
    wrong(
        line().text.substr(ctrl_z, 1), "A Ctrl-Z ends the file for the reader: what stands behind it is not read.",
        "Take the character out.");
}

void Checker::check_characters()
{
    const std::string_view text = line().text.substr(0, line().text.find('\x1A'));
    if (line().seen.size() < text.size())
        wrong(
            text.substr(line().seen.size(), 1), "The line ends here for the reader, at a character of the value 0.",
            "Take the character out.");
    const std::size_t lone = line().seen.find('\r');
    if (lone != std::string_view::npos && !trimmed(line().seen.substr(lone)).empty() && !is_logger_comment(line().seen))
        wrong(
            line().seen.substr(lone, 1),
            "A carriage return alone is no line end here: what follows belongs to this line.",
            "Save the file with Windows line ends.");
}

void Checker::check_output()
{
    const std::string_view text = trimmed(line().seen);
    if (m_index == 0 && m_file.has_byte_order_mark())
        return; // said already
    const std::string meant =
        "Write 0 for standard error, 1 for the event log, 2 for the files of the processes, or 3 for "
        "those and a debugger.";
    std::string_view rest = text;
    std::int64_t value = 0;
    if (!take_number(rest, value))
        return wrong(
            text,
            (text.empty() ? std::string("This empty line") : quoted(text)) +
                " is taken for the output, and as it begins with no number, for 0: standard error.",
            meant);
    if (value < 0 || value > 3)
        return wrong(text, "The output " + std::to_string(value) + " is taken for 1, the event log.", meant);
    if (!trimmed(rest).empty() && !is_blank(rest.front()))
        doubtful(
            text, "Only the number at the front of " + quoted(text) + " counts: " + std::to_string(value) + ".",
            "Write " + std::to_string(value) + " alone.");
}

void Checker::check_size_limit()
{
    const std::string_view text = line().seen;
    const std::string format = "file_size_limit_in_mb=10";
    if (text.substr(0, SIZE_LIMIT_KEY.size()) != SIZE_LIMIT_KEY)
    {
        const std::string lost = "The line behind the output is taken for the size limit, whatever it is: ";
        if (is_logger_comment(text))
            return wrong(
                text, lost + "this comment says none, so there is no limit.",
                "Write " + format + " (0: no limit) in front of the comment.");
        if (trimmed(text).empty())
            return wrong(
                text, lost + "this empty one says none, so there is no limit.",
                "Write " + format + " (0: no limit) in place of it.");
        const std::string_view begin = trimmed(text);
        const bool is_nearly = begin.size() >= SIZE_LIMIT_KEY.size() &&
                               std::equal(
                                   SIZE_LIMIT_KEY.begin(), SIZE_LIMIT_KEY.end() - 1, begin.begin(),
                                   [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b); });
        if (is_nearly)
            return wrong(
                text, lost + "this one is written differently, so there is no limit.",
                "Write exactly file_size_limit_in_mb= and the number, from the first column and in small letters.");
        return wrong(
            text, lost + "this one does not count as what it says, and there is no limit.",
            "Write " + format + " (0: no limit) in front of it.");
    }
    const std::string_view value_text = text.substr(SIZE_LIMIT_KEY.size());
    const std::string taken = std::to_string(line().said.size_limit) + " is taken.";
    std::string_view rest = value_text.substr(0, SIZE_LIMIT_DIGITS);
    std::int64_t value = 0;
    if (!take_number(rest, value))
        return wrong(
            value_text, "The size limit is no number, so there is none.",
            "Write a number of megabytes, 0 for no limit.");
    if (line().said.cut || value < 0 || value_text.size() > SIZE_LIMIT_DIGITS)
        return wrong(
            value_text, "The size limit is beyond what it can be: " + taken,
            "Write a number of megabytes from 0 to 4294967295.");
    if (!trimmed(rest).empty() && !is_blank(rest.front()))
        doubtful(
            value_text, "Only the number at the front of " + quoted(value_text) + " counts: " + taken,
            "Write whole megabytes.");
}

/// A line that begins as comments do elsewhere.
void Checker::check_comment_like()
{
    const std::string_view text = trimmed(line().seen);
    const bool is_late = text.front() == '#' || text.front() == '!';
    const std::string instead = is_late
                                    ? "Let the line begin with " + quoted(text.substr(0, 1)) + " in its first column."
                                    : "Begin comments with # or ! in the first column.";
    wrong(text, "This is no comment for the reader, but a package called " + quoted(line().said.name) + ".", instead);
}

void Checker::check_package()
{
    const std::string_view name = line().said.name;
    std::string_view rest = line().seen;
    take_word(rest);
    if (name.front() == '#' || name.front() == '!' || name.front() == ';' || name.substr(0, 2) == "//")
        return check_comment_like();
    if (name.size() > MOST_NAME_CHARACTERS)
        doubtful(
            name, "The name has " + std::to_string(name.size()) + " characters, of which the first 39 are taken.",
            "Shorten it.");
    if (!check_numbers() || line().said.kind != LoggerLine::PACKAGE)
        return;
    check_twice();
    check_rules();
}

/// False when the line does not get as far as rules.
bool Checker::check_numbers()
{
    std::string_view rest = line().seen;
    take_word(rest);
    constexpr char form[] = "Write the line as NAME NUMBER LEVEL, as in \"Replay 320 5\".";
    std::int64_t number = 0;
    if (!take_number(rest, number))
    {
        const std::string name(line().said.name);
        if (name.substr(0, SIZE_LIMIT_KEY.size()) == SIZE_LIMIT_KEY)
            wrong(
                line().said.name,
                "The size limit counts right behind the output alone: here it is taken for a package.",
                "Move the line up, right behind the output.");
        else if (line().said.kind == LoggerLine::UNREADABLE)
            wrong(line().said.name, "The line has no package number and is skipped.", form);
        else
            wrong(
                line().said.name,
                "The line has no package number: it takes number and level of the line before, and so gives package " +
                    std::to_string(line().said.number) + " the name " + quoted(name) + ".",
                form);
        return false;
    }
    if (line().said.kind == LoggerLine::PACKAGE_OUT_OF_RANGE)
    {
        wrong(
            trimmed(line().seen.substr(line().said.name.size())),
            "There is no package " + std::to_string(number) + ": the line is skipped.",
            "The numbers are 0 to " + std::to_string(m_file.package_count() - 1) + ".");
        return false;
    }
    const std::string_view before_level = rest;
    std::int64_t level = 0;
    if (!take_number(rest, level))
    {
        wrong(
            trimmed(before_level),
            "The line has no level: it takes that of the line before, " + std::to_string(line().said.level) +
                ", and rules on it do not count.",
            form);
        return false;
    }
    const std::string_view text = trimmed(before_level.substr(0, before_level.size() - rest.size()));
    constexpr char levels[] =
        "The levels are 1 severe, 2 critical, 3 error, 4 warning, 5 notice, 6 info, 7 debug; 0 is "
        "nothing at all.";
    if (line().said.cut)
        wrong(text, "The level is beyond 255, of which " + std::to_string(line().said.level) + " is left.", levels);
    else if (level > 7)
        doubtful(text, "The level " + std::to_string(level) + " is as good as 7.", levels);
    if (!rest.empty() && !is_blank(rest.front()) && rest.front() != '[' && rest.front() != '/')
        doubtful(
            rest,
            "Only the number counts of " +
                quoted(trimmed(before_level).substr(0, before_level.find_first_of(" \t", text.size()))) + ".",
            "Put a blank behind the level.");
    return true;
}

void Checker::check_twice()
{
    const auto found = m_file.packages().find(line().said.number);
    if (found == m_file.packages().end() || found->second.line == m_index)
        return;
    const LevelPackage& package = found->second;
    const std::string number = std::to_string(line().said.number);
    const std::string there = line_number(package.line);
    if (!line().said.rules.empty() && package.rules_line != m_index)
        wrong(
            line().said.rules,
            "Package " + number + " is given again in " + line_number(*package.rules_line) +
                " with rules of its own: those here do not count, nor does the level.",
            "Keep one line for the package.");
    else
        doubtful(
            line().said.name,
            "Package " + number + " is given again in " + there + ": that level counts" +
                (line().said.rules.empty() ? "." : ", while the rules here stay."),
            "Keep one line for the package.");
}

void Checker::check_rules()
{
    std::string_view rest = line().seen;
    take_word(rest);
    std::int64_t number = 0;
    take_number(rest, number);
    take_number(rest, number);
    rest = trimmed(rest);
    if (line().said.rules.empty())
    {
        if (!rest.empty() && (rest.front() == '(' || rest.front() == '['))
            wrong(
                rest, "These rules are not read.",
                "Write rules in brackets and parentheses, without a blank: [(7;192.0.2.7)].");
        return;
    }
    const std::vector<std::string_view> rules = split_rules(line().said.rules);
    check_around_rules(rest, rules);
    m_package = &m_file.packages().at(line().said.number);
    std::size_t counting = 0;
    for (const std::string_view rule : rules)
    {
        if (!check_rule(rule))
            continue;
        if (++counting > MOST_RULES)
            wrong(
                rule, "A package holds 10 rules: this one is left out.",
                "Put what it is for into another rule's lists, or take a rule out.");
    }
}

/// What stands in and behind the brackets without being a rule. rest: from the bracket to the end of the line.
void Checker::check_around_rules(std::string_view rest, const std::vector<std::string_view>& rules)
{
    const std::string_view word = line().said.rules;
    const std::string_view behind_word = rest.substr(1 + word.size());
    const std::size_t close = word.find(']');
    const std::size_t open_end = word.rfind('(');
    const bool is_open = open_end != std::string_view::npos && word.find(')', open_end) == std::string_view::npos;
    const std::size_t end_of_rest = behind_word.find(']');
    const std::size_t comment = behind_word.find('/');
    if (is_open || (close == std::string_view::npos && end_of_rest < comment))
    {
        const bool at_blank = !trimmed(behind_word).empty() && end_of_rest != std::string_view::npos;
        wrong(
            at_blank ? behind_word.substr(0, 1) : word.substr(is_open ? open_end : 0),
            at_blank ? "Rules end at the first blank: what stands behind it is not read."
                     : "A parenthesis is not closed: this is no rule.",
            at_blank ? "Write the rules without blanks." : "Write rules as in [(7;192.0.2.7)].");
        return;
    }
    std::size_t covered = 0;
    for (const std::string_view rule : rules)
    {
        const auto begin = static_cast<std::size_t>(rule.data() - word.data()) - 1;
        const std::string_view between = word.substr(covered, begin - covered);
        if (close < begin && covered <= close)
            wrong(
                word.substr(begin, rule.size() + 2),
                "What stands in parentheses behind the bracket, without a blank between, counts as a rule too.",
                "Put a blank behind the \"]\".");
        else if (!between.empty() && close >= begin)
            wrong(between, quoted(between) + " between the rules does not count.", "Write each rule in parentheses.");
        covered = begin + rule.size() + 2;
    }
    const std::string_view left =
        word.substr(covered, close == std::string_view::npos ? close : std::max(close, covered) - covered);
    if (!left.empty())
        wrong(
            left, quoted(left) + " is no rule and does not count.", "Write each rule in parentheses: [(7;192.0.2.7)].");
}

/// False when the reader leaves the rule out.
bool Checker::check_rule(std::string_view rule)
{
    const auto sound = m_sound_rules.find(rule);
    if (sound != m_sound_rules.end())
    {
        check_reach(rule, sound->second);
        return true;
    }
    const std::size_t findings = m_findings.size();
    const RuleText parts = split_rule(rule);
    const bool has_level = parts.level >= 1 && parts.level <= 7;
    const std::size_t first = rule.find(';');
    if (!has_level)
        wrong(
            rule.substr(0, first),
            "A rule needs a level from 1 to 7, not " + quoted(rule.substr(0, first)) + ": it is left out.",
            "Write the level first, as in (7;192.0.2.7).");
    std::size_t lists_with_entries = 0;
    for (const auto& list : parts.lists)
        lists_with_entries += list.empty() ? 0u : 1u;
    std::string_view rest = first == std::string_view::npos ? std::string_view() : rule.substr(first + 1);
    bool more = first != std::string_view::npos;
    for (std::size_t which = 0; more; ++which)
    {
        const std::size_t end = rest.find(';');
        if (which < LISTS)
            check_entries(rest.substr(0, end), which, lists_with_entries == 1);
        else
            wrong(
                rest.data() == rule.data() + rule.size() ? rule : rest,
                "A rule has a level and four lists: this fifth one does not count.",
                "Write addresses, applications, process ids, sessions, in this order.");
        more = end != std::string_view::npos && which < LISTS;
        rest.remove_prefix(more ? end + 1 : rest.size());
    }
    if (lists_with_entries == 0)
        wrong(
            rule, "A rule without an entry in any of its lists is left out.",
            "Say whom it is for, as in (7;192.0.2.7); a level for everybody is the package's own.");
    if (!has_level || lists_with_entries == 0)
        return false;
    if (check_level_text(rule, parts.level) && m_findings.size() == findings)
        m_sound_rules.emplace(rule, parts.level);
    check_reach(rule, parts.level);
    return true;
}

bool Checker::check_level_text(std::string_view rule, int level)
{
    const std::string_view text = rule.substr(0, rule.find(';'));
    if (is_whole_number(trimmed(text)))
        return true;
    doubtful(
        text, "Only the number at the front of " + quoted(text) + " counts.",
        "Write " + std::to_string(level) + " alone.");
    return false;
}

void Checker::check_reach(std::string_view rule, int level)
{
    if (level <= m_package->level && m_package->rules_line == m_index)
        doubtful(
            rule,
            "The package has level " + std::to_string(m_package->level) +
                " for everybody, and a rule never lowers it: this one changes nothing.",
            "Lower the package's own level, or take the rule out.");
}

void Checker::check_entries(std::string_view list, std::size_t which, bool is_only_list)
{
    std::size_t count = 0;
    bool more = !list.empty();
    std::string_view rest = list;
    while (more)
    {
        const std::size_t end = rest.find(',');
        const std::string_view entry = rest.substr(0, end);
        more = end != std::string_view::npos;
        if (entry.empty())
        {
            const std::string_view behind = rest.substr(more ? end + 1 : 0);
            if (behind.find_first_not_of(',') != std::string_view::npos)
                wrong(
                    behind, "A list ends at its first empty entry: " + quoted(behind) + " does not count.",
                    "Take the comma out that has nothing in front of it.");
            return;
        }
        if (++count > MOST_ENTRIES)
            return wrong(
                rest, "A list holds 10 entries: from the 11th on they are left out.",
                "Put the others into a second rule.");
        if (which == RULE_ADDRESSES)
            check_address(entry, is_only_list && count == 1 && !more);
        else if (which == RULE_APPLICATIONS)
            check_application(entry);
        else
            check_id(entry, which, list);
        rest.remove_prefix(more ? end + 1 : rest.size());
    }
}

void Checker::check_address(std::string_view entry, bool is_alone)
{
    const AddressText parts = split_address(entry);
    if (is_misread_ipv4(parts.address))
        return wrong(entry, quoted(parts.address) + MISREAD, FOUR_NUMBERS);
    if (const auto octets = read_ipv4(parts.address))
    {
        if (entry.size() != parts.address.size())
            check_network(entry, parts, *octets);
        return;
    }
    if (parts.address.find(':') != std::string_view::npos && entry.size() != parts.address.size())
    {
        const std::string_view bits = entry.substr(parts.address.size() + 1);
        if (!is_whole_number(bits) || parts.bits < 0 || parts.bits > IPV6_BITS)
            wrong(
                bits,
                !is_whole_number(bits) && parts.bits == 0
                    ? "Behind the slash stands no number: the entry fits every IPv6 address."
                    : "The length of an IPv6 network is 0 to 128: the entry fits this one address alone.",
                "Write it as in 2001:db8::/32.");
    }
    if (found(parts.address) != 0)
        return;
    const std::string name = quoted(parts.address);
    wrong(
        entry,
        is_alone ? "The host " + name + " does not resolve, and the rule has no other entry: it is left out."
                 : "The host " + name +
                       " does not resolve and is left out of its list; a list that has no other entry then holds for "
                       "every client.",
        "Write the address in place of the name.");
}

void Checker::check_network(std::string_view entry, const AddressText& parts, const Octets& octets)
{
    const std::string_view bits = entry.substr(parts.address.size());
    const int stands_for = bits_of(octets);
    if (parts.bits == stands_for && is_whole_number(bits.substr(1)))
        return doubtful(
            bits, quoted(bits) + " behind an IPv4 address is not looked at; the zeros at its end say the same.",
            "Write " + std::string(parts.address) + ".");
    const ClientText better = client_entry(entry);
    wrong(
        bits,
        quoted(bits) + " behind an IPv4 address is not looked at: the entry stands for " + range_text(octets) + ".",
        better.entry.empty() ? better.problem : "Write " + better.entry + ".");
}

void Checker::check_application(std::string_view entry)
{
    if (entry.size() > MOST_APPLICATION_CHARACTERS)
        wrong(
            entry,
            "The application has " + std::to_string(entry.size()) +
                " characters, of which the first 19 are taken: the rule is for " +
                quoted(entry.substr(0, MOST_APPLICATION_CHARACTERS)) + ".",
            "Such an application cannot be named in a rule; use the process id.");
}

void Checker::check_id(std::string_view entry, std::size_t which, std::string_view list)
{
    const std::string kind = which == RULE_PROCESSES ? "process" : "session";
    const IdText id = read_id(entry);
    if (id.cut)
        return wrong(
            entry, "The id is beyond 32 bits: the rule is for an id that no " + kind + " has.",
            "Write the " + kind + "'s id.");
    if (is_whole_number(entry))
        return;
    const std::size_t colon = entry.find(':');
    if (which == RULE_PROCESSES && colon != std::string_view::npos)
        return wrong(
            entry.substr(colon),
            "Sessions stand behind a semicolon: this is read as process " + std::to_string(id.id) +
                " in any session. (The library itself writes it so when it rewrites the file.)",
            "Write " + std::string(list.substr(0, static_cast<std::size_t>(entry.data() - list.data()) + colon)) + ';' +
                std::string(list.substr(static_cast<std::size_t>(entry.data() - list.data()) + colon + 1)) + ".");
    wrong(
        entry, quoted(entry) + " is no number and is read as " + kind + " " + std::to_string(id.id) + ".",
        "Write the " + kind + "'s id.");
}

int Checker::found(std::string_view host)
{
    if (!m_lookup)
        return 1;
    const auto known = m_known_hosts.find(std::string(host));
    if (known != m_known_hosts.end())
        return known->second;
    return m_known_hosts.emplace(host, m_lookup(host)).first->second;
}
} // namespace

std::vector<Finding> check_level_file(const LevelFile& file, const HostLookup& lookup)
{
    return Checker(file, lookup).run();
}

ClientText client_entry(std::string_view text)
{
    const AddressText parts = split_address(text);
    if (is_misread_ipv4(parts.address))
        return {{}, quoted(parts.address) + MISREAD + " " + FOUR_NUMBERS};
    const auto octets = read_ipv4(parts.address);
    if (!octets || parts.address.size() == text.size())
        return {std::string(text), {}};
    const int bits = parts.bits;
    if (bits == 8 || bits == 16 || bits == 24)
    {
        const Octets network = network_of(*octets, bits);
        if (bits_of(network) == bits)
            return {write_ipv4(network), {}};
    }
    if (bits == 32 && bits_of(*octets) == 32)
        return {std::string(parts.address), {}};
    return {
        {},
        "Rules know IPv4 networks of 8, 16 and 24 bits alone, which are written with zeros at the end, as in 10.1.0.0. "
        "List the addresses, or take the larger network " +
            write_ipv4(network_of(
                *octets, bits > 24   ? 24
                         : bits > 16 ? 16
                                     : 8)) +
            "."};
}
} // namespace kor::core
