// wait_clock.h - how long a wait has lasted.

#ifndef KOR_WIN_WAIT_CLOCK_H
#define KOR_WIN_WAIT_CLOCK_H

#include <windows.h>

#include <algorithm>

namespace kor::win
{
/// Bounds a wait in pieces by the clock: a Sleep(1) lasts between one millisecond and the 16 of the system's tick, or
/// longer on a busy machine, so to count them tells nothing.
class WaitClock
{
public:
    explicit WaitClock(DWORD limit_ms) noexcept : m_seen(::GetTickCount64()), m_left(limit_ms) {}

    /// True when the limit is reached.
    bool is_over() noexcept
    {
        const ULONGLONG now = ::GetTickCount64();
        const ULONGLONG piece = std::min(now - m_seen, LONGEST_PIECE_MS);
        m_seen = now;
        m_left -= std::min(piece, m_left);
        return m_left == 0;
    }

private:
    // Time that passes at one go, as while the machine sleeps or a debugger holds the process, has passed for whom
    // the wait is for as little as for the waiter.
    static constexpr ULONGLONG LONGEST_PIECE_MS = 1000;

    ULONGLONG m_seen;
    ULONGLONG m_left;
};
} // namespace kor::win

#endif // KOR_WIN_WAIT_CLOCK_H
