// Opening, opening again and closing the general log, and the parameters of its messages.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "captured_stream.h"
#include "log_directory.h"
#include "open_line.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

// Opening ------------------------------------------------------------------------
TEST(LogOpen, OpenAppendsToTheNamedFileInTheConfigurationDirectory)
{
    const LogDirectory directory;
    write_file(directory.file("test.log"), "from before\r\n");
    Kor_LogFile log(777, false);

    EXPECT_EQ(log.Open("test.log", "viewer"), 0);
    log.LogNoHeadline("new");

    EXPECT_EQ(directory.text(), "from before\nnew\n");
    EXPECT_STREQ(log.GetApplicationName(), "viewer");
}

TEST(LogOpen, ASecondOpenReturnsZeroAndKeepsFileAndName)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);

    EXPECT_EQ(log.Open("other.log", "server"), 0);
    log.LogNoHeadline("still here");

    EXPECT_EQ(directory.text(), "still here\n");
    EXPECT_FALSE(file_exists(directory.file("other.log")));
    EXPECT_STREQ(log.GetApplicationName(), "viewer");
}

TEST(LogOpen, EveryFormOfOpenLeavesAnOpenLogAlone)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);

    std::FILE* const stream = std::fopen(directory.file("stream.log").c_str(), "a");
    EXPECT_EQ(log.Open("server"), 0);
    EXPECT_EQ(log.Open(stream, "server"), 0);
    EXPECT_EQ(log.Open(static_cast<std::FILE*>(nullptr), "server"), 0); // not -1: nothing was tried
    EXPECT_EQ(log.Open("other.log", "server", false), 0);
    log.LogNoHeadline("still here");
    std::fclose(stream); // still ours

    EXPECT_EQ(directory.text(), "still here\n");
    EXPECT_EQ(directory.text("stream.log"), "");
    EXPECT_FALSE(file_exists(directory.file("other.log")));
    EXPECT_STREQ(log.GetApplicationName(), "viewer");
}

TEST(LogOpen, OpeningAgainWithBannersStillAsksForTheEndBanner)
{
    const LogDirectory directory;
    {
        Kor_LogFile log(777, false);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
        EXPECT_EQ(log.Open("other.log", "server", true), 0);
    }
    EXPECT_EQ(directory.lines(), Lines{"===== viewer (<pid>) End Session at <time>, User <user> on <host> ====="});
}

TEST(LogOpen, OpeningAgainWithoutBannersTakesTheEndBannerBack)
{
    const LogDirectory directory;
    {
        Kor_LogFile log(777, true);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
        EXPECT_EQ(log.Open("other.log", "server", false), 0);
    }
    EXPECT_EQ(directory.lines(), Lines{"===== viewer (<pid>) Start Session at <time>, User <user> on <host> ====="});
}

TEST(LogOpen, AnEmptyApplicationNameKeepsTheNameOfAnEarlierOpen)
{
    const LogDirectory directory;
    Kor_LogFile first(777, false);
    Kor_LogFile second(777, false);
    ASSERT_EQ(first.Open("first.log", "viewer"), 0);

    EXPECT_EQ(second.Open("second.log", ""), 0);

    EXPECT_STREQ(second.GetApplicationName(), "viewer");
}

TEST(LogOpen, ALaterNameOfAnotherLogReplacesTheSharedName)
{
    const LogDirectory directory;
    Kor_LogFile first(777, false);
    Kor_LogFile second(777, false);
    ASSERT_EQ(first.Open("first.log", "viewer"), 0);

    ASSERT_EQ(second.Open("second.log", "server"), 0);

    EXPECT_STREQ(first.GetApplicationName(), "server");
    EXPECT_EQ(first.GetApplicationName(), second.GetApplicationName()); // the text itself, not copies
}

KOR_CHILD(opens_first_with_an_empty_name)
{
    if (KorGLog.GetApplicationName() != nullptr)
        return 1;
    Kor_LogFile log(777, false);
    char name[] = "";
    if (log.Open("test.log", name) != 0)
        return 2;
    const char* const kept = log.GetApplicationName();
    return kept != nullptr && kept != name && *kept == '\0' ? 0 : 3;
}

TEST(LogOpen, AnEmptyFirstNameIsKeptAsACopy)
{
    const LogDirectory directory;
    EXPECT_EQ(run_child("opens_first_with_an_empty_name", directory.for_child()).exit_code, 0u);
}

