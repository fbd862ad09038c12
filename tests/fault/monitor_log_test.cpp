// The performance-monitor log: its file, the console, and what is reported to the event log.

#include "Kor_PerfmonLogFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cerrno>
#include <regex>

#include "bounded.h"
#include "captured_stream.h"
#include "import_hook.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(RegisterEventSourceA);
KOR_IMPORT(ReportEventA);
KOR_IMPORT(CloseEventLog);
KOR_IMPORT(GetLocalTime);
KOR_IMPORT(SetConsoleTextAttribute);
KOR_IMPORT(CreateFileW);
KOR_IMPORT(FlsSetValue);

const HANDLE SOURCE = reinterpret_cast<HANDLE>(0x5150);

struct Event
{
    int type;
    int category;
    unsigned long code;
    Lines texts;

    bool operator==(const Event& other) const
    {
        return type == other.type && category == other.category && code == other.code && texts == other.texts;
    }
};

void PrintTo(const Event& event, std::ostream* out)
{
    *out << "type " << event.type << " category " << event.category << " code " << event.code << ' '
         << ::testing::PrintToString(event.texts);
}

/// One line for an event of the library's code and one text.
Event event_of(int type, int category, const std::string& text) { return {type, category, 65534, {text}}; }

/// The user and the computer replaced, and the numbers of this process and the calling thread.
std::string masked(std::string text)
{
    const std::string process = std::to_string(::GetCurrentProcessId());
    text = std::regex_replace(text, std::regex("user .* on .* \\(" + process + "\\)"), "user <user> on <host> (<pid>)");
    return std::regex_replace(
        text, std::regex("\\[" + process + "," + std::to_string(::GetCurrentThreadId()) + "\\]"), "[<pid>,<tid>]");
}

const std::string START = "===== user <user> on <host> (<pid>) start session =====\n";
const std::string END = "===== user <user> on <host> (<pid>) end session =====\n";

class MonitorLog : public ::testing::Test
{
protected:
    explicit MonitorLog(const std::string& logger = TO_FILE) : m_directory(logger + "Monitor 109 7\n")
    {
        KorGLog.InitConf();
        EXPECT_TRUE(m_register.installed() && m_report.installed() && m_close.installed() && m_clock.installed());
    }

    void configure(const std::string& text)
    {
        m_directory.configure(text);
        KorGLog.ReadFile();
        KorGLog.ClearCacheTable();
    }

    /// The file's text, masked.
    std::string file(const std::string& name = "perf.log") const { return masked(m_directory.text(name)); }

    const LogDirectory m_directory;
    HANDLE m_source = SOURCE; ///< what registration gives
    Lines m_names;            ///< of registered sources
    std::vector<Event> m_events;
    int m_closed = 0;

    Hook<RegisterEventSourceAImport> m_register{
        [this](const char* server, const char* name) -> HANDLE
        {
            EXPECT_EQ(server, nullptr);
            m_names.push_back(name == nullptr ? "(null)" : name);
            return m_source;
        }};
    Hook<ReportEventAImport> m_report{
        [this](
            HANDLE source, WORD type, WORD category, DWORD code, PSID user, WORD count, DWORD size, LPCSTR* texts,
            void* data) -> BOOL
        {
            EXPECT_EQ(source, m_source);
            EXPECT_EQ(user, nullptr);
            EXPECT_EQ(size, 0u);
            EXPECT_EQ(data, nullptr);
            Lines masked_texts;
            for (WORD i = 0; i < count; ++i)
                masked_texts.push_back(masked(texts[i]));
            m_events.push_back({type, category, code, masked_texts});
            return FALSE; // nobody looks at it
        }};
    Hook<CloseEventLogImport> m_close{
        [this](HANDLE source) -> BOOL
        {
            EXPECT_EQ(source, m_source);
            ++m_closed;
            return TRUE;
        }};
    Hook<GetLocalTimeImport> m_clock{[](SYSTEMTIME* time) { *time = {2024, 3, 2, 5, 14, 7, 9, 42}; }};
};

