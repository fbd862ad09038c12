// bounded_text_test.cpp - texts built in a caller's buffer: what they read, and that nothing is written past it.

#include "core/bounded_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "guarded_buffer.h"

using kor::core::BoundedText;

namespace
{
/// Characters of which no two that are close to each other are the same.
std::string various(std::size_t length)
{
    std::string text;
    for (std::size_t i = 0; i < length; ++i)
        text += static_cast<char>('0' + i % 71);
    return text;
}
} // namespace

TEST(CopiedText, OfAnyLengthIsWholeAndNoMore)
{
    for (std::size_t length = 0; length <= 1100; ++length)
    {
        SCOPED_TRACE(length);
        const std::string text = various(length);
        GuardedBuffer from(length); // of its own size, so that a checked build sees reads beside it
        text.copy(from.data(), length);
        GuardedBuffer to(length);
        ASSERT_EQ(kor::core::copy_text(to.data(), from.data(), length), to.data() + length);
        ASSERT_EQ(std::string_view(to.data(), length), text);
        ASSERT_TRUE(to.guards_hold());
    }
}

TEST(BoundedText, UnsignedNumbersReadAsPrintfPrintsThem)
{
    GuardedBuffer buffer(64);
    BoundedText text(buffer.data(), buffer.size());
    text.add_unsigned(std::numeric_limits<std::uint64_t>::max()).add(' ').add_unsigned(0).add(' ').add_unsigned(7, 3);
    EXPECT_EQ(text.finish(), 26);
    EXPECT_EQ(buffer.text(), "18446744073709551615 0 007");
}

TEST(BoundedText, NumbersAreCutAtEverySize)
{
    for (std::size_t size = 1; size <= 22; ++size)
    {
        SCOPED_TRACE(size);
        GuardedBuffer buffer(size);
        BoundedText text(buffer.data(), buffer.size());
        EXPECT_EQ(text.add_number(7, 25).finish(), size >= 21 ? 20 : -1);
        EXPECT_EQ(buffer.text(), std::string("00000000000000000007").substr(0, size - 1));
        EXPECT_TRUE(buffer.guards_hold());
    }
}

TEST(BoundedText, TerminatedTextsEndWhereTheyAreCut)
{
    for (std::size_t size = 1; size <= 6; ++size)
    {
        SCOPED_TRACE(size);
        GuardedBuffer buffer(size);
        BoundedText text(buffer.data(), buffer.size());
        EXPECT_EQ(text.add_terminated("ab").add_terminated("").add_terminated("cd").finish(), size >= 5 ? 4 : -1);
        EXPECT_EQ(buffer.text(), std::string("abcd").substr(0, size - 1));
        EXPECT_TRUE(buffer.guards_hold());
    }
}

TEST(BoundedText, NumbersReadAsPrintfPrintsThem)
{
    struct Row
    {
        std::int64_t value;
        int width;
        const char* expected;
    };
    const Row rows[] = {
        {0, 0, "0"},
        {7, 0, "7"},
        {7, 1, "7"},
        {7, 3, "007"},
        {42, 3, "042"},
        {749, 3, "749"},
        {1234, 3, "1234"},
        {0, 2, "00"},
        {0, 4, "0000"},
        {-5, 0, "-5"},
        {-5, 1, "-5"},
        {-5, 2, "-5"},
        {-5, 3, "-05"},
        {-1234, 4, "-1234"},
        {-1234, 8, "-0001234"},
        {10, 0, "10"},
        {100200300, 0, "100200300"},
        {1, 20, "00000000000000000001"},
        {7, 25, "00000000000000000007"},
        {-7, 25, "-0000000000000000007"},
        {7, -3, "7"},
        {-7, -3, "-7"},
        {-1, 20, "-0000000000000000001"},
        {std::numeric_limits<std::int32_t>::min(), 0, "-2147483648"},
        {std::numeric_limits<std::int64_t>::max(), 0, "9223372036854775807"},
        {std::numeric_limits<std::int64_t>::max(), 20, "09223372036854775807"},
        {std::numeric_limits<std::int64_t>::min(), 0, "-9223372036854775808"},
        {std::numeric_limits<std::int64_t>::min(), 20, "-9223372036854775808"},
    };
    for (const Row& row : rows)
    {
        GuardedBuffer buffer(64);
        BoundedText text(buffer.data(), buffer.size());
        const int length = text.add_number(row.value, row.width).finish();

        EXPECT_EQ(buffer.text(), row.expected);
        EXPECT_EQ(length, static_cast<int>(std::string(row.expected).size())) << row.expected;
    }
}

