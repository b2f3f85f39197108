#!/usr/bin/env bash
# The command of the Debian package with the real program, in homes of all kinds:
# tst_launcher.sh PROGRAM STOP_AT_START, the program and the library that stops it when it starts.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"

built=$(realpath "$1")
stop_at_start=$(realpath "$2")
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
user=54321

# Mounts and processes end with this namespace.
if [ "${TST_LAUNCHER_NAMESPACE:-}" != own ]; then
    as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    exec "${as_root[@]}" env TST_LAUNCHER_NAMESPACE=own unshare --mount --pid --fork --kill-child \
        "${BASH_SOURCE[0]}" "$@"
fi
mount --make-rprivate /
mount -t proc proc /proc

scratch=$(mktemp -d "${TMPDIR:-/tmp}/tst_launcher.XXXXXX")
clean_up()
{
    umount -l "$scratch"/homes/* 2>/dev/null || true
    rm -rf --one-file-system "$scratch"
}
trap 'clean_up' EXIT
chmod 755 "$scratch"
# A blank ends a name in LD_PRELOAD, and the checkout's path may hold one.
cp "$stop_at_start" "$scratch/stop_at_start.so"
stop_at_start=$scratch/stop_at_start.so

installed=/usr/libexec/vantrel-updater/VTUpdater
command=/usr/libexec/vantrel-updater/command
mount -t tmpfs tmpfs /usr/libexec
install -D "$built" "$installed"
install "$root/deploy/debian/vantrel-updater" "$command"

unset XDG_DATA_HOME DISPLAY WAYLAND_DISPLAY
export QT_FORCE_STDERR_LOGGING=1 QT_MESSAGE_PATTERN='%{message}' http_proxy=http://127.0.0.1:9
export LC_ALL=C.UTF-8 XDG_RUNTIME_DIR="$scratch/runtime"
elsewhere=$scratch/elsewhere
mkdir -m 700 "$XDG_RUNTIME_DIR"
mkdir -p "$elsewhere/compiled_sketches" "$scratch/homes"
echo "the only copy" >"$elsewhere/compiled_sketches/A__1.ino.with_bootloader.standard.hex"
cd "$elsewhere"

programs=()

# enter_home NAME [MOUNT_OPTION]: a new one, on a separate disk if an option is given.
enter_home()
{
    export HOME=$scratch/homes/$1
    folder=$HOME/.local/share/vantrel-updater
    mkdir -p "$HOME"
    [ $# -eq 1 ] || mount -t tmpfs -o "$2" tmpfs "$HOME"
}

# start LOG [NAME=VALUE...]
start()
{
    local log=$scratch/$1.log
    shift
    env "$@" "$command" -platform offscreen >"$log" 2>&1 </dev/null &
    program=$!
    programs+=("$program")
}

end_all()
{
    kill -KILL "${programs[@]}" 2>/dev/null || true
    wait "${programs[@]}" 2>/dev/null || true
    programs=()
}

says_folder()
{
    grep -sqxF "\"$folder\"" "$scratch/$1.log"
}

# comes_up LOG PROCESS: in its folder.
comes_up()
{
    until says_folder "$1"; do
        if ! kill -0 "$2" || grep -sqxF '""' "$scratch/$1.log"; then
            cat "$scratch/$1.log"
            return 1
        fi
        sleep 0.1
    done
}

# start_together COUNT: all come up.
start_together()
{
    local number
    for ((number = 1; number <= $1; number++)); do
        start "together$number"
    done
    for ((number = 1; number <= $1; number++)); do
        comes_up "together$number" "${programs[number - 1]}" || return 1
    done
    end_all
}

start_pairs()
{
    local pair
    for ((pair = 1; pair <= $1; pair++)); do
        enter_home "pair $pair"
        start_together 2 || return 1
    done
}

upgrade()
{
    cp "$installed" "$installed.new"
    echo "another version" >>"$installed.new"
    mv "$installed.new" "$installed"
}

is_stopped()
{
    grep -q '^State:.T' "/proc/$1/status"
}
waits_for_its_turn()
{
    pgrep -P "$program" -x flock >/dev/null
}
runs_in_folder()
{
    [ "/proc/$program/exe" -ef "$folder/VTUpdater" ]
}
keeps_sketches_here()
{
    runs_in_folder && [ -d "$folder/compiled_sketches" ]
}
is_newest()
{
    cmp -s "$installed" "$folder/VTUpdater"
}
copies()
{
    find "$folder" -name '.VTUpdater.*' | wc -l
}
nothing_locked()
{
    flock -n "$folder/.lock" true
}
holds_no_lock()
{
    ! find "/proc/$program/fd" -lname "$folder/.lock" | grep -q .
}
nothing_changed_elsewhere()
{
    [ "$(find "$elsewhere" | wc -l)" -eq 3 ]
}

# refuses TEXT COMMAND...: it ends with status 1 and a text for its user.
refuses()
{
    local text=$1 status=0
    shift
    "$@" -platform offscreen >"$scratch/refused.log" 2>&1 </dev/null || status=$?
    [ "$status" -eq 1 ] && grep -qF "$text" "$scratch/refused.log" && return
    cat "$scratch/refused.log" && return 1
}

enter_home together
expect "20 starts at once in a fresh home all run in their folder" start_together 20
expect_text "there is one copy of the program" 1 copies
upgrade
expect "after an upgrade, too" start_together 20
expect "pairs of starts in fresh homes, too" start_pairs 15
expect "the current directory is left alone" nothing_changed_elsewhere

enter_home upgraded
start early "LD_PRELOAD=$stop_at_start"
early=$program
expect_soon "a program is stopped before its first line" is_stopped "$early"
for number in 1 2 3; do
    upgrade
    start "upgraded$number"
    expect_soon "upgrade $number is taken" says_folder "upgraded$number"
done
expect "the folder has the newest program" is_newest
kill -CONT "$early"
expect_soon "the stopped program still finds its folder" says_folder early
end_all
upgrade
start afterwards
expect_soon "a start renews the program when no other runs" says_folder afterwards
expect_text "only the copy before it is left" 2 copies
end_all

enter_home former
mkdir -p "$folder"
cp "$installed" "$folder/VTUpdater"
LD_PRELOAD=$stop_at_start "$folder/VTUpdater" -platform offscreen >"$scratch/former.log" 2>&1 &
former=$!
programs+=("$former")
expect_soon "a copy that an earlier version of the command made is started" is_stopped "$former"
upgrade
start renewed
expect_soon "that copy is renewed" says_folder renewed
kill -CONT "$former"
expect_soon "and finds its folder" says_folder former

enter_home translated
start untranslated
expect_soon "a program without translations runs" says_folder untranslated
install -m 644 /dev/null "${installed%/*}/de_DE.qm"
install -m 644 /dev/null "${installed%/*}/nl.qm"
mkdir -p "$folder"
echo "the user's own" >"$folder/nl.qm"
start translated
expect_soon "one with translations runs" says_folder translated
expect_text "a translation lies beside the program" "${installed%/*}/de_DE.qm" \
    readlink "$folder/de_DE.qm"
expect_text "one of the user's own stays" "the user's own" cat "$folder/nl.qm"
rm "${installed%/*}"/*.qm
start untranslated_again
expect_soon "a translation that is gone does no harm" says_folder untranslated_again
end_all

enter_home locked
start first
expect_soon "a program runs" says_folder first
expect "nothing is locked then" nothing_locked
expect "it has not inherited the lock" holds_no_lock
flock --no-fork "$folder/.lock" sleep infinity &
holder=$!
expect_soon "another start hangs" eval '! nothing_locked'
start second
expect_soon "a start with nothing to renew does not wait" says_folder second
upgrade
start third
expect_soon "one that has to renew waits" waits_for_its_turn
expect "but not without end" refuses "Another start of the program has been at work" "$command"
kill -KILL "$holder"
start fourth
expect_soon "the lock of a killed start is free" says_folder fourth
expect_soon "who waited too long has said so" grep -q "^Wait until" "$scratch/third.log"
end_all

for name in 'back\slash\0101\new\c' ' blanks  inside ' $'line feeds\nat the end\n\n' "-n -e" \
    $'quotes "\' `true` $HOME' '*?[a]' '%s %d' 'Jörg'; do
    enter_home "$name"
    start odd
    expect_soon "the program runs in the home \"${name//$'\n'/\\n}\"" keeps_sketches_here
    start odd "XDG_DATA_HOME=$HOME/data$name"
    folder=$HOME/data$name/vantrel-updater
    expect_soon "and in a folder for data in it" keeps_sketches_here
    end_all
done
expect "the current directory is still left alone" nothing_changed_elsewhere

expect "without a home there is no place" refuses "HOME is not set" env HOME= "$command"
expect "nor in a home that is no absolute path" refuses "not an absolute path" env HOME=a "$command"
expect "nothing is made in the current directory" nothing_changed_elsewhere
enter_home readonly ro
expect "a disk that can only be read is named" refuses "Read-only file system." "$command"
expect "with a cure" grep -q "^Its disk can only be read" "$scratch/refused.log"
enter_home full size=256k
expect "so is a full disk" refuses "No space left on device." "$command"
expect "with a cure, too" grep -q "^Delete files" "$scratch/refused.log"
expect_text "and no half copy is left on it" 0 copies
enter_home noexec noexec
expect "so is a disk without programs" refuses "(noexec)" "$command"
enter_home strangers
expect "so is somebody else's home" refuses "Permission denied." \
    setpriv --reuid "$user" --regid "$user" --clear-groups "$command"
enter_home blocked
mkdir -p "$folder/.lock"
expect "what is not foreseen is told as well" refuses "The program cannot be started" "$command"
mv "$installed" "$installed.away"
expect "so is a missing program" refuses "Install it again" "$command"
mv "$installed.away" "$installed"

enter_home prepared "size=64m"
start prepared
expect_soon "a home is prepared" says_folder prepared
end_all
mount -o remount,ro "$HOME"
start readonly
expect_soon "it may be read-only from then on" says_folder readonly
end_all
mount -o remount,rw,noexec "$HOME"
expect "but not without programs" refuses "(noexec)" "$command"

# Boxes, on a display.
mkfifo "$scratch/display"
"$root/scripts/virtual-display" >"$scratch/display" &
read -r DISPLAY <"$scratch/display"
export DISPLAY

shows_box()
{
    xdotool search --onlyvisible --name '^Vantrel Updater' >/dev/null
}
has_ended()
{
    ! kill -0 "$program" 2>/dev/null
}
closes()
{
    xdotool key alt+F4
    has_ended
}

refuses_in_terminal()
{
    ! script -qec "$command" "$scratch/typescript" >/dev/null </dev/null \
        && grep -q "$1" "$scratch/typescript"
}

# pretend NAME: a tool of the desktop that records its arguments.
pretend()
{
    mkdir -p "$scratch/tools"
    rm -f "$scratch/tools"/* "$scratch/told"
    printf '#!/bin/sh\nprintf "%%s\\n" "$@" >"%s"\n' "$scratch/told" >"$scratch/tools/$1"
    chmod +x "$scratch/tools/$1"
}

enter_home 'unseen a\tb <b>' ro
start box
expect_soon "a start from the menu shows a box" shows_box
expect "and says the same on its error output" grep -q "Read-only file system" "$scratch/box.log"
expect_soon "it ends with the box" closes
expect "a start from a terminal shows none" refuses_in_terminal "Read-only file system"

pretend kdialog
expect "KDE's boxes are used" refuses "Read-only" env "PATH=$scratch/tools:$PATH" "$command"
expect "and take nothing for markup" grep -qF 'a\\tb &lt;b>/.local' "$scratch/told"
pretend zenity
expect "so are GNOME's" refuses "Read-only" env "PATH=$scratch/tools:$PATH" "$command"
expect "as plain text" grep -qF 'a\tb <b>/.local' "$scratch/told"
