// log_records_test.cpp - log files as lines and records, their years and zones, and where to begin in a large one.

#include "core/log_records.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "core/calendar.h"
#include "core/log_split.h"
#include "log_text.h"

using kor::core::find_log_start;
using kor::core::FixedZone;
using kor::core::LineYears;
using kor::core::LocalTime;
using kor::core::LOG_BLOCK_SIZE;
using kor::core::LogFileFacts;
using kor::core::LogLine;
using kor::core::LogPiece;
using kor::core::LogReader;
using kor::core::LogRecord;
using kor::core::LogSplitter;
using kor::core::LogZone;
using kor::core::MAX_LOG_RECORD;

namespace
{
std::vector<std::string> lines_of(LogSplitter& splitter)
{
    std::vector<std::string> lines;
    LogPiece piece;
    while (splitter.next(piece))
        lines.emplace_back(piece.line());
    return lines;
}

struct Read
{
    LogLine::Kind kind;
    std::int64_t time;
    std::string text;
};

std::vector<Read> records_of(TextBytes& bytes, const LogZone& zone, const LogFileFacts& facts)
{
    LogReader reader(bytes, zone, facts);
    std::vector<Read> result;
    LogRecord record;
    while (reader.next(record))
    {
        EXPECT_TRUE(record.begins && record.ends);
        result.push_back({record.line.kind, record.time, std::string(record.text())});
    }
    return result;
}

std::vector<Read> records_of(std::string_view text, const LogFileFacts& facts = {})
{
    TextBytes bytes(text);
    return records_of(bytes, FixedZone(0), facts);
}

std::vector<std::int64_t> times_of(std::string_view text, std::int64_t last_written)
{
    LogFileFacts facts;
    facts.last_written = last_written;
    std::vector<std::int64_t> times;
    for (const Read& read : records_of(text, facts))
        times.push_back(read.time);
    return times;
}

/// Summer from 29 March to 25 October, at 01:00 UTC, as in the middle of Europe in 2026.
class SummerZone final : public kor::core::RuledZone
{
    int minutes_ahead_at(std::int64_t utc) const override
    {
        const kor::core::Date date = kor::core::date_of(kor::core::floor_divide(utc, kor::core::MS_PER_DAY));
        const LocalTime begin{static_cast<int>(date.year), 3, 29, 1, 0, 0, 0};
        const LocalTime end{static_cast<int>(date.year), 10, 25, 1, 0, 0, 0};
        const bool summer = utc >= kor::core::wall_milliseconds(begin) && utc < kor::core::wall_milliseconds(end);
        return summer ? 120 : 60;
    }
};
} // namespace

TEST(LogSplitter, GivesLinesWithWhicheverBreakTheyHave)
{
    TextBytes bytes("one\r\ntwo\n\r\n\nthree\rfour\nrest");
    LogSplitter splitter(bytes);
    EXPECT_EQ(lines_of(splitter), (std::vector<std::string>{"one", "two", "", "", "three\rfour"}));
    EXPECT_EQ(splitter.unfinished(), 4u);
    LogPiece piece;
    ASSERT_TRUE(splitter.rest(piece));
    EXPECT_EQ(piece.line(), "rest");
    EXPECT_EQ(piece.at, 23u);
    EXPECT_FALSE(splitter.rest(piece));
}

TEST(LogSplitter, GivesAHalfLineOnceItIsWhole)
{
    TextBytes bytes("one\ntw");
    LogSplitter splitter(bytes);
    EXPECT_EQ(lines_of(splitter), std::vector<std::string>{"one"});
    bytes.text += "o\r";
    EXPECT_TRUE(lines_of(splitter).empty());
    bytes.text += "\nthr";
    EXPECT_EQ(lines_of(splitter), std::vector<std::string>{"two"});
    EXPECT_EQ(splitter.unfinished(), 3u);
}

TEST(LogSplitter, BeginsAnewInAFileThatWasCleared)
{
    TextBytes bytes("one\nha");
    LogSplitter splitter(bytes);
    EXPECT_EQ(lines_of(splitter).size(), 1u);
    bytes.text = "new\n";
    EXPECT_TRUE(lines_of(splitter).empty());
    splitter.restart(0);
    EXPECT_EQ(lines_of(splitter), std::vector<std::string>{"new"});
}

