#!/usr/bin/env bash
# The display of the demonstration and the tests: several open at once, each is ready when it is
# printed, and ends as a whole.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"

display=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/scripts/virtual-display
scratch=$(mktemp -d "${TMPDIR:-/tmp}/tst_virtualdisplay.XXXXXX")
started=()
clean_up()
{
    [ ${#started[@]} -eq 0 ] || kill "${started[@]}" 2>/dev/null || true
    wait
    rm -rf "$scratch"
}
trap clean_up EXIT

# open NAME [OPTION...]: without waiting for it.
open()
{
    mkfifo "$scratch/$1"
    "$display" "${@:2}" >"$scratch/$1" 2>"$scratch/$1.log" &
    started+=($!)
}

# opened NAME: waits for it.
opened()
{
    read -r answer <"$scratch/$1" || fail "display $1 opens: $(cat "$scratch/$1.log")"
}

managed()
{
    xprop -display "$1" -root _NET_SUPPORTING_WM_CHECK | grep -q 'window id'
}

dots_per_inch()
{
    xrdb -display "$1" -query | sed -n 's/^Xft.dpi:[[:blank:]]*//p'
}

count=4
for ((number = 0; number < count; number++)); do
    open "$number" --dpi $((96 + number))
done
displays=()
for ((number = 0; number < count; number++)); do
    opened "$number"
    displays+=("$answer")
    expect "display $number, $answer, has its window manager" managed "$answer"
    expect_text "and its own dots per inch" $((96 + number)) dots_per_inch "$answer"
done
expect_text "each is another display" "$count" \
    sh -c 'printf "%s\n" "$@" | sort -u | wc -l' sh "${displays[@]}"

not_managed()
{
    ! managed "$1"
}
size()
{
    xprop -display "$1" -root _NET_DESKTOP_GEOMETRY | sed 's/.*= //'
}
open bare --no-window-manager
opened bare
expect "a display can do without a window manager" not_managed "$answer"
open small --size 800x600
opened small
expect_text "and have another size" "800, 600" size "$answer"

# Without a place for its cache, openbox says so on its standard output.
managed_by_one_process()
{
    [ -n "$(pgrep -P "${started[-1]}" openbox)" ] && managed "$1"
}
HOME=/proc/nowhere open homeless
opened homeless
sleep 1 # more than it took openbox to end
expect "the window manager may print what it likes" managed_by_one_process "$answer"

is_gone()
{
    ! xprop -display "${displays[$1]}" -root >/dev/null 2>&1
}
kill "${started[0]}"
wait "${started[0]}" || fail "a display that is terminated ends well"
expect_soon "its server ends with it" is_gone 0
kill -KILL "${started[1]}"
expect_soon "also with one that is killed" is_gone 1
expect "the others stay" managed "${displays[2]}"

server_of()
{
    pgrep -P "$1" Xvfb
}
kill "$(server_of "${started[2]}")"
status=0
wait "${started[2]}" || status=$?
expect "it fails when its server ends" test "$status" -eq 1
expect "and says so" grep -q "the display ended" "$scratch/2.log"

refuses()
{
    ! "$display" "$@" >/dev/null 2>&1
}
expect "a wrong size is an error" refuses --size none
