// The performance record log: its records, its files, and what it tells of itself.

#include "Kor_PerformanceLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <direct.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"
#include "recording_destination.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(QueryPerformanceCounter);
KOR_IMPORT(QueryPerformanceFrequency);
KOR_IMPORT(GetCurrentThreadId);
KOR_IMPORT(GetLocalTime);
KOR_IMPORT(malloc);
KOR_IMPORT(_aligned_malloc);
KOR_IMPORT(_wmkdir);
KOR_IMPORT(_wfopen);
KOR_IMPORT(fclose);
KOR_IMPORT(fputs);
KOR_IMPORT(EnterCriticalSection);
KOR_IMPORT(WaitForSingleObject);

/// The names of the record files of a folder, by their numbers.
Lines record_files(const std::string& directory)
{
    Lines names;
    WIN32_FIND_DATAA found{};
    const std::string pattern = directory + '\\' + std::to_string(::GetCurrentProcessId()) + "_P*";
    const HANDLE search = ::FindFirstFileA(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return names;
    do
        names.emplace_back(found.cFileName);
    while (::FindNextFileA(search, &found));
    ::FindClose(search);
    std::sort(names.begin(), names.end());
    return names;
}

/// What the process's record log leaves, in a folder of its own.
class RecordLog : public ::testing::Test
{
protected:
    explicit RecordLog(const std::string& logger = TO_FILE) : m_directory(logger)
    {
        KorGLog.Open("test.log", "viewer", false);
        KorGLog.ReadFile();
    }
    ~RecordLog() override
    {
        Kor_PerformanceLog::CloseInstance();
        KorGLog.ClearAllLogDestinations();
    }

    static Kor_PerformanceLog& log() { return *Kor_PerformanceLog::GetInstance(); }

    /// A record that is told by its number.
    static void record(int number) { log().WriteRecord("a", "b", static_cast<float>(number), "c", "d"); }

    Lines files() const { return record_files(m_directory.path()); }

    /// The lines of the only file, or of that number, without their times.
    Lines records(std::size_t file = 0) const
    {
        Lines lines = lines_of(bytes(file));
        for (std::string& line : lines)
            line.erase(0, line.find(','));
        return lines;
    }

    std::string bytes(std::size_t file = 0) const
    {
        const Lines names = files();
        return file < names.size() ? read_file(m_directory.file(names[file])) : "no such file";
    }

    const LogDirectory m_directory;
};

/// Gives the library's calls of the counter these ticks.
class FixedCounter
{
public:
    explicit FixedCounter(std::int64_t frequency)
        : m_frequency(
              [frequency](LARGE_INTEGER* ticks) -> BOOL
              {
                  ticks->QuadPart = frequency;
                  return TRUE;
              }),
          m_counter(
              [this](LARGE_INTEGER* ticks) -> BOOL
              {
                  ticks->QuadPart = now;
                  return TRUE;
              })
    {
        EXPECT_TRUE(m_frequency.installed() && m_counter.installed());
    }

    int frequency_reads() const noexcept { return m_frequency.calls(); }
    int reads() const noexcept { return m_counter.calls(); }

    std::atomic<std::int64_t> now{0};

private:
    Hook<QueryPerformanceFrequencyImport> m_frequency;
    Hook<QueryPerformanceCounterImport> m_counter;
};

/// Lets the library's threads have other ids.
class FixedThreadId
{
public:
    FixedThreadId() : m_hook([this]() -> DWORD { return id; }) { EXPECT_TRUE(m_hook.installed()); }

    std::atomic<DWORD> id{0};

private:
    Hook<GetCurrentThreadIdImport> m_hook;
};

// Records ------------------------------------------------------------------------
TEST_F(RecordLog, ARecordIsALineOfItsTimeTextsAndValue)
{
    FixedCounter counter(10'000'000);
    counter.now = 47'119'999;
    log().WriteRecord("scan", "load", 0.5f, "album 12", "image 3");
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(bytes(), "4711,scan,load,0.5,album 12,image 3\r\n");
}

TEST_F(RecordLog, TheTimeIsTheCountersInWholeMilliseconds)
{
    FixedCounter counter(3);
    for (const std::int64_t now : {0LL, 1LL, 5LL, 9'223'372'036'854'775LL})
    {
        counter.now = now;
        record(0);
    }
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(bytes(), "0,a,b,0,c,d\r\n333,a,b,0,c,d\r\n1666,a,b,0,c,d\r\n3074457345618258333,a,b,0,c,d\r\n");
}

TEST_F(RecordLog, EachRecordReadsTheCounterOnceAndTheFrequencyIsReadOnce)
{
    const FixedCounter counter(1000);
    log();
    EXPECT_EQ(counter.reads(), 0);
    for (int i = 0; i < 100; ++i)
        record(i);
    Kor_PerformanceLog::CloseInstance();
    record(100);
    EXPECT_EQ(counter.reads(), 101);
    EXPECT_EQ(counter.frequency_reads(), 1);
}

TEST_F(RecordLog, AValueHasSixSignificantDigits)
{
    for (const float value : {0.5f, 1234567.0f, 12.0f, -0.1f, 1e-5f, INFINITY, NAN})
        log().WriteRecord("a", "b", value, "c", "d");
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(
        records(), ElementsAre(
                       ",a,b,0.5,c,d", ",a,b,1.23457e+06,c,d", ",a,b,12,c,d", ",a,b,-0.1,c,d", ",a,b,1e-05,c,d",
                       ",a,b,inf,c,d", ",a,b,nan,c,d"));
}

TEST_F(RecordLog, TextsAreWrittenAsTheyAre)
{
    log().WriteRecord("a,b", "100%d%s%n", 1, "\xE4\xFF", "");
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(records(), ElementsAre(",a,b,100%d%s%n,1,\xE4\xFF,"));
}

TEST_F(RecordLog, TextsThatAreMissingAreNamed)
{
    log().WriteRecord(nullptr, nullptr, 1, nullptr, nullptr);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(records(), ElementsAre(",(null),(null),1,(null),(null)"));
}

TEST_F(RecordLog, TextsMayBeOfAnyLength)
{
    const std::string text(1'000'000, 'x');
    record(1);
    log().WriteRecord(text.c_str(), "b", 2, "c", text.c_str());
    record(3);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(records(), ElementsAre(",a,b,1,c,d", ',' + text + ",b,2,c," + text, ",a,b,3,c,d"));
}

// The file -----------------------------------------------------------------------
TEST_F(RecordLog, TheFirstCallMakesAnEmptyFileNamedAfterProcessMinuteAndNumber)
{
    const Hook<GetLocalTimeImport> clock([](SYSTEMTIME* now) { *now = {2024, 3, 0, 4, 5, 6, 59, 999}; });
    ASSERT_TRUE(clock.installed());
    log();
    EXPECT_THAT(files(), ElementsAre(std::to_string(::GetCurrentProcessId()) + "_P03040506_0"));
    EXPECT_EQ(bytes(), "");
}

TEST_F(RecordLog, TheNameHasTheLocalTimeOfTheStart)
{
    SYSTEMTIME before{};
    SYSTEMTIME after{};
    ::GetLocalTime(&before);
    log();
    ::GetLocalTime(&after);
    const auto name = [](const SYSTEMTIME& time)
    {
        char text[64];
        std::snprintf(
            text, sizeof text, "%lu_P%02d%02d%02d%02d_0", ::GetCurrentProcessId(), time.wMonth, time.wDay, time.wHour,
            time.wMinute);
        return std::string(text);
    };
    ASSERT_EQ(files().size(), 1u);
    EXPECT_THAT(files()[0], testing::AnyOf(name(before), name(after)));
}

TEST_F(RecordLog, NothingIsWrittenBeforeTheClose)
{
    for (int i = 0; i < 100'000; ++i)
        record(i);
    EXPECT_EQ(bytes(), "");
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(records().size(), 100'000u);
}

TEST_F(RecordLog, AClosedLogWithoutRecordsLeavesAnEmptyFile)
{
    log();
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(files().size(), 1u);
    EXPECT_EQ(bytes(), "");
}

TEST_F(RecordLog, RecordsAfterTheCloseGoToANewLogWithAFileOfTheNextNumber)
{
    const Hook<GetLocalTimeImport> clock([](SYSTEMTIME* now) { *now = {2024, 12, 0, 31, 23, 59, 0, 0}; });
    ASSERT_TRUE(clock.installed());
    record(1);
    Kor_PerformanceLog::CloseInstance();
    record(2);
    record(3);
    Kor_PerformanceLog::CloseInstance();
    const std::string name = std::to_string(::GetCurrentProcessId()) + "_P12312359_";
    EXPECT_THAT(files(), ElementsAre(name + '0', name + '1'));
    EXPECT_THAT(records(0), ElementsAre(",a,b,1,c,d"));
    EXPECT_THAT(records(1), ElementsAre(",a,b,2,c,d", ",a,b,3,c,d"));
}

TEST_F(RecordLog, ASecondCloseDoesNothing)
{
    record(1);
    Kor_PerformanceLog::CloseInstance();
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(files().size(), 1u);
    EXPECT_THAT(records(), ElementsAre(",a,b,1,c,d"));
}

TEST_F(RecordLog, ACloseWithoutALogMakesNone)
{
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(RecordLog, AllCallsGiveTheSameLog)
{
    Kor_PerformanceLog* const first = Kor_PerformanceLog::GetInstance();
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(Kor_PerformanceLog::GetInstance(), first);
    EXPECT_EQ(files().size(), 1u);
}

TEST_F(RecordLog, AFileOfThatNameIsAppendedTo)
{
    const Hook<GetLocalTimeImport> clock([](SYSTEMTIME* now) { *now = {2024, 3, 0, 3, 4, 5, 0, 0}; });
    ASSERT_TRUE(clock.installed());
    write_file(m_directory.file(std::to_string(::GetCurrentProcessId()) + "_P03030405_0"), "of an earlier year\r\n");
    record(1);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(bytes().rfind("of an earlier year\r\n", 0), 0u);
    EXPECT_EQ(lines_of(bytes()).size(), 2u);
}

TEST_F(RecordLog, TheEndClosesTheFile)
{
    const Hook<fcloseImport> closes;
    ASSERT_TRUE(closes.installed());
    log();
    const int before = closes.calls();
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(closes.calls(), before + 1);
    EXPECT_TRUE(::DeleteFileA(m_directory.file(files().at(0)).c_str()));
}

// Writing past the records -------------------------------------------------------
TEST_F(RecordLog, WriteGoesToTheFileInFrontOfTheRecordsAndTakesPercentSignsAsTheyAre)
{
    record(1);
    log().write("100%d %s\n");
    record(2);
    Kor_PerformanceLog::CloseInstance();
    const Lines lines = lines_of(bytes());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "100%d %s");
}

TEST_F(RecordLog, WriteOfNoTextNamesIt)
{
    log().write(nullptr);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(bytes(), "(null)");
}

TEST_F(RecordLog, WhatIsWrittenIsInTheFileAfterAFlush)
{
    log().write("x\n");
    EXPECT_EQ(bytes(), "");
    log().flush();
    EXPECT_EQ(bytes(), "x\r\n");
}

TEST_F(RecordLog, ALogOfOnesOwnHasItsFileFromTheFirstWrite)
{
    {
        Kor_PerformanceLog own;
        own.flush();
        EXPECT_THAT(files(), IsEmpty());
        own.write("x\n");
        EXPECT_EQ(files().size(), 1u);
        own.write("y\n");
        EXPECT_EQ(files().size(), 1u);
    }
    EXPECT_EQ(bytes(), "x\r\ny\r\n");
}

TEST_F(RecordLog, ALogOfOnesOwnThatIsClosedHasAFileOnlyIfThereAreRecords)
{
    Kor_PerformanceLog own;
    own.close();
    EXPECT_THAT(files(), IsEmpty());
    own.WriteRecord("a", "b", 1, "c", "d");
    EXPECT_THAT(files(), IsEmpty());
    own.close();
    EXPECT_THAT(records(), ElementsAre(",a,b,1,c,d"));
}

TEST_F(RecordLog, ALogGoesOnAfterItsCloseInTheSameFile)
{
    record(1);
    log().close();
    EXPECT_THAT(records(), ElementsAre(",a,b,1,c,d"));
    record(2);
    log().close();
    log().close();
    EXPECT_THAT(records(), ElementsAre(",a,b,1,c,d", ",a,b,2,c,d"));
}

TEST_F(RecordLog, ALogThatGoesWithoutACloseDiscardsItsRecords)
{
    {
        Kor_PerformanceLog own;
        own.Init();
        own.WriteRecord("a", "b", 1, "c", "d");
    }
    EXPECT_EQ(files().size(), 1u);
    EXPECT_EQ(bytes(), "");
}

TEST_F(RecordLog, InitAgainGoesOnInAnotherFileAndClosesTheFirst)
{
    const Hook<fcloseImport> closes;
    ASSERT_TRUE(closes.installed());
    record(1);
    log().write("x\n");
    const int before = closes.calls();
    log().Init();
    EXPECT_EQ(closes.calls(), before + 1);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(files().size(), 2u);
    EXPECT_EQ(bytes(0), "x\r\n");
    EXPECT_THAT(records(1), ElementsAre(",a,b,1,c,d"));
}

// Copies -------------------------------------------------------------------------
TEST_F(RecordLog, ACopyHasTheSameRecordsAndWritesThemToTheSameFile)
{
    record(1);
    {
        Kor_PerformanceLog copy(log());
        record(2);
        copy.WriteRecord("a", "b", 3, "c", "d");
        copy.close();
        EXPECT_THAT(records(), ElementsAre(",a,b,1,c,d", ",a,b,3,c,d"));
    }
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(files().size(), 1u);
    EXPECT_THAT(records(), ElementsAre(",a,b,1,c,d", ",a,b,3,c,d", ",a,b,1,c,d", ",a,b,2,c,d"));
}

TEST_F(RecordLog, TheLastOfTheCopiesClosesTheFile)
{
    const Hook<fcloseImport> closes;
    ASSERT_TRUE(closes.installed());
    auto copy = std::make_unique<Kor_PerformanceLog>(log());
    const int before = closes.calls();
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(closes.calls(), before);
    copy->write("still open\n");
    copy.reset();
    EXPECT_EQ(closes.calls(), before + 1);
    EXPECT_EQ(bytes(), "still open\r\n");
}

TEST_F(RecordLog, AssignmentReplacesRecordsAndFile)
{
    Kor_PerformanceLog own;
    own.Init();
    own.WriteRecord("a", "b", 1, "c", "d");
    record(2);
    own = log();
    own.close();
    EXPECT_EQ(files().size(), 2u);
    EXPECT_THAT(records(0), IsEmpty());
    EXPECT_THAT(records(1), ElementsAre(",a,b,2,c,d"));
}

TEST_F(RecordLog, AssignedToItselfALogStays)
{
    record(1);
    const Kor_PerformanceLog& same = log();
    log() = same;
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(records(), ElementsAre(",a,b,1,c,d"));
}

// Threads ------------------------------------------------------------------------
TEST_F(RecordLog, RecordsThatTwoThreadsWriteInTurnsComeAsTwoBlocksInTheirOrders)
{
    FixedThreadId thread;
    log();
    for (int i = 0; i < 10; ++i)
    {
        thread.id = i % 2 == 0 ? 8 : 4;
        record(i);
    }
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(
        records(), ElementsAre(
                       ",a,b,1,c,d", ",a,b,3,c,d", ",a,b,5,c,d", ",a,b,7,c,d", ",a,b,9,c,d", ",a,b,0,c,d", ",a,b,2,c,d",
                       ",a,b,4,c,d", ",a,b,6,c,d", ",a,b,8,c,d"));
}

TEST_F(RecordLog, ThreadsComeByTheRemainderOfTheirIdsAnd1024)
{
    FixedThreadId thread;
    log();
    int number = 0;
    for (const DWORD id : {2056UL, 1023UL, 8UL, 1028UL, 4UL, 1024UL})
    {
        thread.id = id;
        record(number++);
    }
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(
        records(), ElementsAre(",a,b,5,c,d", ",a,b,3,c,d", ",a,b,4,c,d", ",a,b,0,c,d", ",a,b,2,c,d", ",a,b,1,c,d"));
}

TEST_F(RecordLog, ALaterThreadWithTheSameIdGoesOnInTheSameStream)
{
    FixedThreadId thread;
    log();
    for (int i = 0; i < 6; ++i)
    {
        thread.id = i == 3 ? 4 : 8; // another one in between
        on_another_thread([i] { record(i); });
    }
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(
        records(), ElementsAre(",a,b,3,c,d", ",a,b,0,c,d", ",a,b,1,c,d", ",a,b,2,c,d", ",a,b,4,c,d", ",a,b,5,c,d"));
}

TEST_F(RecordLog, AHundredThousandRecordsOfEachOfSixteenThreadsComeWholeAndInOrder)
{
    constexpr int THREADS = 16;
    constexpr int RECORDS = 100'000;
    log();
    std::atomic<int> ready{0};
    run_on_threads(
        THREADS,
        [&](int number)
        {
            const std::string name = "thread " + std::to_string(number);
            Kor_PerformanceLog& own = log();
            for (++ready; ready < THREADS;) // so that their first records come together
                ;
            for (int i = 0; i < RECORDS; ++i)
                own.WriteRecord(name.c_str(), std::to_string(i).c_str(), 0.5f, "text", "end");
        },
        100'000);
    Kor_PerformanceLog::CloseInstance();

    const std::string text = bytes();
    std::vector<int> begun(THREADS);
    std::size_t at = 0;
    for (int block = 0; block < THREADS; ++block)
    {
        const std::size_t name = text.find("thread ", at) + 7;
        const int number = std::stoi(text.substr(name, 2));
        ++begun.at(static_cast<std::size_t>(number));
        const std::string front = ",thread " + std::to_string(number) + ',';
        for (int i = 0; i < RECORDS; ++i)
        {
            const std::string rest = front + std::to_string(i) + ",0.5,text,end\r\n";
            at = text.find(',', at);
            ASSERT_EQ(text.compare(at, rest.size(), rest), 0) << number << ' ' << i;
            at += rest.size();
        }
    }
    EXPECT_EQ(at, text.size());
    EXPECT_EQ(begun, std::vector<int>(THREADS, 1));
}

TEST_F(RecordLog, ThreadsThatAskForTheLogAtTheSameTimeGetOneLogWithOneFile)
{
    for (std::size_t round = 1; round <= 20; ++round)
    {
        std::atomic<int> ready{0};
        std::atomic<Kor_PerformanceLog*> seen{nullptr};
        std::atomic<int> different{0};
        run_on_threads(
            8,
            [&](int number)
            {
                for (++ready; ready < 8;)
                    ;
                Kor_PerformanceLog* const own = Kor_PerformanceLog::GetInstance();
                Kor_PerformanceLog* first = nullptr;
                if (!seen.compare_exchange_strong(first, own) && first != own)
                    ++different;
                own->WriteRecord("a", "b", static_cast<float>(number), "c", "d");
            });
        Kor_PerformanceLog::CloseInstance();
        EXPECT_EQ(different, 0);
        EXPECT_EQ(files().size(), round);
    }
}

TEST_F(RecordLog, ARecordOfAThreadThatHasSomeWaitsForNothingAndTakesMemoryHardlyEver)
{
    for (int i = 0; i < 20'000; ++i)
        record(i);
    const Hook<mallocImport> mallocs;
    const Hook<_aligned_mallocImport> aligned;
    const Hook<EnterCriticalSectionImport> sections;
    const Hook<WaitForSingleObjectImport> waits;
    ASSERT_TRUE(mallocs.installed() && aligned.installed() && sections.installed() && waits.installed());
    for (int i = 0; i < 100'000; ++i)
        record(i);
    // 21 to 35 bytes each, in pieces of 256 KB, and now and then a longer list of these.
    EXPECT_LE(mallocs.calls(), 18);
    EXPECT_EQ(aligned.calls(), 0);
    EXPECT_EQ(sections.calls(), 0);
    EXPECT_EQ(waits.calls(), 0);
}

TEST_F(RecordLog, TheThreadsSystemErrorsStayAsTheyWere)
{
    const auto keeps = [](auto call)
    {
        ::SetLastError(4711);
        errno = 17;
        call();
        return ::GetLastError() == 4711 && errno == 17;
    };
    EXPECT_TRUE(keeps([] { log(); }));
    EXPECT_TRUE(keeps([] { record(1); }));
    EXPECT_TRUE(keeps([] { log().write("x\n"); }));
    EXPECT_TRUE(keeps([] { log().flush(); }));
    EXPECT_TRUE(keeps([] { log().Init(); }));
    EXPECT_TRUE(keeps([] { log().close(); }));
    EXPECT_TRUE(keeps([] { Kor_PerformanceLog copy(log()); }));
    EXPECT_TRUE(keeps([] { Kor_PerformanceLog::CloseInstance(); }));
    EXPECT_TRUE(keeps([] { Kor_PerformanceLog::CloseInstance(); }));
}

// What it tells ------------------------------------------------------------------
std::string told(const RecordedMessage& message)
{
    return std::to_string(message.level) + ' ' + std::to_string(message.package) + ' ' + message.file_name + ' ' +
           message.function + ": " + message.text;
}

/// The messages that a call sends to the general log.
Lines told_by(const std::function<void()>& call)
{
    RecordingDestination seen;
    KorGLog.RegisterLogDestination(&seen);
    call();
    KorGLog.UnregisterLogDestination(&seen);
    Lines lines;
    for (const RecordedMessage& message : seen.messages)
        lines.push_back(told(message));
    return lines;
}

const std::string SOURCE = " 106 Kor_PerformanceLog Kor_PerformanceLog::Init: ";
const std::string BEGIN = "7" + SOURCE + "performance log - Init\n";
const std::string NO_DIRECTORY = "4" + SOURCE + "Kor_PrformanceLog - Warning - No configuration file\n";

std::string file_name_is(const std::string& path)
{
    return "4" + SOURCE + "Kor_PerformanceLog::Init: filename is " + path + '\n';
}

TEST_F(RecordLog, TheNameOfTheFileIsToldAsAWarning)
{
    const Lines lines = told_by([] { log(); });
    EXPECT_THAT(lines, ElementsAre(file_name_is(m_directory.path() + '/' + files().at(0))));
    const std::string line = m_directory.text();
    EXPECT_NE(line.find(" WARNING (106) viewer ("), std::string::npos) << line;
}

TEST_F(RecordLog, NothingElseIsTold)
{
    log();
    EXPECT_THAT(
        told_by(
            []
            {
                log();
                record(1);
                log().write("x\n");
                log().flush();
                log().close();
                Kor_PerformanceLog::CloseInstance();
            }),
        IsEmpty());
}

TEST_F(RecordLog, ADestinationThatAsksForTheLogWhileItIsMadeGetsIt)
{
    Kor_PerformanceLog* inside = nullptr;
    RecordingDestination asks(
        [&](Kor_LogMTVars&)
        {
            inside = Kor_PerformanceLog::GetInstance();
            record(1);
        });
    KorGLog.RegisterLogDestination(&asks);
    EXPECT_EQ(Kor_PerformanceLog::GetInstance(), inside);
    KorGLog.UnregisterLogDestination(&asks);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_EQ(files().size(), 1u);
    EXPECT_THAT(records(), ElementsAre(",a,b,1,c,d"));
}

/// With debugging messages of the library.
class RecordLogDebug : public RecordLog
{
protected:
    RecordLogDebug() : RecordLog(LIBRARY_TO_FILE) {}
};

TEST_F(RecordLogDebug, TheBeginIsToldForDebugging)
{
    const Lines lines = told_by([] { log(); });
    EXPECT_THAT(lines, ElementsAre(BEGIN, file_name_is(m_directory.path() + '/' + files().at(0))));
}

// The folder ---------------------------------------------------------------------
/// Works in a fresh current directory.
class RecordLogFolder : public RecordLogDebug
{
protected:
    RecordLogFolder()
    {
        ::GetCurrentDirectoryA(sizeof m_before, m_before);
        ::SetCurrentDirectoryA(m_current.path().c_str());
    }
    ~RecordLogFolder() override
    {
        Kor_PerformanceLog::CloseInstance(); // its file is in that directory
        ::SetCurrentDirectoryA(m_before);
    }

    /// What is told, and that nothing is left of a record, where no file can be made.
    static Lines told_without_a_file()
    {
        const Hook<fputsImport> writes;
        EXPECT_TRUE(writes.installed());
        const Lines lines = told_by(
            []
            {
                ASSERT_NE(Kor_PerformanceLog::GetInstance(), nullptr);
                record(1);
                log().write("x\n");
                log().flush();
                Kor_PerformanceLog::CloseInstance();
            });
        EXPECT_EQ(writes.calls(), 0);
        return lines;
    }

    TempDirectory m_current;
    char m_before[MAX_PATH + 1] = {};
};

TEST_F(RecordLogFolder, WithoutAVariableTheFolderIsLogAndThatIsToldAsAWarning)
{
    const EnvironmentVariable none("PRISMATE_LOG_DIR", "");
    const Lines lines = told_by([] { record(1); });
    Kor_PerformanceLog::CloseInstance();
    const Lines names = record_files(m_current.file("log"));
    ASSERT_EQ(names.size(), 1u);
    EXPECT_THAT(lines, ElementsAre(BEGIN, NO_DIRECTORY, file_name_is("log/" + names[0])));
    EXPECT_EQ(lines_of(read_file(m_current.file("log\\" + names[0]))).size(), 1u);
}

TEST_F(RecordLogFolder, AFolderThatIsMissingIsMade)
{
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", m_current.file("new"));
    log();
    EXPECT_EQ(record_files(m_current.file("new")).size(), 1u);
}

TEST_F(RecordLogFolder, AFolderWhoseOwnFolderIsMissingIsNotMadeAndTheRecordsAreDropped)
{
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", m_current.file("missing\\new"));
    EXPECT_THAT(told_without_a_file(), ElementsAre(BEGIN));
    EXPECT_FALSE(file_exists(m_current.file("missing")));
}

TEST_F(RecordLogFolder, AFileInThePlaceOfTheFolderDropsTheRecordsAndStays)
{
    write_file(m_current.file("new"), "of somebody else");
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", m_current.file("new"));
    EXPECT_THAT(told_without_a_file(), ElementsAre(BEGIN));
    EXPECT_EQ(read_file(m_current.file("new")), "of somebody else");
}

TEST_F(RecordLogFolder, InitAgainWithoutAFolderClosesTheFileAndDropsWhatComes)
{
    log().write("x\n");
    const Hook<fcloseImport> closes;
    ASSERT_TRUE(closes.installed());
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", m_current.file("missing\\new"));
    log().Init();
    EXPECT_EQ(closes.calls(), 1);
    EXPECT_EQ(bytes(), "x\r\n");
    EXPECT_THAT(told_without_a_file(), IsEmpty());
    EXPECT_EQ(bytes(), "x\r\n");
}

TEST_F(RecordLogFolder, AFileThatCannotBeOpenedDropsTheRecords)
{
    const Hook<_wfopenImport> opens([](const wchar_t*, const wchar_t*) -> FILE* { return nullptr; });
    ASSERT_TRUE(opens.installed());
    EXPECT_THAT(told_without_a_file(), ElementsAre(BEGIN));
    EXPECT_EQ(opens.calls(), 1);
}

TEST_F(RecordLogFolder, AFolderThatIsRefusedForAnyOtherReasonDropsTheRecords)
{
    for (const int reason : {EACCES, ENOENT, ENOSPC, EINVAL})
    {
        const Hook<_wmkdirImport> makes(
            [reason](const wchar_t*)
            {
                errno = reason;
                return -1;
            });
        const Hook<_wfopenImport> opens;
        ASSERT_TRUE(makes.installed() && opens.installed());
        EXPECT_THAT(told_without_a_file(), ElementsAre(BEGIN)) << reason;
        EXPECT_EQ(makes.calls(), 1);
        EXPECT_EQ(opens.calls(), 0);
    }
}

TEST_F(RecordLogFolder, OnceTheFolderCanBeHadANewLogHasItsFile)
{
    write_file(m_current.file("new"), "");
    const EnvironmentVariable variable("PRISMATE_LOG_DIR", m_current.file("new"));
    record(1);
    Kor_PerformanceLog::CloseInstance();
    ::DeleteFileA(m_current.file("new").c_str());
    record(2);
    Kor_PerformanceLog::CloseInstance();
    const Lines names = record_files(m_current.file("new"));
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(lines_of(read_file(m_current.file("new\\" + names[0]))).size(), 1u);
}

// Switched off -------------------------------------------------------------------
/// The switch, which nothing in the library moves, by its name in the DLL.
int& record_switch()
{
    const FARPROC found = ::GetProcAddress(library_module(), "_ZN18Kor_PerformanceLog19use_performance_logE");
    EXPECT_NE(found, nullptr);
    return *reinterpret_cast<int*>(reinterpret_cast<void*>(found));
}

TEST_F(RecordLogDebug, TheSwitchIsOnFromTheStart) { EXPECT_EQ(record_switch(), 1); }

TEST_F(RecordLogDebug, SwitchedOffNothingIsDoneThoughTheBeginIsTold)
{
    record_switch() = 0;
    const Lines lines = told_by(
        []
        {
            Kor_PerformanceLog* const made = Kor_PerformanceLog::GetInstance();
            ASSERT_NE(made, nullptr);
            record(1);
            made->write("x\n");
            made->flush();
            made->close();
            Kor_PerformanceLog::CloseInstance();
            EXPECT_EQ(Kor_PerformanceLog::GetInstance(), made);
        });
    EXPECT_THAT(lines, ElementsAre(BEGIN));
    EXPECT_THAT(files(), IsEmpty());
    record_switch() = 1;
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(RecordLogDebug, SwitchedOffForAWhileALogKeepsItsRecords)
{
    record(1);
    record_switch() = 0;
    record(2);
    log().close();
    log().write("x\n");
    Kor_PerformanceLog::CloseInstance();
    record_switch() = 1;
    record(3);
    Kor_PerformanceLog::CloseInstance();
    EXPECT_THAT(records(), ElementsAre(",a,b,1,c,d", ",a,b,3,c,d"));
}
} // namespace
