#!/usr/bin/env bash
# Every section of the benchmarks in its short form, and what benchmarks/run refuses:
# tst_benchmarks.sh BUILD. What is measured in a debug build means nothing.
set -euo pipefail

benchmarks=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0

fail()
{
    echo "FAIL!  : $*"
    failed=1
}

# refuses TEXT [OPTION]...: as wrong usage, before it builds.
refuses()
{
    local status=0
    "$benchmarks/run" "${@:2}" >"$scratch/out" 2>"$scratch/error" || status=$?
    [ "$status" -eq 2 ] || fail "run ${*:2} ends with $status"
    head -n 1 "$scratch/error" | grep -qF -- "$1" || fail "run ${*:2}: $(head -n 1 "$scratch/error")"
    ! grep -q "^Building" "$scratch/error" || fail "run ${*:2} builds before it refuses"
}

refuses 'unknown option "--bogus"' --bogus
refuses 'unknown option "--bogus"' --short --bogus
refuses '5 or 6 must follow --qt' --qt
refuses '5 or 6 must follow --qt' --qt 4
refuses 'must follow --only: start list' --only
refuses 'must follow --only: start list' --only nothing
refuses 'a number must follow --seconds' --seconds
refuses 'a number must follow --rounds' --rounds none
refuses '--plot stands alone' --plot --short

"$benchmarks/measure" --build "$1" --short --results "$scratch/results" >"$scratch/table" || {
    fail "measure ends with $?"
}
for section in start list link synchronisation unchanged query update idle monitor; do
    rows=$(grep -c '"key"' "$scratch/results/$section".qt*.json || true)
    [ "${rows:-0}" -gt 0 ] || fail "$section measures nothing"
done
# A row each, with a figure.
rows=$(cat "$scratch"/results/*.json | grep -c '"key"' || true)
lines=$(grep -cE '^\| [^|]+ \| [^|]* \| -?[0-9.,]* \| [^|]* \| [0-9][^|]* \| [0-9]+ \|$' "$scratch/table" || true)
[ "$rows" -eq "$lines" ] || {
    cat "$scratch/table"
    fail "$lines lines of the table for $rows rows"
}
echo "$rows rows"
exit "$failed"
