// address_test.cpp - which addresses a mask or a prefix takes in.

#include "core/address.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <iterator>

using kor::core::IPV6_BYTES;
using kor::core::Ipv6Bytes;
using kor::core::Prefix;

namespace
{
std::uint32_t network_order(const std::uint8_t (&octets)[4])
{
    std::uint32_t value = 0;
    std::memcpy(&value, octets, sizeof octets);
    return value;
}

/// An address with a guard byte on either side.
struct GuardedAddress
{
    std::uint8_t before = 0x5A;
    Ipv6Bytes bytes = {};
    std::uint8_t after = 0x5A;

    explicit GuardedAddress(std::uint8_t fill) { std::fill(std::begin(bytes), std::end(bytes), fill); }
    bool guards_hold() const { return before == 0x5A && after == 0x5A; }
};

bool bit_is_set(const Ipv6Bytes& bytes, int bit) { return (bytes[bit / 8] & (0x80 >> (bit % 8))) != 0; }
} // namespace

TEST(Ipv4Mask, FollowsFromTheTrailingZeroOctets)
{
    struct Row
    {
        std::uint8_t address[4];
        std::uint8_t mask[4];
    };
    const Row rows[] = {
        {{10, 0, 0, 0}, {255, 0, 0, 0}},
        {{255, 0, 0, 0}, {255, 0, 0, 0}},
        {{10, 1, 0, 0}, {255, 255, 0, 0}},
        {{192, 168, 0, 0}, {255, 255, 0, 0}},
        {{10, 1, 2, 0}, {255, 255, 255, 0}},
        {{10, 0, 2, 0}, {255, 255, 255, 0}},
        {{10, 1, 2, 3}, {255, 255, 255, 255}},
        {{10, 0, 0, 1}, {255, 255, 255, 255}},
        {{10, 0, 2, 1}, {255, 255, 255, 255}},
        {{0, 0, 0, 1}, {255, 255, 255, 255}},
        {{255, 255, 255, 255}, {255, 255, 255, 255}},
        {{0, 0, 0, 0}, {255, 0, 0, 0}},
    };
    for (const Row& row : rows)
        EXPECT_EQ(kor::core::ipv4_mask(network_order(row.address)), network_order(row.mask))
            << int{row.address[0]} << '.' << int{row.address[1]} << '.' << int{row.address[2]} << '.'
            << int{row.address[3]};
}

TEST(Ipv6Prefix, OfEveryLengthCountsItsBits)
{
    const std::uint8_t partial_masks[] = {0, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE};
    for (int bits = 0; bits <= 127; ++bits)
    {
        SCOPED_TRACE(bits);
        Prefix prefix{-1, 0xFFFFFFFF};
        ASSERT_TRUE(kor::core::ipv6_prefix(bits, prefix));
        EXPECT_EQ(prefix.bytes, bits / 8);
        EXPECT_EQ(prefix.partial_mask & 0xFF, partial_masks[bits % 8]);
        EXPECT_EQ(kor::core::prefix_bits(prefix), bits);
    }
}

TEST(Ipv6Prefix, OfEveryLengthKeepsJustItsBits)
{
    for (int bits = 0; bits <= 127; ++bits)
    {
        SCOPED_TRACE(bits);
        Prefix prefix{};
        ASSERT_TRUE(kor::core::ipv6_prefix(bits, prefix));
        for (const std::uint8_t fill : {std::uint8_t{0xFF}, std::uint8_t{0xA5}, std::uint8_t{0x00}})
        {
            const GuardedAddress before(fill);
            GuardedAddress address(fill);
            kor::core::apply_prefix(address.bytes, prefix);
            for (int bit = 0; bit < 128; ++bit)
                EXPECT_EQ(bit_is_set(address.bytes, bit), bit < bits && bit_is_set(before.bytes, bit)) << bit;
            EXPECT_TRUE(address.guards_hold());
        }
    }
}

TEST(Ipv6Prefix, OfNoLengthIsNone)
{
    for (const int bits : {128, 129, 255, 256, 1000, INT_MAX, -1, -8, -128, INT_MIN})
    {
        Prefix prefix{};
        EXPECT_FALSE(kor::core::ipv6_prefix(bits, prefix)) << bits;
    }
}