const std::string TIME = "05/03 14:07:09.042 ";

// The file -----------------------------------------------------------------------
TEST_F(MonitorLog, ALineHasTimeLevelApplicationIdsContextAndText)
{
    Kor_PerfmonLogFile log(0);
    EXPECT_EQ(log.Open("perf.log", "viewer"), 0);
    ASSERT_EQ(log.StoreParams("Kor_Image", 210, 5, 17), 1);
    log.Log("loaded %d images\n", 3);
    log.SetContext("A4");
    log.Log("loaded %s\n", "all");
    log.SetContext(nullptr);
    log.Log("no newline");
    log.LogNoHeadline(", bare %d\n", 1);

    EXPECT_EQ(
        file(), START + TIME + "5 viewer[<pid>,<tid>]: =loaded 3 images\n" + TIME +
                    "5 viewer[<pid>,<tid>]A4: =loaded all\n" + TIME + "5 viewer[<pid>,<tid>]: =no newline, bare 1\n");
    EXPECT_EQ(m_events, std::vector<Event>{});
}

TEST_F(MonitorLog, TheFileHasTheEndsOfLinesOfTextMode)
{
    Kor_PerfmonLogFile log(0);
    write_file(m_directory.file("perf.log"), "from before\r\n");
    log.Open("perf.log", "viewer");
    log.LogNoHeadline("one\ntwo\n");
    const std::string bytes = read_file(m_directory.file("perf.log"));
    EXPECT_EQ(bytes.substr(0, 13), "from before\r\n");
    EXPECT_EQ(bytes.substr(bytes.size() - 10), "one\r\ntwo\r\n");
}

TEST_F(MonitorLog, EachLineIsInTheFileAtOnce)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    for (int i = 0; i < 3; ++i)
    {
        log.LogNoHeadline("line %d\n", i);
        EXPECT_EQ(lines_of(m_directory.text("perf.log")).size(), static_cast<std::size_t>(i + 2));
    }
}

TEST_F(MonitorLog, ALineIsCutAt1023Characters)
{
    EXPECT_EQ(Kor_PerfmonLogFile::MAX_LINE_LEN, 1024);
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    const std::size_t start = m_directory.text("perf.log").size();
    for (const std::size_t length : {1022u, 1023u, 1024u, 5000u})
    {
        const std::string text = std::string(length, 'x');
        log.LogNoHeadline("%s", text.c_str());
        log.LogNoHeadline("\n");
    }
    const Lines lines = lines_of(m_directory.text("perf.log").substr(start));
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0].size(), 1022u);
    EXPECT_EQ(lines[1].size(), 1023u);
    EXPECT_EQ(lines[2].size(), 1023u);
    EXPECT_EQ(lines[3].size(), 1023u);

    log.Log("%s", std::string(5000, 'y').c_str()); // with its headline
    const std::string whole = m_directory.text("perf.log");
    EXPECT_EQ(whole.substr(whole.rfind('\n') + 1).size(), 1023u);
}

TEST_F(MonitorLog, PercentSignsOfNameAndContextAreNoFormat)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "100%s%n");
    log.SetContext("50%d");
    log.Log("text\n");
    EXPECT_NE(file().find(" 100%s%n[<pid>,<tid>]50%d: =text\n"), std::string::npos);
}

TEST_F(MonitorLog, ArgumentsThatDoNotFitTheFormatGiveTheFixedLine)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    const char* volatile wild = reinterpret_cast<const char*>(0x10);
    log.Log("%s\n", wild);
    log.LogNoHeadline("next\n");
    const Lines lines = lines_of(file());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(
        lines[1], TIME +
                      "4 viewer[<pid>,<tid>]: =!!! ERROR !!! Caught exception while formatting log message - Check log "
                      "line for format discrepancy and null values. !!! ERROR !!!");
    EXPECT_EQ(lines[2], "next");
}

