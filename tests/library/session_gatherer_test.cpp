// The session's gatherer: when it is inert, what it keeps, and who may use it when.

#include "Kor_SessionLogGatherer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "import_hook.h"
#include "log_directory.h"
#include "recording_destination.h"
#include "report_text.h"
#include "slow_clock.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{
using Lines = std::vector<std::string>;
using Gatherer = Kor_SessionLogGatherer;

KOR_IMPORT(GetSystemTimeAsFileTime);
KOR_IMPORT(SystemTimeToTzSpecificLocalTime);
KOR_IMPORT(OpenProcess);
KOR_IMPORT(OpenThread);
KOR_IMPORT(CloseHandle);
KOR_IMPORT(GetComputerNameW);
KOR_IMPORT(Sleep);
KOR_IMPORT(WriteFile);
KOR_IMPORT(free);
KOR_IMPORT(malloc);
/// As the DLL imports it.
struct MemoryInfoImport
{
    using Signature = decltype(hook_signature_of(&::K32GetProcessMemoryInfo));
    static constexpr const char* NAME = "K32GetProcessMemoryInfo";
};

/// Opens the protected members.
struct Protected : Gatherer
{
    static auto adds_history() { return &Protected::add_history; }
    static auto updates_stats() { return &Protected::updateStats; }
};

/// The lines of a log file without the numbers of source lines.
Lines lines_without_numbers(const LogDirectory& directory)
{
    Lines lines = directory.lines();
    for (std::string& line : lines)
    {
        const std::size_t open = line.find("  Kor_SessionLogGatherer(");
        if (open != std::string::npos)
            line.replace(open + 25, line.find(')', open) - open - 25, "n");
    }
    return lines;
}

std::string line_start(const std::string& level, const std::string& function)
{
    return "<time> " + level + "(106) viewer (<pid>,<tid>)  Kor_SessionLogGatherer(n) " + function + " -> ";
}

const std::string MEMORY_WARNING = line_start("WARNING ", "Kor_SessionLogGatherer::reportMemoryDifference");
const std::string REPORT_ERROR = line_start("ERROR   ", "Kor_SessionLogGatherer::generateReport");

/// Every public operation that changes something or answers; each with what an inert instance answers.
void use_all_operations(Gatherer& session, const std::wstring& report_path)
{
    session.reportEvent(L"T", L"s", Gatherer::STATE | Gatherer::COUNTED, 1, L"%d", 5);
    session.reportEvent(L"T", L"t", Gatherer::COUNTED, 1, L"%d", 5);
    session.reportError(L"s", L"%d", 5);
    session.reportWarning(L"s", L"%d", 5);
    session.reportEventTime(L"T", L"s");
    session.getEventTime(L"T", L"s");
    session.reportStatsEventSubject(L"T", L"s", L"T", L"");
    session.removeFromContext(L"T", nullptr, true);
    session.setHistorySize(5);
    session.getHistorySize();
    Gatherer::getCurrentTime();
    session.gatherSystemInfo();
    session.reportException(nullptr, L"4711");
    session.storeMemoryStatus(L"m");
    session.reportMemoryStatus(L"s", 0);
    session.reportMemoryDifference(L"s", L"m", 0);
    session.reportMemoryDifference(L"s", L"never stored", 0);
    session.generateReport(report_path.c_str(), true);
    session.generateReport(report_path.c_str(), false);
    session.XMLEncode(L"<");
    session.loadTime(L"2024-01-31 23:59:59.007");
    session.printTime(nullptr, 0);
    Gatherer::Activate(true);
    Gatherer::GetInstance();
}

// Inert -----------------------------------------------------------------------------------------------
class InertGatherer : public ::testing::Test
{
protected:
    InertGatherer() { KorGLog.Open("test.log", "viewer", false); }

    const LogDirectory m_directory{LIBRARY_TO_FILE};
};

TEST_F(InertGatherer, IsWhatThereIsWithoutActivation)
{
    EXPECT_EQ(Gatherer::myInstance, nullptr);
    EXPECT_TRUE(Gatherer::bBypass);
    Gatherer* const session = Gatherer::GetInstance();
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(Gatherer::myInstance, session);
    EXPECT_EQ(Gatherer::GetInstance(), session);
    EXPECT_TRUE(Gatherer::bBypass);
}

TEST_F(InertGatherer, DoesNothingInAnyOfItsOperations)
{
    const Hook<OpenProcessImport> processes;
    const Hook<GetComputerNameWImport> names;
    ASSERT_TRUE(processes.installed() && names.installed());
    Gatherer* const session = Gatherer::GetInstance();
    const std::string path = m_directory.file("report.xml");
    use_all_operations(*session, std::wstring(path.begin(), path.end()));
    EXPECT_FALSE(file_exists(path));
    EXPECT_THAT(m_directory.lines(), IsEmpty());
    EXPECT_EQ(processes.calls(), 0);
    EXPECT_EQ(names.calls(), 0);
}

TEST_F(InertGatherer, AnswersWithNothing)
{
    Gatherer* const session = Gatherer::GetInstance();
    session->setHistorySize(5);
    EXPECT_EQ(session->getHistorySize(), 0u);
    session->reportEventTime(L"T", L"s");
    EXPECT_EQ(session->getEventTime(L"T", L"s"), 0u);
    EXPECT_EQ(session->XMLEncode(L"<"), nullptr);
    EXPECT_EQ(report_of(*session), "");
}

TEST_F(InertGatherer, StaysInertWhenItIsActivatedTooLate)
{
    Gatherer* const session = Gatherer::GetInstance();
    Gatherer::Activate(true);
    EXPECT_TRUE(Gatherer::bBypass);
    EXPECT_EQ(session->getHistorySize(), 0u);
    EXPECT_EQ(report_of(*session), "");
}

TEST_F(InertGatherer, IsWhatThereIsWhenTheActivationWasTakenBack)
{
    Gatherer::Activate(true);
    EXPECT_FALSE(Gatherer::bBypass);
    EXPECT_EQ(Gatherer::myInstance, nullptr);
    Gatherer::Activate(false);
    EXPECT_TRUE(Gatherer::bBypass);
    EXPECT_EQ(Gatherer::GetInstance()->getHistorySize(), 0u);
}

TEST_F(InertGatherer, IsNoMoreWhatThereIsWhenItIsActivatedInTime)
{
    Gatherer::Activate(false);
    Gatherer::Activate(true);
    Gatherer* const session = Gatherer::GetInstance();
    EXPECT_EQ(session->getHistorySize(), 128u);
    Gatherer::Activate(false); // too late again
    EXPECT_FALSE(Gatherer::bBypass);
    EXPECT_EQ(session->getHistorySize(), 128u);
}

