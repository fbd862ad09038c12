// Writes that fail: the log goes on, and goes on with whole lines.

#include "Kor_LogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cerrno>

#include "bounded.h"
#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"
#include "open_line.h"
#include "recording_destination.h"
#include "remove_file.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(WriteFile);
KOR_IMPORT(CreateFileW);
KOR_IMPORT(GetFileInformationByHandleEx);
KOR_IMPORT(GetFileSizeEx);
KOR_IMPORT(fwrite);
KOR_IMPORT(fflush);

class LogWriteFault : public ::testing::Test
{
protected:
    LogWriteFault() : m_log(777, false)
    {
        EXPECT_TRUE(m_write.installed());
        m_log.Open("test.log", "viewer");
    }

    const LogDirectory m_directory;

    DWORD m_error = 0;       ///< what a write fails with; 0: it succeeds
    DWORD m_part = MAXDWORD; ///< as many bytes are written at most
    Hook<WriteFileImport> m_write{
        [this](HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped) -> BOOL
        {
            DWORD count = 0;
            BOOL result = TRUE;
            if (m_error == 0 || m_part != MAXDWORD)
                result = ::WriteFile(file, bytes, size < m_part ? size : m_part, &count, overlapped);
            if (written != nullptr)
                *written = count;
            ::SetLastError(m_error);
            return m_error == 0 && result;
        }};
    Kor_LogFile m_log;
};

TEST_F(LogWriteFault, ALineThatCannotBeWrittenIsLostAndTheNextOnesAreNot)
{
    for (const long error : {ERROR_DISK_FULL, ERROR_LOCK_VIOLATION, ERROR_NETNAME_DELETED, ERROR_INVALID_HANDLE})
    {
        write_file(m_directory.file("test.log"), "");
        m_log.LogNoHeadline("one");
        m_error = static_cast<DWORD>(error);
        EXPECT_EQ(m_log.LogNoHeadline("two"), 0);
        EXPECT_EQ(m_log.LogNoHeadline("three"), 0);
        m_error = 0;
        EXPECT_EQ(m_log.LogNoHeadline("four"), 0);

        EXPECT_EQ(m_directory.text(), "one\nfour\n") << error;
    }
}

TEST_F(LogWriteFault, AFailingWriteLeavesTheLastErrorAndErrnoAsTheyWere)
{
    m_error = ERROR_DISK_FULL;
    ::SetLastError(1234);
    errno = 77;
    m_log.LogNoHeadline("x");
    const DWORD error = ::GetLastError();
    const int number = errno;

    EXPECT_EQ(error, 1234u);
    EXPECT_EQ(number, 77);
}

TEST_F(LogWriteFault, DestinationsGetALineThatTheFileCouldNotTake)
{
    RecordingDestination seen;
    m_log.RegisterLogDestination(&seen);
    m_error = ERROR_DISK_FULL;
    m_log.LogNoHeadline("x");
    m_log.UnregisterLogDestination(&seen);

    ASSERT_EQ(seen.messages.size(), 1u);
    EXPECT_EQ(seen.messages[0].text, "x\n");
}

TEST_F(LogWriteFault, AHalfWrittenLineIsNotGluedToTheNext)
{
    m_log.LogNoHeadline("one");
    m_error = ERROR_DISK_FULL;
    m_part = 5;
    m_log.LogNoHeadline("two is a longer line");
    m_error = 0;
    m_part = MAXDWORD;
    m_log.LogNoHeadline("three");
    m_log.LogNoHeadline("four");

    EXPECT_EQ(m_directory.text(), "one\ntwo i\nthree\nfour\n");
}

TEST_F(LogWriteFault, AHalfWrittenLineWithoutAnErrorIsNotGluedToTheNextEither)
{
    m_log.LogNoHeadline("one");
    m_part = 5;
    m_log.LogNoHeadline("two is a longer line");
    m_part = MAXDWORD;
    m_log.LogNoHeadline("three");
    m_log.LogNoHeadline("four");

    const std::string text = m_directory.text();
    EXPECT_TRUE(text == "one\ntwo i\nthree\nfour\n" || text == "one\ntwo is a longer line\nthree\nfour\n") << text;
}

TEST_F(LogWriteFault, HalfALineEndIsMendedToo)
{
    m_error = ERROR_DISK_FULL;
    m_part = 4;
    m_log.LogNoHeadline("two"); // up to its carriage return
    m_error = 0;
    m_part = MAXDWORD;
    m_log.LogNoHeadline("three");

    const std::string bytes = read_file(m_directory.file("test.log"));
    EXPECT_TRUE(bytes == "two\r\r\nthree\r\n" || bytes == "two\r\nthree\r\n") << bytes;
}

