#!/usr/bin/env bash
# kit_test.sh ZIP WORK PREFIX [RUNNER OPTION...]: the kit as somebody uses it who has nothing else: unpacked into a folder with
# blanks and umlauts in its name, started by Windows' own command line, with nothing of the build near.
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
zip=$1 work=$2 prefix=$3
shift 3

folder="$prefix/drive_c/Prüfung auf Windows/neuer Ordner"
rm -rf "$prefix/drive_c/Prüfung auf Windows" "$work"
mkdir -p "$folder" "$work"
python3 -m zipfile -e "$zip" "$folder"
cd "$folder/LUMlog-test-kit"
status=0
"$here/../../scripts/lib/wine-run.sh" "$prefix" cmd.exe /c run.cmd "$@" >"$work/printed" 2>"$work/errors" || status=$?
tr -d '\r' <"$work/printed"
last=$(tr -d '\r' <"$work/printed" | tail -n 1)
cp results.txt "$work/"
grep -q "^$last" results.txt
for fact in Windows Wine processor elevated 'event log, test ends with' 'appended by two processes' \
    'a handler after a stack overflow' 'console' 'may make a block of the machine' LocalDumps; do
    grep -q "^$fact.*: ." results.txt || { echo "results.txt does not say: $fact" && exit 1; }
done
[[ "$last" =~ ^([0-9]+)\ passed,\ 0\ failed$ ]] || { cat results.txt && exit 1; }
[ "${BASH_REMATCH[1]}" -ge "${LUMLOG_KIT_LEAST:-20}" ] || { echo "only ${BASH_REMATCH[1]} cases ran" && exit 1; }
[ "$status" -eq 0 ]
