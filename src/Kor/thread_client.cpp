#include "Kor/thread_client.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "Kor/identity.h"
#include "Kor_LogFile.h"
#include "core/address.h"
#include "win/process_end.h"

using kor::win::OwnerLockGuard;

namespace
{
constexpr std::size_t MOST_IDLE = 256;              // 700 bytes each, so that 200 clients that come and go stay known
constexpr std::uint64_t NAME_STAYS_FOR_MS = 60'000; // as long as name servers commonly say at least

std::atomic<std::uint64_t> last_number{0};

/// The scopes of one thread, the outermost first. Made with its first one and kept until the thread ends.
class ThreadScopes
{
public:
    ThreadScopes() = default;
    ThreadScopes(const ThreadScopes&) = delete;
    ThreadScopes& operator=(const ThreadScopes&) = delete;
    ~ThreadScopes() { leave_all_but(0); }

    /// Takes over what the caller holds. Throws std::bad_alloc, and then the caller still does.
    std::uint64_t enter(kor::Client* client)
    {
        m_entered.push_back({client, ++m_last_mark});
        kor::clients.set_current(client);
        return m_last_mark;
    }

    void leave(std::uint64_t mark) noexcept
    {
        const auto found = std::find_if(
            m_entered.begin(), m_entered.end(), [mark](const Entered& entered) { return entered.mark == mark; });
        if (found != m_entered.end())
            leave_all_but(static_cast<std::size_t>(found - m_entered.begin()));
    }

private:
    struct Entered
    {
        kor::Client* client;
        std::uint64_t mark;
    };

    void leave_all_but(std::size_t count) noexcept
    {
        kor::clients.set_current(count == 0 ? nullptr : m_entered[count - 1].client);
        while (m_entered.size() > count)
        {
            kor::release(m_entered.back().client);
            m_entered.pop_back();
        }
    }

    static constexpr std::uint64_t MARKS_OF_A_THREAD = std::uint64_t{1} << 40;

    std::vector<Entered> m_entered;
    std::uint64_t m_last_mark = ++s_threads * MARKS_OF_A_THREAD; // so that another thread's mark is never one of this

    static std::atomic<std::uint64_t> s_threads;
};

std::atomic<std::uint64_t> ThreadScopes::s_threads{0};

void delete_scopes(void* scopes) { delete static_cast<ThreadScopes*>(scopes); }

/// The calling thread's; null when there is no memory.
ThreadScopes* own_scopes() noexcept
{
    RWThreadLocalSlot* const slot = kor::clients.use_scopes();
    if (slot == nullptr)
        return nullptr;
    if (void* const known = slot->get())
        return static_cast<ThreadScopes*>(known);
    std::unique_ptr<ThreadScopes> made(new (std::nothrow) ThreadScopes);
    return made != nullptr && slot->set(made.get()) ? made.release() : nullptr;
}

/// Enters what the caller holds, or lets go of it.
std::uint64_t enter_held(ThreadScopes& scopes, kor::Client* held) noexcept
{
    try
    {
        return scopes.enter(held);
    }
    catch (const std::bad_alloc&)
    {
        kor::release(held);
        return 0;
    }
}

/// Entering and leaving changes the thread's last error as little as logging does.
class KeptLastError
{
public:
    KeptLastError() noexcept : m_error(::GetLastError()) {}
    KeptLastError(const KeptLastError&) = delete;
    KeptLastError& operator=(const KeptLastError&) = delete;
    ~KeptLastError() { ::SetLastError(m_error); }

private:
    DWORD m_error;
};
} // namespace

// Client ----------------------------------------------------------------------------------------------
kor::Client::Client(const char* address, long session)
    : m_has_address(address != nullptr), m_address(address == nullptr ? "" : address), m_session(session),
      m_number(++last_number)
{
}

kor::ClientAddress kor::Client::looked_up()
{
    {
        const OwnerLockGuard guard(identity_lock);
        if (guard.held() && m_is_looked_up)
            return m_found;
    }
    ClientAddress found = look_up_client(RWCString(m_address));
    const OwnerLockGuard guard(identity_lock);
    if (guard.held())
    {
        m_found = found;
        m_looked_up_at = ::GetTickCount64();
        m_is_looked_up = true;
    }
    return found;
}

/// An address stays what it is; a name may stand for another one by now.
bool kor::Client::is_out_of_date(std::uint64_t now) const noexcept
{
    return m_is_looked_up && now - m_looked_up_at > NAME_STAYS_FOR_MS && !core::is_ipv4_text(m_address);
}

