// log_commands_lines_test.cpp - LevelSync lines: the lines of all logs of a folder, merged by time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "level_sync.h"
#include "log_commands.h"
#include "log_lines.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace
{
constexpr char CLIENT[] = "ClientIP(192.0.2.7) SessionId(3)";
constexpr char OTHER_CLIENT[] = "ClientIP(198.51.100.9) SessionId(4)";

std::string at(const std::string& clock) { return "2026-11-21 08:00:" + clock; }

/// A folder whose logs the test writes.
class LevelSyncLines : public ::testing::Test
{
protected:
    void write(const std::string& name, const std::string& bytes) const
    {
        ASSERT_TRUE(write_file(m_site.path(name), bytes));
    }

    void write_two_logs() const
    {
        write(
            "viewer.log", line({at("01.000"), "opened front.png", "INFO    ", 320, "viewer", 32, CLIENT}) +
                              line({at("03.000"), "cannot read album 7", "ERROR   ", 310, "viewer", 32, CLIENT}) +
                              line({at("05.000"), "closed", "DEBUG   ", 320, "viewer", 32, OTHER_CLIENT}));
        write(
            "archive.log", line({at("02.000"), "page sizes are known", "NOTICE  ", 330, "archive", 36, OTHER_CLIENT}) +
                               line({at("04.000"), "Album 7 is there", "WARNING ", 320, "archive", 36}));
    }

    /// The texts of the messages that a call prints, in their order.
    std::string texts(const std::string& words) const
    {
        const Ran ran = m_site.run("lines " + words);
        EXPECT_EQ(ran.exit_code, 0) << ran;
        std::string texts;
        std::istringstream lines(ran.out);
        for (std::string text; std::getline(lines, text);)
            texts += (texts.empty() ? "" : "|") + text.substr(text.find("-> ") + 3);
        return texts;
    }

    Site m_site;
};

TEST_F(LevelSyncLines, AreMergedByTimeOverAllFilesByteForByte)
{
    const std::string first = line({at("01.000"), "one"});
    const std::string second = line({at("01.001"), "two", "INFO    ", 330, "archive", 36});
    const std::string third = line({at("01.002"), "three"});
    const std::string fourth = line({at("01.002"), "four", "INFO    ", 330, "control", 40});
    write("viewer.log", first + third);
    write("archive.log", second);
    write("z.txt", fourth);
    write("notes.txt", "no log at all\r\n");
    const ChildResult result = run_child("LevelSync", m_site.options({"lines"}));
    EXPECT_EQ(result.exit_code, 0u);
    EXPECT_EQ(result.out, first + second + third + fourth) << "of the same millisecond in the order of the names";
    EXPECT_THAT(text_of(result.err), HasSubstr("4 lines of archive.log (1), viewer.log (2) and z.txt (1), "));
}

TEST_F(LevelSyncLines, ThatACrashHasLeftOnceMoreAreThereOnce)
{
    const std::string opened = line({at("01.000"), "opened"});
    const std::string read = line({at("01.000"), "read page 13", "DEBUG   "});
    const std::string closed = line({at("02.000"), "closed"});
    write("viewer.log", opened + closed);
    write("lastlines-viewer-2026-11-21-080002.log", opened + read + closed);
    write("archive.log", line({at("01.500"), "page sizes are known", "NOTICE  ", 330, "archive", 36}));
    EXPECT_EQ(texts(""), "opened|read page 13|page sizes are known|closed");
    EXPECT_THAT(
        m_site.run("lines --package 320").err, HasSubstr("3 lines of lastlines-viewer-2026-11-21-080002.log (3), "));
    EXPECT_EQ(texts("--last 2"), "page sizes are known|closed");
}

TEST_F(LevelSyncLines, MessagesOfSeveralLinesAndStackTracesStayWhole)
{
    write(
        "viewer.log", line({at("01.000"), "cannot read\n  front.png"}) + "  at load(album.cpp:17)\r\n" +
                          line({at("03.000"), "done"}));
    write("archive.log", line({at("02.000"), "between"}));
    const Ran ran = m_site.run("lines");
    EXPECT_THAT(ran.out, HasSubstr("-> cannot read\n  front.png\n  at load(album.cpp:17)\n2026-11-21 08:00:02"));
    // A text that stands in a later line of it finds the whole message.
    EXPECT_THAT(m_site.run("lines ALBUM.CPP").out, HasSubstr("-> cannot read\n  front.png\n  at load"));
}

TEST_F(LevelSyncLines, BannersCrashAndMeasurementsStandInTheirPlace)
{
    write(
        "viewer.log",
        banner(at("01.000"), "Start") + line({at("02.000"), "working", "INFO    ", 320, "viewer", 32, CLIENT}));
    write(
        "crashes.log",
        "21/11 08:00:04.000 Crashed Process Details: C:\\app\\viewer.exe[32,280] Exception Code: 0xc0000005\r\n");
    write("viewer_monitor.log", "21/11 08:00:03.000 5 viewer[32,280]: T=load,ms=12\r\n");
    ASSERT_TRUE(set_written(m_site.path("crashes.log"), 2026, 11, 21, 9));
    ASSERT_TRUE(set_written(m_site.path("viewer_monitor.log"), 2026, 11, 21, 9));
    const Ran ran = m_site.run("lines");
    const auto start = ran.out.find("Start Session");
    const auto working = ran.out.find("working");
    const auto measured = ran.out.find("T=load");
    const auto crashed = ran.out.find("Crashed Process");
    EXPECT_LT(start, working) << ran;
    EXPECT_LT(working, measured) << ran;
    EXPECT_LT(measured, crashed) << ran;
    ASSERT_NE(crashed, std::string::npos) << ran;
    // They go with what is asked for.
    EXPECT_THAT(m_site.run("lines --client 192.0.2.7").out, HasSubstr("Crashed Process"));
    EXPECT_THAT(m_site.run("lines --client 198.51.100.9").out, Not(HasSubstr("Crashed Process")));
}

TEST_F(LevelSyncLines, CanBeChosenBySessionClientApplicationAndProcess)
{
    write_two_logs();
    EXPECT_EQ(texts("--session 3"), "opened front.png|cannot read album 7");
    EXPECT_EQ(texts("--client 192.0.2.7"), "opened front.png|cannot read album 7");
    EXPECT_EQ(texts("--client 198.51.100.0"), "page sizes are known|closed") << "a network, as in a rule";
    EXPECT_EQ(texts("--client 192.0.2.7 --client 198.51.100.9 --app archive"), "page sizes are known");
    EXPECT_EQ(texts("--pid 36"), "page sizes are known|Album 7 is there");
}

TEST_F(LevelSyncLines, CanBeChosenByPackageLevelAndText)
{
    write_two_logs();
    EXPECT_EQ(texts("--package 310"), "cannot read album 7");
    EXPECT_EQ(texts("--package replay"), "opened front.png|Album 7 is there|closed");
    EXPECT_EQ(texts("--package Re*"), "opened front.png|cannot read album 7|Album 7 is there|closed");
    EXPECT_EQ(texts("--level error"), "cannot read album 7");
    EXPECT_EQ(texts("--level 4"), "cannot read album 7|Album 7 is there");
    EXPECT_EQ(texts("album"), "cannot read album 7|Album 7 is there") << "in letters of either case";
}

TEST_F(LevelSyncLines, CanBeChosenByTime)
{
    write("viewer.log", line({ago(7200), "long ago"}) + line({ago(1800), "half an hour ago"}) + line({ago(5), "now"}));
    EXPECT_EQ(texts("--since 1h"), "half an hour ago|now");
    EXPECT_EQ(texts("--since 90m --until 10m"), "half an hour ago");
    EXPECT_EQ(texts("--since 1d"), "long ago|half an hour ago|now");
    const Ran ran = m_site.run("lines --since 1s");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, HasSubstr("No line fits.\n"));
}

