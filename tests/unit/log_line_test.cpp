// log_line_test.cpp - what lines of logs tell of themselves.

#include "core/log_line.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "core/headline.h"

using kor::core::LocalTime;
using kor::core::LogLine;
using kor::core::MAX_HEADLINE;
using kor::core::read_log_line;

namespace kor::core
{
static bool operator==(const LocalTime& a, const LocalTime& b)
{
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour && a.minute == b.minute &&
           a.second == b.second && a.milliseconds == b.milliseconds;
}
} // namespace kor::core

namespace
{
constexpr std::string_view TIME = "2026-11-21 08:54:57.106+00:00";

std::string at_time(std::string_view rest) { return std::string(TIME) + std::string(rest); }

LogLine::Kind kind_of(std::string_view line) { return read_log_line(line).kind; }
} // namespace

TEST(LogLine, AMessageTellsAllThatItsHeadlineHas)
{
    const std::string text = at_time(
        " DEBUG   (320) viewer (32,280|Worker-2) ClientIP(192.0.2.7) SessionId(3) host.cpp(113) replay -> line 28");
    const LogLine line = read_log_line(text);
    EXPECT_EQ(line.kind, LogLine::MESSAGE);
    EXPECT_FALSE(line.cut);
    EXPECT_TRUE(line.has_time && line.has_zone);
    EXPECT_EQ(line.time, (LocalTime{2026, 11, 21, 8, 54, 57, 106}));
    EXPECT_EQ(line.zone_minutes, 0);
    EXPECT_EQ(line.level, 7);
    EXPECT_EQ(line.package, 320);
    EXPECT_EQ(line.application, "viewer");
    EXPECT_EQ(line.process, 32);
    EXPECT_EQ(line.thread, 280);
    EXPECT_EQ(line.thread_name, "Worker-2");
    EXPECT_EQ(line.client, "192.0.2.7");
    EXPECT_EQ(line.session, 3);
    EXPECT_EQ(line.file, "host.cpp");
    EXPECT_EQ(line.source_line, 113);
    EXPECT_EQ(line.function, "replay");
    EXPECT_EQ(line.text, "line 28");
}

TEST(LogLine, EachOptionalPartMayBeMissing)
{
    struct Row
    {
        const char* behind_the_application;
        const char* thread_name;
        const char* client;
        long session;
        const char* file;
        const char* function;
    };
    const Row rows[] = {
        {" (32,280)   -> text", "", "", 0, "", ""},
        {" (32,280)  host.cpp(113) replay -> text", "", "", 0, "host.cpp", "replay"},
        {" (32,280)  host.cpp(113) -> text", "", "", 0, "host.cpp", ""},
        {" (32,280) ClientIP(192.0.2.7)  -> text", "", "192.0.2.7", 0, "", ""},
        {" (32,280) ClientIP(192.0.2.7) host.cpp(113) replay -> text", "", "192.0.2.7", 0, "host.cpp", "replay"},
        {" (32,280) SessionId(3) host.cpp(113) replay -> text", "", "", 3, "host.cpp", "replay"},
        {" (32,280|Main)   -> text", "Main", "", 0, "", ""},
        {" (32,280|)  host.cpp(113) replay -> text", "", "", 0, "host.cpp", "replay"},
        {" (32,280) ClientIP() SessionId(3) host.cpp(113) replay -> text", "", "", 3, "host.cpp", "replay"},
    };
    for (const Row& row : rows)
    {
        const std::string text = at_time(std::string(" WARNING (017) viewer") + row.behind_the_application);
        const LogLine line = read_log_line(text);
        EXPECT_EQ(line.kind, LogLine::MESSAGE) << text;
        EXPECT_FALSE(line.cut) << text;
        EXPECT_EQ(line.application, "viewer") << text;
        EXPECT_EQ(line.process, 32) << text;
        EXPECT_EQ(line.thread_name, row.thread_name) << text;
        EXPECT_EQ(line.client, row.client) << text;
        EXPECT_EQ(line.session, row.session) << text;
        EXPECT_EQ(line.file, row.file) << text;
        EXPECT_EQ(line.function, row.function) << text;
        EXPECT_EQ(line.text, "text") << text;
    }
}