TEST_F(InertGatherer, ThreadsThatAskAtTheSameTimeGetTheSame)
{
    Gatherer::Activate(true);
    constexpr int THREADS = 8;
    Gatherer* instances[THREADS] = {};
    std::atomic<int> ready{0};
    run_on_threads(
        THREADS,
        [&](int number)
        {
            for (++ready; ready < THREADS;)
                ::SwitchToThread();
            instances[number] = Gatherer::GetInstance();
        });
    for (const Gatherer* const instance : instances)
        EXPECT_EQ(instance, Gatherer::myInstance);
    EXPECT_NE(Gatherer::myInstance, nullptr);
}

// Active ----------------------------------------------------------------------------------------------
/// An instance whose clock a test sets, and whose local time is UTC.
class SessionGatherer : public ::testing::Test
{
protected:
    SessionGatherer()
    {
        EXPECT_TRUE(m_clock.installed() && m_zone.installed());
        KorGLog.Open("test.log", "viewer", false);
        EXPECT_EQ(Gatherer::myInstance, nullptr) << "each case needs a process of its own";
        Gatherer::Activate(true);
        m_session = Gatherer::GetInstance();
    }

    /// What a report has between the tags of a list.
    std::string list(const std::string& name) const { return inside(report_of(*m_session), name); }

    /// The texts of all events of a list, in their order.
    Lines infos(const std::string& name) const
    {
        Lines all;
        const std::string text = list(name);
        const std::string open = "<info>";
        for (std::size_t at = text.find(open); at != std::string::npos; at = text.find(open, at + 1))
            all.push_back(text.substr(at + open.size(), text.find("</info>", at) - at - open.size()));
        return all;
    }

    /// An instant event's text that is made of this format and its arguments.
    template <class... Arguments>
    std::string info_of(const wchar_t* format, Arguments... arguments) const
    {
        m_session->setHistorySize(1);
        m_session->reportEvent(L"T", L"s", 0, 1, format, arguments...);
        const Lines all = infos("history");
        return all.size() == 1 ? all[0] : "none";
    }

