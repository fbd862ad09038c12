// The functions for C: the general log.

#include "lumlog.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"
#include "recording_destination.h"
#include "wide_directory.h"

namespace
{
using Lines = std::vector<std::string>;
constexpr char UTF8[] = "Gr\xC3\xBC\xC3\x9F"
                        "e \xE6\x97\xA5\xE6\x9C\xAC";
constexpr wchar_t WIDE[] = L"Gr\u00fc\u00dfe \u65e5\u672c";

/// KorGLog, opened the way a C program does it.
class CLog : public ::testing::Test
{
protected:
    CLog() { EXPECT_EQ(lum_open("test.log", "tool"), LUM_OK); }
    ~CLog() override { KorGLog.ClearAllLogDestinations(); }

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
    const lum_site m_site = {sizeof(lum_site), 77, "C:\\src\\tool.c", "load"};
};

std::string line_of(const std::string& text)
{
    return "<time> WARNING (310) tool (<pid>,<tid>)  tool.c(77) load -> " + text;
}
} // namespace

TEST_F(CLog, TheVersionIsTheHeaders) { EXPECT_EQ(lum_version(), LUM_VERSION); }

TEST_F(CLog, OpeningOpensThePrivateFileUnderTheName)
{
    EXPECT_EQ(m_directory.lines(), Lines{"===== tool (<pid>) Start Session at <time>, User <user> on <host> ====="});
    char name[16];
    EXPECT_EQ(lum_app_name(name, sizeof name), 4u);
    EXPECT_STREQ(name, "tool");
    EXPECT_EQ(lum_open("other.log", "other"), LUM_OK);
    EXPECT_EQ(m_directory.text("other.log"), "");
}

TEST_F(CLog, ReopeningGoesOnInAnotherFile)
{
    EXPECT_EQ(lum_reopen("other.log", "other", LUM_NO_BANNERS), LUM_OK);
    lum_write(&m_site, LUM_WARNING, 310, "there", LUM_ZT);
    EXPECT_EQ(m_directory.lines("other.log"), Lines{line_of("there")});
}

TEST_F(CLog, TheFolderIsGivenAsUtf8)
{
    char folder[512];
    EXPECT_EQ(lum_folder(folder, sizeof folder), m_directory.path().size());
    EXPECT_EQ(folder, m_directory.path());
}

TEST_F(CLog, TheFolderMayHaveCharactersThatTheCodePageLacks)
{
    const WideLogFolder variable(L"Z:\\logs\\\u65e5\u672c");
    char folder[64];
    EXPECT_EQ(lum_folder(folder, sizeof folder), 14u);
    EXPECT_STREQ(folder, "Z:\\logs\\\xE6\x97\xA5\xE6\x9C\xAC");
}

TEST_F(CLog, ATextThatDoesNotFitIsCutBetweenCharactersAndItsWholeLengthIsTold)
{
    lum_set_thread_name("ab\xE6\x97\xA5");
    char name[8];
    EXPECT_EQ(lum_thread_name(nullptr, 0), 5u);
    EXPECT_EQ(lum_thread_name(name, 0), 5u);
    EXPECT_EQ(lum_thread_name(name, 6), 5u);
    EXPECT_STREQ(name, "ab\xE6\x97\xA5");
    for (const std::size_t size : {5u, 4u, 3u})
    {
        EXPECT_EQ(lum_thread_name(name, size), 5u);
        EXPECT_STREQ(name, "ab") << size;
    }
    EXPECT_EQ(lum_thread_name(name, 1), 5u);
    EXPECT_STREQ(name, "");
}

// Filtering ------------------------------------------------------------------------------------------
TEST_F(CLog, LevelsAreThoseOfTheConfiguration)
{
    EXPECT_EQ(lum_level(310), 5);
    EXPECT_EQ(lum_level(311), 0);
    EXPECT_EQ(lum_level(312), 4);
    EXPECT_EQ(lum_wants(5, 310), 1);
    EXPECT_EQ(lum_wants(6, 310), 0);
    EXPECT_EQ(lum_wants(0, 311), 1);
    EXPECT_EQ(lum_wants(1, 311), 0);
    for (const int package : {-1, 750, 2147483647})
    {
        EXPECT_EQ(lum_level(package), 4) << package;
        EXPECT_EQ(lum_wants(4, package), 1) << package;
        EXPECT_EQ(lum_wants(5, package), 0) << package;
    }
}

