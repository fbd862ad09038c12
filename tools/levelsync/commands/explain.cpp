// explain: the level in force for a process, and which rule gives it.

#include <algorithm>
#include <map>

#include "change.h"
#include "command.h"
#include "failure.h"
#include "file.h"
#include "packages.h"
#include "processes.h"
#include "site/site_change.h"
#include "site/view.h"
#include "text.h"

namespace levelsync
{
namespace
{
/// Whom the question is about, as the library is asked.
struct Subject
{
    std::string client; ///< empty: none
    IP_Structure address;
    bool is_known = true; ///< false: the client does not resolve, and fits no rule whatever
    std::string application;
    unsigned long process = 0;
    unsigned long session = 0;
    bool has_process = false;
    bool has_session = false;
};

struct RuleAnswer
{
    const Kor_LogLevelRule* rule;
    bool fits;
    std::vector<std::string> why_not;
};

struct Answer
{
    int package;
    int own_level;
    int level;
    std::size_t deciding = 0; ///< number of the rule that gives it, from 1; 0: the package's own level
    std::vector<RuleAnswer> rules;
};

bool complies(const Kor_LogLevelRule& rule, const Subject& subject)
{
    IP_Structure address = subject.address;
    return subject.is_known && rule.DoesComply(address, subject.application.c_str(), subject.process, subject.session);
}

/// The rule with one of its lists alone, to ask the library about that.
template <class Keep>
bool list_complies(const Kor_LogLevelRule& rule, const Subject& subject, Keep keep)
{
    Kor_LogLevelRule part = rule;
    part.ipCount = part.serviceNameCount = part.processIdCount = part.sessionIdCount = 0;
    keep(part);
    return complies(part, subject);
}

std::vector<std::string> why_not(const Kor_LogLevelRule& rule, const Subject& subject)
{
    std::vector<std::string> reasons;
    if (!subject.is_known)
        return {"the client " + subject.client + " does not resolve, and so fits no rule"};
    const auto whom = [&rule](auto keep)
    {
        Kor_LogLevelRule part = rule;
        part.ipCount = part.serviceNameCount = part.processIdCount = part.sessionIdCount = 0;
        keep(part);
        return whom_text(part);
    };
    const auto ask = [&](auto keep, const std::string& mine)
    {
        if (!list_complies(rule, subject, keep))
            reasons.push_back("it is for " + whom(keep) + ", not for " + mine);
    };
    ask([&rule](Kor_LogLevelRule& part) { part.ipCount = rule.ipCount; },
        subject.client.empty() ? std::string("a process without a client") : subject.client);
    ask([&rule](Kor_LogLevelRule& part) { part.serviceNameCount = rule.serviceNameCount; },
        subject.application.empty() ? std::string("an unnamed application") : subject.application);
    ask([&rule](Kor_LogLevelRule& part) { part.processIdCount = rule.processIdCount; },
        subject.has_process ? std::to_string(subject.process) : std::string("a process without a given id"));
    ask([&rule](Kor_LogLevelRule& part) { part.sessionIdCount = rule.sessionIdCount; },
        subject.has_session ? std::to_string(subject.session) : std::string("a process without a session"));
    return reasons;
}

Answer answer_for(const Kor_LogConf& conf, int package, const Subject& subject)
{
    const int own = conf.packageLevels[package];
    Answer answer{package, own, own, 0, {}};
    int best = 0; // of the rules: among equals the first counts
    for (const Kor_LogLevelRule* const rule : rules_of(conf, package))
    {
        const bool fits = complies(*rule, subject);
        answer.rules.push_back({rule, fits, fits ? std::vector<std::string>() : why_not(*rule, subject)});
        if (!fits || rule->logLevel <= best)
            continue;
        best = rule->logLevel;
        if (best > answer.level)
        {
            answer.level = best;
            answer.deciding = answer.rules.size();
        }
    }
    return answer;
}

class Explain final : public Command
{
public:
    void declare(Options& options) override
    {
        options.add_option("PACKAGE", m_package, "Number, name, or pattern of names (Re*)")->required();
        options.add_option("--client", m_client, "The client that the process serves")->type_name("ADDRESS");
        options.add_option("--app", m_application, "The application, as its lines name it")->type_name("NAME");
        options.add_option("--pid", m_process, "The process; its application is looked up")->type_name("ID");
        options.add_option("--session", m_session, "The session that it serves")->type_name("ID");
        add_groups_option(options, m_groups);
    }

    ExitCode run(Tool& tool) override
    {
        const auto bytes = read_whole(tool.folder.file);
        const Running running = read_running();
        if (!bytes && !running.conf)
            static_cast<void>(require_level_file(tool.folder)); // says what is missing
        const Conf from_file = running.conf ? nullptr : read_conf(tool.folder.file);
        const Kor_LogConf& conf = running.conf ? *running.conf : *from_file;
        const kor::core::LevelFile file(bytes.value_or(std::string()));
        const PackageNames names(tool.folder, &file, running.conf.get());
        show(tool, conf, names, running.conf ? "running" : "file");
        if (!tool.json && !running.conf)
            tool.console.line("No process shares a configuration now; this is what the file says.");
        return DONE;
    }

