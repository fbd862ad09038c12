#include "win/host_program.h"

#include <windows.h>

namespace kor::win
{
bool program_exports(const char* name) noexcept
{
    // Keeps the last error: this is asked where others still look at it.
    const DWORD kept = ::GetLastError();
    const bool exports = ::GetProcAddress(::GetModuleHandleW(nullptr), name) != nullptr;
    ::SetLastError(kept);
    return exports;
}
} // namespace kor::win
