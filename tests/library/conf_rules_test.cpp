// conf_rules_test.cpp - log-level rules: their text, what they match, how they read, and what records from
// elsewhere may not do. Addresses are numeric; how names resolve is tested with a resolver of our own.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogConf.h"
#include "captured_stream.h"
#include "child.h"
#include "log_lines.h"

namespace
{
/// What a call prints to standard output.
template <class Call>
std::string printed_by(const Call& call)
{
    CapturedStream captured_out(stdout);
    call();
    captured_out.stop();
    return captured_out.text();
}

std::vector<std::uint32_t> process_ids(const Kor_LogLevelRule& rule)
{
    return {rule.processIds, rule.processIds + rule.processIdCount};
}

std::vector<std::uint32_t> session_ids(const Kor_LogLevelRule& rule)
{
    return {rule.sessionIds, rule.sessionIds + rule.sessionIdCount};
}

std::vector<std::string> service_names(const Kor_LogLevelRule& rule)
{
    return {rule.serviceNames, rule.serviceNames + rule.serviceNameCount};
}

std::vector<std::string> addresses(const Kor_LogLevelRule& rule)
{
    std::vector<std::string> result;
    for (int i = 0; i < rule.ipCount; ++i)
        result.emplace_back(rule.ipAddresses[i].ToString().data());
    return result;
}

using Names = std::vector<std::string>;
using Ids = std::vector<std::uint32_t>;

/// "1,2,...,count"
std::string numbers_to(int count)
{
    std::string result = "1";
    for (int i = 2; i <= count; ++i)
        result += ',' + std::to_string(i);
    return result;
}

int level_for(
    const Kor_LogLevelRuleTable& table, const char* ip, const char* name, unsigned long process, unsigned long session)
{
    std::string text = ip == nullptr ? "" : ip;
    return table.GetLogLevel(ip == nullptr ? nullptr : text.data(), name, process, session);
}

/// Memory whose last byte is the last readable one.
class GuardedTable
{
public:
    GuardedTable()
    {
        const std::size_t committed = 2 * PAGE;
        m_pages = static_cast<unsigned char*>(::VirtualAlloc(nullptr, committed + PAGE, MEM_RESERVE, PAGE_NOACCESS));
        ::VirtualAlloc(m_pages, committed, MEM_COMMIT, PAGE_READWRITE);
        m_table = reinterpret_cast<Kor_LogLevelRuleTable*>(m_pages + committed - sizeof(Kor_LogLevelRuleTable));
    }
    GuardedTable(const GuardedTable&) = delete;
    GuardedTable& operator=(const GuardedTable&) = delete;
    ~GuardedTable() { ::VirtualFree(m_pages, 0, MEM_RELEASE); }

    Kor_LogLevelRuleTable& table() const { return *m_table; }
    void fill(int byte) const { std::memset(static_cast<void*>(m_table), byte, sizeof *m_table); }

private:
    static constexpr std::size_t PAGE = 4096;
    unsigned char* m_pages;
    Kor_LogLevelRuleTable* m_table;
};

/// Every operation that only reads.
void read_everything(const Kor_LogLevelRuleTable& table)
{
    table.HasRules();
    for (const Kor_LogLevelRule& rule : table.rules)
    {
        rule.IsValid();
        rule.LogLevel();
        IP_Structure empty;
        rule.DoesComply(empty, "app.exe", 12, 3);
        rule.DoesComply(empty, nullptr, 12, 3);
        rule.DoesComply("10.1.2.3", "app.exe", 12, 3);
        RWCString text = rule.ToString();
        ASSERT_LT(text.length(), 10000u);
    }
    level_for(table, "10.1.2.3", "app.exe", 12, 3);
    level_for(table, nullptr, "", 0, 0);
    RWCString text = table.ToString();
    ASSERT_LT(text.length(), 100000u);
}
} // namespace

// One rule's text -----------------------------------------------------------------------------------

TEST(ConfRule, FieldsAreLevelAddressesApplicationsProcessIdsAndSessionIds)
{
    Kor_LogLevelRule rule;
    EXPECT_TRUE(rule.SetRule("6;10.1.2.3,10.0.0.0;app.exe,b;12,13;3,4"));
    EXPECT_EQ(rule.LogLevel(), 6);
    EXPECT_EQ(addresses(rule), (Names{"10.1.2.3", "10.0.0.0"}));
    EXPECT_EQ(service_names(rule), (Names{"app.exe", "b"}));
    EXPECT_EQ(process_ids(rule), (Ids{12, 13}));
    EXPECT_EQ(session_ids(rule), (Ids{3, 4}));

    const Kor_LogLevelRule constructed("6;10.1.2.3,10.0.0.0;app.exe,b;12,13;3,4");
    EXPECT_STREQ(constructed.ToString(), rule.ToString());
}

