#if !defined(_WINSOCK_DEPRECATED_NO_WARNINGS)
#define _WINSOCK_DEPRECATED_NO_WARNINGS // inet_ntoa: every IPv4 address fits its per-thread buffer
#endif
#include "win/addresses.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <new>

#include "win/library.h"

namespace kor::win
{
namespace
{
/// What is used of the socket library. It is loaded when it is first needed, as every process would pay for it with
/// the start and few have rules with addresses.
struct SocketFunctions
{
    OwnedLibrary library = load_system_library(L"ws2_32.dll");
    decltype(::WSAStartup)* startup = find_function<decltype(::WSAStartup)>(library.get(), "WSAStartup");
    decltype(::WSACleanup)* cleanup = find_function<decltype(::WSACleanup)>(library.get(), "WSACleanup");
    decltype(::getaddrinfo)* get_addresses = find_function<decltype(::getaddrinfo)>(library.get(), "getaddrinfo");
    decltype(::freeaddrinfo)* free_addresses = find_function<decltype(::freeaddrinfo)>(library.get(), "freeaddrinfo");
    decltype(::getnameinfo)* get_name = find_function<decltype(::getnameinfo)>(library.get(), "getnameinfo");
    decltype(::inet_ntoa)* get_ipv4_text = find_function<decltype(::inet_ntoa)>(library.get(), "inet_ntoa");

    bool complete() const noexcept
    {
        return startup != nullptr && cleanup != nullptr && get_addresses != nullptr && free_addresses != nullptr &&
               get_name != nullptr && get_ipv4_text != nullptr;
    }
};

/// Set once, and for the life of the process: to unload the library while this one is being unloaded is not allowed.
std::atomic<const SocketFunctions*> the_functions{nullptr};

/// Null when the system has no socket library. No lock: whoever loads it may hold one of the system's, and a second
/// thread that loads it as well does no harm.
const SocketFunctions* find_functions() noexcept
{
    const SocketFunctions* present = the_functions.load(std::memory_order_acquire);
    if (present != nullptr)
        return present;
    std::unique_ptr<const SocketFunctions> made(new (std::nothrow) SocketFunctions);
    if (!made || !made->complete())
        return nullptr;
    if (the_functions.compare_exchange_strong(present, made.get(), std::memory_order_acq_rel))
        return made.release();
    return present;
}

/// Keeps the socket library usable for a scope. Hosts that use sockets have it running already, in
/// which case this only counts; the others need it for the few addresses in their rules.
class SocketLibrary
{
public:
    SocketLibrary() noexcept : m_functions(find_functions())
    {
        WSADATA data{};
        m_started = m_functions != nullptr && m_functions->startup(MAKEWORD(2, 2), &data) == 0;
    }
    SocketLibrary(const SocketLibrary&) = delete;
    SocketLibrary& operator=(const SocketLibrary&) = delete;
    ~SocketLibrary()
    {
        if (m_started)
            m_functions->cleanup();
    }

    /// Null when there is none.
    const SocketFunctions* functions() const noexcept { return m_functions; }

private:
    const SocketFunctions* m_functions;
    bool m_started;
};
} // namespace

void AddressListRelease::operator()(addrinfo* list) const noexcept { find_functions()->free_addresses(list); }

AddressList resolve(const char* text, int& error)
{
    const SocketLibrary library;
    addrinfo hints{};
    hints.ai_flags = AI_ALL | AI_V4MAPPED;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* list = nullptr;
    error =
        library.functions() == nullptr ? WSASYSNOTREADY : library.functions()->get_addresses(text, "0", &hints, &list);
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
    const char* const text = library.functions() == nullptr ? nullptr : library.functions()->get_ipv4_text(bytes);
    return text == nullptr ? std::string() : std::string(text);
}

bool write_ipv6(const std::uint8_t (&address)[16], char* buffer) noexcept
{
    const SocketLibrary library;
    sockaddr_in6 socket{};
    socket.sin6_family = AF_INET6;
    std::memcpy(&socket.sin6_addr, address, sizeof address);
    return library.functions() != nullptr && library.functions()->get_name(
                                                 reinterpret_cast<const sockaddr*>(&socket), sizeof socket, buffer,
                                                 IPV6_TEXT_SIZE, nullptr, 0, NI_NUMERICHOST) == 0;
}
} // namespace kor::win
