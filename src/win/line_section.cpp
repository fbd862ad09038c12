#include "win/line_section.h"

#include <windows.h>

#include <sddl.h> // behind windows.h

#include <utility>

namespace kor::win
{
namespace
{
std::uint64_t number_of(const FILETIME& time) noexcept
{
    return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

/// The account that the process runs under may do everything, and so may the system; administrators may read. What a
/// program logs is not for everybody on the machine.
class OwnersSecurity
{
public:
    OwnersSecurity() noexcept
    {
        constexpr char RIGHTS[] = "D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GR;;;BA)";
        PSECURITY_DESCRIPTOR descriptor = nullptr;
        if (::ConvertStringSecurityDescriptorToSecurityDescriptorA(RIGHTS, SDDL_REVISION_1, &descriptor, nullptr))
            m_descriptor = OwnedLocalMemory(descriptor);
        m_attributes.nLength = sizeof m_attributes;
        m_attributes.lpSecurityDescriptor = m_descriptor.get(); // null: what the account's token says, which is no more
    }
    OwnersSecurity(const OwnersSecurity&) = delete;
    OwnersSecurity& operator=(const OwnersSecurity&) = delete;

    SECURITY_ATTRIBUTES* attributes() noexcept { return &m_attributes; }

private:
    OwnedLocalMemory m_descriptor;
    SECURITY_ATTRIBUTES m_attributes{};
};
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
    OwnersSecurity security;
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