TEST(ConfRule, ARuleNeedsALevelFrom1To7AndAnEntry)
{
    struct Row
    {
        const char* text;
        bool valid;
        int level;
    };
    const Row rows[] = {
        {"5", false, 5},      {"", false, 0},      {"7;;;1", true, 7},       {"1;;;1", true, 1},
        {"0;;;1", false, 0},  {"8;;;1", false, 8}, {"9;10.0.0.1", false, 9}, {"-1;;;1", false, -1},
        {"x;;;1", false, 0},  {"7x;;;1", true, 7}, {" 7;;;1", true, 7},      {"+7;;;1", true, 7},
        {"7,8;;;1", true, 7}, {";;;1", false, 0},  {"07;;;1", true, 7},      {"0x7;;;1", false, 0},
        {"7;", false, 7},     {"7;;;;", false, 7}, {"7;;;;1", true, 7},      {"7;;;;;9", false, 7},
    };
    for (const Row& row : rows)
    {
        Kor_LogLevelRule rule;
        EXPECT_EQ(rule.SetRule(row.text), row.valid) << row.text;
        EXPECT_EQ(rule.IsValid(), row.valid) << row.text;
        EXPECT_EQ(rule.LogLevel(), row.level) << row.text;
    }
}

TEST(ConfRule, ALevelBeyondItsTypeIsNotASmallOne)
{
    for (const char* text : {"4294967303;;;1", "99999999999999999999;;;1", "-4294967289;;;1"})
    {
        Kor_LogLevelRule rule;
        EXPECT_FALSE(rule.SetRule(text)) << text;
    }
}

TEST(ConfRule, SettingARuleReplacesAllOfTheOneBefore)
{
    Kor_LogLevelRule rule("6;10.1.2.3;app.exe;12;3");
    EXPECT_TRUE(rule.SetRule("7;;b"));
    EXPECT_STREQ(rule.ToString(), "(7;;b)");
    EXPECT_FALSE(rule.SetRule("5"));
    EXPECT_STREQ(rule.ToString(), "(5)");
}

TEST(ConfRule, AnEmptyFieldAddsNothingAndTheNextOneCounts)
{
    const Kor_LogLevelRule rule("6;;app.exe");
    EXPECT_EQ(rule.ipCount, 0);
    EXPECT_EQ(service_names(rule), (Names{"app.exe"}));
    const Kor_LogLevelRule sessions("6;;;;3");
    EXPECT_EQ(sessions.processIdCount, 0);
    EXPECT_EQ(session_ids(sessions), (Ids{3}));
}

TEST(ConfRule, TheFirstEmptyItemEndsItsField)
{
    struct Row
    {
        const char* text;
        Names names;
        Ids processes;
    };
    const Row rows[] = {
        {"6;;,x;12", {}, {12}},  {"6;;a,,b;12", {"a"}, {12}},  {"6;;a,;12", {"a"}, {12}},         {"6;;,;12", {}, {12}},
        {"6;;a;,12", {"a"}, {}}, {"6;;a;12,,13", {"a"}, {12}}, {"6;,10.0.0.1;a;12", {"a"}, {12}},
    };
    for (const Row& row : rows)
    {
        const Kor_LogLevelRule rule(row.text);
        EXPECT_EQ(service_names(rule), row.names) << row.text;
        EXPECT_EQ(process_ids(rule), row.processes) << row.text;
        EXPECT_EQ(rule.ipCount, 0) << row.text;
    }
}

TEST(ConfRule, FieldsBehindTheSessionIdsAreIgnored)
{
    const Kor_LogLevelRule rule("6;;a;12;3;99;100");
    EXPECT_EQ(session_ids(rule), (Ids{3}));
    EXPECT_EQ(process_ids(rule), (Ids{12}));
}

TEST(ConfRule, IdsAreReadAsDecimalNumbersUpToWhatIsNone)
{
    const Kor_LogLevelRule rule("6;;;12x,x,-1, 7,0x10,2147483647;012,+5");
    EXPECT_EQ(process_ids(rule), (Ids{12, 0, 0xFFFFFFFF, 7, 0, 2147483647}));
    EXPECT_EQ(session_ids(rule), (Ids{12, 5}));
}

TEST(ConfRule, IdsBeyondTheirTypeAreNotSmallOnes)
{
    Kor_LogLevelRule rule;
    printed_by([&] { rule.SetRule("6;;;4294967308,99999999999999999999;4294967299"); });
    ASSERT_EQ(rule.processIdCount, 2);
    EXPECT_NE(rule.processIds[0], 12u);
    EXPECT_GE(rule.processIds[0], 0x7FFFFFFFu);
    EXPECT_GE(rule.processIds[1], 0x7FFFFFFFu);
    ASSERT_EQ(rule.sessionIdCount, 1);
    EXPECT_GE(rule.sessionIds[0], 0x7FFFFFFFu);
}

