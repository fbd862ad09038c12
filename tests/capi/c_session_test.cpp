// The functions for C: session events, reports and what crash handlers call.

#include "lumlog.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Kor_SessionLog.h"
#include "log_directory.h"

namespace
{
/// A UTF-16 file as UTF-8.
std::string text_of_utf16(const std::string& path)
{
    const std::string bytes = read_file(path);
    const auto* const wide = reinterpret_cast<const wchar_t*>(bytes.data());
    const int length = static_cast<int>(bytes.size() / sizeof(wchar_t));
    std::string text(bytes.size() * 2, '\0');
    text.resize(static_cast<std::size_t>(
        ::WideCharToMultiByte(CP_UTF8, 0, wide, length, text.data(), static_cast<int>(text.size()), nullptr, nullptr)));
    return text;
}

std::string path_from(size_t(LUM_CALL* get)(char*, size_t))
{
    char path[512] = "";
    get(path, sizeof path);
    return path;
}

class CSession : public ::testing::Test
{
protected:
    CSession() { lum_open_with("test.log", "tool", LUM_NO_BANNERS); }

    bool has(const std::string& part) const { return m_report.find(part) != std::string::npos; }

    void report()
    {
        const std::string path = m_directory.file("report.xml");
        EXPECT_EQ(lum_session_report(path.c_str()), LUM_OK);
        m_report = text_of_utf16(path);
    }

    const LogDirectory m_directory;
    std::string m_report;
};

EXCEPTION_RECORD record{EXCEPTION_ACCESS_VIOLATION, 0, nullptr, nullptr, 0, {}};
CONTEXT context{};
EXCEPTION_POINTERS exception{&record, &context};
} // namespace

TEST_F(CSession, BeforeTheStartNothingIsDoneAndTheStartIsStillPossible)
{
    lum_session_event("Login", "user1", LUM_EVENT_COUNTED, 1, "x", LUM_ZT);
    lum_session_error("a", "b", LUM_ZT);
    lum_session_mark("a", "b");
    EXPECT_EQ(lum_session_marked("a", "b"), 0u);
    EXPECT_EQ(lum_session_history(), 0u);
    EXPECT_EQ(lum_session_report(nullptr), LUM_FAILED);
    EXPECT_EQ(lum_crash_keep_dll("kernel32.dll"), LUM_FAILED);
    EXPECT_EQ(lum_crash_report_path(nullptr, 0), 0u);
    lum_crash_minidump(nullptr);
    lum_crash_report(nullptr, nullptr, nullptr);
    lum_crash_line(nullptr);
    lum_crash_state();
    lum_crash_end();
    EXPECT_EQ(lum_session_start(0), LUM_OK);
    EXPECT_EQ(lum_session_start(LUM_SESSION_CRASHES), LUM_OK);
}

TEST_F(CSession, AStartIsRefusedOnceTheClassesWereUsedSwitchedOff)
{
    Kor_SessionLog::GetInstance();
    EXPECT_EQ(lum_session_start(0), LUM_OK);
    EXPECT_EQ(lum_session_start(LUM_SESSION_CRASHES), LUM_FAILED);
}

TEST_F(CSession, AReportHasEventsErrorsAndWarnings)
{
    ASSERT_EQ(lum_session_start(0), LUM_OK);
    lum_session_event("Login", "J\xC3\xB6rg", LUM_EVENT_COUNTED | LUM_EVENT_LEVEL(5), 3, "100% of %s", LUM_ZT);
    lum_session_event("Open", nullptr, LUM_EVENT_BEGIN, 1, nullptr, 0);
    lum_session_event("Open", nullptr, LUM_EVENT_END, 1, "front.png and more", 9);
    lum_session_error("Reader", "front.png", LUM_ZT);
    lum_session_warning("Reader", "disk is slow", 4);
    report();
    EXPECT_TRUE(has("<event type='Login' subject='J\xC3\xB6rg' weight='3' level='5'")) << m_report;
    EXPECT_TRUE(has("<info>100% of %s</info>"));
    EXPECT_TRUE(has("<event type='Open' weight='1'"));
    EXPECT_TRUE(has("<info>front.png</info>"));
    EXPECT_TRUE(has("<event type='Error' subject='Reader'"));
    EXPECT_TRUE(has("<info>disk</info>"));
    EXPECT_TRUE(has("<statentry type='Login' subject='J\xC3\xB6rg' count='1'>"));
}

