#include "site/documents.h"

#include <cstdio>
#include <limits>

#include "history.h"
#include "site/refusal.h"
#include "text.h"

namespace levelsync
{
namespace
{
using kor::core::SiteOverride;

constexpr const char* LISTS[] = {"clients", "applications", "processes", "sessions"}; // as in RuleList
constexpr std::size_t MOST_ENTRIES = 10;
constexpr std::size_t MOST_ENTRY_BYTES = 256;

std::string text_of(const Json& json, const char* name)
{
    const auto found = json.find(name);
    if (found == json.end())
        return {};
    if (!found->is_string())
        throw Refusal(std::string(name) + " is no text");
    return found->get<std::string>();
}

int number_of(const Json& json, const char* name)
{
    const auto found = json.find(name);
    if (found == json.end() || !found->is_number_integer() || found->get<std::int64_t>() < 0 ||
        found->get<std::int64_t>() > std::numeric_limits<int>::max())
        throw Refusal(std::string(name) + " is no number");
    return found->get<int>();
}

Time time_of(const Json& json, const char* name)
{
    const auto time = read_utc(text_of(json, name));
    if (!time)
        throw Refusal(std::string(name) + " is no time as 2026-11-22T14:05:00.000Z");
    return *time;
}

std::vector<std::string> entries_of(const Json& json, const char* name)
{
    std::vector<std::string> entries;
    const auto found = json.find(name);
    if (found == json.end())
        return entries;
    if (!found->is_array() || found->size() > MOST_ENTRIES)
        throw Refusal(std::string(name) + " is no list of at most ten");
    for (const Json& entry : *found)
    {
        if (!entry.is_string() && !entry.is_number_unsigned())
            throw Refusal(std::string(name) + " has an entry that can be none");
        entries.push_back(entry.is_string() ? entry.get<std::string>() : std::to_string(entry.get<std::uint64_t>()));
        if (entries.back().size() > MOST_ENTRY_BYTES)
            throw Refusal(std::string(name) + " has an entry that is too long");
    }
    return entries;
}

SiteOverride override_of(const Json& json, const std::string& id)
{
    if (!json.is_object())
        throw Refusal("it is no object of JSON");
    SiteOverride over;
    over.id = id;
    over.package = number_of(json, "package");
    if (over.package >= 750)
        throw Refusal("there is no package " + std::to_string(over.package));
    over.name = text_of(json, "name");
    over.level = number_of(json, "level");
    for (std::size_t list = 0; list < std::size(LISTS); ++list)
        over.filters.lists[list] = entries_of(json, LISTS[list]);
    over.author = text_of(json, "author");
    over.machine = text_of(json, "machine");
    over.reason = text_of(json, "reason");
    over.made = time_of(json, "made");
    over.until = time_of(json, "until");
    return over;
}

Json list_of(const std::vector<SiteOverride>& overrides)
{
    Json list = Json::array();
    for (const SiteOverride& over : overrides)
        list.push_back(json_of(over));
    return list;
}

std::vector<SiteOverride> overrides_of(const Json& json, const char* name)
{
    std::vector<SiteOverride> overrides;
    for (const Json& one : json.at(name))
        overrides.push_back(override_of(one, text_of(one, "id")));
    return overrides;
}

std::vector<std::string> texts_at(const Json& json, const char* name)
{
    std::vector<std::string> texts;
    const auto found = json.find(name);
    if (found != json.end() && found->is_array())
        for (const Json& one : *found)
            if (one.is_string())
                texts.push_back(shown(one.get<std::string>()));
    return texts;
}

std::string text_at(const Json& json, const char* name)
{
    const auto found = json.find(name);
    return found != json.end() && found->is_string() ? shown(found->get<std::string>()) : std::string();
}
} // namespace

// Overrides -----------------------------------------------------------------------------------------------
Json json_of(const SiteOverride& over)
{
    Json json;
    json["id"] = over.id;
    json["package"] = over.package;
    json["name"] = over.name;
    json["level"] = over.level;
    for (std::size_t list = 0; list < std::size(LISTS); ++list)
        json[LISTS[list]] = over.filters.lists[list];
    json["author"] = over.author;
    json["machine"] = over.machine;
    json["reason"] = over.reason;
    json["made"] = utc_text(over.made);
    json["until"] = utc_text(over.until);
    return json;
}

std::string document_of(const SiteOverride& over)
{
    return json_of(over).dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

SiteOverride read_override(const std::string& id, const std::string& bytes)
{
    const std::string whose = "Override " + shown(id).substr(0, kor::core::MOST_SITE_NAME_CHARACTERS) + ": ";
    if (bytes.size() > kor::core::MOST_SITE_OVERRIDE_BYTES)
        throw Refusal(
            whose + "it has " + std::to_string(bytes.size()) + " bytes; " +
            std::to_string(kor::core::MOST_SITE_OVERRIDE_BYTES) + " are the most.");
    try
    {
        return override_of(Json::parse(bytes, nullptr, false), id);
    }
    catch (const Failure& failure)
    {
        throw Refusal(whose + failure.what() + '.');
    }
}

kor::core::SiteWish wish_of(const SiteRead& read, const std::vector<std::string>& groups)
{
    kor::core::SiteWish wish;
    for (const std::string& group : groups)
        for (const SiteValue& value : read.values)
            if (value.key == "groups/" + group)
                wish.groups.push_back({group, value.bytes});
    std::size_t overrides = 0;
    for (const SiteValue& value : read.values)
    {
        constexpr std::size_t FOLDER = 10; // "overrides/"
        if (value.key == "base")
            wish.base = value.bytes;
        if (value.key.compare(0, FOLDER, "overrides/") != 0)
            continue;
        if (++overrides > kor::core::MOST_SITE_OVERRIDES)
            throw Refusal(
                "The site has more than " + std::to_string(kor::core::MOST_SITE_OVERRIDES) + " overrides, the most.");
        wish.overrides.push_back(read_override(value.key.substr(FOLDER), value.bytes));
    }
    return wish;
}

std::vector<std::string> groups_of(const SiteRead& read)
{
    constexpr std::size_t FOLDER = 7; // "groups/"
    std::vector<std::string> groups;
    for (const SiteValue& value : read.values)
        if (value.key.compare(0, FOLDER, "groups/") == 0)
            groups.push_back(value.key.substr(FOLDER));
    return groups;
}

// Changes -------------------------------------------------------------------------------------------------
std::string history_key(long long id)
{
    char text[32];
    std::snprintf(text, sizeof text, "history/%010lld", id);
    return text;
}

Json json_of(const SiteChange& change)
{
    Json json;
    json["id"] = change.id;
    json["time"] = utc_text(change.time);
    json["user"] = change.user;
    json["machine"] = change.machine;
    json["command"] = change.command;
    json["reason"] = change.reason;
    if (change.until)
        json["until"] = utc_text(*change.until);
    if (change.takes_back)
        json["takes_back"] = *change.takes_back;
    json["lines"] = Json::array();
    for (const auto& line : change.lines)
        json["lines"].push_back(json_of(line));
    json["begun"] = list_of(change.begun);
    json["ended"] = list_of(change.ended);
    json["effects"] = change.effects;
    return json;
}

std::optional<SiteChange> read_site_change(const std::string& bytes)
{
    try
    {
        const Json json = Json::parse(bytes);
        SiteChange change;
        change.id = json.at("id").get<long long>();
        change.time = time_of(json, "time");
        change.user = text_of(json, "user");
        change.machine = text_of(json, "machine");
        change.command = text_of(json, "command");
        change.reason = text_of(json, "reason");
        if (json.contains("until"))
            change.until = time_of(json, "until");
        if (json.contains("takes_back"))
            change.takes_back = json.at("takes_back").get<long long>();
        for (const Json& line : json.at("lines"))
            change.lines.push_back(read_line_change(line));
        change.begun = overrides_of(json, "begun");
        change.ended = overrides_of(json, "ended");
        change.effects = json.at("effects").get<std::vector<std::string>>();
        return change;
    }
    catch (const Json::exception&)
    {
        return std::nullopt;
    }
    catch (const Failure&)
    {
        return std::nullopt;
    }
}

// Machines ------------------------------------------------------------------------------------------------
Json json_of(const MachineReport& report)
{
    Json json;
    json["machine"] = report.machine;
    json["groups"] = report.groups;
    json["version"] = report.version;
    json["folder"] = report.folder;
    json["state"] = report.state;
    json["applied"] = report.applied ? Json(utc_text(*report.applied)) : Json();
    json["said"] = utc_text(report.said);
    json["wrong"] = report.wrong;
    json["local"] = report.local;
    json["stopped"] = report.is_stopped;
    return json;
}

MachineReport read_report(const SiteMachine& machine)
{
    MachineReport report;
    report.machine = shown(machine.name);
    const Json json = Json::parse(machine.bytes, nullptr, false);
    if (!json.is_object())
    {
        report.wrong = {"What it says of itself cannot be read."};
        return report;
    }
    report.groups = texts_at(json, "groups");
    report.version = text_at(json, "version");
    report.folder = text_at(json, "folder");
    report.state = text_at(json, "state");
    report.applied = read_utc(text_at(json, "applied"));
    report.said = read_utc(text_at(json, "said")).value_or(0);
    report.wrong = texts_at(json, "wrong");
    report.local = texts_at(json, "local");
    const auto stopped = json.find("stopped");
    report.is_stopped = stopped != json.end() && stopped->is_boolean() && stopped->get<bool>();
    return report;
}
} // namespace levelsync
