#!/usr/bin/env bash
# std_format.sh PROGRAM COMPILER...: lumlog.hpp over std::format; formats that do not fit are refused while compiling.
set -euo pipefail
here=$(dirname "$(readlink -f "$0")")
program=$1
shift

warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Werror)
"$@" "${warnings[@]}" "$here/std_format.cpp" -o "$program"
"$program"
if "$@" -DDOES_NOT_COMPILE -fsyntax-only "$here/std_format.cpp" 2>/dev/null; then
    echo "a number's format was taken for a text"
    exit 1
fi
