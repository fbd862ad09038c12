// changes_test.cpp - what changes the level file: running hosts obey, the file keeps every other byte, and each change
// can be taken back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "level_sync.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace
{
/// The level file with one text in place of another.
std::string with(std::string logger, const std::string& text, const std::string& in_place)
{
    const std::size_t at = logger.find(text);
    return at == std::string::npos ? "no such text" : logger.replace(at, text.size(), in_place);
}

constexpr char REPLAY[] = "Replay       320       6                    //";
constexpr char REPLAY_WITH_RULE[] = "Replay       320       6  [(7;192.0.2.7)]   //";

TEST(LevelSyncSet, RaisesOnePackageForOneClientInTheHostThatServesIt)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const auto archive = site.host("archive");
    viewer->serve("192.0.2.7", 3);
    archive->serve("198.51.100.9", 8);
    const Ran ran = site.run("set replay debug --client 192.0.2.7");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_EQ(ran.err, "");
    EXPECT_EQ(
        ran.out, "Changed: Replay 6 to 7 for client 192.0.2.7\n"
                 "  - Replay       320       6                    // replays its lines\n"
                 "  + Replay       320       6  [(7;192.0.2.7)]   // replays its lines\n"
                 "LevelSync undo 1 takes it back.\n");
    EXPECT_EQ(site.logger(), with(Site::LOGGER, REPLAY, REPLAY_WITH_RULE));
    EXPECT_EQ(viewer->level(320), 7);
    EXPECT_EQ(archive->level(320), 6);
    EXPECT_EQ(viewer->level(310), 5);
    EXPECT_TRUE(viewer->write(320, 7, "seen"));
    EXPECT_FALSE(archive->write(320, 7, "not seen"));
    EXPECT_THAT(site.file("viewer.log"), HasSubstr("-> seen"));
}

TEST(LevelSyncSet, KnowsWhomByEachFilterAndByAllAtOnce)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const auto archive = site.host("archive");
    const auto levels = [&] { return std::to_string(viewer->level(340)) + std::to_string(archive->level(340)); };
    ASSERT_EQ(site.run("set 340 5 --app viewer").exit_code, 0);
    EXPECT_EQ(levels(), "54");
    ASSERT_EQ(site.run("set 340 6 --pid " + std::to_string(archive->pid())).exit_code, 0);
    EXPECT_EQ(levels(), "56");
    viewer->serve("", 12);
    ASSERT_EQ(site.run("set 340 7 --session 12").exit_code, 0);
    EXPECT_EQ(levels(), "76");
    ASSERT_EQ(site.run("set control 7 --app archive --app other --client 10.0.0.0/8 --session 8").exit_code, 0);
    EXPECT_EQ(levels(), "76") << "another client";
    archive->serve("10.1.2.3", 8);
    EXPECT_EQ(levels(), "77");
    archive->serve("10.1.2.3", 9);
    EXPECT_EQ(levels(), "76") << "another session";
    EXPECT_THAT(site.logger(), HasSubstr("(7;10.0.0.0;archive,other;;8)"));
}

TEST(LevelSyncSet, TakesLevelsByNumberOrNameForEverybody)
{
    const Site site;
    const auto viewer = site.host("viewer");
    for (const auto& [word, level] :
         {std::pair<const char*, int>{"severe", 1},
          {"critical", 2},
          {"ERROR", 3},
          {"warning", 4},
          {"notice", 5},
          {"info", 6},
          {"debug", 7},
          {"0", 0},
          {"3", 3}})
    {
        ASSERT_EQ(site.run(std::string("set replay ") + word).exit_code, 0) << word;
        EXPECT_EQ(viewer->level(320), level) << word;
    }
}

