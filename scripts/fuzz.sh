#!/usr/bin/env bash
# Fuzzes for longer than the tests do.
#
#   scripts/fuzz.sh [TARGET [SECONDS]]
#
# TARGET is the name of a source in tests/fuzz without ".cpp"; all of them, one after the other,
# where it is missing or "all". SECONDS are for each target, 60 where missing. What is learned stays in
# build/native-fuzz for the next time; an input that fails is kept there too, and belongs in
# tests/fuzz/corpus/TARGET once the fault is mended.

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

wanted=${1:-all}
seconds=${2:-60}
tree=$build_dir/native-fuzz

ensure_packages "${base_packages[@]}" "${test_packages[@]}"
configure_preset native-fuzz || fail "The build could not be set up."
build_preset native-fuzz || fail "The fuzz targets could not be built."
export ASAN_SYMBOLIZER_PATH=/usr/bin/llvm-symbolizer-14
export UBSAN_OPTIONS=print_stacktrace=1

found=0
for source in "$project_dir"/tests/fuzz/*.cpp; do
    name=$(basename "$source" .cpp)
    [ "$wanted" = all ] || [ "$wanted" = "$name" ] || continue
    found=1
    inputs=("$tree/learned/$name")
    mkdir -p "${inputs[0]}"
    corpus=$project_dir/tests/fuzz/corpus/$name
    [ ! -d "$corpus" ] || inputs+=("$corpus")
    say "Fuzzing $name for $seconds s"
    "$tree/bin/fuzz_$name" "-max_total_time=$seconds" -max_len=4096 -timeout=20 -rss_limit_mb=2048 \
        -print_final_stats=1 "-artifact_prefix=$tree/found-$name-" "${inputs[@]}"
done
[ "$found" = 1 ] || fail "There is no fuzz target called $wanted."