TEST(Ipv6Prefix, OfTenBitsTakesInTheLinkLocalAddresses)
{
    Prefix ten_bits{};
    ASSERT_TRUE(kor::core::ipv6_prefix(10, ten_bits));
    const Ipv6Bytes network = {0xFE, 0x80};

    Ipv6Bytes first = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    Ipv6Bytes last = {0xFE, 0xBF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    Ipv6Bytes beyond = {0xFE, 0xC0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    for (Ipv6Bytes* address : {&first, &last, &beyond})
        kor::core::apply_prefix(*address, ten_bits);

    EXPECT_EQ(std::memcmp(first, network, IPV6_BYTES), 0);
    EXPECT_EQ(std::memcmp(last, network, IPV6_BYTES), 0);
    EXPECT_NE(std::memcmp(beyond, network, IPV6_BYTES), 0);
}

TEST(Ipv6Prefix, BeyondTheAddressLeavesItAlone)
{
    for (int bytes = INT8_MIN; bytes <= INT8_MAX; ++bytes)
    {
        if (bytes >= 0 && bytes < 16)
            continue;
        SCOPED_TRACE(bytes);
        for (const std::uint32_t mask : {0u, 0xF0u, 0xFFu, 0xFFFFFFFFu})
        {
            GuardedAddress address(0xA5);
            kor::core::apply_prefix(address.bytes, {static_cast<std::int8_t>(bytes), mask});
            EXPECT_EQ(std::count(std::begin(address.bytes), std::end(address.bytes), 0xA5), 16);
            EXPECT_TRUE(address.guards_hold());
        }
    }
}

TEST(Ipv6Prefix, InTheLastByteChangesThatByteOnly)
{
    GuardedAddress address(0xFF);
    kor::core::apply_prefix(address.bytes, {15, 0xFFFFFFF0});
    EXPECT_EQ(std::count(std::begin(address.bytes), std::end(address.bytes), 0xFF), 15);
    EXPECT_EQ(address.bytes[15], 0xF0);
    EXPECT_TRUE(address.guards_hold());
}

TEST(Ipv6Prefix, CountsTheLeadingOnesOfTheLowMaskByteOnly)
{
    struct Row
    {
        std::int8_t bytes;
        std::uint32_t mask;
        int bits;
    };
    const Row rows[] = {
        {0, 0, 0},           {15, 0, 120},  {1, 0x80, 9},  {1, 0xC0, 10},       {1, 0x3FC0, 10}, {1, 0xFF, 16},
        {1, 0xFFFFFFFF, 16}, {2, 0xA0, 17}, {2, 0x7F, 16}, {2, 0xFFFFFF00, 16}, {15, 0xFE, 127}, {127, 0xFF, 1024},
    };
    for (const Row& row : rows)
        EXPECT_EQ(kor::core::prefix_bits({row.bytes, row.mask}), row.bits) << int{row.bytes} << ' ' << row.mask;
}

TEST(MappedIpv4, HasTenZerosAndTwoFullBytes)
{
    const Ipv6Bytes mapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 192, 168, 1, 7};
    EXPECT_TRUE(kor::core::is_mapped_ipv4(mapped));
    const Ipv6Bytes mapped_zero = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0};
    EXPECT_TRUE(kor::core::is_mapped_ipv4(mapped_zero));
    const Ipv6Bytes zero = {};
    EXPECT_FALSE(kor::core::is_mapped_ipv4(zero));

    for (std::size_t i = 0; i < 12; ++i)
    {
        Ipv6Bytes other;
        std::copy(std::begin(mapped), std::end(mapped), std::begin(other));
        other[i] = static_cast<std::uint8_t>(other[i] ^ 0x01);
        EXPECT_FALSE(kor::core::is_mapped_ipv4(other)) << "byte " << i;
    }
}

TEST(Ipv4Text, IsFourNumbersWithPointsBetweenThem)
{
    for (const char* const text : {"10.0.0.7", "0.0.0.0", "255.255.255.255", "192.168.1.10", "1.22.200.249"})
        EXPECT_TRUE(kor::core::is_ipv4_text(text)) << text;
}

TEST(Ipv4Text, IsNothingThatAResolverMayHaveToReadTwice)
{
    for (const char* const text : {"",
                                   ".",
                                   "...",
                                   "10",
                                   "10.0",
                                   "10.0.0",
                                   "10.0.0.",
                                   ".10.0.0",
                                   "10.0.0.0.0",
                                   "10..0.7",
                                   "256.0.0.1",
                                   "10.0.0.999",
                                   "10.0.0.1000",
                                   "010.0.0.7",
                                   "10.0.0.07",
                                   "0x0a.0.0.7",
                                   "10.0.0.7 ",
                                   " 10.0.0.7",
                                   "10.0.0.7/8",
                                   "10.0.0.-7",
                                   "front.example",
                                   "::1",
                                   "::ffff:10.0.0.7"})
        EXPECT_FALSE(kor::core::is_ipv4_text(text)) << text;
}