TEST(LogSplitter, LeavesOutNulsInFrontOfALineHoweverMany)
{
    TextBytes bytes(
        std::string(3 * LOG_BLOCK_SIZE + 5, '\0') + "one\n" + std::string(3, '\0') + "two\nth" + std::string(2, '\0') +
        "ree\n" + std::string(7, '\0'));
    LogSplitter splitter(bytes);
    EXPECT_EQ(lines_of(splitter), (std::vector<std::string>{"one", "two", std::string("th\0\0ree", 7)}));
    EXPECT_EQ(splitter.unfinished(), 0u);
}

TEST(LogSplitter, GivesALineThatIsLongerThanABlockInPieces)
{
    TextBytes bytes(std::string(2 * LOG_BLOCK_SIZE + 10, 'x') + "\r\nnext\n");
    LogSplitter splitter(bytes);
    LogPiece piece;
    ASSERT_TRUE(splitter.next(piece));
    EXPECT_TRUE(piece.begins_line && !piece.ends_line);
    EXPECT_EQ(piece.line().size(), LOG_BLOCK_SIZE);
    ASSERT_TRUE(splitter.next(piece));
    EXPECT_TRUE(!piece.begins_line && !piece.ends_line);
    ASSERT_TRUE(splitter.next(piece));
    EXPECT_TRUE(!piece.begins_line && piece.ends_line);
    EXPECT_EQ(piece.line(), std::string(10, 'x'));
    ASSERT_TRUE(splitter.next(piece));
    EXPECT_TRUE(piece.begins_line && piece.ends_line);
    EXPECT_EQ(piece.line(), "next");
    EXPECT_EQ(piece.at, 2 * LOG_BLOCK_SIZE + 12);
}

TEST(LogSplitter, KeepsWithinItsBounds)
{
    TextBytes bytes("one\ntwo\nthree\n");
    LogSplitter splitter(bytes, 4, 10);
    EXPECT_EQ(lines_of(splitter), std::vector<std::string>{"two"});
    LogPiece piece;
    ASSERT_TRUE(splitter.rest(piece));
    EXPECT_EQ(piece.line(), "th");
}

TEST(LogReader, PutsTheLinesOfAMessageAndAStackTraceBehindItTogether)
{
    const std::string first = message_at("08:00:00.000", "cannot read\r\n  front.png");
    const std::string trace = "  at load(album.cpp:17)\r\n  at main(host.cpp:3)\r\n";
    const std::string second = message_at("08:00:00.001", "done");
    const std::vector<Read> records = records_of(first + trace + second);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text, first + trace);
    EXPECT_EQ(records[1].text, second);
    EXPECT_EQ(records[1].time - records[0].time, 1);
}

TEST(LogReader, GivesWhatHasNoTimeThatOfItsNeighbour)
{
    const std::string params = " params: file mapping name is empty size 4383776\r\n";
    const std::string start = banner_at("08:00:00.000", "Start");
    const std::string message = message_at("08:00:01.000", "text");
    const std::string notice =
        "*** Log file size (ESTIMATED around 2mb) exceed limit defined in logger file. Logs are disabled until file is "
        "cleared. ***\r\n*** Note: if you clear the file it will only start writing again after ~500 log lines, or "
        "after you call log log update manually (LevelSync.exe -u). ***\r\n";
    const std::vector<Read> records = records_of("bare\r\nlines\r\n" + start + params + message + notice);
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[0].kind, LogLine::BARE);
    EXPECT_EQ(records[0].text, "bare\r\nlines\r\n");
    EXPECT_EQ(records[0].time, records[1].time) << "of the line behind it, as none is in front";
    EXPECT_EQ(records[1].kind, LogLine::START_BANNER);
    EXPECT_EQ(records[1].text, start + params);
    EXPECT_EQ(records[3].kind, LogLine::FULL_NOTICE);
    EXPECT_EQ(records[3].text, notice);
    EXPECT_EQ(records[3].time, records[2].time);
}

