#include "win/line_section.h"

#include <windows.h>

#include <utility>

#include "win/owners_security.h"

namespace kor::win
{
namespace
{
std::uint64_t number_of(const FILETIME& time) noexcept
{
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}
} // namespace

core::RingOwner own_process() noexcept
{
    FILETIME created{};
    FILETIME unused{};
    ::GetProcessTimes(::GetCurrentProcess(), &created, &unused, &unused, &unused);
    return {::GetCurrentProcessId(), number_of(created)};
}

LineSection::LineSection(const core::RingOwner& owner, std::size_t size, bool is_global) noexcept
{
    const core::RingName global(core::GLOBAL_RING, owner);
    const core::RingName local(core::LOCAL_RING, owner);
    if ((is_global && make(global.text(), size)) || make(local.text(), size))
        return;
    make(nullptr, size); // then no other process finds it, and a crash of this one still does
}

/// What somebody else has made under that name is not touched.
bool LineSection::make(const char* name, std::size_t size) noexcept
{
    OwnersSecurity security(OwnersSecurity::Owner::BY_NAME);
    ::SetLastError(ERROR_SUCCESS);
    OwnedHandle mapping(::CreateFileMappingA(
        INVALID_HANDLE_VALUE, security.attributes(), PAGE_READWRITE, 0, static_cast<DWORD>(size), name));
    if (!mapping || ::GetLastError() == ERROR_ALREADY_EXISTS)
        return false;
    OwnedView view(::MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, size));
    if (!view)
        return false;
    m_mapping = std::move(mapping);
    m_view = std::move(view);
    return true;
}
} // namespace kor::win
