#include "core/line_ring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "core/line_ring_reader.h"
#include "recorded_lines.h"

using kor::core::LineOfRing;
using kor::core::LineRing;
using kor::core::LineRingReader;
using kor::core::RecordedLine;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{
constexpr std::uint32_t PROCESS = 4312;
constexpr std::uint64_t CREATED = 0x01DC1234567890AB;
constexpr std::size_t SMALL = LineRing::LEAST_SIZE;

/// Memory with a ring in it.
class Ring
{
public:
    explicit Ring(std::size_t size = SMALL)
        : m_size(size), m_memory(std::make_unique<std::uint64_t[]>(size / 8)),
          m_ring(std::make_unique<LineRing>(m_memory.get(), size, kor::core::RingOwner{PROCESS, CREATED}))
    {
    }

    void add(const std::string& text, const RecordedLine& line = {1000, 44, 7, 17, false, false})
    {
        m_ring->record(line, {{}, text, {}});
    }

    LineRing& ring() { return *m_ring; }
    const void* memory() const { return m_memory.get(); }
    std::uint64_t* words() { return m_memory.get(); }
    std::size_t size() const { return m_size; }
    recorded::Lines read() const { return recorded::read(m_memory.get(), m_size).value(); }

    std::vector<std::string> texts() const
    {
        std::vector<std::string> result;
        for (const recorded::Line& line : read().lines)
            result.push_back(line.text);
        return result;
    }

private:
    std::size_t m_size;
    std::unique_ptr<std::uint64_t[]> m_memory;
    std::unique_ptr<LineRing> m_ring;
};

/// What the library's own reader tells.
struct OwnReading
{
    explicit OwnReading(const Ring& ring)
        : room(ring.size() / 8), reader(ring.memory(), ring.size(), room.data(), ring.size())
    {
        LineOfRing line{};
        while (reader.next(line))
            lines.push_back(line);
    }

    std::vector<std::uint64_t> room;
    LineRingReader reader;
    std::vector<LineOfRing> lines;
};
} // namespace

TEST(LineRing, IsEmptyAtFirst)
{
    const Ring ring;
    EXPECT_THAT(ring.texts(), IsEmpty());
    const OwnReading own(ring);
    EXPECT_TRUE(own.reader.is_ring());
    EXPECT_THAT(own.lines, IsEmpty());
}

TEST(LineRing, BeginsWithItsSizes)
{
    const Ring ring;
    const recorded::Words words(ring.memory(), ring.size());
    EXPECT_EQ(words.at(0), SMALL);
    EXPECT_EQ(words.low(1), 64u);
    EXPECT_EQ(words.high(1), 16u);
    EXPECT_EQ(words.low(2), 4088u);
    EXPECT_EQ(words.high(2), 16u);
    EXPECT_EQ(words.low(4), 1u);
}

TEST(LineRing, TellsWhoseLinesTheyAre)
{
    const Ring ring;
    EXPECT_EQ(ring.read().process, PROCESS);
    EXPECT_EQ(ring.read().created, CREATED);
    const OwnReading own(ring);
    EXPECT_EQ(own.reader.owner().process, PROCESS);
    EXPECT_EQ(own.reader.owner().created, CREATED);
}

TEST(LineRing, KeepsAllThatIsKnownOfALine)
{
    Ring ring;
    ring.ring().record({1772719629042, 5120, 4, 749, true, false}, {"headline ->", "loaded front.png", "\n"});
    const std::vector<recorded::Line> lines = ring.read().lines;
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(lines[0].sequence, 1u);
    EXPECT_EQ(lines[0].time, 1772719629042u);
    EXPECT_EQ(lines[0].thread, 5120u);
    EXPECT_EQ(lines[0].level, 4u);
    EXPECT_EQ(lines[0].package, 749u);
    EXPECT_EQ(lines[0].flags, 1u);
    EXPECT_EQ(lines[0].text, "headline -> loaded front.png");
    const OwnReading own(ring);
    ASSERT_THAT(own.lines, SizeIs(1));
    EXPECT_EQ(own.lines[0].sequence, 1u);
    EXPECT_EQ(own.lines[0].time, 1772719629042u);
    EXPECT_EQ(own.lines[0].thread, 5120u);
    EXPECT_EQ(own.lines[0].level, 4);
    EXPECT_EQ(own.lines[0].package, 749);
    EXPECT_TRUE(own.lines[0].is_written);
    EXPECT_FALSE(own.lines[0].is_bare);
    EXPECT_FALSE(own.lines[0].is_cut);
    EXPECT_EQ(own.lines[0].text, "headline -> loaded front.png");
}

