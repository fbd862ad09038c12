// registry.h - values of the registry of the machine.

#ifndef KOR_WIN_REGISTRY_H
#define KOR_WIN_REGISTRY_H

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

#include "win/owned.h"

namespace kor::win
{
struct RegistryKeyTraits
{
    using Type = HKEY;
    static Type none() noexcept { return nullptr; }
    static void close(Type key) noexcept { ::RegCloseKey(key); }
};

using OwnedRegistryKey = Owned<RegistryKeyTraits>;

/// A key below HKEY_LOCAL_MACHINE, to ask for its values. None when it cannot be opened.
OwnedRegistryKey open_machine_key(const wchar_t* path) noexcept;

/// Nothing when the value cannot be read or is none of that type.
std::optional<std::wstring> text_value(const OwnedRegistryKey& key, const wchar_t* name);
std::optional<std::uint32_t> number_value(const OwnedRegistryKey& key, const wchar_t* name) noexcept;
} // namespace kor::win

#endif // KOR_WIN_REGISTRY_H
