// What is read of state files and reports: by the handlers directly, and out of files.

#include "Kor_SessionLogGatherer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <xercesc/sax/SAXException.hpp>
#include <xercesc/sax2/Attributes.hpp>

#include "Kor_LogFile.h"
#include "session_report.h"

namespace
{
using Gatherer = Kor_SessionLogGatherer;
using Lines = std::vector<std::string>;
using testing::HasSubstr;

constexpr std::uint64_t NO_TIME = 18446744073709551615ull;

const std::string LOADER =
    "(106) viewer (<pid>,<tid>)  Kor_SessionLogGatherer(n) Kor_SessionLogGatherer::loadFromFile -> ";
const std::string ENDED =
    "<time> DEBUG   " + LOADER + "Exception while parsing in Kor_SessionLogGatherer::loadFromFile()";
const std::string PARSE_ERROR = "<time> DEBUG   " + LOADER + "XML parse error loading SessionLogGatherer state. ";

const std::wstring EMPTY_LISTS = L"<context></context><history></history><errors></errors><warnings></warnings>";
const std::wstring EMPTY_STATS = L"<stats start='2024-01-31 08:00:00.000'></stats>";
const std::wstring ZERO = L" min='0.000000' avg='0.000000' max='0.000000' />";
const std::wstring NO_TIMES = L" begintime='1970-01-01 00:00:00.000' endtime='1970-01-01 00:00:00.000'>";

std::wstring wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

/// Attributes by their names.
class TestAttributes final : public xercesc::Attributes
{
public:
    TestAttributes(std::initializer_list<std::pair<const wchar_t*, const wchar_t*>> list)
        : m_list(list.begin(), list.end())
    {
    }