TEST(LevelSyncSet, TakesPackagesByPatternAndMakesALineForANewOne)
{
    const Site site;
    const auto viewer = site.host("viewer");
    EXPECT_THAT(site.run("set re* 7").out, HasSubstr("Changed: Reader 5 to 7 for everybody\nChanged: Replay 6 to 7"));
    EXPECT_EQ(viewer->level(310), 7);
    EXPECT_EQ(viewer->level(320), 7);
    EXPECT_EQ(viewer->level(330), 5);
    const std::string before = site.logger();
    ASSERT_EQ(site.run("set 17 6").exit_code, 0);
    EXPECT_EQ(viewer->level(17), 6);
    EXPECT_EQ(site.logger().substr(0, before.size()), before);
    EXPECT_THAT(site.logger().substr(before.size()), HasSubstr("Package17"));
    ASSERT_EQ(site.run("undo").exit_code, 0);
    EXPECT_EQ(site.logger(), before);
    ASSERT_EQ(site.run("undo").exit_code, 0);
    EXPECT_EQ(site.logger(), Site::LOGGER) << "both lines of one change";
    EXPECT_EQ(viewer->level(320), 6);
}

TEST(LevelSyncSet, SaysSoWhereNothingHadToBeChangedOrNothingChanges)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const Ran same = site.run("set replay 6");
    EXPECT_EQ(same.exit_code, 0);
    EXPECT_EQ(same.out, "That is so already; nothing had to be changed.\n");
    EXPECT_EQ(site.run("history").out, "Nobody has changed anything with LevelSync yet.\n");
    const Ran lower = site.run("set replay 5 --client 192.0.2.7");
    EXPECT_EQ(lower.exit_code, 0);
    EXPECT_THAT(
        lower.err, HasSubstr("Replay has level 6 info for everybody, and a rule never lowers it: this one changes "
                             "nothing."));
}

TEST(LevelSyncSet, PublishesWhatItIsAboutAndNothingElse)
{
    const Site site;
    const auto viewer = site.host("viewer");
    site.configure(with(Site::LOGGER, "Reader       310       5", "Reader       310       7"));
    const Ran ran = site.run("set replay 7");
    EXPECT_THAT(
        ran.out, HasSubstr("The file says other things too that were not published; LevelSync diff shows them."));
    EXPECT_EQ(viewer->level(320), 7);
    EXPECT_EQ(viewer->level(310), 5) << "somebody's own change, which nobody has published";
    EXPECT_EQ(
        site.run("diff").out, "If the file were published:\n  Reader 5 to 7 for everybody\nLevelSync -u publishes "
                              "it.\n");
}

TEST(LevelSyncSet, LeavesTheProcessesWhereItIsToldTo)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const Ran ran = site.run("set replay 7 --no-publish");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_THAT(ran.out, HasSubstr("Only the file: the processes go on as they are until LevelSync -u."));
    EXPECT_EQ(viewer->level(320), 6);
    ASSERT_EQ(site.run("-u").exit_code, 0);
    EXPECT_EQ(viewer->level(320), 7);
}

TEST(LevelSyncSet, WorksWhereNobodyRuns)
{
    const Site site;
    const Ran ran = site.run("set replay 7");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_THAT(ran.out, HasSubstr("Changed: Replay 6 to 7 for everybody\n"));
    EXPECT_THAT(ran.out, HasSubstr("No process shares a configuration now; those that start read the file.\n"));
    EXPECT_EQ(site.host("viewer")->level(320), 7);
}

TEST(LevelSyncSet, TellsProgramsWhatBecameOfIt)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const Ran ran = site.run("set replay 7 --client 192.0.2.7 --json");
    EXPECT_EQ(ran.at("/changed"), "true");
    EXPECT_EQ(ran.at("/dry_run"), "false");
    EXPECT_EQ(ran.at("/id"), "1");
    EXPECT_EQ(ran.at("/effects"), "[\"Replay 6 to 7 for client 192.0.2.7\"]");
    EXPECT_EQ(ran.at("/lines/0/package"), "320");
    EXPECT_EQ(ran.at("/lines/0/line"), "6");
    EXPECT_EQ(ran.at("/published"), "true");
    EXPECT_EQ(ran.at("/agrees"), "true");
    EXPECT_EQ(ran.at("/until"), "null");
    EXPECT_EQ(site.run("undo --json").at("/effects"), "[\"Replay 7 to 6 for client 192.0.2.7\"]");
}