TEST_F(LogWriteFault, AHalfLineIsMendedOnceAlsoWhenTheMendingFails)
{
    m_log.LogNoHeadline("one");
    m_error = ERROR_DISK_FULL;
    m_part = 5;
    m_log.LogNoHeadline("two is a longer line");
    m_part = MAXDWORD;
    m_error = ERROR_DISK_FULL;
    m_part = 0;
    m_log.LogNoHeadline("lost");
    m_log.LogNoHeadline("lost");
    m_error = 0;
    m_part = MAXDWORD;
    m_log.LogNoHeadline("three");

    EXPECT_EQ(m_directory.text(), "one\ntwo i\nthree\n");
}

TEST_F(LogWriteFault, AFailureOnManyThreadsStopsNone)
{
    m_error = ERROR_DISK_FULL;
    run_on_threads(
        4,
        [&](int)
        {
            for (int i = 0; i < 200; ++i)
                m_log.LogNoHeadline("lost");
        });
    m_error = 0;
    m_log.LogNoHeadline("fine");

    EXPECT_EQ(m_directory.text(), "fine\n");
}

// Size and opening ---------------------------------------------------------------
TEST(LogFileFault, ASizeThatCannotBeReadStopsNothing)
{
    const LogDirectory directory("2\nfile_size_limit_in_mb=1\n");
    Kor_LogFile log(777, false);
    log.Open("test.log", "viewer");
    Hook<GetFileSizeExImport> size([](HANDLE, LARGE_INTEGER*) -> BOOL { return FALSE; });
    ASSERT_TRUE(size.installed());
    for (int i = 0; i < 40; ++i)
        log.LogNoHeadline("x");

    EXPECT_EQ(directory.lines().size(), 40u);
}

TEST(LogFileFault, AFileThatAnotherProgramHasForItselfIsReportedAndOpensLater)
{
    begin_on_a_new_line();
    const LogDirectory directory;
    const std::string path = directory.file("test.log");
    const HANDLE exclusive = ::CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(exclusive, INVALID_HANDLE_VALUE);
    CapturedStream err(stderr);
    Kor_LogFile log(777, false);
    EXPECT_EQ(log.Open("test.log", "viewer"), 0);
    EXPECT_EQ(err.text(), "Failed to open log file [" + directory.path() + "/test.log]");
    ::CloseHandle(exclusive);

    EXPECT_EQ(log.ReOpen("test.log", "viewer", false), 0);
    log.LogNoHeadline("x");
    EXPECT_EQ(directory.text(), "x\n");
}

/// True once `handle` is closed, or belongs to another file than the one of that index.
bool is_closed(HANDLE handle, const BY_HANDLE_FILE_INFORMATION& file)
{
    BY_HANDLE_FILE_INFORMATION now{};
    return !::GetFileInformationByHandle(handle, &now) || now.nFileIndexLow != file.nFileIndexLow ||
           now.nFileIndexHigh != file.nFileIndexHigh;
}

TEST(LogFileFault, AFileThatWaitsToBeDeletedIsLetGoOfAndCreatedAgain)
{
    // Windows keeps the name of a deleted file, and refuses to open it, until the last handle is closed.
    const LogDirectory directory;
    const std::string path = directory.file("test.log");
    HANDLE first = INVALID_HANDLE_VALUE;
    BY_HANDLE_FILE_INFORMATION first_file{};
    bool pending = false;
    Hook<CreateFileWImport> create(
        [&](const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* attributes, DWORD disposition,
            DWORD flags, HANDLE pattern) -> HANDLE
        {
            const std::wstring text(name);
            const bool is_log = text.size() >= 8 && text.compare(text.size() - 8, 8, L"test.log") == 0;
            pending = pending && !is_closed(first, first_file);
            if (is_log && pending)
            {
                ::SetLastError(ERROR_ACCESS_DENIED);
                return INVALID_HANDLE_VALUE;
            }
            const HANDLE file = ::CreateFileW(name, access, share, attributes, disposition, flags, pattern);
            if (is_log && first == INVALID_HANDLE_VALUE)
            {
                first = file;
                ::GetFileInformationByHandle(first, &first_file);
                EXPECT_EQ(share, DWORD{FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE});
            }
            return file;
        });
    Hook<GetFileInformationByHandleExImport> information(
        [&](HANDLE file, FILE_INFO_BY_HANDLE_CLASS what, void* buffer, DWORD size) -> BOOL
        {
            const BOOL result = ::GetFileInformationByHandleEx(file, what, buffer, size);
            if (what == FileStandardInfo && file == first && pending)
                static_cast<FILE_STANDARD_INFO*>(buffer)->DeletePending = TRUE;
            return result;
        });
    ASSERT_TRUE(create.installed() && information.installed());
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    ASSERT_NE(first, INVALID_HANDLE_VALUE);
    ASSERT_TRUE(remove_open_file(path));
    pending = true;
    for (int i = 0; i < 1000 && directory.text().empty(); ++i)
    {
        log.LogNoHeadline("x");
        ::Sleep(10);
    }
    log.LogNoHeadline("y");

    EXPECT_EQ(directory.text(), "x\ny\n");
}

