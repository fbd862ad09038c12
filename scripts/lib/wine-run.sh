#!/usr/bin/env bash
# wine-run.sh PREFIX PROGRAM [ARGUMENT...]: one Windows program under Wine, in a prefix that is
# made when first needed, without a display and without a question.
# wine-run.sh PREFIX --prepare: the prefix only.

set -eu
export WINEPREFIX=$1
shift
export WINEDEBUG=-all
# No .NET, no HTML engine, and no debugger: at a crash that one would hold the pipes open.
export WINEDLLOVERRIDES="mscoree,mshtml,winedbg.exe="
unset DISPLAY WAYLAND_DISPLAY "${!PRISMATE_@}" "${!KORAL_@}"

if [ ! -e "$WINEPREFIX/.ready" ]; then
    mkdir -p "$WINEPREFIX"
    exec 9>"$WINEPREFIX.lock"
    flock 9
    if [ ! -e "$WINEPREFIX/.ready" ]; then
        # Wine's services outlive the set-up: none of them may keep the caller's output or the lock.
        wineboot --init </dev/null >"$WINEPREFIX.log" 2>&1 9>&-
        # The server writes the registry when the last of them has ended.
        wineserver -w 9>&-
        touch "$WINEPREFIX/.ready"
    fi
    exec 9>&-
fi

[ "$1" != --prepare ] || exit 0
# A server that stays for a minute after the last program: starting one, with the services that
# come with it, takes over two seconds. Where one runs already, this fails and changes nothing.
# The services start with the first program that runs and keep its output open, whose reader would
# wait for as long as the server stays. So one without any goes first, and who comes meanwhile waits.
exec 9>"$WINEPREFIX.server"
flock --wait 60 9 || true
if wineserver -p60 2>/dev/null 9>&-; then
    wine cmd.exe /c exit </dev/null >/dev/null 2>&1 9>&- || true
fi
exec 9>&-
for argument in "$@"; do
    if [ "$argument" = --gtest_list_tests ]; then
        # CMake reads the list line by line and would keep the carriage returns. A build ends where there is none, and Wine
        # was seen not to start a program, once in thousands of times.
        for _ in 1 2 3; do
            if list=$(wine "$@"); then
                printf '%s\n' "${list//$'\r'/}"
                exit 0
            fi
        done
        printf '%s\n' "$list"
        exit 1
    fi
done
exec wine "$@"