    std::int64_t m_now = 1709647629042; // 2024-03-05 14:07:09.042
    const Hook<GetSystemTimeAsFileTimeImport> m_clock{
        [this](FILETIME* time)
        {
            // Counts 100 ns from 1601 on; nearly a millisecond more, which does not show.
            const auto units = static_cast<std::uint64_t>(m_now + 11644473600000) * 10'000 + 9'999;
            *time = {static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
            ::SetLastError(99); // as any call may
            errno = 99;
        }};
    const Hook<SystemTimeToTzSpecificLocalTimeImport> m_zone{
        [](const TIME_ZONE_INFORMATION*, const SYSTEMTIME* universal, SYSTEMTIME* local) -> BOOL
        {
            *local = *universal;
            return TRUE;
        }};
    const LogDirectory m_directory{LIBRARY_TO_FILE};
    Gatherer* m_session = nullptr;
};

TEST_F(SessionGatherer, HasNothingAtFirstButItsStart)
{
    m_now += 60'000;
    EXPECT_EQ(m_session->getHistorySize(), 128u);
    const std::string report = report_of(*m_session);
    EXPECT_NE(
        report.find("<context></context><history></history><errors></errors><warnings></warnings>"
                    "<stats start='2024-03-05 14:07:09.042'></stats></lumariscontext>"),
        std::string::npos)
        << report;
    EXPECT_NE(report.find("<SessionLogData/>"), std::string::npos) << report;
}

TEST_F(SessionGatherer, TakesItsTimesFromTheSystemsClock)
{
    m_now = 1709647629999;
    EXPECT_EQ(Gatherer::getCurrentTime(), 1709647629999u);
}

TEST_F(SessionGatherer, KeepsAnInstantWithTheTimeOfTheCall)
{
    m_now += 1958;
    m_session->reportEvent(L"Login", L"user1", 0x2000, 3, L"from %ls, try %d", L"host", 2);
    m_now += 60'000;
    EXPECT_EQ(
        list("history"), "<event type='Login' subject='user1' weight='3' level='2' begintime='2024-03-05 14:07:11.000' "
                         "endtime='2024-03-05 14:07:11.000'><info>from host, try 2</info></event>");
    EXPECT_EQ(list("context"), "");
    EXPECT_EQ(inside(report_of(*m_session), "stats"), "");
}

TEST_F(SessionGatherer, KeepsASpanFromItsBeginToItsEndAndCountsIt)
{
    m_session->reportEvent(L"Load", L"album", Gatherer::BEGIN_OF_SPAN | Gatherer::COUNTED, 4, L"%d of ", 3);
    EXPECT_EQ(
        list("context"), "<event type='Load' subject='album' weight='4' level='0' "
                         "begintime='2024-03-05 14:07:09.042' endtime='1970-01-01 00:00:00.000'>"
                         "<info>3 of </info></event>");
    m_now += 1000;
    m_session->reportEvent(L"Load", L"album", Gatherer::END_OF_SPAN, 0, L"%ls", L"four");
    EXPECT_EQ(
        list("history"), "<event type='Load' subject='album' weight='4' level='0' "
                         "begintime='2024-03-05 14:07:09.042' endtime='2024-03-05 14:07:10.042'>"
                         "<info>3 of four</info></event>");
    EXPECT_EQ(list("context"), "");
    EXPECT_EQ(
        list("stats"), "<statentry type='Load' subject='album' count='1'>"
                       "<weight min='4.000000' avg='4.000000' max='4.000000' />"
                       "<totaltimeinmilliseconds min='1000.000000' avg='1000.000000' max='1000.000000' />"
                       "<unittimeinmilliseconds min='250.000000' avg='250.000000' max='250.000000' /></statentry>");
}

TEST_F(SessionGatherer, KeepsAnEndWithoutABeginWithNoTimeForItsBegin)
{
    m_session->reportEvent(L"Load", L"album", Gatherer::END_OF_SPAN, 1, nullptr);
    EXPECT_EQ(
        list("history"), "<event type='Load' subject='album' weight='1' level='0' "
                         "begintime='1970-01-01 00:00:00.000' endtime='2024-03-05 14:07:09.042'>"
                         "<info></info></event>");
}

TEST_F(SessionGatherer, KeepsErrorsAndWarningsInListsOfTheirOwn)
{
    m_session->reportError(L"disk", L"%d bytes left", 12);
    m_now += 1;
    m_session->reportWarning(nullptr, L"%ls", L"slow");
    m_session->reportError(nullptr, nullptr);
    const std::string report = report_of(*m_session);
    EXPECT_EQ(
        inside(report, "errors"),
        "<event type='Error' subject='disk' weight='1' level='0' begintime='2024-03-05 14:07:09.042' "
        "endtime='2024-03-05 14:07:09.042'><info>12 bytes left</info></event>"
        "<event type='Error' weight='1' level='0' begintime='2024-03-05 14:07:09.043' "
        "endtime='2024-03-05 14:07:09.043'><info></info></event>");
    EXPECT_EQ(
        inside(report, "warnings"), "<event type='Warning' weight='1' level='0' begintime='2024-03-05 14:07:09.043' "
                                    "endtime='2024-03-05 14:07:09.043'><info>slow</info></event>");
    EXPECT_EQ(inside(report, "context") + inside(report, "history") + inside(report, "stats"), "");
}

TEST_F(SessionGatherer, KeepsErrorsAndWarningsBeyondAnyNumber)
{
    m_session->setHistorySize(1);
    for (int i = 0; i < 1000; ++i)
    {
        m_session->reportError(L"s", L"%d", i);
        m_session->reportWarning(L"s", L"%d", i);
    }
    const Lines errors = infos("errors");
    ASSERT_THAT(errors, SizeIs(1000));
    EXPECT_EQ(errors.front(), "0");
    EXPECT_EQ(errors.back(), "999");
    EXPECT_THAT(infos("warnings"), SizeIs(1000));
}

TEST_F(SessionGatherer, HoldsAsManyFinishedEventsAsItIsTold)
{
    m_session->setHistorySize(3);
    EXPECT_EQ(m_session->getHistorySize(), 3u);
    for (int i = 1; i <= 5; ++i)
        m_session->reportEvent(L"T", L"s", 0, 1, L"%d", i);
    EXPECT_THAT(infos("history"), ElementsAre("3", "4", "5"));
    m_session->setHistorySize(1);
    EXPECT_THAT(infos("history"), ElementsAre("3", "4", "5"));
    m_session->reportEvent(L"T", L"s", 0, 1, L"6");
    EXPECT_THAT(infos("history"), ElementsAre("6"));
}

TEST_F(SessionGatherer, NotesTimesUnderTypeAndSubject)
{
    EXPECT_EQ(m_session->getEventTime(L"T", L"s"), 0u);
    m_session->reportEventTime(L"T", L"s");
    m_now += 5;
    m_session->reportEventTime(nullptr, nullptr);
    EXPECT_EQ(m_session->getEventTime(L"T", L"s"), 1709647629042u);
    EXPECT_EQ(m_session->getEventTime(L"", L""), 1709647629047u);
    EXPECT_EQ(m_session->getEventTime(nullptr, nullptr), 1709647629047u);
    EXPECT_EQ(m_session->getEventTime(L"T", nullptr), 0u);
    EXPECT_EQ(m_session->getEventTime(nullptr, L"s"), 0u);
    m_now += 5;
    m_session->reportEventTime(L"T", L"s");
    EXPECT_EQ(m_session->getEventTime(L"T", L"s"), 1709647629052u);
    EXPECT_EQ(list("history") + list("context"), "");
}

TEST_F(SessionGatherer, CountsEventsUnderTheIdentityThatStandsForThem)
{
    m_session->reportStatsEventSubject(L"T", L"s", L"All", nullptr);
    m_session->reportStatsEventSubject(nullptr, nullptr, L"Nameless", L"x");
    m_session->reportEvent(L"T", L"s", Gatherer::COUNTED, 1, nullptr);
    m_session->reportEvent(nullptr, nullptr, Gatherer::COUNTED, 1, nullptr);
    const std::vector<Attributes> entries = elements(list("stats"), "statentry");
    EXPECT_THAT(
        entries, ElementsAre(
                     Attributes{{"type", "All"}, {"count", "1"}},
                     Attributes{{"type", "Nameless"}, {"subject", "x"}, {"count", "1"}}));
}

TEST_F(SessionGatherer, RemovesFromTheContextWhatItIsAskedFor)
{
    const auto types = [&](const char* name)
    {
        std::string all;
        for (const Attributes& event : elements(list(name), "event"))
            all += event.at("type") + event.at("subject") + ' ';
        return all;
    };
    for (const wchar_t* const type : {L"A", L"B", L"C"})
        for (const wchar_t* const subject : {L"x", L"y"})
            m_session->reportEvent(type, subject, Gatherer::STATE, 1, nullptr);
    m_session->reportEvent(L"B", L"z", Gatherer::BEGIN_OF_SPAN, 1, nullptr);
    m_session->removeFromContext(L"A", L"y", false);
    EXPECT_EQ(types("context"), "Ax Bx By Bz Cx Cy ");
    m_session->removeFromContext(L"B", nullptr, false);
    EXPECT_EQ(types("context"), "Ax Bz Cx Cy ");
    m_session->removeFromContext(nullptr, nullptr, true);
    EXPECT_EQ(types("context"), "");
    EXPECT_EQ(types("history"), "Ay Bx By Ax Bz Cx Cy ");
}

TEST_F(SessionGatherer, LetsDerivedClassesAddAndCount)
{
    Gatherer::ReportEventNode event;
    event.type = L"T";
    event.flags = Gatherer::COUNTED;
    event.weight = 2;
    event.info = L"added";
    (m_session->*Protected::adds_history())(event);
    (m_session->*Protected::updates_stats())({L"Other", L"s"}, event);
    event.flags = Gatherer::HIDDEN;
    (m_session->*Protected::adds_history())(event);
    (m_session->*Protected::updates_stats())({L"Another", L"s"}, event);
    EXPECT_THAT(infos("history"), ElementsAre("added"));
    EXPECT_THAT(
        elements(list("stats"), "statentry"),
        ElementsAre(Attributes{{"type", "Other"}, {"subject", "s"}, {"count", "1"}}));
}

TEST_F(SessionGatherer, TakesNullForAnEmptyText)
{
    m_session->reportEvent(nullptr, nullptr, 0, 1, nullptr);
    EXPECT_EQ(
        list("history"), "<event type='' weight='1' level='0' begintime='2024-03-05 14:07:09.042' "
                         "endtime='2024-03-05 14:07:09.042'><info></info></event>");
    m_session->storeMemoryStatus(nullptr);
    m_session->reportMemoryStatus(nullptr, 0);
    m_session->reportMemoryDifference(nullptr, nullptr, 0);
    m_session->removeFromContext(nullptr, nullptr, false);
}

// The text of an event --------------------------------------------------------------------------------
TEST_F(SessionGatherer, KeepsATextOf1023CharactersAndTheFrontOfALongerOne)
{
    for (const std::size_t length : {1u, 1022u, 1023u, 1024u, 5000u})
    {
        const std::wstring wide(length, L'x');
        const std::string kept(std::min<std::size_t>(length, 1023), 'x');
        EXPECT_TRUE(info_of(wide.c_str()) == kept) << length;
        EXPECT_TRUE(info_of(L"%ls", wide.c_str()) == kept) << length;
        EXPECT_TRUE(info_of((wide + L"%d").c_str(), 1) == (kept + '1').substr(0, 1023)) << length;
        EXPECT_TRUE(info_of((L"%d" + wide).c_str(), 1) == ('1' + kept).substr(0, 1023)) << length;
    }
}

TEST_F(SessionGatherer, AppendsTheTextOfAnEndToALongOne)
{
    const std::wstring text(1023, L'x');
    m_session->reportEvent(L"T", L"s", Gatherer::BEGIN_OF_SPAN, 1, L"%ls", text.c_str());
    m_session->reportEvent(L"T", L"s", Gatherer::END_OF_SPAN, 1, L"%ls", text.c_str());
    EXPECT_TRUE(infos("history") == Lines{std::string(2046, 'x')});
}

TEST_F(SessionGatherer, FormatsAsTheWideFunctionsDo)
{
    EXPECT_EQ(info_of(L""), "");
    EXPECT_EQ(info_of(L"100%%"), "100%");
    EXPECT_EQ(
        info_of(L"%ls|%hs|%5d|%-5u|%.2f|%I64u", L"a", "b", -42, 42u, 0.5, 18446744073709551615ull),
        "a|b|  -42|42   |0.50|18446744073709551615");
    EXPECT_EQ(info_of(L"%ls", static_cast<const wchar_t*>(nullptr)), "(null)");
    EXPECT_EQ(info_of(L"\x00E4\x20AC\xD83D\xDE00"), "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
}

const std::string FORMAT_ERROR = "!!! ERROR !!! Caught exception while formatting log message - Check log line for "
                                 "format discrepancy and null values. !!! ERROR !!!";

TEST_F(SessionGatherer, SaysSoWhenTheArgumentsDoNotFitTheFormat)
{
    const auto* const wild = reinterpret_cast<const wchar_t*>(std::uintptr_t{0x10});
    EXPECT_EQ(info_of(L"%ls", wild), FORMAT_ERROR);
    EXPECT_EQ(info_of(L"before %hs", wild), FORMAT_ERROR);
    EXPECT_EQ(info_of(wild), FORMAT_ERROR);
    m_session->reportError(L"s", L"%ls", wild);
    m_session->reportWarning(L"s", L"%ls", wild);
    EXPECT_THAT(infos("errors"), ElementsAre(FORMAT_ERROR));
    EXPECT_THAT(infos("warnings"), ElementsAre(FORMAT_ERROR));
    EXPECT_EQ(info_of(L"%d", 1), "1");
}

// The caller's errors ---------------------------------------------------------------------------------
TEST_F(SessionGatherer, LeavesTheLastErrorAndErrnoAsTheyWere)
{
    const std::wstring no_file = L"C:\\no\\such\\folder\\report.xml";
    const std::string path = m_directory.file("report.xml");
    const std::wstring file(path.begin(), path.end());
    const auto* const wild = reinterpret_cast<const wchar_t*>(std::uintptr_t{0x10});
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"GetInstance", [&] { Gatherer::GetInstance(); }},
        {"Activate", [&] { Gatherer::Activate(false); }},
        {"reportEvent", [&] { m_session->reportEvent(L"T", L"s", 0, 1, L"%ls", L"x"); }},
        {"reportEvent, bad argument", [&] { m_session->reportEvent(L"T", L"s", 0, 1, L"%ls", wild); }},
        {"reportError", [&] { m_session->reportError(L"s", L"%ls", L"x"); }},
        {"reportError, bad argument", [&] { m_session->reportError(L"s", L"%ls", wild); }},
        {"reportWarning", [&] { m_session->reportWarning(L"s", L"%d", 1); }},
        {"reportEventTime", [&] { m_session->reportEventTime(L"T", L"s"); }},
        {"getEventTime", [&] { m_session->getEventTime(L"T", L"s"); }},
        {"reportStatsEventSubject", [&] { m_session->reportStatsEventSubject(L"T", L"s", L"U", L"t"); }},
        {"removeFromContext", [&] { m_session->removeFromContext(L"T", L"s", true); }},
        {"setHistorySize", [&] { m_session->setHistorySize(100); }},
        {"getHistorySize", [&] { m_session->getHistorySize(); }},
        {"gatherSystemInfo", [&] { m_session->gatherSystemInfo(); }},
        {"reportException", [&] { m_session->reportException(nullptr, nullptr); }},
        {"storeMemoryStatus", [&] { m_session->storeMemoryStatus(L"m"); }},
        {"reportMemoryStatus", [&] { m_session->reportMemoryStatus(L"m", 0); }},
        {"reportMemoryDifference", [&] { m_session->reportMemoryDifference(L"m", L"m", 0); }},
        {"reportMemoryDifference, unknown", [&] { m_session->reportMemoryDifference(L"m", L"n", 0); }},
        {"generateReport", [&] { m_session->generateReport(file.c_str(), true); }},
        {"generateReport, state", [&] { m_session->generateReport(file.c_str(), false); }},
        {"generateReport, no folder", [&] { m_session->generateReport(no_file.c_str(), true); }},
        {"XMLEncode", [&] { m_session->XMLEncode(L"a<b"); }},
        {"loadTime", [&] { m_session->loadTime(L"2024-01-31 23:59:59.007"); }},
    };
    for (const auto& [name, operation] : operations)
    {
        ::SetLastError(4711);
        errno = 17;
        operation();
        const int number = errno;
        const DWORD error = ::GetLastError();
        EXPECT_EQ(error, 4711u) << name;
        EXPECT_EQ(number, 17) << name;
    }
}

