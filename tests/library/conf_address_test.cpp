// conf_address_test.cpp - network address values: where they come from, what they match, how they read.

#include <gtest/gtest.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "Kor_LogConf.h"

namespace
{
using Bytes = std::array<std::uint8_t, 16>;
using Groups = std::array<unsigned, 8>;

/// Four octets as they lie in memory, in network byte order.
unsigned int network_order(const std::array<unsigned, 4>& octets)
{
    unsigned int result = 0;
    std::uint8_t bytes[4];
    for (std::size_t i = 0; i < 4; ++i)
        bytes[i] = static_cast<std::uint8_t>(octets[i]);
    std::memcpy(&result, bytes, 4);
    return result;
}

Bytes bytes_of(const Groups& groups)
{
    Bytes result{};
    for (std::size_t i = 0; i < 8; ++i)
    {
        result[2 * i] = static_cast<std::uint8_t>(groups[i] >> 8);
        result[2 * i + 1] = static_cast<std::uint8_t>(groups[i] & 0xFF);
    }
    return result;
}

Bytes bytes_of(const IP_Structure& address)
{
    Bytes result{};
    std::memcpy(result.data(), address.address, 16);
    return result;
}

/// As resolution hands it over.
IP_Structure ipv4(unsigned a, unsigned b, unsigned c, unsigned d)
{
    sockaddr_in socket_address{};
    socket_address.sin_family = AF_INET;
    const unsigned int address = network_order({a, b, c, d});
    std::memcpy(&socket_address.sin_addr, &address, 4);
    addrinfo record{};
    record.ai_family = AF_INET;
    record.ai_addrlen = sizeof socket_address;
    record.ai_addr = reinterpret_cast<sockaddr*>(&socket_address);
    return IP_Structure(&record);
}

IP_Structure ipv6(const Groups& groups, int bits = -1)
{
    sockaddr_in6 socket_address{};
    socket_address.sin6_family = AF_INET6;
    const Bytes bytes = bytes_of(groups);
    std::memcpy(&socket_address.sin6_addr, bytes.data(), 16);
    addrinfo record{};
    record.ai_family = AF_INET6;
    record.ai_addrlen = sizeof socket_address;
    record.ai_addr = reinterpret_cast<sockaddr*>(&socket_address);
    IP_Structure result(&record);
    result.SetNetmask(bits);
    return result;
}

/// An IPv6 entry whose fields are as another process may have left them.
IP_Structure crafted(const Groups& groups, int prefix_bytes, std::uint32_t mask)
{
    IP_Structure result;
    result.family = 23;
    result.mask = mask;
    const Bytes bytes = bytes_of(groups);
    std::memcpy(result.address, bytes.data(), 16);
    result.prefixBytes = static_cast<std::int8_t>(prefix_bytes);
    return result;
}

constexpr Groups ALL_ONES = {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF};
} // namespace

TEST(ConfAddress, AnIpv4AddressDerivesItsMaskFromItsTrailingZeroOctets)
{
    struct Row
    {
        std::array<unsigned, 4> address;
        std::array<unsigned, 4> mask;
    };
    const Row rows[] = {
        {{10, 0, 0, 0}, {255, 0, 0, 0}},       {{255, 0, 0, 0}, {255, 0, 0, 0}},
        {{1, 0, 0, 0}, {255, 0, 0, 0}},        {{10, 1, 0, 0}, {255, 255, 0, 0}},
        {{255, 255, 0, 0}, {255, 255, 0, 0}},  {{10, 1, 2, 0}, {255, 255, 255, 0}},
        {{10, 0, 2, 0}, {255, 255, 255, 0}},   {{255, 255, 255, 0}, {255, 255, 255, 0}},
        {{10, 1, 2, 3}, {255, 255, 255, 255}}, {{10, 0, 0, 1}, {255, 255, 255, 255}},
        {{10, 1, 0, 1}, {255, 255, 255, 255}}, {{255, 255, 255, 255}, {255, 255, 255, 255}},
        {{0, 0, 0, 1}, {255, 255, 255, 255}},  {{127, 0, 0, 1}, {255, 255, 255, 255}},
    };
    for (const Row& row : rows)
    {
        IP_Structure address;
        address.family = 2;
        address.SetIPv4BinaryForm(network_order(row.address));
        EXPECT_EQ(address.mask, network_order(row.mask))
            << row.address[0] << '.' << row.address[1] << '.' << row.address[2] << '.' << row.address[3];
        EXPECT_EQ(address.GetIPv4BinaryForm(), network_order(row.address));
    }
}

