// text_blocks_test.cpp - text on its way out: blocks, escapes, what XML forbids.

#include "core/text_blocks.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

using kor::core::TextBlocks;
using namespace std::string_view_literals;

namespace
{
constexpr std::size_t SIZE = TextBlocks::BLOCK_SIZE;
constexpr std::wstring_view REPLACED = L"\xFFFD";

/// Keeps the blocks that it is given.
class Collected final : public TextBlocks
{
public:
    std::wstring all() const
    {
        std::wstring text;
        for (const std::wstring& block : blocks)
            text += block;
        return text;
    }

    std::vector<std::wstring> blocks;
    bool refuses = false;

private:
    void write(const wchar_t* text, std::size_t length) override
    {
        if (refuses)
            throw 1;
        blocks.emplace_back(text, length);
    }
};

std::wstring escaped(std::wstring_view text)
{
    Collected to;
    to.put_escaped(text);
    to.flush();
    return to.all();
}

std::wstring fraction(double value)
{
    Collected to;
    to.put_fraction(value);
    to.flush();
    return to.all();
}

/// What may not stand in a document at all, and what stands for it.
struct Forbidden
{
    std::wstring_view text;
    std::wstring_view expected;
};

constexpr Forbidden FORBIDDEN[] = {
    {L"\0"sv, REPLACED},
    {L"\x01", REPLACED},
    {L"\x08", REPLACED},
    {L"\x0B", REPLACED},
    {L"\x0C", REPLACED},
    {L"\x0E", REPLACED},
    {L"\x1F", REPLACED},
    {L"\xFFFE", REPLACED},
    {L"\xFFFF", REPLACED},
    {L"\xD800", REPLACED},
    {L"\xDBFF", REPLACED},
    {L"\xDC00", REPLACED},
    {L"\xDFFF", REPLACED},
    {L"\xD83D!", L"\xFFFD!"},
    {L"\xD83D\xD83D\xDE00", L"\xFFFD\xD83D\xDE00"}, // a half in front of a pair
    {L"\xD83D\xDE00\xDE00", L"\xD83D\xDE00\xFFFD"},
    {L"\xDE00\xD83D", L"\xFFFD\xFFFD"}, // the halves the wrong way round
    {L"a\x01\x02z", L"a\xFFFD\xFFFDz"},
};

/// What stands for itself.
constexpr std::wstring_view ALLOWED[] = {
    L"",       L" ",      L"\t\n\r", L"abc",          L"`=;#/\\",      L"\x7F\x80\x9F\xA0", L"\x20AC",
    L"\xD7FF", L"\xE000", L"\xFFFD", L"\xD800\xDC00", L"\xDBFF\xDFFF", L"\xD83D\xDE00"};
} // namespace

// Blocks ---------------------------------------------------------------------------
TEST(TextBlocks, NothingIsHandedOnUntilABlockIsFullOrFlushed)
{
    Collected to;
    to.put(std::wstring(SIZE - 1, L'a'));
    EXPECT_TRUE(to.blocks.empty());
    to.put(L"b");
    EXPECT_TRUE(to.blocks.empty());
    to.put(L"c");
    ASSERT_EQ(to.blocks.size(), 1u);
    EXPECT_EQ(to.blocks[0], std::wstring(SIZE - 1, L'a') + L'b');
    to.flush();
    ASSERT_EQ(to.blocks.size(), 2u);
    EXPECT_EQ(to.blocks[1], L"c");
}

TEST(TextBlocks, ATextOfAnySizeArrivesInWholeBlocks)
{
    struct Row
    {
        std::size_t size;
        std::vector<std::size_t> blocks;
    };
    const Row rows[] = {
        {0, {}},
        {1, {1}},
        {SIZE - 1, {SIZE - 1}},
        {SIZE, {SIZE}},
        {SIZE + 1, {SIZE, 1}},
        {2 * SIZE, {SIZE, SIZE}},
        {2 * SIZE + 5, {SIZE, SIZE, 5}},
    };
    for (const Row& row : rows)
    {
        std::wstring text(row.size, L'a');
        for (std::size_t i = 0; i < text.size(); ++i)
            text[i] = static_cast<wchar_t>(L'a' + i % 23);
        Collected to;
        to.put(text);
        to.flush();
        std::vector<std::size_t> sizes;
        for (const std::wstring& block : to.blocks)
            sizes.push_back(block.size());
        EXPECT_EQ(sizes, row.blocks) << row.size;
        EXPECT_EQ(to.all(), text) << row.size;
    }
}

