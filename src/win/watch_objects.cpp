#include "win/watch_objects.h"

#include <realtimeapiset.h>

#include <new>
#include <string>
#include <utility>

namespace kor::win
{
std::uint64_t watch_time() noexcept
{
    constexpr ULONGLONG UNITS_PER_MS = 10'000;
    ULONGLONG time = 0;
    ::QueryUnbiasedInterruptTime(&time);
    return time / UNITS_PER_MS;
}

core::ProcessIdentity identity_of(HANDLE process) noexcept
{
    FILETIME created{};
    FILETIME unused{};
    if (!::GetProcessTimes(process, &created, &unused, &unused, &unused))
        return {};
    return {::GetProcessId(process), std::uint64_t{created.dwHighDateTime} << 32 | created.dwLowDateTime};
}

NamedSection NamedSection::create(const char* name, std::size_t size, OwnersSecurity& security) noexcept
{
    ::SetLastError(ERROR_SUCCESS);
    OwnedHandle mapping(::CreateFileMappingA(
        INVALID_HANDLE_VALUE, security.attributes(), PAGE_READWRITE, 0, static_cast<DWORD>(size), name));
    return ::GetLastError() == ERROR_ALREADY_EXISTS ? NamedSection() : adopt(std::move(mapping), size);
}

NamedSection NamedSection::find_or_create(const char* name, std::size_t size, OwnersSecurity& security) noexcept
{
    return adopt(
        OwnedHandle(::CreateFileMappingA(
            INVALID_HANDLE_VALUE, security.attributes(), PAGE_READWRITE, 0, static_cast<DWORD>(size), name)),
        size);
}

NamedSection NamedSection::open(const char* name, std::size_t size) noexcept
{
    return adopt(OwnedHandle(::OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, name)), size);
}

NamedSection NamedSection::adopt(OwnedHandle mapping, std::size_t size) noexcept
{
    NamedSection section;
    if (!mapping)
        return section;
    section.m_view = OwnedView(::MapViewOfFile(mapping.get(), FILE_MAP_ALL_ACCESS, 0, 0, size));
    if (section.m_view)
        section.m_mapping = std::move(mapping);
    return section;
}

OwnedHandle find_or_create_event(const char* name, OwnersSecurity& security) noexcept
{
    return OwnedHandle(::CreateEventA(security.attributes(), FALSE, FALSE, name));
}

OwnedHandle open_event(const char* name) noexcept
{
    return OwnedHandle(::OpenEventA(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, name));
}

OwnedHandle find_or_create_mutex(const char* name, OwnersSecurity& security) noexcept
{
    return OwnedHandle(::CreateMutexA(security.attributes(), FALSE, name));
}

bool is_running(HANDLE process) noexcept
{
    return process != nullptr && ::WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
}

std::uint32_t give_handle(HANDLE to_process, HANDLE what) noexcept
{
    HANDLE given = nullptr;
    if (!::DuplicateHandle(::GetCurrentProcess(), what, to_process, &given, 0, FALSE, DUPLICATE_SAME_ACCESS))
        return 0;
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(given));
}

OwnedHandle start_program(const wchar_t* path, const wchar_t* arguments, const wchar_t* folder) noexcept
try
{
    std::wstring line = std::wstring(L"\"").append(path).append(L"\" ").append(arguments);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = startup.hStdOutput = startup.hStdError = INVALID_HANDLE_VALUE;
    PROCESS_INFORMATION process{};
    for (const DWORD breakaway : {DWORD{CREATE_BREAKAWAY_FROM_JOB}, DWORD{0}}) // which a job may refuse
    {
        if (!::CreateProcessW(
                path, line.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS | breakaway, nullptr, folder, &startup,
                &process))
            continue;
        ::CloseHandle(process.hThread);
        return OwnedHandle(process.hProcess);
    }
    return {};
}
catch (const std::bad_alloc&)
{
    ::SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return {};
}
} // namespace kor::win