TEST(ConfAddress, AnIpv4AddressStandsInTheLastFourOfTheSixteenBytes)
{
    IP_Structure address;
    address.SetIPv4BinaryForm(network_order({10, 1, 2, 3}));
    EXPECT_EQ(bytes_of(address), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 10, 1, 2, 3}));
    address.SetIPv4BinaryForm(network_order({192, 168, 0, 0}));
    EXPECT_EQ(bytes_of(address), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 192, 168, 0, 0}));
}

TEST(ConfAddress, AResolvedIpv4RecordBecomesAnIpv4Entry)
{
    const IP_Structure address = ipv4(10, 1, 2, 3);
    EXPECT_EQ(address.family, 2);
    EXPECT_EQ(address.GetIPv4BinaryForm(), network_order({10, 1, 2, 3}));
    EXPECT_EQ(address.mask, network_order({255, 255, 255, 255}));
    EXPECT_EQ(address.prefixBytes, -1);
}

TEST(ConfAddress, AResolvedIpv6RecordBecomesAnExactIpv6Entry)
{
    const IP_Structure address = ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0x0a, 0x0b});
    EXPECT_EQ(address.family, 23);
    EXPECT_EQ(bytes_of(address), bytes_of(Groups{0x2001, 0xdb8, 0, 0, 0, 0, 0x0a, 0x0b}));
    EXPECT_EQ(address.mask, 0u);
    EXPECT_EQ(address.prefixBytes, -1);
}

TEST(ConfAddress, AnIpv4MappedRecordBecomesPlainIpv4)
{
    const IP_Structure address = ipv6({0, 0, 0, 0, 0, 0xFFFF, 0xC0A8, 0x0107});
    EXPECT_EQ(address.family, 2);
    EXPECT_EQ(bytes_of(address), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 192, 168, 1, 7}));
    EXPECT_EQ(address.mask, network_order({255, 255, 255, 255}));
    EXPECT_EQ(address.prefixBytes, -1);
    EXPECT_STREQ(address.ToString(), "192.168.1.7");

    const IP_Structure network = ipv6({0, 0, 0, 0, 0, 0xFFFF, 0x0A00, 0});
    EXPECT_EQ(network.mask, network_order({255, 0, 0, 0}));
}

TEST(ConfAddress, NoRecordAndARecordOfAnotherFamilyHoldNoAddress)
{
    EXPECT_EQ(IP_Structure(nullptr).family, 0);
    EXPECT_TRUE(IP_Structure(nullptr).IsEmpty());

    sockaddr other{};
    other.sa_family = 17;
    std::memset(other.sa_data, 0x55, sizeof other.sa_data);
    addrinfo record{};
    record.ai_family = 17;
    record.ai_addrlen = sizeof other;
    record.ai_addr = &other;
    const IP_Structure address(&record);
    EXPECT_EQ(address.family, 17);
    EXPECT_TRUE(address.IsEmpty());
    EXPECT_EQ(address.prefixBytes, -1);
}

TEST(ConfAddress, OnlyTenZeroBytesAndTwoOfFfMakeAMappedAddress)
{
    struct Row
    {
        Groups groups;
        bool mapped;
    };
    const Row rows[] = {
        {{0, 0, 0, 0, 0, 0xFFFF, 0xC0A8, 0x0107}, true}, {{0, 0, 0, 0, 0, 0xFFFF, 0, 0}, true},
        {{0, 0, 0, 0, 0, 0xFF00, 0xC0A8, 1}, false},     {{0, 0, 0, 0, 0, 0x00FF, 0xC0A8, 1}, false},
        {{0, 0, 0, 0, 1, 0xFFFF, 0xC0A8, 1}, false},     {{0x100, 0, 0, 0, 0, 0xFFFF, 0xC0A8, 1}, false},
        {{0, 0, 0, 0, 0, 0, 0xC0A8, 1}, false},          {{0, 0, 0, 0, 0, 0, 0, 0}, false},
    };
    for (const Row& row : rows)
        EXPECT_EQ(crafted(row.groups, -1, 0).IsMappedIPv4(), row.mapped) << row.groups[4] << ' ' << row.groups[5];
}

