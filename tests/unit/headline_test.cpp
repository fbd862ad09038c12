// headline_test.cpp - time, location and client of a message, and the three headlines made of them.

#include "core/headline.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "guarded_buffer.h"

using kor::core::Buffer;
using kor::core::Headline;
using kor::core::LocalTime;
using kor::core::Zone;

namespace
{
Buffer in(GuardedBuffer& buffer) { return {buffer.data(), buffer.size()}; }

constexpr std::size_t HEADLINE_SIZE = 200;
constexpr std::size_t PART_SIZE = 100;

using Writer = int (*)(Buffer, const Headline&) noexcept;

struct Layout
{
    const char* name;
    Writer write;
};
const Layout layouts[] = {
    {"full", kor::core::write_full},
    {"partial WS", kor::core::write_partial_ws},
    {"partial Unix", kor::core::write_partial_unix},
};

/// A headline without thread name, context and location.
Headline bare_headline()
{
    Headline from{};
    from.time = "TIME";
    from.level = 4;
    from.level_name = "WARNING";
    from.package = 17;
    from.origin = "viewer (43,51";
    from.process = 43;
    from.thread = 51;
    from.milliseconds = 42;
    return from;
}

Headline whole_headline()
{
    Headline from = bare_headline();
    from.thread_name = "Loader";
    from.context = "ClientIP(h)";
    from.has_context = true;
    from.location = "Img(9)";
    from.has_location = true;
    return from;
}

std::string written(Writer write, const Headline& from)
{
    GuardedBuffer buffer(HEADLINE_SIZE);
    write(in(buffer), from);
    return std::string(buffer.text());
}
} // namespace

TEST(Zone, OfUtcAndEastOfItIsPositive)
{
    struct Row
    {
        long bias;
        char sign;
        int hours;
        int minutes;
    };
    const Row rows[] = {
        {0, '+', 0, 0},     {-1, '+', 0, 1},    {-59, '+', 0, 59}, {-60, '+', 1, 0}, {-120, '+', 2, 0},
        {-345, '+', 5, 45}, {-840, '+', 14, 0}, {1, '-', 0, 1},    {59, '-', 0, 59}, {60, '-', 1, 0},
        {210, '-', 3, 30},  {480, '-', 8, 0},   {720, '-', 12, 0},
    };
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.bias);
        const Zone zone = kor::core::zone_of_bias(row.bias);
        EXPECT_EQ(zone.sign, row.sign);
        EXPECT_EQ(zone.hours, row.hours);
        EXPECT_EQ(zone.minutes, row.minutes);
    }
}

TEST(TimeText, HasLeadingZerosAndTheZone)
{
    struct Row
    {
        LocalTime time;
        Zone zone;
        const char* expected;
    };
    const Row rows[] = {
        {{2024, 3, 5, 14, 7, 9, 42}, {'+', 2, 0}, "2024-03-05 14:07:09.042+02:00"},
        {{2024, 12, 31, 23, 59, 59, 999}, {'-', 3, 30}, "2024-12-31 23:59:59.999-03:30"},
        {{2000, 1, 1, 0, 0, 0, 0}, {'+', 0, 0}, "2000-01-01 00:00:00.000+00:00"},
        {{1601, 10, 20, 1, 2, 3, 7}, {'+', 14, 45}, "1601-10-20 01:02:03.007+14:45"},
        {{30827, 1, 2, 3, 4, 5, 6}, {'-', 0, 1}, "30827-01-02 03:04:05.006-00:01"},
        {{0, 0, 0, 0, 0, 0, 0}, {'+', 0, 0}, "0000-00-00 00:00:00.000+00:00"},
        {{9999, 99, 99, 99, 99, 99, 999}, {'-', 99, 99}, "9999-99-99 99:99:99.999-99:99"},
        {{10000, 1, 1, 0, 0, 0, 0}, {'+', 0, 0}, "10000-01-01 00:00:00.000+00:00"},
        {{2024, 100, 1, 0, 0, 0, 0}, {'+', 0, 0}, "2024-100-01 00:00:00.000+00:00"},
        {{2024, 1, 100, 0, 0, 0, 0}, {'+', 0, 0}, "2024-01-100 00:00:00.000+00:00"},
        {{2024, 1, 1, 100, 0, 0, 0}, {'+', 0, 0}, "2024-01-01 100:00:00.000+00:00"},
        {{2024, 1, 1, 0, 100, 0, 0}, {'+', 0, 0}, "2024-01-01 00:100:00.000+00:00"},
        {{2024, 1, 1, 0, 0, 100, 0}, {'+', 0, 0}, "2024-01-01 00:00:100.000+00:00"},
        {{2024, 1, 1, 0, 0, 0, 1000}, {'+', 0, 0}, "2024-01-01 00:00:00.1000+00:00"},
        {{2024, 1, 1, 0, 0, 0, 0}, {'+', 100, 0}, "2024-01-01 00:00:00.000+100:00"},
        {{2024, 1, 1, 0, 0, 0, 0}, {'+', 0, 100}, "2024-01-01 00:00:00.000+00:100"},
        {{-1, 1, 1, 0, 0, 0, 0}, {'+', 0, 0}, "-001-01-01 00:00:00.000+00:00"},
        {{2024, -1, 1, 0, 0, 0, -1}, {'+', 0, 0}, "2024--1-01 00:00:00.-01+00:00"},
    };
    for (const Row& row : rows)
    {
        GuardedBuffer buffer(PART_SIZE);
        const int length = kor::core::write_time(in(buffer), row.time, row.zone);
        EXPECT_EQ(buffer.text(), row.expected);
        EXPECT_EQ(length, static_cast<int>(std::strlen(row.expected)));
    }
}

