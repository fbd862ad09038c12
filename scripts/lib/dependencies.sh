# shellcheck shell=bash
# The libraries that are cross-built from the distribution's sources, once for each version,
# recipe and compiler, into a cache outside the tree.

recipe_dir=$project_dir/scripts/dependencies
dependency_path=

# The upstream versions that the recipes were written for.
dependency_version()
{
    case $1 in
        ace) echo 7.0.8 ;;
        xerces-c) echo 3.2.4 ;;
        benchmark) echo 1.7.1 ;;
        libzip) echo 1.7.3 ;;
        cpp-httplib) echo 0.11.4 ;;
        libcxx) echo 14.0.6 ;;
        googletest) dpkg-query -W -f '${Version}' googletest | sed 's/-.*//' ;;
        *) fail "No recipe for a dependency called $1." ;;
    esac
}

# dependency_source NAME: its source package, and below what folders of it that is which is wanted, where not all is.
dependency_source()
{
    case $1 in
        libcxx) echo llvm-toolchain-14 libcxx/src compiler-rt/lib/builtins ;;
        *) echo "$1" ;;
    esac
}

# Changes whenever what is built could: the compiler, its runtime, or how it is called.
dependency_key()
{
    if [ "$1" = libcxx ]; then
        libcxx_key
        return
    fi
    {
        x86_64-w64-mingw32-g++-posix -v 2>&1
        dpkg-query -W g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 mingw-w64-x86-64-dev
        cat "$recipe_dir/$1.sh" "$project_dir/cmake/toolchains"/mingw-{gcc,search}.cmake
    } | sha256sum | cut -c 1-12
}

# Not for MinGW-w64: the tests of programs for Microsoft's ABI are linked with it.
libcxx_key()
{
    {
        dpkg-query -W clang-14 libc++-14-dev libwine-dev
        cat "$recipe_dir/libcxx.sh" "$project_dir"/tests/msvc/{headers.sh,shim/*}
    } | sha256sum | cut -c 1-12
}

# Its folder for CMake, or nothing where it was not built.
libcxx_path()
{
    local name prefix
    for name in clang-14 libc++-14-dev libwine-dev; do
        is_installed "$name" || return 0
    done
    prefix=$(dependency_prefix libcxx)
    [ ! -d "$prefix" ] || echo "$prefix"
}

dependency_prefix()
{
    printf '%s/%s-%s-%s\n' "$cache_dir" "$1" "$(dependency_version "$1")" "$(dependency_key "$1")"
}

# Writes source entries for the Debian archives this machine already installs from, so that a
# mirror is used where one is set up, and the machine's own lists stay as they are. Archives of
# other people are told by the names of their suites.
write_source_lists()
{
    local to=$1 codename suite file
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    suite="$codename(-updates|-security)?"
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        # Lines of "deb [options] URI suite component..."
        [ ! -r "$file" ] ||
            sed -nE "s/^deb[[:space:]]+((\[[^]]*\][[:space:]]+)?[^[:space:]]+[[:space:]]+${suite}[[:space:]])/deb-src \1/p" "$file"
    done >"$to/one-line.list"
    for file in /etc/apt/sources.list.d/*.sources; do
        # Paragraphs of "Field: value" lines, with comments anywhere.
        [ ! -r "$file" ] || { sed '/^#/d' "$file" && echo; }
    done | awk -v suite="[: \t]$suite([ \t]|\$)" '
        BEGIN { RS = ""; FS = "\n" }
        {
            text = ""; ours = 0; enabled = 1
            for (i = 1; i <= NF; ++i)
            {
                field = tolower($i)
                sub(/:.*/, "", field)
                if (field == "types") $i = "Types: deb-src"
                if (field == "suites" && $i ~ suite) ours = 1
                if (field == "enabled" && tolower($i) ~ /no|false/) enabled = 0
                text = text $i "\n"
            }
            if (ours && enabled) print text
        }' >"$to/paragraphs.sources"
    if [ ! -s "$to/one-line.list" ] && [ ! -s "$to/paragraphs.sources" ]; then
        echo "No Debian $codename archive stands in the apt sources of this machine."
        return 1
    fi
}

# fetch_source NAME VERSION DIR: unpacks a source package into DIR/source. Where not all of it is wanted: as it was released,
# without the distribution's changes.
fetch_source()
{
    local name version=$2 dir=$3 apt=$3/apt options wanted
    read -r name wanted < <(dependency_source "$1")
    read -r -a wanted <<<"$wanted"
    options=(
        -o "Dir::Etc::SourceList=/dev/null" -o "Dir::Etc::SourceParts=$apt/sources"
        -o "Dir::State::Lists=$apt/lists" -o "Dir::Cache=$apt"
        -o Acquire::Retries=3
        # Root's fetches would run as a user who may not enter this folder.
        -o "APT::Sandbox::User=$(id -un)"
    )
    mkdir -p "$apt/sources" "$apt/lists/partial" "$apt/archives/partial" &&
        write_source_lists "$apt/sources" &&
        apt-get -q "${options[@]}" update &&
        cd "$dir" &&
        apt-get -q "${options[@]}" --only-source --download-only source "$name" &&
        cd "$project_dir" || return
    case $(echo "$dir"/*.dsc) in
        */"${name}_$version"[-+]*.dsc) ;;
        *)
            echo "The archive has $(basename "$dir"/*.dsc), not version $version of $name."
            return 1
            ;;
    esac
    # apt checked the files against the archive's signed index already.
    if [ ${#wanted[@]} -gt 0 ]; then
        mkdir "$dir/source" &&
            tar -xf "$dir/${name}_$version".orig.tar.* -C "$dir/source" --strip-components=1 --wildcards "${wanted[@]/#/*/}"
        return
    fi
    dpkg-source --no-check -x "$dir"/*.dsc "$dir/source"
}

# build_dependency NAME: into its place in the cache, whole or not at all.
build_dependency()
{
    local name=$1 prefix version work
    prefix=$(dependency_prefix "$name")
    version=$(dependency_version "$name")
    [ ! -d "$prefix" ] || return 0
    mkdir -p "$cache_dir"
    # Two runs at once: the second waits here and then finds the work done.
    exec 9>"$cache_dir/$name.lock"
    flock -n 9 || { say "Waiting for another run, which builds $name ..." && flock 9; }
    if [ ! -d "$prefix" ]; then
        rm -rf "$cache_dir/building-$name-"* # what a failed build left to be looked at
        work=$(mktemp -d "$cache_dir/building-$name-XXXXXX")
        if [ "$name" = googletest ]; then
            ln -s /usr/src/googletest "$work/source"
        else
            run_logged "Fetching the sources of $name $version" "$name-fetch" \
                fetch_source "$name" "$version" "$work" ||
                fail "The sources of $name could not be fetched."
        fi
        run_logged "Building $name $version for Windows, once" "$name-build" \
            bash -eu "$recipe_dir/$name.sh" "$work/source" "$work/build" "$work/prefix" ||
            fail "$name could not be built; its build tree is $work"
        mv -T "$work/prefix" "$prefix"
        rm -rf "$work"
    fi
    exec 9>&-
}

# ensure_dependencies NAME... builds what is not in the cache and leaves in dependency_path
# the list that CMake takes as CMAKE_PREFIX_PATH.
ensure_dependencies()
{
    local name
    dependency_path=
    for name in "$@"; do
        build_dependency "$name"
        dependency_path+=${dependency_path:+;}$(dependency_prefix "$name")
    done
}