TEST(LevelSyncSet, RefusesAnEleventhRuleAndALineThatIsTooLong)
{
    const Site site;
    for (int i = 1; i <= 10; ++i)
        ASSERT_EQ(site.run("set control 7 --no-publish --pid " + std::to_string(i)).exit_code, 0);
    const std::string full = site.logger();
    const Ran eleventh = site.run("set control 7 --pid 11");
    EXPECT_EQ(eleventh.exit_code, 1);
    EXPECT_THAT(
        eleventh.err, HasSubstr("Control has ten rules, and an 11th would be left out.\nNothing was changed. "));
    const Ran long_line = site.run("set control 7 --pid 1 --client 2001:db8:1111:2222:3333:4444:5555:6666 --client "
                                   "2001:db8:1111:2222:3333:4444:5555:7777");
    EXPECT_EQ(long_line.exit_code, 1);
    EXPECT_EQ(site.logger(), full);
    EXPECT_THAT(
        site.run("set reader 7 --client 2001:db8:1111:2222:3333:4444:5555:6666 --client "
                 "2001:db8:1111:2222:3333:4444:5555:7777 --client 2001:db8:1111:2222:3333:4444:5555:8888 --client "
                 "2001:db8:1111:2222:3333:4444:5555:9999")
            .err,
        HasSubstr("would have more than 199 characters, and the reading of the file would end there.\n"));
    EXPECT_EQ(site.logger(), full);
}

TEST(LevelSyncSet, DryRunsOfEverythingThatChangesLeaveNothingBehind)
{
    const Site site(with(Site::LOGGER, REPLAY, REPLAY_WITH_RULE));
    const auto viewer = site.host("viewer");
    const auto levels = viewer->levels();
    ASSERT_EQ(levels.size(), 750u);
    for (const auto& [call, effect] :
         {std::pair<const char*, const char*>{"set replay 7 --dry-run", "Replay 6 to 7 for everybody"},
          {"set replay 7 --for 15m --dry-run", "Replay 6 to 7 for everybody"},
          {"set 17 7 --dry-run", "Package17 4 to 7 for everybody"},
          {"clear replay --dry-run", "Replay 7 to 6 for client 192.0.2.7"},
          {"clear replay --client 192.0.2.7 --dry-run", "Replay 7 to 6 for client 192.0.2.7"},
          {"output eventlog --dry-run", "output from the processes' own files to the event log"},
          {"limit 11 --dry-run", "size limit from 10 MB to 11 MB"}})
    {
        const Ran ran = site.run(call);
        EXPECT_EQ(ran.exit_code, 0) << call << '\n' << ran;
        EXPECT_THAT(ran.out, HasSubstr(std::string("Would change: ") + effect)) << call;
        EXPECT_FALSE(ran.says("takes it back")) << call;
        EXPECT_EQ(site.run(call + std::string(" --json")).at("/dry_run"), "true") << call;
    }
    EXPECT_EQ(site.logger(), with(Site::LOGGER, REPLAY, REPLAY_WITH_RULE));
    EXPECT_THAT(site.files(), ElementsAre("logger", "viewer.log"));
    EXPECT_EQ(viewer->levels(), levels);
    ASSERT_EQ(site.run("limit 12").exit_code, 0);
    const std::string history = site.file("logger.history");
    EXPECT_THAT(site.run("undo --dry-run").out, HasSubstr("Would change: size limit from 12 MB to 10 MB"));
    EXPECT_EQ(site.file("logger.history"), history);
    EXPECT_EQ(viewer->size_limit(), 12);
}

