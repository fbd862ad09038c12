// What becomes of events and of a crash while another thread has the gatherer and does not give it back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "bounded.h"
#include "import_hook.h"
#include "session_report.h"
#include "slow_clock.h"

using testing::HasSubstr;
using testing::Not;

namespace
{
using Gatherer = Kor_SessionLogGatherer;
using Lines = std::vector<std::string>;

KOR_IMPORT(GetComputerNameW);
KOR_IMPORT(OpenThread);
KOR_IMPORT(malloc);

constexpr ULONGLONG LONGEST_WAIT_MS = 10'000;
constexpr ULONGLONG EVENT_WAIT_MS = 1'000;
constexpr ULONGLONG LEEWAY_MS = 200;

constexpr wchar_t MISSING[] =
    L"Another thread has the gatherer and does not give it back. What was reported before, statistics, and what was "
    L"gathered of the machine are missing.";
const std::string GENERATE =
    "<time> ERROR   (106) viewer (<pid>,<tid>)  Kor_SessionLogGatherer(n) Kor_SessionLogGatherer::generateReport -> ";

std::wstring wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

/// A thread that is inside of the gatherer, in a question about the machine, until it is told to go on. Others cannot
/// look at it, and wait by a clock of their own.
class StuckThread
{
public:
    StuckThread()
        : m_name(
              [this](wchar_t*, DWORD*) -> BOOL
              {
                  m_entered.set();
                  m_leave.wait(60000);
                  return FALSE;
              }),
          m_thread([] { Gatherer::GetInstance()->gatherSystemInfo(); }, 90000)
    {
        EXPECT_TRUE(m_name.installed() && m_threads.installed() && clock.installed());
        EXPECT_TRUE(m_entered.wait());
    }
    StuckThread(const StuckThread&) = delete;
    StuckThread& operator=(const StuckThread&) = delete;
    ~StuckThread() { go_on(); }

    void go_on()
    {
        m_leave.set();
        m_thread.join();
    }

    const SlowClock clock;

private:
    NamedEvent m_entered{unique_name("entered")};
    NamedEvent m_leave{unique_name("leave")};
    Hook<GetComputerNameWImport> m_name;
    Hook<OpenThreadImport> m_threads{
        [](DWORD, BOOL, DWORD) -> HANDLE
        {
            ::SetLastError(ERROR_ACCESS_DENIED);
            return nullptr;
        }};
    BoundedThread m_thread;
};

class SessionWaiting : public ::testing::Test
{
protected:
    SessionWaiting()
    {
        EXPECT_TRUE(m_now.installed());
        KorGLog.Open("test.log", "viewer", false);
        Gatherer::Activate(true);
    }

    static Gatherer& session() { return *Gatherer::GetInstance(); }

    std::wstring path(const std::string& name) const { return wide(m_directory.file(name)); }

    std::wstring file(const std::string& name) const { return wide_text(read_file(m_directory.file(name))); }

    /// How many times a text is in another.
    static int count(const std::wstring& text, const std::wstring& of)
    {
        int found = 0;
        for (std::size_t at = text.find(of); at != std::wstring::npos; at = text.find(of, at + 1))
            ++found;
        return found;
    }

