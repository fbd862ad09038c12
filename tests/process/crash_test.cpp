// What a host that crashes leaves behind: the example program crashing_host, in each way that it can crash.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "log_directory.h"

namespace
{
using Names = std::vector<std::string>;

const std::string EARLIER_FILTER = "the earlier filter sees exception ";
const std::string CRASHED_TOO = "this thread has crashed, too (0xc0000005), and waits for the end";

/// The example program stands beside this one.
std::string crashing_host()
{
    char path[MAX_PATH + 1] = {};
    ::GetModuleFileNameA(nullptr, path, sizeof path);
    return std::filesystem::path(path).replace_filename("example_crashing_host.exe").string();
}

ChildResult run_host(const LogDirectory& directory, const std::vector<std::string>& arguments)
{
    ChildOptions options = directory.for_child();
    options.program = crashing_host();
    options.arguments = arguments;
    options.timeout_ms = 100000; // a minidump takes Wine a second, and half a minute where the machine is busy
    return run_child("example_crashing_host", options);
}

/// The names of what is in the directory, sorted, with "<time>" for the time in them.
Names masked_files(const LogDirectory& directory)
{
    static const std::regex time(R"(-\d{4}-\d\d-\d\d-\d{6}\.)");
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path()))
        names.push_back(std::regex_replace(entry.path().filename().string(), time, "-<time>."));
    std::sort(names.begin(), names.end());
    return names;
}

/// The bytes of the file whose name begins so; empty unless there is just one.
std::string bytes_of(const LogDirectory& directory, const std::string& beginning)
{
    Names found;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path()))
    {
        if (entry.path().filename().string().rfind(beginning, 0) == 0)
            found.push_back(entry.path().string());
    }
    return found.size() == 1 ? read_file(found[0]) : std::string();
}

