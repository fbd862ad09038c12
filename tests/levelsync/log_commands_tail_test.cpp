// log_commands_tail_test.cpp - LevelSync tail: a package raised, its lines as they come, and all as it was afterwards.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "level_sync.h"
#include "log_commands.h"
#include "times.h"

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace
{
constexpr int REPLAY = 320;
constexpr unsigned CALL_LIMIT_MS = 60000;

/// True once it is raised in that host.
bool is_raised(Host& host)
{
    return comes_true([&host] { return host.level(REPLAY) == 7; });
}

/// Ends a tail as its user does; what it came to.
Ran stopped(const Child& tail)
{
    EXPECT_TRUE(press_ctrl_c(tail));
    return ran(tail, CALL_LIMIT_MS);
}

bool has_line(const Ran& ran, const std::string& text) { return ran.says("-> " + text + '\n'); }

TEST(LevelSyncTail, ShowsTheLinesOfOneClientAndTakesTheLevelBackAtItsEnd)
{
    const Site site;
    const std::string before = site.logger();
    const auto viewer = site.host("viewer");
    const auto archive = site.host("archive");
    viewer->serve("192.0.2.7", 3);
    archive->serve("198.51.100.9", 4);
    const auto tail = site.start("tail replay --client 192.0.2.7 --for 6s");
    ASSERT_TRUE(is_raised(*viewer));
    EXPECT_EQ(archive->level(REPLAY), 6);
    EXPECT_TRUE(viewer->write(REPLAY, 7, "wanted"));
    EXPECT_TRUE(viewer->write(340, 4, "another package"));
    EXPECT_TRUE(archive->write(REPLAY, 6, "another client"));
    const Ran ran = ::ran(*tail, CALL_LIMIT_MS);
    EXPECT_EQ(ran.exit_code, 0) << ran;
    EXPECT_TRUE(has_line(ran, "wanted")) << ran;
    EXPECT_EQ(std::count(ran.out.begin(), ran.out.end(), '\n'), 1) << ran;
    EXPECT_THAT(ran.err, StartsWith("Replay 6 to 7 for client 192.0.2.7 until ")) << ran;
    EXPECT_THAT(ran.err, HasSubstr("Ctrl-C takes it back now."));
    EXPECT_THAT(ran.err, HasSubstr("is taken back, as its time is over. Changed: Replay 7 to 6 for client 192.0.2.7."));
    EXPECT_THAT(ran.err, HasSubstr("\n1 line, the first "));
    EXPECT_THAT(ran.err, HasSubstr("ms after the change.\n"));
    EXPECT_EQ(site.logger(), before);
    EXPECT_EQ(viewer->level(REPLAY), 6);
}

TEST(LevelSyncTail, SaysInWordsHowLongTheFirstLineTook)
{
    // A line of the same millisecond, or of one before, as the level counts a moment before the change is over.
    EXPECT_EQ(levelsync::wait_text(-1), "less than 1 ms");
    EXPECT_EQ(levelsync::wait_text(0), "less than 1 ms");
    EXPECT_EQ(levelsync::wait_text(1), "1 ms");
    EXPECT_EQ(levelsync::wait_text(999), "999 ms");
    EXPECT_EQ(levelsync::wait_text(1'000), "1 s");
    EXPECT_EQ(levelsync::wait_text(61'000), "1 min 1 s");
}

TEST(LevelSyncTail, TakesTheLevelBackOnCtrlC)
{
    const Site site;
    const std::string before = site.logger();
    const auto viewer = site.host("viewer");
    const auto tail = site.start("tail replay");
    ASSERT_TRUE(is_raised(*viewer));
    const Ran ran = stopped(*tail);
    ASSERT_TRUE(ran.finished);
    EXPECT_EQ(ran.exit_code, 0) << ran;
    EXPECT_THAT(ran.err, HasSubstr("is taken back, as LevelSync was told to stop.")) << ran;
    EXPECT_EQ(site.logger(), before);
    EXPECT_EQ(viewer->level(REPLAY), 6);
}

TEST(LevelSyncTail, AfterAKillTheNextLevelSyncTakesTheLevelBack)
{
    const Site site;
    const std::string before = site.logger();
    const auto viewer = site.host("viewer");
    const auto tail = site.start("tail replay --client 192.0.2.7");
    ASSERT_TRUE(comes_true([&] { return ran(*tail, 0).warns("Ctrl-C takes it back now."); }));
    viewer->serve("192.0.2.7");
    ASSERT_TRUE(is_raised(*viewer));
    tail->kill();
    ASSERT_TRUE(tail->wait(CALL_LIMIT_MS).finished);
    EXPECT_NE(site.logger(), before);
    const Ran next = site.run("ps");
    EXPECT_EQ(next.exit_code, 0);
    EXPECT_THAT(next.err, HasSubstr("is taken back, as whoever looked after it has ended.")) << next;
    EXPECT_EQ(site.logger(), before);
    EXPECT_EQ(viewer->level(REPLAY), 6);
}

TEST(LevelSyncTail, EndsWhenSomebodyElseTakesTheLevelBack)
{
    const Site site;
    const std::string before = site.logger();
    const auto viewer = site.host("viewer");
    const auto tail = site.start("tail replay");
    ASSERT_TRUE(is_raised(*viewer));
    EXPECT_EQ(site.run("undo").exit_code, 0);
    const Ran ran = ::ran(*tail, CALL_LIMIT_MS);
    ASSERT_TRUE(ran.finished);
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_THAT(ran.err, HasSubstr("Somebody else has taken it back.")) << ran;
    EXPECT_EQ(site.logger(), before);
}

TEST(LevelSyncTail, ShowsMessagesOfSeveralLinesWholeAndNothingOfBefore)
{
    const Site site;
    const auto viewer = site.host("viewer");
    ASSERT_TRUE(append_to(site.path("viewer.log"), line({ago(60), "old"})));
    const auto tail = site.start("tail replay");
    ASSERT_TRUE(is_raised(*viewer));
    ASSERT_TRUE(append_to(site.path("viewer.log"), line({ago(0), "cannot read\n  front.png"}) + "  at load(al"));
    ASSERT_TRUE(append_to(site.path("viewer.log"), "bum.cpp:17)\r\n" + line({ago(0), "other", "INFO    ", 340})));
    ASSERT_TRUE(viewer->write(REPLAY, 7, "last"));
    EXPECT_TRUE(comes_true([&] { return has_line(::ran(*tail, 0), "last"); }));
    const Ran ran = stopped(*tail);
    EXPECT_THAT(ran.out, HasSubstr("-> cannot read\n  front.png\n  at load(album.cpp:17)\n")) << ran;
    EXPECT_THAT(ran.out, Not(HasSubstr("old")));
    EXPECT_THAT(ran.out, Not(HasSubstr("other")));
}

TEST(LevelSyncTail, FollowsFilesThatAreRenamedClearedNewAndIdle)
{
    const Site site;
    const auto viewer = site.host("viewer");
    ASSERT_TRUE(write_file(site.path("idle.log"), line({"2020-01-01 08:00:00.000", "years ago"})));
    ASSERT_TRUE(set_written(site.path("idle.log"), 2020, 1, 1, 8));
    const auto tail = site.start("tail replay");
    const auto comes = [&tail](const std::string& text)
    { return comes_true([&] { return has_line(ran(*tail, 0), text); }); };
    ASSERT_TRUE(is_raised(*viewer));
    ASSERT_TRUE(viewer->write(REPLAY, 7, "in the file"));
    EXPECT_TRUE(comes("in the file"));
    std::filesystem::rename(site.path("viewer.log"), site.path("viewer.log.1"));
    ASSERT_TRUE(viewer->write(REPLAY, 7, "renamed"));
    EXPECT_TRUE(comes("renamed"));
    std::filesystem::resize_file(site.path("viewer.log.1"), 0);
    ASSERT_TRUE(viewer->write(REPLAY, 7, "cleared"));
    EXPECT_TRUE(comes("cleared"));
    const auto archive = site.host("archive");
    ASSERT_TRUE(archive->write(REPLAY, 7, "new"));
    EXPECT_TRUE(comes("new"));
    ASSERT_TRUE(append_to(site.path("idle.log"), line({ago(0), "idle no more"})));
    EXPECT_TRUE(comes("idle no more"));
    std::filesystem::copy_file(site.path("archive.log"), site.path("copy.log"));
    ASSERT_TRUE(write_file(site.path("older.log"), line({ago(60), "of before"})));
    ASSERT_TRUE(append_to(site.path("older.log"), line({ago(0), "of now"})));
    EXPECT_TRUE(comes("of now"));
    const Ran ran = stopped(*tail);
    EXPECT_FALSE(has_line(ran, "of before")) << ran;
    EXPECT_FALSE(has_line(ran, "years ago"));
}

TEST(LevelSyncTail, FollowsAFileThatItsProcessRenames)
{
    const Site site("2\nfile_size_limit_in_mb=1\nReplay 320 6\n");
    const auto viewer = site.host("viewer", {{"PRISMATE_LOG_FILES", "5"}});
    const auto tail = site.start("tail replay");
    ASSERT_TRUE(is_raised(*viewer));
    for (int i = 0; i < 2500; ++i)
        ASSERT_TRUE(viewer->write(REPLAY, 7, "line " + std::to_string(i) + ' ' + std::string(900, 'x')));
    ASSERT_NE(site.file("viewer.2.log"), "");
    ASSERT_TRUE(viewer->write(REPLAY, 7, "the last of all"));
    EXPECT_TRUE(comes_true([&] { return has_line(ran(*tail, 0), "the last of all"); }));
    const Ran whole = stopped(*tail);
    for (int i = 0; i < 2500; ++i)
        EXPECT_TRUE(whole.says("line " + std::to_string(i) + " xxx")) << i;
}

TEST(LevelSyncTail, FollowsAHostThatLogsToAnotherFolder)
{
    const Site site;
    const Site other;
    const auto viewer = site.host("viewer");
    const auto archive = other.host("archive");
    const auto tail = site.start("tail replay");
    ASSERT_TRUE(is_raised(*archive));
    ASSERT_TRUE(archive->write(REPLAY, 7, "elsewhere"));
    EXPECT_TRUE(comes_true([&] { return has_line(ran(*tail, 0), "elsewhere"); }));
    stopped(*tail);
}

TEST(LevelSyncTail, LowersNothing)
{
    const Site site;
    const std::string before = site.logger();
    const auto viewer = site.host("viewer");
    viewer->serve("192.0.2.7");
    for (const char* const words :
         {"tail replay --level 5 --for 1s", "tail replay --level 5 --client 192.0.2.7 --for 1s"})
    {
        const Ran ran = site.run(words);
        EXPECT_EQ(ran.exit_code, 0) << ran;
        EXPECT_THAT(ran.err, HasSubstr("It is at that level already; nothing was changed.")) << ran;
        EXPECT_EQ(site.logger(), before);
    }
    EXPECT_EQ(viewer->level(REPLAY), 6);
}

TEST(LevelSyncTail, InJsonIsAnObjectALine)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const auto tail = site.start("tail replay --json");
    ASSERT_TRUE(is_raised(*viewer));
    ASSERT_TRUE(viewer->write(REPLAY, 7, "wanted"));
    EXPECT_TRUE(comes_true([&] { return ran(*tail, 0).says("wanted"); }));
    const nlohmann::json report = json_of(stopped(*tail));
    EXPECT_EQ(report["text"], "wanted");
    EXPECT_EQ(report["package"], REPLAY);
    EXPECT_EQ(report["process"], viewer->pid());
}

TEST(LevelSyncTail, ADryRunChangesNothing)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const std::string before = site.logger();
    const auto files = site.files();
    const Ran ran = site.run("tail replay --client 192.0.2.7 --dry-run");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_THAT(ran.out, StartsWith("Would change: Replay 6 to 7 for client 192.0.2.7\n")) << ran;
    EXPECT_EQ(site.logger(), before);
    EXPECT_EQ(site.files(), files);
    const nlohmann::json report = report_of(site, "tail replay --dry-run");
    EXPECT_TRUE(report["dry_run"].get<bool>());
    EXPECT_EQ(report["effects"][0], "Replay 6 to 7 for everybody");
}

TEST(LevelSyncTail, SaysAfterAWhileWhyNothingMayCome)
{
    const Site site;
    const auto viewer = site.host("viewer");
    viewer->serve("198.51.100.9", 4);
    ASSERT_TRUE(viewer->write(REPLAY, 6, "of another client"));
    const auto tail = site.start("tail replay --client 192.0.2.7");
    EXPECT_TRUE(comes_true([&] { return ran(*tail, 0).warns("No line has come yet."); }, 40000));
    EXPECT_TRUE(comes_true([&] { return ran(*tail, 0).warns("LevelSync doctor tells more."); }));
    EXPECT_THAT(
        stopped(*tail).err,
        HasSubstr(
            "levelsync_tests (" + std::to_string(viewer->pid()) + "), last for client 198.51.100.9 in session 4"));
}

TEST(LevelSyncTail, WrongCallsSayWhatWouldBeRight)
{
    const Site site;
    const std::string before = site.logger();
    const auto expect_wrong = [&site](const std::string& words, int code, const std::string& next)
    {
        const Ran ran = site.run(words);
        EXPECT_EQ(ran.exit_code, code) << ran;
        EXPECT_THAT(ran.err, HasSubstr(next)) << ran;
    };
    expect_wrong("tail", 2, "LevelSync tail --help");
    expect_wrong("tail replay --for ever", 2, "Say it as in --for 15m, 90s or 2h.");
    expect_wrong("tail replay --level loud", 2, "debug");
    expect_wrong("tail replay --client 192.0.2.0/28", 2, "192.0.2");
    expect_wrong("tail nothing", 1, "LevelSync list");
    EXPECT_THAT(site.run("tail --help").out, HasSubstr("LevelSync tail Replay --client 192.0.2.7 --for 10m"));
    EXPECT_EQ(site.logger(), before);
}
} // namespace
