#!/usr/bin/env bash
# The Debian package on a clean system, from its installation to its removal:
# tst_package.sh PACKAGES BUILD [RELEASE], folders with the packages of two versions and the simulated
# device. RELEASE is the machine's own unless given.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"
# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/cleansystem.bash"

packages=$(realpath "$1")
build=$(realpath "$2")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
release=${3:-}
user=54321

enter_own_namespace "${BASH_SOURCE[0]}" "$@"

scratch=$(mktemp -d /tmp/tst_package.XXXXXX)
clean=$scratch/clean   # the clean system
shared=$scratch/shared # seen under the same path in it
home=$clean/home/tester
folder=$home/.local/share/vantrel-updater
old=$packages/old
new=$packages/new
installed=$clean/usr/libexec/vantrel-updater/VTUpdater
sketch=Metronome__2.ino.with_bootloader.standard.hex
as_user=(setpriv --reuid "$user" --regid "$user" --clear-groups --no-new-privs
    env -i PATH=/usr/bin:/bin LC_ALL=C.UTF-8 "TMPDIR=$shared/tmp" HOME=/home/tester)
# The user's own namespace is only for entering the clean system without being root.
enter=(unshare --user --map-current-user "--root=$clean" --wd=/home/tester --)

trap 'remove_clean_system $? "$scratch"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

refuse()
{
    ! "$@"
}

add_user()
{
    mkdir -p "$shared" "$clean$shared"
    mount --bind "$shared" "$clean$shared"
    install -d -m 1777 "$shared/tmp"
    chmod 755 "$scratch"
    # Not every release has a command for this installed.
    echo "tester:x:$user:$user::/home/tester:/bin/sh" >>"$clean/etc/passwd"
    echo "tester:x:$user:" >>"$clean/etc/group"
    install -d -o "$user" -g "$user" "$home"
    # The session's bus rejects users that this machine does not know.
    mount --bind "$clean/etc/passwd" /etc/passwd
}

apt()
{
    DEBIAN_FRONTEND=noninteractive chroot "$clean" apt-get -y --no-install-recommends "$@" \
        >"$scratch/apt.log" 2>&1
}