TEST(TimeText, OfImpossibleValuesStaysInItsBuffer)
{
    const LocalTime time{INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN, INT_MIN};
    GuardedBuffer buffer(PART_SIZE);
    kor::core::write_time(in(buffer), time, {'-', INT_MIN, INT_MIN});
    EXPECT_EQ(buffer.text().substr(0, 24), "-2147483648--2147483648-");
    EXPECT_TRUE(buffer.is_terminated());
    EXPECT_TRUE(buffer.guards_hold());
}

TEST(TimeText, IsCutAtEverySizeInsideItsBuffer)
{
    const std::string whole = "2024-03-05 14:07:09.042+02:00";
    for (std::size_t size = 1; size <= 31; ++size)
    {
        SCOPED_TRACE(size);
        GuardedBuffer buffer(size);
        const int length = kor::core::write_time(in(buffer), {2024, 3, 5, 14, 7, 9, 42}, {'+', 2, 0});
        EXPECT_EQ(length, size >= 30 ? 29 : -1);
        EXPECT_EQ(buffer.text(), whole.substr(0, size - 1));
        EXPECT_TRUE(buffer.is_terminated());
        EXPECT_TRUE(buffer.guards_hold());
    }
}

TEST(Location, IsFileAndLineAndTheFunctionIfThereIsOne)
{
    struct Row
    {
        const char* file;
        int line;
        const char* function;
        const char* expected;
    };
    const Row rows[] = {
        {"Kor_Image", 210, "Load", "Kor_Image(210) Load"},
        {"Kor_Image", 210, "", "Kor_Image(210)"},
        {"", 1, "", "(1)"},
        {"", 1, "Load", "(1) Load"},
        {"Kor Image.cpp", 2147483647, "operator ()", "Kor Image.cpp(2147483647) operator ()"},
        {"Kor_Image", -1, "Load", "Kor_Image(-1) Load"},
    };
    for (const Row& row : rows)
    {
        GuardedBuffer buffer(PART_SIZE);
        const int length = kor::core::write_location(in(buffer), row.file, row.line, row.function);
        EXPECT_EQ(buffer.text(), row.expected);
        EXPECT_EQ(length, static_cast<int>(std::strlen(row.expected)));
    }
}

TEST(Location, Of100CharactersIsCutTo99)
{
    GuardedBuffer fits(PART_SIZE);
    EXPECT_EQ(kor::core::write_location(in(fits), "File", 12, std::string(90, 'f')), 99); // "File(12) " has 9
    EXPECT_EQ(fits.text(), "File(12) " + std::string(90, 'f'));

    GuardedBuffer cut(PART_SIZE);
    EXPECT_EQ(kor::core::write_location(in(cut), "File", 12, std::string(91, 'f')), -1);
    EXPECT_EQ(cut.text(), "File(12) " + std::string(90, 'f'));
    EXPECT_TRUE(cut.is_terminated());
    EXPECT_TRUE(cut.guards_hold());
}

