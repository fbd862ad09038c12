// The event source, and what is reported to the Windows event log.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(RegisterEventSourceA);
KOR_IMPORT(ReportEventA);
KOR_IMPORT(CloseEventLog);

const HANDLE SOURCE = reinterpret_cast<HANDLE>(0x5150);

struct Event
{
    HANDLE source;
    int type;
    int category;
    unsigned long code;
    PSID user;
    Lines texts;
    unsigned long data_size;
    void* data;
};

class LogEvents : public ::testing::Test
{
protected:
    LogEvents()
    {
        EXPECT_TRUE(m_register.installed());
        EXPECT_TRUE(m_report.installed());
        EXPECT_TRUE(m_close.installed());
    }

    const LogDirectory m_directory{TO_EVENT_LOG};
    Lines m_names;            ///< of registered sources
    HANDLE m_source = SOURCE; ///< what registration gives
    DWORD m_source_error = 0; ///< and the last error beside it
    BOOL m_report_result = TRUE;
    std::vector<Event> m_events;
    std::vector<HANDLE> m_closed;

    Hook<RegisterEventSourceAImport> m_register{
        [this](const char* server, const char* name) -> HANDLE
        {
            EXPECT_EQ(server, nullptr);
            m_names.push_back(name == nullptr ? "(null)" : name);
            ::SetLastError(m_source_error);
            return m_source;
        }};
    Hook<ReportEventAImport> m_report{
        [this](
            HANDLE source, WORD type, WORD category, DWORD code, PSID user, WORD count, DWORD size, LPCSTR* texts,
            void* data) -> BOOL
        {
            m_events.push_back({source, type, category, code, user, Lines(texts, texts + count), size, data});
            ::SetLastError(ERROR_LOG_FILE_FULL);
            return m_report_result;
        }};
    Hook<CloseEventLogImport> m_close{
        [this](HANDLE source) -> BOOL
        {
            m_closed.push_back(source);
            return TRUE;
        }};
};

// The source ---------------------------------------------------------------------
TEST_F(LogEvents, OpeningRegistersASourceOfTheApplicationsName)
{
    Kor_LogFile log(777, false);
    EXPECT_EQ(log.Open("viewer"), 0);
    EXPECT_EQ(log.Open("server"), 0);

    EXPECT_EQ(m_names, Lines{"viewer"});
}

TEST_F(LogEvents, TheSourceIsRegisteredByEveryFormOfOpen)
{
    Kor_LogFile by_stream(777, false);
    by_stream.Open(std::fopen(m_directory.file("stream.log").c_str(), "a"), "by stream");
    Kor_LogFile by_null(777, false);
    by_null.Open(static_cast<std::FILE*>(nullptr), "by null");
    Kor_LogFile by_file(777, false);
    by_file.Open("test.log", "by file");
    Kor_LogFile by_reopen(777, false);
    by_reopen.ReOpen("test.log", "by reopen", false);
    by_reopen.ReOpen("test.log", "again", false); // open already

    EXPECT_EQ(m_names, (Lines{"by stream", "by null", "by file", "by reopen"}));
}

TEST_F(LogEvents, TheSourceOfAnEmptyNameIsTheNameThatWasKept)
{
    Kor_LogFile first(777, false);
    first.Open("viewer");
    Kor_LogFile second(777, false);
    second.Open("");

    EXPECT_EQ(m_names, (Lines{"viewer", "viewer"}));
}

TEST_F(LogEvents, TheSourceIsReleasedWithCloseEventLogWhenTheLogGoes)
{
    void* const hook = reinterpret_cast<void*>(&::SetLastError); // never to be called
    const ImportHook deregister("DeregisterEventSource", hook);
    {
        Kor_LogFile log(777, false);
        log.Open("viewer");
        log.Close();
        EXPECT_TRUE(m_closed.empty());
    }
    EXPECT_EQ(m_closed, std::vector<HANDLE>{SOURCE});
    EXPECT_FALSE(deregister.installed());
}

TEST_F(LogEvents, ALogThatWasNeverOpenedReleasesNoSource)
{
    {
        Kor_LogFile log(777, false);
    }
    EXPECT_TRUE(m_closed.empty());
    EXPECT_TRUE(m_names.empty());
}

