# shellcheck shell=bash
# Sourced by what compiles C++ for Microsoft's ABI by Clang, over the headers of libc++ and of Wine's C runtime and Windows
# interfaces; no file of Microsoft's is used.

# use_headers DIR: makes in DIR what those headers want changed, and leaves in header_flags what a compiler is called with.
use_headers()
{
    local dir=$1 here
    here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
    mkdir -p "$dir/libcxx" "$dir/windows"
    # For libc++ as it would have been configured here: a static library that has all but the run time's DLLs in it.
    sed -e 's|/\* #undef _LIBCPP_HAS_THREAD_API_WIN32 \*/|#define _LIBCPP_HAS_THREAD_API_WIN32|' \
        -e 's|/\* #undef _LIBCPP_NO_VCRUNTIME \*/|#define _LIBCPP_NO_VCRUNTIME|' \
        -e 's|/\* #undef _LIBCPP_DISABLE_VISIBILITY_ANNOTATIONS \*/|#define _LIBCPP_DISABLE_VISIBILITY_ANNOTATIONS|' \
        /usr/lib/llvm-14/include/c++/v1/__config_site >"$dir/libcxx/__config_site"
    # Clang itself has the function that Wine's header defines.
    sed 's|static FORCEINLINE unsigned char InterlockedCompareExchange128(|static FORCEINLINE unsigned char unused_exchange128(|' \
        /usr/include/wine/wine/windows/winnt.h >"$dir/windows/winnt.h"
    # Functions of the C runtime are called by name: the import libraries have them either way.
    header_flags=(--target=x86_64-pc-windows-msvc -fms-compatibility -fms-extensions -fms-compatibility-version=19.29
        -fexceptions -fcxx-exceptions -nostdlibinc -D_DLL -D_MT -D_ACRTIMP= -DWINE_UNICODE_NATIVE -D_WIN32_WINNT=0x0602
        -isystem "$dir/libcxx" -isystem /usr/lib/llvm-14/include/c++/v1 -isystem "$here/shim" -isystem "$dir/windows"
        -isystem /usr/include/wine/wine/msvcrt -isystem /usr/include/wine/wine/windows
        -Wno-nonportable-system-include-path)
}
