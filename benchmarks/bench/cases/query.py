"""The question for the device's sketch and version."""

from ..harness import figures

LATENCY = 16  # ms, that of query.cpp: every answer takes it


def measure(bench):
    times = figures(bench.run(bench.programs / "bench-query", 1 + bench.repeats(300, 10)))
    # The first question of each side finds cold caches.
    times = {key: values[1:] for key, values in times.items()}
    for part, what in (("exchange", "Version query, exchange alone"),
                       ("opening", "Version query, with opening the port")):
        for other, against, goal in (("qt", "the same by a bare QSerialPort", 1.05),
                                     ("bare", "system calls on the same terminal", None)):
            bench.compare(f"query/{part}/{other}", what, against, "ms", times[f"ours-{part}"],
                          times[f"{other}-{part}"], goal=goal, common=LATENCY,
                          note=f"the ratio is of what is beyond the device's {LATENCY} ms")