TEST_F(MonitorLog, AnOpenLogKeepsItsFirstFile)
{
    Kor_PerfmonLogFile log(0);
    EXPECT_EQ(log.Open("perf.log", "viewer"), 0);
    EXPECT_EQ(log.Open("other.log", "other"), 0);
    EXPECT_EQ(log.Open("other"), 0);
    std::FILE* const stream = std::fopen(m_directory.file("stream.log").c_str(), "w");
    EXPECT_EQ(log.Open(stream, "other"), 0);
    log.Log("text\n");
    EXPECT_NE(file().find("viewer[<pid>,<tid>]: =text\n"), std::string::npos);
    EXPECT_EQ(m_names, Lines{"viewer"});
    std::fclose(stream);
    EXPECT_EQ(read_file(m_directory.file("stream.log")), "");
    EXPECT_NE(::GetFileAttributesA(m_directory.file("perf.log").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(::GetFileAttributesA(m_directory.file("other.log").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(MonitorLog, TheEndWritesItsBannerAndClosesFileAndSource)
{
    {
        Kor_PerfmonLogFile log(0);
        log.Open("perf.log", "viewer");
    }
    EXPECT_EQ(file(), START + END);
    EXPECT_EQ(m_closed, 1);
    EXPECT_TRUE(::DeleteFileA(m_directory.file("perf.log").c_str()));
    {
        const Kor_PerfmonLogFile never_opened(0);
    }
    EXPECT_EQ(m_closed, 1);
    EXPECT_EQ(m_events, std::vector<Event>{});
}

TEST_F(MonitorLog, ClosingClosesOnceAndTheLogCanBeOpenedAgain)
{
    Kor_PerfmonLogFile log(0);
    EXPECT_EQ(log.Close(), -1);
    log.Open("perf.log", "viewer");
    EXPECT_EQ(log.Close(), 0);
    EXPECT_EQ(m_closed, 1);
    EXPECT_EQ(log.Close(), -1);
    EXPECT_EQ(log.Open("other.log", "other"), 0);
    EXPECT_EQ(file(), START);
    EXPECT_EQ(file("other.log"), START);
}

TEST_F(MonitorLog, AStreamOfTheCallersIsWrittenAndClosed)
{
    {
        Kor_PerfmonLogFile log(0);
        EXPECT_EQ(log.Open(std::fopen(m_directory.file("stream.log").c_str(), "w"), "viewer"), 0);
        log.LogNoHeadline("text\n");
        EXPECT_EQ(file("stream.log"), START + "text\n"); // flushed
    }
    EXPECT_TRUE(::DeleteFileA(m_directory.file("stream.log").c_str()));
}

TEST_F(MonitorLog, ANullStreamGivesMinusOneAndOpensTheRest)
{
    Kor_PerfmonLogFile log(0);
    EXPECT_EQ(log.Open(static_cast<std::FILE*>(nullptr), "viewer"), -1);
    EXPECT_EQ(m_names, Lines{"viewer"});
    EXPECT_EQ(log.Open("perf.log", "viewer"), 0); // open already
    EXPECT_EQ(::GetFileAttributesA(m_directory.file("perf.log").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST_F(MonitorLog, ASourceThatCannotBeRegisteredGivesMinusOneAndNoBanner)
{
    m_source = nullptr;
    Kor_PerfmonLogFile log(0);
    EXPECT_EQ(log.Open("perf.log", "viewer"), -1);
    EXPECT_EQ(file(), "");
    log.LogNoHeadline("the file stays open\n");
    EXPECT_EQ(file(), "the file stays open\n");
    configure(TO_EVENT_LOG);
    log.Log("to a null source\n");
    EXPECT_EQ(m_events, (std::vector<Event>{event_of(EVENTLOG_ERROR_TYPE, 0, ": =to a null source\n")}));
}

TEST_F(MonitorLog, WithoutADirectoryTheFolderLogIsTakenWithAWarning)
{
    const EnvironmentVariable none("PRISMATE_LOG_DIR", "");
    CapturedStream out(stdout);
    std::vector<std::wstring> paths;
    Hook<CreateFileWImport> files(
        [&](const wchar_t* path, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE) -> HANDLE
        {
            paths.push_back(path);
            return INVALID_HANDLE_VALUE;
        });
    ASSERT_TRUE(files.installed());
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    wchar_t expected[MAX_PATH] = {};
    ::GetFullPathNameW(L"log\\perf.log", MAX_PATH, expected, nullptr);
    EXPECT_EQ(paths, std::vector<std::wstring>{expected});
    EXPECT_EQ(out.text(), "Kor_PerfmonLogFile - Warning - No configuration file\n");
}

TEST_F(MonitorLog, AFileThatCannotBeOpenedSendsLinesToTheEventLog)
{
    CapturedStream err(stderr);
    Kor_PerfmonLogFile log(0);
    EXPECT_EQ(log.Open("missing folder\\perf.log", "viewer"), 0);
    log.Log("text\n");
    EXPECT_EQ(err.text(), "");
    EXPECT_EQ(
        m_events, (std::vector<Event>{
                      event_of(EVENTLOG_WARNING_TYPE, 0, START),
                      event_of(EVENTLOG_WARNING_TYPE, 0, ": =text\n"),
                  }));
}

// Levels -------------------------------------------------------------------------
TEST_F(MonitorLog, StoreParamsAsksForPackage109)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    configure(TO_FILE + "Monitor 109 5\nOther 17 7\n");
    EXPECT_EQ(log.StoreParams("x", 1, 5, 17), 1);
    EXPECT_EQ(log.StoreParams("x", 1, 6, 17), 0);
    log.Log("at 5\n"); // the rejected one changed nothing
    configure(TO_FILE);
    EXPECT_EQ(log.StoreParams("x", 1, 7, 109), 0);
    EXPECT_EQ(log.StoreParams("x", 1, 5, 109), 0);
    EXPECT_EQ(log.StoreParams("x", 1, 4, 109), 1);
    EXPECT_EQ(log.StoreParams(nullptr, -1, 0, -1), 1);
    EXPECT_EQ(file(), START + TIME + "5 viewer[<pid>,<tid>]: =at 5\n");
}

TEST_F(MonitorLog, ItIsEnabledFromLevel5)
{
    Kor_PerfmonLogFile log(0);
    for (const auto& [level, enabled] : {std::pair{0, 0}, {4, 0}, {5, 1}, {6, 1}, {7, 1}})
    {
        configure(TO_FILE + "Monitor 109 " + std::to_string(level) + "\n");
        EXPECT_EQ(log.IsPerfmonEnabled() != 0, enabled != 0) << level;
    }
}

TEST_F(MonitorLog, TheLevelOfACodeIsThatOfItsPackage)
{
    configure(TO_FILE + "Monitor 109 7\nOther 17 2\n");
    Kor_PerfmonLogFile log(0);
    EXPECT_EQ(log.GetLogLevel(1090000), 7);
    EXPECT_EQ(log.GetLogLevel(170000), 2);
    EXPECT_EQ(log.GetLogLevel(179999), 2);
    EXPECT_EQ(log.GetLogLevel(180000), 4);
}

TEST_F(MonitorLog, AThreadStartsEnabledAtLevel1)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    on_another_thread([&] { log.Log("text\n"); });
    EXPECT_NE(m_directory.text("perf.log").find(TIME + "1 viewer["), std::string::npos);
}

TEST_F(MonitorLog, TheParametersOfAThreadAreThreeNumbers)
{
    Kor_PerfmonLogMTVars vars;
    EXPECT_EQ(vars.m_enabled, 1);
    EXPECT_EQ(vars.m_level, 1);
    EXPECT_EQ(vars.m_package, 0);
    EXPECT_EQ(&vars(), &vars);
    vars.m_level = 5;
    vars.ResetParams();
    EXPECT_EQ(vars.m_level, 5);
    const Kor_PerfmonLogMTVars copy(vars);
    EXPECT_EQ(copy.m_level, 5);
    static_assert(sizeof(Kor_PerfmonLogMTVars) == 12 && offsetof(Kor_PerfmonLogMTVars, m_level) == 4);
}

TEST_F(MonitorLog, PrintOrLogPrintsToAStreamOrLogsBare)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    CapturedStream out(stdout);
    EXPECT_EQ(log.PrintOrLog(stdout, "to the stream %d", 1), 0);
    EXPECT_EQ(out.arrived(), "to the stream 1"); // flushed
    EXPECT_EQ(log.PrintOrLog(nullptr, "to the log %d\n", 2), 0);
    EXPECT_EQ(file(), START + "to the log 2\n");
}

TEST_F(MonitorLog, TheThreadsErrorsStayAsTheyWere)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    ::SetLastError(4711);
    errno = 17;
    log.StoreParams("x", 1, 5, 17);
    log.Log("text\n");
    log.FLog("load", "d", "a", 1);
    EXPECT_EQ(::GetLastError(), 4711u);
    EXPECT_EQ(errno, 17);
}

// Measurements -------------------------------------------------------------------
TEST_F(MonitorLog, AMeasurementIsALineOfNamedValues)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    log.StoreParams("x", 1, 6, 17);
    log.FLog("load", "fg", "cpu", 12.34, "ms", std::int64_t{1500});
    log.FLog("title", "x", "name");
    log.FLog("100%s", "s", "a", "%d%n");
    EXPECT_EQ(
        file(), START + TIME + "6 viewer[<pid>,<tid>]: =T=load,cpu=12.3,ms=1500\n" + TIME +
                    "6 viewer[<pid>,<tid>]: =T=title,name=***** Unrecognized format ******\n" + TIME +
                    "6 viewer[<pid>,<tid>]: =T=100%s,a=%d%n\n");
}

TEST_F(MonitorLog, AMeasurementIsCutWithItsLine)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    const std::string value(1000, 'v');
    log.FLog(
        "load", "sssss", "a", value.c_str(), "b", value.c_str(), "c", value.c_str(), "d", value.c_str(), "e",
        value.c_str());
    const std::string whole = m_directory.text("perf.log");
    EXPECT_EQ(whole.substr(whole.rfind("05/03")).size(), 1023u);
}

TEST_F(MonitorLog, AMeasurementWithAWildPointerIsTheFixedLine)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    const char* volatile wild = reinterpret_cast<const char*>(0x10);
    log.FLog("load", "s", "a", wild);
    log.FLog(wild, "");
    log.FLog("load", wild);
    const Lines lines = lines_of(file());
    ASSERT_EQ(lines.size(), 4u);
    for (std::size_t i = 1; i < 4; ++i)
        EXPECT_NE(lines[i].find(": =!!! ERROR !!!"), std::string::npos);
}

TEST_F(MonitorLog, AtDebugLevelTheGeneralLogTellsEachMeasurement)
{
    KorGLog.Open("test.log", "viewer", false);
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    log.FLog("load", "d", "a", 1);
    EXPECT_EQ(m_directory.text("test.log"), "");
    configure(LIBRARY_TO_FILE);
    log.FLog("load", "d", "a", 1);
    const std::string told = m_directory.text("test.log");
    EXPECT_NE(told.find("-> string to plog is T=load,a=1\n\n"), std::string::npos);
    EXPECT_NE(told.find(" DEBUG   (106) viewer "), std::string::npos);
    EXPECT_NE(told.find("Kor_PerfmonLogFile("), std::string::npos);
    EXPECT_NE(told.find("Kor_PerfmonLogFile::FLog"), std::string::npos);
}

// The console --------------------------------------------------------------------
class MonitorConsole : public MonitorLog
{
protected:
    MonitorConsole() : MonitorLog(TO_STDERR) { EXPECT_TRUE(m_colours.installed()); }

    std::vector<int> m_set;
    Hook<SetConsoleTextAttributeImport> m_colours{
        [this](HANDLE, WORD colour) -> BOOL
        {
            m_set.push_back(colour);
            return TRUE;
        }};
};

TEST_F(MonitorConsole, ALineHasHundredthsAndTheLevelsColour)
{
    CapturedStream err(stderr);
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    m_set.clear();
    const std::string start = err.text();
    EXPECT_EQ(masked(start), START);
    std::vector<int> expected;
    for (const auto& [level, colour] : {std::pair{0, 12}, {1, 12}, {3, 12}, {4, 14}, {5, 10}, {6, 10}, {7, -1}})
    {
        ASSERT_EQ(log.StoreParams("x", 1, level, 17), 1);
        log.Log("level %d\n", level);
        if (colour >= 0)
            expected.push_back(colour);
        expected.push_back(7);
    }
    EXPECT_EQ(m_set, expected);
    const Lines lines = lines_of(masked(err.text().substr(start.size())));
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_EQ(lines[4], "14:07:09.04 5 viewer[<pid>,<tid>]: =level 5");
    EXPECT_EQ(m_events, std::vector<Event>{});
    EXPECT_EQ(m_directory.text("perf.log"), ""); // open, and not written to
}

// The event log ------------------------------------------------------------------
class MonitorEvents : public MonitorLog
{
protected:
    MonitorEvents() : MonitorLog(TO_EVENT_LOG) { m_log.Open("viewer"); }

    /// The events since the last call.
    std::vector<Event> reported()
    {
        std::vector<Event> events;
        events.swap(m_events);
        return events;
    }

    Kor_PerfmonLogFile m_log{0};
};

TEST_F(MonitorEvents, TheBannersAreReportedAtOnce)
{
    EXPECT_EQ(reported(), (std::vector<Event>{event_of(EVENTLOG_WARNING_TYPE, 0, START)}));
    {
        Kor_PerfmonLogFile other(0);
        other.Open("other");
    }
    EXPECT_EQ(
        reported(),
        (std::vector<Event>{event_of(EVENTLOG_WARNING_TYPE, 0, START), event_of(EVENTLOG_WARNING_TYPE, 0, END)}));
}

TEST_F(MonitorEvents, ALineIsOneEventOfContextAndText)
{
    reported();
    m_log.StoreParams("x", 1, 5, 17);
    m_log.Log("one %d\n", 1);
    m_log.SetContext("A4");
    m_log.Log("two");
    EXPECT_EQ(
        reported(),
        (std::vector<Event>{
            event_of(EVENTLOG_WARNING_TYPE, 109, ": =one 1\n"), event_of(EVENTLOG_WARNING_TYPE, 109, "A4: =two")}));
}

TEST_F(MonitorEvents, TheTypeGoesByTheLevel)
{
    reported();
    const int types[] = {1, 1, 1, 1, 2, 2, 4, 4};
    for (int level = 0; level < 8; ++level)
    {
        m_log.StoreParams("x", 1, level, 17);
        m_log.Log("x");
        EXPECT_EQ(reported(), (std::vector<Event>{event_of(types[level], 109, ": =x")})) << level;
    }
}

TEST_F(MonitorEvents, AnEventIsCutAt1023Characters)
{
    reported();
    m_log.Log("%s", std::string(5000, 'x').c_str());
    const std::vector<Event> events = reported();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].texts[0], ": =" + std::string(1020, 'x'));
}

