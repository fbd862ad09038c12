// The functions for C programs.

#include "Kor_JLogJNIInterface.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <stdexcept>

#include "Kor_LogFile.h"
#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

/// KorGLog, opened the way a C program does it.
class CEntry : public ::testing::Test
{
protected:
    CEntry() { EXPECT_EQ(OpenLog("test.log", "tool"), 0); }
    ~CEntry() override { KorGLog.ClearAllLogDestinations(); }

    /// The lines behind the banner of the start.
    Lines lines() const
    {
        Lines all = m_directory.lines();
        EXPECT_FALSE(all.empty());
        if (!all.empty())
            all.erase(all.begin());
        return all;
    }

    const LogDirectory m_directory{TO_FILE + "Tool 310 5\nQuiet 311 0\n"};
};
} // namespace

TEST_F(CEntry, OpenLogOpensThePrivateFileUnderTheName)
{
    EXPECT_EQ(m_directory.lines(), Lines{"===== tool (<pid>) Start Session at <time>, User <user> on <host> ====="});
    EXPECT_STREQ(KorGLog.GetApplicationName(), "tool");
}

TEST_F(CEntry, OpeningAgainChangesNothing)
{
    EXPECT_EQ(OpenLog("other.log", "other"), 0);
    EXPECT_STREQ(KorGLog.GetApplicationName(), "tool");
    EXPECT_EQ(m_directory.text("other.log"), "");
}

TEST_F(CEntry, WriteLogWritesALineWithAHeadline)
{
    WriteLog(3, 3100012, 77, "C:\\src\\tool.c", "load", "cannot read front.png");
    EXPECT_EQ(lines(), Lines{"<time> ERROR   (310) tool (<pid>,<tid>)  tool.c(77) load -> cannot read front.png"});
}

TEST_F(CEntry, TheCodeGivesThePackageWhichGivesTheLevel)
{
    WriteLog(6, 3100000, 1, "tool.c", "load", "too detailed");
    WriteLog(5, 3109999, 2, "tool.c", "load", "last code of 310");
    WriteLog(1, 3110000, 3, "tool.c", "load", "311 writes nothing");
    WriteLog(0, 3110000, 4, "tool.c", "load", "but this");
    WriteLog(5, 3099999, 5, "tool.c", "load", "309 has level 4");

    EXPECT_EQ(
        lines(), (Lines{
                     "<time> NOTICE  (310) tool (<pid>,<tid>)  tool.c(2) load -> last code of 310",
                     "<time> NONE    (311) tool (<pid>,<tid>)  tool.c(4) load -> but this",
                 }));
}

TEST_F(CEntry, ALineGetsItsNewline)
{
    RecordingDestination seen;
    KorGLog.RegisterLogDestination(&seen);
    WriteLog(4, 3100000, 1, "tool.c", "load", "one");
    WriteLog(4, 3100000, 1, "tool.c", "load", "two\n");
    ASSERT_EQ(seen.messages.size(), 2u);
    EXPECT_EQ(seen.messages[0].text, "one\n");
    EXPECT_EQ(seen.messages[1].text, "two\n");
}

TEST_F(CEntry, ATestFileDestinationKeepsTheCodesOfPackage217)
{
    Kor_TestLogDestFile copy(m_directory.file("copy.log").c_str());
    KorGLog.RegisterLogDestination(&copy);
    for (const unsigned int code : {2169999u, 2170000u, 2179999u, 2180000u})
        WriteLog(4, code, 1, "tool.c", "load", std::to_string(code).c_str());
    KorGLog.UnregisterLogDestination(&copy);
    EXPECT_EQ(
        m_directory.lines("copy.log"), (Lines{
                                           "<time> WARNING (217) tool (<pid>,<tid>)  tool.c(1) load -> 2170000",
                                           "<time> WARNING (217) tool (<pid>,<tid>)  tool.c(1) load -> 2179999",
                                       }));
}

TEST_F(CEntry, TheDivisionOfTheCodeIsUnsigned)
{
    RecordingDestination seen;
    KorGLog.RegisterLogDestination(&seen);
    WriteLog(4, 4294967295u, 1, "tool.c", "load", "x");

    ASSERT_EQ(seen.messages.size(), 1u);
    EXPECT_EQ(seen.messages[0].package, 429496);
}