TEST(ConfRule, APrefixLengthCountsForIpv6Only)
{
    const Kor_LogLevelRule rule("6;10.1.2.3/8,10.0.0.0/24,fe80::1/10,2001:db8::1/128,2001:db8::1/x,2001:db8::/32/64");
    EXPECT_EQ(
        addresses(rule), (Names{"10.1.2.3", "10.0.0.0", "fe80::/10", "2001:db8::1", "2001:db8::1/0", "2001:db8::/32"}));
    const std::uint8_t host[] = {255, 255, 255, 255}, network[] = {255, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&rule.ipAddresses[0].mask, host, 4), 0);
    EXPECT_EQ(std::memcmp(&rule.ipAddresses[1].mask, network, 4), 0);
    EXPECT_EQ(rule.ipAddresses[2].prefixBytes, 1);
    EXPECT_EQ(rule.ipAddresses[2].mask & 0xFF, 0xC0u);
    EXPECT_EQ(rule.ipAddresses[3].prefixBytes, -1);
}

TEST(ConfRule, AMappedAddressIsAnIpv4Entry)
{
    const Kor_LogLevelRule rule("6;::ffff:192.168.1.7");
    EXPECT_EQ(addresses(rule), (Names{"192.168.1.7"}));
    EXPECT_EQ(rule.ipAddresses[0].family, 2);
}

TEST(ConfRule, AnApplicationNameOf19CharactersFits)
{
    const std::string name(19, 'n');
    Kor_LogLevelRule rule;
    EXPECT_EQ(printed_by([&] { rule.SetRule(("6;;" + name).c_str()); }), "");
    EXPECT_EQ(service_names(rule), (Names{name}));
}

TEST(ConfRule, ApplicationNamesOf20CharactersAndMoreAreCutTo19WithAWarning)
{
    const GuardedTable guarded; // so that one that is not cut ends the test at once
    for (const std::size_t length : {20u, 21u, 50u, 5000u})
    {
        Kor_LogLevelRule& rule = guarded.table().rules[9];
        rule = Kor_LogLevelRule();
        const std::string text = "6;;" + std::string(length, 'n') + ",b;12;3";
        const std::string out = printed_by([&] { rule.SetRule(text.c_str()); });
        EXPECT_EQ(out.rfind("Kor_LogFile - Warning - ", 0), 0u) << length << ": " << out;
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << length << ": " << out;
        EXPECT_EQ(service_names(rule), (Names{std::string(19, 'n'), "b"})) << length;
        EXPECT_EQ(process_ids(rule), (Ids{12})) << length;
        EXPECT_EQ(rule.LogLevel(), 6) << length;
    }
}

TEST(ConfRule, TheTenthOverlongNameLeavesTheLevelAlone)
{
    Kor_LogLevelRule rule;
    printed_by([&] { rule.SetRule(("6;;1,2,3,4,5,6,7,8,9," + std::string(60, 'n')).c_str()); });
    EXPECT_EQ(rule.serviceNameCount, 10);
    EXPECT_EQ(rule.LogLevel(), 6);
    EXPECT_TRUE(rule.IsValid());
}

TEST(ConfRule, TenEntriesOfEveryListFit)
{
    Kor_LogLevelRule rule;
    const std::string ids = numbers_to(10);
    const std::string ips =
        "10.0.0.1,10.0.0.2,10.0.0.3,10.0.0.4,10.0.0.5,10.0.0.6,10.0.0.7,10.0.0.8,10.0.0.9,10.0.0.10";
    const std::string out = printed_by([&] { rule.SetRule(("6;" + ips + ';' + ids + ';' + ids + ';' + ids).c_str()); });
    EXPECT_EQ(out, "");
    EXPECT_EQ(rule.ToString(), ("(6;" + ips + ';' + ids + ';' + ids + ':' + ids + ')').c_str());
}

TEST(ConfRule, AnEleventhEntryOfAListIsLeftOutWithAWarning)
{
    const std::string eleven = numbers_to(11);
    const std::string ten = numbers_to(10);
    std::string ips = "10.0.0.1";
    for (int i = 2; i <= 11; ++i)
        ips += ",10.0.0." + std::to_string(i);
    struct Row
    {
        std::string text;
        int ip, service, process, session;
    };
    const Row rows[] = {
        {"6;" + ips + ";a;12;3", 10, 1, 1, 1},
        {"6;10.1.2.3;" + eleven + ";12;3", 1, 10, 1, 1},
        {"6;10.1.2.3;a;" + eleven + ";3", 1, 1, 10, 1},
        {"6;10.1.2.3;a;12;" + eleven, 1, 1, 1, 10},
    };
    for (const Row& row : rows)
    {
        Kor_LogLevelRule rule;
        const std::string out = printed_by([&] { rule.SetRule(row.text.c_str()); });
        EXPECT_EQ(out.rfind("Kor_LogFile - Warning - ", 0), 0u) << row.text << ": " << out;
        EXPECT_EQ(rule.ipCount, row.ip) << row.text;
        EXPECT_EQ(rule.serviceNameCount, row.service) << row.text;
        EXPECT_EQ(rule.processIdCount, row.process) << row.text;
        EXPECT_EQ(rule.sessionIdCount, row.session) << row.text;
        EXPECT_EQ(rule.LogLevel(), 6) << row.text;
        EXPECT_TRUE(rule.IsValid()) << row.text;
        if (row.service == 1)
        {
            EXPECT_EQ(service_names(rule), (Names{"a"})) << row.text;
        }
        if (row.process == 1)
        {
            EXPECT_EQ(process_ids(rule), (Ids{12})) << row.text;
        }
        if (row.session == 1)
        {
            EXPECT_EQ(session_ids(rule), (Ids{3})) << row.text;
        }
    }
}

