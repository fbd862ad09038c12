// calls_test.cpp - what holds for every command: help with an example, exit codes, errors that say what to do next,
// output for programs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "level_sync.h"

using ::testing::HasSubstr;
using ::testing::StartsWith;

namespace
{
constexpr const char* COMMANDS[] = {"status", "publish", "list",    "explain", "set",  "clear", "output",
                                    "limit",  "undo",    "history", "check",   "diff", "watch"};

TEST(LevelSyncCalls, HelpOfEachCommandHasAnExample)
{
    const Site site;
    for (const char* const command : COMMANDS)
    {
        const Ran ran = site.run(std::string(command) + " --help");
        EXPECT_EQ(ran.exit_code, 0) << ran;
        EXPECT_THAT(ran.out, HasSubstr("Example:\n  LevelSync")) << command;
        EXPECT_THAT(ran.out, HasSubstr("--json")) << command;
    }
}

TEST(LevelSyncCalls, HelpListsTheCommandsAndNotWhatNobodyTypes)
{
    const Site site;
    const Ran ran = site.run("--help");
    EXPECT_EQ(ran.exit_code, 0);
    for (const char* const command : COMMANDS)
        EXPECT_THAT(ran.out, HasSubstr(std::string("\n  ") + command + ' '));
    EXPECT_THAT(ran.out, HasSubstr("Exit codes: 0 done, 1 not done, 2 wrong call."));
    EXPECT_FALSE(ran.says("  keep ")) << ran;
    EXPECT_THAT(site.run("--version").out, StartsWith("LevelSync "));
}

TEST(LevelSyncCalls, HelpComesForWhateverPeopleTypeForIt)
{
    const Site site;
    const std::string all = site.run("--help").out;
    for (const char* const call : {"help", "/?", "-?", "-h"})
        EXPECT_EQ(site.run(call).out, all) << call;
    const std::string of_set = site.run("set --help").out;
    for (const char* const call : {"help set", "set /?"})
        EXPECT_EQ(site.run(call).out, of_set) << call;
}

TEST(LevelSyncCalls, WhatIsAlmostRightGetsAHint)
{
    const Site site;
    EXPECT_THAT(
        site.run("set replay 7 -client 192.0.2.7").err,
        HasSubstr("Names of more than a letter have two dashes: --client?"));
    EXPECT_THAT(site.run("set 192.0.2.7 7").err, HasSubstr("A client is named with --client 192.0.2.7."));
}

TEST(LevelSyncCalls, AWrongCallEndsWithTwoAndSaysWhereHelpIs)
{
    const Site site;
    for (const char* const call :
         {"nonsense",
          "set",
          "set replay",
          "set replay 7 --nonsense",
          "limit much",
          "limit -1",
          "output",
          "history -n x",
          "set replay 7 --pid x",
          "explain",
          "undo x",
          "set replay 8",
          "set replay loud",
          "output nowhere",
          "set replay 7 --for 10",
          "set replay 7 --for 31d",
          "set replay 7 --detach",
          "set replay 0 --client 192.0.2.7",
          "set 750 7",
          "set replay 7 --client no.such.host.invalid",
          "set replay 7 --client 192.0.2",
          "set replay 7 --client 192.0.2.0/28",
          "set replay 7 --app a_name_longer_than_19_chars",
          "explain replay --client 192.0.2.0/24"})
    {
        const Ran ran = site.run(call);
        EXPECT_EQ(ran.exit_code, 2) << call << '\n' << ran;
        EXPECT_EQ(ran.out, "") << call;
        EXPECT_GE(std::count(ran.err.begin(), ran.err.end(), '\n'), 2) << call << '\n' << ran;
    }
    EXPECT_THAT(site.run("set replay").err, HasSubstr("LevelSync set --help shows how it is called, with an example."));
    EXPECT_EQ(site.logger(), Site::LOGGER);
    EXPECT_THAT(site.files(), ::testing::IsSubsetOf({"logger", "logger.lock"}));
}

TEST(LevelSyncCalls, WhatCannotBeDoneEndsWithOneAndChangesNothing)
{
    const Site site;
    for (const char* const call :
         {"set nothing 7", "clear replay --client 192.0.2.7", "undo", "undo 9", "list nothing", "check nothing.txt",
          "publish nothing.txt", "explain nothing", "explain replay --pid 4000000000"})
    {
        const Ran ran = site.run(call);
        EXPECT_EQ(ran.exit_code, 1) << call << '\n' << ran;
    }
    EXPECT_THAT(site.run("set repla 7").err, HasSubstr("Did you mean Replay (320)? LevelSync list shows the packages"));
    EXPECT_EQ(site.logger(), Site::LOGGER);
    EXPECT_EQ(site.file("logger.history"), "");
}

TEST(LevelSyncCalls, ErrorsAreForProgramsToo)
{
    const Site site;
    const Ran ran = site.run("set nothing 7 --json");
    EXPECT_EQ(ran.exit_code, 1);
    EXPECT_EQ(ran.at("/error"), "\"No package is called \\\"nothing\\\".\"");
    EXPECT_EQ(
        ran.at("/next"),
        "\"LevelSync list shows the packages, with their numbers. A number works for one without a name too: 330 for "
        "lines with WARNING (330).\"");
    EXPECT_EQ(site.run("set replay loud --json").at("/error"), "\"\\\"loud\\\" is no level.\"");
}

TEST(LevelSyncCalls, AFolderWithoutAFileIsNotTakenForOne)
{
    const Site site;
    ::DeleteFileA(site.path("logger").c_str());
    const Ran ran = site.run("set replay 7");
    EXPECT_EQ(ran.exit_code, 1);
    EXPECT_THAT(ran.err, HasSubstr("There is no level file"));
    EXPECT_THAT(ran.err, HasSubstr("Look whether --dir or PRISMATE_LOG_DIR names the folder that the servers have."));
    EXPECT_EQ(site.run("").exit_code, 1);
    EXPECT_EQ(site.run("list").exit_code, 1);
    EXPECT_EQ(site.run("check").exit_code, 1);
    EXPECT_EQ(site.run("diff").exit_code, 1);
    EXPECT_FALSE(file_exists(site.path("logger")));
}

TEST(LevelSyncCalls, TheFolderOfTheOptionCountsAndAFileInItMeansIt)
{
    const Site other;
    const Site site("2\nfile_size_limit_in_mb=7\n");
    EXPECT_THAT(other.run("--dir " + site.path()).out, HasSubstr("Size limit  7 MB"));
    EXPECT_THAT(other.run("status --dir " + site.path("logger")).out, HasSubstr("Size limit  7 MB"));
    const Ran missing = other.run("set 3 7 --dir " + site.path("nowhere"));
    EXPECT_EQ(missing.exit_code, 1);
    EXPECT_THAT(missing.err, HasSubstr("There is no folder "));
    EXPECT_THAT(missing.err, HasSubstr("Name the folder of the level file with --dir FOLDER"));
}

TEST(LevelSyncCalls, WithoutAFolderItSaysSo)
{
    const Site site;
    ChildOptions options = site.options({"list"});
    options.environment.back() = {"PRISMATE_LOG_DIR", ""};
    options.directory = site.path();
    const Child child("LevelSync", options);
    const Ran without = ran(child, 30000);
    EXPECT_EQ(without.exit_code, 1);
    EXPECT_THAT(
        without.err,
        HasSubstr("PRISMATE_LOG_DIR is not set here. Name the folder of the servers' level file with --dir"));
}
} // namespace