TEST(LevelSyncClear, TakesAllRulesOrThoseForSome)
{
    const std::string logger =
        with(Site::LOGGER, REPLAY, "Replay 320 6 [(7;192.0.2.7,192.0.2.8)(7;;viewer)(7;;;5)] //");
    const Site site(logger);
    const auto viewer = site.host("viewer");
    ASSERT_EQ(site.run("clear replay --client 192.0.2.7").exit_code, 0);
    EXPECT_THAT(site.logger(), HasSubstr("\nReplay 320 6 [(7;192.0.2.8)(7;;viewer)(7;;;5)]  "));
    EXPECT_EQ(viewer->level(320), 7);
    ASSERT_EQ(site.run("clear replay --app viewer").exit_code, 0);
    EXPECT_EQ(viewer->level(320), 6);
    EXPECT_THAT(site.logger(), HasSubstr("\nReplay 320 6 [(7;192.0.2.8)(7;;;5)]  "));
    const Ran none = site.run("clear replay --session 4");
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_THAT(none.err, HasSubstr("Replay has no rule for exactly that.\nNothing was changed. LevelSync explain"));
    ASSERT_EQ(site.run("clear 320").exit_code, 0);
    EXPECT_FALSE(site.logger().find("Replay 320 6 [") != std::string::npos) << site.logger();
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(site.run("undo").exit_code, 0);
    EXPECT_EQ(site.logger(), logger);
    EXPECT_EQ(viewer->level(320), 7);
}

TEST(LevelSyncOutput, ChangesTheFirstLineForEverybody)
{
    const Site site;
    const auto viewer = site.host("viewer");
    for (const auto& [word, output] :
         {std::pair<const char*, int>{"eventlog", 1}, {"stderr", 0}, {"files", 2}, {"1", 1}, {"debugger", 2}})
    {
        ASSERT_EQ(site.run(std::string("output ") + word).exit_code, 0) << word;
        EXPECT_EQ(viewer->output(), output) << word;
    }
    EXPECT_EQ(site.logger(), with(Site::LOGGER, "\n2\n", "\n3\n"));
    EXPECT_THAT(site.run("output nowhere").err, HasSubstr("The outputs are: files (each process writes its own), "));
}

TEST(LevelSyncLimit, ChangesTheSecondLineForEverybody)
{
    const Site site;
    const auto viewer = site.host("viewer");
    const Ran ran = site.run("limit 50");
    EXPECT_EQ(
        ran.out, "Changed: size limit from 10 MB to 50 MB\n"
                 "  - file_size_limit_in_mb=10\n"
                 "  + file_size_limit_in_mb=50\n"
                 "LevelSync undo 1 takes it back.\n");
    EXPECT_EQ(viewer->size_limit(), 50);
    EXPECT_THAT(site.run("limit 0").out, HasSubstr("size limit from 50 MB to no limit"));
    EXPECT_EQ(site.run("limit 4294967296").exit_code, 2);
    EXPECT_EQ(site.logger(), with(Site::LOGGER, "=10", "=0"));
}

TEST(LevelSyncUndo, TakesAnEarlierChangeBackAndLeavesWhatOthersDid)
{
    const Site site;
    const auto viewer = site.host("viewer");
    ASSERT_EQ(site.run("set replay 7 --client 192.0.2.7").exit_code, 0);
    ASSERT_EQ(site.run("set reader 7").exit_code, 0);
    ASSERT_EQ(site.run("set replay 7 --app viewer").exit_code, 0);
    ASSERT_EQ(site.run("undo 1").exit_code, 0);
    EXPECT_EQ(
        without_columns(site.logger()), without_columns(with(
                                            with(Site::LOGGER, "Reader       310       5", "Reader       310       7"),
                                            REPLAY, "Replay       320       6  [(7;;viewer)]     //")));
    EXPECT_EQ(viewer->level(320), 7);
    const Ran again = site.run("undo 1");
    EXPECT_EQ(again.exit_code, 1);
    EXPECT_THAT(again.err, HasSubstr("Change 1 was taken back by change 4 already."));
    ASSERT_EQ(site.run("undo").exit_code, 0);
    ASSERT_EQ(site.run("undo").exit_code, 0);
    EXPECT_EQ(without_columns(site.logger()), without_columns(Site::LOGGER));
    EXPECT_EQ(viewer->levels()[310], 5);
    const Ran none = site.run("undo");
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_THAT(none.err, HasSubstr("There is no change to take back.\nLevelSync history shows the changes; "));
    ASSERT_EQ(site.run("undo 4").exit_code, 0) << "a taking back can be taken back";
    EXPECT_EQ(without_columns(site.logger()), without_columns(with(Site::LOGGER, REPLAY, REPLAY_WITH_RULE)));
}

