#!/usr/bin/env bash
# Builds what the tests of the packages look at: build_packages.sh FOLDER. FOLDER/old holds the
# packages of this version, FOLDER/new a Debian package of a later one, whose program differs.
set -euo pipefail

folder=$1
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# package KIND VERSION REPOSITORY TYPE...
package()
{
    local place=$folder/$1 version=$2 repository=$3
    shift 3
    rm -rf "$place"
    mkdir -p "$place"
    "$root/scripts/package" --build "$folder/build" "$@" -- "-DVTUPDATER_PACKAGE_VERSION=$version" \
        "-DVTUPDATER_REPOSITORY_URL=$repository" >"$place.txt"
    xargs -d '\n' mv -t "$place" <"$place.txt"
}

package new 1.0~beta7 http://new.korvex.example/vt_updater/ deb
package old "" http://updates.korvex.example/vt_updater/ deb tgz
