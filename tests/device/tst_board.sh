#!/usr/bin/env bash
# The demonstration on a board of one's own. It is the simulated one as a user would see it: a serial
# port and nothing else. tst_board.sh BUILD PORT, a name that no other test gives to a port.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# shellcheck source=/dev/null
. "$here/../support/expectations.bash"

build=$(realpath "$1")
port=$2
root=$(cd "$here/../.." && pwd)
device=$build/tools/simulated-device/simulated-device
serial=A5XK3RJT
below_boot_section=30720 # bytes, of any bootloader
version_1="Version 1 of the demonstration's sketch is on the board."

if [ -z "${scratch:-}" ]; then
    scratch=$(mktemp -d "${TMPDIR:-/tmp}/tst_board.XXXXXX")
    trap 'show_last_log $?; rm -rf "$scratch"' EXIT
    export scratch
fi
demo=(env -u SIMULATED_DEVICE_CONTROL "$root/scripts/demo" --build "$scratch/build"
    --program "$scratch/program/VTUpdater" --screenshots "$scratch/screenshots")

# show_last_log STATUS: of what was run last, if the test fails.
show_last_log()
{
    local log
    [ "$1" -ne 0 ] || return 0
    for log in whole unplugged terminated interrupted refused; do
        [ ! -e "$scratch/$log" ] || break
    done
    tail -n 40 "$scratch/$log" || true
}

control()
{
    "$device-control" "$@"
}

# status_of LOG COMMAND...: prints the exit status; what the command says goes to LOG.
status_of()
{
    local log=$scratch/$1 status=0
    shift
    "$@" >"$log" 2>&1 </dev/null || status=$?
    echo "$status"
}

says()
{
    grep -qsF -- "$2" "$scratch/$1"
}

# comes_before LOG FIRST SECOND
comes_before()
{
    sed "/$3/q" "$scratch/$1" | grep -qF "$2"
}

flash_is_own()
{
    control dump "$scratch/flash" >/dev/null && cmp "$scratch/own" "$scratch/flash"
}

copy_is_own()
{
    cmp "$scratch/own" "$scratch/copies/$1/$port-$serial-"*/flash.bin \
        && cmp <(head -c "$below_boot_section" "$scratch/own") \
            "$scratch/copies/$1/$port-$serial-"*/below-boot-section.bin
}

names_its_copy()
{
    tail -n "$2" "$scratch/$1" | grep -q "The copy of the board's flash is $scratch/copies/$1/.*/flash.bin"
}

#### Without a board

refuses_options()
{
    local what=$1
    shift
    expect_text "$what is wrong usage" 2 status_of usage "${demo[@]}" "$@"
}

unusable_options()
{
    local copies=(--copies "$scratch/never")
    refuses_options "a missing port" --port
    refuses_options "an empty name of a port" --port "" --yes
    refuses_options "a path as a port" --port "/dev/$port" --yes "${copies[@]}"
    refuses_options "an answer without a board" --yes
    refuses_options "a folder of copies without a board" "${copies[@]}"
    refuses_options "no folder of copies" --port "$port" --yes --copies
    refuses_options "a file as folder of copies" --port "$port" --yes --copies "$scratch/own.hex"
    refuses_options "a board by keyboard" --port "$port" --yes --keyboard "${copies[@]}"
    refuses_options "a display of no dots per inch" --port "$port" --yes --dpi 0 "${copies[@]}"
    refuses_options "nobody to ask" --port "$port" "${copies[@]}"
    expect "it tells how to answer beforehand" says usage "--yes says yes"
}

unusable_build()
{
    expect_text "a build without the simulated device is refused" 1 status_of unusable "${demo[@]}"
    expect "it says what is missing" says unusable \
        "not a finished build: $scratch/build/tools/simulated-device/simulated-device is missing"
    expect_text "what is no build is refused for a board as well" 1 \
        status_of unusable "${demo[@]}" --build "$scratch/program" --port "$port" --yes
    expect "it says what is missing there" says unusable \
        "not a finished build: $scratch/program/version.txt is missing"
}

#### With what the program would not list

other_adapter()
{
    # The hub's, which is no adapter's.
    echo HUB >"$UMOCKDEV_DIR/sys/devices/serial"
    expect_text "$port of $1 is refused" 1 \
        status_of other "${demo[@]}" --port "$port" --yes --copies "$scratch/never"
    expect "it says why" says other "$port is not a Vantrel device (FTDI FT232R USB UART, 0403:$1, no serial number)"
    expect "nobody has opened the port" grep -q "opens=0 " <(control status)
    expect "nothing was kept" [ ! -e "$scratch/never" ]
}

#### With a board

absent_port()
{
    expect_text "a port that is not there is refused" 1 \
        status_of absent "${demo[@]}" --port "${port}9" --yes --copies "$scratch/never"
    expect "it names the devices that are" says absent "there is no port ${port}9; devices here: $port"
}

