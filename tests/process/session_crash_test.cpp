// What a crash report must not wait for: a reader of standard output, threads that are stuck.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "session_report.h"

namespace
{
using Gatherer = Kor_SessionLogGatherer;
using Host = Kor_SessionLogHost;

/// What handlers of a crash call.
void report_crash(DWORD code)
{
    EXCEPTION_RECORD record{};
    CONTEXT context{};
    record.ExceptionCode = code;
    ::RtlCaptureContext(&context);
    EXCEPTION_POINTERS exception{&record, &context};
    Host::reportToCrashLogFile(&exception);
    Kor_SessionLog::GetInstance()->produceMinidump(&exception);
    Kor_SessionLog::GetInstance()->createReport(&exception);
    Host::saveState();
}

void print(const char* text)
{
    std::fputs(text, stdout);
    std::fflush(stdout);
}

// Standard output ----------------------------------------------------------------------
KOR_CHILD(crashes_without_a_folder)
{
    Gatherer::Activate(true);
    Kor_SessionLog::Activate(true);
    Kor_SessionLog::GetInstance();
    print("|");
    report_crash(EXCEPTION_ACCESS_VIOLATION);
    print("|");
    return 5;
}

TEST(SessionCrash, OfAHostThatHasSetNoFolderPrintsNothing)
{
    const TempDirectory directory;
    std::filesystem::create_directory(directory.file("log"));
    ChildOptions options;
    options.directory = directory.path();
    options.timeout_ms = 100000;
    const ChildResult child = run_child("crashes_without_a_folder", options);
    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 5u);
    // The folder was asked for, and found missing, before.
    EXPECT_NE(child.out.find("Kor_LogFile - Warning - No configuration file\r\n"), std::string::npos) << child.out;
    ASSERT_GE(child.out.size(), 2u);
    EXPECT_EQ(child.out.substr(child.out.find('|')), "||");
    EXPECT_TRUE(file_exists(directory.file("log\\crashes.log")));
    EXPECT_TRUE(file_exists(directory.file("log\\CLGState.mp")));
    EXPECT_EQ(
        std::distance(
            std::filesystem::directory_iterator(directory.file("log")), std::filesystem::directory_iterator()),
        4);
}
} // namespace