TEST(LineRing, TellsBareLinesThatWereNotWritten)
{
    Ring ring;
    ring.ring().record({1, 44, 1, 0, false, true}, {{}, "===== viewer\n", {}});
    const std::vector<recorded::Line> lines = ring.read().lines;
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(lines[0].flags, 2u);
    EXPECT_EQ(lines[0].text, "===== viewer");
    EXPECT_TRUE(OwnReading(ring).lines.at(0).is_bare);
}

TEST(LineRing, LeavesOutTheLastNewlineAlone)
{
    Ring ring;
    for (const char* const text : {"one\n", "two\n\n", "three\nlines\n", "\n", ""})
        ring.add(text);
    EXPECT_THAT(ring.texts(), ElementsAre("one", "two\n", "three\nlines", "", ""));
}

TEST(LineRing, KeepsTextsOfEachLengthAsTheyAre)
{
    Ring ring(LineRing::LEAST_SIZE * 4);
    std::vector<std::string> texts;
    for (std::size_t length = 0; length < 60; ++length)
        texts.emplace_back(length, static_cast<char>('a' + length % 26));
    for (const std::string& text : texts)
        ring.add(text);
    EXPECT_EQ(ring.texts(), texts);
}

TEST(LineRing, CutsALineThatIsLongerThanAnyMessage)
{
    Ring ring;
    ring.add(std::string(kor::core::LINE_SIZE, 'x'));
    ring.add(std::string(kor::core::LINE_SIZE + 1, 'y'));
    const std::vector<recorded::Line> lines = ring.read().lines;
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0].text, std::string(kor::core::LINE_SIZE, 'x'));
    EXPECT_EQ(lines[0].flags, 0u);
    EXPECT_EQ(lines[1].text, std::string(kor::core::LINE_SIZE, 'y'));
    EXPECT_EQ(lines[1].flags, 4u);
    EXPECT_TRUE(OwnReading(ring).lines.at(1).is_cut);
}

TEST(LineRing, OldLinesGiveWayToNewOnesWithoutAGap)
{
    for (const std::size_t size : {LineRing::LEAST_SIZE, LineRing::LEAST_SIZE + 5000, std::size_t{256 * 1024}})
    {
        Ring ring(size / 8 * 8);
        constexpr int COUNT = 10'000;
        for (int i = 0; i < COUNT; ++i)
            ring.add("line " + std::to_string(i) + std::string(static_cast<std::size_t>(i % 300), '.'));
        const recorded::Lines found = ring.read();
        ASSERT_FALSE(found.lines.empty());
        EXPECT_EQ(found.dropped + 1, found.lines.front().sequence);
        EXPECT_EQ(found.lines.back().sequence, std::uint64_t{COUNT});
        EXPECT_EQ(found.lines.size(), COUNT - found.dropped);
        EXPECT_EQ(found.lost, 0u);
        // Headers and what is left at the ends of blocks take little: of these lines, a fifth of the bytes are headers.
        std::size_t bytes = 0;
        for (const recorded::Line& line : found.lines)
            bytes += line.text.size();
        EXPECT_GT(bytes, size * 6 / 10);
    }
}

TEST(LineRing, ABlockThatWasEmptiedHasAnotherGeneration)
{
    Ring ring;
    const std::uint64_t before = ring.words()[64 / 8];
    for (int i = 0; i < 1000; ++i)
        ring.add(std::string(100, 'x'));
    EXPECT_NE(ring.words()[64 / 8], before);
}

TEST(LineRing, TakesTheLargestSize)
{
    Ring ring(LineRing::MOST_SIZE);
    ring.add("one");
    EXPECT_THAT(ring.texts(), ElementsAre("one"));
}