TEST(ConfRule, ListsGrowOneEntryAtATimeUpToTen)
{
    Kor_LogLevelRule rule;
    printed_by(
        [&]
        {
            for (int i = 0; i < 15; ++i)
            {
                rule.AddIPAddress("10.1.2.3");
                rule.AddServiceName("a");
                rule.AddProcessID(7);
                rule.AddSessionID(8);
            }
        });
    EXPECT_EQ(rule.ipCount, 10);
    EXPECT_EQ(service_names(rule), Names(10, "a"));
    EXPECT_EQ(process_ids(rule), Ids(10, 7));
    EXPECT_EQ(session_ids(rule), Ids(10, 8));
    EXPECT_EQ(rule.LogLevel(), 4);
}

TEST(ConfRule, TextsOfAHundredThousandCharactersDoNoHarm)
{
    const std::string texts[] = {
        std::string(100000, ';'),          std::string(100000, ','),           "7;;" + std::string(100000, 'a') + ";1",
        "7;;;" + std::string(100000, '1'), "7;;;1" + std::string(100000, ','), std::string(100000, '7'),
        std::string(100000, '('),          "(" + std::string(100000, '['),
    };
    for (const std::string& text : texts)
    {
        printed_by(
            [&]
            {
                Kor_LogLevelRule rule;
                rule.SetRule(text.c_str());
                ASSERT_LT(rule.ToString().length(), 1000u);
                Kor_LogLevelRuleTable table;
                table.ParseRules(text.c_str());
                table.ParseRules(('(' + text + ')').c_str());
                ASSERT_LE(table.ruleCount, 10);
            });
    }
}

// A rule's text form --------------------------------------------------------------------------------

TEST(ConfRule, TheTextFormHasEveryFieldUpToTheLastOneInUse)
{
    struct Row
    {
        const char* text;
        const char* form;
    };
    const Row rows[] = {
        {"6", "(6)"},
        {"6;10.1.2.3", "(6;10.1.2.3)"},
        {"6;10.1.2.3,fe80::/10", "(6;10.1.2.3,fe80::/10)"},
        {"6;;a", "(6;;a)"},
        {"6;;a,b.exe", "(6;;a,b.exe)"},
        {"6;;;12", "(6;;;12)"},
        {"6;;;12,13", "(6;;;12,13)"},
        {"6;;;;3", "(6;;;:3)"},
        {"6;;;12;3", "(6;;;12:3)"},
        {"6;;;12,13;3,4", "(6;;;12,13:3,4)"},
        {"6;10.1.2.3;;;3", "(6;10.1.2.3;;:3)"},
        {"6;10.1.2.3;a;12;3", "(6;10.1.2.3;a;12:3)"},
        {"6;10.1.2.3;;12", "(6;10.1.2.3;;12)"},
        {"9;;a", "(9;;a)"},
    };
    for (const Row& row : rows)
        EXPECT_STREQ(Kor_LogLevelRule(row.text).ToString(), row.form) << row.text;
}

TEST(ConfRule, SessionIdsWrittenAndReadBackBecomePartOfTheProcessIdField)
{
    struct Row
    {
        const char* text;
        Ids processes;
    };
    const Row rows[] = {
        {"6;;;12;3", {12}},
        {"6;;;;3", {0}}, // ":3" holds no digits in front
        {"6;;;12,13;3", {12, 13}},
        {"6;;;12;3,4", {12, 4}}, // the comma still separates
    };
    for (const Row& row : rows)
    {
        Kor_LogLevelRuleTable table;
        ASSERT_TRUE(table.ParseRules(Kor_LogLevelRule(row.text).ToString())) << row.text;
        EXPECT_EQ(process_ids(table.rules[0]), row.processes) << row.text;
        EXPECT_EQ(table.rules[0].sessionIdCount, 0) << row.text;
    }
}

// The rule list -------------------------------------------------------------------------------------

TEST(ConfRuleTable, OneRuleWithANetworkIsParsedFromItsParentheses)
{
    Kor_LogLevelRuleTable table;
    EXPECT_TRUE(table.ParseRules("(7;10.0.0.0/8)]"));
    ASSERT_EQ(table.ruleCount, 1);
    EXPECT_EQ(table.rules[0].LogLevel(), 7);
    EXPECT_EQ(addresses(table.rules[0]), (Names{"10.0.0.0"}));
    const std::uint8_t mask[] = {255, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&table.rules[0].ipAddresses[0].mask, mask, 4), 0);
}

