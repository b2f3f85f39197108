"""The tables and plots of docs/performance.md and of the results' own page."""

import hashlib
import json
import re
import statistics

from . import plots, report, results
from .cases import SECTIONS

ROOT = results.FOLDER.parent.parent
DOCUMENT = ROOT / "docs/performance.md"
PAGE = results.FOLDER / "README.md"
PICTURES = ROOT / "docs/images"

# The rows of the whole table that a user would feel.
HEADLINES = ("start/time/forms", "start/memory/forms", "link/20/20/curl", "link/20/1000/curl",
             "link/100/1000/curl", "link/100/1000/gap", "query/opening/qt", "update/beyond",
             "update/full", "idle/time", "monitor/lines/gap")
QT_ROWS = ("start/time/forms", "start/memory/forms", "start/instructions/forms", "list/100/time",
           "list/1000/time", "query/exchange/qt", "query/opening/qt")


def rows(qt=5):
    """The rows of all recorded sections, by their keys."""
    records = (results.load(name, qt) for name in SECTIONS)
    return {row["key"]: row for record in records if record for row in record["rows"]}


def machine(record):
    of = record["machine"]
    return (f"{of['cores']} cores of an {of['processor']}, {of['memory']} GB, {of['system']}, "
            f"Qt {record['qt']}")


def short(record):
    return ", in the short form," if record["short"] else ""


def headlines():
    known = rows()
    return report.table([known[key] for key in HEADLINES if key in known], 5)


def both_qt():
    """The same rows with Qt 5 and with Qt 6, side by side."""
    records = [results.load("start", qt) for qt in (5, 6)]
    versions = [f"Qt {record['qt']}" if record else "" for record in records]
    of = [rows(qt) for qt in (5, 6)]
    lines = [f"| What | {versions[0]} | {versions[1]} |", "|---|---:|---:|"]
    for key in QT_ROWS:
        if all(key in known for known in of):
            figures = [report.with_unit(statistics.median(known[key]["ours"]), known[key]["unit"])
                       for known in of]
            lines.append(f"| {of[0][key]['what']} | {figures[0]} | {figures[1]} |")
    return "\n".join(lines)


def misses():
    """The goals that recorded rows miss."""
    all_rows = [row for row in rows().values() if row.get("goal") is not None]
    missed = [row for row in all_rows if report.missed(row)]
    lines = [f"{len(all_rows)} goals are set, {len(missed)} are missed:", ""]
    return "\n".join(lines + [f"- {report.plain_text(row)}" for row in missed])


def on():
    record = results.load("link") or results.load("start")
    return f"Measured on {record['date']}: {machine(record)}."


def duration():
    records = [record for record in map(results.load, SECTIONS) if record]
    minutes = sum(record["seconds"] for record in records) / 60
    return f"The {len(records)} sections that were recorded took {minutes:.0f} minutes."


def life():
    if not results.load_life():
        return "The memory of a long life has not been recorded."
    return ("![Resident memory and heap over the rounds of a long life](images/long-life.svg)\n\n"
            "The memory grows a little with each refresh, because a network manager stays with the\n"
            "window after its reply; [Reliability](reliability.md#a-long-life) tells more.")


BLOCKS = {"on": on, "headlines": headlines, "life": life, "misses": misses, "qt": both_qt,
          "duration": duration}


def page():
    """Every row of every section."""
    parts = ["# Results", "", "Made by `benchmarks/report` from the files in this folder, which",
             "`benchmarks/run --record` writes.", ""]
    for qt in (5, 6):
        for name in SECTIONS:
            record = results.load(name, qt)
            if record:
                parts += [f"## {name}, Qt {record['qt']}", "",
                          f"Recorded on {record['date']}{short(record)} in {record['seconds']} s, on "
                          f"{machine(record)}.", "",
                          report.table(record["rows"]), ""]
    return "\n".join(parts)


def document():
    text = DOCUMENT.read_text(encoding="utf-8")
    for name, block in BLOCKS.items():
        text = re.sub(rf"(<!-- results: {name} -->\n).*?(<!-- end -->)",
                      lambda match, block=block: match[1] + block() + "\n" + match[2], text,
                      flags=re.S)
    return text


def fingerprint(data):
    """Marks a plot with its data, because versions of gnuplot draw the same data differently."""
    digest = hashlib.sha256(json.dumps(data, sort_keys=True).encode()).hexdigest()
    return f"<!-- of the data {digest} -->\n"


def write():
    PAGE.write_text(page(), encoding="utf-8")
    DOCUMENT.write_text(document(), encoding="utf-8")
    for name, (data, draw) in plots.pictures(rows(), results.load_life()).items():
        (PICTURES / name).write_text(draw(data) + fingerprint(data), encoding="utf-8")


def stale():
    """The files that would change."""
    expected = {PAGE: page(), DOCUMENT: document()}
    found = [path for path, text in expected.items()
             if not path.exists() or path.read_text(encoding="utf-8") != text]
    for name, (data, _) in plots.pictures(rows(), results.load_life()).items():
        path = PICTURES / name
        if not path.exists() or not path.read_text(encoding="utf-8").endswith(fingerprint(data)):
            found.append(path)
    return [path.relative_to(ROOT) for path in found]
