#include "win/registry.h"

namespace kor::win
{
OwnedRegistryKey open_machine_key(const wchar_t* path) noexcept
{
    HKEY key = nullptr;
    if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS)
        return {};
    return OwnedRegistryKey(key);
}

std::optional<std::wstring> text_value(const OwnedRegistryKey& key, const wchar_t* name)
{
    DWORD type = REG_NONE;
    DWORD size = 0; // in bytes
    if (::RegQueryValueExW(key.get(), name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS || type != REG_SZ)
        return std::nullopt;
    std::wstring text(size / sizeof(wchar_t), L'\0');
    size = static_cast<DWORD>(text.size() * sizeof(wchar_t)); // an odd number of bytes is nobody's text
    if (::RegQueryValueExW(key.get(), name, nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &size) !=
            ERROR_SUCCESS ||
        type != REG_SZ)
        return std::nullopt;
    // A text need not have an end, and may have more than one.
    return text.substr(0, text.find(L'\0'));
}

std::optional<std::uint32_t> number_value(const OwnedRegistryKey& key, const wchar_t* name) noexcept
{
    DWORD type = REG_NONE;
    DWORD value = 0;
    DWORD size = sizeof value;
    if (::RegQueryValueExW(key.get(), name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size) != ERROR_SUCCESS ||
        type != REG_DWORD)
        return std::nullopt;
    return value;
}
} // namespace kor::win
