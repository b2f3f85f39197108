# shellcheck shell=bash
# What the scripts share; each defines usage() itself.

script=${0##*/}

fail()
{
    echo "$script: $1" >&2
    exit "${2:-1}"
}

misuse()
{
    echo "$script: $1" >&2
    usage >&2
    exit 2
}

# needs_value OPTION [VALUE...]
needs_value()
{
    [ -n "${2:-}" ] || misuse "$1 needs a value"
}

say()
{
    printf '\n== %s\n' "$*"
}

# quoted WORD...: as they can be typed into a shell.
quoted()
{
    local words
    printf -v words '%q ' "$@"
    echo "${words% }"
}

# make_writable FOLDER
make_writable()
{
    mkdir -p "$1" 2>/dev/null || fail "cannot create the folder $1"
    [ -w "$1" ] || fail "cannot write to $1"
}

# Until its standard input ends: how long it takes, and the last line of the log.
show_progress()
{
    local log=$1 begin=$SECONDS line status every=10 form='%5d s  %s\n'
    if [ -t 1 ]; then
        every=1
        form='\r\e[K%5d s  %s'
    fi
    while true; do
        status=0
        read -r -t "$every" || status=$?
        [ "$status" -gt 128 ] || break
        line=$(tail -n 1 "$log")
        # shellcheck disable=SC2059 # one of the two above
        printf "$form" $((SECONDS - begin)) "${line:0:60}"
    done
    [ ! -t 1 ] || printf '\r\e[K'
}

# watched LOG COMMAND...: runs the command and shows that it goes on. What it prints goes to LOG, and
# is shown if it fails.
watched()
{
    local log=$1 status=0 progress reporter
    : >"$log"
    exec {progress}> >(show_progress "$log")
    reporter=$!
    "${@:2}" >>"$log" 2>&1 {progress}>&- || status=$?
    exec {progress}>&-
    wait "$reporter" || true
    [ "$status" -eq 0 ] || cat "$log" >&2
    return "$status"
}
