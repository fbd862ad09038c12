// log_merge_test.cpp - the records of several files in the order of their times.

#include "core/log_merge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "log_text.h"

using kor::core::FixedZone;
using kor::core::LOG_BLOCK_SIZE;
using kor::core::LogFileFacts;
using kor::core::LogLine;
using kor::core::LogMerge;
using kor::core::LogReader;
using kor::core::LogRecord;
using kor::core::MAX_LOG_RECORD;

namespace
{
/// Files that are merged, and what comes of it: "source:last word of the record".
class Files
{
public:
    explicit Files(const std::vector<std::string>& texts, std::int64_t last_written = 0)
    {
        for (const std::string& text : texts)
        {
            LogFileFacts facts;
            facts.last_written = last_written;
            m_bytes.push_back(std::make_unique<TextBytes>(text));
            m_readers.push_back(std::make_unique<LogReader>(*m_bytes.back(), m_zone, facts));
        }
    }

    LogMerge merge() const
    {
        std::vector<LogReader*> readers;
        for (const auto& reader : m_readers)
            readers.push_back(reader.get());
        return LogMerge(readers);
    }

    std::string merged() const
    {
        LogMerge all = merge();
        std::string result;
        LogRecord record;
        while (all.next(record))
        {
            const std::string_view text = record.text().substr(0, record.text().find_last_not_of("\r\n") + 1);
            result += (result.empty() ? "" : " ") + std::to_string(record.source) + ':' +
                      std::string(text.substr(text.find_last_of(" \n") + 1));
        }
        return result;
    }

private:
    const FixedZone m_zone{0};
    std::vector<std::unique_ptr<TextBytes>> m_bytes;
    std::vector<std::unique_ptr<LogReader>> m_readers;
};

std::string merged(const std::vector<std::string>& texts, std::int64_t last_written = 0)
{
    return Files(texts, last_written).merged();
}
} // namespace

TEST(LogMerge, PutsTheRecordsOfAllFilesInTheOrderOfTheirTimes)
{
    EXPECT_EQ(
        merged(
            {message_at("08:00:00.000", "a") + message_at("08:00:00.004", "b"),
             message_at("08:00:00.001", "c") + message_at("08:00:00.002", "d") + message_at("08:00:00.005", "e"),
             message_at("08:00:00.003", "f")}),
        "0:a 1:c 1:d 2:f 0:b 1:e");
    EXPECT_EQ(merged({}), "");
    EXPECT_EQ(merged({"", ""}), "");
}

TEST(LogMerge, LinesOfTheSameMillisecondComeInTheOrderOfTheFiles)
{
    EXPECT_EQ(
        merged(
            {message_at("08:00:00.001", "a") + message_at("08:00:00.001", "b"),
             message_at("08:00:00.001", "c") + message_at("08:00:00.001", "d")}),
        "0:a 0:b 1:c 1:d");
}

TEST(LogMerge, ComparesTimesOfDifferentZones)
{
    EXPECT_EQ(
        merged(
            {"2026-11-21 08:00:00.002+02:00 INFO    (320) v (1,2)   -> a\n",
             "2026-11-21 01:00:00.001-05:00 INFO    (320) v (1,2)   -> b\n",
             "2026-11-21 11:30:00.003+05:30 INFO    (320) v (1,2)   -> c\n"}),
        "1:b 0:a 2:c");
}

TEST(LogMerge, AFileWhoseClockWentBackKeepsItsOrder)
{
    EXPECT_EQ(
        merged(
            {message_at("08:00:00.000", "a") + message_at("07:00:00.000", "b") + message_at("07:30:00.000", "c") +
                 message_at("09:00:00.000", "d"),
             message_at("07:15:00.000", "e") + message_at("08:30:00.000", "f")}),
        "1:e 0:a 0:b 0:c 1:f 0:d");
}

TEST(LogMerge, BannersCrashesNoticesAndMeasurementsStandInTheirPlace)
{
    const std::string general = banner_at("08:00:00.000", "Start") + message_at("08:00:02.000", "a") +
                                "*** Log file size (ESTIMATED around 2mb) exceed limit defined in logger file. Logs "
                                "are disabled until file is cleared. ***\r\n" +
                                message_at("08:00:05.000", "b");
    const std::string monitor = "===== user root on VM (32) start session =====\r\n"
                                "21/11 08:00:01.000 5 viewer[32,280]: =m\r\n"
                                "21/11 08:00:04.000 5 viewer[32,280]: =n\r\n";
    const std::string crashes =
        "21/11 08:00:03.000 Crashed Process Details: C:\\a.exe[40,41] Exception Code: 0xc0000005\r\n";
    EXPECT_EQ(
        merged({general, monitor, crashes}, utc_of("2026-11-21 09:00:00.000")),
        "0:===== 1:===== 1:=m 0:a 0:*** 2:0xc0000005 1:=n 0:b");
}

TEST(LogMerge, PartsOfALargeRecordStayTogether)
{
    std::string large = message_at("08:00:00.000", "large");
    while (large.size() < 2 * MAX_LOG_RECORD)
        large += "  a line of it\r\n";
    Files files(
        {message_at("08:00:00.000", "a"), large + message_at("08:00:00.000", "b"), message_at("08:00:00.000", "c")});
    LogMerge all = files.merge();
    std::string order;
    LogRecord record;
    while (all.next(record))
    {
        order += std::to_string(record.source) + (record.begins ? "(" : "") + (record.ends ? ")" : "");
        EXPECT_EQ(record.line.kind, LogLine::MESSAGE);
    }
    EXPECT_EQ(order, "0()1(11)1()2()");
}

TEST(LogMerge, TakesBoundedMemoryHoweverLargeTheFiles)
{
    // A file that is made up while it is read, of 4 GB.
    class Endless final : public kor::core::LogBytes
    {
    public:
        std::size_t read(std::uint64_t at, char* to, std::size_t size) override
        {
            largest = std::max(largest, size);
            for (std::size_t i = 0; i < size; ++i)
                to[i] = m_line[static_cast<std::size_t>((at + i) % m_line.size())];
            return size;
        }
        std::size_t largest = 0;

    private:
        const std::string m_line = message_at("08:00:00.000", "text");
    };
    Endless bytes;
    const FixedZone zone(0);
    LogFileFacts facts;
    facts.begin = message_at("08:00:00.000", "text").size() * 40'000'000ULL;
    LogReader reader(bytes, zone, facts);
    LogMerge all({&reader});
    LogRecord record;
    std::size_t largest = 0;
    for (int i = 0; i < 5000; ++i)
    {
        ASSERT_TRUE(all.next(record));
        largest = std::max(largest, record.bytes.capacity());
    }
    EXPECT_LE(bytes.largest, LOG_BLOCK_SIZE);
    EXPECT_LE(largest, 4096u);
}
