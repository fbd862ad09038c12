// conversion_test.cpp - the conversions of formats, and wide texts in UTF-8.

#include "core/conversion.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

using kor::core::Conversion;
using kor::core::read_conversion;

namespace
{
TEST(Conversion, HasAKindAndASize)
{
    const struct
    {
        const char* format;
        Conversion::Kind kind;
        std::size_t size;
    } rows[] = {
        {"%d and more", Conversion::OTHER, 2},
        {"%s", Conversion::OTHER, 2},
        {"%hs", Conversion::OTHER, 3},
        {"%hS", Conversion::OTHER, 3},
        {"%hC", Conversion::OTHER, 3},
        {"%c", Conversion::OTHER, 2},
        {"%ls", Conversion::WIDE_TEXT, 3},
        {"%ws", Conversion::WIDE_TEXT, 3},
        {"%S", Conversion::WIDE_TEXT, 2},
        {"%lS", Conversion::WIDE_TEXT, 3},
        {"%lc", Conversion::WIDE_CHARACTER, 3},
        {"%C", Conversion::WIDE_CHARACTER, 2},
        {"%I64d", Conversion::OTHER, 5},
        {"%I32x", Conversion::OTHER, 5},
        {"%Iu", Conversion::OTHER, 3},
        {"%I6d", Conversion::NONE, 3},
        {"%lld", Conversion::OTHER, 4},
        {"%Lf", Conversion::OTHER, 3},
        {"%-+ #010.3f|", Conversion::OTHER, 11},
        {"%%", Conversion::NONE, 2},
        {"%y", Conversion::NONE, 2},
        {"%zu", Conversion::NONE, 2},
        {"%", Conversion::NONE, 1},
        {"%5", Conversion::NONE, 2},
        {"%l", Conversion::NONE, 2},
        {"%.", Conversion::NONE, 2},
    };
    for (const auto& row : rows)
    {
        const Conversion conversion = read_conversion(row.format);
        EXPECT_EQ(conversion.kind, row.kind) << row.format;
        EXPECT_EQ(conversion.size, row.size) << row.format;
    }
}

TEST(Conversion, HasAWidthAndAPrecision)
{
    const struct
    {
        const char* format;
        int width;
        int precision;
        bool left;
        bool zeros;
    } rows[] = {
        {"%d", Conversion::UNSET, Conversion::UNSET, false, false},
        {"%7d", 7, Conversion::UNSET, false, false},
        {"%-7d", 7, Conversion::UNSET, true, false},
        {"%07d", 7, Conversion::UNSET, false, true},
        {"%.d", Conversion::UNSET, 0, false, false},
        {"%.15d", Conversion::UNSET, 15, false, false},
        {"%*.*s", Conversion::ARGUMENT, Conversion::ARGUMENT, false, false},
        {"%-0120.34s", 120, 34, true, true},
        {"%0s", Conversion::UNSET, Conversion::UNSET, false, true},
        {"%99999999999999999999d", 100'000'000, Conversion::UNSET, false, false},
    };
    for (const auto& row : rows)
    {
        const Conversion conversion = read_conversion(row.format);
        EXPECT_EQ(conversion.width, row.width) << row.format;
        EXPECT_EQ(conversion.precision, row.precision) << row.format;
        EXPECT_EQ(conversion.left, row.left) << row.format;
        EXPECT_EQ(conversion.zeros, row.zeros) << row.format;
    }
}

// Wide texts -----------------------------------------------------------------------
std::string utf8(const wchar_t* text, std::size_t most = SIZE_MAX)
{
    std::string bytes;
    kor::core::WideText characters(text, most);
    for (kor::core::Utf8 one; characters.next(one);)
        bytes.append(one.bytes, one.size);
    return bytes;
}

TEST(WideText, HasAllCharactersInUtf8)
{
    EXPECT_EQ(utf8(L""), "");
    EXPECT_EQ(utf8(L"\x01 ~\x7f"), "\x01 ~\x7f");
    EXPECT_EQ(utf8(L"\u0080\u00e9\u07ff"), "\xc2\x80\xc3\xa9\xdf\xbf");
    EXPECT_EQ(utf8(L"\u0800\ud7ff\ue000\uffff"), "\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf");
    const wchar_t pairs[] = {wchar_t(0xD800), wchar_t(0xDC00), wchar_t(0xDBFF), wchar_t(0xDFFF), 0};
    EXPECT_EQ(utf8(pairs), "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf");
}

TEST(WideText, HasAReplacementForWhatIsNoCharacter)
{
    const std::string replacement = "\xef\xbf\xbd";
    for (const unsigned unit : {0xD800u, 0xDBFFu, 0xDC00u, 0xDFFFu})
    {
        const wchar_t alone[] = {static_cast<wchar_t>(unit), 0};
        EXPECT_EQ(utf8(alone), replacement);
        const wchar_t between[] = {L'a', static_cast<wchar_t>(unit), L'b', 0};
        EXPECT_EQ(utf8(between), "a" + replacement + "b");
    }
    const wchar_t wrong_way[] = {wchar_t(0xDC00), wchar_t(0xD800), 0};
    EXPECT_EQ(utf8(wrong_way), replacement + replacement);
}

TEST(WideText, EndsWithTheLastCharacterThatFits)
{
    const wchar_t text[] = L"a\u00e9\u20ac";
    const char* const expected[] = {"", "a", "a", "a\xc3\xa9", "a\xc3\xa9", "a\xc3\xa9", "a\xc3\xa9\xe2\x82\xac"};
    for (std::size_t most = 0; most < 7; ++most)
        EXPECT_EQ(utf8(text, most), expected[most]) << most;
    EXPECT_EQ(utf8(L"\u20aca", 2), ""); // not the one behind it
    const wchar_t pair[] = {wchar_t(0xD83D), wchar_t(0xDCD6), 0};
    EXPECT_EQ(utf8(pair, 3), "");
    EXPECT_EQ(utf8(pair, 4), "\xf0\x9f\x93\x96");
}

TEST(WideText, IsReadNoFurtherThanItsBytesGo)
{
    const std::vector<wchar_t> unterminated(4, L'a'); // of its own size, so that a checked build sees reads beyond it
    EXPECT_EQ(utf8(unterminated.data(), 4), "aaaa");
    EXPECT_EQ(utf8(nullptr, 0), "");
    const std::vector<wchar_t> half(1, wchar_t(0xD83D));
    EXPECT_EQ(utf8(half.data(), 1), "");
    EXPECT_EQ(utf8(half.data(), 2), "");
}
} // namespace