TEST(ConfRuleTable, ParsingTakesTheParenthesisedRulesAndNothingElse)
{
    struct Row
    {
        const char* text;
        bool result;
        const char* form;
    };
    const Row rows[] = {
        {"", true, ""},
        {"]", true, ""},
        {"7;;a", true, ""},
        {"(7;;a)]", true, "[(7;;a)]"},
        {"(7;;a)(5;;b)]", true, "[(7;;a)(5;;b)]"},
        {"[(7;;a)(5;;b)]", true, "[(7;;a)(5;;b)]"},
        {"x(7;;a)y(5;;b)z", true, "[(7;;a)(5;;b)]"},
        {"(9;10.0.0.1)", false, ""},
        {"(5)", false, ""},
        {"()", false, ""},
        {"(9;;a)(5;;b)", false, "[(5;;b)]"},
        {"(5;;b)(9;;a)", false, "[(5;;b)]"},
        {"(7;;a)(9;;b)(5;;c)", false, "[(7;;a)(5;;c)]"},
        {"(7;;a", true, ""},
        {"(7;;a)(5;;b", true, "[(7;;a)]"},
        {"7;;a)", true, ""},
        {")(7;;a)", true, "[(7;;a)]"},
        {"(7;;a))", true, "[(7;;a)]"},
        {"((7;;a)", false, ""},
        {"(7;;(a)", true, "[(7;;(a)]"},
        {")(", true, ""},
    };
    for (const Row& row : rows)
    {
        Kor_LogLevelRuleTable table;
        table.AddRule("3;;before");
        EXPECT_EQ(table.ParseRules(row.text), row.result) << row.text;
        EXPECT_STREQ(table.ToString(), row.form) << row.text;
        EXPECT_EQ(table.HasRules(), *row.form != '\0') << row.text;
    }
}

TEST(ConfRuleTable, AnAddedRuleCountsOnlyWhenItIsValid)
{
    Kor_LogLevelRuleTable table;
    EXPECT_TRUE(table.AddRule("7;;a"));
    EXPECT_EQ(table.ruleCount, 1);
    EXPECT_FALSE(table.AddRule("5"));
    EXPECT_EQ(table.ruleCount, 1);
    EXPECT_FALSE(table.AddRule("8;;a"));
    EXPECT_EQ(table.ruleCount, 1);
    EXPECT_TRUE(table.AddRule("1;;;2"));
    EXPECT_EQ(table.ruleCount, 2);
    EXPECT_STREQ(table.ToString(), "[(7;;a)(1;;;2)]");
}

TEST(ConfRuleTable, AnEleventhRuleIsRefusedWithAWarning)
{
    struct
    {
        Kor_LogLevelRuleTable table;
        unsigned char behind[sizeof(Kor_LogLevelRule)];
    } memory;
    std::memset(memory.behind, 0x5A, sizeof memory.behind);
    std::string text;
    for (int i = 1; i <= 11; ++i)
        text += "(7;;;" + std::to_string(i) + ')';
    bool result = true;
    const std::string out = printed_by([&] { result = memory.table.ParseRules(text.c_str()); });
    EXPECT_FALSE(result);
    EXPECT_EQ(out.rfind("Kor_LogFile - Warning - ", 0), 0u) << out;
    EXPECT_EQ(memory.table.ruleCount, 10);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(process_ids(memory.table.rules[i]), (Ids{static_cast<std::uint32_t>(i + 1)}));
    for (const unsigned char behind : memory.behind)
        ASSERT_EQ(behind, 0x5A);
}

TEST(ConfRuleTable, ATableWithoutRulesReadsAsNothing) { EXPECT_STREQ(Kor_LogLevelRuleTable().ToString(), ""); }

// Matching ------------------------------------------------------------------------------------------