TEST(ConfAddress, AnAddressIsEmptyWhenTheBytesOfItsFamilyAreZero)
{
    EXPECT_TRUE(IP_Structure().IsEmpty());
    EXPECT_TRUE(ipv4(0, 0, 0, 0).IsEmpty());
    EXPECT_FALSE(ipv4(0, 0, 0, 1).IsEmpty());
    EXPECT_FALSE(ipv4(10, 0, 0, 0).IsEmpty());
    EXPECT_TRUE(ipv6({0, 0, 0, 0, 0, 0, 0, 0}).IsEmpty());
    EXPECT_FALSE(ipv6({0, 0, 0, 0, 0, 0, 0, 1}).IsEmpty());
    EXPECT_FALSE(ipv6({0x8000, 0, 0, 0, 0, 0, 0, 0}).IsEmpty());

    IP_Structure v4 = ipv4(0, 0, 0, 0); // of an IPv4 entry only the last four bytes count
    v4.address[0] = 1;
    EXPECT_TRUE(v4.IsEmpty());
    IP_Structure other;
    other.family = 99;
    EXPECT_TRUE(other.IsEmpty());
    other.address[0] = 1;
    EXPECT_FALSE(other.IsEmpty());
}

TEST(ConfAddress, ANetmaskHasNoEffectOnIpv4)
{
    for (int bits = -1; bits <= 130; ++bits)
    {
        IP_Structure address = ipv4(10, 1, 2, 3);
        const IP_Structure before = address;
        address.SetNetmask(bits);
        ASSERT_EQ(std::memcmp(&address, &before, sizeof address), 0) << bits;
    }
}

TEST(ConfAddress, ANetmaskOf1To127BitsClearsWhatLiesBehindThem)
{
    struct Row
    {
        int bits;
        int prefix_bytes;
        std::uint32_t mask;
        std::uint8_t partial; // what stays of the byte at prefix_bytes
    };
    const Row rows[] = {
        {1, 0, 0x7F80, 0x80}, {2, 0, 0x3FC0, 0xC0},    {7, 0, 0x1FE, 0xFE},    {8, 1, 0, 0},
        {9, 1, 0x7F80, 0x80}, {10, 1, 0x3FC0, 0xC0},   {12, 1, 0xFF0, 0xF0},   {16, 2, 0, 0},
        {63, 7, 0x1FE, 0xFE}, {64, 8, 0, 0},           {65, 8, 0x7F80, 0x80},  {119, 14, 0x1FE, 0xFE},
        {120, 15, 0, 0},      {121, 15, 0x7F80, 0x80}, {127, 15, 0x1FE, 0xFE},
    };
    for (const Row& row : rows)
    {
        const IP_Structure address = ipv6(ALL_ONES, row.bits);
        EXPECT_EQ(address.prefixBytes, row.prefix_bytes) << row.bits;
        EXPECT_EQ(address.mask, row.mask) << row.bits;
        Bytes expected{};
        std::memset(expected.data(), 0xFF, static_cast<std::size_t>(row.prefix_bytes));
        expected[static_cast<std::size_t>(row.prefix_bytes)] = row.partial;
        EXPECT_EQ(bytes_of(address), expected) << row.bits;
    }
}

TEST(ConfAddress, EveryNetmaskKeepsExactlyItsBits)
{
    for (int bits = 1; bits <= 127; ++bits)
    {
        const IP_Structure address = ipv6(ALL_ONES, bits);
        for (int bit = 0; bit < 128; ++bit)
        {
            const bool set = (address.address[bit / 8] & (0x80 >> bit % 8)) != 0;
            ASSERT_EQ(set, bit < bits) << bits << " bits, bit " << bit;
        }
        ASSERT_EQ(address.prefixBytes, bits / 8) << bits;
    }
}