    const LogDirectory m_directory;
    FixedSessionClock m_now;
};

// Events --------------------------------------------------------------------------------
TEST_F(SessionWaiting, WhatIsReportedMeanwhileIsThereInItsOrderWithItsTimes)
{
    session().reportEvent(L"Before", nullptr, 0, 1, nullptr);
    {
        StuckThread stuck;
        session().reportEvent(L"Span", L"s", Gatherer::BEGIN_OF_SPAN | Gatherer::COUNTED, 2, L"begins, ");
        m_now.now += 1000;
        session().reportError(L"printer", L"error %d", 1);
        session().reportWarning(L"printer", L"warning %d", 2);
        session().reportEvent(L"Span", L"s", Gatherer::END_OF_SPAN, 0, L"ends");
        session().reportEvent(L"State", nullptr, Gatherer::STATE, 1, nullptr);
        session().reportStatsEventSubject(L"Counted", L"x", L"Counted", L"any");
        session().reportEvent(L"Counted", L"x", Gatherer::COUNTED, 1, nullptr);
        session().reportEventTime(L"noted", nullptr);
        m_now.now += 1000;
    }
    session().reportEvent(L"After", nullptr, 0, 1, nullptr);
    const std::wstring from = L" begintime='2024-01-31 08:00:01.000' endtime='2024-01-31 08:00:01.000'>";
    EXPECT_EQ(
        lists_text(session()),
        L"<context><event type='State' weight='1' level='0'" + from +
            L"<info></info></event></context>"
            L"<history><event type='Before' weight='1' level='0' begintime='2024-01-31 08:00:00.000' "
            L"endtime='2024-01-31 08:00:00.000'><info></info></event>"
            L"<event type='Span' subject='s' weight='2' level='0' begintime='2024-01-31 08:00:00.000' "
            L"endtime='2024-01-31 08:00:01.000'><info>begins, ends</info></event>"
            L"<event type='Counted' subject='x' weight='1' level='0'" +
            from +
            L"<info></info></event>"
            L"<event type='After' weight='1' level='0' begintime='2024-01-31 08:00:02.000' "
            L"endtime='2024-01-31 08:00:02.000'><info></info></event></history>"
            L"<errors><event type='Error' subject='printer' weight='1' level='0'" +
            from +
            L"<info>error 1</info></event></errors>"
            L"<warnings><event type='Warning' subject='printer' weight='1' level='0'" +
            from + L"<info>warning 2</info></event></warnings>");
    EXPECT_THAT(stats_text(session()), HasSubstr(L"<statentry type='Counted' subject='any' count='1'>"));
    EXPECT_EQ(session().getEventTime(L"noted", nullptr), static_cast<unsigned long long>(MORNING + 1000));
    EXPECT_EQ(m_directory.lines(), Lines());
}

TEST_F(SessionWaiting, AnEventHoldsUpItsThreadForASecondAndNoneAfterIt)
{
    StuckThread stuck;
    session().reportEvent(L"A", nullptr, 0, 1, nullptr);
    EXPECT_GE(stuck.clock.elapsed(), EVENT_WAIT_MS);
    EXPECT_LE(stuck.clock.elapsed(), EVENT_WAIT_MS + LEEWAY_MS);
    const int sleeps = stuck.clock.sleeps();
    session().reportEvent(L"B", nullptr, 0, 1, nullptr);
    on_another_thread([] { session().reportError(nullptr, L"C"); });
    EXPECT_EQ(stuck.clock.sleeps(), sleeps);
}

TEST_F(SessionWaiting, WhatThereIsNoRoomForIsLostAndToldOnceInLogAndReport)
{
    constexpr unsigned ROOM = 10'000;
    session().setHistorySize(2 * ROOM);
    {
        StuckThread stuck;
        for (unsigned i = 0; i < ROOM + 3; ++i)
            session().reportEvent(L"T", nullptr, 0, i, nullptr);
    }
    session().reportEvent(L"After", nullptr, 0, 1, nullptr);
    for (int i = 0; i < 2; ++i)
    {
        const std::wstring text = lists_text(session());
        EXPECT_EQ(count(text, L"<event type='T'"), static_cast<int>(ROOM));
        EXPECT_THAT(text, HasSubstr(L"weight='9999'"));
        EXPECT_THAT(text, Not(HasSubstr(L"weight='10000'")));
        EXPECT_EQ(count(text, L"<info>3 events were lost: another thread had the gatherer for too long.</info>"), 1);
    }
    EXPECT_EQ(
        library_lines(m_directory),
        Lines{"<time> WARNING (106) viewer (<pid>,<tid>)  Kor_SessionLogGatherer(n) "
              "Kor_SessionLogGatherer::reportEvent -> 3 events were lost: another thread had the gatherer for too "
              "long."});
}

// Reports -------------------------------------------------------------------------------
TEST_F(SessionWaiting, AReportThatCannotBeHadLeavesTheOldFileAndIsTold)
{
    ASSERT_TRUE(write_file(m_directory.file("report.xml"), "old"));
    StuckThread stuck;
    for (const bool is_report : {true, false})
        session().generateReport(path("report.xml").c_str(), is_report);
    EXPECT_EQ(report_text(session()), L"");
    EXPECT_LE(stuck.clock.elapsed(), LONGEST_WAIT_MS + LEEWAY_MS);
    EXPECT_EQ(read_file(m_directory.file("report.xml")), "old");
    const Lines told{
        GENERATE + "Another thread has the gatherer and does not give it back. Nothing is written.",
        GENERATE + "Exception in Kor_SessionLogGatherer::generateReport()"};
    EXPECT_EQ(library_lines(m_directory), (Lines{told[0], told[1], told[0], told[1], told[0], told[1]}));
}

// A crash -------------------------------------------------------------------------------
class SessionWaitingCrash : public SessionWaiting
{
protected:
    SessionWaitingCrash()
    {
        Kor_SessionLog::Activate(true);
        m_reporter = Kor_SessionLog::GetInstance();
        m_record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
        m_record.ExceptionAddress = reinterpret_cast<void*>(0x12345678);
    }
    ~SessionWaitingCrash() override { Kor_SessionLogHost::destroy(); }

