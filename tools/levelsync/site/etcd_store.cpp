#include "site/etcd_store.h"

#include <windows.h>

#include <algorithm>
#include <map>
#include <utility>

#include "core/numbers.h"
#include "core/site.h"
#include "failure.h"
#include "site/base64.h"
#include "site/refusal.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr std::size_t MOST_ANSWER_BYTES = 4 << 20;
constexpr std::size_t OVERRIDES_AT_ONCE = 100;
constexpr std::size_t GROUPS_AT_ONCE = 4;
constexpr std::size_t CHANGES_AT_ONCE = 50;
constexpr std::size_t MACHINES_AT_ONCE = 500;
constexpr std::int64_t KNOWN_FOR_MS = 30LL * 24 * 60 * 60 * 1000;
constexpr std::uint64_t KNOWN_EVERY_MS = 24ull * 60 * 60 * 1000;
constexpr char BEFORE_THE_HISTORY[] = "h"; // "base" and "groups/" come in front of it, machines and history do not

/// What the gateway says of an error, by gRPC's numbers.
enum Status
{
    OUT_OF_RANGE = 11,
    UNAUTHENTICATED = 16
};

std::string text_at(const Json& json, const char* name)
{
    const auto found = json.find(name);
    return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
}

/// Numbers of 64 bits come as texts, and zeros not at all.
std::int64_t number_at(const Json& json, const char* name)
{
    const auto found = json.find(name);
    if (found == json.end())
        return 0;
    if (found->is_number_integer())
        return found->get<std::int64_t>();
    return found->is_string() ? kor::core::number_at_front(std::string_view(found->get_ref<const std::string&>())) : 0;
}

const Json& member(const Json& json, const char* name)
{
    static const Json nothing = Json::object();
    const auto found = json.is_object() ? json.find(name) : json.end();
    return found == json.end() ? nothing : *found;
}

Json range(const std::string& key, const std::string& end, Json options = Json::object())
{
    options["key"] = base64_of(key);
    if (!end.empty())
        options["range_end"] = base64_of(end);
    return options;
}

Failure not_as_it_should() { return Failure("The store answers with what no etcd says.", "Look at the address."); }
} // namespace

EtcdStore::EtcdStore(kor::core::SiteAddress address, Credentials credentials)
    : m_address(std::move(address)), m_credentials(std::move(credentials))
{
}

// Questions -----------------------------------------------------------------------------------------------

std::string EtcdStore::base64_key(const std::string& key) { return base64_of(key); }

HttpAnswer EtcdStore::post(const kor::core::SiteEndpoint& endpoint, const std::string& path, const std::string& body)
{
    return m_client.post(endpoint, path, body, m_token, MOST_ANSWER_BYTES);
}

bool EtcdStore::log_in(const kor::core::SiteEndpoint& endpoint, std::string& problem)
{
    m_token.clear();
    const Json question{{"name", m_credentials.user}, {"password", m_credentials.password}};
    const HttpAnswer answer =
        post(endpoint, "/v3/auth/authenticate", question.dump(-1, ' ', false, Json::error_handler_t::replace));
    const Json json = Json::parse(answer.body, nullptr, false);
    m_token = json.is_object() ? text_at(json, "token") : std::string();
    if (!m_token.empty())
        return true;
    problem =
        !answer.problem.empty() ? answer.problem : "it does not let the user " + shown(m_credentials.user) + " in";
    return false;
}

/// Nothing where the next server may know better; problem says why then.
std::optional<Json> EtcdStore::ask_one(
    const kor::core::SiteEndpoint& endpoint, const std::string& path, const Json& question, std::string& problem)
{
    if (!m_credentials.user.empty() && m_token.empty() && !log_in(endpoint, problem))
        return std::nullopt;
    const std::string body = question.dump(-1, ' ', false, Json::error_handler_t::replace);
    for (bool is_again = false;; is_again = true)
    {
        const HttpAnswer answer = post(endpoint, path, body);
        if (answer.is_too_long)
            throw Refusal("The site holds more than what can be: an answer of the store has more than 4 MB.");
        problem = answer.problem;
        if (!problem.empty())
            return std::nullopt;
        Json json = Json::parse(answer.body, nullptr, false);
        if (!json.is_object())
        {
            problem = "it answers with what no etcd says";
            return std::nullopt;
        }
        if (answer.status == 200 && json.find("error") == json.end())
            return json;
        const std::int64_t code = number_at(json, "code");
        problem = "it says " + shown(text_at(json, "error"));
        if (code == UNAUTHENTICATED && !m_credentials.user.empty() && !is_again)
        {
            if (!log_in(endpoint, problem))
                return std::nullopt;
            continue;
        }
        if (code == OUT_OF_RANGE)
            throw Failure("The store forgot that state while it was read.", "Try again.");
        return std::nullopt;
    }
}

