#!/usr/bin/env bash
# address_space.sh RUN PREFIX PROGRAM: a process that has used up its address space still writes its crash report, and
# would not without the space that was kept back for it. The space is made small from outside: what Wine has to note
# for 128 terabytes would not fit this machine.
set -euo pipefail
run=$1
prefix=$2
program=$3
limit_kb=$((4 * 1024 * 1024)) # some three of them are taken before the program begins

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
cd "$directory"

crash()
{
    rm -f crash-*.xml crashes.log CLGState.mp
    status=0
    (ulimit -v "$limit_kb" && timeout 60 "$run" "$prefix" "$program" --child=crashes_without_address_space "$1") ||
        status=$?
}

read_report()
{
    xmllint --xpath "concat(//Exception/@Code, ' ', //errors/event/info, ' ', count(//Module) > 3)" crash-*.xml
}

crash with
report=$(read_report)
[ "$report" = "0xe0000001 the end true" ] && [ "$status" -eq 7 ] || {
    echo "the process ended with $status, the report says: $report"
    exit 1
}
for file in crashes.log CLGState.mp; do
    [ -s "$file" ] || {
        echo "there is no $file"
        exit 1
    }
done
crash without
if read_report >/dev/null 2>&1; then
    echo "the report did not need what was kept back"
    exit 1
fi
