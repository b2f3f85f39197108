#!/usr/bin/env bash
# What the scripts say when they are called wrongly or cannot work: tst_messages.sh, from any folder.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
scratch=$(mktemp -d "${TMPDIR:-/tmp}/tst_messages.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

# A checkout whose path has a blank, where nothing was built.
checkout="$scratch/a checkout"
mkdir "$checkout"
cp -r "$root/scripts" "$checkout"
mkdir "$checkout/tools"
cp "$root/tools/compile-sketch" "$checkout/tools"

# stops STATUS LINE COMMAND...: the command ends with the status, and its complaint begins with LINE,
# a pattern.
stops()
{
    local status=0
    (cd "$checkout" && "${@:3}") >"$scratch/output" 2>"$scratch/complaint" </dev/null || status=$?
    # shellcheck disable=SC2053
    [ "$status" -eq "$1" ] && [[ $(head -n 1 "$scratch/complaint") = $2 ]] && return
    echo "status $status" && head "$scratch/output" "$scratch/complaint" && return 1
}

# stops_in_a_line LINE COMMAND...: with status 1, and says nothing else.
stops_in_a_line()
{
    stops 1 "$@" && [ "$(cat "$scratch/output" "$scratch/complaint" | wc -l)" -eq 1 ]
}

# Nothing is installed or built for a wrong call: an apt-get and a cmake that can be seen.
mkdir "$scratch/traps"
for name in apt-get cmake cpack; do
    printf '#!/bin/sh\necho "%s $*" >>"%s"\nexit 1\n' "$name" "$scratch/begun" \
        >"$scratch/traps/$name"
    chmod +x "$scratch/traps/$name"
done
export PATH=$scratch/traps:$PATH

for call in "scripts/demo --screenshots" "scripts/demo --build" "scripts/demo --program" \
    "scripts/package --build" "scripts/translate --build" "scripts/translate --beside" \
    "scripts/lint --build" "scripts/virtual-display --size" "tools/compile-sketch --build"; do
    read -r script option <<<"$call"
    expect "a usage error: $call" \
        stops 2 "${script##*/}: $option needs a value" "$script" "$option"
    expect "so is an empty one: $call ''" \
        stops 2 "${script##*/}: $option needs a value" "$script" "$option" ""
    expect "which shows the usage: $call" grep -q "^usage: ${script##*/}" "$scratch/complaint"
done
for call in "scripts/demo --dpi" "scripts/demo --qt" "scripts/package --qt" \
    "scripts/campaign names --seed" "scripts/test --repeat"; do
    read -r -a words <<<"$call"
    expect "a usage error: $call many" \
        stops 2 "${words[0]##*/}: ${words[-1]} needs *" "${words[@]}" many
done
for script in campaign coverage demo install-packages lint package screenshots test translate \
    virtual-display; do
    expect "a usage error: $script --bogus" stops 2 "$script: *\"--bogus\"" "scripts/$script" --bogus
done
expect "two files to translate" stops 2 'translate: there can only be one file, not also "fr_FR.ts"' \
    scripts/translate de_DE.ts fr_FR.ts
expect "two folders of screenshots" stops 2 "screenshots: there can only be one folder" \
    scripts/screenshots a b
expect "no image without macOS" stops_in_a_line "package: a disk image (dmg) can only be made on macOS" \
    scripts/package deb dmg
mkdir "$checkout/empty"
expect "a folder that is not a build" stops_in_a_line "demo: empty is not a finished build: *" \
    scripts/demo --build empty
expect "nothing of this installs or builds" test ! -e "$scratch/begun"

# typed: the last complaint's advice, as a shell reads it.
typed()
{
    eval "printf '%s\n' $(sed -n 's/.*; try: //p' "$scratch/complaint")"
}
expect "a build is needed to translate" stops 1 "translate: nothing is configured in *" \
    scripts/translate de_DE.ts
expect_text "how to make one can be typed" \
    "$(printf '%s\n' cmake -G Ninja -S "$checkout" -B "$checkout/build")" typed

# Debian's commands without a version forward to a Qt that may not be there.
mkdir -p "$checkout/build/translations"
touch "$checkout/build/translations/files.lst"
echo "QT_MAJOR_VERSION:STRING=7" >"$checkout/build/CMakeCache.txt"
make_tool()
{
    printf '#!/bin/sh\n%s\n' "$2" >"$scratch/traps/$1"
    chmod +x "$scratch/traps/$1"
}
make_tool lupdate "echo \"lupdate: could not exec '/usr/lib/qt7/bin/lupdate'\" >&2; exit 1"
make_tool lrelease 'echo "lrelease version 7.1.0"'
make_tool qmake 'echo "Using Qt version 7.1.0"'
expect "lupdate forwards to nothing" stops 1 "translate: lupdate of Qt 7 is missing; try: *" \
    scripts/translate de_DE.ts
expect_text "what installs it can be typed" \
    "$(printf '%s\n' "$checkout/scripts/install-packages" qt6)" typed
make_tool lupdate 'echo "lupdate version 5.15.8"'
expect "or to another Qt" stops 1 "translate: lupdate of Qt 7 is missing; *" \
    scripts/translate de_DE.ts

# Root may write everywhere, except where nobody may.
as_user=()
if [ "$(id -u)" -eq 0 ]; then
    as_user=(setpriv --reuid 54321 --regid 54321 --clear-groups)
    chmod 755 "$scratch"
fi
chmod -R a+rX,a-w "$checkout"
for call in "scripts/demo" "scripts/package deb" "scripts/test" "scripts/coverage" \
    "scripts/screenshots" "scripts/campaign memcheck"; do
    read -r -a words <<<"$call"
    name=${words[0]##*/}
    expect "a checkout that cannot be written to: $call" \
        stops_in_a_line "$name: cannot * $checkout/build*" \
        ${as_user[@]+"${as_user[@]}"} "${words[@]}"
done
chmod u+w "$checkout"

# A command that takes longer than the progress is silent.
cat >"$scratch/waits" <<TEXT
set -euo pipefail
. "$root/scripts/common.bash"
watched "$scratch/log" sh -c 'echo step one; while [ ! -e "$scratch/enough" ] && [ -d "$scratch" ]; do sleep 0.1; done'
echo it is over
watched "$scratch/log" sh -c 'echo the reason; exit 3'
TEXT
bash "$scratch/waits" >"$scratch/progress" 2>"$scratch/complaint" </dev/null &
waiting=$!
expect_soon "a long command shows how far it is" grep -q '^ *[0-9]* s  step one$' "$scratch/progress"
touch "$scratch/enough"
status=0
wait "$waiting" || status=$?
expect "and gives back its status" test "$status" -eq 3
expect "with its output if it fails" grep -qx "the reason" "$scratch/complaint"
expect_text "and without it if not" "it is over" tail -n 1 "$scratch/progress"
