#include "Kor_LogConf.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kor/client_address.h"
#include "Kor/conf_parts.h"
#include "Kor/diagnostics.h"
#include "Kor/rule_check.h"
#include "Kor/thread_client.h"
#include "core/address.h"
#include "core/bounded_text.h"
#include "core/change_count.h"
#include "core/fixed_text.h"
#include "core/rule_text.h"
#include "core/snapshot.h"
#include "win/addresses.h"
#include "win/clock.h"
#include "win/console.h"
#include "win/environment.h"
#include "win/host_program.h"

// The layouts that separately built processes share ----------------------------------------------
static_assert(sizeof(IP_Structure) == 28);
static_assert(offsetof(IP_Structure, family) == 0 && offsetof(IP_Structure, mask) == 4);
static_assert(offsetof(IP_Structure, address) == 8 && offsetof(IP_Structure, prefixBytes) == 24);
static_assert(std::is_trivially_copyable_v<IP_Structure> && std::is_standard_layout_v<IP_Structure>);

static_assert(sizeof(Kor_LogLevelRule) == 580);
static_assert(offsetof(Kor_LogLevelRule, ipCount) == 0 && offsetof(Kor_LogLevelRule, serviceNameCount) == 4);
static_assert(offsetof(Kor_LogLevelRule, processIdCount) == 8 && offsetof(Kor_LogLevelRule, sessionIdCount) == 12);
static_assert(offsetof(Kor_LogLevelRule, ipAddresses) == 16 && offsetof(Kor_LogLevelRule, processIds) == 296);
static_assert(offsetof(Kor_LogLevelRule, sessionIds) == 336 && offsetof(Kor_LogLevelRule, serviceNames) == 376);
static_assert(offsetof(Kor_LogLevelRule, logLevel) == 576);
static_assert(std::is_trivially_copyable_v<Kor_LogLevelRule> && std::is_standard_layout_v<Kor_LogLevelRule>);

static_assert(sizeof(Kor_LogLevelRuleTable) == 5804 && offsetof(Kor_LogLevelRuleTable, ruleCount) == 5800);
static_assert(std::is_trivially_copyable_v<Kor_LogLevelRuleTable>);

static_assert(sizeof(Kor_LogConf) == 4'383'776);
static_assert(offsetof(Kor_LogConf, output) == 0 && offsetof(Kor_LogConf, printToDebugger) == 4);
static_assert(offsetof(Kor_LogConf, ruleTables) == 8 && offsetof(Kor_LogConf, changeCount) == 4'353'008);
static_assert(offsetof(Kor_LogConf, packageNames) == 4'353'016 && offsetof(Kor_LogConf, sizeLimitInMb) == 4'383'016);
static_assert(offsetof(Kor_LogConf, packageLevels) == 4'383'020);
static_assert(std::is_standard_layout_v<Kor_LogConf>);

static_assert(offsetof(IP_Structure, address) + kor::core::IPV6_BYTES - 4 == 20, "where the IPv4 address stands");

using kor::core::bounded;
using kor::core::copy_cut;
using kor::core::snapshot;
using kor::core::TextSnapshot;

