// safe_text_test.cpp - texts from outside as they are written where lines are to be safe.

#include "core/safe_text.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "core/log_line.h"
#include "guarded_buffer.h"

using kor::core::is_safe;
using kor::core::SafeMessage;
using kor::core::SafeStyle;
using kor::core::SafeText;
using namespace std::string_literals;
using namespace std::string_view_literals;

namespace
{
std::string safe(std::string_view text, SafeStyle style = SafeStyle::MESSAGE)
{
    std::string to(text.size() * 6 + 16, '\0');
    const SafeText made = kor::core::write_safe({to.data(), to.size()}, text, style);
    EXPECT_EQ(made.read, text.size());
    EXPECT_EQ(made.written, kor::core::safe_size(text, style));
    to.resize(made.written);
    return to;
}

/// A message of a buffer of so many bytes; what the formatter could not put in is cut.
std::string message(std::string text, std::size_t size = 2048, bool indented = false)
{
    GuardedBuffer buffer(size);
    const bool is_cut = text.size() > size - 1;
    const std::string held = text.substr(0, size - 1);
    held.copy(buffer.data(), held.size());
    buffer.data()[held.size()] = '\0';
    const int length = kor::core::make_message_safe(
        {buffer.data(), size}, is_cut ? -1 : static_cast<int>(held.size()), text.size(), indented);
    EXPECT_TRUE(buffer.guards_hold());
    EXPECT_EQ(buffer.text().size(), static_cast<std::size_t>(length));
    return std::string(buffer.text());
}

std::string name(std::string_view text, std::size_t size = 200)
{
    GuardedBuffer buffer(size);
    const bool is_cut = text.size() > size - 1;
    const std::string held(text.substr(0, size - 1));
    held.copy(buffer.data(), held.size());
    buffer.data()[held.size()] = '\0';
    const int length = kor::core::make_name_safe({buffer.data(), size}, is_cut ? -1 : static_cast<int>(held.size()));
    EXPECT_TRUE(buffer.guards_hold());
    EXPECT_EQ(buffer.text().size(), length < 0 ? size - 1 : static_cast<std::size_t>(length));
    return std::string(buffer.text());
}
} // namespace

TEST(SafeText, PrintableTextStaysAsItIs)
{
    for (const std::string_view text :
         {""sv, "x"sv, "seventeen letters"sv, "a\ttab"sv, "C:\\logs\\viewer.log"sv,
          "\xC3\xA9t\xC3\xA9 \xE2\x82\xAC 5"sv, "\xD1\x84\xD0\xB0\xD0\xB9\xD0\xBB"sv, "\xE6\x97\xA5\xE6\x9C\xAC"sv,
          "\xF0\x9F\x98\x80"sv, "cp1252: \x80\x99\xC2"sv, "\xC2\xA0\xC2\xA7"sv, "\xE2\x80\xA7\xE2\x80\xAF"sv})
    {
        EXPECT_TRUE(is_safe(text, SafeStyle::MESSAGE)) << text;
        EXPECT_EQ(safe(text), text);
    }
}

TEST(SafeText, EveryControlCharacterIsFoundAtEveryPlace)
{
    for (int c = 0; c < 0x100; ++c)
        for (std::size_t at = 0; at < 20; ++at)
        {
            std::string text(20, 'x');
            text[at] = static_cast<char>(c);
            const bool expected = !(c < 0x20 && c != '\t') && c != 0x7F;
            EXPECT_EQ(is_safe(text, SafeStyle::MESSAGE), expected) << c << " at " << at;
            EXPECT_EQ(is_safe(text, SafeStyle::NAME), expected && c != '\t') << c << " at " << at;
        }
}

TEST(SafeText, EveryUnsafeCharacterOfMoreBytesIsFoundAtEveryPlace)
{
    for (const std::string_view character :
         {"\xC2\x80"sv, "\xC2\x9B"sv, "\xC2\x9F"sv, "\xE2\x80\xA8"sv, "\xE2\x80\xA9"sv, "\xE2\x80\xAA"sv,
          "\xE2\x80\xAE"sv, "\xE2\x81\xA6"sv, "\xE2\x81\xA9"sv})
        for (std::size_t at = 0; at < 20; ++at)
            EXPECT_FALSE(is_safe(std::string(at, 'x') + std::string(character) + "tail", SafeStyle::MESSAGE));
}

