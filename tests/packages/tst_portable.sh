#!/usr/bin/env bash
# The portable archive, unpacked in a path with blanks: tst_portable.sh PACKAGES.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"

archive=$(echo "$1"/old/*.tar.gz)
german_archive=$(echo "$1"/new/*.tar.gz)
scratch=$(mktemp -d "${TMPDIR:-/tmp}/Vantrel Updater test.XXXXXX")
program=
clean_up()
{
    [ -z "$program" ] || kill "$program" 2>/dev/null || true
    wait
    rm -rf "$scratch"
}
trap clean_up EXIT

has_one_folder()
{
    [ "$(tar -tf "$archive" | cut -d / -f 1 | sort -u | wc -l)" -eq 1 ]
}

# With another tool than the one that wrote the README.
names_libraries_of()
{
    local library
    for library in $(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
        grep -qwF -- "$library" "$folder/README" || {
            echo "$library is missing" && return 1
        }
    done
}

names_libraries_in_one_line()
{
    [ "$(grep -c 'lib[^ ]*\.so' "$folder/README")" -eq 1 ]
}

runs()
{
    [ "$(readlink "/proc/$program/exe")" = "$folder/VTUpdater" ]
}

has_loaded()
{
    grep -qF "$1" "/proc/$program/maps"
}

# The help for an unknown part lists all known parts.
knows_chip()
{
    local known
    known=$("$folder/avrdude/avrdude" -C "$folder/avrdude/avrdude.conf" -p '?' 2>&1 || true)
    grep -q 'm328p .*= ATmega328P$' <<<"$known"
}

expect "everything lies in one folder" has_one_folder
tar -C "$scratch" -xf "$archive"
folder=$(echo "$scratch"/*)
expect "the README names the program's libraries" names_libraries_of "$folder/VTUpdater"
expect "and those of the uploader" names_libraries_of "$folder/avrdude/avrdude"
expect "in one line" names_libraries_in_one_line
expect "the licence is there" grep -q "MIT License" "$folder/LICENSE"
expect "the uploader knows the chip by its own configuration" knows_chip

export QT_QPA_PLATFORM=offscreen http_proxy=http://127.0.0.1:9 HOME=$scratch
"$folder/VTUpdater" >"$scratch/log" 2>&1 &
program=$!
expect_soon "the program makes the sketches' folder beside it" test -d "$folder/compiled_sketches"
expect "it is the unpacked program that runs" runs
kill "$program"

mkdir "$scratch/german"
tar -C "$scratch/german" -xf "$german_archive"
folder=$(echo "$scratch"/german/*)
LC_ALL=de_DE.UTF-8 "$folder/VTUpdater" >"$scratch/log" 2>&1 &
program=$!
expect_soon "a translation that the sources hold is there and found" has_loaded "$folder/de_DE.qm"