TEST_F(LevelSyncLines, OfLargeFilesAreThereFromTheFirstOn)
{
    std::string many = line({at("00.000"), "the first"});
    while (many.size() < 300'000)
        many += line({at("01.000"), "one of many"});
    write("viewer.log", many + line({at("02.000"), "the last"}));
    EXPECT_EQ(texts("the --package replay"), "the first|the last");
    EXPECT_EQ(texts("the --since 2026-11-20"), "the first|the last");
}

TEST_F(LevelSyncLines, TheLastSoManyAreThoseOfAll)
{
    write_two_logs();
    EXPECT_EQ(texts("--last 2"), "Album 7 is there|closed");
    EXPECT_THAT(m_site.run("lines -n 2").err, HasSubstr("The last 2 of 5 lines"));
}

TEST_F(LevelSyncLines, WhoFindsNoneIsToldWhatThereIs)
{
    write_two_logs();
    const Ran ran = m_site.run("lines --client 203.0.113.1");
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, HasSubstr("No line fits."));
    EXPECT_THAT(ran.err, HasSubstr("Looked through 5 lines"));
    EXPECT_THAT(ran.err, HasSubstr("Clients in them: 192.0.2.7 and 198.51.100.9."));
    EXPECT_THAT(
        m_site.run("lines --package control").err, HasSubstr("LevelSync explain shows it, LevelSync tail raises it."));
}

