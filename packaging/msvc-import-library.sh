#!/usr/bin/env bash
# msvc-import-library.sh OBJDUMP DLLTOOL DLL LIBRARY: makes the import library of the C functions that Microsoft's linker
# and LLD take: in the short form, which LLVM's dlltool writes.
set -euo pipefail
objdump=$1 dlltool=$2 dll=$3 library=$4

# The tables of GNU's objdump and of LLVM's.
exported=$("$objdump" -p "$dll" | awk '
    /^\[Ordinal\/Name Pointer\] Table/ { names = 1; next }
    names && !/^\t\[/ { names = 0 }
    names || /^ +[0-9]+ +0x[0-9a-f]+ +[A-Za-z_]+$/ { print $NF }' | LC_ALL=C sort -u | grep -E '^(lum_|OpenLog$|WriteLog$)')
{
    printf 'LIBRARY %s\nEXPORTS\n' "$(basename "$dll")"
    # The one object among the functions.
    printf '%s\n' "$exported" | sed 's/^lum_process_gate$/& DATA/'
} >"$library.def"
"$dlltool" -m i386:x86-64 -d "$library.def" -l "$library"
