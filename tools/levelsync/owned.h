// owned.h - owners of the system's handles.

#ifndef LEVELSYNC_OWNED_H
#define LEVELSYNC_OWNED_H

#include <windows.h>

#include <memory>

namespace levelsync
{
struct HandleClose
{
    using pointer = HANDLE;
    void operator()(HANDLE handle) const noexcept
    {
        if (handle != INVALID_HANDLE_VALUE)
            ::CloseHandle(handle);
    }
};

/// Of a file, an event, a process; may hold INVALID_HANDLE_VALUE.
using OwnedHandle = std::unique_ptr<HANDLE, HandleClose>;

inline bool is_valid(const OwnedHandle& handle) noexcept
{
    return handle.get() != nullptr && handle.get() != INVALID_HANDLE_VALUE;
}
} // namespace levelsync

#endif // LEVELSYNC_OWNED_H
