// named_mutex.h - a lock that processes share by its name.

#ifndef KOR_WIN_NAMED_MUTEX_H
#define KOR_WIN_NAMED_MUTEX_H

#include "win/owned.h"

namespace kor::win
{
/// Holds the mutex of a name, if it could be had, for a scope. A holder that dies hands it on. Everyone may use it,
/// whatever account they run under; where Windows refuses it all the same (the name belongs to something else, or a
/// sandbox lets nobody out), there is nothing to hold and the caller goes on without.
class NamedMutexGuard
{
public:
    /// name: null for none. Waits so many milliseconds at most.
    NamedMutexGuard(const char* name, DWORD max_wait_ms) noexcept;
    NamedMutexGuard(const NamedMutexGuard&) = delete;
    NamedMutexGuard& operator=(const NamedMutexGuard&) = delete;
    ~NamedMutexGuard();

    bool held() const noexcept { return m_held; }

    /// True when somebody else holds it, or held it until the end of the wait.
    bool in_use() const noexcept { return m_in_use; }

private:
    OwnedHandle m_mutex;
    bool m_held;
    bool m_in_use = false;
};
} // namespace kor::win

#endif // KOR_WIN_NAMED_MUTEX_H