TEST(SafeText, ControlCharactersAreEscaped)
{
    EXPECT_EQ(safe("red \x1b[31m"), "red \\x1b[31m");
    EXPECT_EQ(safe("bell\a nul\0 del\x7f"sv), "bell\\x07 nul\\x00 del\\x7f");
    EXPECT_EQ(safe("over\rwritten"), "over\\rwritten");
    EXPECT_EQ(safe("csi \xC2\x9B"), "csi \\u009b");
    EXPECT_EQ(safe("\xE2\x80\xA8\xE2\x80\xAE\xE2\x81\xA6"), "\\u2028\\u202e\\u2066");
}

TEST(SafeText, FurtherLinesBeginWithBlanks)
{
    EXPECT_EQ(safe("one\ntwo\r\nthree"), "one\n    two\n    three");
    EXPECT_EQ(safe("one\n\n two\n"), "one\n\n     two\n"); // nothing behind an empty line's break
    EXPECT_EQ(safe("\r\n\r\n"), "\n\n");
}

TEST(SafeText, NamesStayOnOneLine) { EXPECT_EQ(safe("Worker\n2\t\r", SafeStyle::NAME), "Worker\\n2\\t\\r"); }

TEST(SafeText, NoTextBeginsALineOfTheLog)
{
    const std::string forged = "2026-11-22 08:00:00.123+01:00 NOTICE  (320) viewer (32,280)   -> all is well";
    ASSERT_EQ(kor::core::read_log_line(forged).kind, kor::core::LogLine::MESSAGE);
    const std::string text = safe("x\n" + forged);
    EXPECT_EQ(kor::core::read_log_line(text.substr(text.find('\n') + 1)).kind, kor::core::LogLine::BARE);
}

TEST(SafeText, WhatDoesNotFitIsLeftOutWhole)
{
    for (const std::string_view unit : {"\x1b"sv, "\xC2\x9B"sv, "\xF0\x9F\x98\x80"sv, "\xE2\x80\xA8"sv})
    {
        const std::string whole = safe(unit);
        for (std::size_t room = 0; room < whole.size(); ++room)
        {
            GuardedBuffer buffer(room + 3);
            const std::string text = "abc" + std::string(unit);
            const SafeText made = kor::core::write_safe({buffer.data(), room + 3}, text, SafeStyle::MESSAGE);
            EXPECT_EQ(made.written, 3u);
            EXPECT_EQ(made.read, 3u);
            EXPECT_TRUE(buffer.guards_hold());
        }
    }
}

// Messages -------------------------------------------------------------------------------------------------
TEST(SafeMessages, OrdinaryOnesStayAsTheyAre)
{
    for (const std::string& text : {""s, "x"s, "x\n"s, "\n"s, std::string(2046, 'x'), std::string(2046, 'x') + "\n"})
        EXPECT_EQ(message(text), text);
}

TEST(SafeMessages, OneThatIsCutSaysHowMuchIsMissing)
{
    EXPECT_EQ(message(std::string(3000, 'x')), std::string(2033, 'x') + "... [967 cut]");
    EXPECT_EQ(message(std::string(2047, 'x')), std::string(2034, 'x') + "... [13 cut]");
    EXPECT_EQ(message(std::string(2048, 'x')), std::string(2034, 'x') + "... [14 cut]");
}

TEST(SafeMessages, OneThatGrowsTooLongIsCut)
{
    const std::string text = message(std::string(1000, '\x1b') + "\n");
    EXPECT_EQ(text.size(), 508 * 4 + std::string("... [492 cut]\n").size());
    EXPECT_EQ(text.substr(508 * 4), "... [492 cut]\n");
}