TEST(TextBlocks, ALiteralMayLieAcrossTheEndOfABlock)
{
    for (std::size_t room = 0; room <= 7; ++room)
    {
        Collected to;
        to.put(std::wstring(SIZE - room, L'x'));
        to.put(L"abcdef");
        to.flush();
        EXPECT_EQ(to.all(), std::wstring(SIZE - room, L'x') + L"abcdef") << room;
        EXPECT_EQ(to.blocks.size(), room < 6 ? 2u : 1u) << room;
    }
}

TEST(TextBlocks, AFlushOfNothingHandsOnNothing)
{
    Collected to;
    to.flush();
    to.put(L"a");
    to.flush();
    to.flush();
    EXPECT_EQ(to.blocks, std::vector<std::wstring>{L"a"});
}

TEST(TextBlocks, DiscardedTextIsNotHandedOn)
{
    Collected to;
    to.put(L"before");
    to.discard();
    to.put(L"after");
    to.flush();
    EXPECT_EQ(to.blocks, std::vector<std::wstring>{L"after"});
}

TEST(TextBlocks, TextThatCouldNotBeHandedOnDoesNotComeAgain)
{
    Collected to;
    to.put(L"lost");
    to.refuses = true;
    EXPECT_THROW(to.flush(), int);
    to.refuses = false;
    to.put(L"later");
    to.flush();
    EXPECT_EQ(to.blocks, std::vector<std::wstring>{L"later"});
}

// Escapes ----------------------------------------------------------------------------
TEST(TextBlocks, TheFiveSpecialCharactersAreEscaped)
{
    EXPECT_EQ(escaped(L"&<>\"'"), L"&amp;&lt;&gt;&quot;&apos;");
    EXPECT_EQ(escaped(L"a&b<c>d\"e'f"), L"a&amp;b&lt;c&gt;d&quot;e&apos;f");
    EXPECT_EQ(escaped(L"&amp;"), L"&amp;amp;");
    EXPECT_EQ(escaped(L"]]>"), L"]]&gt;");
}

TEST(TextBlocks, UnescapedTextStaysAsItIs)
{
    Collected to;
    to.put(L"<a b='&amp;'>\x01");
    to.flush();
    EXPECT_EQ(to.all(), L"<a b='&amp;'>\x01");
}

TEST(TextBlocks, WhatXmlForbidsIsReplaced)
{
    for (const Forbidden& row : FORBIDDEN)
        EXPECT_EQ(escaped(row.text), row.expected) << (&row - FORBIDDEN);
}

TEST(TextBlocks, WhatXmlAllowsStaysAsItIs)
{
    for (const std::wstring_view text : ALLOWED)
        EXPECT_EQ(escaped(text), text) << (&text - ALLOWED);
}

TEST(TextBlocks, EscapesAndPairsMayLieAcrossTheBorderOfBlocks)
{
    const std::wstring_view text = L"&<>\"'\x01\xD83D\xDE00\xD83D.";
    const std::wstring_view expected = L"&amp;&lt;&gt;&quot;&apos;\xFFFD\xD83D\xDE00\xFFFD.";
    for (std::size_t in_front = SIZE - expected.size() - 1; in_front <= SIZE + 1; ++in_front)
    {
        const std::wstring plain(in_front, L'a');
        EXPECT_EQ(escaped(plain + std::wstring(text)), plain + std::wstring(expected)) << in_front;

        Collected to; // the text in front as a piece of its own
        to.put(plain);
        to.put_escaped(text);
        to.flush();
        EXPECT_EQ(to.all(), plain + std::wstring(expected)) << in_front;
    }
}

TEST(TextBlocks, AMillionSpecialCharactersAreEscaped)
{
    const std::size_t count = 1'000'000;
    std::wstring expected;
    for (std::size_t i = 0; i < count; ++i)
        expected += L"&lt;";
    EXPECT_TRUE(escaped(std::wstring(count, L'<')) == expected);
}