TEST(ConfAddress, ANetmaskOfNoBitsMatchesEveryIpv6Address)
{
    const IP_Structure any = ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, 0);
    EXPECT_EQ(any.mask, 0u);
    EXPECT_EQ(any.prefixBytes, 0);
    EXPECT_TRUE(any.CompareTo(ipv6({0, 0, 0, 0, 0, 0, 0, 1})));
    EXPECT_TRUE(any.CompareTo(ipv6(ALL_ONES)));
    EXPECT_FALSE(any.CompareTo(ipv4(10, 1, 2, 3)));
}

TEST(ConfAddress, AnyOtherNetmaskLeavesTheEntryUnmasked)
{
    for (const int bits : {-1, -5, INT_MIN, 128, 129, 130, 256, INT_MAX})
    {
        const IP_Structure address = ipv6(ALL_ONES, bits);
        EXPECT_EQ(address.prefixBytes, -1) << bits;
        EXPECT_EQ(address.mask, 0u) << bits;
        EXPECT_EQ(bytes_of(address), bytes_of(ALL_ONES)) << bits;
    }
}

TEST(ConfAddress, AnEntryMatchesWhatLiesInItAndOnlyInItsOwnFamily)
{
    struct Row
    {
        const char* name;
        IP_Structure entry;
        IP_Structure candidate;
        bool matches;
    };
    const Groups link_local = {0xfe80, 0, 0, 0, 0, 0, 0, 1};
    const Groups end_of_link_local = {0xfebf, 0, 0, 0, 0, 0, 0, 1};
    const Groups behind_link_local = {0xfec0, 0, 0, 0, 0, 0, 0, 1};
    const Groups documentation = {0x2001, 0xdb8, 1, 2, 3, 4, 5, 6};
    const Row rows[] = {
        {"10/8 holds 10.20.30.40", ipv4(10, 0, 0, 0), ipv4(10, 20, 30, 40), true},
        {"10/8 holds not 11.0.0.0", ipv4(10, 0, 0, 0), ipv4(11, 0, 0, 0), false},
        {"10.1/16 holds 10.1.5.6", ipv4(10, 1, 0, 0), ipv4(10, 1, 5, 6), true},
        {"10.1/16 holds not 10.2.0.1", ipv4(10, 1, 0, 0), ipv4(10, 2, 0, 1), false},
        {"10.1.2/24 holds 10.1.2.255", ipv4(10, 1, 2, 0), ipv4(10, 1, 2, 255), true},
        {"10.1.2/24 holds not 10.1.3.1", ipv4(10, 1, 2, 0), ipv4(10, 1, 3, 1), false},
        {"a host holds itself", ipv4(10, 1, 2, 3), ipv4(10, 1, 2, 3), true},
        {"a host holds not its neighbour", ipv4(10, 1, 2, 3), ipv4(10, 1, 2, 4), false},
        {"a host holds not its network", ipv4(10, 1, 2, 3), ipv4(10, 0, 0, 0), false},
        {"a network holds a mapped host", ipv4(192, 168, 1, 0), ipv6({0, 0, 0, 0, 0, 0xFFFF, 0xC0A8, 0x107}), true},
        {"fe80::/10 holds fe80::1", ipv6({0xfe80, 0, 0, 0, 0, 0, 0, 0}, 10), ipv6(link_local), true},
        {"fe80::/10 holds febf::1", ipv6({0xfe80, 0, 0, 0, 0, 0, 0, 0}, 10), ipv6(end_of_link_local), true},
        {"fe80::/10 holds not fec0::1", ipv6({0xfe80, 0, 0, 0, 0, 0, 0, 0}, 10), ipv6(behind_link_local), false},
        {"an address given with host bits is a network", ipv6(link_local, 10), ipv6(end_of_link_local), true},
        {"/64 holds the same 64 bits", ipv6(documentation, 64), ipv6({0x2001, 0xdb8, 1, 2, 9, 9, 9, 9}), true},
        {"/64 holds not a 64th bit", ipv6(documentation, 64), ipv6({0x2001, 0xdb8, 1, 3, 3, 4, 5, 6}), false},
        {"/127 holds a last bit", ipv6(documentation, 127), ipv6({0x2001, 0xdb8, 1, 2, 3, 4, 5, 7}), true},
        {"/127 holds not a bit before", ipv6(documentation, 127), ipv6({0x2001, 0xdb8, 1, 2, 3, 4, 5, 4}), false},
        {"an exact entry holds itself", ipv6(documentation), ipv6(documentation), true},
        {"an exact entry holds no other", ipv6(documentation), ipv6({0x2001, 0xdb8, 1, 2, 3, 4, 5, 7}), false},
        {"/128 is exact", ipv6(documentation, 128), ipv6({0x2001, 0xdb8, 1, 2, 3, 4, 5, 7}), false},
        {"IPv6 holds no IPv4", ipv6(documentation, 0), ipv4(10, 1, 2, 3), false},
        {"IPv4 holds no IPv6", ipv4(10, 0, 0, 0), ipv6(documentation), false},
        {"the candidate's own prefix means nothing", ipv6(documentation), ipv6(documentation, 64), false},
    };
    for (const Row& row : rows)
        EXPECT_EQ(row.entry.CompareTo(row.candidate), row.matches) << row.name;
}