TEST_F(CLog, TheGateRejectsWhatIsNotWantedOnceTheLevelIsKnown)
{
    const lum_gate* const gate = lum_get_gate();
    ASSERT_EQ(gate, &lum_process_gate);
    EXPECT_EQ(gate->size, sizeof(lum_gate));
    EXPECT_EQ(lum_wants(7, 310), 0);
    EXPECT_EQ(lum_rejected(gate, 6, 310), 1);
    EXPECT_EQ(lum_rejected(gate, 5, 310), 0);
    EXPECT_EQ(lum_rejected(gate, 7, -1), 0);
    EXPECT_EQ(lum_rejected(gate, 7, 750), 0);
}

TEST_F(CLog, TheGateRejectsNothingAfterAnyChange)
{
    const auto closes_again = [] { return lum_wants(7, 310) == 0 && lum_rejected(&lum_process_gate, 7, 310) == 1; };
    ASSERT_TRUE(closes_again());
    lum_set_client("192.0.2.7", 3);
    EXPECT_EQ(lum_rejected(&lum_process_gate, 7, 310), 0);
    ASSERT_TRUE(closes_again());
    ASSERT_EQ(lum_set_level(310, 6, 1), LUM_OK);
    EXPECT_EQ(lum_rejected(&lum_process_gate, 7, 310), 0);
    ASSERT_TRUE(closes_again());
    Kor_LogConf* const local = new Kor_LogConf;
    KorGLog.SetLocalConf(local);
    EXPECT_EQ(lum_rejected(&lum_process_gate, 7, 310), 0);
    KorGLog.SetLocalConf(nullptr);
    delete local;
}

TEST_F(CLog, TheGateAgreesWithTheClassForEveryPackageAndLevel)
{
    for (int package = -1; package <= LUM_PACKAGE_COUNT; ++package)
        for (int level = 0; level <= 8; ++level)
        {
            lum_wants(level, package);
            ASSERT_EQ(lum_rejected(&lum_process_gate, level, package), KorGLog.IsRejected(level, package) ? 1 : 0);
            ASSERT_EQ(lum_wants(level, package), KorGLog.CheckMsgLevel(package * 10000L, level)) << package;
        }
}

// Writing --------------------------------------------------------------------------------------------
TEST_F(CLog, AFinishedTextIsNoFormat)
{
    lum_write(&m_site, LUM_WARNING, 310, "100% of %s and %n", LUM_ZT);
    EXPECT_EQ(lines(), Lines{line_of("100% of %s and %n")});
}

TEST_F(CLog, AFormatThatCannotBeMeantBecomesALineAndNothingElse)
{
    const std::string error = "!!! ERROR !!! Caught exception while formatting log message - Check log line for format "
                              "discrepancy and null values. !!! ERROR !!!";
    // As from a language that checks none of them.
    void(LUM_CALL* const write)(const lum_site*, int, int, const char*, ...) = &lum_writef;
    const std::vector<const char*> formats = {nullptr, "a%nb", "%d %hhn", "%5n", "%lc%n"};
    for (const char* const format : formats)
    {
        std::int64_t untouched[2] = {42, 42};
        write(&m_site, LUM_WARNING, 310, format, &untouched[0], &untouched[1]);
        EXPECT_EQ(untouched[0], 42) << format;
        EXPECT_EQ(untouched[1], 42) << format;
    }
    EXPECT_EQ(lines(), Lines(formats.size(), line_of(error)));
}

TEST_F(CLog, AFormatThatEndsInTheMiddleIsWrittenAsTheRuntimeTakesIt)
{
    void(LUM_CALL* const write)(const lum_site*, int, int, const char*, ...) = &lum_writef;
    for (const char* const format : {"%", "%5", "%-", "%.", "%l", "100%"})
        write(&m_site, LUM_WARNING, 310, format, 1);
    EXPECT_EQ(lines().size(), 6u);
    lum_writef(&m_site, LUM_WARNING, 310, "%s", "still there");
    EXPECT_EQ(lines().back(), line_of("still there"));
}

TEST_F(CLog, ATextHasTheLengthThatIsGiven)
{
    lum_write(&m_site, LUM_WARNING, 310, "front.png and more", 9);
    lum_write(&m_site, LUM_WARNING, 310, "", 0);
    lum_write(&m_site, LUM_WARNING, 310, nullptr, 0);
    lum_write(&m_site, LUM_WARNING, 310, nullptr, LUM_ZT);
    EXPECT_EQ(lines(), (Lines{line_of("front.png"), line_of(""), line_of(""), line_of("")}));
}

TEST_F(CLog, ANewlineIsAddedOnlyWhereThereIsNone)
{
    RecordingDestination seen;
    KorGLog.RegisterLogDestination(&seen);
    lum_write(&m_site, LUM_WARNING, 310, "one", 3);
    lum_write(&m_site, LUM_WARNING, 310, "two\n", 4);
    lum_writef(&m_site, LUM_WARNING, 310, "%s", "three");
    ASSERT_EQ(seen.messages.size(), 3u);
    EXPECT_EQ(seen.messages[0].text, "one\n");
    EXPECT_EQ(seen.messages[0].length, 4u);
    EXPECT_EQ(seen.messages[1].text, "two\n");
    EXPECT_EQ(seen.messages[2].text, "three\n");
}

