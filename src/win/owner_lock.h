// owner_lock.h - a lock that the death of its holder does not turn into a hang.

#ifndef KOR_WIN_OWNER_LOCK_H
#define KOR_WIN_OWNER_LOCK_H

#include <windows.h>

#include <atomic>

namespace kor::win
{
/// Guards a few hundred nanoseconds to a few microseconds of work. Not recursive.
///
/// Process exit and TerminateThread end threads anywhere, also while they hold a lock; one that cannot
/// tell would then keep the rest of the process waiting for ever. This one notes its holder and takes
/// over from a thread that is gone. A holder that lives but does not move is waited for until
/// MAX_WAIT_MS by the clock; the caller then goes on without the lock, as a damaged line is better than a host
/// that stands still.
class OwnerLock
{
public:
    static constexpr DWORD MAX_WAIT_MS = 10'000;

    constexpr OwnerLock() noexcept = default;
    OwnerLock(const OwnerLock&) = delete;
    OwnerLock& operator=(const OwnerLock&) = delete;

    /// False when it gave up waiting.
    bool lock() noexcept
    {
        DWORD nobody = 0;
        return m_owner.compare_exchange_strong(nobody, ::GetCurrentThreadId(), std::memory_order_acquire) ||
               wait_for_lock();
    }

    void unlock() noexcept { m_owner.store(0, std::memory_order_release); }

    /// True when the calling thread holds it.
    bool is_mine() const noexcept { return m_owner.load(std::memory_order_relaxed) == ::GetCurrentThreadId(); }

private:
    bool wait_for_lock() noexcept;

    std::atomic<DWORD> m_owner{0};
};

/// Holds a lock, if it could be had, for a scope.
class OwnerLockGuard
{
public:
    explicit OwnerLockGuard(OwnerLock& lock) noexcept : m_lock(lock), m_held(lock.lock()) {}
    OwnerLockGuard(const OwnerLockGuard&) = delete;
    OwnerLockGuard& operator=(const OwnerLockGuard&) = delete;
    ~OwnerLockGuard()
    {
        if (m_held)
            m_lock.unlock();
    }

    bool held() const noexcept { return m_held; }

private:
    OwnerLock& m_lock;
    bool m_held;
};
} // namespace kor::win

#endif // KOR_WIN_OWNER_LOCK_H
