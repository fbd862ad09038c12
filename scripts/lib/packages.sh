# shellcheck shell=bash
# The distribution's packages, by name.

# What every script needs: the cross compiler, the build tools and Wine.
base_packages=(
    cmake ninja-build ccache make perl dpkg-dev
    g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
    wine wine64 googletest
    libcli11-dev nlohmann-json3-dev libz-mingw-w64-dev
)
# What the tests need on top: the second compiler with its linker, sanitizers and symbolizer, the formatter, headers for
# Microsoft's ABI, a compiler for the sample in C#, GoogleTest for this machine, Python for the tools and CTest's results,
# and readers of what is written: jq for traces, xmllint for reports, LLDB for minidumps, a browser for pages.
test_packages=(
    clang-14 lld-14 llvm-14 libclang-rt-14-dev clang-format-14 libgtest-dev libgmock-dev libfmt-dev mono-mcs
    libwine-dev libc++-14-dev python3 jq libxml2-utils lldb-14 chromium
)
# What the packages are made with: the installer's compiler, and the editor of what it makes.
packaging_packages=(wixl msitools python3)
# What the tests of the packages need on top.
packaging_test_packages=(python3-jsonschema libxml2-utils)
# What the demo reads a crash report with, and makes it into a page.
demo_packages=(libxml2-utils python3)
# A Java compiler, where the machine has none of its own.
java_packages=(openjdk-17-jdk-headless)
# What lumlog.jar is made with besides, and what its tests need on top.
jar_packages=(libslf4j-java python3)
jar_test_packages=(junit4)
# What lines are shipped with in the tests: a reader of logs, an engine of expressions with a compiler for it, and what the log
# servers below want. Those are unpacked and not installed, as a machine can have but one of them, and would start it.
shipping_packages=(
    lnav libre2-dev clang-14 python3 python3-yaml
    libestr0 libfastjson4 liblognorm5 libivykis0 libnet1 libjson-c5 libpcre3 libwrap0 libpq5 libllvm14
)
unpacked_packages=(rsyslog rsyslog-pgsql syslog-ng-core postgresql-15 postgresql-client-15)
# What a site of many machines keeps what it wants in; unpacked for the same reason. Certificates to refuse are made by openssl,
# and its page is looked at by a browser.
site_packages=(etcd-server)
site_test_packages=(python3 openssl chromium)
bench_packages=(libspdlog-dev libfmt-dev)

is_installed()
{
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# ensure_packages NAME... installs what is missing, and asks the registry for nothing when
# nothing is.
ensure_packages()
{
    local name missing=() as_root=()
    command -v dpkg-query >/dev/null && command -v apt-get >/dev/null ||
        fail "These scripts set up a Debian 12 machine: dpkg and apt-get are needed and not there."
    for name in "$@"; do
        is_installed "$name" || missing+=("$name")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        if command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
            as_root=(sudo -n)
        elif command -v sudo >/dev/null && [ -r /dev/tty ] && sudo true </dev/tty 2>/dev/null; then
            as_root=(sudo)
        else
            fail "These packages are missing and only root can install them; please run
    apt-get update && apt-get install --no-install-recommends ${missing[*]}
as root, and then this script again."
        fi
    fi
    run_logged "Asking the package registry what it has" apt-update \
        "${as_root[@]}" apt-get -q -o Acquire::Retries=3 update ||
        fail "The package registry can't be read."
    run_logged "Installing ${missing[*]}" apt-install \
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -q -y -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 --no-install-recommends \
        install "${missing[@]}" ||
        fail "Packages are missing and could not be installed: ${missing[*]}"
}
