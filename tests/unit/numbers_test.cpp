// numbers_test.cpp - numbers and words out of text that may hold anything.

#include "core/numbers.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

using namespace std::string_view_literals;

namespace
{
constexpr std::int64_t LARGEST = INT64_MAX;
constexpr std::int64_t SMALLEST = INT64_MIN;
} // namespace

TEST(TakeNumber, TakesBlanksASignAndDigits)
{
    struct Row
    {
        std::string_view text;
        std::int64_t value;
        std::string_view rest;
    };
    const Row rows[] = {
        {"0", 0, ""},
        {"7", 7, ""},
        {"42 rest", 42, " rest"},
        {"  \t\n\v\f\r42", 42, ""},
        {"+5", 5, ""},
        {"-5", -5, ""},
        {" -5-6", -5, "-6"},
        {"-0", 0, ""},
        {"007", 7, ""},
        {"12:3", 12, ":3"},
        {"3x", 3, "x"},
        {"0x10", 0, "x10"},
        {"1.5", 1, ".5"},
        {"1,2", 1, ",2"},
        {"1\0002"sv, 1, "\0002"sv},
        {"9223372036854775806", LARGEST - 1, ""},
        {"9223372036854775807", LARGEST, ""},
        {"9223372036854775808", LARGEST, ""},
        {"9223372036854775809", LARGEST, ""},
        {"9223372036854775810", LARGEST, ""},
        {"10000000000000000000", LARGEST, ""},
        {"18446744073709551616", LARGEST, ""},
        {"18446744073709551617x", LARGEST, "x"},
        {"-9223372036854775807", SMALLEST + 1, ""},
        {"-9223372036854775808", SMALLEST, ""},
        {"-9223372036854775809", SMALLEST, ""},
        {"-9223372036854775810", SMALLEST, ""},
        {"-18446744073709551616 x", SMALLEST, " x"},
        {"99999999999999999999999999999999999999 7", LARGEST, " 7"},
        {"000000000000000000000000000000000000012", 12, ""},
    };
    for (const Row& row : rows)
    {
        std::string_view text = row.text;
        std::int64_t value = 111;
        EXPECT_TRUE(kor::core::take_number(text, value)) << row.text;
        EXPECT_EQ(value, row.value) << row.text;
        EXPECT_EQ(text, row.rest) << row.text;
    }
}

TEST(TakeNumber, WithoutADigitTakesNothingButBlanks)
{
    struct Row
    {
        std::string_view text;
        std::string_view rest;
    };
    const Row rows[] = {
        {"", ""},
        {"   ", ""},
        {"x", "x"},
        {" \tx5", "x5"},
        {"-", "-"},
        {" +", "+"},
        {"- 5", "- 5"},
        {"--5", "--5"},
        {"+-5", "+-5"},
        {"-x", "-x"},
        {".5", ".5"},
        {"\0005"sv, "\0005"sv},
        {"\xA0"
         "5",
         "\xA0"
         "5"},
    };
    for (const Row& row : rows)
    {
        std::string_view text = row.text;
        std::int64_t value = 111;
        EXPECT_FALSE(kor::core::take_number(text, value)) << row.text;
        EXPECT_EQ(value, 111) << row.text;
        EXPECT_EQ(text, row.rest) << row.text;
    }
}

TEST(TakeNumber, OfOneDigitMoreThanFitsStopsAtTheEnds)
{
    const std::string end = "9223372036854775807";
    for (char digit = '0'; digit <= '9'; ++digit)
    {
        EXPECT_EQ(kor::core::number_at_front(end + digit), LARGEST) << digit;
        EXPECT_EQ(kor::core::number_at_front('-' + end + digit), SMALLEST) << digit;
    }
}

