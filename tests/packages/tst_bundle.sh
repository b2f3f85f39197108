#!/usr/bin/env bash
# The parts of the macOS bundle that can be tested on another system: tst_bundle.sh BUILD. Its property
# list, its icon, and the order of the steps that finish it, with substitutes for the tools that record
# their calls.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
plist=$1/package/Info.plist
scratch=$(mktemp -d "${TMPDIR:-/tmp}/Vantrel Updater test.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
bundle=$scratch/VTUpdater.app
calls=$scratch/calls
tools=$scratch/tools

property()
{
    /usr/bin/python3 -c 'import plistlib, sys
print(plistlib.load(open(sys.argv[1], "rb"))[sys.argv[2]])' "$plist" "$1"
}

icon_sizes()
{
    icns2png -l "$root/resources/icons/VTUpdater.icns" \
        | sed -n 's/.* \([0-9]*x[0-9]*\) 32-bit icon.*/\1/p' | xargs
}

# pretend NAME: a tool that records its call and then runs the commands on standard input.
pretend()
{
    {
        printf '#!/bin/sh\necho "%s $*" >>"%s"\n' "$1" "$calls" && cat
    } >"$tools/$1"
    chmod +x "$tools/$1"
}

pretend_tools()
{
    rm -rf "$bundle" "$calls" "$tools"
    mkdir -p "$bundle/Contents/MacOS/avrdude" "$tools"
    touch "$bundle/Contents/MacOS/avrdude/avrdude" "$bundle/Contents/MacOS/avrdude/avrdude.conf" \
        "$bundle/Contents/MacOS/de_DE.qm"
    pretend codesign <<<""
    pretend macdeployqt <<'TEXT'
mkdir -p "$1/Contents/Frameworks/QtCore.framework/Versions/5" "$1/Contents/PlugIns/platforms"
touch "$1/Contents/Frameworks/libextra.dylib" "$1/Contents/PlugIns/platforms/libqcocoa.dylib"
TEXT
    pretend otool <<'TEXT'
printf '%s:\n\t/usr/lib/libSystem.B.dylib (compatibility version 1.0.0)\n' "$2"
TEXT
}

finish()
{
    PATH=$tools:$PATH cmake "-Dbundle=$bundle" "-Dmacdeployqt=$tools/macdeployqt" "-Didentity=$1" \
        -P "$root/cmake/FinishBundle.cmake" >"$scratch/log" 2>&1
}

# finish_refuses TEXT: finishing fails and says so.
finish_refuses()
{
    ! finish - && tr -s '\n ' ' ' <"$scratch/log" | grep -qF "$1"
}
calls_in_order()
{
    sed "s,$bundle/Contents/,,g; s,$bundle,BUNDLE,g" "$calls"
}
calls_of()
{
    grep -c "^$1 " "$calls" || true
}

expect_text "the property list names the program" VTUpdater property CFBundleExecutable
expect_text "its identifier" example.korvex.vantrel-updater property CFBundleIdentifier
expect_text "its version" 1.0 property CFBundleShortVersionString
expect_text "its build, a beta" 1.0b6 property CFBundleVersion
expect_text "sharp screens are used" True property NSHighResolutionCapable
expect_text "whose it is" "Copyright (c) 2026 Korvex" property NSHumanReadableCopyright
expect "its icon is one that the sources hold" \
    test -s "$root/resources/icons/$(property CFBundleIconFile)"
expect_text "the icon has all sizes" \
    "16x16 32x32 48x48 128x128 256x256 512x512 1024x1024" icon_sizes

pretend_tools
expect "a bundle is finished" finish -
expect_text "Qt is put in before anything is signed, and the bundle is signed last" \
    "otool -L MacOS/avrdude/avrdude
macdeployqt BUNDLE -always-overwrite
codesign --force --sign - Frameworks/libextra.dylib
codesign --force --sign - PlugIns/platforms/libqcocoa.dylib
codesign --force --sign - Frameworks/QtCore.framework
codesign --force --sign - MacOS/avrdude/avrdude
codesign --force --sign - MacOS/avrdude/avrdude.conf
codesign --force --sign - MacOS/de_DE.qm
codesign --force --sign - BUNDLE
codesign --verify --deep --strict BUNDLE" calls_in_order

pretend_tools
expect "a bundle is signed for others" finish "Developer ID"
expect_text "every signature is the developer's, with a time stamp" 7 \
    calls_of "codesign --force --options runtime --timestamp --sign Developer ID"

pretend_tools
pretend otool <<'TEXT'
printf '%s:\n\t/usr/lib/libSystem.B.dylib (x)\n\t/opt/lib/libusb.dylib (x)\n' "$2"
TEXT
expect "an uploader that needs other libraries is refused" \
    finish_refuses "needs /opt/lib/libusb.dylib, which the bundle does not carry"
expect_text "then nothing is signed" 0 calls_of codesign

pretend_tools
pretend codesign <<<"exit 1"
expect "a signature that fails is reported" finish_refuses "libextra.dylib fails: 1"
