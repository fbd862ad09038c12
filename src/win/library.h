// library.h - functions of system DLLs that are loaded when first needed.

#ifndef KOR_WIN_LIBRARY_H
#define KOR_WIN_LIBRARY_H

#include <windows.h>

#include "win/owned.h"

namespace kor::win
{
struct LibraryTraits
{
    using Type = HMODULE;
    static Type none() noexcept { return nullptr; }
    static void close(Type module) noexcept { ::FreeLibrary(module); }
};

/// One load of a DLL.
using OwnedLibrary = Owned<LibraryTraits>;

/// Loads a DLL of the system from the system's own directory, wherever else there may be one of that name.
inline OwnedLibrary load_system_library(const wchar_t* name) noexcept
{
    return OwnedLibrary(::LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
}

/// A function of a DLL, null where it has none of that name. A library of null has none.
template <class Function>
Function* find_function(HMODULE library, const char* name) noexcept
{
    if (library == nullptr)
        return nullptr;
    // By way of a pointer to a function without arguments, which every compiler lets be any other.
    return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(::GetProcAddress(library, name)));
}
} // namespace kor::win

#endif // KOR_WIN_LIBRARY_H