TEST(LogOpen, TheApplicationNameIsACopyOfTheCallersText)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    char name[] = "viewer";
    ASSERT_EQ(log.Open("test.log", name), 0);

    std::strcpy(name, "xxxxxx");

    EXPECT_STREQ(log.GetApplicationName(), "viewer");
}

// The stream form ----------------------------------------------------------------
TEST(LogOpen, AStreamOfTheCallerTakesLinesOfAnyLength)
{
    const LogDirectory directory;
    const std::string path = directory.file("stream.log");
    std::string expected;
    {
        Kor_LogFile log(777, false);
        std::FILE* const stream = std::fopen(path.c_str(), "wb");
        ASSERT_NE(stream, nullptr);
        log.Open(stream, "viewer");
        const auto write = [&](unsigned long code, int length)
        {
            std::string text(static_cast<std::size_t>(length), static_cast<char>('a' + length % 26));
            log.SendLogNoLimit(code, text.data(), length);
            expected += code == 65535 ? " -> " + text + '\n' : text + '\n';
        };
        for (const int length : {0, 1, 5000, 100'000})
            write(65534, length);
        for (int length = 2200; length <= 2310; ++length)
        {
            write(65534, length);
            write(65535, length);
        }
    }
    std::string bytes = read_file(path);
    for (std::size_t at = 0;
         (at = bytes.find(" -> ", at)) != std::string::npos;) // takes the headlines' beginnings away
    {
        const std::size_t begin = bytes.rfind('\n', at) + 1;
        bytes.erase(begin, at - begin);
        at = begin + 4;
    }
    EXPECT_TRUE(bytes == expected);
}

TEST(LogOpen, AStreamOfTheCallerBecomesTheLogFileAndIsClosedInTheEnd)
{
    const LogDirectory directory;
    const std::string path = directory.file("stream.log");
    {
        Kor_LogFile log(777, false);
        std::FILE* const stream = std::fopen(path.c_str(), "w");
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(log.Open(stream, "viewer"), 0);
        log.LogNoHeadline("into the stream");
        EXPECT_EQ(directory.text("stream.log"), "into the stream\n"); // flushed
        EXPECT_FALSE(::DeleteFileA(path.c_str()));                    // open without sharing of deletion
    }
    EXPECT_TRUE(::DeleteFileA(path.c_str()));
}

TEST(LogOpen, ANullStreamGivesMinusOneButOpensTheRestAndWritesTheBanner)
{
    const LogDirectory directory(TO_STDERR);
    CapturedStream err(stderr);
    Kor_LogFile log(777, true);

    EXPECT_EQ(log.Open(static_cast<std::FILE*>(nullptr), "viewer"), -1);

    EXPECT_EQ(
        masked_lines(err.text()), Lines{"===== viewer (<pid>) Start Session at <time>, User <user> on <host> ====="});
    EXPECT_EQ(log.Open("test.log", "server"), 0); // the event source is open, so this does nothing
    EXPECT_FALSE(file_exists(directory.file("test.log")));
    EXPECT_STREQ(log.GetApplicationName(), "viewer");
}

// Files that cannot be opened ----------------------------------------------------
TEST(LogOpen, AFileThatCannotBeOpenedIsReportedOnStandardErrorAndTheRestOpens)
{
    begin_on_a_new_line();
    const LogDirectory directory;
    CapturedStream err(stderr);
    Kor_LogFile log(777, false);

    EXPECT_EQ(log.Open("no/such/place.log", "viewer"), 0);

    EXPECT_EQ(err.text(), "Failed to open log file [" + directory.path() + "/no/such/place.log]"); // no newline
    EXPECT_EQ(log.Open("test.log", "server"), 0); // open by its event source
    EXPECT_FALSE(file_exists(directory.file("test.log")));
}

TEST(LogOpen, ReOpenReportsAFileThatCannotBeOpenedInTheSameWords)
{
    begin_on_a_new_line();
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    CapturedStream err(stderr);

    EXPECT_EQ(log.ReOpen("no/such/place.log", "viewer", false), 0);

    EXPECT_EQ(err.text(), "Failed to open log file [" + directory.path() + "/no/such/place.log]");
}

// The report above ends in the middle of a line, and nothing else of the library begins there.
TEST(LogOpen, TheLineAfterAFileThatCannotBeOpenedBeginsOnANewOne)
{
    begin_on_a_new_line();
    const LogDirectory directory(TO_STDERR);
    CapturedStream err(stderr);
    Kor_LogFile log(777, false);
    log.Open("no/such/place.log", "viewer");
    log.LogNoHeadline("one");
    log.LogNoHeadline("two");

    EXPECT_EQ(err.text(), "Failed to open log file [" + directory.path() + "/no/such/place.log]\none\ntwo\n");
}

TEST(LogOpen, AWarningAfterAFileThatCannotBeOpenedBeginsOnANewLine)
{
    begin_on_a_new_line();
    const LogDirectory directory;
    const std::string failure = "Failed to open log file [" + directory.path() + "/no/such/place.log]";
    Kor_LogFile log(777, false);
    log.Open("viewer");
    CapturedStream err(stderr);
    CapturedStream out(stdout);
    log.ReOpen("no/such/place.log", "viewer", false);
    EXPECT_EQ(err.text(), failure);
    {
        const EnvironmentVariable none("PRISMATE_LOG_DIR", "");
        Kor_LogFile::GetLogConfigDir(); // on standard output, which may be the same console
    }
    EXPECT_EQ(err.text(), failure + "\n");
    EXPECT_EQ(out.text(), "Kor_LogFile - Warning - No configuration file\n");

    log.ReOpen("no/such/place.log", "viewer", false);
    log.PrintAndLog("%s", "printed");
    EXPECT_EQ(err.text(), failure + '\n' + failure + '\n');
    EXPECT_EQ(out.text(), "Kor_LogFile - Warning - No configuration file\nprinted");

    log.ReOpen("no/such/place.log", "viewer", false);
    const Kor_LogDestFile destination("no/such/place.log");
    log.ReOpen("no/such/place.log", "viewer", false);
    log.PrintOrLog(stderr, "%s", "printed");
    EXPECT_EQ(
        err.text(), failure + '\n' + failure + '\n' + failure +
                        "\nKor_LogDestFile: failed to open file <no/such/place.log>\n" + failure + "\nprinted");
}

TEST(LogOpen, AFileThatCannotBeOpenedTwiceIsReportedOnTwoLines)
{
    begin_on_a_new_line();
    const LogDirectory directory;
    const std::string failure = "Failed to open log file [" + directory.path() + "/no/such/place.log]";
    Kor_LogFile log(777, false);
    CapturedStream err(stderr);
    log.Open("no/such/place.log", "viewer");
    log.ReOpen("no/such/place.log", "viewer", false);

    EXPECT_EQ(err.text(), failure + '\n' + failure);
}

// ReOpen -------------------------------------------------------------------------
TEST(LogReOpen, ReOpenMovesTheLogToAnotherFileAndKeepsTheName)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("first.log", "viewer"), 0);
    log.LogNoHeadline("one");

    EXPECT_EQ(log.ReOpen("second.log", "server", false), 0);
    log.LogNoHeadline("two");

    EXPECT_EQ(directory.text("first.log"), "one\n");
    EXPECT_EQ(directory.text("second.log"), "two\n");
    EXPECT_TRUE(::DeleteFileA(directory.file("first.log").c_str())); // closed
    EXPECT_STREQ(log.GetApplicationName(), "viewer");
}