/// A document's text, of which all that is looked for is ASCII. Empty when it does not begin as UTF-16 does.
std::string document(const LogDirectory& directory, const std::string& beginning)
{
    const std::string bytes = bytes_of(directory, beginning);
    if (bytes.rfind("\xFF\xFE", 0) != 0)
        return {};
    std::string text;
    for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
        text += bytes[i + 1] == 0 ? bytes[i] : '?';
    return text;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

/// How many lines of the host's log end with the text.
std::ptrdiff_t lines_with(const LogDirectory& directory, const std::string& end)
{
    const std::vector<std::string> lines = directory.lines("crashing_host.log");
    return std::count_if(
        lines.begin(), lines.end(),
        [&](const std::string& line)
        { return line.size() >= end.size() && line.compare(line.size() - end.size(), end.size(), end) == 0; });
}

/// What stands in the one element of that name which has no attributes.
std::string element(const std::string& document, const std::string& name)
{
    const std::size_t begin = document.find('<' + name + '>');
    const std::size_t end = document.find("</" + name + '>');
    return begin == std::string::npos || end == std::string::npos ? std::string() : document.substr(begin, end - begin);
}

/// What the host reports before it crashes, and where in a report it belongs.
void expect_reported_work(const std::string& report)
{
    const std::string context = element(report, "context");
    EXPECT_TRUE(contains(context, "<event type='Load' subject='album 12' weight='17'")) << report;
    EXPECT_TRUE(contains(context, "<event type='Reader' weight='1'")) << report;
    EXPECT_TRUE(contains(context, "<info>album 12 &amp; 13</info>")) << report;
    EXPECT_TRUE(contains(element(report, "history"), "<event type='Login' subject='user1' weight='1'")) << report;
    EXPECT_TRUE(contains(element(report, "errors"), "<info>cannot read front.png</info>")) << report;
    EXPECT_TRUE(contains(element(report, "warnings"), "<info>only 12 of 17 images fit into memory</info>")) << report;
}

// Crashes ------------------------------------------------------------------------------------------------------------
struct Crash
{
    const char* way;
    unsigned long code;
    const char* code_text;
    const char* description;
};

void expect_everything_left_by(const Crash& crash, const LogDirectory& directory = LogDirectory())
{
    const ChildResult host = run_host(directory, {crash.way});

    EXPECT_TRUE(host.finished);
    EXPECT_EQ(host.exit_code, crash.code);
    EXPECT_EQ(
        masked_files(directory), (Names{
                                     "CLGState.mp", "crash-example_crashing_host-<time>.xml", "crashes.log",
                                     "crashing_host.log", "logger", "minidump-example_crashing_host-<time>.dmp"}));

    EXPECT_EQ(bytes_of(directory, "minidump-").substr(0, 4), "MDMP");

    const std::string report = document(directory, "crash-");
    EXPECT_TRUE(contains(report, std::string(" Code=\"") + crash.code_text + '"')) << report;
    EXPECT_TRUE(contains(report, std::string(" Description=\"") + crash.description + '"')) << report;
    EXPECT_TRUE(contains(report, "\\LUMlog.dll\"")) << report;
    EXPECT_TRUE(contains(report, "</lumariscontext>")) << "the report has no end";
    expect_reported_work(report);

    const std::regex line(
        R"(\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} Crashed Process Details: [A-Z]:\\.*\\example_crashing_host\.exe\[\d+,\d+\] )"
        "Exception Code: " +
        std::string(crash.code_text) + "\n");
    EXPECT_TRUE(std::regex_match(directory.text("crashes.log"), line)) << directory.text("crashes.log");

    const std::string state = document(directory, "CLGState.mp");
    EXPECT_TRUE(contains(state, "<lumariscontext>")) << state;
    EXPECT_TRUE(contains(state, "<statentry type='Login' subject='user1' count='1'>")) << state;
    EXPECT_TRUE(contains(state, "</lumariscontext>")) << state;

    const std::string log = directory.text("crashing_host.log");
    EXPECT_TRUE(contains(log, " SEVERE ") && contains(log, "The process has crashed: ")) << log;
    EXPECT_EQ(lines_with(directory, EARLIER_FILTER + crash.code_text), 1);
}

TEST(CrashLeavesMinidumpReportLineAndState, OfAWriteToNull)
{
    expect_everything_left_by({"null-write", 0xC0000005, "0xc0000005", "EXCEPTION_ACCESS_VIOLATION"});
}

TEST(CrashLeavesMinidumpReportLineAndState, OfAStackOverflow)
{
    expect_everything_left_by({"stack-overflow", 0xC00000FD, "0xc00000fd", "EXCEPTION_STACK_OVERFLOW"});
}

// The last lines -----------------------------------------------------------------------------------------------------
ChildResult run_recording_host(const LogDirectory& directory, const std::string& way)
{
    ChildOptions options = directory.for_child({{"PRISMATE_LOG_RECORDER", "64K,7"}});
    options.program = crashing_host();
    options.arguments = {way};
    options.timeout_ms = 100000;
    return run_child("example_crashing_host", options);
}

std::uint32_t number_at(const std::string& bytes, std::size_t at)
{
    std::uint32_t number = 0;
    if (at + sizeof number <= bytes.size())
        std::memcpy(&number, bytes.data() + at, sizeof number);
    return number;
}

/// A minidump's stream of that type: its header names the place of a directory, which names those of the streams.
std::string stream_of(const std::string& dump, std::uint32_t type)
{
    const std::uint32_t count = number_at(dump, 8);
    const std::uint32_t directory = number_at(dump, 12);
    for (std::uint32_t i = 0; i < count && i < 100; ++i)
        if (number_at(dump, directory + 12 * i) == type)
            return dump.substr(
                std::min<std::size_t>(number_at(dump, directory + 12 * i + 8), dump.size()),
                number_at(dump, directory + 12 * i + 4));
    return {};
}

constexpr std::uint32_t COMMENT = 10;

TEST(CrashLeavesTheLastLines, ThatTheHostKeepsBesideTheReportAndInTheMinidump)
{
    for (const char* const way : {"null-write", "stack-overflow", "two-threads"})
    {
        const LogDirectory directory;
        const ChildResult host = run_recording_host(directory, way);
        EXPECT_TRUE(host.finished);
        EXPECT_EQ(
            masked_files(directory),
            (Names{
                "CLGState.mp", "crash-example_crashing_host-<time>.xml", "crashes.log", "crashing_host.log",
                "lastlines-example_crashing_host-<time>.log", "logger", "minidump-example_crashing_host-<time>.dmp"}))
            << way;
        const std::string lines = bytes_of(directory, "lastlines-");
        const std::string log = read_file(directory.file("crashing_host.log"));
        // What is written begins with the banner, and what only the memory has are the library's own traces.
        EXPECT_EQ(lines.substr(0, lines.find(" Start Session")), log.substr(0, log.find(" Start Session"))) << way;
        EXPECT_TRUE(contains(lines, "Successfully reserved memory for crashlog processing")) << lines;
        EXPECT_TRUE(contains(lines, " DEBUG   (106) crashing_host (")) << lines;
        EXPECT_FALSE(contains(log, "DEBUG")) << log;
        EXPECT_EQ(lines.substr(lines.size() - 2), "\r\n");

        const std::string comment = stream_of(bytes_of(directory, "minidump-"), COMMENT);
        EXPECT_EQ(comment, lines + '\0') << way;
    }
}

TEST(CrashLeavesTheLastLines, OnlyWhereSomebodyHasAskedForThem)
{
    const LogDirectory directory;
    run_host(directory, {"null-write"});
    EXPECT_EQ(bytes_of(directory, "lastlines-"), "");
    EXPECT_EQ(stream_of(bytes_of(directory, "minidump-"), COMMENT), "");
}

TEST(CrashLeavesTheLastLines, ButAnOrderlyEndDoesNot)
{
    const LogDirectory directory;
    const ChildResult host = run_recording_host(directory, "none");
    EXPECT_EQ(host.exit_code, 0u);
    EXPECT_EQ(bytes_of(directory, "lastlines-"), "");
}

TEST(CrashLeavesMinidumpReportLineAndState, OfAPureVirtualCall)
{
#ifdef __clang__
    expect_everything_left_by({"pure-call", 0xE0000002, "0xe0000002", "EXCEPTION_UNKNOWN"});
#else // GCC's linker leaves out the function that is to be called instead
    expect_everything_left_by({"pure-call", 0xC0000005, "0xc0000005", "EXCEPTION_ACCESS_VIOLATION"});
#endif
}

TEST(CrashLeavesMinidumpReportLineAndState, OfAnAbort)
{
    expect_everything_left_by({"abort", 0xE0000001, "0xe0000001", "EXCEPTION_UNKNOWN"});
}

TEST(CrashLeavesMinidumpReportLineAndState, OfAnUncaughtException)
{
    const LogDirectory directory;
    expect_everything_left_by({"uncaught", 0xE06D7363, "0xe06d7363", "(C++ thrown() exception)"}, directory);
    const std::string errors = element(document(directory, "crash-"), "errors");
    EXPECT_TRUE(contains(errors, "<info>the archive does not answer</info>")) << errors;
}

TEST(CrashLeavesMinidumpReportLineAndState, OfAnUncaughtExceptionOnAThread)
{
    expect_everything_left_by({"uncaught-on-thread", 0xE06D7363, "0xe06d7363", "(C++ thrown() exception)"});
}

TEST(CrashLeavesMinidumpReportLineAndState, OfALackOfMemory)
{
    expect_everything_left_by({"heap-exhaustion", 0xE06D7363, "0xe06d7363", "(C++ thrown() exception)"});
}

TEST(CrashLeavesMinidumpReportLineAndState, OfADivisionByZero)
{
    expect_everything_left_by({"divide", 0xC0000094, "0xc0000094", "EXCEPTION_INT_DIVIDE_BY_ZERO"});
}

TEST(CrashLeavesMinidumpReportLineAndState, OfAnIllegalInstruction)
{
    expect_everything_left_by({"illegal-instruction", 0xC000001D, "0xc000001d", "EXCEPTION_ILLEGAL_INSTRUCTION"});
}

TEST(CrashLeavesMinidumpReportLineAndState, OfAThreadWhileAnotherReports)
{
    expect_everything_left_by({"second-thread", 0xC0000005, "0xc0000005", "EXCEPTION_ACCESS_VIOLATION"});
}

TEST(CrashLeavesMinidumpReportLineAndState, OfTwoThreadsAtOnce)
{
    const LogDirectory directory;
    expect_everything_left_by({"two-threads", 0xC0000005, "0xc0000005", "EXCEPTION_ACCESS_VIOLATION"}, directory);
    EXPECT_EQ(lines_with(directory, CRASHED_TOO), 1);
}

TEST(Crash, OfAHostThatWantsSilenceIsReportedButNotPassedOn)
{
    const LogDirectory directory;
    const ChildResult host = run_host(directory, {"null-write", "silently"});

    EXPECT_EQ(host.exit_code, 0xC0000005u);
    EXPECT_EQ(lines_of(directory.text("crashes.log")).size(), 1u);
    EXPECT_EQ(lines_with(directory, EARLIER_FILTER + "0xc0000005"), 0);
}

TEST(Crash, InAnEarlierFilterEndsTheProcessWithWhatWasWrittenBefore)
{
    const LogDirectory directory;
    const ChildResult host = run_host(directory, {"filter"});

    EXPECT_TRUE(host.finished);
    EXPECT_EQ(host.exit_code, 0xC0000094u);
    EXPECT_TRUE(contains(document(directory, "crash-"), " Code=\"0xc0000005\""));
    EXPECT_EQ(lines_of(directory.text("crashes.log")).size(), 1u);
}

TEST(Crash, LeavesTheStatisticsToTheNextProcess)
{
    const LogDirectory directory;
    run_host(directory, {"null-write"});
    const ChildResult next = run_host(directory, {"none"});

    EXPECT_TRUE(next.finished);
    EXPECT_EQ(next.exit_code, 0u);
    for (const char* const name : {"session-", "CLGState.mp"})
    {
        const std::string text = document(directory, name);
        EXPECT_TRUE(contains(text, "<statentry type='Login' subject='user1' count='2'>")) << name << ": " << text;
    }
}

// Other ends ---------------------------------------------------------------------------------------------------------
TEST(Crash, ThatNoHandlerIsAskedAboutLeavesTheLogAlone)
{
    const LogDirectory directory;
    const ChildResult host = run_host(directory, {"fast-fail"});

    EXPECT_TRUE(host.finished);
    EXPECT_EQ(host.exit_code, 0xC0000602u); // all that the one who started it gets to see
    EXPECT_EQ(masked_files(directory), (Names{"crashing_host.log", "logger"}));
    EXPECT_EQ(lines_with(directory, "and now: fast-fail"), 1);
}

TEST(Crash, ThatDoesNotHappenLeavesASessionReportAndTheState)
{
    const LogDirectory directory;
    const ChildResult host = run_host(directory, {"none"});

    EXPECT_TRUE(host.finished);
    EXPECT_EQ(host.exit_code, 0u);
    EXPECT_EQ(
        masked_files(directory),
        (Names{"CLGState.mp", "crashing_host.log", "logger", "session-example_crashing_host-<time>.xml"}));
    const std::string report = document(directory, "session-");
    EXPECT_FALSE(contains(report, "<Exception")) << report;
    EXPECT_TRUE(contains(element(report, "history"), "<event type='Load' subject='album 12' weight='17'"));
    EXPECT_TRUE(contains(directory.lines("crashing_host.log").back(), " End Session at "));
}
} // namespace