// Memory ----------------------------------------------------------------------------------------------
/// What the system tells of the process's memory.
class SessionMemory : public SessionGatherer
{
protected:
    SessionMemory() { EXPECT_TRUE(m_open.installed() && m_info.installed() && m_close.installed()); }

    const HANDLE PROCESS = reinterpret_cast<HANDLE>(std::uintptr_t{0x7770});
    std::uint64_t m_working_set = 0;
    std::uint64_t m_private = 0;
    bool m_opens = true;
    bool m_measures = true;
    int m_closed = 0;
    const Hook<OpenProcessImport> m_open{
        [this](DWORD access, BOOL inherit, DWORD id) -> HANDLE
        {
            EXPECT_EQ(access, 0x410u);
            EXPECT_EQ(inherit, FALSE);
            EXPECT_EQ(id, ::GetCurrentProcessId());
            return m_opens ? PROCESS : nullptr;
        }};
    const Hook<MemoryInfoImport> m_info{
        [this](HANDLE process, PROCESS_MEMORY_COUNTERS* to, DWORD size) -> BOOL
        {
            EXPECT_EQ(process, PROCESS);
            EXPECT_EQ(size, 80u);
            auto& counters = *reinterpret_cast<PROCESS_MEMORY_COUNTERS_EX*>(to);
            counters.WorkingSetSize = m_working_set;
            counters.PrivateUsage = m_private;
            return m_measures;
        }};
    const Hook<CloseHandleImport> m_close{
        [this](HANDLE handle) -> BOOL
        {
            if (handle != PROCESS)
                return ::CloseHandle(handle);
            ++m_closed;
            return TRUE;
        }};
};