TEST(LevelSyncUndo, SaysSoWhereSomebodyHasChangedTheSameSince)
{
    const Site site;
    ASSERT_EQ(site.run("set replay 7").exit_code, 0);
    site.configure(with(Site::LOGGER, "Replay       320       6", "Replay       320       3"));
    const Ran ran = site.run("undo");
    EXPECT_EQ(ran.exit_code, 1);
    EXPECT_THAT(
        ran.err, HasSubstr("Replay was changed again since then, so that change cannot be taken back by itself."));
    EXPECT_THAT(site.logger(), HasSubstr("Replay       320       3"));
}

TEST(LevelSyncHistory, TellsWhoChangedWhatAndLeavesALineInTheLog)
{
    const Site site;
    const auto viewer = site.host("viewer");
    ASSERT_EQ(site.run({"set", "replay", "7", "--client", "192.0.2.7"}).exit_code, 0);
    ASSERT_EQ(site.run("undo").exit_code, 0);
    ASSERT_EQ(site.run("limit 11").exit_code, 0);
    const Ran text = site.run("history");
    EXPECT_THAT(
        text.out, ::testing::MatchesRegex("1    ..:..:..  .* on .*: LevelSync set replay 7 --client 192.0.2.7\n"
                                          "     Replay 6 to 7 for client 192.0.2.7\n"
                                          "     taken back by 2\n"
                                          "2    ..:..:..  .* on .*: LevelSync undo\n"
                                          "     Replay 7 to 6 for client 192.0.2.7\n"
                                          "3    ..:..:..  .* on .*: LevelSync limit 11\n"
                                          "     size limit from 10 MB to 11 MB\n"));
    const Ran last = site.run("history -n 1 --json");
    EXPECT_EQ(last.size("/changes"), 1);
    EXPECT_EQ(last.at("/changes/0/id"), "3");
    EXPECT_EQ(last.at("/changes/0/command"), "\"LevelSync limit 11\"");
    EXPECT_EQ(last.at("/changes/0/in_force"), "true");
    EXPECT_EQ(last.at("/changes/0/lines/0/before"), "\"file_size_limit_in_mb=10\"");
    EXPECT_EQ(last.at("/changes/0/lines/0/after"), "\"file_size_limit_in_mb=11\"");
    EXPECT_THAT(
        site.file("LevelSync.log"), HasSubstr("change 1, LevelSync set replay 7 --client 192.0.2.7: Replay 6 to 7"));
    EXPECT_THAT(site.file("LevelSync.log"), HasSubstr(" WARNING"));
}

