// The ways to die that example_crashing_host knows and that no handler sees, or hardly: what is left with a watcher.

#include "watched_hosts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using ::testing::HasSubstr;

/// The example, ended in a way that it knows, with a watcher.
class WatchedExample : public Leavings
{
public:
    explicit WatchedExample(const char* way)
    {
        ChildOptions options = directory().for_child();
        options.program = folder_of_programs() + "example_crashing_host.exe";
        options.arguments = {way, "watched"};
        Child host("", options);
        const ChildResult result = host.wait(2 * PATIENCE_MS);
        EXPECT_TRUE(result.finished) << way;
        exit_code = result.exit_code;
        EXPECT_TRUE(nobody_is_watched()) << way;
    }

    unsigned long exit_code = 0;
};

void expect_line_report_and_last_lines(const WatchedExample& left)
{
    EXPECT_EQ(left.crashes(), 1u) << left.crash_lines();
    EXPECT_EQ(left.reports(), 1u);
    EXPECT_THAT(left.report(), HasSubstr("<info>cannot read front.png</info>"));
    const auto lines = left.files("lastlines-", ".log");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(left.directory().text(lines.front()), HasSubstr("and now: "));
}

TEST(WaysToDie, ByAFastFailLeaveLineReportAndLastLines)
{
    expect_line_report_and_last_lines(WatchedExample("fast-fail"));
}

TEST(WaysToDie, ByInterrupt29hLeaveLineReportAndLastLines)
{
    expect_line_report_and_last_lines(WatchedExample("int-29h"));
}

TEST(WaysToDie, ByAKillFromOutsideLeaveLineReportAndLastLines)
{
    expect_line_report_and_last_lines(WatchedExample("killed"));
}

TEST(WaysToDie, ByLargeFramesOnAThreadLeaveAllAndAMinidump)
{
    const WatchedExample left("large-frames");
    expect_line_report_and_last_lines(left);
    EXPECT_EQ(left.exit_code, 0xC00000FD);
    EXPECT_EQ(left.dumps(), 1u);
}

TEST(WaysToDie, WithTheLoaderLockTakenLeaveAllAndAMinidump)
{
    const WatchedExample left("loader-lock");
    EXPECT_EQ(
        left.exit_code, static_cast<unsigned long>(ERROR_TIMEOUT)); // of the report that the process writes itself
    expect_line_report_and_last_lines(left);
    EXPECT_EQ(left.dumps(), 1u);
}

TEST(WaysToDie, WithAHeapThatWasOverrunLeaveAllAndAMinidump)
{
    const WatchedExample left("heap-overrun");
    expect_line_report_and_last_lines(left);
    EXPECT_EQ(left.dumps(), 1u);
}

TEST(WaysToDie, WithABlockThatIsGivenBackTwiceLeaveAllAndAMinidump)
{
    const WatchedExample left("double-free");
    expect_line_report_and_last_lines(left);
    EXPECT_EQ(left.dumps(), 1u);
}

TEST(WaysToDie, AHangIsToldAndNoCrash)
{
    const WatchedExample left("hang");
    EXPECT_EQ(left.exit_code, 0u);
    EXPECT_EQ(left.crashes(), 0u);
    EXPECT_EQ(left.files("hang-", ".xml").size(), 1u);
    EXPECT_EQ(left.dumps(), 1u);
    EXPECT_EQ(lines_of(left.directory().text("hangs.log")).size(), 2u);
}
} // namespace
