#!/usr/bin/env bash
# Builds the packages for the tests: build_packages.sh FOLDER. FOLDER/old contains the packages of this
# version, FOLDER/again those of the same commit, built in another folder with other settings, FOLDER/new
# those of a later version, whose program differs and has a translation.
set -euo pipefail

folder=$1
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
sources=$folder/sources
again="$folder/the same sources"

# As distributions do. What a debugger needs is stripped from the packages, and must leave no trace.
export CXXFLAGS=-g

in_sources()
{
    git -C "$sources" -c user.name=Korvex -c user.email=packages@korvex.example "$@"
}

copy_sources()
{
    rm -rf "$sources" "$again"
    mkdir -p "$sources"
    (cd "$root" && cp -r about app cmake deploy forms mainwindow resources scripts serialmonitor \
        sketch CMakeLists.txt LICENSE "$sources")
    in_sources init -q
    in_sources add .
    GIT_COMMITTER_DATE='2026-11-05T08:09:10Z' in_sources commit -q -m "The sources"
    git clone -q "$sources" "$again"
}

# One text, and one of Qt's that its own German translation would have.
add_translation()
{
    mkdir "$sources/translations"
    cat >"$sources/translations/de_DE.ts" <<'TEXT'
<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE">
<context>
    <name>MainWindow</name>
    <message>
        <source>Update Vantrel</source>
        <translation>Vantrel erneuern</translation>
    </message>
</context>
</TS>
TEXT
}

# package KIND SOURCES TYPE... [-- OPTION...]
package()
{
    local place=$folder/$1 tree=$2
    shift 2
    rm -rf "$place"
    mkdir -p "$place"
    "$tree/scripts/package" "$@" >"$place.txt"
    xargs -d '\n' mv -t "$place" <"$place.txt"
}

copy_sources
package old "$sources" deb tgz
(
    umask 077
    TZ=Asia/Kolkata LC_ALL=C package again "$again" --build "$again/elsewhere" deb tgz
)
add_translation
package new "$sources" deb tgz -- -DVTUPDATER_PACKAGE_VERSION=1.0~beta7 \
    -DVTUPDATER_REPOSITORY_URL=http://new.korvex.example/vt_updater/
