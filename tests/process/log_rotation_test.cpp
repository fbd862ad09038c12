// Files that are renamed at the size limit, and go on being written: by many threads, by several processes, by one that
// is killed and begins again, and while others have them open.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>

#include "bounded.h"
#include "captured_stream.h"
#include "core/file_rotation.h"
#include "import_hook.h"
#include "log_directory.h"
#include "open_line.h"
#include "rounds.h"
#include "shared_said.h"

namespace
{
using Lines = std::vector<std::string>;

constexpr std::size_t MEGABYTE = 1024 * 1024;
const std::string ONE_MEGABYTE = "2\nfile_size_limit_in_mb=1\n";

KOR_IMPORT(CreateFileW);
KOR_IMPORT(MoveFileExW);
KOR_IMPORT(DeleteFileW);
KOR_IMPORT(SetFileInformationByHandle);
KOR_IMPORT(GetFileAttributesW);
KOR_IMPORT(WriteFile);
KOR_IMPORT(GetTickCount64);

std::string numbered(int number) { return "test." + std::to_string(number) + ".log"; }

/// A line of so many bytes in the file.
std::string padded(const std::string& text, std::size_t size)
{
    return text + ' ' + std::string(size - text.size() - 3, 'x');
}

bool is_seam(const std::string& line) { return line.find(") Log goes on ") != std::string::npos; }

class LogRotation : public ::testing::Test
{
protected:
    void open(int files)
    {
        m_log.SetRotation(files);
        ASSERT_EQ(m_log.Open("test.log", "viewer"), 0);
    }

    std::string path(const std::string& name = "test.log") const { return m_directory.file(name); }
    bool is_there(const std::string& name) const { return file_exists(path(name)); }

    /// Writes lines "1 xxx", "2 xxx" and so on, of a thousand bytes each.
    void write_lines(int count)
    {
        for (int i = 0; i < count; ++i)
            m_log.LogNoHeadline("%s", padded(std::to_string(++m_sent), 1000).c_str());
    }

    /// As much as a file takes and a little.
    void fill_a_file() { write_lines(1060); }

    /// Lines of a file without those that say where the log goes on.
    Lines lines_in(const std::string& name) const
    {
        Lines lines = lines_of(read_file(path(name)));
        lines.erase(std::remove_if(lines.begin(), lines.end(), &is_seam), lines.end());
        return lines;
    }

    /// The numbers of the lines in the files, from the oldest file to the youngest.
    std::vector<int> numbers() const
    {
        std::vector<int> result;
        for (int number = 30; number >= 0; --number)
            for (const std::string& line : lines_in(number == 0 ? "test.log" : numbered(number)))
                if (line.rfind("***", 0) != 0)
                    result.push_back(std::atoi(line.c_str()));
        return result;
    }

    void expect_every_line_once() const
    {
        std::vector<int> expected;
        for (int i = 1; i <= m_sent; ++i)
            expected.push_back(i);
        EXPECT_EQ(numbers(), expected);
    }

    std::string notices() const
    {
        std::string found;
        for (int number = 30; number >= 0; --number)
            for (const std::string& line : lines_in(number == 0 ? "test.log" : numbered(number)))
                if (line.rfind("***", 0) == 0)
                    found += line + '\n';
        return found;
    }

    /// Writes a line now and then until something is so; false after twenty seconds.
    template <class Condition>
    bool write_until(Condition condition)
    {
        for (int i = 0; i < 2000; ++i)
        {
            write_lines(1);
            if (condition())
                return true;
            ::Sleep(10);
        }
        return false;
    }

    HANDLE open_as(const std::string& name, DWORD access, DWORD sharing) const
    {
        return ::CreateFileA(path(name).c_str(), access, sharing, nullptr, OPEN_EXISTING, 0, nullptr);
    }

    const LogDirectory m_directory{ONE_MEGABYTE};
    Kor_LogFile m_log{777, false};
    int m_sent = 0;
};

constexpr DWORD EVERY_SHARE = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
} // namespace

TEST_F(LogRotation, AtItsLimitAFileIsRenamedAndWritingGoesOn)
{
    open(5);
    write_lines(3500);

    EXPECT_TRUE(is_there("test.3.log"));
    EXPECT_FALSE(is_there("test.4.log"));
    expect_every_line_once();
    for (int number = 1; number <= 3; ++number)
    {
        const std::size_t size = read_file(path(numbered(number))).size();
        EXPECT_LE(size, MEGABYTE) << number;
        EXPECT_GT(size, MEGABYTE - 1500) << number;
    }
    EXPECT_EQ(notices(), "");
}

TEST_F(LogRotation, SoManyRenamedFilesAreKeptAndTheOldestGo)
{
    open(2);
    write_lines(6000);

    EXPECT_TRUE(is_there("test.1.log") && is_there("test.2.log"));
    EXPECT_FALSE(is_there("test.3.log"));
    const std::vector<int> there = numbers();
    EXPECT_EQ(there.back(), m_sent);
    for (std::size_t i = 1; i < there.size(); ++i)
        ASSERT_EQ(there[i], there[i - 1] + 1);
}

