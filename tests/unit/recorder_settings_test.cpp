#include "core/recorder_settings.h"

#include <gtest/gtest.h>

#include <string>

using kor::core::read_recorder_settings;
using kor::core::RecorderSettings;

TEST(RecorderSettings, TheSizeAlone)
{
    RecorderSettings settings;
    ASSERT_TRUE(read_recorder_settings("65536", settings));
    EXPECT_EQ(settings.bytes, 65'536u);
    EXPECT_EQ(settings.level, 0);
    for (const int level : settings.levels)
        EXPECT_EQ(level, RecorderSettings::AS_ALL);
}

TEST(RecorderSettings, SizesInUnits)
{
    RecorderSettings settings;
    for (const auto& [text, bytes] :
         {std::pair<const char*, std::size_t>{"64K", 65'536},
          {"256k", 262'144},
          {"1M", 1'048'576},
          {"64m", 67'108'864},
          {"0", 0}})
    {
        ASSERT_TRUE(read_recorder_settings(text, settings)) << text;
        EXPECT_EQ(settings.bytes, bytes);
    }
}

TEST(RecorderSettings, ALevelForAllPackages)
{
    RecorderSettings settings;
    ASSERT_TRUE(read_recorder_settings("256K,7", settings));
    EXPECT_EQ(settings.bytes, 262'144u);
    EXPECT_EQ(settings.level, 7);
    ASSERT_TRUE(read_recorder_settings("256K,0", settings));
    EXPECT_EQ(settings.level, 0);
}

TEST(RecorderSettings, LevelsOfSinglePackages)
{
    RecorderSettings settings;
    ASSERT_TRUE(read_recorder_settings("1M,3,17=7,749=0,0=5", settings));
    EXPECT_EQ(settings.level, 3);
    EXPECT_EQ(settings.levels[17], 7);
    EXPECT_EQ(settings.levels[749], 0);
    EXPECT_EQ(settings.levels[0], 5);
    EXPECT_EQ(settings.levels[18], RecorderSettings::AS_ALL);
}

TEST(RecorderSettings, AnythingElseIsRefused)
{
    RecorderSettings settings;
    for (const char* const text :
         {"",
          "K",
          "-1",
          "64",
          "65535",
          "65M",
          "67108865",
          "99999999999999999999",
          "9999999999999M",
          "256K,",
          "256K,8",
          "256K,-1",
          "256K 7",
          "256K,7,",
          "256K,7,17",
          "256K,7,17=",
          "256K,7,17=8",
          "256K,7,750=1",
          "256K,7,-1=1",
          "256K,17=7",
          "256KB",
          "256K,7 ",
          " 256K",
          "256K,7,17=7x"})
        EXPECT_FALSE(read_recorder_settings(text, settings)) << text;
}
