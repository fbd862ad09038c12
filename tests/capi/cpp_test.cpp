// lumlog.hpp, with the formatter that this compiler can be given.

#include "lumlog.hpp"

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "bounded.h"
#include "log_directory.h"

namespace
{
using Lines = std::vector<std::string>;
using namespace std::chrono_literals;

constexpr char UTF8[] = "Gr\xC3\xBC\xC3\x9F"
                        "e \xE6\x97\xA5\xE6\x9C\xAC";
constexpr wchar_t WIDE[] = L"Gr\u00fc\u00dfe \u65e5\u672c";

class Cpp : public ::testing::Test
{
protected:
    Cpp() { lum_open_with("test.log", "tool", LUM_NO_BANNERS); }

    /// What stands behind "->" in the lines, without the "->".
    Lines texts() const
    {
        Lines texts;
        for (const std::string& line : m_directory.lines())
            texts.push_back(line.find(" -> ") == std::string::npos ? line : line.substr(line.find(" -> ") + 4));
        return texts;
    }

    const LogDirectory m_directory{TO_FILE + "Tool 310 6\nPerfmon 109 5\n"};
};

int evaluated = 0;
int evaluate(int value)
{
    ++evaluated;
    return value;
}
} // namespace

// The macros ------------------------------------------------------------------------------------------
TEST_F(Cpp, ALineHasItsPlaceLevelAndPackage)
{
    LUM_LOG(LUM_WARNING, 310, "only %d of %d images fit", 12, 17);
    const int line = __LINE__ - 1;
    EXPECT_EQ(
        m_directory.lines(), Lines{
                                 "<time> WARNING (310) tool (<pid>,<tid>)  cpp_test.cpp(" + std::to_string(line) +
                                 ") TestBody -> only 12 of 17 images fit"});
}

TEST_F(Cpp, NothingIsEvaluatedForWhatNobodyWants)
{
    evaluated = 0;
    for (int i = 0; i < 2; ++i)
    {
        LUM_LOG(LUM_DEBUG, 310, "%d", evaluate(1));
        LUM_LOG_TEXT(LUM_DEBUG, 310, std::to_string(evaluate(1)));
        LUM_LOG_FORMAT(LUM_DEBUG, 310, "{}", evaluate(1));
        LUM_LOG_HEX(LUM_DEBUG, 310, "x", std::string(1, static_cast<char>(evaluate(1))));
        LUM_LOG_ERROR(LUM_DEBUG, 310, 2, std::to_string(evaluate(1)));
    }
    EXPECT_EQ(evaluated, 0) << "also by the first message, which finds no level that is known";
    EXPECT_EQ(texts(), Lines{});
}

TEST_F(Cpp, LevelAndPackageAreEvaluatedOnce)
{
    evaluated = 0;
    LUM_LOG(evaluate(LUM_WARNING), evaluate(310), "x");
    LUM_LOG_EVERY_N(1, evaluate(LUM_WARNING), evaluate(310), "x");
    EXPECT_EQ(evaluated, 4);
}

TEST_F(Cpp, AnArgumentThatLogsDoesNotChangeTheLine)
{
    const auto logs = []
    {
        LUM_LOG(LUM_ERROR, 2, "from inside");
        return 7;
    };
    LUM_LOG(LUM_WARNING, 310, "outside %d", logs());
    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].find("<time> WARNING (310)"), 0u);
}

TEST_F(Cpp, TheMacrosAreStatements)
{
    if (evaluate(0) == 0)
        LUM_LOG(LUM_WARNING, 310, "one");
    else
        LUM_LOG(LUM_WARNING, 310, "two");
    EXPECT_EQ(texts(), Lines{"one"});
}

// Texts -----------------------------------------------------------------------------------------------
TEST_F(Cpp, TextsOfEveryKindAreUtf8InTheFile)
{
    const std::string own = UTF8;
    LUM_LOG_TEXT(LUM_WARNING, 310, own);
    LUM_LOG_TEXT(LUM_WARNING, 310, std::string_view(own).substr(0, 7));
    LUM_LOG_TEXT(LUM_WARNING, 310, UTF8);
    LUM_LOG_TEXT(LUM_WARNING, 310, own.c_str());
    LUM_LOG_TEXT(LUM_WARNING, 310, WIDE);
    LUM_LOG_TEXT(LUM_WARNING, 310, std::wstring(WIDE));
    LUM_LOG_TEXT(LUM_WARNING, 310, std::wstring_view(WIDE));
    LUM_LOG_TEXT(LUM_WARNING, 310, std::filesystem::path(WIDE));
    LUM_LOG_TEXT(LUM_WARNING, 310, std::u16string_view(u"Gr\u00fc\u00dfe \u65e5\u672c"));
    LUM_LOG_TEXT(LUM_WARNING, 310, static_cast<const char*>(nullptr));
    LUM_LOG_TEXT(LUM_WARNING, 310, "100% of %s");
    const Lines all{
        UTF8,
        "Gr\xC3\xBC\xC3\x9F"
        "e",
        UTF8,
        UTF8,
        UTF8,
        UTF8,
        UTF8,
        UTF8,
        UTF8,
        "(null)",
        "100% of %s"};
    EXPECT_EQ(texts(), all);
}