TEST_F(LogRotation, WithoutALimitNothingIsRenamed)
{
    m_directory.configure(TO_FILE);
    Kor_LogFile log(777, false);
    log.SetRotation(3);
    log.Open("test.log", "viewer");
    for (int i = 0; i < 3000; ++i)
        log.LogNoHeadline("%s", padded("x", 1000).c_str());
    EXPECT_FALSE(is_there("test.1.log"));
    EXPECT_EQ(lines_in("test.log").size(), 3000u);
}

TEST_F(LogRotation, OffAgainTheFileFallsSilentAtItsLimit)
{
    open(3);
    fill_a_file();
    ASSERT_TRUE(is_there("test.1.log"));
    m_log.SetRotation(0);
    write_lines(4000);
    EXPECT_FALSE(is_there("test.2.log"));
    EXPECT_NE(read_file(path()).find("Logs are disabled until file is cleared."), std::string::npos);
    EXPECT_LT(read_file(path()).size(), 3 * MEGABYTE);
}

TEST_F(LogRotation, BegunOnAFileThatHasFallenSilentItGoesOnAtOnce)
{
    ASSERT_EQ(m_log.Open("test.log", "viewer"), 0);
    write_lines(4000);
    const std::size_t silent = lines_in("test.log").size();
    m_log.SetRotation(3);
    m_log.LogNoHeadline("goes on");
    EXPECT_EQ(lines_in("test.log"), Lines{"goes on"});
    EXPECT_EQ(lines_in("test.1.log").size(), silent);
}

TEST_F(LogRotation, AFileThatIsPastItsLimitWhenItIsOpenedIsRenamedFirst)
{
    write_file(path(), std::string(MEGABYTE, 'x') + "\r\n");
    open(3);
    m_log.LogNoHeadline("first");
    EXPECT_EQ(read_file(path()), "first\r\n");
    EXPECT_EQ(read_file(path("test.1.log")).size(), MEGABYTE + 2);
}

TEST_F(LogRotation, ALineThatIsLongerThanAFileHasOneOfItsOwn)
{
    open(9);
    std::string text(MEGABYTE + 100, 'y');
    text += '\n';
    m_log.LogNoHeadline("before");
    for (int i = 0; i < 2; ++i)
        m_log.LogTextAt("host.cpp", "main", 1, 1, 3, text.c_str(), static_cast<int>(text.size()));
    m_log.LogNoHeadline("after");

    EXPECT_EQ(lines_in("test.3.log"), Lines{"before"});
    EXPECT_EQ(lines_in("test.2.log").size(), 1u);
    EXPECT_EQ(lines_in("test.1.log").size(), 1u);
    EXPECT_EQ(lines_in("test.log"), Lines{"after"});
}

TEST_F(LogRotation, BothSidesSayWhereTheLogGoesOn)
{
    Kor_LogFile log(777, true);
    log.SetRotation(3);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    for (int i = 0; i < 1100; ++i)
        log.LogNoHeadline("%s", padded("x", 1000).c_str());

    const Lines before = lines_of(read_file(path("test.1.log")));
    const Lines after = lines_of(read_file(path()));
    EXPECT_EQ(masked_line(before.front()), "===== viewer (<pid>) Start Session at <time>, User <user> on <host> =====");
    EXPECT_NE(before.back().find(") Log goes on in the next file at 20"), std::string::npos) << before.back();
    EXPECT_NE(after.front().find(") Log goes on here at 20"), std::string::npos) << after.front();
    EXPECT_LE(read_file(path("test.1.log")).size(), MEGABYTE);
}

TEST_F(LogRotation, WithoutBannersNothingStandsBetweenTheLines)
{
    open(3);
    fill_a_file();
    for (const char* const name : {"test.1.log", "test.log"})
        for (const std::string& line : lines_of(read_file(path(name))))
            EXPECT_FALSE(is_seam(line));
}

TEST_F(LogRotation, AStreamOfTheCallersIsNeverRenamed)
{
    m_log.SetRotation(3);
    ASSERT_EQ(m_log.Open(std::fopen(path().c_str(), "a"), "viewer"), 0);
    write_lines(3000);
    EXPECT_FALSE(is_there("test.1.log"));
    EXPECT_NE(read_file(path()).find("Logs are disabled until file is cleared."), std::string::npos);
}

TEST_F(LogRotation, AnotherFileThatIsOpenedRotatesToo)
{
    open(3);
    write_lines(1);
    m_log.ReOpen("other.log", "viewer", false);
    fill_a_file();
    EXPECT_TRUE(is_there("other.1.log"));
    EXPECT_FALSE(is_there("test.1.log"));
}

