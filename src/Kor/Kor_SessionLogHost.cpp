#include "Kor_SessionLog.h"

#include <windows.h>

#include <atomic>

#include "Kor/watched.h"
#include "general_log.h"
#include "win/kept_errors.h"
#include "win/library.h"
#include "win/owned.h"

using kor::win::KeptErrors;
using kor::win::OwnedLibrary;

namespace
{
constexpr char SOURCE[] = "Kor_SessionLog";
constexpr char BACKGROUND[] = "Kor_SessionLogHost::startWatcherInBackground";
constexpr char NO_REPORTER[] = "Kor_SessionLog is not there, or not switched on";
constexpr SIZE_T STACK_SIZE = 256 * 1024; // of the thread that starts the watcher

void tell_not_watched(const char* function, const char* wrong)
{
    KOR_GENERAL_LOG(SOURCE, function, kor::LEVEL_WARNING, "This process is not watched: %s.\n", wrong);
}

/// The library, for a thread of its own to stand on: it does not go as long as somebody has this.
OwnedLibrary keep_library() noexcept
{
    HMODULE self = nullptr;
    ::GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<const wchar_t*>(&tell_not_watched), &self);
    return OwnedLibrary(self);
}

/// What the host's own thread has prepared is there until the library goes.
DWORD WINAPI start_watcher(void* library)
{
    const char* wrong = nullptr;
    if (!kor::watched.load(std::memory_order_acquire)->find_or_start_watcher(wrong))
        tell_not_watched(BACKGROUND, wrong);
    ::FreeLibraryAndExitThread(static_cast<HMODULE>(library), 0);
}
} // namespace

void Kor_SessionLogHost::reportToCrashLogFile(_EXCEPTION_POINTERS* exception)
{
    if (Kor_SessionLog* const instance = Kor_SessionLog::myInstance)
        instance->reportToCrashLogFile(exception);
}

void Kor_SessionLogHost::saveState()
{
    if (Kor_SessionLog* const instance = Kor_SessionLog::myInstance)
        instance->saveState();
}

void Kor_SessionLogHost::destroy() { delete Kor_SessionLog::myInstance; }

// The watcher ----------------------------------------------------------------------------------------------------
bool Kor_SessionLogHost::startWatcher()
{
    const KeptErrors kept;
    const char* wrong = NO_REPORTER;
    if (Kor_SessionLog::myInstance != nullptr && Kor_SessionLog::myInstance->start_watcher(wrong))
        return true;
    tell_not_watched("Kor_SessionLogHost::startWatcher", wrong);
    return false;
}

bool Kor_SessionLogHost::startWatcherInBackground()
{
    const KeptErrors kept;
    const char* wrong = NO_REPORTER;
    if (Kor_SessionLog::myInstance != nullptr && Kor_SessionLog::myInstance->prepare_watcher(wrong))
    {
        OwnedLibrary library = keep_library();
        const kor::win::OwnedHandle thread(::CreateThread(
            nullptr, STACK_SIZE, &start_watcher, library.get(), STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr));
        if (thread)
        {
            static_cast<void>(library.release()); // the thread's now
            return true;
        }
        wrong = "there is no thread to start the watcher";
    }
    tell_not_watched(BACKGROUND, wrong);
    return false;
}

bool Kor_SessionLogHost::heartbeat(const char* name, unsigned milliseconds)
{
    if (name == nullptr)
        return false;
    const KeptErrors kept;
    kor::Watched* const process = kor::watched.load(std::memory_order_acquire);
    return process != nullptr && process->heartbeat(name, milliseconds);
}
