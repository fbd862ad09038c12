// rule_text_test.cpp - log-level rules as text: taken apart, put together, and both in turn.

#include "core/rule_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using kor::core::RuleText;

namespace
{
using Items = std::vector<std::string_view>;

struct Rule
{
    int level;
    std::size_t field_count;
    Items lists[4];
};

std::string joined(const Items& items)
{
    std::string text;
    for (const std::string_view item : items)
        text.append(text.empty() ? "" : ",").append(item);
    return text;
}

/// The text of a rule that was taken apart.
std::string joined(const RuleText& rule)
{
    const std::string lists[4] = {
        joined(rule.lists[0]), joined(rule.lists[1]), joined(rule.lists[2]), joined(rule.lists[3])};
    return kor::core::join_rule(rule.level, lists, rule.field_count);
}
} // namespace

TEST(RuleList, IsSplitAtItsParentheses)
{
    struct Row
    {
        const char* text;
        Items rules;
    };
    const Row rows[] = {
        {"", {}},
        {"[]", {}},
        {"7;10.0.0.1", {}},
        {"(7;10.0.0.0/8)]", {"7;10.0.0.0/8"}},
        {"[(7;10.0.0.1)]", {"7;10.0.0.1"}},
        {"(rule1)(rule2)]", {"rule1", "rule2"}},
        {"x(a) and (b)y(c)", {"a", "b", "c"}},
        {"()", {""}},
        {"()()", {"", ""}},
        {"((a)", {"(a"}},
        {"(a))", {"a"}},
        {"(a(b)c)", {"a(b"}},
        {"((a)(b)", {"(a", "b"}},
        {"(a", {}},
        {"(a)(b", {"a"}},
        {"a)", {}},
        {")(", {}},
        {")(a)", {"a"}},
        {"(", {}},
        {")", {}},
        {"( a b )", {" a b "}},
        {"(a;]b)", {"a;]b"}},
        {"(a\nb)", {"a\nb"}},
    };
    for (const Row& row : rows)
        EXPECT_EQ(kor::core::split_rules(row.text), row.rules) << row.text;
}

