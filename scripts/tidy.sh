#!/usr/bin/env bash
# Runs clang-tidy over the sources, as .clang-tidy says.
#
#   scripts/tidy.sh [REGEX]     only the sources whose paths match

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

ensure_packages "${base_packages[@]}" "${test_packages[@]}" clang-tidy-14
ensure_dependencies ace xerces-c googletest libzip cpp-httplib
# Clang's own build, so that its compile commands are what clang-tidy understands.
configure_preset clang-release || fail "The build could not be set up."
build_preset clang-release || fail "Only a tree that builds can be checked."
run-clang-tidy-14 -quiet -p "$build_dir/clang-release" -j "$(nproc)" "${1:-$project_dir/src/}"