TEST_F(LogEvents, ASourceThatCannotBeRegisteredIsReportedOnStandardError)
{
    m_source = nullptr;
    m_source_error = ERROR_ACCESS_DENIED;
    CapturedStream err(stderr);
    {
        Kor_LogFile log(777, true);
        EXPECT_EQ(log.Open("viewer"), 0);
        EXPECT_EQ(
            err.text(), "Kor_LogFile::Init - RegisterEventSource(viewer), Unable to use System Log, error = <5>\n");
        EXPECT_EQ(m_events.size(), 1u); // the banner: reporting goes on without a source
    }
    ASSERT_EQ(m_events.size(), 2u);
    EXPECT_EQ(m_events[0].source, nullptr);
    EXPECT_TRUE(m_closed.empty());
}

TEST_F(LogEvents, TheSourceIsThereForTheStartBanner)
{
    Kor_LogFile log(777, true);
    log.Open("viewer");

    ASSERT_EQ(m_events.size(), 1u);
    EXPECT_EQ(m_events[0].source, SOURCE);
    EXPECT_EQ(m_events[0].texts.size(), 1u);
    EXPECT_EQ(m_events[0].texts[0].rfind("===== viewer (", 0), 0u); // and so is the name
}

TEST_F(LogEvents, ALogWithNeitherFileNorSourceIsStillClosed)
{
    m_source = nullptr;
    CapturedStream err(stderr);
    Kor_LogFile log(777, false);
    EXPECT_EQ(log.Open("viewer"), 0);
    EXPECT_EQ(log.Open("server"), 0); // tries again
    EXPECT_EQ(m_names, (Lines{"viewer", "server"}));
    EXPECT_STREQ(log.GetApplicationName(), "server");

    m_source = SOURCE;
    EXPECT_EQ(log.Open("third"), 0);
    EXPECT_EQ(log.Open("fourth"), 0);
    EXPECT_EQ(m_names, (Lines{"viewer", "server", "third"}));
}

TEST_F(LogEvents, AFileIsEnoughToBeOpen)
{
    m_source = nullptr;
    CapturedStream err(stderr);
    Kor_LogFile log(777, false);
    EXPECT_EQ(log.Open("test.log", "viewer"), 0);
    EXPECT_EQ(log.Open("server"), 0);

    EXPECT_EQ(m_names, Lines{"viewer"});
}

TEST_F(LogEvents, AnErrorNumberIsPrintedWithItsSign)
{
    m_source = nullptr;
    m_source_error = 0x80070005;
    CapturedStream err(stderr);
    Kor_LogFile log(777, false);
    log.Open("viewer");

    EXPECT_EQ(
        err.text(),
        "Kor_LogFile::Init - RegisterEventSource(viewer), Unable to use System Log, error = <-2147024891>\n");
}

// Events -------------------------------------------------------------------------
TEST_F(LogEvents, AHeadlineMessageIsReportedWithItsHeadlineAndItsText)
{
    Kor_LogFile log(777, false);
    log.Open("viewer");
    log.StoreParams("Kor_Image", "Load", 210, 4, 17);
    log.Log("loaded %d", 3);

    ASSERT_EQ(m_events.size(), 1u);
    EXPECT_EQ(m_events[0].source, SOURCE);
    EXPECT_EQ(m_events[0].type, EVENTLOG_WARNING_TYPE);
    EXPECT_EQ(m_events[0].category, 17);
    EXPECT_EQ(m_events[0].code, 65535u);
    EXPECT_EQ(m_events[0].user, nullptr);
    EXPECT_EQ(m_events[0].data_size, 0u);
    EXPECT_EQ(m_events[0].data, nullptr);
    ASSERT_EQ(m_events[0].texts.size(), 2u);
    EXPECT_EQ(masked_line(m_events[0].texts[0]), "<time> [<pid>,<tid>]4 Kor_Image(210) Load:");
    EXPECT_EQ(m_events[0].texts[1], "loaded 3\n");
}

