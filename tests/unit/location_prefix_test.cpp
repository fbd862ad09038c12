// location_prefix_test.cpp - thread, class, method and line at the front of a text.

#include "core/location_prefix.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <string_view>

namespace kor::core
{
static bool operator==(const LocatedText& a, const LocatedText& b)
{
    return a.has_prefix == b.has_prefix && a.thread == b.thread && a.class_name == b.class_name &&
           a.function == b.function && a.line == b.line && a.body == b.body;
}

static void PrintTo(const LocatedText& located, std::ostream* out)
{
    *out << (located.has_prefix ? "prefix" : "no prefix") << " thread[" << located.thread << "] class["
         << located.class_name << "] function[" << located.function << "] line " << located.line << " body["
         << located.body << ']';
}
} // namespace kor::core

namespace
{
using kor::core::LocatedText;
using kor::core::read_line_number;
using kor::core::read_location;

LocatedText without_prefix(std::string_view text) { return {false, {}, {}, {}, 0, text}; }
} // namespace

TEST(ReadLocation, APrefixTellsThreadClassMethodAndLine)
{
    EXPECT_EQ(
        read_location("<main,Viewer.load:77>image loaded"),
        (LocatedText{true, "main", "Viewer", "load", 77, "image loaded"}));
    EXPECT_EQ(read_location("<m,V.l:1>"), (LocatedText{true, "m", "V", "l", 1, ""}));
    EXPECT_EQ(read_location("<,.:0> x"), (LocatedText{true, "", "", "", 0, " x"}));
}

TEST(ReadLocation, APrefixMayStandAnywhereAndWhatIsInFrontOfItIsNotPartOfTheBody)
{
    EXPECT_EQ(read_location("so: <main,Viewer.load:77> ok"), (LocatedText{true, "main", "Viewer", "load", 77, " ok"}));
}

TEST(ReadLocation, OnlyTheFirstOfEachSeparatorCounts)
{
    EXPECT_EQ(read_location("<a,b.c:1>2<d,e.f:3>4"), (LocatedText{true, "a", "b", "c", 1, "2<d,e.f:3>4"}));
    EXPECT_EQ(read_location("<a.b:c,d.e:5>x"), (LocatedText{true, "a.b:c", "d", "e", 5, "x"}));
    EXPECT_EQ(read_location("> , . : <a,b.c:1>x"), (LocatedText{true, "a", "b", "c", 1, "x"}));
}

TEST(ReadLocation, ADottedClassNameIsSplitAtItsFirstDot)
{
    EXPECT_EQ(
        read_location("<main,lumaris.viewer.Viewer.load:77>x"),
        (LocatedText{true, "main", "lumaris", "viewer.Viewer.load", 77, "x"}));
}

TEST(ReadLocation, WithoutOneOfTheSeparatorsThereIsNoPrefix)
{
    for (const std::string_view text :
         {"", "text", "main,Viewer.load:77>x", "<main,Viewer.load:77 x", "<main Viewer.load:77>x",
          "<main,Viewer load:77>x", "<main,Viewer.load 77>x", "<", ">", "<>", "<,>", "<,.>", ":.,><", ">main,V.l:7<",
          "<main.Viewer,load:77>x", "<main,Viewer:load.77>x", "a < b and b > c"})
        EXPECT_EQ(read_location(text), without_prefix(text));
}

TEST(ReadLocation, ALineThatIsNoNumberKeepsTheRestAndLeavesTheWholeTextAsTheBody)
{
    for (const std::string_view text :
         {"<main,Viewer.load:x7>t", "<main,Viewer.load:7x>t", "<main,Viewer.load:7 >t", "<main,Viewer.load: >t",
          "<main,Viewer.load:2147483648>t", "<main,Viewer.load:7:8>t", "<main,Viewer.load:<7>t"})
        EXPECT_EQ(read_location(text), (LocatedText{true, "main", "Viewer", "load", 0, text}));
}

TEST(ReadLocation, AnEmptyLineIsZeroAndEndsThePrefix)
{
    EXPECT_EQ(read_location("<main,Viewer.load:>x"), (LocatedText{true, "main", "Viewer", "load", 0, "x"}));
}

TEST(ReadLocation, APrefixThatEndsBeforeItsColonHasNoLine)
{
    const std::string_view text = "<a> b,c.d:7";
    EXPECT_EQ(read_location(text), (LocatedText{true, "a> b", "c", "d", 0, text}));
    const std::string_view without_number = "<a,b>c.d:e";
    EXPECT_EQ(read_location(without_number), (LocatedText{true, "a", "b>c", "d", 0, without_number}));
}

TEST(ReadLocation, EveryCutOfAPrefixIsReadWithoutHarm)
{
    const std::string whole = "<main,Viewer.load:77>x";
    for (std::size_t length = 0; length < whole.size() - 1; ++length)
    {
        const std::string cut = whole.substr(0, length);
        EXPECT_EQ(read_location(cut), without_prefix(cut));
    }
}

TEST(ReadLineNumber, ReadsTheNumbersOfC)
{
    struct Row
    {
        std::string_view field;
        std::int32_t line;
    };
    const Row rows[] = {
        {"", 0},
        {"0", 0},
        {"77", 77},
        {"+77", 77},
        {"-77", -77},
        {" \t\n\v\f\r77", 77},
        {"077", 63},
        {"00", 0},
        {"0x4D", 77},
        {"0X4d", 77},
        {"-0x10", -16},
        {"2147483647", INT_MAX},
        {"-2147483648", INT_MIN},
        {"0x7fffffff", INT_MAX},
        {"017777777777", INT_MAX},
        {"000000000000000000000000000000000007", 7},
    };
    for (const Row& row : rows)
    {
        std::int32_t line = -1;
        EXPECT_TRUE(read_line_number(row.field, line)) << row.field;
        EXPECT_EQ(line, row.line) << row.field;
    }
}

TEST(ReadLineNumber, RefusesWhatIsNotAllNumberOrNeedsMoreThan32Bits)
{
    for (const std::string_view field :
         {" ",
          "x7",
          "7x",
          "7 ",
          "-",
          "+",
          "- 7",
          "--7",
          "+-7",
          "-+7",
          "0x",
          "0x ",
          "0xg",
          "x",
          "08",
          "0x0x1",
          "7.5",
          "1e3",
          "2147483648",
          "-2147483649",
          "4294967295",
          "4294967296",
          "99999999999999999999",
          "0xffffffff",
          "0b1",
          "1'0"})
    {
        std::int32_t line = -1;
        EXPECT_FALSE(read_line_number(field, line)) << field;
        EXPECT_EQ(line, 0) << field;
    }
}