TEST_F(LevelSyncLines, OfRealHostsTellWhomTheyServed)
{
    const auto viewer = m_site.host("viewer");
    const auto archive = m_site.host("archive");
    viewer->serve("192.0.2.7", 3);
    archive->serve("198.51.100.9", 4);
    const auto wait_for_next_millisecond = []
    {
        const std::string before = ago(0);
        ASSERT_TRUE(comes_true([&before] { return ago(0) > before; }));
    };
    ASSERT_TRUE(viewer->write(320, 5, "first"));
    wait_for_next_millisecond();
    ASSERT_TRUE(archive->write(320, 5, "second"));
    wait_for_next_millisecond();
    ASSERT_TRUE(viewer->write(320, 5, "third"));
    EXPECT_EQ(texts("--package replay"), "first|second|third");
    EXPECT_EQ(texts("--package replay --session 4"), "second");
    viewer->stop();
    const Ran ran = m_site.run("lines --client 192.0.2.7 --app viewer");
    EXPECT_THAT(ran.out, HasSubstr("viewer (" + std::to_string(viewer->pid()) + ") End Session"));
}

TEST_F(LevelSyncLines, AreReadWhileTheyAreWritten)
{
    const auto viewer = m_site.host("viewer");
    ASSERT_TRUE(viewer->write(320, 5, "whole"));
    ASSERT_TRUE(append_to(m_site.path("viewer.log"), at("09.000") + "+00:00 INFO    (320) viewer (1,2)   -> ha"));
    EXPECT_EQ(texts("--package replay"), "whole|ha");
    ASSERT_TRUE(append_to(m_site.path("viewer.log"), "lf no more\r\n"));
    ASSERT_TRUE(viewer->write(320, 5, "after")) << "who reads does not hinder who writes";
    EXPECT_EQ(texts("--package replay"), "whole|half no more|after");
}

TEST_F(LevelSyncLines, ADamagedFileLosesNothingElse)
{
    const std::string whole = line({at("03.000"), "whole"});
    write(
        "cut.log", "t.cpp(3) -> end of a line that was cut in front\r\n" + line({at("01.000"), "before the gap"}) +
                       std::string(5000, '\0') + whole + at("04.000") + "+00:0");
    write(
        "bytes.log", line(
                         {at("02.000"), "Gr\xF6\xDF"
                                        "e of \x80 a page\x01\x1B[31m"}));
    const Ran ran = m_site.run("lines");
    EXPECT_EQ(ran.exit_code, 0);
    EXPECT_THAT(ran.out, HasSubstr("end of a line that was cut in front\n"));
    EXPECT_THAT(ran.out, HasSubstr("-> before the gap\n"));
    EXPECT_THAT(
        ran.out, HasSubstr("-> Gr\xF6\xDF"
                           "e of \x80 a page\x01\x1B[31m\n"))
        << "byte for byte";
    EXPECT_THAT(ran.out, HasSubstr("-> whole\n" + at("04.000") + "+00:0"));
    const Ran json = m_site.run("lines --json --package replay");
    std::istringstream lines(json.out);
    for (std::string text; std::getline(lines, text);)
        EXPECT_FALSE(nlohmann::json::parse(text, nullptr, false).is_discarded()) << text;
}

TEST_F(LevelSyncLines, OfAFileInUtf16AreMissedAloud)
{
    write("viewer.log", line({at("01.000"), "here"}));
    write(
        "saved.log", std::string(
                         "\xFF\xFE"
                         "2\0"
                         "0\0"
                         "2\0"
                         "6\0",
                         10));
    const Ran ran = m_site.run("lines");
    EXPECT_THAT(ran.out, HasSubstr("-> here\n"));
    EXPECT_THAT(ran.err, HasSubstr("saved.log is UTF-16"));
    EXPECT_THAT(ran.err, HasSubstr("save it as UTF-8"));
}

