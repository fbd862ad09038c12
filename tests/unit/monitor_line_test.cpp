// monitor_line_test.cpp - times, headlines and measurements of the performance-monitor log.

#include "core/monitor_line.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <limits>
#include <string>

#include "guarded_buffer.h"

using kor::core::BoundedText;
using kor::core::LocalTime;
using kor::core::MonitorHeadline;

namespace
{
std::string measurement_of(std::size_t size, const char* title, const char* types, ...)
{
    GuardedBuffer buffer(size);
    BoundedText text(buffer.data(), buffer.size());
    std::va_list args;
    va_start(args, types);
    kor::core::add_measurement(text, title, types, args);
    va_end(args);
    text.finish();
    EXPECT_TRUE(buffer.guards_hold());
    EXPECT_TRUE(buffer.is_terminated());
    return std::string(buffer.text());
}
} // namespace

TEST(MonitorTime, OfTheFileHasDayMonthAndMilliseconds)
{
    struct Row
    {
        LocalTime time;
        const char* expected;
    };
    const Row rows[] = {
        {{2024, 3, 5, 14, 7, 9, 42}, "05/03 14:07:09.042"},
        {{2024, 12, 31, 23, 59, 59, 999}, "31/12 23:59:59.999"},
        {{2024, 1, 1, 0, 0, 0, 0}, "01/01 00:00:00.000"},
    };
    for (const Row& row : rows)
    {
        GuardedBuffer buffer(32);
        EXPECT_EQ(kor::core::write_monitor_file_time({buffer.data(), buffer.size()}, row.time), 18);
        EXPECT_EQ(buffer.text(), row.expected);
    }
}

TEST(MonitorTime, OfTheConsoleHasHundredths)
{
    struct Row
    {
        int milliseconds;
        const char* expected;
    };
    for (const Row& row :
         {Row{0, "14:07:09.00"}, Row{9, "14:07:09.00"}, Row{42, "14:07:09.04"}, Row{999, "14:07:09.99"}})
    {
        GuardedBuffer buffer(32);
        const LocalTime time{2024, 3, 5, 14, 7, 9, row.milliseconds};
        EXPECT_EQ(kor::core::write_monitor_console_time({buffer.data(), buffer.size()}, time), 11);
        EXPECT_EQ(buffer.text(), row.expected);
    }
}

TEST(MonitorHeadline, HasTimeLevelApplicationProcessThreadAndContext)
{
    GuardedBuffer buffer(100);
    BoundedText text(buffer.data(), buffer.size());
    kor::core::add_monitor_headline(text, {"TIME", 5, "viewer", 4312, 5120, "A4"});
    text.finish();
    EXPECT_EQ(buffer.text(), "TIME 5 viewer[4312,5120]A4: =");

    GuardedBuffer other(100);
    BoundedText without(other.data(), other.size());
    kor::core::add_monitor_headline(without, {"TIME", 0, "", -1, 4294967295u, ""});
    without.finish();
    EXPECT_EQ(other.text(), "TIME 0 [-1,-1]: =");
}

TEST(Measurement, IsATitleAndNamedValues)
{
    EXPECT_EQ(measurement_of(200, "load", "fg", "cpu", 12.34, "ms", std::int64_t{1500}), "T=load,cpu=12.3,ms=1500\n");
    EXPECT_EQ(
        measurement_of(200, "load", "dmfgs", "a", -1, "b", 2, "c", -0.05, "d", std::int64_t{-3}, "e", "text"),
        "T=load,a=-1,b=2,c=-0.1,d=-3,e=text\n");
    EXPECT_EQ(measurement_of(200, "load", ""), "T=load\n");
    EXPECT_EQ(measurement_of(200, "", "s", "", ""), "T=,=\n");
}

TEST(Measurement, ValuesGoToTheEndsOfTheirTypes)
{
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    constexpr auto least = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(
        measurement_of(200, "t", "ddgg", "a", 2147483647, "b", -2147483647 - 1, "c", most, "d", least),
        "T=t,a=2147483647,b=-2147483648,c=9223372036854775807,d=-9223372036854775808\n");
    const std::string largest = measurement_of(500, "t", "f", "a", std::numeric_limits<double>::max());
    EXPECT_EQ(largest.substr(0, 10), "T=t,a=1797");
    EXPECT_EQ(largest.size(), 6 + 309 + 2 + 1u);
    EXPECT_EQ(measurement_of(200, "t", "f", "a", std::numeric_limits<double>::infinity()), "T=t,a=inf\n");
    EXPECT_EQ(
        measurement_of(200, "t", "fff", "a", 0.25, "b", 0.35, "c", 1e15), "T=t,a=0.2,b=0.3,c=1000000000000000.0\n");
}

TEST(Measurement, AnUnknownTypeTakesANameAndNoValue)
{
    EXPECT_EQ(measurement_of(200, "title", "x", "name"), "T=title,name=***** Unrecognized format ******\n");
    EXPECT_EQ(
        measurement_of(200, "t", "dxs", "a", 1, "b", "c", "text"),
        "T=t,a=1,b=***** Unrecognized format ******,c=text\n");
}

TEST(Measurement, NullTextsAreWrittenInParentheses)
{
    const char* const none = nullptr;
    EXPECT_EQ(measurement_of(200, none, "sd", none, none, none, 5), "T=(null),(null)=(null),(null)=5\n");
    EXPECT_EQ(measurement_of(200, "t", none), "T=t\n");
}

TEST(Measurement, IsCutAtTheEndOfItsRoom)
{
    const std::string text(5000, 'x');
    for (const std::size_t size : {1u, 2u, 10u, 2048u})
    {
        const std::string whole = "T=load,a=" + text;
        EXPECT_EQ(measurement_of(size, "load", "s", "a", text.c_str()), whole.substr(0, size - 1));
    }
}

TEST(Event, IsCompleteWithANewlineOr448Characters)
{
    EXPECT_FALSE(kor::core::is_event_complete(""));
    EXPECT_FALSE(kor::core::is_event_complete("text"));
    EXPECT_FALSE(kor::core::is_event_complete("one\ntwo"));
    EXPECT_TRUE(kor::core::is_event_complete("text\n"));
    EXPECT_TRUE(kor::core::is_event_complete("\n"));
    EXPECT_FALSE(kor::core::is_event_complete(std::string(447, 'x')));
    EXPECT_TRUE(kor::core::is_event_complete(std::string(448, 'x')));
    EXPECT_TRUE(kor::core::is_event_complete(std::string(5000, 'x')));
}
