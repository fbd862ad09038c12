#!/usr/bin/env bash
# check-exports.sh OBJDUMP DLL [--update]: compares the names that the DLL exports with those in
# exports.txt beside this script; with --update, writes that list anew.
set -euo pipefail
list=$(dirname "${BASH_SOURCE[0]}")/exports.txt

exported=$("$1" -p "$2" | awk '
    /^\[Ordinal\/Name Pointer\] Table/ { names = 1; next }
    names && !/^\t\[/ { names = 0 }
    names { print $NF }' | LC_ALL=C sort)
if [ -z "$exported" ]; then
    echo "no export table could be read from $2"
    exit 1
fi
if [ "${3:-}" = --update ]; then
    printf '%s\n' "$exported" >"$list"
    exit 0
fi
if ! diff -u "$list" <(printf '%s\n' "$exported"); then
    echo "The exports changed (+ is new). If that is meant, run
scripts/update-exports.sh and say so in the change log: callers link against them."
    exit 1
fi