TEST_F(LevelSyncLines, InJsonTellAllThereIs)
{
    write("viewer.log", line({at("01.500"), "two\nlines", "ERROR   ", 320, "viewer", 32, CLIENT}));
    const Ran ran = m_site.run("lines --json");
    EXPECT_EQ(
        nlohmann::json::parse(ran.out), (nlohmann::json{
                                            {"time", "2026-11-21T08:00:01.500Z"},
                                            {"kind", "message"},
                                            {"level", 3},
                                            {"package", 320},
                                            {"application", "viewer"},
                                            {"process", 32},
                                            {"thread", 280},
                                            {"client", "192.0.2.7"},
                                            {"session", 3},
                                            {"file", "host.cpp"},
                                            {"line", 113},
                                            {"function", "replay"},
                                            {"text", "two\nlines"},
                                            {"log", "viewer.log"}}))
        << ran;
}

TEST_F(LevelSyncLines, OfAFolderThatIsMissingOrHasNoLogsAreAnError)
{
    const Ran empty = m_site.run("lines");
    EXPECT_EQ(empty.exit_code, 1);
    EXPECT_THAT(empty.err, HasSubstr("There are no logs in "));
    EXPECT_THAT(empty.err, HasSubstr("LevelSync ps shows where the running processes log to"));
    const Ran missing = m_site.run({"lines", "--dir", m_site.path("nowhere")});
    EXPECT_EQ(missing.exit_code, 1);
    EXPECT_THAT(missing.err, HasSubstr("There is no folder "));
    EXPECT_THAT(missing.err, HasSubstr("--dir FOLDER"));
    const Ran json = m_site.run({"lines", "--json", "--dir", m_site.path("nowhere")});
    EXPECT_THAT(json_of(json)["error"].get<std::string>(), HasSubstr("There is no folder "));
}

TEST_F(LevelSyncLines, WrongCallsSayWhatWouldBeRight)
{
    write_two_logs();
    const auto expect_wrong = [this](const std::vector<std::string>& words, const std::string& next)
    {
        const Ran ran = m_site.run(words);
        EXPECT_EQ(ran.exit_code, 2) << ran;
        EXPECT_THAT(ran.err, HasSubstr(next)) << ran;
        EXPECT_EQ(ran.out, "");
    };
    expect_wrong({"lines", "--since", "yesterday"}, "a time of day (14:05)");
    expect_wrong({"lines", "--since", "1h", "--until", "2h"}, "--since is not before --until");
    expect_wrong({"lines", "--level", "loud"}, "debug");
    expect_wrong({"lines", "--last", "0"}, "LevelSync lines --help");
    expect_wrong({"lines", "--sesion", "3"}, "LevelSync lines --help");
    const Ran help = m_site.run("lines --help");
    EXPECT_EQ(help.exit_code, 0);
    EXPECT_THAT(help.out, HasSubstr("LevelSync lines --client 192.0.2.7 --level warning --since 1h"));
}

TEST_F(LevelSyncLines, OfALiveProcessThoseThatItKeepsAreShown)
{
    const auto viewer = m_site.host("viewer", {{"PRISMATE_LOG_RECORDER", "64K,7"}});
    ASSERT_TRUE(viewer->write(320, 7, "only kept"));
    ASSERT_TRUE(viewer->write(320, 1, "written"));
    const std::string call = "--live " + std::to_string(viewer->pid());
    EXPECT_EQ(texts(call + " --package 320"), "only kept|written");
    EXPECT_EQ(texts(call + " --package 320 --level error"), "written");
    EXPECT_EQ(texts(call + " --package 320 --last 1"), "written");
    EXPECT_EQ(texts(call + " only"), "only kept");
    EXPECT_EQ(texts("--package 320"), "written"); // the files have what was written, as ever
    const Ran ran = m_site.run("lines " + call + " --package 320");
    EXPECT_THAT(ran.err, HasSubstr("2 lines of process " + std::to_string(viewer->pid()) + " (2)"));
    const Ran json = m_site.run("lines --json --last 1 " + call + " --package 320");
    EXPECT_EQ(json_of(json)["log"], "process " + std::to_string(viewer->pid())) << json;
}

TEST_F(LevelSyncLines, OfALiveProcessThatKeepsNoneTheyTellWhatToDo)
{
    const auto viewer = m_site.host("viewer");
    const Ran none = m_site.run("lines --live " + std::to_string(viewer->pid()));
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_THAT(none.err, HasSubstr("keeps no lines in memory"));
    EXPECT_THAT(none.err, HasSubstr("PRISMATE_LOG_RECORDER=256K,7"));
    const Ran gone = m_site.run("lines --live 4294967292"); // an id that no process gets
    EXPECT_EQ(gone.exit_code, 1);
    EXPECT_THAT(gone.err, HasSubstr("LevelSync ps shows the running processes"));
}
} // namespace
