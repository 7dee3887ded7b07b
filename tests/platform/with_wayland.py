#!/usr/bin/python3
"""Runs a program on a private Wayland desktop, which ends with it.

Usage: with_wayland.py sway|kwin|gnome [--scale SCALE] PROGRAM [ARGUMENT...]

The program can act as the user of the desktop: the variable QUELLORA_TEST_DESKTOP_SOCKET names a
socket on which it sends one command per line and gets "ok", with the answer, or the problem:

    press COMBO         e.g. ctrl+alt+c
    click X Y           with the left button
    settle              waits until no window is being animated
    active              process id of the active window's program, 0 if there is none
    picture FILE        writes the whole screen as a PPM file
"""

import argparse
import os
import pathlib
import socket
import sys
import threading

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "e2e"))
# pylint: disable=wrong-import-position
from harness import isolation, processes  # noqa: E402


class Agent:
    """Carries out the program's commands, one at a time."""

    def __init__(self, desktop):
        self._desktop = desktop
        self.path = desktop.folder / "agent"
        self._listener = socket.socket(socket.AF_UNIX)
        self._listener.bind(str(self.path))
        self._listener.listen()
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            connection, _ = self._listener.accept()
            with connection, connection.makefile("rw", buffering=1) as lines:
                for line in lines:
                    lines.write(self._obey(*line.split()) + "\n")

    def _obey(self, command, *words):
        try:
            if command == "press":
                self._desktop.press(words[0])
            elif command == "active":
                return f"ok {self._desktop.active_process()}"
            elif command == "settle":
                self._desktop.wait_settled()
            elif command == "click":
                self._desktop.click(int(words[0]), int(words[1]))
            elif command == "picture":
                with open(words[0], "wb") as file:
                    file.write(self._desktop.screenshot().ppm())
            else:
                return f"unknown command {command}"
        except (AssertionError, OSError, ValueError) as error:
            return " ".join(str(error).split()) or repr(error)
        return "ok"


def main():
    """Starts the desktop, then the program; returns its exit status."""
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("desktop", choices=["sway", "kwin", "gnome"])
    parser.add_argument("--scale", type=float, default=1)
    parser.add_argument("program")
    parser.add_argument("arguments", nargs=argparse.REMAINDER)
    options = parser.parse_args()
    program = str(pathlib.Path(options.program).resolve())
    if os.getuid() == 0 and not isolation.is_readable(program):
        print(f"SKIP: an ordinary user cannot read {program}")
        return 77
    isolation.enter()
    from harness import desktops  # pylint: disable=import-outside-toplevel
    desktop = desktops.start(options.desktop, scale=options.scale)
    try:
        agent = Agent(desktop)
        environment = os.environ | desktop.environment | {
            "QUELLORA_TEST_DESKTOP_SOCKET": str(agent.path),
            "QUELLORA_TEST_DESKTOP": options.desktop, "NO_AT_BRIDGE": "1",
        }
        for name in {"DISPLAY", "QT_QPA_PLATFORM"} - desktop.environment.keys():
            environment.pop(name, None)
        return processes.spawn([program, *options.arguments], env=environment,
                               cwd=desktop.folder).wait()
    finally:
        desktop.close()


if __name__ == "__main__":
    sys.exit(main())
