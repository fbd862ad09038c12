#include "core/package_names.h"

#include <gtest/gtest.h>

#include <string>

using kor::core::is_package_name;
using kor::core::NamedPackages;
using kor::core::package_name_line;

TEST(PackageNames, OneWordWithoutControlCharactersIsAName)
{
    EXPECT_TRUE(is_package_name("Reader"));
    EXPECT_TRUE(is_package_name("R\xC3\xA4ume"));
    EXPECT_TRUE(is_package_name(std::string(39, 'n')));
    EXPECT_FALSE(is_package_name(std::string(40, 'n')));
    for (const char* const name : {"", "two words", "tab\tstop", "line\n", "\x1B[31m", "\x7F"})
        EXPECT_FALSE(is_package_name(name)) << name;
}

TEST(PackageNames, WhatIsWrittenReadsBack)
{
    const NamedPackages named(package_name_line(310, "Reader", "page viewer.exe"), 750);
    EXPECT_EQ(named.name(310, "page viewer.exe"), "Reader");
    EXPECT_EQ(named.all().size(), 1U);
}

TEST(PackageNames, TheLastOfAProgramCountsAndEachProgramHasItsOwn)
{
    const NamedPackages named(
        "310 Reader viewer.exe\r\n310 Pages archive.exe\n0 Zero viewer.exe\n310 Books viewer.exe", 750);
    EXPECT_EQ(named.name(310, "viewer.exe"), "Books");
    EXPECT_EQ(named.name(310, "archive.exe"), "Pages");
    EXPECT_EQ(named.name(0, "viewer.exe"), "Zero");
    EXPECT_EQ(named.name(1, "viewer.exe"), "");
    EXPECT_EQ(named.name(310, "other.exe"), "");
}

TEST(PackageNames, WhatIsNoSuchLineIsLeftOut)
{
    const std::string text =
        std::string("750 Beyond a.exe\n-1 Below a.exe\nReader 310 a.exe\n310\n310 Reader\n310 Reader \n\n") + "310 " +
        std::string(40, 'n') + " a.exe\n" + std::string("310 a\0b a.exe\n", 14) +
        "99999999999999999999 Huge a.exe\n# a remark\n5 Five a.exe";
    const NamedPackages named(text, 750);
    EXPECT_EQ(named.all().size(), 1U);
    EXPECT_EQ(named.name(5, "a.exe"), "Five");
}