TEST(LineRing, LevelsAndPackagesOutOfRangeAreCut)
{
    Ring ring;
    ring.add("low", {1, 44, -3, -1, false, false});
    ring.add("high", {1, 44, 70'000, 70'000, false, false});
    const std::vector<recorded::Line> lines = ring.read().lines;
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0].level, 0u);
    EXPECT_EQ(lines[0].package, 0u);
    EXPECT_EQ(lines[1].level, 255u);
    EXPECT_EQ(lines[1].package, 65'535u);
    EXPECT_EQ(lines[1].flags, 0u);
}

namespace
{
constexpr int THREADS = 8;

/// "3 17 ....": which thread, which of its lines, and a tail that tells whether it is whole.
std::string numbered(int thread, int number)
{
    const std::string tail(static_cast<std::size_t>(number * 7 % 400), static_cast<char>('a' + number % 26));
    return std::to_string(thread) + ' ' + std::to_string(number) + ' ' + tail + '!';
}

/// Fails unless each line is whole and the lines of each thread are in their order. Returns the last of each.
std::map<int, int> check_lines(const recorded::Lines& found)
{
    std::map<int, int> last;
    for (const recorded::Line& line : found.lines)
    {
        const int thread = std::stoi(line.text);
        const int number = std::stoi(line.text.substr(line.text.find(' ')));
        EXPECT_EQ(line.text, numbered(thread, number));
        EXPECT_EQ(line.thread, static_cast<std::uint32_t>(thread));
        EXPECT_TRUE(last.count(thread) == 0 || number > last[thread]) << number;
        last[thread] = number;
    }
    return last;
}

void check_own_reading(const Ring& ring)
{
    std::map<std::uint32_t, int> last;
    std::uint64_t sequence = 0;
    for (const LineOfRing& line : OwnReading(ring).lines)
    {
        const std::string text(line.text);
        const int number = std::stoi(text.substr(text.find(' ')));
        EXPECT_EQ(text, numbered(static_cast<int>(line.thread), number));
        EXPECT_GT(line.sequence, sequence);
        sequence = line.sequence;
        EXPECT_TRUE(last.count(line.thread) == 0 || number > last[line.thread]) << number;
        last[line.thread] = number;
    }
}
} // namespace

TEST(LineRing, LinesOfEightThreadsAreWholeAndInOrderWhileTheyWriteAndAfterwards)
{
    constexpr int LINES = 40'000;
    Ring ring;
    std::atomic<int> waiting{THREADS}; // else each would be done before the next is there
    std::atomic<int> running{THREADS};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread)
        threads.emplace_back(
            [&ring, &waiting, &running, thread]
            {
                --waiting;
                while (waiting > 0)
                    std::this_thread::yield();
                for (int number = 0; number < LINES; ++number)
                    ring.add(numbered(thread, number), {1, static_cast<std::uint32_t>(thread), 7, 17, false, false});
                --running;
            });
    int looks = 0;
    while (running > 0)
    {
        check_lines(ring.read());
        check_own_reading(ring);
        ++looks;
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(looks, 0);

    const recorded::Lines found = ring.read();
    const std::map<int, int> last = check_lines(found);
    check_own_reading(ring);
    EXPECT_EQ(found.lost, 0u);
    EXPECT_EQ(found.lines.back().sequence, std::uint64_t{THREADS} * LINES);
    const auto complete = static_cast<std::uint64_t>(std::count_if(
        found.lines.begin(), found.lines.end(),
        [&found](const recorded::Line& line) { return line.sequence > found.dropped; }));
    EXPECT_EQ(complete, std::uint64_t{THREADS} * LINES - found.dropped);
    for (const auto& [thread, number] : last)
        EXPECT_LT(number, LINES) << thread;
}

