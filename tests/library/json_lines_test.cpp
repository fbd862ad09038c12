// json_lines_test.cpp - the destination that writes lines of JSON: what it tells of messages, and what becomes of its files.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Kor_ClientScope.h"
#include "Kor_LogDestJsonLines.h"
#include "captured_stream.h"
#include "child.h"
#include "import_hook.h"
#include "log_directory.h"
#include "named_event.h"

namespace
{
using Lines = std::vector<std::string>;

KOR_IMPORT(WriteFile);
KOR_IMPORT(GetSystemTimePreciseAsFileTime);

constexpr int READER = 310;
constexpr std::size_t MEGABYTE = 1024 * 1024;

/// With what differs from run to run replaced by names.
std::string masked(const std::string& line)
{
    static const std::vector<std::pair<std::regex, std::string>> masks = {
        {std::regex(R"("time":"2\d\d\d-\d\d-\d\dT\d\d:\d\d:\d\d\.\d\d\dZ","zone":"[+-]\d\d:\d\d")"), "<time>"},
        {std::regex(R"("process":\d+,"thread":\d+)"), "<ids>"},
        {std::regex(R"("run":"[0-9a-f]{15,16}-\d+")"), "<run>"}};
    std::string text = line;
    for (const auto& [form, name] : masks)
        text = std::regex_replace(text, form, name);
    return text;
}

/// What stands between the quotes behind a key, with its escapes; empty when there is none.
std::string field(const std::string& line, const std::string& key)
{
    const std::string opening = '"' + key + "\":\"";
    const std::size_t begin = line.find(opening);
    if (begin == std::string::npos)
        return {};
    std::size_t end = begin + opening.size();
    while (end < line.size() && line[end] != '"')
        end += line[end] == '\\' ? 2U : 1U;
    return line.substr(begin + opening.size(), end - begin - opening.size());
}

class JsonLines : public ::testing::Test
{
protected:
    explicit JsonLines(const std::string& packages = "Reader 310 7\n")
        : m_develop("KORAL_LOG_DEVELOP", "1"), m_directory(TO_FILE + packages)
    {
        KorGLog.Open("test.log", "viewer", false);
    }
    ~JsonLines() override
    {
        KorGLog.ClearAllLogDestinations();
        KorGLog.SetIP(nullptr);
        KorGLog.SetThreadName(nullptr);
    }

    void open(int megabytes = 0, int files = 5)
    {
        m_lines = std::make_unique<Kor_LogDestJsonLines>(path().c_str(), megabytes, files);
        ASSERT_TRUE(m_lines->IsOpen());
        KorGLog.RegisterLogDestination(m_lines.get());
    }

    std::string path(const std::string& name = "test.jsonl") const { return m_directory.file(name); }

    /// A file's lines, each of which ends with a newline alone.
    Lines lines(const std::string& name = "test.jsonl") const
    {
        const std::string bytes = read_file(path(name));
        EXPECT_EQ(bytes.find('\r'), std::string::npos);
        EXPECT_TRUE(bytes.empty() || bytes.back() == '\n');
        return lines_of(bytes);
    }
    std::string only_line() const
    {
        const Lines all = lines();
        EXPECT_EQ(all.size(), 1U);
        return all.empty() ? std::string() : all.front();
    }

    /// Of message number i, with as many bytes as to fill a file soon.
    static std::string long_text(int i) { return std::to_string(i) + ' ' + std::string(1500, 'x'); }
    static void write_long(int from, int to)
    {
        for (int i = from; i < to; ++i)
            KorGLog.LogAt("image.cpp", "load", 1, 4, READER, "%s", long_text(i).c_str());
    }

    /// The numbers of such messages in all files there are.
    std::multiset<int> numbers() const
    {
        std::multiset<int> found;
        for (int number = 0; number < 30; ++number)
            for (const std::string& line : lines(number == 0 ? "test.jsonl" : numbered(number)))
                found.insert(std::atoi(field(line, "text").c_str()));
        return found;
    }
    static std::string numbered(int number) { return "test." + std::to_string(number) + ".jsonl"; }
    static std::multiset<int> all_up_to(int end)
    {
        std::multiset<int> all;
        for (int i = 0; i < end; ++i)
            all.insert(i);
        return all;
    }

    const EnvironmentVariable m_develop;
    const LogDirectory m_directory;
    std::unique_ptr<Kor_LogDestJsonLines> m_lines;
};
} // namespace

