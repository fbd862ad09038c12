#include "win/process_end.h"

#include <windows.h>

#include "win/library.h"

namespace kor::win
{
namespace
{
using ShutdownInProgress = BOOLEAN NTAPI();

// From ntdll.dll, which every process has. It tells also DLLs that go before this one, and log while they do, that
// the threads are gone; this DLL's own entry point would hear of it only after them.
ShutdownInProgress* const shutdown_in_progress =
    find_function<ShutdownInProgress>(::GetModuleHandleW(L"ntdll.dll"), "RtlDllShutdownInProgress");
} // namespace

bool process_is_ending() noexcept { return shutdown_in_progress != nullptr && shutdown_in_progress() != FALSE; }
} // namespace kor::win