TEST(TakeNumber, OfAHundredThousandDigitsStopsAtTheEnds)
{
    const std::string nines(100'000, '9');
    std::string_view text = nines;
    std::int64_t value = 0;
    EXPECT_TRUE(kor::core::take_number(text, value));
    EXPECT_EQ(value, LARGEST);
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(kor::core::number_at_front('-' + nines), SMALLEST);
}

TEST(TakeNumber, DoesNotLookPastTheEndOfTheText)
{
    const std::string_view digits = "123456";
    EXPECT_EQ(kor::core::number_at_front(digits.substr(0, 3)), 123);
    EXPECT_EQ(kor::core::number_at_front(digits.substr(0, 0)), 0);
    EXPECT_EQ(kor::core::number_at_front(std::string_view()), 0);
}

TEST(NumberAtFront, OfNoNumberIsZero)
{
    for (const std::string_view text : {""sv, " "sv, "abc"sv, "-"sv, "+"sv, "- 7"sv, "x7"sv, ";7"sv})
        EXPECT_EQ(kor::core::number_at_front(text), 0) << text;
}

TEST(NumberAtFront, IgnoresWhatFollows)
{
    EXPECT_EQ(kor::core::number_at_front("7"), 7);
    EXPECT_EQ(kor::core::number_at_front(" \t-7abc"), -7);
    EXPECT_EQ(kor::core::number_at_front("12:3"), 12);
}

TEST(NumberAtFront, OfWideTextIsTheSame)
{
    struct Row
    {
        std::wstring_view text;
        std::int64_t value;
    };
    const Row rows[] = {
        {L"", 0},
        {L"7", 7},
        {L" \t-7abc", -7},
        {L"+12:3", 12},
        {L"abc", 0},
        {L"9223372036854775807", LARGEST},
        {L"9223372036854775808", LARGEST},
        {L"-9223372036854775808", SMALLEST},
        {L"-9223372036854775809", SMALLEST},
        {L"12\x0663", 12}, // digits of another script are none
        {L"\x0661\x0662", 0},
        {L"\x0137", 0}, // whose low byte is a digit
        {L"\xFF11", 0},
        {L"\xA0"
         L"7",
         0},
        {L"1\xD835\xDFCF", 1},
        {L"3\0004"sv, 3},
    };
    for (const Row& row : rows)
        EXPECT_EQ(kor::core::number_at_front(row.text), row.value) << (&row - rows);
    EXPECT_EQ(kor::core::number_at_front(std::wstring(100'000, L'9')), LARGEST);
    EXPECT_EQ(kor::core::number_at_front(L'-' + std::wstring(100'000, L'9')), SMALLEST);
    EXPECT_EQ(kor::core::number_at_front(std::wstring_view(L"123456").substr(0, 3)), 123);
    EXPECT_EQ(kor::core::number_at_front(std::wstring_view()), 0);
}

TEST(FractionAtFront, IsADecimalNumberWithAPoint)
{
    struct Row
    {
        std::wstring_view text;
        double value;
    };
    const Row rows[] = {
        {L"0", 0},
        {L"1.5", 1.5},
        {L" \t1.5", 1.5},
        {L"+1.5", 1.5},
        {L"-1.5", -1.5},
        {L".25", 0.25},
        {L"4.", 4},
        {L"1e3", 1000},
        {L"1.5E-1", 0.15},
        {L"10.125000", 10.125},
        {L"1.5x", 1.5},
        {L"1.5 2.5", 1.5},
        {L"1,5", 1},
        {L"1.5\xFF11", 1.5},
        {L"18446744073709551615.000000", 18446744073709551616.0},
    };
    for (const Row& row : rows)
        EXPECT_EQ(kor::core::fraction_at_front(row.text), row.value) << (&row - rows);
    EXPECT_EQ(kor::core::fraction_at_front(std::wstring_view(L"1.75").substr(0, 3)), 1.7);
}

TEST(FractionAtFront, OfNoFiniteNumberIsZero)
{
    for (const std::wstring_view text :
         {L"",   L" ",   L"x",    L"-",      L"+",   L".",    L"- 1",      L"--1",   L"+-1.5",  L"-+1.5",  L"++1.5",
          L",5", L"nan", L"-nan", L"nan(1)", L"inf", L"-inf", L"infinity", L"1e400", L"-1e400", L"\xFF11", L"\x0661"})
        EXPECT_EQ(kor::core::fraction_at_front(text), 0) << std::string(text.begin(), text.end());
    EXPECT_EQ(kor::core::fraction_at_front(std::wstring(100'000, L'9')), 0);
    EXPECT_EQ(kor::core::fraction_at_front(std::wstring_view()), 0);
}

TEST(FractionAtFront, OfManyDigitsIsAsNearAsADoubleGets)
{
    EXPECT_EQ(kor::core::fraction_at_front(L"0." + std::wstring(100'000, L'0') + L'1'), 0);
    EXPECT_EQ(kor::core::fraction_at_front(L"1." + std::wstring(100'000, L'0') + L'1'), 1);
    EXPECT_EQ(
        kor::core::fraction_at_front(
            L"17976931348623157081452742373170435679807056752584499659891747680315726078002853876058"
            L"95586327668781715404589535143824642343213268894641827684675467035375169860499105765512"
            L"82076245490090389328944075868508455133942304583236903222948165808559332123348274797826"
            L"204144723168738177180919299881250404026184124858368.000000"),
        std::numeric_limits<double>::max());
}

TEST(TakeWord, TakesBlanksAndAWord)
{
    struct Row
    {
        std::string_view text;
        std::string_view word;
        std::string_view rest;
    };
    const Row rows[] = {
        {"", "", ""},
        {" \t\r\n\v\f", "", ""},
        {"Net", "Net", ""},
        {"Net 3 7", "Net", " 3 7"},
        {" \tNet\t3", "Net", "\t3"},
        {"Net\r", "Net", "\r"},
        {"Net\v3", "Net", "\v3"},
        {"a(b)/c;d,e]", "a(b)/c;d,e]", ""},
        {"\xC3\xA4\xFF x", "\xC3\xA4\xFF", " x"},
    };
    for (const Row& row : rows)
    {
        std::string_view text = row.text;
        EXPECT_EQ(kor::core::take_word(text), row.word);
        EXPECT_EQ(text, row.rest);
    }
}

TEST(Blank, IsWhatScanningSkips)
{
    for (int c = CHAR_MIN; c <= CHAR_MAX; ++c)
    {
        const bool blank = c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
        EXPECT_EQ(kor::core::is_blank(static_cast<char>(c)), blank) << c;
    }
}

TEST(ClampToInt, KeepsWhatFitsAndStopsAtTheEnds)
{
    struct Row
    {
        std::int64_t value;
        int clamped;
    };
    const Row rows[] = {
        {0, 0},
        {-1, -1},
        {INT_MAX, INT_MAX},
        {INT_MAX + std::int64_t{1}, INT_MAX},
        {LARGEST, INT_MAX},
        {INT_MIN, INT_MIN},
        {INT_MIN - std::int64_t{1}, INT_MIN},
        {SMALLEST, INT_MIN},
        {std::int64_t{1} << 32, INT_MAX},
    };
    for (const Row& row : rows)
        EXPECT_EQ(kor::core::clamp_to_int(row.value), row.clamped) << row.value;
}
