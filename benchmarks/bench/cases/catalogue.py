"""The list of the local sketches, against reading the same directory."""

import statistics

from ..harness import figures
from ..server import sketch_name

AGAINST = "QDir::entryInfoList"


def measure(bench):
    counts = (10, 1000) if bench.short else (10, 100, 1000, 10000)
    medians = {count: measure_one(bench, count) for count in counts}
    if not bench.short:
        ours, other = ([many / few] for few, many in zip(medians[1000], medians[10000]))
        bench.compare("list/growth", "List: growth from 1,000 to 10,000 files",
                      f"the growth of {AGAINST}", "times", ours, other)


def measure_one(bench, count):
    """The median of each side, in ms."""
    what = f"List of {count:,} files"
    with bench.folder() as folder:
        for number in range(count):
            (folder / sketch_name(number)).touch()
        rounds = bench.repeats(max(21, 2000 // count), 5)
        times = figures(bench.run(bench.programs / "bench-list", f"{folder}/", rounds + 1))
        # The first look fills caches.
        ours, bare = ([1e3 * time / count for time in times[side][1:]] for side in ("ours", "bare"))
        bench.compare(f"list/{count}/time", f"{what}: processor time of each", AGAINST, "µs",
                      ours, bare, goal=1.5)
        if bench.counts(what):
            ours_counts, bare_counts = ([instructions_of_one(bench, folder, count, side)]
                                        for side in ("ours", "bare"))
            bench.compare(f"list/{count}/instructions",
                          f"{what}, laid out and painted: instructions of each", AGAINST, "",
                          ours_counts, bare_counts)
    return statistics.median(ours) * count, statistics.median(bare) * count


def instructions_of_one(bench, folder, count, side):
    few, many = 2, 2 + max(2, 2000 // count)
    less, more = (bench.instructions(bench.programs / "bench-list", f"{folder}/", rounds, side)
                  for rounds in (few, many))
    return (more - less) * 1e6 / (many - few) / count