TEST(LogFileFault, AFileThatCannotBeLookedAfterIsWrittenAllTheSame)
{
    const LogDirectory directory;
    Hook<GetFileInformationByHandleExImport> information(
        [](HANDLE, FILE_INFO_BY_HANDLE_CLASS, void*, DWORD) -> BOOL { return FALSE; });
    ASSERT_TRUE(information.installed());
    Kor_LogFile log(777, false);
    ASSERT_EQ(log.Open("test.log", "viewer"), 0);
    log.LogNoHeadline("before");
    for (int i = 0; i < 1000 && information.calls() == 0; ++i)
    {
        log.LogNoHeadline("x");
        ::Sleep(10);
    }
    log.LogNoHeadline("after");

    const Lines lines = directory.lines();
    EXPECT_EQ(lines.front(), "before");
    EXPECT_EQ(lines.back(), "after");
}

// A stream of the caller's -------------------------------------------------------
TEST(LogStreamFault, AStreamThatCannotBeWrittenStopsNothing)
{
    const LogDirectory directory;
    write_file(directory.file("stream.log"), "only for reading\r\n");
    RecordingDestination seen;
    {
        Kor_LogFile log(777, false);
        log.Open(std::fopen(directory.file("stream.log").c_str(), "r"), "viewer");
        log.RegisterLogDestination(&seen);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(log.LogNoHeadline("x"), 0);
        log.UnregisterLogDestination(&seen);
    }
    EXPECT_EQ(seen.messages.size(), 3u);
    EXPECT_EQ(directory.text("stream.log"), "only for reading\n");
}

TEST(LogStreamFault, AStreamThatFailsForAWhileTakesTheLaterLines)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    log.Open(std::fopen(directory.file("stream.log").c_str(), "a"), "viewer");
    log.LogNoHeadline("one");
    {
        Hook<fwriteImport> writes(
            [](const void*, std::size_t, std::size_t, FILE*) -> std::size_t
            {
                errno = ENOSPC;
                return 0;
            });
        ASSERT_TRUE(writes.installed());
        EXPECT_EQ(log.LogNoHeadline("two"), 0);
        EXPECT_GT(writes.calls(), 0);
    }
    log.LogNoHeadline("three");

    EXPECT_EQ(directory.text("stream.log"), "one\nthree\n");
}

TEST(LogStreamFault, AFailingFlushIsIgnored)
{
    const LogDirectory directory;
    Kor_LogFile log(777, false);
    log.Open(std::fopen(directory.file("stream.log").c_str(), "a"), "viewer");
    Hook<fflushImport> flushes(
        [](FILE* stream) -> int
        {
            std::fflush(stream);
            return EOF;
        });
    ASSERT_TRUE(flushes.installed());
    EXPECT_EQ(log.LogNoHeadline("x"), 0);
    EXPECT_EQ(log.LogNoHeadline("y"), 0);

    EXPECT_EQ(directory.text("stream.log"), "x\ny\n");
}

TEST(LogStreamFault, StandardErrorThatCannotBeWrittenStopsNothing)
{
    begin_on_a_new_line();
    const LogDirectory directory(TO_STDERR);
    RecordingDestination seen;
    Kor_LogFile log(777, false);
    log.Open("viewer");
    log.RegisterLogDestination(&seen);
    CapturedStream err(stderr);
    {
        Hook<fwriteImport> writes([](const void*, std::size_t, std::size_t, FILE*) -> std::size_t { return 0; });
        ASSERT_TRUE(writes.installed());
        EXPECT_EQ(log.LogNoHeadline("one"), 0);
        EXPECT_GT(writes.calls(), 0);
    }
    log.LogNoHeadline("two");
    log.UnregisterLogDestination(&seen);

    EXPECT_EQ(err.text(), "two\n");
    EXPECT_EQ(seen.messages.size(), 2u);
}
} // namespace