TEST_F(SessionMemory, IsReportedAsAnEvent)
{
    m_working_set = 2048;
    m_private = 1500;
    m_session->reportMemoryStatus(L"Load", 0x3000);
    m_session->reportMemoryStatus(nullptr, Gatherer::COUNTED);
    EXPECT_EQ(
        list("history"), "<event type='Mem' subject='Load - Status' weight='1' level='3' "
                         "begintime='2024-03-05 14:07:09.042' endtime='2024-03-05 14:07:09.042'>"
                         "<info>Mem Usage: 2 KB; VM Size: 1.465 KB</info></event>"
                         "<event type='Mem' subject=' - Status' weight='1' level='0' "
                         "begintime='2024-03-05 14:07:09.042' endtime='2024-03-05 14:07:09.042'>"
                         "<info>Mem Usage: 2 KB; VM Size: 1.465 KB</info></event>");
    EXPECT_THAT(
        elements(list("stats"), "statentry"),
        ElementsAre(Attributes{{"type", "Mem"}, {"subject", " - Status"}, {"count", "1"}}));
    EXPECT_EQ(m_open.calls(), 2);
    EXPECT_EQ(m_closed, 2);
}

TEST_F(SessionMemory, IsReportedInTheFormOfItsSize)
{
    struct Row
    {
        std::uint64_t bytes;
        const char* text;
    };
    const Row rows[] = {
        {0, "0 Bytes"},       {1023, "1023 Bytes"},     {1024, "1024 Bytes"},       {1025, "1.001 KB"},
        {3145728, "3072 KB"}, {3145729, "3072.001 KB"}, {5368709120, "5242880 KB"},
    };
    m_session->setHistorySize(1);
    for (const Row& row : rows)
    {
        m_working_set = row.bytes;
        m_private = row.bytes;
        m_session->reportMemoryStatus(L"s", 0);
        const std::string size = row.text;
        EXPECT_THAT(infos("history"), ElementsAre("Mem Usage: " + size + "; VM Size: " + size));
    }
}

TEST_F(SessionMemory, HasTheFlagsThatTheCallerGives)
{
    m_session->reportMemoryStatus(L"s", Gatherer::STATE);
    m_session->storeMemoryStatus(L"m");
    m_session->reportMemoryDifference(L"s", L"m", Gatherer::STATE | Gatherer::CONFIGURATION);
    const std::string context = list("context");
    EXPECT_THAT(elements(context, "event"), SizeIs(1));
    EXPECT_THAT(elements(context, "configuration"), SizeIs(1));
    EXPECT_EQ(list("history"), "");
}

TEST_F(SessionMemory, IsComparedWithWhatWasStoredLast)
{
    m_working_set = 1000;
    m_private = 4096;
    m_session->storeMemoryStatus(L"start");
    m_working_set = 10'000;
    m_private = 8192;
    m_session->storeMemoryStatus(L"start");
    m_working_set = 10'512;
    m_private = 12'288;
    m_session->reportMemoryDifference(L"Load", L"start", 0);
    m_working_set = 10'513; // from what is stored still
    m_session->reportMemoryDifference(nullptr, L"start", 0);
    EXPECT_THAT(
        infos("history"), ElementsAre("Mem Usage: 512 Bytes; VM Size: 4 KB", "Mem Usage: 513 Bytes; VM Size: 4 KB"));
    const std::vector<Attributes> events = elements(list("history"), "event");
    EXPECT_EQ(events.at(0).at("subject"), "Load - Difference from start");
    EXPECT_EQ(events.at(1).at("subject"), " - Difference from start");
    EXPECT_EQ(events.at(0).at("type"), "Mem");
    EXPECT_EQ(events.at(0).at("weight"), "1");
}

TEST_F(SessionMemory, IsStoredUnderEachNameForItself)
{
    m_working_set = m_private = 100;
    m_session->storeMemoryStatus(L"a");
    m_working_set = m_private = 200;
    m_session->storeMemoryStatus(L"b");
    m_working_set = m_private = 300;
    m_session->storeMemoryStatus(L"");
    m_working_set = m_private = 1000;
    m_session->reportMemoryDifference(L"s", L"a", 0);
    m_session->reportMemoryDifference(L"s", L"b", 0);
    m_session->reportMemoryDifference(L"s", L"", 0);
    m_session->reportMemoryDifference(L"s", nullptr, 0); // the same one, under another name
    EXPECT_THAT(
        infos("history"), ElementsAre(
                              "Mem Usage: 900 Bytes; VM Size: 900 Bytes", "Mem Usage: 800 Bytes; VM Size: 800 Bytes",
                              "Mem Usage: 700 Bytes; VM Size: 700 Bytes", "Mem Usage: 700 Bytes; VM Size: 700 Bytes"));
    const std::vector<Attributes> events = elements(list("history"), "event");
    EXPECT_EQ(events.at(2).at("subject"), "s - Difference from ");
    EXPECT_EQ(events.at(3).at("subject"), "s - Difference from previous log");
}