namespace
{
constexpr std::size_t MAX_PREFIX_TEXT = 8; // a slash and the bits of whatever the byte says

// Records and texts may lie in shared memory, where any process can write at any time: they are copied before they
// are looked at, so that what has been checked is also what is used.

/// A count of list entries as it may be used: shared memory can hold anything.
int usable(std::int32_t count, int capacity) noexcept { return std::clamp(static_cast<int>(count), 0, capacity); }

std::string joined(int count, std::string (*item)(const Kor_LogLevelRule&, int), const Kor_LogLevelRule& rule)
{
    std::string text;
    for (int i = 0; i < count; ++i)
        text.append(i == 0 ? "" : ",").append(item(rule, i));
    return text;
}

int length_of(std::string_view text) noexcept { return static_cast<int>(text.size()); }

/// Traces a field of a rule and hands each item on.
template <class Add>
void read_field(const char* title, const std::vector<std::string_view>& items, Add add)
{
    KOR_TRACE("%s: ", title);
    for (const std::string_view item : items)
    {
        KOR_TRACE("%.*s ", length_of(item), item.data());
        add(item);
    }
    KOR_TRACE("\n");
}

unsigned long id_of(std::string_view text)
{
    const kor::core::IdText id = kor::core::read_id(text);
    if (id.cut)
        KOR_WARN("id %.*s is beyond 32 bits, %u taken\n", length_of(text), text.data(), id.id);
    return id.id;
}

// The four questions a rule asks, in this order. An empty list is not asked.

bool fits_address(const Kor_LogLevelRule& rule, const IP_Structure& ip)
{
    if (rule.ipCount <= 0)
        return true;
    if (ip.IsEmpty())
    {
        KOR_TRACE("Rule has IP configuration but no IP was set\n");
        return false;
    }
    const auto* const end = rule.ipAddresses + usable(rule.ipCount, Kor_LogLevelRule::MAX_ENTRIES);
    return std::any_of(rule.ipAddresses, end, [&ip](const IP_Structure& entry) { return entry.CompareTo(ip); });
}

bool fits_application(const Kor_LogLevelRule& rule, const char* name)
{
    if (rule.serviceNameCount <= 0)
        return true;
    const std::string_view wanted(name == nullptr ? "" : name);
    const int count = usable(rule.serviceNameCount, Kor_LogLevelRule::MAX_ENTRIES);
    for (int i = 0; i < count; ++i)
        if (bounded(rule.serviceNames[i]) == wanted)
        {
            KOR_TRACE("application name fits with %.*s\n", length_of(wanted), wanted.data());
            return true;
        }
    KOR_TRACE("Application name did not fit\n");
    return false;
}

bool fits_process(const Kor_LogLevelRule& rule, unsigned long id)
{
    if (rule.processIdCount <= 0)
        return true;
    const auto* const end = rule.processIds + usable(rule.processIdCount, Kor_LogLevelRule::MAX_ENTRIES);
    if (std::find(rule.processIds, end, id) == end)
    {
        KOR_TRACE("Process ID did not fit\n");
        return false;
    }
    KOR_TRACE("process id fits with %d\n", static_cast<int>(id));
    return true;
}

bool fits_session(const Kor_LogLevelRule& rule, unsigned long id)
{
    if (rule.sessionIdCount <= 0)
        return true;
    const int count = usable(rule.sessionIdCount, Kor_LogLevelRule::MAX_ENTRIES);
    for (int i = 0; i < count; ++i)
    {
        const std::uint32_t entry = rule.sessionIds[i];
        if (entry == id)
        {
            KOR_TRACE("session id fits with %d\n", static_cast<int>(entry));
            return true;
        }
        KOR_TRACE("session id does not fit with %d\n", static_cast<int>(entry));
    }
    KOR_TRACE("Session ID did not fit\n");
    return false;
}

bool fits_all_but_address(
    const Kor_LogLevelRule& rule, const char* application, unsigned long process, unsigned long session)
{
    return fits_application(rule, application) && fits_process(rule, process) && fits_session(rule, session);
}

/// Asks the rules of a table one after the other: complies(rule) tells whether one applies.
template <class Complies>
int best_level(
    const Kor_LogLevelRuleTable& table, const RWCString& client, const RWCString& application, unsigned long process,
    unsigned long session, const Complies& complies)
{
    const int count = usable(snapshot(table.ruleCount), Kor_LogLevelRuleTable::MAX_RULES);
    if (count == 0)
        return 0;
    KOR_TRACE(
        "Checking log level to [IP, Application name, Process ID, Session ID]: [%s, %s, %d, %d]\n", client.data(),
        application.data(), static_cast<int>(process), static_cast<int>(session));
    int best = 0;
    for (int i = 0; i < count; ++i)
    {
        KOR_TRACE("Checking rule #%d\n", i + 1);
        const Kor_LogLevelRule rule = snapshot(table.rules[i]);
        const int level = rule.LogLevel();
        if (!complies(rule) || level <= best)
            continue;
        best = level;
        KOR_TRACE("Rule fits with level %d\n", best);
    }
    return best;
}

bool complies_with(const Kor_LogLevelRule& rule, const kor::RuleSubject& subject)
{
    const auto complies = [&rule, &subject](IP_Structure address)
    { return rule.DoesComply(address, subject.application.data(), subject.process, subject.session); };
    if (subject.client.isNull())
        return complies(IP_Structure());
    if (!kor::is_tracing()) // whose lines come in the order that they always had
    {
        if (!fits_all_but_address(rule, subject.application.data(), subject.process, subject.session))
            return false;
        if (rule.ipCount <= 0 && kor::core::is_ipv4_text({subject.client.data(), subject.client.length()}))
            return true;
    }
    // One question for each address, though always about the first: see DoesComply.
    const kor::ClientAddress client =
        subject.of_thread == nullptr ? kor::client_address(subject.client) : subject.of_thread->looked_up();
    for (int record = 0; record < client.records; ++record)
        if (complies(client.first))
            return true;
    return false;
}
} // namespace

