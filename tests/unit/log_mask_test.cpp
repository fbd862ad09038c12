// log_mask_test.cpp - stand-ins for addresses and names in logs.

#include "core/log_mask.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

using kor::core::AddressBytes;
using kor::core::LogMask;
using kor::core::read_address;
using kor::core::read_log_line;

namespace
{
std::string masked(std::string_view text)
{
    LogMask mask;
    return mask.mask(text);
}
} // namespace

TEST(ReadAddress, ReadsIPv4AndIPv6AndNothingElse)
{
    for (const std::string_view text :
         {"0.0.0.0", "192.0.2.7", "255.255.255.255", "::", "::1", "1::", "2001:db8::1", "2001:DB8:0:0:0:0:0:1",
          "1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7::", "::2:3:4:5:6:7:8", "::ffff:192.0.2.7", "64:ff9b::192.0.2.33",
          "1:2:3:4:5:6:192.0.2.7"})
    {
        AddressBytes address;
        EXPECT_TRUE(read_address(text, address)) << text;
    }
    for (const std::string_view text :
         {"",
          ":",
          ":::",
          "1",
          "1.2.3",
          "1.2.3.4.5",
          "1.2.3.256",
          "1.2.3.4 ",
          " 1.2.3.4",
          "1..3.4",
          "1.2.3.",
          "0001.2.3.4",
          "1:2:3:4:5:6:7",
          "1:2:3:4:5:6:7:8:9",
          "1::2::3",
          "12345::",
          "g::",
          "1:2:3:4:5:6:7:192.0.2.7",
          "::192.0.2",
          ":1:2:3:4:5:6:7",
          "1:2:3:4:5:6:7:",
          "08:54:57",
          "1:2:3:4::5:6:7:8:9"})
    {
        AddressBytes address;
        EXPECT_FALSE(read_address(text, address)) << text;
    }
    AddressBytes mapped;
    AddressBytes plain;
    ASSERT_TRUE(read_address("::ffff:192.0.2.7", mapped) && read_address("192.0.2.7", plain));
    EXPECT_TRUE(mapped.is_ipv4 && plain.is_ipv4);
    EXPECT_TRUE(std::equal(mapped.bytes, mapped.bytes + 16, plain.bytes));
    AddressBytes six;
    ASSERT_TRUE(read_address("2001:db8::a:1", six));
    EXPECT_FALSE(six.is_ipv4);
    const std::uint8_t expected[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0a, 0, 1};
    EXPECT_TRUE(std::equal(expected, expected + 16, six.bytes));
}

TEST(LogMask, TheSameAddressHasTheSameStandInEverywhere)
{
    LogMask mask;
    EXPECT_EQ(
        mask.mask("ClientIP(192.0.2.7) and 192.0.2.9, then 192.0.2.7."),
        "ClientIP(ip-1-1-1-1) and ip-1-1-1-2, then ip-1-1-1-1.");
    EXPECT_EQ(mask.mask("[(7;192.0.2.9)]"), "[(7;ip-1-1-1-2)]");
    EXPECT_EQ(mask.mask("::ffff:192.0.2.7"), "ip-1-1-1-1");
    EXPECT_EQ(mask.addresses(), 2u);
}

TEST(LogMask, AddressesOfOneNetworkAreSeenToBeOfIt)
{
    LogMask mask;
    EXPECT_EQ(mask.mask("10.20.30.40"), "ip-1-1-1-1");
    EXPECT_EQ(mask.mask("10.20.31.40"), "ip-1-1-2-1");
    EXPECT_EQ(mask.mask("10.0.0.0"), "ip-1-0-0-0");
    EXPECT_EQ(mask.mask("10.0.0.7"), "ip-1-2-1-1");
    EXPECT_EQ(mask.mask("172.16.0.0"), "ip-2-1-0-0");
    EXPECT_EQ(mask.mask("2001:db8::1 2001:db8::2 2001:db8:1::1"), "ip6-1-1 ip6-1-2 ip6-2-1");
    EXPECT_EQ(mask.mask("2001:0DB8:0:0::1"), "ip6-1-1");
}

TEST(LogMask, WhatTellsNothingOfAnybodyStays)
{
    for (const std::string_view text :
         {"127.0.0.1", "0.0.0.0", "::1", "2026-11-21 08:54:57.106+00:00 INFO    (320) viewer (32,280)   -> x",
          "host.cpp(113)", "std::string", "Cafe::add(int)", "1.2.3", "1.2.3.4.5", "300.1.2.3", "v1.2.3.4x", "a1.2.3.4",
          "00:1a:2b:3c:4d:5e", "0x7ffe:10", "05/03 14:07:09.042", "12:30", "::", "a::b", "1::2::3"})
        EXPECT_EQ(masked(text), text);
}