Json EtcdStore::ask(const std::string& path, const Json& question)
{
    m_is_unsure = false;
    std::vector<std::string> problems;
    for (std::size_t i = 0; i < m_address.endpoints.size(); ++i)
    {
        std::string problem;
        const kor::core::SiteEndpoint& endpoint = m_address.endpoints[m_current];
        if (auto answer = ask_one(endpoint, path, question, problem))
            return std::move(*answer);
        problems.push_back(endpoint.text() + ": " + problem);
        m_is_unsure = true;
        m_current = (m_current + 1) % m_address.endpoints.size();
    }
    throw Failure(
        "The store does not answer: " + joined(problems, "; ") + ".",
        m_credentials.user.empty() ? "Look at the address, and whether etcd runs there. Where it wants a user, set "
                                     "LEVELSYNC_SITE_USER and LEVELSYNC_SITE_PASSWORD, or give --credentials FILE."
                                   : "Look at the address, the user and the password, and whether etcd runs there.");
}

std::vector<SiteValue> EtcdStore::values_of(const Json& answer) const
{
    std::vector<SiteValue> values;
    const std::string front = m_address.prefix + '/';
    for (const Json& pair : member(answer, "kvs"))
    {
        const auto key = read_base64(text_at(pair, "key"));
        auto bytes = read_base64(text_at(pair, "value"));
        if (!key || !bytes || key->compare(0, front.size(), front) != 0)
            throw not_as_it_should();
        values.push_back(
            {key->substr(front.size()), std::move(*bytes), std::to_string(number_at(pair, "mod_revision"))});
    }
    return values;
}

/// Two ranges at one moment: what is in front of the history, and the overrides.
Json EtcdStore::everything_question(Json options) const
{
    const std::string front = m_address.prefix + '/';
    Json wanted = Json::array();
    wanted.push_back({{"request_range", range(front, front + BEFORE_THE_HISTORY, options)}});
    wanted.push_back({{"request_range", range(front + "overrides/", front + "overrides0", options)}});
    return {{"success", wanted}};
}

/// How many keys there are by an answer to that.
std::size_t EtcdStore::count_of_state(Json& answer)
{
    std::int64_t count = 0;
    for (const Json& response : member(answer, "responses"))
        count += number_at(member(response, "response_range"), "count");
    m_is_careful = count > static_cast<std::int64_t>(kor::core::MOST_SITE_OVERRIDES);
    return static_cast<std::size_t>(std::max<std::int64_t>(count, 0));
}

SiteMark EtcdStore::mark()
{
    constexpr std::size_t MOST = kor::core::MOST_SITE_OVERRIDES + 2 * kor::core::MOST_SITE_GROUPS;
    if (m_is_careful)
    {
        Json counted = ask("/v3/kv/txn", everything_question({{"count_only", true}}));
        const std::size_t count = count_of_state(counted);
        if (count > MOST)
            throw Refusal(
                "The site has " + std::to_string(count) + " groups and overrides; " +
                std::to_string(kor::core::MOST_SITE_OVERRIDES) + " overrides are the most.");
    }
    m_is_careful = true; // unless this comes to an end
    // Whatever is written has a higher revision than all before it, and whatever goes is one less.
    Json newest = ask(
        "/v3/kv/txn",
        everything_question({{"sort_target", "MOD"}, {"sort_order", "DESCEND"}, {"limit", "1"}, {"keys_only", true}}));
    const std::size_t count = count_of_state(newest);
    if (count > MOST)
        throw Refusal(
            "The site has " + std::to_string(count) + " groups and overrides; " +
            std::to_string(kor::core::MOST_SITE_OVERRIDES) + " overrides are the most.");
    std::int64_t latest = 0;
    for (const Json& response : member(newest, "responses"))
        for (const Json& pair : member(member(response, "response_range"), "kvs"))
            latest = std::max(latest, number_at(pair, "mod_revision"));
    const Json& header = member(newest, "header");
    return {
        std::to_string(latest) + '.' + std::to_string(count), text_at(header, "cluster_id"),
        number_at(header, "revision")};
}

