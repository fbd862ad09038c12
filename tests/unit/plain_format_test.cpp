// plain_format_test.cpp - the plain conversions, each beside what the C library makes of it.

#include "core/plain_format.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
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

Formatted plain(std::size_t size, const char* format, ...)
{
    GuardedBuffer buffer(size + 1);
    std::va_list args;
    va_start(args, format);
    const int length = kor::core::format_plain(buffer.data(), size, format, args);
    va_end(args);
    EXPECT_TRUE(buffer.guards_hold());
    if (length >= 0)
    {
        EXPECT_EQ(buffer.data()[length], '\0');
        return {length, std::string(buffer.data(), static_cast<std::size_t>(length))};
    }
    return {length, std::string(buffer.text())};
}

#define EXPECT_AS_PRINTF(...)                                                               \
    do                                                                                      \
    {                                                                                       \
        char expected[200];                                                                 \
        const int length = std::snprintf(expected, sizeof expected, __VA_ARGS__);           \
        const Formatted formatted = plain(150, __VA_ARGS__);                                \
        EXPECT_EQ(formatted.length, length);                                                \
        EXPECT_EQ(formatted.text, std::string(expected, static_cast<std::size_t>(length))); \
    } while (false)
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

TEST(PlainFormat, AnythingElseIsNotPlain)
{
    for (const char* const format :
         {"%5d", "%-5d", "%+d",   "% d",  "%#x", "%05d", "%.3s", "%*d",    "%x",   "%X",  "%o",
          "%p",  "%f",   "%g",    "%e",   "%n",  "%hd",  "%hhd", "%zu",    "%jd",  "%td", "%I64d",
          "%ls", "%lc",  "%llld", "%lls", "%S",  "%l",   "%",    "text %", "%d %", "%l%"})
        EXPECT_EQ(plain(50, format, 1, 2, 3).length, NOT_PLAIN) << format;
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
}