TEST(LogLine, EveryLevelIsReadByItsNameAlsoWhereItTouchesThePackage)
{
    const char* const names[] = {"NONE    (", "SEVERE  (", "CRITICAL(", "ERROR   (",
                                 "WARNING (", "NOTICE  (", "INFO    (", "DEBUG   ("};
    for (int level = 0; level < 8; ++level)
    {
        const std::string text = at_time(std::string(" ") + names[level] + "003) viewer (1,2)   -> x");
        EXPECT_EQ(read_log_line(text).level, level) << text;
        EXPECT_EQ(read_log_line(text).package, 3) << text;
        const std::string_view name = names[level];
        EXPECT_EQ(kor::core::level_name(level), name.substr(0, name.find_first_of(" (")));
    }
    EXPECT_EQ(kor::core::level_name(-1), "");
    EXPECT_EQ(kor::core::level_name(8), "");
}

TEST(LogLine, ReadsWhatTheWriterOfHeadlinesWrites)
{
    char headline[200];
    const int length = kor::core::write_full(
        {headline, sizeof headline},
        {"2024-03-05 14:07:09.042-03:30", 4, "WARNING", 17, "viewer (4312,5120", 4312, 5120, "Loader",
         "ClientIP(10.0.0.7) SessionId(3)", true, "Kor_Image(210) Load", true, 42});
    const std::string text = std::string(headline, static_cast<std::size_t>(length)) + " loaded";
    const LogLine line = read_log_line(text);
    EXPECT_EQ(line.kind, LogLine::MESSAGE);
    EXPECT_FALSE(line.cut);
    EXPECT_EQ(line.zone_minutes, -210);
    EXPECT_EQ(line.thread_name, "Loader");
    EXPECT_EQ(line.client, "10.0.0.7");
    EXPECT_EQ(line.session, 3);
    EXPECT_EQ(line.file, "Kor_Image");
    EXPECT_EQ(line.source_line, 210);
    EXPECT_EQ(line.function, "Load");
    EXPECT_EQ(line.text, "loaded");
}

TEST(LogLine, NamesMayHaveBlanksAndParenthesesAndNumbersMayBeNegative)
{
    const std::string text =
        at_time(" INFO    (-01) my viewer (x64) (-32,-280|Load (2) of 3) ClientIP(fe80::1%4) SessionId(3) "
                "a (1).cpp(-5) A::operator->(int) const -> to -> from (1,2)");
    const LogLine line = read_log_line(text);
    EXPECT_EQ(line.package, -1);
    EXPECT_EQ(line.application, "my viewer (x64)");
    EXPECT_EQ(line.process, -32);
    EXPECT_EQ(line.thread, -280);
    EXPECT_EQ(line.thread_name, "Load (2) of 3");
    EXPECT_EQ(line.client, "fe80::1%4");
    EXPECT_EQ(line.file, "a (1).cpp");
    EXPECT_EQ(line.source_line, -5);
    EXPECT_EQ(line.function, "A::operator->(int) const");
    EXPECT_EQ(line.text, "to -> from (1,2)");

    const std::string empty = at_time(" ERROR   (001)  (32,280)   -> x");
    EXPECT_EQ(read_log_line(empty).application, "");
    EXPECT_EQ(read_log_line(empty).process, 32);
    const std::string null = at_time(" ERROR   (001) (null) (32,280)   -> x");
    EXPECT_EQ(read_log_line(null).application, "(null)");
}

TEST(LogLine, AMessageMayBeEmptyAndAnyBytes)
{
    const std::string empty = at_time(" ERROR   (001) viewer (32,280)   -> ");
    EXPECT_EQ(read_log_line(empty).text, "");
    EXPECT_FALSE(read_log_line(empty).cut);
    const std::string trimmed = at_time(" ERROR   (001) viewer (32,280)   ->");
    EXPECT_EQ(read_log_line(trimmed).text, "");
    EXPECT_FALSE(read_log_line(trimmed).cut);
    const std::string bytes = at_time(std::string_view(" ERROR   (001) viewer (32,280)   -> a\0\xE4\xFF", 40));
    EXPECT_EQ(read_log_line(bytes).text, std::string_view("a\0\xE4\xFF", 4));
}

