#!/usr/bin/env bash
# Makes the packages: a ZIP for programmers and an MSI for administrators, in build/mingw-package/packages.
#
#   scripts/package.sh [--fresh | --fresh-library]
#
# --fresh: compiles everything, whatever was compiled before; --fresh-library: what LUMlog.dll is made of.
#
# One commit makes the same bytes whenever and wherever it is built with the same compilers: times in the packages are
# that of the commit, or SOURCE_DATE_EPOCH.

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

case ${1:-} in
    '' | --fresh | --fresh-library) ;;
    -h | --help)
        sed -n '2,/^$/s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
        exit 0
        ;;
    *) fail "There is no option $1; see $0 --help." ;;
esac

ensure_packages "${base_packages[@]}" "${packaging_packages[@]}"
ensure_dependencies ace xerces-c libzip cpp-httplib
ensure_java_compiler
make_packages "$@"
for package in "$build_dir/mingw-package/packages"/*; do
    say "$package"
done
