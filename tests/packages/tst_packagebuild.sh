#!/usr/bin/env bash
# How the packages are built: tst_packagebuild.sh PACKAGES. The same from the same commit, hardened as
# the distribution hardens its own, and with the translations in the sources.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"

packages=$(realpath "$1")
commit_date="2026-11-05 08:09:10"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
program=$scratch/usr/libexec/vantrel-updater/VTUpdater

same()
{
    [ "$(basename "$packages"/old/*"$1")" = "$(basename "$packages"/again/*"$1")" ] \
        && cmp "$packages"/old/*"$1" "$packages"/again/*"$1"
}

debian_files()
{
    dpkg-deb --fsys-tarfile "$packages"/old/*.deb | list -
}
portable_files()
{
    list "$packages"/old/*.tar.gz
}
list()
{
    TZ=UTC tar --list --verbose --full-time --numeric-owner --file "$1"
}
dates()
{
    "$1" | awk '{ print $4, $5 }' | sort -u
}
owners()
{
    "$1" | awk '{ print $2 }' | sort -u
}
modes()
{
    "$1" | awk '{ print $1 }' | sort -u | xargs
}

# header OPTION TEXT: readelf's output for the program contains the text.
header()
{
    LC_ALL=C readelf "$1" --wide "$program" | grep "$2" >/dev/null
}
commands()
{
    sed -n 's/^ *"command": //p' "$packages/sources/build-package/compile_commands.json"
}
# Warnings and optimisation are not compared.
flags_of_distribution()
{
    DEB_BUILD_MAINT_OPTIONS="hardening=+all reproducible=-all qa=-all optimize=-all" \
        dpkg-buildflags --get "$1" | xargs -n 1 | grep -vE '^-(g|O|W|specs)' || true
}
# A higher level of the same option includes the lower one.
used_everywhere()
{
    local flag count
    count=$(commands | wc -l)
    [ "$count" -gt 10 ] || return 1
    for flag in $(flags_of_distribution CPPFLAGS) $(flags_of_distribution CXXFLAGS); do
        [ "$(commands | grep -cF -- " $flag " || true)" -eq "$count" ] || {
            echo "$flag is missing" && return 1
        }
    done
}

texts_of_translation()
{
    dpkg-deb --fsys-tarfile "$packages"/new/*.deb \
        | tar -xO ./usr/libexec/vantrel-updater/de_DE.qm >"$scratch/de_DE.qm"
    "$(lconvert_of_qt)" "$scratch/de_DE.qm" -of ts >"$scratch/texts"
}
lconvert_of_qt()
{
    sed -n 's/^VTUPDATER_LCONVERT:FILEPATH=//p' "$packages/sources/build-package/CMakeCache.txt"
}
translates()
{
    grep -q "<translation>$1</translation>" "$scratch/texts"
}

expect "the Debian package is the same when it is built again" same .deb
expect "the portable archive, too" same .tar.gz
for files in debian_files portable_files; do
    expect_text "all ${files/_/ } have the date of the commit" "$commit_date" dates "$files"
    expect_text "and belong to the superuser" 0/0 owners "$files"
    expect_text "and can be read by everybody" "-rw-r--r-- -rwxr-xr-x drwxr-xr-x" modes "$files"
done

dpkg-deb -x "$packages"/old/*.deb "$scratch"
expect "the program can be loaded at any address" header --dynamic 'Flags:.* PIE'
expect "its imported functions are found before it starts" header --dynamic 'Flags: NOW'
expect "and then read-only" header --segments GNU_RELRO
expect "its stack cannot be executed" header --segments 'GNU_STACK .* RW '
expect "its stack is guarded" header --dyn-syms __stack_chk_fail
expect "it is compiled with all flags that harden the distribution's packages" used_everywhere

expect "the translation of the sources is in the package" texts_of_translation
expect "with the program's texts" translates "Vantrel erneuern"
expect "and Qt's own" translates "Abbrechen"
