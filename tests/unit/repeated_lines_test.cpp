// repeated_lines_test.cpp - lines of a log that stand among the last lines of the process too.

#include "core/repeated_lines.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using kor::core::LogRecord;
using kor::core::RepeatedLines;

namespace
{
constexpr std::size_t LOG = 0;
constexpr std::size_t LAST_LINES = 1;
constexpr std::size_t OTHER_LOG = 2;

class LinesOfACrash : public ::testing::Test
{
protected:
    /// Whether the line is shown.
    bool is_shown(std::size_t source, std::int64_t time, std::string_view text, bool begins = true, bool ends = true)
    {
        LogRecord record;
        record.source = source;
        record.time = time;
        record.begins = begins;
        record.ends = ends;
        record.append(text);
        return !m_lines.has_been(record);
    }

    RepeatedLines m_lines{{false, true, false}};
};

TEST_F(LinesOfACrash, AreShownOnceWhicheverPlaceComesFirst)
{
    EXPECT_TRUE(is_shown(LOG, 1, "opened\n"));
    EXPECT_FALSE(is_shown(LAST_LINES, 1, "opened\n"));
    EXPECT_TRUE(is_shown(LAST_LINES, 2, "closed\n"));
    EXPECT_FALSE(is_shown(LOG, 2, "closed\n"));
}

TEST_F(LinesOfACrash, ThatStandInOnePlaceAloneAreShown)
{
    EXPECT_TRUE(is_shown(LOG, 1, "opened\n"));
    EXPECT_TRUE(is_shown(LAST_LINES, 1, "read\n"));
    EXPECT_TRUE(is_shown(LOG, 1, "closed\n"));
}

TEST_F(LinesOfACrash, ThatWereWrittenTwiceAreShownTwice)
{
    EXPECT_TRUE(is_shown(LOG, 1, "opened\n"));
    EXPECT_TRUE(is_shown(LOG, 1, "opened\n"));
    EXPECT_FALSE(is_shown(LAST_LINES, 1, "opened\n"));
    EXPECT_FALSE(is_shown(LAST_LINES, 1, "opened\n"));
    EXPECT_TRUE(is_shown(LAST_LINES, 1, "opened\n")) << "one more than the log has";
}

TEST_F(LinesOfACrash, OfTwoLogsAreBothShown)
{
    EXPECT_TRUE(is_shown(LOG, 1, "opened\n"));
    EXPECT_TRUE(is_shown(OTHER_LOG, 1, "opened\n"));
}

TEST_F(LinesOfACrash, OfAnotherTimeAreOthers)
{
    EXPECT_TRUE(is_shown(LOG, 1, "opened\n"));
    EXPECT_TRUE(is_shown(LAST_LINES, 2, "opened\n"));
}

TEST_F(LinesOfACrash, PartsOfALongOneAreAllShown)
{
    EXPECT_TRUE(is_shown(LOG, 1, "long", true, false));
    EXPECT_TRUE(is_shown(LAST_LINES, 1, "long", true, false));
    EXPECT_TRUE(is_shown(LAST_LINES, 1, "long", false, true));
}
} // namespace