TEST(LogReader, TheStartBannerOfAMonitorLogIsFromTheTimeOfWhatFollows)
{
    const std::string end = "===== user root on VM (32) end session =====\n";
    const std::string start = "===== user root on VM (36) start session =====\n";
    const std::vector<std::int64_t> times = times_of(
        "20/11 13:00:00.000 5 viewer[32,33]: =a\n" + end + start + "21/11 13:00:00.000 5 viewer[36,37]: =b\n",
        utc_of("2026-11-21 14:00:00.000"));
    EXPECT_EQ(
        times, (std::vector<std::int64_t>{
                   utc_of("2026-11-20 13:00:00.000"), utc_of("2026-11-20 13:00:00.000"),
                   utc_of("2026-11-21 13:00:00.000"), utc_of("2026-11-21 13:00:00.000")}));
    EXPECT_EQ(times_of(start, 77), std::vector<std::int64_t>{77}) << "where nothing tells, when the file was written";
}

TEST(LogReader, ReadsAFileWithoutAnyLineOfALogAsOneRecord)
{
    const std::vector<Read> records = records_of("a\nb\nc");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "a\nb\nc");
    EXPECT_TRUE(records_of("").empty());
}

TEST(LogReader, AHalfLastLineIsGivenAsItIs)
{
    const std::string first = message_at("08:00:00.000", "one");
    const std::vector<Read> records = records_of(first + "2026-11-21 08:00:01.000+00:00 INFO    (3");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, first + "2026-11-21 08:00:01.000+00:00 INFO    (3");
}

TEST(LogReader, ARecordWithoutEndComesInPartsOfBoundedSize)
{
    std::string text = message_at("08:00:00.000", "begin");
    for (std::size_t i = 0; text.size() < 3 * MAX_LOG_RECORD; ++i)
        text += "  continued " + std::to_string(i) + "\r\n";
    const std::string last = message_at("08:00:01.000", "end");
    TextBytes bytes(text + last);
    const FixedZone zone(0);
    LogReader reader(bytes, zone, {});
    LogRecord record;
    std::string whole;
    std::size_t parts = 0;
    while (reader.next(record) && record.line.kind == LogLine::MESSAGE && !record.ends)
    {
        EXPECT_EQ(record.begins, parts == 0);
        EXPECT_LE(record.bytes.size(), MAX_LOG_RECORD + LOG_BLOCK_SIZE);
        EXPECT_EQ(record.line.package, 320);
        EXPECT_EQ(record.time, utc_of("2026-11-21 08:00:00.000"));
        whole += record.text();
        ++parts;
    }
    EXPECT_FALSE(record.begins);
    whole += record.text();
    EXPECT_EQ(parts, 2u);
    EXPECT_EQ(whole, text);
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(record.text(), last);
    EXPECT_TRUE(record.begins && record.ends);
}

TEST(LogReader, TheViewsOfARecordHoldHoweverLongItGrows)
{
    std::string text = message_at("08:00:00.000", "begin");
    for (int i = 0; i < 1000; ++i)
        text += "  continued\r\n";
    TextBytes bytes(text);
    const FixedZone zone(0);
    LogReader reader(bytes, zone, {});
    LogRecord record;
    ASSERT_TRUE(reader.next(record));
    EXPECT_EQ(record.line.application, "viewer");
    EXPECT_EQ(record.line.text, "begin");
    EXPECT_GE(record.line.text.data(), record.bytes.data());
    EXPECT_LT(record.line.text.data(), record.bytes.data() + record.bytes.size());
}

TEST(LogReader, AnEmptyMessageStandsInItsRecordToo)
{
    const std::string first = message_at("08:00:00.000", "");
    TextBytes bytes(first + message_at("08:00:01.000", ""));
    const FixedZone zone(0);
    LogReader reader(bytes, zone, {});
    LogRecord record;
    for (int i = 0; i < 2; ++i)
    {
        ASSERT_TRUE(reader.next(record));
        EXPECT_EQ(record.line.text, "");
        EXPECT_EQ(record.line.text.data(), record.bytes.data() + first.size() - 2);
    }
}

TEST(LogReader, TellsTheYearsOfAMonitorLogByWhenItWasWrittenLast)
{
    const std::string_view text = "30/12 10:00:00.000 5 v[1,2]: =a\n"
                                  "02/01 10:00:00.000 5 v[1,2]: =b\n"
                                  "01/11 10:00:00.000 5 v[1,2]: =c\n"
                                  "05/03 10:00:00.000 5 v[1,2]: =d\n";
    EXPECT_EQ(
        times_of(text, utc_of("2026-03-05 10:00:00.000")),
        (std::vector<std::int64_t>{
            utc_of("2024-12-30 10:00:00.000"), utc_of("2025-01-02 10:00:00.000"), utc_of("2025-11-01 10:00:00.000"),
            utc_of("2026-03-05 10:00:00.000")}));
    EXPECT_EQ(
        times_of("31/12 23:00:00.000 5 v[1,2]: =a\n", utc_of("2026-01-01 05:00:00.000")),
        std::vector<std::int64_t>{utc_of("2025-12-31 23:00:00.000")});
    EXPECT_EQ(
        times_of("29/02 12:00:00.000 5 v[1,2]: =a\n", utc_of("2024-06-01 00:00:00.000")),
        std::vector<std::int64_t>{utc_of("2024-02-29 12:00:00.000")});
}

