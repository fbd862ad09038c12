// fixed_text_test.cpp - texts in arrays of fixed size: read no further and written no further than they go.

#include "core/fixed_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

namespace
{
/// An array between guard bytes.
struct Record
{
    char before[8];
    char text[5];
    char after[8];

    Record() { std::memset(static_cast<void*>(this), '~', sizeof *this); }
    bool guards_hold() const
    {
        return std::string_view(before, sizeof before) == "~~~~~~~~" &&
               std::string_view(after, sizeof after) == "~~~~~~~~";
    }
};
} // namespace

TEST(FixedText, IsReadUpToItsTerminatorOrTheEndOfItsArray)
{
    Record record;
    EXPECT_EQ(kor::core::bounded(record.text), "~~~~~");
    record.text[4] = '\0';
    EXPECT_EQ(kor::core::bounded(record.text), "~~~~");
    record.text[2] = '\0';
    EXPECT_EQ(kor::core::bounded(record.text), "~~");
    record.text[0] = '\0';
    EXPECT_EQ(kor::core::bounded(record.text), "");
}

TEST(FixedText, IsCutWhereItsArrayEnds)
{
    struct Row
    {
        const char* text;
        const char* expected;
        bool whole;
    };
    const Row rows[] = {
        {"", "", true},           {"a", "a", true},          {"abcd", "abcd", true},
        {"abcde", "abcd", false}, {"abcdef", "abcd", false}, {nullptr, "", true},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.expected);
        Record record;
        EXPECT_EQ(kor::core::copy_cut(record.text, row.text), row.whole);
        EXPECT_STREQ(record.text, row.expected);
        EXPECT_TRUE(record.guards_hold());
    }
    Record record;
    EXPECT_FALSE(kor::core::copy_cut(record.text, std::string(100'000, 'x').c_str()));
    EXPECT_STREQ(record.text, "xxxx");
    EXPECT_TRUE(record.guards_hold());
}

TEST(FixedText, MayBeCopiedFromItsOwnArray)
{
    Record record;
    kor::core::copy_cut(record.text, "abcd");
    EXPECT_TRUE(kor::core::copy_cut(record.text, record.text));
    EXPECT_STREQ(record.text, "abcd");
    EXPECT_TRUE(kor::core::copy_cut(record.text, record.text + 1));
    EXPECT_STREQ(record.text, "bcd");
    EXPECT_TRUE(record.guards_hold());
}
