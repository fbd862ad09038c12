// log_filter_test.cpp - which records are wanted.

#include "core/log_filter.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/log_merge.h"
#include "log_text.h"

using kor::core::contains_text;
using kor::core::FixedZone;
using kor::core::LogFileFacts;
using kor::core::LogFilter;
using kor::core::LogMerge;
using kor::core::LogReader;
using kor::core::LogRecord;
using kor::core::LogSelection;

namespace
{
constexpr int MONITOR = 109;

std::string line(std::string_view clock, std::string_view middle, std::string_view text)
{
    return "2026-11-21 08:00:" + std::string(clock) + ".000+00:00 " + std::string(middle) + " -> " + std::string(text) +
           "\r\n";
}

/// Two processes: 32, which serves two clients one after the other and crashes, and 40.
const std::vector<std::string> FILES = {
    // viewer.log
    "===== viewer (32) Start Session at 2026-11-21 08:00:00.000+00:00, User root on VM =====\r\n" +
        line("01", "INFO    (310) viewer (32,33)  ", "start") +
        line("02", "DEBUG   (320) viewer (32,33) ClientIP(192.0.2.7) SessionId(3) h.cpp(1) f", "seven") +
        "  at load(album.cpp:17)\r\n" +
        line("06", "ERROR   (330) viewer (32,33) ClientIP(192.0.2.8) SessionId(4) h.cpp(1) f", "eight") +
        "*** Log file size (ESTIMATED around 2mb) exceed limit defined in logger file. Logs are disabled until file is "
        "cleared. ***\r\n",
    // archive.log
    "bare\r\n===== archive (40) Start Session at 2026-11-21 08:00:00.500+00:00, User root on VM =====\r\n" +
        line("04", "WARNING (320) archive (40,41) ClientIP(192.0.2.7) SessionId(5) h.cpp(1) f", "Front.png") +
        "===== archive (40) End Session at 2026-11-21 08:00:09.000+00:00, User root on VM =====\r\n",
    // monitor and crashes
    "21/11 08:00:03.000 5 viewer[32,33]: =T=page\r\n21/11 08:00:07.000 6 viewer[32,33]: =T=page\r\n",
    "21/11 08:00:08.000 Crashed Process Details: C:\\app\\viewer.exe[32,33] Exception Code: 0xc0000005\r\n",
};

/// The seconds of the records that are wanted, "b" for the bare line and "f" for the notice of a full file.
std::string wanted(const LogFilter& filter)
{
    const FixedZone zone(0);
    LogFileFacts facts;
    facts.last_written = utc_of("2026-11-21 09:00:00.000");
    std::vector<std::unique_ptr<TextBytes>> bytes;
    std::vector<std::unique_ptr<LogReader>> readers;
    std::vector<LogReader*> all;
    for (const std::string& file : FILES)
    {
        bytes.push_back(std::make_unique<TextBytes>(file));
        readers.push_back(std::make_unique<LogReader>(*bytes.back(), zone, facts));
        all.push_back(readers.back().get());
    }
    LogMerge merge(all);
    LogSelection selection(filter, MONITOR);
    LogRecord record;
    std::string result;
    while (merge.next(record))
    {
        if (!selection.wants(record))
            continue;
        const char last = record.text()[0];
        const std::int64_t second = (record.time - utc_of("2026-11-21 08:00:00.000")) / 1000;
        result += last == 'b' ? "b" : last == '*' ? "f" : std::to_string(second);
    }
    return result;
}

LogFilter everything() { return {}; }
} // namespace

TEST(LogSelection, WithoutAFilterWantsEverything) { EXPECT_EQ(wanted(everything()), "0b012346f789"); }

TEST(LogSelection, TimesAreFromTheFirstUpToTheOneThatIsTooLate)
{
    LogFilter filter;
    filter.since = utc_of("2026-11-21 08:00:03.000");
    filter.until = utc_of("2026-11-21 08:00:06.000");
    EXPECT_EQ(wanted(filter), "34");
}

TEST(LogSelection, ALevelWantsWhatIsAtLeastAsBadAndAllThatHasNoLevel)
{
    LogFilter filter;
    filter.level = 4;
    EXPECT_EQ(wanted(filter), "0046f89");
    filter.level = 5;
    EXPECT_EQ(wanted(filter), "00346f89");
    filter.level = 1;
    EXPECT_EQ(wanted(filter), "00f89");
}

