// The performance record log at the end of processes, and the files of several of them.

#include "Kor_PerformanceLog.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

void record(const char* text) { Kor_PerformanceLog::GetInstance()->WriteRecord(text, "b", 1, "c", "d"); }

/// Each record file's lines without their times, by the name behind the process id and the minute.
std::vector<std::pair<std::string, Lines>> record_files(const LogDirectory& directory)
{
    std::vector<std::pair<std::string, Lines>> files;
    WIN32_FIND_DATAA found{};
    const HANDLE search = ::FindFirstFileA(directory.file("*_P*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE)
        return files;
    do
    {
        Lines lines = lines_of(read_file(directory.file(found.cFileName)));
        for (std::string& line : lines)
            line.erase(0, line.find(',') + 1);
        const std::string name = found.cFileName;
        files.emplace_back(name.substr(name.rfind('_')), lines);
    } while (::FindNextFileA(search, &found));
    ::FindClose(search);
    return files;
}

Lines lines_of_only_file(const LogDirectory& directory)
{
    const auto files = record_files(directory);
    return files.size() == 1 ? files[0].second : Lines{std::to_string(files.size()) + " files"};
}

// Ends ---------------------------------------------------------------------------
KOR_CHILD(ends_without_closing_its_records)
{
    KorGLog.Open("test.log", "viewer");
    record("a");
    if (args[0] == "exit")
        std::exit(5);
    if (args[0] == "ExitProcess")
        ::ExitProcess(5);
    return 5;
}

TEST(RecordExit, AProcessThatEndsWithoutAClosingCallLeavesAnEmptyFile)
{
    for (const char* const way : {"return", "exit", "ExitProcess"})
    {
        const LogDirectory directory;
        ChildOptions options = directory.for_child();
        options.arguments = {way};
        const ChildResult child = run_child("ends_without_closing_its_records", options);
        EXPECT_TRUE(child.finished) << way;
        EXPECT_EQ(child.exit_code, 5u) << way;
        EXPECT_EQ(child.err, "") << way;
        EXPECT_EQ(lines_of_only_file(directory), Lines()) << way;
    }
}

/// Its end is that of a host's own static object.
struct RecordsAtItsEnd
{
    ~RecordsAtItsEnd()
    {
        if (!active)
            return;
        record("from a static destructor");
        Kor_PerformanceLog::CloseInstance();
    }
    bool active = false;
} records_at_its_end;

KOR_CHILD(records_from_a_static_destructor)
{
    KorGLog.Open("test.log", "viewer");
    records_at_its_end.active = true;
    if (args[0] == "known before")
        record("from main");
    if (args[0] == "closed before")
    {
        record("from main");
        Kor_PerformanceLog::CloseInstance();
    }
    return 5;
}

TEST(RecordExit, AStaticDestructorOfTheHostMayRecordAndClose)
{
    const std::string last = "from a static destructor,b,1,c,d";
    const std::string first = "from main,b,1,c,d";
    struct Row
    {
        const char* way;
        std::vector<std::pair<std::string, Lines>> files;
    };
    const Row rows[] = {
        {"first use", {{"_0", {last}}}},
        {"known before", {{"_0", {first, last}}}},
        {"closed before", {{"_0", {first}}, {"_1", {last}}}},
    };
    for (const Row& row : rows)
    {
        const LogDirectory directory;
        ChildOptions options = directory.for_child();
        options.arguments = {row.way};
        const ChildResult child = run_child("records_from_a_static_destructor", options);
        EXPECT_TRUE(child.finished) << row.way;
        EXPECT_EQ(child.exit_code, 5u) << row.way;
        EXPECT_EQ(child.err, "") << row.way;
        EXPECT_EQ(record_files(directory), row.files) << row.way;
    }
}

KOR_CHILD(ends_while_threads_record)
{
    KorGLog.Open("test.log", "viewer");
    Kor_PerformanceLog* const log = Kor_PerformanceLog::GetInstance();
    std::atomic<int> running{0};
    for (int i = 0; i < 4; ++i)
    {
        std::thread(
            [&]
            {
                log->WriteRecord("a", "b", 1, "c", "d");
                ++running;
                for (;;)
                    log->WriteRecord("a", "b", 1, "c", "d");
            })
            .detach();
    }
    while (running < 4)
        ::Sleep(1);
    ::ExitProcess(7);
}

TEST(RecordExit, AProcessMayEndWhileItsThreadsRecord)
{
    for (int i = 0; i < 5; ++i)
    {
        const LogDirectory directory;
        const ChildResult child = run_child("ends_while_threads_record", directory.for_child());
        EXPECT_TRUE(child.finished);
        EXPECT_EQ(child.exit_code, 7u);
        EXPECT_EQ(lines_of_only_file(directory), Lines());
    }
}

// Several processes --------------------------------------------------------------
KOR_CHILD(records_its_name)
{
    KorGLog.Open("viewer");
    record(args[0].c_str());
    Kor_PerformanceLog::CloseInstance();
    return 5;
}

TEST(RecordExit, ProcessesOfTheSameFolderHaveFilesOfTheirOwn)
{
    const LogDirectory directory;
    std::vector<std::unique_ptr<Child>> children;
    for (const char* const name : {"first", "second", "third"})
    {
        ChildOptions options = directory.for_child();
        options.arguments = {name};
        children.push_back(std::make_unique<Child>("records_its_name", options));
    }
    for (const auto& child : children)
    {
        child->ensure_begun();
        EXPECT_EQ(child->wait(30000).exit_code, 5u);
    }
    Lines all;
    for (const auto& [number, lines] : record_files(directory))
    {
        EXPECT_EQ(number, "_0");
        all.insert(all.end(), lines.begin(), lines.end());
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all, (Lines{"first,b,1,c,d", "second,b,1,c,d", "third,b,1,c,d"}));
}

// Before the log -----------------------------------------------------------------
KOR_CHILD(records_without_a_log)
{
    record("a");
    Kor_PerformanceLog::CloseInstance();
    return 5;
}

TEST(RecordExit, RecordsNeedNoOpenLog)
{
    const LogDirectory directory(TO_STDERR);
    const ChildResult child = run_child("records_without_a_log", directory.for_child());
    EXPECT_EQ(child.exit_code, 5u);
    EXPECT_NE(child.err.find("Kor_PerformanceLog::Init: filename is "), std::string::npos);
    EXPECT_EQ(lines_of_only_file(directory), Lines{"a,b,1,c,d"});
}

KOR_CHILD(records_without_a_folder)
{
    record("a");
    Kor_PerformanceLog::CloseInstance();
    return 5;
}

TEST(RecordExit, WithoutAVariableTheFolderIsMadeWhereTheProcessRuns)
{
    const TempDirectory place;
    ChildOptions options;
    options.directory = place.path();
    options.environment = {{"PRISMATE_LOG_DIR", ""}};
    const ChildResult child = run_child("records_without_a_folder", options);
    EXPECT_EQ(child.exit_code, 5u);
    EXPECT_NE(child.err.find(" -> Kor_PrformanceLog - Warning - No configuration file"), std::string::npos);
    EXPECT_TRUE(file_exists(place.file("log")));
}
} // namespace