TEST(LogReOpen, ReOpenAppendsToTheSameFile)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    log.LogNoHeadline("one");

    EXPECT_EQ(log.ReOpen("test.log", "viewer", false), 0);
    log.LogNoHeadline("two");

    EXPECT_EQ(directory.text(), "one\ntwo\n");
}

TEST(LogReOpen, ReOpenOfAnOpenLogWritesNoStartBannerButSetsTheFlag)
{
    const LogDirectory directory;
    {
        Kor_LogFile log(777, false);
        ASSERT_EQ(log.Open("first.log", "viewer"), 0);
        EXPECT_EQ(log.ReOpen("second.log", "viewer", true), 0);
        EXPECT_EQ(directory.text("second.log"), "");
    }
    EXPECT_EQ(
        directory.lines("second.log"),
        Lines{"===== viewer (<pid>) End Session at <time>, User <user> on <host> ====="});
}

TEST(LogReOpen, ReOpenOfAClosedLogWritesTheBannerBeforeItOpensTheFile)
{
    const LogDirectory directory;
    RecordingDestination seen;
    Kor_LogFile log(777, false);
    log.RegisterLogDestination(&seen);

    EXPECT_EQ(log.ReOpen("test.log", "viewer", true), 0);
    ASSERT_EQ(seen.messages.size(), 1u);
    EXPECT_EQ(directory.text(), "");
    EXPECT_STREQ(log.GetApplicationName(), "viewer");
    log.LogNoHeadline("here");

    EXPECT_EQ(directory.text(), "here\n");
    log.UnregisterLogDestination(&seen);
}