// What a line tells ---------------------------------------------------------------------------------------
TEST_F(JsonLines, AMessageTellsAllThatIsKnownOfIt)
{
    open();
    KorGLog.SetIPAndSID("192.0.2.7", 3);
    KorGLog.SetThreadName("Page loader");
    KorGLog.LogAt("C:\\src\\image.cpp", "load", 210, 4, READER, "%s is missing\n", "front.png");

    EXPECT_EQ(
        masked(only_line()),
        "{<time>,\"level\":4,\"level_name\":\"WARNING\",\"package\":310,\"package_name\":\"Reader\","
        "\"application\":\"viewer\",<ids>,\"thread_name\":\"Page loader\",\"client\":\"192.0.2.7\",\"session\":3,"
        "\"file\":\"image.cpp\",\"line\":210,\"function\":\"load\",<run>,\"sequence\":1,"
        "\"text\":\"front.png is missing\"}");
    const std::string ids = "\"process\":" + std::to_string(::GetCurrentProcessId()) +
                            ",\"thread\":" + std::to_string(::GetCurrentThreadId()) + ',';
    EXPECT_NE(only_line().find(ids), std::string::npos);
}

TEST_F(JsonLines, AMessageWithoutAHeadlineIsBareAndWhatThereIsNotIsLeftOut)
{
    open();
    KorGLog.LogAt(nullptr, nullptr, 0, 7, 0, "not wanted");
    KorGLog.SetOutLogLevel(5);
    KorGLog.LogNoHeadline("===== archive =====\n");
    EXPECT_EQ(
        masked(only_line()), "{<time>,\"level\":5,\"level_name\":\"NOTICE\",\"package\":0,\"application\":\"viewer\","
                             "<ids>,\"bare\":true,<run>,\"sequence\":1,\"text\":\"===== archive =====\"}");
}

TEST_F(JsonLines, APackageHasItsNameInTheConfigurationOrThatWhichTheProgramGaveIt)
{
    open();
    EXPECT_EQ(Kor_LogFile::NamePackage(READER, "Books"), 0);
    EXPECT_EQ(Kor_LogFile::NamePackage(311, "Pages"), 0);
    for (const int package : {READER, 311, 312})
        KorGLog.LogAt("a.cpp", "f", 1, 4, package, "x");
    const Lines all = lines();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(field(all[0], "package_name"), "Reader");
    EXPECT_EQ(field(all[1], "package_name"), "Pages");
    EXPECT_EQ(all[2].find("package_name"), std::string::npos);
}

TEST_F(JsonLines, TheClientIsWhomTheThreadWorksFor)
{
    open();
    KorGLog.SetIPAndSID("192.0.2.7", 3);
    {
        const Kor_ClientScope scope("2001:db8::7", 9);
        KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "x");
    }
    {
        const Kor_ClientScope nobody(nullptr, 0);
        KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "x");
    }
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "x");
    const Lines all = lines();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_NE(all[0].find("\"client\":\"2001:db8::7\",\"session\":9,"), std::string::npos);
    EXPECT_EQ(all[1].find("client"), std::string::npos);
    EXPECT_EQ(all[1].find("session"), std::string::npos);
    EXPECT_NE(all[2].find("\"client\":\"192.0.2.7\",\"session\":3,"), std::string::npos);
}

TEST_F(JsonLines, TimesAreThoseOfTheLogInUtc)
{
    open();
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "x");
    const std::string line = only_line();
    const std::string headline = read_file(m_directory.file("test.log")).substr(0, 29);
    const std::string zone = field(line, "zone");
    EXPECT_EQ(headline.substr(23), zone);

    SYSTEMTIME local{};
    local.wYear = static_cast<WORD>(std::stoi(headline));
    local.wMonth = static_cast<WORD>(std::stoi(headline.substr(5)));
    local.wDay = static_cast<WORD>(std::stoi(headline.substr(8)));
    local.wHour = static_cast<WORD>(std::stoi(headline.substr(11)));
    local.wMinute = static_cast<WORD>(std::stoi(headline.substr(14)));
    FILETIME time{};
    ASSERT_TRUE(::SystemTimeToFileTime(&local, &time));
    const int minutes = std::stoi(zone.substr(1)) * 60 + std::stoi(zone.substr(4));
    constexpr long long PER_MINUTE = 600'000'000;
    const long long utc = (static_cast<long long>(time.dwHighDateTime) << 32 | time.dwLowDateTime) -
                          PER_MINUTE * (zone.front() == '-' ? -minutes : minutes);
    time = {static_cast<DWORD>(utc), static_cast<DWORD>(utc >> 32)};
    SYSTEMTIME universal{};
    ASSERT_TRUE(::FileTimeToSystemTime(&time, &universal));
    char expected[32];
    std::snprintf(
        expected, sizeof expected, "%04d-%02d-%02dT%02d:%02d", universal.wYear, universal.wMonth, universal.wDay,
        universal.wHour, universal.wMinute);
    EXPECT_EQ(field(line, "time"), expected + headline.substr(16, 7) + "Z");
}

