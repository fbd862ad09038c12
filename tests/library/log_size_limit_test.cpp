// The limit to the size of the private file, measured now and then.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "log_directory.h"
#include "recording_destination.h"

namespace
{
constexpr std::size_t MEGABYTE = 1024 * 1024;
const std::string LIMIT_ONE = "2\nfile_size_limit_in_mb=1\n";

// What a file gets that has grown to 2 megabytes, with the limit at 1.
const std::string NOTICES =
    "*** Log file size (ESTIMATED around 2mb) exceed limit defined in logger file. Logs are disabled until file is "
    "cleared. ***\n"
    "*** Note: if you clear the file it will only start writing again after ~500 log lines, or after you call log log "
    "update manually (LevelSync.exe -u). ***\n";

/// Messages are sent without StoreParams, as each first look at a level would start a measurement.
class LogSizeLimit : public ::testing::Test
{
protected:
    /// Opens the log upon a file of so many bytes.
    void open(std::size_t bytes)
    {
        write_file(path(), std::string(bytes, 'x'));
        ASSERT_EQ(m_log.Open("test.log", "viewer"), 0);
        m_before = bytes;
    }

    /// Writes lines "1", "2" and so on.
    void write_lines(int count)
    {
        for (int i = 0; i < count; ++i)
            m_log.LogNoHeadline("%d", ++m_sent);
    }

    /// What the file got since it was opened or cleared.
    std::string text() const { return text_of(read_file(path()).substr(m_before)); }

    /// Empties the file from outside.
    void clear()
    {
        ASSERT_TRUE(write_file(path(), ""));
        m_before = 0;
    }