TEST(LogLine, AHeadlineThatWasCutHasTheMessageBehindTheLastOfIts199Characters)
{
    const std::string place = "a_source_with_a_very_long_name.cpp(113) " + std::string(59, 'f');
    const std::string whole =
        at_time(" DEBUG   (320) " + std::string(60, 'v') + " (32,280) ClientIP(192.0.2.7) " + place + " ->");
    ASSERT_GT(whole.size(), MAX_HEADLINE);
    const std::string text = whole.substr(0, MAX_HEADLINE) + " from -> to";
    const LogLine line = read_log_line(text);
    EXPECT_EQ(line.kind, LogLine::MESSAGE);
    EXPECT_TRUE(line.cut);
    EXPECT_EQ(line.application, std::string(60, 'v'));
    EXPECT_EQ(line.client, "192.0.2.7");
    EXPECT_EQ(line.file, "a_source_with_a_very_long_name.cpp");
    EXPECT_EQ(line.text, "from -> to");
}

TEST(LogLine, AHeadlineOfExactly199CharactersIsWhole)
{
    const std::string head = " DEBUG   (320) ";
    const std::string tail = " (32,280)   ->";
    const std::string name(MAX_HEADLINE - TIME.size() - head.size() - tail.size(), 'v');
    const std::string text = at_time(head + name + tail + " from -> to");
    EXPECT_FALSE(read_log_line(text).cut);
    EXPECT_EQ(read_log_line(text).application, name);
    EXPECT_EQ(read_log_line(text).text, "from -> to");

    const std::string longer = at_time(head + name + "v" + tail).substr(0, MAX_HEADLINE) + " from -> to";
    EXPECT_TRUE(read_log_line(longer).cut);
    EXPECT_EQ(read_log_line(longer).application, name + "v");
    EXPECT_EQ(read_log_line(longer).process, 32);
    EXPECT_EQ(read_log_line(longer).text, "from -> to");
}

TEST(LogLine, AnApplicationThatFillsTheHeadlineIsCutWithIt)
{
    const std::string text = at_time(" DEBUG   (320) " + std::string(500, 'v')).substr(0, MAX_HEADLINE) + " text";
    const LogLine line = read_log_line(text);
    EXPECT_TRUE(line.cut);
    EXPECT_EQ(line.level, 7);
    EXPECT_EQ(line.package, 320);
    EXPECT_EQ(line.process, LogLine::NONE);
    EXPECT_EQ(line.text, "text");
}

TEST(LogLine, AClientPartThatWasCutEndsAfter99Characters)
{
    const std::string client(200, 'c');
    const std::string context = ("ClientIP(" + client + ") SessionId(3)").substr(0, 99);
    const std::string text = at_time(" INFO    (320) v (1,2) " + context + " h.cpp(1) f -> text");
    const LogLine line = read_log_line(text);
    EXPECT_FALSE(line.cut);
    EXPECT_EQ(line.client, client.substr(0, 90));
    EXPECT_EQ(line.session, 0);
    EXPECT_EQ(line.file, "h.cpp");
    EXPECT_EQ(line.text, "text");
}

TEST(LogLine, EveryBeginningOfALineIsReadWithoutHarm)
{
    const std::string whole = at_time(
        " DEBUG   (320) viewer (32,280|Worker-2) ClientIP(192.0.2.7) SessionId(3) host.cpp(113) replay -> line 28");
    const std::size_t enough = TIME.size() + std::string_view(" DEBUG   (320) ").size();
    const std::size_t arrow = whole.find(" ->") + 3;
    for (std::size_t length = 0; length < whole.size(); ++length)
    {
        const std::string text = whole.substr(0, length);
        const LogLine line = read_log_line(text);
        EXPECT_EQ(line.kind, length < enough ? LogLine::BARE : LogLine::MESSAGE) << text;
        EXPECT_EQ(line.cut, length >= enough && length < arrow) << text;
    }
}