TEST_F(MonitorEvents, BareTextsAreCollectedUntilOneEndsALine)
{
    reported();
    m_log.LogNoHeadline("one, ");
    m_log.LogNoHeadline("two, ");
    m_log.LogNoHeadline("three\n");
    EXPECT_EQ(reported(), std::vector<Event>{}); // reported by the next
    m_log.LogNoHeadline("four");
    EXPECT_EQ(reported(), (std::vector<Event>{event_of(EVENTLOG_WARNING_TYPE, 0, "one, two, three\n")}));
    m_log.Log("a line");
    EXPECT_EQ(
        reported(), (std::vector<Event>{
                        event_of(EVENTLOG_WARNING_TYPE, 0, "four"), event_of(EVENTLOG_WARNING_TYPE, 0, ": =a line")}));
}

TEST_F(MonitorEvents, BareTextsAreCollectedUntil448Characters)
{
    reported();
    const std::string most(447, 'x');
    m_log.LogNoHeadline("%s", most.c_str());
    m_log.LogNoHeadline("y");
    EXPECT_EQ(reported(), std::vector<Event>{}); // 447 are not enough, and now it has 448
    m_log.LogNoHeadline("z");
    EXPECT_EQ(reported(), (std::vector<Event>{event_of(EVENTLOG_WARNING_TYPE, 0, most + "y")}));
    m_log.LogNoHeadline("%s", std::string(2000, 'v').c_str()); // one text is cut, and the event may grow past 448
    m_log.LogNoHeadline("w");
    EXPECT_EQ(reported(), (std::vector<Event>{event_of(EVENTLOG_WARNING_TYPE, 0, "z" + std::string(1023, 'v'))}));
}

