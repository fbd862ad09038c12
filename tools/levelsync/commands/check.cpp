// check: what is read differently than it looks.

#include "core/level_check.h"

#include "command.h"
#include "failure.h"
#include "file.h"
#include "filters.h"
#include "site/view.h"
#include "text.h"

namespace levelsync
{
namespace
{
using kor::core::Finding;
using kor::core::Oddity;

class Check final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("FILE", m_file, "Another file than the level file of the folder");
    }

    ExitCode run(Tool& tool) override
    {
        const std::wstring path = m_file.empty() ? tool.folder.file : wide(m_file);
        const auto bytes = read_whole(path);
        if (!bytes)
            throw Failure(
                "There is no file " + shown(utf8(path)) + ".",
                "Name the file, or its folder with --dir FOLDER; or set PRISMATE_LOG_DIR as the servers have it.");
        const kor::core::LevelFile file(*bytes);
        const std::vector<Finding> findings = kor::core::check_level_file(
            file, [](std::string_view host) { return resolves(std::string(host)) ? 1 : 0; });
        if (tool.json)
            print_json(tool, file, findings, path);
        else
            print(tool.console, file, findings, path);
        for (const Finding& finding : findings)
            if (finding.oddity == Oddity::WRONG)
                return NOT_DONE;
        return DONE;
    }

    ExitCode run_on_site(Tool& tool) override { return check_site(tool); }

private:
    static std::string_view line_of(const kor::core::LevelFile& file, const Finding& finding)
    {
        return finding.line < file.lines().size() ? file.lines()[finding.line].text : std::string_view();
    }

    /// Characters, as editors count them, from 1.
    static std::size_t column_of(const kor::core::LevelFile& file, const Finding& finding)
    {
        return columns_of(line_of(file, finding).substr(0, finding.column)) + 1;
    }

    static void print_json(
        const Tool& tool, const kor::core::LevelFile& file, const std::vector<Finding>& findings,
        const std::wstring& path)
    {
        Json rows = Json::array();
        for (const Finding& finding : findings)
            rows.push_back(
                {{"line", finding.line + 1},
                 {"column", column_of(file, finding)},
                 {"severity", finding.oddity == Oddity::WRONG ? "wrong" : "doubtful"},
                 {"text", shown(line_of(file, finding))},
                 {"what", shown(finding.what)},
                 {"instead", shown(finding.instead)}});
        tool.print({{"file", utf8(path)}, {"findings", rows}});
    }

    static void print(
        Console& console, const kor::core::LevelFile& file, const std::vector<Finding>& findings,
        const std::wstring& path)
    {
        for (const Finding& finding : findings)
        {
            const bool is_wrong = finding.oddity == Oddity::WRONG;
            console.print(
                "line " + std::to_string(finding.line + 1) + ", column " + std::to_string(column_of(file, finding)) +
                    ": ",
                Style::STRONG);
            console.line(shown(finding.what), is_wrong ? Style::BAD : Style::CAREFUL);
            const std::string text = shown(line_of(file, finding));
            if (!text.empty())
                console.line("    " + text, Style::FAINT);
            console.line("    " + shown(finding.instead));
        }
        const std::string name = shown(utf8(path));
        if (findings.empty())
            console.line(name + " is read as it looks.", Style::GOOD);
        else
            console.line(name + ": " + counted(findings.size(), "line", "places") + " to look at.");
    }

    std::string m_file;
};
} // namespace

extern const CommandEntry command_check{
    "check", "What in the file is read differently than it looks; exit code 1 where something does not count",
    "LevelSync check", &make_command<Check>};
} // namespace levelsync