TEST(LogMask, AnAddressIsSeenWhateverStandsAroundIt)
{
    EXPECT_EQ(masked("192.0.2.7:8080"), "ip-1-1-1-1:8080");
    EXPECT_EQ(masked("http://192.0.2.7/x"), "http://ip-1-1-1-1/x");
    EXPECT_EQ(masked("192.0.2.7."), "ip-1-1-1-1.");
    EXPECT_EQ(masked("192.0.2.7:"), "ip-1-1-1-1:");
    EXPECT_EQ(masked("[fe80::1%4]:80"), "[ip6-1-1%4]:80");
    EXPECT_EQ(masked("2001:db8::/32"), "ip6-1-1/32");
    EXPECT_EQ(masked("a=192.0.2.7,b=192.0.2.8"), "a=ip-1-1-1-1,b=ip-1-1-1-2");
    EXPECT_EQ(masked(std::string_view("\0\xFF 192.0.2.7\0", 13)), std::string_view("\0\xFF ip-1-1-1-1\0", 14));
}

TEST(LogMask, MaskingTwiceChangesNothingMore)
{
    LogMask mask;
    const std::string once = mask.mask("192.0.2.7 2001:db8::1 C:\\Users\\anna\\x");
    EXPECT_EQ(once, "ip-1-1-1-1 ip6-1-1 C:\\Users\\user-1\\x");
    EXPECT_EQ(mask.mask(once), once);
}

TEST(LogMask, NamesOfUsersAreReplacedAsWordsInAnyCase)
{
    LogMask mask;
    mask.add_user("anna");
    mask.add_user("Ben");
    mask.add_user("anna"); // known
    EXPECT_EQ(
        mask.mask("User ANNA on VM; DOM\\anna, annas, xanna, anna_2, (ben)"),
        "User user-1 on VM; DOM\\user-1, annas, xanna, anna_2, (user-2)");
    EXPECT_EQ(mask.users(), 2u);
}

TEST(LogMask, NamesMayHaveSeveralWordsAndOfTwoTheLongerIsMeant)
{
    LogMask mask;
    mask.add_user("Anna");
    mask.add_user("Anna Maria");
    mask.add_user("o'neil");
    mask.add_user("J\xC3\xB6rg");
    EXPECT_EQ(
        mask.mask("anna maria and Anna, O'Neil, J\xC3\xB6rg, Annamaria"),
        "user-2 and user-1, user-3, user-4, Annamaria");
}

TEST(LogMask, AccountsOfTheSystemAreNobody)
{
    LogMask mask;
    for (const std::string_view name : {"SYSTEM", "Local Service", "NETWORK SERVICE", "", "(null)"})
        mask.add_user(name);
    EXPECT_EQ(mask.mask("User SYSTEM on VM; Local Service"), "User SYSTEM on VM; Local Service");
    EXPECT_EQ(mask.users(), 0u);
}

TEST(LogMask, AFolderOfAUserTellsHisName)
{
    LogMask mask;
    EXPECT_EQ(mask.mask("C:\\Users\\anna\\front.png by anna"), "C:\\Users\\user-1\\front.png by user-1");
    EXPECT_EQ(mask.mask("/home/ben/x /home/ben"), "/home/user-2/x /home/user-2");
    EXPECT_EQ(mask.mask("\"C:\\\\Users\\\\carl\\\\x\""), "\"C:\\\\Users\\\\user-3\\\\x\"") << "as in a source";
    EXPECT_EQ(mask.mask("C:\\users\\Public\\x"), "C:\\users\\Public\\x");
    EXPECT_EQ(mask.mask("C:\\Users\\"), "C:\\Users\\");
}

TEST(LogMask, LearnsFromLinesWhoIsToBeReplaced)
{
    LogMask mask;
    mask.learn(
        read_log_line("===== viewer (32) Start Session at 2026-11-21 09:13:04.496+01:00, User anna on VM ====="));
    mask.learn(read_log_line("===== user ben on VM (32) start session ====="));
    mask.learn(read_log_line("2026-11-21 08:00:00.000+00:00 INFO    (320) v (1,2) ClientIP(desk.example)  -> x"));
    mask.learn(read_log_line("2026-11-21 08:00:00.000+00:00 INFO    (320) v (1,2) ClientIP(fe80::1%4)  -> x"));
    EXPECT_EQ(mask.mask("anna ben desk.example fe80::1%4"), "user-1 user-2 host-1 ip6-1-1%4");
}
