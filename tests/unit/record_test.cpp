// record_test.cpp - records as text, their growth, and the streams of many threads.

#include "core/record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "guarded_buffer.h"

using kor::core::Record;
using kor::core::RecordStreams;
using kor::core::RecordText;
using testing::ElementsAre;

namespace
{
constexpr std::int64_t LARGEST = std::numeric_limits<std::int64_t>::max();

std::string written(float value)
{
    GuardedBuffer buffer(kor::core::VALUE_SIZE);
    char* const end = kor::core::write_value(buffer.data(), value);
    EXPECT_TRUE(buffer.guards_hold()) << value;
    return std::string(buffer.data(), end);
}

std::string streamed(float value)
{
    std::ostringstream stream;
    stream << value;
    return stream.str();
}

float from_bits(std::uint32_t bits)
{
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::string text_of(const RecordText& records)
{
    std::string all;
    records.for_each_piece([&](const char* piece) { all += piece; });
    return all;
}

int pieces_of(const RecordText& records)
{
    int pieces = 0;
    records.for_each_piece([&](const char*) { ++pieces; });
    return pieces;
}

std::vector<std::string> texts_of(const RecordStreams& streams)
{
    std::vector<std::string> texts;
    streams.for_each([&](const RecordText& text) { texts.push_back(text_of(text)); });
    return texts;
}

void add(RecordStreams& streams, std::uint32_t thread_id, std::int64_t milliseconds)
{
    streams.find_or_make(thread_id)->append({milliseconds, "a", "b", 0, "c", "d"});
}
} // namespace

// Time ------------------------------------------------------------------------------------------------
TEST(CounterMilliseconds, AreTheCounterTimesAThousandDividedByTheFrequency)
{
    struct Row
    {
        std::int64_t counter, frequency, milliseconds;
    };
    const Row rows[] = {
        {0, 10'000'000, 0},
        {9'999, 10'000'000, 0},
        {10'000, 10'000'000, 1},
        {123'456'789, 10'000'000, 12'345},
        {5, 3, 1'666},
        {7, 1, 7'000},
        {1'999'999, 1'000'000'000, 1},
        {LARGEST / 1000, 1000, LARGEST / 1000},
    };
    for (const Row& row : rows)
        EXPECT_EQ(kor::core::counter_milliseconds(row.counter, row.frequency), row.milliseconds) << row.counter;
}

TEST(CounterMilliseconds, AreRightWhereTheProductDoesNotFit)
{
    EXPECT_EQ(kor::core::counter_milliseconds(9'223'372'036'854'776, 1000), 9'223'372'036'854'776);
    EXPECT_EQ(kor::core::counter_milliseconds(LARGEST, 10'000'000), 922'337'203'685'477);
    EXPECT_EQ(kor::core::counter_milliseconds(LARGEST, 3'000'000'000), 3'074'457'345'618);
}

// Values ----------------------------------------------------------------------------------------------
TEST(RecordValue, HasSixSignificantDigitsAndNoFixedNotation)
{
    struct Row
    {
        float value;
        const char* text;
    };
    const Row rows[] = {
        {0.0f, "0"},
        {-0.0f, "-0"},
        {0.5f, "0.5"},
        {-0.5f, "-0.5"},
        {1.0f, "1"},
        {0.1f, "0.1"},
        {100000.0f, "100000"},
        {123456.0f, "123456"},
        {999999.0f, "999999"},
        {999999.5f, "1e+06"},
        {1000000.0f, "1e+06"},
        {1234567.0f, "1.23457e+06"},
        {-1234567.0f, "-1.23457e+06"},
        {0.0001f, "0.0001"},
        {0.00001f, "1e-05"},
        {0.00012345678f, "0.000123457"},
        {3.14159265f, "3.14159"},
        {16777216.0f, "1.67772e+07"},
        {1e10f, "1e+10"},
        {FLT_MAX, "3.40282e+38"},
        {-FLT_MAX, "-3.40282e+38"},
        {FLT_MIN, "1.17549e-38"},
        {-FLT_MIN, "-1.17549e-38"},
        {1e-45f, "1.4013e-45"},
        {INFINITY, "inf"},
        {-INFINITY, "-inf"},
        {NAN, "nan"},
        {-NAN, "nan"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(written(row.value), row.text);
}

TEST(RecordValue, IsWhatAStreamWritesByDefault)
{
    for (std::uint32_t exponent = 0; exponent < 256; ++exponent)
    {
        for (const std::uint32_t fraction : {0u, 1u, 0x400000u, 0x2AAAAAu, 0x7FFFFFu})
        {
            const float value = from_bits(exponent << 23 | fraction);
            if (std::isnan(value))
                continue;
            EXPECT_EQ(written(value), streamed(value));
            EXPECT_EQ(written(-value), streamed(-value));
        }
    }
    EXPECT_EQ(written(NAN), streamed(NAN));
}

TEST(RecordValue, IsWhatAStreamWritesForManyAFloat)
{
    std::mt19937 random(20240705);
    for (int i = 0; i < 20'000; ++i)
    {
        const float value = from_bits(static_cast<std::uint32_t>(random()));
        if (!std::isnan(value))
        {
            ASSERT_EQ(written(value), streamed(value));
        }
        const float around_a_million = static_cast<float>(random() % 2'000'001) / 2;
        ASSERT_EQ(written(around_a_million), streamed(around_a_million));
    }
}

// Records ---------------------------------------------------------------------------------------------
TEST(RecordText, IsALineOfSixFields)
{
    RecordText records;
    EXPECT_TRUE(records.append({4711, "scan", "load", 0.5f, "album 12", "image 3"}));
    EXPECT_EQ(text_of(records), "4711,scan,load,0.5,album 12,image 3\n");
}

TEST(RecordText, KeepsTheOrderOfItsRecords)
{
    RecordText records;
    records.append({2, "b", "", 1, "", ""});
    records.append({1, "a", "", 2, "", ""});
    EXPECT_EQ(text_of(records), "2,b,,1,,\n1,a,,2,,\n");
}

TEST(RecordText, TakesTextsAsTheyAre)
{
    RecordText records;
    records.append({0, "a,b", "\"q\"", 0, "two\nlines", "\xC3\xA4%s\xFF"});
    EXPECT_EQ(text_of(records), "0,a,b,\"q\",0,two\nlines,\xC3\xA4%s\xFF\n");
}

TEST(RecordText, NamesTextsThatAreMissing)
{
    RecordText records;
    records.append({0, nullptr, nullptr, 0, nullptr, nullptr});
    EXPECT_EQ(text_of(records), "0,(null),(null),0,(null),(null)\n");
}

TEST(RecordText, HasRoomForTheLongestNumbers)
{
    RecordText records;
    records.append({std::numeric_limits<std::int64_t>::min(), "", "", -FLT_MIN, "", ""});
    records.append({LARGEST, "", "", -FLT_MAX, "", ""});
    EXPECT_EQ(text_of(records), "-9223372036854775808,,,-1.17549e-38,,\n9223372036854775807,,,-3.40282e+38,,\n");
}

TEST(RecordText, WithoutARecordHasNoPiece)
{
    const RecordText records;
    EXPECT_EQ(pieces_of(records), 0);
}

TEST(RecordText, TakesRecordsOfAnyLength)
{
    RecordText records;
    std::string expected;
    for (const std::size_t length : {1u, 4000u, 4096u, 5000u, 262'144u, 1'000'000u, 3u})
    {
        const std::string text(length, 'x');
        EXPECT_TRUE(records.append({1, text.c_str(), "", 0, "", text.c_str()}));
        expected += "1," + text + ",,0,," + text + '\n';
    }
    EXPECT_TRUE(text_of(records) == expected);
}

TEST(RecordText, LosesNothingAtTheEndsOfItsPieces)
{
    // Lengths of all remainders meet the end of a piece.
    RecordText records;
    std::string expected;
    for (int i = 0; i < 5000; ++i)
    {
        const std::string text(static_cast<std::size_t>(i % 97), static_cast<char>('a' + i % 26));
        records.append({i, text.c_str(), "b", 1, "c", "d"});
        expected += std::to_string(i) + ',' + text + ",b,1,c,d\n";
    }
    EXPECT_TRUE(text_of(records) == expected);
    EXPECT_GT(pieces_of(records), 3);
}

TEST(RecordText, EndsEachOfItsPiecesWithAWholeLine)
{
    RecordText records;
    for (int i = 0; i < 5000; ++i)
        records.append({i, "first", "second", 1, "third", "fourth"});
    records.for_each_piece([](const char* piece) { EXPECT_EQ(piece[std::strlen(piece) - 1], '\n'); });
}

TEST(RecordText, GrowsInEverLargerPiecesUpToAQuarterOfAMegabyte)
{
    RecordText records;
    for (int i = 0; i < 100'000; ++i)
        records.append({1'000'000, "first", "second", 1, "third", "fourth"}); // 37 characters
    EXPECT_LE(pieces_of(records), 6 + 100'000 * 37 / 262'000 + 1);
}

TEST(RecordText, TakesOverWhatAnotherOneHas)
{
    RecordText from;
    for (int i = 0; i < 1000; ++i)
        from.append({i, "first", "second", 1, "third", "fourth"});
    RecordText to;
    to.append({7, "a", "b", 0, "c", "d"});
    EXPECT_TRUE(to.append(from));
    EXPECT_EQ(text_of(to), "7,a,b,0,c,d\n" + text_of(from));
    to.append({8, "a", "b", 0, "c", "d"});
    EXPECT_EQ(text_of(to), "7,a,b,0,c,d\n" + text_of(from) + "8,a,b,0,c,d\n");
}

TEST(RecordText, TakesOverTextsThatFillAPieceToItsEnd)
{
    // A text's one piece of memory is 4096 bytes, or as large as a longer line makes it.
    for (const std::size_t length : {3980u, 3986u, 3987u, 3988u, 3989u, 3990u, 4000u, 300'000u})
    {
        const auto line = [](std::size_t size) { return "0," + std::string(size - 8, 'x') + ",,0,,\n"; };
        const std::string texts[] = {std::string(100, 'x'), std::string(length, 'x')};
        RecordText to;
        std::string expected;
        for (const std::string& text : texts)
        {
            RecordText from;
            from.append({0, text.c_str(), "", 0, "", ""});
            EXPECT_TRUE(to.append(from));
            expected += line(text.size() + 8);
        }
        EXPECT_TRUE(text_of(to) == expected) << length;
    }
}

// Streams ---------------------------------------------------------------------------------------------
TEST(RecordStreams, GiveEachThreadATextOfItsOwn)
{
    RecordStreams streams;
    RecordText* const first = streams.find_or_make(4);
    RecordText* const second = streams.find_or_make(8);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(streams.find_or_make(4), first);
    EXPECT_EQ(streams.find_or_make(8), second);
}

TEST(RecordStreams, AreOrderedByTheRemainderOfTheIdAndThenByTheFirstRecord)
{
    RecordStreams streams;
    for (const std::uint32_t id : {2056u, 1023u, 8u, 4294967295u, 1028u, 1032u, 4u, 0u})
        add(streams, id, id);
    add(streams, 2056, 1);
    const auto line = [](const char* id) { return id + std::string(",a,b,0,c,d\n"); };
    EXPECT_THAT(
        texts_of(streams), ElementsAre(
                               line("0"), line("1028"), line("4"), line("2056") + line("1"), line("8"), line("1032"),
                               line("1023"), line("4294967295")));
}

TEST(RecordStreams, AreEmptyOnceCleared)
{
    RecordStreams streams;
    add(streams, 4, 1);
    add(streams, 1028, 1);
    streams.clear();
    EXPECT_TRUE(texts_of(streams).empty());
    add(streams, 4, 2);
    EXPECT_THAT(texts_of(streams), ElementsAre("2,a,b,0,c,d\n"));
}

TEST(RecordStreams, TakeOverWhatOthersHave)
{
    RecordStreams from;
    add(from, 4, 1);
    add(from, 1028, 2);
    RecordStreams to;
    add(to, 1028, 3);
    to.append(from);
    EXPECT_THAT(texts_of(to), ElementsAre("3,a,b,0,c,d\n2,a,b,0,c,d\n", "1,a,b,0,c,d\n"));
    EXPECT_EQ(texts_of(from).size(), 2u);
}

TEST(RecordStreams, OfThreadsThatComeAtTheSameTimeAreAllKept)
{
    constexpr auto BUCKETS = static_cast<std::uint32_t>(RecordStreams::BUCKETS);
    constexpr std::uint32_t THREADS = 8;
    constexpr std::uint32_t STREAMS = 200; // of each, all in the same three buckets
    RecordStreams streams;
    std::vector<std::thread> threads;
    for (std::uint32_t number = 0; number < THREADS; ++number)
    {
        threads.emplace_back(
            [&streams, number]
            {
                for (std::uint32_t i = 0; i < STREAMS; ++i)
                {
                    const std::uint32_t id = (i * THREADS + number) * BUCKETS + i % 3;
                    add(streams, id, id);
                    add(streams, id, id);
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    const std::vector<std::string> texts = texts_of(streams);
    EXPECT_EQ(texts.size(), THREADS * STREAMS);
    for (const std::string& text : texts)
    {
        const std::string line = text.substr(0, text.find('\n') + 1);
        EXPECT_EQ(text, line + line);
    }
}
