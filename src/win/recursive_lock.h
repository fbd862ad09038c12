// recursive_lock.h - guards what a thread may enter again from a crash handler.

#ifndef KOR_WIN_RECURSIVE_LOCK_H
#define KOR_WIN_RECURSIVE_LOCK_H

#include "win/owner_lock.h"

namespace kor::win
{
/// A lock that its holder may take again. Waits like OwnerLock. What a thread was changing when it was terminated
/// while it held the lock is not in order, and nobody can mend it: from then on the lock is orphaned and nobody
/// gets it.
class RecursiveLock
{
public:
    constexpr RecursiveLock() noexcept = default;
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;

    /// False when it gave up waiting, and when the lock is orphaned.
    bool lock() noexcept;
    void unlock() noexcept;

private:
    OwnerLock m_lock;
    int m_depth = 0;         // only the holder looks at it
    bool m_orphaned = false; // likewise
};

/// Holds a lock, if it could be had, for a scope.
class RecursiveGuard
{
public:
    explicit RecursiveGuard(RecursiveLock& lock) noexcept : m_lock(lock), m_held(lock.lock()) {}
    RecursiveGuard(const RecursiveGuard&) = delete;
    RecursiveGuard& operator=(const RecursiveGuard&) = delete;
    ~RecursiveGuard()
    {
        if (m_held)
            m_lock.unlock();
    }

    bool held() const noexcept { return m_held; }

private:
    RecursiveLock& m_lock;
    bool m_held;
};
} // namespace kor::win

#endif // KOR_WIN_RECURSIVE_LOCK_H