TEST_F(CLog, AFinishedTextMayBeOfAnyLength)
{
    for (const std::size_t length : {2045u, 2046u, 2047u, 2048u, 100000u})
        lum_write(&m_site, LUM_WARNING, 310, std::string(length, 'x').data(), length);
    const Lines written = lines();
    ASSERT_EQ(written.size(), 5u);
    EXPECT_EQ(written[0], line_of(std::string(2045, 'x')));
    EXPECT_EQ(written[1], line_of(std::string(2046, 'x')));
    EXPECT_EQ(written[2], line_of(std::string(2047, 'x')));
    EXPECT_EQ(written[3], line_of(std::string(2048, 'x')));
    EXPECT_EQ(written[4], line_of(std::string(100000, 'x')));
}

TEST_F(CLog, AZeroByteInATextIsWrittenAsABlank)
{
    lum_write(&m_site, LUM_WARNING, 310, "a\0b", 3);
    EXPECT_EQ(lines(), Lines{line_of("a b")});
}

TEST_F(CLog, AWideTextIsUtf8InTheFile)
{
    lum_write_wide(&m_site, LUM_WARNING, 310, WIDE, LUM_ZT);
    lum_write_wide(&m_site, LUM_WARNING, 310, WIDE, 5);
    const wchar_t half[] = {L'a', 0xD800, L'b', 0};
    lum_write_wide(&m_site, LUM_WARNING, 310, half, 3);
    lum_write_wide(&m_site, LUM_WARNING, 310, nullptr, 0);
    EXPECT_EQ(
        lines(), (Lines{
                     line_of(UTF8),
                     line_of("Gr\xC3\xBC\xC3\x9F"
                             "e"),
                     line_of("a\xEF\xBF\xBD"
                             "b"),
                     line_of("")}));
}

TEST_F(CLog, AFormatIsThatOfTheSystemsRuntime)
{
    lum_writef(&m_site, LUM_WARNING, 310, "%d %lld %s %.2f %c", 42, lum_int64{1} << 40, UTF8, 2.5, 'x');
    EXPECT_EQ(lines(), Lines{line_of("42 1099511627776 " + std::string(UTF8) + " 2.50 x")});
}

TEST_F(CLog, ArgumentsThatDoNotFitCostTheLineAlone)
{
    const char* const wild = reinterpret_cast<const char*>(8);
    lum_writef(&m_site, LUM_WARNING, 310, "%s", wild);
    lum_writef(&m_site, LUM_WARNING, 310, "%d", 1);
    const Lines written = lines();
    ASSERT_EQ(written.size(), 2u);
    EXPECT_NE(written[0].find("!!! ERROR !!!"), std::string::npos);
    EXPECT_EQ(written[1], line_of("1"));
}

TEST_F(CLog, AnErrorCodeIsExplained)
{
    lum_write_error(&m_site, LUM_WARNING, 310, ERROR_FILE_NOT_FOUND, "cannot open %s", LUM_ZT);
    lum_write_error(&m_site, LUM_WARNING, 310, 0xDEADBEEF, "cannot open", LUM_ZT);
    const Lines written = lines();
    ASSERT_EQ(written.size(), 2u);
    EXPECT_EQ(written[0].find(line_of("cannot open %s ")), 0u);
    EXPECT_GT(written[0].size(), line_of("cannot open %s ").size() + 5);
    EXPECT_EQ(written[1], line_of("cannot open Unable to fetch message for system error -559038737."));
}

TEST_F(CLog, ABareLineHasNoHeadline)
{
    lum_write_bare(LUM_WARNING, 310, 0, "bare", LUM_ZT);
    lum_write_bare(LUM_WARNING, 310, 4711, "with a code", LUM_ZT);
    lum_write_bare(LUM_INFO, 310, 0, "not wanted", LUM_ZT);
    EXPECT_EQ(lines(), (Lines{"bare", "with a code"}));
}

TEST_F(CLog, WithoutASiteThereIsNoPlace)
{
    const lum_site foreign = {0, 77, "tool.c", "load"}; // of a size that no version has had
    lum_write(nullptr, LUM_WARNING, 310, "one", LUM_ZT);
    lum_writef(&foreign, LUM_WARNING, 310, "two");
    EXPECT_EQ(
        lines(), (Lines{
                     "<time> WARNING (310) tool (<pid>,<tid>)   -> one",
                     "<time> WARNING (310) tool (<pid>,<tid>)   -> two",
                 }));
}

