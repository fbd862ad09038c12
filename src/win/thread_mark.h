// thread_mark.h - tells a thread from all others that its process ever had.

#ifndef KOR_WIN_THREAD_MARK_H
#define KOR_WIN_THREAD_MARK_H

#include <windows.h>

#include <atomic>
#include <cstdint>

namespace kor::win
{
/// The thread's id in the low half and a part of its creation time in the high one, as Windows gives the id of a
/// thread that has ended to another. A thread's mark never changes and is never NO_THREAD.
using ThreadMark = std::uint64_t;

constexpr ThreadMark NO_THREAD = 0;

/// True when the thread is known to be gone. One that the caller may not look at, as when it impersonates somebody,
/// counts as living.
bool has_ended(ThreadMark thread) noexcept;

/// Where threads keep their marks: a slot of thread-local storage for the life of the one instance. Before and after
/// it, and where there is no slot, a thread asks the system for its mark each time.
class ThreadMarkSlot
{
public:
    ThreadMarkSlot() noexcept;
    ThreadMarkSlot(const ThreadMarkSlot&) = delete;
    ThreadMarkSlot& operator=(const ThreadMarkSlot&) = delete;
    ~ThreadMarkSlot();

    /// The calling thread's mark. Leaves the thread's last error as it is.
    static ThreadMark current() noexcept;

private:
    static ThreadMark make() noexcept;

    static std::atomic<DWORD> s_slot;
};

inline ThreadMark current_thread_mark() noexcept { return ThreadMarkSlot::current(); }
} // namespace kor::win

#endif // KOR_WIN_THREAD_MARK_H
