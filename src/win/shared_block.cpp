#include "win/shared_block.h"

#include <cstdio>

#include "win/console.h"

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
            print_line(stderr, "AttachSharedMemory().Failed in LocalAlloc\n");
            return;
        }
        if (::InitializeSecurityDescriptor(m_descriptor.get(), SECURITY_DESCRIPTOR_REVISION) == FALSE)
            print_line(stderr, "AttachSharedMemory().Failed in InitializeSecurityDescriptor\n");
        if (::SetSecurityDescriptorDacl(m_descriptor.get(), TRUE, nullptr, FALSE) == FALSE)
            print_line(stderr, "AttachSharedMemory().Failed in SetSecurityDescriptorDacl\n");
        m_attributes.lpSecurityDescriptor = m_descriptor.get();
    }

    SECURITY_ATTRIBUTES* attributes() noexcept { return &m_attributes; }

private:
    OwnedLocalMemory m_descriptor;
    SECURITY_ATTRIBUTES m_attributes{};
};
static_assert(SECURITY_DESCRIPTOR_MIN_LENGTH == 40, "size of an absolute descriptor in a 64-bit process");

void report_failed_view(DWORD error) noexcept
{
    print_line(stderr, "****ERROR - Failed in MapViewOfFile.Error num is <%d>****\n", static_cast<int>(error));
}

constexpr DWORD WRITABLE = PAGE_READWRITE | PAGE_EXECUTE_READWRITE;
constexpr DWORD READABLE = WRITABLE | PAGE_READONLY | PAGE_EXECUTE_READ | PAGE_WRITECOPY | PAGE_EXECUTE_WRITECOPY;

enum class Extent
{
    USABLE,
    TOO_SMALL,
    UNUSABLE ///< reserved only, or without the right to read or write
};

/// What the first size bytes of a view are good for, page by page: a section whose maker only reserved it can be
/// mapped with all rights, and have memory in some places and none in others. protections: those that will do.
Extent look_at(const void* view, std::size_t size, DWORD protections) noexcept
{
    const auto* const begin = static_cast<const unsigned char*>(view);
    const void* allocation = nullptr;
    for (std::size_t seen = 0; seen < size;)
    {
        MEMORY_BASIC_INFORMATION region{};
        if (::VirtualQuery(begin + seen, &region, sizeof region) == 0 || region.RegionSize == 0)
            return Extent::UNUSABLE;
        if (seen == 0)
            allocation = region.AllocationBase;
        if (region.State == MEM_FREE || region.AllocationBase != allocation)
            return Extent::TOO_SMALL;
        if (region.State != MEM_COMMIT || (region.Protect & protections) == 0 || (region.Protect & PAGE_GUARD) != 0)
            return Extent::UNUSABLE;
        seen += region.RegionSize;
    }
    return Extent::USABLE;
}
} // namespace

OwnedHandle open_mapping(const char* name) noexcept
{
    return OwnedHandle(::OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, name));
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
        print_line(stderr, "Failed in CreateFileMapping.error %d\n", static_cast<int>(error));
    else if (!created)
        print_line(stderr, "****ERROR - OpenFileMapping->does not exist and CreateFileMapping->exists****\n");
    return mapping;
}

OwnedView map_view(const OwnedHandle& mapping, std::size_t size) noexcept
{
    OwnedView view(::MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, 0));
    if (!view)
    {
        report_failed_view(::GetLastError());
        return view;
    }
    // Anyone can have made an object of that name, and touching what is not there would be a fault.
    switch (look_at(view.get(), size, WRITABLE))
    {
    case Extent::USABLE:
        return view;
    case Extent::TOO_SMALL:
        print_line(stderr, "****ERROR - the shared block is smaller than a configuration****\n");
        return OwnedView();
    case Extent::UNUSABLE:
        break;
    }
    report_failed_view(ERROR_NOACCESS);
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
    if (view && look_at(view.get(), size, READABLE) != Extent::USABLE)
        ::SetLastError(ERROR_INVALID_DATA);
    else
        found.view = std::move(view);
    return found;
}
} // namespace kor::win
