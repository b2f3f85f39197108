"""Results as data: a file for each section and each Qt."""

import datetime
import json
import os
import pathlib
import platform
import re
import time

FOLDER = pathlib.Path(__file__).resolve().parent.parent / "results"


def qt_version(build):
    """The Qt version that a build folder was configured with."""
    cache = (build / "CMakeCache.txt").read_text()
    folder = re.search(r"^Qt[56]Core_DIR:PATH=(.*)$", cache, re.M).group(1)
    text = "".join(path.read_text()
                   for path in pathlib.Path(folder).glob("Qt[56]CoreConfigVersion*.cmake"))
    return re.search(r'PACKAGE_VERSION "?(\d+\.\d+\.\d+)', text).group(1)


def machine():
    processor = re.search(r"^model name\s*:\s*(.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    system = re.search(r'^PRETTY_NAME="(.*)"$', pathlib.Path("/etc/os-release").read_text(), re.M)
    return {"processor": processor.group(1) if processor else platform.machine(),
            "cores": len(os.sched_getaffinity(0)),
            "memory": round(os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30),
            "system": system.group(1) if system else platform.system(),
            "kernel": platform.release()}


def rounded(value):
    """Rounds to six digits, more than any clock here can resolve."""
    if isinstance(value, list):
        return [rounded(one) for one in value]
    return float(f"{value:.6g}") if isinstance(value, float) else value


def as_text(record):
    """Writes one row per line, so that a new measurement changes few lines."""
    rows = ",\n".join("  " + json.dumps(row, ensure_ascii=False) for row in record["rows"])
    head = json.dumps({**record, "rows": []}, indent=1, ensure_ascii=False)
    return head.replace('"rows": []', f'"rows": [\n{rows}\n ]') + "\n"


def store(options, section, bench):
    version = qt_version(options.build)
    record = {"section": section, "date": datetime.date.today().isoformat(), "qt": version,
              "machine": machine(), "short": options.short,
              "seconds": round(time.monotonic() - bench.began),
              "rows": [{key: rounded(value) for key, value in row.items()} for row in bench.rows]}
    options.results.mkdir(parents=True, exist_ok=True)
    path = options.results / f"{section}.qt{version[0]}.json"
    path.write_text(as_text(record), encoding="utf-8")


def load(section, qt=5, folder=FOLDER):
    """None if it has not been recorded."""
    path = folder / f"{section}.qt{qt}.json"
    return json.loads(path.read_text(encoding="utf-8")) if path.exists() else None


def load_life():
    """[rounds, KiB resident, KiB of heap] of each look, as benchmarks/record-life wrote them."""
    path = FOLDER / "life.json"
    return json.loads(path.read_text(encoding="utf-8"))["rows"][0]["looks"] if path.exists() else []


def duration_text(section):
    record = load(section)
    return f"; took {record['seconds']} s on {record['date']}" if record else ""
