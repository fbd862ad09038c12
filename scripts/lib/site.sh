# shellcheck shell=bash
# A site of many machines: etcd of the distribution, unpacked, and LevelSync as its machines run it.

site_dir=$build_dir/site

# ensure_etcd: in etcd_program.
ensure_etcd()
{
    etcd_program=$site_dir/etcd/usr/bin/etcd
    ensure_unpacked "$site_dir/etcd" "${site_packages[@]}"
}

build_site_programs()
{
    configure_preset mingw-release && build_preset mingw-release LevelSync levelsync_site_host page_host
}

site_cases()
{
    sed -n 's/^def case_\([a-z0-9_]*\)(run):.*/\1/p' "$project_dir/tests/site/site_test.py"
}

# site_case NAME
site_case()
{
    timeout "${site_seconds:-600}" python3 "$project_dir/tests/site/site_test.py" "$build_dir/mingw-release/bin" \
        "$etcd_program" "$site_dir/work/$1" "$project_dir/scripts/lib/wine-run.sh" "$build_dir/mingw-release/wine" "$1"
}

# run_site_cases NAME...: several at a time, as they wait most of the time. What each says is in site_dir/said, and its
# name in site_dir/passed when it passed. A shell of its own: it waits for all that it has begun.
run_site_cases()
(
    rm -rf "$site_dir/said" "$site_dir/passed"
    mkdir -p "$site_dir/said" "$site_dir/passed"
    running=0
    for case; do
        if [ "$running" -gt "$(nproc)" ]; then
            wait -n || true
        else
            running=$((running + 1))
        fi
        { site_case "$case" >"$site_dir/said/$case" 2>&1 && : >"$site_dir/passed/$case"; } &
    done
    wait
)

# site_result NAME: of a case that has been run beside others; one that failed there is tried alone.
site_result()
{
    cat "$site_dir/said/$1"
    [ -e "$site_dir/passed/$1" ] || { echo "Alone:" && site_case "$1"; }
}

site_soak_case()
{
    site_seconds=36000 site_case "$1"
}