#if defined(__cpp_char8_t)
TEST_F(Cpp, TextsOfChar8AreUtf8InTheFile)
{
    LUM_LOG_TEXT(LUM_WARNING, 310, u8"Gr\u00fc\u00dfe \u65e5\u672c");
    LUM_LOG_TEXT(LUM_WARNING, 310, std::u8string(u8"front.png"));
    LUM_LOG_TEXT(LUM_WARNING, 310, std::u8string_view(u8"front.png and more", 9));
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{:>10}", u8"front.png");
    LUM_LOG(LUM_WARNING, 310, "%s", lum::utf8(u8"front.png").c_str());
    EXPECT_EQ(texts(), (Lines{UTF8, "front.png", "front.png", " front.png", "front.png"}));
}
#endif

TEST_F(Cpp, WideTextsWithSurrogatesAreWholeAndHalvesAreReplaced)
{
    EXPECT_EQ(lum::utf8(std::wstring(L"\U0001F4D6")), "\xF0\x9F\x93\x96");
    EXPECT_EQ(
        lum::utf8(std::wstring{L'a', wchar_t(0xD83D), L'b'}), "a\xEF\xBF\xBD"
                                                              "b");
    EXPECT_EQ(lum::utf8(std::wstring{wchar_t(0xDC00), wchar_t(0xD83D)}), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(lum::utf8(L"\u007F\u0080\u07FF\u0800\uFFFF"), "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF");
    EXPECT_EQ(lum::utf8(std::u32string_view(U"").empty() ? "" : "x"), "");
}

TEST_F(Cpp, AConvertedTextGoesIntoAFormat)
{
    LUM_LOG(LUM_WARNING, 310, "cannot read %s", lum::utf8(std::filesystem::path(WIDE)).c_str());
    EXPECT_EQ(texts(), Lines{"cannot read " + std::string(UTF8)});
}

TEST_F(Cpp, AnErrorOfWindowsIsExplained)
{
    LUM_LOG_ERROR(LUM_WARNING, 310, 0xDEADBEEF, std::wstring(L"\u65e5"));
    EXPECT_EQ(texts(), Lines{"\xE6\x97\xA5 Unable to fetch message for system error -559038737."});
}

// Formats with braces ---------------------------------------------------------------------------------
TEST_F(Cpp, FormatsWithBracesTakeEveryKindOfText)
{
    const std::filesystem::path path(WIDE);
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{} {:>4} {:.1f} {}", 1, 2, 2.5, "x");
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{} {} {}", std::string(UTF8), std::string_view(UTF8), UTF8);
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{} {} {}", path, std::wstring_view(WIDE), std::wstring(WIDE));
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{0:_<10}|{0}", std::wstring(L"\u65e5"));
    LUM_LOG_FORMAT(LUM_WARNING, 310, "no arguments, 100% {{}}");
    const std::string three = std::string(UTF8) + ' ' + UTF8 + ' ' + UTF8;
    const Lines all = texts();
    ASSERT_EQ(all.size(), 5u);
    EXPECT_EQ(all[0], "1    2 2.5 x");
    EXPECT_EQ(all[1], three);
    EXPECT_EQ(all[2], three);
    EXPECT_EQ(all[3].substr(all[3].find('|')), "|\xE6\x97\xA5");
    EXPECT_EQ(all[4], "no arguments, 100% {}");
}

TEST_F(Cpp, ALongFormattedTextIsWhole)
{
    for (const std::size_t length : {1023u, 1024u, 1025u, 5000u})
        LUM_LOG_FORMAT(LUM_WARNING, 310, "{}", std::string(length, 'x'));
    EXPECT_EQ(
        texts(), (Lines{
                     std::string(1023, 'x'),
                     std::string(1024, 'x'),
                     std::string(1025, 'x'),
                     std::string(5000, 'x'),
                 }));
}

namespace
{
struct Throwing
{
};
} // namespace

template <>
struct LUM_FORMAT_NAMESPACE::formatter<Throwing>
{
    constexpr auto parse(format_parse_context& context) { return context.begin(); }
    template <class Context>
    auto format(const Throwing&, Context& context) const -> decltype(context.out())
    {
        throw std::runtime_error("100% wrong");
    }
};

TEST_F(Cpp, WhatAFormatterThrowsBecomesTheLine)
{
    LUM_LOG_FORMAT(LUM_WARNING, 310, "{}", Throwing());
    EXPECT_EQ(texts(), Lines{"!!! ERROR !!! Cannot format this message: 100% wrong"});
}

// Hexadecimal -----------------------------------------------------------------------------------------
TEST_F(Cpp, ARangeIsWrittenInHexadecimal)
{
    std::vector<unsigned char> bytes;
    for (int i = 0; i < 18; ++i)
        bytes.push_back(static_cast<unsigned char>(0x3C + i));
    LUM_LOG_HEX(LUM_WARNING, 310, "header", bytes);
    LUM_LOG_HEX(LUM_WARNING, 310, std::wstring(L"none"), bytes.data(), 0);
    const std::uint16_t numbers[] = {0x0102, 0xFFFE};
    LUM_LOG_HEX(LUM_WARNING, 310, "numbers", numbers);
    EXPECT_EQ(
        texts(), (Lines{
                     "header (18 bytes)",
                     "    0000  3c 3d 3e 3f 40 41 42 43  44 45 46 47 48 49 4a 4b  <=>?@ABCDEFGHIJK",
                     "    0010  4c 4d                                             LM",
                     "none (0 bytes)",
                     "numbers (4 bytes)",
                     "    0000  02 01 fe ff                                       ....",
                 }));
}

TEST_F(Cpp, ALongRangeIsCutAndSaysSo)
{
    LUM_LOG_HEX(LUM_WARNING, 310, "page", std::string(5000, 'x'));
    const Lines all = texts();
    ASSERT_EQ(all.size(), 258u);
    EXPECT_EQ(all[0], "page (5000 bytes)");
    EXPECT_EQ(all[256].substr(0, 9), "    0ff0 ");
    EXPECT_EQ(all[257], "    ... 904 more");
}

// Limits ----------------------------------------------------------------------------------------------
TEST_F(Cpp, APlaceIsWrittenOnceTheFirstTimesOrEveryNthTime)
{
    for (int i = 0; i < 7; ++i)
    {
        LUM_LOG_ONCE(LUM_WARNING, 310, "once %d", i);
        LUM_LOG_FIRST_N(2, LUM_WARNING, 310, "first %d", i);
        LUM_LOG_EVERY_N(3, LUM_WARNING, 310, "every %d", i);
        LUM_LOG_EVERY_N(0, LUM_DEBUG, 310, "no division");
        LUM_LOG_TEXT_ONCE(LUM_WARNING, 310, "text once");
        LUM_LOG_FORMAT_EVERY_N(4, LUM_WARNING, 310, "format {}", i);
    }
    EXPECT_EQ(
        texts(), (Lines{
                     "once 0",
                     "first 0",
                     "every 0",
                     "text once",
                     "format 0",
                     "first 1",
                     "every 3",
                     "format 4",
                     "every 6",
                 }));
}

TEST_F(Cpp, OnlyWhatIsWantedCounts)
{
    for (const int level : {LUM_DEBUG, LUM_DEBUG, LUM_WARNING, LUM_WARNING})
        LUM_LOG_ONCE(level, 310, "once");
    EXPECT_EQ(texts().size(), 1u);
}

TEST_F(Cpp, APlaceIsWrittenAtMostOnceInATime)
{
    for (int i = 0; i < 3; ++i)
    {
        LUM_LOG_EVERY_T(1h, LUM_WARNING, 310, "hour %d", i);
        LUM_LOG_EVERY_T(0s, LUM_WARNING, 310, "always %d", i);
        LUM_LOG_TEXT_EVERY_T(1h, LUM_WARNING, 310, "text");
        LUM_LOG_FORMAT_EVERY_T(1h, LUM_WARNING, 310, "format {}", i);
    }
    EXPECT_EQ(texts(), (Lines{"hour 0", "always 0", "text", "format 0", "always 1", "always 2"}));
}

TEST_F(Cpp, ATimeThatHasPassedOpensThePlaceAgain)
{
    lum::detail::EveryT limit;
    EXPECT_TRUE(limit.passes(1ms));
    const auto until = std::chrono::steady_clock::now() + 30s;
    bool again = false;
    while (!again && std::chrono::steady_clock::now() < until)
        again = limit.passes(1ms);
    EXPECT_TRUE(again);
}

TEST_F(Cpp, SeveralThreadsShareALimit)
{
    lum::detail::FirstN first;
    lum::detail::EveryN every;
    std::atomic<int> firsts{0};
    std::atomic<int> others{0};
    run_on_threads(
        4,
        [&](int)
        {
            for (int i = 0; i < 1000; ++i)
            {
                firsts += first.passes(10) ? 1 : 0;
                others += every.passes(100) ? 1 : 0;
            }
        });
    EXPECT_EQ(firsts, 10);
    EXPECT_EQ(others, 40);
}

// Scopes ----------------------------------------------------------------------------------------------
TEST_F(Cpp, AClientIsNamedForAScope)
{
    lum_set_client("192.0.2.1", 1);
    {
        const lum::ProcessClient client("192.0.2.7", 42);
        LUM_LOG(LUM_WARNING, 310, "inside");
        {
            const lum::ProcessClient none(nullptr);
            LUM_LOG(LUM_WARNING, 310, "none");
        }
    }
    LUM_LOG(LUM_WARNING, 310, "outside");
    lum_set_client(nullptr, 0);
    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[0].find("ClientIP(192.0.2.7) SessionId(42)"), std::string::npos);
    EXPECT_EQ(lines[1].find("ClientIP"), std::string::npos);
    EXPECT_NE(lines[2].find("ClientIP(192.0.2.1) SessionId(1)"), std::string::npos);
}

