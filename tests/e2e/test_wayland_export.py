"""Exporting and copying on Wayland: the file dialog, and other programs' view of the clipboard."""

import shutil
import subprocess
import unittest

from desktop_case import KIND, DesktopCase
from harness import wait_until
from harness.messages import PREFIX


class WaylandExportTest(DesktopCase):
    def pasted(self, kind):
        """What another program gets from the clipboard."""
        done = subprocess.run(["wl-paste", "--no-newline", "--type", kind], check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=20,
                              env=self.desktop.environment)
        return done.stdout.decode()

    def choose(self, app, row):
        app.access.press("Menu")
        app.access.press("Export or copy thread")
        app.access.press(row)

    def test_panel_makes_room_for_the_dialog(self):
        app = self.app(self.server()).sign_in()
        other = self.other()
        app.send_prompt("What is it?")
        app.access.wait_for("Copy answer", enabled=True)
        self.choose(app, "Export as Markdown…")
        self.desktop.wait_for_active("Export as Markdown")
        app.wait_for_line(PREFIX + "Window hidden")
        target = app.home / "it.md"
        self.desktop.press("ctrl+a")
        self.desktop.type_text(f"{target}\n")
        app.wait_for_line(PREFIX + "Thread exported as Markdown")
        wait_until(lambda: self.is_panel_shown(app), what="the panel after the dialog")
        self.assertIn("> What is it?", target.read_text())
        self.focus_other(app, other)

    @unittest.skipIf(KIND == "x11", "the clipboard of X11 has tests of its own")
    @unittest.skipUnless(shutil.which("wl-paste"), "needs the Debian package wl-clipboard")
    def test_other_programs_can_paste(self):
        app = self.app(self.server()).sign_in()
        self.other()
        app.send_prompt("What is it?")
        app.access.wait_for("Copy answer", enabled=True)
        self.choose(app, "Copy as Markdown")
        app.access.wait_for("Thread copied as Markdown")
        wait_until(lambda: "> What is it?" in self.pasted("text/plain;charset=utf-8"),
                   what="the thread in the clipboard")
        self.choose(app, "Copy as rich text")
        app.access.wait_for("Thread copied as rich text", timeout=60)
        wait_until(lambda: "<b>Question</b>" in self.pasted("text/html"),
                   what="the rich text in the clipboard")
        self.assertIn("> What is it?", self.pasted("text/plain;charset=utf-8"))


if __name__ == "__main__":
    unittest.main()