TEST(LevelSyncPublish, GivesTheFileToEverybodyAndSaysWhatChangesForWhom)
{
    const Site site;
    const auto viewer = site.host("viewer");
    viewer->serve("192.0.2.7");
    site.configure(with(with(Site::LOGGER, REPLAY, REPLAY_WITH_RULE), "=10", "=20"));
    const Ran dry = site.run("publish --dry-run");
    EXPECT_EQ(
        dry.out, "Would change: size limit from 10 MB to 20 MB\nWould change: Replay 6 to 7 for client 192.0.2.7\n"
                 "Not published: " +
                     site.path("logger") + ".\n");
    EXPECT_EQ(viewer->level(320), 6);
    const Ran ran = site.run("-u");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_EQ(
        ran.out, "Changed: size limit from 10 MB to 20 MB\nChanged: Replay 6 to 7 for client 192.0.2.7\nPublished: " +
                     site.path("logger") + ".\n");
    EXPECT_EQ(viewer->level(320), 7);
    EXPECT_EQ(viewer->size_limit(), 20);
    EXPECT_THAT(site.run("-u").out, HasSubstr("; it says what runs already.\n"));
    EXPECT_THAT(site.run("history").out, HasSubstr("LevelSync -u\n     size limit from 10 MB to 20 MB\n"));
    EXPECT_EQ(site.run("publish --json --dry-run").at("/published"), "false");
    EXPECT_EQ(site.run("-u --json").at("/published"), "true");
}

TEST(LevelSyncPublish, LeavesItsLineByTheLevelsThatItPublishes)
{
    const Site site(Site::LOGGER + "Library 106 3\n");
    const auto viewer = site.host("viewer");
    ASSERT_EQ(site.run("-u").exit_code, 0);
    EXPECT_EQ(site.file("LevelSync.log"), "");
    site.configure(Site::LOGGER + "Library 106 4\n");
    ASSERT_EQ(site.run("-u").exit_code, 0);
    EXPECT_THAT(site.file("LevelSync.log"), HasSubstr("change 2, LevelSync -u: Library 3 to 4 for everybody"));
}

TEST(LevelSyncPublish, TakesAnotherFileAndLeavesTheLevelFileAlone)
{
    const Site site;
    const auto viewer = site.host("viewer");
    write_file(site.path("other"), "2\nfile_size_limit_in_mb=3\nReplay 320 7\n");
    ASSERT_EQ(site.run({"-u", site.path("other")}).exit_code, 0);
    EXPECT_EQ(viewer->level(320), 7);
    EXPECT_EQ(viewer->size_limit(), 3);
    EXPECT_EQ(site.logger(), Site::LOGGER);
    EXPECT_EQ(site.run("diff").exit_code, 1);
}

TEST(LevelSyncPublish, RefusesWhatWouldNotCountUnlessItIsForced)
{
    struct Row
    {
        const char* logger;
        const char* says;
        int level; // of Replay, once it is forced
    };
    for (const Row& row :
         {Row{"2\nfile_size_limit_in_mb=0\nReplay 320 6 [(7)]\n", "A rule without an entry in any of its lists", 6},
          Row{"\xEF\xBB\xBF"
              "2\nfile_size_limit_in_mb=0\nReplay 320 6\n",
              "The file begins with a byte-order mark", 6},
          Row{"2\n# a limit\nReplay 320 7\n", "taken for the size limit", 7}})
    {
        const Site site;
        const auto viewer = site.host("viewer");
        site.configure(row.logger);
        const auto levels = viewer->levels();
        const Ran ran = site.run("-u");
        EXPECT_EQ(ran.exit_code, 1) << ran;
        EXPECT_THAT(ran.err, HasSubstr(row.says));
        EXPECT_THAT(ran.err, HasSubstr("Nothing was published. LevelSync check shows what to write instead; --force "));
        EXPECT_EQ(viewer->levels(), levels);
        EXPECT_EQ(viewer->size_limit(), 10);
        EXPECT_EQ(site.run("-u --dry-run").exit_code, 1) << "nor would it be published";
        EXPECT_EQ(site.run("-u --force").exit_code, 0);
        EXPECT_EQ(viewer->level(320), row.level);
        EXPECT_EQ(viewer->size_limit(), 0);
    }
}