int kor::level_granted(const Kor_LogLevelRuleTable& table, const RuleSubject& subject)
{
    return best_level(
        table, subject.client, subject.application, subject.process, subject.session,
        [&subject](const Kor_LogLevelRule& rule) { return complies_with(rule, subject); });
}

int kor::level_granted_at_most(const Kor_LogLevelRuleTable& table, const RWCString& application, unsigned long process)
{
    const int count = usable(snapshot(table.ruleCount), Kor_LogLevelRuleTable::MAX_RULES);
    int most = 0;
    for (int i = 0; i < count; ++i)
    {
        const Kor_LogLevelRule rule = snapshot(table.rules[i]);
        if (rule.LogLevel() > most && fits_application(rule, application.data()) && fits_process(rule, process))
            most = rule.LogLevel();
    }
    return most;
}

bool kor::is_tracing()
{
    // No static that initialises itself: the lock that compilers put around it costs a thread-local slot
    // which unloading the DLL does not always give back. Two threads that ask at once get the same answer.
    enum Answer
    {
        UNKNOWN,
        NO,
        YES
    };
    static std::atomic<Answer> known{UNKNOWN};
    if (known == UNKNOWN)
        known = win::is_set("PRISMATE_LOG_DEBUG") ? YES : NO;
    return known == YES;
}

bool kor::is_tool_program() { return win::program_exports("Kor_ToolProgram"); }

// IP_Structure --------------------------------------------------------------------------------------
IP_Structure::IP_Structure() noexcept : family(FAMILY_EMPTY), mask(0), address{}, prefixBytes(NO_PREFIX), padding{} {}

IP_Structure::IP_Structure(void* record) noexcept : IP_Structure()
{
    if (record == nullptr)
        return;
    const kor::win::SocketAddress from = kor::win::read_address(*static_cast<const addrinfo*>(record));
    family = from.family;
    if (family == FAMILY_IPV4)
    {
        SetIPv4BinaryForm(from.ipv4);
        return;
    }
    std::memcpy(address, from.ipv6, sizeof address);
    if (family != FAMILY_IPV6 || !IsMappedIPv4())
        return;
    address[10] = address[11] = 0;
    family = FAMILY_IPV4;
    SetIPv4BinaryForm(GetIPv4BinaryForm());
}

void IP_Structure::SetIPv4BinaryForm(unsigned int ipv4) noexcept
{
    std::memcpy(address + 12, &ipv4, sizeof ipv4);
    mask = kor::core::ipv4_mask(ipv4);
}

unsigned int IP_Structure::GetIPv4BinaryForm() const noexcept
{
    unsigned int ipv4 = 0;
    std::memcpy(&ipv4, address + 12, sizeof ipv4);
    return ipv4;
}

void IP_Structure::SetNetmask(int bits) noexcept
{
    kor::core::Prefix prefix{};
    if (family == FAMILY_IPV4 || !kor::core::ipv6_prefix(bits, prefix))
        return;
    prefixBytes = prefix.bytes;
    mask = prefix.partial_mask;
    if (bits != 0) // the address of an entry that matches everything is of no account
        kor::core::apply_prefix(address, prefix);
}

bool IP_Structure::IsMappedIPv4() const noexcept { return kor::core::is_mapped_ipv4(address); }

bool IP_Structure::IsEmpty() const noexcept
{
    if (family == FAMILY_IPV4)
        return GetIPv4BinaryForm() == 0;
    return std::all_of(std::begin(address), std::end(address), [](std::uint8_t byte) { return byte == 0; });
}