TEST(Client, IsAddressAndSessionAsFarAsThereAreSome)
{
    struct Row
    {
        const char* ip;
        long session;
        const char* expected;
    };
    const Row rows[] = {
        {"10.0.0.7", 3, "ClientIP(10.0.0.7) SessionId(3)"},
        {"10.0.0.7", 0, "ClientIP(10.0.0.7)"},
        {"10.0.0.7", -1, "ClientIP(10.0.0.7)"},
        {"fe80::1", 1, "ClientIP(fe80::1) SessionId(1)"},
        {"", 0, "ClientIP()"},
        {nullptr, 5, "SessionId(5)"},
        {nullptr, 1, "SessionId(1)"},
        {nullptr, 2147483647, "SessionId(2147483647)"},
    };
    for (const Row& row : rows)
    {
        GuardedBuffer buffer(PART_SIZE);
        EXPECT_TRUE(kor::core::write_client(in(buffer), row.ip, row.session)) << row.expected;
        EXPECT_EQ(buffer.text(), row.expected);
    }
}

TEST(Client, ThatIsNoneLeavesTheBufferAlone)
{
    for (const long session : {0L, -1L, -2147483647L})
    {
        GuardedBuffer buffer(PART_SIZE);
        EXPECT_FALSE(kor::core::write_client(in(buffer), nullptr, session)) << session;
        EXPECT_TRUE(buffer.is_untouched()) << session;
    }
}

TEST(Client, OfALongAddressIsCut)
{
    GuardedBuffer buffer(PART_SIZE);
    EXPECT_TRUE(kor::core::write_client(in(buffer), std::string(300, 'a').c_str(), 7));
    EXPECT_EQ(buffer.text(), "ClientIP(" + std::string(90, 'a'));
    EXPECT_TRUE(buffer.is_terminated());
    EXPECT_TRUE(buffer.guards_hold());
}

TEST(Headline, OfAWholeMessageReadsAsLaidDown)
{
    Headline from{};
    from.time = "2024-03-05 14:07:09.042+02:00";
    from.level = 4;
    from.level_name = "WARNING";
    from.package = 17;
    from.origin = "viewer (4312,5120";
    from.process = 4312;
    from.thread = 5120;
    from.thread_name = "Loader";
    from.context = "ClientIP(10.0.0.7) SessionId(3)";
    from.has_context = true;
    from.location = "Kor_Image(210) Load";
    from.has_location = true;
    from.milliseconds = 42;

    const std::string full = "2024-03-05 14:07:09.042+02:00 WARNING (017) viewer (4312,5120|Loader) "
                             "ClientIP(10.0.0.7) SessionId(3) Kor_Image(210) Load ->";
    const std::string ws = "2024-03-05 14:07:09.042+02:00 [4312,5120 Loader]4"
                           "ClientIP(10.0.0.7) SessionId(3) Kor_Image(210) Load:";
    const std::string unix_like = "ClientIP(10.0.0.7) SessionId(3) [042][5120 Loader] 4 Kor_Image(210) Load:";

    GuardedBuffer buffer(HEADLINE_SIZE);
    EXPECT_EQ(kor::core::write_full(in(buffer), from), static_cast<int>(full.size()));
    EXPECT_EQ(buffer.text(), full);
    EXPECT_EQ(kor::core::write_partial_ws(in(buffer), from), static_cast<int>(ws.size()));
    EXPECT_EQ(buffer.text(), ws);
    EXPECT_EQ(kor::core::write_partial_unix(in(buffer), from), static_cast<int>(unix_like.size()));
    EXPECT_EQ(buffer.text(), unix_like);
}

