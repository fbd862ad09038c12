// plain_format_test.cpp - the plain conversions, each beside what the C library makes of it.

#include "core/plain_format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ios>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "guarded_buffer.h"

using kor::core::NOT_PLAIN;

namespace
{
/// The result, and the text in a buffer with room for that many characters.
struct Formatted
{
    int length;
    std::string text;
};

char decimal_point() { return '.'; }

Formatted plain(std::size_t size, const char* format, ...)
{
    GuardedBuffer buffer(size + 1);
    std::va_list args;
    va_start(args, format);
    const int length = kor::core::format_plain(buffer.data(), size, format, args, &decimal_point);
    va_end(args);
    EXPECT_TRUE(buffer.guards_hold());
    if (length >= 0)
    {
        EXPECT_EQ(buffer.data()[length], '\0');
        return {length, std::string(buffer.data(), static_cast<std::size_t>(length))};
    }
    return {length, std::string(buffer.text())};
}

/// What the run time that the library uses makes of it. No attribute here and above: compilers know less of its
/// formats than it does.
std::string runtime(const char* format, ...)
{
    char text[400];
    std::va_list args;
    va_start(args, format);
#if defined(_WIN32)
    const int length = ::_vsnprintf(text, sizeof text, format, args);
#else
    // By a pointer, which compilers do not check the format of.
    int (*const print)(char*, std::size_t, const char*, std::va_list) = &std::vsnprintf;
    const int length = print(text, sizeof text, format, args);
#endif
    va_end(args);
    return length < 0 ? "(failed)" : std::string(text, static_cast<std::size_t>(length));
}

/// For what has to be plain.
#define EXPECT_AS_PRINTF(...)                                                                    \
    do                                                                                           \
    {                                                                                            \
        const std::string expected = runtime(__VA_ARGS__);                                       \
        const Formatted formatted = plain(350, __VA_ARGS__);                                     \
        EXPECT_EQ(formatted.length, static_cast<int>(expected.size())) << first_of(__VA_ARGS__); \
        EXPECT_EQ(formatted.text, expected) << first_of(__VA_ARGS__);                            \
    } while (false)

template <class... Rest>
const char* first_of(const char* first, Rest...)
{
    return first;
}

} // namespace

TEST(PlainFormat, IsThatOfTheCLibrary)
{
    EXPECT_AS_PRINTF("%s", "");
    EXPECT_AS_PRINTF("no conversion\n%s", "");
    EXPECT_AS_PRINTF("%d%%", 5);
    EXPECT_AS_PRINTF("request %d of %s took %d us", 4711, "client", 250);
    EXPECT_AS_PRINTF("%c%c%c", 'a', '\0', 'z');
    for (const int value : {0, 1, -1, 9, 10, 99, 100, INT_MAX, INT_MIN})
    {
        EXPECT_AS_PRINTF("[%d|%i]", value, value);
        EXPECT_AS_PRINTF("[%u]", static_cast<unsigned int>(value));
    }
    for (const long value : {0L, -1L, LONG_MAX, LONG_MIN})
    {
        EXPECT_AS_PRINTF("[%ld|%li]", value, value);
        EXPECT_AS_PRINTF("[%lu]", static_cast<unsigned long>(value));
    }
    for (const long long value : {0LL, -1LL, LLONG_MAX, LLONG_MIN})
    {
        EXPECT_AS_PRINTF("[%lld|%lli]", value, value);
        EXPECT_AS_PRINTF("[%llu]", static_cast<unsigned long long>(value));
    }
    EXPECT_AS_PRINTF("%d %ld %lld %s %u %c %s", -1, -2L, -3LL, "four", 5u, '6', "seven");
}

TEST(PlainFormat, ANullTextIsWrittenInParentheses)
{
    const Formatted formatted = plain(20, "[%s]", static_cast<const char*>(nullptr));
    EXPECT_EQ(formatted.text, "[(null)]");
}

