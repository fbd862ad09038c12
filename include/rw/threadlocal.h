// rw/threadlocal.h - stand-in for the class library's per-thread value, over a Windows FLS slot.

#ifndef KOR_RW_THREADLOCAL_H
#define KOR_RW_THREADLOCAL_H

#include <new>

#include "../Kor_Package.h"

/// One pointer per thread. When a thread ends, and for every thread when the slot itself goes,
/// `destroy` is called with each pointer that is not null.
///
/// The language's own thread_local is no alternative in a DLL that can be unloaded: its destructors
/// pin the module, and every access costs several times one of a slot.
class KOR_API RWThreadLocalSlot
{
public:
    using Destroy = void (*)(void*);

    explicit RWThreadLocalSlot(Destroy destroy) noexcept;
    RWThreadLocalSlot(const RWThreadLocalSlot&) = delete;
    RWThreadLocalSlot& operator=(const RWThreadLocalSlot&) = delete;
    ~RWThreadLocalSlot();

    /// Null before the first set on this thread. Like the system call below it, changes the
    /// thread's last error.
    void* get() const noexcept;

    /// False when the value could not be kept: no slot was left when this one was made, or no memory.
    bool set(void* value) noexcept;

private:
    unsigned long m_index;
};

/// One T per thread, default-constructed on the thread's first access and destroyed when it ends.
template <class T>
class RWTThreadLocal
{
public:
    using Release = void (*)(T&);

    /// release, when given, is called with a thread's value before it is destroyed; for a T that
    /// does not own what it points at.
    explicit RWTThreadLocal(Release release = nullptr) noexcept : m_slot(&destroy), m_release(release) {}

    /// The calling thread's value. Throws std::bad_alloc when there is no memory, or no slot, for it.
    T& value()
    {
        if (void* const known = m_slot.get())
            return static_cast<Cell*>(known)->value;
        auto* const cell = new Cell{T(), m_release};
        if (m_slot.set(cell))
            return cell->value;
        delete cell;
        throw std::bad_alloc();
    }

    /// The calling thread's value, null when there is no memory, or no slot, for it.
    T* find_or_make() noexcept
    {
        try
        {
            return &value();
        }
        catch (const std::bad_alloc&)
        {
            return nullptr;
        }
    }

    /// The calling thread's value, null when it has none yet.
    T* find() const noexcept
    {
        void* const known = m_slot.get();
        return known == nullptr ? nullptr : &static_cast<Cell*>(known)->value;
    }

private:
    struct Cell
    {
        T value;
        Release release;
    };

    static void destroy(void* raw)
    {
        auto* const cell = static_cast<Cell*>(raw);
        if (cell->release != nullptr)
            cell->release(cell->value);
        delete cell;
    }

    RWThreadLocalSlot m_slot;
    Release m_release;
};

#endif // KOR_RW_THREADLOCAL_H
