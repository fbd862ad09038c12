// log_lock.h - holding the mutex of a general log.

#ifndef KOR_LOG_LOCK_H
#define KOR_LOG_LOCK_H

#include "Mutex.h"

namespace kor
{
/// Holds a log's mutex, where there was memory for one, for a scope.
class LogLock
{
public:
    explicit LogLock(ThreadAPI_RecursiveMutex* mutex) : m_mutex(mutex)
    {
        if (m_mutex != nullptr)
            m_mutex->Lock();
    }
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;
    ~LogLock()
    {
        if (m_mutex != nullptr)
            m_mutex->Unlock();
    }

private:
    ThreadAPI_RecursiveMutex* m_mutex;
};
} // namespace kor

#endif // KOR_LOG_LOCK_H
