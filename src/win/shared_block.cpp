#include "win/shared_block.h"

#include <cstdio>

namespace kor::win
{
namespace
{
/// A security descriptor that lets everyone in: servers run under several accounts. Each step's
/// failure is reported and the rest is tried all the same; Windows then applies its default.
class OpenSecurity
{
public:
    OpenSecurity() noexcept : m_descriptor(::LocalAlloc(LPTR, SECURITY_DESCRIPTOR_MIN_LENGTH))
    {
        m_attributes.nLength = sizeof m_attributes;
        m_attributes.bInheritHandle = TRUE;
        if (!m_descriptor)
        {
            std::fprintf(stderr, "AttachSharedMemory().Failed in LocalAlloc\n");
            return;
        }
        if (::InitializeSecurityDescriptor(m_descriptor.get(), SECURITY_DESCRIPTOR_REVISION) == FALSE)
            std::fprintf(stderr, "AttachSharedMemory().Failed in InitializeSecurityDescriptor\n");
        if (::SetSecurityDescriptorDacl(m_descriptor.get(), TRUE, nullptr, FALSE) == FALSE)
            std::fprintf(stderr, "AttachSharedMemory().Failed in SetSecurityDescriptorDacl\n");
        m_attributes.lpSecurityDescriptor = m_descriptor.get();
    }

    SECURITY_ATTRIBUTES* attributes() noexcept { return &m_attributes; }

private:
    OwnedLocalMemory m_descriptor;
    SECURITY_ATTRIBUTES m_attributes{};
};
static_assert(SECURITY_DESCRIPTOR_MIN_LENGTH == 40, "size of an absolute descriptor in a 64-bit process");

/// Anyone can have made an object of that name, and reading past its end would be a fault.
bool holds(const OwnedView& view, std::size_t size) noexcept
{
    MEMORY_BASIC_INFORMATION region{};
    return ::VirtualQuery(view.get(), &region, sizeof region) != 0 && region.RegionSize >= size;
}
} // namespace

OwnedHandle open_mapping(const char* name, const char* fallback_name) noexcept
{
    OwnedHandle mapping(::OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, name));
    if (!mapping && fallback_name != nullptr)
        mapping = OwnedHandle(::OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, fallback_name));
    return mapping;
}

OwnedHandle create_mapping(const char* name, std::size_t size, bool& created) noexcept
{
    OpenSecurity security;
    ::SetLastError(ERROR_SUCCESS); // looked at below, also when the call succeeds
    OwnedHandle mapping(::CreateFileMappingA(
        INVALID_HANDLE_VALUE, security.attributes(), PAGE_READWRITE, 0, static_cast<DWORD>(size), name));
    const DWORD error = ::GetLastError();
    created = mapping && error != ERROR_ALREADY_EXISTS;
    if (!mapping)
        std::fprintf(stderr, "Failed in CreateFileMapping.error %d\n", static_cast<int>(error));
    else if (!created)
        std::fprintf(stderr, "****ERROR - OpenFileMapping->does not exist and CreateFileMapping->exists****\n");
    return mapping;
}

OwnedView map_view(const OwnedHandle& mapping, std::size_t size) noexcept
{
    OwnedView view(::MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    if (!view)
    {
        std::fprintf(
            stderr, "****ERROR - Failed in MapViewOfFile.Error num is <%d>****\n", static_cast<int>(::GetLastError()));
        return view;
    }
    if (holds(view, size))
        return view;
    std::fprintf(stderr, "****ERROR - the shared block is smaller than a configuration****\n");
    return OwnedView();
}

FoundView find_view(const char* name, const char* fallback_name, std::size_t size) noexcept
{
    OwnedHandle mapping(::OpenFileMappingA(FILE_MAP_READ, FALSE, name));
    if (!mapping && fallback_name != nullptr && ::GetLastError() == ERROR_FILE_NOT_FOUND)
    {
        name = fallback_name;
        mapping = OwnedHandle(::OpenFileMappingA(FILE_MAP_READ, FALSE, name));
    }
    FoundView found{OwnedView(), name};
    if (!mapping)
        return found;
    OwnedView view(::MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, 0));
    if (view && !holds(view, size))
        ::SetLastError(ERROR_INVALID_DATA);
    else
        found.view = std::move(view);
    return found;
}
} // namespace kor::win
