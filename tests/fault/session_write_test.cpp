// Reports and state files that cannot be written: the old state stays whole, and the general log says so.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_SessionLogGatherer.h"
#include "session_report.h"

namespace
{
using Gatherer = Kor_SessionLogGatherer;
using Lines = std::vector<std::string>;

KOR_IMPORT(CreateFileW);
KOR_IMPORT(WriteFile);
KOR_IMPORT(SetFileInformationByHandle);
KOR_IMPORT(Sleep);

const std::string FUNCTION =
    "(106) viewer (<pid>,<tid>)  Kor_SessionLogGatherer(n) Kor_SessionLogGatherer::generateReport -> ";
const std::string FAILED = "<time> ERROR   " + FUNCTION;
const std::string OTHER_EXCEPTION = FAILED + "Exception in Kor_SessionLogGatherer::generateReport()";
const std::string CANNOT_WRITE = FAILED + "DOM Exception 35 in Kor_SessionLogGatherer::generateReport()";
const std::string WROTE = "<time> DEBUG   " + FUNCTION + "Crashlog gatherer state written to '";
const std::string IN_PLACE = "<time> WARNING " + FUNCTION + "Somebody has the state file '";
const std::string KEPT_OPEN = "' open and keeps it from being replaced. It was written in place.";
const std::string OLD_STATE = "the old state";

std::wstring wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

/// A disk on which so many writes to reports and states succeed, counted in calls or in bytes.
class FullDisk
{
public:
    explicit FullDisk(int calls, DWORD room = 0xFFFFFFFF)
        : m_calls(calls), m_room(room),
          m_opens(
              [this](
                  const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD how, DWORD flags,
                  HANDLE like)
              {
                  const HANDLE file = m_opens_self->original(name, access, share, security, how, flags, like);
                  if (std::wstring_view(name).find(L".mp") != std::wstring_view::npos)
                      m_files.insert(file);
                  return file;
              }),
          m_writes([this](HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped)
                   { return write(file, bytes, size, written, overlapped); })
    {
        m_opens_self = &m_opens;
        m_writes_self = &m_writes;
        EXPECT_TRUE(m_opens.installed() && m_writes.installed());
    }

    int refused = 0;
    int taken = 0;

private:
    BOOL write(HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped)
    {
        if (m_files.count(file) == 0)
            return m_writes_self->original(file, bytes, size, written, overlapped);
        const DWORD part = taken >= m_calls ? 0 : std::min(size, m_room);
        if (part == 0)
        {
            ++refused;
            *written = 0;
            ::SetLastError(ERROR_DISK_FULL);
            return FALSE;
        }
        ++taken;
        m_room -= part;
        return m_writes_self->original(file, bytes, part, written, overlapped);
    }

    const int m_calls;
    DWORD m_room;
    std::set<HANDLE> m_files;
    Hook<CreateFileWImport>* m_opens_self = nullptr;
    Hook<WriteFileImport>* m_writes_self = nullptr;
    Hook<CreateFileWImport> m_opens;
    Hook<WriteFileImport> m_writes;
};

class SessionWrite : public ::testing::Test
{
protected:
    SessionWrite()
    {
        KorGLog.Open("test.log", "viewer", false);
        KorGLog.ReadFile();
        Gatherer::Activate(true);
        gatherer().setHistorySize(1000);
        for (int i = 0; i < 200; ++i) // several buffers full
            gatherer().reportEvent(std::to_wstring(i).c_str(), L"subject", Gatherer::COUNTED, 1, L"%d", i);
        gatherer().gatherSystemInfo();
        EXPECT_TRUE(write_file(file(), OLD_STATE));
    }

    static Gatherer& gatherer() { return *Gatherer::GetInstance(); }

    std::string file() const { return m_directory.file("CLGState.mp"); }
    std::string content() const { return read_file(file()); }
    void write(bool is_report) const { gatherer().generateReport(wide(file()).c_str(), is_report); }
    Lines lines() const { return library_lines(m_directory); }

    /// Once all is well again a state is written.
    void expect_that_the_next_state_is_written() const
    {
        ByteTarget target;
        gatherer().generateReport(&target, false);
        const std::size_t told = lines().size();
        write(false);
        EXPECT_TRUE(content() == target.bytes);
        ASSERT_EQ(lines().size(), told + 1);
        EXPECT_EQ(lines().back(), WROTE + file() + "'.");
        EXPECT_EQ(files_of(m_directory), Lines{"CLGState.mp"});
    }