    /// Makes the file longer from outside.
    void grow(std::size_t bytes) const
    {
        const HANDLE file = ::CreateFileA(
            path().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
        const std::string filler(bytes, 'y');
        DWORD written = 0;
        ::WriteFile(file, filler.data(), static_cast<DWORD>(bytes), &written, nullptr);
        ::CloseHandle(file);
        ASSERT_EQ(written, bytes);
    }

    static std::string numbers(int first, int last)
    {
        std::string result;
        for (int i = first; i <= last; ++i)
            result += std::to_string(i) + "\n";
        return result;
    }

    std::string path() const { return m_directory.file("test.log"); }

    const LogDirectory m_directory{LIMIT_ONE};
    Kor_LogFile m_log{777, false};
    std::size_t m_before = 0;
    int m_sent = 0;
};

TEST_F(LogSizeLimit, TheFirstMeasurementComesOnThe16thLine)
{
    open(2 * MEGABYTE);
    write_lines(15);
    EXPECT_EQ(text(), numbers(1, 15));

    write_lines(1);
    EXPECT_EQ(text(), numbers(1, 15) + NOTICES); // and not line 16
}

TEST_F(LogSizeLimit, TheNoticesAreWrittenExactlyOnceWhileTheFileIsOverTheLimit)
{
    open(2 * MEGABYTE);
    write_lines(2000); // three more measurements

    EXPECT_EQ(text(), numbers(1, 15) + NOTICES);
}

TEST_F(LogSizeLimit, TheNoticesTellTheMegabytesThatWereMeasured)
{
    open(5 * MEGABYTE + MEGABYTE / 2);
    write_lines(16);

    EXPECT_NE(text().find("(ESTIMATED around 5mb)"), std::string::npos);
}

TEST_F(LogSizeLimit, WholeMegabytesCount)
{
    open(2 * MEGABYTE - 15 * 3 - 6 * 1 - 1); // 15 lines "n\r\n", of which six have two digits
    write_lines(16);
    EXPECT_EQ(text(), numbers(1, 16)); // one byte is missing
}

TEST_F(LogSizeLimit, WholeMegabytesCountFromTheirLastByte)
{
    open(2 * MEGABYTE - 15 * 3 - 6 * 1);
    write_lines(16);
    EXPECT_EQ(text(), numbers(1, 15) + NOTICES);
}

TEST_F(LogSizeLimit, UnderTheLimitTheNextMeasurementComes256LinesLater)
{
    open(0);
    write_lines(16);
    grow(2 * MEGABYTE);
    write_lines(255);
    const std::string grown(2 * MEGABYTE, 'y');
    EXPECT_EQ(text(), numbers(1, 16) + grown + numbers(17, 271));

    write_lines(1);
    EXPECT_EQ(text(), numbers(1, 16) + grown + numbers(17, 271) + NOTICES);
}

TEST_F(LogSizeLimit, OverTheLimitTheNextMeasurementComes501LinesLater)
{
    open(2 * MEGABYTE);
    write_lines(16);
    clear();
    write_lines(500);
    EXPECT_EQ(text(), "");

    write_lines(1);
    EXPECT_EQ(text(), "517\n");
    write_lines(10);
    EXPECT_EQ(text(), numbers(517, 527));
}

TEST_F(LogSizeLimit, AFileThatWasClearedIsMeasuredEvery256LinesAgain)
{
    open(2 * MEGABYTE);
    write_lines(16);
    clear();
    write_lines(501);
    grow(2 * MEGABYTE);
    write_lines(255);
    EXPECT_EQ(text(), "517\n" + std::string(2 * MEGABYTE, 'y') + numbers(518, 772));

    write_lines(1); // over the limit a second time: the notices come a second time
    EXPECT_EQ(text(), "517\n" + std::string(2 * MEGABYTE, 'y') + numbers(518, 772) + NOTICES);
}

TEST_F(LogSizeLimit, AFileThatIsStillTooLargeStaysClosedFor501LinesMore)
{
    open(2 * MEGABYTE);
    write_lines(16 + 501); // the second measurement finds it too large still
    clear();
    write_lines(500);
    EXPECT_EQ(text(), "");
    write_lines(1);
    EXPECT_EQ(text(), "1018\n");
}

TEST_F(LogSizeLimit, ALimitOfZeroIsNone)
{
    m_directory.configure(TO_FILE);
    Kor_LogFile log(777, false);
    write_file(path(), std::string(3 * MEGABYTE, 'x'));
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    std::string expected;
    for (int i = 0; i < 600; ++i)
    {
        log.LogNoHeadline("line");
        expected += "line\n";
    }
    EXPECT_EQ(text_of(read_file(path()).substr(3 * MEGABYTE)), expected);
}

TEST_F(LogSizeLimit, AChangedConfigurationMakesTheNextLineMeasure)
{
    open(2 * MEGABYTE);
    write_lines(16);
    clear();
    write_lines(3);
    EXPECT_EQ(text(), "");

    ASSERT_EQ(m_log.SetCustomLogLevel(3, 5, true), 0);
    ASSERT_EQ(m_log.GetLogLevel(30000), 5); // the check that finds the change
    write_lines(2);

    EXPECT_EQ(text(), "20\n21\n");
}

TEST_F(LogSizeLimit, AChangeOfClientMakesTheNextLineMeasure)
{
    open(2 * MEGABYTE);
    write_lines(16);
    clear();

    m_log.SetIP("10.0.0.7");
    m_log.CheckMsgLevel(30000, 4);
    write_lines(1);
    m_log.SetIP(nullptr);

    EXPECT_EQ(text(), "17\n");
}

TEST_F(LogSizeLimit, AFirstLookAtAnyLevelMakesTheNextLineMeasure)
{
    open(0);
    grow(2 * MEGABYTE);
    write_lines(1); // so that the file's position is known
    m_log.CheckMsgLevel(30000, 4);
    write_lines(1);

    EXPECT_EQ(text(), std::string(2 * MEGABYTE, 'y') + "1\n" + NOTICES);
}

TEST_F(LogSizeLimit, DestinationsGetWhatTheFileDoesNot)
{
    open(2 * MEGABYTE);
    write_lines(16);
    RecordingDestination seen;
    m_log.RegisterLogDestination(&seen);
    write_lines(2);
    m_log.UnregisterLogDestination(&seen);

    ASSERT_EQ(seen.messages.size(), 2u);
    EXPECT_EQ(seen.messages[0].text, "17\n");
}

TEST_F(LogSizeLimit, TheNoticesGoToTheFileAlone)
{
    open(2 * MEGABYTE);
    RecordingDestination seen;
    m_log.RegisterLogDestination(&seen);
    write_lines(16);
    m_log.UnregisterLogDestination(&seen);

    EXPECT_EQ(seen.messages.size(), 16u);
}

TEST_F(LogSizeLimit, OtherOutputsKnowNoLimitAndDoNotCount)
{
    open(2 * MEGABYTE);
    m_log.SetCustomLogLevel(Kor_LogConf::OUTPUT_SYSLOG_FILE, 3, 4, false);
    write_lines(100);
    m_log.SetCustomLogLevel(Kor_LogConf::OUTPUT_PRIVATE_FILE, 3, 4, false);
    write_lines(16);

    EXPECT_EQ(text(), numbers(101, 115) + NOTICES);
}

TEST_F(LogSizeLimit, AStreamOfTheCallerHasTheLimitToo)
{
    std::FILE* const stream = std::fopen(path().c_str(), "a");
    ASSERT_NE(stream, nullptr);
    ASSERT_EQ(m_log.Open(stream, "viewer"), 0);
    write_lines(1);
    grow(2 * MEGABYTE);
    write_lines(20);
    EXPECT_EQ(text(), "1\n" + std::string(2 * MEGABYTE, 'y') + numbers(2, 15) + NOTICES);

    clear();
    write_lines(497);
    EXPECT_EQ(text(), "517\n" + numbers(518, 518));
}
} // namespace
