#!/usr/bin/env bash
# The whole use of the program by keyboard alone, on a real display with a window manager, a
# simulated device and a repository: tst_keyboard.sh BUILD, the folder of the program.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"

build=$(realpath "$1")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
scratch=$(mktemp -d "${TMPDIR:-/tmp}/tst_keyboard.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

# The program keeps its sketches beside itself.
cp -r "$build/VTUpdater" "$build/avrdude" "$scratch"
"$root/scripts/demo" --keyboard --build "$build" --program "$scratch/VTUpdater" \
    --screenshots "$scratch/screenshots" >"$scratch/log" 2>&1 </dev/null \
    || {
        cat "$scratch/log"
        fail "the walk by keyboard"
    }
for step in "Update recommended" "Upload successfull" "The chip's flash equals" "Serial monitor" \
    "Device back" "About" "exit status 0"; do
    expect "by keyboard: $step" grep -q "$step" "$scratch/log"
done