    const LogDirectory m_directory{LIBRARY_TO_FILE};
    FixedSessionClock m_clock;
};

TEST_F(SessionWrite, AFileThatCannotBeCreatedIsToldAndTheOldOneStays)
{
    for (const bool is_report : {true, false})
    {
        const Hook<CreateFileWImport> opens(
            [](const wchar_t*, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE)
            {
                ::SetLastError(ERROR_ACCESS_DENIED);
                return INVALID_HANDLE_VALUE;
            });
        ASSERT_TRUE(opens.installed());
        write(is_report);
        EXPECT_EQ(opens.calls(), 1);
        EXPECT_EQ(content(), OLD_STATE);
    }
    EXPECT_EQ(lines(), (Lines{OTHER_EXCEPTION, OTHER_EXCEPTION}));
    expect_that_the_next_state_is_written();
}

TEST_F(SessionWrite, AReportThatSomebodyReadsAloneIsToldAndLeftAsItIs)
{
    const HANDLE reader =
        ::CreateFileA(file().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    write(true);
    EXPECT_EQ(content(), OLD_STATE);
    ::CloseHandle(reader);
    EXPECT_EQ(lines(), Lines{OTHER_EXCEPTION});
    expect_that_the_next_state_is_written();
}

TEST_F(SessionWrite, AStateThatFillsTheDiskHalfWayLeavesTheOldOneAndNothingElse)
{
    for (int i = 0; i < 500; ++i)
        gatherer().reportEvent(L"Page", std::to_wstring(i).c_str(), Gatherer::COUNTED, 1, nullptr);
    int writes = 0;
    {
        const FullDisk roomy(1000);
        write(false);
        writes = roomy.taken;
    }
    ASSERT_GT(writes, 3);
    ASSERT_TRUE(write_file(file(), OLD_STATE));
    Lines expected = lines();
    for (int calls = 0; calls < writes; ++calls)
    {
        const FullDisk disk(calls);
        write(false);
        EXPECT_GT(disk.refused, 0);
        EXPECT_EQ(disk.taken, calls);
        EXPECT_EQ(content(), OLD_STATE);
        EXPECT_EQ(files_of(m_directory), Lines{"CLGState.mp"});
        expected.push_back(CANNOT_WRITE);
    }
    EXPECT_EQ(lines(), expected);
    expect_that_the_next_state_is_written();
}

TEST_F(SessionWrite, AReportThatFillsTheDiskStaysAsFarAsItWasWritten)
{
    ByteTarget target;
    gatherer().generateReport(&target, true);
    const std::string whole = target.bytes;
    ASSERT_GT(whole.size(), 100'000u);
    Lines expected;
    for (const DWORD room : {0u, 1u, 1000u, 16'385u, 40'000u, 100'000u})
    {
        {
            const FullDisk disk(1000, room);
            write(true);
            EXPECT_EQ(disk.refused, 1);
        }
        EXPECT_TRUE(content() == whole.substr(0, room)) << room;
        expected.push_back(CANNOT_WRITE);
        EXPECT_EQ(lines(), expected);
        EXPECT_TRUE(::DeleteFileA(file().c_str())) << "it is still open";
    }
    write(true);
    EXPECT_TRUE(content() == whole);
    EXPECT_EQ(lines().back(), "<time> DEBUG   " + FUNCTION + "Crash report written to '" + file() + "'.");
}

TEST_F(SessionWrite, AWriteThatTakesAPieceOnlyIsContinued)
{
    ByteTarget target;
    gatherer().generateReport(&target, true);
    Hook<WriteFileImport>* own = nullptr;
    Hook<WriteFileImport> writes(
        [&](HANDLE handle, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped)
        { return own->original(handle, bytes, size < 16'384 ? size : 5000, written, overlapped); });
    own = &writes;
    ASSERT_TRUE(writes.installed());
    write(true);
    EXPECT_TRUE(content() == target.bytes);
    EXPECT_GT(writes.calls(), 20);
}

TEST_F(SessionWrite, AWriteThatTakesNothingEndsTheReport)
{
    const Hook<WriteFileImport> writes(
        [](HANDLE, const void*, DWORD, DWORD* written, OVERLAPPED*) -> BOOL
        {
            *written = 0;
            return TRUE;
        });
    ASSERT_TRUE(writes.installed());
    write(false);
    EXPECT_GT(writes.calls(), 0);
    EXPECT_EQ(content(), OLD_STATE);
}

/// Has no file take another's name.
class NoRenames
{
public:
    NoRenames()
        : m_sets(
              [this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS what, void* information, DWORD size) -> BOOL
              {
                  if (what != FileRenameInfo)
                      return m_self->original(handle, what, information, size);
                  ++tried;
                  ::SetLastError(ERROR_ACCESS_DENIED);
                  return FALSE;
              })
    {
        m_self = &m_sets;
        EXPECT_TRUE(m_sleeps.installed() && m_sets.installed());
    }

    int tried = 0;

private:
    const Hook<SleepImport> m_sleeps{[](DWORD) {}};
    Hook<SetFileInformationByHandleImport>* m_self = nullptr;
    Hook<SetFileInformationByHandleImport> m_sets;
};

TEST_F(SessionWrite, AStateThatCannotTakeItsNameIsWrittenInPlaceWhichIsTold)
{
    ByteTarget target;
    gatherer().generateReport(&target, false);
    for (const std::size_t old_size : {std::size_t{0}, OLD_STATE.size(), target.bytes.size() + 100'000})
    {
        ASSERT_TRUE(write_file(file(), std::string(old_size, 'o')));
        const std::size_t told = lines().size();
        {
            const NoRenames no_renames;
            write(false);
            EXPECT_GT(no_renames.tried, 1);
        }
        EXPECT_TRUE(content() == target.bytes) << old_size;
        EXPECT_EQ(files_of(m_directory), Lines{"CLGState.mp"});
        ASSERT_EQ(lines().size(), told + 2);
        EXPECT_EQ(lines()[told], IN_PLACE + file() + KEPT_OPEN);
        EXPECT_EQ(lines()[told + 1], WROTE + file() + "'.");
    }
    expect_that_the_next_state_is_written();
}

KOR_IMPORT(SetEndOfFile);

TEST_F(SessionWrite, AStateThatIsToBeWrittenInPlaceOnAFullDiskLeavesTheOldOne)
{
    const NoRenames no_renames;
    const Hook<SetEndOfFileImport> no_room(
        [](HANDLE) -> BOOL
        {
            ::SetLastError(ERROR_DISK_FULL);
            return FALSE;
        });
    ASSERT_TRUE(no_room.installed());
    write(false);
    EXPECT_EQ(no_room.calls(), 1);
    EXPECT_EQ(content(), OLD_STATE);
    EXPECT_EQ(files_of(m_directory), Lines{"CLGState.mp"});
    EXPECT_EQ(lines(), Lines{OTHER_EXCEPTION});
}

TEST_F(SessionWrite, WaitsForAReaderOfTheOldStateThatIsSoonDone)
{
    HANDLE reader = ::CreateFileA(file().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    {
        const Hook<SleepImport> sleeps(
            [&](DWORD)
            {
                if (reader != INVALID_HANDLE_VALUE)
                    ::CloseHandle(reader);
                reader = INVALID_HANDLE_VALUE;
            });
        ASSERT_TRUE(sleeps.installed());
        write(false);
        EXPECT_EQ(sleeps.calls(), 1);
    }
    EXPECT_NE(content(), OLD_STATE);
    EXPECT_EQ(lines(), Lines{WROTE + file() + "'."});
}

TEST_F(SessionWrite, AReaderThatStaysAndLetsNobodyDeleteTheStateSeesItWrittenInPlace)
{
    const HANDLE reader = ::CreateFileA(
        file().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    ByteTarget target;
    gatherer().generateReport(&target, false);
    {
        const Hook<SleepImport> sleeps([](DWORD) {});
        ASSERT_TRUE(sleeps.installed());
        write(false);
        EXPECT_GT(sleeps.calls(), 1);
    }
    LARGE_INTEGER size{};
    EXPECT_TRUE(::GetFileSizeEx(reader, &size));
    EXPECT_EQ(size.QuadPart, static_cast<LONGLONG>(target.bytes.size()));
    EXPECT_TRUE(content() == target.bytes);
    EXPECT_EQ(files_of(m_directory), Lines{"CLGState.mp"});
    EXPECT_EQ(lines(), (Lines{IN_PLACE + file() + KEPT_OPEN, WROTE + file() + "'."}));
    ::CloseHandle(reader);
    expect_that_the_next_state_is_written();
}

TEST_F(SessionWrite, AReaderThatStaysAndLetsNobodyWriteKeepsTheOldState)
{
    const HANDLE reader =
        ::CreateFileA(file().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    {
        const Hook<SleepImport> sleeps([](DWORD) {});
        ASSERT_TRUE(sleeps.installed());
        write(false);
    }
    EXPECT_EQ(files_of(m_directory), Lines{"CLGState.mp"});
    ::CloseHandle(reader);
    EXPECT_EQ(content(), OLD_STATE);
    EXPECT_EQ(lines(), Lines{OTHER_EXCEPTION});
    expect_that_the_next_state_is_written();
}

TEST_F(SessionWrite, AReportMayBeReadWhileItIsWritten)
{
    bool read = false;
    Hook<WriteFileImport>* own = nullptr;
    Hook<WriteFileImport> writes(
        [&](HANDLE handle, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped)
        {
            const BOOL done = own->original(handle, bytes, size, written, overlapped);
            read = read || content().substr(0, 2) == "\xFF\xFE";
            return done;
        });
    own = &writes;
    ASSERT_TRUE(writes.installed());
    write(true);
    EXPECT_TRUE(read);
}
} // namespace
