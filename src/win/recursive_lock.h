// recursive_lock.h - guards what a thread may enter again from a crash handler.

#ifndef KOR_WIN_RECURSIVE_LOCK_H
#define KOR_WIN_RECURSIVE_LOCK_H

#include "win/owner_lock.h"

namespace kor::win
{
/// A lock that its holder may take again. Waits like OwnerLock; what it guards is FRAGILE.
class RecursiveLock
{
public:
    constexpr RecursiveLock() noexcept = default;
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;

    /// thread: the calling one. False when it gave up waiting, and when the lock is orphaned.
    [[nodiscard]] bool lock(ThreadMark thread) noexcept;
    /// See OwnerLock.
    [[nodiscard]] bool lock_within(ThreadMark thread, DWORD limit_ms) noexcept;
    [[nodiscard]] bool try_lock(ThreadMark thread) noexcept;

    /// thread: the calling one, which got the lock.
    void unlock(ThreadMark thread) noexcept;

    bool is_held_by(ThreadMark thread) const noexcept { return m_lock.is_held_by(thread); }
    std::uint64_t turn() const noexcept { return m_lock.turn(); }

private:
    bool enter(bool can_enter) noexcept;

    OwnerLock m_lock{OwnerLock::State::FRAGILE};
    int m_depth = 0; // only the holder looks at it
};

/// Holds a lock, if it could be had, for a scope.
class RecursiveGuard
{
public:
    explicit RecursiveGuard(RecursiveLock& lock) noexcept
        : m_lock(lock), m_thread(current_thread_mark()), m_held(lock.lock(m_thread))
    {
    }
    RecursiveGuard(const RecursiveGuard&) = delete;
    RecursiveGuard& operator=(const RecursiveGuard&) = delete;
    ~RecursiveGuard()
    {
        if (m_held)
            m_lock.unlock(m_thread);
    }

    bool held() const noexcept { return m_held; }

private:
    RecursiveLock& m_lock;
    ThreadMark m_thread;
    bool m_held;
};
} // namespace kor::win

#endif // KOR_WIN_RECURSIVE_LOCK_H
