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

# run_site_cases NAME...: several at a time, as they wait most of the time.
run_site_cases()
{
    run_side_by_side $(($(nproc) + 1)) "$site_dir" site_case "$@"
}

# site_result NAME: of a case that has been run beside others; one that failed there is tried alone.
site_result()
{
    said_of "$site_dir" "$1" || { echo "Alone:" && site_case "$1"; }
}

site_soak_case()
{
    site_seconds=36000 site_case "$1"
}
