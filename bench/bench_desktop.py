#!/usr/bin/python3
"""Measures the app during sign-in and when idle, on a private virtual display.

Runs the real program with a scripted backend and without assistive technology. Prints each value
with its goal; a missed goal is not a failure.
"""

import argparse
import collections
import datetime
import os
import pathlib
import re
import statistics
import sys
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "e2e"))

# pylint: disable=wrong-import-position
from Xlib import display as xdisplay  # noqa: E402
from Xlib import error as xerror  # noqa: E402
from Xlib.ext import damage  # noqa: E402

from harness import App, Desktop, HostileServer, processes, wait_until  # noqa: E402
from harness.server import QUERY  # noqa: E402

LOGIN_SIZE = (420, 480)
KEY_INTERVAL = 0.05
TYPING_TIME = 2.0
#: Shorter than the 10 s for which the caret blinks after the last key.
BLINK_TIME = 8.0
REST_TIME = 10.0
SETTLE_TIME = 3.0
MEGABYTE = 1024.0

#: About 4 KB of Markdown with the elements of a typical answer.
ANSWER = "".join(
    f"## Step {number}\n\nThe **export** reads rows until the _cut-off_; see `rows[{number}]`.\n\n"
    f"- first point of step {number}\n- second point, somewhat longer than the first one\n\n"
    f"```python\nfor row in rows[:{number}]:\n    write(row)\n```\n\n"
    for number in range(1, 21))


def log_time(line):
    """Returns a log line's time of day in milliseconds since midnight."""
    time_of_day = datetime.datetime.strptime(line[1:13], "%H:%M:%S.%f")
    return (time_of_day - datetime.datetime.min).total_seconds() * 1000 % 86_400_000


class PaintRecorder:
    """Records the time and size of all screen updates with the X damage extension."""

    def __init__(self, desktop):
        self._display = xdisplay.Display(desktop.name)
        self._display.damage_query_version()
        root = self._display.screen().root
        self._damage = root.damage_create(damage.DamageReportRawRectangles)
        self._display.sync()
        self.seen = []
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        while True:
            try:
                event = self._display.next_event()
            except xerror.ConnectionClosedError:
                return
            if hasattr(event, "area"):
                self.seen.append((time.monotonic(), event.area.width, event.area.height))

    def first_after(self, moment, size=None):
        """Returns the time of the first update (of the given size) after `moment`, or None."""
        return next((at for at, *area in list(self.seen)
                     if at >= moment and size in (None, tuple(area))), None)


def context_switches(pid):
    """Returns a process's voluntary context switches so far as {(thread id, name): count}."""
    counts = {}
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        try:
            text = (task / "status").read_text()
        except OSError:
            continue
        name = re.search(r"^Name:\t(.*)$", text, re.M)[1]
        counts[int(task.name), name] = int(
            re.search(r"^voluntary_ctxt_switches:\t(\d+)$", text, re.M)[1])
    return counts


def wake_ups(pid, duration=REST_TIME):
    """Returns wake-ups per second as {thread name: rate}, without idle threads."""
    before, started = context_switches(pid), time.monotonic()
    time.sleep(duration)
    after, elapsed = context_switches(pid), time.monotonic() - started
    rates = collections.Counter()
    for key, count in after.items():
        rates[key[1]] += (count - before.get(key, 0)) / elapsed
    return {name: rate for name, rate in rates.most_common() if rate > 0}


def memory_of(pid):
    """Returns (name, PSS, private memory) of a process in MiB, or None if it has ended."""
    folder = pathlib.Path(f"/proc/{pid}")
    try:
        text = (folder / "smaps_rollup").read_text()
        command = (folder / "cmdline").read_bytes().decode("utf-8", "replace")
    except OSError:
        return None
    kind = re.search(r"--type=([\w-]+)", command)
    sizes = {name: int(size) / MEGABYTE
             for name, size in re.findall(r"^(\w+):\s+(\d+) kB$", text, re.M)}
    return (kind[1] if kind else "quellora", sizes["Pss"],
            sizes["Private_Clean"] + sizes["Private_Dirty"])