TEST(PlainFormat, WholeNumbersHaveFieldsAsInTheCLibrary)
{
    for (const char* const format :
         {"[%5d]", "[%-5d]", "[%05d]", "[%+d]", "[% d]", "[%+5d]", "[%-+5d]", "[%+05d]", "[% 05d]", "[%-05d]", "[%1i]",
          "[%020d]", "[%+ d]", "[%100d]"})
        for (const int value : {0, 1, -1, 42, -42, 12345, -12345, INT_MAX, INT_MIN})
            EXPECT_AS_PRINTF(format, value);
    for (const char* const format :
         {"[%x]", "[%X]", "[%08x]", "[%8X]", "[%-8x]", "[%2x]", "[%u]", "[%05u]", "[%-12u]", "[%012u]"})
        for (const unsigned value : {0u, 1u, 9u, 10u, 15u, 16u, 0xBEEFu, 0xdeadbeefu, UINT_MAX})
            EXPECT_AS_PRINTF(format, value);
    for (const long long value : {0LL, -1LL, 1LL << 40, LLONG_MAX, LLONG_MIN})
    {
        EXPECT_AS_PRINTF("[%5lld|%020lld|%-20lld|%+lld]", value, value, value, value);
        EXPECT_AS_PRINTF("[%llx|%016llX|%20llu]", value, value, value);
    }
    EXPECT_AS_PRINTF("[%lx|%8lX|%08ld]", 0xABCDL, 0xABCDL, -77L);
    for (const int value : {0, 1, -1, 32767, 32768, 65535, 65536, 70000})
        EXPECT_AS_PRINTF("[%hd|%6hd|%hu|%hx]", value, value, value, value);
    EXPECT_AS_PRINTF("[%*d|%-*d|%*d|%0*d]", 6, 42, 6, 42, -6, 42, 6, 42);
}

#if defined(_WIN32)
TEST(PlainFormat, TheLengthsAndPointersOfWindowsAreThoseOfItsCLibrary)
{
    for (const long long value : {0LL, -1LL, 1LL << 40, LLONG_MAX, LLONG_MIN})
    {
        EXPECT_AS_PRINTF("[%I64d|%20I64d|%016I64x|%I64u|%I64X]", value, value, value, value, value);
        EXPECT_AS_PRINTF("[%I32d|%I32u|%8I32x]", value, value, value);
        EXPECT_AS_PRINTF("[%Id|%Iu|%016IX]", value, value, value);
        EXPECT_AS_PRINTF("[%p]", value);
    }
}
#endif

TEST(PlainFormat, TextsHaveFieldsAsInTheCLibrary)
{
    for (const char* const format :
         {"[%5s]", "[%-5s]", "[%.3s]", "[%.0s]", "[%.s]", "[%5.3s]", "[%-5.3s]", "[%.10s]", "[%1s]", "[%100s]",
          "[%-100.2s]"})
        for (const char* const value : {"", "a", "abc", "abcde", "abcdefgh"})
            EXPECT_AS_PRINTF(format, value);
    EXPECT_AS_PRINTF("[%*s|%-*s|%*s|%.*s|%.*s|%*.*s]", 6, "ab", 6, "ab", -6, "ab", 1, "ab", -1, "ab", 4, 1, "ab");
    EXPECT_AS_PRINTF("[%3c|%-3c|%*c]", 'a', 'b', 4, 'c');
}

TEST(PlainFormat, ANumberWithAFractionIsThatOfTheCLibrary)
{
    for (const char* const format :
         {"[%f]", "[%.0f]", "[%.f]", "[%.1f]", "[%.2f]", "[%.3f]", "[%.9f]", "[%8.3f]", "[%-8.3f]", "[%08.3f]",
          "[%+.2f]", "[% .2f]", "[%+08.1f]", "[%1.1f]", "[%30f]"})
        for (const double value :
             {0.0, 1.0, -1.0, 0.1, -0.1, 0.3, 1.5625, 3.14159265358979, -2.71828182845905, 9.999, 99.999, 0.001, 1e-5,
              123456.789, -98765.4321, 0.9999999, 1.0 / 3, 2.0 / 3, 4095.0625})
        {
            if (plain(350, format, value).length != NOT_PLAIN)
                EXPECT_AS_PRINTF(format, value);
        }
    EXPECT_AS_PRINTF("%.1f of %.3f GB in %f s", 99.96, 1234.5678, 0.25);
    EXPECT_AS_PRINTF("%6.2f%%|%*.*f|%-*.*f", 12.346, 9, 2, 1.239, 9, 3, 1.2396);
    EXPECT_AS_PRINTF("%.2f %.2f", 0.999, 9.999); // the rounding goes on to the digits in front of the point
}

