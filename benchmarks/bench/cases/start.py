"""From the start of the process until the first painted window has reached the screen.

The forms link all of the program, so that memory tells what running it costs.
"""

import time

from ..harness import figures

SKETCHES = 10
OPPONENTS = {"forms": ("the same forms, a request, a port scan", 1.05),
             "empty": ("empty QMainWindow", None)}
WHAT = "Start to the first painted window"


def first_paint(bench, program, address):
    start = time.clock_gettime(time.CLOCK_MONOTONIC) * 1e3
    painted = figures(bench.run(program, http_proxy=address))
    return {"time": painted["painted"][0] - start, "memory": painted["resident"][0],
            "own": painted["private"][0]}


def measure(bench):
    with bench.server() as server, \
            bench.installed(bench.programs / "bench-start", SKETCHES) as program:
        server.publish(SKETCHES)
        programs = {"ours": program, "forms": bench.programs / "bench-forms-start",
                    "empty": bench.programs / "bench-bare-start"}
        compare_paints(bench, programs, server.address)
        if bench.counts(WHAT):
            compare_instructions(bench, programs, server.address)


def compare_paints(bench, programs, address):
    taken = bench.in_turns(WHAT, bench.repeats(41, 3), {
        name: lambda program=program: first_paint(bench, program, address)
        for name, program in programs.items()})
    for key, what, unit in (("time", "time", "ms"), ("memory", "resident memory", "kB"),
                            ("own", "memory of its own", "kB")):
        for other, (against, goal) in OPPONENTS.items():
            bench.compare(f"start/{key}/{other}", f"{WHAT}: {what}", against, unit,
                          [one[key] for one in taken["ours"]], [one[key] for one in taken[other]],
                          goal=None if key == "own" else goal)


def compare_instructions(bench, programs, address):
    taken = bench.in_turns(f"{WHAT}: instructions", 3 if bench.can_count else 1, {
        name: lambda program=program: bench.instructions(program, http_proxy=address)
        for name, program in programs.items()})
    for other, (against, goal) in OPPONENTS.items():
        bench.compare(f"start/instructions/{other}", f"{WHAT}: instructions", against, "million",
                      taken["ours"], taken[other], goal=goal)
