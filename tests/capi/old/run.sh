#!/usr/bin/env bash
# run.sh PROGRAM WORK EMULATOR...: runs a client and reads what it has logged.
set -euo pipefail
program=$1 work=$2
shift 2

rm -rf "$work"
mkdir -p "$work/log"
cd "$work"
printf '2\nfile_size_limit_in_mb=0\n' >log/logger
cp "$program" "$(dirname "$program")/LUMlog.dll" .
"$@" cmd.exe /c "set KORAL_LOG_DEVELOP=1&& set PRISMATE_LOG_DIR=log&& $(basename "$program")"
cat log/old.log
grep -q ' ERROR   (310) old .* old_client\.c([0-9]*) main -> cannot read front\.png' log/old.log
grep -q ' WARNING (310) old .* old_client\.c([0-9]*) main -> only 12 of 17 images fit' log/old.log
