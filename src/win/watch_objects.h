// watch_objects.h - what processes and their watcher share: sections, events, and which process is which.

#ifndef KOR_WIN_WATCH_OBJECTS_H
#define KOR_WIN_WATCH_OBJECTS_H

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "core/watch_layout.h"
#include "win/owned.h"
#include "win/owners_security.h"

namespace kor::win
{
/// Milliseconds that the machine has been awake, the same for all processes.
std::uint64_t watch_time() noexcept;

/// Which process a handle is of; {0, 0} when the system does not tell.
core::ProcessIdentity identity_of(HANDLE process) noexcept;

/// A section of this size that other processes of the account can have too.
class NamedSection
{
public:
    NamedSection() noexcept = default;

    /// All zeros. None where there is one of that name.
    static NamedSection create(const char* name, std::size_t size, OwnersSecurity& security) noexcept;
    /// The one there is, or a new one.
    static NamedSection find_or_create(const char* name, std::size_t size, OwnersSecurity& security) noexcept;
    static NamedSection open(const char* name, std::size_t size) noexcept;
    /// mapping: a handle of a section, which goes along.
    static NamedSection adopt(OwnedHandle mapping, std::size_t size) noexcept;

    /// Null when there is none.
    void* view() const noexcept { return m_view.get(); }
    HANDLE mapping() const noexcept { return m_mapping.get(); }

private:
    OwnedHandle m_mapping;
    OwnedView m_view;
};

/// An event that resets itself. Null when that fails.
OwnedHandle find_or_create_event(const char* name, OwnersSecurity& security) noexcept;
OwnedHandle open_event(const char* name) noexcept;

/// A mutex that nobody has yet, or the one there is.
OwnedHandle find_or_create_mutex(const char* name, OwnersSecurity& security) noexcept;

/// True as long as the process of that handle has not ended.
bool is_running(HANDLE process) noexcept;

/// Gives another process a handle of what this one has. 0 when that fails; handles have no more than 32 bits.
std::uint32_t give_handle(HANDLE to_process, HANDLE what) noexcept;

/// Starts a program that gets no window, no handles of this process and none of its streams, and goes on when this
/// process's job ends, where that lets it. folder: in which it runs. Null with the last error set when that fails.
OwnedHandle start_program(const wchar_t* path, const wchar_t* arguments, const wchar_t* folder) noexcept;
} // namespace kor::win

#endif // KOR_WIN_WATCH_OBJECTS_H