TEST_F(JsonLines, AMessageBeforeAnyThatWasSaidHasTheTimeOfNow)
{
    open();
    std::thread([] { KorGLog.SendLogNoLimit(KOR_MSG_NO_HEADLINE, std::string("x\n").data(), 2); }).join();
    EXPECT_EQ(masked(only_line()).substr(0, 7), "{<time>");
}

TEST_F(JsonLines, LinesAreCountedAndEachObjectHasARunOfItsOwn)
{
    open();
    const Kor_LogDestJsonLines other(path("other.jsonl").c_str());
    Kor_LogDestJsonLines copy(other);
    KorGLog.RegisterLogDestination(&copy);
    for (int i = 0; i < 3; ++i)
        KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "x");
    const Lines all = lines();
    const Lines others = lines("other.jsonl");
    ASSERT_EQ(all.size(), 3U);
    ASSERT_EQ(others.size(), 3U);
    EXPECT_NE(field(all[0], "run"), field(others[0], "run"));
    for (std::size_t i = 0; i < all.size(); ++i)
    {
        EXPECT_EQ(field(all[i], "run"), field(all[0], "run"));
        EXPECT_NE(all[i].find("\"sequence\":" + std::to_string(i + 1) + ','), std::string::npos);
    }
}

// Texts ---------------------------------------------------------------------------------------------------
TEST_F(JsonLines, NoMessageAndNoNameForgesARecord)
{
    open();
    KorGLog.SetThreadName("a\"}\n{\"level\":1}");
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "one\r\n{\"level\":1,\"text\":\"two\"}\n\x1B[31m");
    const std::string line = only_line();
    EXPECT_EQ(field(line, "text"), "one\\r\\n{\\\"level\\\":1,\\\"text\\\":\\\"two\\\"}\\n\\u001b[31m");
    EXPECT_EQ(field(line, "thread_name"), "a\\\"}\\n{\\\"level\\\":1}");
}

TEST_F(JsonLines, OneNewlineEndsAMessageAndAllOthersBelongToIt)
{
    open();
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "one\n\n");
    KorGLog.PrintAndLog("two"); // which adds no newline
    EXPECT_EQ(field(lines().at(0), "text"), "one\\n");
    EXPECT_EQ(field(lines().at(1), "text"), "two");
}

TEST_F(JsonLines, BytesThatAreNoUtf8AreOfTheCodePage)
{
    if (::GetACP() != 1252)
        GTEST_FAIL() << "this case is of the code page 1252, and not of " << ::GetACP();
    open();
    KorGLog.LogAt(
        "a.cpp", "f", 1, 4, READER,
        "Gr\xFC\xDF"
        "e f\xC3\xBCr 5 \x80");
    EXPECT_EQ(
        field(only_line(), "text"), "Gr\xC3\xBC\xC3\x9F"
                                    "e f\xC3\xBCr 5 \xE2\x82\xAC");
}

TEST_F(JsonLines, AMessageThatWasCutEndsInAWholeCharacter)
{
    open();
    const std::string fits(2045, 'x');
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "%s\xC3\xBC", fits.c_str());
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "%s", (fits + "xyz").c_str());
    KorGLog.PrintAndLog("%s\xC3\xBC", (fits + "x").c_str()); // without a newline
    EXPECT_EQ(field(lines().at(0), "text"), fits);
    EXPECT_EQ(field(lines().at(1), "text"), fits + "x");
    EXPECT_EQ(field(lines().at(2), "text"), fits + "x");
}

