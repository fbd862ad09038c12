// What others do to the log file while it is being written.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <set>

#include "bounded.h"
#include "log_directory.h"
#include "remove_file.h"

namespace
{
using Lines = std::vector<std::string>;

class LogFileOutside : public ::testing::Test
{
protected:
    LogFileOutside() : m_log(777, false) { m_log.Open("test.log", "viewer"); }

    std::string path() const { return m_directory.file("test.log"); }

    void write_lines(int count)
    {
        for (int i = 0; i < count; ++i)
            m_log.LogNoHeadline("line %d", ++m_sent);
    }

    /// True once there is a file with lines.
    bool is_back() const { return !m_directory.text().empty(); }

    /// Writes lines until the file is back, which may take a second; false after ten.
    bool write_until_it_is_back()
    {
        for (int i = 0; i < 1000; ++i)
        {
            write_lines(1);
            if (is_back())
                return true;
            ::Sleep(10);
        }
        return false;
    }

    const LogDirectory m_directory;
    Kor_LogFile m_log;
    int m_sent = 0;
};

TEST_F(LogFileOutside, AFileThatWasTruncatedIsWrittenFromItsBeginning)
{
    write_lines(3);
    ASSERT_TRUE(write_file(path(), ""));
    write_lines(2);

    EXPECT_EQ(read_file(path()), "line 4\r\nline 5\r\n"); // and no gap in front
}

TEST_F(LogFileOutside, LinesOfOthersAreNotOverwritten)
{
    write_lines(1);
    const HANDLE other = ::CreateFileA(
        path().c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    DWORD written = 0;
    ::WriteFile(other, "theirs\r\n", 8, &written, nullptr);
    ::CloseHandle(other);
    write_lines(1);

    EXPECT_EQ(m_directory.text(), "line 1\ntheirs\nline 2\n");
}

TEST_F(LogFileOutside, TheFileCanBeReadWhileItIsWritten)
{
    write_lines(1);
    std::FILE* const reader = std::fopen(path().c_str(), "r"); // as an editor does
    ASSERT_NE(reader, nullptr);
    char line[100] = {};
    EXPECT_STREQ(std::fgets(line, sizeof line, reader), "line 1\n");
    write_lines(1);
    EXPECT_STREQ(std::fgets(line, sizeof line, reader), "line 2\n");
    std::fclose(reader);
}

TEST_F(LogFileOutside, AFileThatWasDeletedIsCreatedAgain)
{
    write_lines(1);
    ASSERT_TRUE(remove_open_file(path()));

    ASSERT_TRUE(write_until_it_is_back());
    const std::size_t before = m_directory.lines().size();
    write_lines(2);

    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), before + 2);
    EXPECT_EQ(lines[before], "line " + std::to_string(m_sent - 1));
    EXPECT_EQ(lines[before + 1], "line " + std::to_string(m_sent));
}

TEST_F(LogFileOutside, AFileThatIsDeletedAgainAndAgainComesBackEachTime)
{
    for (int round = 0; round < 2; ++round)
    {
        write_lines(1);
        ASSERT_TRUE(remove_open_file(path()));
        ASSERT_TRUE(write_until_it_is_back());
    }
}

TEST_F(LogFileOutside, AFileThatIsDeletedUnderManyThreadsComesBackWithWholeLines)
{
    std::atomic<bool> back{false};
    write_lines(1);
    ASSERT_TRUE(remove_open_file(path()));
    run_on_threads(
        4,
        [&](int thread)
        {
            for (int i = 0; i < 1000 && !back; ++i)
            {
                m_log.LogNoHeadline("thread %d writes", thread);
                if (is_back())
                    back = true;
                ::Sleep(10);
            }
        });
    EXPECT_TRUE(back);
    for (const std::string& line : m_directory.lines())
        EXPECT_TRUE(line.size() == 15 && line.rfind("thread ", 0) == 0) << line;
}

TEST_F(LogFileOutside, ARenamedFileLosesNoLine)
{
    write_lines(10);
    ASSERT_TRUE(::MoveFileA(path().c_str(), m_directory.file("old.log").c_str()));
    write_lines(10);

    std::multiset<std::string> lines;
    for (const char* const name : {"old.log", "test.log"})
    {
        for (const std::string& line : m_directory.lines(name))
            lines.insert(line);
    }
    std::multiset<std::string> expected;
    for (int i = 1; i <= 20; ++i)
        expected.insert("line " + std::to_string(i));
    EXPECT_EQ(lines, expected);
}

TEST_F(LogFileOutside, ARangeThatAnotherLocksStopsNothingAndLinesGoOnAfterwards)
{
    write_lines(1);
    const HANDLE other = ::CreateFileA(
        path().c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    OVERLAPPED start{};
    ASSERT_TRUE(::LockFileEx(other, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, MAXDWORD, 0, &start));
    on_another_thread([&] { write_lines(3); }, 10000); // written or lost, but not waiting
    ::UnlockFileEx(other, 0, MAXDWORD, 0, &start);
    ::CloseHandle(other);
    write_lines(1);

    const Lines lines = m_directory.lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.front(), "line 1");
    EXPECT_EQ(lines.back(), "line 5");
    for (const std::string& line : lines)
        EXPECT_EQ(line.size(), 6u) << line;
}

TEST_F(LogFileOutside, ADirectoryInThePlaceOfTheFileStopsNothing)
{
    write_lines(1);
    ASSERT_TRUE(remove_open_file(path()));
    ASSERT_TRUE(::CreateDirectoryA(path().c_str(), nullptr));
    for (int i = 0; i < 150; ++i)
    {
        write_lines(1);
        ::Sleep(10);
    }
    ASSERT_TRUE(::RemoveDirectoryA(path().c_str()));

    EXPECT_TRUE(write_until_it_is_back());
}
} // namespace
