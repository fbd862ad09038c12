// owner_lock.h - a lock that the death of its holder does not turn into a hang.

#ifndef KOR_WIN_OWNER_LOCK_H
#define KOR_WIN_OWNER_LOCK_H

#include <windows.h>

#include <atomic>
#include <cstdint>

#include "win/thread_mark.h"

namespace kor::win
{
/// Guards a few hundred nanoseconds to a few microseconds of work. Not recursive: a thread that holds it does not get
/// it again.
///
/// Process exit and TerminateThread end threads anywhere, also while they hold a lock; one that cannot
/// tell would then keep the rest of the process waiting for ever. This one notes its holder, and what becomes of it
/// when that one is gone depends on what it guards.
///
/// A holder that lives but does not move is waited for until MAX_WAIT_MS by the clock, once: where the state can be
/// mended, the lock then goes to who has waited, and its old holder no longer has it; where it cannot, nobody waits
/// for this holder again, and the lock is as ever when it is given back.
class OwnerLock
{
public:
    static constexpr DWORD MAX_WAIT_MS = 10'000;

    /// What a holder that is stopped anywhere leaves behind.
    enum class State
    {
        MENDABLE, ///< at worst a damaged line, which is better than a host that stands still: the lock is taken over
        FRAGILE   ///< nobody can go on with it: from then on the lock is orphaned and nobody gets it
    };

    explicit constexpr OwnerLock(State state = State::MENDABLE) noexcept : m_state(state) {}
    OwnerLock(const OwnerLock&) = delete;
    OwnerLock& operator=(const OwnerLock&) = delete;

    /// thread: the calling one. False when it did not get the lock.
    [[nodiscard]] bool lock(ThreadMark thread) noexcept { return try_lock(thread) || wait_for_lock(thread); }

    /// The same, for who has less time, or none. Whoever gives up so early says nothing of the holder: the lock stays with
    /// it, and others wait as ever.
    [[nodiscard]] bool lock_within(ThreadMark thread, DWORD limit_ms) noexcept;
    [[nodiscard]] bool try_lock(ThreadMark thread) noexcept
    {
        ThreadMark nobody = NO_THREAD;
        return m_owner.compare_exchange_strong(nobody, thread, std::memory_order_acquire);
    }

    /// thread: the calling one, which got the lock. It may have lost it since.
    void unlock(ThreadMark thread) noexcept
    {
        if (!is_held_by(thread))
            return;
        m_turn.store(m_turn.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        m_owner.store(NO_THREAD, std::memory_order_release);
    }

    bool is_held_by(ThreadMark thread) const noexcept { return m_owner.load(std::memory_order_relaxed) == thread; }

    /// Another number for each holder, to tell whether it is still the same one.
    std::uint64_t turn() const noexcept { return m_turn.load(std::memory_order_relaxed); }

private:
    struct Holder;
    enum class Outcome
    {
        GOT_IT,
        CANNOT_GET_IT,
        NOT_YET
    };

    bool wait_for_lock(ThreadMark thread) noexcept;
    Outcome wait(ThreadMark thread, DWORD limit_ms) noexcept;
    bool wait_briefly(ThreadMark thread) noexcept;
    bool inherit(ThreadMark from, ThreadMark thread) noexcept;
    bool end_wait(const Holder& first, ThreadMark thread) noexcept;
    Holder holder() const noexcept;

    std::atomic<ThreadMark> m_owner{NO_THREAD};
    std::atomic<std::uint64_t> m_turn{1};       // how often it was given back or taken over
    std::atomic<std::uint64_t> m_stuck_turn{0}; // the turn whose holder was waited for in vain
    const State m_state;
};

/// Holds a lock, if it could be had, for a scope.
class OwnerLockGuard
{
public:
    explicit OwnerLockGuard(OwnerLock& lock) noexcept
        : m_lock(lock), m_thread(current_thread_mark()), m_held(lock.lock(m_thread))
    {
    }
    OwnerLockGuard(const OwnerLockGuard&) = delete;
    OwnerLockGuard& operator=(const OwnerLockGuard&) = delete;
    ~OwnerLockGuard()
    {
        if (m_held)
            m_lock.unlock(m_thread);
    }

    bool held() const noexcept { return m_held; }

private:
    OwnerLock& m_lock;
    ThreadMark m_thread;
    bool m_held;
};
} // namespace kor::win

#endif // KOR_WIN_OWNER_LOCK_H