    std::string crash_report() const
    {
        const std::wstring name = m_reporter->getLogFullPath(L"crash");
        return read_file(std::string(name.begin(), name.end()));
    }

    Kor_SessionLog* m_reporter;
    EXCEPTION_RECORD m_record{};
    CONTEXT m_context{};
    EXCEPTION_POINTERS m_exception{&m_record, &m_context};
};

TEST_F(SessionWaitingCrash, IsReportedAfterOneWaitWithWhatWaitsAndWhatIsMissing)
{
    session().reportEvent(L"Before", nullptr, 0, 1, nullptr);
    StuckThread stuck;
    session().reportEvent(L"Span", L"a & b", Gatherer::BEGIN_OF_SPAN | Gatherer::level(4), 3, L"text");
    session().reportEvent(L"Span", L"a & b", Gatherer::END_OF_SPAN, 0, nullptr);
    session().reportEvent(L"hidden", nullptr, Gatherer::HIDDEN, 1, nullptr);
    session().reportError(L"printer", L"error");
    session().reportWarning(L"printer", L"warning");
    const ULONGLONG before = stuck.clock.elapsed();
    m_reporter->createReport(&m_exception);
    Kor_SessionLogHost::saveState();
    EXPECT_LE(stuck.clock.elapsed() - before, LONGEST_WAIT_MS + LEEWAY_MS);

    const std::wstring text = wide_text(crash_report());
    const std::wstring zero = L"'1970-01-01 00:00:00.000'";
    const std::wstring morning = L"'2024-01-31 08:00:00.000'";
    const std::wstring at = L" begintime=" + morning + L" endtime=" + morning + L">";
    const std::size_t lists = text.find(L"<context>");
    ASSERT_NE(lists, std::wstring::npos);
    EXPECT_EQ(
        text.substr(lists), L"<context></context><history>"
                            L"<event type='Span' subject='a &amp; b' weight='3' level='4' begintime=" +
                                morning + L" endtime=" + zero +
                                L"><info>text</info></event>"
                                L"<event type='Span' subject='a &amp; b' weight='0' level='0' begintime=" +
                                zero + L" endtime=" + morning +
                                L"><info></info></event></history>"
                                L"<errors><event type='Error' subject='printer' weight='1' level='0'" +
                                at +
                                L"<info>error</info></event></errors>"
                                L"<warnings><event type='Warning' subject='printer' weight='1' level='0'" +
                                at +
                                L"<info>warning</info></event>"
                                L"<event type='Warning' subject='Kor_SessionLogGatherer' weight='1' level='0'" +
                                at + L"<info>" + MISSING + L"</info></event></warnings><stats start=" + morning +
                                L"></stats></lumariscontext>");
    EXPECT_THAT(
        text.substr(0, lists),
        HasSubstr(L"Code=\"0xc0000005\" Description=\"EXCEPTION_ACCESS_VIOLATION\" Address=\"0x12345678\"><memory "
                  L"page_fault_count=\""));
    EXPECT_THAT(text.substr(0, lists), HasSubstr(L"<LoadedModules></LoadedModules></SessionLogData>"));
    EXPECT_EQ(
        library_lines(m_directory),
        (Lines{
            GENERATE + "Another thread has the gatherer and does not give it back. The report lacks all that the "
                       "gatherer has.",
            GENERATE + "Another thread has the gatherer and does not give it back. Nothing is written.",
            GENERATE + "Exception in Kor_SessionLogGatherer::generateReport()"}));
}

TEST_F(SessionWaitingCrash, TakesNoMemoryOfTheHeapWhichTheOtherThreadMayHold)
{
    m_reporter->produceMinidump(&m_exception); // its modules are in the report, too
    KorGLog.LogNoHeadline("a thread's first line takes memory");
    StuckThread stuck;
    session().reportEvent(L"T", L"s", 0, 1, L"text");
    int allocations = 0;
    {
        const Hook<mallocImport> memory;
        ASSERT_TRUE(memory.installed());
        m_reporter->createReport(&m_exception);
        allocations = memory.calls();
    }
    EXPECT_EQ(allocations, 0);
    const std::wstring text = wide_text(crash_report());
    EXPECT_THAT(text, HasSubstr(L"<Module FullPath=\""));
    EXPECT_THAT(text, HasSubstr(L"<info>text</info>"));
}

TEST_F(SessionWaitingCrash, TellsHowManyEventsWereLost)
{
    StuckThread stuck;
    for (unsigned i = 0; i < 10'002; ++i)
        session().reportEvent(L"T", nullptr, 0, i, nullptr);
    m_reporter->createReport(&m_exception);
    EXPECT_THAT(
        wide_text(crash_report()),
        HasSubstr(L"<info>2 events were lost: another thread had the gatherer for too long.</info>"));
}

TEST_F(SessionWaitingCrash, IsInTheNextReportWhenTheThreadIsThrough)
{
    session().reportEvent(L"Before", nullptr, 0, 1, nullptr);
    std::wstring event_id = std::wstring(300, L'i');
    {
        StuckThread stuck;
        session().reportEvent(L"Waits", nullptr, 0, 1, nullptr);
        m_reporter->createReport(&m_exception, path("own.xml").c_str(), event_id.c_str());
        EXPECT_THAT(file("own.xml"), HasSubstr(L" EventID=\"" + event_id.substr(0, 255) + L"\" "));
    }
    for (int i = 0; i < 2; ++i)
    {
        const std::wstring text = report_text(session());
        EXPECT_EQ(count(text, L"<Exception "), 1);
        EXPECT_EQ(count(text, L"Address=\"0x12345678\""), 1);
        EXPECT_EQ(count(text, L"<LoadedModules"), 1);
        EXPECT_LT(text.find(L"type='Before'"), text.find(L"type='Waits'"));
        EXPECT_THAT(text, Not(HasSubstr(MISSING)));
    }
}

TEST_F(SessionWaitingCrash, OfNothingKnownIsReportedAllTheSame)
{
    StuckThread stuck;
    m_reporter->createReport(nullptr);
    EXPECT_THAT(
        wide_text(crash_report()),
        HasSubstr(L"Code=\"0x00000000\" Description=\"EXCEPTION_UNKNOWN\" Address=\"0x00000000\">"));
}
} // namespace