    XMLSize_t getLength() const override { return m_list.size(); }
    const XMLCh* getURI(const XMLSize_t index) const override { return index < m_list.size() ? L"" : nullptr; }
    const XMLCh* getLocalName(const XMLSize_t index) const override { return getQName(index); }
    const XMLCh* getQName(const XMLSize_t index) const override
    {
        return index < m_list.size() ? m_list[index].first.c_str() : nullptr;
    }
    const XMLCh* getType(const XMLSize_t index) const override { return index < m_list.size() ? L"CDATA" : nullptr; }
    const XMLCh* getValue(const XMLSize_t index) const override
    {
        return index < m_list.size() ? m_list[index].second.c_str() : nullptr;
    }
    bool getIndex(const XMLCh*, const XMLCh* name, XMLSize_t& index) const override { return getIndex(name, index); }
    int getIndex(const XMLCh*, const XMLCh* name) const override { return getIndex(name); }
    bool getIndex(const XMLCh* const name, XMLSize_t& index) const override
    {
        const int found = getIndex(name);
        index = static_cast<XMLSize_t>(found);
        return found >= 0;
    }
    int getIndex(const XMLCh* const name) const override
    {
        for (std::size_t i = 0; i < m_list.size(); ++i)
            if (m_list[i].first == name)
                return static_cast<int>(i);
        return -1;
    }
    const XMLCh* getType(const XMLCh*, const XMLCh* name) const override { return getType(name); }
    const XMLCh* getType(const XMLCh* const name) const override { return getIndex(name) < 0 ? nullptr : L"CDATA"; }
    const XMLCh* getValue(const XMLCh*, const XMLCh* name) const override { return getValue(name); }
    const XMLCh* getValue(const XMLCh* const name) const override
    {
        const int found = getIndex(name);
        return found < 0 ? nullptr : m_list[static_cast<std::size_t>(found)].second.c_str();
    }

private:
    std::vector<std::pair<std::wstring, std::wstring>> m_list;
};

/// The message of the exception that ends work(), "no exception" where there is none.
std::wstring refusal_of(const std::function<void()>& work)
{
    try
    {
        work();
    }
    catch (const xercesc::SAXException& error)
    {
        return error.getMessage();
    }
    return L"no exception";
}

/// Tells a handler of a document, step by step: "<name" begins an element of the type "T", "<!name" one without
/// attributes, ">name" ends one, anything else is text.
template <class Handler>
void tell(Handler& handler, const std::vector<std::wstring>& steps)
{
    for (const std::wstring& step : steps)
    {
        if (step.rfind(L"<!", 0) == 0)
            handler.startElement(L"", step.c_str() + 2, step.c_str() + 2, TestAttributes({}));
        else if (step[0] == L'<')
            handler.startElement(L"", step.c_str() + 1, step.c_str() + 1, TestAttributes({{L"type", L"T"}}));
        else if (step[0] == L'>')
            handler.endElement(L"", step.c_str() + 1, step.c_str() + 1);
        else
            handler.characters(step.c_str(), step.size());
    }
}

/// The handlers need an XML library that is in use: the gatherer's.
class SessionLoaderHandler : public ::testing::Test
{
protected:
    SessionLoaderHandler()
    {
        Gatherer::Activate(true);
        Gatherer::GetInstance();
    }
};

// The handlers -------------------------------------------------------------------------
TEST_F(SessionLoaderHandler, EndsTheLoadWhereTheDocumentIsNotAsItShouldBe)
{
    struct Row
    {
        std::vector<std::wstring> steps;
        const wchar_t* message;
    };
    const Row rows[] = {
        {{L"<lumariscontext", L"<lumariscontext"}, L"Unexpected 'context' tag"},
        {{L"<lumariscontext", L"<stats", L"<lumariscontext"}, L"Unexpected 'context' tag"},
        {{L"<lumariscontext", L"<context", L"<lumariscontext"}, L"Unexpected 'context' tag"},
        {{L"<lumariscontext", L"<history", L"<lumariscontext"}, L"Unexpected 'context' tag"},
        {{L"<lumariscontext", L"<errors", L"<lumariscontext"}, L"Unexpected 'context' tag"},
        {{L"<lumariscontext", L">lumariscontext", L"<lumariscontext"}, L"Unexpected 'context' tag"},
        {{L"<lumariscontext", L">context"}, L"Unexpected end tag"},
        {{L"<lumariscontext", L">history"}, L"Unexpected end tag"},
        {{L"<lumariscontext", L">stats"}, L"Unexpected end tag"},
        {{L">context"}, L"Unexpected end tag"},
        {{L"<lumariscontext", L"<context", L">history"}, L"Unexpected end tag"},
        {{L"<lumariscontext", L"<history", L">stats"}, L"Unexpected end tag"},
        {{L"<lumariscontext", L"<stats", L">context"}, L"Unexpected end tag"},
        {{L"<lumariscontext", L"<stats", L">event"}, L"Unexpected end tag"},
        {{L"<lumariscontext", L"<stats", L"<statentry", L">event"}, L"Unexpected end tag"},
        {{L"text"}, L"unexpected character data."},
        {{L"<lumariscontext", L" \t\r\nx"}, L"unexpected character data."},
        {{L"<lumariscontext", L"<stats", L"1"}, L"unexpected character data."},
        {{L"<lumariscontext", L"<context", L"\xA0"}, L"unexpected character data."},
        {{L"<lumariscontext", L"<history", L"<event", L">event", L"x"}, L"unexpected character data."},
        {{L"<lumariscontext", L"<stats", L"<!statentry"}, L"No type attribute found for event."},
        {{L"<lumariscontext", L"<context", L"<!event"}, L"No type attribute found for event."},
        {{L"<lumariscontext", L"<stats", L"<statentry", L"<info"}, L"Unexpected tag inside <statentry>."},
        {{L"<lumariscontext", L"<stats", L"<statentry", L"<statentry"}, L"Unexpected tag inside <statentry>."},
        {{L"<lumariscontext", L"<history", L"<event", L"<event"}, L"only <info> tag is allowed inside event."},
        {{L"<lumariscontext", L"<context", L"<event", L"<lumariscontext"}, L"only <info> tag is allowed inside event."},
        {{L"<lumariscontext", L"<context", L"<event", L"<info", L">info", L"<info"},
         L"only one <info> tag is allowed inside event."},
        {{L"<lumariscontext", L"<context", L"<event", L"<info", L"<info"},
         L"only one <info> tag is allowed inside event."},
        {{L"<lumariscontext", L"<context", L"<event", L"<info", L"x", L">info", L" y"},
         L"unexpected character data inside <event>."},
        {{L"<lumariscontext", L"<context", L"<event", L"<info", L">event"}, L"unexpected </info> tag."},
    };
    for (const Row& row : rows)
    {
        Kor_SessionLogGatherer_Loader loader;
        EXPECT_EQ(refusal_of([&] { tell(loader, row.steps); }), row.message) << (&row - rows);
        Kor_SessionLogGatherer_Loader earlier; // all but the last step is as it should be
        const std::vector<std::wstring> steps(row.steps.begin(), row.steps.end() - 1);
        EXPECT_EQ(refusal_of([&] { tell(earlier, steps); }), L"no exception") << (&row - rows);
    }
}

TEST_F(SessionLoaderHandler, PassesOverWhatItDoesNotKnowWithAllThatIsInIt)
{
    const std::vector<std::wstring> documents[] = {
        {L"<lumariscontext", L"\n \t\r", L"<stats", L"\n", L"<statentry", L" ", L"<weight", L">weight", L">statentry",
         L">stats", L">lumariscontext"},
        {L"<lumariscontext", L"<errors", L"<event", L"<info", L"text", L">info", L">event", L">errors", L"<warnings",
         L">warnings", L">lumariscontext"},
        {L"<lumariscontext", L"<SessionLogData", L"<System", L"<stats", L"text", L">stats", L"<context", L">history",
         L">System", L">SessionLogData"},
        {L"<lumariscontext", L"<statentry", L">statentry", L"<event", L"text", L">event", L">lumariscontext"},
        {L"<lumariscontext", L"<context", L"<configuration", L"<info", L"text", L">info", L">configuration",
         L"<statentry", L">statentry", L">context", L">lumariscontext"},
        {L"<lumariscontext", L"<stats", L"<event", L"<other", L">other", L">event", L">stats"},
        {L"<other", L"<lumariscontext", L"<stats", L"text", L">stats", L">lumariscontext", L">other"},
    };
    for (const auto& steps : documents)
    {
        Kor_SessionLogGatherer_Loader loader;
        EXPECT_EQ(refusal_of([&] { tell(loader, steps); }), L"no exception") << (&steps - documents);
    }
}

TEST_F(SessionLoaderHandler, BearsElementsThatAre256DeepAndNoDeeper)
{
    for (const bool inside : {false, true})
    {
        Kor_SessionLogGatherer_Loader loader;
        int depth = 0;
        if (inside)
        {
            tell(loader, {L"<lumariscontext", L"<errors"});
            depth = 2;
        }
        for (; depth < 256; ++depth)
            tell(loader, {L"<a"});
        EXPECT_EQ(refusal_of([&] { tell(loader, {L"<a"}); }), L"Elements are nested too deeply.");
    }
    Kor_SessionLogGatherer_Loader loader;
    for (int i = 0; i < 1000; ++i) // one beside the other
        tell(loader, {L"<a", L"<b", L">b", L">a"});
}

TEST_F(SessionLoaderHandler, DeclaredEntitiesEndTheLoadAndNoOtherFileIsRead)
{
    Kor_SessionLogGatherer_Loader loader;
    EXPECT_EQ(refusal_of([&] { loader.internalEntityDecl(L"a", L"b"); }), L"Entities are not allowed.");
    EXPECT_EQ(refusal_of([&] { loader.externalEntityDecl(L"a", nullptr, L"b"); }), L"Entities are not allowed.");
}

TEST_F(SessionLoaderHandler, OfAnEventHasItsAttributesAndItsInfo)
{
    Kor_SessionLogGatherer_Event_Loader loader;
    loader.start(TestAttributes(
        {{L"type", L"Login"},
         {L"subject", L"user1"},
         {L"weight", L"12"},
         {L"level", L"5"},
         {L"begintime", L"2024-01-31 08:00:00.000"},
         {L"endtime", L"2024-01-31 08:00:05.250"}}));
    tell(loader, {L" \r\n\t", L"<info", L"a ", L"& b", L">info", L" \r\n\t"});
    EXPECT_EQ(loader.event().type, L"Login");
    EXPECT_EQ(loader.event().subject, L"user1");
    EXPECT_EQ(loader.event().flags, 0u);
    EXPECT_EQ(loader.event().weight, 12u);
    EXPECT_EQ(loader.event().begin_time, 1706688000000u);
    EXPECT_EQ(loader.event().end_time, 1706688005250u);
    EXPECT_EQ(loader.event().info, L"a & b");
}

TEST_F(SessionLoaderHandler, OfAnEventWithATypeAloneHasTheDefaultsWhateverCameBefore)
{
    Kor_SessionLogGatherer_Event_Loader loader;
    for (int i = 0; i < 2; ++i)
    {
        loader.start(TestAttributes({{L"type", L"A"}}));
        EXPECT_EQ(loader.event().type, L"A");
        EXPECT_EQ(loader.event().subject, L"");
        EXPECT_EQ(loader.event().flags, 0u);
        EXPECT_EQ(loader.event().weight, 1u);
        EXPECT_EQ(loader.event().begin_time, 0u);
        EXPECT_EQ(loader.event().end_time, 0u);
        EXPECT_EQ(loader.event().info, L"");
        loader.start(TestAttributes(
            {{L"type", L"B"}, {L"subject", L"b"}, {L"weight", L"7"}, {L"begintime", L"2024-01-31 08:00:00.000"}}));
        tell(loader, {L"<info", L"text"}); // left open
        EXPECT_EQ(loader.event().info, L"text");
    }
}

TEST_F(SessionLoaderHandler, OfAnEventRefusesWhatDoesNotBelongThere)
{
    struct Row
    {
        std::vector<std::wstring> steps;
        const wchar_t* message;
    };
    const Row rows[] = {
        {{L"<weight"}, L"only <info> tag is allowed inside event."},
        {{L"<Info"}, L"only <info> tag is allowed inside event."},
        {{L"<info", L">info", L"<info"}, L"only one <info> tag is allowed inside event."},
        {{L"<info", L"<other"}, L"only <info> tag is allowed inside event."},
        {{L"x"}, L"unexpected character data inside <event>."},
        {{L"\v"}, L"unexpected character data inside <event>."},
        {{L"<info", L">info", L"x"}, L"unexpected character data inside <event>."},
        {{L">info"}, L"unexpected </info> tag."},
        {{L">other"}, L"unexpected </info> tag."},
        {{L"<info", L">other"}, L"unexpected </info> tag."},
        {{L"<info", L">info", L">info"}, L"unexpected </info> tag."},
    };
    for (const Row& row : rows)
    {
        Kor_SessionLogGatherer_Event_Loader loader;
        loader.start(TestAttributes({{L"type", L"A"}}));
        EXPECT_EQ(refusal_of([&] { tell(loader, row.steps); }), row.message) << (&row - rows);
    }
    Kor_SessionLogGatherer_Event_Loader loader;
    EXPECT_EQ(
        refusal_of(
            [&] {
                loader.start(TestAttributes({{L"subject", L"A"}}));
            }),
        L"No type attribute found for event.");
}

TEST_F(SessionLoaderHandler, OfTimesThatAreNoneCountsThemAsNotGiven)
{
    for (const wchar_t* const time :
         {L"", L"now", L"2024-01-31 08:00:00.00", L"2024-01-31 08:00:00.0000", L"2024-01-31T08:00:00.000",
          L"1969-12-31 23:59:59.999"})
    {
        Kor_SessionLogGatherer_Event_Loader loader;
        loader.start(TestAttributes({{L"type", L"A"}, {L"begintime", time}, {L"endtime", time}}));
        EXPECT_EQ(loader.event().begin_time, 0u);
        EXPECT_EQ(loader.event().end_time, 0u);
    }
}

TEST_F(SessionLoaderHandler, OfStatisticsHasItsCountAndThreeTriples)
{
    Kor_SessionLogGatherer_Stat_Loader loader;
    loader.start(TestAttributes({{L"type", L"Load"}, {L"subject", L"album"}, {L"count", L"4294967299"}}));
    const auto child = [&](const wchar_t* name, const TestAttributes& attributes)
    {
        loader.startElement(L"", name, name, attributes);
        loader.endElement(L"", name, name);
    };
    child(L"weight", {{L"min", L"1.000000"}, {L"avg", L"2.5"}, {L"max", L"4"}});
    child(L"totaltimeinmilliseconds", {{L"max", L"1e3"}});
    child(L"unittimeinmilliseconds", {{L"avg", L"-0.125000"}, {L"min", L"x"}, {L"max", L""}});
    loader.characters(L"text", 4); // nobody minds
    EXPECT_EQ(loader.statistics().type, L"Load");
    EXPECT_EQ(loader.statistics().subject, L"album");
    EXPECT_EQ(loader.statistics().count, 4294967299u);
    EXPECT_EQ(loader.statistics().weight.min, 1.0);
    EXPECT_EQ(loader.statistics().weight.avg, 2.5);
    EXPECT_EQ(loader.statistics().weight.max, 4.0);
    EXPECT_EQ(loader.statistics().total_time.min, 0.0);
    EXPECT_EQ(loader.statistics().total_time.avg, 0.0);
    EXPECT_EQ(loader.statistics().total_time.max, 1000.0);
    EXPECT_EQ(loader.statistics().unit_time.min, 0.0);
    EXPECT_EQ(loader.statistics().unit_time.avg, -0.125);
    EXPECT_EQ(loader.statistics().unit_time.max, 0.0);

    loader.start(TestAttributes({{L"type", L"B"}}));
    EXPECT_EQ(loader.statistics().type, L"B");
    EXPECT_EQ(loader.statistics().subject, L"");
    EXPECT_EQ(loader.statistics().count, 1u);
    EXPECT_EQ(loader.statistics().weight.max, 0.0);
    EXPECT_EQ(loader.statistics().total_time.max, 0.0);
    EXPECT_EQ(loader.statistics().unit_time.avg, 0.0);
}

TEST_F(SessionLoaderHandler, OfStatisticsRefusesOtherElementsAndAMissingType)
{
    for (const wchar_t* const name : {L"<info", L"<Weight", L"<totaltime", L"<"})
    {
        Kor_SessionLogGatherer_Stat_Loader loader;
        loader.start(TestAttributes({{L"type", L"A"}}));
        EXPECT_EQ(refusal_of([&] { tell(loader, {name}); }), L"Unexpected tag inside <statentry>.");
    }
    Kor_SessionLogGatherer_Stat_Loader loader;
    EXPECT_EQ(
        refusal_of(
            [&] {
                loader.start(TestAttributes({{L"count", L"1"}}));
            }),
        L"No type attribute found for event.");
}

// Files --------------------------------------------------------------------------------
/// A gatherer that reads documents, in a process of its own.
class SessionLoader : public ::testing::Test
{
protected:
    SessionLoader()
    {
        KorGLog.Open("test.log", "viewer", false);
        KorGLog.ReadFile();
        Gatherer::Activate(true);
        EXPECT_TRUE(m_clock.installed());
        gatherer();
    }

