// Crash handlers as programs install them: from C, from C++ of any compiler, twice, and where they cannot be had.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

#include "Kor_CrashHandlers.h"
#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "log_directory.h"
#include "lumlog.h"
#include "lumlog_crash.hpp"
#include "report_text.h"

namespace
{
using ::testing::HasSubstr;

constexpr int NOT_INSTALLED = 40; // exit codes
constexpr int STILL_THERE = 41;
constexpr unsigned long ABORT = Kor_CrashHandlers::CODE_ABORT;
constexpr unsigned long TERMINATE = Kor_CrashHandlers::CODE_TERMINATE;
constexpr unsigned long EXCEPTION = Kor_CrashHandlers::CODE_EXCEPTION;

/// What a child that crashed has left.
class Left
{
public:
    explicit Left(const char* child)
    {
        ChildOptions options = m_directory.for_child();
        options.timeout_ms = 100000; // a minidump takes Wine a second, and half a minute where the machine is busy
        m_result = run_child(child, options);
    }

    unsigned long exit_code() const { return m_result.finished ? m_result.exit_code : 0; }
    std::string lines() const { return m_directory.text("crashes.log"); }
    std::string log() const { return m_directory.text("test.log"); }

    /// The text of the one report, empty when there is none.
    std::string report() const
    {
        for (const auto& entry : std::filesystem::directory_iterator(m_directory.path()))
            if (entry.path().extension() == ".xml")
                return utf8_of(read_file(entry.path().string()));
        return {};
    }

