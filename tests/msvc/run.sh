#!/usr/bin/env bash
# run.sh SOURCE_DIR LIBRARY DLL WORK EMULATOR...: a program for Microsoft's ABI, made by Clang and LLD without any file of
# Microsoft's, uses the C interface.
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
source_dir=$1 library=$2 dll=$3 work=$4
shift 4

rm -rf "$work"
mkdir -p "$work/log"
cd "$work"
def()
{
    local name=$1
    shift
    { printf 'LIBRARY %s.dll\nEXPORTS\n' "$name" && printf '%s\n' "$@"; } >"$name.def"
    llvm-dlltool-14 -m i386:x86-64 -d "$name.def" -l "$name.lib"
}
def kernel32 ExitProcess GetLastError SetLastError RaiseException CreateThread WaitForSingleObject
def ntdll __C_specific_handler

flags=(--target=x86_64-pc-windows-msvc -fms-extensions -fms-compatibility -ffreestanding -O1
    -Wall -Wextra -Wpedantic -Wno-language-extension-token -Wno-microsoft-cast -Werror "-I$source_dir/include")
# The header for C of each age, and for C++.
twice='#include "lumlog.h"
#include "lumlog.h"'
for standard in c89 c99 c11 c17 c2x; do
    clang-14 "${flags[@]}" -std=$standard -fsyntax-only -x c - <<<"$twice"
done
for standard in c++17 c++20 c++2b; do
    clang++-14 "${flags[@]}" -std=$standard -fsyntax-only -x c++ - <<<"$twice"
done
clang++-14 "${flags[@]}" -std=c++17 -fno-exceptions -fno-rtti -c "$here/program.cpp" -o program.obj
lld-link-14 /nologo /nodefaultlib /subsystem:console /entry:start /out:program.exe program.obj \
    "$library" kernel32.lib ntdll.lib

cp "$dll" .
printf '2\nfile_size_limit_in_mb=0\n' >log/logger
result=0
"$@" cmd.exe /c "set KORAL_LOG_DEVELOP=1&& set PRISMATE_LOG_DIR=log&& program.exe" || result=$?
cat log/msvc.log
[ "$result" -eq 0 ] || { echo "check number $result failed" && exit 1; }

# What stands behind the arrow, in this order.
expected='scope begins
42 1099511627776 2.500 abc wide
a finished text with 100% and
wide 日
!!! ERROR !!! Caught exception while formatting log message - Check log line for format discrepancy and null values. !!! ERROR !!!
error kept
scope ends
wanted now
to a destination
to a destination
A log destination has thrown an exception: 0xe0001234
to a destination
A log destination has thrown an exception: 0xe06d7363
from another thread
A log destination has thrown an exception: 0xe06d7363
to a destination that crashes
from another thread
without a destination
from a __finally block
from another thread'
diff -u <(printf '%s\n' "$expected") <(tr -d '\r' <log/msvc.log | sed -n 's/^.* -> //p')