// Numbers ----------------------------------------------------------------------------
TEST(TextBlocks, NumbersAreDecimal)
{
    struct Row
    {
        std::int64_t value;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {0, L"0"},
        {-1, L"-1"},
        {12345678, L"12345678"},
        {123456789, L"123456789"},
        {std::numeric_limits<std::int64_t>::max(), L"9223372036854775807"},
        {std::numeric_limits<std::int64_t>::min(), L"-9223372036854775808"},
    };
    for (const Row& row : rows)
    {
        Collected to;
        to.put_number(row.value);
        to.flush();
        EXPECT_EQ(to.all(), row.expected);
    }
}

TEST(TextBlocks, FractionsHaveSixDigits)
{
    struct Row
    {
        double value;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {0, L"0.000000"},
        {1, L"1.000000"},
        {-1.25, L"-1.250000"},
        {0.1, L"0.100000"},
        {2.0 / 3, L"0.666667"},
        {1234567.891, L"1234567.891000"},
        {0.0000004, L"0.000000"},
        {0.0000006, L"0.000001"},
        {0.9999999, L"1.000000"},
        {9007199254740993.0, L"9007199254740992.000000"},
        {1e22, L"10000000000000000000000.000000"},
        {5e-324, L"0.000000"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(fraction(row.value), row.expected);
}

TEST(TextBlocks, TheLargestFractionHasRoom)
{
    const std::wstring largest = fraction(std::numeric_limits<double>::max());
    EXPECT_EQ(largest.size(), 316u);
    EXPECT_EQ(largest.substr(0, 20), L"17976931348623157081");
    EXPECT_EQ(largest.substr(309), L".000000");
    EXPECT_EQ(fraction(std::numeric_limits<double>::lowest()), L'-' + largest);
}

// Characters -------------------------------------------------------------------------
TEST(CountPlain, CountsUpToTheFirstThatNeedsCare)
{
    struct Row
    {
        std::wstring_view text;
        std::size_t count;
    };
    const Row rows[] = {
        {L"", 0},      {L"abc", 3},      {L"ab<c", 2},         {L"&", 0},       {L"a\tb\nc\rd", 7},
        {L"a\x01", 1}, {L"ab\xD800", 2}, {L"\xD7FF\xE000", 2}, {L"a\xFFFE", 1}, {L"\xFFFD\xFFFF", 1},
        {L"a\0"sv, 1}, {L"a\"", 1},      {L"a'", 1},           {L"a>", 1},
    };
    for (const Row& row : rows)
        EXPECT_EQ(kor::core::count_plain(row.text), row.count) << (&row - rows);
}

TEST(XmlForm, TellsHowMuchOfTheTextItStandsFor)
{
    struct Row
    {
        std::wstring_view text;
        std::wstring_view form;
        std::size_t length;
    };
    const Row rows[] = {
        {L"a<", L"a", 1},          {L"<a", L"&lt;", 1},      {L"\xD83D\xDE00!", L"\xD83D\xDE00", 2},
        {L"\xD83D!", REPLACED, 1}, {L"\xD83D", REPLACED, 1}, {L"\xDE00\xDE00", REPLACED, 1},
        {L"\0a"sv, REPLACED, 1},
    };
    for (const Row& row : rows)
    {
        std::size_t length = 0;
        EXPECT_EQ(kor::core::xml_form(row.text, length), row.form);
        EXPECT_EQ(length, row.length);
    }
}

TEST(ReplaceForbidden, ReplacesWhatCannotStandInADocumentAndEscapesNothing)
{
    for (const Forbidden& row : FORBIDDEN)
        EXPECT_EQ(kor::core::replace_forbidden(row.text), row.expected) << (&row - FORBIDDEN);
    for (const std::wstring_view text : ALLOWED)
        EXPECT_EQ(kor::core::replace_forbidden(text), text) << (&text - ALLOWED);
    EXPECT_EQ(kor::core::replace_forbidden(L"a&<>\"'b"), L"a&<>\"'b");
}
