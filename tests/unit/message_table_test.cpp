// message_table_test.cpp - message tables to the byte, and what a reader finds in them.

#include "core/message_table.h"

#include <gtest/gtest.h>

#include "message_table_reader.h"

using kor::core::MAX_TABLE_TEXT;
using kor::core::message_table;
using kor::core::MessageTexts;
using kor::core::plain_message;

namespace
{
using Bytes = std::vector<std::uint8_t>;
} // namespace

TEST(MessageTable, OfOneTextIsThis)
{
    EXPECT_EQ(
        message_table({{65535, u"%1\r\n"}}),
        (Bytes{1,    0,    0, 0,                                       // one block
               0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0,   0, 16,   0, 0,    0, // from, to, offset of its entries
               16,   0,    1, 0, '%',  0,    '1', 0, '\r', 0, '\n', 0,
               0,    0,    0, 0})); // size, UTF-16, text, its end, filled up
}

TEST(MessageTable, OfNothingHasNoBlock) { EXPECT_EQ(message_table({}), (Bytes{0, 0, 0, 0})); }

TEST(MessageTable, HasABlockForEachRunOfNumbers)
{
    const MessageTexts texts = {{0, u""}, {1, u"a"}, {2, u"bc"}, {7, u"d"}, {0xFFFFFFFF, u"\xD83D\xDE00"}};
    const Bytes bytes = message_table(texts);
    EXPECT_EQ(bytes[0], 3);
    EXPECT_EQ(MessageTableReader(bytes).read(), texts);
}

TEST(MessageTable, CutsATextThatIsTooLongBetweenCharacters)
{
    const std::u16string longest(MAX_TABLE_TEXT, u'x');
    const std::u16string pair = longest.substr(1) + u"\xD83D\xDE00";
    const Bytes bytes = message_table({{1, longest}, {2, longest + u"y"}, {3, pair}});
    EXPECT_EQ(MessageTableReader(bytes).read(), (MessageTexts{{1, longest}, {2, longest}, {3, longest.substr(1)}}));
}

TEST(MessageTable, APlainMessageIsItsTextWhateverItHolds)
{
    EXPECT_EQ(plain_message(u"Viewer"), u"Viewer\r\n");
    EXPECT_EQ(plain_message(u""), u"\r\n");
    EXPECT_EQ(plain_message(u"100%1 %%"), u"100%%1 %%%%\r\n");
    EXPECT_EQ(plain_message(u"a\tb\r\nc\x7F\x01"), u"a b  c  \r\n");
    EXPECT_EQ(plain_message(u"\xC4lbum"), u"\xC4lbum\r\n");
}
