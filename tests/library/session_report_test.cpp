// Reports and state files to the byte, whatever they tell of, and what the general log says of them.

#include "Kor_SessionLogGatherer.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <xercesc/dom/DOMException.hpp>
#include <xercesc/framework/MemBufFormatTarget.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLUniDefs.hpp>

#include "Kor_LogFile.h"
#include "bounded.h"
#include "session_report.h"
#include "slow_clock.h"

namespace
{
using Gatherer = Kor_SessionLogGatherer;
using Lines = std::vector<std::string>;

KOR_IMPORT(CreateFileW);
KOR_IMPORT(malloc);

const std::wstring HEAD = L"\xFEFF<?xml version=\"1.0\" encoding=\"utf-16\"?>"
                          L"<?xml-stylesheet type=\"text/xsl\" href=\"SessionLogSummary.xsl\"?>"
                          L"<lumariscontext>";
const std::wstring FROM_8_TO_8 = L" begintime='2024-01-31 08:00:00.000' endtime='2024-01-31 08:00:00.000'>";
const std::wstring ZERO = L" min='0.000000' avg='0.000000' max='0.000000' />";
const std::wstring ONE = L" min='1.000000' avg='1.000000' max='1.000000' />";

const std::string WROTE =
    "<time> DEBUG   (106) viewer (<pid>,<tid>)  Kor_SessionLogGatherer(n) Kor_SessionLogGatherer::generateReport -> ";
const std::string FAILED =
    "<time> ERROR   (106) viewer (<pid>,<tid>)  Kor_SessionLogGatherer(n) Kor_SessionLogGatherer::generateReport -> ";
const std::string OTHER_EXCEPTION = FAILED + "Exception in Kor_SessionLogGatherer::generateReport()";

std::wstring wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

/// A gatherer that is switched on, in a process of its own.
class SessionReport : public ::testing::Test
{
protected:
    SessionReport()
    {
        KorGLog.Open("test.log", "viewer", false);
        KorGLog.ReadFile();
        Gatherer::Activate(true);
        EXPECT_TRUE(m_clock.installed());
    }

    static Gatherer& gatherer() { return *Gatherer::GetInstance(); }

    std::wstring path(const std::string& name) const { return wide(m_directory.file(name)); }

