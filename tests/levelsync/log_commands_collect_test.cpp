// log_commands_collect_test.cpp - LevelSync collect: logs and what belongs to them in one archive. What is in it is read
// by collect_test.py, which shares no code with LevelSync.

#include <zip.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "core/log_mask.h"
#include "level_sync.h"
#include "log_commands.h"
#include "masking.h"
#include "spool.h"

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace
{
/// A file of an archive; empty where there is none.
std::string file_of(const std::string& archive, const char* name)
{
    zip_t* const zip = ::zip_open(archive.c_str(), ZIP_RDONLY, nullptr);
    zip_file_t* const file = zip == nullptr ? nullptr : ::zip_fopen(zip, name, 0);
    std::string bytes;
    char piece[4096];
    for (zip_int64_t count = 0; file != nullptr && (count = ::zip_fread(file, piece, sizeof piece)) > 0;)
        bytes.append(piece, static_cast<std::size_t>(count));
    if (file != nullptr)
        ::zip_fclose(file);
    if (zip != nullptr)
        ::zip_discard(zip);
    return bytes;
}

std::set<std::string> names_of(const nlohmann::json& list)
{
    std::set<std::string> names;
    for (const auto& each : list)
        names.insert(each["name"].get<std::string>());
    return names;
}

std::string why_left_out(const nlohmann::json& report, const std::string& name)
{
    for (const auto& each : report["left_out"])
        if (each["name"] == name)
            return each["why"];
    return {};
}

TEST(LevelSyncCollect, TellsWhatRunsAndInWhichVersions)
{
    const Site site;
    const Site desk;
    const auto viewer = site.host("viewer");
    viewer->serve("192.0.2.7", 3);
    ASSERT_TRUE(viewer->write(320, 5, "a line"));
    EXPECT_EQ(site.run("set replay 7 --no-publish").exit_code, 0);
    const std::string archive = desk.path("case.zip");
    const Ran ran = site.run({"collect", archive});
    EXPECT_EQ(ran.exit_code, 0) << ran;
    EXPECT_THAT(ran.out, HasSubstr("  logs/viewer.log "));
    const auto about = nlohmann::json::parse(file_of(archive, "about.json"), nullptr, false);
    ASSERT_FALSE(about.is_discarded()) << ran;
    EXPECT_THAT(about["levelsync"].get<std::string>(), HasSubstr("."));
    EXPECT_EQ(about["library"]["version"], about["levelsync"]);
    EXPECT_FALSE(about["windows"].get<std::string>().empty());
    EXPECT_EQ(about["folder"], site.path());
    EXPECT_EQ(about["running"]["output"], 2);
    EXPECT_EQ(about["running"]["differs_from_file"][0], "Replay 7 to 6 for everybody");
    bool is_there = false;
    for (const auto& process : about["processes"])
        if (process["pid"] == viewer->pid())
        {
            is_there = true;
            EXPECT_EQ(process["client"], "192.0.2.7");
            EXPECT_EQ(process["version"], about["levelsync"]);
        }
    EXPECT_TRUE(is_there) << about.dump(2);
    EXPECT_EQ(file_of(archive, "logger"), site.logger());
    EXPECT_EQ(file_of(archive, "logger.history"), site.file("logger.history"));
}

TEST(LevelSyncCollect, ReportsWhatIsInItAndWhatIsNotAndWhy)
{
    const Site site;
    const Site desk;
    write_file(site.path("viewer.log"), line({ago(60), "one", "INFO    ", 320, "viewer", 32, "ClientIP(192.0.2.7)"}));
    write_file(site.path("archive.log"), line({ago(60), "two", "INFO    ", 320, "archive", 36}));
    write_file(site.path("crash-viewer-1.xml"), "<a/>");
    write_file(site.path("session-old-1.xml"), "<a/>");
    ASSERT_TRUE(set_written(site.path("session-old-1.xml"), 2020, 1, 1, 0));
    write_file(site.path("minidump-viewer-1.dmp"), "MDMP");
    write_file(site.path("CLGState.mp"), "<a/>");
    write_file(site.path("notes.txt"), "nothing of that");
    const Ran ran = site.run({"collect", desk.path("case.zip"), "--json", "--client", "192.0.2.7", "--since", "1h"});
    EXPECT_EQ(ran.exit_code, 0);
    const nlohmann::json report = json_of(ran);
    EXPECT_EQ(
        names_of(report["contents"]), (std::set<std::string>{
                                          "about.json", "logs/viewer.log", "logger", "reports/crash-viewer-1.xml",
                                          "reports/CLGState.mp", "dumps/minidump-viewer-1.dmp"}))
        << ran;
    EXPECT_EQ(why_left_out(report, "archive.log"), "no line of it fits");
    EXPECT_EQ(why_left_out(report, "session-old-1.xml"), "older than --since");
    EXPECT_EQ(why_left_out(report, "notes.txt"), "no log, report or dump");
    EXPECT_GT(report["bytes"].get<int>(), 100);
    EXPECT_EQ(report["file"], desk.path("case.zip"));
}

TEST(LevelSyncCollect, ADryRunWritesNothing)
{
    const Site site;
    const Site desk;
    write_file(site.path("viewer.log"), line({ago(60), "one"}));
    const auto files = site.files();
    const auto here = desk.files();
    const Ran ran = site.run({"collect", desk.path("case.zip"), "--dry-run"});
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_THAT(ran.out, StartsWith("Would write " + desk.path("case.zip") + ":\n")) << ran;
    EXPECT_THAT(ran.out, HasSubstr("  logs/viewer.log "));
    EXPECT_EQ(site.files(), files);
    EXPECT_EQ(desk.files(), here);
}

TEST(LevelSyncCollect, WritesOverNothingUnlessItIsTold)
{
    const Site site;
    const Site desk;
    write_file(desk.path("case.zip"), "precious");
    const Ran refused = site.run({"collect", desk.path("case.zip")});
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_THAT(refused.err, HasSubstr("There is a file " + desk.path("case.zip") + " already."));
    EXPECT_THAT(refused.err, HasSubstr("--force"));
    EXPECT_EQ(desk.file("case.zip"), "precious");
    const Ran forced = site.run({"collect", desk.path("case.zip"), "--force"});
    EXPECT_EQ(forced.exit_code, 0) << forced;
    EXPECT_EQ(file_of(desk.path("case.zip"), "logger"), site.logger());
}

TEST(LevelSyncCollect, TheArchiveIsNotInItself)
{
    const Site site;
    EXPECT_EQ(site.run({"collect", site.path("case.zip")}).exit_code, 0);
    const nlohmann::json report = json_of(site.run({"collect", site.path("case.zip"), "--force", "--json"}));
    EXPECT_EQ(names_of(report["contents"]), (std::set<std::string>{"about.json", "logger"})) << report.dump(2);
    EXPECT_EQ(why_left_out(report, "case.zip"), "");
}

TEST(LevelSyncCollect, SaysWhereTheLogsOfOthersAre)
{
    const Site site;
    const Site other;
    const auto viewer = other.host("viewer");
    const Ran ran = site.run({"collect", site.path("case.zip")});
    EXPECT_THAT(ran.err, HasSubstr("levelsync_tests (" + std::to_string(viewer->pid()) + ") logs to " + other.path()))
        << ran;
    EXPECT_THAT(ran.err, HasSubstr("--dir \"" + other.path() + '"'));
}

TEST(LevelSyncCollect, WhatCannotBeWrittenSaysWhy)
{
    const Site site;
    const Ran missing = site.run({"collect", site.path("nowhere\\case.zip")});
    EXPECT_EQ(missing.exit_code, 1) << missing;
    EXPECT_THAT(missing.err, HasSubstr("cannot be written: "));
    EXPECT_THAT(missing.err, HasSubstr("Nothing was written."));
    const Ran folder = site.run({"collect", site.path()});
    EXPECT_EQ(folder.exit_code, 2);
    EXPECT_THAT(folder.err, HasSubstr(" is a folder."));
    const Ran no_logs = site.run({"collect", site.path("case.zip"), "--dir", site.path("nowhere")});
    EXPECT_EQ(no_logs.exit_code, 1);
    EXPECT_THAT(no_logs.err, HasSubstr("There is no folder "));
    EXPECT_FALSE(file_exists(site.path("case.zip")));
    EXPECT_EQ(site.run("collect").exit_code, 2);
    EXPECT_EQ(site.run("collect case.zip --since never").exit_code, 2);
    EXPECT_THAT(
        site.run("collect --help").out, HasSubstr("LevelSync collect case.zip --client 192.0.2.7 --since 1h --mask"));
}

TEST(LevelSyncMaskedParts, ANameOrAddressThatLiesInTwoPartsIsReplaced)
{
    kor::core::LogMask mask;
    mask.add_user("Anna Smith");
    levelsync::MaskedParts parts(mask);
    std::string text = parts.add("by An", false);
    text += parts.add("na Smith\nof 192.0.", false);
    text += parts.add("2.7", true);
    EXPECT_EQ(text, "by user-1\nof ip-1-1-1-1");
    // A line without end is not kept for ever; it is cut at a blank.
    const std::string many(70'000, 'x');
    text = parts.add(many + " 192.0.", false);
    EXPECT_EQ(text, many + ' ');
    EXPECT_EQ(parts.add("2.7", true), "ip-1-1-1-1");
}

TEST(LevelSyncSpool, GivesBackWhatItGotWhereverItLies)
{
    levelsync::Spool spool;
    std::string all;
    for (int i = 0; i < 30'000; ++i)
    {
        const std::string piece = std::to_string(i) + ' ';
        spool.append(piece);
        all += piece;
    }
    ASSERT_EQ(spool.size(), all.size());
    std::string read;
    char piece[7'000];
    for (std::size_t count = 0; (count = spool.read(read.size(), piece, sizeof piece)) > 0;)
        read.append(piece, count);
    EXPECT_EQ(read == all, true);
    EXPECT_EQ(spool.read(all.size() + 5, piece, sizeof piece), 0u);
}
} // namespace