TEST_F(Cpp, AThreadIsNamedForAScope)
{
    {
        const lum::ThreadName name(L"Worker-\u65e5");
        LUM_LOG(LUM_WARNING, 310, "inside");
    }
    LUM_LOG(LUM_WARNING, 310, "outside");
    const Lines lines = m_directory.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_NE(lines[0].find("(<pid>,<tid>|Worker-\xE6\x97\xA5)"), std::string::npos);
    EXPECT_NE(lines[1].find("(<pid>,<tid>) "), std::string::npos);
}

TEST_F(Cpp, ATimerMeasuresAScope)
{
    lum_monitor_open("monitor.log", "tool");
    {
        const lum::Timer timer("album");
    }
    lum::Timer stopped("page");
    EXPECT_GE(stopped.stop(), 0);
    EXPECT_EQ(stopped.stop(), -1);
    lum::Timer moved("sheet");
    stopped = std::move(moved);
    EXPECT_EQ(moved.stop(), -1);
    EXPECT_GE(stopped.stop(), 0);
    lum::Timer unwanted("unwanted", LUM_DEBUG);
    EXPECT_EQ(unwanted.stop(), -1);
    const std::string text = m_directory.text("monitor.log");
    EXPECT_LT(text.find("T=album,ms="), text.find("T=page,ms="));
    EXPECT_LT(text.find("T=page,ms="), text.find("T=sheet,ms="));
    EXPECT_EQ(text.find("unwanted"), std::string::npos);
}

