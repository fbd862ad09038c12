#if !defined(_WINSOCK_DEPRECATED_NO_WARNINGS)
#define _WINSOCK_DEPRECATED_NO_WARNINGS // inet_ntoa: every IPv4 address fits its per-thread buffer
#endif
#include "win/addresses.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstring>

namespace kor::win
{
namespace
{
/// Keeps the socket library usable for a scope. Hosts that use sockets have it running already, in
/// which case this only counts; the others need it for the few addresses in their rules.
class SocketLibrary
{
public:
    SocketLibrary() noexcept
    {
        WSADATA data{};
        m_started = ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }
    SocketLibrary(const SocketLibrary&) = delete;
    SocketLibrary& operator=(const SocketLibrary&) = delete;
    ~SocketLibrary()
    {
        if (m_started)
            ::WSACleanup();
    }

private:
    bool m_started;
};
} // namespace

void AddressListRelease::operator()(addrinfo* list) const noexcept { ::freeaddrinfo(list); }

AddressList resolve(const char* text, int& error)
{
    const SocketLibrary library;
    addrinfo hints{};
    hints.ai_flags = AI_ALL | AI_V4MAPPED;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* list = nullptr;
    error = ::getaddrinfo(text, "0", &hints, &list);
    return AddressList(error == 0 ? list : nullptr);
}

addrinfo* next(const addrinfo& record) noexcept { return record.ai_next; }

SocketAddress read_address(const addrinfo& record) noexcept
{
    SocketAddress result;
    result.family = record.ai_family;
    if (record.ai_addr == nullptr)
        return result;
    if (record.ai_family == AF_INET)
        result.ipv4 = reinterpret_cast<const sockaddr_in*>(record.ai_addr)->sin_addr.s_addr;
    else if (record.ai_family == AF_INET6)
        std::memcpy(result.ipv6, &reinterpret_cast<const sockaddr_in6*>(record.ai_addr)->sin6_addr, sizeof result.ipv6);
    return result;
}

std::string ipv4_text(std::uint32_t address)
{
    const SocketLibrary library;
    in_addr bytes{};
    bytes.s_addr = address;
    const char* const text = ::inet_ntoa(bytes);
    return text == nullptr ? std::string() : std::string(text);
}

bool write_ipv6(const std::uint8_t (&address)[16], char* buffer) noexcept
{
    const SocketLibrary library;
    sockaddr_in6 socket{};
    socket.sin6_family = AF_INET6;
    std::memcpy(&socket.sin6_addr, address, sizeof address);
    return ::getnameinfo(
               reinterpret_cast<const sockaddr*>(&socket), sizeof socket, buffer, IPV6_TEXT_SIZE, nullptr, 0,
               NI_NUMERICHOST) == 0;
}
} // namespace kor::win
