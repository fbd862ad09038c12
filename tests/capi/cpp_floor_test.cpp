// lumlog.hpp with a floor, without a formatter.

#define LUM_LOG_FLOOR LUM_NOTICE
#define LUM_NO_FORMAT
#include "lumlog.hpp"

#include <gtest/gtest.h>

#include <vector>

#include "log_directory.h"

#if defined(LUM_LOG_FORMAT)
#error "there should be no formatter"
#endif

namespace
{
int evaluated = 0;
int evaluate() { return ++evaluated; }
} // namespace

TEST(CppFloor, MessagesAboveTheFloorAreLeftOut)
{
    const LogDirectory directory(TO_FILE + "Tool 310 7\n");
    lum_open_with("test.log", "tool", LUM_NO_BANNERS);
    for (const int level : {LUM_NOTICE, LUM_INFO})
    {
        LUM_LOG(level, 310, "%d", evaluate());
        LUM_LOG_ONCE(level, 310, "%d", evaluate());
        LUM_LOG_TEXT(level, 310, std::to_string(evaluate()));
    }
    LUM_LOG(LUM_DEBUG, 310, "not in this program: %d", evaluate());
    EXPECT_EQ(evaluated, 3);
    EXPECT_EQ(directory.lines().size(), 3u);
}