void kor::Client::forget_what_was_found() noexcept
{
    m_is_looked_up = false;
    m_levels.forget();
}

// Clients ---------------------------------------------------------------------------------------------
kor::Clients::~Clients()
{
    if (win::process_is_ending())
        return;
    delete m_scopes.exchange(nullptr); // ends the scopes of all threads
    m_current.give_back();
    for (const auto& [key, client] : m_listed)
        if (client->m_holders == 0)
            delete client;
}

kor::Clients::Key kor::Clients::key_of(const Client& client) noexcept
{
    return {client.m_address, client.m_has_address, client.m_session};
}

kor::Client* kor::Clients::find_or_make(const char* address, long session)
{
    const OwnerLockGuard guard(m_lock);
    if (!guard.held()) // whoever has it is gone for good: then each for itself
        return new Client(address, session);
    const auto found = m_listed.find({address == nullptr ? "" : address, address != nullptr, session});
    if (found == m_listed.end())
    {
        auto made = std::make_unique<Client>(address, session);
        m_listed.emplace(key_of(*made), made.get());
        made->m_is_listed = true;
        return made.release();
    }
    Client& known = *found->second;
    if (known.m_holders.fetch_add(1) == 0)
    {
        known.m_place.splice(known.m_place.begin(), m_idle, known.m_self);
        if (known.is_out_of_date(::GetTickCount64()))
            known.forget_what_was_found();
    }
    return &known;
}

void kor::Clients::release(Client& client) noexcept
{
    std::uint32_t holders = client.m_holders;
    while (holders > 1)
        if (client.m_holders.compare_exchange_weak(holders, holders - 1))
            return;
    // The last one perhaps: only with the lock nobody finds it meanwhile.
    const OwnerLockGuard guard(m_lock);
    if (client.m_holders.fetch_sub(1) > 1)
        return;
    if (!client.m_is_listed)
    {
        delete &client;
        return;
    }
    if (!guard.held()) // the list is whole no more, and nobody looks into it
        return;
    m_idle.splice(m_idle.end(), client.m_place, client.m_self);
    if (m_idle.size() > MOST_IDLE)
        remove_oldest();
}

void kor::Clients::remove_oldest() noexcept
{
    Client* const oldest = m_idle.front();
    m_listed.erase(key_of(*oldest));
    oldest->m_place.splice(oldest->m_place.begin(), m_idle, oldest->m_self);
    delete oldest;
}

RWThreadLocalSlot* kor::Clients::use_scopes() noexcept
{
    if (RWThreadLocalSlot* const scopes = m_scopes.load(std::memory_order_acquire))
        return scopes;
    const OwnerLockGuard guard(m_lock);
    if (m_scopes == nullptr && guard.held())
    {
        std::unique_ptr<RWThreadLocalSlot> made(new (std::nothrow) RWThreadLocalSlot(&delete_scopes));
        if (made == nullptr || !m_current.take())
            return nullptr;
        // Before anybody has a scope: what the logs know by then holds for the process's client alone.
        Kor_LogFile::ask_by_client();
        m_scopes.store(made.release(), std::memory_order_release);
    }
    return m_scopes;
}

// Threads ---------------------------------------------------------------------------------------------
std::uint64_t kor::enter_client(const char* address, long session) noexcept
{
    const KeptLastError kept;
    ThreadScopes* const scopes = own_scopes();
    if (scopes == nullptr)
        return 0;
    try
    {
        return enter_held(*scopes, clients.find_or_make(address, session < 1 ? 0 : session));
    }
    catch (const std::bad_alloc&)
    {
        return 0;
    }
}

std::uint64_t kor::enter_client(Client* client) noexcept
{
    const KeptLastError kept;
    ThreadScopes* const scopes = own_scopes();
    if (scopes == nullptr)
        return 0;
    hold(client);
    return enter_held(*scopes, client);
}

void kor::leave_client(std::uint64_t mark) noexcept
{
    const KeptLastError kept;
    const RWThreadLocalSlot* const slot = mark == 0 ? nullptr : clients.scopes();
    auto* const scopes = slot == nullptr ? nullptr : static_cast<ThreadScopes*>(slot->get());
    if (scopes != nullptr)
        scopes->leave(mark);
}

void kor::hold(Client* client) noexcept
{
    if (client != nullptr)
        ++client->m_holders;
}

void kor::release(Client* client) noexcept
{
    if (client != nullptr)
        clients.release(*client);
}
