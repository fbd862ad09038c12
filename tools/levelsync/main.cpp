// LevelSync: shows and changes what the processes of a machine log, while they run.

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "command.h"
#include "console.h"
#include "failure.h"
#include "override.h"
#include "text.h"
#include "tool.h"

KOR_TOOL_PROGRAM;

#if defined(__MINGW32__)
extern "C"
{
    int _dowildcard = 0; // patterns are for packages, not for the files that happen to lie around
}
#endif

using namespace levelsync;

namespace
{
constexpr char PURPOSE[] = "Shows and changes what the programs of this machine write to their logs, while they run.\n"
                           "Without a command: what is in force now.";
constexpr char LEVELS[] = "Levels: 1 severe, 2 critical, 3 error, 4 warning, 5 notice, 6 info, 7 debug (0 none).\n"
                          "The level file is `logger` in the folder that PRISMATE_LOG_DIR or --dir names.\n"
                          "Exit codes: 0 done, 1 not done, 2 wrong call.";

/// What is asked for, as a line that could be typed.
std::string command_line(const std::vector<std::string>& words)
{
    std::string line = "LevelSync";
    for (const std::string& word : words)
        line += word.find_first_of(" \t") == std::string::npos && !word.empty() ? ' ' + word : " \"" + word + '"';
    return line;
}

struct SharedOptions
{
    bool json = false;
    std::string folder;
    std::string site;
    std::string credentials;
};

void add_shared_options(CLI::App& app, SharedOptions& options)
{
    app.add_flag("--json", options.json, "Report for programs, as JSON");
    app.add_option("--dir", options.folder, "Folder of the level file")->type_name("FOLDER");
    app.add_option(
           "--site", options.site, "A site of many machines instead: file:FOLDER or etcd:http://HOST:PORT/PREFIX")
        ->type_name("ADDRESS");
    app.add_option("--credentials", options.credentials, "User and password for the site, a line each")
        ->type_name("FILE");
}

int report(Console& console, const Failure& failure, bool json)
{
    console.error(failure.what(), Style::BAD);
    if (!failure.next().empty())
        console.error(failure.next());
    if (json)
        console.print(Json{{"error", failure.what()}, {"next", failure.next()}}.dump(2) + '\n');
    return failure.code();
}

/// What the log's own text and the fingers of who knows it say.
void translate_short_forms(std::vector<std::string>& words)
{
    if (words.empty())
        return;
    if (words.front() == "-u")
        words.front() = "publish";
    if (words.front() == "help") // help set: set --help
    {
        words.erase(words.begin());
        words.push_back("--help");
    }
    for (std::string& word : words)
        if (word == "/?" || word == "-?")
            word = "--help";
}

/// What somebody may have meant who wrote one dash in front of a long name.
std::string meant(const std::vector<std::string>& words)
{
    for (const std::string& word : words)
        if (word.size() > 2 && word[0] == '-' && std::isalpha(static_cast<unsigned char>(word[1])) != 0)
            return "Names of more than a letter have two dashes: -" + word + "? ";
    return {};
}

int run(std::vector<std::string> words, Console& console)
{
    const std::string typed = command_line(words);
    const std::string hint = meant(words);
    translate_short_forms(words);

    CLI::App app(PURPOSE, "LevelSync");
    SharedOptions options;
    app.footer(LEVELS);
    app.set_version_flag("--version", std::string("LevelSync ") + LUMLOG_VERSION);
    app.require_subcommand(0, 1);
    add_shared_options(app, options);
    std::vector<std::pair<CLI::App*, std::unique_ptr<Command>>> commands;
    for (const CommandEntry* const entry : all_commands())
    {
        CLI::App* const sub = app.add_subcommand(entry->name, entry->summary == nullptr ? "" : entry->summary);
        if (entry->summary == nullptr)
            sub->group("");
        commands.emplace_back(sub, entry->make());
        // A command is called by its name: the options of all of them would take a millisecond of each call.
        if (std::find(words.begin(), words.end(), entry->name) == words.end())
            continue;
        sub->footer(std::string("Example:\n  ") + entry->example);
        add_shared_options(*sub, options);
        Options own(*sub);
        commands.back().second->declare(own);
    }

    try
    {
        std::reverse(words.begin(), words.end());
        app.parse(std::move(words));
    }
    catch (const CLI::CallForHelp&)
    {
        const auto chosen = app.get_subcommands();
        console.print(chosen.empty() ? app.help() : chosen.front()->help("LevelSync"));
        return DONE;
    }
    catch (const CLI::CallForVersion& version)
    {
        console.line(version.what());
        return DONE;
    }
    catch (const CLI::ParseError& error)
    {
        const auto chosen = app.get_subcommands();
        const std::string name = chosen.empty() ? std::string() : ' ' + chosen.front()->get_name();
        throw Failure(
            error.what(), hint + "LevelSync" + name + " --help shows how it is called, with an example.", WRONG_CALL);
    }

    Tool tool{console,        options.json, find_folder(options.folder), typed,
              LUMLOG_VERSION, options.site, options.credentials};
    Command* chosen = commands.front().second.get(); // the first is the one that needs no name
    for (const auto& [sub, command] : commands)
        if (sub->parsed())
            chosen = command.get();
    if (!tool.site.empty())
        return chosen->run_on_site(tool);
    if (!app.got_subcommand("keep"))
        take_back_due(tool);
    return chosen->run(tool);
}
} // namespace

int wmain(int count, wchar_t** values)
{
    std::vector<std::string> words;
    for (int i = 1; i < count; ++i)
        words.push_back(utf8(values[i]));
    const bool json = std::find(words.begin(), words.end(), "--json") != words.end();
    Console console;
    try
    {
        return run(std::move(words), console);
    }
    catch (const Failure& failure)
    {
        return report(console, failure, json);
    }
    catch (const std::exception& error)
    {
        return report(
            console, Failure(std::string("LevelSync ran into ") + error.what() + ".", "Please tell its makers."), json);
    }
}
