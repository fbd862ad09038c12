// level_file.h - the `logger` file as tools see it: which line says what, and changes that touch one line of it.

#ifndef KOR_CORE_LEVEL_FILE_H
#define KOR_CORE_LEVEL_FILE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/logger_file.h"
#include "core/rule_text.h"

namespace kor::core
{
/// A line of the file. Views into the file's bytes.
struct LevelLine
{
    std::string_view text;      ///< without its line end
    std::string_view end;       ///< "\n", "\r\n", or nothing at the end of a file without one
    bool is_read = false;       ///< false behind the place where the reader ends
    std::string_view seen = {}; ///< what the reader sees of text: up to its first nul
    LoggerLine said = {};       ///< what it understands
};

/// What counts of a package.
struct LevelPackage
{
    std::string_view name;
    std::uint8_t level = 0;
    std::size_t line = 0;                     ///< index of the last of its lines: name and level are from there
    std::optional<std::size_t> rules_line;    ///< index of the line that its rules are from
    std::vector<std::string_view> rules = {}; ///< as written between the parentheses, also those that do not count
};

/// The bytes of a `logger` file, and what the library reads in them.
///
/// The library opens the file as a text: "\r\n" is a line end, and a Ctrl-Z ends it. Lines are counted from 0.
class LevelFile
{
public:
    explicit LevelFile(std::string bytes, int package_count = 750);
    LevelFile(const LevelFile& other) : LevelFile(other.m_bytes, other.m_package_count) {}
    LevelFile& operator=(const LevelFile& other);

    const std::string& bytes() const noexcept { return m_bytes; }
    const std::vector<LevelLine>& lines() const noexcept { return m_lines; }
    int package_count() const noexcept { return m_package_count; }

    /// By number; packages that no line names are not among them.
    const std::map<int, LevelPackage>& packages() const noexcept { return m_packages; }

    /// Nothing where no line says it: then the defaults count, standard error and no limit.
    std::optional<int> output() const noexcept; ///< 0 to 2, and 3 for 2 with a debugger
    std::uint32_t size_limit() const noexcept { return m_size_limit; }
    std::optional<std::size_t> output_line() const noexcept { return m_output_line; }
    std::optional<std::size_t> size_limit_line() const noexcept { return m_size_limit_line; }

    /// The line at which the reader ends before the file does: one that is too long, or has a Ctrl-Z.
    std::optional<std::size_t> cut_line() const noexcept { return m_cut_line; }

    /// True when the file begins with a byte-order mark, and so with no number.
    bool has_byte_order_mark() const noexcept;

    /// True when both say the same to the reader: output, limit, and each package's name, level and rules.
    bool says_the_same(const LevelFile& other) const;

private:
    static LevelLine take_line(std::string_view& rest);
    void read();
    void look_at(LevelLine& line, LoggerFileParser& parser);
    void note(const LevelLine& line, std::size_t index);

    std::string m_bytes;
    int m_package_count;
    std::vector<LevelLine> m_lines;
    std::map<int, LevelPackage> m_packages;
    std::optional<std::size_t> m_output_line;
    std::optional<std::size_t> m_size_limit_line;
    std::optional<std::size_t> m_cut_line;
    int m_output = 0;
    bool m_to_debugger = false;
    std::uint32_t m_size_limit = 0;
};

/// Whom a rule is for: lists as in RuleText, each entry one that can stand in the file.
struct RuleFilters
{
    std::vector<std::string> lists[4]; ///< places as in RuleList

    bool empty() const noexcept;
    bool operator==(const RuleFilters& other) const; ///< whatever the order of the entries
};

/// What a rule's text says it is for.
RuleFilters filters_of(std::string_view rule);

/// "7;192.0.2.7;viewer", a rule without its parentheses.
std::string rule_text(int level, const RuleFilters& filters);

/// True when an entry of a list of a rule reads back as it is written.
bool is_writable(RuleList list, std::string_view entry) noexcept;

/// True when a rule, as far as its text tells, counts for anybody: a level from 1 to 7 and an entry in some list.
bool can_count(std::string_view rule);

/// A change of one line, for who keeps a history and takes it back.
struct LineChange
{
    static constexpr int OUTPUT = -1;
    static constexpr int SIZE_LIMIT = -2;

    int what = OUTPUT;                 ///< a package's number, or one of the two above
    std::size_t line = 0;              ///< its index when it was made
    std::optional<std::string> before; ///< nothing: the line is new
    std::optional<std::string> after;  ///< nothing: the line went
};

enum class EditProblem
{
    NONE,
    NO_CHANGE,        ///< the file says so already
    NO_FIRST_LINES,   ///< without output and size limit a line that is added would be taken for one of them
    LINE_IS_LOST,     ///< a package line is taken for the size limit, and would count if that got a line of its own
    LINE_TOO_LONG,    ///< the line would have more characters than the reader takes
    TOO_MANY_RULES,   ///< the rule would be one too many
    TOO_MANY_ENTRIES, ///< a list would have one too many
    NOT_WRITABLE,     ///< an entry has a character that cannot stand in a rule
    NO_SUCH_RULE,
    NO_SUCH_PACKAGE,
    NO_OTHER_WAY, ///< what other lines say depends on this one, or the reader would not come to it
    CHANGED_SINCE ///< what was to be taken back is not there any more
};

/// What became of an edit: the whole new file, or why there is none.
struct LevelEdit
{
    EditProblem problem = EditProblem::NONE;
    std::size_t line = 0; ///< of the problem
    std::string bytes = {};
    LineChange change = {};

    explicit operator bool() const noexcept { return problem == EditProblem::NONE; }
};

/// What a package is called and has when a line has to be made for it.
struct NewPackage
{
    std::string name;
    int level;
};

// The edits. Each leaves every byte outside of one line as it is, and is looked at again by the reader's own eyes: the
// package has what was asked for, and nothing else that the file says has changed.

/// Gives the package a level of its own, 0 to 7; makes a line where there is none, behind the last package.
LevelEdit set_level(const LevelFile& file, int package, int level, const NewPackage& made);

/// Gives the package a rule with these filters, or the one that it has this level.
LevelEdit set_rule(const LevelFile& file, int package, int level, const RuleFilters& filters, const NewPackage& made);

/// Takes away the rules with exactly these filters; where there is none, the filters' entries from the rules that have
/// them beside others of the same list.
LevelEdit clear_rule(const LevelFile& file, int package, const RuleFilters& filters);

/// Takes away all rules of the package.
LevelEdit clear_rules(const LevelFile& file, int package);

/// 0 to 3.
LevelEdit set_output(const LevelFile& file, int output);

/// In megabytes; 0: none.
LevelEdit set_size_limit(const LevelFile& file, std::uint32_t megabytes);

/// Takes a change back: the line as it was before, where it is as it was left; else just what the change made of it,
/// level and rules each by itself, so that what others did to the line since stays.
LevelEdit take_back(const LevelFile& file, const LineChange& change);
} // namespace kor::core

#endif // KOR_CORE_LEVEL_FILE_H