TEST(ConfAddress, ComparingChangesNeitherSide)
{
    const IP_Structure entry = ipv6({0xfe80, 0, 0, 0, 0, 0, 0, 0}, 10);
    const IP_Structure candidate = ipv6({0xfebf, 0, 0, 0, 0, 0, 0, 1});
    const IP_Structure entry_before = entry;
    const IP_Structure candidate_before = candidate;
    EXPECT_TRUE(entry.CompareTo(candidate));
    EXPECT_EQ(std::memcmp(&entry, &entry_before, sizeof entry), 0);
    EXPECT_EQ(std::memcmp(&candidate, &candidate_before, sizeof candidate), 0);
}

TEST(ConfAddress, BytesBehindThePrefixOfAnEntryAreComparedWithClearedOnes)
{
    // Another process may have written them: only the candidate is masked.
    EXPECT_FALSE(crafted(ALL_ONES, 8, 0).CompareTo(ipv6(ALL_ONES)));
    EXPECT_TRUE(crafted({0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF, 0, 0, 0, 0}, 8, 0).CompareTo(ipv6(ALL_ONES)));
    // Of the mask only the low byte counts.
    EXPECT_TRUE(crafted({0xF000, 0, 0, 0, 0, 0, 0, 0}, 0, 0xABCDEFF0).CompareTo(ipv6({0xFF00, 0, 0, 0, 0, 0, 0, 1})));
}

TEST(ConfAddress, PrefixesBeyondTheAddressCompareAllOfIt)
{
    for (const int prefix : {16, 17, 100, 127})
    {
        EXPECT_TRUE(crafted(ALL_ONES, prefix, 0xF0).CompareTo(ipv6(ALL_ONES))) << prefix;
        EXPECT_FALSE(crafted(ALL_ONES, prefix, 0xF0).CompareTo(ipv6({0xFFFF, 0, 0, 0, 0, 0, 0, 0}))) << prefix;
    }
}

TEST(ConfAddress, WhateverFieldsHoldComparingAndPrintingStayInTheRecord)
{
    // The record ends where readable memory ends.
    SYSTEM_INFO system{};
    ::GetSystemInfo(&system);
    const std::size_t page = system.dwPageSize;
    auto* const pages = static_cast<unsigned char*>(::VirtualAlloc(nullptr, 2 * page, MEM_RESERVE, PAGE_NOACCESS));
    ASSERT_NE(::VirtualAlloc(pages, page, MEM_COMMIT, PAGE_READWRITE), nullptr);
    auto* const entry = reinterpret_cast<IP_Structure*>(pages + page - sizeof(IP_Structure));
    for (const int family : {0, 2, 23, -1, INT_MIN, INT_MAX})
    {
        for (int prefix = -128; prefix <= 127; ++prefix)
        {
            *entry = crafted(ALL_ONES, prefix, 0xFFFFFFFF);
            entry->family = family;
            IP_Structure candidate = ipv6(ALL_ONES);
            candidate.family = family;
            entry->CompareTo(candidate);
            entry->IsEmpty();
            entry->IsMappedIPv4();
            const RWCString text = entry->ToString();
            ASSERT_LT(text.length(), 65u);
            entry->SetNetmask(prefix);
        }
    }
    ::VirtualFree(pages, 0, MEM_RELEASE);
}

