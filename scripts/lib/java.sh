# shellcheck shell=bash
# What lumlog.jar is made with, and what its tests and those of the Java class need: a compiler for this machine, a Java
# runtime for Windows, which Wine runs, and the API of SLF4J 2. The DLL builds without them, and nothing of them is
# shipped.

# Debian has no Java for Windows. This package's program is an archive too, with a runtime and the headers of its
# native interface in it: Zulu OpenJDK 11.
windows_jdk_package=@bazel/bazel-win32_x64@2.1.0
windows_jdk_sum=c08e06b2e52fff277849512c13e21cdb575deb03c36e6e89b5618b87c4aa414e
windows_jdk_inside=embedded_tools/jdk

# The distribution has SLF4J 1.7 alone. This package has the API of 2 among its libraries.
slf4j2_package=allure-commandline@2.46.1
slf4j2_inside=package/dist/lib/slf4j-api-2.0.18.jar
slf4j2_sum=44508fd1576500688c790b190acdd16fec4f8c79a3e0b900afd70503cf055f55

windows_jdk_prefix()
{
    printf '%s/windows-jdk-%s\n' "$cache_dir" "${windows_jdk_sum:0:12}"
}

# fetch_archive PACKAGE DIR: the package's archive.
fetch_archive()
{
    # With a cache of its own: tens of megabytes that nobody asks for again would stay in the user's.
    (cd "$2" && timeout 900 npm pack --ignore-scripts --no-update-notifier --cache "$2/npm" "$1")
}

# fetch_windows_jdk DIR: the runtime in DIR/embedded_tools/jdk, from a package with the known content and no other.
fetch_windows_jdk()
{
    local dir=$1
    fetch_archive "$windows_jdk_package" "$dir" || return
    if ! sha256sum --check --quiet - <<<"$windows_jdk_sum  $(echo "$dir"/*.tgz)"; then
        echo "$windows_jdk_package is not the package that it was when it was chosen."
        return 1
    fi
    tar -xzf "$dir"/*.tgz -C "$dir" && unpack_below "$dir"/package/*.exe "$windows_jdk_inside/" "$dir"
}

# unpack_below ARCHIVE PREFIX DIR: the members whose names begin with the prefix.
unpack_below()
{
    python3 -c '
import sys
import zipfile

archive, prefix, directory = sys.argv[1:]
with zipfile.ZipFile(archive) as content:
    content.extractall(directory, [name for name in content.namelist() if name.startswith(prefix)])
' "$@"
}

# Into its place in the cache, whole or not at all.
ensure_windows_jdk()
{
    local prefix work
    prefix=$(windows_jdk_prefix)
    [ ! -d "$prefix" ] || return 0
    command -v npm >/dev/null || ensure_packages npm
    mkdir -p "$cache_dir"
    # Two runs at once: the second waits here and then finds the work done.
    exec 9>"$cache_dir/windows-jdk.lock"
    flock -n 9 || { say "Waiting for another run, which fetches the Java runtime ..." && flock 9; }
    if [ ! -d "$prefix" ]; then
        rm -rf "$cache_dir/fetching-windows-jdk-"* # what a failed run left to be looked at
        work=$(mktemp -d "$cache_dir/fetching-windows-jdk-XXXXXX")
        run_logged "Fetching a Java runtime for Windows, once" windows-jdk-fetch fetch_windows_jdk "$work" ||
            fail "The Java runtime for Windows could not be fetched."
        mv -T "$work/$windows_jdk_inside" "$prefix"
        rm -rf "$work"
    fi
    exec 9>&-
}

slf4j2_path()
{
    printf '%s/slf4j-api-2-%s.jar\n' "$cache_dir" "${slf4j2_sum:0:12}"
}

# fetch_slf4j2 DIR: the API in DIR, if it is the known one.
fetch_slf4j2()
{
    local dir=$1
    fetch_archive "$slf4j2_package" "$dir" && tar -xzf "$dir"/*.tgz -C "$dir" "$slf4j2_inside" &&
        sha256sum --check --quiet - <<<"$slf4j2_sum  $dir/$slf4j2_inside"
}

ensure_slf4j2()
{
    local path work
    path=$(slf4j2_path)
    [ ! -f "$path" ] || return 0
    command -v npm >/dev/null || ensure_packages npm
    mkdir -p "$cache_dir"
    work=$(mktemp -d "$cache_dir/fetching-slf4j-XXXXXX")
    run_logged "Fetching the API of SLF4J 2, once" slf4j-fetch fetch_slf4j2 "$work" ||
        fail "The API of SLF4J 2 could not be fetched."
    mv "$work/$slf4j2_inside" "$path" # two runs at once bring the same
    rm -rf "$work"
}

# Any compiler that can still write for Java 8 will do.
has_java_compiler()
{
    javac --release 8 -version >/dev/null 2>&1
}

# What lumlog.jar is made with.
ensure_java_compiler()
{
    has_java_compiler || ensure_packages "${java_packages[@]}"
    has_java_compiler || fail "$(command -v javac || echo javac) can't compile for Java 8."
    ensure_packages "${jar_packages[@]}"
}

# And what its tests on this machine need.
ensure_jar_tests()
{
    ensure_java_compiler
    ensure_packages "${jar_test_packages[@]}"
    ensure_slf4j2
}

ensure_java()
{
    ensure_jar_tests
    ensure_windows_jdk
}

# The runtime's folder for CMake, or nothing where the tests of the Java class could not be built.
windows_jdk_path()
{
    local prefix
    prefix=$(windows_jdk_prefix)
    [ ! -d "$prefix" ] || ! has_java_compiler || echo "$prefix"
}

# What CMake has to find anew when it changes: a tree that was configured without a Java compiler makes no jar.
java_state()
{
    printf '%s' "$(command -v javac)"
    is_installed libslf4j-java && printf ' with SLF4J'
    [ ! -f "$(slf4j2_path)" ] || printf ' and %s' "$(slf4j2_path)"
    printf '\n'
}
