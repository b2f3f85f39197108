"""An update of the simulated device by the real avrdude."""

import json
import os
import shlex
import shutil

from ..harness import figures

ALLOWED = 30  # s that the program waits for avrdude
FULL = 31500  # bytes, up to the boot section
TAIL = ".ino.with_bootloader.standard.hex"
AGAINST = "avrdude and two bare queries"

# In the place of avrdude, on both sides.
UPLOADER = """\
#!/bin/sh
begun=$(date +%s.%N)
{avrdude} "$@"
status=$?
echo "$begun $(date +%s.%N)" >"$0.run"
exit $status
"""


def update(bench, image, rounds):
    """What bench-update prints, on a device that holds an older sketch."""
    port = f"ttyUSB{os.getpid()}"
    with bench.installed(bench.programs / "bench-update") as program:
        sketch = shutil.copy(image, program.parent / "compiled_sketches")
        uploader = program.parent / "avrdude" / "avrdude"
        uploader.parent.mkdir()
        shutil.copy(bench.build / "avrdude/avrdude.conf", uploader.parent)
        uploader.write_text(UPLOADER.format(
            avrdude=shlex.quote(str(bench.build / "avrdude/avrdude"))))
        uploader.chmod(0o755)
        return figures(bench.run(
            bench.build / "tools/simulated-device/simulated-device", "--port", port,
            "--image", bench.build / "firmware" / f"Metronome__1{TAIL}", "--",
            program, port, sketch, uploader, rounds))


def parts(times, side):
    """The seconds of the first query, of avrdude and of the second query, of each round."""
    stamps = [times[f"{side}-{stamp}"] for stamp in ("begun", "avrdude-begun", "avrdude-ended",
                                                     "done")]
    return [[end - begin for begin, end in zip(begins, ends)]
            for begins, ends in zip(stamps, stamps[1:])]


def measure(bench):
    times = update(bench, bench.build / "firmware" / f"Metronome__2{TAIL}",
                   bench.repeats(5, 1))
    ours, bare = parts(times, "ours"), parts(times, "bare")
    whole, other = ([sum(round_) for round_ in zip(*side)] for side in (ours, bare))
    bench.compare("update/beyond", 'Update, click to "Upload successfull."', AGAINST, "s",
                  whole, other, goal=1.05, ours_common=ours[1], other_common=bare[1],
                  note="the ratio is of what is beyond avrdude's own time")
    for key, what, values in zip(("before", "avrdude", "after"),
                                 ("the query before it", "avrdude", "the query after it"), ours):
        bench.value(f"update/{key}", f"Update: {what}", "s", values)


def measure_full(bench):
    if bench.short:
        bench.say_left_out("A full flash", "it takes a minute")
        return
    with bench.folder() as folder:
        image = image_of_size(bench, folder, FULL)
        rounds = [rehearsed(bench, image, folder / "report")
                  for _ in bench.rounds("Full flash", bench.repeats(3, 1))]
    bench.value("update/full", f"Update of a full flash, {FULL:,} bytes: avrdude", "s",
                [seconds for one in rounds for seconds in one], goal=ALLOWED,
                note=f"the program waits {ALLOWED} s")


def rehearsed(bench, image, report):
    """The seconds that avrdude takes."""
    bench.run(bench.root / "tools/rehearse-sketches", "--build", bench.build, "--report", report,
              image)
    return [step["uploaded"] for step in json.loads(report.read_text()) if "uploaded" in step]


def image_of_size(bench, folder, size):
    """A sketch of so many bytes, which a table makes up."""
    image = compiled(bench, folder, 2)
    return compiled(bench, folder, size - size_of(bench, image) + 2)


def compiled(bench, folder, table_size):
    source = bench.root / "tests/publishing/sketches/Sized__1.ino"
    bench.run(bench.root / "tools/compile-sketch", "--build", bench.build,
              f"-DTABLE_SIZE={table_size}", source, folder)
    return folder / f"Sized__1{TAIL}"


def size_of(bench, image):
    told = bench.run("srec_info", image, "-intel", "-crop", "0", "0x7c00")
    return int(told.split()[-1], 16) + 1
