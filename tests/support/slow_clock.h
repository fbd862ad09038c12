// slow_clock.h - time as Windows lets it pass, without waiting for it.

#ifndef KOR_TESTS_SLOW_CLOCK_H
#define KOR_TESTS_SLOW_CLOCK_H

#include <windows.h>

#include <atomic>
#include <functional>
#include <utility>

#include "import_hook.h"

/// The clock that the library's waits go by, with Windows' usual tick: a Sleep lasts until a tick, so Sleep(1) takes
/// 16 ms. No real time passes; other threads get their turn at each Sleep.
class SlowClock
{
public:
    static constexpr ULONGLONG TICK_MS = 16;

    /// at_sleep: called with the number of each Sleep, from 1 on.
    explicit SlowClock(std::function<void(int)> at_sleep = nullptr)
        : m_at_sleep(std::move(at_sleep)), m_sleep([this](DWORD ms) { sleep(ms); }),
          m_ticks([this]() -> ULONGLONG { return m_now; })
    {
    }

    bool installed() const noexcept { return m_sleep.installed() && m_ticks.installed(); }
    int sleeps() const noexcept { return m_sleep.calls(); }

    /// Milliseconds since this clock was made.
    ULONGLONG elapsed() const noexcept { return m_now - START; }

    void advance(ULONGLONG ms) noexcept { m_now += ms; }

private:
    KOR_IMPORT(Sleep);
    KOR_IMPORT(GetTickCount64);

    static constexpr ULONGLONG START = 1'000'000;

    void sleep(DWORD ms)
    {
        m_now += (ms + TICK_MS - 1) / TICK_MS * TICK_MS;
        if (m_at_sleep)
            m_at_sleep(m_sleep.calls());
        ::Sleep(0);
    }

    std::atomic<ULONGLONG> m_now{START};
    std::function<void(int)> m_at_sleep;
    Hook<SleepImport> m_sleep;
    Hook<GetTickCount64Import> m_ticks;
};

#endif // KOR_TESTS_SLOW_CLOCK_H