TEST_F(CLog, ASiteThatHasGrownIsUnderstood)
{
    struct
    {
        lum_site known;
        void* more;
    } later = {{sizeof later, 77, "tool.c", "load"}, nullptr};
    lum_write(&later.known, LUM_WARNING, 310, "one", LUM_ZT);
    EXPECT_EQ(lines(), Lines{line_of("one")});
}

TEST_F(CLog, WhatNobodyWantsIsNotWritten)
{
    lum_write(&m_site, LUM_INFO, 310, "x", 1);
    lum_write_wide(&m_site, LUM_INFO, 310, L"x", 1);
    lum_writef(&m_site, LUM_INFO, 310, "x");
    lum_write_error(&m_site, LUM_INFO, 310, 2, "x", 1);
    lum_write(&m_site, LUM_SEVERE, 311, "x", 1);
    EXPECT_EQ(lines(), Lines{});
}

TEST_F(CLog, TheThreadsErrorsStayAsTheyWere)
{
    ::SetLastError(4711);
    errno = 17;
    lum_write(&m_site, LUM_WARNING, 310, "x", 1);
    lum_write_wide(&m_site, LUM_WARNING, 310, L"x", 1);
    lum_writef(&m_site, LUM_WARNING, 310, "%d", 1);
    lum_write_error(&m_site, LUM_WARNING, 310, 2, "x", 1);
    lum_set_client("192.0.2.7", 1);
    lum_set_thread_name("Main");
    lum_wants(7, 310);
    lum_remove_destination(lum_add_destination([](void*, const lum_message*) { return 0; }, nullptr));
    EXPECT_EQ(::GetLastError(), 4711u);
    EXPECT_EQ(errno, 17);
}

// Whom the lines are about ----------------------------------------------------------------------------
TEST_F(CLog, ClientSessionAndThreadStandInTheLine)
{
    lum_set_client("192.0.2.7", 42);
    lum_set_thread_name("Worker-1");
    lum_write(&m_site, LUM_WARNING, 310, "one", LUM_ZT);
    char client[32];
    int session = 0;
    EXPECT_EQ(lum_client(client, sizeof client, &session), 9u);
    EXPECT_STREQ(client, "192.0.2.7");
    EXPECT_EQ(session, 42);
    lum_set_client(nullptr, 0);
    lum_set_thread_name(nullptr);
    lum_write(&m_site, LUM_WARNING, 310, "two", LUM_ZT);
    EXPECT_EQ(lum_client(client, sizeof client, nullptr), 0u);
    EXPECT_EQ(lum_thread_name(client, sizeof client), 0u);

    EXPECT_EQ(
        lines(), (Lines{
                     "<time> WARNING (310) tool (<pid>,<tid>|Worker-1) ClientIP(192.0.2.7) SessionId(42) "
                     "tool.c(77) load -> one",
                     line_of("two"),
                 }));
}

// Names of the DLL ------------------------------------------------------------------------------------
TEST(CLogByName, FunctionsAreFoundUndecorated)
{
    for (const auto& [name, function] :
         {std::pair<const char*, void*>{"lum_open", reinterpret_cast<void*>(&lum_open)},
          {"lum_writef", reinterpret_cast<void*>(&lum_writef)},
          {"lum_get_gate", reinterpret_cast<void*>(&lum_get_gate)}})
        EXPECT_EQ(reinterpret_cast<void*>(::GetProcAddress(library_module(), name)), function) << name;
}

TEST(CLogUnopened, WritingBeforeOpeningIsNoHarm)
{
    const LogDirectory directory(TO_STDERR);
    CapturedStream err(stderr);
    lum_write(nullptr, LUM_WARNING, 310, "early", LUM_ZT);
    EXPECT_NE(err.text().find("early"), std::string::npos);
}

TEST(CLogUnopened, WithoutAFileAndWithoutBannersNothingIsWritten)
{
    const LogDirectory directory(TO_STDERR);
    CapturedStream err(stderr);
    EXPECT_EQ(lum_open_with(nullptr, "tool", LUM_NO_BANNERS), LUM_OK);
    EXPECT_EQ(err.text(), "");
    char name[16];
    EXPECT_EQ(lum_app_name(name, sizeof name), 4u);
}

TEST(CLogUnopened, NullNamesAreNoHarm)
{
    const LogDirectory directory(TO_STDERR);
    CapturedStream err(stderr);
    EXPECT_EQ(lum_open(nullptr, nullptr), LUM_OK);
    EXPECT_EQ(lum_app_name(nullptr, 0), 0u);
}