TEST(LogLine, WhatHasNotTheFormOfATimeALevelAndAPackageIsBare)
{
    for (const std::string_view rest :
         {" TRACE   (320) viewer (1,2)   -> x", " debug   (320) viewer (1,2)   -> x",
          " DEBUG   320 viewer (1,2)   -> x", " DEBUG   () viewer (1,2)   -> x", "  DEBUG   (320) viewer (1,2)   -> x",
          " DEBUG   (320)viewer (1,2)   -> x", "DEBUG   (320) viewer (1,2)   -> x",
          " DEBUG   (9999999999999999999) viewer (1,2)   -> x", ""})
        EXPECT_EQ(kind_of(at_time(rest)), LogLine::BARE) << rest;
    for (const std::string_view time :
         {"2026-13-21 08:54:57.106+00:00", "2026-00-21 08:54:57.106+00:00", "2026-11-32 08:54:57.106+00:00",
          "2026-11-00 08:54:57.106+00:00", "2026-11-21 24:54:57.106+00:00", "2026-11-21 08:60:57.106+00:00",
          "2026-11-21 08:54:60.106+00:00", "2026-11-21 08:54:57,106+00:00", "2026-11-21 08:54:57.106 00:00",
          "2026-11-21T08:54:57.106+00:00", "026-11-21 08:54:57.106+00:00", " 2026-11-21 08:54:57.106+00:00"})
        EXPECT_EQ(kind_of(std::string(time) + " DEBUG   (320) viewer (1,2)   -> x"), LogLine::BARE) << time;
    for (
        const std::string_view text :
        {"", " ", "  at replay(host.cpp:113)", "text", " params: file mapping name is empty size 4383776", "=====", "*",
         "*** Note: if you clear the file it will only start writing again after ~500 log lines, or after you call log "
         "log update manually (LevelSync.exe -u). ***"})
    {
        EXPECT_EQ(kind_of(text), LogLine::BARE) << text;
        EXPECT_EQ(read_log_line(text).text, text);
    }
}

TEST(LogLine, ASessionBannerTellsProcessTimeUserAndComputer)
{
    const std::string_view start =
        "===== viewer (32) Start Session at 2026-11-21 09:13:04.496+01:00, User root on VM =====";
    LogLine line = read_log_line(start);
    EXPECT_EQ(line.kind, LogLine::START_BANNER);
    EXPECT_EQ(line.application, "viewer");
    EXPECT_EQ(line.process, 32);
    EXPECT_EQ(line.time, (LocalTime{2026, 11, 21, 9, 13, 4, 496}));
    EXPECT_EQ(line.zone_minutes, 60);
    EXPECT_EQ(line.user, "root");
    EXPECT_EQ(line.computer, "VM");
    EXPECT_EQ(line.text, start);

    line = read_log_line(
        "===== my (x) viewer (32) End Session at 2026-11-21 09:13:04.499+00:00, User Me on Tour on VM 2 =====");
    EXPECT_EQ(line.kind, LogLine::END_BANNER);
    EXPECT_EQ(line.application, "my (x) viewer");
    EXPECT_EQ(line.user, "Me on Tour");
    EXPECT_EQ(line.computer, "VM 2");

    line = read_log_line("===== (null) (32) End Session at 2026-11-21 09:13:04.499+00:00, User root =====");
    EXPECT_EQ(line.kind, LogLine::END_BANNER);
    EXPECT_EQ(line.application, "(null)");
    EXPECT_EQ(line.user, "root");
    EXPECT_EQ(line.computer, "");

    line = read_log_line("===== viewer (32) End Session at 2026-11-21 09:13:04.499+00:00, Us");
    EXPECT_EQ(line.kind, LogLine::END_BANNER);
    EXPECT_TRUE(line.cut);
}

TEST(LogLine, WhatOnlyLooksLikeABannerIsBare)
{
    for (const std::string_view text :
         {"===== viewer Start Session at 2026-11-21 09:13:04.496+00:00, User root on VM =====",
          "===== viewer (x) Start Session at 2026-11-21 09:13:04.496+00:00, User root on VM =====",
          "===== viewer (32) Start Session at 2026-11-21 09:13:04, User root on VM =====",
          "===== viewer (32) Begin Session at 2026-11-21 09:13:04.496+00:00, User root on VM =====",
          "===== user root (32) start session =====", "===== user root on VM start session =====",
          "===== user root on VM (32) start session", "===== root on VM (32) start session ====="})
        EXPECT_EQ(kind_of(text), LogLine::BARE) << text;
}

TEST(LogLine, ABannerOfAMonitorLogHasNoTime)
{
    LogLine line = read_log_line("===== user root on VM (32) start session =====");
    EXPECT_EQ(line.kind, LogLine::MONITOR_START);
    EXPECT_FALSE(line.has_time);
    EXPECT_EQ(line.user, "root");
    EXPECT_EQ(line.computer, "VM");
    EXPECT_EQ(line.process, 32);
    line = read_log_line("===== user Me on Tour on VM (2) (32) end session =====");
    EXPECT_EQ(line.kind, LogLine::MONITOR_END);
    EXPECT_EQ(line.user, "Me on Tour");
    EXPECT_EQ(line.computer, "VM (2)");
}

