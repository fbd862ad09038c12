#!/usr/bin/env bash
# Measures what lines cost that Java programs write, on a Java runtime for Windows with the DLL, under Wine, and on this
# machine's Java without it. Sets up what it needs first. What the rows mean: docs/java.md

. "$(dirname "${BASH_SOURCE[0]}")/lib/setup.sh"

ensure_packages "${base_packages[@]}" "${test_packages[@]}"
ensure_dependencies ace xerces-c googletest libzip cpp-httplib
ensure_java
preset=mingw-release
configure_preset "$preset" || fail "The build could not be set up."
build_preset "$preset" LUMlog lumlog_jar || fail "The library could not be built."

tree=$build_dir/$preset
jar=$tree/java/lumlog.jar
work=$tree/bench-java
rm -rf "$work"
mkdir -p "$work/classes" "$work/log"
javac --release 11 -d "$work/classes" -cp "$jar" "$project_dir/bench/java/Callers.java"
printf '2\nfile_size_limit_in_mb=0\nCallers 310 7\n' >"$work/log/logger"

windows_path()
{
    printf 'Z:%s' "${1//\//\\}"
}

say "On $("$(command -v java)" -version 2>&1 | sed -n 's/^.*version "\([^"]*\)".*/Java \1/p'), without the DLL:"
timeout 300 java -XX:+UseSerialGC -Dlumlog.fallback.file="$work/log/fallback.log" -Dlumlog.fallback.level.310=debug \
    -cp "$jar:$work/classes" Callers 2>"$work/errors"
say "On the runtime for Windows, with the DLL:"
(
    cd "$project_dir/tests/java" && TEST_LOG_DIR=$(windows_path "$work/log") timeout 300 \
        "$project_dir/scripts/lib/wine-run.sh" "$tree/wine" cmd.exe /c launch.cmd \
        "$(windows_path "$(windows_jdk_prefix)/bin/java.exe")" -XX:+UseSerialGC \
        "-Djava.library.path=$(windows_path "$tree/bin")" \
        -cp "$(windows_path "$jar");$(windows_path "$work/classes")" Callers 2>>"$work/errors"
)
