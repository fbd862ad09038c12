#!/usr/bin/env bash
# Builds everything and runs every test. Sets up what it needs first.
#
#   scripts/test.sh [--filter REGEX] [STAGE...]
#   scripts/test.sh --quick
#
# Stages, all of them where none is named:
#   format         the sources are formatted as .clang-format says, and what the pages show is compiled
#   direction      no source includes what it must not know of: src/Kor uses src/win, which uses src/core
#   headers        each exported header compiles alone, with both compilers; headers and sources for Microsoft's ABI
#   native-asan    unit tests on this machine, with sanitizers, and tests of the tools and of lumlog.jar
#   native-fuzz    a short run of each fuzz target, on this machine
#   mingw-release  all tests under Wine, and checks of the DLL and its package
#   mingw-debug    the tests again, with assertions; undefined behaviour stops a test
#   clang-release  the tests again, built by Clang
#   shipping       the files for programs that collect logs, with those programs
#   site           LevelSync's agents with a real etcd, and with a folder that they share
#   package        the ZIP and the installer, what is in them, and that two builds make the same
# --quick is for a change to a file or two, before it is committed: format, direction, and of mingw-release the tests
# that need no more than one process each. All others are for the whole run.
# --filter runs only the tests whose names match (CTest's names: "unit/Suite.Case").
#
# The last line is "N passed, N failed"; the exit status is 0 when none failed.

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

all_stages=(format direction headers native-asan native-fuzz mingw-release mingw-debug clang-release shipping site package)
quick_stages=(format direction mingw-release)
quick_tests='^(unit|library|fault|capi|binary)/'
stages=()
filter=
passed=0
failures=()

pass()
{
    passed=$((passed + ${1:-1}))
}