TEST_F(CSession, StatesAliasesAndTheHistoryAreThoseOfTheClass)
{
    ASSERT_EQ(lum_session_start(0), LUM_OK);
    EXPECT_EQ(lum_session_history(), 128u);
    lum_session_set_history(2);
    EXPECT_EQ(lum_session_history(), 2u);
    lum_session_count_as("Page", "1", "Pages", nullptr);
    for (int i = 0; i < 3; ++i)
        lum_session_event("Page", "1", LUM_EVENT_COUNTED, 1, nullptr, 0);
    lum_session_event("Album", "12", LUM_EVENT_STATE, 1, nullptr, 0);
    lum_session_event("Sheet", "a", LUM_EVENT_STATE, 1, nullptr, 0);
    lum_session_remove("Album", nullptr, 0);
    report();
    EXPECT_TRUE(has("<statentry type='Pages' count='3'>"));
    const std::string in_context = m_report.substr(0, m_report.find("</context>"));
    EXPECT_EQ(in_context.find("'Album'"), std::string::npos);
    EXPECT_NE(in_context.find("'Sheet'"), std::string::npos);
}

TEST_F(CSession, TimesAreMarkedAndGivenBack)
{
    ASSERT_EQ(lum_session_start(0), LUM_OK);
    const lum_uint64 before = lum_session_now();
    lum_session_mark("Open", "front.png");
    EXPECT_GE(lum_session_marked("Open", "front.png"), before);
    EXPECT_LE(lum_session_marked("Open", "front.png"), lum_session_now());
    EXPECT_EQ(lum_session_marked("Open", nullptr), 0u);
}

TEST_F(CSession, MemoryUseIsReported)
{
    ASSERT_EQ(lum_session_start(LUM_SESSION_SYSTEM), LUM_OK);
    lum_session_memory_keep("start");
    lum_session_memory("now", 0);
    lum_session_memory_growth("since", "start", 0);
    report();
    EXPECT_TRUE(has("<event type='Mem' subject='now - Status'"));
    EXPECT_TRUE(has("<event type='Mem' subject='since - Difference from start'"));
    EXPECT_TRUE(has("SessionLogData"));
}

TEST_F(CSession, ACrashLeavesMinidumpReportLineAndState)
{
    ASSERT_EQ(lum_session_start(LUM_SESSION_CRASHES), LUM_OK);
    EXPECT_EQ(lum_crash_keep_dll("version.dll"), LUM_OK);
    EXPECT_EQ(lum_crash_keep_dll(std::string(260, 'x').c_str()), LUM_FAILED);
    EXPECT_EQ(lum_crash_keep_dll(nullptr), LUM_FAILED);
    ::RtlCaptureContext(&context);
    lum_crash_minidump(&exception);
    lum_crash_report(
        &exception, nullptr,
        "E\xC3\xA4"
        "7");
    lum_crash_line(&exception);
    lum_crash_state();

    EXPECT_GT(read_file(path_from(&lum_crash_minidump_path)).size(), 1000u);
    const std::string report = text_of_utf16(path_from(&lum_crash_report_path));
    EXPECT_NE(report.find("0xc0000005"), std::string::npos);
    EXPECT_NE(
        report.find("E\xC3\xA4"
                    "7"),
        std::string::npos);
    EXPECT_NE(read_file(path_from(&lum_crash_state_path)).size(), 0u);
    EXPECT_NE(m_directory.text("crashes.log").find("Exception Code: 0xc0000005"), std::string::npos);
    lum_crash_end();
    EXPECT_EQ(lum_crash_report_path(nullptr, 0), 0u);
}

TEST_F(CSession, ACrashReportGoesWhereItIsToldTo)
{
    ASSERT_EQ(lum_session_start(LUM_SESSION_CRASHES), LUM_OK);
    const std::string path = m_directory.file("own.xml");
    lum_crash_line_only(1);
    lum_crash_report(&exception, path.c_str(), nullptr);
    EXPECT_FALSE(file_exists(path));
    lum_crash_line_only(0);
    lum_crash_report(&exception, path.c_str(), nullptr);
    EXPECT_TRUE(file_exists(path));
}

TEST_F(CSession, ASessionReportHasANameOfItsOwn)
{
    ASSERT_EQ(lum_session_start(LUM_SESSION_CRASHES), LUM_OK);
    EXPECT_EQ(lum_session_report(nullptr), LUM_OK);
    EXPECT_NE(path_from(&lum_crash_report_path).find("\\session-"), std::string::npos);
    EXPECT_TRUE(file_exists(path_from(&lum_crash_report_path)));
}
