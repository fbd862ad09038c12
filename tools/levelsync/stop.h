// stop.h - Ctrl-C, the closing of the window, logoff and shutdown, for commands that take their time.

#ifndef LEVELSYNC_STOP_H
#define LEVELSYNC_STOP_H

#include <cstdint>

#include "owned.h"

namespace levelsync
{
/// While one exists these end no process at once: wait() returns, and the process has until the object goes (but not
/// longer than the system gives it: five seconds for a window that closes). One at a time.
class StopSignal
{
public:
    StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;
    ~StopSignal();

    /// Waits so long. True when the program is to stop.
    bool wait(std::int64_t milliseconds) const noexcept;

private:
    OwnedHandle m_stop;
    OwnedHandle m_stopped;
    OwnedHandle m_window_thread;
    unsigned long m_window_thread_id = 0;
};
} // namespace levelsync

#endif // LEVELSYNC_STOP_H
