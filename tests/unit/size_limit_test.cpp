// size_limit_test.cpp - what a measured file size means, and how long until the next measurement.

#include "core/size_limit.h"

#include <gtest/gtest.h>

#include <cstdint>

TEST(SizeLimit, IsExceededByWholeMegabytesAboveIt)
{
    constexpr std::int64_t megabyte = 1048576;
    struct Row
    {
        std::int64_t bytes;
        std::uint32_t limit;
        std::int64_t megabytes;
        bool exceeded;
    };
    const Row rows[] = {
        {0, 1, 0, false},
        {1, 1, 0, false},
        {megabyte - 1, 1, 0, false},
        {megabyte, 1, 1, false},
        {2 * megabyte - 1, 1, 1, false},
        {2 * megabyte, 1, 2, true},
        {2 * megabyte + 1, 1, 2, true},
        {15 * megabyte, 15, 15, false},
        {16 * megabyte - 1, 15, 15, false},
        {16 * megabyte, 15, 16, true},
        {2048 * megabyte, 2047, 2048, true},
        {4096 * megabyte, 4096, 4096, false},
        {4097 * megabyte, 4096, 4097, true},
        {-1, 1, 0, false}, // a size that could not be measured
        {4294967295 * megabyte, 4294967295u, 4294967295, false},
        {4294967296 * megabyte, 4294967295u, 4294967296, true},
        {INT64_MAX, 4294967295u, 8796093022207, true},
        {INT64_MIN, 1, -8796093022208, false},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.bytes);
        const kor::core::SizeVerdict verdict = kor::core::judge_size(row.bytes, row.limit);
        EXPECT_EQ(verdict.megabytes, row.megabytes);
        EXPECT_EQ(verdict.exceeded, row.exceeded);
        EXPECT_EQ(verdict.countdown, row.exceeded ? 500 : 255);
    }
}

TEST(SizeLimit, IsFirstMeasuredOnTheSixteenthLine)
{
    // A line is let through while the countdown before it was positive.
    EXPECT_EQ(kor::core::FIRST_SIZE_COUNTDOWN, 15);
    EXPECT_EQ(kor::core::SIZE_COUNTDOWN_BELOW_LIMIT, 255);
    EXPECT_EQ(kor::core::SIZE_COUNTDOWN_ABOVE_LIMIT, 500);
}