    bool has(const std::string& extension) const
    {
        for (const auto& entry : std::filesystem::directory_iterator(m_directory.path()))
            if (entry.path().extension() == extension)
                return true;
        return false;
    }

private:
    LogDirectory m_directory;
    ChildResult m_result;
};

void expect_all(const Left& left, unsigned long code, const std::string& code_text)
{
    EXPECT_EQ(left.exit_code(), code);
    EXPECT_THAT(left.lines(), HasSubstr("Exception Code: " + code_text + "\n"));
    EXPECT_EQ(lines_of(left.lines()).size(), 1u);
    EXPECT_THAT(left.report(), HasSubstr(" Code=\"" + code_text + '"'));
    EXPECT_TRUE(left.has(".dmp"));
    EXPECT_TRUE(left.has(".mp"));
    EXPECT_THAT(left.log(), HasSubstr(" SEVERE "));
    EXPECT_THAT(left.log(), HasSubstr('(' + code_text + ") in "));
}

void open_log() { KorGLog.Open("test.log", "test"); }

// Kor_CrashHandlers ----------------------------------------------------------------------------------------------
KOR_CHILD(crashes_with_two_lines_of_code)
{
    open_log();
    if (!Kor_CrashHandlers::Install())
        return NOT_INSTALLED;
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
    return STILL_THERE;
}

TEST(CrashHandlers, NeedNoOtherCallToLeaveEverything)
{
    const Left left("crashes_with_two_lines_of_code");
    expect_all(left, 0xC0000005, "0xc0000005");
    EXPECT_THAT(left.log(), HasSubstr("The process has crashed: EXCEPTION_ACCESS_VIOLATION (0xc0000005) in "));
    EXPECT_THAT(left.log(), HasSubstr("process_tests.exe+0x"));
}

KOR_CHILD(installs_twice_and_aborts)
{
    open_log();
    if (!Kor_CrashHandlers::Install() || !Kor_CrashHandlers::Install())
        return NOT_INSTALLED;
    std::abort();
}

TEST(CrashHandlers, InstalledTwiceTellOnce)
{
    const Left left("installs_twice_and_aborts");
    expect_all(left, ABORT, "0xe0000001");
    EXPECT_THAT(left.log(), HasSubstr("The process has crashed: abort() (0xe0000001) in "));
}

KOR_CHILD(installs_after_an_inert_reporter)
{
    open_log();
    Kor_SessionLog::GetInstance(); // never activated: it stays inert
    return Kor_CrashHandlers::Install() ? 0 : NOT_INSTALLED;
}

KOR_CHILD(installs_after_an_inert_gatherer)
{
    open_log();
    Kor_SessionLogGatherer::GetInstance();
    return lum_crash_install() == LUM_FAILED && !lum::install_crash_handlers() ? NOT_INSTALLED : 0;
}

TEST(CrashHandlers, AreNotInstalledWhereNothingWouldBeWritten)
{
    for (const char* const child : {"installs_after_an_inert_reporter", "installs_after_an_inert_gatherer"})
    {
        const Left left(child);
        EXPECT_EQ(left.exit_code(), static_cast<unsigned long>(NOT_INSTALLED)) << child;
        EXPECT_EQ(left.lines(), "") << child;
    }
}

KOR_CHILD(installs_and_ends)
{
    open_log();
    return Kor_CrashHandlers::Install() ? 0 : NOT_INSTALLED;
}

TEST(CrashHandlers, LeaveAnOrderlyEndAlone)
{
    const Left left("installs_and_ends");
    EXPECT_EQ(left.exit_code(), 0u);
    EXPECT_EQ(left.lines(), "");
    EXPECT_EQ(left.report(), "");
    EXPECT_FALSE(left.has(".dmp"));
}

// lumlog.h and lumlog_crash.hpp ------------------------------------------------------------------------------------
KOR_CHILD(installs_from_c_and_aborts)
{
    open_log();
    if (lum_crash_install() != LUM_OK)
        return NOT_INSTALLED;
    lum_crash_prepare_thread();
    std::abort(); // of the C runtime that the library has as well
}

TEST(CrashHandlers, OfCTellAnAbort)
{
    const Left left("installs_from_c_and_aborts");
    expect_all(left, ABORT, "0xe0000001");
}

KOR_CHILD(gives_up_from_c)
{
    open_log();
    lum_crash_install();
    lum_crash_abort();
    return STILL_THERE;
}

TEST(CrashHandlers, OfCEndTheProcessThatGivesUp)
{
    const Left left("gives_up_from_c");
    expect_all(left, ABORT, "0xe0000001");
}

KOR_CHILD(throws_on_a_thread_of_any_compiler)
{
    open_log();
    if (!lum::install_crash_handlers())
        return NOT_INSTALLED;
    std::thread(
        []
        {
            lum::prepare_thread_for_crashes();
            throw std::runtime_error("the archive does not answer");
        })
        .join();
    return STILL_THERE;
}

TEST(CrashHandlers, OfAnyCompilerTellWhatAnExceptionSays)
{
    const Left left("throws_on_a_thread_of_any_compiler");
    expect_all(left, EXCEPTION, "0xe06d7363");
    EXPECT_THAT(left.report(), HasSubstr("<info>the archive does not answer</info>"));
    EXPECT_THAT(left.log(), HasSubstr("The process has crashed: an uncaught C++ exception (0xe06d7363) in "));
}

KOR_CHILD(throws_what_is_no_exception)
{
    open_log();
    lum::install_crash_handlers();
    throw 42;
}

TEST(CrashHandlers, OfAnyCompilerTellAnObjectThatIsNoException)
{
    const Left left("throws_what_is_no_exception");
    expect_all(left, EXCEPTION, "0xe06d7363");
    EXPECT_THAT(left.report(), HasSubstr("<info>an object that is no std::exception</info>"));
}

KOR_CHILD(terminates_without_an_exception)
{
    open_log();
    lum::install_crash_handlers();
    std::terminate();
}

TEST(CrashHandlers, OfAnyCompilerTellAnEndWithoutAnException)
{
    const Left left("terminates_without_an_exception");
    expect_all(left, TERMINATE, "0xe0000002");
    EXPECT_THAT(left.log(), HasSubstr("The process has crashed: std::terminate() (0xe0000002) in "));
}
} // namespace
