#!/usr/bin/env bash
# Makes one ZIP with all test programs of the release build, the benchmarks and a runner, for a machine with Windows.
#
#   scripts/windows-test-kit.sh [--without-benchmarks]
#
# There: unpack it, and run run.cmd or run.ps1. It needs nothing else, ends with "N passed, N failed", and leaves
# results.txt, which says what the machine is and what went wrong. The ZIP is build/LUMlog-test-kit.zip.

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

with_benchmarks=yes
case ${1:-} in
    '') ;;
    --without-benchmarks) with_benchmarks= ;;
    -h | --help)
        sed -n '2,/^$/s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
        exit 0
        ;;
    *) fail "There is no option $1; see $0 --help." ;;
esac

ensure_packages "${base_packages[@]}" "${test_packages[@]}"
ensure_dependencies ace xerces-c googletest libzip cpp-httplib
ensure_java
make_test_kit "$with_benchmarks"
say "$build_dir/LUMlog-test-kit.zip"