# Also reached when the set-up stops the script, which then ends with a count all the same.
finish()
{
    local status=$?
    trap - EXIT
    stop_wine_servers
    if [ "$status" -ne 0 ]; then
        failures+=("the run, which stopped early")
    fi
    if [ ${#failures[@]} -gt 0 ]; then
        printf '\nFailed:\n'
        printf '    %s\n' "${failures[@]}"
    fi
    printf '\n%d passed, %d failed\n' "$passed" ${#failures[@]}
    [ ${#failures[@]} -eq 0 ] || exit 1
}

# record NAME COMMAND...: one check, passed when the command succeeds.
record()
{
    local name=$1
    shift
    if "$@"; then
        pass
    else
        failures+=("$name")
    fi
}

stage_format()
{
    record format run_logged "Checking the format" format "$project_dir/scripts/format.sh" --check
    record samples run_logged "Checking the pages' samples" samples \
        python3 "$project_dir/scripts/lib/check-samples.py" "$project_dir"
}

stage_direction()
{
    record direction run_logged "Checking what includes what" direction \
        python3 "$project_dir/scripts/lib/check-direction.py" "$project_dir"
    record "direction: what the check finds" run_logged "Checking that check" direction-test \
        python3 "$project_dir/tests/direction/direction_test.py" "$project_dir/scripts/lib/check-direction.py"
}

check_headers()
{
    configure_preset "$1" && build_preset "$1" header_check
}

stage_headers()
{
    record "headers, GCC" check_headers mingw-release
    record "headers, Clang" check_headers clang-release
    record "headers and sources, for Microsoft's ABI" run_logged \
        "Compiling headers and sources for Microsoft's ABI" msvc-sources "$project_dir/tests/msvc/check_sources.sh" \
        "$project_dir" "$build_dir/msvc-sources" "$(dependency_prefix ace)/include" "$(dependency_prefix xerces-c)/include" \
        "$(dependency_prefix libzip)/include"
}

# From nothing each time, so that two runs do the same.
fuzz_target()
{
    local name=$1 corpus=$project_dir/tests/fuzz/corpus/$1 work status=0
    work=$(mktemp -d "$fuzz_tree/run-XXXXXX")
    local inputs=("$work")
    [ ! -d "$corpus" ] || inputs+=("$corpus")
    timeout 600 "$fuzz_tree/bin/fuzz_$name" -runs=20000 -seed=1 -max_len=4096 -timeout=20 -rss_limit_mb=2048 \
        "-artifact_prefix=$fuzz_tree/found-$name-" "${inputs[@]}" || status=$?
    rm -rf "$work"
    return "$status"
}

stage_native-fuzz()
{
    local target name names=()
    fuzz_tree=$build_dir/native-fuzz
    if ! configure_preset native-fuzz || ! build_preset native-fuzz; then
        failures+=("native-fuzz: the build")
        return
    fi
    for target in "$fuzz_tree"/bin/fuzz_*; do
        name=${target##*/fuzz_}
        if [ -x "$target" ] && [ -f "$project_dir/tests/fuzz/$name.cpp" ]; then # else built before its source went
            names+=("$name")
        fi
    done
    run_logged "Fuzzing" fuzz run_side_by_side "$(nproc)" "$fuzz_tree" fuzz_target "${names[@]}"
    for name in "${names[@]}"; do
        record "native-fuzz: $name" run_logged "Fuzzed: $name" "fuzz-$name" said_of "$fuzz_tree" "$name"
    done
}

package_case()
{
    record "package: ${1//_/ }" run_logged "Checking: ${1//_/ }" "package-$1" \
        python3 "$project_dir/tests/package/packages_test.py" "$project_dir" "$build_dir/mingw-package/packages" "$1"
}

stage_package()
{
    local case cases prefix=$build_dir/mingw-package/installer-wine
    make_packages
    mapfile -t cases < <(sed -n 's/^def case_\([a-z_]*\)(run):.*/\1/p' "$project_dir/tests/package/packages_test.py")
    if run_logged "Building the packages again, elsewhere" package-again build_again; then
        pass
    else
        failures+=("package: a second build")
    fi
    for case in "${cases[@]}"; do
        package_case "$case"
    done
    rm -rf "$prefix"
    ensure_wine_prefix "$prefix"
    record "package: the installer" run_logged "Installing, upgrading and uninstalling" package-installer \
        python3 "$project_dir/tests/package/installer_test.py" "$project_dir" "$build_dir/mingw-package/packages" \
        "$build_dir/mingw-package/installer" "$prefix"
    stage_kit
}

# A few cases of each program: the whole of it is scripts/soak.sh kit.
stage_kit()
{
    local prefix=$build_dir/mingw-package/kit-wine
    make_test_kit
    ensure_wine_prefix "$prefix"
    record "package: the test kit" run_logged "Running the kit for real Windows, from its ZIP" package-kit \
        "$project_dir/tests/kit/kit_test.sh" "$build_dir/LUMlog-test-kit.zip" "$build_dir/mingw-package/kit" "$prefix" \
        --skip-benchmarks --only MessageTable. --only LogBanner. --only LogExit.EveryCleanWayOut \
        --only LogEvents.TheSource --only Abi. --only binary_tests --only enums_tests --only Admin.Unregister \
        --only OfAWriteToNull
}

stage_shipping()
{
    local case cases
    ensure_servers
    if ! build_lines_writer || ! write_lines_to_ship; then
        failures+=("shipping: the lines to ship")
        return
    fi
    mapfile -t cases < <(shipping_cases)
    for case in "${cases[@]}"; do
        [[ "shipping/$case" =~ $filter ]] || continue
        record "shipping: ${case//_/ }" run_logged "Shipping: ${case//_/ }" "shipping-$case" shipping_case "$case"
    done
}

stage_site()
{
    local case cases=()
    ensure_packages "${site_test_packages[@]}"
    ensure_etcd
    if ! build_site_programs; then
        failures+=("site: the build")
        return
    fi
    for case in $(site_cases); do
        [[ "site/$case" =~ $filter ]] && cases+=("$case")
    done
    [ ${#cases[@]} -gt 0 ] || return 0
    run_logged "Running what a site does" site run_site_cases "${cases[@]}"
    for case in "${cases[@]}"; do
        record "site: ${case//_/ }" run_logged "Site: ${case//_/ }" "site-$case" site_result "$case"
    done
}

# Every other stage: builds a preset and runs its tests.
stage_preset()
{
    local preset=$1 junit=$build_dir/$1/junit.xml summary=$build_dir/$1/summary good bad status=0
    local results again
    local options=(--no-tests=error)
    if ! configure_preset "$preset" || ! build_preset "$preset"; then
        failures+=("$preset: the build")
        return
    fi
    if [ -n "$filter" ]; then
        options=(--no-tests=ignore -R "$filter")
    fi
    rm -f "$junit" "$summary"
    run_watched "Testing $preset" "$preset-test" timeout 3600 \
        ctest --test-dir "$build_dir/$preset" -j $(($(nproc) * 2)) --output-junit "$junit" "${options[@]}" || status=$?
    if [ "$status" -eq 0 ] && [ ! -f "$junit" ]; then
        return # no test has a name that matches
    fi
    results=("$junit")
    again=$(python3 "$project_dir/scripts/lib/junit.py" --again "$junit") || again=
    if [ -n "$again" ]; then
        status=0
        results+=("$junit.again")
        run_watched "Testing again what Wine did not start, or what failed alone" "$preset-test-again" timeout 3600 \
            ctest --test-dir "$build_dir/$preset" -R "$again" --output-junit "$junit.again" || status=$?
    fi
    if ! python3 "$project_dir/scripts/lib/junit.py" "$summary" "${results[@]}"; then
        failures+=("$preset: its tests did not run")
        return
    fi
    {
        read -r good
        mapfile -t bad
    } <"$summary"
    pass "$good"
    if [ "$status" -ne 0 ] && [ ${#bad[@]} -eq 0 ]; then
        bad=("CTest ended with status $status")
    fi
    if [ ${#bad[@]} -gt 0 ]; then
        failures+=("${bad[@]/#/$preset: }")
    fi
    say "    $good passed, ${#bad[@]} failed"
}

while [ $# -gt 0 ]; do
    case $1 in
        --filter)
            [ $# -ge 2 ] || fail "--filter needs a regular expression."
            filter=$2
            shift
            ;;
        --quick)
            stages=("${quick_stages[@]}")
            filter=$quick_tests
            ;;
        -h | --help)
            sed -n '2,/^$/s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
            exit 0
            ;;
        *)
            [[ " ${all_stages[*]} " = *" $1 "* ]] || fail "There is no stage called $1; see $0 --help."
            stages+=("$1")
            ;;
    esac
    shift
done
[ ${#stages[@]} -gt 0 ] || stages=("${all_stages[@]}")

trap finish EXIT
ensure_packages "${base_packages[@]}" "${test_packages[@]}"
for stage in "${stages[@]}"; do
    case $stage in
        headers | mingw-* | clang-* | shipping | site | package)
            ensure_dependencies ace xerces-c googletest libzip cpp-httplib
            ensure_java
            build_dependency libcxx
            break
            ;;
        native-asan) ensure_jar_tests ;;
    esac
done
if [[ " ${stages[*]} " = *" package "* ]]; then
    ensure_packages "${packaging_packages[@]}" "${packaging_test_packages[@]}"
fi
export ASAN_SYMBOLIZER_PATH=/usr/bin/llvm-symbolizer-14
export UBSAN_OPTIONS=print_stacktrace=1

for stage in "${stages[@]}"; do
    began=$SECONDS
    printf '\n== %s\n' "$stage"
    if declare -F "stage_$stage" >/dev/null; then
        "stage_$stage"
    else
        stage_preset "$stage"
    fi
    say "== $stage took $((SECONDS - began)) s"
done
