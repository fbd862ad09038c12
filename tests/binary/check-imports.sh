#!/usr/bin/env bash
# check-imports.sh OBJDUMP DLL: fails when the DLL imports from other DLLs than these. Each further
# one delays the start of every program that logs: user32, ole32 or shell32 by some 10 ms, iphlpapi,
# netapi32, mswsock or dbghelp by 1 to 3, ws2_32 by half a millisecond. Load such a one when it is first needed.
set -euo pipefail
allowed='ADVAPI32 KERNEL32 msvcrt'

imported=$("$1" -p "$2" | sed -nE 's/^[[:space:]]*DLL Name: (.*)\.dll$/\1/Ip' | sort -u)
if [ -z "$imported" ]; then
    echo "no import table could be read from $2"
    exit 1
fi
status=0
for name in $imported; do
    case " ${allowed,,} " in
        *" ${name,,} "*) echo "$name: allowed" ;;
        *)
            echo "$name: not allowed"
            status=1
            ;;
    esac
done
exit "$status"