bool IP_Structure::CompareTo(IP_Structure candidate) const noexcept
{
    const IP_Structure entry = snapshot(*this);
    if (entry.family != candidate.family)
        return false;
    if (entry.family == FAMILY_IPV4)
        return (candidate.GetIPv4BinaryForm() & entry.mask) == entry.GetIPv4BinaryForm();
    if (entry.family != FAMILY_IPV6)
        return false;
    if (entry.prefixBytes == 0 && entry.mask == 0)
        return true;
    kor::core::apply_prefix(candidate.address, {entry.prefixBytes, entry.mask});
    return std::memcmp(entry.address, candidate.address, sizeof entry.address) == 0;
}

RWCString IP_Structure::ToString() const
{
    const IP_Structure entry = snapshot(*this);
    if (entry.family == FAMILY_IPV4)
        return RWCString(kor::win::ipv4_text(entry.GetIPv4BinaryForm()));
    char text[kor::win::IPV6_TEXT_SIZE + MAX_PREFIX_TEXT];
    entry.convert_v6_to_string(text, sizeof text);
    return RWCString(text);
}

void IP_Structure::convert_v6_to_string(char* buffer, int size) const noexcept
{
    if (buffer == nullptr || size <= 0)
        return;
    const IP_Structure entry = snapshot(*this);
    char numeric[kor::win::IPV6_TEXT_SIZE];
    if (size < kor::win::IPV6_TEXT_SIZE || !kor::win::write_ipv6(entry.address, numeric))
    {
        std::memset(buffer, 0, static_cast<std::size_t>(size));
        return;
    }
    kor::core::BoundedText text(buffer, static_cast<std::size_t>(size));
    text.add(kor::core::bounded(numeric));
    if (entry.prefixBytes >= 0)
        text.add('/').add_number(kor::core::prefix_bits({entry.prefixBytes, entry.mask}));
    text.finish();
}

// Kor_LogLevelRule ----------------------------------------------------------------------------------
Kor_LogLevelRule::Kor_LogLevelRule() : processIds{}, sessionIds{}, serviceNames{} { Init(); }

Kor_LogLevelRule::Kor_LogLevelRule(const RWCString& text) : Kor_LogLevelRule() { SetRule(text); }

void Kor_LogLevelRule::Init() noexcept
{
    ipCount = serviceNameCount = processIdCount = sessionIdCount = 0;
    logLevel = Kor_LogConf::DEFAULT_LEVEL;
}

bool Kor_LogLevelRule::SetRule(const RWCString& text)
{
    using namespace kor::core;
    Init();
    const RuleText rule = split_rule({text.data(), text.length()});
    logLevel = rule.level;
    KOR_TRACE("Rule log level: %d\n", logLevel);
    if (rule.field_count > RULE_ADDRESSES)
        read_field(
            "IP List", rule.lists[RULE_ADDRESSES],
            [this](std::string_view item) { AddIPAddress(std::string(item).c_str()); });
    if (rule.field_count > RULE_APPLICATIONS)
        read_field(
            "Applications", rule.lists[RULE_APPLICATIONS],
            [this](std::string_view item) { AddServiceName(std::string(item).c_str()); });
    if (rule.field_count > RULE_PROCESSES)
        read_field(
            "Process IDs", rule.lists[RULE_PROCESSES], [this](std::string_view item) { AddProcessID(id_of(item)); });
    if (rule.field_count > RULE_SESSIONS)
        read_field(
            "Session IDs", rule.lists[RULE_SESSIONS], [this](std::string_view item) { AddSessionID(id_of(item)); });
    return IsValid();
}

void Kor_LogLevelRule::AddIPAddress(const char* text)
{
    const kor::core::AddressText parts = kor::core::split_address(text == nullptr ? "" : text);
    addrinfo* const found = get_address_information(RWCString(std::string(parts.address)));
    const kor::win::AddressList list(found);
    for (addrinfo* record = found; record != nullptr; record = kor::win::next(*record))
    {
        const int count = snapshot(ipCount);
        if (count >= MAX_ENTRIES)
        {
            KOR_WARN("a rule holds %d addresses, %s is left out\n", MAX_ENTRIES, text);
            return;
        }
        IP_Structure entry(record);
        entry.SetNetmask(parts.bits);
        ipAddresses[usable(count, MAX_ENTRIES)] = entry;
        ipCount = count + 1;
    }
}