    const LogDirectory m_directory{LIBRARY_TO_FILE};
    FixedSessionClock m_clock;
};

/// What needs the XML library in this program, too.
class SessionReportTarget : public SessionReport
{
protected:
    SessionReportTarget() { xercesc::XMLPlatformUtils::Initialize(); }
    ~SessionReportTarget() override { xercesc::XMLPlatformUtils::Terminate(); }
};

// The document -------------------------------------------------------------------------
TEST_F(SessionReport, OfNothingHasEmptyLists)
{
    EXPECT_EQ(
        report_text(gatherer()), HEAD + L"\n<SessionLogData/>"
                                        L"<context></context><history></history><errors></errors><warnings></warnings>"
                                        L"<stats start='2024-01-31 08:00:00.000'></stats></lumariscontext>");
}

TEST_F(SessionReport, AStateOfNothingHasTheMachineAndTheStatistics)
{
    EXPECT_EQ(
        report_text(gatherer(), false),
        HEAD + L"\n<SessionLogData/><stats start='2024-01-31 08:00:00.000'></stats></lumariscontext>");
}

TEST_F(SessionReport, IsUtf16WithTheLowByteFirstAndEndsWithItsLastTag)
{
    ByteTarget target;
    gatherer().generateReport(&target, true);
    const std::string begin = {'\xFF', '\xFE', '<', '\0', '?', '\0', 'x', '\0', 'm', '\0', 'l', '\0'};
    EXPECT_EQ(target.bytes.substr(0, begin.size()), begin);
    EXPECT_EQ(target.bytes.substr(target.bytes.size() - 4), std::string({'t', '\0', '>', '\0'}));
    EXPECT_TRUE(target.is_flushed);
}

TEST_F(SessionReport, HasContextHistoryErrorsWarningsAndStatisticsInThisOrder)
{
    Gatherer& session = gatherer();
    session.gatherSystemInfo();
    m_clock.ahead = 330;
    m_clock.now = MORNING + 1000;
    session.reportEvent(L"User", L"user1", Gatherer::STATE | 2 << 12, 1, L"since %ls", L"today");
    session.reportEvent(L"Load", L"album", Gatherer::BEGIN_OF_SPAN | Gatherer::COUNTED | 3 << 12, 4, L"12 images");
    session.reportEvent(L"Print", L"page", Gatherer::BEGIN_OF_SPAN, 1, L"begun");
    m_clock.now = MORNING + 3007;
    session.reportEvent(L"Load", L"album", Gatherer::END_OF_SPAN, 0, L", done");
    session.reportEvent(L"Screen", nullptr, Gatherer::CONFIGURATION | Gatherer::COUNTED, 2, nullptr);
    session.reportEvent(L"Password", L"secret", Gatherer::HIDDEN | Gatherer::STATE, 1, L"secret");
    session.reportEvent(L"Password", L"secret", Gatherer::HIDDEN, 1, L"secret");
    session.reportError(L"disk", L"%d bytes missing", 12);
    session.reportError(nullptr, L"second");
    session.reportWarning(L"disk", L"nearly full");
    const std::wstring at_1 = L" begintime='2024-01-31 13:30:01.000'";
    const std::wstring at_3 = L" begintime='2024-01-31 13:30:03.007' endtime='2024-01-31 13:30:03.007'>";
    const std::wstring no_end = L" endtime='1970-01-01 05:30:00.000'>";
    const std::wstring statistics =
        L"<stats start='2024-01-31 13:30:00.000'>"
        L"<statentry type='Load' subject='album' count='1'>"
        L"<weight min='4.000000' avg='4.000000' max='4.000000' />"
        L"<totaltimeinmilliseconds min='2007.000000' avg='2007.000000' max='2007.000000' />"
        L"<unittimeinmilliseconds min='501.750000' avg='501.750000' max='501.750000' /></statentry>"
        L"<statentry type='Screen' count='1'><weight min='2.000000' avg='2.000000' max='2.000000' />"
        L"<totaltimeinmilliseconds" +
        ZERO + L"<unittimeinmilliseconds" + ZERO + L"</statentry></stats></lumariscontext>";
    EXPECT_EQ(
        without_machine(report_text(session)),
        HEAD + L"{machine}<context><event type='Print' subject='page' weight='1' level='0'" + at_1 + no_end +
            L"<info>begun</info></event><event type='User' subject='user1' weight='1' level='2'" + at_1 +
            L" endtime='2024-01-31 13:30:01.000'><info>since today</info></event></context>"
            L"<history><event type='Load' subject='album' weight='4' level='3'" +
            at_1 +
            L" endtime='2024-01-31 13:30:03.007'><info>12 images, done</info></event>"
            L"<configuration type='Screen' weight='2' level='0'" +
            at_3 +
            L"<info></info></configuration></history><errors><event type='Error' subject='disk' weight='1' level='0'" +
            at_3 + L"<info>12 bytes missing</info></event><event type='Error' weight='1' level='0'" + at_3 +
            L"<info>second</info></event></errors><warnings><event type='Warning' subject='disk' weight='1' level='0'" +
            at_3 + L"<info>nearly full</info></event></warnings>" + statistics);
    EXPECT_EQ(without_machine(report_text(session, false)), HEAD + L"{machine}" + statistics);
}

TEST_F(SessionReport, TheMachineIsWrittenWithIndentedElements)
{
    gatherer().gatherSystemInfo();
    const std::wstring text = report_text(gatherer());
    EXPECT_EQ(text.substr(0, HEAD.size() + 1), HEAD + L'\n');
    const std::size_t system = text.find(L"<SessionLogData>\n\n  <System>\n    <");
    EXPECT_EQ(system, HEAD.size() + 1);
    EXPECT_NE(text.find(L"\n    </Disks>\n  </System>\n\n</SessionLogData><context>"), std::wstring::npos);
}

TEST_F(SessionReport, MayBeWrittenAnyNumberOfTimesAndIsThenTheSame)
{
    gatherer().reportEvent(L"A", nullptr, Gatherer::STATE, 1, L"x");
    const std::wstring first = report_text(gatherer());
    report_text(gatherer(), false);
    EXPECT_EQ(report_text(gatherer()), first);
    EXPECT_NE(first.find(L"<info>x</info>"), std::wstring::npos);
}

// What it may hold ---------------------------------------------------------------------
TEST_F(SessionReport, SpecialCharactersAreEscapedInEveryText)
{
    Gatherer& session = gatherer();
    const wchar_t* const text = L"a&b<c>d\"e'f";
    const std::wstring escaped = L"a&amp;b&lt;c&gt;d&quot;e&apos;f";
    session.reportEvent(text, text, Gatherer::STATE, 1, L"%ls", text);
    session.reportEvent(text, text, Gatherer::COUNTED | Gatherer::CONFIGURATION, 1, L"%ls", text);
    session.reportError(text, L"%ls", text);
    session.reportWarning(text, L"%ls", text);
    const std::wstring names = L" type='" + escaped + L"' subject='" + escaped + L"'";
    const std::wstring rest = L" subject='" + escaped + L"' weight='1' level='0'" + FROM_8_TO_8 + L"<info>" + escaped;
    EXPECT_EQ(
        lists_text(session),
        L"<context><event type='" + escaped + L"'" + rest + L"</info></event></context><history><configuration type='" +
            escaped + L"'" + rest + L"</info></configuration></history><errors><event type='Error'" + rest +
            L"</info></event></errors><warnings><event type='Warning'" + rest + L"</info></event></warnings>");
    EXPECT_EQ(
        stats_text(session), L"<stats start='2024-01-31 08:00:00.000'><statentry" + names + L" count='1'><weight" +
                                 ONE + L"<totaltimeinmilliseconds" + ZERO + L"<unittimeinmilliseconds" + ZERO +
                                 L"</statentry></stats>");
}

TEST_F(SessionReport, WhatXmlForbidsIsReplacedInEveryText)
{
    Gatherer& session = gatherer();
    const wchar_t* const text = L"\x01\x1F|\xD83D|\xDE00|\xD83D\xDE00|\xFFFE\xFFFF|\t\r\n|\x7F\xFFFD";
    const std::wstring replaced = L"\xFFFD\xFFFD|\xFFFD|\xFFFD|\xD83D\xDE00|\xFFFD\xFFFD|\t\r\n|\x7F\xFFFD";
    session.reportEvent(text, text, Gatherer::COUNTED, 1, L"%ls", text);
    EXPECT_EQ(
        lists_text(session), L"<context></context><history><event type='" + replaced + L"' subject='" + replaced +
                                 L"' weight='1' level='0'" + FROM_8_TO_8 + L"<info>" + replaced +
                                 L"</info></event></history><errors></errors><warnings></warnings>");
    EXPECT_NE(
        stats_text(session).find(L"<statentry type='" + replaced + L"' subject='" + replaced + L"' count='1'>"),
        std::wstring::npos);
}

TEST_F(SessionReport, TextsLongerThanAnyBufferAreWhole)
{
    // Every length of one block more or less puts another part of the pair or of the escape at its end.
    std::wstring expected;
    for (std::size_t length = 4080; length < 4120; ++length)
    {
        const std::wstring text = std::wstring(length, L'a') + L"\xD83D\xDE00&";
        gatherer().reportEvent(text.c_str(), L"s", 0, 1, nullptr);
        expected += L"<event type='" + text + L"amp;' subject='s' weight='1' level='0'" + FROM_8_TO_8 +
                    L"<info></info></event>";
    }
    EXPECT_TRUE(
        lists_text(gatherer()) ==
        L"<context></context><history>" + expected + L"</history><errors></errors><warnings></warnings>");
}

TEST_F(SessionReport, AMillionCharactersOfInfoThatASpanHasGatheredAreWhole)
{
    // A span takes in the text of its beginning and of its end, so a file brings along what is longer.
    const std::wstring million(1'000'000, L'<');
    std::wstring escaped;
    for (std::size_t i = 0; i < million.size(); ++i)
        escaped += L"&lt;";
    ASSERT_TRUE(write_file(
        m_directory.file("long.xml"), utf16_bytes(
                                          L"<lumariscontext><history><event type='A'><info>" + escaped +
                                          L"</info></event></history></lumariscontext>")));
    Kor_SessionLogGatherer_Loader loader(&gatherer());
    gatherer().loadFromFile(path("long.xml").c_str(), loader);
    EXPECT_TRUE(
        lists_text(gatherer()) ==
        L"<context></context><history><event type='A' weight='1' level='0' begintime='1970-01-01 00:00:00.000' "
        L"endtime='1970-01-01 00:00:00.000'><info>" +
            escaped + L"</info></event></history><errors></errors><warnings></warnings>");

    gatherer().reportEvent(L"S", L"s", Gatherer::BEGIN_OF_SPAN, 1, L"%ls", std::wstring(2000, L'a').c_str());
    gatherer().reportEvent(L"S", L"s", Gatherer::END_OF_SPAN, 1, L"%ls", std::wstring(2000, L'b').c_str());
    EXPECT_NE(
        lists_text(gatherer()).find(L"<info>" + std::wstring(1023, L'a') + std::wstring(1023, L'b') + L"</info>"),
        std::wstring::npos);
}

TEST_F(SessionReport, AHistoryOfAHundredThousandEventsIsWhole)
{
    constexpr int COUNT = 100'000;
    gatherer().setHistorySize(COUNT);
    for (int i = 0; i <= COUNT; ++i) // one too many
        gatherer().reportEvent(L"A", nullptr, Gatherer::COUNTED, static_cast<unsigned>(i), nullptr);
    std::wstring expected = L"<context></context><history>";
    for (int i = 1; i <= COUNT; ++i)
        expected +=
            L"<event type='A' weight='" + std::to_wstring(i) + L"' level='0'" + FROM_8_TO_8 + L"<info></info></event>";
    EXPECT_TRUE(lists_text(gatherer()) == expected + L"</history><errors></errors><warnings></warnings>");
    EXPECT_NE(
        stats_text(gatherer())
            .find(L"<statentry type='A' count='100001'><weight min='0.000000' "
                  L"avg='50000.000000' max='100000.000000' />"),
        std::wstring::npos);
}

// Files and targets --------------------------------------------------------------------
TEST_F(SessionReport, AFileHasTheBytesThatATargetGets)
{
    gatherer().gatherSystemInfo();
    gatherer().reportEvent(L"A", nullptr, Gatherer::STATE | Gatherer::COUNTED, 1, L"x");
    for (const bool is_report : {true, false})
    {
        ByteTarget target;
        gatherer().generateReport(&target, is_report);
        gatherer().generateReport(path("report.xml").c_str(), is_report);
        EXPECT_TRUE(read_file(m_directory.file("report.xml")) == target.bytes);
        EXPECT_GT(target.bytes.size(), 1000u);
    }
}

TEST_F(SessionReport, AFileTakesThePlaceOfALongerOne)
{
    for (const bool is_report : {true, false})
    {
        ASSERT_TRUE(write_file(m_directory.file("report.xml"), std::string(100'000, 'x')));
        gatherer().generateReport(path("report.xml").c_str(), is_report);
        EXPECT_EQ(wide_text(read_file(m_directory.file("report.xml"))), report_text(gatherer(), is_report));
    }
    EXPECT_EQ(files_of(m_directory), Lines{"report.xml"});
}

TEST_F(SessionReport, TheGeneralLogTellsWhatWasWritten)
{
    gatherer().generateReport(path("report.xml").c_str(), true);
    gatherer().generateReport(path("state.xml").c_str(), false);
    EXPECT_EQ(
        library_lines(m_directory),
        (Lines{
            WROTE + "Crash report written to '" + m_directory.file("report.xml") + "'.",
            WROTE + "Crashlog gatherer state written to '" + m_directory.file("state.xml") + "'."}));
}

TEST_F(SessionReport, TheGeneralLogSaysNothingOfATargetThatTookItAll)
{
    report_text(gatherer());
    report_text(gatherer(), false);
    EXPECT_EQ(library_lines(m_directory), Lines());
}

TEST_F(SessionReport, TheGeneralLogTellsThePathInTheCodePageOfTheThread)
{
    // The host's disk need not know the letter, so another file takes its place.
    const std::wstring real = path("report.xml");
    Hook<CreateFileWImport>* own = nullptr;
    Hook<CreateFileWImport> opens(
        [&](const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD how, DWORD flags,
            HANDLE like)
        {
            const bool is_it = std::wstring_view(name) == L"C:\\\x0416\x20AC\x05D0.xml"; // known, known, unknown
            return own->original(is_it ? real.c_str() : name, access, share, security, how, flags, like);
        });
    own = &opens;
    ASSERT_TRUE(opens.installed());
    const LCID before = ::GetThreadLocale();
    ASSERT_TRUE(::SetThreadLocale(0x0419)); // Russian: code page 1251
    gatherer().generateReport(L"C:\\\x0416\x20AC\x05D0.xml", true);
    ::SetThreadLocale(before);
    EXPECT_EQ(library_lines(m_directory), Lines{WROTE + "Crash report written to 'C:\\\xC6\x88?.xml'."});
}

TEST_F(SessionReport, AFileThatCannotBeCreatedIsTold)
{
    gatherer().generateReport(path("no such directory\\report.xml").c_str(), true);
    gatherer().generateReport(path("no such directory\\state.xml").c_str(), false);
    EXPECT_EQ(library_lines(m_directory), (Lines{OTHER_EXCEPTION, OTHER_EXCEPTION}));
    EXPECT_EQ(files_of(m_directory), Lines());
}

TEST_F(SessionReport, NoPathAndNoTargetAreTold)
{
    const wchar_t* const no_path = nullptr;
    Kor_SessionLogFileOutput* const no_target = nullptr;
    gatherer().generateReport(no_path, true);
    gatherer().generateReport(no_path, false);
    gatherer().generateReport(no_target, true);
    EXPECT_EQ(library_lines(m_directory), (Lines{OTHER_EXCEPTION, OTHER_EXCEPTION, OTHER_EXCEPTION}));
}

/// What a function of the host's is given, and what it answers.
struct Pieces
{
    std::string bytes;
    int count = 0;
    int failing = 0; ///< the piece that is refused; 0: none
    bool throws = false;

    static bool take(void* context, const void* bytes, std::size_t size)
    {
        Pieces& self = *static_cast<Pieces*>(context);
        EXPECT_GT(size, 0u);
        if (++self.count == self.failing)
        {
            if (self.throws)
                throw 7;
            return false;
        }
        self.bytes.append(static_cast<const char*>(bytes), size);
        return true;
    }
};

TEST_F(SessionReport, GoesThroughAFunctionToWhoHasNoXmlLibrary)
{
    gatherer().gatherSystemInfo();
    gatherer().reportEvent(L"A", L"s", Gatherer::STATE, 1, L"x");
    for (const bool is_report : {true, false})
    {
        Pieces pieces;
        gatherer().generateReport(&Pieces::take, &pieces, is_report);
        EXPECT_EQ(wide_text(pieces.bytes), report_text(gatherer(), is_report));
    }
    EXPECT_EQ(library_lines(m_directory), Lines());
}

TEST_F(SessionReport, AFunctionThatRefusesOrThrowsIsToldIsNotCalledAgainAndTheNextReportIsWhole)
{
    gatherer().gatherSystemInfo();
    Pieces all;
    gatherer().generateReport(&Pieces::take, &all, true);
    Lines told;
    for (const bool throws : {false, true})
        for (const int failing : {1, all.count})
        {
            Pieces pieces;
            pieces.failing = failing;
            pieces.throws = throws;
            gatherer().generateReport(&Pieces::take, &pieces, true);
            EXPECT_EQ(pieces.count, failing);
            EXPECT_EQ(pieces.bytes, all.bytes.substr(0, pieces.bytes.size()));
            told.push_back(OTHER_EXCEPTION);
        }
    EXPECT_EQ(library_lines(m_directory), told);
    EXPECT_EQ(wide_text(all.bytes), report_text(gatherer()));
}

TEST_F(SessionReport, NoFunctionIsTold)
{
    gatherer().generateReport(nullptr, nullptr, true);
    EXPECT_EQ(library_lines(m_directory), Lines{OTHER_EXCEPTION});
}

TEST_F(SessionReportTarget, MayBeOneOfTheXmlLibrary)
{
    xercesc::MemBufFormatTarget target;
    gatherer().generateReport(&target, true);
    const std::string bytes(reinterpret_cast<const char*>(target.getRawBuffer()), target.getLen());
    EXPECT_EQ(wide_text(bytes), report_text(gatherer()));
}

TEST_F(SessionReportTarget, WhatItThrowsIsToldAndTheNextReportIsWhole)
{
    gatherer().reportEvent(L"A", nullptr, Gatherer::STATE, 1, L"x");
    const std::wstring whole = report_text(gatherer());
    struct Row
    {
        std::function<void()> fail;
        std::string line;
    };
    const Row rows[] = {
        {[] { throw xercesc::DOMException(xercesc::DOMException::NOT_FOUND_ERR); },
         FAILED + "DOM Exception 8 in Kor_SessionLogGatherer::generateReport()"},
        {[]
         {
             using namespace xercesc;
             ThrowXML(XMLPlatformUtilsException, XMLExcepts::File_CouldNotWriteToFile);
         },
         FAILED + "DOM Exception 35 in Kor_SessionLogGatherer::generateReport()"},
        {[] { throw std::bad_alloc(); }, OTHER_EXCEPTION},
        {[] { throw 7; }, OTHER_EXCEPTION},
    };
    std::size_t lines = 0;
    for (const Row& row : rows)
    {
        ByteTarget first(row.fail);
        gatherer().generateReport(&first, true);
        EXPECT_EQ(first.bytes, "");
        int pieces = 0;
        ByteTarget counting([&] { ++pieces; });
        gatherer().generateReport(&counting, true);
        int left = pieces;
        ByteTarget last(
            [&]
            {
                if (--left == 0)
                    row.fail();
            });
        gatherer().generateReport(&last, true);
        EXPECT_EQ(left, 0);
        EXPECT_EQ(wide_text(last.bytes), whole.substr(0, last.bytes.size() / 2));
        EXPECT_EQ(report_text(gatherer()), whole);
        const Lines told = library_lines(m_directory);
        ASSERT_EQ(told.size(), lines + 2);
        EXPECT_EQ(told[lines], row.line);
        EXPECT_EQ(told[lines + 1], row.line);
        lines += 2;
    }
}

TEST_F(SessionReportTarget, WhatItThrowsInTheMiddleIsTold)
{
    for (int i = 0; i < 2000; ++i)
        gatherer().reportError(nullptr, L"error %d", i);
    int pieces = 0;
    ByteTarget counting([&] { ++pieces; });
    gatherer().generateReport(&counting, true);
    ASSERT_GT(pieces, 4);
    std::vector<std::string> told;
    for (int failing = 2; failing < pieces; failing += 2)
    {
        int piece = 0;
        ByteTarget target(
            [&]
            {
                using namespace xercesc;
                if (++piece >= failing)
                    ThrowXML(XMLPlatformUtilsException, XMLExcepts::File_CouldNotWriteToFile);
            });
        gatherer().generateReport(&target, true);
        told.push_back(FAILED + "DOM Exception 35 in Kor_SessionLogGatherer::generateReport()");
    }
    EXPECT_EQ(library_lines(m_directory), told);
}

// Inside of it -------------------------------------------------------------------------
TEST_F(SessionReport, HoldsUpNoOtherThreadWhileItIsWrittenAndTellsNothingOfWhatComesMeanwhile)
{
    gatherer().gatherSystemInfo();
    gatherer().setHistorySize(100);
    for (int i = 0; i < 80; ++i)
        gatherer().reportEvent(L"A", nullptr, Gatherer::COUNTED, 1, nullptr);
    gatherer().reportEvent(L"A", nullptr, Gatherer::STATE | Gatherer::COUNTED, 1, nullptr);
    const std::wstring before = report_text(gatherer());
    const SlowClock clock;
    ASSERT_TRUE(clock.installed());
    bool was_called = false;
    ByteTarget target(
        [&]
        {
            if (std::exchange(was_called, true))
                return;
            on_another_thread(
                [&]
                {
                    for (int i = 0; i < 200; ++i) // so that the history has none that is told of
                        gatherer().reportEvent(L"A", nullptr, Gatherer::COUNTED, 2, nullptr);
                    gatherer().reportEvent(L"A", nullptr, Gatherer::STATE, 2, nullptr);
                    gatherer().removeFromContext(L"A", nullptr, true);
                    gatherer().reportError(nullptr, L"error");
                    gatherer().reportException(nullptr, nullptr);
                });
        });
    gatherer().generateReport(&target, true);
    EXPECT_TRUE(was_called);
    EXPECT_EQ(clock.sleeps(), 0); // nobody has waited for the gatherer
    EXPECT_EQ(wide_text(target.bytes), before);
    EXPECT_NE(report_text(gatherer()).find(L"weight='2'"), std::wstring::npos);
}

TEST_F(SessionReport, IsTheSameWhereThereIsNoMemoryToTakeTheContentOutFirst)
{
    gatherer().gatherSystemInfo();
    gatherer().reportEvent(L"A", nullptr, Gatherer::STATE | Gatherer::COUNTED, 1, L"x");
    gatherer().reportEvent(L"B", nullptr, Gatherer::COUNTED, 1, L"x");
    gatherer().reportError(nullptr, L"x");
    for (const bool is_report : {true, false})
    {
        const std::wstring whole = report_text(gatherer(), is_report);
        const Hook<mallocImport> little(
            [](std::size_t size) -> void* { return size > 60'000 ? nullptr : std::malloc(size); });
        ASSERT_TRUE(little.installed());
        EXPECT_EQ(report_text(gatherer(), is_report), whole);
    }
}

TEST_F(SessionReport, TwoOfTheSameFileAreWrittenOneAfterTheOther)
{
    for (int i = 0; i < 2000; ++i)
        gatherer().reportError(nullptr, L"error %d", i);
    run_on_threads(
        3,
        [this](int)
        {
            for (int i = 0; i < 5; ++i)
                gatherer().generateReport(path("report.xml").c_str(), true);
        });
    EXPECT_EQ(
        library_lines(m_directory),
        Lines(15, WROTE + "Crash report written to '" + m_directory.file("report.xml") + "'."));
}

TEST_F(SessionReport, OneThatBeginsInsideOfAnotherIsWholeAndSoIsTheOther)
{
    gatherer().gatherSystemInfo();
    gatherer().reportEvent(L"A", nullptr, Gatherer::STATE, 1, L"x");
    for (int i = 0; i < 2000; ++i)
        gatherer().reportError(nullptr, L"%d", i);
    const std::wstring whole = report_text(gatherer());
    std::wstring first; // at the first piece of the outer one
    std::wstring later;
    ByteTarget target(
        [&]
        {
            if (first.empty()) // as a target does that reports, or a crash handler whose thread was writing
                first = report_text(gatherer());
            else if (later.empty())
                later = report_text(gatherer());
        });
    gatherer().generateReport(&target, true);
    EXPECT_EQ(first, whole);
    EXPECT_EQ(later, whole);
    EXPECT_EQ(wide_text(target.bytes), whole);
    EXPECT_EQ(library_lines(m_directory), Lines());
    EXPECT_EQ(report_text(gatherer()), whole);
}

TEST_F(SessionReport, KeepsTheErrorsOfTheThread)
{
    for (const char* const name : {"report.xml", "no such directory\\report.xml"})
    {
        for (const bool is_report : {true, false})
        {
            ::SetLastError(4711);
            errno = 33;
            gatherer().generateReport(path(name).c_str(), is_report);
            EXPECT_EQ(::GetLastError(), 4711u);
            EXPECT_EQ(errno, 33);
        }
    }
}

// Times --------------------------------------------------------------------------------
TEST_F(SessionReportTarget, ATimeIsPrintedAsTheClockOnTheWallShowsIt)
{
    struct Row
    {
        unsigned long long time;
        int ahead;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {1706745599007, 0, L"2024-01-31 23:59:59.007"},
        {1706745599007, 60, L"2024-02-01 00:59:59.007"},
        {1706745599007, 330, L"2024-02-01 05:29:59.007"},
        {1706745599007, -210, L"2024-01-31 20:29:59.007"},
        {1709164799999, 0, L"2024-02-28 23:59:59.999"},
        {1709164799999, 1, L"2024-02-29 00:00:59.999"},
        {0, 0, L"1970-01-01 00:00:00.000"},
        {0, -480, L"1969-12-31 16:00:00.000"},
        {999, 0, L"1970-01-01 00:00:00.999"},
        {253402300799999, 0, L"9999-12-31 23:59:59.999"},
        {253402300799999, 60, L"9999-12-31 23:59:59.999"},
        {253402300800000, 0, L"9999-12-31 23:59:59.999"},
        {18446744073709551615ull, 0, L"9999-12-31 23:59:59.999"},
    };
    for (const Row& row : rows)
    {
        m_clock.ahead = row.ahead;
        ByteTarget target;
        xercesc::XMLFormatter formatter("utf-16", &target);
        gatherer().printTime(&formatter, row.time);
        EXPECT_EQ(wide_text(target.bytes), row.expected) << row.time;
    }
    gatherer().printTime(nullptr, 0);
}

TEST_F(SessionReportTarget, ATimeIsPrintedInTheEncodingOfTheFormatter)
{
    ByteTarget target;
    xercesc::XMLFormatter formatter("utf-8", &target, xercesc::XMLFormatter::StdEscapes);
    gatherer().printTime(&formatter, 1706745599007);
    gatherer().printTime(&formatter, 0);
    EXPECT_EQ(target.bytes, "2024-01-31 23:59:59.0071970-01-01 00:00:00.000");
}

TEST_F(SessionReport, TheZoneIsAskedOnceForTimesOfTheSameMinute)
{
    for (int i = 0; i < 100; ++i)
        gatherer().reportEvent(L"A", nullptr, 0, 1, nullptr);
    const int before = m_clock.conversions();
    report_text(gatherer());
    EXPECT_EQ(m_clock.conversions() - before, 1);
}

TEST_F(SessionReport, WhereTheZoneIsUnknownTimesAreThoseOfUtc)
{
    const Hook<SystemTimeToTzSpecificLocalTimeImport> unknown(
        [](const TIME_ZONE_INFORMATION*, const SYSTEMTIME*, SYSTEMTIME*) -> BOOL { return FALSE; });
    ASSERT_TRUE(unknown.installed());
    m_clock.ahead = 60;
    EXPECT_EQ(stats_text(gatherer()), L"<stats start='2024-01-31 08:00:00.000'></stats>");
    EXPECT_EQ(unknown.calls(), 1);
}

// XMLEncode ----------------------------------------------------------------------------
TEST_F(SessionReport, EncodedTextHasTheFiveEscapes)
{
    EXPECT_STREQ(gatherer().XMLEncode(L"a&b<c>d\"e'f"), L"a&amp;b&lt;c&gt;d&quot;e&apos;f");
    EXPECT_STREQ(gatherer().XMLEncode(L"&<>\"'"), L"&amp;&lt;&gt;&quot;&apos;");
    EXPECT_STREQ(gatherer().XMLEncode(L"plain \xE4\x20AC\xD83D\xDE00"), L"plain \xE4\x20AC\xD83D\xDE00");
    EXPECT_STREQ(gatherer().XMLEncode(L"&amp;"), L"&amp;amp;");
    EXPECT_STREQ(gatherer().XMLEncode(L""), L"");
    EXPECT_STREQ(gatherer().XMLEncode(nullptr), L"");
}

TEST_F(SessionReport, EncodedTextStaysUntilTheNextCallWhichTakesItsPlace)
{
    const wchar_t* const first = gatherer().XMLEncode(L"a long first text <");
    EXPECT_STREQ(first, L"a long first text &lt;");
    report_text(gatherer());
    EXPECT_STREQ(first, L"a long first text &lt;");
    const wchar_t* const second = gatherer().XMLEncode(L"b");
    EXPECT_EQ(second, first);
    EXPECT_STREQ(second, L"b");
}

TEST_F(SessionReport, EncodedTextMayBeOfAnyLength)
{
    std::wstring expected;
    for (int i = 0; i < 1'000'000; ++i)
        expected += L"&amp;";
    EXPECT_TRUE(gatherer().XMLEncode(std::wstring(1'000'000, L'&').c_str()) == expected);
    for (std::size_t length = 505; length < 520; ++length) // about what the buffer has room for at first
        EXPECT_EQ(gatherer().XMLEncode(std::wstring(length, L'a').c_str()), std::wstring(length, L'a'));
}

// Switched off -------------------------------------------------------------------------
TEST(SessionReportOff, WritesNothing)
{
    const LogDirectory directory(LIBRARY_TO_FILE);
    KorGLog.Open("test.log", "viewer", false);
    KorGLog.ReadFile();
    xercesc::XMLPlatformUtils::Initialize();
    {
        Gatherer& session = *Gatherer::GetInstance();
        session.reportEvent(L"A", nullptr, Gatherer::COUNTED, 1, nullptr);
        session.generateReport(wide(directory.file("report.xml")).c_str(), true);
        session.generateReport(wide(directory.file("state.xml")).c_str(), false);
        EXPECT_EQ(report_text(session), L"");
        EXPECT_EQ(session.XMLEncode(L"a"), nullptr);
        ByteTarget target;
        xercesc::XMLFormatter formatter("utf-16", &target);
        session.printTime(&formatter, 0);
        EXPECT_EQ(target.bytes, "");
    }
    xercesc::XMLPlatformUtils::Terminate();
    EXPECT_EQ(files_of(directory), Lines());
    EXPECT_EQ(library_lines(directory), Lines());
}
} // namespace