TEST_F(Cpp, ASpanOfAReportIsAScope)
{
    ASSERT_EQ(lum_session_start(0), LUM_OK);
    {
        const lum::Span span("Open", "front.png", 3);
    }
    const std::string path = m_directory.file("report.xml");
    ASSERT_EQ(lum_session_report(path.c_str()), LUM_OK);
    const std::string bytes = read_file(path);
    const std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / 2);
    EXPECT_NE(text.find(L"<event type='Open' subject='front.png' weight='3'"), std::wstring::npos);
    EXPECT_NE(text.find(L"<statentry type='Open' subject='front.png' count='1'>"), std::wstring::npos);
}

// Destinations ----------------------------------------------------------------------------------------
TEST_F(Cpp, ALambdaIsADestinationForAScope)
{
    std::string seen;
    {
        const auto owner = std::make_unique<int>(7);
        lum::Destination destination(
            [&, copy = std::make_unique<int>(*owner)](const lum_message& message)
            { seen += std::to_string(*copy) + ' ' + std::string(message.text, message.length); });
        EXPECT_TRUE(destination.added());
        LUM_LOG(LUM_WARNING, 310, "one");
    }
    LUM_LOG(LUM_WARNING, 310, "two");
    EXPECT_EQ(seen, "7 one\n");
}

TEST_F(Cpp, WhatALambdaThrowsBecomesALine)
{
    {
        lum::Destination destination([](const lum_message&) { throw std::runtime_error("from the lambda"); });
        LUM_LOG(LUM_WARNING, 310, "one");
    }
    {
        lum::Destination destination([](const lum_message&) { throw 7; });
        LUM_LOG(LUM_WARNING, 310, "two");
    }
    EXPECT_EQ(
        texts(), (Lines{
                     "one",
                     "A log destination has thrown an exception: from the lambda",
                     "two",
                     "A log destination has thrown an exception: of a type that is not known",
                 }));
}
