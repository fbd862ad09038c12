// rw/mutex.h - stand-in for the class library's plain mutex.

#ifndef KOR_RW_MUTEX_H
#define KOR_RW_MUTEX_H

#include <mutex>

/// Mutual exclusion between the threads of one process; not recursive.
class RWMutexLock
{
public:
    void acquire() { m_mutex.lock(); }
    void release() { m_mutex.unlock(); }

private:
    std::mutex m_mutex;
};

#endif // KOR_RW_MUTEX_H
