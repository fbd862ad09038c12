#include "win/recursive_lock.h"

namespace kor::win
{
bool RecursiveLock::lock() noexcept
{
    if (!m_lock.is_mine())
    {
        if (!m_lock.lock())
            return false;
        // Whoever gives the lock back has set the depth to 0: another depth was left behind by a thread that has ended.
        if (m_depth != 0)
            m_orphaned = true;
        m_depth = 0;
        if (m_orphaned)
        {
            m_lock.unlock();
            return false;
        }
    }
    ++m_depth;
    return true;
}

void RecursiveLock::unlock() noexcept
{
    if (--m_depth == 0)
        m_lock.unlock();
}
} // namespace kor::win
