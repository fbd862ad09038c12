// Records without memory, and files that cannot take them: the host goes on.

#include "Kor_PerformanceLog.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <string>

#include "Kor_LogFile.h"
#include "import_hook.h"
#include "log_directory.h"

namespace
{
KOR_IMPORT(malloc);
KOR_IMPORT(_aligned_malloc);
KOR_IMPORT(QueryPerformanceFrequency);
KOR_IMPORT(fputs);
KOR_IMPORT(fflush);
KOR_IMPORT(fclose);

class RecordFault : public ::testing::Test
{
protected:
    RecordFault() { KorGLog.Open("test.log", "viewer", false); }
    ~RecordFault() override { Kor_PerformanceLog::CloseInstance(); }

    static void record(int number)
    {
        Kor_PerformanceLog::GetInstance()->WriteRecord("a", "b", static_cast<float>(number), "c", "d");
    }

    /// The path of the process's only record file.
    std::string path() const
    {
        WIN32_FIND_DATAA found{};
        const HANDLE search =
            ::FindFirstFileA(m_directory.file(std::to_string(::GetCurrentProcessId()) + "_P*").c_str(), &found);
        if (search == INVALID_HANDLE_VALUE)
            return "none";
        ::FindClose(search);
        return m_directory.file(found.cFileName);
    }

    const LogDirectory m_directory;
};

std::string without_times(const std::string& bytes)
{
    std::string all;
    for (const std::string& line : lines_of(bytes))
        all += line.substr(line.find(',')) + '\n';
    return all;
}

// Files --------------------------------------------------------------------------
/// The place of the writes of the C runtime: its files have room for so many more bytes.
class FullDisk
{
public:
    explicit FullDisk(DWORD room) : m_hook(::GetModuleHandleA("msvcrt.dll"), "WriteFile", place())
    {
        s_room = room;
        s_refused = 0;
    }

    bool installed() const noexcept { return m_hook.installed(); }
    static int refused() noexcept { return s_refused; }

private:
    static void* place() noexcept { return reinterpret_cast<void*>(&write); }

    static BOOL WINAPI write(HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped)
    {
        DWORD count = 0;
        const DWORD part = size < s_room ? size : s_room;
        if (part != 0)
            ::WriteFile(file, bytes, part, &count, overlapped);
        s_room -= count;
        if (written != nullptr)
            *written = count;
        if (count == size)
            return TRUE;
        ++s_refused;
        ::SetLastError(ERROR_DISK_FULL);
        return FALSE;
    }