# keeps_flash RUN: reading and comparing take a quarter of a minute each, and longer on a busy machine.
keeps_flash()
{
    expect_soon "the flash is read" has_read_flash "$1"
    expect_soon "its copy is named" says "$1" "The copy of the board's flash is"
}

has_read_flash()
{
    compgen -G "$scratch/copies/$1/*/*.bin" >/dev/null
}

# in_terminal LOG COMMAND...: where the log is what the screen shows.
in_terminal()
{
    local log=$scratch/$1
    shift
    SHELL=/bin/bash script --quiet --return --flush --command "${*@Q}" "$log" >/dev/null
}

# As on a busy machine, where avrdude does not always get along with a bootloader at once.
fail_avrdude_once()
{
    local avrdude=$scratch/program/avrdude/avrdude
    mv "$avrdude" "$avrdude.real"
    cat >"$avrdude" <<TEXT
#!/bin/sh
mv "$avrdude.real" "$avrdude"
echo "avrdude: error: not in sync" >&2
exit 1
TEXT
    chmod +x "$avrdude"
}

refused_question()
{
    local status=0
    fail_avrdude_once
    in_terminal refused "${demo[@]}" --port "$port" --copies "$scratch/copies/refused" <<<no \
        || status=$?
    expect "the flash is read once more if that fails" \
        says refused "This failed: avrdude: error: not in sync. Trying again"
    expect "a question that is answered with no ends it" [ "$status" -eq 1 ]
    expect "it had named the copy" comes_before refused "The copy of the board's flash is" 'Type "yes"'
    expect "it names the copy at its end" names_its_copy refused 18
    expect "it says that nothing was written" says refused "nothing was written"
    expect "the copy is the board's flash" copy_is_own refused
    expect "nothing was written" flash_is_own
}

whole_demonstration()
{
    local step
    give_driver
    expect_text "the demonstration passes" 0 \
        status_of whole "${demo[@]}" --port "$port" --yes --copies "$scratch/copies/whole"
    expect "it names the adapter" \
        says whole "Adapter    FTDI FT232R USB UART, 0403:6001, serial number $serial"
    expect "it names the driver" says whole "Driver     ftdi_sio, latency timer 16 ms"
    expect "it names the chip" says whole "Board      signature 0x1e950f"
    expect "it names the copy before it writes" \
        comes_before whole "The copy of the board's flash is" "$version_1"
    for step in "Synchronised" "Update recommended" "Upload successfull" "Latest version on device" \
        "The chip's flash equals Metronome__2" "Serial monitor" "exit status 0" \
        "all 32768 bytes read back equal the copy" "Qt [56]\." "avrdude [0-9]" \
        "Vantrel Updater $(cat "$build/version.txt")," "$(uname -r)"; do
        expect "it shows: $step" grep -q "$step" "$scratch/whole"
    done
    expect "each time has one of the simulated device beside it" each_time_has_another whole
    expect "the report is kept" grep -q "^Outcome    passed" "$scratch/copies/whole/"*/report.txt
    expect "the copy is what the board's flash was" copy_is_own whole
    expect "the board has its own flash again" flash_is_own
}

each_time_has_another()
{
    local times
    times=$(sed -n '/^Step  /,/^$/p' "$scratch/$1" | tail -n +2 | grep .)
    [ "$(wc -l <<<"$times")" -ge 12 ] && ! grep -vE '[0-9]+\.[0-9] s +[0-9]+\.[0-9] s$' <<<"$times"
}

# A terminal that goes away in the end: Ctrl-C first, then the window is closed.
interrupted()
{
    local terminal
    mkfifo "$scratch/keys"
    set -m # else Ctrl-C is ignored by all that is started in the background
    in_terminal interrupted "${demo[@]}" --port "$port" --copies "$scratch/copies/interrupted" \
        <"$scratch/keys" &
    terminal=$!
    set +m
    exec 3>"$scratch/keys"
    keeps_flash interrupted
    expect_soon "it asks" says interrupted 'Type "yes"'
    echo yes >&3
    expect_soon "version 1 is on the board" says interrupted "$version_1"
    expect "the flash is another one" not_own_flash
    printf '\003' >&3
    expect_soon "Ctrl-C ends it" says interrupted "Putting the board's own flash back"
    printf '\003' >&3
    expect_soon "another Ctrl-C is answered" says interrupted "The board first gets its own flash back."
    kill -KILL -- "-$terminal"
    {
        wait "$terminal" || true
    } 2>/dev/null
    exec 3>&-
    expect_soon "it goes on without its terminal" report_of interrupted
    expect "the report tells of the end" report_of interrupted "ended early (stopped by SIGINT); \
the board has its own flash again"
    expect "the report names the copy" report_of interrupted "The copy of the board's flash is"
    expect "the board has its own flash again" flash_is_own
}