TEST(LogSelection, APackageComesWithTheBannersAndTheCrashOfItsProcesses)
{
    LogFilter filter;
    filter.packages = {320};
    EXPECT_EQ(wanted(filter), "24f89");
    filter.packages = {330};
    EXPECT_EQ(wanted(filter), "6f8");
    filter.packages = {310, 330};
    EXPECT_EQ(wanted(filter), "16f8");
    filter.packages = {MONITOR};
    EXPECT_EQ(wanted(filter), "378");
    filter.packages = {777};
    EXPECT_EQ(wanted(filter), "");
}

TEST(LogSelection, ASessionComesWithWhatItsProcessMeasuredAndHowItEnded)
{
    LogFilter filter;
    filter.sessions = {3};
    EXPECT_EQ(wanted(filter), "23f");
    filter.sessions = {4};
    EXPECT_EQ(wanted(filter), "6f78");
    filter.sessions = {5, 3};
    EXPECT_EQ(wanted(filter), "234f9");
}

TEST(LogSelection, AClientIsAskedForOnceAndFitsAsTheCallerSays)
{
    LogFilter filter;
    int asked = 0;
    filter.client_fits = [&asked](std::string_view client)
    {
        ++asked;
        return client == "192.0.2.7";
    };
    EXPECT_EQ(wanted(filter), "234f9");
    EXPECT_EQ(asked, 2);
}

TEST(LogSelection, ProcessesAndApplicationsAreWantedWithAllThatTheyWrote)
{
    LogFilter filter;
    filter.processes = {40};
    EXPECT_EQ(wanted(filter), "049");
    filter = {};
    filter.applications = {"viewer"};
    EXPECT_EQ(wanted(filter), "01236f78");
    filter.applications = {"Viewer"};
    EXPECT_EQ(wanted(filter), "") << "upper and lower case differ, as they do in rules";
}

TEST(LogSelection, ATextMayStandAnywhereInARecordInAnyCase)
{
    LogFilter filter;
    filter.text = "front.PNG";
    EXPECT_EQ(wanted(filter), "4");
    filter.text = "album.cpp:17";
    EXPECT_EQ(wanted(filter), "2");
    filter.text = "no such text";
    EXPECT_EQ(wanted(filter), "");
    filter.text = "0xC0000005";
    EXPECT_EQ(wanted(filter), "8");
}

TEST(LogSelection, AllThatIsAskedForHasToFit)
{
    LogFilter filter;
    filter.sessions = {3};
    filter.level = 5;
    EXPECT_EQ(wanted(filter), "3");
    filter.packages = {320};
    EXPECT_EQ(wanted(filter), "");
    filter.level = 7;
    EXPECT_EQ(wanted(filter), "2f");
}

TEST(LogSelection, AProcessThatStartsIsNotTheOneThatHadItsIdBefore)
{
    const std::string first = line("01", "INFO    (320) viewer (32,33) SessionId(3) h.cpp(1) f", "a");
    const std::string start =
        "===== archive (32) Start Session at 2026-11-21 08:00:02.000+00:00, User a on b =====\r\n";
    const std::string end = "===== archive (32) End Session at 2026-11-21 08:00:03.000+00:00, User a on b =====\r\n";
    TextBytes bytes(first + start + end);
    const FixedZone zone(0);
    LogReader reader(bytes, zone, {});
    LogFilter filter;
    filter.sessions = {3};
    LogSelection selection(filter, MONITOR);
    LogRecord record;
    std::vector<bool> answers;
    while (reader.next(record))
        answers.push_back(selection.wants(record));
    EXPECT_EQ(answers, (std::vector<bool>{true, false, false}));
}

TEST(LogSelection, LaterPartsOfARecordGoWithItsFirst)
{
    LogFilter filter;
    filter.text = "first";
    LogSelection selection(filter, MONITOR);
    LogRecord record;
    record.append("the first part\n");
    record.ends = false;
    EXPECT_TRUE(selection.wants(record));
    LogRecord later;
    later.append("another\n");
    later.begins = false;
    EXPECT_TRUE(selection.wants(later));
    LogRecord next;
    next.append("another\n");
    EXPECT_FALSE(selection.wants(next));
    EXPECT_FALSE(selection.wants(later));
}

TEST(ContainsText, ComparesLettersOfAsciiAloneWithoutTheirCase)
{
    EXPECT_TRUE(contains_text("", ""));
    EXPECT_TRUE(contains_text("a", ""));
    EXPECT_FALSE(contains_text("", "a"));
    EXPECT_TRUE(contains_text("xAbCx", "aBc"));
    EXPECT_TRUE(contains_text("[{@", "[{@"));
    EXPECT_FALSE(contains_text("{", "["));
    EXPECT_FALSE(contains_text("\xC4", "\xE4"));
    EXPECT_TRUE(contains_text(std::string_view("a\0b", 3), std::string_view("\0B", 2)));
}