TEST_F(SessionMemory, ThatHasShrunkIsAVeryLargeDifference)
{
    m_working_set = m_private = 8192;
    m_session->storeMemoryStatus(L"m");
    m_working_set = 4096;
    m_private = 0;
    m_session->reportMemoryDifference(L"s", L"m", 0);
    EXPECT_THAT(infos("history"), ElementsAre("Mem Usage: 18014398509481980 KB; VM Size: 18014398509481976 KB"));
}

TEST_F(SessionMemory, ThatWasNeverStoredIsToldInTheGeneralLogAlone)
{
    m_session->reportMemoryDifference(L"s", L"m", Gatherer::COUNTED);
    m_session->reportMemoryDifference(L"s", nullptr, Gatherer::STATE);
    EXPECT_EQ(
        lines_without_numbers(m_directory),
        (Lines{MEMORY_WARNING + "No stored memory status for m.", MEMORY_WARNING + "No stored memory status for ."}));
    const std::string report = report_of(*m_session);
    EXPECT_EQ(inside(report, "context") + inside(report, "history") + inside(report, "stats"), "");
}

TEST_F(SessionMemory, OfAProcessThatCannotBeOpenedIsNotReported)
{
    m_session->storeMemoryStatus(L"m");
    m_opens = false;
    m_session->reportMemoryStatus(L"s", 0);
    m_session->reportMemoryDifference(L"s", L"m", 0);
    m_session->reportMemoryDifference(L"s", L"never stored", 0);
    m_session->storeMemoryStatus(L"n");
    EXPECT_EQ(m_open.calls(), 5);
    EXPECT_EQ(m_info.calls(), 1);
    EXPECT_EQ(m_closed, 1);
    EXPECT_EQ(list("history"), "");
    EXPECT_THAT(m_directory.lines(), SizeIs(1)); // of the report that was just looked at
    m_opens = true;
    m_session->reportMemoryDifference(L"s", L"n", 0);
    EXPECT_EQ(lines_without_numbers(m_directory).at(1), MEMORY_WARNING + "No stored memory status for n.");
}

TEST_F(SessionMemory, ThatCannotBeMeasuredIsNotReported)
{
    m_working_set = m_private = 100;
    m_session->storeMemoryStatus(L"m");
    m_measures = false;
    m_working_set = m_private = 200;
    m_session->storeMemoryStatus(L"m");
    m_session->reportMemoryStatus(L"s", 0);
    m_session->reportMemoryDifference(L"s", L"m", 0);
    EXPECT_EQ(m_info.calls(), 4);
    EXPECT_EQ(m_closed, 4);
    EXPECT_EQ(list("history"), "");
    m_measures = true;
    m_session->reportMemoryDifference(L"s", L"m", 0); // from what could be measured
    EXPECT_THAT(infos("history"), ElementsAre("Mem Usage: 100 Bytes; VM Size: 100 Bytes"));
}

TEST_F(SessionMemory, LeavesTheLastErrorOfTheCallerWhenTheSystemFails)
{
    for (const bool opens : {false, true})
    {
        m_opens = opens;
        m_measures = false;
        ::SetLastError(4711);
        m_session->reportMemoryStatus(L"s", 0);
        EXPECT_EQ(::GetLastError(), 4711u);
    }
}

// Again from within -----------------------------------------------------------------------------------
TEST_F(SessionGatherer, MayBeUsedFromWithinAnOperationOfTheSameThread)
{
    std::string report;
    const Hook<GetComputerNameWImport> name(
        [&](wchar_t*, DWORD*) -> BOOL
        {
            m_session->reportEvent(L"T", L"s", Gatherer::COUNTED, 1, L"from within");
            report = report_of(*m_session);
            return FALSE;
        });
    ASSERT_TRUE(name.installed());
    on_another_thread([&] { m_session->gatherSystemInfo(); });
    EXPECT_EQ(name.calls(), 1);
    EXPECT_NE(inside(report, "history").find("<info>from within</info>"), std::string::npos) << report;
    on_another_thread([&] { EXPECT_EQ(m_session->getHistorySize(), 128u); }); // it has been given back
}

TEST_F(SessionGatherer, MayBeUsedByADestinationThatItsOwnLinesGoTo)
{
    RecordingDestination destination([&](Kor_LogMTVars&)
                                     { m_session->reportEvent(L"T", L"s", 0, 1, L"of a destination"); });
    KorGLog.RegisterLogDestination(&destination);
    m_session->reportMemoryDifference(L"s", L"never stored", 0);
    KorGLog.UnregisterLogDestination(&destination);
    ASSERT_THAT(destination.messages, SizeIs(1));
    EXPECT_EQ(destination.messages[0].level, 4);
    EXPECT_EQ(destination.messages[0].package, 106);
    EXPECT_EQ(destination.messages[0].file_name, "Kor_SessionLogGatherer");
    EXPECT_THAT(infos("history"), ElementsAre("of a destination"));
}

// Lines -----------------------------------------------------------------------------------------------
TEST_F(SessionGatherer, TellsWhatItHasWritten)
{
    const std::string path = m_directory.file("report.xml");
    const std::wstring wide(path.begin(), path.end());
    m_session->generateReport(wide.c_str(), true);
    m_session->generateReport(wide.c_str(), false);
    m_session->generateReport(L"C:\\no\\such\\folder\\report.xml", true);
    m_session->generateReport(L"C:\\no\\such\\folder\\report.xml", false);
    const std::string start = line_start("DEBUG   ", "Kor_SessionLogGatherer::generateReport");
    EXPECT_EQ(
        lines_without_numbers(m_directory),
        (Lines{
            start + "Crash report written to '" + path + "'.",
            start + "Crashlog gatherer state written to '" + path + "'.",
            REPORT_ERROR + "Exception in Kor_SessionLogGatherer::generateReport()",
            REPORT_ERROR + "Exception in Kor_SessionLogGatherer::generateReport()"}));
}

TEST_F(SessionGatherer, SaysNothingOfEvents)
{
    m_session->reportEvent(L"T", L"s", Gatherer::COUNTED, 1, L"text");
    m_session->reportError(L"s", L"text");
    m_session->removeFromContext(L"no such type", nullptr, true);
    m_session->reportEvent(L"T", L"s", 0, 1, L"%ls", reinterpret_cast<const wchar_t*>(std::uintptr_t{0x10}));
    EXPECT_THAT(m_directory.lines(), IsEmpty());
}