TEST(LogReader, AClockThatGoesBackOverNewYearGoesBackAYear)
{
    EXPECT_EQ(
        times_of(
            "01/01 00:00:01.000 5 v[1,2]: =a\n"
            "31/12 23:59:59.000 5 v[1,2]: =b\n"
            "01/01 00:00:00.000 5 v[1,2]: =c\n",
            utc_of("2026-01-02 00:00:00.000")),
        (std::vector<std::int64_t>{
            utc_of("2026-01-01 00:00:01.000"), utc_of("2025-12-31 23:59:59.000"), utc_of("2026-01-01 00:00:00.000")}));
}

TEST(LogReader, TakesTheYearFromALineThatTellsItWhereTheFileHasOne)
{
    const std::string measurement = "30/12 10:00:00.000 5 v[1,2]: =a\n";
    const std::vector<std::int64_t> times = times_of(
        measurement + "2020-01-05 08:00:00.000+00:00 INFO    (320) v (1,2)   -> x\n" +
            "06/01 10:00:00.000 5 v[1,2]: =b\n",
        utc_of("2026-01-02 00:00:00.000"));
    EXPECT_EQ(times.front(), utc_of("2019-12-30 10:00:00.000"));
    EXPECT_EQ(times.back(), utc_of("2020-01-06 10:00:00.000"));
}

TEST(LogReader, ReadsTimesWithTheZoneOfTheirLine)
{
    const std::vector<Read> records = records_of("2026-11-21 08:00:00.000-05:00 INFO    (320) v (1,2)   -> x\n"
                                                 "2026-11-21 08:00:00.000+05:30 INFO    (320) v (1,2)   -> x\n");
    EXPECT_EQ(records[0].time, utc_of("2026-11-21 13:00:00.000"));
    EXPECT_EQ(records[1].time, utc_of("2026-11-21 02:30:00.000"));
}

TEST(LogReader, ReadsTimesWithoutAZoneByTheZoneOfTheMachine)
{
    TextBytes bytes("21/07 10:00:00.000 5 v[1,2]: =a\n21/11 10:00:00.000 5 v[1,2]: =b\n");
    const SummerZone zone;
    LogFileFacts facts;
    facts.last_written = utc_of("2026-11-21 10:00:00.000");
    const std::vector<Read> records = records_of(bytes, zone, facts);
    EXPECT_EQ(records[0].time, utc_of("2026-07-21 08:00:00.000"));
    EXPECT_EQ(records[1].time, utc_of("2026-11-21 09:00:00.000"));
}

TEST(RuledZone, CorrectsAThreadThatStillHasTheZoneOfTheWinter)
{
    const SummerZone zone;
    const std::int64_t in_july = utc_of("2026-07-21 10:00:00.000"); // on the wall
    EXPECT_EQ(zone.minutes_ahead(in_july, 120), 120);
    EXPECT_EQ(zone.minutes_ahead(in_july, 60), 120);
    const std::int64_t in_november = utc_of("2026-11-21 10:00:00.000");
    EXPECT_EQ(zone.minutes_ahead(in_november, 60), 60);
    EXPECT_EQ(zone.minutes_ahead(in_november, 120), 60);
    EXPECT_EQ(zone.minutes_ahead(in_november, LogZone::NOT_TOLD), 60);
    EXPECT_EQ(zone.minutes_ahead(in_july, LogZone::NOT_TOLD), 120);
}

TEST(RuledZone, LeavesALineAloneWhoseZoneItNeverHas)
{
    const SummerZone zone;
    for (const int told : {0, -300, 180, 330})
        EXPECT_EQ(zone.minutes_ahead(utc_of("2026-07-21 10:00:00.000"), told), told);
}

