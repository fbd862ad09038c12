// client_address.h - the address of the client that the process works for.

#ifndef KOR_CLIENT_ADDRESS_H
#define KOR_CLIENT_ADDRESS_H

#include <atomic>
#include <cstdint>

#include "Kor_LogConf.h"

namespace kor
{
/// What a client's name resolved to. Only the first address is ever compared.
struct ClientAddress
{
    int records = 0; ///< addresses that the name has; 0: it does not resolve
    IP_Structure first;
};

/// The address of the process's client, whose name is text: looked up once after each SetIP. A look-up that fails
/// writes a line to standard output, can take seconds, and would otherwise come back with each rule of each package.
/// Threads that ask at the same moment may each look it up. Throws std::bad_alloc.
ClientAddress client_address(const RWCString& text);

/// What a name or an address as text stands for. Throws std::bad_alloc.
ClientAddress look_up_client(const RWCString& text);

/// Grows, with identity_lock held, with each SetIP.
extern std::atomic<std::uint32_t> client_changes;

/// What was found, for the client of that time. With identity_lock held.
struct KnownClient
{
    std::uint32_t changes = 0; ///< client_changes as it was; 0: nothing is known yet
    RWCString text;
    ClientAddress address;
};
extern KnownClient known_client;
} // namespace kor

#endif // KOR_CLIENT_ADDRESS_H
