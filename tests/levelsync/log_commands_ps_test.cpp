// log_commands_ps_test.cpp - LevelSync ps: the processes that have the library loaded.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "level_sync.h"
#include "log_commands.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace
{
/// The row of a process; null where there is none.
nlohmann::json row_of(const nlohmann::json& report, unsigned long pid)
{
    for (const auto& row : report["processes"])
        if (row["pid"] == pid)
            return row;
    return nullptr;
}

/// The row of the table, without the blanks between its columns; empty where there is none.
std::string table_row(const std::string& table, unsigned long pid)
{
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(std::to_string(pid) + ' ', 0) == 0)
        {
            line.erase(
                std::unique(line.begin(), line.end(), [](char a, char b) { return a == ' ' && b == ' '; }), line.end());
            return line;
        }
    return {};
}

TEST(LevelSyncPs, TellsProgramClientSessionAndLogOfEachProcess)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const auto archive = site.host("archive");
    viewer->serve("192.0.2.7", 3);
    ASSERT_TRUE(viewer->write(320, 4, "working"));
    const Ran table = site.run("ps");
    EXPECT_EQ(table.exit_code, 0) << table;
    EXPECT_THAT(table.out, HasSubstr("PID"));
    const std::string row = table_row(table.out, viewer->pid());
    EXPECT_THAT(row, HasSubstr(" levelsync_tests viewer 192.0.2.7 3 ")) << table;
    EXPECT_THAT(row, HasSubstr(" viewer.log")) << table;
    EXPECT_THAT(table_row(table.out, archive->pid()), HasSubstr(" levelsync_tests archive - - ")) << table;

    const nlohmann::json report = report_of(site, "ps");
    const nlohmann::json told = row_of(report, viewer->pid());
    EXPECT_EQ(told["application"], "viewer") << report.dump(2);
    EXPECT_EQ(told["client"], "192.0.2.7");
    EXPECT_EQ(told["session"], 3);
    EXPECT_EQ(told["log"], site.path("viewer.log"));
    EXPECT_EQ(told["folder"], site.path());
    EXPECT_EQ(told["variables"]["PRISMATE_LOG_DIR"], site.path());
    EXPECT_THAT(told["program"].get<std::string>(), HasSubstr("\\levelsync_tests.exe"));
    EXPECT_THAT(told["library"].get<std::string>(), HasSubstr("\\LUMlog.dll"));
    EXPECT_FALSE(told["version"].get<std::string>().empty());
    EXPECT_TRUE(told["looked_into"].get<bool>());
}

TEST(LevelSyncPs, TellsTheFolderOfAProcessThatLogsElsewhere)
{
    const Site site;
    const Site other;
    const auto viewer = other.host("viewer");
    ASSERT_TRUE(viewer->write(320, 4, "working"));
    const Ran table = site.run("ps");
    EXPECT_THAT(table_row(table.out, viewer->pid()), HasSubstr(other.path("viewer.log"))) << table;
}

TEST(LevelSyncPs, ForgetsWhoHasEnded)
{
    const Site site;
    const auto viewer = site.host("viewer");
    viewer->stop();
    EXPECT_EQ(table_row(site.run("ps").out, viewer->pid()), "");
}

TEST(LevelSyncPs, NeedsNoFolderAndLeavesNothingBehind)
{
    const Site site;
    const auto files = site.files();
    const Ran missing = site.run({"ps", "--dir", site.path("nowhere")});
    EXPECT_EQ(missing.exit_code, 0) << missing;
    EXPECT_FALSE(file_exists(site.path("nowhere")));
    const Ran here = site.run("ps");
    EXPECT_EQ(here.exit_code, 0);
    EXPECT_EQ(site.files(), files);
    // A block that ps had made would be that of a process which nobody sees.
    EXPECT_THAT(site.run("").out, HasSubstr("by nobody: no process uses the library now"));
}

TEST(LevelSyncPs, HasHelpWithAnExampleAndKnowsAWrongCall)
{
    const Site site;
    EXPECT_THAT(site.run("ps --help").out, HasSubstr("Example:\n  LevelSync ps"));
    EXPECT_EQ(site.run("ps --nothing").exit_code, 2);
}
} // namespace
