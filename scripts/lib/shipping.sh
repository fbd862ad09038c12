# shellcheck shell=bash
# Lines that are shipped: the log servers of the distribution, unpacked, and a host whose lines they get.

shipping_dir=$build_dir/shipping

# ensure_servers: in server_dir. They run without rights, so root's stand in the build tree, where others can read them.
ensure_servers()
{
    ensure_packages "${shipping_packages[@]}"
    server_dir=$shipping_dir/servers
    ensure_unpacked "$server_dir" "${unpacked_packages[@]}"
}

# ensure_unpacked DIR NAME...: there, unless those packages are there already. Unpacked and not installed, as servers would be
# started. Whole or not at all.
ensure_unpacked()
{
    local dir=$1 work
    shift
    [ "$(cat "$dir.ready" 2>/dev/null)" != "$*" ] || return 0
    mkdir -p "${dir%/*}"
    work=$(mktemp -d "$dir-XXXXXX")
    run_logged "Fetching $*" "unpack-${dir##*/}" unpack_packages "$work" "$@" || fail "Packages could not be fetched: $*"
    rm -rf "$dir"
    mv -T "$work/root" "$dir"
    rm -rf "$work"
    printf '%s\n' "$*" >"$dir.ready"
}

# unpack_packages DIR NAME...: into DIR/root, of the versions that the machine's registry has.
unpack_packages()
{
    local dir=$1 package
    shift
    mkdir -p "$dir/root"
    chmod 755 "$dir"
    (cd "$dir" && apt-get -q -o Acquire::Retries=3 -o "APT::Sandbox::User=$(id -un)" download "$@") || return
    for package in "$dir"/*.deb; do
        dpkg -x "$package" "$dir/root" || return
    done
}

build_lines_writer()
{
    configure_preset mingw-release && build_preset mingw-release lines_writer
}

# write_lines FOLDER NAME LINES KIND
write_lines()
{
    mkdir -p "$1"
    printf '2\nfile_size_limit_in_mb=0\nReader 310 7\n' >"$1/logger"
    timeout 300 "$project_dir/scripts/lib/wine-run.sh" "$build_dir/mingw-release/wine" \
        "$build_dir/mingw-release/bin/lines_writer.exe" "Z:${1//\//\\}" "$2" "$3" "$4"
}

write_lines_to_ship()
{
    local kind
    rm -rf "$shipping_dir/logs"
    for kind in ordinary hostile; do
        run_logged "Writing $kind lines" "shipping-$kind" write_lines "$shipping_dir/logs" "$kind" 3000 "$kind" || return
    done
    mkdir -p "$shipping_dir/work"
    run_logged "Building a program that matches with RE2" shipping-re2 clang++-14 -std=c++17 -O1 -Wall -Wextra -Werror \
        "$project_dir/tests/shipping/re2_match.cpp" -lre2 -o "$shipping_dir/work/re2_match"
}

shipping_cases()
{
    sed -n 's/^def case_\([a-z0-9_]*\)(run):.*/\1/p' "$project_dir/tests/shipping/shipping_test.py"
}

shipping_case()
{
    mkdir -p "$shipping_dir/work"
    timeout 3000 python3 "$project_dir/tests/shipping/shipping_test.py" "$project_dir" "$shipping_dir/logs" \
        "$shipping_dir/work" "$server_dir" "$project_dir/scripts/lib/wine-run.sh" "$build_dir/mingw-release/wine" \
        "$build_dir/mingw-release/bin/lines_writer.exe" "$1"
}
