# shellcheck shell=bash
# Checks for tests that are scripts: each prints a line, and the first that fails ends the test.

fail()
{
    echo "FAIL!  : $*" >&2
    exit 1
}

# expect TEXT COMMAND...: the command succeeds.
expect()
{
    local what=$1
    shift
    "$@" || fail "$what"
    echo "PASS   : $what"
}

# expect_text TEXT EXPECTED COMMAND...: the command prints exactly this.
expect_text()
{
    local what=$1 expected=$2 actual
    shift 2
    actual=$("$@") || fail "$what"
    [ "$actual" = "$expected" ] \
        || fail "$what"$'\n'"   Actual   : $actual"$'\n'"   Expected : $expected"
    echo "PASS   : $what"
}

# expect_soon TEXT COMMAND...: the command succeeds within the seconds that a busy machine may need.
expect_soon()
{
    local what=$1 limit=$((SECONDS + 180))
    shift
    until "$@"; do
        [ "$SECONDS" -lt "$limit" ] || fail "$what"
        sleep 0.1
    done
    echo "PASS   : $what"
}
