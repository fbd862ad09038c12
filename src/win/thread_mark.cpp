#include "win/thread_mark.h"

#include "win/owned.h"
#include "win/process_end.h"

static_assert(sizeof(kor::win::ThreadMark) == sizeof(void*), "a mark fits a slot of thread-local storage");

namespace kor::win
{
namespace
{
/// The low half of the creation time, which comes again every seven minutes and so tells a thread from one that has
/// had its id just before; 0 where the system does not tell it.
DWORD birth_of(HANDLE thread) noexcept
{
    FILETIME created{};
    FILETIME ended{};
    FILETIME in_kernel{};
    FILETIME in_user{};
    return ::GetThreadTimes(thread, &created, &ended, &in_kernel, &in_user) ? created.dwLowDateTime : 0;
}

DWORD id_of(ThreadMark thread) noexcept { return static_cast<DWORD>(thread); }
DWORD birth_of(ThreadMark thread) noexcept { return static_cast<DWORD>(thread >> 32); }
} // namespace

bool has_ended(ThreadMark thread) noexcept
{
    if (process_is_ending())
        return thread != current_thread_mark();
    const OwnedHandle opened(::OpenThread(SYNCHRONIZE | THREAD_QUERY_LIMITED_INFORMATION, FALSE, id_of(thread)));
    if (!opened)
        return ::GetLastError() == ERROR_INVALID_PARAMETER; // no thread has that id
    if (::WaitForSingleObject(opened.get(), 0) == WAIT_OBJECT_0)
        return true;
    const DWORD birth = birth_of(opened.get());
    return birth != 0 && birth_of(thread) != 0 && birth != birth_of(thread); // another has the id by now
}

std::atomic<DWORD> ThreadMarkSlot::s_slot{TLS_OUT_OF_INDEXES};

ThreadMarkSlot::ThreadMarkSlot() noexcept { s_slot = ::TlsAlloc(); }

ThreadMarkSlot::~ThreadMarkSlot()
{
    const DWORD slot = s_slot.exchange(TLS_OUT_OF_INDEXES);
    if (slot != TLS_OUT_OF_INDEXES && !process_is_ending())
        ::TlsFree(slot);
}

ThreadMark ThreadMarkSlot::current() noexcept
{
    const DWORD error = ::GetLastError(); // which TlsGetValue clears
    const DWORD slot = s_slot.load(std::memory_order_relaxed);
    auto mark = slot == TLS_OUT_OF_INDEXES ? NO_THREAD : reinterpret_cast<ThreadMark>(::TlsGetValue(slot));
    if (mark == NO_THREAD)
        mark = make();
    ::SetLastError(error);
    return mark;
}

ThreadMark ThreadMarkSlot::make() noexcept
{
    const ThreadMark mark = (ThreadMark{birth_of(::GetCurrentThread())} << 32) | ThreadMark{::GetCurrentThreadId()};
    const DWORD slot = s_slot.load(std::memory_order_relaxed);
    if (slot != TLS_OUT_OF_INDEXES)
        ::TlsSetValue(slot, reinterpret_cast<void*>(mark)); // without room for it, the next call asks again
    return mark;
}
} // namespace kor::win