void Kor_LogLevelRule::AddServiceName(const char* name)
{
    const int count = snapshot(serviceNameCount);
    if (count >= MAX_ENTRIES)
    {
        KOR_WARN("a rule holds %d applications, %s is left out\n", MAX_ENTRIES, name);
        return;
    }
    char entry[SERVICE_NAME_SIZE];
    // Left out, the rule might apply to all applications; cut, it applies to one at most.
    if (!copy_cut(entry, name))
        KOR_WARN("application name %s is cut to %s\n", name, entry);
    copy_cut(serviceNames[usable(count, MAX_ENTRIES)], entry);
    serviceNameCount = count + 1;
}

void Kor_LogLevelRule::AddProcessID(unsigned long processId)
{
    const int count = snapshot(processIdCount);
    if (count >= MAX_ENTRIES)
    {
        KOR_WARN("a rule holds %d process ids, %lu is left out\n", MAX_ENTRIES, processId);
        return;
    }
    processIds[usable(count, MAX_ENTRIES)] = static_cast<std::uint32_t>(processId);
    processIdCount = count + 1;
}

void Kor_LogLevelRule::AddSessionID(unsigned long sessionId)
{
    const int count = snapshot(sessionIdCount);
    if (count >= MAX_ENTRIES)
    {
        KOR_WARN("a rule holds %d session ids, %lu is left out\n", MAX_ENTRIES, sessionId);
        return;
    }
    sessionIds[usable(count, MAX_ENTRIES)] = static_cast<std::uint32_t>(sessionId);
    sessionIdCount = count + 1;
}

bool Kor_LogLevelRule::DoesComply(
    IP_Structure& ip, const char* appName, unsigned long processId, unsigned long sessionId) const
{
    const Kor_LogLevelRule rule = snapshot(*this);
    return fits_address(rule, ip) && fits_all_but_address(rule, appName, processId, sessionId);
}

bool Kor_LogLevelRule::DoesComply(
    const RWCString& ip, const char* appName, unsigned long processId, unsigned long sessionId) const
{
    if (ip.isNull())
    {
        IP_Structure none;
        return DoesComply(none, appName, processId, sessionId);
    }
    addrinfo* const found = get_address_information(ip);
    const kor::win::AddressList list(found);
    // Asked once for each address, but always about the first: which clients a rule reaches must not
    // depend on the version that reads it.
    for (const addrinfo* record = found; record != nullptr; record = kor::win::next(*record))
    {
        IP_Structure first(found);
        if (DoesComply(first, appName, processId, sessionId))
            return true;
    }
    return false;
}

int Kor_LogLevelRule::LogLevel() const noexcept { return logLevel; }

bool Kor_LogLevelRule::IsValid() const noexcept
{
    const bool has_entry = ipCount > 0 || serviceNameCount > 0 || processIdCount > 0 || sessionIdCount > 0;
    return has_entry && logLevel >= 1 && logLevel <= 7;
}

RWCString Kor_LogLevelRule::ToString() const
{
    using Rule = Kor_LogLevelRule;
    const Rule rule = snapshot(*this);
    const int counts[4] = {
        usable(rule.ipCount, MAX_ENTRIES), usable(rule.serviceNameCount, MAX_ENTRIES),
        usable(rule.processIdCount, MAX_ENTRIES), usable(rule.sessionIdCount, MAX_ENTRIES)};
    std::string lists[4];
    lists[kor::core::RULE_ADDRESSES] = joined(
        counts[0], [](const Rule& from, int i) { return std::string(from.ipAddresses[i].ToString()); }, rule);
    lists[kor::core::RULE_APPLICATIONS] = joined(
        counts[1], [](const Rule& from, int i) { return std::string(bounded(from.serviceNames[i])); }, rule);
    lists[kor::core::RULE_PROCESSES] = joined(
        counts[2], [](const Rule& from, int i) { return std::to_string(from.processIds[i]); }, rule);
    lists[kor::core::RULE_SESSIONS] = joined(
        counts[3], [](const Rule& from, int i) { return std::to_string(from.sessionIds[i]); }, rule);
    std::size_t used = 4;
    while (used > 0 && counts[used - 1] == 0)
        --used;
    return RWCString(kor::core::join_rule(rule.logLevel, lists, used));
}

