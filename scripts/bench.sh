#!/usr/bin/env bash
# Measures LUMlog under Wine beside a peer and beside the bare system calls, and prints one table.
# Sets up what it needs first. What the rows mean: docs/benchmarks.md

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

ensure_packages "${base_packages[@]}" "${bench_packages[@]}" python3
ensure_dependencies ace xerces-c benchmark libzip cpp-httplib
configure_preset mingw-bench || fail "The build could not be set up."
build_preset mingw-bench || fail "The benchmarks could not be built."

tree=$build_dir/mingw-bench
results=$tree/results
rm -rf "$results"
mkdir -p "$results"

# measure SENTENCE RESULT COMMAND...: what the command prints on standard output is a result.
measure()
{
    local sentence=$1 result=$results/$2 log=$log_dir/bench-${2%.json}.log
    shift 2
    say "$sentence"
    timeout 300 "$@" >"$result" 2>"$log" || {
        tail -n 20 "$log" >&2
        fail "This could not be measured: $*"
    }
}

# others RESULT: how much of the processors' time goes to other programs while this one waits, in percent.
others()
{
    local before after idle
    # Fields of the first line: its name, then ticks of user, nice, system, idle, waiting for disks and more.
    read -r -a before </proc/stat
    sleep 2
    read -r -a after </proc/stat
    idle=$((after[4] + after[5] - before[4] - before[5]))
    echo $((100 - 100 * idle / (2 * $(getconf CLK_TCK) * $(getconf _NPROCESSORS_ONLN)))) >"$results/$1"
}

run=("$project_dir/scripts/lib/wine-run.sh" "$tree/wine")
repeat=(--benchmark_format=json --benchmark_enable_random_interleaving=true)

# Many short repetitions in turns, as most of them then fall between the doings of other programs; and
# several processes, as where the memory of one came to lie is the same for all that it measures.
others others-before
for number in 1 2 3 4 5; do
    measure "Messages that nobody wants, $number of 5" "rejected-$number.json" \
        "${run[@]}" "$tree/bin/rejected.exe" "${repeat[@]}" --benchmark_repetitions=41 --benchmark_min_time=0.002
    measure "Threads with clients, $number of 5" "scopes-$number.json" \
        "${run[@]}" "$tree/bin/scopes.exe" "${repeat[@]}" --benchmark_repetitions=41 --benchmark_min_time=0.002
    measure "Lines, $number of 5" "lines-$number.json" \
        "${run[@]}" "$tree/bin/lines.exe" "${repeat[@]}" --benchmark_repetitions=41
    measure "Errors and names, $number of 5" "lookups-$number.json" \
        "${run[@]}" "$tree/bin/lookups.exe" "${repeat[@]}" --benchmark_repetitions=41 --benchmark_min_time=0.002
    measure "Measurements, $number of 5" "monitor-$number.json" \
        "${run[@]}" "$tree/bin/monitor.exe" "${repeat[@]}" --benchmark_repetitions=41 --benchmark_min_time=0.002
    measure "Records, $number of 5" "records-$number.json" \
        "${run[@]}" "$tree/bin/records.exe" "${repeat[@]}" --benchmark_repetitions=41 --benchmark_min_time=0.002
    measure "Events of sessions, $number of 5" "session_events-$number.json" \
        "${run[@]}" "$tree/bin/sessions.exe" events "${repeat[@]}" --benchmark_repetitions=41 --benchmark_min_time=0.002
done
for number in 1 2 3; do
    for what in reports states crashes; do
        measure "Sessions: $what, $number of 3" "session_$what-$number.json" \
            "${run[@]}" "$tree/bin/sessions.exe" "$what" "${repeat[@]}" --benchmark_repetitions=7 --benchmark_min_time=0.001
    done
done
measure "Changes of the configuration" level_change.json "${run[@]}" "$tree/bin/level_change.exe"

# Process starts, and the mutex that guards the destinations, are short talks with Wine's server: on one
# processor, client and server take turns without the time that another one takes to wake up.
processor=$(taskset -cp $$ | sed 's/.*[ ,-]//')
WINEPREFIX=$tree/wine timeout 30 wineserver -k || true
WINEPREFIX=$tree/wine timeout 30 wineserver -w
WINEPREFIX=$tree/wine taskset -c "$processor" wineserver -p60
for number in 1 2 3; do
    measure "Starts of processes, $number of 3" "startup-$number.json" \
        taskset -c "$processor" "${run[@]}" "$tree/bin/startup.exe"
    measure "Starts of watched processes, $number of 3" "watched-$number.json" \
        taskset -c "$processor" "${run[@]}" "$tree/bin/watched.exe"
    measure "LevelSync -u, $number of 3" "level_sync-$number.json" \
        taskset -c "$processor" "${run[@]}" "$tree/bin/level_sync.exe"
    measure "Other ways in, and destinations, $number of 3" "ways_in-$number.json" \
        taskset -c "$processor" "${run[@]}" "$tree/bin/ways_in.exe" "${repeat[@]}" --benchmark_repetitions=41
done
others others-after

say ""
python3 "$project_dir/bench/table.py" "$results"