/// All keys below a folder, a few at a time, of one revision (0: of now).
std::vector<SiteValue> EtcdStore::pages(
    const std::string& folder, std::size_t most, std::size_t at_once, bool is_last_first, std::int64_t revision)
{
    std::vector<SiteValue> values;
    std::string first = m_address.prefix + '/' + folder + '/';
    std::string end = m_address.prefix + '/' + folder + '0';
    for (bool more = true; more && values.size() < most;)
    {
        const std::size_t count = std::min(at_once, most - values.size());
        Json options{{"limit", std::to_string(count)}, {"revision", std::to_string(revision)}};
        if (is_last_first)
            options.update({{"sort_target", "KEY"}, {"sort_order", "DESCEND"}});
        const Json answer = ask("/v3/kv/range", range(first, end, options));
        revision = revision != 0 ? revision : number_at(member(answer, "header"), "revision");
        std::vector<SiteValue> page = values_of(answer);
        more = !page.empty() && page.size() >= count;
        if (more && is_last_first)
            end = m_address.prefix + '/' + page.back().key;
        else if (more)
            first = m_address.prefix + '/' + page.back().key + '\0';
        std::move(page.begin(), page.end(), std::back_inserter(values));
    }
    return values;
}

SiteRead EtcdStore::read(const std::optional<std::vector<std::string>>& groups)
{
    SiteRead found;
    found.mark = mark();
    const std::int64_t revision = found.mark.position;
    const auto add_one = [&](const std::string& key)
    {
        const Json options{{"revision", std::to_string(revision)}};
        for (SiteValue& one : values_of(ask("/v3/kv/range", range(m_address.prefix + '/' + key, {}, options))))
            found.values.push_back(std::move(one));
    };
    add_one("base");
    for (const std::string& group : groups.value_or(std::vector<std::string>()))
        add_one("groups/" + group);
    std::vector<SiteValue> rest;
    if (!groups)
        rest = pages("groups", kor::core::MOST_SITE_GROUPS * 2, GROUPS_AT_ONCE, false, revision);
    std::move(rest.begin(), rest.end(), std::back_inserter(found.values));
    rest = pages("overrides", kor::core::MOST_SITE_OVERRIDES + 1, OVERRIDES_AT_ONCE, false, revision);
    std::move(rest.begin(), rest.end(), std::back_inserter(found.values));
    return found;
}

std::optional<SiteValue> EtcdStore::value(const std::string& key)
{
    std::vector<SiteValue> values = values_of(ask("/v3/kv/range", range(m_address.prefix + '/' + key, {})));
    return values.empty() ? std::nullopt : std::optional<SiteValue>(std::move(values.front()));
}

std::vector<SiteValue> EtcdStore::history(std::size_t most)
{
    std::vector<SiteValue> values = pages("history", most, CHANGES_AT_ONCE, true, 0);
    std::reverse(values.begin(), values.end());
    return values;
}

// Writing -------------------------------------------------------------------------------------------------

