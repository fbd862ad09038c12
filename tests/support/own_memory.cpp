// own_memory.cpp - minidumps that a process writes of itself take Wine a fraction of a second, and not several.

#include "own_memory.h"

#include <windows.h>

#include <cstring>
#include <cwchar>

#include "import_hook.h"

namespace
{
// As in the kit for drivers, which is not what these programs are built with.
struct UnicodeString
{
    USHORT length; // in bytes
    USHORT size;
    wchar_t* text;
};

struct LoadedDll
{
    ULONG flags;
    const UnicodeString* path;
    const UnicodeString* name;
    void* base;
    ULONG size;
};

constexpr ULONG DLL_IS_LOADED = 1;

using Notice = void CALLBACK(ULONG reason, const LoadedDll* dll, void* context);
using RegisterNotice = LONG NTAPI(ULONG flags, Notice* notice, void* context, void** cookie);

/// All of it in one piece of memory that can be read.
bool is_readable(const void* address, SIZE_T size)
{
    MEMORY_BASIC_INFORMATION memory{};
    if (::VirtualQuery(address, &memory, sizeof memory) == 0 || memory.State != MEM_COMMIT ||
        (memory.Protect & (PAGE_NOACCESS | PAGE_GUARD | PAGE_EXECUTE)) != 0)
        return false;
    const auto* const end = static_cast<const char*>(memory.BaseAddress) + memory.RegionSize;
    return size <= static_cast<SIZE_T>(end - static_cast<const char*>(address));
}

/// In the place of ReadProcessMemory.
BOOL WINAPI read_memory(HANDLE process, const void* address, void* buffer, SIZE_T size, SIZE_T* count)
{
    if (process != ::GetCurrentProcess() || !is_readable(address, size))
        return ::ReadProcessMemory(process, address, buffer, size, count);
    std::memmove(buffer, address, size);
    if (count != nullptr)
        *count = size;
    return TRUE;
}

void CALLBACK hook_debug_help(ULONG reason, const LoadedDll* dll, void*)
{
    constexpr wchar_t NAME[] = L"dbghelp.dll";
    if (reason == DLL_IS_LOADED && dll->name->length == sizeof NAME - sizeof *NAME &&
        ::_wcsnicmp(dll->name->text, NAME, std::size(NAME) - 1) == 0)
        new ImportHook(
            static_cast<HMODULE>(dll->base), "ReadProcessMemory", reinterpret_cast<void*>(&read_memory)); // to the end
}
} // namespace

void read_own_memory_directly()
{
    const HMODULE ntdll = ::GetModuleHandleA("ntdll.dll");
    if (::GetProcAddress(ntdll, "wine_get_version") == nullptr)
        return;
    const auto register_notice = reinterpret_cast<RegisterNotice*>(
        reinterpret_cast<void (*)()>(::GetProcAddress(ntdll, "LdrRegisterDllNotification")));
    static void* cookie = nullptr;
    if (register_notice != nullptr)
        register_notice(0, &hook_debug_help, nullptr, &cookie);
}