TEST(BoundedText, LeftAlignedTextIsPaddedButNeverShortened)
{
    struct Row
    {
        const char* text;
        std::size_t width;
        const char* expected;
    };
    const Row rows[] = {
        {"", 0, "<>"},
        {"", 3, "<   >"},
        {"NONE", 8, "<NONE    >"},
        {"WARNING", 8, "<WARNING >"},
        {"CRITICAL", 8, "<CRITICAL>"},
        {"CRITICALLY", 8, "<CRITICALLY>"},
    };
    for (const Row& row : rows)
    {
        GuardedBuffer buffer(64);
        BoundedText text(buffer.data(), buffer.size());
        text.add('<').add_left_aligned(row.text, row.width).add('>').finish();
        EXPECT_EQ(buffer.text(), row.expected);
    }
}

TEST(BoundedText, NothingAddedIsAnEmptyText)
{
    GuardedBuffer buffer(8);
    BoundedText text(buffer.data(), buffer.size());
    EXPECT_EQ(text.add("").add(std::string_view()).finish(), 0);
    EXPECT_EQ(buffer.text(), "");
    EXPECT_TRUE(buffer.is_terminated());
}

TEST(BoundedText, EverySizeCutsTheTextWhereTheBufferEnds)
{
    const std::string whole = "ab--0012345xy  !"; // 16 characters
    for (std::size_t size = 1; size <= 20; ++size)
    {
        SCOPED_TRACE(size);
        GuardedBuffer buffer(size);
        BoundedText text(buffer.data(), buffer.size());
        const int length = text.add("ab").add('-').add_number(-12345, 8).add_left_aligned("xy", 4).add('!').finish();

        EXPECT_EQ(length, size >= 17 ? 16 : -1);
        EXPECT_EQ(buffer.text(), whole.substr(0, size - 1));
        EXPECT_TRUE(buffer.is_terminated());
        EXPECT_TRUE(buffer.guards_hold());
    }
}

TEST(BoundedText, PiecesOfEveryLengthFollowEachOther)
{
    for (std::size_t length = 0; length <= 600; ++length)
    {
        SCOPED_TRACE(length);
        const std::string piece = various(length);
        GuardedBuffer buffer(1500);
        BoundedText text(buffer.data(), buffer.size());
        ASSERT_EQ(text.add("<").add(piece).add("|").add(piece).add('>').finish(), static_cast<int>(2 * length + 3));
        ASSERT_EQ(buffer.text(), '<' + piece + '|' + piece + '>');
    }
}

TEST(BoundedText, AShortPieceDoesNotFollowOneThatWasCut)
{
    GuardedBuffer buffer(6);
    BoundedText text(buffer.data(), buffer.size());
    EXPECT_EQ(text.add("abc").add("defgh").add("i").add_number(1).add_left_aligned("", 2).finish(), -1);
    EXPECT_EQ(buffer.text(), "abcde");
    EXPECT_TRUE(buffer.guards_hold());
}

TEST(BoundedText, ACutStaysOneWhenNothingFollows)
{
    GuardedBuffer buffer(6);
    BoundedText text(buffer.data(), buffer.size());
    EXPECT_EQ(text.add("abcdef").add("").add_left_aligned("", 0).finish(), -1);
    EXPECT_EQ(buffer.text(), "abcde");
}

TEST(BoundedText, OneCharacterTooManyIsACut)
{
    GuardedBuffer buffer(3);
    BoundedText text(buffer.data(), buffer.size());
    EXPECT_EQ(text.add('a').add('b').finish(), 2);
    EXPECT_EQ(text.add('c').finish(), -1);
    EXPECT_EQ(buffer.text(), "ab");
    EXPECT_TRUE(buffer.guards_hold());
}

TEST(BoundedText, ATextThatJustFitsIsNotCut)
{
    GuardedBuffer buffer(6);
    BoundedText text(buffer.data(), buffer.size());
    EXPECT_EQ(text.add("abc").add("de").add("").finish(), 5);
    EXPECT_EQ(buffer.text(), "abcde");
}

TEST(BoundedText, PaddingThatDoesNotFitIsACut)
{
    GuardedBuffer buffer(6);
    BoundedText text(buffer.data(), buffer.size());
    EXPECT_EQ(text.add_left_aligned("abc", 1000).finish(), -1);
    EXPECT_EQ(buffer.text(), "abc  ");
    EXPECT_TRUE(buffer.guards_hold());
}