TEST_F(MonitorEvents, CollectedTextsHaveTypeAndCategoryOfWhenTheyAreReported)
{
    reported();
    m_log.LogNoHeadline("text\n");
    m_log.StoreParams("x", 1, 7, 17);
    m_log.LogNoHeadline("next");
    EXPECT_EQ(reported(), (std::vector<Event>{event_of(EVENTLOG_INFORMATION_TYPE, 109, "text\n")}));
}

TEST_F(MonitorEvents, EachThreadCollectsItsOwnTexts)
{
    reported();
    m_log.LogNoHeadline("own, ");
    on_another_thread(
        [&]
        {
            m_log.LogNoHeadline("other\n");
            m_log.Log("line");
        });
    EXPECT_EQ(
        reported(),
        (std::vector<Event>{event_of(EVENTLOG_ERROR_TYPE, 0, "other\n"), event_of(EVENTLOG_ERROR_TYPE, 0, ": =line")}));
    m_log.LogNoHeadline("own");
    m_log.Log("line");
    EXPECT_EQ(reported().front(), event_of(EVENTLOG_WARNING_TYPE, 0, "own, own"));
}

TEST_F(MonitorEvents, WhatAThreadThatEndedHadCollectedIsReportedByTheNextToWrite)
{
    reported();
    on_another_thread(
        [&]
        {
            m_log.StoreParams("x", 1, 6, 17);
            m_log.LogNoHeadline("left behind");
        });
    EXPECT_EQ(reported(), std::vector<Event>{});
    m_log.LogNoHeadline("next");
    EXPECT_EQ(reported(), (std::vector<Event>{event_of(EVENTLOG_INFORMATION_TYPE, 109, "left behind")}));
}

