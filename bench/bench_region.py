#!/usr/bin/python3
"""Measures how soon the frozen screen is shown after the key that captures a region.

Runs the real program on private X displays of several sizes, without assistive technology, above a
document that fills the screen. Prints each value with its goal; a missed goal is not a failure.
"""

import argparse
import pathlib
import re
import statistics
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests" / "e2e"))

# pylint: disable=wrong-import-position
from bench_desktop import PaintRecorder  # noqa: E402
from harness import App, Desktop, HostileServer, wait_until  # noqa: E402
from harness.app import DEFAULTS  # noqa: E402
from harness.windows import OtherWindow  # noqa: E402

#: Size of the screen, goal in ms.
CASES = (((1920, 1080), 50), ((2560, 1600), None), ((3840, 2160), None))
SHOWN = re.compile(r"^\[RegionCapture\] Region shown after (\d+) ms, the screens were frozen after (\d+)$")
GIVEN_UP = re.compile("nothing was chosen$")
#: Longer than the time in which a key is ignored after the last one.
PAUSE = 0.5


def measure(size, runs):
    """Returns the times in ms from the key to the paint, and those that the program logs."""
    width, height = size
    desktop = Desktop(width=width, height=height)
    server = HostileServer()
    app = App(desktop, server.url,
              defaults=DEFAULTS | {"hotkeyBindings": {"capture_region": "ctrl+alt+cmd+r"}},
              environment={"QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "0"})
    other = None
    seen, logged = [], []
    try:
        app.start()
        app.wait_for_line("[AppDelegate] Login window shown, overlay deferred until sign-in")
        desktop.wait_for_active("Quellora")
        time.sleep(1)
        app.fill_login()
        desktop.press("return")
        app.wait_overlay_shown()
        other = OtherWindow(desktop)
        recorder = PaintRecorder(desktop)
        for _ in range(runs):
            time.sleep(PAUSE)
            mark, pressed = app.mark(), time.monotonic()
            desktop.press("ctrl+alt+super+r")
            index = app.wait_for_line(SHOWN, since=mark)
            painted = wait_until(lambda: recorder.first_after(pressed, size),
                                 what="the paint of the whole screen")
            seen.append((painted - pressed) * 1000)
            logged.append(int(SHOWN.match(app.lines[index])[1]))
            desktop.press("escape")
            app.wait_for_line(GIVEN_UP, since=mark)
    finally:
        if other:
            other.close()
        app.close()
        server.close()
        desktop.close()
    return seen, logged


def main():
    """Runs all cases."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--runs", type=int, default=15, help="captures per screen")
    arguments = parser.parse_args()
    for size, goal in CASES:
        seen, logged = measure(size, arguments.runs)
        print(f"    {size[0]} x {size[1]}: key to the frozen screen "
              f"{statistics.median(seen):5.0f} ms, at most {max(seen):.0f}"
              + (f"; goal {goal}" if goal else "")
              + f" (in the program {statistics.median(logged):.0f})", flush=True)


if __name__ == "__main__":
    main()
