// addresses.h - network addresses between text and bytes, by way of the system's resolver.

#ifndef KOR_WIN_ADDRESSES_H
#define KOR_WIN_ADDRESSES_H

#include <cstdint>
#include <memory>
#include <string>

struct addrinfo;

namespace kor::win
{
struct AddressListRelease
{
    void operator()(addrinfo* list) const noexcept;
};
using AddressList = std::unique_ptr<addrinfo, AddressListRelease>;

/// Every address of a host name or numeric address, IPv4 ones also as mapped IPv6. Null, with the
/// resolver's error, when there is none. May ask the network.
AddressList resolve(const char* text, int& error);

/// The record behind this one in its list, null at the end.
addrinfo* next(const addrinfo& record) noexcept;

/// Family and address of one record; no address for families other than these two.
struct SocketAddress
{
    int family = 0;
    std::uint32_t ipv4 = 0; ///< network byte order
    std::uint8_t ipv6[16] = {};
};
SocketAddress read_address(const addrinfo& record) noexcept;

/// Bytes that the longest IPv6 text with its scope needs.
constexpr int IPV6_TEXT_SIZE = 65;

/// "10.1.2.3"; empty when the system cannot tell. address: network byte order.
std::string ipv4_text(std::uint32_t address);

/// Writes the numeric form into buffer (IPV6_TEXT_SIZE bytes). False when the system cannot tell.
bool write_ipv6(const std::uint8_t (&address)[16], char* buffer) noexcept;
} // namespace kor::win

#endif // KOR_WIN_ADDRESSES_H
