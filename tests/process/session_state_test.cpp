// The state file between processes: saved by several at once, by one that is killed, and read whatever it holds.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Kor_LogFile.h"
#include "Kor_SessionLog.h"
#include "Kor_SessionLogGatherer.h"
#include "session_report.h"

namespace
{
using Gatherer = Kor_SessionLogGatherer;
using Host = Kor_SessionLogHost;
using Lines = std::vector<std::string>;

KOR_IMPORT(CreateFileW);
KOR_IMPORT(WriteFile);

const std::string STATE = "CLGState.mp";

std::wstring wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

/// Switches all on, in the folder that the environment names.
void begin()
{
    KorGLog.Open("test.log", "viewer", false);
    KorGLog.ReadFile();
    Gatherer::Activate(true);
    Kor_SessionLog::Activate(true);
}

bool is_whole(const std::string& bytes)
{
    const std::wstring text = wide_text(bytes);
    const std::wstring head = L"\xFEFF<?xml version=\"1.0\" encoding=\"utf-16\"?>";
    const std::wstring end = L"</stats></lumariscontext>";
    return text.size() > head.size() + end.size() && text.compare(0, head.size(), head) == 0 &&
           text.compare(text.size() - end.size(), end.size(), end) == 0 && text.find(head, 1) == std::wstring::npos;
}

/// A state as the library writes it.
std::string good_state(unsigned entries = 3)
{
    std::wstring text = L"<?xml version=\"1.0\" encoding=\"utf-16\"?><?xml-stylesheet type=\"text/xsl\" "
                        L"href=\"SessionLogSummary.xsl\"?><lumariscontext>\n<SessionLogData/>"
                        L"<stats start='2024-01-31 08:00:00.000'>";
    for (unsigned i = 0; i < entries; ++i)
        text += L"<statentry type='T" + std::to_wstring(i) +
                L"' subject='s' count='2'><weight min='1.000000' avg='1.000000' max='1.000000' />"
                L"<totaltimeinmilliseconds min='0.000000' avg='0.000000' max='0.000000' />"
                L"<unittimeinmilliseconds min='0.000000' avg='0.000000' max='0.000000' /></statentry>";
    return utf16_bytes(text + L"</stats></lumariscontext>");
}

// Several at once ----------------------------------------------------------------------
/// args: an event's type, how often to save.
KOR_CHILD(saves_again_and_again)
{
    begin();
    Kor_SessionLog::GetInstance();
    Gatherer& session = *Gatherer::GetInstance();
    for (int i = 0; i < 400; ++i) // more than one write of the file
        session.reportEvent(wide(args[0]).c_str(), std::to_wstring(i).c_str(), Gatherer::COUNTED, 1, nullptr);
    for (int i = std::stoi(args[1]); i > 0; --i)
        Host::saveState();
    Host::destroy();
    return 5;
}

KOR_CHILD(loads_until_told)
{
    begin();
    Gatherer& session = *Gatherer::GetInstance();
    const NamedEvent over(args[1]);
    int loads = 0;
    for (; loads < 10 || !over.wait(0); ++loads)
    {
        Kor_SessionLogGatherer_Loader loader(&session);
        session.loadFromFile(wide(args[0]).c_str(), loader);
    }
    std::printf("%d", loads);
    return 5;
}

TEST(SessionState, TwoThatSaveAtOnceNeverLeaveHalfAFileForAThird)
{
    const LogDirectory saving(LIBRARY_TO_FILE);
    const LogDirectory loading(LIBRARY_TO_FILE);
    ASSERT_TRUE(write_file(saving.file(STATE), good_state()));
    const std::string over = unique_name("over");
    const NamedEvent told(over);
    ChildOptions options = loading.for_child();
    options.arguments = {saving.file(STATE), over};
    Child reader("loads_until_told", options);
    reader.ensure_begun();
    std::vector<std::unique_ptr<Child>> writers;
    for (const char* const type : {"A", "B"})
    {
        ChildOptions writing = saving.for_child();
        writing.arguments = {type, "40"};
        writers.push_back(std::make_unique<Child>("saves_again_and_again", writing));
    }
    for (const auto& writer : writers)
    {
        writer->ensure_begun();
        const ChildResult result = writer->wait(60000);
        EXPECT_TRUE(result.finished);
        EXPECT_EQ(result.exit_code, 5u);
    }
    told.set();
    const ChildResult read = reader.wait(30000);
    EXPECT_TRUE(read.finished);
    EXPECT_EQ(read.exit_code, 5u);
    EXPECT_GE(std::atoi(read.out.c_str()), 10);
    EXPECT_EQ(library_lines(loading), Lines()); // half a file, and one that cannot be opened, would be told
    EXPECT_TRUE(is_whole(read_file(saving.file(STATE))));
    EXPECT_EQ(files_of(saving), Lines{STATE});
}

TEST(SessionState, AProcessGoesOnWithTheCountsOfTheLast)
{
    const LogDirectory directory(LIBRARY_TO_FILE);
    ChildOptions options = directory.for_child();
    options.arguments = {"A", "0"};
    for (int i = 1; i <= 3; ++i)
    {
        ASSERT_EQ(run_child("saves_again_and_again", options).exit_code, 5u);
        const std::wstring text = wide_text(read_file(directory.file(STATE)));
        const std::wstring entry = L"<statentry type='A' subject='399' count='" + std::to_wstring(i) + L"'>";
        EXPECT_NE(text.find(entry), std::wstring::npos) << i;
    }
}

// Killed -------------------------------------------------------------------------------
/// args: an event to set in the middle of saving, at which write that is.
KOR_CHILD(stops_in_the_middle_of_saving)
{
    begin();
    Kor_SessionLog::GetInstance();
    Gatherer& session = *Gatherer::GetInstance();
    for (int i = 0; i < 400; ++i)
        session.reportEvent(L"A", std::to_wstring(i).c_str(), Gatherer::COUNTED, 1, nullptr);
    const NamedEvent there(args[0]);
    const NamedEvent never(unique_name("never"));
    int left = std::stoi(args[1]);
    HANDLE state = nullptr;
    Hook<CreateFileWImport>* opens_self = nullptr;
    Hook<CreateFileWImport> opens(
        [&](const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD how, DWORD flags,
            HANDLE like)
        {
            const HANDLE file = opens_self->original(name, access, share, security, how, flags, like);
            if (std::wstring_view(name).find(L"CLGState") != std::wstring_view::npos)
                state = file;
            return file;
        });
    opens_self = &opens;
    Hook<WriteFileImport>* writes_self = nullptr;
    Hook<WriteFileImport> writes(
        [&](HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped)
        {
            const BOOL done = writes_self->original(file, bytes, size, written, overlapped);
            if (file == state && --left == 0)
            {
                there.set();
                never.wait(60000);
            }
            return done;
        });
    writes_self = &writes;
    if (!opens.installed() || !writes.installed())
        return 1;
    Host::saveState();
    return 5;
}

TEST(SessionState, AProcessThatIsKilledWhileItSavesLeavesTheOldFileAndNoOther)
{
    for (const char* const write : {"1", "3"})
    {
        const LogDirectory directory(LIBRARY_TO_FILE);
        const std::string old = good_state();
        ASSERT_TRUE(write_file(directory.file(STATE), old));
        const std::string name = unique_name("in-the-middle");
        const NamedEvent there(name);
        ChildOptions options = directory.for_child();
        options.arguments = {name, write};
        Child child("stops_in_the_middle_of_saving", options);
        child.ensure_begun();
        ASSERT_TRUE(there.wait()) << child.wait(0).err;
        EXPECT_EQ(files_of(directory).size(), 2u); // the new one is beside it
        child.kill();
        EXPECT_EQ(child.wait(20000).exit_code, 0xDEADu);
        EXPECT_TRUE(read_file(directory.file(STATE)) == old);
        EXPECT_EQ(files_of(directory), Lines{STATE});
    }
}

// Whatever it holds --------------------------------------------------------------------
/// Starts with the state that is there, works, and prints each file that the library opened meanwhile, its name only.
KOR_CHILD(starts_and_works)
{
    begin();
    Lines opened;
    Hook<CreateFileWImport>* own = nullptr;
    Hook<CreateFileWImport> opens(
        [&](const wchar_t* name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security, DWORD how, DWORD flags,
            HANDLE like)
        {
            std::string narrow;
            for (const wchar_t c : std::wstring_view(name))
                narrow += c < 0x7F ? static_cast<char>(c) : '?';
            narrow = narrow.substr(narrow.find_last_of("\\/") + 1);
            opened.push_back(narrow);
            return own->original(name, access, share, security, how, flags, like);
        });
    own = &opens;
    if (!opens.installed())
        return 1;
    Kor_SessionLog* const reporter = Kor_SessionLog::GetInstance();
    Gatherer& session = *Gatherer::GetInstance();
    session.reportEvent(L"mine", nullptr, Gatherer::COUNTED, 1, L"text");
    if (stats_text(session).find(L"<statentry type='mine' count='1'>") == std::wstring::npos)
        return 2;
    if (lists_text(session).find(L"<info>text</info>") == std::wstring::npos)
        return 3;
    reporter->createSessionReport();
    Host::destroy();
    for (const std::string& name : opened)
        std::printf("%s\n", name.c_str());
    return 5;
}

/// What a process that starts with this state leaves.
void expect_no_harm_of(const std::string& state, const std::string& what)
{
    const LogDirectory directory(LIBRARY_TO_FILE);
    ASSERT_TRUE(write_file(directory.file(STATE), state));
    ASSERT_TRUE(write_file(directory.file("named.dtd"), "<!ENTITY a 'b'><!ELEMENT lumariscontext EMPTY>"));
    const ChildResult child = run_child("starts_and_works", directory.for_child());
    EXPECT_TRUE(child.finished) << what;
    EXPECT_EQ(child.exit_code, 5u) << what << child.err;
    EXPECT_TRUE(is_whole(read_file(directory.file(STATE)))) << what;
    EXPECT_EQ(files_of(directory).size(), 3u) << what; // state, report, and the one that a document may name
    // The state, the report, and the next state beside the first.
    const Lines opened = lines_of(child.out);
    ASSERT_EQ(opened.size(), 3u) << what << child.out;
    EXPECT_EQ(opened[0], STATE) << what;
    EXPECT_EQ(opened[1].substr(0, 8), "session-") << what;
    EXPECT_EQ(opened[2].substr(0, STATE.size() + 1), STATE + ".") << what;
}

TEST(SessionState, ATruncatedStateIsNoHarm)
{
    const std::string good = good_state();
    for (const std::size_t length :
         {std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{3}, std::size_t{40}, good.size() / 3,
          good.size() / 2 + 1, good.size() - 50, good.size() - 1})
        expect_no_harm_of(good.substr(0, length), std::to_string(length));
}

TEST(SessionState, ADamagedStateIsNoHarm)
{
    std::mt19937 random(20240131);
    for (int i = 0; i < 6; ++i)
    {
        std::string bytes = good_state();
        for (int flips = 0; flips < 1 << i; ++flips)
            bytes[random() % bytes.size()] ^= static_cast<char>(1 << random() % 8);
        expect_no_harm_of(bytes, "flips " + std::to_string(i));
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        expect_no_harm_of(bytes, "random " + std::to_string(i));
    }
}

TEST(SessionState, AHostileStateIsNoHarmAndNoFileThatItNamesIsOpened)
{
    std::string deep;
    for (int i = 0; i < 200'000; ++i)
        deep += "<a>";
    std::string general = "<!ENTITY a0 'aaaaaaaaaaaaaaaa'>";
    std::string parameter = "<!ENTITY % p0 'aaaaaaaaaaaaaaaa'>";
    for (int i = 1; i < 12; ++i)
    {
        const std::string before = std::to_string(i - 1);
        const std::string name = std::to_string(i);
        general += "<!ENTITY a" + name + " '";
        parameter += "<!ENTITY % p" + name + " '";
        for (int k = 0; k < 10; ++k)
        {
            general += "&a" + before + ";";
            parameter += "&#37;p" + before + ";";
        }
        general += "'>";
        parameter += "'>";
    }
    std::string many;
    for (int i = 0; i < 20'000; ++i)
        many += "<a/>";
    const std::string document = "<lumariscontext><stats><statentry type='A'/></stats></lumariscontext>";
    struct Row
    {
        const char* what;
        std::string text;
    };
    const Row rows[] = {
        {"nesting", "<lumariscontext>" + deep},
        {"general entities", "<!DOCTYPE lumariscontext [" + general + "]><lumariscontext>&a11;</lumariscontext>"},
        {"entities in an attribute",
         "<!DOCTYPE lumariscontext [" + general + "]><lumariscontext a='&a11;'></lumariscontext>"},
        {"parameter entities", "<!DOCTYPE lumariscontext [" + parameter + " %p11;]>" + document},
        {"attribute defaults", "<!DOCTYPE lumariscontext [<!ATTLIST a b CDATA '" + std::string(100'000, 'x') +
                                   "'>]><lumariscontext>" + many + "</lumariscontext>"},
        {"external entity",
         "<!DOCTYPE lumariscontext [<!ENTITY a SYSTEM 'named.dtd'>]><lumariscontext>&a;</lumariscontext>"},
        {"external parameter entity", "<!DOCTYPE lumariscontext [<!ENTITY % a SYSTEM 'named.dtd'> %a;]>" + document},
        {"external DTD", "<!DOCTYPE lumariscontext SYSTEM 'named.dtd'>" + document},
        {"external DTD by name", "<!DOCTYPE lumariscontext PUBLIC '-//a//b' 'named.dtd'>" + document},
        {"DTD of the net", "<!DOCTYPE lumariscontext SYSTEM 'http://127.0.0.1:9/named.dtd'>" + document},
        {"DTD of the net's files", "<!DOCTYPE lumariscontext SYSTEM '//127.0.0.1/share/named.dtd'>" + document},
        {"schema",
         "<lumariscontext xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
         "xsi:schemaLocation='a named.dtd' xsi:noNamespaceSchemaLocation='named.dtd'><stats/></lumariscontext>"},
        {"inclusion", "<lumariscontext xmlns:xi='http://www.w3.org/2001/XInclude'><xi:include href='named.dtd'/>"
                      "</lumariscontext>"},
        {"a large attribute", "<lumariscontext><stats><statentry type='" + std::string(10'000'000, 'a') +
                                  "'/>text</stats></lumariscontext>"},
        {"a large name", '<' + std::string(5'000'000, 'a') + "/>"},
        {"an unknown encoding", "<?xml version='1.0' encoding='no-such'?>" + document},
        {"an encoding that is not so", "<?xml version='1.0' encoding='utf-16'?>" + document},
        {"numbers", "<lumariscontext><stats start='9999-99-99 99:99:99.999'><statentry type='A' "
                    "count='99999999999999999999999'><weight min='1e999' avg='nan' max='-inf'/></statentry>"
                    "<statentry type='mine' subject='x' count='-1'/></stats></lumariscontext>"},
    };
    for (const Row& row : rows)
        expect_no_harm_of(row.text, row.what);
}
} // namespace
