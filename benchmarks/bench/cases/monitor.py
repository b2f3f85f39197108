"""The serial monitor under the full load of a serial line, and when its view is full."""

import subprocess
import sys

from ..harness import figures
from .synchronisation import RESPONSIVE

KINDS = {"lines": "lines with CR LF", "linefeeds": "lines with line feeds",
         "stream": "text without line ends"}
SIDES = ("shown", "read")


def measure(bench):
    rounds = [measure_round(bench, number)
              for number in bench.rounds("Monitor", bench.repeats(3, 1))]
    for kind, name in KINDS.items():
        what = f"Monitor at 115200 baud for {bench.options.seconds} s, {name}"
        shown, read = ([one[kind, side] for one in rounds] for side in SIDES)
        bench.compare(f"monitor/{kind}/time", f"{what}: processor time", "reading without showing",
                      "ms", [one["processor"][0] for one in shown],
                      [one["processor"][0] for one in read])
        bench.compare(f"monitor/{kind}/bytes", f"{what}: characters shown", "bytes read", "",
                      [one["bytes"][0] for one in shown], [one["bytes"][0] for one in read])


def measure_round(bench, number):
    """All kinds and both sides at the same time; each takes little."""
    sides = SIDES[::-1 if number % 2 else 1]
    started = {(kind, side): subprocess.Popen(
                   [bench.programs / "bench-monitor", side, str(bench.options.seconds), kind],
                   env=bench.environment, text=True, stdin=subprocess.DEVNULL,
                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
               for kind in KINDS for side in sides}
    bench.sleep("Monitor", bench.options.seconds)
    runs = {key: (figures(process.communicate()[0]), process.returncode)
            for key, process in started.items()}
    failed = [key for key, (_, status) in runs.items() if status != 0]
    if failed:
        sys.exit(f"benchmarks: bench-monitor failed: {failed}")
    return {key: taken for key, (taken, _) in runs.items()}


def measure_full(bench):
    if bench.short:
        bench.say_left_out("A full view", "to fill it takes minutes")
        return
    for kind, name in KINDS.items():
        measure_one_full(bench, kind, name)


def measure_one_full(bench, kind, name):
    """The view drops its oldest part twice, the second time at the speed of a serial line."""
    what = f"Monitor with a full view, {name}"
    runs = [figures(bench.run(bench.programs / "bench-monitor", "full", 0, kind))
            for _ in bench.rounds(what, bench.repeats(3, 1))]
    bench.value(f"monitor/{kind}/gap", f"{what}: longest time without an answer", "ms",
                [run["gap"][0] for run in runs], goal=RESPONSIVE,
                note=f"at most {max(run['work'][0] for run in runs):.0f} ms of processor time in "
                     "one turn")
    bench.value(f"monitor/{kind}/holds", f"{what}: characters that it holds", "",
                [run["holds"][0] for run in runs])