TEST(PlainFormat, ANumberThatRunTimesRoundInDifferentWaysIsNotPlain)
{
    EXPECT_EQ(plain(50, "%.0f", 0.5).length, NOT_PLAIN);
    EXPECT_EQ(plain(50, "%.0f", 2.5).length, NOT_PLAIN);
    EXPECT_EQ(plain(50, "%.1f", 0.25).length, NOT_PLAIN);
    EXPECT_EQ(plain(50, "%.2f", 1.005).length, NOT_PLAIN); // 1.00499999999999989..., with 17 digits 1.0049999999999999
    EXPECT_EQ(plain(50, "%.3f", 0.0625).length, NOT_PLAIN);
    EXPECT_EQ(plain(50, "%.3f", 0.5).length, 5);
    EXPECT_EQ(plain(50, "%.2f", 1.0049).length, 4);
}

TEST(PlainFormat, ANumberThatIsNoneOrHasManyDigitsIsNotPlain)
{
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double value :
         {infinity, -infinity, std::numeric_limits<double>::quiet_NaN(), 1e14, -1e14, 1e15, 1e300,
          std::numeric_limits<double>::max(), -0.0, -1e-9, -std::numeric_limits<double>::denorm_min()})
        EXPECT_EQ(plain(50, "%.2f", value).length, NOT_PLAIN) << value;
    EXPECT_EQ(plain(50, "%f", 1e9).length, NOT_PLAIN);
    EXPECT_EQ(plain(50, "%.2f", std::numeric_limits<double>::denorm_min()).text, "0.00");
    EXPECT_EQ(plain(50, "%.0f", 99999999999998.0).text, "99999999999998");
}

TEST(PlainFormat, TheDecimalPointIsTheOneThatIsAskedFor)
{
    const auto with = [](char (*point)(), const char* format, ...)
    {
        char text[50];
        std::va_list args;
        va_start(args, format);
        const int length = kor::core::format_plain(text, sizeof text - 1, format, args, point);
        va_end(args);
        return length == NOT_PLAIN ? std::string("not plain") : std::string(text);
    };
    EXPECT_EQ(with([]() -> char { return ','; }, "%.2f", 1.5), "1,50");
    EXPECT_EQ(with([]() -> char { return ','; }, "%.0f", 1.75), "2");
    EXPECT_EQ(with([]() -> char { return '\0'; }, "%.2f", 1.5), "not plain");
    EXPECT_EQ(with([]() -> char { std::abort(); }, "%d %s", 1, "not asked"), "1 not asked");
}

