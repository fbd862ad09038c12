#include "filters.h"

#include "Kor_LogConf.h"
#include "core/level_check.h"
#include "failure.h"
#include "text.h"

namespace levelsync
{
namespace
{
void check_client(const std::string& given, const kor::core::ClientText& client)
{
    if (client.entry.empty())
        throw Failure('"' + given + "\" cannot be written in a rule.", client.problem, WRONG_CALL);
    if (!kor::core::is_writable(kor::core::RULE_ADDRESSES, client.entry) || !resolves(client.entry))
        throw Failure(
            '"' + given + "\" is no address, and no host of that name is known.",
            "Give the address, as in --client 192.0.2.7, --client 10.1.0.0 (all of 10.1.x.x) or "
            "--client 2001:db8::/32.",
            WRONG_CALL);
}

void check_application(const std::string& name)
{
    if (!kor::core::is_writable(kor::core::RULE_APPLICATIONS, name))
        throw Failure(
            "A rule cannot name the application \"" + name + "\".",
            "Names in rules have at most 19 characters and none of blank , ; ( ). Use --pid with the process id.",
            WRONG_CALL);
}

template <class Entry>
void add_texts(std::vector<std::string>& parts, const char* what, const std::vector<Entry>& entries)
{
    if (entries.empty())
        return;
    std::vector<std::string> texts;
    for (const Entry& entry : entries)
        if constexpr (std::is_integral_v<Entry>)
            texts.push_back(std::to_string(entry));
        else
            texts.push_back(entry);
    parts.push_back(std::string(what) + ' ' + joined(texts, " or "));
}
} // namespace

void Filters::declare(Options& options)
{
    const auto add = [&options](const char* name, auto& values, const char* what, const char* type)
    { options.add_option(name, values, what)->type_name(type)->take_all(); };
    add("--client", clients, "While the process serves that address or network", "ADDRESS");
    add("--app", applications, "In that application, as its lines name it", "NAME");
    add("--pid", processes, "In that process", "ID");
    add("--session", sessions, "While the process serves that session", "ID");
}

kor::core::RuleFilters Filters::for_rule() const
{
    kor::core::RuleFilters filters;
    for (const std::string& given : clients)
    {
        const kor::core::ClientText client = kor::core::client_entry(given);
        check_client(given, client);
        filters.lists[kor::core::RULE_ADDRESSES].push_back(client.entry);
    }
    for (const std::string& name : applications)
    {
        check_application(name);
        filters.lists[kor::core::RULE_APPLICATIONS].push_back(name);
    }
    for (const std::uint32_t id : processes)
        filters.lists[kor::core::RULE_PROCESSES].push_back(std::to_string(id));
    for (const std::uint32_t id : sessions)
        filters.lists[kor::core::RULE_SESSIONS].push_back(std::to_string(id));
    return filters;
}

std::string Filters::text() const
{
    std::vector<std::string> parts;
    add_texts(parts, "client", clients);
    add_texts(parts, "application", applications);
    add_texts(parts, "process", processes);
    add_texts(parts, "session", sessions);
    return parts.empty() ? std::string() : " for " + joined(parts, ", ");
}

bool resolves(const std::string& address)
{
    Kor_LogLevelRule rule; // the library's own way of asking
    rule.AddIPAddress(address.c_str());
    return rule.ipCount > 0;
}
} // namespace levelsync