TEST(ConfRuleMatch, EveryListInUseMustHoldAFittingEntry)
{
    struct Row
    {
        const char* rule;
        const char* ip;
        const char* name;
        unsigned long process, session;
        bool complies;
    };
    const Row rows[] = {
        {"6;10.1.2.3", "10.1.2.3", "x", 1, 1, true},
        {"6;10.1.2.3", "10.1.2.4", "x", 1, 1, false},
        {"6;10.1.2.3", "", "x", 1, 1, false},
        {"6;10.9.9.9,10.1.2.3", "10.1.2.3", "x", 1, 1, true},
        {"6;10.0.0.0", "10.20.30.40", "x", 1, 1, true},
        {"6;192.168.1.7", "::ffff:192.168.1.7", "x", 1, 1, true},
        {"6;fe80::/10", "febf::1", "x", 1, 1, true},
        {"6;fe80::/10", "fec0::1", "x", 1, 1, false},
        {"6;fe80::/10", "10.1.2.3", "x", 1, 1, false},
        {"6;;app.exe", "", "app.exe", 1, 1, true},
        {"6;;app.exe", "10.1.2.3", "app.exe", 1, 1, true},
        {"6;;app.exe", "", "App.exe", 1, 1, false},
        {"6;;app.exe", "", "app.ex", 1, 1, false},
        {"6;;app.exe", "", "app.exe2", 1, 1, false},
        {"6;;app.exe", "", "", 1, 1, false},
        {"6;;b,app.exe", "", "app.exe", 1, 1, true},
        {"6;;;12", "", "", 12, 1, true},
        {"6;;;12", "", "", 13, 1, false},
        {"6;;;11,12", "", "", 12, 1, true},
        {"6;;;;3", "", "", 1, 3, true},
        {"6;;;;3", "", "", 1, 4, false},
        {"6;;;;2,3", "", "", 1, 3, true},
        {"6;10.0.0.0;app.exe;12;3", "10.1.1.1", "app.exe", 12, 3, true},
        {"6;10.0.0.0;app.exe;12;3", "11.1.1.1", "app.exe", 12, 3, false},
        {"6;10.0.0.0;app.exe;12;3", "10.1.1.1", "other", 12, 3, false},
        {"6;10.0.0.0;app.exe;12;3", "10.1.1.1", "app.exe", 13, 3, false},
        {"6;10.0.0.0;app.exe;12;3", "10.1.1.1", "app.exe", 12, 4, false},
        {"6", "10.1.1.1", "x", 1, 1, true}, // no list fails
    };
    for (const Row& row : rows)
    {
        const Kor_LogLevelRule rule(row.rule);
        EXPECT_EQ(rule.DoesComply(RWCString(row.ip), row.name, row.process, row.session), row.complies)
            << row.rule << " with " << row.ip << ' ' << row.name << ' ' << row.process << ' ' << row.session;
    }
}

TEST(ConfRuleMatch, AnAddressValueMatchesLikeItsText)
{
    const Kor_LogLevelRule rule("6;10.0.0.0");
    IP_Structure inside, outside, empty;
    inside.family = outside.family = 2;
    const std::uint8_t in[] = {10, 1, 2, 3}, out[] = {11, 1, 2, 3};
    std::memcpy(inside.address + 12, in, 4);
    std::memcpy(outside.address + 12, out, 4);
    EXPECT_TRUE(rule.DoesComply(inside, "x", 1, 1));
    EXPECT_FALSE(rule.DoesComply(outside, "x", 1, 1));
    EXPECT_FALSE(rule.DoesComply(empty, "x", 1, 1));
    EXPECT_TRUE(Kor_LogLevelRule("6;;x").DoesComply(empty, "x", 1, 1));
}

TEST(ConfRuleMatch, NoApplicationNameFitsNoApplicationList)
{
    IP_Structure empty;
    EXPECT_FALSE(Kor_LogLevelRule("6;;app.exe").DoesComply(empty, nullptr, 1, 1));
    EXPECT_TRUE(Kor_LogLevelRule("6;;;1").DoesComply(empty, nullptr, 1, 1));
}

TEST(ConfRuleMatch, IdsUseAll32Bits)
{
    IP_Structure empty;
    const Kor_LogLevelRule rule("6;;;-1");
    EXPECT_TRUE(rule.DoesComply(empty, "", 0xFFFFFFFFul, 0));
    EXPECT_FALSE(rule.DoesComply(empty, "", 0x7FFFFFFFul, 0));
}

TEST(ConfRuleMatch, TheLargestLevelOfTheComplyingRulesWinsWhateverTheirOrder)
{
    struct Row
    {
        const char* rules;
        int level;
    };
    const Row rows[] = {
        {"", 0},
        {"(5;;a)(7;;a)", 7},
        {"(7;;a)(5;;a)", 7},
        {"(5;;a)(7;;b)", 5},
        {"(5;;b)(7;;b)", 0},
        {"(5;;a)(5;;a)", 5},
        {"(1;;a)", 1},
        {"(3;;a)(1;;;12)(6;;;;3)(7;;;13)", 6},
    };
    for (const Row& row : rows)
    {
        Kor_LogLevelRuleTable table;
        ASSERT_TRUE(table.ParseRules(row.rules)) << row.rules;
        EXPECT_EQ(level_for(table, "", "a", 12, 3), row.level) << row.rules;
        EXPECT_EQ(level_for(table, nullptr, "a", 12, 3), row.level) << row.rules;
    }
}

TEST(ConfRuleMatch, NoClientAddressMeansAnEmptyOne)
{
    Kor_LogLevelRuleTable table;
    ASSERT_TRUE(table.ParseRules("(7;10.0.0.0)(5;;a)"));
    EXPECT_EQ(level_for(table, nullptr, "a", 1, 1), 5);
    EXPECT_EQ(level_for(table, "", "a", 1, 1), 5);
    EXPECT_EQ(level_for(table, "10.1.2.3", "a", 1, 1), 7);
}

// Records from elsewhere ----------------------------------------------------------------------------

