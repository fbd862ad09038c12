# libcxx.sh SOURCE BUILD PREFIX: the standard library of programs for Microsoft's ABI, which tests are linked with. The
# distribution has its headers, but the library for Linux alone.
here=$(dirname "$(readlink -f "$0")")
source=$1 build=$2 prefix=$3
mkdir -p "$build/objects" "$prefix/lib"
# shellcheck source=tests/msvc/headers.sh
. "$here/../../tests/msvc/headers.sh"
use_headers "$build"
# As the library's own build has it. Of the C functions that operators on 128 bits call, division alone is needed.
in_library=("${header_flags[@]}" -std=c++20 -O1 -D_LIBCPP_BUILDING_LIBRARY -D_CRT_SECURE_NO_WARNINGS "-I$source/libcxx/src" -w)
in_c=(--target=x86_64-pc-windows-msvc -ffreestanding -O1 -nostdlibinc
    -isystem /usr/include/wine/wine/msvcrt -isystem /usr/include/wine/wine/windows)

# compile NAME COMPILER FLAG...
compile()
{
    local name=$1
    shift
    "$@" -c "$name" -o "objects/$(basename "$name").obj"
}
export -f compile
cd "$build"
# What is formatted by std::format was not finished in this version, and is left out by its configuration.
find "$source"/libcxx/src/{,ryu/,filesystem/,support/win32/} -maxdepth 1 -name '*.cpp' ! -name format.cpp -print0 |
    xargs -0 -P "$(nproc)" -I{} bash -eu -c 'compile "$@"' _ {} clang++-14 "${in_library[@]}"
printf '%s\0' "$source"/compiler-rt/lib/builtins/{divti3,udivmodti4}.c |
    xargs -0 -I{} bash -eu -c 'compile "$@"' _ {} clang-14 "${in_c[@]}"
llvm-lib-14 /nologo "/out:$prefix/lib/libc++.lib" objects/*.obj
