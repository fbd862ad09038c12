#include "answers.h"

#include <map>

#include "Kor_LogFile.h"
#include "call.h"
#include "change.h"
#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::size_t LONGEST_REASON = 200; // characters

std::vector<std::string> group_options(const PageSubject& whom)
{
    std::vector<std::string> words;
    for (const std::string& group : whom.groups)
        words.push_back("--group=" + group);
    return words;
}

/// A word as a person types it.
std::string typed(const std::string& word)
{
    return word.find_first_of(" \t") == std::string::npos && !word.empty() ? word : '"' + word + '"';
}
} // namespace

Filters PageSubject::filters() const
{
    Filters filters;
    if (!client.empty())
        filters.clients.push_back(client);
    if (!application.empty())
        filters.applications.push_back(application);
    if (session)
        filters.sessions.push_back(*session);
    return filters;
}

std::vector<std::string> options_for(const PageSubject& whom)
{
    std::vector<std::string> words;
    if (!whom.client.empty())
        words.push_back("--client=" + whom.client);
    if (!whom.application.empty())
        words.push_back("--app=" + whom.application);
    if (whom.session)
        words.push_back("--session=" + std::to_string(*whom.session));
    return words;
}

void add_packages(const Tool& tool, const PageSubject& whom, Json& state)
{
    const std::vector<std::string> groups = group_options(whom);
    std::map<int, int> levels;
    try
    {
        static_cast<void>(whom.filters().for_rule()); // says what is wrong with a name or an address
        std::vector<std::string> words = options_for(whom);
        words.insert(words.end(), groups.begin(), groups.end());
        words.emplace_back("*");
        const Json report = call(tool, "explain", words);
        for (const Json& answer : report["packages"])
            levels[answer["package"].get<int>()] = answer["level"].get<int>();
    }
    catch (const Failure& failure)
    {
        state["problem"] = {{"error", failure.what()}, {"next", failure.next()}};
    }
    const Json listed = call(tool, "list", groups);
    for (const Json& row : listed["packages"])
    {
        const auto level = levels.find(row["package"].get<int>());
        state["packages"].push_back(
            {{"package", row["package"]},
             {"name", row["name"]},
             {"comment", row["comment"]},
             {"own_level", row["level"]},
             {"level", level == levels.end() ? row["level"] : Json(level->second)}});
    }
}

Json explained(const Tool& tool, int package, const PageSubject& whom)
{
    std::vector<std::string> words = options_for(whom);
    for (std::string& word : group_options(whom))
        words.push_back(std::move(word));
    words.push_back(std::to_string(package));
    const Json report = call(tool, "explain", words);
    Json answer = report["packages"].at(0);
    answer["source"] = report["source"];
    return answer;
}

Json without_lines(Json change)
{
    change["has_lines"] = !change["lines"].empty();
    change.erase("lines");
    change.erase("file");
    return change;
}

std::string command_for(const PageRaise& wanted, const std::string& package_name)
{
    std::string text = "page: set " + typed(package_name.empty() ? std::to_string(wanted.package) : package_name) +
                       ' ' + level_name(wanted.level);
    if (!wanted.whom.client.empty())
        text += " --client " + typed(wanted.whom.client);
    if (!wanted.whom.application.empty())
        text += " --app " + typed(wanted.whom.application);
    if (wanted.whom.session)
        text += " --session " + std::to_string(*wanted.whom.session);
    return text + " --for " + wanted.length;
}

void check_reason(const std::string& reason)
{
    if (columns_of(reason) > LONGEST_REASON)
        throw Failure(
            "The reason has more than " + std::to_string(LONGEST_REASON) + " characters.",
            "Nothing was changed. Say it shorter.", WRONG_CALL);
}

int own_level(const kor::core::LevelFile& file, int package)
{
    const auto found = file.packages().find(package);
    return found == file.packages().end() ? Kor_LogConf::DEFAULT_LEVEL : found->second.level;
}

void refuse_to_raise(const std::string& package, int own)
{
    throw Failure(
        package + " has level " + level_text(own) + " for everybody already.",
        own < 7 ? "Nothing was changed. Choose a finer level." : "Nothing was changed: there is no finer level.");
}
} // namespace levelsync