TEST_F(MonitorEvents, WhatOtherThreadsHaveCollectedIsReportedAtTheEndOfTheLog)
{
    const NamedEvent collected(unique_name("collected"));
    const NamedEvent finish(unique_name("finish"));
    std::unique_ptr<BoundedThread> other;
    {
        Kor_PerfmonLogFile log(0);
        log.Open("other");
        other = std::make_unique<BoundedThread>(
            [&]
            {
                log.LogNoHeadline("of a thread that lives");
                collected.set();
                finish.wait();
            });
        ASSERT_TRUE(collected.wait());
        on_another_thread([&] { log.LogNoHeadline("of a thread that ended"); });
        reported();
    }
    const std::vector<Event> events = reported();
    finish.set();
    other->join();
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[0], event_of(EVENTLOG_ERROR_TYPE, 0, "of a thread that ended"));
    EXPECT_EQ(events[1], event_of(EVENTLOG_WARNING_TYPE, 0, END));
    EXPECT_EQ(events[2], event_of(EVENTLOG_ERROR_TYPE, 0, "of a thread that lives"));
}

TEST_F(MonitorEvents, WithoutMemoryForAThreadsTextEachIsReportedAlone)
{
    reported();
    on_another_thread(
        [&]
        {
            m_log.StoreParams("x", 1, 6, 17); // what the thread needs beside it
            const Hook<FlsSetValueImport> hook([](DWORD, void*) { return FALSE; });
            ASSERT_TRUE(hook.installed());
            m_log.LogNoHeadline("one, ");
            m_log.LogNoHeadline("two");
        });
    EXPECT_EQ(
        reported(),
        (std::vector<Event>{
            event_of(EVENTLOG_INFORMATION_TYPE, 109, "one, "), event_of(EVENTLOG_INFORMATION_TYPE, 109, "two")}));
}