    static Gatherer& gatherer() { return *Gatherer::GetInstance(); }

    void load(const std::string& document) const
    {
        ASSERT_TRUE(write_file(m_directory.file("state.xml"), document));
        Kor_SessionLogGatherer_Loader loader(&gatherer());
        gatherer().loadFromFile(wide(m_directory.file("state.xml")).c_str(), loader);
    }

    Lines lines() const { return library_lines(m_directory); }

    const LogDirectory m_directory{LIBRARY_TO_FILE};
    FixedSessionClock m_clock;
};

std::wstring event_text(const std::wstring& type, const std::wstring& weight, const std::wstring& info = L"")
{
    return L"<event type='" + type + L"' weight='" + weight + L"' level='0'" + NO_TIMES + L"<info>" + info +
           L"</info></event>";
}

TEST_F(SessionLoader, AMissingFileIsToldAndLeavesTheGathererEmpty)
{
    Kor_SessionLogGatherer_Loader loader(&gatherer());
    gatherer().loadFromFile(wide(m_directory.file("none.xml")).c_str(), loader);
    EXPECT_EQ(
        lines(), Lines{
                     "<time> DEBUG   " + LOADER + "File " + m_directory.file("none.xml") +
                     " does't exist or cannot be accessed."});
    EXPECT_EQ(lists_text(gatherer()), EMPTY_LISTS);
    EXPECT_EQ(stats_text(gatherer()), EMPTY_STATS);
}

TEST_F(SessionLoader, IsMadeForWhoHasNoXmlLibrary)
{
    ASSERT_TRUE(write_file(
        m_directory.file("state.xml"), "<lumariscontext><stats><statentry type='A'/></stats></lumariscontext>"));
    gatherer().loadFromFile(wide(m_directory.file("state.xml")).c_str());
    EXPECT_NE(stats_text(gatherer()).find(L"<statentry type='A'"), std::wstring::npos);
    gatherer().loadFromFile(nullptr);
    EXPECT_EQ(lines(), Lines());
    gatherer().loadFromFile(wide(m_directory.file("none.xml")).c_str());
    EXPECT_EQ(lines().size(), 1u);
}

TEST_F(SessionLoader, AFileThatNobodyElseMayReadIsToldAsMissing)
{
    ASSERT_TRUE(write_file(m_directory.file("state.xml"), "<lumariscontext/>"));
    const HANDLE holder =
        ::CreateFileA(m_directory.file("state.xml").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    Kor_SessionLogGatherer_Loader loader(&gatherer());
    gatherer().loadFromFile(wide(m_directory.file("state.xml")).c_str(), loader);
    ::CloseHandle(holder);
    EXPECT_EQ(
        lines(), Lines{
                     "<time> DEBUG   " + LOADER + "File " + m_directory.file("state.xml") +
                     " does't exist or cannot be accessed."});
}

TEST_F(SessionLoader, AFileThatAnotherProcessIsAboutToNameIsRead)
{
    ASSERT_TRUE(write_file(
        m_directory.file("state.xml"), "<lumariscontext><stats><statentry type='A'/></stats></lumariscontext>"));
    const HANDLE writer = ::CreateFileA(
        m_directory.file("state.xml").c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
        nullptr);
    ASSERT_NE(writer, INVALID_HANDLE_VALUE);
    Kor_SessionLogGatherer_Loader loader(&gatherer());
    gatherer().loadFromFile(wide(m_directory.file("state.xml")).c_str(), loader);
    ::CloseHandle(writer);
    EXPECT_EQ(lines(), Lines());
    EXPECT_NE(stats_text(gatherer()).find(L"<statentry type='A'"), std::wstring::npos);
}

KOR_IMPORT(ReadFile);

TEST_F(SessionLoader, AFileThatCannotBeReadToItsEndIsToldAndWhatCameBeforeStays)
{
    std::string document = "<lumariscontext><stats><statentry type='A'/>";
    document.append(200'000, ' ');
    ASSERT_TRUE(write_file(m_directory.file("state.xml"), document + "</stats></lumariscontext>"));
    int left = 0;
    Hook<ReadFileImport>* own = nullptr;
    Hook<ReadFileImport> reads(
        [&](HANDLE file, void* to, DWORD size, DWORD* count, OVERLAPPED* overlapped) -> BOOL
        { return left-- > 0 && own->original(file, to, size, count, overlapped); });
    own = &reads;
    ASSERT_TRUE(reads.installed());
    for (const int readable : {0, 2})
    {
        left = readable;
        Kor_SessionLogGatherer_Loader loader(&gatherer());
        gatherer().loadFromFile(wide(m_directory.file("state.xml")).c_str(), loader);
        EXPECT_LT(left, 0);
        EXPECT_EQ(stats_text(gatherer()).find(L"<statentry type='A'") != std::wstring::npos, readable > 0);
    }
    ASSERT_EQ(lines().size(), 2u);
    EXPECT_EQ(lines()[0], PARSE_ERROR + "line=0, col=0, msg=unable to read data from file.");
    EXPECT_THAT(lines()[1], HasSubstr("line=1, col="));
    EXPECT_THAT(lines()[1], HasSubstr(", msg=unable to read data from file."));
    EXPECT_TRUE(::DeleteFileA(m_directory.file("state.xml").c_str())) << "it is still open";
}

TEST_F(SessionLoader, StatisticsAndTheirStartAreThoseOfTheFile)
{
    load("<lumariscontext><SessionLogData><System/></SessionLogData>"
         "<stats start='2023-05-06 07:08:09.010'>"
         "<statentry type='Load' subject='album' count='3'><weight min='1.5' avg='2.25' max='3' />"
         "<totaltimeinmilliseconds min='4' avg='5' max='6' />"
         "<unittimeinmilliseconds min='7' avg='8' max='9' /></statentry>"
         "<statentry type='A'/>"
         "</stats></lumariscontext>");
    EXPECT_EQ(lines(), Lines());
    EXPECT_EQ(
        stats_text(gatherer()),
        L"<stats start='2023-05-06 07:08:09.010'><statentry type='A' count='1'><weight" + ZERO +
            L"<totaltimeinmilliseconds" + ZERO + L"<unittimeinmilliseconds" + ZERO +
            L"</statentry><statentry type='Load' subject='album' count='3'>"
            L"<weight min='1.500000' avg='2.250000' max='3.000000' />"
            L"<totaltimeinmilliseconds min='4.000000' avg='5.000000' max='6.000000' />"
            L"<unittimeinmilliseconds min='7.000000' avg='8.000000' max='9.000000' /></statentry></stats>");
    EXPECT_EQ(lists_text(gatherer()), EMPTY_LISTS);
}

TEST_F(SessionLoader, LoadedStatisticsGoOnCounting)
{
    load("<lumariscontext><stats><statentry type='A' count='3'><weight min='2' avg='4' max='6'/>"
         "</statentry></stats></lumariscontext>");
    gatherer().reportEvent(L"A", nullptr, Gatherer::COUNTED, 8, nullptr);
    EXPECT_EQ(
        stats_text(gatherer()), L"<stats start='2024-01-31 08:00:00.000'><statentry type='A' count='4'>"
                                L"<weight min='2.000000' avg='5.000000' max='8.000000' />"
                                L"<totaltimeinmilliseconds" +
                                    ZERO + L"<unittimeinmilliseconds" + ZERO + L"</statentry></stats>");
}

TEST_F(SessionLoader, ACountThatWasWrittenAsANegativeIsTheOneItWasAndItsAverageGoesOn)
{
    struct Row
    {
        const char* count;
        const wchar_t* next;
        const wchar_t* average; // after an event of weight 4294967295, where it was 0
    };
    const Row rows[] = {
        {"2147483647", L"-2147483648", L"2.000000"},  {"-2147483648", L"-2147483647", L"2.000000"},
        {"-1073741825", L"-1073741824", L"1.333333"}, {"-1", L"0", L"1.000000"},
        {"-4294967295", L"2", L"2147483647.500000"}, // which no library has written: its low 32 bits
    };
    for (const Row& row : rows)
    {
        load(
            "<lumariscontext><stats><statentry type='A' count='" + std::string(row.count) +
            "'><weight/></statentry></stats></lumariscontext>");
        gatherer().reportEvent(L"A", nullptr, Gatherer::COUNTED, 4294967295u, nullptr);
        EXPECT_EQ(
            stats_text(gatherer()), L"<stats start='2024-01-31 08:00:00.000'><statentry type='A' count='" +
                                        std::wstring(row.next) + L"'><weight min='0.000000' avg='" + row.average +
                                        L"' max='4294967295.000000' /><totaltimeinmilliseconds" + ZERO +
                                        L"<unittimeinmilliseconds" + ZERO + L"</statentry></stats>")
            << row.count;
    }
}

TEST_F(SessionLoader, OfTwoEntriesOfTheSameIdentityTheLaterWinsAlsoOverWhatIsKnown)
{
    gatherer().reportEvent(L"A", L"b", Gatherer::COUNTED, 8, nullptr);
    load("<lumariscontext><stats><statentry type='A' subject='b' count='3'><weight min='2'/></statentry>"
         "<statentry type='A' subject='b' count='4'><weight max='5'/></statentry></stats></lumariscontext>");
    EXPECT_EQ(
        stats_text(gatherer()), L"<stats start='2024-01-31 08:00:00.000'><statentry type='A' subject='b' count='4'>"
                                L"<weight min='0.000000' avg='0.000000' max='5.000000' />"
                                L"<totaltimeinmilliseconds" +
                                    ZERO + L"<unittimeinmilliseconds" + ZERO + L"</statentry></stats>");
}

TEST_F(SessionLoader, AStartThatIsNoTimeLeavesTheOneThereIs)
{
    for (const char* const start : {"", " start=''", " start='now'", " start='2024-01-31T08:00:00.000'"})
    {
        load("<lumariscontext><stats" + std::string(start) + "></stats></lumariscontext>");
        EXPECT_EQ(stats_text(gatherer()), EMPTY_STATS) << start;
    }
    EXPECT_EQ(lines(), Lines());
}

TEST_F(SessionLoader, EventsOfContextAndHistoryAreThereWithoutTheirLevels)
{
    gatherer().setHistorySize(2);
    load("<lumariscontext><context>"
         "<event type='User' subject='user1' weight='3' level='2' begintime='2024-01-30 07:00:00.001' "
         "endtime='2024-01-30 07:00:00.002'><info>since &lt;today&gt;</info></event>"
         "<event type='B'/></context><history>"
         "<event type='H1'><info></info></event><event type='H2' weight='x'/>"
         "<event type='H3' weight='-1' level='7'>\n <info>3</info>\n</event>"
         "</history></lumariscontext>");
    EXPECT_EQ(lines(), Lines());
    EXPECT_EQ(
        lists_text(gatherer()), L"<context>" + event_text(L"B", L"1") +
                                    L"<event type='User' subject='user1' weight='3' level='0' "
                                    L"begintime='2024-01-30 07:00:00.001' endtime='2024-01-30 07:00:00.002'>"
                                    L"<info>since &lt;today&gt;</info></event></context><history>" +
                                    event_text(L"H2", L"0") + event_text(L"H3", L"-1", L"3") +
                                    L"</history><errors></errors><warnings></warnings>");
}

TEST_F(SessionLoader, AnEntryOfTheContextThatIsThereIsKept)
{
    gatherer().reportEvent(L"User", L"u", Gatherer::STATE | 3 << 12, 5, L"mine");
    load("<lumariscontext><context><event type='User' subject='u'><info>loaded</info></event>"
         "<event type='User' subject='v'><info>first</info></event>"
         "<event type='User' subject='v'><info>second</info></event></context></lumariscontext>");
    EXPECT_EQ(
        lists_text(gatherer()), L"<context><event type='User' subject='u' weight='5' level='3' "
                                L"begintime='2024-01-31 08:00:00.000' endtime='2024-01-31 08:00:00.000'>"
                                L"<info>mine</info></event><event type='User' subject='v' weight='1' level='0'" +
                                    NO_TIMES +
                                    L"<info>first</info></event></context><history></history><errors></errors>"
                                    L"<warnings></warnings>");
}

TEST_F(SessionLoader, AReportIsReadButForItsErrorsWarningsAndConfigurations)
{
    Gatherer& session = gatherer();
    session.gatherSystemInfo();
    session.reportEvent(L"User", L"u&'", Gatherer::STATE | 3 << 12, 5, L"<x>\r\n\t");
    session.reportEvent(L"C", nullptr, Gatherer::CONFIGURATION, 1, L"c");
    session.reportEvent(L"H", nullptr, Gatherer::COUNTED | 6 << 12, 1, L"h");
    session.reportError(L"e", L"error");
    session.reportWarning(L"w", L"warning");
    session.generateReport(wide(m_directory.file("report.xml")).c_str(), true);
    const std::wstring statistics = stats_text(session);
    session.removeFromContext(L"User", L"u&'", true);
    session.setHistorySize(0);
    session.reportEvent(L"gone", nullptr, 0, 1, nullptr); // with it the history
    session.setHistorySize(128);
    const Lines before = lines();
    Kor_SessionLogGatherer_Loader loader(&session);
    session.loadFromFile(wide(m_directory.file("report.xml")).c_str(), loader);
    EXPECT_EQ(lines(), before);
    const std::wstring rest = L" begintime='2024-01-31 08:00:00.000' endtime='2024-01-31 08:00:00.000'><info>";
    EXPECT_EQ(
        lists_text(session),
        L"<context><event type='User' subject='u&amp;&apos;' weight='5' level='0'" + rest +
            L"&lt;x&gt;\n\t</info></event></context><history><event type='H' weight='1' level='0'" + rest +
            L"h</info></event></history><errors><event type='Error' subject='e' weight='1' level='0'" + rest +
            L"error</info></event></errors><warnings><event type='Warning' subject='w' weight='1' level='0'" + rest +
            L"warning</info></event></warnings>");
    EXPECT_EQ(stats_text(session), statistics);
}

TEST_F(SessionLoader, WhatCameBeforeAFailureStays)
{
    struct Row
    {
        const char* rest;
        std::string line;
    };
    const Row rows[] = {
        {"<lumariscontext/></stats></lumariscontext>", ENDED},
        {"</stats>text</lumariscontext>", ENDED},
        {"<statentry type='B'><other/></statentry></stats></lumariscontext>", ENDED},
        {"<statentry count='B'/></stats></lumariscontext>", ENDED},
        {"</stats><context><event type='C'>text</event></context></lumariscontext>", ENDED},
        {"</stats>", PARSE_ERROR + "line=1, col="},
        {"<statentry type='B'", PARSE_ERROR + "line=1, col="},
        {"\n\n</other>", PARSE_ERROR + "line=3, col="},
        {"\n&unknown;", PARSE_ERROR + "line=2, col="},
        {"<a b='\x01'/>", PARSE_ERROR + "line=1, col="},
    };
    std::size_t count = 0;
    for (const Row& row : rows)
    {
        ++count;
        load("<lumariscontext><stats><statentry type='A' count='" + std::to_string(count) + "'/>" + row.rest);
        EXPECT_NE(
            stats_text(gatherer()).find(L"<statentry type='A' count='" + std::to_wstring(count) + L"'>"),
            std::wstring::npos)
            << row.rest;
        EXPECT_EQ(stats_text(gatherer()).find(L"<statentry type='B'"), std::wstring::npos) << row.rest;
        ASSERT_EQ(lines().size(), count);
        EXPECT_EQ(lines().back().substr(0, row.line.size()), row.line) << row.rest;
    }
}

TEST_F(SessionLoader, AParseErrorIsToldWithItsPlaceAndTheMessageOfTheXmlLibrary)
{
    load("<lumariscontext>\n<stats></other>");
    EXPECT_EQ(lines(), Lines{PARSE_ERROR + "line=2, col=10, msg=expected end of tag 'stats'."});
}

TEST_F(SessionLoader, AnotherRootLoadsNothing)
{
    load("<other><lumariscontext><stats><statentry type='A'/>text</stats></lumariscontext></other>");
    load("<stats><statentry type='A'/></stats>");
    EXPECT_EQ(lines(), Lines());
    EXPECT_EQ(stats_text(gatherer()), EMPTY_STATS);
}

TEST_F(SessionLoader, AFileWithoutADocumentIsToldAndHarmless)
{
    for (const std::string& bytes :
         {std::string(), std::string("\xFF\xFE"), std::string("\0\0\0\0", 4), std::string("text"),
          std::string("<?xml version=\"1.0\" encoding=\"utf-16\"?>")})
        load(bytes);
    const Lines told = lines();
    ASSERT_EQ(told.size(), 5u);
    for (const std::string& line : told)
        EXPECT_EQ(line.substr(0, PARSE_ERROR.size()), PARSE_ERROR);
    EXPECT_EQ(stats_text(gatherer()), EMPTY_STATS);
}

TEST_F(SessionLoader, DocumentsInOtherEncodingsAreRead)
{
    const std::string document = "<lumariscontext><stats><statentry type='A\xE4'/></stats></lumariscontext>";
    const std::string utf8 = "<lumariscontext><stats><statentry type='A\xC3\xA4'/></stats></lumariscontext>";
    const std::wstring text = L"<lumariscontext><stats><statentry type='A\xE4'/></stats></lumariscontext>";
    std::string high_first = utf16_bytes(text);
    for (std::size_t i = 0; i < high_first.size(); i += 2)
        std::swap(high_first[i], high_first[i + 1]);
    std::size_t count = 0;
    for (const std::string& bytes :
         {utf16_bytes(text), high_first, utf8, "\xEF\xBB\xBF" + utf8,
          "<?xml version='1.0' encoding='iso-8859-1'?>" + document,
          "<?xml version='1.0' encoding='windows-1252'?>" + document})
    {
        gatherer().reportEvent(L"A\xE4", nullptr, Gatherer::COUNTED, 1, nullptr);
        EXPECT_NE(stats_text(gatherer()).find(L"type='A\xE4' count='1'><weight min='1"), std::wstring::npos);
        load(bytes);
        EXPECT_NE(stats_text(gatherer()).find(L"type='A\xE4' count='1'><weight min='0"), std::wstring::npos) << count;
        load("<lumariscontext><stats><statentry type='A\xC3\xA4' count='0'/></stats></lumariscontext>");
        ++count;
    }
    EXPECT_EQ(lines(), Lines());
}

TEST_F(SessionLoader, ADocumentTypeEndsTheLoadBeforeAnythingOfItIsRead)
{
    const char* const types[] = {
        "lumariscontext",
        "lumariscontext []",
        "lumariscontext [<!ELEMENT lumariscontext ANY>]",
        "lumariscontext [<!ATTLIST statentry count CDATA '7'>]",
        "lumariscontext [<!ENTITY a 'b'>]",
        "lumariscontext [<!ENTITY % a 'b'>]",
        "lumariscontext [<!ENTITY a SYSTEM 'file:///C:/windows/win.ini'>]",
        "lumariscontext [<!ENTITY % a SYSTEM 'http://127.0.0.1:9/a.dtd'> %a;]",
        "lumariscontext SYSTEM 'http://127.0.0.1:9/a.dtd'",
        "lumariscontext PUBLIC '-//a//b' 'a.dtd'",
        "other",
    };
    Lines expected;
    for (const char* const type : types)
    {
        load(
            "<!DOCTYPE " + std::string(type) +
            "><lumariscontext><stats><statentry type='A'/></stats></lumariscontext>");
        expected.push_back(
            "<time> WARNING " + LOADER + "File " + m_directory.file("state.xml") +
            " declares a document type and is not read.");
        expected.push_back(ENDED);
        EXPECT_EQ(stats_text(gatherer()), EMPTY_STATS) << type;
    }
    EXPECT_EQ(lines(), expected);
}

KOR_IMPORT(malloc);

TEST_F(SessionLoader, DefaultsOfAttributesDoNotMakeASmallFileGrow)
{
    // 100 KB for each of 1,000 elements: 100 MB of characters out of 120 KB.
    std::string bomb =
        "<!DOCTYPE lumariscontext [<!ATTLIST a b CDATA '" + std::string(100'000, 'x') + "'>]><lumariscontext>";
    for (int i = 0; i < 1'000; ++i)
        bomb += "<a/>";
    std::size_t asked_for = 0;
    {
        Hook<mallocImport>* own = nullptr;
        Hook<mallocImport> allocations(
            [&](std::size_t size)
            {
                asked_for += size;
                return own->original(size);
            });
        own = &allocations;
        ASSERT_TRUE(allocations.installed());
        load(bomb + "</lumariscontext>");
        EXPECT_GT(allocations.calls(), 0);
    }
    EXPECT_LT(asked_for, std::size_t{4} << 20);
    ASSERT_EQ(lines().size(), 2u);
    EXPECT_EQ(lines()[1], ENDED);
}

TEST_F(SessionLoader, ElementsNestedTooDeeplyEndTheLoad)
{
    std::string deep;
    for (int i = 0; i < 255; ++i)
        deep += "<a>";
    std::string closed = deep;
    for (int i = 0; i < 255; ++i)
        closed += "</a>";
    load("<lumariscontext>" + closed + "</lumariscontext>");
    EXPECT_EQ(lines(), Lines());
    load("<lumariscontext><a>" + closed + "</a></lumariscontext>");
    EXPECT_EQ(lines(), Lines{ENDED});
    std::string endless;
    for (int i = 0; i < 200; ++i)
        endless += deep;
    load("<lumariscontext>" + endless);
    EXPECT_EQ(lines(), (Lines{ENDED, ENDED}));
}

KOR_IMPORT(GetFileSizeEx);

TEST_F(SessionLoader, AFileOfMoreThan256MiBIsNotRead)
{
    const std::string document = "<lumariscontext><stats><statentry type='A'/></stats></lumariscontext>";
    for (const LONGLONG size : {LONGLONG{268435457}, LONGLONG{1} << 40})
    {
        const Hook<GetFileSizeExImport> sizes(
            [size](HANDLE, LARGE_INTEGER* result) -> BOOL
            {
                result->QuadPart = size;
                return TRUE;
            });
        ASSERT_TRUE(sizes.installed());
        load(document);
        EXPECT_GT(sizes.calls(), 0);
        EXPECT_EQ(stats_text(gatherer()), EMPTY_STATS);
    }
    const std::string line =
        "<time> WARNING " + LOADER + "File " + m_directory.file("state.xml") + " is too large and is not read.";
    EXPECT_EQ(lines(), (Lines{line, line}));
    load(document);
    EXPECT_NE(stats_text(gatherer()).find(L"<statentry type='A'"), std::wstring::npos);
}

TEST_F(SessionLoader, TruncatedAndDamagedDocumentsAreHarmless)
{
    gatherer().gatherSystemInfo();
    for (int i = 0; i < 3; ++i)
    {
        gatherer().reportEvent(L"A\xE4", std::to_wstring(i).c_str(), Gatherer::COUNTED, 1, L"i%d", i);
        gatherer().reportEvent(L"S", std::to_wstring(i).c_str(), Gatherer::STATE, 1, L"s%d", i);
    }
    ByteTarget target;
    gatherer().generateReport(&target, true);
    const std::string good = target.bytes;
    const std::string path = m_directory.file("state.xml");
    const auto try_it = [&](const std::string& bytes)
    {
        Kor_SessionLogGatherer_Loader loader(&gatherer());
        ASSERT_TRUE(write_file(path, bytes));
        gatherer().loadFromFile(wide(path).c_str(), loader);
    };
    for (std::size_t length = 0; length < good.size(); length += 41)
        try_it(good.substr(0, length));
    std::mt19937 random(20240131);
    for (int i = 0; i < 200; ++i)
    {
        std::string bytes = good;
        for (int flips = 0; flips <= i % 8; ++flips)
            bytes[random() % bytes.size()] ^= static_cast<char>(1 << random() % 8);
        try_it(bytes);
    }
    for (int i = 0; i < 50; ++i)
    {
        std::string bytes(random() % 400, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        try_it(i % 2 == 0 ? bytes : "\xFF\xFE" + bytes);
    }
    for (const std::string& line : lines())
        EXPECT_TRUE(line == ENDED || line.rfind(PARSE_ERROR, 0) == 0) << line;
    // And it still reads what is in order.
    load("<lumariscontext><stats><statentry type='Z' count='5'/></stats></lumariscontext>");
    EXPECT_NE(stats_text(gatherer()).find(L"<statentry type='Z' count='5'>"), std::wstring::npos);
}

TEST_F(SessionLoader, NoGathererMeansThatTheFileIsOnlyChecked)
{
    ASSERT_TRUE(write_file(
        m_directory.file("state.xml"),
        "<lumariscontext><stats start='2023-05-06 07:08:09.010'><statentry type='A'/></stats><context>"
        "<event type='A'/></context><history><event type='A'/></history>text</lumariscontext>"));
    Kor_SessionLogGatherer_Loader loader;
    gatherer().loadFromFile(wide(m_directory.file("state.xml")).c_str(), loader);
    EXPECT_EQ(lines(), Lines{ENDED});
    EXPECT_EQ(stats_text(gatherer()), EMPTY_STATS);
    EXPECT_EQ(lists_text(gatherer()), EMPTY_LISTS);
}

TEST_F(SessionLoader, KeepsTheErrorsOfTheThreadAndBearsNoPath)
{
    ASSERT_TRUE(write_file(m_directory.file("state.xml"), "<lumariscontext>"));
    const std::wstring paths[] = {wide(m_directory.file("state.xml")), wide(m_directory.file("none.xml"))};
    for (const wchar_t* const path : {paths[0].c_str(), paths[1].c_str(), static_cast<const wchar_t*>(nullptr)})
    {
        Kor_SessionLogGatherer_Loader loader(&gatherer());
        ::SetLastError(4711);
        errno = 33;
        gatherer().loadFromFile(path, loader);
        EXPECT_EQ(::GetLastError(), 4711u);
        EXPECT_EQ(errno, 33);
    }
    EXPECT_EQ(lines().size(), 2u);
}

TEST_F(SessionLoader, ATimeIsReadAsUtc)
{
    EXPECT_EQ(gatherer().loadTime(L"2024-01-31 23:59:59.007"), 1706745599007u);
    EXPECT_EQ(gatherer().loadTime(L"1970-01-01 00:00:00.000"), 0u);
    for (const wchar_t* const text :
         {L"", L"2024-01-31 23:59:59.00", L"2024-01-31 23:59:59.0070", L"2024-01-31T23:59:59.007",
          L"2024/01/31 23:59:59.007", L"1969-12-31 23:59:59.999", L"3001-01-01 00:00:00.000"})
        EXPECT_EQ(gatherer().loadTime(text), NO_TIME);
    m_clock.ahead = 330;
    EXPECT_EQ(gatherer().loadTime(L"2024-01-31 23:59:59.007"), 1706745599007u);
}

TEST(SessionLoaderOff, ReadsNothingAndSaysNothing)
{
    const LogDirectory directory(LIBRARY_TO_FILE);
    KorGLog.Open("test.log", "viewer", false);
    KorGLog.ReadFile();
    Gatherer* const session = Gatherer::GetInstance();
    ASSERT_NE(session, nullptr);
    Kor_SessionLogGatherer_Loader loader(session);
    session->loadFromFile(wide(directory.file("none.xml")).c_str(), loader);
    EXPECT_EQ(library_lines(directory), Lines());
}

// From one process to the next ---------------------------------------------------------
/// Reads the first file, if there is one, and writes the second, at 8:00 UTC in a zone that is 5:30 ahead.
KOR_CHILD(carries_a_report_on)
{
    Gatherer::Activate(true);
    const FixedSessionClock clock(MORNING, 330);
    Gatherer& session = *Gatherer::GetInstance();
    if (args[0].empty())
    {
        session.reportEvent(L"A", L"b", Gatherer::COUNTED | 5 << 12, 3, L"text");
        session.reportEvent(L"S", nullptr, Gatherer::STATE, 2, nullptr);
    }
    else
    {
        Kor_SessionLogGatherer_Loader loader(&session);
        session.loadFromFile(wide(args[0]).c_str(), loader);
    }
    session.generateReport(wide(args[1]).c_str(), true);
    return clock.installed() ? 5 : 1;
}

TEST(SessionLoaderZone, AReportThatIsReadAndWrittenAgainKeepsAllButLevelsAndMovesItsTimesByTheZone)
{
    const LogDirectory directory(LIBRARY_TO_FILE);
    const std::string first = directory.file("first.xml");
    const std::string second = directory.file("second.xml");
    ChildOptions options = directory.for_child();
    options.arguments = {"", first};
    ASSERT_EQ(run_child("carries_a_report_on", options).exit_code, 5u);
    options.arguments = {first, second};
    ASSERT_EQ(run_child("carries_a_report_on", options).exit_code, 5u);

    const auto expected = [](const std::wstring& clock, const std::wstring& level)
    {
        const std::wstring at = L"2024-01-31 " + clock + L":00.000'";
        const std::wstring times = L" begintime='" + at + L" endtime='" + at + L"><info>";
        return L"<context><event type='S' weight='2' level='0'" + times +
               L"</info></event></context><history><event type='A' subject='b' weight='3' level='" + level + L"'" +
               times + L"text</info></event></history><errors></errors><warnings></warnings><stats start='" + at +
               L"><statentry type='A' subject='b' count='1'><weight min='3.000000' avg='3.000000' max='3.000000' />"
               L"<totaltimeinmilliseconds" +
               ZERO + L"<unittimeinmilliseconds" + ZERO + L"</statentry></stats></lumariscontext>";
    };
    const auto lists_of = [](const std::string& path)
    {
        const std::wstring text = wide_text(read_file(path));
        return text.substr(std::min(text.find(L"<context>"), text.size()));
    };
    EXPECT_EQ(lists_of(first), expected(L"13:30", L"5"));
    EXPECT_EQ(lists_of(second), expected(L"19:00", L"0"));
}
} // namespace