TEST(RuleList, OfManyRulesIsSplitWhole)
{
    std::string text;
    for (int i = 0; i < 10'000; ++i)
        text += "(5;;a)";
    const Items rules = kor::core::split_rules(text);
    ASSERT_EQ(rules.size(), 10'000u);
    EXPECT_EQ(rules.back(), "5;;a");
    EXPECT_TRUE(kor::core::split_rules(std::string(100'000, '(')).empty());
}

TEST(Rule, IsALevelAndUpToFourLists)
{
    struct Row
    {
        const char* text;
        Rule expected;
    };
    const Row rows[] = {
        {"7", {7, 0, {}}},
        {"7;10.0.0.1", {7, 1, {{"10.0.0.1"}, {}, {}, {}}}},
        {"7;10.0.0.1,10.0.0.2/8,fe80::/10", {7, 1, {{"10.0.0.1", "10.0.0.2/8", "fe80::/10"}, {}, {}, {}}}},
        {"6;;app.exe", {6, 2, {{}, {"app.exe"}, {}, {}}}},
        {"6;;;12", {6, 3, {{}, {}, {"12"}, {}}}},
        {"6;;;;3", {6, 4, {{}, {}, {}, {"3"}}}},
        {"6;;;12;3", {6, 4, {{}, {}, {"12"}, {"3"}}}},
        {"5;a,b;c;1,2,3;4", {5, 4, {{"a", "b"}, {"c"}, {"1", "2", "3"}, {"4"}}}},
        {"5;a;c;1;4;more;and more", {5, 4, {{"a"}, {"c"}, {"1"}, {"4"}}}},
        // The separator that a written rule has before its session ids is part of the process ids.
        {"6;;;12:3", {6, 3, {{}, {}, {"12:3"}, {}}}},
        // A list ends at its first empty item.
        {"5;,x", {5, 1, {}}},
        {"5;x,", {5, 1, {{"x"}, {}, {}, {}}}},
        {"5;x,,y", {5, 1, {{"x"}, {}, {}, {}}}},
        {"5;,x;app", {5, 2, {{}, {"app"}, {}, {}}}},
        {"5;a,,b;c,d", {5, 2, {{"a"}, {"c", "d"}, {}, {}}}},
        // Lists that are there and empty.
        {"5;", {5, 1, {}}},
        {"5;;;;", {5, 4, {}}},
        {"5;;;;;", {5, 4, {}}},
        {"5;;;,;", {5, 4, {}}},
        // Blanks are part of items.
        {"5; a , b ", {5, 1, {{" a ", " b "}, {}, {}, {}}}},
        // Levels read as numbers do.
        {"", {0, 0, {}}},
        {";a", {0, 1, {{"a"}, {}, {}, {}}}},
        {"x;a", {0, 1, {{"a"}, {}, {}, {}}}},
        {" 7x;a", {7, 1, {{"a"}, {}, {}, {}}}},
        {"+7;a", {7, 1, {{"a"}, {}, {}, {}}}},
        {"-7;a", {-7, 1, {{"a"}, {}, {}, {}}}},
        {"007;a", {7, 1, {{"a"}, {}, {}, {}}}},
        {"9,8;a", {9, 1, {{"a"}, {}, {}, {}}}},
        {"99999999999999999999;a", {INT_MAX, 1, {{"a"}, {}, {}, {}}}},
        {"4294967303;a", {INT_MAX, 1, {{"a"}, {}, {}, {}}}}, // not 7
        {"-99999999999;a", {INT_MIN, 1, {{"a"}, {}, {}, {}}}},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.text);
        const RuleText rule = kor::core::split_rule(row.text);
        EXPECT_EQ(rule.level, row.expected.level);
        EXPECT_EQ(rule.field_count, row.expected.field_count);
        for (std::size_t i = 0; i < 4; ++i)
            EXPECT_EQ(rule.lists[i], row.expected.lists[i]) << "list " << i;
    }
}

TEST(Rule, HasItsListsInTheOrderOfItsText)
{
    const RuleText rule = kor::core::split_rule("5;address;application;1;2");
    EXPECT_EQ(rule.lists[kor::core::RULE_ADDRESSES], Items{"address"});
    EXPECT_EQ(rule.lists[kor::core::RULE_APPLICATIONS], Items{"application"});
    EXPECT_EQ(rule.lists[kor::core::RULE_PROCESSES], Items{"1"});
    EXPECT_EQ(rule.lists[kor::core::RULE_SESSIONS], Items{"2"});
}

TEST(RuleAddress, IsTakenApartAtItsFirstSlash)
{
    struct Row
    {
        const char* text;
        const char* address;
        int bits;
    };
    const Row rows[] = {
        {"10.0.0.1", "10.0.0.1", -1},
        {"fe80::/10", "fe80::", 10},
        {"::/0", "::", 0},
        {"fe80::1/128", "fe80::1", 128},
        {"fe80::/", "fe80::", 0},
        {"fe80::/x", "fe80::", 0},
        {"fe80::/10x", "fe80::", 10},
        {"fe80::/ 10", "fe80::", 10},
        {"fe80::/-1", "fe80::", -1},
        {"fe80::/10/20", "fe80::", 10},
        {"fe80:://20", "fe80::", 0},
        {"fe80::/99999999999", "fe80::", INT_MAX},
        {"fe80::/4294967306", "fe80::", INT_MAX}, // not 10
        {"fe80::/-99999999999999999999", "fe80::", INT_MIN},
        {"/8", "", 8},
        {"/", "", 0},
        {"", "", -1},
    };
    for (const Row& row : rows)
    {
        const kor::core::AddressText address = kor::core::split_address(row.text);
        EXPECT_EQ(address.address, row.address) << row.text;
        EXPECT_EQ(address.bits, row.bits) << row.text;
    }
}

TEST(RuleId, HasThirtyTwoBitsOrIsCut)
{
    struct Row
    {
        const char* text;
        std::uint32_t id;
        bool cut;
    };
    const Row rows[] = {
        {"0", 0, false},
        {"12", 12, false},
        {" 12", 12, false},
        {"+12", 12, false},
        {"12:3", 12, false},
        {"12abc", 12, false},
        {"abc", 0, false},
        {":3", 0, false},
        {"", 0, false},
        {"2147483647", 2147483647, false},
        {"2147483648", 2147483648u, false},
        {"4294967295", 4294967295u, false},
        {"4294967296", 4294967295u, true},
        {"4294967308", 4294967295u, true}, // not 12
        {"99999999999999999999", 4294967295u, true},
        {"-1", 4294967295u, false},
        {"-2147483648", 2147483648u, false},
        {"-2147483649", 2147483648u, true},
        {"-99999999999999999999", 2147483648u, true},
    };
    for (const Row& row : rows)
    {
        const kor::core::IdText id = kor::core::read_id(row.text);
        EXPECT_EQ(id.id, row.id) << row.text;
        EXPECT_EQ(id.cut, row.cut) << row.text;
    }
}

TEST(RuleJoined, HasAColonBeforeItsSessionIds)
{
    struct Row
    {
        int level;
        std::string lists[4];
        std::size_t list_count;
        const char* expected;
    };
    const Row rows[] = {
        {6, {"", "", "12", "3"}, 4, "(6;;;12:3)"},
        {6, {"", "", "", "3"}, 4, "(6;;;:3)"},
        {5, {"10.0.0.1,fe80::/10", "a.exe,b.exe", "1,2", "3,4"}, 4, "(5;10.0.0.1,fe80::/10;a.exe,b.exe;1,2:3,4)"},
        {5, {"10.0.0.1", "a.exe", "1", ""}, 3, "(5;10.0.0.1;a.exe;1)"},
        {5, {"", "", "1", ""}, 3, "(5;;;1)"},
        {5, {"10.0.0.1", "a.exe", "", ""}, 2, "(5;10.0.0.1;a.exe)"},
        {6, {"", "app.exe", "", ""}, 2, "(6;;app.exe)"},
        {7, {"10.0.0.0", "", "", ""}, 1, "(7;10.0.0.0)"},
        {4, {"", "", "", ""}, 0, "(4)"},
        {-2147483647 - 1, {"", "", "", ""}, 0, "(-2147483648)"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(kor::core::join_rule(row.level, row.lists, row.list_count), row.expected);
}

TEST(RuleJoined, SplitsIntoWhatItWasJoinedFrom)
{
    for (const char* const text :
         {"(7;10.0.0.0)", "(7;10.0.0.1,::1,fe80::/10)", "(6;;app.exe)", "(6;;a,b c,d.exe)", "(5;10.0.0.1;a.exe;1,2,3)",
          "(6;;;12)", "(1;;;4294967295)"})
    {
        const Items pieces = kor::core::split_rules(text);
        ASSERT_EQ(pieces.size(), 1u) << text;
        EXPECT_EQ(joined(kor::core::split_rule(pieces[0])), text);
    }
}

TEST(RuleJoined, WithSessionIdsComesBackWithThemInItsProcessIds)
{
    const std::string once = joined(kor::core::split_rule("6;;;12,13;3,4"));
    EXPECT_EQ(once, "(6;;;12,13:3,4)");

    const Items pieces = kor::core::split_rules(once);
    ASSERT_EQ(pieces.size(), 1u);
    const RuleText again = kor::core::split_rule(pieces[0]);
    EXPECT_EQ(again.field_count, 3u);
    EXPECT_EQ(again.lists[kor::core::RULE_PROCESSES], (Items{"12", "13:3", "4"}));
    EXPECT_TRUE(again.lists[kor::core::RULE_SESSIONS].empty());
    EXPECT_EQ(kor::core::read_id(again.lists[kor::core::RULE_PROCESSES][1]).id, 13u);

    EXPECT_EQ(joined(again), once); // and stays so
}
