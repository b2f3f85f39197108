#!/usr/bin/env bash
# Builds packages on a clean Debian, where only scripts/package and install-packages install anything:
# build_packages_on.sh RELEASE QT SOURCES FOLDER SYSTEMS. SOURCES is the copy of the sources that the
# machine's own packages were built from, FOLDER/old and FOLDER/new are as there. FOLDER keeps the
# downloaded packages, SYSTEMS the clean system.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"
# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/cleansystem.bash"

release=$1
qt=$2
sources=$(realpath "$3")
folder=$(realpath -m "$4")
systems=$(realpath -m "$5")
mkdir -p "$folder"
enter_own_namespace "${BASH_SOURCE[0]}" "$@"

scratch=$(mktemp -d /tmp/build_packages_on.XXXXXX)
clean=$scratch/clean
tree=$clean/vantrel-updater

trap 'remove_all_but "$folder" $? "$scratch"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

copy_sources()
{
    mkdir "$tree"
    tar -c -C "$sources" --exclude=./build-package --exclude=./translations . \
        | tar -x -C "$tree" --no-same-owner
}

# in_clean_system LOG COMMAND...: in the sources' folder.
in_clean_system()
{
    local log=$scratch/$1.log
    shift
    # shellcheck disable=SC2016 # the inner shell expands it
    chroot "$clean" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb \
        sh -c 'cd /vantrel-updater && exec "$@"' sh "$@" 2>"$log" </dev/null
}

# package KIND TYPE... [-- OPTION...]
package()
{
    local place=$folder/$1 kind=$1 file
    shift
    rm -rf "$place"
    mkdir -p "$place"
    in_clean_system "$kind" scripts/package --qt "$qt" "$@" >"$scratch/files" || return 1
    while read -r file; do
        mv "$clean$file" "$place"
    done <"$scratch/files"
}

depends_on_qt()
{
    dpkg-deb -f "$folder/old"/*.deb Depends | tr ',' '\n' \
        | grep -E "^ *libqt${qt}serialport$qt(t64)?\\b" >/dev/null
}

make_clean_system "$release" "$scratch" "$systems"
copy_sources
keep_fetched_packages "$clean" "$folder"
task=build
[ "$qt" = 5 ] || task=qt$qt
expect "what building needs is installed" in_clean_system install scripts/install-packages "$task"
expect "the portable archive is built with that alone" package portable tgz
expect "the Debian package installs what it needs besides" package old deb
expect "it depends on the Qt that it was built with" depends_on_qt
cp -r "$sources/translations" "$tree"
expect "a later version with a translation is built" package new deb -- \
    -DVTUPDATER_PACKAGE_VERSION=1.0~beta7 \
    -DVTUPDATER_REPOSITORY_URL=http://new.korvex.example/vt_updater/
