#!/usr/bin/env bash
# std.sh SOURCE_DIR LIBRARY DLL LIBCXX WORK EMULATOR...: programs for Microsoft's ABI with a standard library, threads and
# exceptions use lumlog.hpp. They are made by Clang and LLD without any file of Microsoft's: libc++ in LIBCXX, start-up code
# and import libraries of our own, and the DLLs of the C runtime that Wine brings.
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
source_dir=$1 library=$2 dll=$3 libcxx=$4 work=$5
shift 5

rm -rf "$work"
mkdir -p "$work/include"
cd "$work"
# shellcheck source=tests/msvc/headers.sh
. "$here/headers.sh"
use_headers "$PWD"
# Headers only; the rest of their folder is the machine's own.
cp -R /usr/include/fmt include/
for name in vcruntime140 msvcp140 ucrtbase ntdll kernel32; do
    llvm-dlltool-14 -m i386:x86-64 -d "$here/runtime/$name.def" -l "$name.lib"
done

flags=("${header_flags[@]}" -std=c++17 -O1 -Wall -Wextra -Wpedantic -Wno-language-extension-token -Werror
    -isystem include -DFMT_HEADER_ONLY "-I$source_dir/include")
clang++-14 "${flags[@]}" -fno-rtti -Wno-main -c "$here/runtime/startup.cpp" -o startup.obj
# build NAME SOURCE
build()
{
    clang++-14 "${flags[@]}" -c "$2" -o "$1.obj"
    lld-link-14 /nologo /nodefaultlib /subsystem:console /entry:mainCRTStartup /include:_tls_used "/out:$1.exe" "$1.obj" \
        startup.obj "$libcxx/lib/libc++.lib" {vcruntime140,msvcp140,ucrtbase,ntdll,kernel32}.lib "$library"
}
build std "$here/std_program.cpp" &
build cpp "$source_dir/examples/cpp/cpp.cpp"
build crash "$here/crash_program.cpp"
wait $!

cp "$dll" .
# start FOLDER PROGRAM ARGUMENT...: with a log folder of its own.
start()
{
    local folder=$1
    shift
    mkdir -p "$folder"
    printf '2\nfile_size_limit_in_mb=0\nPerfmon 109 5\n' >"$folder/logger"
    "${emulator[@]}" cmd.exe /c "set KORAL_LOG_DEVELOP=1&& set PRISMATE_LOG_DIR=$folder&& $*"
}
emulator=("$@")
ways=(throw abort virtual)
crashes=()
for way in "${ways[@]}"; do
    start $way crash.exe $way &
    crashes+=($!)
done
for name in std cpp; do
    result=0
    start log $name.exe || result=$?
    cat "log/$name.log"
    [ "$result" -eq 0 ] || { echo "$name.exe ended with $result" && exit 1; }
done
for crash in "${crashes[@]}"; do
    ! wait "$crash" || { echo "crash.exe has survived" && exit 1; }
done

# told NAME: of all lines but the counted ones the thread and the client, where they have any, and what stands behind the
# arrow.
told()
{
    tr -d '\r' <"log/$1.log" | sed -nE '/ \(311\) /d
        s/^[^(]*\([0-9]+\) [^(]*\([0-9]+,[0-9]+(\|([^)]*))?\) +(ClientIP\(([^)]*)\))?.* -> (.*)$/[\2 \4] \5/; T; s/^\[ \] //p; t; p'
}
# says NAME: what is expected comes from the standard input.
says()
{
    diff -u - <(told "$1" | sed 's/ *$//')
}

says std <<'END'
front.png has 3 pages of 2.5 MB
front.png and 100% more
front
wide 日
sixteen 日
albums\für Seite 1.png
the name of it is für Seite 1.png
header (4 bytes)
cannot read front.png Access denied.
12 of 17 in albums\für Seite 1.png
wanted now 1
once for all threads
[Album 192.0.2.7] reads page 1
[Album 192.0.2.7] reads page 2
caught: page 2 is torn
[Second 192.0.2.7] reads page 1
[Second 192.0.2.7] reads page 2
to a std::function that throws
A log destination has thrown an exception: disk full
from another thread
A log destination has thrown an exception: disk full
to a function of C that throws
A log destination has thrown an exception: 0xe06d7363
from another thread
A log destination has thrown an exception: 0xe06d7363
to a function of C that throws
A log destination has thrown an exception: 0xe06d7363
from another thread
A log destination has thrown an exception: 0xe06d7363
while an exception is on its way
A log destination has thrown an exception: 0xe06d7363
without a destination
from another thread
[ 192.0.2.9] to a destination that crashes
from another thread
the archive of a function is closed
the archive of a static object is closed
END
says cpp <<'END'
[ 192.0.2.7] cannot read für Seite 1.png
[ 192.0.2.7] für Seite 1.png
[ 192.0.2.7] its header (4 bytes)
[ 192.0.2.7] für Seite 1.png has 211.5 MB
[ 192.0.2.7] the archive is slow
[ 192.0.2.7] still waiting for the archive
[ 192.0.2.7] waiting for the archive
[ 192.0.2.9] page 1 took long
[ 192.0.2.9] page 2 took long
[ 192.0.2.7] no archive
END
counted=$(grep -c ' (311) .* -> thread [0-3], line ' log/std.log)
timed=$(grep -c '=T=read page,ms=' log/perfmon.log)
[ "$counted" -eq 200 ] && [ "$timed" -eq 4 ] || { echo "$counted counted lines, $timed timed pages" && exit 1; }
# Each crash in its log, with a line, a minidump and a report.
for way in "${ways[@]}"; do
    cat $way/crash.log $way/crashes.log
    sed -nE 's/.* SEVERE .* -> (.*) in [^ ]*\r?$/\1/p' $way/crash.log >>severe
    grep -q '\\crash.exe\[' $way/crashes.log
    [ -s $way/minidump-crash-*.dmp ] && [ -s $way/crash-crash-*.xml ]
done
diff -u - severe <<'END'
The process has crashed: an uncaught C++ exception (0xe06d7363)
The process has crashed: abort() (0xe0000001)
The process has crashed: std::terminate() (0xe0000002)
END
