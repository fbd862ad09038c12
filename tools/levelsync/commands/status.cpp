// status: what is in force now, on one screen. What LevelSync without a command shows.

#include <windows.h>

#include "change.h"
#include "command.h"
#include "failure.h"
#include "file.h"
#include "override.h"
#include "packages.h"
#include "site/view.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::size_t MOST_PACKAGES = 25; // of a screen; list shows all
constexpr std::size_t MOST_RULES = 3;

struct Status
{
    std::optional<std::string> bytes; ///< of the file
    Conf file;
    Running running;
    std::vector<std::string> differences;
};

Status look(const Folder& folder)
{
    Status status;
    status.bytes = read_whole(folder.file);
    if (status.bytes)
        status.file = read_conf(folder.file);
    status.running = read_running();
    if (status.file && status.running.conf)
        status.differences = texts_of(differences(*status.running.conf, *status.file));
    return status;
}

std::string shared_text(const Running& running)
{
    if (running.conf)
        return running.is_of_machine ? "by all processes of the machine"
                                     : "by the processes of this Windows session alone";
    if (running.error == ERROR_FILE_NOT_FOUND)
        return "by nobody: no process uses the library now, and those that start read the file";
    return "cannot be read: " + system_text(running.error);
}

class ShowStatus final : public Command
{
public:
    void declare(Options&) override {}

    ExitCode run(Tool& tool) override
    {
        const Status status = look(tool.folder);
        const History history(tool.folder);
        if (tool.json)
            tool.print(json_of(tool, status, history));
        else
            print(tool, status, history);
        return status.bytes || status.running.conf ? DONE : NOT_DONE;
    }

    ExitCode run_on_site(Tool& tool) override { return show_site_status(tool); }

private:
    static Json json_of(const Tool& tool, const Status& status, const History& history)
    {
        const Kor_LogConf* const conf = status.running.conf ? status.running.conf.get() : status.file.get();
        Json json;
        json["file"] = utf8(tool.folder.file);
        json["file_exists"] = status.bytes.has_value();
        json["running"] = status.running.conf != nullptr;
        json["block"] = status.running.block;
        json["agrees"] = status.file && status.running.conf ? Json(status.differences.empty()) : Json();
        json["differences"] = status.differences;
        json["packages"] = Json::array();
        json["overrides"] = Json::array();
        for (const Change* const change : history.overrides())
            json["overrides"].push_back(levelsync::json_of(*change));
        if (conf == nullptr)
            return json;
        json["output"] = output_of(*conf);
        json["size_limit_in_mb"] = conf->sizeLimitInMb;
        for (const int package : special_packages(*conf))
        {
            Json rules = Json::array();
            for (const Kor_LogLevelRule* const rule : rules_of(*conf, package))
                rules.push_back({{"level", rule->logLevel}, {"for", whom_text(*rule)}});
            json["packages"].push_back(
                {{"package", package},
                 {"name", package_text(*conf, package)},
                 {"level", conf->packageLevels[package]},
                 {"rules", rules}});
        }
        return json;
    }

    /// Those that are not as every package is by default.
    static std::vector<int> special_packages(const Kor_LogConf& conf)
    {
        std::vector<int> packages;
        for (int package = 0; package < PACKAGE_COUNT; ++package)
            if (conf.packageLevels[package] != Kor_LogConf::DEFAULT_LEVEL || !rules_of(conf, package).empty())
                packages.push_back(package);
        return packages;
    }

    static void print(const Tool& tool, const Status& status, const History& history)
    {
        Console& console = tool.console;
        const auto row = [&console](const char* title, const std::string& text, Style style = Style::PLAIN)
        {
            console.print(padded(title, 12), Style::STRONG);
            console.line(text, style);
        };
        row("File", shown(utf8(tool.folder.file)) + (status.bytes ? "" : " (there is none)"),
            status.bytes ? Style::PLAIN : Style::BAD);
        if (!tool.folder.is_given)
            row("", "PRISMATE_LOG_DIR is not set here; --dir FOLDER names the servers' folder", Style::CAREFUL);
        row("Shared", shared_text(status.running), status.running.conf ? Style::PLAIN : Style::CAREFUL);
        const Kor_LogConf* const conf = status.running.conf ? status.running.conf.get() : status.file.get();
        if (conf != nullptr)
        {
            row("Output", output_text(output_of(*conf)));
            row("Size limit", limit_text(conf->sizeLimitInMb));
        }
        if (status.file && status.running.conf)
            row("Agreement",
                status.differences.empty()
                    ? "the file and what runs agree"
                    : "the file and what runs differ in " + counted(status.differences.size(), "point", "points") +
                          "; LevelSync diff shows them",
                status.differences.empty() ? Style::GOOD : Style::CAREFUL);
        if (conf != nullptr)
            print_packages(console, *conf);
        print_overrides(console, history);
    }

    static void print_packages(Console& console, const Kor_LogConf& conf)
    {
        const std::vector<int> packages = special_packages(conf);
        console.line();
        if (packages.empty())
            return console.line("All packages have the default level, 4 warning.");
        console.line("Packages that differ from the default, 4 warning:", Style::STRONG);
        std::size_t width = 0;
        std::size_t shown_packages = std::min(packages.size(), MOST_PACKAGES);
        for (std::size_t i = 0; i < shown_packages; ++i)
            width = std::max(width, columns_of(package_text(conf, packages[i])));
        for (std::size_t i = 0; i < shown_packages; ++i)
        {
            const int package = packages[i];
            console.print("  " + padded(std::to_string(package), 5) + padded(package_text(conf, package), width + 2));
            const std::string level = level_text(conf.packageLevels[package]);
            const std::string rules = rules_text(conf, package);
            console.line(rules.empty() ? level : padded(level, 11) + rules);
        }
        if (packages.size() > shown_packages)
            console.line(
                "  ... and " + counted(packages.size() - shown_packages, "further one", "further ones") +
                "; LevelSync list shows all.");
    }

    static std::string rules_text(const Kor_LogConf& conf, int package)
    {
        std::string text;
        std::size_t count = 0;
        for (const Kor_LogLevelRule* const rule : rules_of(conf, package))
            if (count++ < MOST_RULES)
                text += (text.empty() ? "" : "; ") + std::to_string(rule->logLevel) + " for " + whom_text(*rule);
        return count <= MOST_RULES ? text
                                   : text + "; and " + counted(count - MOST_RULES, "further rule", "further rules");
    }

    static void print_overrides(Console& console, const History& history)
    {
        const auto overrides = history.overrides();
        if (overrides.empty())
            return;
        console.line();
        console.line("Overrides, taken back at their end or by LevelSync undo N:", Style::STRONG);
        for (const Change* const change : overrides)
        {
            console.print("  " + padded(std::to_string(change->id), 5));
            console.print(until_text(*change->until), Style::CAREFUL);
            console.line(": " + joined(change->effects, ", ") + " (" + change->user + " on " + change->machine + ")");
        }
    }
};
} // namespace

extern const CommandEntry command_status{
    "status", "What is in force now; also without a command", "LevelSync", &make_command<ShowStatus>};
} // namespace levelsync
