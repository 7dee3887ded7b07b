#!/usr/bin/python3
"""Measures Capture & Send on private Wayland desktops: from the key or command to the request.

Runs the real program with a scripted backend on sway, KWin and GNOME, drawn in software. Prints
each value with its goal; a missed goal is not a failure.
"""

import argparse
import collections
import datetime
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "e2e"))

# pylint: disable=wrong-import-position
from harness import App, HostileServer, desktops, isolation, processes  # noqa: E402
from harness.messages import STREAM_COMPLETE  # noqa: E402
from harness.programs import OtherProgram  # noqa: E402
from harness.server import QUERY  # noqa: E402

#: Desktop, size of its output, goal in ms from the command to the finished request.
CASES = (("sway", (1920, 1080), 60), ("sway", (3840, 2160), 120), ("kwin", (1920, 1080), 150),
         ("gnome", (1920, 1080), 350))
PROGRAMS = {"sway": "sway", "kwin": "kwin_wayland", "gnome": "gnome-shell"}
RUNS = 15

CAPTURED = re.compile(r"^\[ScreenshotCapture\] Captured ")
GONE = re.compile(r"^\[ScreenSource\] .*panel was gone for (.*)$")
FRAMES = re.compile(r"^(\d+) frames? \((\d+) ms")


def log_time(line):
    """A log line's time of day in milliseconds since midnight."""
    time_of_day = datetime.datetime.strptime(line[1:13], "%H:%M:%S.%f")
    return (time_of_day - datetime.datetime.min).total_seconds() * 1000 % 86_400_000


def show(what, values, goal=None):
    """Prints the median and the largest value."""
    print(f"    {what:<58} {statistics.median(values):6.0f} ms, at most {max(values):.0f}"
          + (f"; goal {goal}" if goal else ""), flush=True)


def show_gone(spans, goal=None):
    """Prints how often the panel was gone for how many frames, or what the log says instead."""
    known = [FRAMES.match(span) for span in spans]
    if not all(known):
        print(f"    the panel was gone for: {', '.join(sorted(set(spans)))}", flush=True)
        return
    counts = collections.Counter(int(match[1]) for match in known)
    often = ", ".join(f"{frames} in {count} of {len(spans)}" for frames, count
                      in sorted(counts.items()))
    show("the panel was gone (log)", [int(match[2]) for match in known])
    print(f"    {'frames without the panel':<58} {often}"
          + (f"; goal {goal}" if goal else ""), flush=True)


class Run:
    """The program on one desktop."""

    def __init__(self, kind, size):
        self.kind = kind
        self.desktop = desktops.start(kind, width=size[0], height=size[1])
        if kind == "gnome":
            self.desktop.grant_pictures()
        self.server = HostileServer()
        self.server.on(QUERY, HostileServer.answer_with("Seen."))
        self.app = App(self.desktop, self.server.url).start().sign_in()
        self.other = OtherProgram(self.desktop, full_screen=kind != "sway")
        self.count = 0

    def close(self):
        """Ends everything."""
        self.other.close()
        self.app.close()
        self.server.close()
        self.desktop.close()

    def trigger(self):
        """Starts one capture; returns the moment before."""
        if self.kind == "sway":
            if self.count == 0:
                self.desktop.command("bindsym --no-repeat Ctrl+Mod1+Mod4+c exec "
                                     f"'{self.app.bin_dir / 'quellora'}' capture")
            started = time.monotonic()
            self.desktop.press("ctrl+alt+super+c")
            return started
        started = time.monotonic()
        processes.spawn([str(self.app.bin_dir / "quellora"), "capture"],
                        env=self.app.environment, cwd=self.app.work,
                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).wait()
        return started

    def capture(self):
        """One capture: (key or start of the command to request, command to request ready, gone)."""
        mark = self.app.mark()
        started = self.trigger()
        self.count += 1
        self.server.wait_for_request(QUERY, self.count)
        arrived = (time.monotonic() - started) * 1000
        self.app.wait_for_line(STREAM_COMPLETE, since=mark)
        first = self.app.wait_for_line(re.compile(r"^\[AppDelegate\] Command: capture$"),
                                       since=mark)
        last = self.app.wait_for_line(CAPTURED, since=mark)
        if self.kind in ("sway", "kwin"):
            self.app.wait_for_line(GONE, since=mark)
        gone = [GONE.match(line)[1] for line in self.app.lines_since(mark) if GONE.match(line)]
        ready = log_time(self.app.raw_lines[last]) - log_time(self.app.raw_lines[first])
        return arrived, ready, gone[0] if gone else "not logged"


def measure(kind, size, goal):
    """Measures one desktop."""
    isolation.enter()
    run = Run(kind, size)
    try:
        run.capture()  # the first one loads code and asks for permissions
        values = [run.capture() for _ in range(RUNS)]
    finally:
        run.close()
    print(f"{kind}, {size[0]} x {size[1]}, load {os.getloadavg()[0]:.1f}", flush=True)
    trigger = "key press" if kind == "sway" else "start of `quellora capture`"
    show(f"{trigger} to request at the server", [value[0] for value in values])
    show("command received to request ready (log)", [value[1] for value in values], goal)
    show_gone([value[2] for value in values], 1 if kind == "sway" else None)


def main():
    """Measures the desktops that are installed, each in a process of its own."""
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--one", type=int, help="index of the only case to measure, in this process")
    options = parser.parse_args()
    if options.one is not None:
        measure(*CASES[options.one])
        return 0
    failed = 0
    for index, (kind, _, _) in enumerate(CASES):
        if shutil.which(PROGRAMS[kind]) is None:
            print(f"{kind} is not installed")
            continue
        failed |= subprocess.run([sys.executable, "-B", __file__, "--one", str(index)],
                                 check=False).returncode
    return failed


if __name__ == "__main__":
    sys.exit(main())
