#!/usr/bin/env bash
# Looks for what happens once in a thousand times: soaks run for minutes and print figures.
#
#   scripts/soak.sh [--times N] [NAME...]
#
# All of them, one after the other, where none is named:
#   ends       processes that end while their threads write; how many hung, or left no end banner (1000 times)
#   publishes  four processes that publish in the same millisecond; after which round others had another level (400 times)
#   levelsync  LevelSync is killed at a random moment while two others change the file; whether that was the old file or
#              the new one, and no change was lost (1000 times)
#   java       eight threads of a Java program write lines, with the DLL and without; whether all are there and in order
#              (1000000 lines)
#   clients    32 threads work for 200 clients, five of them raised, while levels change; whether just theirs were
#              written, under their names (10,000,000 messages)
#   rotation   a host whose eight threads write to files that rotate is killed and begun again; which lines were lost, twice
#              there or broken (200 kills, 1,000 rotations and more)
#   recorder   a host whose eight threads keep lines in memory is killed at a random moment; whether another process finds
#              each of them whole and in order, but for those in the making (1000 kills)
#   shipping   two hosts write lines of JSON while the shippers and the database behind them are killed eight times; whether each
#              line is there once, with its fields (200,000 lines)
#   watcher    hosts that are watched end in all ways, orderly or not, at random moments; whether each end that is none is told
#              once, of the others nothing, and no process is left over (10,000 orderly ends and 1,000 others)
#   site       an agent is killed at a random moment while its site changes; whether its machine always had a whole state
#              (1000 kills), and a million overrides in etcd (once, where --times is not given)
#   kit        the kit for real Windows as a whole, without its benchmarks, as somebody would use it (once)
#   same       that two builds make the same packages, with everything compiled anew (once)
# --times: how often instead, for each of them.
#
# The exit status is 0 when all went well.

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

all_soaks=(ends publishes levelsync rotation clients recorder watcher java shipping site kit same)
soaks=()
times=
preset=mingw-release

# run_case PROGRAM CASE: one case of a test program; what it tells of its rounds, and what it says of a failure.
run_case()
{
    "$project_dir/scripts/lib/wine-run.sh" "$build_dir/$preset/wine" "$build_dir/$preset/bin/$1.exe" \
        "--gtest_filter=$2" 2>&1 | tr -d '\r' |
        awk '/: Failure/ { said = 7 } said > 0 || /^[0-9]+ / { print; fflush() } { --said }'
}

soak_ends()
{
    export LUMLOG_TEST_ENDS=${times:-1000}
    run_case process_tests LogExit.ProcessesEndInTimeWhileTheirThreadsWriteLinesWithATime
}

soak_publishes()
{
    export LUMLOG_TEST_PUBLISHES=${times:-400}
    run_case process_tests SharedBlockPublish.FourPublishersInOneMillisecondLeaveAllProcessesWithTheSameLevels
}

soak_levelsync()
{
    export LUMLOG_TEST_KILLS=${times:-1000}
    run_case levelsync_tests LevelSyncTurns.AKillAtAnyMomentLeavesTheOldFileOrTheNewOne
}

soak_java()
{
    local lines=${times:-1000000} tree=$build_dir/$preset native=$build_dir/native-asan slf4j junit
    slf4j=$(slf4j2_path)
    junit=/usr/share/java/junit4.jar:/usr/share/java/hamcrest.jar
    LUMLOG_TEST_LINES=$lines python3 "$project_dir/tests/java/jar_test.py" \
        lines_of_eight_threads_are_all_there_and_in_order "$(windows_jdk_prefix)" \
        "$tree/java/lumlog.jar:$tree/tests/java/jar_classes:$slf4j:$tree/tests/java/classes" "$tree/bin" \
        "$tree/tests/java/jar_runs" "$project_dir/scripts/lib/wine-run.sh" "$tree/wine" &&
        say "    $lines lines with the DLL" &&
        configure_preset native-asan && build_preset native-asan jar_tests &&
        timeout 600 java -Xmx2g "-Dlumlog.test.lines=$lines" \
            -cp "$native/java/lumlog.jar:$native/tests/jar/classes:$slf4j:$junit" \
            OneCase suite.FallbackTest linesOfEightThreadsAreAllThereAndInOrder &&
        say "    $lines lines without it"
}

soak_clients()
{
    export LUMLOG_TEST_CLIENT_MESSAGES=${times:-10000000}
    run_case library_tests ClientScope.OfManyClientsOnManyThreadsJustTheRaisedOnesAreWritten
}

soak_rotation()
{
    export LUMLOG_TEST_ROTATION_KILLS=${times:-200}
    run_case process_tests LogRotationKills.AHostThatIsKilledWhileItsFilesRotateHasSaidNoLineInVain
}

soak_recorder()
{
    export LUMLOG_TEST_RECORDER_KILLS=${times:-1000}
    run_case process_tests RecorderKills.AllLinesButThoseInTheMakingAreWholeAndInOrder
}

soak_shipping()
{
    ensure_servers
    build_lines_writer &&
        LUMLOG_TEST_SHIPPED=${times:-200000} shipping_case \
            each_line_of_two_hosts_is_in_the_database_once_whatever_is_killed
}

soak_watcher()
{
    export LUMLOG_TEST_WATCHED_ENDS=${times:-11200} # one of ten is a crash
    run_case watch_tests WatchedEndsAtRandom.AreToldOnceAndOrderlyOnesNever
}

soak_site()
{
    ensure_packages "${site_test_packages[@]}"
    ensure_etcd
    build_site_programs || return
    LUMLOG_TEST_SITE_KILLS=${times:-1000} site_soak_case a_machine_whose_agent_is_killed_at_any_moment_works || return
    [ -n "$times" ] ||
        LUMLOG_TEST_SITE_OVERRIDES=1000000 site_soak_case hostile_contents_of_etcd_are_refused_as_a_whole
}

soak_kit()
{
    local prefix=$build_dir/kit-wine
    make_test_kit && ensure_wine_prefix "$prefix" &&
        "$project_dir/tests/kit/kit_test.sh" "$build_dir/LUMlog-test-kit.zip" "$build_dir/kit-run" "$prefix" \
            --skip-benchmarks
}

soak_same()
{
    ensure_packages "${packaging_packages[@]}" "${packaging_test_packages[@]}"
    make_packages --fresh && build_again --fresh &&
        python3 "$project_dir/tests/package/packages_test.py" "$project_dir" "$build_dir/mingw-package/packages" \
            two_packages_are_the_same
}

while [ $# -gt 0 ]; do
    case $1 in
        --times)
            [[ "${2:-}" =~ ^[1-9][0-9]*$ ]] || fail "--times needs a number."
            times=$2
            shift
            ;;
        -h | --help)
            sed -n '2,/^$/s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
            exit 0
            ;;
        *)
            [[ " ${all_soaks[*]} " = *" $1 "* ]] || fail "There is no soak called $1; see $0 --help."
            soaks+=("$1")
            ;;
    esac
    shift
done
[ ${#soaks[@]} -gt 0 ] || soaks=("${all_soaks[@]}")

ensure_packages "${base_packages[@]}" "${test_packages[@]}"
ensure_dependencies ace xerces-c googletest libzip cpp-httplib
ensure_java
configure_preset "$preset" || fail "The build could not be set up."
build_preset "$preset" || fail "The tests could not be built."

failed=0
for soak in "${soaks[@]}"; do
    began=$SECONDS
    say ""
    say "== $soak"
    "soak_$soak" || failed=1
    say "    took $((SECONDS - began)) s"
done
exit "$failed"