TEST_F(JsonLines, MessagesOfAnyLengthAreWhole)
{
    open();
    std::string worst(2046, '\x01');
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "%s", worst.c_str());
    std::string large(300000, '"');
    KorGLog.SendLogNoLimit(KOR_MSG_HEADLINE, large.data(), static_cast<int>(large.size()));
    EXPECT_EQ(field(lines().at(0), "text").size(), 2046U * 6);
    EXPECT_EQ(field(lines().at(1), "text").size(), 300000U * 2);
}

TEST_F(JsonLines, ANullTextIsAnEmptyOne)
{
    open();
    EXPECT_EQ(m_lines->LogMessage(Kor_LogMTVarsPtr(), true, nullptr, 0), 0);
    EXPECT_NE(only_line().find("\"text\":\"\"}"), std::string::npos);
}

// Files ---------------------------------------------------------------------------------------------------
TEST_F(JsonLines, AFileThatCannotBeOpenedIsToldOfAndTheLogGoesOn)
{
    CapturedStream errors(stderr);
    const Kor_LogDestJsonLines unused(nullptr);
    Kor_LogDestJsonLines missing(path("missing\\test.jsonl").c_str());
    errors.stop();
    EXPECT_EQ(
        errors.text(),
        "Kor_LogDestJsonLines: failed to open file <(null)>\nKor_LogDestJsonLines: failed to open file <" +
            path("missing\\test.jsonl") + ">\n");
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_EQ(missing.LogMessage(Kor_LogMTVarsPtr(), true, "x", 1), -1);
    KorGLog.RegisterLogDestination(&missing);
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "x");
    EXPECT_EQ(m_directory.lines().size(), 1U);
}

TEST_F(JsonLines, WhoFollowsTheFileMayDoWithItWhatHeWants)
{
    open();
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "one");
    const HANDLE reader = ::CreateFileA(
        path().c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
        nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(reader, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(::CloseHandle(reader));
}

TEST_F(JsonLines, WhatIsThereAlreadyStays)
{
    write_file(path(), "{\"text\":\"of another run\"}\n{\"text\":\"killed in the mid");
    open();
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "new");
    const Lines all = lines();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0], "{\"text\":\"of another run\"}");
    EXPECT_EQ(all[1], "{\"text\":\"killed in the mid");
    EXPECT_EQ(field(all[2], "text"), "new");
}

TEST_F(JsonLines, AtItsSizeAFileIsRenamedAndNoLineIsLost)
{
    open(1, 20);
    write_long(0, 3000);
    EXPECT_EQ(numbers(), all_up_to(3000));
    EXPECT_GE(lines(numbered(3)).size(), 300U);
    for (int number = 1; number <= 4; ++number)
        EXPECT_LE(read_file(path(numbered(number))).size(), MEGABYTE) << number;
}

TEST_F(JsonLines, SoManyRenamedFilesAreKept)
{
    open(1, 2);
    write_long(0, 4000);
    EXPECT_TRUE(file_exists(path(numbered(2))));
    EXPECT_FALSE(file_exists(path(numbered(3))));
}

TEST_F(JsonLines, WithoutALimitNothingIsRenamed)
{
    open(0, 5);
    write_long(0, 1500);
    EXPECT_FALSE(file_exists(path(numbered(1))));
    EXPECT_EQ(lines().size(), 1500U);
}

TEST_F(JsonLines, AFileThatCannotBeRenamedSaysSoInALineOfJson)
{
    open(1, 2);
    const HANDLE held = ::CreateFileA(
        path().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(held, INVALID_HANDLE_VALUE);
    int written = 0;
    std::string notice;
    for (; written < 30000 && notice.empty(); written += 100)
    {
        write_long(written, written + 100);
        ::Sleep(10); // it is tried again a second later
        for (const std::string& line : lines())
            if (line.find("cannot be renamed") != std::string::npos)
                notice = line;
    }
    ::CloseHandle(held);
    EXPECT_EQ(notice.find("{\"time\":\""), 0U) << notice;
    EXPECT_EQ(field(notice, "text").find("*** Log file test.jsonl has reached its size limit"), 0U) << notice;
    EXPECT_NE(notice.find("\"level\":4,\"level_name\":\"WARNING\",\"package\":106,"), std::string::npos);
    EXPECT_NE(notice.find("\"bare\":true,"), std::string::npos);
}

TEST_F(JsonLines, ADiskThatIsFullCostsLinesAndNothingElse)
{
    open();
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "before");
    {
        Hook<WriteFileImport> write(
            [](HANDLE, const void*, DWORD, DWORD* written, OVERLAPPED*) -> BOOL
            {
                *written = 0;
                ::SetLastError(ERROR_DISK_FULL);
                return FALSE;
            });
        ASSERT_TRUE(write.installed());
        EXPECT_EQ(m_lines->LogMessage(Kor_LogMTVarsPtr(), true, "lost", 4), -1);
        EXPECT_EQ(write.calls(), 1);
    }
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "after");
    const Lines all = lines();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_NE(all[0].find("\"sequence\":1,"), std::string::npos);
    EXPECT_NE(all[1].find("\"sequence\":3,\"text\":\"after\""), std::string::npos); // the gap tells
}

