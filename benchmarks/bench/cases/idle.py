"""The program at rest, side by side with an empty timer of the same interval."""

import pathlib
import re
import subprocess

from ..harness import PERF, counter_value

AGAINST = "empty 100 ms timer"
SETTLING = 5  # s after the start


def usage(process):
    """Milliseconds on a processor, and wake-ups, of all threads."""
    spent = wake_ups = 0
    for task in pathlib.Path(f"/proc/{process.pid}/task").iterdir():
        spent += int((task / "schedstat").read_text().split()[0])
        wake_ups += int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)",
                                  (task / "status").read_text(), re.M).group(1))
    return spent / 1e6, wake_ups


def measure(bench):
    with bench.server() as server, bench.installed(bench.build / "VTUpdater", 10) as program:
        server.publish(10)
        sides = {"ours": [program], "bare": [bench.programs / "bench-bare", "--timer"]}
        rounds = [measure_round(bench, sides, server, number)
                  for number in bench.rounds("Idle", bench.repeats(5, 1))]
    what = f"Idle for {bench.options.seconds} s"
    for key, name, unit, goal in (("time", "processor time", "ms", 1.1),
                                  ("wake-ups", "wake-ups", "", 1.1),
                                  ("instructions", "instructions", "million", None)):
        if all(key in one["ours"] for one in rounds):
            bench.compare(f"idle/{key}", f"{what}: {name}", AGAINST, unit,
                          [one["ours"][key] for one in rounds],
                          [one["bare"][key] for one in rounds], goal=goal)


def measure_round(bench, sides, server, number):
    """What each side used; they start in changing order."""
    names = list(sides)[::-1 if number % 2 else 1]
    processes = {name: subprocess.Popen(
                     sides[name], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                     stderr=subprocess.DEVNULL,
                     env=dict(bench.environment, http_proxy=server.address))
                 for name in names}
    try:
        bench.sleep("Idle", 1 if bench.short else SETTLING)
        before = {name: usage(process) for name, process in processes.items()}
        bench.sleep("Idle", bench.options.seconds)
        after = {name: usage(process) for name, process in processes.items()}
        used = {name: {"time": after[name][0] - before[name][0],
                       "wake-ups": after[name][1] - before[name][1]} for name in names}
        if bench.can_count:
            count_instructions(bench, processes, used)
    finally:
        for process in processes.values():
            process.kill()
            process.wait()
    return used


def count_instructions(bench, processes, used):
    """In a time of its own, because counting costs time."""
    logs = {name: bench.scratch / f"perf-{name}" for name in processes}
    watchers = [subprocess.Popen([*PERF, logs[name], "-p", str(process.pid), "sleep",
                                  str(bench.options.seconds)])
                for name, process in processes.items()]
    for watcher in watchers:
        watcher.wait()
    for name, log in logs.items():
        used[name]["instructions"] = counter_value(log) / 1e6