TEST(ConfRuleRecord, HostileCountsAreClampedToTheLists)
{
    const GuardedTable guarded;
    Kor_LogLevelRuleTable& table = guarded.table();
    for (const int count : {-1, INT_MIN, 11, 12, 1000, INT_MAX})
    {
        guarded.fill(0);
        for (Kor_LogLevelRule& rule : table.rules)
        {
            rule.Init();
            rule.logLevel = 6;
            rule.ipCount = rule.serviceNameCount = rule.processIdCount = rule.sessionIdCount = count;
            for (IP_Structure& address : rule.ipAddresses)
                address.family = 2;
            for (char(&name)[20] : rule.serviceNames)
                std::strcpy(name, "app.exe");
        }
        table.ruleCount = count;
        read_everything(table);
    }
}

TEST(ConfRuleRecord, ACountBeyondAListMeansAFullList)
{
    Kor_LogLevelRule rule;
    rule.logLevel = 6;
    for (std::uint32_t i = 0; i < 10; ++i)
        rule.processIds[i] = i + 1;
    rule.processIdCount = 1000;
    EXPECT_EQ(rule.ToString(), ("(6;;;" + numbers_to(10) + ')').c_str());
    IP_Structure empty;
    EXPECT_TRUE(rule.DoesComply(empty, "", 10, 0));
    EXPECT_FALSE(rule.DoesComply(empty, "", 11, 0));
}

TEST(ConfRuleRecord, ANegativeCountMeansAnEmptyList)
{
    Kor_LogLevelRule rule;
    rule.ipCount = rule.serviceNameCount = rule.processIdCount = rule.sessionIdCount = -7;
    EXPECT_STREQ(rule.ToString(), "(4)");
    IP_Structure empty;
    EXPECT_TRUE(rule.DoesComply(empty, "", 1, 1));

    Kor_LogLevelRuleTable table;
    table.AddRule("7;;a");
    table.ruleCount = -1;
    EXPECT_STREQ(table.ToString(), "");
    EXPECT_EQ(level_for(table, "", "a", 1, 1), 0);
}

TEST(ConfRuleRecord, ARuleCountBeyondTheTableMeansAFullTable)
{
    Kor_LogLevelRuleTable table;
    for (int i = 0; i < 10; ++i)
        table.AddRule("3;;a");
    table.rules[9].logLevel = 7;
    table.ruleCount = INT_MAX;
    EXPECT_EQ(level_for(table, "", "a", 1, 1), 7);
    EXPECT_STREQ(table.ToString(), "[(3;;a)(3;;a)(3;;a)(3;;a)(3;;a)(3;;a)(3;;a)(3;;a)(3;;a)(7;;a)]");
}

TEST(ConfRuleRecord, NamesWithoutATerminatorEndWithTheirSlot)
{
    const GuardedTable guarded;
    Kor_LogLevelRuleTable& table = guarded.table();
    guarded.fill(0);
    table.ruleCount = 10;
    for (Kor_LogLevelRule& rule : table.rules)
    {
        rule.Init();
        rule.logLevel = 0x61616161; // no terminator there either
        rule.serviceNameCount = 10;
        std::memset(rule.serviceNames, 'a', sizeof rule.serviceNames);
    }
    read_everything(table);
    const std::string form = table.rules[9].ToString().data();
    EXPECT_EQ(form.find(std::string(21, 'a')), std::string::npos) << form;
    EXPECT_EQ(std::count(form.begin(), form.end(), ','), 9) << form;
    IP_Structure empty;
    EXPECT_FALSE(table.rules[9].DoesComply(empty, std::string(21, 'a').c_str(), 1, 1));
    EXPECT_FALSE(table.rules[9].DoesComply(empty, std::string(200, 'a').c_str(), 1, 1));
}

TEST(ConfRuleRecord, AnyBytesAtAllCanBeRead)
{
    const GuardedTable guarded;
    guarded.fill(0xFF);
    read_everything(guarded.table());
    guarded.fill(0x7F);
    read_everything(guarded.table());
    std::uint32_t state = 12345;
    for (int round = 0; round < 20; ++round)
    {
        auto* const bytes = reinterpret_cast<unsigned char*>(&guarded.table());
        for (std::size_t i = 0; i < sizeof(Kor_LogLevelRuleTable); ++i)
        {
            state = state * 1664525u + 1013904223u;
            bytes[i] = static_cast<unsigned char>(state >> 24);
        }
        for (Kor_LogLevelRule& rule : guarded.table().rules)
        {
            for (IP_Structure& address : rule.ipAddresses)
                address.family = (address.mask & 1) != 0 ? 23 : 2;
        }
        read_everything(guarded.table());
    }
}

// Tracing -------------------------------------------------------------------------------------------

namespace
{
/// Each argument is one step; what it prints follows its own name.
KOR_CHILD(conf_rules_trace)
{
    Kor_LogLevelRuleTable table;
    for (const std::string& step : args)
    {
        std::printf("<%s>\n", step.c_str());
        if (step == "match")
            level_for(table, "", "app.exe", 12, 3);
        else if (step == "match nothing")
            level_for(table, "", "x", 99, 98);
        else
            table.ParseRules(step.c_str());
    }
    return 0;
}

std::string trace_of(const std::vector<std::string>& steps, const char* debug = "1")
{
    ChildOptions options;
    options.arguments = steps;
    if (debug != nullptr)
        options.environment = {{"PRISMATE_LOG_DEBUG", debug}};
    const ChildResult result = run_child("conf_rules_trace", options);
    EXPECT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0u);
    return text_of(result.out);
}
} // namespace

