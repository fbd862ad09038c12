#!/usr/bin/env bash
# Formats the sources as .clang-format says; with --check, only tells whether they are.

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

ensure_packages clang-format-14

# Tracked or not yet, but not ignored; also in a clone that belongs to another user.
mapfile -d '' -t listed < <(git -C "$project_dir" -c safe.directory="$project_dir" \
    ls-files -z --cached --others --exclude-standard -- '*.cpp' '*.h' '*.hpp' '*.c')
files=()
for file in "${listed[@]}"; do
    [ ! -f "$project_dir/$file" ] || files+=("$project_dir/$file") # not where it was just removed
done
[ ${#files[@]} -gt 0 ] || fail "No sources were found; Git has to know this tree."

if [ "${1:-}" = --check ]; then
    clang-format-14 --dry-run -Werror "${files[@]}"
else
    clang-format-14 -i "${files[@]}"
fi