class Run:
    """One run of the app."""

    def __init__(self, desktop, server, paints):
        self.desktop, self.paints = desktop, paints
        self.app = App(desktop, server.url)
        # Accessibility support, off for most users, would add memory and wake-ups.
        for name in ("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "QTWEBENGINE_ENABLE_LINUX_ACCESSIBILITY"):
            del self.app.environment[name]

    def type_into_login(self):
        """Returns the time from process start to the form's first frame, and the longest and median
        time from a key press to the next screen update, in milliseconds."""
        started = time.monotonic()
        self.app.start()
        self.app.wait_for_line("[AppDelegate] Login window shown, overlay deferred until sign-in")
        self.desktop.wait_for_active("Quellora")
        first = wait_until(lambda: self.paints.first_after(started, LOGIN_SIZE),
                           what="the form's first picture")
        pressed = []
        begin = time.monotonic()
        while (due := begin + len(pressed) * KEY_INTERVAL) < begin + TYPING_TIME:
            time.sleep(max(0.0, due - time.monotonic()))
            pressed.append(time.monotonic())
            self.desktop.press("abcdefghij"[len(pressed) % 10])
        time.sleep(0.5)
        # A key press without a screen update was lost; it counts as 7 to 9 s.
        waits = [(self.paints.first_after(at) or begin + 9) - at for at in pressed]
        return [value * 1000
                for value in (first - started, max(waits), statistics.median(waits))]

    def sign_in(self):
        """Returns the time from the sign-in response to the visible panel in ms, from the log."""
        self.desktop.type_text("\tcorrect horse 9")
        time.sleep(0.5)
        mark = self.app.mark()
        self.desktop.press("return")
        answered = self.app.wait_for_line("[AuthService] Login successful", since=mark)
        shown = self.app.wait_for_line("[AppDelegate] Overlay window shown", since=mark)
        time.sleep(SETTLE_TIME)
        logged = [log_time(self.app.raw_lines[line]) for line in (answered, shown)]
        return logged[1] - logged[0]

    def answer(self):
        """Shows one answer."""
        mark = self.app.mark()
        self.app.hotkey("ctrl+alt+super+c", "Capture")
        self.app.wait_for_line("[OverlayWindowController] Stream complete, buffer cleared",
                               since=mark)
        time.sleep(SETTLE_TIME)

    def memory(self):
        """Returns memory_of() of all processes, starting with the app's own."""
        own = self.app.process.pid
        found = [memory_of(pid) for pid in [own, *processes.descendants(own)]]
        return [entry for entry in found if entry]


def show(what, value, unit, goal):
    """Prints one value and its goal."""
    print(f"{what:<52} {value:>7.1f} {unit:<4} goal {goal}", flush=True)


def show_wake_ups(what, rates, goal):
    """Prints the total rate and the rate of each thread."""
    show(what, sum(rates.values()), "/s", goal)
    for name, rate in rates.items():
        print(f"    {name:<24} {rate:6.1f} /s", flush=True)


def show_memory(what, sizes, goal):
    """Prints the total and each process."""
    show(f"{what}: PSS of all processes", sum(pss for _, pss, _ in sizes), "MiB", goal)
    show("    of which the engine's processes", sum(pss for _, pss, _ in sizes[1:]), "MiB", "-")
    for name, pss, private in sizes:
        print(f"    {name:<24} {pss:6.1f} MiB, private {private:6.1f} MiB", flush=True)


def measure(desktop, server, paints):
    """Measures one run from process start to an idle answer."""
    run = Run(desktop, server, paints)
    try:
        first, longest, median = run.type_into_login()
        show("process start to the login form's first picture", first, "ms", "-")
        show("login: longest key press to picture", longest, "ms", "50")
        show("login: median key press to picture", median, "ms", "-")
        own = run.app.process.pid
        show_wake_ups("login, blinking caret: wake-ups, own process", wake_ups(own, BLINK_TIME),
                      "-")
        time.sleep(SETTLE_TIME)
        show_wake_ups("login at rest: wake-ups, own process", wake_ups(own), "3")
        show_memory("login at rest", run.memory(), "-")
        show("sign-in answer to panel shown (log)", run.sign_in(), "ms", "120")
        run.answer()
        show_wake_ups("answer at rest: wake-ups, own process", wake_ups(own), "0")
        show_memory("answer at rest", run.memory(), "235")
    finally:
        run.app.close()


def main():
    """Parses the options and runs the measurements."""
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--runs", type=int, default=1, help="how often to measure")
    options = parser.parse_args()
    desktop = Desktop()
    # A black screen counts as protected content.
    desktop.fill_root((90, 120, 150))
    server = HostileServer()
    server.on(QUERY, HostileServer.answer_with(ANSWER))
    try:
        paints = PaintRecorder(desktop)
        for _ in range(options.runs):
            print(f"load {os.getloadavg()[0]:.1f}", flush=True)
            measure(desktop, server, paints)
    finally:
        server.close()
        desktop.close()


if __name__ == "__main__":
    main()
