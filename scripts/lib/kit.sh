# shellcheck shell=bash
# The kit of test programs for real Windows.

# The programs of the release build that run anywhere: all of GoogleTest's.
kit_programs=(unit_tests library_tests process_tests fault_tests capi_tests binary_tests enums_tests admin_tests)
# What these start or load.
kit_companions=(kit_runner.exe LUMlog.dll LUMlogEvents.dll lumlog-admin.exe LevelSync.exe suite_messages.dll
    example_crashing_host.exe old_client.exe)

# list_cases PROGRAM: a line "PROGRAM CASE" for each.
list_cases()
{
    "$project_dir/scripts/lib/wine-run.sh" "$build_dir/mingw-release/wine" "$build_dir/mingw-release/bin/$1.exe" \
        --gtest_list_tests 2>/dev/null </dev/null | tr -d '\r' | sed 's/ *#.*//' | awk -v program="$1.exe" '
            /^[^ ].*\.$/ { suite = $1; next }
            /^  / && suite != "" { print program " " suite $1 }'
}

# make_test_kit [yes]: build/LUMlog-test-kit.zip; yes: with the benchmarks.
make_test_kit()
{
    local release=$build_dir/mingw-release bench=$build_dir/mingw-bench kit=$build_dir/kit/LUMlog-test-kit name
    configure_preset mingw-release && build_preset mingw-release || fail "The tests could not be built."
    rm -rf "$build_dir/kit"
    mkdir -p "$kit/bin"
    cp "$project_dir"/tests/kit/run.{cmd,ps1} "$kit/"
    cp "$project_dir/docs/platforms.md" "$kit/"
    cp "$project_dir/tests/capi/abi.txt" "$kit/bin/"
    for name in "${kit_programs[@]/%/.exe}" "${kit_companions[@]}"; do
        cp "$release/bin/$name" "$kit/bin/"
    done
    for name in "${kit_programs[@]}"; do
        list_cases "$name"
    done >"$kit/cases.txt"
    : >"$kit/benchmarks.txt"
    if [ -n "${1:-}" ]; then
        ensure_packages "${bench_packages[@]}"
        ensure_dependencies ace xerces-c benchmark libzip cpp-httplib
        configure_preset mingw-bench && build_preset mingw-bench || fail "The benchmarks could not be built."
        cp "$bench/bin/bench_floor.dll" "$kit/bin/"
        for name in "$project_dir"/bench/*.cpp; do
            name=$(basename "$name" .cpp).exe
            cp "$bench/bin/$name" "$kit/bin/"
            printf '%s\n' "$name" >>"$kit/benchmarks.txt"
        done
    fi
    # Windows' editors.
    sed -i 's/$/\r/' "$kit"/run.cmd "$kit"/run.ps1 "$kit"/*.txt
    SOURCE_DATE_EPOCH=$(source_date) python3 -c '
import os, pathlib, sys
sys.path.insert(0, sys.argv[1])
import lumlog_zip
lumlog_zip.write(sys.argv[3], pathlib.Path(sys.argv[2]), "LUMlog-test-kit", int(os.environ["SOURCE_DATE_EPOCH"]))
' "$project_dir/packaging" "$kit" "$build_dir/LUMlog-test-kit.zip"
}
