#!/usr/bin/env bash
# Shows LUMlog at work. Builds the library and the example programs first, and sets up what that needs.
#
#   scripts/demo.sh         two hosts that share one configuration, and LevelSync, which changes it while they run
#   scripts/demo.sh pool    a server that works for twenty clients at once, of whom one is raised to debug
#   scripts/demo.sh crash   a host that crashes, and what it leaves for those who look for the cause
#   scripts/demo.sh site    three machines that a site tells their levels, a page, and one query over the lines of all
#
# The exit status is 0 when the change reached the host or client it was meant for, and no other; or when the crash left all
# that it should.

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

tree=$build_dir/mingw-release
demo_dir=$build_dir/demo
logs=$demo_dir/log

# Addresses that are reserved for examples.
declare -A client=([viewer]=192.0.2.7 [archive]=198.51.100.9)
declare -A session=([viewer]=3 [archive]=8)
declare -A process=()

bold='' green='' red='' cyan='' plain=''
if [ -t 1 ] && [ -z "${NO_COLOR:-}" ] && [ "${TERM:-dumb}" != dumb ]; then
    bold=$'\e[1m' green=$'\e[32m' red=$'\e[31m' cyan=$'\e[36m' plain=$'\e[0m'
fi

title()
{
    printf '\n%s%s%s\n' "$bold" "$*" "$plain"
}

# Lines of a log as a person reads them, debug lines in a colour.
show_lines()
{
    tr -d '\r' | sed -e "s/^.* DEBUG .*\$/$cyan&$plain/" -e 's/^/    /'
}

# level_sync ARGUMENT...: what a support engineer types, and what it says.
level_sync()
{
    local status=0
    say
    say "    > LevelSync $*"
    (in_wine LevelSync "$@") >"$demo_dir/levelsync.out" 2>&1 || status=$?
    show_lines <"$demo_dir/levelsync.out"
    [ "$status" -eq 0 ] || fail "LevelSync $1 ended with status $status."
}

# The moment of a log's line, in milliseconds as milliseconds() has them.
moment_of()
{
    date -d "${1:0:10} ${1:11:18}" +%s%3N
}

# The machine's files are drive Z of its Windows programs.
windows_path()
{
    printf 'Z:%s\n' "${1//\//\\}"
}

# in_wine PROGRAM [ARGUMENT...]: an example program, in place of the calling shell. Not through
# wine-run.sh, which keeps PRISMATE_LOG_DIR from the programs it starts.
in_wine()
{
    local program=$1
    shift
    exec env WINEPREFIX="$demo_dir/wine" WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml,winedbg.exe=' \
        PRISMATE_LOG_DIR="$(windows_path "$logs")" wine "$tree/bin/$program.exe" "$@"
}

start_host()
{
    # The host ends by itself after two minutes, whatever becomes of this script.
    (in_wine example_host "$1" "${client[$1]}" "${session[$1]}" "$(windows_path "$text")" 120 1000) \
        >"$demo_dir/$1.out" 2>&1 &
    process[$1]=$!
}

# control ARGUMENT...: what an operator does; done within a second.
control()
{
    (in_wine example_control "$@") >>"$demo_dir/control.out" 2>&1 &
    local operator=$!
    if ! wait_until 30 has_ended "$operator" || ! wait "$operator"; then
        fail "example_control $1 did not work; it says:
$(cat "$demo_dir/control.out")"
    fi
}

stop_host()
{
    local status=0
    control stop "$1"
    wait_until 30 has_ended "${process[$1]}" || fail "The host $1 was told to stop and did not."
    wait "${process[$1]}" || status=$?
    unset "process[$1]"
    [ "$status" -eq 0 ] || fail "The host $1 ended with status $status; see $demo_dir/$1.out"
}

has_ended()
{
    ! kill -0 "$1" 2>/dev/null
}

# wait_until SECONDS COMMAND...: false when the command has not succeeded by then.
wait_until()
{
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        [ "$SECONDS" -le "$end" ] || return 1
        sleep 0.05
    done
}

