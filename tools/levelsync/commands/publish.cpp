// publish, -u: gives a file to all processes.

#include <windows.h>

#include "change.h"
#include "command.h"
#include "core/level_check.h"
#include "failure.h"
#include "file.h"
#include "filters.h"
#include "site/site_change.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr int MOST_READINGS = 10;

std::wstring absolute(const std::wstring& path)
{
    std::wstring result(32'768, L'\0');
    result.resize(::GetFullPathNameW(path.c_str(), static_cast<DWORD>(result.size()), result.data(), nullptr));
    return result;
}

class Publish final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("FILE", m_file, "Another file than the level file of the folder");
        options.add_flag(
            "--force", m_force, "Also a file with lines that do not count, or one that is not there (defaults)");
        options.add_flag("--dry-run", m_dry_run, "Say what would change, and change nothing");
        options.add_option("--group", m_group, "With --site: as the section of that group of machines")
            ->type_name("NAME");
        add_reason_option(options, m_reason);
    }

    ExitCode run(Tool& tool) override
    {
        if (!m_group.empty())
            throw Failure("Groups are of a site.", "Name it with --site ADDRESS.", WRONG_CALL);
        const std::wstring path = m_file.empty() ? tool.folder.file : absolute(wide(m_file));
        const Conf conf = read(tool, path);
        Outcome outcome;
        if (m_dry_run)
        {
            const Running running = read_running();
            require_readable(running);
            outcome.is_running = running.conf != nullptr;
            if (running.conf)
                outcome.effects = texts_of(differences(*running.conf, *conf));
        }
        else
        {
            outcome = publish_file(tool, *conf, tool.command_line, utf8(path));
        }
        if (tool.json)
            tool.print(
                {{"file", utf8(path)},
                 {"published", outcome.is_running && !m_dry_run},
                 {"running", outcome.is_running},
                 {"id", outcome.id != 0 ? Json(outcome.id) : Json()},
                 {"effects", outcome.effects}});
        else
            print(tool.console, outcome, shown(utf8(path)));
        return DONE;
    }

    /// A file becomes the site's base file, or the section of a group.
    ExitCode run_on_site(Tool& tool) override
    {
        if (m_file.empty() || m_force)
            throw Failure(
                "A site gets a file that is named, and none that does not count as it looks.",
                "LevelSync --site ... publish FILE", WRONG_CALL);
        const auto bytes = read_whole(absolute(wide(m_file)));
        if (!bytes)
            throw Failure("There is no file " + shown(m_file) + ".", "Nothing was changed.");
        const std::string problem = m_group.empty() ? kor::core::problem_of_site_base(*bytes)
                                                    : kor::core::problem_of_site_section({m_group, *bytes});
        if (!problem.empty())
            throw Failure(shown(problem), "Nothing was changed: every machine would refuse that.");
        const SiteChangeOptions options{m_dry_run, m_reason, {}, {}};
        const auto store = open_site(tool);
        const auto editing = [&](SiteEditor& editor)
        {
            if (m_group.empty())
                editor.replace_base(*bytes);
            else
                editor.replace_section(m_group, *bytes);
        };
        report(tool, change_site(tool, *store, editing, options), options);
        return DONE;
    }

private:
    /// What the library makes of the file, after a look at what it cannot make anything of.
    Conf read(const Tool& tool, const std::wstring& path) const
    {
        for (int readings = 0; readings < MOST_READINGS; ++readings)
        {
            const auto bytes = read_whole(path);
            if (!bytes)
            {
                if (m_force)
                    return std::make_unique<Kor_LogConf>();
                throw Failure(
                    "There is no file " + shown(utf8(path)) + ".",
                    "Nothing was published: without a file every process would write to standard error, at level 4. "
                    "Name the file, or its folder with --dir FOLDER. (--force publishes those defaults.)");
            }
            refuse_what_does_not_count(tool, kor::core::LevelFile(*bytes));
            Conf conf = read_conf(path);
            if (read_whole(path) == bytes)
                return conf;
        }
        throw Failure(
            "Another program keeps writing to " + shown(utf8(path)) + ".",
            "Nothing was published. Close the editor that has it open, and try again.");
    }

    void refuse_what_does_not_count(const Tool& tool, const kor::core::LevelFile& file) const
    {
        std::size_t wrong = 0;
        std::string first;
        for (const kor::core::Finding& finding : kor::core::check_level_file(
                 file, [](std::string_view host) { return resolves(std::string(host)) ? 1 : 0; }))
        {
            if (finding.oddity != kor::core::Oddity::WRONG)
                continue;
            const std::string text = "line " + std::to_string(finding.line + 1) + ": " + shown(finding.what);
            if (wrong++ == 0)
                first = text;
            if (m_force)
                tool.console.error(text, Style::CAREFUL);
        }
        if (wrong == 0 || m_force)
            return;
        const std::string others =
            wrong == 1 ? "" : " (And " + counted(wrong - 1, "further one", "further ones") + ".)";
        throw Failure(
            "The file has a line that is read differently than it looks, " + first + others,
            "Nothing was published. LevelSync check shows what to write instead; --force publishes the file as it is.");
    }

    void print(Console& console, const Outcome& outcome, const std::string& name) const
    {
        if (!outcome.is_running)
            return console.line("No process shares a configuration now; those that start read the file.");
        for (const std::string& effect : outcome.effects)
            console.line((m_dry_run ? "Would change: " : "Changed: ") + effect, Style::STRONG);
        const std::string same = outcome.effects.empty() ? "; it says what runs already" : "";
        console.line((m_dry_run ? "Not published: " : "Published: ") + name + same + '.');
    }

    std::string m_file;
    std::string m_group;
    std::string m_reason;
    bool m_force = false;
    bool m_dry_run = false;
};
} // namespace

extern const CommandEntry command_publish{
    "publish", "Gives the file to all processes; -u for short", "LevelSync -u", &make_command<Publish>};
} // namespace levelsync
