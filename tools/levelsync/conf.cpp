#include "conf.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>

#include "Kor_LogFile.h"
#include "core/fixed_text.h"
#include "failure.h"
#include "file.h"
#include "text.h"

namespace levelsync
{
namespace
{
constexpr const char* LEVEL_NAMES[] = {"none", "severe", "critical", "error", "warning", "notice", "info", "debug"};
constexpr int LEVELS = 8;
constexpr int OUTPUT_WITH_DEBUGGER = 3; // of the file
constexpr std::string_view GLOBAL_PREFIX = "Global\\";

int usable(std::int32_t count, int most) noexcept { return std::clamp(static_cast<int>(count), 0, most); }

template <class Item>
std::string list_text(std::int32_t count, Item item)
{
    std::vector<std::string> parts;
    for (int i = 0; i < usable(count, Kor_LogLevelRule::MAX_ENTRIES); ++i)
        parts.push_back(item(i));
    return joined(parts, " or ");
}

/// "10.x.x.x" for a network.
std::string address_text(const IP_Structure& address)
{
    if (address.family != IP_Structure::FAMILY_IPV4)
        return address.ToString().data();
    unsigned char octets[4];
    unsigned char mask[4];
    std::memcpy(octets, address.address + 12, sizeof octets);
    std::memcpy(mask, &address.mask, sizeof mask);
    std::string text;
    for (int i = 0; i < 4; ++i)
        text.append(i == 0 ? "" : ".").append(mask[i] == 0 ? "x" : std::to_string(octets[i]));
    return text;
}

/// The bytes of a rule that say something; what lies behind the counts is left from before.
bool is_same(const Kor_LogLevelRule& a, const Kor_LogLevelRule& b)
{
    if (a.logLevel != b.logLevel || a.ipCount != b.ipCount || a.serviceNameCount != b.serviceNameCount ||
        a.processIdCount != b.processIdCount || a.sessionIdCount != b.sessionIdCount)
        return false;
    const auto bytes = [](std::int32_t count, std::size_t size)
    { return static_cast<std::size_t>(usable(count, Kor_LogLevelRule::MAX_ENTRIES)) * size; };
    if (std::memcmp(a.processIds, b.processIds, bytes(a.processIdCount, sizeof a.processIds[0])) != 0 ||
        std::memcmp(a.sessionIds, b.sessionIds, bytes(a.sessionIdCount, sizeof a.sessionIds[0])) != 0)
        return false;
    for (int i = 0; i < usable(a.serviceNameCount, Kor_LogLevelRule::MAX_ENTRIES); ++i)
        if (kor::core::bounded(a.serviceNames[i]) != kor::core::bounded(b.serviceNames[i]))
            return false;
    for (int i = 0; i < usable(a.ipCount, Kor_LogLevelRule::MAX_ENTRIES); ++i)
    {
        const IP_Structure& left = a.ipAddresses[i];
        const IP_Structure& right = b.ipAddresses[i];
        if (left.family != right.family || left.mask != right.mask || left.prefixBytes != right.prefixBytes ||
            std::memcmp(left.address, right.address, sizeof left.address) != 0)
            return false;
    }
    return true;
}

bool has_same_filters(const Kor_LogLevelRule& a, const Kor_LogLevelRule& b)
{
    Kor_LogLevelRule other = b;
    other.logLevel = a.logLevel;
    return is_same(a, other);
}

int rule_count(const Kor_LogConf& conf, int package) noexcept
{
    return usable(conf.ruleTables[package].ruleCount, Kor_LogLevelRuleTable::MAX_RULES);
}

bool is_same_package(const Kor_LogConf& a, const Kor_LogConf& b, int package)
{
    const Kor_LogLevelRule* const left = a.ruleTables[package].rules;
    const Kor_LogLevelRule* const right = b.ruleTables[package].rules;
    return a.packageLevels[package] == b.packageLevels[package] &&
           std::equal(left, left + rule_count(a, package), right, right + rule_count(b, package), is_same);
}

/// What those get whom a rule is for, as far as the rule decides it.
int level_for(const Kor_LogConf& conf, int package, const Kor_LogLevelRule& rule)
{
    int level = conf.packageLevels[package];
    for (const Kor_LogLevelRule* const other : rules_of(conf, package))
        if (has_same_filters(*other, rule))
            level = std::max(level, static_cast<int>(other->logLevel));
    return level;
}

void add_rule_difference(
    std::vector<Difference>& found, const std::string& name, const Kor_LogConf& from, const Kor_LogConf& to,
    int package, const Kor_LogLevelRule& rule)
{
    const int before = level_for(from, package, rule);
    const int after = level_for(to, package, rule);
    const std::string whom = " for " + whom_text(rule);
    const bool is_new = &rule >= to.ruleTables[package].rules &&
                        &rule < to.ruleTables[package].rules + Kor_LogLevelRuleTable::MAX_RULES;
    std::string text = name + ' ' + std::to_string(before) + " to " + std::to_string(after) + whom;
    if (before == after)
        text = name + (is_new ? " gets" : " loses") + " a rule of level " + std::to_string(rule.logLevel) + whom +
               ", which changes nothing";
    const bool is_known = std::any_of(
        found.begin(), found.end(), [&text](const Difference& difference) { return difference.text == text; });
    if (!is_known)
        found.push_back({package, std::move(text)});
}

void add_package_differences(
    std::vector<Difference>& found, const Kor_LogConf& from, const Kor_LogConf& to, int package)
{
    const std::string name = package_text(to.packageNames[package][0] != '\0' ? to : from, package);
    const int before = from.packageLevels[package];
    const int after = to.packageLevels[package];
    if (before != after)
        found.push_back(
            {package, name + ' ' + std::to_string(before) + " to " + std::to_string(after) + " for everybody"});
    const auto has = [](const std::vector<const Kor_LogLevelRule*>& rules, const Kor_LogLevelRule& rule)
    {
        return std::any_of(
            rules.begin(), rules.end(), [&rule](const Kor_LogLevelRule* other) { return is_same(*other, rule); });
    };
    const auto old_rules = rules_of(from, package);
    const auto new_rules = rules_of(to, package);
    const std::size_t so_far = found.size();
    for (const Kor_LogLevelRule* const rule : new_rules)
        if (!has(old_rules, *rule))
            add_rule_difference(found, name, from, to, package, *rule);
    for (const Kor_LogLevelRule* const rule : old_rules)
        if (!has(new_rules, *rule))
            add_rule_difference(found, name, from, to, package, *rule);
    if (found.size() == so_far && before == after)
        found.push_back({package, name + " has its rules in another order, which changes nothing"});
}
/// A file of some bytes for the library to read, where nothing is to be left in the folder.
class TemporaryFile
{
public:
    explicit TemporaryFile(std::string_view bytes)
    {
        wchar_t folder[MAX_PATH + 1] = {};
        ::GetTempPathW(MAX_PATH + 1, folder);
        m_path = folder + std::wstring(L"LevelSync-") + std::to_wstring(::GetCurrentProcessId()) + L".logger";
        Replacement(m_path, bytes).put_in_place();
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { ::DeleteFileW(m_path.c_str()); }

    const std::wstring& path() const noexcept { return m_path; }

private:
    std::wstring m_path;
};
} // namespace

// What runs -----------------------------------------------------------------------------------------------
Running read_running()
{
    Running running;
    running.conf = std::make_unique<Kor_LogConf>();
    const char* name = nullptr;
    if (Kor_LogFile::CopySharedMemory(*running.conf, &name) < 0)
    {
        running.error = ::GetLastError();
        running.conf.reset();
    }
    running.block = name == nullptr ? "" : name;
    running.is_of_machine = running.block.compare(0, GLOBAL_PREFIX.size(), GLOBAL_PREFIX) == 0;
    return running;
}

const Kor_LogConf* take_running()
{
    if (KorGLog.TakeSharedConf() >= 0)
        return KorGLog.GetConf();
    Running nothing;
    nothing.error = ::GetLastError();
    require_readable(nothing);
    return nullptr;
}

void require_readable(const Running& running)
{
    if (running.conf || running.error == ERROR_FILE_NOT_FOUND || running.error == ERROR_SUCCESS)
        return;
    throw Failure(
        running.error == ERROR_ACCESS_DENIED
            ? own_account() + " has no right to the configuration that the processes share."
            : "The configuration that the processes share cannot be read: " + system_text(running.error) + ".",
        "Nothing was changed. Run LevelSync as an administrator, in the Windows session of the processes or as a "
        "service account.");
}

Conf read_conf(const std::wstring& path)
{
    auto conf = std::make_unique<Kor_LogConf>();
    if (Kor_LogFile::ReadFile(path.c_str(), *conf) != 0)
        throw Failure(
            "There is no file " + shown(utf8(path)) + ", or it cannot be read.",
            "Name the folder of the level file with --dir FOLDER, or set PRISMATE_LOG_DIR as the servers have it.");
    return conf;
}

Conf conf_of(std::string_view bytes) { return read_conf(TemporaryFile(bytes).path()); }

void publish(Kor_LogConf& conf)
{
    if (Kor_LogFile::UpdateSMFromConf(conf) == 0)
        return;
    const DWORD error = ::GetLastError();
    throw Failure(
        error == ERROR_ACCESS_DENIED
            ? own_account() + " has no right to change the configuration that the processes share."
            : "The configuration that the processes share cannot be changed: " + system_text(error) + ".",
        "Nothing was changed. Run LevelSync as an administrator.");
}

void copy_package(Kor_LogConf& to, const Kor_LogConf& from, int package)
{
    std::memcpy(to.packageNames[package], from.packageNames[package], sizeof to.packageNames[package]);
    to.packageLevels[package] = from.packageLevels[package];
    to.ruleTables[package] = from.ruleTables[package];
}

// Words ---------------------------------------------------------------------------------------------------
std::string level_name(int level) { return level >= 0 && level < LEVELS ? LEVEL_NAMES[level] : std::to_string(level); }

std::string level_text(int level)
{
    return std::to_string(level) + (level >= 0 && level < LEVELS ? std::string(" ") + LEVEL_NAMES[level] : "");
}

int read_level(const std::string& text)
{
    const std::string name = lower_case(text);
    if (name.size() == 1 && name[0] >= '0' && name[0] <= '7')
        return name[0] - '0';
    if (name == "information")
        return 6;
    if (name == "unspecified")
        return 0;
    const auto* const found = std::find(std::begin(LEVEL_NAMES), std::end(LEVEL_NAMES), name);
    if (found != std::end(LEVEL_NAMES))
        return static_cast<int>(found - std::begin(LEVEL_NAMES));
    throw Failure(
        '"' + text + "\" is no level.",
        "The levels are 1 severe, 2 critical, 3 error, 4 warning, 5 notice, 6 info, 7 debug; 0 is nothing at all.",
        WRONG_CALL);
}

std::string output_text(int output)
{
    switch (output)
    {
    case Kor_LogConf::OUTPUT_STDERR:
        return "standard error";
    case Kor_LogConf::OUTPUT_SYSLOG_FILE:
        return "the event log";
    case Kor_LogConf::OUTPUT_PRIVATE_FILE:
        return "the processes' own files";
    case OUTPUT_WITH_DEBUGGER:
        return "the processes' own files and a debugger";
    default:
        return "output " + std::to_string(output);
    }
}

int output_of(const Kor_LogConf& conf)
{
    unsigned char to_debugger = 0; // of a foreign block, and so perhaps no bool
    std::memcpy(&to_debugger, &conf.printToDebugger, sizeof to_debugger);
    const int output = conf.GetOutput();
    return output == Kor_LogConf::OUTPUT_PRIVATE_FILE && to_debugger != 0 ? OUTPUT_WITH_DEBUGGER : output;
}

std::string limit_text(unsigned int megabytes)
{
    return megabytes == 0 ? std::string("no limit") : std::to_string(megabytes) + " MB";
}

std::string package_text(const Kor_LogConf& conf, int package)
{
    const std::string_view name = kor::core::bounded(conf.packageNames[package]);
    return name.empty() ? "package " + std::to_string(package) : shown(name);
}

std::string whom_text(const Kor_LogLevelRule& rule)
{
    std::vector<std::string> parts;
    const auto add = [&parts](std::int32_t count, const char* what, const std::string& list)
    {
        if (count > 0)
            parts.push_back(std::string(what).append(list));
    };
    add(rule.ipCount, rule.ipCount == 1 ? "client " : "clients ",
        list_text(rule.ipCount, [&rule](int i) { return address_text(rule.ipAddresses[i]); }));
    add(rule.serviceNameCount, "application ",
        list_text(rule.serviceNameCount, [&rule](int i) { return shown(kor::core::bounded(rule.serviceNames[i])); }));
    add(rule.processIdCount, "process ",
        list_text(rule.processIdCount, [&rule](int i) { return std::to_string(rule.processIds[i]); }));
    add(rule.sessionIdCount, "session ",
        list_text(rule.sessionIdCount, [&rule](int i) { return std::to_string(rule.sessionIds[i]); }));
    return parts.empty() ? "everybody" : joined(parts, ", ");
}

std::vector<const Kor_LogLevelRule*> rules_of(const Kor_LogConf& conf, int package)
{
    std::vector<const Kor_LogLevelRule*> rules;
    for (int i = 0; i < rule_count(conf, package); ++i)
        rules.push_back(&conf.ruleTables[package].rules[i]);
    return rules;
}

// Differences ---------------------------------------------------------------------------------------------
std::vector<Difference> differences(const Kor_LogConf& from, const Kor_LogConf& to)
{
    std::vector<Difference> found;
    if (output_of(from) != output_of(to))
        found.push_back({-1, "output from " + output_text(output_of(from)) + " to " + output_text(output_of(to))});
    if (from.sizeLimitInMb != to.sizeLimitInMb)
        found.push_back(
            {-1, "size limit from " + limit_text(from.sizeLimitInMb) + " to " + limit_text(to.sizeLimitInMb)});
    for (int package = 0; package < PACKAGE_COUNT; ++package)
        if (!is_same_package(from, to, package))
            add_package_differences(found, from, to, package);
    return found;
}

std::vector<std::string> texts_of(const std::vector<Difference>& differences)
{
    std::vector<std::string> texts;
    for (const Difference& difference : differences)
        texts.push_back(difference.text);
    return texts;
}
} // namespace levelsync