TEST(Headline, LeavesOutWhatAMessageDoesNotHave)
{
    struct Row
    {
        bool thread_name;
        bool context;
        bool location;
        const char* full;
        const char* ws;
        const char* unix_like;
    };
    const Row rows[] = {
        {false, false, false, "TIME WARNING (017) viewer (43,51)   ->", "TIME [43,51]4:", "[042][51] 4:"},
        {true, false, false, "TIME WARNING (017) viewer (43,51|Loader)   ->",
         "TIME [43,51 Loader]4:", "[042][51 Loader] 4:"},
        {false, true, false, "TIME WARNING (017) viewer (43,51) ClientIP(h)  ->",
         "TIME [43,51]4ClientIP(h):", "ClientIP(h) [042][51] 4:"},
        {false, false, true, "TIME WARNING (017) viewer (43,51)  Img(9) ->",
         "TIME [43,51]4 Img(9):", "[042][51] 4 Img(9):"},
        {true, true, false, "TIME WARNING (017) viewer (43,51|Loader) ClientIP(h)  ->",
         "TIME [43,51 Loader]4ClientIP(h):", "ClientIP(h) [042][51 Loader] 4:"},
        {true, false, true, "TIME WARNING (017) viewer (43,51|Loader)  Img(9) ->",
         "TIME [43,51 Loader]4 Img(9):", "[042][51 Loader] 4 Img(9):"},
        {false, true, true, "TIME WARNING (017) viewer (43,51) ClientIP(h) Img(9) ->",
         "TIME [43,51]4ClientIP(h) Img(9):", "ClientIP(h) [042][51] 4 Img(9):"},
        {true, true, true, "TIME WARNING (017) viewer (43,51|Loader) ClientIP(h) Img(9) ->",
         "TIME [43,51 Loader]4ClientIP(h) Img(9):", "ClientIP(h) [042][51 Loader] 4 Img(9):"},
    };
    for (const Row& row : rows)
    {
        Headline from = whole_headline();
        if (!row.thread_name)
            from.thread_name = nullptr;
        from.has_context = row.context;
        from.context = row.context ? "ClientIP(h)" : "";
        from.has_location = row.location;

        EXPECT_EQ(written(kor::core::write_full, from), row.full);
        EXPECT_EQ(written(kor::core::write_partial_ws, from), row.ws);
        EXPECT_EQ(written(kor::core::write_partial_unix, from), row.unix_like);
    }
}

TEST(Headline, OfAThreadWithAnEmptyNameKeepsTheSeparator)
{
    Headline from = bare_headline();
    from.thread_name = "";
    EXPECT_EQ(written(kor::core::write_full, from), "TIME WARNING (017) viewer (43,51|)   ->");
    EXPECT_EQ(written(kor::core::write_partial_ws, from), "TIME [43,51 ]4:");
    EXPECT_EQ(written(kor::core::write_partial_unix, from), "[042][51 ] 4:");
}

TEST(Headline, ShowsEveryLevelInEightColumns)
{
    struct Row
    {
        int level;
        const char* name;
        const char* full;
        const char* ws;
    };
    const Row rows[] = {
        {0, "NONE", "TIME NONE    (017) viewer (43,51)   ->", "TIME [43,51]0:"},
        {1, "SEVERE", "TIME SEVERE  (017) viewer (43,51)   ->", "TIME [43,51]1:"},
        {2, "CRITICAL", "TIME CRITICAL(017) viewer (43,51)   ->", "TIME [43,51]2:"},
        {3, "ERROR", "TIME ERROR   (017) viewer (43,51)   ->", "TIME [43,51]3:"},
        {4, "WARNING", "TIME WARNING (017) viewer (43,51)   ->", "TIME [43,51]4:"},
        {5, "NOTICE", "TIME NOTICE  (017) viewer (43,51)   ->", "TIME [43,51]5:"},
        {6, "INFO", "TIME INFO    (017) viewer (43,51)   ->", "TIME [43,51]6:"},
        {7, "DEBUG", "TIME DEBUG   (017) viewer (43,51)   ->", "TIME [43,51]7:"},
    };
    for (const Row& row : rows)
    {
        Headline from = bare_headline();
        from.level = row.level;
        from.level_name = row.name;
        EXPECT_EQ(written(kor::core::write_full, from), row.full);
        EXPECT_EQ(written(kor::core::write_partial_ws, from), row.ws);
    }
}

TEST(Headline, ShowsNumbersAsPrintfPrintsThem)
{
    Headline from = bare_headline();
    from.level = 99;
    from.package = 0;
    from.origin = "viewer (-43,-1";
    from.process = -43;
    from.thread = 4294967295u;
    from.milliseconds = 7;
    EXPECT_EQ(written(kor::core::write_full, from), "TIME WARNING (000) viewer (-43,-1)   ->");
    EXPECT_EQ(written(kor::core::write_partial_ws, from), "TIME [-43,-1]99:");
    EXPECT_EQ(written(kor::core::write_partial_unix, from), "[007][-1] 99:");

    from.package = 749;
    EXPECT_EQ(written(kor::core::write_full, from), "TIME WARNING (749) viewer (-43,-1)   ->");
    from.package = 429496;
    EXPECT_EQ(written(kor::core::write_full, from), "TIME WARNING (429496) viewer (-43,-1)   ->");
    from.package = -1;
    EXPECT_EQ(written(kor::core::write_full, from), "TIME WARNING (-01) viewer (-43,-1)   ->");
}

