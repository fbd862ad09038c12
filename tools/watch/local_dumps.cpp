#include "local_dumps.h"

#include <windows.h>

#include <memory>

namespace lumlogwatch
{
namespace
{
constexpr DWORD MINIDUMP = 1; // of DumpType

struct KeyClose
{
    using pointer = HKEY;
    void operator()(HKEY key) const noexcept { ::RegCloseKey(key); }
};
using OwnedKey = std::unique_ptr<HKEY, KeyClose>;

unsigned long set_number(HKEY key, const wchar_t* name, DWORD value)
{
    return static_cast<unsigned long>(
        ::RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value));
}

unsigned long set_path(HKEY key, const wchar_t* name, const std::wstring& path)
{
    const auto size = static_cast<DWORD>((path.size() + 1) * sizeof(wchar_t));
    return static_cast<unsigned long>(
        ::RegSetValueExW(key, name, 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(path.c_str()), size));
}
} // namespace

std::wstring local_dumps_key(const std::wstring& program)
{
    return L"SOFTWARE\\Microsoft\\Windows\\Windows Error Reporting\\LocalDumps\\" + program;
}

unsigned long register_program(const std::wstring& program, const std::wstring& folder)
{
    HKEY raw = nullptr;
    const auto error = static_cast<unsigned long>(::RegCreateKeyExW(
        HKEY_LOCAL_MACHINE, local_dumps_key(program).c_str(), 0, nullptr, 0, KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr,
        &raw, nullptr));
    if (error != ERROR_SUCCESS)
        return error;
    const OwnedKey key(raw);
    if (const auto failed = set_path(key.get(), L"DumpFolder", folder); failed != ERROR_SUCCESS)
        return failed;
    if (const auto failed = set_number(key.get(), L"DumpCount", DUMPS_KEPT); failed != ERROR_SUCCESS)
        return failed;
    return set_number(key.get(), L"DumpType", MINIDUMP);
}

unsigned long unregister_program(const std::wstring& program)
{
    return static_cast<unsigned long>(
        ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, local_dumps_key(program).c_str(), KEY_WOW64_64KEY, 0));
}
} // namespace lumlogwatch
