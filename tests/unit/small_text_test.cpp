#include "core/small_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using kor::core::SmallText;

namespace
{
std::wstring text_of(const SmallText& text) { return std::wstring(std::wstring_view(text)); }

TEST(SmallText, PutsHexadecimalNumbersWithEightDigitsInLowerCase)
{
    EXPECT_EQ(text_of(SmallText().add_hex(0)), L"0x00000000");
    EXPECT_EQ(text_of(SmallText().add_hex(0x2A)), L"0x0000002a");
    EXPECT_EQ(text_of(SmallText().add_hex(0xC0000005)), L"0xc0000005");
    EXPECT_EQ(text_of(SmallText().add_hex(0xFEDCBA98)), L"0xfedcba98");
    EXPECT_EQ(text_of(SmallText().add_hex(0xFFFFFFFF)), L"0xffffffff");
    EXPECT_EQ(text_of(SmallText().add_hex(0x10000000)), L"0x10000000");
}

TEST(SmallText, PutsNumbersOneAfterTheOther)
{
    SmallText text;
    text.add_number(10).add(L'.').add_number(std::uint32_t{0xFFFFFFFF}).add(L'.').add_number(-7);
    EXPECT_EQ(text_of(text), L"10.4294967295.-7");
}

TEST(SmallText, CutsWhatDoesNotFit)
{
    SmallText text;
    for (int i = 0; i < 60; ++i)
        text.add_number(i % 10);
    EXPECT_EQ(text_of(text), L"0123456789012345678901234567890123456789");
}
} // namespace
