#include "win/recursive_lock.h"

namespace kor::win
{
bool RecursiveLock::lock(ThreadMark thread) noexcept { return enter(is_held_by(thread) || m_lock.lock(thread)); }

bool RecursiveLock::lock_within(ThreadMark thread, DWORD limit_ms) noexcept
{
    return enter(is_held_by(thread) || m_lock.lock_within(thread, limit_ms));
}

bool RecursiveLock::try_lock(ThreadMark thread) noexcept
{
    return enter(is_held_by(thread) || m_lock.try_lock(thread));
}

bool RecursiveLock::enter(bool can_enter) noexcept
{
    if (can_enter)
        ++m_depth;
    return can_enter;
}

void RecursiveLock::unlock(ThreadMark thread) noexcept
{
    if (--m_depth == 0)
        m_lock.unlock(thread);
}
} // namespace kor::win
