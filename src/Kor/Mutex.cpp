#include "Mutex.h"

#include <windows.h>

#include "Kor_LogFile.h"
#include "win/process_end.h"

namespace
{
constexpr int LEVEL_ERROR = 3;

/// Sets a flag for a scope.
class Flag
{
public:
    explicit Flag(bool& flag) noexcept : m_flag(flag) { m_flag = true; }
    Flag(const Flag&) = delete;
    Flag& operator=(const Flag&) = delete;
    ~Flag() { m_flag = false; }

private:
    bool& m_flag;
};

/// The log takes such a lock itself for every message that has destinations. When that very lock is
/// the broken one, a report must not lead to the next.
void report(const char* function, int line, const char* text)
{
    static RWTThreadLocal<bool> reporting;
    bool& nested = reporting.value();
    if (nested)
        return;
    const Flag flag(nested);
    if (KorGLog.StoreParams("Mutex", function, line, LEVEL_ERROR, KOR_PACKAGE_LIBRARY) != 0)
        KorGLog.Log("%s", text);
}
} // namespace

// A process that is ending has one thread, and what others held they hold for good.
void Mutex::Lock()
{
    if (!kor::win::process_is_ending())
        m_lock.acquire();
}

void Mutex::Unlock()
{
    if (!kor::win::process_is_ending())
        m_lock.release();
}

ThreadAPI_RecursiveMutex::ThreadAPI_RecursiveMutex() : m_handle(::CreateMutexA(nullptr, FALSE, nullptr))
{
    if (m_handle == nullptr)
        report(
            "ThreadAPI_RecursiveMutex::ThreadAPI_RecursiveMutex", __LINE__, "Failed to create mutex object handle\n");
}

ThreadAPI_RecursiveMutex::~ThreadAPI_RecursiveMutex()
{
    if (m_handle == nullptr)
        return;
    Unlock(); // fails, harmlessly, unless the destroying thread still holds it
    ::CloseHandle(m_handle);
}

void ThreadAPI_RecursiveMutex::Lock()
{
    if (m_handle == nullptr)
    {
        report(
            "ThreadAPI_RecursiveMutex::Lock", __LINE__, "Requested Lock on a mutex object that failed to initialize\n");
        return;
    }
    ::WaitForSingleObject(m_handle, INFINITE);
}

void ThreadAPI_RecursiveMutex::Unlock()
{
    if (m_handle == nullptr)
    {
        report(
            "ThreadAPI_RecursiveMutex::Unlock", __LINE__,
            "Requested Unlock on a mutex object that failed to initialize\n");
        return;
    }
    ::ReleaseMutex(m_handle);
}