    ExitCode run_on_site(Tool& tool) override
    {
        if (m_process && m_application.empty())
            throw Failure("A process is of one machine.", "Name its application too, as in --app viewer.", WRONG_CALL);
        const auto store = open_site(tool);
        const SiteView view = view_site(*store, m_groups);
        const kor::core::LevelFile file(view.bytes);
        const PackageNames names(tool.folder, &file, nullptr);
        show(tool, *view.conf, names, "site");
        return DONE;
    }

private:
    void show(const Tool& tool, const Kor_LogConf& conf, const PackageNames& names, const char* source) const
    {
        const Subject subject = find_subject(tool);
        Json answers = Json::array();
        bool is_for_clients = false;
        for (const int package : packages(names))
        {
            const Answer answer = answer_for(conf, package, subject);
            is_for_clients = is_for_clients || has_rule_for_clients(answer);
            if (tool.json)
                answers.push_back(json_of(answer, names));
            else
                print(tool.console, answer, names);
        }
        if (tool.json)
            tool.print({{"source", source}, {"subject", json_of(subject)}, {"packages", answers}});
        else if (m_client.empty() && is_for_clients)
            tool.console.line(
                "Where a program's threads work for clients of their own, the rules for those count: name one with "
                "--client.");
    }

    /// "*" stands for all 750, named or not.
    std::vector<int> packages(const PackageNames& names) const
    {
        if (m_package != "*")
            return names.find(m_package);
        std::vector<int> all;
        for (int package = 0; package < PACKAGE_COUNT; ++package)
            all.push_back(package);
        return all;
    }

    Subject find_subject(const Tool& tool) const
    {
        Subject subject;
        subject.client = m_client;
        subject.application = m_application;
        subject.process = m_process.value_or(0);
        subject.session = m_session.value_or(0);
        subject.has_process = m_process.has_value();
        subject.has_session = m_session.has_value();
        if (m_process && m_application.empty())
            subject.application = application_of(tool, *m_process);
        if (m_client.empty())
            return subject;
        Kor_LogLevelRule asked; // of several addresses the first counts, as for the library
        asked.AddIPAddress(m_client.c_str());
        subject.is_known = asked.ipCount > 0;
        if (subject.is_known)
            subject.address = asked.ipAddresses[0];
        if (m_client.find('/') != std::string::npos)
            throw Failure("\"" + m_client + "\" is a network.", "Give the address of one client.", WRONG_CALL);
        return subject;
    }

    static bool has_rule_for_clients(const Answer& answer)
    {
        return std::any_of(
            answer.rules.begin(), answer.rules.end(),
            [](const RuleAnswer& rule) { return rule.rule->ipCount != 0 && !rule.fits; });
    }

    static Json json_of(const Subject& subject)
    {
        return {
            {"client", subject.client},
            {"application", subject.application},
            {"process", subject.has_process ? Json(subject.process) : Json()},
            {"session", subject.has_session ? Json(subject.session) : Json()}};
    }

    static Json json_of(const Answer& answer, const PackageNames& names)
    {
        Json rules = Json::array();
        for (const RuleAnswer& rule : answer.rules)
            rules.push_back(
                {{"level", rule.rule->logLevel},
                 {"for", whom_text(*rule.rule)},
                 {"fits", rule.fits},
                 {"why_not", rule.why_not}});
        return {
            {"package", answer.package},
            {"name", names.of(answer.package)},
            {"level", answer.level},
            {"own_level", answer.own_level},
            {"rule", answer.deciding != 0 ? Json(answer.deciding) : Json()},
            {"rules", rules}};
    }

    static void print(Console& console, const Answer& answer, const PackageNames& names)
    {
        const std::string& name = names.of(answer.package);
        console.line(
            "Package " + std::to_string(answer.package) + (name.empty() ? "" : ", " + name) + ": level " +
                level_text(answer.level),
            Style::STRONG);
        console.line(
            "  " + level_text(answer.own_level) + " for everybody" + (answer.deciding == 0 ? ", which counts" : ""));
        for (std::size_t i = 0; i < answer.rules.size(); ++i)
        {
            const RuleAnswer& rule = answer.rules[i];
            std::string text = "  " + level_text(rule.rule->logLevel) + " for " + whom_text(*rule.rule) + ": ";
            if (i + 1 == answer.deciding)
                text += "fits, and counts";
            else if (rule.fits)
                text += "fits, but is not more than what counts";
            else
                text += "does not fit: " + joined(rule.why_not);
            console.line(text, i + 1 == answer.deciding ? Style::GOOD : Style::PLAIN);
        }
    }

    std::string m_package;
    std::string m_client;
    std::string m_application;
    std::optional<std::uint32_t> m_process;
    std::optional<std::uint32_t> m_session;
    std::vector<std::string> m_groups;
};
} // namespace

extern const CommandEntry command_explain{
    "explain", "The level in force for a process, and why", "LevelSync explain replay --client 192.0.2.7 --app viewer",
    &make_command<Explain>};
} // namespace levelsync
