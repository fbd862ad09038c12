#include "win/console.h"

#include <windows.h>

#include <cstdio>

namespace kor::win
{
bool open_console_if_none() noexcept
{
    DWORD mode = 0;
    if (::GetConsoleDisplayMode(&mode) != FALSE)
        return false;
    ::AllocConsole();
    // The old streams are redirected, so a failure leaves the process as silent as it was.
    static_cast<void>(std::freopen("CONOUT$", "r+", stdout));
    static_cast<void>(std::freopen("CONOUT$", "r+", stderr));
    return true;
}

void set_console_colour(unsigned short colour) noexcept
{
    ::SetConsoleTextAttribute(::GetStdHandle(STD_OUTPUT_HANDLE), colour);
}
} // namespace kor::win
