// address.h - arithmetic of network addresses: IPv4 masks, IPv6 prefixes, mapped addresses.

#ifndef KOR_CORE_ADDRESS_H
#define KOR_CORE_ADDRESS_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kor::core
{
constexpr std::size_t IPV6_BYTES = 16;

using Ipv6Bytes = std::uint8_t[IPV6_BYTES];

/// An IPv6 prefix: whole bytes, then a byte of which only the bits of partial_mask count.
struct Prefix
{
    std::int8_t bytes;
    std::uint32_t partial_mask; ///< low byte; 0 when the prefix ends on a byte boundary
};

/// The mask that an IPv4 address stands for by its trailing zero octets: at least the first octet.
/// Both in network byte order.
std::uint32_t ipv4_mask(std::uint32_t address) noexcept;

/// True, with the prefix, for 0 to 127 bits; 128 and whatever is no length means an exact address.
bool ipv6_prefix(int bits, Prefix& prefix) noexcept;

/// Length of a prefix in bits: the whole bytes and the leading ones of the partial mask.
int prefix_bits(const Prefix& prefix) noexcept;

/// Clears the bits of address that do not belong to the prefix. A prefix of 16 bytes or more, or a
/// negative one, leaves it alone.
void apply_prefix(Ipv6Bytes& address, const Prefix& prefix) noexcept;

/// True for an IPv4 address as it is usually written: four numbers from 0 to 255 without leading zeros, and nothing
/// else. False decides nothing: resolvers know more ways of writing one.
bool is_ipv4_text(std::string_view text) noexcept;

/// ::ffff:a.b.c.d
bool is_mapped_ipv4(const Ipv6Bytes& address) noexcept;
} // namespace kor::core

#endif // KOR_CORE_ADDRESS_H
