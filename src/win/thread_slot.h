// thread_slot.h - one pointer per thread, for who looks at it with every message.

#ifndef KOR_WIN_THREAD_SLOT_H
#define KOR_WIN_THREAD_SLOT_H

#include <windows.h>
#include <winternl.h>

#include <atomic>

// GCC takes what lies in the thread's block, at an offset from nothing that only the processor knows, for an array's end.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
#endif

namespace kor::win
{
/// A slot of thread-local storage that is taken when somebody needs it. Nothing happens to a thread's value when that
/// ends.
class ThreadSlot
{
public:
    constexpr ThreadSlot() noexcept = default;
    ThreadSlot(const ThreadSlot&) = delete;
    ThreadSlot& operator=(const ThreadSlot&) = delete;

    /// False when the process has no slot left.
    bool take() noexcept
    {
        if (m_index == TLS_OUT_OF_INDEXES)
            m_index = ::TlsAlloc();
        return m_index != TLS_OUT_OF_INDEXES;
    }

    void give_back() noexcept
    {
        const DWORD index = m_index.exchange(TLS_OUT_OF_INDEXES);
        if (index != TLS_OUT_OF_INDEXES)
            ::TlsFree(index);
    }

    /// The calling thread's value; null before the first set, and without a slot. Leaves the thread's last error as it
    /// is.
    void* get() const noexcept
    {
        // Where the first slots lie is a part of Windows' binary interface, which compilers build on. By TlsGetValue, with
        // the last error kept around it, which that clears, a check of a level took twice as long.
        constexpr DWORD SLOTS_OF_THE_BLOCK = 64;
        const DWORD index = m_index.load(std::memory_order_acquire);
        if (index < SLOTS_OF_THE_BLOCK)
            return ::NtCurrentTeb()->TlsSlots[index];
        if (index == TLS_OUT_OF_INDEXES)
            return nullptr;
        const DWORD error = ::GetLastError();
        void* const value = ::TlsGetValue(index);
        ::SetLastError(error);
        return value;
    }

    /// With a slot.
    void set(void* value) const noexcept { ::TlsSetValue(m_index, value); }

private:
    std::atomic<DWORD> m_index{TLS_OUT_OF_INDEXES};
};
} // namespace kor::win

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#endif // KOR_WIN_THREAD_SLOT_H