TEST_F(JsonLines, BehindALineThatWasCutOffTheNextIsWhole)
{
    open();
    {
        Hook<WriteFileImport> write(
            [](HANDLE file, const void* bytes, DWORD, DWORD* written, OVERLAPPED*) -> BOOL
            {
                ::WriteFile(file, bytes, 20, written, nullptr);
                ::SetLastError(ERROR_DISK_FULL);
                return FALSE;
            });
        ASSERT_TRUE(write.installed());
        EXPECT_EQ(m_lines->LogMessage(Kor_LogMTVarsPtr(), true, "lost", 4), -1);
    }
    KorGLog.LogAt("a.cpp", "f", 1, 4, READER, "after");
    const Lines all = lines();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0].size(), 20U);
    EXPECT_EQ(field(all[1], "text"), "after");
}

TEST_F(JsonLines, EachLineIsOneWriteHoweverLongItIs)
{
    open();
    std::vector<DWORD> sizes;
    {
        Hook<WriteFileImport> write(
            [&sizes](HANDLE file, const void* bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped) -> BOOL
            {
                sizes.push_back(size);
                return ::WriteFile(file, bytes, size, written, overlapped);
            });
        ASSERT_TRUE(write.installed());
        EXPECT_EQ(m_lines->LogMessage(Kor_LogMTVarsPtr(), true, std::string(9000, '"').c_str(), 9000), 0);
    }
    ASSERT_EQ(sizes.size(), 1U);
    EXPECT_GT(sizes.front(), 18000U);
}

TEST_F(JsonLines, EightThreadsWriteWholeLinesAndLoseNone)
{
    open(1, 29);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t] { write_long(t * 400, (t + 1) * 400); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(numbers(), all_up_to(3200));
}

// Several processes ---------------------------------------------------------------------------------------
/// args: the file, the events to wait for and to set, how often, the first number.
KOR_CHILD(writes_lines_of_json_in_turns)
{
    KorGLog.Open("test.log", "viewer", false);
    Kor_LogDestJsonLines lines(args[0].c_str(), 1, 29);
    KorGLog.RegisterLogDestination(&lines);
    const NamedEvent mine(args[1]);
    const NamedEvent others(args[2]);
    const int rounds = std::atoi(args[3].c_str());
    int number = std::atoi(args[4].c_str());
    for (int round = 0; round < rounds; ++round)
    {
        if (!mine.wait(60000))
            return 1;
        mine.reset();
        for (int i = 0; i < 200; ++i, ++number)
            KorGLog.LogAt(
                "image.cpp", "load", 1, 4, 310, "%s", (std::to_string(number) + ' ' + std::string(1500, 'x')).c_str());
        others.set();
    }
    KorGLog.ClearAllLogDestinations();
    return 0;
}

// In turns, as Wine loses lines that two processes append at once.
TEST_F(JsonLines, TwoProcessesThatShareAFileLoseNoLine)
{
    const std::string a = unique_name("turn");
    const std::string b = unique_name("turn");
    const NamedEvent first(a);
    ChildOptions options = m_directory.for_child();
    options.arguments = {path(), a, b, "8", "0"};
    Child one("writes_lines_of_json_in_turns", options);
    options.arguments = {path(), b, a, "8", "1600"};
    Child two("writes_lines_of_json_in_turns", options);
    one.ensure_begun();
    two.ensure_begun();
    first.set();
    EXPECT_EQ(one.wait(120000).exit_code, 0U);
    EXPECT_EQ(two.wait(120000).exit_code, 0U);
    EXPECT_EQ(numbers(), all_up_to(3200));
    EXPECT_TRUE(file_exists(path(numbered(2))));
}
