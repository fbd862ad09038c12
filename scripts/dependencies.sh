#!/usr/bin/env bash
# Builds what LUMlog links, where that was not done yet. The last line is for CMake:
#   cmake --preset mingw-release -D CMAKE_PREFIX_PATH="$(scripts/dependencies.sh | tail -n 1)"

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

ensure_packages "${base_packages[@]}"
ensure_dependencies ace xerces-c googletest libzip cpp-httplib
say "$dependency_path"