addrinfo* Kor_LogLevelRule::get_address_information(const RWCString& text) const
{
    int error = 0;
    kor::win::AddressList list = kor::win::resolve(text.data(), error);
    if (!list)
        kor::win::print_line(stdout, "getaddrinfo for ip %s, failed with error: %d\n", text.data(), error);
    return list.release();
}

// Kor_LogLevelRuleTable -----------------------------------------------------------------------------
Kor_LogLevelRuleTable::Kor_LogLevelRuleTable() : ruleCount(0) {}

void Kor_LogLevelRuleTable::Clear() noexcept { ruleCount = 0; }

bool Kor_LogLevelRuleTable::AddRule(const RWCString& text)
{
    const int count = snapshot(ruleCount);
    if (count >= MAX_RULES)
    {
        KOR_WARN("a package holds %d rules, (%s) is left out\n", MAX_RULES, text.data());
        return false;
    }
    if (!rules[usable(count, MAX_RULES)].SetRule(text))
        return false;
    ruleCount = count + 1;
    return true;
}

bool Kor_LogLevelRuleTable::HasRules() const noexcept { return ruleCount > 0; }

bool Kor_LogLevelRuleTable::ParseRules(const RWCString& text)
{
    Clear();
    bool all_valid = true;
    int number = 0;
    for (const std::string_view rule : kor::core::split_rules({text.data(), text.length()}))
    {
        ++number;
        KOR_TRACE("Parsing Rule #%d:\n", number);
        if (!AddRule(RWCString(std::string(rule))))
        {
            all_valid = false;
            KOR_TRACE("Parse error with rule\n");
        }
        KOR_TRACE("\n");
    }
    return all_valid;
}

int Kor_LogLevelRuleTable::GetLogLevel(
    char* ip, const RWCString& appName, unsigned long processId, unsigned long sessionId) const
{
    const RWCString client(ip);
    return best_level(
        *this, client, appName, processId, sessionId,
        [&](const Kor_LogLevelRule& rule) { return rule.DoesComply(client, appName.data(), processId, sessionId); });
}

RWCString Kor_LogLevelRuleTable::ToString() const
{
    const int count = usable(snapshot(ruleCount), MAX_RULES);
    if (count == 0)
        return RWCString();
    std::string text = "[";
    for (int i = 0; i < count; ++i)
        text += rules[i].ToString().data();
    return RWCString(text + "]");
}

// Kor_LogConf ---------------------------------------------------------------------------------------
void kor::offer_console()
{
    if (win::environment("PRISMATE_LOG_CONSOLE") == "1" && !is_tool_program() && win::open_console_if_none())
        win::print_line(stdout, "PRISMATE_LOG_CONSOLE = 1\n========================\n\n");
}

Kor_LogConf::Kor_LogConf(Unstamped) noexcept
    : output(OUTPUT_STDERR), printToDebugger(false), padding{}, changeCount(0), packageNames{}, sizeLimitInMb(0)
{
    std::memset(packageLevels, DEFAULT_LEVEL, sizeof packageLevels);
}

Kor_LogConf::Kor_LogConf() : Kor_LogConf(Unstamped())
{
    kor::offer_console();
    GenerateChangeCount();
}

Kor_LogConf::Kor_LogConf(const Kor_LogConf& other) : padding{} // NOLINT: assignment fills the rest
{
    *this = other;
}

void kor::copy_all_but_stamp(Kor_LogConf& to, const Kor_LogConf& from) noexcept
{
    to.output = from.output;
    // As a byte: a foreign block may hold one that is no bool.
    std::memcpy(&to.printToDebugger, &from.printToDebugger, sizeof to.printToDebugger);
    std::memcpy(static_cast<void*>(to.ruleTables), from.ruleTables, sizeof to.ruleTables);
    std::memcpy(to.packageNames, from.packageNames, sizeof to.packageNames);
    to.sizeLimitInMb = from.sizeLimitInMb;
    std::memcpy(to.packageLevels, from.packageLevels, sizeof to.packageLevels);
}

Kor_LogConf& Kor_LogConf::operator=(const Kor_LogConf& other)
{
    if (this == &other)
        return *this;
    kor::copy_all_but_stamp(*this, other);
    // Last: a reader in another process who saw the new stamp in front of the old levels would keep
    // those until the next change.
    SetChangeCount(other.changeCount);
    return *this;
}

Kor_LogConf::~Kor_LogConf() = default;