TEST(LogReOpen, ReOpenLeavesTheFileAloneWhenTheOutputIsTheEventLog)
{
    const LogDirectory directory(TO_EVENT_LOG);
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("first.log", "viewer"), 0);

    EXPECT_EQ(log.ReOpen("second.log", "viewer", false), 0);

    EXPECT_FALSE(file_exists(directory.file("second.log")));
    EXPECT_EQ(log.SetCustomLogLevel(Kor_LogConf::OUTPUT_PRIVATE_FILE, 3, 4, false), 0);
    log.LogNoHeadline("still the first");
    EXPECT_EQ(directory.text("first.log"), "still the first\n");
}

// Closing and the plain members --------------------------------------------------
TEST(LogClose, CloseReturnsZeroAndChangesNothing)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    EXPECT_EQ(log.Close(), 0);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);

    EXPECT_EQ(log.Close(), 0);
    log.LogNoHeadline("still open");

    EXPECT_EQ(directory.text(), "still open\n");
}

TEST(LogClose, DestructionForgetsDestinationsAndDeletesNone)
{
    const LogDirectory directory;
    RecordingDestination seen;
    {
        Kor_LogFile log(777, false);
        log.RegisterLogDestination(&seen);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
        log.LogNoHeadline("one");
    }
    EXPECT_EQ(seen.messages.size(), 1u); // the object is whole, and got nothing more
}

TEST(LogClose, ALogThatWasNeverOpenedGoesInSilence)
{
    const LogDirectory directory;
    CapturedStream out(stdout);
    CapturedStream err(stderr);
    {
        Kor_LogFile log(777, false);
    }
    EXPECT_EQ(out.text(), "");
    EXPECT_EQ(err.text(), "");
}

TEST(LogConfiguration, TheLocalConfigurationIsOnlyKept)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    EXPECT_EQ(log.GetLocalConf(), nullptr);
    const auto local = std::make_unique<Kor_LogConf>(); // too large for a stack

    log.SetLocalConf(local.get());
    EXPECT_EQ(log.GetLocalConf(), local.get());
    EXPECT_NE(log.GetConf(), local.get());

    log.SetLocalConf(nullptr);
    EXPECT_EQ(log.GetLocalConf(), nullptr);
}

TEST(LogConfiguration, WithALogDirectoryTheConfigurationIsReadAtConstruction)
{
    const LogDirectory directory("1\nfile_size_limit_in_mb=15\nNet 3 7\n");
    const Kor_LogFile log(777, false);
    Kor_LogFile& same = const_cast<Kor_LogFile&>(log);

    EXPECT_EQ(same.GetConf()->GetOutput(), 1);
    EXPECT_EQ(same.GetConf()->GetSizeLimitInMb(), 15);
    EXPECT_EQ(same.GetLogLevel(30000), 7);
}

KOR_CHILD(constructs_without_a_log_directory)
{
    // Here "log" is a directory of the current one, and its file would say output 2.
    Kor_LogFile log(777, false);
    if (log.GetConf()->GetOutput() != 0)
        return 1; // read too early
    log.Open("viewer");
    return log.GetConf()->GetOutput() == 2 ? 0 : 2;
}

TEST(LogConfiguration, WithoutALogDirectoryTheConfigurationWaitsForOpen)
{
    const TempDirectory directory;
    ::CreateDirectoryA(directory.file("log").c_str(), nullptr);
    write_file(directory.file("log\\logger"), TO_FILE);
    ChildOptions options;
    options.directory = directory.path();

    const ChildResult child = run_child("constructs_without_a_log_directory", options);

    EXPECT_EQ(child.exit_code, 0u);
    EXPECT_NE(text_of(child.out).find("Kor_LogFile - Warning - No configuration file\n"), std::string::npos);
}
} // namespace