TEST(RuledZone, BelievesALineWithinTheHourThatComesTwice)
{
    const SummerZone zone;
    const std::int64_t twice = utc_of("2026-10-25 02:30:00.000");
    EXPECT_EQ(zone.minutes_ahead(twice, 120), 120);
    EXPECT_EQ(zone.minutes_ahead(twice, 60), 60);
    EXPECT_EQ(zone.minutes_ahead(utc_of("2026-10-25 03:00:00.000"), 120), 60);
    EXPECT_EQ(zone.minutes_ahead(utc_of("2026-10-25 01:59:00.000"), 60), 120);
    const std::int64_t never = utc_of("2026-03-29 02:30:00.000");
    EXPECT_EQ(zone.minutes_ahead(never, 60), 60);
    EXPECT_EQ(zone.minutes_ahead(never, 120), 120);
    const int guessed = zone.minutes_ahead(never, LogZone::NOT_TOLD);
    EXPECT_TRUE(guessed == 60 || guessed == 120);
}

TEST(LogStart, LiesInFrontOfEveryLineFromThenOn)
{
    std::string text;
    std::vector<std::pair<std::size_t, std::int64_t>> messages;
    const std::int64_t begin = utc_of("2026-11-21 00:00:00.000");
    for (std::int64_t minute = 0; minute < 24 * 60; ++minute)
    {
        char clock[16];
        std::snprintf(
            clock, sizeof clock, "%02d:%02d:00.000", static_cast<int>(minute / 60), static_cast<int>(minute % 60));
        messages.emplace_back(text.size(), begin + minute * kor::core::MS_PER_MINUTE);
        text += message_at(clock, "text");
        for (int i = 0; i < 40; ++i)
            text += "  a line that belongs to it\r\n";
    }
    TextBytes bytes(text);
    for (const std::int64_t hours : {0, 1, 5, 12, 23, 24, 48})
    {
        const std::int64_t since = begin + hours * 60 * kor::core::MS_PER_MINUTE;
        const std::uint64_t start = find_log_start(bytes, text.size(), since);
        for (const auto& [at, time] : messages)
            EXPECT_TRUE(time < since || at >= start) << hours;
        EXPECT_EQ(
            std::count_if(messages.begin(), messages.end(), [start](const auto& m) { return m.first == start; }), 1);
        const auto wanted = static_cast<std::int64_t>(std::max<std::int64_t>(0, hours - 2) * 60);
        const auto skipped =
            std::count_if(messages.begin(), messages.end(), [start](const auto& m) { return m.first < start; });
        EXPECT_LE(skipped, wanted);
        EXPECT_GE(skipped, std::min<std::int64_t>(wanted, 24 * 60) - 80) << "not much more than needed is read";
    }
}

TEST(LogStart, IsTheFrontOfAFileThatTellsNoTime)
{
    const std::string text(5 * LOG_BLOCK_SIZE, 'x');
    TextBytes bytes(text);
    EXPECT_EQ(find_log_start(bytes, text.size(), utc_of("2026-11-21 08:00:00.000")), 0u);
    TextBytes none("");
    EXPECT_EQ(find_log_start(none, 0, 0), 0u);
}

TEST(LogStart, FromAnyTimeOnIsTheFront)
{
    std::string text;
    while (text.size() < 4 * LOG_BLOCK_SIZE)
        text += message_at("08:00:00.000", "text");
    TextBytes bytes(text);
    EXPECT_EQ(find_log_start(bytes, text.size(), std::numeric_limits<std::int64_t>::min()), 0u);
}

TEST(LooksLikeLog, IsSaidOfAFileWithOneLineOfALog)
{
    EXPECT_TRUE(kor::core::looks_like_log("rest of a line\r\n" + message_at("08:00:00.000", "x")));
    EXPECT_TRUE(kor::core::looks_like_log(std::string(9, '\0') + banner_at("08:00:00.000", "End")));
    EXPECT_TRUE(kor::core::looks_like_log("05/03 14:07:09.042 5 viewer[376,380]: =x"));
    for (const std::string_view other :
         {"", "\n\n", "2\nfile_size_limit_in_mb=10\nReplay 320 6\n", "<?xml version='1.0'?>\n<a/>\n",
          "1,2,3\n2026-11-21 08:00:00.000 INFO text\n"})
        EXPECT_FALSE(kor::core::looks_like_log(other)) << other;
}
