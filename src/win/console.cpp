#include "win/console.h"

#include <windows.h>

#include <atomic>
#include <cstdarg>

namespace kor::win
{
namespace
{
std::atomic<bool> is_line_open{false};
} // namespace

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

void begin_line() noexcept
{
    if (!is_line_open.load(std::memory_order_relaxed) || !is_line_open.exchange(false))
        return;
    std::fputc('\n', stderr);
    std::fflush(stderr);
}

void print_line(std::FILE* stream, const char* format, ...) noexcept
{
    begin_line();
    std::va_list args;
    va_start(args, format);
    std::vfprintf(stream, format, args);
    va_end(args);
}

void leave_line_open() noexcept { is_line_open = true; }
} // namespace kor::win
