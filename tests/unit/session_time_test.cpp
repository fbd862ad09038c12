// session_time_test.cpp - times as reports have them, written and read.

#include "core/session_time.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

using kor::core::read_session_time;

namespace
{
constexpr std::int64_t MS_PER_DAY = 86'400'000;
constexpr std::int64_t LAST_READABLE = 32535215999999; // 3000-12-31 23:59:59.999

std::wstring written(std::int64_t milliseconds)
{
    wchar_t text[kor::core::SESSION_TIME_LENGTH];
    kor::core::write_session_time(text, milliseconds);
    return {text, kor::core::SESSION_TIME_LENGTH};
}

std::wstring two_digits(int value) { return (value < 10 ? L"0" : L"") + std::to_wstring(value); }
} // namespace

// Written ------------------------------------------------------------------------------
TEST(WriteSessionTime, HasTwentyThreeCharacters)
{
    struct Row
    {
        std::int64_t time;
        const wchar_t* expected;
    };
    const Row rows[] = {
        {0, L"1970-01-01 00:00:00.000"},
        {1, L"1970-01-01 00:00:00.001"},
        {-1, L"1969-12-31 23:59:59.999"},
        {-1000, L"1969-12-31 23:59:59.000"},
        {-MS_PER_DAY, L"1969-12-31 00:00:00.000"},
        {1706745599007, L"2024-01-31 23:59:59.007"},
        {1709164800000, L"2024-02-29 00:00:00.000"},
        {1709251200000, L"2024-03-01 00:00:00.000"},
        {951782400000, L"2000-02-29 00:00:00.000"},  // a century that is a leap year
        {4107542400000, L"2100-03-01 00:00:00.000"}, // and one that is none
        {4107542399999, L"2100-02-28 23:59:59.999"},
        {1735689599999, L"2024-12-31 23:59:59.999"},
        {2147483648000, L"2038-01-19 03:14:08.000"},
        {-62135596800000, L"0001-01-01 00:00:00.000"},
        {-62167219200000, L"0000-01-01 00:00:00.000"},
        {-62162035200000, L"0000-03-01 00:00:00.000"},
        {253402300799999, L"9999-12-31 23:59:59.999"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(written(row.time), row.expected) << row.time;
}

TEST(WriteSessionTime, BeyondTheFourDigitsOfTheYearStopsAtTheEnds)
{
    for (const std::int64_t time : {253402300800000, std::numeric_limits<std::int64_t>::max()})
        EXPECT_EQ(written(time), L"9999-12-31 23:59:59.999") << time;
    for (const std::int64_t time : {-62167219200001, std::numeric_limits<std::int64_t>::min()})
        EXPECT_EQ(written(time), L"0000-01-01 00:00:00.000") << time;
}

TEST(WriteSessionTime, SetsNoEnd)
{
    struct
    {
        wchar_t text[kor::core::SESSION_TIME_LENGTH];
        wchar_t behind[4] = {L'~', L'~', L'~', L'~'};
    } place;
    kor::core::write_session_time(place.text, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(std::wstring(place.behind, 4), L"~~~~");
}

/// Counts the days one by one, as a wall calendar does.
TEST(WriteSessionTime, NamesEachDayOfFourHundredYearsAndIsReadBack)
{
    constexpr int DAYS_OF_MONTH[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    std::int64_t time = 12 * 3'600'000 + 34 * 60'000 + 56'789;
    for (int year = 1970; year < 2370; ++year)
    {
        const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
        for (int month = 1; month <= 12; ++month)
        {
            const int days = DAYS_OF_MONTH[month - 1] + (leap && month == 2 ? 1 : 0);
            for (int day = 1; day <= days; ++day, time += MS_PER_DAY)
            {
                const std::wstring text = written(time);
                ASSERT_EQ(
                    text, std::to_wstring(year) + L'-' + two_digits(month) + L'-' + two_digits(day) + L" 12:34:56.789");
                ASSERT_EQ(read_session_time(text), static_cast<std::uint64_t>(time));
            }
        }
    }
    EXPECT_EQ(time / MS_PER_DAY, 146097);
}

// Read -----------------------------------------------------------------------------------
TEST(ReadSessionTime, ReadsAsUtc)
{
    struct Row
    {
        std::wstring_view text;
        std::uint64_t expected;
    };
    const Row rows[] = {
        {L"1970-01-01 00:00:00.000", 0},
        {L"1970-01-01 00:00:00.001", 1},
        {L"2024-01-31 23:59:59.007", 1706745599007},
        {L"2024-02-29 00:00:00.000", 1709164800000},
        {L"2100-02-29 00:00:00.000", 4107542400000}, // no leap year: 1 March
        {L"3000-12-31 23:59:59.999", LAST_READABLE},
    };
    for (const Row& row : rows)
        EXPECT_EQ(read_session_time(row.text), row.expected) << std::string(row.text.begin(), row.text.end());
}

TEST(ReadSessionTime, FieldsBeyondTheirRangeLeadIntoTheNext)
{
    struct Row
    {
        std::wstring_view text;
        std::wstring_view same;
    };
    const Row rows[] = {
        {L"2024-13-01 00:00:00.000", L"2025-01-01 00:00:00.000"},
        {L"2024-25-01 00:00:00.000", L"2026-01-01 00:00:00.000"},
        {L"2024-00-01 00:00:00.000", L"2023-12-01 00:00:00.000"},
        {L"2024--1-01 00:00:00.000", L"2023-11-01 00:00:00.000"},
        {L"2024-03-00 00:00:00.000", L"2024-02-29 00:00:00.000"},
        {L"2024-01-32 00:00:00.000", L"2024-02-01 00:00:00.000"},
        {L"2024-01-99 00:00:00.000", L"2024-04-08 00:00:00.000"},
        {L"2024-01-01 24:00:00.000", L"2024-01-02 00:00:00.000"},
        {L"2024-01-01 99:99:99.999", L"2024-01-05 04:40:39.999"},
        {L"2024-01-01 00:60:60.000", L"2024-01-01 01:01:00.000"},
        {L"1969-13-01 00:00:00.000", L"1970-01-01 00:00:00.000"},
    };
    for (const Row& row : rows)
    {
        const auto expected = read_session_time(row.same);
        ASSERT_TRUE(expected.has_value());
        EXPECT_EQ(read_session_time(row.text), expected) << std::string(row.text.begin(), row.text.end());
    }
}

TEST(ReadSessionTime, FieldsMayHaveFewerDigitsSignsAndBlanksInFront)
{
    constexpr std::uint64_t EXPECTED = 1704165723004; // 2024-01-02 03:22:03.004
    for (const std::wstring_view text :
         {L"2024-01-02 03:22:03.004", L"2024- 1- 2  3:22: 3.  4", L"2024-+1-+2 +3:22:+3.+04",
          L"2024-1-2 3:22:03.004567", L"2024-01-02\t03:22:03.004", L"2024-01-0203:22:03.004x",
          L"2024-01-02   3:22:3.004", L" 2024-01-02 3:22:03.004", L"2024-01-02 03:22:3.004 ",
          L"2024-01-02 03:22:03.4  ", L"2024-01-02 03:22:03.004"})
    {
        ASSERT_EQ(text.size(), 23u);
        EXPECT_EQ(read_session_time(text), EXPECTED) << std::string(text.begin(), text.end());
    }
}

TEST(ReadSessionTime, OfAnotherLengthIsNone)
{
    const std::wstring whole = L"2024-01-31 23:59:59.0070";
    for (std::size_t length = 0; length <= whole.size(); ++length)
        EXPECT_EQ(read_session_time(whole.substr(0, length)).has_value(), length == 23) << length;
    EXPECT_FALSE(read_session_time(L"2024-01-31 23:59:59.007" + std::wstring(100'000, L'0')).has_value());
}

TEST(ReadSessionTime, WithAnotherSeparatorIsNone)
{
    const std::wstring whole = L"2024-01-31 23:59:59.007";
    ASSERT_TRUE(read_session_time(whole).has_value());
    for (const std::size_t place : {4u, 7u, 10u, 13u, 16u, 19u})
    {
        for (const wchar_t other : {L'/', L'-', L':', L'.', L',', L'T', L'_', L'0', L'+', L'\0', L'\xFF0D', L'\xA0'})
        {
            std::wstring text = whole;
            if (text[place] == other)
                continue;
            text[place] = other;
            EXPECT_FALSE(read_session_time(text).has_value()) << place << ' ' << static_cast<int>(other);
        }
    }
}

TEST(ReadSessionTime, WithoutADigitInEveryFieldIsNone)
{
    for (const std::wstring_view text :
         {L"    -01-31 23:59:59.007", L"2024-  -31 23:59:59.007", L"2024-01-xx 23:59:59.007",
          L"2024-01-31 --:59:59.007", L"2024-01-31 23:- :59.007", L"2024-01-31 23:59:+ .007",
          L"2024-01-31 23:59:59.xyz", L"2024-01-31 23:59:59.   ", L"2024-01-31 23:59:59.-  ",
          L"2024-01-31 23:59:59    ", L"\x0662\x0660\x0662\x0664-01-31 23:59:59.007", L"                       ",
          L"xxxxxxxxxxxxxxxxxxxxxxx", L"0x24-01-31 23:59:59.007"})
    {
        ASSERT_EQ(text.size(), 23u);
        EXPECT_FALSE(read_session_time(text).has_value()) << std::string(text.begin(), text.end());
    }
    EXPECT_FALSE(read_session_time(std::wstring(23, L'\0')).has_value());
}

TEST(ReadSessionTime, OutsideOfWhatTheCalendarHoldsIsNone)
{
    for (const std::wstring_view text :
         {L"1969-12-31 23:59:59.999", L"1970-01-01 00:00:00.-07", L"1970-01-00 00:00:00.000",
          L"1970-00-31 00:00:00.000", L"1970-01-01 -1:00:00.000", L"0000-00-00 00:00:00.000",
          L"-999-01-31 23:59:59.007", L"1601-01-01 00:00:00.000", L"3001-01-01 00:00:00.000",
          L"3000-12-31 23:59:60.000", L"3000-13-01 00:00:00.000", L"9999-12-31 23:59:59.999",
          L"9999-99-99 99:99:99.999"})
    {
        ASSERT_EQ(text.size(), 23u);
        EXPECT_FALSE(read_session_time(text).has_value()) << std::string(text.begin(), text.end());
    }
}

TEST(UpdateSessionTime, ChangesTheMillisecondsWithinASecondAlone)
{
    struct Row
    {
        std::int64_t from;
        std::int64_t to;
        const wchar_t* expected; // null: it takes more than that
    };
    const Row rows[] = {
        {1706688000000, 1706688000000, L"2024-01-31 08:00:00.000"},
        {1706688000000, 1706688000007, L"2024-01-31 08:00:00.007"},
        {1706688000999, 1706688000123, L"2024-01-31 08:00:00.123"},
        {1706688000000, 1706688001000, nullptr},
        {1706688000000, 1706687999999, nullptr},
        {-1, -1000, L"1969-12-31 23:59:59.000"},
        {-1, 0, nullptr},
        {kor::core::LAST_SESSION_TIME, kor::core::LAST_SESSION_TIME - 999, L"9999-12-31 23:59:59.000"},
        {kor::core::LAST_SESSION_TIME + 1, kor::core::LAST_SESSION_TIME + 2, nullptr},
        {kor::core::FIRST_SESSION_TIME - 1, kor::core::FIRST_SESSION_TIME - 2, nullptr},
    };
    for (const Row& row : rows)
    {
        wchar_t text[kor::core::SESSION_TIME_LENGTH];
        kor::core::write_session_time(text, row.from);
        const std::wstring before(text, std::size(text));
        EXPECT_EQ(kor::core::update_session_time(text, row.from, row.to), row.expected != nullptr) << row.to;
        EXPECT_EQ(std::wstring(text, std::size(text)), row.expected == nullptr ? before : row.expected) << row.to;
    }
}

TEST(ReadSessionTime, ReadsBackWhatIsWritten)
{
    for (std::int64_t time = 0; time <= LAST_READABLE; time += 9'876'543'217)
        ASSERT_EQ(read_session_time(written(time)), static_cast<std::uint64_t>(time));
    EXPECT_EQ(read_session_time(written(LAST_READABLE)), static_cast<std::uint64_t>(LAST_READABLE));
    EXPECT_FALSE(read_session_time(written(LAST_READABLE + 1)).has_value());
    EXPECT_FALSE(read_session_time(written(-1)).has_value());
}
