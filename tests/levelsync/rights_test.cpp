// rights_test.cpp - without a right, a disk or a folder LevelSync says what is missing, and changes nothing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "level_sync.h"

using ::testing::HasSubstr;

namespace
{
std::string account()
{
    char name[257] = {};
    DWORD size = sizeof name;
    ::GetUserNameA(name, &size);
    return name;
}

struct Row
{
    const char* fault;
    std::string says;
    std::string next;
};

TEST(LevelSyncRights, AreSaidToBeMissingAndNothingIsChanged)
{
    const std::string no_right = account() + " has no right to ";
    for (const Row& row :
         {Row{"write logger.lock", no_right + "write in ", "Run LevelSync as an administrator, or ask for the right"},
          Row{"write logger.new", no_right + "write ", "Run LevelSync as an administrator, or ask for the right"},
          Row{"write logger.history", no_right + "write ", "nothing is changed that is not noted there"},
          Row{"read logger", "cannot be read: ", account() + " needs the right to read it."},
          Row{"read logger.history", "cannot be read: ", account() + " needs the right to read it."},
          Row{"full logger.new", "cannot be written: ", "Nothing was changed."},
          Row{"move logger", "cannot be written: ", "Close the program that has it open, and try again."},
          Row{"block", no_right + "the configuration that the processes share.", "Run LevelSync as an administrator"},
          Row{"write-block", no_right + "change the configuration that the processes share.",
              "Run LevelSync as an administrator"}})
    {
        SCOPED_TRACE(row.fault);
        const Site site;
        const auto viewer = site.host("viewer");
        const auto levels = viewer->levels();
        for (const char* const call : {"set replay 7", "set replay 7 --for 10m"})
        {
            const Ran ran = site.run_with(row.fault, call);
            EXPECT_EQ(ran.exit_code, 1) << ran;
            EXPECT_THAT(ran.err, HasSubstr(row.says));
            EXPECT_THAT(ran.err, HasSubstr(row.next));
            EXPECT_FALSE(ran.says("Changed")) << ran;
        }
        EXPECT_EQ(site.logger(), Site::LOGGER);
        EXPECT_EQ(viewer->levels(), levels);
        EXPECT_FALSE(file_exists(site.path("logger.new")));
        EXPECT_EQ(site.run("list").err, "") << "nothing is left to be taken back";
        EXPECT_EQ(site.run("set replay 7").exit_code, 0) << "with the right it works";
        EXPECT_EQ(viewer->level(320), 7);
    }
}

TEST(LevelSyncRights, ToTheBlockAreNeededToPublishAFile)
{
    const Site site;
    const auto viewer = site.host("viewer");
    site.configure("2\nfile_size_limit_in_mb=0\nReplay 320 7\n");
    const Ran ran = site.run_with("write-block", "-u");
    EXPECT_EQ(ran.exit_code, 1);
    EXPECT_THAT(ran.err, HasSubstr(account() + " has no right to change the configuration that the processes share."));
    EXPECT_EQ(viewer->level(320), 6);
    EXPECT_THAT(site.run("history").out, HasSubstr("not done: " + account() + " has no right to change"));
    EXPECT_EQ(site.run_with("block", "-u --dry-run").exit_code, 1) << "what would change cannot be told";
}

TEST(LevelSyncRights, AreNotNeededToLook)
{
    const Site site;
    const auto viewer = site.host("viewer");
    for (const char* const call : {"", "list", "explain replay", "check", "diff", "history"})
        EXPECT_EQ(site.run_with("write-block", call).exit_code, 0) << call;
    const Ran status = site.run_with("block", "");
    EXPECT_THAT(status.out, HasSubstr("Shared      cannot be read: "));
    EXPECT_THAT(status.out, HasSubstr("320  Replay  6 info")) << "as the file has it";
}

TEST(LevelSyncRights, AFileThatIsMarkedReadOnlyStaysAsItIs)
{
    const Site site;
    ::SetFileAttributesA(site.path("logger").c_str(), FILE_ATTRIBUTE_READONLY);
    const Ran ran = site.run("set replay 7");
    EXPECT_EQ(ran.exit_code, 1);
    EXPECT_THAT(ran.err, HasSubstr("logger is marked read-only.\nNothing was changed. Somebody did that on purpose;"));
    EXPECT_EQ(site.logger(), Site::LOGGER);
    ::SetFileAttributesA(site.path("logger").c_str(), FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(site.run("set replay 7").exit_code, 0);
    EXPECT_NE(::GetFileAttributesA(site.path("logger").c_str()) & FILE_ATTRIBUTE_HIDDEN, 0u) << "a mark that stays";
}
} // namespace