TEST(LogLine, AMeasurementHasDayAndMonthButNoYear)
{
    const std::string_view text = "05/03 14:07:09.042 5 viewer[376,380] A4: =T=load album,ms=20";
    LogLine line = read_log_line(text);
    EXPECT_EQ(line.kind, LogLine::MEASUREMENT);
    EXPECT_TRUE(line.has_time);
    EXPECT_FALSE(line.has_zone);
    EXPECT_EQ(line.time, (LocalTime{0, 3, 5, 14, 7, 9, 42}));
    EXPECT_EQ(line.level, 5);
    EXPECT_EQ(line.application, "viewer");
    EXPECT_EQ(line.process, 376);
    EXPECT_EQ(line.thread, 380);
    EXPECT_FALSE(line.cut);
    EXPECT_EQ(line.text, text);

    line = read_log_line("05/03 14:07:09.042 7 my [x] viewer[376,380]: =");
    EXPECT_EQ(line.kind, LogLine::MEASUREMENT);
    EXPECT_EQ(line.application, "my [x] viewer");
    EXPECT_TRUE(read_log_line("05/03 14:07:09.042 7 viewer[376,380] a context without an e").cut);
    for (const std::string_view bare :
         {"05/13 14:07:09.042 5 viewer[376,380]: =x", "00/03 14:07:09.042 5 viewer[376,380]: =x",
          "05/03 14:07:09.042 8 viewer[376,380]: =x", "05/03 14:07:09.042 viewer[376,380]: =x",
          "05/03 14:07:09.042 5 viewer: =x", "05/03 14:07:09.042 5 viewer[376]: =x", "05/03 14:07:09.04",
          "14:07:09.042 5 viewer[376,380]: =x"})
        EXPECT_EQ(kind_of(bare), LogLine::BARE) << bare;
}

TEST(LogLine, ACrashNamesTheProgramsFile)
{
    const std::string_view text =
        R"(21/11 15:40:24.660 Crashed Process Details: C:\app [x]\viewer.exe[244,248] Exception Code: 0xc0000005)";
    const LogLine line = read_log_line(text);
    EXPECT_EQ(line.kind, LogLine::CRASH);
    EXPECT_EQ(line.time, (LocalTime{0, 11, 21, 15, 40, 24, 660}));
    EXPECT_EQ(line.level, 1);
    EXPECT_EQ(line.application, R"(C:\app [x]\viewer.exe)");
    EXPECT_EQ(line.process, 244);
    EXPECT_EQ(line.thread, 248);
    EXPECT_EQ(line.text, text);
    EXPECT_EQ(
        read_log_line("21/11 15:40:24.660 Crashed Process Details: [244,248] Exception Code: 0xc0000005").application,
        "");
    EXPECT_EQ(
        kind_of("21/11 15:40:24.660 Crashed Process Details: a.exe[244] Exception Code: 0xc0000005"), LogLine::BARE);
    EXPECT_EQ(kind_of("21/11 15:40:24.660 Crashed Process Details: a.exe[244,248] Exc"), LogLine::BARE);
}

TEST(LogLine, TheNoticeOfAFullFileIsNoMessage)
{
    EXPECT_EQ(
        kind_of("*** Log file size (ESTIMATED around 2mb) exceed limit defined in logger file. Logs are disabled until "
                "file is cleared. ***"),
        LogLine::FULL_NOTICE);
}

TEST(LogLine, MillisecondsOnTheWallCountFrom1970)
{
    EXPECT_EQ(kor::core::wall_milliseconds({1970, 1, 1, 0, 0, 0, 0}), 0);
    EXPECT_EQ(kor::core::wall_milliseconds({2026, 3, 5, 14, 7, 9, 42}), 1772719629042);
    EXPECT_EQ(kor::core::wall_milliseconds({2024, 2, 29, 23, 59, 59, 999}), 1709251199999);
    EXPECT_EQ(kor::core::wall_milliseconds({1969, 12, 31, 23, 59, 59, 999}), -1);
}
