#include <windows.h>

#include "rw/threadlocal.h"

RWThreadLocalSlot::RWThreadLocalSlot(Destroy destroy) noexcept : m_index(::FlsAlloc(destroy)) {}

RWThreadLocalSlot::~RWThreadLocalSlot()
{
    if (m_index != FLS_OUT_OF_INDEXES)
        ::FlsFree(m_index);
    // The process's own log may be used after its end, by hosts that shut down in another order; it
    // then finds no values rather than another library's.
    *const_cast<volatile unsigned long*>(&m_index) = FLS_OUT_OF_INDEXES;
}

void* RWThreadLocalSlot::get() const noexcept
{
    return m_index == FLS_OUT_OF_INDEXES ? nullptr : ::FlsGetValue(m_index);
}

bool RWThreadLocalSlot::set(void* value) noexcept
{
    return m_index != FLS_OUT_OF_INDEXES && ::FlsSetValue(m_index, value) != FALSE;
}
