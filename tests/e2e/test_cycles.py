"""Repeated sign-in and sign-out: no leaks, everything still works."""

import os
import threading
import unittest

from harness import E2ECase, HostileServer, wait_until
from harness.messages import PREFIX, RUNNING, STREAM_COMPLETE
from harness.server import QUERY
from harness.tray import TrayHost

EXPIRED = "[AppDelegate] sessionExpired received — tearing down overlay, showing login window"
CYCLES = 15
#: The first rounds fill permanent caches.
WARM_UP = 5


class CyclesTest(E2ECase):
    def setUp(self):
        # Captures of a black screen are rejected.
        self.desktop.fill_root((90, 120, 160))
        self.tray = TrayHost(self.desktop)
        self.addCleanup(self.tray.close)

    def windows(self):
        """Number of windows on the X server, in any state."""
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

    def test_cycles_leak_nothing(self):
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
        app.wait_for_line(STREAM_COMPLETE)
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_hidden()

    def test_sign_out_ends_a_running_answer_at_once(self):
        left = threading.Event()
        server = self.server()

        server.on(QUERY, HostileServer.unfinished(left, "never ends"))
        app = self.app(server).sign_in()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(PREFIX + "First chunk received, hiding loading dots")
        self.sign_out(app)
        self.assertTrue(left.wait(5))
        # The partial answer is stored, as after Stop.
        wait_until(lambda: [response for _, response in app.turns()] == ["never ends"],
                   what="the stored part")
        server.on(QUERY, HostileServer.answer_with("a new start"))
        self.sign_in(app)
        app.send_prompt("again")
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
