// memory.h - whether there is memory, for who cannot bear an exception that says no.

#ifndef KOR_WIN_MEMORY_H
#define KOR_WIN_MEMORY_H

#include <cstddef>
#include <cstdlib>

namespace kor::win
{
/// True when the heap has room for so many bytes. To be asked where a crash may have left none: a thread that throws for
/// the first time takes memory for that, and its C++ runtime does not survive a lack of it.
inline bool has_memory(std::size_t size) noexcept
{
    // Volatile: a compiler may leave out an allocation that nobody looks at, and take it for one that went well.
    void* volatile memory = std::malloc(size);
    std::free(memory);
    return memory != nullptr;
}
} // namespace kor::win

#endif // KOR_WIN_MEMORY_H