TEST(LevelSyncPublish, RefusesAFileThatIsNotThereUnlessItIsForced)
{
    const Site site;
    const auto viewer = site.host("viewer");
    ::DeleteFileA(site.path("logger").c_str());
    const Ran ran = site.run("-u");
    EXPECT_EQ(ran.exit_code, 1);
    EXPECT_THAT(
        ran.err,
        HasSubstr("Nothing was published: without a file every process would write to standard error, at level "
                  "4."));
    EXPECT_EQ(viewer->level(320), 6);
    EXPECT_EQ(site.run("-u --force").exit_code, 0);
    EXPECT_EQ(viewer->level(320), 4);
    EXPECT_EQ(viewer->output(), 0);
}

TEST(LevelSyncExplain, SaysWhichRuleCountsAndWhyTheOthersDoNot)
{
    const Site site(
        with(Site::LOGGER, REPLAY, "Replay 320 5 [(6;192.0.2.7)(7;10.1.0.0;viewer)(6;;;77)(7;;;;3)(6;;viewer)] //"));
    const auto viewer = site.host("viewer");
    viewer->serve("192.0.2.7");
    const Ran ran = site.run("explain replay --client 192.0.2.7 --app viewer");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_EQ(
        ran.out, "Package 320, Replay: level 6 info\n"
                 "  5 notice for everybody\n"
                 "  6 info for client 192.0.2.7: fits, and counts\n"
                 "  7 debug for client 10.1.x.x, application viewer: does not fit: it is for client 10.1.x.x, not for "
                 "192.0.2.7\n"
                 "  6 info for process 77: does not fit: it is for process 77, not for a process without a given id\n"
                 "  7 debug for session 3: does not fit: it is for session 3, not for a process without a session\n"
                 "  6 info for application viewer: fits, but is not more than what counts\n");
    EXPECT_EQ(viewer->level(320), 6);
    const Ran json = site.run("explain replay --client 192.0.2.7 --app viewer --session 3 --json");
    EXPECT_EQ(json.at("/packages/0/level"), "7");
    EXPECT_EQ(json.at("/packages/0/own_level"), "5");
    EXPECT_EQ(json.at("/packages/0/rule"), "4");
    EXPECT_EQ(json.at("/packages/0/rules/1/fits"), "false");
    EXPECT_EQ(json.at("/source"), "\"running\"");
    viewer->serve("192.0.2.7", 3);
    EXPECT_EQ(viewer->level(320), 7);
    EXPECT_EQ(site.run("explain * --json").size("/packages"), 750);
}

TEST(LevelSyncExplain, AsksTheFileWhereNobodyRunsAndTheProcessesWhereTheyDo)
{
    const Site site;
    EXPECT_THAT(
        site.run("explain replay").out,
        HasSubstr("  6 info for everybody, which counts\nNo process shares a configuration now; this is what the file "
                  "says.\n"));
    const auto viewer = site.host("viewer");
    site.configure(with(Site::LOGGER, "Replay       320       6", "Replay       320       7"));
    EXPECT_THAT(site.run("explain replay").out, HasSubstr("Package 320, Replay: level 6 info\n"));
}

TEST(LevelSyncExplain, TakesTheApplicationFromTheRunningProcess)
{
    const Site site;
    const auto archive = site.host("archive");
    const std::string pid = std::to_string(archive->pid());
    const Ran ran = site.run("explain client --pid " + pid + " --json");
    EXPECT_EQ(ran.at("/subject/application"), "\"archive\"") << ran;
    EXPECT_EQ(ran.at("/packages/0/level"), "6");
    EXPECT_EQ(archive->level(330), 6);
    EXPECT_THAT(
        site.run("explain client --pid " + pid).out, HasSubstr("  6 info for application archive: fits, and counts\n"));
    EXPECT_EQ(site.run("explain client --app viewer --json --pid " + pid).at("/packages/0/level"), "5") << "as told";
    const Ran none = site.run("explain client --pid 4000000000");
    EXPECT_THAT(none.err, HasSubstr("No process 4000000000 runs, or it cannot be looked at.\n--app NAME says the"));
}
} // namespace
