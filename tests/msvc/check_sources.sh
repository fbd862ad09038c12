#!/usr/bin/env bash
# check_sources.sh SOURCE_DIR WORK SYSTEM_INCLUDE...: every header, and every source of the DLL, has to compile for Microsoft's
# ABI without a warning. Clang does it over the headers of Wine's C runtime and Windows interfaces and of libc++; no file of
# Microsoft's is used. SYSTEM_INCLUDE: folders with the headers of the libraries that are linked in.
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
source_dir=$(readlink -f "$1") work=$2
shift 2

rm -rf "$work"
mkdir -p "$work/rejected"
cd "$work"
# shellcheck source=tests/msvc/headers.sh
. "$here/headers.sh"
use_headers "$PWD"

flags=("${header_flags[@]}" -std=c++17
    -DACE_AS_STATIC_LIBS -DACE_HAS_CUSTOM_EXPORT_MACROS=0 -D__ACE_INLINE__ -DACE_NDEBUG
    -Wall -Wextra -Wpedantic -Wmismatched-tags -Wmicrosoft -Werror
    -Wno-language-extension-token "-I$source_dir/include")
for folder; do
    flags+=(-isystem "$folder")
done
in_source=(-DKOR_BUILDING_DLL -DNOMINMAX -DWIN32_LEAN_AND_MEAN "-I$source_dir/src")
clang++-14 "${flags[@]}" "${in_source[@]}" -x c++-header "$here/shim/differences.h" -o differences.pch

# Each alone, before and after windows.h.
headers=0
for header in $(cd "$source_dir/include" && find . -name '*.h' -o -name '*.hpp' | sort); do
    printf '#include "%s"\n#include <windows.h>\n' "$header" >"header$((headers += 1)).cpp"
    printf '#include <windows.h>\n#include "%s"\n' "$header" >"header$((headers += 1)).cpp"
done

# compile NAME FLAG...: notes a source that does not compile.
compile()
{
    local name=$1
    shift
    clang++-14 "$@" -fsyntax-only "$name" || : >"rejected/$(basename "$name")"
}
export -f compile
printf '%s\0' header*.cpp | xargs -0 -P "$(nproc)" -I{} bash -c 'compile "$@"' _ {} "${flags[@]}"
printf '%s\0' "$source_dir"/src/{core,win,Kor,c}/*.cpp |
    xargs -0 -P "$(nproc)" -I{} bash -c 'compile "$@"' _ {} "${flags[@]}" "${in_source[@]}" -include-pch differences.pch
[ "$headers" -gt 40 ] || { echo "only $headers headers were looked at" && exit 1; }
[ -z "$(ls rejected)" ] || { echo "rejected: $(ls rejected | tr '\n' ' ')" && exit 1; }
echo "$headers headers and $(printf '%s\n' "$source_dir"/src/{core,win,Kor,c}/*.cpp | wc -l) sources"
