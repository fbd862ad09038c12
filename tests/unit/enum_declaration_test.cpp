// enum_declaration_test.cpp - the steps by which an enumeration's declaration is taken apart.

#include "core/enum_declaration.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <string_view>
#include <vector>

namespace
{
using namespace kor::core;
using Pieces = std::vector<std::string>;

Pieces pieces_of(std::string_view list)
{
    Pieces all;
    EnumPieces pieces(list);
    for (std::string_view piece; pieces.next(piece);)
        all.emplace_back(piece);
    return all;
}

struct ValueRow
{
    std::string_view piece;
    int value; // after the call, 4 before it
    std::string_view rest;
};
} // namespace

TEST(ParseFamilyName, TheNameFollowsTheKeywordAndOneSeparator)
{
    struct Row
    {
        std::string_view text;
        std::string_view name;
    };
    const Row rows[] = {
        {"enum Color { RED };", "Color"},
        {"enum Color{ RED };", "Color"},
        {"enum Color\n{ RED };", "Color"},
        {"enum Color\t{ RED };", "Color"},
        {"enum\tColor { RED };", "Color"},
        {"enum Color", "Color"},
        {"enum class Mode { A, B };", "Mode"},
        {"enum class Mode{A}", "Mode"},
        {"enum class\tMode {A}", "Mode"},
        {"typedef enum Color { RED } Color;", "Color"},
        {"enum Ns::Color { RED };", "Ns::Color"},
        {"enum Color : int { RED };", "Color"},
        {"enum Color;", "Color;"},
        {"enumerate this", "rate"}, // one character is the separator, whatever it is
        {"enum  Color { RED };", ""},
        {"enum { RED };", ""},
        {"enum", ""},
        {"enum ", ""},
        {"enum class", ""},
        {"enum class ", ""},
        {"enum A { enum class B };", "B"},
        {"enum class_of { X }", "of"}, // no scoped one, but it looks like one
    };
    for (const Row& row : rows)
    {
        std::string_view name = "before";
        EXPECT_TRUE(parse_family_name(row.text, name)) << row.text;
        EXPECT_EQ(name, row.name) << row.text;
    }
}

TEST(ParseFamilyName, WithoutTheKeywordThereIsNone)
{
    for (const std::string_view text : {"", "enu", "struct Color { RED };", "ENUM Color { RED };", "en um"})
    {
        std::string_view name;
        EXPECT_FALSE(parse_family_name(text, name)) << text;
    }
}

