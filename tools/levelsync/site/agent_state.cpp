#include "site/agent_state.h"

#include <algorithm>

#include "failure.h"
#include "file.h"

namespace levelsync
{
namespace
{
constexpr wchar_t FILE_NAME[] = L"logger.site";
constexpr std::size_t MOST_STORES = 8;

Json json_of_wish(const kor::core::SiteWish& wish)
{
    Json json;
    json["base"] = wish.base ? Json(*wish.base) : Json();
    json["groups"] = Json::array();
    for (const auto& section : wish.groups)
        json["groups"].push_back({{"name", section.name}, {"text", section.text}});
    json["overrides"] = Json::array();
    for (const auto& over : wish.overrides)
        json["overrides"].push_back({{"id", over.id}, {"document", document_of(over)}});
    return json;
}

kor::core::SiteWish wish_of_json(const Json& json)
{
    kor::core::SiteWish wish;
    if (!json.at("base").is_null())
        wish.base = json.at("base").get<std::string>();
    for (const Json& section : json.at("groups"))
        wish.groups.push_back({section.at("name").get<std::string>(), section.at("text").get<std::string>()});
    for (const Json& over : json.at("overrides"))
        wish.overrides.push_back(
            read_override(over.at("id").get<std::string>(), over.at("document").get<std::string>()));
    return wish;
}

Json json_of(const AgentState& state)
{
    Json json;
    json["site"] = state.site;
    json["state"] = state.mark.state;
    json["store"] = state.mark.store;
    json["position"] = state.mark.position;
    json["positions"] = state.positions;
    json["wish"] = state.wish ? json_of_wish(*state.wish) : Json();
    json["applied"] = state.applied;
    json["applied_at"] = state.applied_at ? Json(*state.applied_at) : Json();
    json["left"] = state.left;
    json["kept"] = state.kept;
    json["changed_since"] = state.changed_since ? Json(*state.changed_since) : Json();
    return json;
}

AgentState state_of(const Json& json)
{
    AgentState state;
    state.site = json.at("site").get<std::string>();
    state.mark = {
        json.at("state").get<std::string>(), json.at("store").get<std::string>(),
        json.at("position").get<std::int64_t>()};
    for (const Json& one : json.at("positions"))
        state.positions.emplace_back(one.at(0).get<std::string>(), one.at(1).get<std::int64_t>());
    if (!json.at("wish").is_null())
        state.wish = wish_of_json(json.at("wish"));
    state.applied = json.at("applied").get<std::uint64_t>();
    if (!json.at("applied_at").is_null())
        state.applied_at = json.at("applied_at").get<Time>();
    state.left = json.at("left").get<std::string>();
    state.kept = json.at("kept").get<std::vector<long long>>();
    if (!json.at("changed_since").is_null())
        state.changed_since = json.at("changed_since").get<Time>();
    return state;
}
} // namespace

std::int64_t AgentState::position_of(const std::string& store) const
{
    for (const auto& [name, position] : positions)
        if (name == store)
            return position;
    return 0;
}

void AgentState::note_position(const SiteMark& seen)
{
    if (seen.store.empty())
        return;
    positions.erase(
        std::remove_if(
            positions.begin(), positions.end(), [&seen](const auto& one) { return one.first == seen.store; }),
        positions.end());
    positions.emplace_back(seen.store, seen.position);
    if (positions.size() > MOST_STORES)
        positions.erase(positions.begin());
}

AgentState load_agent_state(const Folder& folder, const std::string& site)
{
    AgentState none;
    none.site = site;
    const auto bytes = read_whole(folder.name(FILE_NAME));
    if (!bytes)
        return none;
    try
    {
        AgentState state = state_of(Json::parse(*bytes));
        return state.site == site ? std::move(state) : none;
    }
    catch (const Json::exception&)
    {
        return none;
    }
    catch (const Failure&) // of an override that can be none
    {
        return none;
    }
}

bool takes_part(const Folder& folder, const std::string& site)
{
    const auto bytes = read_whole(folder.name(FILE_NAME));
    const Json json = Json::parse(bytes.value_or(std::string()), nullptr, false);
    if (!json.is_object() || json.value("applied_at", Json()).is_null())
        return false;
    const Json own = json.value("site", Json());
    return own.is_string() &&
           kor::core::read_site_address(own.get<std::string>()).text() == kor::core::read_site_address(site).text();
}

void save_agent_state(const Folder& folder, const AgentState& state)
{
    const std::string bytes = json_of(state).dump(1, ' ', false, Json::error_handler_t::replace) + '\n';
    Replacement(folder.name(FILE_NAME), bytes).put_in_place();
}
} // namespace levelsync