not_own_flash()
{
    ! flash_is_own >/dev/null
}

report_of()
{
    grep -qsF "${2:-Outcome}" "$scratch/copies/$1/"*/report.txt
}

# As kill and a system that shuts down send it: to the script alone.
terminated()
{
    local status=0 process
    mkdir "$scratch/temporary"
    TMPDIR=$scratch/temporary "${demo[@]}" --port "$port" --yes \
        --copies "$scratch/copies/terminated" >"$scratch/terminated" 2>&1 </dev/null &
    process=$!
    keeps_flash terminated
    expect_soon "version 1 is on the board again" says terminated "$version_1"
    kill -TERM "$process"
    expect_soon "its own flash is put back" says terminated "Putting the board's own flash back"
    kill -TERM "$process"
    expect_soon "another SIGTERM is answered" \
        says terminated "The board first gets its own flash back."
    wait "$process" || status=$?
    expect "the script has waited for the board" flash_is_own
    expect "its exit status tells of SIGTERM" [ "$status" -eq 143 ]
    expect "so does the report" report_of terminated "ended early (stopped by SIGTERM); \
the board has its own flash again"
    expect "it leaves nothing behind" rmdir "$scratch/temporary"
}

# Nothing can be put back then.
unplugged()
{
    local status=0 group command
    set -m
    "${demo[@]}" --port "$port" --yes --copies "$scratch/copies/unplugged" \
        >"$scratch/unplugged" 2>&1 </dev/null &
    group=$!
    set +m
    keeps_flash unplugged
    expect_soon "version 1 is on the board once more" says unplugged "$version_1"
    control unplug >/dev/null
    kill -TERM -- "-$group"
    wait "$group" || status=$?
    expect "SIGTERM ends it" [ "$status" -eq 143 ]
    expect "it says what the board is like" says unplugged "THE BOARD DOES NOT HAVE ITS OWN FLASH"
    expect "it names the copy at its end" names_its_copy unplugged 28
    command=$(sed -n '/This puts it back/{n;s/^ *//p;q}' "$scratch/unplugged")
    expect "it tells a command" [ -n "$command" ]
    control replug >/dev/null
    expect_text "all that can be written is changed" 0 change_flash
    expect "the board has another flash" not_own_flash
    expect "the command succeeds" status_is_0 "$command"
    expect "the board has its own flash after that command" flash_is_own
}

change_flash()
{
    local avrdude=$scratch/program/avrdude
    head -c "$below_boot_section" /dev/urandom >"$scratch/noise"
    status_of change "$avrdude/avrdude" -C"$avrdude/avrdude.conf" -patmega328p -carduino \
        -P"/dev/$port" -b115200 -D -V -Uflash:w:"$scratch/noise":r
}

# status_is_0 COMMAND: as typed into a shell.
status_is_0()
{
    [ "$(status_of command bash -c "$1")" -eq 0 ]
}

# The system knows the driver of a real adapter.
give_driver()
{
    local adapter=$UMOCKDEV_DIR/sys/devices/1-1
    ln -sfn ../../bus/usb-serial/drivers/ftdi_sio "$adapter/driver"
    [ -e "$adapter/$port/latency_timer" ] || echo 16 >"$adapter/$port/latency_timer"
}

on_device()
{
    local role=$1
    shift
    role=$role "$device" --image "$scratch/own.hex" "$@"
}

case ${role:-} in
    "")
        mkdir "$scratch/program" "$scratch/copies"
        cp -r "$build/VTUpdater" "$build/avrdude" "$scratch/program"
        # A board needs no simulated device.
        mkdir "$scratch/build"
        cp -r "$build/version.txt" "$build/firmware" "$scratch/build"
        # Full up to its bootloader: whatever is written above the small sketch, shows.
        head -c 23552 /dev/urandom >"$scratch/filling"
        srec_cat "$build/firmware/Lantern__1.ino.with_bootloader.standard.hex" -Intel \
            -exclude 0x2000 0x7c00 "$scratch/filling" -Binary -offset 0x2000 \
            -Output "$scratch/own.hex" -Intel
        unusable_options
        unusable_build
        on_device other --port "$port" --product 6015 -- "$0" "$build" "$port"
        on_device other --port "ttyACM${port//[^0-9]/}" -- "$0" "$build" "ttyACM${port//[^0-9]/}"
        on_device board --port "$port" --serial "$serial" -- "$0" "$build" "$port"
        ;;
    other) other_adapter "$(cat /sys/class/tty/"$port"/../idProduct)" ;;
    board)
        control dump "$scratch/own" >/dev/null
        absent_port
        refused_question
        interrupted
        terminated
        unplugged
        whole_demonstration
        ;;
esac
