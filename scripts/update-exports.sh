#!/usr/bin/env bash
# Writes the list of exported names, which the tests compare with, anew from the DLL as it is now.

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

ensure_packages "${base_packages[@]}"
ensure_dependencies ace xerces-c googletest libzip cpp-httplib
configure_preset mingw-release || fail "The build could not be set up."
build_preset mingw-release LUMlog || fail "LUMlog could not be built."
"$project_dir/tests/binary/check-exports.sh" x86_64-w64-mingw32-objdump \
    "$build_dir/mingw-release/bin/LUMlog.dll" --update
