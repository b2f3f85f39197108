#!/usr/bin/env bash
# What Debian's own checkers say about the package: tst_packagefiles.sh PACKAGES.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"

package=$(echo "$1"/old/*.deb)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
share=$scratch/usr/share
rules=$scratch/usr/lib/udev/rules.d

has_dependency()
{
    dpkg-deb -f "$package" Depends | tr ',' '\n' | grep -q "^ *$1\b"
}
# Programs that can show a box, one for each desktop.
recommends_boxes()
{
    dpkg-deb -f "$package" Recommends | grep -q 'x11-utils.*zenity.*kdialog'
}
page()
{
    man --warnings --local-file "$share/man/man1/vantrel-updater.1.gz"
}
page_warnings()
{
    {
        LC_ALL=C.UTF-8 MANWIDTH=80 page >/dev/null
    } 2>&1
}

# The size in an icon's header: width and height follow the chunk's name.
png_size()
{
    od -A n -t u4 --endian=big -j 16 -N 8 "$1" | xargs
}

# The file that udev reads first: the rule, or one that acts on its marks.
first_rules()
{
    printf '%s\n' 70-uaccess.rules 73-seat-late.rules 77-mm-usb-device-blacklist.rules \
        "$(basename "$rules"/*.rules)" | LC_ALL=C sort | head -n 1
}

dpkg-deb -x "$package" "$scratch"

expect_text "the version is the program's, before the one that is no beta" "1.0~beta6" \
    dpkg-deb -f "$package" Version
expect "it comes before 1.0" dpkg --compare-versions "$(dpkg-deb -f "$package" Version)" lt 1.0
expect "the uploader is a dependency" has_dependency avrdude
expect "Qt's serial ports are a dependency" has_dependency libqt5serialport5
expect "what shows a box is recommended" recommends_boxes
expect "the desktop entry is valid" desktop-file-validate \
    "$share/applications/vantrel-updater.desktop"
expect "the metainfo is valid" appstreamcli validate --no-net --no-color \
    "$share/metainfo/example.korvex.vantrel_updater.metainfo.xml"
expect "the metainfo has a screenshot" grep -q '<image>https://.*\.png</image>' \
    "$share/metainfo/example.korvex.vantrel_updater.metainfo.xml"
expect_text "the manual page gives no warning" "" page_warnings

for size in 16 22 24 32 48 64 128 256; do
    expect_text "the icon of $size pixels is a square of that size" "$size $size" \
        png_size "$share/icons/hicolor/${size}x$size/apps/vantrel-updater.png"
done
expect "the scalable icon is there" test -s \
    "$share/icons/hicolor/scalable/apps/vantrel-updater.svg"

expect_text "udev reads the rule before those that act on it" "60-vantrel-updater.rules" \
    first_rules

# Including its information and its uncertain complaints.
expect_text "lintian finds nothing" "" lintian --no-user-dirs --allow-root \
    --display-info --display-experimental --pedantic --fail-on none "$package"
