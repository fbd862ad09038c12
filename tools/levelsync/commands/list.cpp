// list: packages by number, name or comment.

#include <algorithm>

#include "change.h"
#include "command.h"
#include "core/numbers.h"
#include "file.h"
#include "packages.h"
#include "site/site_change.h"
#include "site/view.h"
#include "text.h"

namespace levelsync
{
namespace
{
struct Row
{
    int package;
    std::string name;
    int level;
    std::vector<std::string> rules; ///< "7 for client 192.0.2.7"
    std::string comment;
};

/// What stands behind the last field of a package's line.
std::string comment_of(const kor::core::LevelFile& file, int package)
{
    const auto found = file.packages().find(package);
    if (found == file.packages().end())
        return {};
    const kor::core::LevelLine& line = file.lines()[found->second.line];
    std::string_view rest = line.seen;
    const std::string_view rules = line.said.rules;
    if (!rules.empty())
    {
        rest = rest.substr(static_cast<std::size_t>(rules.data() + rules.size() - rest.data()));
    }
    else
    {
        std::int64_t number = 0;
        kor::core::take_word(rest);
        kor::core::take_number(rest, number);
        kor::core::take_number(rest, number);
    }
    while (!rest.empty() && kor::core::is_blank(rest.front()))
        rest.remove_prefix(1);
    return shown(rest);
}

Row row_of(const Kor_LogConf& conf, const PackageNames& names, const kor::core::LevelFile& file, int package)
{
    Row row{package, names.of(package), conf.packageLevels[package], {}, comment_of(file, package)};
    for (const Kor_LogLevelRule* const rule : rules_of(conf, package))
        row.rules.push_back(std::to_string(rule->logLevel) + " for " + whom_text(*rule));
    const std::string programs = names.programs(package);
    if (row.comment.empty() && !programs.empty())
        row.comment = "so called by " + programs;
    return row;
}

bool has_word(const Row& row, const std::string& word)
{
    const std::string pattern = '*' + word + '*';
    return std::to_string(row.package) == word || matches(pattern, row.name) || matches(pattern, row.comment);
}

class List final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("WORDS", m_words, "Numbers, patterns of names (Re*), or words of names and comments");
        options.add_flag("--all", m_all, "Also packages that have no name");
        add_groups_option(options, m_groups);
    }

    ExitCode run(Tool& tool) override
    {
        const auto bytes = read_whole(tool.folder.file);
        const Running running = read_running();
        if (!bytes && !running.conf)
            static_cast<void>(require_level_file(tool.folder)); // says what is missing
        const kor::core::LevelFile file(bytes.value_or(std::string()));
        const Conf from_file = running.conf ? nullptr : read_conf(tool.folder.file);
        const Kor_LogConf& conf = running.conf ? *running.conf : *from_file;
        const PackageNames names(tool.folder, &file, running.conf.get());
        return show(tool, conf, names, file, running.conf ? "running" : "file");
    }

    ExitCode run_on_site(Tool& tool) override
    {
        const auto store = open_site(tool);
        const SiteView view = view_site(*store, m_groups);
        const kor::core::LevelFile file(view.bytes);
        const PackageNames names(tool.folder, &file, nullptr);
        return show(tool, *view.conf, names, file, "site");
    }

private:
    ExitCode show(
        const Tool& tool, const Kor_LogConf& conf, const PackageNames& names, const kor::core::LevelFile& file,
        const char* source) const
    {
        std::vector<Row> rows;
        for (int package = 0; package < PACKAGE_COUNT; ++package)
        {
            if (!m_all && names.of(package).empty() && m_words.empty())
                continue;
            Row row = row_of(conf, names, file, package);
            const bool is_wanted =
                m_words.empty() ||
                std::any_of(
                    m_words.begin(), m_words.end(), [&row](const std::string& word) { return has_word(row, word); });
            if (is_wanted)
                rows.push_back(std::move(row));
        }
        if (tool.json)
            print_json(tool, rows, source);
        else
            print(tool.console, rows);
        return rows.empty() ? NOT_DONE : DONE;
    }

    static void print_json(const Tool& tool, const std::vector<Row>& rows, const char* source)
    {
        Json packages = Json::array();
        for (const Row& row : rows)
            packages.push_back(
                {{"package", row.package},
                 {"name", row.name},
                 {"level", row.level},
                 {"rules", row.rules},
                 {"comment", row.comment}});
        tool.print({{"source", source}, {"packages", packages}});
    }

    static void print(Console& console, const std::vector<Row>& rows)
    {
        if (rows.empty())
            return console.line(
                "No package has such a number, name or comment. LevelSync list shows all that have a name.");
        std::size_t name_width = 0;
        for (const Row& row : rows)
            name_width = std::max(name_width, columns_of(row.name));
        for (const Row& row : rows)
        {
            console.print(padded(std::to_string(row.package), 5));
            console.print(padded(row.name, name_width + 2), Style::STRONG);
            console.print(row.comment.empty() ? level_text(row.level) : padded(level_text(row.level), 11));
            console.line(row.comment, Style::FAINT);
            for (const std::string& rule : row.rules)
                console.line(std::string(name_width + 7, ' ') + rule);
        }
    }

    std::vector<std::string> m_words;
    bool m_all = false;
    std::vector<std::string> m_groups;
};
} // namespace

extern const CommandEntry command_list{
    "list", "Packages by number, name or comment", "LevelSync list replay", &make_command<List>};
} // namespace levelsync
