# shellcheck shell=bash
# What a person sees while the scripts work.

say()
{
    printf '%s\n' "$*"
}

# For what stops a script: says why on standard error and ends it.
fail()
{
    printf '\n%s\n' "$*" >&2
    exit 1
}

# Shows that a long command is alive: the last line of its log, rewritten in place each second on
# a terminal, and every half minute elsewhere, where a line can't be taken back. Ends with the
# script, however that ends.
show_progress()
{
    local log=$1 pause=30 seconds=0 shown='' line
    [ ! -t 1 ] || pause=1
    while sleep 1 && kill -0 $$ 2>/dev/null; do
        seconds=$((seconds + 1))
        [ $((seconds % pause)) -eq 0 ] || continue
        line=$(tail -c 400 "$log" 2>/dev/null | tr -c '[:print:]\n' ' ' | tail -n 1 | cut -c 1-100)
        [ "$line" != "$shown" ] || continue
        shown=$line
        if [ -t 1 ]; then
            printf '\r\033[K    %s' "$line"
        else
            printf '    %s\n' "$line"
        fi
    done
}

# run_watched SENTENCE LOG COMMAND... runs a command with its output in a file of log_dir.
# Returns the command's status. COMMAND must not rely on "set -e": callers may test the result,
# which switches that off.
run_watched()
{
    local sentence=$1 log=$log_dir/$2.log status=0 began=$SECONDS watcher
    shift 2
    mkdir -p "$log_dir"
    : >"$log"
    printf '%s ...\n' "$sentence"
    show_progress "$log" &
    watcher=$!
    "$@" >>"$log" 2>&1 || status=$?
    kill "$watcher" 2>/dev/null || true
    wait "$watcher" 2>/dev/null || true
    [ ! -t 1 ] || printf '\r\033[K'
    if [ "$status" -ne 0 ]; then
        printf '    failed after %d s, see %s\n' $((SECONDS - began)) "$log"
    elif [ $((SECONDS - began)) -ge 5 ]; then
        printf '    done in %d s\n' $((SECONDS - began))
    fi
    return "$status"
}

# The same, and shows the log's end where the command fails.
run_logged()
{
    local log=$log_dir/$2.log status=0
    run_watched "$@" || status=$?
    if [ "$status" -ne 0 ]; then
        # Without the steps that Ninja did: what failed may stand far above them.
        grep -v '^\[[0-9]*/[0-9]*\]' "$log" | tail -n 60 | sed 's/^/    | /' || true
    fi
    return "$status"
}

# run_side_by_side COUNT DIR COMMAND NAME...: COMMAND with each of the names, so many at a time. What each says is in DIR/said,
# and its name in DIR/passed when it passed. A shell of its own: it waits for all that it has begun.
run_side_by_side()
(
    count=$1 dir=$2 command=$3
    shift 3
    rm -rf "$dir/said" "$dir/passed"
    mkdir -p "$dir/said" "$dir/passed"
    running=0
    for name; do
        if [ "$running" -ge "$count" ]; then
            wait -n || true
        else
            running=$((running + 1))
        fi
        { "$command" "$name" >"$dir/said/$name" 2>&1 && : >"$dir/passed/$name"; } &
    done
    wait
)

# said_of DIR NAME: shows what it said there, and is true when it passed.
said_of()
{
    cat "$1/said/$2"
    [ -e "$1/passed/$2" ]
}