TEST_F(LogRotation, EightThreadsLoseNoLine)
{
    open(30);
    constexpr int EACH = 1500;
    run_on_threads(
        8,
        [&](int thread)
        {
            for (int i = 0; i < EACH; ++i)
                m_log.LogNoHeadline("%s", padded(std::to_string(thread * EACH + i + 1), 1000).c_str());
        },
        120000);
    std::vector<int> there = numbers();
    std::sort(there.begin(), there.end());
    m_sent = 8 * EACH;
    ASSERT_EQ(there.size(), static_cast<std::size_t>(m_sent));
    for (int i = 0; i < m_sent; ++i)
        ASSERT_EQ(there[static_cast<std::size_t>(i)], i + 1);
    EXPECT_TRUE(is_there("test.11.log"));
}

// What others do ------------------------------------------------------------------------------------------
TEST_F(LogRotation, AFileThatSomebodyElseRenamedIsLeftAndANewOneBegun)
{
    open(3);
    write_lines(1);
    ASSERT_TRUE(::MoveFileA(path().c_str(), path("test.11.log").c_str()));
    const ULONGLONG begin = ::GetTickCount64();
    ASSERT_TRUE(write_until([&] { return is_there("test.log"); }));
    std::printf("%d ms until there was a new file\n", static_cast<int>(::GetTickCount64() - begin));
    EXPECT_LT(lines_in("test.11.log").size(), 200u); // long before its limit
    write_lines(3);
    EXPECT_GE(lines_in("test.log").size(), 4u);
    expect_every_line_once();
}

TEST_F(LogRotation, WithoutItARenamedFileIsWrittenOn)
{
    ASSERT_EQ(m_log.Open("test.log", "viewer"), 0);
    write_lines(1);
    ASSERT_TRUE(::MoveFileA(path().c_str(), path("test.1.log").c_str()));
    for (int i = 0; i < 130; ++i)
    {
        write_lines(1);
        ::Sleep(10);
    }
    EXPECT_FALSE(is_there("test.log"));
}

TEST_F(LogRotation, WhoReadsTheFileAndSharesItIsNotInTheWay)
{
    open(3);
    write_lines(1);
    const HANDLE shipper = open_as("test.log", GENERIC_READ, EVERY_SHARE);
    ASSERT_NE(shipper, INVALID_HANDLE_VALUE);
    fill_a_file();
    EXPECT_TRUE(is_there("test.1.log"));

    std::string read(2 * MEGABYTE, '\0');
    DWORD count = 0;
    ASSERT_TRUE(::ReadFile(shipper, read.data(), static_cast<DWORD>(read.size()), &count, nullptr));
    EXPECT_EQ(count, read_file(path("test.1.log")).size()); // it still has the file that it opened, to its end
    ::CloseHandle(shipper);
    expect_every_line_once();
}