TEST_F(LogEvents, ABareMessageIsReportedByItsTextAlone)
{
    Kor_LogFile log(777, false);
    log.Open("viewer");
    log.StoreParams("Kor_Image", "Load", 210, 3, 17);
    log.LogNoHeadline("loaded");
    log.PrintOrLog(nullptr, "as it is");

    ASSERT_EQ(m_events.size(), 2u);
    EXPECT_EQ(m_events[0].code, 65534u);
    EXPECT_EQ(m_events[0].category, 17);
    EXPECT_EQ(m_events[0].texts, Lines{"loaded\n"});
    EXPECT_EQ(m_events[1].texts, Lines{"as it is"}); // nothing is added here
}

TEST_F(LogEvents, TheCodeOfAMessageIsTheEventsNumber)
{
    Kor_LogFile log(777, false);
    log.Open("viewer");
    for (const unsigned long code : {0ul, 1ul, 2170005ul, 65534ul, 65536ul, 4294967295ul})
    {
        log.LogNoHeadline(code, "x");
        EXPECT_EQ(m_events.back().code, code);
        EXPECT_EQ(m_events.back().texts.size(), 1u) << code;
    }
}

TEST_F(LogEvents, TheLevelDecidesTheTypeOfTheEvent)
{
    const int types[] = {1, 1, 1, 1, 2, 4, 4, 4};
    Kor_LogFile log(777, false);
    log.Open("viewer");
    for (int level = 0; level <= 7; ++level)
    {
        log.SetOutLogLevel(level);
        log.Log("x");
        EXPECT_EQ(m_events.back().type, types[level]) << level;
        EXPECT_EQ(masked_line(m_events.back().texts[0]), "<time> [<pid>,<tid>]" + std::to_string(level) + ":");
        log.LogNoHeadline("x");
        EXPECT_EQ(m_events.back().type, types[level]) << level;
    }
}

TEST_F(LogEvents, ALevelOutOfRangeIsReportedWithoutHarm)
{
    Kor_LogFile log(777, false);
    log.Open("viewer");
    for (const int level : {-1, 8, 1000000, -2147483647 - 1})
    {
        log.SetOutLogLevel(level);
        log.Log("x");
        EXPECT_EQ(m_events.back().texts[1], "x\n") << level;
    }
}

TEST_F(LogEvents, ClientSessionAndThreadStandInTheHeadline)
{
    Kor_LogFile log(777, false);
    log.Open("viewer");
    log.LogNoHeadline("first");
    log.SetIPAndSID("10.0.0.7", 3);
    log.SetThreadName("Loader");
    log.StoreParams("Kor_Image", "Load", 210, 4, 17);
    log.Log("x");
    log.SetIP(nullptr);
    log.SetThreadName(nullptr);

    EXPECT_EQ(
        masked_line(m_events.back().texts[0]),
        "<time> [<pid>,<tid> Loader]4ClientIP(10.0.0.7) SessionId(3) Kor_Image(210) Load:");
}

TEST_F(LogEvents, AFailingReportIsIgnored)
{
    m_report_result = FALSE;
    Kor_LogFile log(777, false);
    log.Open("viewer");
    ::SetLastError(1234);
    EXPECT_EQ(log.LogNoHeadline("one"), 0);
    EXPECT_EQ(::GetLastError(), 1234u);
    EXPECT_EQ(log.LogNoHeadline("two"), 0);

    EXPECT_EQ(m_events.size(), 2u);
}

TEST_F(LogEvents, AnOpenFileGetsNothingWhileTheOutputIsTheEventLog)
{
    Kor_LogFile log(777, false);
    log.Open("test.log", "viewer");
    log.Log("x");

    EXPECT_EQ(m_events.size(), 1u);
    EXPECT_EQ(m_directory.text(), "");
}

TEST_F(LogEvents, OutputTwoGoesToTheEventLogOnlyWhileNoFileIsOpen)
{
    m_directory.configure(TO_FILE);
    Kor_LogFile log(777, false);
    log.Open("viewer");
    log.LogNoHeadline("no file yet");
    EXPECT_EQ(m_events.size(), 1u);

    log.ReOpen("test.log", "viewer", false);
    log.LogNoHeadline("file");
    EXPECT_EQ(m_events.size(), 1u);
    EXPECT_EQ(m_directory.text(), "file\n");
}
} // namespace