void Kor_LogConf::GenerateChangeCount()
{
    SetChangeCount(kor::core::next_change_count(kor::win::milliseconds_since_1970(), GetChangeCount()));
}

unsigned long long Kor_LogConf::GetChangeCount() const noexcept
{
    const std::uint64_t count = *static_cast<const volatile std::uint64_t*>(&changeCount);
    std::atomic_thread_fence(std::memory_order_acquire);
    return count;
}

void Kor_LogConf::SetChangeCount(unsigned long long count) noexcept
{
    std::atomic_thread_fence(std::memory_order_release);
    *static_cast<volatile std::uint64_t*>(&changeCount) = count;
}

int Kor_LogConf::GetOutput() const noexcept { return output; }

void Kor_LogConf::SetOutput(Output kind) noexcept { output = kind; }

bool Kor_LogConf::GetPrintToDebugger() noexcept
{
    unsigned char byte = 0;
    std::memcpy(&byte, &printToDebugger, sizeof byte);
    return byte != 0;
}

void Kor_LogConf::SetPrintToDebugger(bool on) noexcept { printToDebugger = on; }

int Kor_LogConf::GetSizeLimitInMb() const noexcept { return static_cast<int>(sizeLimitInMb); }

void Kor_LogConf::SetSizeLimitInMb(unsigned int megabytes) noexcept { sizeLimitInMb = megabytes; }

unsigned char* Kor_LogConf::GetPackages() noexcept { return packageLevels; }

void Kor_LogConf::SetPackages(const unsigned char* levels) noexcept
{
    std::memcpy(packageLevels, levels, sizeof packageLevels);
}

unsigned char Kor_LogConf::GetPackageDefaultLogLevel(int package) const noexcept
{
    return IsPackageNoLegal(package) ? packageLevels[package] : DEFAULT_LEVEL;
}

unsigned char Kor_LogConf::SetPackageDefaultLogLevel(int package, unsigned char level) noexcept
{
    if (!IsPackageNoLegal(package))
        return DEFAULT_LEVEL;
    return std::exchange(packageLevels[package], level);
}

const char* Kor_LogConf::GetPackageName(int package) const noexcept
{
    if (!IsPackageNoLegal(package))
        return nullptr;
    const char(&name)[PACKAGE_NAME_SIZE] = packageNames[package];
    // Shared memory can hold a name without its end; what is handed out must have one. Whoever writes over it again
    // while the caller reads is beyond this: the library itself takes copies.
    if (bounded(name).size() == PACKAGE_NAME_SIZE)
        const_cast<char&>(name[PACKAGE_NAME_SIZE - 1]) = '\0';
    return name;
}

void kor::set_package_name(char (&field)[Kor_LogConf::PACKAGE_NAME_SIZE], const char* name)
{
    char kept[Kor_LogConf::PACKAGE_NAME_SIZE];
    if (!copy_cut(kept, name))
        KOR_WARN("package name %s is cut to %s\n", name, kept);
    copy_cut(field, kept);
}

void Kor_LogConf::SetPackageName(int package, const char* name)
{
    if (IsPackageNoLegal(package))
        kor::set_package_name(packageNames[package], name);
}

void Kor_LogConf::SetPackageNames(const char* names) noexcept { std::memcpy(packageNames, names, sizeof packageNames); }

Kor_LogLevelRuleTable& Kor_LogConf::GetRuleTable(int package) noexcept { return ruleTables[package]; }

bool Kor_LogConf::IsPackageNoLegal(int package) noexcept
{
    return static_cast<unsigned int>(package) < static_cast<unsigned int>(PACKAGE_COUNT);
}

void Kor_LogConf::Print() const
{
    constexpr char dashes[] = "----------------------------------------------------\n";
    kor::win::print_line(stdout, "%soutput = %d\npckges err_lvl = \n", dashes, output);
    int unused = 0;
    for (int package = 0; package < PACKAGE_COUNT; ++package)
    {
        const TextSnapshot name(packageNames[package]);
        if (name.empty())
        {
            ++unused;
            continue;
        }
        std::printf(
            "%d-%s %d %s\n ", package, name.text().data(), packageLevels[package],
            ruleTables[package].ToString().data());
    }
    std::printf("%sUnused Packages: %d\n%s", dashes, unused, dashes);
}
