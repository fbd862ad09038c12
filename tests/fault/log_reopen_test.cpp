// log_reopen_test.cpp - a log that changes its file while others write.

#include <gtest/gtest.h>
#include <windows.h>

#include <share.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"
#include "open_line.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(ReportEventA);

/// Threads that write numbered lines until they are told to stop.
class Writers
{
public:
    explicit Writers(Kor_LogFile& log)
    {
        for (int i = 0; i < COUNT; ++i)
            m_threads.push_back(std::make_unique<BoundedThread>([this, i, &log] { write(log, i); }, 110'000));
        for (int i = 0; i < 30'000 && m_started < COUNT; ++i)
            ::Sleep(1);
    }

    /// Returns the lines that were written, in no order.
    Lines stop()
    {
        m_stop = true;
        m_threads.clear();
        return m_lines;
    }

private:
    static constexpr int COUNT = 3;
    static constexpr int MOST_LINES = 100'000;

    void write(Kor_LogFile& log, int writer)
    {
        Lines own;
        for (int number = 0; !m_stop && number < MOST_LINES; ++number)
        {
            own.push_back("writer " + std::to_string(writer) + " line " + std::to_string(number));
            log.LogNoHeadline("%s", own.back().c_str());
            if (number == 0)
                ++m_started;
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.insert(m_lines.end(), own.begin(), own.end());
    }

    std::atomic<bool> m_stop{false};
    std::atomic<int> m_started{0};
    std::mutex m_mutex;
    Lines m_lines;
    std::vector<std::unique_ptr<BoundedThread>> m_threads;
};

class LogReOpenWhileOthersWrite : public ::testing::Test
{
protected:
    LogReOpenWhileOthersWrite()
        : m_reports(
              [this](HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCSTR* texts, LPVOID) -> BOOL
              {
                  const std::lock_guard<std::mutex> lock(m_mutex);
                  std::string text = texts[0];
                  m_events.push_back(text.substr(0, text.size() - 1));
                  return TRUE;
              })
    {
        EXPECT_TRUE(m_reports.installed());
    }

    /// Expects each line once, in one of these files or, where that is allowed, among the events.
    void expect_all(Lines written, const Lines& names, bool events_too) const
    {
        Lines found = events_too ? m_events : Lines();
        for (const std::string& name : names)
        {
            const Lines lines = m_directory.lines(name);
            found.insert(found.end(), lines.begin(), lines.end());
        }
        std::sort(found.begin(), found.end());
        std::sort(written.begin(), written.end());
        EXPECT_EQ(found.size(), written.size());
        EXPECT_TRUE(found == written);
        EXPECT_TRUE(events_too || m_events.empty());
    }

    const LogDirectory m_directory;
    std::mutex m_mutex;
    Lines m_events;
    Hook<ReportEventAImport> m_reports;
};

TEST_F(LogReOpenWhileOthersWrite, EachLineIsInOneOfTheFiles)
{
    const Lines names = {"0.log", "1.log", "2.log", "3.log"};
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open(names[0].c_str(), "viewer"), 0);
    Writers writers(log);
    for (std::size_t i = 1; i <= 400; ++i)
        ASSERT_EQ(log.ReOpen(names[i % names.size()].c_str(), "viewer", false), 0);

    expect_all(writers.stop(), names, false);
}

TEST_F(LogReOpenWhileOthersWrite, EachLineIsInTheFileThatIsOpenedAgain)
{
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    Writers writers(log);
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(log.ReOpen("test.log", "viewer", false), 0);

    expect_all(writers.stop(), {"test.log"}, false);
}

TEST_F(LogReOpenWhileOthersWrite, TwoThatOpenAgainAtOnceLoseNoLine)
{
    const Lines names = {"0.log", "1.log", "2.log", "3.log"};
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open(names[0].c_str(), "viewer"), 0);
    Writers writers(log);
    run_on_threads(
        2,
        [&](int thread)
        {
            for (std::size_t i = 0; i < 150; ++i)
                log.ReOpen(names[2 * i % 3 + static_cast<std::size_t>(thread)].c_str(), "viewer", false);
        },
        100'000);

    expect_all(writers.stop(), names, false);
}

TEST_F(LogReOpenWhileOthersWrite, WhenItFailsEachLineIsInTheFileOrInTheEventLog)
{
    CapturedStream err(stderr);
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    Writers writers(log);
    for (int i = 0; i < 100; ++i)
    {
        ASSERT_EQ(log.ReOpen("no such folder\\test.log", "viewer", false), 0);
        ASSERT_EQ(log.ReOpen("test.log", "viewer", false), 0);
    }

    expect_all(writers.stop(), {"test.log"}, true);
}

// Failures ---------------------------------------------------------------------------------------------------------
TEST_F(LogReOpenWhileOthersWrite, AFileThatCannotBeOpenedLeavesNoneOpen)
{
    begin_on_a_new_line();
    CapturedStream err(stderr);
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    log.LogNoHeadline("before");
    EXPECT_EQ(log.ReOpen("no such folder\\test.log", "viewer", false), 0);
    log.LogNoHeadline("after");

    EXPECT_EQ(err.text(), "Failed to open log file [" + m_directory.path() + "/no such folder\\test.log]");
    EXPECT_EQ(m_directory.text(), "before\n");
    EXPECT_EQ(m_events, Lines{"after"});
    EXPECT_TRUE(::DeleteFileA(m_directory.file("test.log").c_str()));
}

TEST_F(LogReOpenWhileOthersWrite, AStreamThatSharesItsFileWithNobodyGivesWayToTheSameFile)
{
    Kor_LogFile log(777, false);
    std::FILE* const stream = ::_fsopen(m_directory.file("test.log").c_str(), "a", _SH_DENYRW);
    ASSERT_NE(stream, nullptr);
    ASSERT_EQ(log.Open(stream, "viewer"), 0);
    log.LogNoHeadline("by the stream");
    CapturedStream err(stderr);
    EXPECT_EQ(log.ReOpen("test.log", "viewer", false), 0);
    log.LogNoHeadline("by the log");

    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(m_directory.text(), "by the stream\nby the log\n");
}
} // namespace
