"""The local repository becomes a copy of the online one, on the loopback."""

import os
import statistics
import time

from ..harness import figures
from ..server import sketch_name

RESPONSIVE = 100  # ms in which a window must answer
CURL = ["curl", "--disable", "--silent", "--show-error", "--parallel", "--config"]


def now():
    return time.clock_gettime(time.CLOCK_MONOTONIC) * 1e3


def synchronise(bench, address, count, present=0, refresh=False):
    """With the start of the process."""
    with bench.installed(bench.programs / "bench-synchronisation", present) as program:
        start = now()
        run = figures(bench.run(program, count, *(["refresh"] if refresh else []),
                                http_proxy=address))
    run["time"] = run["synchronised"][0] - start
    run["listed"] = run["synchronised"][0] - run["built"][0]
    return run


def fetch(bench, address, folder, names):
    (folder / "config").write_text("".join(
        f'url = "{bench.repository}{name}"\noutput = "{name}"\n' for name in names))
    bench.run(*CURL, folder / "config", cwd=folder, http_proxy=address)


def flush(folder, names):
    for name in names:
        file = os.open(folder / name, os.O_RDONLY)
        os.fdatasync(file)
        os.close(file)


def curl_start(bench):
    """Of the process, which a curl for the index and one for the sketches begin with."""
    with bench.folder() as folder:
        (folder / "empty").touch()
        (folder / "config").write_text(f'url = "{(folder / "empty").as_uri()}"\noutput = "copy"\n')
        times = []
        for _ in range(5):
            start = now()
            bench.run(*CURL, folder / "config", cwd=folder)
            times.append(now() - start)
    return statistics.median(times)


def curl(bench, address, names, one_start):
    """The ms until the index and then the files are there, and until they are flushed. As in the
    program, one start of a process counts."""
    with bench.folder() as folder:
        start = now() + one_start
        fetch(bench, address, folder, ["file_list.txt"])
        fetch(bench, address, folder, names)
        fetched = now() - start
        flush(folder, names)
        return {"fetched": fetched, "flushed": now() - start}


def downloads(bench, address, count):
    with bench.folder() as folder:
        start = now()
        bench.run(bench.programs / "bench-downloads", count, cwd=folder, http_proxy=address)
        return now() - start


def responsiveness(bench, key, what, runs, goal=RESPONSIVE):
    """The worst of all rounds: a wait counts however rare it is."""
    bench.value(f"{key}/gap", f"{what}: longest time without an answer", "ms",
                [max(run["gap"]) for run in runs], goal=goal,
                note=f"at most {max(max(run['work']) for run in runs):.0f} ms of processor time "
                     "in one turn")


def measure(bench):
    one_start = curl_start(bench)
    counts = (10, 100) if bench.short else (10, 100, 1000, 4000)
    with bench.server() as server:
        times = {count: measure_one(bench, server, count, one_start) for count in counts}
    if not bench.short:
        bench.value("synchronisation/growth", "Growth of the time from 1,000 to 4,000 files", "",
                    [times[4000] / times[1000] / 4], goal=1.25, note="linear growth is 1")


def measure_one(bench, server, count, one_start):
    server.publish(count)
    names = [sketch_name(number) for number in range(count)]
    what = f"Synchronisation of {count:,} missing files on the loopback"
    key = f"synchronisation/{count}"
    rounds = bench.repeats(15 if count <= 100 else 3, 2)
    taken = bench.in_turns(what, rounds, {
        "ours": lambda: synchronise(bench, server.address, count),
        "curl": lambda: curl(bench, server.address, names, one_start),
        "managers": lambda: downloads(bench, server.address, count),
        "limit": lambda: curl(bench, server.address, ["all"], one_start)["fetched"]})
    ours = [run["time"] for run in taken["ours"]]
    bench.compare(f"{key}/curl", what, "curl --parallel, each file flushed", "ms", ours,
                  [run["flushed"] for run in taken["curl"]], goal=1.5 if count <= 100 else None)
    bench.compare(f"{key}/unflushed", what, "curl --parallel, nothing flushed", "ms", ours,
                  [run["fetched"] for run in taken["curl"]])
    bench.compare(f"{key}/managers", what, "one manager each in bare Qt, nothing shown or flushed",
                  "ms", ours, taken["managers"])
    bench.compare(f"{key}/limit", what, "the loopback's limit: curl, all as one file", "ms", ours,
                  taken["limit"])
    responsiveness(bench, key, what, taken["ours"], 1000 if count > 1000 else RESPONSIVE)
    return statistics.median(ours)


def measure_unchanged(bench):
    with bench.server() as server:
        for count in (10, 1000) if bench.short else (10, 100, 1000, 10000):
            measure_one_unchanged(bench, server, count)


def measure_one_unchanged(bench, server, count):
    server.publish(count, index_only=True)
    what = f"Synchronisation of {count:,} files, none missing"
    key = f"unchanged/{count}"
    taken = bench.in_turns(what, bench.repeats(11, 2), {
        "ours": lambda: synchronise(bench, server.address, count, count, refresh=True),
        "curl": lambda: curl_of_index(bench, server.address)})
    ours = taken["ours"]
    bench.compare(f"{key}/curl", what, "curl of the index", "ms", [run["time"] for run in ours],
                  taken["curl"])
    bench.value(f"{key}/listed", f"{what}: after the window is built", "ms",
                [run["listed"] for run in ours])
    bench.value(f"{key}/refresh", f"Refresh of {count:,} listed files, click to the last line", "ms",
                [run["refreshed"][0] - run["clicked"][0] for run in ours])
    responsiveness(bench, key, f"{what}, and refresh", ours)


def curl_of_index(bench, address):
    with bench.folder() as folder:
        start = now()
        fetch(bench, address, folder, ["file_list.txt"])
        return now() - start
