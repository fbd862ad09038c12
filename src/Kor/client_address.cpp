#include "Kor/client_address.h"

#include <utility>

#include "Kor/identity.h"
#include "win/addresses.h"

using kor::win::OwnerLockGuard;

kor::ClientAddress kor::look_up_client(const RWCString& text)
{
    ClientAddress found;
    addrinfo* const list = Kor_LogLevelRule().get_address_information(text);
    const kor::win::AddressList owner(list);
    if (list != nullptr)
        found.first = IP_Structure(list);
    for (const addrinfo* record = list; record != nullptr; record = kor::win::next(*record))
        ++found.records;
    return found;
}

kor::ClientAddress kor::client_address(const RWCString& text)
{
    std::uint32_t changes = 0;
    {
        const OwnerLockGuard guard(identity_lock);
        changes = client_changes;
        if (guard.held() && known_client.changes == changes && known_client.text == text)
            return known_client.address;
    }
    const ClientAddress address = look_up_client(text);
    KnownClient known{changes, text, address};
    const OwnerLockGuard guard(identity_lock);
    if (guard.held() && client_changes == changes) // else the client is another by now
        std::swap(known_client, known);
    return address;
}
