// Kor_ClientScope.h - whom a thread works for, in servers that work for many clients at once.

#ifndef KOR_CLIENTSCOPE_H
#define KOR_CLIENTSCOPE_H

#include <cstdint>

#include "Kor_Package.h"

namespace kor
{
class Client;
}

/// Says whom the calling thread works for, until the scope ends:
///
///     const Kor_ClientScope scope("192.0.2.7", 42);
///
/// As long as it lasts, headlines of this thread's lines name this client and session instead of the process's, and rules
/// of the levels are asked about them: a package that is raised for one client is raised in the threads that work for
/// it, and in no other. Scopes nest: what counts is the latest. Threads without one work for the process's client
/// (Kor_LogFile::SetIP), as all threads do in a process that never made a scope.
///
/// A task takes its client along: Current() on the thread that makes the task, and a scope of what it gave on the
/// thread that runs it.
///
/// Threads: a scope ends on the thread that made it; one that is ended on another does nothing there. A thread that ends
/// within scopes ends them. Not for static objects. Cost: a process that never made a scope has none; making
/// one takes a short lock, and no memory when the same client was worked for lately.
class KOR_API Kor_ClientScope
{
public:
    /// A client and session that threads work for, or, as constructed by default, the process's. Small; copies share
    /// it. May be kept and passed on at will, by any thread.
    class KOR_API Client
    {
    public:
        Client() noexcept = default;
        Client(const Client& other) noexcept;
        Client(Client&& other) noexcept;
        Client& operator=(Client other) noexcept;
        ~Client();

        /// The address as it was given, null for none and for the process's. Stays as long as this does.
        const char* Address() const noexcept;

        /// The session as it was given; 0 for none and for the process's.
        long Session() const noexcept;

        /// True for the process's.
        bool IsOfProcess() const noexcept { return m_client == nullptr; }

    private:
        friend class Kor_ClientScope;

        kor::Client* m_client = nullptr; // holds it
    };

    /// address: an IPv4 or IPv6 address, or a name; null: no client, also where the process has one. A name is looked up
    /// when a rule first depends on it, and again when it is entered after more than a minute. session: below 1: none.
    /// Where there is no memory for it, the thread goes on for whom it did.
    explicit Kor_ClientScope(const char* address, long session = 0) noexcept;

    /// Goes on for a client that was taken along. The process's: as if there were no scope.
    explicit Kor_ClientScope(const Client& client) noexcept;

    Kor_ClientScope(const Kor_ClientScope&) = delete;
    Kor_ClientScope& operator=(const Kor_ClientScope&) = delete;

    /// From here on the thread works for whom it did before. Scopes that were made within this one and have not ended yet
    /// end with it.
    ~Kor_ClientScope();

    /// Whom the calling thread works for.
    static Client Current() noexcept;

private:
    std::uint64_t m_mark; // 0: nothing was entered
};

#endif // KOR_CLIENTSCOPE_H
