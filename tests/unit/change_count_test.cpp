// change_count_test.cpp - stamps of changes differ from one to the next, whatever the clock does.

#include "core/change_count.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using kor::core::next_change_count;
using kor::core::stamp_above;

namespace
{
constexpr std::uint64_t NOW = 1'709'647'629'042; // a day in March 2024
constexpr std::uint64_t LARGEST = std::numeric_limits<std::uint64_t>::max();
} // namespace

TEST(ChangeCount, IsTheTimeOfTheChange)
{
    EXPECT_EQ(next_change_count(NOW, 0), NOW);
    EXPECT_EQ(next_change_count(NOW, NOW - 1), NOW);
    EXPECT_EQ(next_change_count(NOW, NOW - 86'400'000), NOW);
}

TEST(ChangeCount, OfTwoChangesInOneMillisecondDiffers)
{
    EXPECT_EQ(next_change_count(NOW, NOW), NOW + 1);
    EXPECT_EQ(next_change_count(NOW, NOW + 1), NOW + 2);
}

TEST(ChangeCount, OfABurstCountsUpUntilTheClockCatchesUp)
{
    std::uint64_t stamp = next_change_count(NOW, 0);
    for (int change = 1; change < 1000; ++change)
    {
        const std::uint64_t next = next_change_count(NOW, stamp);
        ASSERT_EQ(next, stamp + 1);
        stamp = next;
    }
    EXPECT_EQ(stamp, NOW + 999);
    EXPECT_EQ(next_change_count(NOW + 998, stamp), NOW + 1000);
    EXPECT_EQ(next_change_count(NOW + 999, stamp), NOW + 1000);
    EXPECT_EQ(next_change_count(NOW + 1000, stamp), NOW + 1000);
    EXPECT_EQ(next_change_count(NOW + 1001, stamp), NOW + 1001);
}

TEST(ChangeCount, FollowsAClockThatWasSetBack)
{
    EXPECT_EQ(next_change_count(NOW - 59'999, NOW), NOW + 1); // a minute ahead may still be a burst
    EXPECT_EQ(next_change_count(NOW - 60'000, NOW), NOW - 60'000);
    EXPECT_EQ(next_change_count(NOW - 3'600'000, NOW), NOW - 3'600'000);
}

TEST(ChangeCount, AfterTheLargestStampIsTheTimeAgain)
{
    EXPECT_EQ(next_change_count(NOW, LARGEST), NOW);
    EXPECT_EQ(next_change_count(NOW, LARGEST - 1), NOW);
}

TEST(ChangeCount, IsNeverThatOfTheChangeBefore)
{
    for (const std::uint64_t now : {std::uint64_t{0}, std::uint64_t{1}, NOW, LARGEST - 1, LARGEST})
    {
        for (const std::uint64_t previous :
             {std::uint64_t{0}, std::uint64_t{1}, now - 1, now, now + 1, now + 59'999, now + 60'000, LARGEST})
            EXPECT_NE(next_change_count(now, previous), previous) << now << ' ' << previous;
    }
}

TEST(StampAbove, IsTheTimeOfAChangeToSomethingOlder)
{
    EXPECT_EQ(stamp_above(NOW, 0), NOW);
    EXPECT_EQ(stamp_above(NOW, NOW - 1), NOW);
}

TEST(StampAbove, IsTheNextNumberForAnythingThatIsNotOlder)
{
    EXPECT_EQ(stamp_above(NOW, NOW), NOW + 1);
    EXPECT_EQ(stamp_above(NOW, NOW + 86'400'000), NOW + 86'400'001);
    EXPECT_EQ(stamp_above(NOW, LARGEST - 1), LARGEST);
}

TEST(StampAbove, OfTheLargestIsTheTimeAndNeverThatOfABlockThatNobodyHasFilled)
{
    EXPECT_EQ(stamp_above(NOW, LARGEST), NOW);
    EXPECT_EQ(stamp_above(0, 0), 1u);
}
