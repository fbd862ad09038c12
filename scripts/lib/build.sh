# shellcheck shell=bash
# Configuring and building the trees under build/, one for each preset.

# What was compiled before, in this tree or in another clone of it, is taken from a cache: the paths that compilers
# are given are looked at from the tree's root. Precompiled headers begin with a file that CMake has just written.
export CCACHE_DIR=$cache_dir/ccache CCACHE_BASEDIR=$project_dir CCACHE_NOHASHDIR=1 CCACHE_MAXSIZE=5G
export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime

# configure_preset PRESET: only where that was not done yet, or differently; a build re-runs
# CMake by itself when a list of sources changed.
configure_preset()
{
    local preset=$1 tree=$build_dir/$1 prefix_path=$dependency_path java_path='' libcxx='' wanted wine
    case $preset in
        native-*) prefix_path= ;; # what it needs are packages of this machine
        *-bench) ensure_wine_prefix "$tree/wine" ;;
        *-package) ;; # nothing of it is run while it is built
        *)
            # With those that tests/ has by lumlog_use_wine_of_its_own.
            for wine in wine wine-watch wine-page; do
                ensure_wine_prefix "$tree/$wine"
            done
            # Also for scripts that run no test: else each would configure the tree anew after the other.
            java_path=$(windows_jdk_path)
            [ "$preset" != mingw-release ] || libcxx=$(libcxx_path)
            ;;
    esac
    wanted=$(cat "$project_dir/CMakePresets.json" "$project_dir"/cmake/toolchains/*.cmake &&
        printf '%s\n' "$prefix_path" "$java_path" ${libcxx:+"$libcxx"} ccache && java_state)
    if [ -f "$tree/build.ninja" ] && [ "$wanted" = "$(cat "$tree/configured-as" 2>/dev/null)" ]; then
        return 0
    fi
    run_logged "Configuring $preset" "$preset-configure" \
        cmake -S "$project_dir" --preset "$preset" --fresh \
        -D CMAKE_C_COMPILER_LAUNCHER=ccache -D CMAKE_CXX_COMPILER_LAUNCHER=ccache \
        -D "CMAKE_PREFIX_PATH=$prefix_path" ${java_path:+-D "LUMLOG_WINDOWS_JDK=$java_path"} \
        ${libcxx:+-D "LUMLOG_MSVC_LIBCXX=$libcxx"} -D "LUMLOG_SLF4J2=$(slf4j2_path)" || return
    printf '%s\n' "$wanted" >"$tree/configured-as"
}

# build_preset PRESET [TARGET...]: all of it, or some targets; goes on after an error, so that
# one run shows all there are.
build_preset()
{
    local preset=$1 targets=()
    shift
    [ $# -eq 0 ] || targets=(--target "$@")
    run_logged "Building $preset${*:+: $*}" "$preset-build" \
        cmake --build "$build_dir/$preset" "${targets[@]}" -- -k 0
}
