// status_test.cpp - LevelSync without a command, list, diff and watch: what is in force, and what would be.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "child.h"
#include "level_sync.h"

using ::testing::HasSubstr;

namespace
{
TEST(LevelSyncStatus, ShowsWhatTheProcessesShare)
{
    const Site site;
    const auto archive = site.host("archive");
    const Ran ran = site.run("");
    EXPECT_EQ(ran.exit_code, 0) << ran;
    EXPECT_EQ(ran.err, "");
    EXPECT_EQ(
        ran.out, "File        " + site.path("logger") +
                     "\n"
                     "Shared      by all processes of the machine\n"
                     "Output      the processes' own files\n"
                     "Size limit  10 MB\n"
                     "Agreement   the file and what runs agree\n"
                     "\n"
                     "Packages that differ from the default, 4 warning:\n"
                     "  310  Reader  5 notice\n"
                     "  320  Replay  6 info\n"
                     "  330  Client  5 notice   6 for application archive\n");
    EXPECT_EQ(archive->level(330), 6);
}

TEST(LevelSyncStatus, TellsProgramsTheSame)
{
    const Site site;
    const auto archive = site.host("archive");
    const Ran ran = site.run("status --json");
    EXPECT_EQ(ran.at("/running"), "true");
    EXPECT_EQ(ran.at("/agrees"), "true");
    EXPECT_EQ(ran.at("/output"), "2");
    EXPECT_EQ(ran.at("/size_limit_in_mb"), "10");
    EXPECT_EQ(ran.at("/overrides"), "[]");
    EXPECT_EQ(
        ran.at("/packages/2"), "{\"level\":5,\"name\":\"Client\",\"package\":330,\"rules\":[{\"for\":\"application "
                               "archive\",\"level\":6}]}");
    EXPECT_EQ(ran.size("/packages"), 3);
    EXPECT_EQ(site.run("--json").out, ran.out) << "with and without the word";
}

TEST(LevelSyncStatus, ShowsTheFileWhereNobodyRuns)
{
    const Site site;
    const Ran ran = site.run("");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_THAT(ran.out, HasSubstr("Shared      by nobody: no process uses the library now"));
    EXPECT_THAT(ran.out, HasSubstr("  320  Replay  6 info"));
    EXPECT_FALSE(ran.says("Agreement"));
    EXPECT_EQ(site.run("--json").at("/agrees"), "null");
}

TEST(LevelSyncStatus, SaysWhereFileAndProcessesDiffer)
{
    const Site site;
    const auto host = site.host("viewer");
    site.configure("1\nfile_size_limit_in_mb=20\nReader 310 7\nReplay 320 6 [(7;192.0.2.7)]\nClient 330 5\n");
    EXPECT_THAT(
        site.run("").out,
        HasSubstr("Agreement   the file and what runs differ in 5 points; LevelSync diff shows them\n"));
    const Ran ran = site.run("diff");
    EXPECT_EQ(ran.exit_code, 1) << "they differ";
    EXPECT_EQ(
        ran.out, "If the file were published:\n"
                 "  output from the processes' own files to the event log\n"
                 "  size limit from 10 MB to 20 MB\n"
                 "  Reader 5 to 7 for everybody\n"
                 "  Replay 6 to 7 for client 192.0.2.7\n"
                 "  Client 6 to 5 for application archive\n"
                 "LevelSync -u publishes it.\n");
    const Ran json = site.run("diff --json");
    EXPECT_EQ(json.exit_code, 1);
    EXPECT_EQ(json.at("/agrees"), "false");
    EXPECT_EQ(json.at("/differences/2"), "\"Reader 5 to 7 for everybody\"");
}

TEST(LevelSyncStatus, DiffEndsWithZeroWhereBothAgree)
{
    const Site site;
    EXPECT_EQ(site.run("diff").exit_code, 0) << "nobody runs";
    const auto host = site.host("viewer");
    const Ran ran = site.run("diff");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_EQ(ran.out, "The file and what runs agree.\n");
    EXPECT_EQ(site.run("diff --json").at("/agrees"), "true");
}

TEST(LevelSyncStatus, ListsPackagesByNumberNameAndComment)
{
    const Site site;
    const Ran all = site.run("list");
    EXPECT_EQ(all.exit_code, 0);
    EXPECT_EQ(
        all.out, "310  Reader   5 notice   // reads the text\n"
                 "320  Replay   6 info     // replays its lines\n"
                 "330  Client   5 notice   // serves the client\n"
                 "              6 for application archive\n"
                 "340  Control  4 warning  // is told what to do\n");
    EXPECT_EQ(site.run("list 320").out, "320  Replay  6 info     // replays its lines\n");
    EXPECT_EQ(site.run("list REPL*").out, "320  Replay  6 info     // replays its lines\n");
    EXPECT_EQ(site.run("list text").out, "310  Reader  5 notice   // reads the text\n");
    EXPECT_EQ(site.run("list --all --json").size("/packages"), 750);
    EXPECT_EQ(site.run("list 17").out, "17     4 warning\n") << "one without a name";
    const Ran none = site.run("list nothing");
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_THAT(none.out, HasSubstr("LevelSync list shows all that have a name."));
}

TEST(LevelSyncStatus, PackagesThatOnlyProgramsNameAreListedAndCanBeSetByThatName)
{
    const Site site;
    write_file(
        site.path("logger.packages"), "310 Pages viewer.exe\n350 Printer archive.exe\n350 Printer viewer.exe\n"
                                      "351 Scanner viewer.exe\n351 Camera zoom.exe\nno line\n");
    EXPECT_EQ(
        site.run("list 310 350 351").out, "310  Reader   5 notice   // reads the text\n"
                                          "350  Printer  4 warning  so called by archive.exe and viewer.exe\n"
                                          "351  Scanner  4 warning  so called by viewer.exe\n");
    EXPECT_THAT(site.run("list").out, HasSubstr("350  Printer"));
    const Ran set = site.run("set printer debug");
    EXPECT_EQ(set.exit_code, 0) << set;
    EXPECT_THAT(site.logger(), HasSubstr("Printer"));
    EXPECT_THAT(site.run("list printer").out, HasSubstr("350  Printer  7 debug"));
    EXPECT_EQ(site.run("list camera").exit_code, 1);
}

TEST(LevelSyncStatus, NamesThatCannotBeReadAreInNobodysWay)
{
    const Site site;
    const std::string without = site.run("list").out;
    ASSERT_NE(::CreateDirectoryA(site.path("logger.packages").c_str(), nullptr), FALSE); // which no file can be read of
    const Ran list = site.run("list");
    EXPECT_EQ(list.exit_code, 0) << list;
    EXPECT_EQ(list.out, without);
    EXPECT_EQ(site.run("set replay 7").exit_code, 0);
}

TEST(LevelSyncStatus, WatchTellsEachChangeAsItComes)
{
    const Site site;
    const auto host = site.host("viewer");
    const auto watch = site.start("watch --for 60s");
    ASSERT_TRUE(comes_true([&] { return ran(*watch, 0).says("Watching"); }));
    ASSERT_EQ(site.run("set replay 7 --client 192.0.2.7").exit_code, 0);
    EXPECT_TRUE(comes_true([&] { return ran(*watch, 0).says("Replay 6 to 7 for client 192.0.2.7\n"); }));
    ASSERT_EQ(site.run("limit 11").exit_code, 0);
    EXPECT_TRUE(comes_true([&] { return ran(*watch, 0).says("size limit from 10 MB to 11 MB\n"); })) << ran(*watch, 0);
    host->stop();
    EXPECT_TRUE(comes_true([&] { return ran(*watch, 0).says("ended: the last process that shared it has gone\n"); }))
        << ran(*watch, 0);
    const auto next = site.host("viewer");
    EXPECT_TRUE(comes_true([&] { return ran(*watch, 0).says("began: a process shares its configuration\n"); }));
}

TEST(LevelSyncStatus, WatchEndsInTimeAndTellsProgramsAnObjectALine)
{
    const Site site;
    const auto host = site.host("viewer");
    const auto watch = site.start("watch --for 2s --json");
    // Changes until it has told of one, for it does not say when it begins.
    for (int limit = 20; ran(*watch, 0).out.empty() && limit < 60; ++limit)
        ASSERT_EQ(site.run("limit " + std::to_string(limit)).exit_code, 0);
    const Ran ended = ran(*watch, 30000);
    ASSERT_TRUE(ended.finished);
    EXPECT_EQ(ended.exit_code, 0);
    EXPECT_THAT(ended.out, HasSubstr("\"what\":\"changed\",\"effects\":[\"size limit from "));
}
} // namespace
