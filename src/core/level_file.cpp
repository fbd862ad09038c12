#include "core/level_file.h"

#include <algorithm>
#include <limits>
#include <set>
#include <utility>

#include "core/numbers.h"

namespace kor::core
{
namespace
{
constexpr char CTRL_Z = '\x1A';
constexpr std::size_t MOST_RULES = 10; // of a package, and entries of a list
constexpr std::size_t MOST_ENTRIES = 10;
constexpr std::size_t MOST_APPLICATION_CHARACTERS = 19;
constexpr int DEFAULT_LEVEL = 4; // of packages without a line
constexpr std::string_view SIZE_LIMIT_KEY = "file_size_limit_in_mb=";

// Lines ---------------------------------------------------------------------------------------------------

/// Where the fields of a package line stand: views into its text, empty where there is no such field.
struct Fields
{
    std::string_view name;
    std::string_view number;
    std::string_view level;
    std::string_view bracket; ///< the rules with the "[" in front
};

/// The number at the front of rest without the blanks before it.
std::string_view take_number_text(std::string_view& rest) noexcept
{
    std::string_view behind = rest;
    std::int64_t value = 0;
    if (!take_number(behind, value))
        return {};
    std::string_view text = rest.substr(0, rest.size() - behind.size());
    while (is_blank(text.front()))
        text.remove_prefix(1);
    rest = behind;
    return text;
}

Fields fields_of(const LevelLine& line) noexcept
{
    Fields fields;
    std::string_view rest = line.seen;
    fields.name = take_word(rest);
    fields.number = take_number_text(rest);
    if (fields.number.empty())
        return fields;
    fields.level = take_number_text(rest);
    if (!fields.level.empty() && !line.said.rules.empty())
        fields.bracket = {line.said.rules.data() - 1, line.said.rules.size() + 1};
    return fields;
}

std::size_t offset_in(std::string_view text, std::string_view part) noexcept
{
    return static_cast<std::size_t>(part.data() - text.data());
}

std::size_t end_in(std::string_view text, std::string_view part) noexcept
{
    return offset_in(text, part) + part.size();
}

std::string replaced(std::string_view text, std::size_t at, std::size_t count, std::string_view by)
{
    return std::string(text.substr(0, at)).append(by).append(text.substr(at + count));
}

std::size_t blanks_at(std::string_view text, std::size_t at) noexcept
{
    std::size_t count = 0;
    while (at + count < text.size() && text[at + count] == ' ')
        ++count;
    return count;
}

/// Puts a word in place of count characters; what stands behind it keeps its column where blanks allow that.
std::string with_word(std::string_view text, std::size_t at, std::size_t count, std::string_view word)
{
    std::string result = replaced(text, at, count, word);
    const std::size_t behind = at + word.size();
    const std::size_t blanks = blanks_at(result, behind);
    if (behind + blanks == result.size())
        return result; // nothing stands behind it
    if (word.size() > count)
        result.erase(behind, std::min(word.size() - count, blanks > 0 ? blanks - 1 : 0));
    else if (blanks > 0)
        result.insert(behind, count - word.size(), ' ');
    if (!word.empty() && !is_blank(result[behind]))
        result.insert(behind, 1, ' ');
    return result;
}

// Edits of the bytes --------------------------------------------------------------------------------------

LevelEdit failed(EditProblem problem, std::size_t line = 0)
{
    LevelEdit edit;
    edit.problem = problem;
    edit.line = line;
    return edit;
}

std::size_t begin_of(const LevelFile& file, std::size_t line) noexcept
{
    return line < file.lines().size() ? offset_in(file.bytes(), file.lines()[line].text) : file.bytes().size();
}

LevelEdit with_line(const LevelFile& file, std::size_t index, int what, std::string text)
{
    const LevelLine& line = file.lines()[index];
    if (text.size() > MAX_LOGGER_LINE)
        return failed(EditProblem::LINE_TOO_LONG, index);
    LevelEdit edit;
    edit.line = index;
    edit.bytes = replaced(file.bytes(), begin_of(file, index), line.text.size(), text);
    edit.change = {what, index, std::string(line.text), std::move(text)};
    return edit;
}

/// The line end that lines of the file have.
std::string_view usual_end(const LevelFile& file) noexcept
{
    return file.lines().empty() || file.lines().front().end.empty() ? std::string_view("\r\n")
                                                                    : file.lines().front().end;
}

/// With a line in front of the one of that index, or behind the last.
LevelEdit with_new_line(const LevelFile& file, std::size_t index, int what, std::string text)
{
    if (text.size() > MAX_LOGGER_LINE)
        return failed(EditProblem::LINE_TOO_LONG, index);
    LevelEdit edit;
    edit.line = index;
    // A file whose last line has no end keeps being one.
    const bool behind_an_open_line = index > 0 && file.lines()[index - 1].end.empty();
    const std::string_view ended = behind_an_open_line ? file.lines()[index - 1].text : std::string_view(text);
    // Behind a carriage return "\n" alone would make one line end of both.
    const std::string end(!ended.empty() && ended.back() == '\r' ? std::string_view("\r\n") : usual_end(file));
    edit.bytes = replaced(file.bytes(), begin_of(file, index), 0, behind_an_open_line ? end + text : text + end);
    edit.change = {what, index, std::nullopt, std::move(text)};
    return edit;
}

LevelEdit without_line(const LevelFile& file, std::size_t index, int what)
{
    const LevelLine& line = file.lines()[index];
    LevelEdit edit;
    edit.line = index;
    edit.change = {what, index, std::string(line.text), std::nullopt};
    std::size_t begin = begin_of(file, index);
    std::size_t size = line.text.size() + line.end.size();
    if (line.end.empty() && index > 0)
    {
        const std::size_t end_before = file.lines()[index - 1].end.size();
        begin -= end_before;
        size += end_before;
    }
    edit.bytes = replaced(file.bytes(), begin, size, {});
    return edit;
}

// What an edit has to come to -----------------------------------------------------------------------------

using Rules = std::vector<std::string>;

Rules rules_of(const LevelPackage& package) { return {package.rules.begin(), package.rules.end()}; }

struct Expected
{
    int level;
    Rules rules;
};

bool is_same(const LevelPackage& a, const LevelPackage& b)
{
    return a.name == b.name && a.level == b.level && a.rules == b.rules;
}

/// The same packages, but for one number.
bool others_are_same(const LevelFile& a, const LevelFile& b, int but)
{
    const auto next = [but](const LevelFile& file, std::map<int, LevelPackage>::const_iterator at)
    { return at != file.packages().end() && at->first == but ? std::next(at) : at; };
    auto left = next(a, a.packages().begin());
    auto right = next(b, b.packages().begin());
    while (left != a.packages().end() && right != b.packages().end())
    {
        if (left->first != right->first || !is_same(left->second, right->second))
            return false;
        left = next(a, std::next(left));
        right = next(b, std::next(right));
    }
    return left == a.packages().end() && right == b.packages().end();
}

bool first_lines_are_same(const LevelFile& a, const LevelFile& b)
{
    return a.output() == b.output() && a.size_limit() == b.size_limit();
}

/// The edit, if the reader understands it as it is meant; expected: nothing for a package without a line.
LevelEdit verified(const LevelFile& file, LevelEdit edit, int package, const std::optional<Expected>& expected)
{
    if (!edit)
        return edit;
    const LevelFile result(edit.bytes, file.package_count());
    const auto found = result.packages().find(package);
    const bool has_it = found != result.packages().end();
    bool is_right =
        first_lines_are_same(file, result) && others_are_same(file, result, package) && has_it == expected.has_value();
    if (is_right && has_it)
    {
        const auto before = file.packages().find(package);
        is_right = found->second.level == expected->level && rules_of(found->second) == expected->rules &&
                   (before == file.packages().end() || before->second.name == found->second.name);
    }
    return is_right ? std::move(edit) : failed(EditProblem::NO_OTHER_WAY, edit.line);
}

const LevelPackage* find(const LevelFile& file, int package)
{
    const auto found = file.packages().find(package);
    return found == file.packages().end() ? nullptr : &found->second;
}

/// True for a line that stands where packages do, whatever can be read in it.
bool is_package_line(const LevelLine& line) noexcept
{
    return line.is_read &&
           (line.said.kind == LoggerLine::PACKAGE || line.said.kind == LoggerLine::PACKAGE_OUT_OF_RANGE ||
            line.said.kind == LoggerLine::UNREADABLE);
}

/// A text with blanks in front, so that it ends at the column where the other one does.
std::string
aligned(std::string line, std::string_view value, const LevelLine* neighbour, std::string_view Fields::*field)
{
    std::size_t column = 0;
    if (neighbour != nullptr)
    {
        const Fields fields = fields_of(*neighbour);
        if (!(fields.*field).empty())
            column = offset_in(neighbour->seen, fields.*field);
    }
    line.resize(std::max(line.size() + 1, column), ' ');
    return line.append(value);
}

/// A line for a package that has none, behind the last of the others and in columns as that one.
LevelEdit add_package(const LevelFile& file, int package, const NewPackage& made, int level, const Rules& rules)
{
    if (!file.size_limit_line())
        return failed(EditProblem::NO_FIRST_LINES);
    std::size_t at = *file.size_limit_line() + 1;
    const LevelLine* neighbour = nullptr;
    for (std::size_t i = at; i < file.lines().size(); ++i)
        if (is_package_line(file.lines()[i]))
        {
            neighbour = &file.lines()[i];
            at = i + 1;
        }
    std::string line = aligned(made.name, std::to_string(package), neighbour, &Fields::number);
    line = aligned(std::move(line), std::to_string(level), neighbour, &Fields::level);
    if (!rules.empty())
    {
        line += "  [";
        for (const std::string& rule : rules)
            line += '(' + rule + ')';
        line += ']';
    }
    return verified(file, with_new_line(file, at, package, std::move(line)), package, Expected{level, rules});
}

/// The line with another level.
std::string line_with_level(const LevelLine& line, int package, int level)
{
    const std::string value = std::to_string(level);
    const Fields fields = fields_of(line);
    if (!fields.level.empty())
        return replaced(line.text, offset_in(line.text, fields.level), fields.level.size(), value);
    if (!fields.number.empty())
        return with_word(line.text, end_in(line.text, fields.number), 0, ' ' + value);
    return with_word(line.text, end_in(line.text, fields.name), 0, ' ' + std::to_string(package) + ' ' + value);
}

/// The bracket of a line with other rules in it. Those that stay keep their bytes, and so does what stands around them.
std::string bracket_with(std::string_view bracket, const std::vector<std::string_view>& old_rules, const Rules& rules)
{
    if (bracket.empty())
        bracket = "[]";
    if (old_rules.empty())
    {
        std::string text(bracket.substr(0, 1));
        for (const std::string& rule : rules)
            text += '(' + rule + ')';
        return text.append(bracket.substr(1));
    }
    // Piece by piece: what stands in front of each old rule, then that rule, if it stays or became another.
    std::string text;
    std::size_t at = 0;
    std::size_t next = 0;
    for (const std::string_view rule : old_rules)
    {
        const std::size_t open = offset_in(bracket, rule) - 1;
        text += bracket.substr(at, open - at);
        at = open + rule.size() + 2;
        const bool last = rule.data() == old_rules.back().data();
        const bool stays = next < rules.size() && (rules[next] == rule || filters_of(rules[next]) == filters_of(rule));
        if (stays)
            text += '(' + rules[next++] + ')';
        for (; last && next < rules.size(); ++next)
            text += '(' + rules[next] + ')';
    }
    return text.append(bracket.substr(at));
}

/// The package's rules on the line where they stand, or on its last line when it has none.
LevelEdit with_rules(const LevelFile& file, int package, const LevelPackage& now, const Rules& rules)
{
    const std::size_t index = now.rules_line.value_or(now.line);
    const LevelLine& line = file.lines()[index];
    const Fields fields = fields_of(line);
    const Expected expected{now.level, rules};
    const std::string_view text = line.text;
    if (fields.level.empty()) // rules count behind a level alone
    {
        const LevelFile complete(with_line(file, index, package, line_with_level(line, package, now.level)).bytes);
        const LevelPackage* const same = find(complete, package);
        LevelEdit edit =
            same == nullptr ? failed(EditProblem::NO_OTHER_WAY, index) : with_rules(complete, package, *same, rules);
        edit.change.before = std::string(text);
        return verified(file, std::move(edit), package, expected);
    }
    if (fields.bracket.empty())
    {
        const std::string added = "  " + bracket_with({}, {}, rules);
        return verified(
            file, with_line(file, index, package, with_word(text, end_in(text, fields.level), 0, added)), package,
            expected);
    }
    const std::size_t at = offset_in(text, fields.bracket);
    const std::string bracket = bracket_with(fields.bracket, now.rules, rules);
    if (bracket == "[]" || bracket == "[")
    {
        // Without the bracket the rules of an earlier line for the package would count again.
        std::string without = with_word(text, at, fields.bracket.size(), {});
        if (without.size() == at) // nothing stands behind
            without.resize(end_in(text, fields.level));
        LevelEdit edit = verified(file, with_line(file, index, package, std::move(without)), package, expected);
        if (edit)
            return edit;
        return verified(
            file, with_line(file, index, package, with_word(text, at, fields.bracket.size(), "[]")), package, expected);
    }
    return verified(
        file, with_line(file, index, package, with_word(text, at, fields.bracket.size(), bracket)), package, expected);
}

// Rules ---------------------------------------------------------------------------------------------------

/// One step on the way back: a rule that came, and the one that went for it; either may be missing.
struct RuleStep
{
    std::optional<std::string> came;
    std::optional<std::string> went;
};

void take_out(Rules& rules, const std::string& rule)
{
    const auto found = std::find(rules.begin(), rules.end(), rule);
    if (found != rules.end())
        rules.erase(found);
}

std::vector<RuleStep> steps_between(const Rules& before, const Rules& after)
{
    Rules went = before;
    Rules came = after;
    for (const std::string& rule : after)
        take_out(went, rule);
    for (const std::string& rule : before)
        take_out(came, rule);
    std::vector<RuleStep> steps;
    for (const std::string& rule : came)
    {
        const RuleFilters filters = filters_of(rule);
        const auto same = std::find_if(
            went.begin(), went.end(), [&filters](const std::string& old) { return filters_of(old) == filters; });
        steps.push_back({rule, same == went.end() ? std::nullopt : std::optional<std::string>(*same)});
        if (same != went.end())
            went.erase(same);
    }
    for (const std::string& rule : went)
        steps.push_back({std::nullopt, rule});
    return steps;
}

/// False when a rule that came has got another level since.
bool go_back(Rules& rules, const RuleStep& step)
{
    if (!step.came)
    {
        if (std::find(rules.begin(), rules.end(), *step.went) == rules.end())
            rules.push_back(*step.went);
        return true;
    }
    const auto found = std::find(rules.begin(), rules.end(), *step.came);
    if (found != rules.end() && step.went)
        *found = *step.went;
    else if (found != rules.end())
        rules.erase(found);
    else
        return std::none_of(
            rules.begin(), rules.end(),
            [&step](const std::string& rule)
            { return filters_of(rule) == filters_of(*step.came) && rule != step.went.value_or(std::string()); });
    return true;
}

// Taking back ---------------------------------------------------------------------------------------------

/// A package line that stands alone, as a history has it.
struct LonePackage
{
    int level;
    Rules rules;
};

/// Nothing for a line that takes its values from others.
std::optional<LonePackage> read_alone(const std::string& text)
{
    LoggerFileParser parser(std::numeric_limits<int>::max());
    parser.parse("2");
    parser.parse(SIZE_LIMIT_KEY);
    LevelLine line;
    line.text = text;
    line.seen = line.text.substr(0, line.text.find('\0'));
    line.said = parser.parse(line.seen);
    if (line.said.kind != LoggerLine::PACKAGE || fields_of(line).level.empty())
        return std::nullopt;
    LonePackage package{line.said.level, {}};
    for (const std::string_view rule : split_rules(line.said.rules))
        package.rules.emplace_back(rule);
    return package;
}

std::optional<std::size_t> first_line_of(const LevelFile& file, int what)
{
    return what == LineChange::OUTPUT ? file.output_line() : file.size_limit_line();
}

/// Where the line stands as the change left it.
std::optional<std::size_t> find_left_line(const LevelFile& file, const LineChange& change)
{
    const auto is_it = [&](std::size_t i)
    {
        const LevelLine& line = file.lines()[i];
        const bool is_place = change.what < 0
                                  ? first_line_of(file, change.what) == i
                                  : line.said.kind == LoggerLine::PACKAGE && line.said.number == change.what;
        return is_place && line.text == *change.after;
    };
    if (change.line < file.lines().size() && is_it(change.line))
        return change.line;
    for (std::size_t i = 0; i < file.lines().size(); ++i)
        if (is_it(i))
            return i;
    return std::nullopt;
}

/// The edit, if nothing but what it is about says something else afterwards.
LevelEdit with_others_as_they_are(const LevelFile& file, LevelEdit edit)
{
    if (!edit)
        return edit;
    const int what = edit.change.what;
    const LevelFile result(edit.bytes, file.package_count());
    const bool output_stays = what == LineChange::OUTPUT || file.output() == result.output();
    const bool limit_stays = what == LineChange::SIZE_LIMIT || file.size_limit() == result.size_limit();
    return output_stays && limit_stays && others_are_same(file, result, what)
               ? std::move(edit)
               : failed(EditProblem::NO_OTHER_WAY, edit.line);
}

/// Takes back level and rules, each as far as it is as the change left it.
LevelEdit take_back_parts(const LevelFile& file, const LineChange& change)
{
    const LevelPackage* const now = find(file, change.what);
    const auto after = read_alone(*change.after);
    const auto before = change.before ? read_alone(*change.before) : LonePackage{DEFAULT_LEVEL, {}};
    if (now == nullptr || !after || !before)
        return failed(EditProblem::CHANGED_SINCE);
    const bool level_changed = before->level != after->level;
    if (level_changed && now->level != after->level && now->level != before->level)
        return failed(EditProblem::CHANGED_SINCE, now->line);
    const int level = level_changed ? before->level : now->level;
    Rules rules = rules_of(*now);
    for (const RuleStep& step : steps_between(before->rules, after->rules))
        if (!go_back(rules, step))
            return failed(EditProblem::CHANGED_SINCE, now->line);

    const bool rules_stay = rules == rules_of(*now);
    if (level == now->level && rules_stay)
        return failed(EditProblem::NO_CHANGE, now->line);
    if (!change.before && rules.empty() && level == DEFAULT_LEVEL)
        return verified(file, without_line(file, now->line, change.what), change.what, std::nullopt);
    if (level == now->level)
        return with_rules(file, change.what, *now, rules);
    LevelEdit edit = set_level(file, change.what, level, {});
    if (!edit || rules_stay)
        return edit;
    const LevelFile halfway(edit.bytes, file.package_count());
    LevelEdit whole = with_rules(halfway, change.what, *find(halfway, change.what), rules);
    if (whole && whole.change.line != edit.change.line) // each has a part of its own, of two lines for one package
        return failed(EditProblem::NO_OTHER_WAY, whole.line);
    whole.change.before = edit.change.before;
    return whole;
}

/// The first lines' values, read as the library reads them.
LevelEdit take_back_first_line(const LevelFile& file, const LineChange& change)
{
    const auto said = [&change](const std::string& text)
    {
        LoggerFileParser parser(0);
        if (change.what == LineChange::SIZE_LIMIT)
            parser.parse("2");
        return parser.parse(text);
    };
    if (!change.before || !change.after)
        return failed(EditProblem::CHANGED_SINCE);
    const LoggerLine before = said(*change.before);
    const LoggerLine after = said(*change.after);
    if (change.what == LineChange::SIZE_LIMIT)
        return file.size_limit() == after.size_limit ? set_size_limit(file, before.size_limit)
                                                     : failed(EditProblem::CHANGED_SINCE);
    const auto value = [](const LoggerLine& line) { return line.to_debugger ? 3 : line.output; };
    return file.output() == value(after) ? set_output(file, value(before)) : failed(EditProblem::CHANGED_SINCE);
}
} // namespace

// LevelFile -----------------------------------------------------------------------------------------------
LevelFile::LevelFile(std::string bytes, int package_count) : m_bytes(std::move(bytes)), m_package_count(package_count)
{
    read();
}

LevelFile& LevelFile::operator=(const LevelFile& other)
{
    if (this == &other)
        return *this;
    m_bytes = other.m_bytes;
    m_package_count = other.m_package_count;
    m_lines.clear();
    m_packages.clear();
    m_output_line = m_size_limit_line = m_cut_line = std::nullopt;
    m_output = 0;
    m_to_debugger = false;
    m_size_limit = 0;
    read();
    return *this;
}

void LevelFile::read()
{
    LoggerFileParser parser(m_package_count);
    std::string_view rest = m_bytes;
    m_lines.reserve(static_cast<std::size_t>(std::count(rest.begin(), rest.end(), '\n')) + 1);
    while (!rest.empty())
    {
        m_lines.push_back(take_line(rest));
        LevelLine& line = m_lines.back();
        if (!m_cut_line)
            look_at(line, parser);
    }
}

/// The next line of the file, with its end.
LevelLine LevelFile::take_line(std::string_view& rest)
{
    LevelLine line;
    const std::size_t newline = rest.find('\n');
    const bool has_end = newline != std::string_view::npos;
    const bool has_return = has_end && newline > 0 && rest[newline - 1] == '\r';
    line.text = rest.substr(0, has_return ? newline - 1 : newline);
    line.end = rest.substr(line.text.size(), has_return ? 2 : has_end ? 1 : 0);
    rest.remove_prefix(line.text.size() + line.end.size());
    return line;
}

/// Sees the line as the library's reader does.
void LevelFile::look_at(LevelLine& line, LoggerFileParser& parser)
{
    const std::size_t index = m_lines.size() - 1;
    const std::size_t ctrl_z = line.text.find(CTRL_Z);
    const std::string_view until = line.text.substr(0, ctrl_z);
    const bool is_too_long = until.size() > MAX_LOGGER_LINE;
    if (is_too_long || ctrl_z != std::string_view::npos)
        m_cut_line = index;
    line.is_read = !is_too_long && (ctrl_z == std::string_view::npos || !until.empty());
    if (!line.is_read)
        return;
    line.seen = until.substr(0, until.find('\0'));
    line.said = parser.parse(line.seen);
    note(line, index);
}

void LevelFile::note(const LevelLine& line, std::size_t index)
{
    if (line.said.kind == LoggerLine::OUTPUT)
    {
        m_output_line = index;
        m_output = line.said.output;
        m_to_debugger = line.said.to_debugger;
    }
    else if (line.said.kind == LoggerLine::SIZE_LIMIT)
    {
        m_size_limit_line = index;
        m_size_limit = line.said.size_limit;
    }
    else if (line.said.kind == LoggerLine::PACKAGE)
    {
        LevelPackage& package = m_packages[line.said.number];
        package.name = line.said.name;
        package.level = line.said.level;
        package.line = index;
        if (line.said.rules.empty())
            return;
        package.rules_line = index;
        package.rules = split_rules(line.said.rules);
    }
}

std::optional<int> LevelFile::output() const noexcept
{
    if (!m_output_line)
        return std::nullopt;
    return m_to_debugger ? 3 : m_output;
}

bool LevelFile::has_byte_order_mark() const noexcept
{
    const std::string_view front = std::string_view(m_bytes).substr(0, 3);
    return front == "\xEF\xBB\xBF" || front.substr(0, 2) == "\xFF\xFE" || front.substr(0, 2) == "\xFE\xFF";
}

bool LevelFile::says_the_same(const LevelFile& other) const
{
    constexpr int NOBODY = -1;
    return first_lines_are_same(*this, other) && others_are_same(*this, other, NOBODY);
}

// Rules ---------------------------------------------------------------------------------------------------
bool RuleFilters::empty() const noexcept
{
    return std::all_of(std::begin(lists), std::end(lists), [](const auto& list) { return list.empty(); });
}

bool RuleFilters::operator==(const RuleFilters& other) const
{
    const auto as_set = [](const std::vector<std::string>& list)
    { return std::set<std::string>(list.begin(), list.end()); };
    return std::equal(
        std::begin(lists), std::end(lists), std::begin(other.lists),
        [&as_set](const auto& a, const auto& b) { return as_set(a) == as_set(b); });
}

RuleFilters filters_of(std::string_view rule)
{
    RuleFilters filters;
    const RuleText parts = split_rule(rule);
    for (std::size_t i = 0; i < std::size(filters.lists); ++i)
        filters.lists[i].assign(parts.lists[i].begin(), parts.lists[i].end());
    return filters;
}

std::string rule_text(int level, const RuleFilters& filters)
{
    std::string text = std::to_string(level);
    std::string separators;
    for (const auto& list : filters.lists)
    {
        separators += ';';
        if (list.empty())
            continue;
        text += std::exchange(separators, {});
        for (std::size_t i = 0; i < list.size(); ++i)
            text.append(i == 0 ? "" : ",").append(list[i]);
    }
    return text;
}

bool is_writable(RuleList list, std::string_view entry) noexcept
{
    constexpr std::string_view SEPARATORS(",;()\0\x1A", 6);
    const auto separates = [&](char c) { return is_blank(c) || SEPARATORS.find(c) != std::string_view::npos; };
    if (entry.empty() || std::any_of(entry.begin(), entry.end(), separates))
        return false;
    if (list == RULE_APPLICATIONS)
        return entry.size() <= MOST_APPLICATION_CHARACTERS;
    if (list == RULE_ADDRESSES)
        return true;
    std::string_view rest = entry;
    std::int64_t value = 0;
    return take_number(rest, value) && rest.empty() && !read_id(entry).cut;
}

bool can_count(std::string_view rule)
{
    const int level = split_rule(rule).level;
    return level >= 1 && level <= 7 && !filters_of(rule).empty();
}

// The edits -----------------------------------------------------------------------------------------------
LevelEdit set_level(const LevelFile& file, int package, int level, const NewPackage& made)
{
    const LevelPackage* const now = find(file, package);
    if (now == nullptr)
        return add_package(file, package, made, level, {});
    if (now->level == level)
        return failed(EditProblem::NO_CHANGE, now->line);
    std::string text = line_with_level(file.lines()[now->line], package, level);
    return verified(
        file, with_line(file, now->line, package, std::move(text)), package, Expected{level, rules_of(*now)});
}

namespace
{
EditProblem problem_of(const RuleFilters& filters)
{
    for (int list = RULE_ADDRESSES; list <= RULE_SESSIONS; ++list)
    {
        const auto& entries = filters.lists[list];
        const auto can_stand = [list](const std::string& entry)
        { return is_writable(static_cast<RuleList>(list), entry); };
        if (entries.size() > MOST_ENTRIES)
            return EditProblem::TOO_MANY_ENTRIES;
        if (!std::all_of(entries.begin(), entries.end(), can_stand))
            return EditProblem::NOT_WRITABLE;
    }
    return EditProblem::NONE;
}

/// Takes the entries out of the list of each rule that has all of them and others beside; false when none has.
bool leave_out(Rules& rules, std::size_t list, const std::vector<std::string>& entries)
{
    bool found = false;
    for (std::string& rule : rules)
    {
        RuleFilters rest = filters_of(rule);
        auto& left = rest.lists[list];
        const auto has = [&left](const std::string& entry)
        { return std::find(left.begin(), left.end(), entry) != left.end(); };
        if (!std::all_of(entries.begin(), entries.end(), has))
            continue;
        const auto goes = [&entries](const std::string& entry)
        { return std::find(entries.begin(), entries.end(), entry) != entries.end(); };
        left.erase(std::remove_if(left.begin(), left.end(), goes), left.end());
        if (left.empty()) // the rule would be for everybody
            continue;
        rule = rule_text(split_rule(rule).level, rest);
        found = true;
    }
    return found;
}
} // namespace

LevelEdit set_rule(const LevelFile& file, int package, int level, const RuleFilters& filters, const NewPackage& made)
{
    const EditProblem problem = problem_of(filters);
    if (problem != EditProblem::NONE)
        return failed(problem);
    const std::string rule = rule_text(level, filters);
    const LevelPackage* const now = find(file, package);
    if (now == nullptr)
        return add_package(file, package, made, made.level, {rule});
    Rules rules;
    bool is_there = false;
    for (const std::string_view old : now->rules)
    {
        const bool is_it = filters_of(old) == filters;
        if (!is_it)
            rules.emplace_back(old);
        else if (!is_there) // of several with the same filters one is enough
            rules.push_back(split_rule(old).level == level ? std::string(old) : rule);
        is_there = is_there || is_it;
    }
    if (!is_there)
        rules.push_back(rule);
    if (rules == rules_of(*now))
        return failed(EditProblem::NO_CHANGE, now->rules_line.value_or(now->line));
    if (static_cast<std::size_t>(std::count_if(rules.begin(), rules.end(), &can_count)) > MOST_RULES && !is_there)
        return failed(EditProblem::TOO_MANY_RULES, now->rules_line.value_or(now->line));
    return with_rules(file, package, *now, rules);
}

LevelEdit clear_rule(const LevelFile& file, int package, const RuleFilters& filters)
{
    const LevelPackage* const now = find(file, package);
    if (now == nullptr)
        return failed(EditProblem::NO_SUCH_PACKAGE);
    Rules rules;
    for (const std::string_view old : now->rules)
        if (!(filters_of(old) == filters))
            rules.emplace_back(old);
    const auto is_given = [](const auto& list) { return !list.empty(); };
    const auto given = std::find_if(std::begin(filters.lists), std::end(filters.lists), is_given);
    const bool is_one_list = std::count_if(std::begin(filters.lists), std::end(filters.lists), is_given) == 1;
    if (rules.size() == now->rules.size() &&
        (!is_one_list || !leave_out(rules, static_cast<std::size_t>(given - std::begin(filters.lists)), *given)))
        return failed(EditProblem::NO_SUCH_RULE, now->rules_line.value_or(now->line));
    return with_rules(file, package, *now, rules);
}

LevelEdit clear_rules(const LevelFile& file, int package)
{
    const LevelPackage* const now = find(file, package);
    if (now == nullptr)
        return failed(EditProblem::NO_SUCH_PACKAGE);
    if (now->rules.empty())
        return failed(EditProblem::NO_CHANGE, now->line);
    return with_rules(file, package, *now, {});
}

LevelEdit set_output(const LevelFile& file, int output)
{
    if (file.output() == output)
        return failed(EditProblem::NO_CHANGE, *file.output_line());
    LevelEdit edit;
    if (file.output_line())
    {
        const LevelLine& line = file.lines()[*file.output_line()];
        std::string_view rest = line.seen;
        const std::string_view number = take_number_text(rest);
        std::string text =
            number.empty() ? std::to_string(output).append(line.text.empty() ? "" : " ").append(line.text)
                           : replaced(line.text, offset_in(line.text, number), number.size(), std::to_string(output));
        edit = with_line(file, *file.output_line(), LineChange::OUTPUT, std::move(text));
    }
    else
    {
        edit = with_new_line(file, file.lines().size(), LineChange::OUTPUT, std::to_string(output));
    }
    edit = with_others_as_they_are(file, std::move(edit));
    return edit && LevelFile(edit.bytes, file.package_count()).output() != output
               ? failed(EditProblem::NO_OTHER_WAY, edit.line)
               : edit;
}

LevelEdit set_size_limit(const LevelFile& file, std::uint32_t megabytes)
{
    if (!file.output_line())
        return failed(EditProblem::NO_FIRST_LINES);
    std::string value = std::to_string(megabytes);
    std::string whole = std::string(SIZE_LIMIT_KEY) + value;
    LevelEdit edit;
    if (!file.size_limit_line())
    {
        edit = with_new_line(file, *file.output_line() + 1, LineChange::SIZE_LIMIT, std::move(whole));
    }
    else
    {
        const std::size_t index = *file.size_limit_line();
        const LevelLine& line = file.lines()[index];
        if (line.seen.substr(0, SIZE_LIMIT_KEY.size()) == SIZE_LIMIT_KEY)
        {
            if (file.size_limit() == megabytes)
                return failed(EditProblem::NO_CHANGE, index);
            std::string_view rest = line.seen.substr(SIZE_LIMIT_KEY.size());
            const std::string_view number = take_number_text(rest);
            const std::size_t at = number.empty() ? SIZE_LIMIT_KEY.size() : offset_in(line.text, number);
            edit = with_line(file, index, LineChange::SIZE_LIMIT, replaced(line.text, at, number.size(), value));
        }
        else if (megabytes == 0)
        {
            return failed(EditProblem::NO_CHANGE, index);
        }
        else if (line.seen.empty())
        {
            edit = with_line(file, index, LineChange::SIZE_LIMIT, std::move(whole));
        }
        else if (is_logger_comment(line.seen))
        {
            edit = with_new_line(file, index, LineChange::SIZE_LIMIT, std::move(whole));
        }
        else
        {
            return failed(EditProblem::LINE_IS_LOST, index);
        }
    }
    edit = with_others_as_they_are(file, std::move(edit));
    if (!edit)
        return edit;
    const LevelFile after(edit.bytes, file.package_count());
    return after.size_limit_line() && after.size_limit() == megabytes ? edit
                                                                      : failed(EditProblem::NO_OTHER_WAY, edit.line);
}

LevelEdit take_back(const LevelFile& file, const LineChange& change)
{
    if (!change.after) // the line went
    {
        if (change.what < 0 || find(file, change.what) != nullptr || !change.before)
            return failed(EditProblem::CHANGED_SINCE);
        const std::size_t at = std::min(change.line, file.lines().size());
        return with_others_as_they_are(file, with_new_line(file, at, change.what, *change.before));
    }
    if (const auto index = find_left_line(file, change))
    {
        LevelEdit edit = with_others_as_they_are(
            file, change.before ? with_line(file, *index, change.what, *change.before)
                                : without_line(file, *index, change.what));
        if (edit)
            return edit;
    }
    return change.what < 0 ? take_back_first_line(file, change) : take_back_parts(file, change);
}
} // namespace kor::core