# lines HOST: how many its log has.
lines()
{
    wc -l 2>/dev/null <"$logs/$1.log" || echo 0
}

has_lines()
{
    [ "$(lines "$1")" -ge "$2" ]
}

# debug_lines HOST [PACKAGE]
debug_lines()
{
    grep -Ec "^[0-9].{28} DEBUG +\(${2:-[0-9]+}\)" "$logs/$1.log" || true
}

has_debug_lines()
{
    [ "$(debug_lines "$1" "$2")" -ge "$3" ]
}

has_end_banner()
{
    tail -n 1 "$logs/$1.log" | grep -q "^===== $1 ([0-9]*) End Session at "
}

milliseconds()
{
    echo $((${EPOCHREALTIME/[.,]/} / 1000))
}

# The text that both hosts replay.
choose_text()
{
    for text in /var/log/dpkg.log /var/log/apt/history.log "$project_dir/examples/host/sample.txt"; do
        [ ! -s "$text" ] || [ ! -r "$text" ] || return 0
    done
}

# the_file PATTERN: the one file of the logs with such a name.
the_file()
{
    local found=("$logs"/$1)
    [ ${#found[@]} -eq 1 ] && [ -s "${found[0]}" ] || fail "The crash left no file $1, or several, or an empty one."
    printf '%s\n' "${found[0]}"
}

# crash_host CODE WAY [watched]: its exit status is the exit code of a Windows program, as far as it fits into eight bits.
crash_host()
{
    local status=0 code=$1
    shift
    (in_wine example_crashing_host "$@") >"$demo_dir/crashing_host.out" 2>&1 &
    process[crashing]=$!
    wait_until 90 has_ended "${process[crashing]}" || fail "The host was told to crash and goes on."
    wait "${process[crashing]}" || status=$?
    unset "process[crashing]"
    [ "$status" -eq $((code & 0xff)) ] ||
        fail "The host ended with status $status instead; see $demo_dir/crashing_host.out"
}

# report_text EXPRESSION: what it stands for in the report, as text.
report_text()
{
    xmllint --xpath "string($1)" "$(the_file 'crash-*.xml')"
}

# The second report comes last.
watcher_has_written()
{
    local found=("$logs"/crash-*.xml)
    [ ${#found[@]} -eq 2 ] && [ "$(tail -c 34 "${found[1]}" | tr -d '\0')" = "</lumariscontext>" ] || return 1
}

show_crash()
{
    local pattern file list
    title "1. A host crashes: it writes to a null pointer"
    crash_host 0xc0000005 null-write
    tail -n 2 "$logs/crashing_host.log" | show_lines
    say
    say "    The last line is of a filter that was there before the crash handlers of the host, which pass the crash on."

    title "2. What that left"
    for pattern in 'minidump-*.dmp' 'crash-*.xml' crashes.log CLGState.mp; do
        file=$(the_file "$pattern")
        printf '    %9d bytes   %s\n' "$(stat -c %s "$file")" "${file##*/}"
    done

    title "3. Its line in crashes.log, where all processes have theirs"
    show_lines <"$logs/crashes.log"

    title "4. In the report: the crash, and what the host had reported before"
    xmllint --xpath '//Exception/@*' "$(the_file 'crash-*.xml')" | sed 's/^ */    /'
    for list in errors warnings history context; do
        printf '    %-9s %s: %s\n' "$list" "$(report_text "//$list/event[last()]/@type")" \
            "$(report_text "//$list/event[last()]/info")"
    done

    [ "$(report_text //Exception/@Code)" = 0xc0000005 ] || fail "The report does not tell of the crash."
    "$project_dir/tools/report2html" "$(the_file 'crash-*.xml')" -o "$logs/crash.html" ||
        fail "The report could not be made into a page."

    title "5. Another ends by a fast-fail, which no handler sees; the process that watches it writes what it could not"
    crash_host 0xc0000602 fast-fail watched
    wait_until 30 watcher_has_written || fail "The watcher has not told of the end."
    tail -n 1 "$logs/crashes.log" | show_lines
    say
    say "    Its last lines, out of the memory that it shared with the watcher:"
    say
    show_lines <"$(the_file 'lastlines-*.log')"

    say
    say "${green}As it should be:$plain four files tell of the crash, and of the fast-fail the line, a report and the last lines."
    say "They, the log, and the first report as a page for a browser (crash.html) are in"
    say "    $logs"
}

start_pool()
{
    (in_wine example_pool 120) >"$demo_dir/pool.out" 2>&1 &
    process[pool]=$!
    wait_until 60 has_lines pool 20 || fail "The server does not write its log; it says:
$(cat "$demo_dir/pool.out")"
}

# Client, then how many debug lines it has in the log.
debug_lines_by_client()
{
    grep -E '^[0-9].{28} DEBUG' "$logs/pool.log" | sed 's/.*ClientIP(\([0-9.]*\)).*/\1/' | sort | uniq -c |
        awk '{ printf "    %-14s %6d\n", $2, $1 }'
}

show_pool()
{
    local problem=192.0.2.7 others
    title "1. A server works for twenty clients at once, on eight threads"
    start_pool
    say "    The first lines of pool.log: each names the client that its thread works for."
    head -n 6 "$logs/pool.log" | show_lines

    title "2. The client $problem has a problem: two packages are raised to debug, for it alone"
    level_sync set reader debug --client "$problem"
    level_sync set client debug --client "$problem"
    wait_until 30 has_debug_lines pool 330 30 || fail "The change did not reach the server within 30 seconds."
    say
    say "    The first debug lines. A request may begin on one thread and end on another:"
    grep -E '^[0-9].{28} DEBUG' "$logs/pool.log" | head -n 6 | show_lines || true
    say
    say "    And off again:"
    level_sync undo
    level_sync undo 1
    stop_host pool

    title "3. What came of it: debug lines by client"
    debug_lines_by_client
    others=$(grep -E '^[0-9].{28} DEBUG' "$logs/pool.log" | grep -vcF "ClientIP($problem) " || true)
    [ "$others" -eq 0 ] || fail "$others debug lines are of other clients, or of none."
    say
    say "${green}As it should be:$plain of twenty clients at once, just the one that was raised has debug lines. The log is"
    say "    $logs/pool.log"
}

show_site()
{
    local machine folder=$demo_dir/site
    ensure_etcd
    ensure_servers
    choose_text
    for machine in HALL-1 HALL-2 HALL-3; do
        ensure_wine_prefix "$folder/$machine/wine"
    done
    python3 "$project_dir/scripts/lib/demo_site.py" "$project_dir" "$tree/bin" "$folder" "$etcd_program" "$server_dir" "$text"
}

finish()
{
    local status=$? host
    trap - EXIT
    stop_wine_servers # ends what still runs under them
    for host in "${!process[@]}"; do
        wait "${process[$host]}" || true
    done
    exit "$status"
}

part=${1:-}
case $part in
    '' | pool | crash | site) ;;
    -h | --help)
        sed -n '2,/^$/s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
        exit 0
        ;;
    *) fail "There is no part called $part; see $0 --help." ;;
esac

ensure_packages "${base_packages[@]}" "${demo_packages[@]}"
ensure_dependencies ace xerces-c googletest libzip cpp-httplib
configure_preset mingw-release || fail "The build could not be set up."
build_preset mingw-release LUMlog LevelSync LUMlogWatch examples || fail "LUMlog could not be built."

# A prefix of the demo's own: programs of other scripts would share the configuration otherwise.
trap finish EXIT
ensure_wine_prefix "$demo_dir/wine"
rm -rf "$logs"
mkdir -p "$logs"
: >"$demo_dir/control.out"
cp "$project_dir/examples/host/logger" "$logs/logger"
if [ -n "$part" ]; then
    "show_$part"
    exit 0
fi
choose_text

title "1. Two hosts run, each for one client, both under the same logger file"
say "    Each replays $text as its messages."
printf '\n    %-9s %-14s %-9s %s\n' host client session log
for host in viewer archive; do
    printf '    %-9s %-14s %-9s %s\n' "$host" "${client[$host]}" "${session[$host]}" "$logs/$host.log"
done
say
say "    The logger file: where lines go, then package, number, level, rules."
grep -v '^[#!]' "$logs/logger" | show_lines
for host in viewer archive; do
    start_host "$host"
done
for host in viewer archive; do
    wait_until 60 has_lines "$host" 12 || fail "The host $host does not write its log; it says:
$(cat "$demo_dir/$host.out")"
    say
    say "    The first lines of $host.log:"
    head -n 5 "$logs/$host.log" | show_lines
done
say
say "    archive has a line more than viewer: package 330 has a rule for that application."

title "2. The client ${client[viewer]} has a problem: its package Replay is raised to debug, for that client alone"
level_sync
declare -A debug_before lines_before
for host in viewer archive; do
    debug_before[$host]=$(debug_lines "$host")
    lines_before[$host]=$(lines "$host")
done
began=$(milliseconds)
level_sync set replay debug --client "${client[viewer]}"
reached=
if wait_until 20 has_debug_lines viewer 320 1; then
    first=$(grep -Em 1 '^[0-9].{28} DEBUG +\(320\)' "$logs/viewer.log")
    reached=$(($(moment_of "$first") - began))
fi
# Both go on long enough for debug lines to show where they should not.
for host in viewer archive; do
    wait_until 30 has_lines "$host" $((lines_before[$host] + 25)) || fail "The host $host has stopped writing."
done
say
say "    Both hosts were running all the while. The first debug lines of viewer.log:"
grep -E '^[0-9].{28} DEBUG' "$logs/viewer.log" | head -n 3 | show_lines || true

say
say "    And off again:"
level_sync undo
level_sync history

for host in viewer archive; do
    stop_host "$host"
done

title "3. What came of it"
printf '    %-34s %8s %8s\n' '' viewer archive
printf '    %-34s %8d %8d\n' 'debug lines before the change' "${debug_before[viewer]}" "${debug_before[archive]}"
printf '    %-34s %8d %8d\n' \
    'after it, of package 320' "$(debug_lines viewer 320)" "$(debug_lines archive 320)" \
    'after it, of all packages' "$(debug_lines viewer)" "$(debug_lines archive)" \
    'lines in all' "$(lines viewer)" "$(lines archive)"
say

wrong=()
[ "${debug_before[viewer]}" -eq 0 ] && [ "${debug_before[archive]}" -eq 0 ] ||
    wrong+=("There were debug lines before anybody asked for them.")
[ -n "$reached" ] || wrong+=("The change did not reach the host viewer within 20 seconds.")
[ "$(debug_lines viewer)" -eq "$(debug_lines viewer 320)" ] ||
    wrong+=("Debug lines of other packages than 320 appeared in viewer.log.")
[ "$(debug_lines archive)" -eq 0 ] || wrong+=("Debug lines appeared in archive.log, which serves another client.")
for host in viewer archive; do
    has_end_banner "$host" || wrong+=("The log $host.log does not end with its end banner.")
done
if [ ${#wrong[@]} -eq 0 ]; then
    say "${green}As it should be:$plain the first debug line of viewer, which replays 1,000 lines a second, came $reached ms after"
    say "LevelSync was called, and not one debug line appeared in the log of archive, which serves another client."
else
    say "${red}Not as it should be.$plain ${wrong[*]}"
fi
title "The logs, to read at leisure"
cmp -s "$project_dir/examples/host/logger" "$logs/logger" || fail "The logger file is not as it was before."
for file in viewer.log archive.log control.log LevelSync.log logger logger.history; do
    say "    $logs/$file"
done
say
say "A server that works for many clients at once: scripts/demo.sh pool"
say "What a host leaves that crashes: scripts/demo.sh crash"
[ ${#wrong[@]} -eq 0 ] || exit 1