TEST(LineRing, MoreThreadsThanLanesKeepAllLinesOfARingThatIsLargeEnough)
{
    constexpr int MANY = 40;
    constexpr int LINES = 20;
    Ring ring(1024 * 1024);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < MANY; ++thread)
        threads.emplace_back(
            [&ring, thread]
            {
                for (int number = 0; number < LINES; ++number)
                    ring.add(numbered(thread, number), {1, static_cast<std::uint32_t>(thread), 7, 17, false, false});
            });
    for (std::thread& thread : threads)
        thread.join();
    const recorded::Lines found = ring.read();
    EXPECT_THAT(check_lines(found), SizeIs(MANY));
    EXPECT_THAT(found.lines, SizeIs(MANY * LINES));
    EXPECT_EQ(found.dropped, 0u);
}

TEST(LineRingReader, AnythingElseIsNoRing)
{
    Ring ring;
    ring.add("one");
    const auto is_ring = [&ring](std::size_t word, std::uint64_t value)
    {
        const std::uint64_t before = ring.words()[word];
        ring.words()[word] = value;
        const OwnReading own(ring);
        ring.words()[word] = before;
        EXPECT_TRUE(own.reader.is_ring() || own.lines.empty());
        return own.reader.is_ring();
    };
    EXPECT_FALSE(is_ring(3, 0));                            // not made yet
    EXPECT_FALSE(is_ring(4, 2));                            // a later version
    EXPECT_FALSE(is_ring(1, 8 | std::uint64_t{16} << 32));  // a header that is too small
    EXPECT_FALSE(is_ring(1, 66 | std::uint64_t{16} << 32)); // and one that ends within a word
    EXPECT_FALSE(is_ring(1, 1u << 30 | std::uint64_t{16} << 32));
    EXPECT_FALSE(is_ring(1, 64 | std::uint64_t{24} << 32));
    EXPECT_FALSE(is_ring(2, 0)); // blocks without a size
    EXPECT_FALSE(is_ring(2, 4084 | std::uint64_t{16} << 32));
    EXPECT_TRUE(is_ring(2, 4088 | std::uint64_t{9'999} << 32)); // more blocks than there are: those that there are
    EXPECT_TRUE(is_ring(0, 0));                                 // what the memory has counts, not what it says
}

TEST(LineRingReader, MemoryThatIsSmallerThanAHeaderIsNoRing)
{
    const Ring ring;
    std::vector<std::uint64_t> room(SMALL / 8);
    EXPECT_FALSE(LineRingReader(ring.memory(), 56, room.data(), SMALL).is_ring());
    EXPECT_FALSE(LineRingReader(ring.memory(), 0, room.data(), SMALL).is_ring());
}

TEST(LineRingReader, ALineThatClaimsToBeLongerThanItsBlockEndsThat)
{
    Ring ring;
    ring.add("one");
    ring.add("two");
    ring.words()[(64 + 16) / 8 + 5] = 0xFFFFFFFF; // the size of the second line
    const OwnReading own(ring);
    ASSERT_THAT(own.lines, SizeIs(1));
    EXPECT_EQ(own.lines[0].text, "one");
}

TEST(LineRingReader, ABlockThatClaimsMoreThanItHasIsReadToItsEnd)
{
    Ring ring;
    ring.add("one");
    ring.words()[64 / 8 + 1] = ~std::uint64_t{0};
    const OwnReading own(ring);
    ASSERT_FALSE(own.lines.empty());
    EXPECT_TRUE(
        std::any_of(own.lines.begin(), own.lines.end(), [](const LineOfRing& line) { return line.text == "one"; }));
}

TEST(LineRingReader, BlocksForWhichThereIsNoRoomAreLeftOut)
{
    Ring ring;
    for (int i = 0; i < 100; ++i)
        ring.add(std::string(100, 'x'));
    std::vector<std::uint64_t> room(4088 / 8);
    LineRingReader reader(ring.memory(), ring.size(), room.data(), room.size() * 8);
    LineOfRing line{};
    int count = 0;
    while (reader.next(line))
        ++count;
    EXPECT_EQ(count, (4088 - 16) / (32 + 104));
}

TEST(LineRingReader, BeginsAgain)
{
    Ring ring;
    ring.add("one");
    ring.add("two");
    OwnReading own(ring);
    LineOfRing line{};
    EXPECT_FALSE(own.reader.next(line));
    own.reader.rewind();
    ASSERT_TRUE(own.reader.next(line));
    EXPECT_EQ(line.text, "one");
}