TEST_F(LogRotation, AFileThatSomebodyHasOpenAndDoesNotShareGrowsAndSaysSoOnce)
{
    open(3);
    write_lines(1);
    const HANDLE editor = open_as("test.log", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ASSERT_NE(editor, INVALID_HANDLE_VALUE);
    fill_a_file();
    ASSERT_TRUE(write_until([&] { return !notices().empty(); }));
    for (int i = 0; i < 150; ++i)
    {
        write_lines(1);
        ::Sleep(10);
    }
    EXPECT_FALSE(is_there("test.1.log"));
    EXPECT_EQ(
        notices(),
        "*** Log file test.log has reached its size limit and cannot be renamed: error 32, another program has "
        "it open and does not allow that. Writing goes on in it, and renaming is tried again every second. "
        "***\n");
    ::CloseHandle(editor);
    ASSERT_TRUE(write_until([&] { return is_there("test.1.log"); }));
    expect_every_line_once();
}

TEST_F(LogRotation, AShortLookByAScannerIsNotWorthALine)
{
    open(3);
    write_lines(1);
    const HANDLE scanner = open_as("test.log", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ASSERT_NE(scanner, INVALID_HANDLE_VALUE);
    fill_a_file();
    ::CloseHandle(scanner);
    ASSERT_TRUE(write_until([&] { return is_there("test.1.log"); }));
    EXPECT_EQ(notices(), "");
    expect_every_line_once();
}

TEST_F(LogRotation, ANameThatAFolderHasIsPassed)
{
    ASSERT_TRUE(::CreateDirectoryA(path("test.1.log").c_str(), nullptr));
    open(3);
    fill_a_file();
    EXPECT_TRUE(is_there("test.2.log"));
    expect_every_line_once();
}

TEST_F(LogRotation, AnOlderFileThatCannotBeMovedIsPassed)
{
    open(5);
    fill_a_file();
    const HANDLE editor = open_as("test.1.log", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
    ASSERT_NE(editor, INVALID_HANDLE_VALUE);
    fill_a_file();
    EXPECT_TRUE(is_there("test.2.log"));
    ::CloseHandle(editor);
    std::vector<int> there = numbers();
    std::sort(there.begin(), there.end());
    EXPECT_EQ(there.size(), static_cast<std::size_t>(m_sent));
}

TEST_F(LogRotation, AFileThatSomebodyStillWritesToIsNotDeleted)
{
    open(1);
    write_lines(1);
    const HANDLE other = open_as("test.log", FILE_APPEND_DATA, EVERY_SHARE); // as another process has it
    ASSERT_NE(other, INVALID_HANDLE_VALUE);
    for (int i = 0; i < 4; ++i)
        fill_a_file();
    DWORD written = 0;
    ASSERT_TRUE(::WriteFile(other, "late\r\n", 6, &written, nullptr));
    ::CloseHandle(other);
    std::string all;
    for (int number = 1; number < 10; ++number)
        all += read_file(path(numbered(number)));
    EXPECT_NE(all.find("late\r\n"), std::string::npos);

    fill_a_file();
    EXPECT_TRUE(is_there("test.1.log"));
    for (int number = 2; number < 10; ++number)
        EXPECT_FALSE(is_there(numbered(number))) << number;
}

TEST_F(LogRotation, AHalfLineOfWhoWasKilledIsEndedBeforeTheNext)
{
    write_file(path(), "whole\r\nhal");
    open(3);
    m_log.LogNoHeadline("next");
    EXPECT_EQ(read_file(path()), "whole\r\nhal\r\nnext\r\n");
}

// What Windows answers ------------------------------------------------------------------------------------
TEST_F(LogRotation, ANameThatWaitsToBeDeletedIsPassed)
{
    open(3);
    Hook<GetFileAttributesWImport> attributes(
        [&](const wchar_t* name) -> DWORD
        {
            const std::wstring text(name);
            if (text.size() < 10 || text.compare(text.size() - 10, 10, L"test.1.log") != 0)
                return ::GetFileAttributesW(name);
            ::SetLastError(ERROR_ACCESS_DENIED); // as of a file that is gone for all but who still reads it
            return INVALID_FILE_ATTRIBUTES;
        });
    ASSERT_TRUE(attributes.installed());
    fill_a_file();
    EXPECT_TRUE(is_there("test.2.log"));
    EXPECT_FALSE(is_there("test.1.log"));
    expect_every_line_once();
}

TEST_F(LogRotation, WhereNoNewFileCanBeMadeTheOldOneGetsItsNameBack)
{
    open(3);
    write_lines(1);
    std::atomic<bool> fails{true};
    Hook<CreateFileWImport> create(
        [&](const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes, DWORD disposition,
            DWORD flags, HANDLE pattern) -> HANDLE
        {
            if (disposition == OPEN_ALWAYS && fails && !is_there("test.log"))
            {
                ::SetLastError(ERROR_DISK_FULL);
                return INVALID_HANDLE_VALUE;
            }
            return ::CreateFileW(name, access, share, attributes, disposition, flags, pattern);
        });
    ASSERT_TRUE(create.installed());
    fill_a_file();
    EXPECT_TRUE(is_there("test.log"));
    EXPECT_FALSE(is_there("test.1.log"));
    ASSERT_TRUE(write_until([&] { return !notices().empty(); }));
    EXPECT_NE(notices().find("no new one can be opened: error 112."), std::string::npos) << notices();
    fails = false;
    ASSERT_TRUE(write_until([&] { return is_there("test.1.log"); }));
    expect_every_line_once();
}

TEST_F(LogRotation, AThreadWithoutTheRightsLeavesItToOthers)
{
    open(3);
    std::atomic<bool> may{false};
    Hook<CreateFileWImport> create(
        [&](const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes, DWORD disposition,
            DWORD flags, HANDLE pattern) -> HANDLE
        {
            if ((access & DELETE) != 0 && !may)
            {
                ::SetLastError(ERROR_ACCESS_DENIED);
                return INVALID_HANDLE_VALUE;
            }
            return ::CreateFileW(name, access, share, attributes, disposition, flags, pattern);
        });
    ASSERT_TRUE(create.installed());
    fill_a_file();
    EXPECT_FALSE(is_there("test.1.log"));
    may = true;
    ASSERT_TRUE(write_until([&] { return is_there("test.1.log"); }));
    EXPECT_EQ(notices(), "");
    expect_every_line_once();
}

TEST_F(LogRotation, ADiskThatIsFullCostsTheLinesThatItHasNoRoomForAndNoOthers)
{
    open(3);
    write_lines(10);
    {
        Hook<WriteFileImport> write(
            [](HANDLE, const void*, DWORD, DWORD* written, OVERLAPPED*) -> BOOL
            {
                *written = 0;
                ::SetLastError(ERROR_DISK_FULL);
                return FALSE;
            });
        ASSERT_TRUE(write.installed());
        for (int i = 0; i < 1500; ++i)
            m_log.LogNoHeadline("%s", padded("lost", 1000).c_str());
    }
    EXPECT_FALSE(is_there("test.1.log")); // what was not written fills no file
    fill_a_file();
    EXPECT_TRUE(is_there("test.1.log"));
    expect_every_line_once();
}

TEST_F(LogRotation, AFullDiskInTheMiddleOfALineAtItsLimitLeavesWholeLinesInTheNextFile)
{
    open(3);
    fill_a_file();
    {
        Hook<WriteFileImport> write(
            [](HANDLE file, const void* bytes, DWORD, DWORD* written, OVERLAPPED*) -> BOOL
            {
                ::WriteFile(file, bytes, 5, written, nullptr);
                ::SetLastError(ERROR_DISK_FULL);
                return FALSE;
            });
        ASSERT_TRUE(write.installed());
        m_log.LogNoHeadline("cut off");
    }
    fill_a_file();
    for (int number = 0; number <= 2; ++number)
        for (const std::string& line : lines_in(number == 0 ? "test.log" : numbered(number)))
            EXPECT_TRUE(line.size() == 998 || line == "cut o") << line.substr(0, 40);
}

// Environment ---------------------------------------------------------------------------------------------
TEST_F(LogRotation, TheVariableTurnsItOnForHostsThatWereNotChanged)
{
    const EnvironmentVariable files("PRISMATE_LOG_FILES", "2");
    ASSERT_EQ(m_log.Open("test.log", "viewer"), 0);
    write_lines(4000);
    EXPECT_TRUE(is_there("test.1.log") && is_there("test.2.log"));
    EXPECT_FALSE(is_there("test.3.log"));
}

TEST_F(LogRotation, TheVariableCountsInsteadOfTheProgram)
{
    const EnvironmentVariable files("PRISMATE_LOG_FILES", "0");
    open(3);
    write_lines(4000);
    EXPECT_FALSE(is_there("test.1.log"));
}

TEST_F(LogRotation, AVariableThatIsNoNumberIsToldOfAndDoesNotCount)
{
    begin_on_a_new_line();
    const EnvironmentVariable files("PRISMATE_LOG_FILES", "five");
    std::string said;
    {
        CapturedStream out(stdout);
        ASSERT_EQ(m_log.Open("test.log", "viewer"), 0);
        said = out.text();
    }
    EXPECT_EQ(
        said, "Kor_LogFile - Warning - PRISMATE_LOG_FILES=five is no number from 0 to 999, so it does not count\n");
    write_lines(3000);
    EXPECT_FALSE(is_there("test.1.log"));
}

TEST_F(LogRotation, EveryProcessCanHaveAFileOfItsOwn)
{
    const EnvironmentVariable own("PRISMATE_LOG_FILE_PER_PROCESS", "1");
    const std::string id = std::to_string(::GetCurrentProcessId());
    open(3);
    fill_a_file();
    EXPECT_FALSE(is_there("test.log"));
    EXPECT_TRUE(is_there("test." + id + ".log"));
    EXPECT_TRUE(is_there("test." + id + ".1.log"));

    m_log.ReOpen("plain%p", "viewer", false);
    EXPECT_TRUE(is_there("plain%p." + id));
}

TEST_F(LogRotation, WithoutTheVariableNamesStayAsTheyAreGiven)
{
    ASSERT_EQ(m_log.Open("test%p.log", "viewer"), 0);
    EXPECT_TRUE(is_there("test%p.log"));
}

TEST_F(LogRotation, AFileOfItsOwnThatCannotBeOpenedIsNamedAsItIs)
{
    begin_on_a_new_line();
    const EnvironmentVariable own("PRISMATE_LOG_FILE_PER_PROCESS", "1");
    const std::string id = std::to_string(::GetCurrentProcessId());
    ASSERT_TRUE(::CreateDirectoryA(path("test." + id + ".log").c_str(), nullptr));
    CapturedStream err(stderr);
    m_log.Open("test.log", "viewer");
    EXPECT_EQ(err.text(), "Failed to open log file [" + m_directory.path() + "/test." + id + ".log]");
}

// Several processes ---------------------------------------------------------------------------------------
namespace
{
/// args: the events to wait for and to set, in turns; each time it writes lines of a thousand bytes.
int write_in_turns(const std::vector<std::string>& args)
{
    const NamedEvent mine(args[0]);
    const NamedEvent others(args[1]);
    const int rounds = std::atoi(args[2].c_str());
    const int count = std::atoi(args[3].c_str());
    KorGLog.SetRotation(std::atoi(args[4].c_str()));
    KorGLog.Open("test.log", "viewer", false);
    int sent = 0;
    for (int round = 0; round < rounds; ++round)
    {
        if (!mine.wait(60000))
            return 1;
        mine.reset();
        for (int i = 0; i < count; ++i)
            KorGLog.LogNoHeadline("%s", padded(args[5] + std::to_string(++sent), 1000).c_str());
        others.set();
    }
    return 0;
}
} // namespace

KOR_CHILD(writes_in_turns_with_another) { return write_in_turns(args); }

// In turns, as Wine loses lines that two processes append at once.
TEST_F(LogRotation, TwoProcessesThatShareAFileLoseNoLine)
{
    const std::string a = unique_name("turn");
    const std::string b = unique_name("turn");
    const NamedEvent first(a);
    constexpr int ROUNDS = 12;
    ChildOptions options = m_directory.for_child();
    options.arguments = {a, b, std::to_string(ROUNDS), "400", "20", "a"};
    Child one("writes_in_turns_with_another", options);
    options.arguments = {b, a, std::to_string(ROUNDS), "400", "20", "b"};
    Child two("writes_in_turns_with_another", options);
    one.ensure_begun();
    two.ensure_begun();
    first.set();
    EXPECT_EQ(one.wait(120000).exit_code, 0u);
    EXPECT_EQ(two.wait(120000).exit_code, 0u);

    std::multiset<std::string> there;
    for (int number = 0; number <= 30; ++number)
        for (const std::string& line : lines_in(number == 0 ? "test.log" : numbered(number)))
            there.insert(line.substr(0, line.find(' ')));
    std::multiset<std::string> expected;
    for (const char* const who : {"a", "b"})
        for (int i = 1; i <= ROUNDS * 400; ++i)
            expected.insert(who + std::to_string(i));
    EXPECT_TRUE(there == expected) << there.size() << " of " << expected.size();
    EXPECT_TRUE(is_there("test.8.log"));
    for (int number = 1; number <= 8; ++number)
        EXPECT_LE(read_file(path(numbered(number))).size(), MEGABYTE + MEGABYTE / 2) << number;
}

namespace
{
/// What another process does that is renaming the file at path, until end.
class Renamer
{
public:
    explicit Renamer(const std::string& path) : m_lock(::CreateMutexA(nullptr, FALSE, lock_name(path).c_str()))
    {
        m_holder = std::make_unique<BoundedThread>(
            [this]
            {
                ::WaitForSingleObject(m_lock, 20000);
                m_begun.set();
                m_over.wait(60000);
                ::ReleaseMutex(m_lock);
            },
            90000);
        EXPECT_TRUE(m_begun.wait());
    }
    Renamer(const Renamer&) = delete;
    Renamer& operator=(const Renamer&) = delete;
    ~Renamer()
    {
        end();
        ::CloseHandle(m_lock);
    }

    void end()
    {
        m_over.set();
        m_holder->join();
    }

private:
    static std::string lock_name(const std::string& path)
    {
        wchar_t full[MAX_PATH] = {};
        ::GetFullPathNameW(std::wstring(path.begin(), path.end()).c_str(), MAX_PATH, full, nullptr);
        return kor::core::rotation_lock_name(full);
    }

    HANDLE m_lock;
    NamedEvent m_begun{unique_name("begun")};
    NamedEvent m_over{unique_name("over")};
    std::unique_ptr<BoundedThread> m_holder;
};
} // namespace

TEST_F(LogRotation, WhileAnotherProcessRenamesTheFileIsWrittenOn)
{
    open(3);
    write_lines(1);
    Renamer other(path());
    fill_a_file();
    EXPECT_FALSE(is_there("test.1.log"));
    other.end();
    ASSERT_TRUE(write_until([&] { return is_there("test.1.log"); }));
    EXPECT_EQ(notices(), "");
    expect_every_line_once();
}

TEST_F(LogRotation, AProcessThatHangsWhileItRenamesKeepsNobodyFromIt)
{
    open(3);
    write_lines(1);
    std::atomic<ULONGLONG> later{0};
    Hook<GetTickCount64Import> ticks([&]() -> ULONGLONG { return ::GetTickCount64() + later; });
    ASSERT_TRUE(ticks.installed());
    const Renamer other(path());
    fill_a_file();
    later = 2000;
    write_lines(1);
    EXPECT_FALSE(is_there("test.1.log"));
    later = 600'000;
    write_lines(1);
    EXPECT_TRUE(is_there("test.1.log"));
    expect_every_line_once();
}

// Kills ---------------------------------------------------------------------------------------------------
namespace
{
/// Ends the process, as the n-th of the calls that a rotation makes would be made.
int g_calls_left = 0;
int g_said = 0;
std::string g_said_file;

void count_call()
{
    if (g_calls_left-- != 0)
        return;
    write_file(g_said_file, std::to_string(g_said));
    ::TerminateProcess(::GetCurrentProcess(), 77);
}

HANDLE WINAPI counted_create(
    const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes, DWORD disposition, DWORD flags,
    HANDLE pattern)
{
    count_call();
    return ::CreateFileW(name, access, share, attributes, disposition, flags, pattern);
}
BOOL WINAPI counted_move(const wchar_t* from, const wchar_t* to, DWORD flags)
{
    count_call();
    return ::MoveFileExW(from, to, flags);
}
BOOL WINAPI counted_delete(const wchar_t* name)
{
    count_call();
    return ::DeleteFileW(name);
}
BOOL WINAPI counted_set(HANDLE file, FILE_INFO_BY_HANDLE_CLASS what, void* data, DWORD size)
{
    count_call();
    return ::SetFileInformationByHandle(file, what, data, size);
}
BOOL WINAPI counted_write(HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped)
{
    count_call();
    return ::WriteFile(file, bytes, size, written, overlapped);
}
} // namespace

KOR_CHILD(is_killed_while_its_file_is_renamed)
{
    KorGLog.SetRotation(3);
    KorGLog.Open("test.log", "viewer");
    g_said_file = args[1];
    g_calls_left = std::atoi(args[0].c_str());
    const ImportHook create("CreateFileW", reinterpret_cast<void*>(&counted_create));
    const ImportHook move("MoveFileExW", reinterpret_cast<void*>(&counted_move));
    const ImportHook remove("DeleteFileW", reinterpret_cast<void*>(&counted_delete));
    const ImportHook set("SetFileInformationByHandle", reinterpret_cast<void*>(&counted_set));
    const ImportHook write("WriteFile", reinterpret_cast<void*>(&counted_write));
    if (!create.installed() || !move.installed() || !remove.installed() || !set.installed() || !write.installed())
        return 2;
    for (int i = 1; i <= 3; ++i)
    {
        KorGLog.LogNoHeadline("%s", padded("killed" + std::to_string(i), 1000).c_str());
        g_said = i;
    }
    g_calls_left = -1;
    return 0;
}

TEST_F(LogRotation, AKillAtAnyStepLosesNothingThatIsKept)
{
    for (int step = 0;; ++step)
    {
        ASSERT_LT(step, 100);
        const LogDirectory directory(ONE_MEGABYTE);
        // One line more fits, and three older files are there.
        write_file(directory.file("test.log"), "youngest\r\n" + std::string(MEGABYTE - 1600, 'x') + "\r\n");
        for (int number = 1; number <= 3; ++number)
            write_file(directory.file(numbered(number)), "older " + std::to_string(number) + "\r\n");
        ChildOptions options = directory.for_child();
        options.arguments = {std::to_string(step), directory.file("said")};
        const ChildResult child = run_child("is_killed_while_its_file_is_renamed", options);
        ASSERT_TRUE(child.exit_code == 77 || child.exit_code == 0) << child.exit_code;
        const int said = child.exit_code == 0 ? 3 : std::atoi(read_file(directory.file("said")).c_str());

        // The next one goes on, and rotates once more.
        Kor_LogFile log(777, false);
        log.SetRotation(5);
        ASSERT_EQ(log.Open("test.log", "viewer"), 0);
        for (int i = 0; i < 1060; ++i)
            log.LogNoHeadline("%s", padded("next" + std::to_string(i), 1000).c_str());
        std::map<std::string, int> there;
        for (int number = 0; number <= 25; ++number)
            for (const std::string& line :
                 lines_of(read_file(directory.file(number == 0 ? "test.log" : numbered(number)))))
                if (line[0] != 'x' && line[0] != '=')
                    ++there[line.substr(0, line.find(' ', line[0] == 'o' ? 6 : 0))];
        for (const auto& [line, count] : there)
            EXPECT_EQ(count, 1) << line << ", step " << step;
        EXPECT_EQ(there.count("youngest"), 1u) << step;
        EXPECT_EQ(there.count("older 1") + there.count("older 2"), 2u) << step;
        for (int i = 1; i <= said; ++i)
            EXPECT_EQ(there.count("killed" + std::to_string(i)), 1u) << "line " << i << ", step " << step;
        for (int i = 0; i < 1060; ++i)
            EXPECT_EQ(there.count("next" + std::to_string(i)), 1u) << "line " << i << ", step " << step;
        if (child.exit_code == 0)
        {
            EXPECT_GT(step, 10);
            std::printf("%d steps\n", step);
            break;
        }
    }
}

namespace
{
constexpr int THREADS = SharedSaid::THREADS;
} // namespace

KOR_CHILD(writes_until_it_is_killed)
{
    const SharedSaid shared(args[0]);
    KorGLog.SetRotation(400);
    KorGLog.Open("test.log", "viewer");
    const std::string filler(850, 'x');
    run_on_threads(
        THREADS,
        [&](int thread)
        {
            for (int i = 1;; ++i)
            {
                KorGLog.LogAt(
                    "host.cpp", "main", 1, 1, 3, "life %s thread %d line %d %s end", args[1].c_str(), thread, i,
                    filler.c_str());
                shared.said().lines[thread] = i;
            }
        },
        600000);
    return 0;
}

namespace
{
/// What was found of the lines of one life, each with how often.
using LifeLines = std::vector<std::vector<unsigned char>>;

class KilledHosts
{
public:
    explicit KilledHosts(const LogDirectory& directory) : m_directory(directory) {}

    /// Takes in the lines of the files that are done, and deletes them; of all files at the end.
    void collect(bool all)
    {
        for (int number = 420; number >= (all ? 0 : 1); --number)
        {
            const std::string path = m_directory.file(number == 0 ? "test.log" : numbered(number));
            if (!file_exists(path))
                continue;
            rotations += number == 0 ? 0 : 1;
            const std::string bytes = read_file(path);
            largest = std::max(largest, bytes.size());
            take(bytes);
            ::DeleteFileA(path.c_str());
        }
    }

    std::map<int, LifeLines> lives;
    int rotations = 0;
    int others = 0; ///< lines that no host has said
    std::size_t largest = 0;

private:
    void take(const std::string& bytes)
    {
        std::istringstream text(bytes);
        for (std::string line; std::getline(text, line);)
        {
            const std::size_t at = line.find("-> life ");
            int life = 0;
            int thread = 0;
            int number = 0;
            if (at != std::string::npos &&
                std::sscanf(line.c_str() + at, "-> life %d thread %d line %d", &life, &thread, &number) == 3 &&
                line.size() > 850 && line.compare(line.size() - 5, 5, " end\r") == 0)
            {
                LifeLines& lines = lives[life];
                lines.resize(THREADS);
                auto& of_thread = lines[static_cast<std::size_t>(thread)];
                of_thread.resize(std::max(of_thread.size(), static_cast<std::size_t>(number) + 1));
                ++of_thread[static_cast<std::size_t>(number)];
            }
            else if (line.compare(0, 6, "===== ") != 0)
            {
                std::printf("not a line of a host: %.60s\n", line.c_str());
                ++others;
            }
        }
    }

    const LogDirectory& m_directory;
};
} // namespace

// The first line that a thread had not yet said when it was killed may be there.
TEST(LogRotationKills, AHostThatIsKilledWhileItsFilesRotateHasSaidNoLineInVain)
{
    const int kills = rounds_wanted("LUMLOG_TEST_ROTATION_KILLS", 4);
    const LogDirectory directory(ONE_MEGABYTE);
    KilledHosts found(directory);
    std::mt19937 random(4711);
    std::vector<std::array<long long, THREADS>> said;
    for (int life = 1; life <= kills; ++life)
    {
        const std::string name = unique_name("said");
        const SharedSaid shared(name);
        ChildOptions options = directory.for_child();
        options.arguments = {name, std::to_string(life)};
        Child host("writes_until_it_is_killed", options);
        host.ensure_begun();
        const long long until = 1000 + static_cast<long long>(random() % 10'000);
        for (int i = 0; i < 60'000 && shared.total() < until; ++i)
            ::Sleep(1);
        for (unsigned i = random() % 100'000; i > 0; --i) // and a moment that no clock gives
            YieldProcessor();
        host.kill();
        ASSERT_TRUE(host.wait(60000).finished);
        EXPECT_GE(shared.total(), until) << "in life " << life;
        std::array<long long, THREADS> last{};
        std::copy(std::begin(shared.said().lines), std::end(shared.said().lines), last.begin());
        said.push_back(last);
        found.collect(life == kills); // the file that is written to is what the next one goes on with
        if (life % 20 == 0 || life == kills)
        {
            std::printf("%d kills, %d rotations\n", life, found.rotations);
            std::fflush(stdout);
        }
    }

    long long lines = 0;
    long long lost = 0;
    long long twice = 0;
    for (int life = 1; life <= kills; ++life)
        for (std::size_t thread = 0; thread < THREADS; ++thread)
        {
            auto& counts = found.lives[life];
            counts.resize(THREADS);
            const auto last = static_cast<std::size_t>(said[static_cast<std::size_t>(life) - 1][thread]);
            counts[thread].resize(std::max(counts[thread].size(), last + 1));
            EXPECT_LE(counts[thread].size(), last + 2) << "a line that was never said";
            for (std::size_t number = 1; number < counts[thread].size(); ++number)
            {
                lines += counts[thread][number];
                lost += number <= last && counts[thread][number] == 0 ? 1 : 0;
                twice += counts[thread][number] > 1 ? 1 : 0;
            }
        }
    std::printf(
        "%d kills, %d rotations: %lld lines, %lld lost, %lld twice, %d broken; the largest file has %d bytes\n", kills,
        found.rotations, lines, lost, twice, found.others, static_cast<int>(found.largest));
    EXPECT_GE(found.rotations, kills);
    EXPECT_EQ(lost, 0);
    EXPECT_EQ(twice, 0);
    EXPECT_EQ(found.others, 0);
    EXPECT_LE(found.largest, MEGABYTE);
}
