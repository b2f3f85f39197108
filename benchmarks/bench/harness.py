"""Runs programs in turns, counts their instructions and keeps the results as rows."""

import contextlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

from . import report
from .server import Link, Server, sketch_name

PERF = ["perf", "stat", "-x", ",", "-e", "instructions:u", "-o"]
SAY_EVERY = 5  # seconds


def figures(text):
    """The values of each key in output of lines "key value"."""
    values = {}
    for line in text.splitlines():
        key, _, value = line.partition(" ")
        values.setdefault(key, []).append(float(value))
    return values


def say(text):
    print(text, file=sys.stderr, flush=True)


def counter_value(log):
    return int(log.read_text().strip().splitlines()[-1].split(",")[0])


class Bench:
    def __init__(self, options, scratch):
        self.options = options
        self.short = options.short
        self.root = pathlib.Path(__file__).resolve().parent.parent.parent
        self.build = options.build
        self.programs = options.build / "benchmarks"
        self.scratch = scratch
        self.rows = []
        self.began = 0
        self.said = 0
        self.repository = re.search(r'"(http://.+?)"',
                                    (self.build / "generated/addresses.h").read_text()).group(1)
        self.environment = dict(os.environ, QT_QPA_PLATFORM="offscreen", LC_ALL="C.UTF-8",
                                XDG_RUNTIME_DIR=str(scratch), HOME=str(scratch), no_proxy="",
                                http_proxy="http://127.0.0.1:9")
        self.can_count = self.counts_instructions()

    # Results

    def begin(self, title):
        self.rows = []
        self.began = time.monotonic()
        say(title)

    def row(self, **row):
        self.rows.append(row)
        say("  " + report.plain_text(row))

    def compare(self, key, what, against, unit, ours, other, **more):
        """Compares ours with the other, pair by pair. The goal is the largest accepted ratio."""
        self.row(key=key, what=what, against=against, unit=unit, ours=ours, other=other, **more)

    def value(self, key, what, unit, values, **more):
        """Values without an opponent. The goal is the largest accepted value."""
        self.row(key=key, what=what, unit=unit, values=values, **more)

    # Progress

    def progress(self, what, done, of, started):
        now = time.monotonic()
        if 0 < done < of and now - self.said > SAY_EVERY:
            self.said = now
            say(f"  {what}: {done} of {of}, {(now - started) / done * (of - done):.0f} s left")

    def rounds(self, what, count):
        started = self.said = time.monotonic()
        for number in range(count):
            self.progress(what, number, count, started)
            yield number

    def in_turns(self, what, count, sides):
        """The results of each function. The functions take turns in being first. The disk is synced
        before each, so that none waits for what another has written."""
        taken = {name: [] for name in sides}
        for number in self.rounds(what, count):
            names = list(sides)
            for name in names[number % len(names):] + names[:number % len(names)]:
                os.sync()
                taken[name].append(sides[name]())
        return taken

    def sleep(self, what, seconds):
        started = self.said = time.monotonic()
        for second in range(seconds):
            self.progress(what, second, seconds, started)
            time.sleep(max(0, started + second + 1 - time.monotonic()))

    def repeats(self, usual, short):
        """The number of rounds: the command line's, or else this one."""
        return self.options.rounds or (short if self.short else usual)

    # Running programs

    def run(self, *command, cwd=None, **environment):
        result = subprocess.run(
            [str(part) for part in command], env=dict(self.environment, **environment), cwd=cwd,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            timeout=1800, check=False)
        if result.returncode != 0:
            sys.exit(f"benchmarks: {command[0]} failed: {result.stderr}")
        return result.stdout

    def counts_instructions(self):
        log = self.scratch / "perf"
        result = subprocess.run([*PERF, log, "true"], stderr=subprocess.DEVNULL, check=False) \
            if shutil.which("perf") else None
        return result is not None and result.returncode == 0 and log.read_text()[-200:].strip() \
            .splitlines()[-1][0].isdigit()

    def instructions(self, *command, **environment):
        """Millions of the whole process, in user space; by the processor's counter, else by
        valgrind."""
        log = self.scratch / "instructions"
        if self.can_count:
            self.run(*PERF, log, *command, **environment)
            return counter_value(log) / 1e6
        self.run("valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
                 f"--log-file={log}", *command, **environment)
        return int(re.search(r"Collected : (\d+)", log.read_text()).group(1)) / 1e6

    def counts(self, what):
        """Whether instructions are counted; valgrind takes too long for a short run."""
        if self.short and not self.can_count:
            self.say_left_out(f"{what}: instructions", "this machine has no counter of them")
            return False
        return True

    @staticmethod
    def say_left_out(what, why):
        say(f"SKIP   : {what}: left out, because {why}")

    @contextlib.contextmanager
    def server(self):
        folder = pathlib.Path(tempfile.mkdtemp(dir=self.scratch))
        server = Server(folder)
        try:
            yield server
        finally:
            server.stop()
            shutil.rmtree(folder)

    @contextlib.contextmanager
    def link(self, server, rate, round_trip):
        link = Link(self.programs / "bench-link", server, rate, round_trip)
        try:
            yield link
        finally:
            link.stop()

    @contextlib.contextmanager
    def folder(self):
        folder = pathlib.Path(tempfile.mkdtemp(dir=self.scratch))
        try:
            yield folder
        finally:
            shutil.rmtree(folder)

    @contextlib.contextmanager
    def installed(self, program, sketches=0):
        """A copy of the program in its own folder, which also gets all of its files."""
        with self.folder() as folder:
            (folder / "compiled_sketches").mkdir()
            for number in range(sketches):
                (folder / "compiled_sketches" / sketch_name(number)).touch()
            yield pathlib.Path(shutil.copy(program, folder))