TEST(Origin, IsApplicationProcessAndThread)
{
    struct Row
    {
        const char* application;
        int process;
        unsigned int thread;
        const char* expected;
    };
    const Row rows[] = {
        {"viewer", 4312, 5120, "viewer (4312,5120"},
        {"", 0, 0, " (0,0"},
        {"viewer", -43, 4294967295u, "viewer (-43,-1"},
    };
    for (const Row& row : rows)
    {
        GuardedBuffer buffer(HEADLINE_SIZE);
        const int length = kor::core::write_origin(in(buffer), row.application, row.process, row.thread);
        EXPECT_EQ(buffer.text(), row.expected);
        EXPECT_EQ(length, static_cast<int>(std::strlen(row.expected)));
    }
    GuardedBuffer small(10);
    EXPECT_EQ(kor::core::write_origin(in(small), "viewer", 4312, 5120), -1);
    EXPECT_EQ(small.text(), "viewer (4");
    EXPECT_TRUE(small.guards_hold());
}

TEST(Headline, OfMoreThan199CharactersIsCutAndSaysSo)
{
    for (const Layout& layout : layouts)
    {
        SCOPED_TRACE(layout.name);
        Headline from = whole_headline();
        from.location = "";
        const std::string without_location = written(layout.write, from);
        const std::string end = layout.write == &kor::core::write_full ? " ->" : ":";
        ASSERT_EQ(without_location.substr(without_location.size() - end.size()), end);
        const std::string front = without_location.substr(0, without_location.size() - end.size());

        const std::string fitting(199 - without_location.size(), 'x');
        from.location = fitting;
        GuardedBuffer fits(HEADLINE_SIZE);
        EXPECT_EQ(layout.write(in(fits), from), 199);
        EXPECT_EQ(fits.text(), front + fitting + end);
        EXPECT_TRUE(fits.is_terminated());
        EXPECT_TRUE(fits.guards_hold());

        const std::string longer = fitting + 'x';
        from.location = longer;
        GuardedBuffer cut(HEADLINE_SIZE);
        EXPECT_EQ(layout.write(in(cut), from), -1);
        EXPECT_EQ(cut.text(), (front + longer + end).substr(0, 199));
        EXPECT_TRUE(cut.is_terminated());
        EXPECT_TRUE(cut.guards_hold());
    }
}

TEST(Headline, IsCutAtEverySizeInsideItsBuffer)
{
    const Headline from = whole_headline();
    for (const Layout& layout : layouts)
    {
        const std::string whole = written(layout.write, from);
        for (std::size_t size = 1; size <= whole.size() + 2; ++size)
        {
            SCOPED_TRACE(std::string(layout.name) + " in " + std::to_string(size));
            GuardedBuffer buffer(size);
            const int length = layout.write(in(buffer), from);
            EXPECT_EQ(length, size > whole.size() ? static_cast<int>(whole.size()) : -1);
            EXPECT_EQ(buffer.text(), whole.substr(0, size - 1));
            EXPECT_TRUE(buffer.is_terminated());
            EXPECT_TRUE(buffer.guards_hold());
        }
    }
}

TEST(Headline, OfEndlessTextsStaysInItsBuffer)
{
    const std::string endless(100'000, 'e');
    Headline from = whole_headline();
    from.origin = endless;
    from.thread_name = endless.c_str();
    from.context = endless;
    from.location = endless;
    for (const Layout& layout : layouts)
    {
        SCOPED_TRACE(layout.name);
        GuardedBuffer buffer(HEADLINE_SIZE);
        EXPECT_EQ(layout.write(in(buffer), from), -1);
        EXPECT_EQ(buffer.text().size(), 199u);
        EXPECT_TRUE(buffer.is_terminated());
        EXPECT_TRUE(buffer.guards_hold());
    }
}

TEST(FileName, IsWhatFollowsTheLastBackslash)
{
    struct Row
    {
        const char* path;
        std::size_t skipped;
    };
    const Row rows[] = {
        {"C:\\src\\Kor_Image.cpp", 7}, {"\\Kor_Image.cpp", 1},       {"..\\Kor_Image.cpp", 3}, {"Kor_Image.cpp", 0},
        {"src/Kor_Image.cpp", 0},      {"C:\\src/Kor_Image.cpp", 3}, {"C:\\src\\", 7},         {"", 0},
    };
    for (const Row& row : rows)
        EXPECT_EQ(kor::core::file_name_of(row.path), row.path + row.skipped) << row.path; // the very pointer
}