    static inline DWORD s_room = 0;
    static inline int s_refused = 0;
    ImportHook m_hook;
};

TEST_F(RecordFault, ADiskThatIsFullAtTheCloseCostsTheRecordsAndNothingElse)
{
    for (int i = 0; i < 10'000; ++i)
        record(i);
    const std::string file = path();
    {
        const FullDisk disk(0);
        ASSERT_TRUE(disk.installed());
        Kor_PerformanceLog::CloseInstance();
        EXPECT_GT(FullDisk::refused(), 0);
    }
    EXPECT_EQ(read_file(file), "");
    EXPECT_TRUE(::DeleteFileA(file.c_str())) << "it is still open";

    record(1);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(without_times(read_file(path())), ",a,b,1,c,d\n");
}

TEST_F(RecordFault, ADiskThatBecomesFullDuringTheCloseHasTheFirstRecords)
{
    std::string expected;
    for (int i = 0; i < 10'000; ++i)
    {
        record(i);
        expected += ",a,b," + std::to_string(i) + ",c,d\n";
    }
    const std::string file = path();
    {
        const FullDisk disk(100'000);
        ASSERT_TRUE(disk.installed());
        Kor_PerformanceLog::CloseInstance();
        EXPECT_GT(FullDisk::refused(), 0);
    }
    const std::string bytes = read_file(file);
    EXPECT_EQ(bytes.size(), 100'000u);
    const std::string whole = without_times(bytes.substr(0, bytes.rfind('\n') + 1));
    EXPECT_EQ(expected.compare(0, whole.size(), whole), 0);
    EXPECT_TRUE(::DeleteFileA(file.c_str())) << "it is still open";
}

TEST_F(RecordFault, FailuresOfTheStreamAreNotTold)
{
    const Hook<fputsImport> writes([](const char*, FILE*) { return EOF; });
    const Hook<fflushImport> flushes([](FILE*) { return EOF; });
    Hook<fcloseImport>* own = nullptr;
    Hook<fcloseImport> closes(
        [&](FILE* file)
        {
            own->original(file);
            return EOF;
        });
    own = &closes;
    ASSERT_TRUE(writes.installed() && flushes.installed() && closes.installed());
    record(1);
    const std::string told = m_directory.text();
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(writes.calls(), 1);
    EXPECT_EQ(flushes.calls(), 1);
    EXPECT_EQ(m_directory.text(), told);
}

// Memory -------------------------------------------------------------------------
TEST_F(RecordFault, ARecordWithoutMemoryIsLeftOutAndTheOthersAreWhole)
{
    std::string expected;
    int asked = 0;
    int refused = 0;
    {
        record(0);
        expected = ",a,b,0,c,d\n";
        Hook<mallocImport>* own = nullptr;
        Hook<mallocImport> mallocs(
            [&](std::size_t size) -> void*
            {
                // The pieces, and not what the program's own runtime needs: each is there when it has been asked for
                // in vain 50 times.
                if (size < 4096 || ++asked % 51 == 0)
                    return own->original(size);
                ++refused;
                return nullptr;
            });
        own = &mallocs;
        ASSERT_TRUE(mallocs.installed());
        for (int i = 1; i < 4000; ++i)
        {
            const int before = refused;
            record(i);
            if (refused == before)
                expected += ",a,b," + std::to_string(i) + ",c,d\n";
        }
    }
    EXPECT_GT(refused, 100);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(without_times(read_file(path())), expected);
}

TEST_F(RecordFault, AThreadWithoutMemoryForItsStreamGetsOneLater)
{
    Kor_PerformanceLog::GetInstance();
    {
        const Hook<_aligned_mallocImport> hook([](std::size_t, std::size_t) -> void* { return nullptr; });
        ASSERT_TRUE(hook.installed());
        record(1);
        EXPECT_EQ(hook.calls(), 1);
    }
    record(2);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(without_times(read_file(path())), ",a,b,2,c,d\n");
}

TEST_F(RecordFault, WithoutMemoryThereIsNoLogUntilThereIs)
{
    {
        Hook<mallocImport>* own = nullptr;
        int refused = 0;
        Hook<mallocImport> mallocs(
            [&](std::size_t size) -> void*
            {
                if (size != sizeof(Kor_PerformanceLog))
                    return own->original(size);
                ++refused;
                return nullptr;
            });
        own = &mallocs;
        ASSERT_TRUE(mallocs.installed());
        EXPECT_EQ(Kor_PerformanceLog::GetInstance(), nullptr);
        EXPECT_EQ(refused, 1);
        Kor_PerformanceLog::CloseInstance();
    }
    record(1);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(without_times(read_file(path())), ",a,b,1,c,d\n");
}

TEST_F(RecordFault, ALogWithoutMemoryForItsThreadsTakesNoRecordsButWrites)
{
    Hook<mallocImport>* own = nullptr;
    constexpr std::size_t BUCKETS_SIZE = 1024 * sizeof(void*);
    Hook<mallocImport> mallocs([&](std::size_t size) { return size == BUCKETS_SIZE ? nullptr : own->original(size); });
    own = &mallocs;
    ASSERT_TRUE(mallocs.installed());
    record(1);
    Kor_PerformanceLog::GetInstance()->write("x\n");
    const Kor_PerformanceLog copy(*Kor_PerformanceLog::GetInstance());
    Kor_PerformanceLog::GetInstance()->close();
    EXPECT_EQ(read_file(path()), "x\r\n");
}

// The counter --------------------------------------------------------------------
TEST_F(RecordFault, ACounterWithoutAFrequencyIsNoHarm)
{
    const Hook<QueryPerformanceFrequencyImport> hook(
        [](LARGE_INTEGER* ticks) -> BOOL
        {
            ticks->QuadPart = 0;
            return FALSE;
        });
    ASSERT_TRUE(hook.installed());
    record(1);
    EXPECT_EQ(hook.calls(), 1);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(without_times(read_file(path())), ",a,b,1,c,d\n");
}
} // namespace