std::string EtcdStore::lease(std::int64_t milliseconds)
{
    const std::int64_t seconds = std::max<std::int64_t>((milliseconds + 999) / 1'000, 1);
    const Json answer = ask("/v3/lease/grant", {{"TTL", std::to_string(seconds)}});
    const std::string id = text_at(answer, "ID");
    if (id.empty())
        throw not_as_it_should();
    return id;
}

bool EtcdStore::write(const std::vector<SiteWrite>& writes)
{
    Json compares = Json::array();
    Json requests = Json::array();
    for (const SiteWrite& one : writes)
    {
        if (one.version != ANY_VERSION)
            compares.push_back(
                {{"target", "MOD"},
                 {"result", "EQUAL"},
                 {"key", full(one.key)},
                 {"mod_revision", one.version.empty() ? "0" : one.version}});
        if (!one.bytes)
        {
            requests.push_back({{"request_delete_range", {{"key", full(one.key)}}}});
            continue;
        }
        Json put{{"key", full(one.key)}, {"value", base64_of(*one.bytes)}};
        if (one.until)
            put["lease"] = lease(*one.until - now() + OVERRIDE_GRACE_MS);
        requests.push_back({{"request_put", put}});
    }
    Json answer;
    try
    {
        answer = ask("/v3/kv/txn", {{"compare", compares}, {"success", requests}});
    }
    catch (const Refusal&)
    {
        throw;
    }
    catch (const Failure& failure)
    {
        throw Failure(
            std::string("It is not known whether the change came to be. ") + failure.what(),
            "LevelSync --site ... history tells, once the store answers again.");
    }
    const auto succeeded = answer.find("succeeded");
    if (succeeded != answer.end() && succeeded->is_boolean() && succeeded->get<bool>())
        return true;
    if (!m_is_unsure || writes.empty())
        return false;
    // The first question may have done it, and only its answer got lost.
    const auto there = value(writes.front().key);
    return there && there->bytes == writes.front().bytes;
}

void EtcdStore::put(const std::string& key, const std::string& bytes, const std::string& lease)
{
    ask("/v3/kv/put", {{"key", full(key)}, {"value", base64_of(bytes)}, {"lease", lease}});
}

// Machines ------------------------------------------------------------------------------------------------

/// False when the lease is over: then the words are gone with it.
bool EtcdStore::keep_alive()
{
    const Json answer = ask("/v3/lease/keepalive", {{"ID", m_presence}});
    return number_at(member(answer, "result"), "TTL") > 0;
}

void EtcdStore::report(const std::string& machine, const std::string& bytes)
{
    try
    {
        try_to_report(machine, bytes);
    }
    catch (const Failure&)
    {
        // A store that was put back to an earlier day knows nothing of these.
        m_known.clear();
        m_presence.clear();
        throw;
    }
}

void EtcdStore::try_to_report(const std::string& machine, const std::string& bytes)
{
    const std::uint64_t clock = ::GetTickCount64();
    const bool is_known = !m_known.empty() && clock - m_known_at < KNOWN_EVERY_MS;
    if (!is_known)
    {
        m_known = lease(KNOWN_FOR_MS);
        m_known_at = clock;
    }
    if (!is_known || bytes != m_said)
        put("known/" + machine, bytes, m_known);
    const bool is_kept = !m_presence.empty() && bytes == m_said;
    if (is_kept && clock - m_said_at < REPORT_EVERY_MS)
        return;
    const bool is_alive = !m_presence.empty() && keep_alive();
    if (!is_alive)
        m_presence = lease(PRESENCE_MS);
    if (!is_alive || !is_kept)
        put("machines/" + machine, bytes, m_presence);
    m_said = bytes;
    m_said_at = clock;
}

void EtcdStore::leave(const std::string& machine, const std::string& bytes)
{
    put("known/" + machine, bytes, m_known.empty() ? lease(KNOWN_FOR_MS) : m_known);
    if (!m_presence.empty())
        ask("/v3/lease/revoke", {{"ID", std::exchange(m_presence, {})}});
}

std::vector<SiteMachine> EtcdStore::machines()
{
    constexpr std::size_t KNOWN = 6;    // "known/"
    constexpr std::size_t MACHINES = 9; // "machines/"
    std::map<std::string, SiteMachine> found;
    for (SiteValue& one : pages("known", MOST_MACHINES, MACHINES_AT_ONCE, false, 0))
        found[one.key.substr(KNOWN)] = {one.key.substr(KNOWN), std::move(one.bytes), false};
    for (SiteValue& one : pages("machines", MOST_MACHINES, MACHINES_AT_ONCE, false, 0))
        found[one.key.substr(MACHINES)] = {one.key.substr(MACHINES), std::move(one.bytes), true};
    std::vector<SiteMachine> machines;
    for (auto& [name, machine] : found)
        machines.push_back(std::move(machine));
    return machines;
}
} // namespace levelsync
