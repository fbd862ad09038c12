// The correction of the system's clock rate, the last step of the first configuration.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include "import_hook.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(IsDebuggerPresent);
KOR_IMPORT(GetSystemTimeAdjustment);
KOR_IMPORT(SetSystemTimeAdjustment);

class LogClock : public ::testing::Test
{
protected:
    LogClock() { EXPECT_TRUE(m_present.installed() && m_get.installed() && m_set.installed()); }

    /// The calls that the configuration of a new log makes.
    Lines calls_of_a_new_log()
    {
        m_calls.clear();
        const LogDirectory directory;
        Kor_LogFile log(777, false);
        log.Open("test.log", "viewer");
        return m_calls;
    }

    BOOL m_debugger = FALSE;
    BOOL m_disabled = FALSE;
    BOOL m_get_result = TRUE;
    BOOL m_set_result = TRUE;
    Lines m_calls;

    Hook<IsDebuggerPresentImport> m_present{
        [this]() -> BOOL
        {
            m_calls.push_back("debugger?");
            return m_debugger;
        }};
    Hook<GetSystemTimeAdjustmentImport> m_get{
        [this](DWORD* adjustment, DWORD* increment, BOOL* disabled) -> BOOL
        {
            m_calls.push_back("get");
            *adjustment = 156250;
            *increment = 156250;
            *disabled = m_disabled;
            return m_get_result;
        }};
    Hook<SetSystemTimeAdjustmentImport> m_set{
        [this](DWORD adjustment, BOOL disabled) -> BOOL
        {
            m_calls.push_back("set " + std::to_string(adjustment) + " " + std::to_string(disabled));
            ::SetLastError(ERROR_PRIVILEGE_NOT_HELD);
            return m_set_result;
        }};
};

TEST_F(LogClock, AnEnabledAdjustmentIsSetTo10000)
{
    EXPECT_EQ(calls_of_a_new_log(), (Lines{"debugger?", "get", "set 10000 0"}));
}

TEST_F(LogClock, ADisabledAdjustmentIsLeftAlone)
{
    m_disabled = TRUE;
    EXPECT_EQ(calls_of_a_new_log(), (Lines{"debugger?", "get"}));
}

TEST_F(LogClock, UnderADebuggerTheClockIsNotLookedAt)
{
    m_debugger = TRUE;
    EXPECT_EQ(calls_of_a_new_log(), Lines{"debugger?"});
}

TEST_F(LogClock, AnAdjustmentThatCannotBeReadIsLeftAlone)
{
    m_get_result = FALSE;
    EXPECT_EQ(calls_of_a_new_log(), (Lines{"debugger?", "get"}));
}

TEST_F(LogClock, AnAdjustmentThatCannotBeSetIsNoFailure)
{
    m_set_result = FALSE;
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    EXPECT_EQ(log.Open("test.log", "viewer"), 0);
    EXPECT_EQ(log.InitConf(), 0);
}

TEST_F(LogClock, TheFirstConfigurationHappensOnceForEachLog)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false); // with a log directory: now
    EXPECT_EQ(m_calls.size(), 3u);
    log.Open("test.log", "viewer");
    log.InitConf();
    EXPECT_EQ(m_calls.size(), 3u);

    Kor_LogFile other(777, false);
    EXPECT_EQ(m_calls.size(), 6u);
}
} // namespace