TEST(ConfRuleTrace, ParsingIsSilentWithoutTheDebugVariable)
{
    EXPECT_EQ(trace_of({"(6;10.1.2.3;app.exe)(9)", "match"}, nullptr), "<(6;10.1.2.3;app.exe)(9)>\n<match>\n");
}

TEST(ConfRuleTrace, ParsingPrintsEveryRuleWithItsFields)
{
    EXPECT_EQ(
        trace_of({"(6;10.1.2.3,10.0.0.0/8;app.exe,b;12,13;3)"}), "<(6;10.1.2.3,10.0.0.0/8;app.exe,b;12,13;3)>\n"
                                                                 "Parsing Rule #1:\n"
                                                                 "Rule log level: 6\n"
                                                                 "IP List: 10.1.2.3 10.0.0.0/8 \n"
                                                                 "Applications: app.exe b \n"
                                                                 "Process IDs: 12 13 \n"
                                                                 "Session IDs: 3 \n"
                                                                 "\n");
}

TEST(ConfRuleTrace, AnyValueOfTheDebugVariableTurnsTracingOn)
{
    EXPECT_EQ(
        trace_of({"(6;;a)"}, "0"), "<(6;;a)>\nParsing Rule #1:\nRule log level: 6\nIP List: \nApplications: a \n\n");
}

TEST(ConfRuleTrace, FieldsThatAreMissingAreNotPrintedAndABadRuleIsReported)
{
    EXPECT_EQ(
        trace_of({"(5)(9;;a)(7;;;12)"}), "<(5)(9;;a)(7;;;12)>\n"
                                         "Parsing Rule #1:\n"
                                         "Rule log level: 5\n"
                                         "Parse error with rule\n"
                                         "\n"
                                         "Parsing Rule #2:\n"
                                         "Rule log level: 9\n"
                                         "IP List: \n"
                                         "Applications: a \n"
                                         "Parse error with rule\n"
                                         "\n"
                                         "Parsing Rule #3:\n"
                                         "Rule log level: 7\n"
                                         "IP List: \n"
                                         "Applications: \n"
                                         "Process IDs: 12 \n"
                                         "\n");
}

TEST(ConfRuleTrace, MatchingPrintsTheReasonOfEveryRule)
{
    const std::string rules = "(5;10.0.0.0)(6;;b,app.exe;11,12;2,3)(7;;app.exe)(4;;app.exe)(7;;app.exe)";
    const std::string trace = trace_of({rules, "match", "match nothing"});
    const std::size_t at = trace.find("<match>\n");
    ASSERT_NE(at, std::string::npos);
    EXPECT_EQ(
        trace.substr(at), "<match>\n"
                          "Checking log level to [IP, Application name, Process ID, Session ID]: [, app.exe, 12, 3]\n"
                          "Checking rule #1\n"
                          "Rule has IP configuration but no IP was set\n"
                          "Checking rule #2\n"
                          "application name fits with app.exe\n"
                          "process id fits with 12\n"
                          "session id does not fit with 2\n"
                          "session id fits with 3\n"
                          "Rule fits with level 6\n"
                          "Checking rule #3\n"
                          "application name fits with app.exe\n"
                          "Rule fits with level 7\n"
                          "Checking rule #4\n"
                          "application name fits with app.exe\n"
                          "Checking rule #5\n" // as high as the third, which stays
                          "application name fits with app.exe\n"
                          "<match nothing>\n"
                          "Checking log level to [IP, Application name, Process ID, Session ID]: [, x, 99, 98]\n"
                          "Checking rule #1\n"
                          "Rule has IP configuration but no IP was set\n"
                          "Checking rule #2\n"
                          "Application name did not fit\n"
                          "Checking rule #3\n"
                          "Application name did not fit\n"
                          "Checking rule #4\n"
                          "Application name did not fit\n"
                          "Checking rule #5\n"
                          "Application name did not fit\n");
}

TEST(ConfRuleTrace, IdsThatFitNowhereAreReportedInTheOrderOfTheLists)
{
    const std::string trace = trace_of({"(5;;;11,13)(6;;;;4,5)", "match"});
    EXPECT_EQ(
        trace.substr(trace.find("<match>\n")),
        "<match>\n"
        "Checking log level to [IP, Application name, Process ID, Session ID]: [, app.exe, 12, 3]\n"
        "Checking rule #1\n"
        "Process ID did not fit\n"
        "Checking rule #2\n"
        "session id does not fit with 4\n"
        "session id does not fit with 5\n"
        "Session ID did not fit\n");
}

TEST(ConfRuleTrace, AnEmptyTableIsNotEvenLookedAt) { EXPECT_EQ(trace_of({"]", "match"}), "<]>\n<match>\n"); }