TEST(SafeMessages, NoCharacterIsCutInTwo)
{
    std::string text;
    while (text.size() < 3000)
        text += "\xE6\x97\xA5";
    const std::string made = message(text);
    const std::size_t mark = made.find("... [");
    EXPECT_EQ(mark % 3, 0u);
    EXPECT_EQ(made.substr(mark), "... [" + std::to_string(text.size() - mark) + " cut]");
}

TEST(SafeMessages, TheMarkOfACutNeverBeginsALine)
{
    for (const char* const line_breaks : {"\n", "\n\n\n", "\r\n\r\n"})
        for (std::size_t first = 1; first < 60; ++first)
        {
            const std::string text = std::string(first, 'x') + line_breaks + std::string(200, 'y');
            const std::string made = message(text, 64);
            const std::size_t mark = made.find("... [");
            ASSERT_NE(mark, std::string::npos) << first;
            EXPECT_NE(made[mark - 1], '\n') << first;
            if (mark == first) // nothing but the first line is left
            {
                EXPECT_EQ(made.substr(mark), "... [" + std::to_string(text.size() - first) + " cut]");
            }
        }
}

TEST(SafeMessages, LinesWithoutAHeadlineBeginWithBlanks)
{
    EXPECT_EQ(message(std::string(80, '\n'), 64, true), "    ... [80 cut]");
    EXPECT_EQ(message(std::string(80, '\n'), 64, false), "... [80 cut]");
    EXPECT_EQ(message("one\ntwo\n", 2048, true), "    one\n    two\n");
    EXPECT_EQ(message("", 2048, true), "");
    EXPECT_EQ(message("\n", 2048, true), "\n");
    EXPECT_EQ(message(std::string(2044, 'x'), 2048, true), "    " + std::string(2030, 'x') + "... [14 cut]");
}

TEST(SafeMessages, EveryLengthStaysInItsBuffer)
{
    for (const std::size_t size : {64u, 512u, 1024u, 2048u})
        for (std::size_t length = size - 20; length < size + 20; ++length)
            for (const char c : {'x', '\n', '\x1b'})
                EXPECT_LE(message(std::string(length, c), size).size(), size - 1);
}

// Names ----------------------------------------------------------------------------------------------------
TEST(SafeNames, AreEscapedWhereTheyStand)
{
    EXPECT_EQ(name("viewer"), "viewer");
    EXPECT_EQ(name("view\ner\x1b[2J"), "view\\ner\\x1b[2J");
}

TEST(SafeNames, OneThatHasNoRoomFillsItsBuffer)
{
    EXPECT_EQ(name(std::string(250, 'x'), 200), std::string(199, 'x'));
    EXPECT_EQ(name("\x1b" + std::string(198, 'x'), 200), "\\x1b" + std::string(195, 'x'));
    EXPECT_EQ(name(std::string(198, 'x') + "\x1b", 200), std::string(198, 'x') + ".");
    EXPECT_EQ(name(std::string(50, '\x1b'), 200).size(), 199u);
}

// Finished texts -------------------------------------------------------------------------------------------
TEST(SafeFinishedTexts, OfAnyLengthAreWhole)
{
    for (const std::size_t length : {0u, 1u, 2046u, 2047u, 2048u, 100'000u})
    {
        const std::string text = std::string(length, 'x') + "\x1b\n";
        const SafeMessage made(text, true, false);
        EXPECT_EQ(made.text(), std::string(length, 'x') + "\\x1b\n");
        EXPECT_EQ(made.text().data()[made.text().size()], '\0');
    }
}

TEST(SafeFinishedTexts, AreNotCopiedWhenThereIsNothingToChange)
{
    const std::string text(100'000, 'x');
    EXPECT_EQ(SafeMessage(text, false, false).text().data(), text.data());
}

TEST(SafeFinishedTexts, WithoutAHeadlineBeginWithBlanks)
{
    EXPECT_EQ(SafeMessage("one\ntwo", false, true).text(), "    one\n    two");
    EXPECT_EQ(SafeMessage("\n", true, true).text(), "\n");
    EXPECT_EQ(SafeMessage("two\n\n", true, false).text(), "two\n\n");
}