/// Of any number that has the bits for it; most are of the sizes that programs write.
double random_number(std::mt19937_64& random)
{
    const auto kind = random() % 4;
    if (kind == 0)
        return std::ldexp(static_cast<double>(random()), static_cast<int>(random() % 160) - 130);
    if (kind == 1) // decimals, which lie beside the middle as often as not
        return static_cast<double>(random() % 10'000'000) / 1000;
    if (kind == 2) // and those that lie on it
        return static_cast<double>(random() % 100'000) / 64;
    return static_cast<double>(random() % 1'000'000'000) / static_cast<double>(1 + random() % 100'000);
}

std::string random_field(std::mt19937_64& random, const char* flags)
{
    std::string field;
    for (const char* flag = flags; *flag != '\0'; ++flag)
        if (random() % 4 == 0)
            field += *flag;
    if (random() % 2 == 0)
        field += std::to_string(1 + random() % 25);
    return field;
}

TEST(PlainFormat, ManyRandomFormatsAndValuesAreThoseOfTheCLibrary)
{
    std::mt19937_64 random(20261122);
    int plain_ones = 0;
    constexpr int ROUNDS = 100'000;
    for (int i = 0; i < ROUNDS; ++i)
    {
        std::string format = "<%" + random_field(random, "-0+ ");
        if (random() % 4 != 0)
            format += "." + std::to_string(random() % 11);
        format += "f|%" + random_field(random, "-0+ ") + "d|%" + random_field(random, "-0") + "llx>";
        const double number = random() % 2 == 0 ? random_number(random) : -random_number(random);
        const int whole = static_cast<int>(random());
        const unsigned long long bits = random() >> (random() % 64);
        const Formatted formatted = plain(350, format.c_str(), number, whole, bits);
        if (formatted.length == NOT_PLAIN)
            continue;
        ++plain_ones;
        ASSERT_EQ(formatted.text, runtime(format.c_str(), number, whole, bits))
            << format << " of " << std::hexfloat << number;
    }
    EXPECT_GT(plain_ones, ROUNDS / 3);
}

TEST(PlainFormat, AnythingElseIsNotPlain)
{
    for (const char* const format :
         {"%#x",   "%.3d", "%.0d",    "%08.3d",   "%o",  "%g",   "%e",     "%E",   "%G",    "%a",   "%F",
          "%n",    "%hhd", "%zu",     "%jd",      "%td", "%ls",  "%lc",    "%hs",  "%llld", "%lls", "%S",
          "%C",    "%Z",   "%l",      "%",        "%5",  "%-",   "text %", "%d %", "%l%",   "%5%",  "%05s",
          "%+s",   "% s",  "%05c",    "%+u",      "% x", "%.2x", "%8p",    "%lp",  "%lf",   "%Lf",  "%.10f",
          "%#.0f", "%.3c", "%10000d", "%.10000s", "%y",  "%'d",  "%2$d",   "%I6d", "%I33d"})
        EXPECT_EQ(plain(50, format, 1, 2, 3).length, NOT_PLAIN) << format;
    EXPECT_EQ(plain(50, "%*d", 10000, 1).length, NOT_PLAIN);
    EXPECT_EQ(plain(50, "%*d", INT_MIN, 1).length, NOT_PLAIN);
    EXPECT_EQ(plain(50, "%5s", static_cast<const char*>(nullptr)).length, NOT_PLAIN);
}

TEST(PlainFormat, AFieldThatDoesNotFitIsCutAndSaysSo)
{
    for (const char* const format : {"%8d", "%08d", "%-8d", "ab%6d", "%20d", "%-20d"})
    {
        const std::string whole = runtime(format, 12345);
        for (std::size_t size = 0; size < whole.size(); ++size)
        {
            const Formatted cut = plain(size, format, 12345);
            EXPECT_EQ(cut.length, -1) << format;
            EXPECT_EQ(cut.text, whole.substr(0, size)) << format;
        }
        EXPECT_EQ(plain(whole.size(), format, 12345).text, whole);
    }
    for (const char* const format : {"%8s", "%-8s", "ab%6s", "%20s", "%-20s", "%8.4s", "%3s"})
    {
        const std::string whole = runtime(format, "abcde");
        for (std::size_t size = 0; size < whole.size(); ++size)
        {
            const Formatted cut = plain(size, format, "abcde");
            if (cut.length == NOT_PLAIN)
                continue; // where the end of the text had to be seen
            EXPECT_EQ(cut.length, -1) << format;
            EXPECT_EQ(cut.text, whole.substr(0, size)) << format;
        }
        EXPECT_EQ(plain(whole.size(), format, "abcde").text, whole);
    }
}

TEST(PlainFormat, ATextThatDoesNotFitIsCutAndSaysSo)
{
    const Formatted exact = plain(5, "%s%d", "abc", 12);
    EXPECT_EQ(exact.length, 5);
    EXPECT_EQ(exact.text, "abc12");
    for (const char* const format : {"%s%d", "%s%u", "%s%lu"})
    {
        const Formatted cut = plain(5, format, "abc", 123456789L);
        EXPECT_EQ(cut.length, -1);
        EXPECT_EQ(cut.text, "abc12");
    }
    EXPECT_EQ(plain(3, "%s", "abcd").length, -1);
    EXPECT_EQ(plain(3, "abcd").length, -1);
    EXPECT_EQ(plain(3, "abc%%").length, -1);
    EXPECT_EQ(plain(3, "abc%c", 'd').length, -1);
    EXPECT_EQ(plain(0, "%s", "").length, 0);
    EXPECT_EQ(plain(0, "a").length, -1);
}

TEST(PlainFormat, ReadsNoFurtherThanToTheCharacterThatIsCut)
{
    const std::vector<char> unterminated(4, 'a'); // of its own size, so that a checked build sees reads beyond it
    const Formatted cut = plain(3, "%s", unterminated.data());
    EXPECT_EQ(cut.length, -1);
    EXPECT_EQ(cut.text, "aaa");

    const char* const nowhere = reinterpret_cast<const char*>(std::uintptr_t{1});
    EXPECT_EQ(plain(3, "abcd%s", nowhere).text, "abc");
    EXPECT_EQ(plain(3, "%s%s", "abcd", nowhere).text, "abc");
    EXPECT_EQ(plain(3, "%d%s", 1234, nowhere).text, "123");
    EXPECT_EQ(plain(10, "%.4s", unterminated.data()).text, "aaaa");
    EXPECT_EQ(plain(10, "%6.4s", unterminated.data()).text, "  aaaa");
    EXPECT_EQ(plain(10, "%-6.4s", unterminated.data()).text, "aaaa  ");
    EXPECT_EQ(plain(10, "[%.0s]", nowhere).text, "[]");
}
