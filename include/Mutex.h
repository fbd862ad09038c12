// Mutex.h - two small locks behind one interface.

#ifndef KOR_MUTEX_H
#define KOR_MUTEX_H

#include "Kor_Package.h"
#include "rw/mutex.h"

/// What can be locked and unlocked.
///
/// There is deliberately no virtual destructor: locks are destroyed by whoever made them, as what
/// they are, never through this interface.
class KOR_API Mutex_Base
{
public:
    virtual void Lock() = 0;
    virtual void Unlock() = 0;

protected:
    Mutex_Base() = default;
    Mutex_Base(const Mutex_Base&) = default;
    Mutex_Base& operator=(const Mutex_Base&) = default;
    ~Mutex_Base() = default;
};

/// A plain lock. Not recursive: a thread must not lock it twice.
class KOR_API Mutex final : public Mutex_Base
{
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;
    ~Mutex() = default;

    /// Waits until the lock is free and takes it.
    void Lock() override;

    /// Gives the lock back; only the thread that took it may.
    void Unlock() override;

private:
    RWMutexLock m_lock;
};

/// A recursive lock on an unnamed Windows mutex object.
///
/// The thread that holds it may lock it again; each Lock needs one Unlock. A thread that ends while it
/// holds the lock leaves it to the next Lock. When Windows cannot create the object, Lock and Unlock
/// do nothing but report that in the general log (package 106, level 3).
class KOR_API ThreadAPI_RecursiveMutex final : public Mutex_Base
{
public:
    ThreadAPI_RecursiveMutex();
    ThreadAPI_RecursiveMutex(const ThreadAPI_RecursiveMutex&) = delete;
    ThreadAPI_RecursiveMutex& operator=(const ThreadAPI_RecursiveMutex&) = delete;

    /// Releases the lock once when the destroying thread holds it, then frees the object.
    ~ThreadAPI_RecursiveMutex();

    /// Waits without limit until the lock is free or the calling thread's own, and takes it.
    void Lock() override;

    /// Gives back one Lock of the calling thread.
    void Unlock() override;

private:
    void* m_handle; // HANDLE, null when creation failed
};

#endif // KOR_MUTEX_H
