"""Signing in and out again and again: nothing piles up, everything still works."""

import os
import threading
import unittest

from harness import E2ECase, HostileServer, chunk_event, wait_until
from harness.server import QUERY
from harness.tray import TrayHost

RUNNING = "[AppDelegate] Vantiro Overlay running (single-process, no pipeline.py dependency)."
EXPIRED = "[AppDelegate] sessionExpired received — tearing down overlay, showing login window"
PREFIX = "[OverlayWindowController] "
CYCLES = 15
#: The first rounds fill caches that stay.
WARM_UP = 5


class CyclesTest(E2ECase):
    def setUp(self):
        # Captures of a black screen would be refused.
        self.desktop.fill_root((90, 120, 160))
        self.tray = TrayHost(self.desktop)
        self.addCleanup(self.tray.close)

    def windows(self):
        """How many windows the X server has, whatever their state."""
        def count(window):
            return 1 + sum(count(child) for child in window.query_tree().children)
        return count(self.desktop.root)

    @staticmethod
    def open_files(app):
        folder = f"/proc/{app.process.pid}/fd"
        found = []
        for entry in os.listdir(folder):
            try:
                found.append(os.readlink(f"{folder}/{entry}").split(":")[0])
            except FileNotFoundError:
                continue
        return sorted(found)

    def sign_in(self, app):
        mark = app.mark()
        app.fill_login()
        self.desktop.press("return")
        app.wait_for_line(RUNNING, since=mark)
        app.wait_overlay_shown()

    def sign_out(self, app):
        mark = app.mark()
        self.tray.wait_item()
        self.tray.choose("Sign Out")
        app.wait_for_line(EXPIRED, since=mark)
        self.tray.wait_empty()
        self.desktop.wait_for_active("Quellora")
        app.access.wait_for("Email", focused=True)
        self.assertEqual(len(self.desktop.viewable_windows("Quellora")), 1)

    def test_cycles_leave_nothing_behind(self):
        app = self.app(self.server())
        app.wait_login_window()
        counts = []
        for _ in range(CYCLES):
            self.sign_in(app)
            self.sign_out(app)
            counts.append((len(self.open_files(app)), self.windows()))
        wait_until(lambda: len(self.open_files(app)) <= counts[WARM_UP][0], timeout=15,
                   what=f"{self.open_files(app)} to be as few as before: {counts}")
        self.assertLessEqual(self.windows(), counts[WARM_UP][1], counts)
        self.assertEqual(app.lines.count(PREFIX + "init complete"), CYCLES)
        self.assertEqual(sum("config.json" in line for line in app.lines), 1)
        self.assertEqual(sum("Registered Capture ->" in line for line in app.lines), 1)
        self.sign_in(app)
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(PREFIX + "Stream complete, buffer cleared")
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_hidden()

    def test_sign_out_ends_a_running_answer_at_once(self):
        left = threading.Event()
        server = self.server()

        def endless(connection, _request):
            connection.begin_stream()
            connection.send(chunk_event("never ends"))
            if connection.wait_closed():
                left.set()
        server.on(QUERY, endless)
        app = self.app(server).sign_in()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(PREFIX + "First chunk received, hiding loading dots")
        self.sign_out(app)
        self.assertTrue(left.wait(5))
        # What had arrived is kept, as Stop keeps it.
        wait_until(lambda: [response for _, response in app.turns()] == ["never ends"],
                   what="the kept part")
        server.on(QUERY, HostileServer.answer_with("a new start"))
        self.sign_in(app)
        app.access.click("Write a message")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("again\n")
        app.access.wait_for_page_text("a new start")
        self.assertNotIn("never ends", app.access.page_text())

    def test_sign_out_during_a_capture(self):
        app = self.app(self.server()).sign_in()
        self.tray.wait_item()
        mark = app.mark()
        self.desktop.press("ctrl+alt+super+c")
        app.wait_for_line("[OverlayWindowController] Capture & Send triggered", since=mark)
        self.tray.choose("Sign Out")
        app.wait_for_line(EXPIRED, since=mark)
        self.desktop.wait_for_active("Quellora")
        app.access.wait_for("Email", focused=True)
        self.sign_in(app)
        self.assertEqual([line for line in app.lines_since(mark) if "ERROR" in line], [])
        wait_until(lambda: not [name for name in app.temporary_files()
                                if name.startswith("vantiro_capture_")],
                   what="the capture's file to go")


if __name__ == "__main__":
    unittest.main()
