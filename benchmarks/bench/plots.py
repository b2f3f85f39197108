"""Plots of the results by gnuplot, on white so that they are readable on any page."""

import statistics
import subprocess

from .cases.links import COUNTS, LINKS

TERMINAL = """\
set terminal svg size {size} background rgb "white" font "sans-serif,13" enhanced
set border lc rgb "#444444"
"""

TIME = """\
set multiplot layout 1,2
set logscale xy
set grid lc rgb "#dddddd"
set xlabel "sketches of 30 kB"
set ylabel "seconds"
set xrange [15:1400]
set yrange [{least}:{most}]
set xtics (20, 100, 1000)
set key top left
"""

# The wider lines first, because the lines cover each other.
LINES = (("limit", "the link's limit", "#c8c8c8", 9), ("curl", "curl --parallel", "#d95f02", 5),
         ("ours", "the program", "#1b4f8a", 2))

PARTS = (("before", "query", "#7fb3d5"), ("avrdude", "avrdude", "#1b6ca8"),
         ("after", "query", "#7fb3d5"))


def gnuplot(script):
    return subprocess.run(["gnuplot"], input=script, check=True, capture_output=True,
                          text=True).stdout


def time_data(rows):
    """The median seconds for each link and number of sketches."""
    data = {}
    for rate, round_trip in LINKS:
        found = [(count, rows.get(f"link/{rate}/{count}/curl"), rows.get(f"link/{rate}/{count}/limit"))
                 for count in COUNTS]
        data[f"{rate} Mbit/s, {round_trip} ms"] = {
            "ours": [[count, seconds(row["ours"])] for count, row, _ in found if row],
            "curl": [[count, seconds(row["other"])] for count, row, _ in found if row],
            "limit": [[count, seconds(row["other"])] for count, _, row in found if row]}
    return data


def seconds(values):
    return statistics.median(values) / 1e3


def draw_time(data):
    every = [value for sides in data.values() for side in sides.values() for _, value in side]
    script = (TERMINAL.format(size="860,380")
              + TIME.format(least=min(every) / 1.5, most=max(every) * 2.5))
    for number, (name, sides) in enumerate(data.items()):
        for side, points in sides.items():
            block = "\n".join(f"{count} {value}" for count, value in points)
            script += f"${side}{number} << EOD\n{block}\nEOD\n"
        plotted = ", ".join(
            f'${side}{number} with linespoints lw {width} pt 7 ps 0.4 lc rgb "{colour}" '
            f'title "{title}"' for side, title, colour, width in LINES)
        script += f'set title "{name}"\nplot {plotted}\n'
    return gnuplot(script)


def parts_data(rows):
    return [[title, statistics.median(rows[f"update/{key}"]["values"])]
            for key, title, _ in PARTS if f"update/{key}" in rows]


def draw_parts(data):
    script = TERMINAL.format(size="860,170") + """\
set yrange [0:1]
unset key
set border 1
set xtics nomirror out
unset ytics
set xlabel "seconds from the click to \\"Upload successfull.\\""
"""
    begin = 0
    for number, ((title, length), (_, _, colour)) in enumerate(zip(data, PARTS), 1):
        middle, end = begin + length / 2, begin + length
        script += (f'set object {number} rectangle from {begin},0.2 to {end},0.8 '
                   f'fc rgb "{colour}" fs solid border rgb "white"\n'
                   f'set label {number} "{title}\\n{length:.1f} s" at {middle},0.6 center '
                   f'tc rgb "{"white" if colour == PARTS[1][2] else "black"}" front\n')
        begin = end
    return gnuplot(script + f"set xrange [0:{begin * 1.02}]\nplot -1\n")


def draw_life(data):
    block = "\n".join(" ".join(map(str, (rounds, resident / 1024, heap / 1024)))
                      for rounds, resident, heap in data)
    return gnuplot(TERMINAL.format(size="860,300") + f"$life << EOD\n{block}\nEOD\n" + """\
set grid lc rgb "#dddddd"
set xlabel "rounds of a refresh, an update, a talk in the monitor and a lost device"
set ylabel "MiB"
set yrange [0:*]
set key center right
plot $life using 1:2 with lines lw 3 lc rgb "#1b6ca8" title "resident", \\
    $life using 1:3 with lines lw 3 lc rgb "#d95f02" title "heap"
""")


def pictures(rows, life):
    """The data and the drawing function of each file name, where it has been measured."""
    known = {"synchronisation-time.svg": (time_data(rows), draw_time, "link/20/1000/curl" in rows),
             "update-parts.svg": (parts_data(rows), draw_parts, "update/before" in rows),
             "long-life.svg": (life, draw_life, bool(life))}
    return {name: (data, draw) for name, (data, draw, measured) in known.items() if measured}
