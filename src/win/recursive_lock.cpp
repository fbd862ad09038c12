#include "win/recursive_lock.h"

namespace kor::win
{
bool RecursiveLock::lock(ThreadMark thread) noexcept
{
    if (!m_lock.is_held_by(thread) && !m_lock.lock(thread))
        return false;
    ++m_depth;
    return true;
}

void RecursiveLock::unlock(ThreadMark thread) noexcept
{
    if (--m_depth == 0)
        m_lock.unlock(thread);
}
} // namespace kor::win
