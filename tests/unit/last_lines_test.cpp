#include "core/last_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/line_ring.h"
#include "guarded_buffer.h"

using kor::core::LineRing;
using kor::core::LineRingReader;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
/// A ring with these lines, and its reader.
class Recorded
{
public:
    explicit Recorded(const std::vector<std::string>& texts)
        : m_memory(LineRing::LEAST_SIZE / 8), m_room(LineRing::LEAST_SIZE / 8),
          m_ring(m_memory.data(), LineRing::LEAST_SIZE, {1, 2})
    {
        for (const std::string& text : texts)
            m_ring.record({1, 4, 7, 17, false, false}, {{}, text, {}});
    }

    LineRingReader& reader()
    {
        m_reader = std::make_unique<LineRingReader>(
            m_memory.data(), LineRing::LEAST_SIZE, m_room.data(), LineRing::LEAST_SIZE);
        return *m_reader;
    }

private:
    std::vector<std::uint64_t> m_memory;
    std::vector<std::uint64_t> m_room;
    LineRing m_ring;
    std::unique_ptr<LineRingReader> m_reader;
};

std::vector<std::string> pieces(const std::vector<std::string>& texts, std::size_t size)
{
    Recorded recorded(texts);
    LineRingReader& reader = recorded.reader();
    GuardedBuffer room(size);
    std::vector<std::string> result;
    kor::core::put_lines(reader, room.data(), size, [&](std::string_view text) { result.emplace_back(text); });
    EXPECT_TRUE(room.guards_hold());
    return result;
}

std::string newest(const std::vector<std::string>& texts, std::size_t size)
{
    Recorded recorded(texts);
    LineRingReader& reader = recorded.reader();
    GuardedBuffer room(size);
    const std::string result(kor::core::newest_lines(reader, room.data(), size));
    EXPECT_TRUE(room.guards_hold());
    EXPECT_EQ(room.data()[result.size()], '\0');
    return result;
}
} // namespace

TEST(LastLines, EndAsLinesOfAFileDo)
{
    EXPECT_THAT(pieces({"one", "two\nlines", ""}, 100), ElementsAre("one\r\ntwo\r\nlines\r\n\r\n"));
}

TEST(LastLines, ComeInPiecesThatEndWhereALineEnds)
{
    EXPECT_THAT(pieces({"one", "two", "three", "four"}, 10), ElementsAre("one\r\ntwo\r\n", "three\r\n", "four\r\n"));
}

TEST(LastLines, OneThatHasNoRoomIsLeftOut)
{
    EXPECT_THAT(pieces({"one", "longer than ten", "two"}, 10), ElementsAre("one\r\n", "two\r\n"));
}

TEST(LastLines, OfNoneThereIsNoPiece) { EXPECT_THAT(pieces({}, 10), IsEmpty()); }

TEST(LastLines, TheNewestAreThoseThatFit)
{
    EXPECT_EQ(newest({"one", "two", "three"}, 18), "one\r\ntwo\r\nthree\r\n");
    EXPECT_EQ(newest({"one", "two", "three"}, 17), "two\r\nthree\r\n");
    EXPECT_EQ(newest({"one", "two", "three"}, 12), "three\r\n");
    EXPECT_EQ(newest({"one", "two", "three"}, 7), "");
    EXPECT_EQ(newest({"one\n"}, 6), "one\r\n");
    EXPECT_EQ(newest({}, 1), "");
}

TEST(LastLines, TheLongestLineFitsIntoTheRoomForIt)
{
    const std::string longest(kor::core::LINE_SIZE, '\n');
    const std::vector<std::string> all = pieces({longest}, kor::core::LONGEST_LAST_LINE);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].size(), kor::core::LONGEST_LAST_LINE - 2); // the last newline is the line's end
}
