// thread_client.h - whom threads work for, and the levels that are in force for them.

#ifndef KOR_THREAD_CLIENT_H
#define KOR_THREAD_CLIENT_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Kor/client_address.h"
#include "rw/threadlocal.h"
#include "win/owner_lock.h"
#include "win/thread_slot.h"

namespace kor
{
/// The levels in force for one client, of the packages that were asked about last. Any thread, without a lock.
class KnownLevels
{
public:
    static constexpr int UNKNOWN = -1;

    /// generation: that of the log's levels; UNKNOWN also for a level of another one.
    int find(int package, std::uint64_t generation) const noexcept
    {
        const std::uint64_t entry = m_entries[place(package)].load(std::memory_order_relaxed);
        return entry >> LEVEL_BITS == key(package, generation) ? static_cast<int>(entry & MAX_LEVEL) : UNKNOWN;
    }

    /// level: 0 to 255.
    void keep(int package, std::uint64_t generation, int level) noexcept
    {
        const std::uint64_t entry = key(package, generation) << LEVEL_BITS | static_cast<std::uint64_t>(level);
        m_entries[place(package)].store(entry, std::memory_order_relaxed);
    }

    void forget() noexcept
    {
        for (auto& entry : m_entries)
            entry.store(0, std::memory_order_relaxed);
    }

private:
    static constexpr unsigned int COUNT = 64; // a request goes through some dozens of packages
    static constexpr int LEVEL_BITS = 8;
    static constexpr std::uint64_t MAX_LEVEL = 255;
    static constexpr int PACKAGE_BITS = 10; // up to PACKAGE_COUNT

    static unsigned int place(int package) noexcept { return static_cast<unsigned int>(package) % COUNT; }
    static std::uint64_t key(int package, std::uint64_t generation) noexcept
    {
        return generation << PACKAGE_BITS | static_cast<std::uint64_t>(package);
    }

    std::atomic<std::uint64_t> m_entries[COUNT]{}; // 0: none, as generations start at 1
};

/// A client and a session that threads work for. There is one for all threads that work for the same, and it stays
/// known for a while when they have done, with what was found out about it.
class Client
{
public:
    /// address: null for none.
    Client(const char* address, long session);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    const char* address() const noexcept { return m_has_address ? m_address.c_str() : nullptr; }
    long session() const noexcept { return m_session; }

    /// Of no other client, as long as the process runs. Above 0.
    std::uint64_t number() const noexcept { return m_number; }

    KnownLevels& levels() noexcept { return m_levels; }

    /// What its name stands for, looked up when it is first asked for. Throws std::bad_alloc.
    ClientAddress looked_up();

private:
    friend class Clients;
    friend void hold(Client* client) noexcept;

    bool is_out_of_date(std::uint64_t now) const noexcept;
    void forget_what_was_found() noexcept;

    const bool m_has_address;
    const std::string m_address;
    const long m_session;
    const std::uint64_t m_number;
    KnownLevels m_levels;
    std::atomic<bool> m_is_looked_up{false};
    std::uint64_t m_looked_up_at = 0; // milliseconds since the system started; with m_found guarded by identity_lock
    ClientAddress m_found;
    std::atomic<std::uint32_t> m_holders{1};
    bool m_is_listed = false;         // where the same client is looked for
    std::list<Client*> m_place{this}; // one element, which stands in the list of idle ones while nobody holds this
    std::list<Client*>::iterator m_self = m_place.begin();
};

/// All clients of the process.
class Clients
{
public:
    Clients() noexcept = default;
    Clients(const Clients&) = delete;
    Clients& operator=(const Clients&) = delete;
    ~Clients();

    /// Held, for release. Throws std::bad_alloc.
    Client* find_or_make(const char* address, long session);
    void release(Client& client) noexcept;

    /// Where threads keep their scopes; null before the first scope.
    const RWThreadLocalSlot* scopes() const noexcept { return m_scopes.load(std::memory_order_acquire); }

    /// The same, made when it is not there yet; null when there is no memory. From then on the levels of all logs are
    /// asked for by client.
    RWThreadLocalSlot* use_scopes() noexcept;

    /// The calling thread's client, null for none.
    Client* current() const noexcept { return static_cast<Client*>(m_current.get()); }
    void set_current(Client* client) const noexcept { m_current.set(client); }

private:
    struct Key
    {
        std::string_view address;
        bool has_address;
        long session;

        bool operator==(const Key& other) const noexcept
        {
            return session == other.session && has_address == other.has_address && address == other.address;
        }
    };
    struct Hash
    {
        std::size_t operator()(const Key& key) const noexcept
        {
            return std::hash<std::string_view>()(key.address) ^ std::hash<long>()(key.session);
        }
    };

    static Key key_of(const Client& client) noexcept;
    void remove_oldest() noexcept;

    win::OwnerLock m_lock{win::OwnerLock::State::FRAGILE};
    std::unordered_map<Key, Client*, Hash> m_listed;
    std::list<Client*> m_idle; // the one that was left longest ago first
    std::atomic<RWThreadLocalSlot*> m_scopes{nullptr};
    win::ThreadSlot m_current; // apart from the scopes, as each check of a level looks at it
};

extern Clients clients;

/// The levels in force for the process's own client, in a process whose threads have some of their own.
extern KnownLevels process_levels;

/// True from the first scope of this process on.
extern std::atomic<bool> threads_have_clients;

/// True from then on, or from when lines are kept in memory: of the levels that logs keep for the check in front of each
/// message, each is the highest that any message of its package may have.
extern std::atomic<bool> levels_are_ceilings;

/// Whom the calling thread works for, null for the process's client. The thread holds it.
inline Client* thread_client() noexcept { return clients.current(); }

/// The calling thread works for a client from now on. Returns what leave_client wants, 0 when there was no memory.
std::uint64_t enter_client(const char* address, long session) noexcept;
/// client: null for the process's. Takes a hold of its own.
std::uint64_t enter_client(Client* client) noexcept;

/// Ends what enter_client began on this thread, and what began after it. Else, and for 0, nothing.
void leave_client(std::uint64_t mark) noexcept;

/// Null is no harm.
void hold(Client* client) noexcept;
void release(Client* client) noexcept;
} // namespace kor

#endif // KOR_THREAD_CLIENT_H
