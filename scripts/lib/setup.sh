# shellcheck shell=bash
# Sourced first by every script here: settles the environment, then loads the functions.

set -euo pipefail
umask 022

# Some build machines start scripts without a home; the cache and Wine want one.
if [ -z "${HOME:-}" ]; then
    HOME=$(getent passwd "$(id -u)" | cut -d: -f6)
fi
export HOME
export LC_ALL=C.UTF-8

# What the log library reads from its environment must come from the tests alone.
for name in "${!PRISMATE_@}" "${!KORAL_@}"; do
    unset "$name"
done
# No display and no question: nothing here may wait for a person.
unset name DISPLAY WAYLAND_DISPLAY
export DEBIAN_FRONTEND=noninteractive
exec </dev/null

project_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build_dir=$project_dir/build
log_dir=$build_dir/logs
# Finished dependencies and a fresh Wine prefix, kept for every tree of this user.
cache_dir=${LUMLOG_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/lumlog}

. "$project_dir/scripts/lib/report.sh"
. "$project_dir/scripts/lib/packages.sh"
. "$project_dir/scripts/lib/dependencies.sh"
. "$project_dir/scripts/lib/java.sh"
. "$project_dir/scripts/lib/wine.sh"
. "$project_dir/scripts/lib/build.sh"
. "$project_dir/scripts/lib/packaging.sh"
. "$project_dir/scripts/lib/kit.sh"
. "$project_dir/scripts/lib/shipping.sh"
. "$project_dir/scripts/lib/site.sh"

trap stop_wine_servers EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