TEST_F(MonitorLog, WithoutMemoryForItsParametersAThreadIsSilent)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    on_another_thread(
        [&]
        {
            const Hook<FlsSetValueImport> hook([](DWORD, void*) { return FALSE; });
            ASSERT_TRUE(hook.installed());
            EXPECT_EQ(log.StoreParams("x", 1, 5, 17), 0);
            log.Log("text\n");
            EXPECT_EQ(log.LogNoHeadline("text\n"), -1);
            log.FLog("load", "d", "a", 1);
        });
    EXPECT_EQ(file(), START);
}

// Threads ------------------------------------------------------------------------
TEST_F(MonitorLog, LinesOfManyThreadsComeWholeWhileTheContextChanges)
{
    Kor_PerfmonLogFile log(0);
    log.Open("perf.log", "viewer");
    std::atomic<bool> stop{false};
    BoundedThread changer(
        [&]
        {
            for (int i = 0; !stop; ++i)
                log.SetContext(i % 3 == 0 ? nullptr : i % 3 == 1 ? "A4" : "a longer context, for a change");
        });
    run_on_threads(
        8,
        [&](int number)
        {
            log.StoreParams("x", 1, 5, 17);
            for (int i = 0; i < 200; ++i)
                log.FLog("load", "dd", "thread", number, "line", i);
        });
    stop = true;
    changer.join();
    const std::regex form("05/03 14:07:09\\.042 5 viewer\\[\\d+,\\d+\\](|A4|a longer context, for a change): "
                          "=T=load,thread=(\\d),line=(\\d+)");
    Lines lines = lines_of(m_directory.text("perf.log"));
    lines.erase(lines.begin());
    std::vector<int> next(8, 0);
    for (const std::string& line : lines)
    {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, form)) << line;
        EXPECT_EQ(std::stoi(match[3]), next.at(std::stoul(match[2]))++);
    }
    EXPECT_EQ(lines.size(), 1600u);
}

TEST_F(MonitorLog, AfterItsEndTheLogIsSilent)
{
    alignas(Kor_PerfmonLogFile) static unsigned char place[sizeof(Kor_PerfmonLogFile)];
    auto* const log = new (place) Kor_PerfmonLogFile(0);
    log->Open("perf.log", "viewer");
    log->~Kor_PerfmonLogFile();
    log->StoreParams("x", 1, 5, 17);
    log->Log("text\n");
    EXPECT_EQ(log->LogNoHeadline("text\n"), -1);
    log->FLog("load", "d", "a", 1);
    EXPECT_EQ(log->Timers().AddTimer("load"), 1);
    EXPECT_EQ(log->Close(), -1);
    EXPECT_EQ(file(), START + END);
}
} // namespace