install_package()
{
    cp "$1"/*.deb "$shared/package.deb"
    apt install "$shared/package.deb"
}

# The environment in which a session starts the command.
write_entrance()
{
    cp "$(ldconfig -p | awk '/libumockdev-preload.so.0/ { print $NF; exit }')" "$shared"
    cat >"$shared/vantrel-updater" <<TEXT
#!/bin/sh
export LD_PRELOAD=$shared/libumockdev-preload.so.0
exec ${enter[*]} vantrel-updater
TEXT
    chmod 755 "$shared/vantrel-updater"
}

update_device()
{
    mkdir -p "$shared/build/tools"
    cp -r "$root/scripts" "$shared/"
    cp -r "$build/tools/simulated-device" "$shared/build/tools/"
    cp -r "$build/firmware" "$build/version.txt" "$shared/build/"
    install -d -o "$user" "$shared/screenshots"
    chmod -R a+rX "$shared/scripts" "$shared/build"
    "${as_user[@]}" "$shared/scripts/demo" --headless --build "$shared/build" \
        --program "$shared/vantrel-updater" --screenshots "$shared/screenshots" \
        >"$scratch/demo.log" 2>&1 </dev/null
}

# udev itself reads the rules for the simulated device; it must accept that its sysfs is not real.
write_question_to_udev()
{
    cat >"$shared/ask-udev" <<TEXT
#!/bin/sh
export LD_PRELOAD=$shared/libumockdev-preload.so.0 SYSTEMD_DEVICE_VERIFY_SYSFS=0
exec chroot "$clean" udevadm test /sys/class/tty/ttyUSB0
TEXT
    chmod 755 "$shared/ask-udev"
}

ask_udev()
{
    TMPDIR=$shared/tmp "$build/tools/simulated-device/simulated-device" \
        --image "$build/firmware/$sketch" -- "$shared/ask-udev" >"$scratch/udev.log" 2>&1
}

# start_program LOG [NAME=VALUE...]: its argument makes it run without a display.
start_program()
{
    local log=$scratch/$1.log
    shift
    "${as_user[@]}" http_proxy=http://127.0.0.1:9 "$@" "${enter[@]}" \
        vantrel-updater -platform offscreen >"$log" 2>&1 </dev/null &
    program=$!
}

stop_program()
{
    kill "$1"
    wait "$1" || true
}

runs()
{
    [ "/proc/$program/exe" -ef "$1" ]
}

has_loaded()
{
    grep -qF "$1" "/proc/$program/maps"
}

# refuses_to_start TEXT NAME=VALUE...: the command ends with an error that contains the text.
refuses_to_start()
{
    local text=$1
    shift
    ! "${as_user[@]}" "$@" "${enter[@]}" vantrel-updater -platform offscreen \
        >"$scratch/refused.log" 2>&1 </dev/null && grep -qF "$text" "$scratch/refused.log"
}

no_file_outside_home()
{
    [ -z "$(find "$clean" -xdev -user "$user" -not -path "$home*" -not -path "$clean$scratch*")" ]
}

copies()
{
    find "$folder" -name '.VTUpdater.*' | wc -l
}
leads_to()
{
    [ "$(readlink "$1")" = "$2" ]
}
keeps_sketches()
{
    cmp "$folder/compiled_sketches/$sketch" "$build/firmware/$sketch"
}

no_file_of_the_package()
{
    dpkg-deb --fsys-tarfile "$new"/*.deb | tar -t | grep -v '/$' | while read -r file; do
        [ ! -e "$clean/$file" ] || {
            echo "$file stays" && return 1
        }
    done
}

make_clean_system "${release:-$(release_of_machine)}" "$scratch" "$build/tests/systems"
add_user
expect "apt installs the package and what it depends on" install_package "$old"
write_entrance
write_question_to_udev

expect "apt installs udev, which the package can do without" apt install udev
expect "udev reads the rules for the device" ask_udev
expect "it gives the device to the user of the seat" grep -q '^ *TAGS=.*:uaccess:' "$scratch/udev.log"
expect "it keeps ModemManager from the device" \
    grep -qx ' *ID_MM_DEVICE_IGNORE=1' "$scratch/udev.log"

expect "an ordinary user synchronises and updates the device" update_device
expect "the sketches lie in the user's folder" keeps_sketches
expect "the program lies there as well" cmp "$installed" "$folder/VTUpdater"
expect "the uploader is the system's" leads_to "$folder/avrdude/avrdude" /usr/bin/avrdude
expect "its configuration, too" leads_to "$folder/avrdude/avrdude.conf" /etc/avrdude.conf
expect "the user owns nothing but a home" no_file_outside_home

expect "without a home there is no place for the sketches" \
    refuses_to_start "HOME is not set" HOME=
expect "a home that cannot be written is named" \
    refuses_to_start "in /nowhere/.local/share/vantrel-updater, and cannot write" HOME=/nowhere
start_program blanks "XDG_DATA_HOME=/home/tester/data of mine"
expect_soon "the folder of users' data may hold blanks" \
    runs "$home/data of mine/vantrel-updater/VTUpdater"
stop_program "$program"
start_program relative XDG_DATA_HOME=data
expect_soon "a relative folder of users' data does not count" runs "$folder/VTUpdater"
running=$program
cp "$installed" "$scratch/old"

expect "apt upgrades the package while the program runs" install_package "$new"
expect "the upgrade brings another program" refuse cmp -s "$scratch/old" "$installed"
rm "$folder/avrdude/avrdude.conf"
echo "# the user's own" >"$folder/avrdude/avrdude.conf"
start_program upgraded
expect_soon "the upgraded program starts" runs "$folder/VTUpdater"
expect "the user's copy is the new program" cmp "$installed" "$folder/VTUpdater"
expect "the running program keeps its file" cmp "$scratch/old" "/proc/$running/exe"
expect_text "no other copy is left" 2 copies
upgraded=$program
start_program german LC_ALL=de_DE.UTF-8
expect_soon "the upgrade's translation is found" \
    has_loaded "$clean/usr/libexec/vantrel-updater/de_DE.qm"
stop_program "$program"
program=$upgraded
expect "a configuration of the user's own stays" \
    grep -q "the user's own" "$folder/avrdude/avrdude.conf"
stop_program "$program"
stop_program "$running"
expect "the sketches outlive the upgrade" keeps_sketches

expect "apt removes the package" apt purge vantrel-updater
expect "no file of the package stays" no_file_of_the_package
expect "the sketches outlive the removal" keeps_sketches
