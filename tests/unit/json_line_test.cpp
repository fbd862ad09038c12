// json_line_test.cpp - a message as a line of JSON, to the byte.

#include "core/json_line.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "guarded_buffer.h"

using kor::core::CodePage;
using kor::core::JsonLine;
using kor::core::WrittenJson;

namespace
{
/// A code page that has the euro sign at 0x80, half a pair at 0x81, nothing at 0x82, a letter with two bytes at 0x83, a
/// character that ends a line at 0x84, and the characters of its numbers else.
const CodePage OTHER = []
{
    CodePage page{};
    for (unsigned int i = 0; i < page.size(); ++i)
        page.at(i) = static_cast<char16_t>(0x80 + i);
    page[0] = 0x20AC;
    page[1] = 0xD800;
    page[2] = kor::core::REPLACEMENT;
    page[3] = 0x0153;
    page[4] = 0x2028;
    return page;
}();

/// As few fields as a line can have.
JsonLine bare_line(std::string_view text)
{
    JsonLine line{};
    line.is_bare = true;
    line.sequence = 1;
    line.text = text;
    return line;
}

constexpr char BEFORE_TEXT[] = "{\"time\":\"1970-01-01T00:00:00.000Z\",\"zone\":\"+00:00\",\"level\":0,\"package\":0,"
                               "\"process\":0,\"thread\":0,\"bare\":true,\"sequence\":1,\"text\":\"";

JsonLine full_line()
{
    JsonLine line{};
    line.utc_ms = 1709640429042; // 2024-03-05 12:07:09.042
    line.zone_minutes = 120;
    line.level = 4;
    line.level_name = "WARNING";
    line.package = 17;
    line.package_name = "Reader";
    line.application = "viewer";
    line.process = 4312;
    line.thread = 5120;
    line.thread_name = "Loader";
    line.client = "10.0.0.7";
    line.session = 3;
    line.file = "image.cpp";
    line.line = 210;
    line.function = "load";
    line.run = "18e0f";
    line.sequence = 12;
    line.text = "front.png is missing";
    return line;
}

std::string written(const JsonLine& line)
{
    std::vector<char> room(kor::core::most_json_size(line));
    const WrittenJson made = kor::core::write_json_line({room.data(), room.size()}, line, OTHER);
    EXPECT_FALSE(made.is_cut);
    return {room.data(), made.size};
}

/// What becomes of a message's text.
std::string text_of(std::string_view text)
{
    const std::string line = written(bare_line(text));
    EXPECT_EQ(line.substr(0, sizeof BEFORE_TEXT - 1), BEFORE_TEXT);
    EXPECT_EQ(line.substr(line.size() - 3), "\"}\n");
    return line.substr(sizeof BEFORE_TEXT - 1, line.size() - 3 - (sizeof BEFORE_TEXT - 1));
}

// Fields ----------------------------------------------------------------------------------------------
TEST(JsonLine, AMessageTellsAllThatItKnowsInOneObject)
{
    EXPECT_EQ(
        written(full_line()),
        "{\"time\":\"2024-03-05T12:07:09.042Z\",\"zone\":\"+02:00\",\"level\":4,\"level_name\":\"WARNING\","
        "\"package\":17,\"package_name\":\"Reader\",\"application\":\"viewer\",\"process\":4312,\"thread\":5120,"
        "\"thread_name\":\"Loader\",\"client\":\"10.0.0.7\",\"session\":3,\"file\":\"image.cpp\",\"line\":210,"
        "\"function\":\"load\",\"run\":\"18e0f\",\"sequence\":12,\"text\":\"front.png is missing\"}\n");
}

TEST(JsonLine, WhatThereIsNotIsLeftOut) { EXPECT_EQ(written(bare_line("")), std::string(BEFORE_TEXT) + "\"}\n"); }

TEST(JsonLine, APlaceNeedsAFileAndNoFunction)
{
    JsonLine line = full_line();
    line.function = {};
    EXPECT_NE(written(line).find("\"file\":\"image.cpp\",\"line\":210,\"run\""), std::string::npos);
    line.file = {};
    line.function = "load";
    EXPECT_NE(written(line).find("\"session\":3,\"run\""), std::string::npos);
}

TEST(JsonLine, ASessionBelowOneIsNone)
{
    JsonLine line = full_line();
    for (const long session : {0L, -1L})
    {
        line.session = session;
        EXPECT_NE(written(line).find("\"client\":\"10.0.0.7\",\"file\""), std::string::npos) << session;
    }
}

TEST(JsonLine, ZonesAreAheadOfUtcOrBehindIt)
{
    JsonLine line = full_line();
    for (const auto& [minutes, text] :
         {std::pair(0, "\"zone\":\"+00:00\""), std::pair(330, "\"zone\":\"+05:30\""),
          std::pair(-210, "\"zone\":\"-03:30\""), std::pair(-30, "\"zone\":\"-00:30\""),
          std::pair(840, "\"zone\":\"+14:00\"")})
    {
        line.zone_minutes = minutes;
        EXPECT_NE(written(line).find(text), std::string::npos) << minutes;
    }
}

TEST(JsonLine, TimesAreThoseOfTheCalendar)
{
    JsonLine line = bare_line("");
    for (const auto& [utc, text] :
         {std::pair(std::int64_t{951782399999}, "\"2000-02-28T23:59:59.999Z\""),
          std::pair(std::int64_t{951782400000}, "\"2000-02-29T00:00:00.000Z\""),
          std::pair(std::int64_t{4102444799001}, "\"2099-12-31T23:59:59.001Z\""),
          std::pair(std::int64_t{253402300799999}, "\"9999-12-31T23:59:59.999Z\""),
          std::pair(std::int64_t{253402300800000}, "\"9999-12-31T23:59:59.999Z\""),
          std::pair(std::int64_t{-1}, "\"1970-01-01T00:00:00.000Z\"")})
    {
        line.utc_ms = utc;
        EXPECT_NE(written(line).find(text), std::string::npos) << utc;
    }
}

TEST(JsonLine, NumbersOfAnySizeFit)
{
    JsonLine line = full_line();
    line.level = line.package = line.process = line.line = -2147483647 - 1;
    line.thread = 4294967295U;
    line.session = 2147483647;
    line.sequence = 18446744073709551615ULL;
    const std::string text = written(line);
    EXPECT_NE(text.find("\"process\":-2147483648,\"thread\":4294967295,"), std::string::npos);
    EXPECT_NE(text.find("\"session\":2147483647,"), std::string::npos);
    EXPECT_NE(text.find("\"sequence\":18446744073709551615,"), std::string::npos);
}

// Characters ------------------------------------------------------------------------------------------
TEST(JsonLine, WhatMeansSomethingInAStringIsEscaped)
{
    EXPECT_EQ(text_of("a \"name\" with \\ in it"), "a \\\"name\\\" with \\\\ in it");
    EXPECT_EQ(text_of("12345678\"12345678\\1234567\""), "12345678\\\"12345678\\\\1234567\\\"");
}

TEST(JsonLine, NoControlCharacterStandsInALine)
{
    EXPECT_EQ(text_of("one\r\ntwo\tthree"), "one\\r\\ntwo\\tthree");
    EXPECT_EQ(text_of("\b\f"), "\\b\\f");
    EXPECT_EQ(text_of(std::string_view("\0\x01\x1B\x1F\x7F", 5)), "\\u0000\\u0001\\u001b\\u001f\\u007f");
    EXPECT_EQ(text_of("\xC2\x80\xC2\x9F\xC2\xA0"), "\\u0080\\u009f\xC2\xA0");
}

TEST(JsonLine, CharactersThatEndALineOrTurnItAroundAreEscaped)
{
    EXPECT_EQ(text_of("\xE2\x80\xA7\xE2\x80\xA8\xE2\x80\xA9"), "\xE2\x80\xA7\\u2028\\u2029");
    EXPECT_EQ(text_of("\xE2\x80\xAA\xE2\x80\xAE\xE2\x80\xAF"), "\\u202a\\u202e\xE2\x80\xAF");
    EXPECT_EQ(text_of("\xE2\x81\xA5\xE2\x81\xA6\xE2\x81\xA9\xE2\x81\xAA"), "\xE2\x81\xA5\\u2066\\u2069\xE2\x81\xAA");
}

TEST(JsonLine, NoTextForgesARecord)
{
    EXPECT_EQ(
        text_of("x\"}\n{\"time\":\"2024-03-05T12:07:09.042Z\",\"text\":\"forged"),
        "x\\\"}\\n{\\\"time\\\":\\\"2024-03-05T12:07:09.042Z\\\",\\\"text\\\":\\\"forged");
}

TEST(JsonLine, NamesAreEscapedAsTextsAre)
{
    JsonLine line = full_line();
    line.package_name = line.application = line.thread_name = line.client = line.file = line.function = "a\n\"";
    const std::string text = written(line);
    for (const char* const part :
         {"\"package_name\":\"a\\n\\\"\",", "\"application\":\"a\\n\\\"\",", "\"thread_name\":\"a\\n\\\"\",",
          "\"client\":\"a\\n\\\"\",", "\"file\":\"a\\n\\\"\",", "\"function\":\"a\\n\\\"\","})
        EXPECT_NE(text.find(part), std::string::npos) << part;
    EXPECT_EQ(text.find('\n'), text.size() - 1);
}

TEST(JsonLine, Utf8StaysAsItIs)
{
    for (const char* const text :
         {"Gr\xC3\xBC\xC3\x9F"
          "e",
          "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBD", "\xF0\x90\x80\x80",
          "\xF0\x9F\x96\xBC", "\xF4\x8F\xBF\xBF"})
        EXPECT_EQ(text_of(text), text);
}

TEST(JsonLine, AByteThatIsNoUtf8IsThatOfTheCodePage)
{
    EXPECT_EQ(
        text_of("Gr\xFC\xDF"
                "e"),
        "Gr\xC3\xBC\xC3\x9F"
        "e");
    EXPECT_EQ(text_of("12 \x80"), "12 \xE2\x82\xAC");
    EXPECT_EQ(text_of("\x83"), "\xC5\x93");
    EXPECT_EQ(text_of("\x90"), "\\u0090");
    EXPECT_EQ(text_of("\x81"), "\xEF\xBF\xBD");
    EXPECT_EQ(text_of("\x82"), "\xEF\xBF\xBD");
    EXPECT_EQ(text_of("\x84"), "\\u2028");
}

TEST(JsonLine, OneTextMayHaveBoth) { EXPECT_EQ(text_of("\xFC \xC3\xBC \xFC"), "\xC3\xBC \xC3\xBC \xC3\xBC"); }

TEST(JsonLine, WhatOnlyLooksLikeUtf8IsNone)
{
    EXPECT_EQ(text_of("\xC0\xAF"), "\xC3\x80\xC2\xAF");                         // a longer form of "/"
    EXPECT_EQ(text_of("\xC1\xBF"), "\xC3\x81\xC2\xBF");                         // another
    EXPECT_EQ(text_of("\xE0\x9F\xBF"), "\xC3\xA0\\u009f\xC2\xBF");              // of a character with two bytes
    EXPECT_EQ(text_of("\xF0\x8F\xBF\xBF"), "\xC3\xB0\\u008f\xC2\xBF\xC2\xBF");  // of one with three
    EXPECT_EQ(text_of("\xED\xA0\xA0"), "\xC3\xAD\xC2\xA0\xC2\xA0");             // half a pair
    EXPECT_EQ(text_of("\xF4\x90\xA0\xA0"), "\xC3\xB4\\u0090\xC2\xA0\xC2\xA0");  // beyond Unicode
    EXPECT_EQ(text_of("\xF5\xA0\xA0\xA0"), "\xC3\xB5\xC2\xA0\xC2\xA0\xC2\xA0"); // far beyond
    EXPECT_EQ(text_of("\xFE\xFF"), "\xC3\xBE\xC3\xBF");
}

TEST(JsonLine, ACharacterThatEndsTooEarlyIsNone)
{
    EXPECT_EQ(text_of("\xC3"), "\xC3\x83");
    EXPECT_EQ(text_of("\xE2\x82"), "\xC3\xA2\xEF\xBF\xBD");
    EXPECT_EQ(text_of("\xF0\x9F\x96"), "\xC3\xB0\\u009f\\u0096");
    EXPECT_EQ(
        text_of("\xE2\xA2\x41"), "\xC3\xA2\xC2\xA2"
                                 "A");
}

TEST(JsonLine, LongTextsAreEscapedWhereverTheCharacterStands)
{
    for (std::size_t at = 0; at < 40; ++at)
    {
        std::string text(40, 'x');
        std::string expected(40, 'x');
        text[at] = '\n';
        expected.replace(at, 1, "\\n");
        EXPECT_EQ(text_of(text), expected) << at;
    }
}

// Room ------------------------------------------------------------------------------------------------
TEST(JsonLine, ATextIsCutBetweenCharactersAndTheObjectIsWhole)
{
    constexpr char TEXT[] = "ab\n\xC3\xBC\x01z";
    const std::vector<std::string> ends = {"", "a", "ab", "ab\\n", "ab\\n\xC3\xBC", "ab\\n\xC3\xBC\\u0001"};
    const std::string whole = written(bare_line(TEXT));
    const std::size_t fixed = sizeof BEFORE_TEXT - 1 + 3;
    for (std::size_t size = fixed; size < whole.size(); ++size)
    {
        std::string room(size, '#');
        const WrittenJson made = kor::core::write_json_line({room.data(), size}, bare_line(TEXT), OTHER);
        std::string longest;
        for (const std::string& end : ends)
            longest = end.size() <= size - fixed ? end : longest;
        EXPECT_TRUE(made.is_cut);
        EXPECT_EQ(room.substr(0, made.size), BEFORE_TEXT + longest + "\"}\n") << size;
    }
}

TEST(JsonLine, ALineThatJustFitsIsNotCut)
{
    const std::string whole = written(full_line());
    std::string room(whole.size(), '#');
    const WrittenJson made = kor::core::write_json_line({room.data(), room.size()}, full_line(), OTHER);
    EXPECT_FALSE(made.is_cut);
    EXPECT_EQ(room, whole);
}

TEST(JsonLine, WithoutRoomForTheRestThereIsNoLine)
{
    const std::size_t fixed = sizeof BEFORE_TEXT - 1 + 3;
    for (std::size_t size = 0; size < fixed; ++size)
    {
        GuardedBuffer room(size);
        const WrittenJson made = kor::core::write_json_line({room.data(), size}, bare_line("x"), OTHER);
        EXPECT_EQ(made.size, 0U) << size;
        EXPECT_TRUE(made.is_cut) << size;
        EXPECT_TRUE(room.guards_hold()) << size;
    }
}

TEST(JsonLine, TheLongestLineFitsIntoWhatItIsSaidToNeed)
{
    JsonLine line = full_line();
    const std::string worst(300, '\x01');
    line.level_name = line.package_name = line.application = line.thread_name = line.client = line.file =
        line.function = line.run = line.text = worst;
    line.level = line.package = line.process = line.line = -2147483647 - 1;
    line.thread = 4294967295U;
    line.session = 2147483647;
    line.sequence = 18446744073709551615ULL;
    line.is_bare = true;
    EXPECT_GT(written(line).size(), 300U * 6 * 9);
}

// Ends ------------------------------------------------------------------------------------------------
TEST(JsonLine, TheNewlineThatEndsAMessageIsNoPartOfIt)
{
    EXPECT_EQ(kor::core::without_newline("text\n"), "text");
    EXPECT_EQ(kor::core::without_newline("text\n\n"), "text\n");
    EXPECT_EQ(kor::core::without_newline("text"), "text");
    EXPECT_EQ(kor::core::without_newline("\n"), "");
    EXPECT_EQ(kor::core::without_newline(""), "");
}

TEST(JsonLine, OfACharacterThatWasCutNothingStays)
{
    EXPECT_EQ(kor::core::without_cut_character("a\xC3"), "a");
    EXPECT_EQ(kor::core::without_cut_character("a\xE2"), "a");
    EXPECT_EQ(kor::core::without_cut_character("a\xE2\x82"), "a");
    EXPECT_EQ(kor::core::without_cut_character("a\xF0\x9F\x96"), "a");
    EXPECT_EQ(kor::core::without_cut_character("\xF0\x9F"), "");
}

TEST(JsonLine, WhatIsWholeAtTheEndStays)
{
    for (const char* const text :
         {"", "a", "\xC3\xBC", "\xE2\x82\xAC", "\xF0\x9F\x96\xBC", "\xFC", "a\xBC\xBC\xBC\xBC", "\xBC", "\xE0\x80",
          "x\xC3\xBC\xBC"})
        EXPECT_EQ(kor::core::without_cut_character(text), text);
}
} // namespace