TEST(FindEnumList, TheListIsWhatStandsBetweenTheBraces)
{
    struct Row
    {
        std::string_view text;
        std::string_view name;
        std::string_view list;
    };
    const Row rows[] = {
        {"enum Color { RED, GREEN = 5, BLUE };", "Color", "RED, GREEN = 5, BLUE"},
        {"enum Color{RED,GREEN}", "Color", "RED,GREEN"},
        {"enum Color \t{{ RED }\t};; ", "Color", "RED"},
        {"enum class Mode { A, B };", "Mode", "A, B"},
        {"enum Color { RED, };", "Color", "RED,"},
        {"enum { RED };", "", "RED"},
        {"enum Color {};", "Color", ""},
        {"enum Color", "Color", ""},
        {"enum", "", ""},
        {"enum class", "", ""},
        {"enum }", "", ""},
        {" };", "", ""},
        {"", "", ""},
        // A newline in front of the brace is not passed over, nor is one behind the last.
        {"enum Color\n{ RED };", "Color", "\n{ RED"},
        {"enum Color { RED };\n", "Color", "RED };\n"},
        // The place is counted from the start of the text, whatever stands in front of the keyword.
        {"  enum Color { RED };", "Color", "or { RED"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(find_enum_list(row.text, row.name), row.list) << row.text;
}

TEST(EnumPiecesOf, AListIsSplitAtEveryComma)
{
    EXPECT_EQ(pieces_of("A, B = 2,C"), (Pieces{"A", " B = 2", "C"}));
    EXPECT_EQ(pieces_of("A"), Pieces{"A"});
    EXPECT_EQ(pieces_of(""), Pieces{""});
    EXPECT_EQ(pieces_of(","), (Pieces{"", ""}));
    EXPECT_EQ(pieces_of("A,,B,"), (Pieces{"A", "", "B", ""}));
}

TEST(IsEmptyPiece, BlanksAndTabsAreNothing)
{
    for (const std::string_view piece : {"", " ", "\t", " \t "})
        EXPECT_TRUE(is_empty_piece(piece));
    for (const std::string_view piece : {"A", " A ", "\n", "=", " ="})
        EXPECT_FALSE(is_empty_piece(piece));
}

TEST(ParseEnumValue, ANumberBehindTheEqualsSignBecomesTheValue)
{
    const ValueRow rows[] = {
        {"A = 5", 5, "A "},
        {"A=5", 5, "A"},
        {" A =\t\n 5 ", 5, " A "},
        {"A = -5", -5, "A "},
        {"A = +5", 5, "A "},
        {"A = 007", 7, "A "},
        {"A = 5 // five", 5, "A "},
        {"A = 5x", 5, "A "},
        {"A = 0x10", 0, "A "},
        {"A = 1 << 4", 1, "A "},
        {"A = 5 = 6", 5, "A "},
        {"= 5", 5, ""},
        {"A = 2147483647", INT_MAX, "A "},
        {"A = -2147483648", INT_MIN, "A "},
    };
    for (const ValueRow& row : rows)
    {
        std::string_view piece = row.piece;
        int value = 4;
        EXPECT_EQ(parse_enum_value(piece, value), EnumValueError::NONE) << row.piece;
        EXPECT_EQ(value, row.value) << row.piece;
        EXPECT_EQ(piece, row.rest) << row.piece;
    }
}

TEST(ParseEnumValue, WithoutAnEqualsSignNothingChanges)
{
    for (const std::string_view text : {"A", " A 5", ""})
    {
        std::string_view piece = text;
        int value = 4;
        EXPECT_EQ(parse_enum_value(piece, value), EnumValueError::NONE);
        EXPECT_EQ(value, 4);
        EXPECT_EQ(piece, text);
    }
}

TEST(ParseEnumValue, WithoutANumberBehindTheEqualsSignItFails)
{
    for (const std::string_view text : {"A =", "A = ", "A = x", "A = x5", "A = -", "A = - 5", "A == 5", "A = 'a'"})
    {
        std::string_view piece = text;
        int value = 4;
        EXPECT_EQ(parse_enum_value(piece, value), EnumValueError::NOT_A_NUMBER) << text;
        EXPECT_EQ(value, 4);
        EXPECT_EQ(piece, text);
    }
}

TEST(ParseEnumValue, ANumberThatNeedsMoreThanAnIntFails)
{
    for (const std::string_view text :
         {"A = 2147483648", "A = -2147483649", "A = 4294967295", "A = 99999999999999999999999"})
    {
        std::string_view piece = text;
        int value = 4;
        EXPECT_EQ(parse_enum_value(piece, value), EnumValueError::OUT_OF_RANGE) << text;
        EXPECT_EQ(value, 4);
        EXPECT_EQ(piece, text);
    }
}

TEST(TrimEnumSpaces, BlanksAndTabsGoAtBothEnds)
{
    EXPECT_EQ(trim_enum_spaces(" \tA B\t "), "A B");
    EXPECT_EQ(trim_enum_spaces("A"), "A");
    EXPECT_EQ(trim_enum_spaces(""), "");
    EXPECT_EQ(trim_enum_spaces("\n A \n"), "\n A \n");
}

TEST(TrimEnumSpaces, ATextOfNothingElseStaysAsItIs)
{
    EXPECT_EQ(trim_enum_spaces(" "), " ");
    EXPECT_EQ(trim_enum_spaces("\t  "), "\t  ");
}

TEST(IsIdentifier, ANameIsWhatACompilerWouldTake)
{
    for (const char* name : {"A", "a1", "_", "_1", "Color", "zZ9", "\xC3\xA4rmel"})
        EXPECT_TRUE(is_identifier(name)) << name;
}

TEST(IsIdentifier, AnythingElseIsNone)
{
    for (const char* text :
         {"", " ", "1", "9a", "A B", " A", "A\n", ": int {A", "Ns::A", "A{", "-", "A=", "@", "[", "`"})
        EXPECT_FALSE(is_identifier(text)) << text;
}

TEST(NextEnumValue, CountsOnAndFromTheLargestToTheSmallest)
{
    EXPECT_EQ(next_enum_value(-1), 0);
    EXPECT_EQ(next_enum_value(6), 7);
    EXPECT_EQ(next_enum_value(INT_MAX), INT_MIN);
}

TEST(MakeLowerCase, ChangesTheLettersAToZOnly)
{
    std::string text = "aAzZ@[_09\xC4\xD6";
    make_lower_case(text);
    EXPECT_EQ(text, "aazz@[_09\xC4\xD6");
}

TEST(NextTableSize, IsTheSmallestSizeThatIsNotBelow)
{
    struct Row
    {
        int n;
        int size;
    };
    const Row rows[] = {{INT_MIN, 2},  {-1, 2},        {0, 2},         {1, 2},         {2, 2},
                        {3, 3},        {4, 5},         {8, 11},        {113, 113},     {114, 131},
                        {131, 131},    {132, 139},     {1009, 1009},   {1010, 2003},   {9001, 9001},
                        {9002, 10007}, {10007, 10007}, {10008, 20011}, {20011, 20011}, {INT_MAX, 20011}};
    for (const Row& row : rows)
        EXPECT_EQ(next_table_size(row.n), row.size) << row.n;
}

TEST(NextTableSize, AllSizesOfTheTableAreFound)
{
    std::vector<int> sizes;
    for (int size = next_table_size(0); size != 20011; size = next_table_size(size + 1))
        sizes.push_back(size);
    const std::vector<int> expected = {
        2,   3,   5,   7,   11,  13,  17,  19,   23,   29,   31,   37,   41,   43,   47,   53,   59,   61,
        67,  71,  73,  79,  83,  89,  97,  101,  103,  107,  113,  131,  139,  151,  163,  173,  181,  193,
        199, 223, 229, 233, 241, 257, 269, 277,  283,  307,  313,  331,  347,  353,  367,  379,  389,  401,
        419, 431, 439, 449, 461, 479, 491, 503,  521,  541,  557,  569,  577,  593,  601,  613,  619,  641,
        647, 659, 673, 683, 701, 719, 733, 743,  757,  769,  787,  809,  821,  827,  839,  857,  877,  883,
        907, 919, 937, 947, 967, 977, 991, 1009, 2003, 3001, 4001, 5003, 6007, 7001, 8009, 9001, 10007};
    EXPECT_EQ(sizes, expected);
}
