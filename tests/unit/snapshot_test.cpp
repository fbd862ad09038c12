#include "core/snapshot.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using kor::core::snapshot;
using kor::core::TextSnapshot;

TEST(Snapshot, ARecordKeepsWhatItWas)
{
    struct Record
    {
        int count;
        char text[4];
    };
    Record shared{3, {'a', 'b', 'c', 'd'}};
    const Record copy = snapshot(shared);
    shared = {7, {'x', 'x', 'x', 'x'}};
    EXPECT_EQ(copy.count, 3);
    EXPECT_EQ(std::memcmp(copy.text, "abcd", 4), 0);
}

TEST(Snapshot, ATextKeepsWhatItWas)
{
    char shared[8] = "front";
    const TextSnapshot copy(shared);
    std::memset(shared, 'x', sizeof shared);
    EXPECT_EQ(copy.text(), "front");
    EXPECT_FALSE(copy.empty());
}

TEST(Snapshot, ATextThatFillsItsFieldGetsAnEnd)
{
    const char shared[4] = {'a', 'b', 'c', 'd'};
    const TextSnapshot copy(shared);
    EXPECT_EQ(copy.text(), "abcd");
    EXPECT_EQ(std::string(copy.text().data()), "abcd");
}

TEST(Snapshot, ATextEndsAtItsFirstTerminator)
{
    const char shared[8] = {'a', '\0', 'b', 'b', 'b', 'b', 'b', 'b'};
    EXPECT_EQ(TextSnapshot(shared).text(), "a");
    const char none[2] = {'\0', 'b'};
    EXPECT_TRUE(TextSnapshot(none).empty());
    EXPECT_EQ(TextSnapshot(none).text(), "");
}
