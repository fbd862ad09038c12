# shellcheck shell=bash
# Wine prefixes inside the build trees. Programs run through wine-run.sh, which CMake knows
# as the emulator; what stands here readies the prefixes and stops their servers at the end.

used_prefixes=()

# A prefix that was set up and never used, to copy from: setting one up takes ten seconds and
# 700 MB, nearly all of it files that never change.
ensure_fresh_prefix()
{
    fresh_prefix=$cache_dir/wine-$(dpkg-query -W -f '${Version}' libwine)
    [ ! -e "$fresh_prefix/.ready" ] || return 0
    mkdir -p "$cache_dir"
    run_logged "Setting up Wine, once" wine-setup \
        timeout 300 "$project_dir/scripts/lib/wine-run.sh" "$fresh_prefix" --prepare ||
        fail "Wine can't be set up; see $fresh_prefix.log"
}

# ensure_wine_prefix DIR: a prefix in DIR, whose server is stopped when the script ends.
ensure_wine_prefix()
{
    local prefix=$1
    if [ ! -e "$prefix/.ready" ]; then
        ensure_fresh_prefix
        rm -rf "$prefix" "$prefix.new"
        mkdir -p "$(dirname "$prefix")"
        # Links where the file system allows; but not for the registry, which Wine would
        # then write in place.
        cp -al "$fresh_prefix" "$prefix.new" 2>/dev/null ||
            { rm -rf "$prefix.new" && cp -a "$fresh_prefix" "$prefix.new"; }
        cp -a --remove-destination "$fresh_prefix"/*.reg "$prefix.new"
        # Names the folder of the server's socket: one for each prefix.
        rm -f "$prefix.new/wineserver"
        mv "$prefix.new" "$prefix"
    fi
    # Two programs that start at once would each make such a folder; so one goes ahead.
    timeout 120 "$project_dir/scripts/lib/wine-run.sh" "$prefix" cmd.exe /c exit </dev/null >/dev/null 2>&1 || true
    used_prefixes+=("$prefix")
}

stop_wine_servers()
{
    local prefix
    for prefix in "${used_prefixes[@]}"; do
        WINEPREFIX=$prefix timeout 30 wineserver -k 2>/dev/null || true
        WINEPREFIX=$prefix timeout 30 wineserver -w 2>/dev/null || true
    done
    used_prefixes=()
}