// Threads ---------------------------------------------------------------------------------------------
TEST_F(SessionGatherer, CountsEveryEventOfManyThreadsAndTearsNoneWhileReportsAreWritten)
{
    constexpr int THREADS = 8;
    constexpr int EVENTS = 125'000; // of each
    std::atomic<int> running{THREADS};
    std::atomic<int> torn{0};
    std::atomic<int> texts{0};
    BoundedThread reporter(
        [&]
        {
            for (bool is_last = false; !is_last;)
            {
                is_last = running == 0;
                for (const std::string& info : infos("history"))
                {
                    const bool whole =
                        info.size() == 40 && info.find_first_not_of(info.substr(0, 1)) == std::string::npos;
                    torn += whole ? 0 : 1;
                    ++texts;
                }
            }
        },
        90000);
    run_on_threads(
        THREADS,
        [&](int number)
        {
            const std::wstring own(1, static_cast<wchar_t>(L'A' + number));
            const std::wstring text(40, own[0]);
            for (int i = 0; i < EVENTS; ++i)
            {
                const bool is_shared = i % 2 == 0;
                m_session->reportEvent(
                    is_shared ? L"shared" : own.c_str(), L"s", Gatherer::COUNTED, static_cast<unsigned>(i % 2 + 1),
                    i % 16 == 0 ? L"%ls" : text.c_str(), text.c_str());
            }
            --running;
        },
        90000);
    reporter.join();
    EXPECT_EQ(torn, 0);
    EXPECT_GE(texts, 128);
    EXPECT_THAT(infos("history"), SizeIs(128));

    const std::string stats = list("stats");
    std::vector<Attributes> expected;
    for (int number = 0; number < THREADS; ++number)
        expected.push_back(
            {{"type", std::string(1, static_cast<char>('A' + number))}, {"subject", "s"}, {"count", "62500"}});
    expected.push_back({{"type", "shared"}, {"subject", "s"}, {"count", "500000"}});
    EXPECT_EQ(elements(stats, "statentry"), expected);
    const std::vector<Attributes> weights = elements(stats, "weight");
    ASSERT_THAT(weights, SizeIs(9));
    EXPECT_EQ(weights[0], (Attributes{{"min", "2.000000"}, {"avg", "2.000000"}, {"max", "2.000000"}}));
    EXPECT_EQ(weights[8], (Attributes{{"min", "1.000000"}, {"avg", "1.000000"}, {"max", "1.000000"}}));
}

TEST_F(SessionGatherer, LosesNoErrorAndNoWarningOfManyThreads)
{
    constexpr int THREADS = 4;
    constexpr int NOTICES = 2000; // of each
    run_on_threads(
        THREADS,
        [&](int number)
        {
            for (int i = 0; i < NOTICES; ++i)
            {
                m_session->reportError(L"s", L"%d", number * NOTICES + i);
                m_session->reportWarning(L"s", L"%d", number * NOTICES + i);
            }
        });
    for (const char* const name : {"errors", "warnings"})
    {
        const Lines all = infos(name);
        EXPECT_THAT(all, SizeIs(THREADS * NOTICES));
        EXPECT_THAT(std::set<std::string>(all.begin(), all.end()), SizeIs(THREADS * NOTICES));
    }
}

TEST_F(SessionGatherer, IsNotWaitedForBeyondALimit)
{
    const NamedEvent entered(unique_name("entered"));
    const NamedEvent leave(unique_name("leave"));
    const Hook<GetComputerNameWImport> name(
        [&](wchar_t*, DWORD*) -> BOOL
        {
            entered.set();
            leave.wait(60000);
            return FALSE;
        });
    BoundedThread stuck([&] { m_session->gatherSystemInfo(); });
    ASSERT_TRUE(name.installed() && entered.wait());
    {
        const SlowClock clock; // or it would take ten seconds
        const Hook<OpenThreadImport> threads(
            [](DWORD, BOOL, DWORD) -> HANDLE
            {
                ::SetLastError(ERROR_ACCESS_DENIED);
                return nullptr;
            });
        ASSERT_TRUE(clock.installed() && threads.installed());
        EXPECT_EQ(m_session->getHistorySize(), 0u);
        EXPECT_GE(clock.elapsed(), 10'000u);
        EXPECT_LE(clock.elapsed(), 10'200u);
    }
    EXPECT_FALSE(stuck.done());
    leave.set();
    stuck.join();
    EXPECT_EQ(m_session->getHistorySize(), 128u);
}

[[noreturn]] void stay_for_ever()
{
    for (;;)
        ::Sleep(INFINITE);
}

KOR_CHILD(ends_a_thread_inside_the_gatherer)
{
    KorGLog.Open("test.log", "viewer");
    Gatherer::Activate(true);
    static Gatherer* const session = Gatherer::GetInstance();
    const NamedEvent entered(unique_name("entered"));
    const Hook<GetComputerNameWImport> name(
        [&](wchar_t*, DWORD*) -> BOOL
        {
            entered.set();
            stay_for_ever();
        });
    const HANDLE thread = ::CreateThread(
        nullptr, 0,
        [](void*) -> DWORD
        {
            session->gatherSystemInfo();
            return 0;
        },
        nullptr, 0, nullptr);
    if (!entered.wait())
        return 1;
    ::TerminateThread(thread, 0);
    if (::WaitForSingleObject(thread, 10000) != WAIT_OBJECT_0)
        return 2;

    const Hook<SleepImport> sleeps;
    const std::string path = args[0];
    for (int i = 0; i < 2; ++i)
        on_another_thread([&] { use_all_operations(*session, std::wstring(path.begin(), path.end())); });
    if (session->getHistorySize() != 0 || session->XMLEncode(L"<") != nullptr)
        return 3;
    if (sleeps.calls() > 100)
        return 4; // a thread that is gone must not be waited for
    KorGLog.LogNoHeadline("goes on");
    return 7;
}

TEST(SessionGathererEnd, AThreadThatIsEndedInsideAnOperationLeavesTheOthersTheReportOfACrashAlone)
{
    const LogDirectory directory;
    ChildOptions options = directory.for_child();
    options.arguments = {directory.file("report.xml")};
    const ChildResult child = run_child("ends_a_thread_inside_the_gatherer", options);
    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 7u);
    EXPECT_EQ(child.err, "");
    const std::string has_it = REPORT_ERROR + "Another thread has the gatherer and does not give it back. ";
    const Lines of_each{
        has_it + "The report lacks all that the gatherer has.", has_it + "Nothing is written.",
        REPORT_ERROR + "Exception in Kor_SessionLogGatherer::generateReport()"};
    Lines expected = of_each;
    expected.insert(expected.end(), of_each.begin(), of_each.end());
    expected.push_back("goes on");
    const Lines lines = lines_without_numbers(directory);
    ASSERT_EQ(lines.size(), expected.size() + 2);
    EXPECT_EQ(Lines(lines.begin() + 1, lines.end() - 1), expected);
    EXPECT_THAT(utf8_of(read_file(directory.file("report.xml"))), HasSubstr("EventID=\"4711\""));
}

// The end of the process ------------------------------------------------------------------------------
/// Its end is that of a host's own static object.
struct ReportsAtItsEnd
{
    ~ReportsAtItsEnd()
    {
        if (path.empty())
            return;
        Gatherer* const session = Gatherer::GetInstance();
        if (session != nullptr)
            use_all_operations(*session, path);
    }
    std::wstring path;
} reports_at_its_end;

void say(const char* text)
{
    DWORD count = 0;
    ::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), text, static_cast<DWORD>(std::strlen(text)), &count, nullptr);
}