TEST_F(CEntry, TheTextIsAFormat)
{
    WriteLog(4, 3100000, 1, "tool.c", "load", "100%% done");
    EXPECT_EQ(lines(), Lines{"<time> WARNING (310) tool (<pid>,<tid>)  tool.c(1) load -> 100% done"});
}

TEST_F(CEntry, AConversionFindsNoArgumentAndCostsTheLine)
{
    for (const char* const text : {"%d files", "%s", "%n"})
        WriteLog(4, 3100000, 1, "tool.c", "load", text);
    const std::string error =
        "<time> WARNING (310) tool (<pid>,<tid>)  tool.c(1) load -> !!! ERROR !!! Caught exception "
        "while formatting log message - Check log line for format discrepancy and null values. "
        "!!! ERROR !!!";
    EXPECT_EQ(lines(), (Lines{error, error, error}));
}

TEST_F(CEntry, MissingTextsAreNoHarm)
{
    WriteLog(4, 3100000, 1, nullptr, nullptr, "no place");
    WriteLog(4, 3100000, 1, "tool.c", "load", "");
    WriteLog(4, 3100000, 1, "tool.c", "load", nullptr);

    const Lines written = lines();
    ASSERT_EQ(written.size(), 3u);
    EXPECT_EQ(written[0], "<time> WARNING (310) tool (<pid>,<tid>)  unknown file(1) -> no place");
    EXPECT_EQ(written[1], "<time> WARNING (310) tool (<pid>,<tid>)  tool.c(1) load -> ");
    EXPECT_NE(written[2].find("!!! ERROR !!!"), std::string::npos);
}

TEST_F(CEntry, TheThreadsErrorsStayAsTheyWere)
{
    ::SetLastError(4711);
    errno = 17;
    WriteLog(4, 3100000, 1, "tool.c", "load", "x");
    EXPECT_EQ(::GetLastError(), 4711u);
    EXPECT_EQ(errno, 17);
}

TEST_F(CEntry, ADestinationsExceptionDoesNotReachACProgram)
{
    struct Thrower : Kor_LogDestBase
    {
        int LogMessage(Kor_LogMTVarsPtr, bool, const char*, unsigned int) override
        {
            throw std::runtime_error("from the destination");
        }
    } thrower;
    KorGLog.RegisterLogDestination(&thrower);
    EXPECT_NO_THROW(WriteLog(4, 3100000, 1, "tool.c", "load", "x"));
    KorGLog.UnregisterLogDestination(&thrower);
    WriteLog(4, 3100000, 2, "tool.c", "load", "y");
    EXPECT_EQ(lines().size(), 3u); // and one about the destination
}

TEST(CEntryByName, BothFunctionsAreFoundUndecorated)
{
    EXPECT_EQ(
        reinterpret_cast<void*>(::GetProcAddress(library_module(), "OpenLog")), reinterpret_cast<void*>(&OpenLog));
    EXPECT_EQ(
        reinterpret_cast<void*>(::GetProcAddress(library_module(), "WriteLog")), reinterpret_cast<void*>(&WriteLog));
}

TEST(CEntryUnopened, WriteLogBeforeOpenLogIsNoHarm)
{
    const LogDirectory directory(TO_STDERR);
    CapturedStream err(stderr);
    WriteLog(4, 3100000, 1, "tool.c", "load", "early");
    EXPECT_NE(err.text().find("early"), std::string::npos);
}

TEST(CEntryUnopened, AFileThatCannotBeOpenedIsReportedAndTheLogWorksWithoutIt)
{
    const LogDirectory directory(TO_STDERR);
    CapturedStream err(stderr);
    EXPECT_EQ(OpenLog("missing\\test.log", "tool"), 0);
    WriteLog(4, 3100000, 1, "tool.c", "load", "to standard error");
    EXPECT_NE(
        err.text().find("Failed to open log file [" + directory.path() + "/missing\\test.log]"), std::string::npos);
    EXPECT_NE(err.text().find("tool.c(1) load -> to standard error"), std::string::npos);
}

TEST(CEntryUnopened, NullNamesOpenNoFileAndGiveNoName)
{
    const LogDirectory directory(TO_STDERR);
    CapturedStream err(stderr);
    EXPECT_EQ(OpenLog(nullptr, nullptr), 0);
    EXPECT_STREQ(KorGLog.GetApplicationName(), "");
}
