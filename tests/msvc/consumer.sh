#!/usr/bin/env bash
# consumer.sh BUILD_DIR WORK EMULATOR...: another project for Microsoft's ABI finds the installed package, is given
# LUMlog::c, and told what LUMlog::LUMlog would need.
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
build=$1 work=$2
shift 2

rm -rf "$work"
mkdir -p "$work/log"
cd "$work"
cmake --install "$build" --prefix "$work/installed" >install.log
cmake -S "$here/consumer" -B build -G Ninja --toolchain "$here/toolchain.cmake" -D CMAKE_BUILD_TYPE=Release \
    -D CMAKE_PREFIX_PATH="$work/installed" | tee configure.log
grep -q 'LUMlog::LUMlog, with the exported classes, needs MinGW-w64' configure.log
cmake --build build

cp build/consumer.exe installed/bin/LUMlog.dll .
printf '2\nfile_size_limit_in_mb=0\n' >log/logger
"$@" cmd.exe /c "set KORAL_LOG_DEVELOP=1&& set PRISMATE_LOG_DIR=log&& consumer.exe"
cat log/consumer.log
grep -q ' WARNING (310) consumer .* start -> linked by LUMlog::c' log/consumer.log
