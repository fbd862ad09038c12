// log_text_test.cpp - the bytes that narrow and wide texts have in a log.

#include <gtest/gtest.h>

#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "Kor_Error.h"
#include "Kor_LogFile.h"
#include "Kor_PerfmonLogFile.h"
#include "captured_stream.h"
#include "log_directory.h"
#include "recording_destination.h"

namespace
{
using Lines = std::vector<std::string>;

// In UTF-16 and in UTF-8.
constexpr wchar_t WIDE[] = L"\u65e5\u672c";
const std::string UTF8 = "\xe6\x97\xa5\xe6\x9c\xac";

class LogText : public ::testing::Test
{
protected:
    LogText() : m_log(777, false) { m_log.Open("test.log", "viewer"); }

    /// The text of a message. No attribute: compilers know less of the run time's formats than it does.
    std::string text_of_message(const char* format, ...)
    {
        RecordingDestination seen;
        m_log.RegisterLogDestination(&seen);
        va_list args;
        va_start(args, format);
        m_log.SendLog(KOR_MSG_NO_HEADLINE, format, args, false);
        va_end(args);
        m_log.UnregisterLogDestination(&seen);
        return seen.messages.at(0).text;
    }

    const LogDirectory m_directory;
    Kor_LogFile m_log;
};

TEST_F(LogText, NarrowTextsGoInByteForByte)
{
    EXPECT_EQ(text_of_message("%s and %s", UTF8.c_str(), "\xe9\x80\xff"), UTF8 + " and \xe9\x80\xff");
    const std::string_view view("front.png, and what follows", 9);
    EXPECT_EQ(text_of_message("%.*s", static_cast<int>(view.size()), view.data()), "front.png");
}

TEST_F(LogText, WideTextsThatTheRunTimeCanConvertStayAsItConvertsThem)
{
    EXPECT_EQ(text_of_message("%ls, %lc", L"page \u00e9", L'\u00df'), "page \xe9, \xdf");
    EXPECT_EQ(text_of_message("%ls", static_cast<const wchar_t*>(nullptr)), "(null)");
    EXPECT_EQ(text_of_message("%hs %hS", "page", "page"), "page page");
}

TEST_F(LogText, OtherWideTextsGoInAsUtf8)
{
    EXPECT_EQ(text_of_message("%ls", WIDE), UTF8);
    EXPECT_EQ(text_of_message("%S", WIDE), UTF8);
    EXPECT_EQ(text_of_message("%ws", WIDE), UTF8);
    EXPECT_EQ(
        text_of_message("album %ls\n", L"\u0436\u0443\u0440\u043d\u0430\u043b"),
        "album \xd0\xb6\xd1\x83\xd1\x80\xd0\xbd\xd0\xb0\xd0\xbb\n");
    EXPECT_EQ(text_of_message("%ls", L"a\u00e9\u20ac\U0001F4D6"), "a\xc3\xa9\xe2\x82\xac\xf0\x9f\x93\x96");
}

TEST_F(LogText, OtherWideCharactersGoInAsUtf8)
{
    EXPECT_EQ(text_of_message("%lc%C%wc", WIDE[0], WIDE[1], WIDE[0]), UTF8 + UTF8.substr(0, 3));
    EXPECT_EQ(text_of_message("[%5lc|%-5lc]", WIDE[0], WIDE[0]), "[  \xe6\x97\xa5|\xe6\x97\xa5  ]");
}

TEST_F(LogText, HalfASurrogatePairIsAReplacementCharacter)
{
    const wchar_t broken[] = {L'a', wchar_t(0xD83D), L'b', wchar_t(0xDCD6), 0};
    EXPECT_EQ(
        text_of_message("<%ls>", broken), "<a\xef\xbf\xbd"
                                          "b\xef\xbf\xbd>");
    const wchar_t last[] = {L'a', wchar_t(0xD83D), 0};
    EXPECT_EQ(text_of_message("<%ls>", last), "<a\xef\xbf\xbd>");
    EXPECT_EQ(text_of_message("<%lc>", 0xD83D), "<\xef\xbf\xbd>");
}

TEST_F(LogText, EachTextIsConvertedByItself)
{
    EXPECT_EQ(text_of_message("%ls, %ls, %ls", L"\u00e9", WIDE, L"\u00e9"), "\xe9, " + UTF8 + ", \xe9");
}

TEST_F(LogText, AllOtherArgumentsAreThoseOfPrintf)
{
    EXPECT_EQ(
        text_of_message(
            "%d%% %ls %s %.2f %I64d|%*d|%-*.*s|%c %#x %e %p %hd %y %ls", 50, WIDE, "page", 1.25, std::int64_t{1} << 40,
            6, 42, 5, 3, "front", 'z', 255u, 1e100, reinterpret_cast<void*>(0x1234), 70000, L"end"),
        "50% " + UTF8 + " page 1.25 1099511627776|    42|fro  |z 0xff 1.000000e+100 0000000000001234 4464 y end");
}

TEST_F(LogText, WidthAndPrecisionCountBytesAndCutNoCharacter)
{
    const struct
    {
        const char* format;
        std::string expected;
    } rows[] = {
        {"[%9ls]", "[   " + UTF8 + "]"}, {"[%-9ls]", "[" + UTF8 + "   ]"}, {"[%6ls]", "[" + UTF8 + "]"},
        {"[%3ls]", "[" + UTF8 + "]"},    {"[%.6ls]", "[" + UTF8 + "]"},    {"[%.5ls]", "[\xe6\x97\xa5]"},
        {"[%.3ls]", "[\xe6\x97\xa5]"},   {"[%5.4ls]", "[  \xe6\x97\xa5]"}, {"[%-5.4ls]", "[\xe6\x97\xa5  ]"},
        {"[%.100ls]", "[" + UTF8 + "]"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(text_of_message(row.format, WIDE), row.expected) << row.format;
    EXPECT_EQ(text_of_message("[%*ls]", 9, WIDE), "[   " + UTF8 + "]");
    EXPECT_EQ(text_of_message("[%*ls]", -9, WIDE), "[" + UTF8 + "   ]");
    EXPECT_EQ(text_of_message("[%*.*ls]", 5, 4, WIDE), "[  \xe6\x97\xa5]");
    EXPECT_EQ(text_of_message("[%.*ls]", -1, WIDE), "[" + UTF8 + "]");
}

TEST_F(LogText, AMessageThatIsTooLongIsCutAtItsBytes)
{
    const std::wstring wide(3000, WIDE[0]);
    m_log.LogNoHeadline("%ls", wide.c_str());
    std::string expected;
    while (expected.size() < 2046)
        expected += UTF8.substr(0, 3);
    EXPECT_EQ(m_directory.text(), expected.substr(0, 2046) + "\n");

    write_file(m_directory.file("test.log"), "");
    const std::string narrow(2040, 'x');
    m_log.LogNoHeadline("%s%ls%d", narrow.c_str(), WIDE, 5); // 2047 characters
    m_log.LogNoHeadline("%s%ls", narrow.c_str(), WIDE);      // 2046
    m_log.LogNoHeadline("%s%s%s%ls", narrow.c_str(), narrow.c_str(), narrow.c_str(), WIDE);
    EXPECT_EQ(m_directory.text(), narrow + UTF8 + "\n" + narrow + UTF8 + "\n" + narrow + "xxxxxx" + "\n");
}

TEST_F(LogText, EveryWayIntoTheLogTakesWideTexts)
{
    const std::string head = "<time> WARNING (003) viewer (<pid>,<tid>)  ";
    const std::filesystem::path path = L"D:\\\u65e5\u672c\\front.png";
    m_log.StoreParams("album.cpp", "load", 7, 4, 3);
    m_log.Log("%ls", WIDE);
    m_log.LogNoHeadline("%ls", WIDE);
    m_log.PrintOrLog(nullptr, "%ls", WIDE);
    m_log.LogAt("album.cpp", "load", 8, 4, 3, "%ls", path.c_str());
    m_log.StoreParams("album.cpp", "load", 9, 4, 3);
    m_log.OSErrLog(2, "%ls:", WIDE);
    Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[4].rfind(head + "album.cpp(9) load -> " + UTF8 + ": ", 0), 0u) << lines[4];
    lines.pop_back();
    EXPECT_EQ(
        lines, (Lines{
                   head + "album.cpp(7) load -> " + UTF8, UTF8, UTF8,
                   head + "album.cpp(8) load -> D:\\" + UTF8 + "\\front.png"}));
}

TEST_F(LogText, WhatIsPrintedIsWhatIsLogged)
{
    const std::wstring wide(3000, WIDE[0]);
    CapturedStream out(stdout);
    m_log.PrintAndLog("%ls\n", WIDE);
    m_log.PrintOrLog(stdout, "%ls\n", wide.c_str()); // printed whole
    out.stop();

    EXPECT_EQ(m_directory.lines(), Lines{"<time> SEVERE  (000) viewer (<pid>,<tid>)   -> " + UTF8});
    const std::string text = out.text();
    EXPECT_EQ(text.substr(0, UTF8.size() + 1), UTF8 + "\n");
    EXPECT_EQ(text.size(), UTF8.size() + 1 + 9000 + 1);
}

TEST_F(LogText, TheOtherLogsAndTheErrorTakeWideTexts)
{
    KorGLog.Open("viewer");
    KorGLog.ReadFile();
    {
        Kor_PerfmonLogFile monitor(0);
        monitor.Open("perf.log", "viewer");
        monitor.LogNoHeadline("%ls\n", WIDE);
    }
    EXPECT_NE(m_directory.text("perf.log").find("\n" + UTF8 + "\n"), std::string::npos);

    {
        const Kor_LogDestFile constructed(m_directory.file("destination.log").c_str());
        Kor_LogDestFile destination(constructed);
        m_log.RegisterLogDestination(&destination);
        m_log.LogNoHeadline("%ls", WIDE);
        m_log.UnregisterLogDestination(&destination);
    }
    EXPECT_EQ(m_directory.text("destination.log"), UTF8 + "\n");

    RecordingDestination seen;
    KorGLog.RegisterLogDestination(&seen);
    KorGError.SetLogMsg("no file %ls", WIDE);
    KorGError.Log("Kor_Err::BOUNDS", Kor_Err::BOUNDS);
    KorGLog.UnregisterLogDestination(&seen);
    ASSERT_FALSE(seen.messages.empty());
    EXPECT_NE(seen.messages[0].text.find("no file " + UTF8), std::string::npos) << seen.messages[0].text;
}

TEST_F(LogText, TheCodePageOfALocaleThatTheHostSetCounts)
{
    ASSERT_NE(std::setlocale(LC_ALL, "English_United States.1252"), nullptr);
    EXPECT_EQ(text_of_message("%ls", L"\u20ac 5"), "\x80 5");
    EXPECT_EQ(text_of_message("%ls", WIDE), UTF8);
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(text_of_message("%ls", L"\u20ac 5"), "\xe2\x82\xac 5");
}

TEST_F(LogText, TheDecimalPointIsThatOfTheHostsLocale)
{
    ASSERT_NE(std::setlocale(LC_ALL, "German_Germany.1252"), nullptr);
    EXPECT_EQ(text_of_message("%.2f %8.1f %g", 1.5, -2.25, 0.5), "1,50     -2,3 0,5");
    std::setlocale(LC_ALL, "C");
    EXPECT_EQ(text_of_message("%.2f", 1.5), "1.50");
}
} // namespace
