#!/usr/bin/env bash
# Builds the benchmarks and runs them under Wine. Sets up what it needs first.

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

ensure_packages "${base_packages[@]}" "${bench_packages[@]}"
ensure_dependencies ace xerces-c benchmark
configure_preset mingw-bench || fail "The build could not be set up."
build_preset mingw-bench || fail "The benchmarks could not be built."

tree=$build_dir/mingw-bench
for source in "$project_dir"/bench/*.cpp; do
    [ -f "$source" ] || continue
    program=$(basename "$source" .cpp)
    say "Running $program"
    timeout 900 "$project_dir/scripts/lib/wine-run.sh" "$tree/wine" "$tree/bin/$program.exe"
done