KOR_CHILD(reports_until_its_end)
{
    KorGLog.Open("test.log", "viewer");
    Gatherer::Activate(args[1] == "active");
    static Gatherer* const session = Gatherer::GetInstance();
    static const std::wstring path(args[0].begin(), args[0].end());
    reports_at_its_end.path = path;
    // Whoever writes the end banner does so after the gatherer has gone. Never ends.
    new Hook<WriteFileImport>(
        [](HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped) -> BOOL
        {
            static bool is_first = true;
            const std::string text(static_cast<const char*>(bytes), size);
            if (text.find(" End Session at ") != std::string::npos && is_first)
            {
                is_first = false;
                say(Gatherer::GetInstance() == nullptr && Gatherer::myInstance == nullptr ? "gone, " : "there, ");
                const std::wstring other = path + L".late";
                use_all_operations(*session, other);
                say(session->getHistorySize() == 0 ? "inert" : "active");
            }
            return ::WriteFile(file, bytes, size, written, overlapped);
        });
    if (args[2] == "exit on a thread")
    {
        std::thread([] { std::exit(7); }).detach();
        stay_for_ever();
    }
    if (args[2] == "ExitProcess")
        ::ExitProcess(7);
    return 7;
}

TEST(SessionGathererEnd, StaticDestructorsOfTheHostMayStillReportAndLaterCallsDoNothing)
{
    struct Row
    {
        const char* state;
        const char* way;
        bool writes;
    };
    const Row rows[] = {
        {"active", "return", true},
        {"active", "exit on a thread", true},
        {"active", "ExitProcess", false}, // which does not run the host's destructors
        {"inert", "return", false},
    };
    for (const Row& row : rows)
    {
        const LogDirectory directory;
        ChildOptions options = directory.for_child();
        options.arguments = {directory.file("report.xml"), row.state, row.way};
        const ChildResult child = run_child("reports_until_its_end", options);
        EXPECT_TRUE(child.finished) << row.way;
        EXPECT_EQ(child.exit_code, 7u) << row.way;
        EXPECT_EQ(child.err, "gone, inert") << row.way;
        EXPECT_EQ(file_exists(directory.file("report.xml")), row.writes) << row.way;
        EXPECT_FALSE(file_exists(directory.file("report.xml.late"))) << row.way;
    }
}

KOR_CHILD(ends_while_threads_report)
{
    KorGLog.Open("test.log", "viewer");
    Gatherer::Activate(true);
    Gatherer* const session = Gatherer::GetInstance();
    std::atomic<int> running{0};
    for (int i = 0; i < 4; ++i)
    {
        std::thread(
            [&]
            {
                session->reportEvent(L"T", L"s", Gatherer::COUNTED, 1, L"text");
                ++running;
                for (;;)
                    session->reportEvent(L"T", L"s", Gatherer::COUNTED, 1, L"text");
            })
            .detach();
    }
    while (running < 4)
        ::SwitchToThread();
    ::ExitProcess(7);
}

TEST(SessionGathererEnd, AProcessMayEndWhileItsThreadsReport)
{
    for (int i = 0; i < 5; ++i)
    {
        const LogDirectory directory;
        const ChildResult child = run_child("ends_while_threads_report", directory.for_child());
        EXPECT_TRUE(child.finished);
        EXPECT_EQ(child.exit_code, 7u);
        EXPECT_THAT(directory.lines(), SizeIs(2)); // both banners
    }
}
/// Blocks of the heap that the library has taken for the gatherer.
class Blocks
{
public:
    void add(void* block)
    {
        const std::size_t index = m_count++;
        if (index < std::size(m_blocks))
            m_blocks[index] = block;
    }
    bool has(const void* block) const { return std::find(m_blocks, std::end(m_blocks), block) != std::end(m_blocks); }

private:
    std::atomic<std::size_t> m_count{0};
    void* m_blocks[4096] = {};
};

KOR_CHILD(ends_where_another_thread_may_have_the_heap)
{
    KorGLog.Open("test.log", "viewer");
    Gatherer::Activate(true);
    static Blocks blocks;
    static bool ending = false;
    {
        const Hook<mallocImport> memory(
            [](std::size_t size) -> void*
            {
                void* const block = std::malloc(size);
                blocks.add(block);
                return block;
            });
        if (!memory.installed())
            return 1;
        Gatherer* const session = Gatherer::GetInstance();
        session->gatherSystemInfo();
        session->reportEvent(L"a type", L"a subject", Gatherer::STATE | Gatherer::COUNTED, 1, L"a text");
    }
    // Never ends. What was given back before, and taken by others, does not count.
    const auto* const frees = new Hook<freeImport>(
        [](void* block)
        {
            if (ending && block != nullptr && blocks.has(block))
                ::TerminateProcess(::GetCurrentProcess(), 8);
            std::free(block);
        });
    if (!frees->installed())
        return 2;
    // What the general log frees at its end was not taken above.
    ending = true;
    ::ExitProcess(7);
}

TEST(SessionGathererEnd, AsksNothingOfTheHeapThatAnEndedThreadMayHave)
{
    const LogDirectory directory;
    const ChildResult child = run_child("ends_where_another_thread_may_have_the_heap", directory.for_child());
    EXPECT_TRUE(child.finished);
    EXPECT_EQ(child.exit_code, 7u);
    EXPECT_THAT(directory.lines(), SizeIs(2)); // both banners
}
} // namespace