TEST(ConfAddress, AddressesReadInTheirNumericForm)
{
    struct Row
    {
        IP_Structure address;
        const char* text;
    };
    const Row rows[] = {
        {ipv4(10, 1, 2, 3), "10.1.2.3"},
        {ipv4(10, 0, 0, 0), "10.0.0.0"}, // the mask is not shown
        {ipv4(255, 255, 255, 255), "255.255.255.255"},
        {ipv6({0, 0, 0, 0, 0, 0, 0, 1}), "::1"},
        {ipv6({0x2001, 0xdb8, 1, 2, 3, 4, 5, 6}), "2001:db8:1:2:3:4:5:6"},
        {ipv6({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 10), "fe80::/10"},
        {ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, 64), "2001:db8::/64"},
        {ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, 127), "2001:db8::/127"},
        {ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, 128), "2001:db8::1"},
        {ipv6({0x8000, 0, 0, 0, 0, 0, 0, 0}, 1), "8000::/1"},
        {ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, 0), "2001:db8::1/0"},
        {crafted({0x2001, 0xdb8, 0, 0, 0, 0, 0, 0}, 4, 0xA0), "2001:db8::/33"}, // leading one bits only
        {crafted({0x2001, 0xdb8, 0, 0, 0, 0, 0, 0}, 4, 0x7F), "2001:db8::/32"},
    };
    for (const Row& row : rows)
        EXPECT_STREQ(row.address.ToString(), row.text);
}

TEST(ConfAddress, EveryPrefixLengthReadsBackAsItWasSet)
{
    for (int bits = 1; bits <= 127; ++bits)
    {
        const std::string text = ipv6(ALL_ONES, bits).ToString().data();
        EXPECT_EQ(text.substr(text.find('/') + 1), std::to_string(bits));
    }
}

TEST(ConfAddress, ABufferUnder65BytesIsFilledWithZeroBytes)
{
    const IP_Structure address = ipv6({0, 0, 0, 0, 0, 0, 0, 1});
    for (const int size : {0, 1, 2, 4, 64})
    {
        char buffer[80];
        std::memset(buffer, 'x', sizeof buffer);
        address.convert_v6_to_string(buffer, size);
        const std::string expected =
            std::string(static_cast<std::size_t>(size), '\0') + std::string(80 - static_cast<std::size_t>(size), 'x');
        EXPECT_EQ(std::string(buffer, sizeof buffer), expected) << size;
    }
}

TEST(ConfAddress, ANegativeBufferSizeTouchesNothing)
{
    for (const int size : {-1, INT_MIN})
    {
        char buffer[80];
        std::memset(buffer, 'x', sizeof buffer);
        ipv6({0, 0, 0, 0, 0, 0, 0, 1}).convert_v6_to_string(buffer, size);
        EXPECT_EQ(std::string(buffer, sizeof buffer), std::string(80, 'x'));
    }
}

TEST(ConfAddress, ABufferOf65BytesTakesTheTextWithItsPrefix)
{
    for (const int size : {65, 66, 80})
    {
        char buffer[80];
        std::memset(buffer, 'x', sizeof buffer);
        ipv6({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 10).convert_v6_to_string(buffer, size);
        EXPECT_STREQ(buffer, "fe80::/10") << size;
        const std::string behind(buffer + size, sizeof buffer - static_cast<std::size_t>(size));
        EXPECT_EQ(behind, std::string(behind.size(), 'x')) << size;
    }
}
