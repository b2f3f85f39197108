#!/usr/bin/env bash
# The demonstration on a clean Debian, where it installs and builds everything that it needs:
# tst_cleansystem.sh RELEASE FOLDER [SYSTEMS]. FOLDER keeps the downloaded packages and the
# screenshots, SYSTEMS (default: FOLDER) the clean system.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"
# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/cleansystem.bash"

release=$1
folder=$(realpath -m "$2")
systems=$(realpath -m "${3:-$2}")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
mkdir -p "$folder"
enter_own_namespace "${BASH_SOURCE[0]}" "$@"

scratch=$(mktemp -d /tmp/tst_cleansystem.XXXXXX)
clean=$scratch/clean
screenshots=$folder/screenshots

trap 'remove_all_but "$folder" $? "$scratch"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# The sources as they stand, without what was built from them.
copy_sources()
{
    mkdir "$clean/vantrel-updater"
    git -c safe.directory="$root" -C "$root" ls-files -z \
        | tar -c -C "$root" --null --files-from=- | tar -x -C "$clean/vantrel-updater" --no-same-owner
}

run_demonstration()
{
    chroot "$clean" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb \
        /vantrel-updater/scripts/demo --headless >"$scratch/demo.log" 2>&1 </dev/null
}

keep_screenshots()
{
    rm -rf "$screenshots"
    cp -r "$clean/vantrel-updater/build-demo/screenshots" "$folder"
}

# names_and_sizes FOLDER: of each step's picture. Those of other looks have "--" in their names.
names_and_sizes()
{
    find "$1" -name '*.png' -not -name '*--*' -print0 | sort -z \
        | xargs -0 identify -format '%f %wx%h\n'
}

make_clean_system "$release" "$scratch" "$systems"
copy_sources
keep_fetched_packages "$clean" "$folder"
expect "the demonstration installs, builds and drives all by itself" run_demonstration
grep -E '^ +[0-9.]+ s |flash equals' "$scratch/demo.log"
expect "it leaves its screenshots" keep_screenshots
expect_text "they are the steps that the documents show, in their size" \
    "$(names_and_sizes "$root/docs/images")" names_and_sizes "$screenshots"
