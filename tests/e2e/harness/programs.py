"""Another program of the desktop, in which the user works: a client that reports its input."""

import subprocess
import threading

from . import processes
from .waiting import PATIENCE
from .wayland_desktop import TOOLS

#: Colours of the four quarters of its window: top left, top right, bottom left, bottom right.
QUARTERS = ((200, 60, 60), (60, 180, 75), (66, 99, 216), (240, 200, 60))


class OtherProgram:
    """The test program `other_program`: fills the screen, has the focus, reports its input.

    Events are the lines it writes: "key k", "click 10 20", "wheel -120", "active 1". The PNG
    `dragged_picture` is dragged from its window: "drag", then "dropped 1" if somebody took it.
    """

    def __init__(self, desktop, full_screen=False, dragged_picture=None):
        self._events = []
        self._changed = threading.Condition()
        environment = desktop.environment | {
            "QT_QPA_PLATFORM": "wayland" if "WAYLAND_DISPLAY" in desktop.environment else "xcb",
        }
        if full_screen:
            environment["QUELLORA_OTHER_FULL_SCREEN"] = "1"
        if dragged_picture:
            environment["QUELLORA_OTHER_DRAGS"] = str(dragged_picture)
        self.process = processes.spawn(
            [str(TOOLS / "other_program")], env=environment, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, text=True)
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        self.wait_for("window ")
        self.wait_for("active 1")
        desktop.wait_settled()

    def _read(self):
        for line in self.process.stdout:
            with self._changed:
                self._events.append(line.strip())
                self._changed.notify_all()

    def mark(self):
        """Current end of the recording, for `since`."""
        with self._changed:
            return len(self._events)

    def events(self, kind="", since=0):
        """The events recorded so far that start with a word."""
        with self._changed:
            return [event for event in self._events[since:] if event.startswith(kind)]

    def wait_for(self, start, since=0, timeout=PATIENCE):
        """Waits for an event that starts like this; returns it."""
        def find():
            return next((event for event in self._events[since:] if event.startswith(start)), None)
        with self._changed:
            if not self._changed.wait_for(find, timeout):
                raise AssertionError(f"{start!r} did not reach the other program; "
                                     f"it saw {self._events[since:]}")
            return find()

    def close(self):
        """Ends the program. Idempotent."""
        if not self.process.stdin.closed:
            self.process.stdin.close()
            processes.stop(self.process)
            self._reader.join(PATIENCE)
