# shellcheck shell=bash
# The packages of a tree, made by CPack.

# What was built from source, and so what packages have the licences of.
licensed_sources=(ace xerces-c libzip cpp-httplib)

# The commit's time; what has no history gives it itself.
source_date()
{
    printf '%s\n' "${SOURCE_DATE_EPOCH:-$(git -C "$project_dir" log -1 --format=%ct)}"
}

# ensure_licences NAME...: the licences that stand in the sources of the dependencies, in a folder of the cache.
ensure_licences()
{
    local name work wanted
    licence_dir=$cache_dir/licences
    mkdir -p "$licence_dir"
    for name in "$@"; do
        wanted=$(dependency_version "$name")
        [ "$(cat "$licence_dir/$name.version" 2>/dev/null)" != "$wanted" ] || continue
        work=$(mktemp -d "$cache_dir/licences-$name-XXXXXX")
        run_logged "Fetching the licence of $name, once" "$name-licence" fetch_source "$name" "$wanted" "$work" ||
            fail "The sources of $name could not be fetched."
        mkdir "$work/texts"
        find "$work/source" -maxdepth 1 -type f \( -name 'COPYING*' -o -name 'LICENSE*' -o -name 'NOTICE*' \) \
            -exec cp -t "$work/texts" {} +
        rm -rf "${licence_dir:?}/$name"
        mv -T "$work/texts" "$licence_dir/$name"
        printf '%s\n' "$wanted" >"$licence_dir/$name.version"
        rm -rf "$work"
    done
}

# compile_anew TREE TARGET...: whatever was compiled before, here or elsewhere.
compile_anew()
{
    local tree=$1 targets=()
    shift
    [ $# -eq 0 ] || targets=(--target "$@")
    CCACHE_DISABLE=1 run_logged "Compiling${*:+ $*} anew" mingw-package-anew \
        cmake --build "$tree" --clean-first "${targets[@]}" -- -k 0
}

# make_packages [--fresh | --fresh-library]: in build/mingw-package/packages.
make_packages()
{
    local tree=$build_dir/mingw-package
    ensure_licences "${licensed_sources[@]}"
    configure_preset mingw-package || fail "The build could not be set up."
    case ${1:-} in
        --fresh) compile_anew "$tree" || fail "The build failed." ;;
        --fresh-library) compile_anew "$tree" LUMlog LUMlogEvents || fail "The build failed." ;;
    esac
    build_preset mingw-package || fail "The build failed."
    SOURCE_DATE_EPOCH=$(source_date) LUMLOG_LICENCES=$licence_dir \
        run_logged "Making the packages" mingw-package-cpack cpack --config "$tree/CPackConfig.cmake" ||
        fail "The packages could not be made."
}

# The same commit in another folder and another time zone. What the DLL is made of is compiled, whatever was before; the rest
# may come from the cache, as scripts/soak.sh compiles all of it: build_again [--fresh].
build_again()
{
    local again=$build_dir/again
    rm -rf "$again"
    mkdir -p "$again"
    # Without a history where there is none.
    (cd "$project_dir" && { git ls-files -co --exclude-standard -z 2>/dev/null || find . -path ./build -prune -o -type f -print0; }) |
        (cd "$project_dir" && tar --null -T - --ignore-failed-read -cf - 2>/dev/null) | tar -C "$again" -xf - &&
        (cd "$again" && TZ=Asia/Tokyo SOURCE_DATE_EPOCH=$(source_date) scripts/package.sh "${1:---fresh-library}") &&
        rm -rf "$build_dir/mingw-package/packages-again" &&
        mv "$again/build/mingw-package/packages" "$build_dir/mingw-package/packages-again"
}
