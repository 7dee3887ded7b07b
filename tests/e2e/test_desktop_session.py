"""The desktop's session: a locked one is not captured; after sleep the configuration is read."""

import os
import pathlib
import shutil
import tempfile
import unittest

from harness import E2ECase, wait_until
from harness.app import BIN_DIR
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY, VERIFY
from harness.services import DesktopServices

LOCKED = "[DesktopSession] Session locked"
UNLOCKED = "[DesktopSession] Session unlocked"


class DesktopSessionTest(E2ECase):
    def setUp(self):
        self.services = DesktopServices(self.desktop)
        self.addCleanup(self.services.close)
        self.backend = self.server()

    def signed_in(self, **options):
        app = self.app(self.backend, **options).sign_in()
        self.services.wait_watched()
        return app

    def assert_captured(self, app):
        mark, count = app.mark(), len(self.backend.requests(QUERY))
        app.hotkey("ctrl+alt+super+c", "Capture")
        self.assertIn("imageBase64", self.backend.wait_for_request(QUERY, count + 1).json())
        app.wait_for_line(STREAM_COMPLETE, since=mark)

    def test_locked_session_is_not_captured(self):
        self.desktop.fill_root((90, 120, 150))
        app = self.signed_in()
        ways = ((self.services.lock, self.services.unlock),
                (lambda: self.services.set_locked_hint(True),
                 lambda: self.services.set_locked_hint(False)),
                (lambda: self.services.set_locker_active(True),
                 lambda: self.services.set_locker_active(False)))
        for count, (lock, unlock) in enumerate(ways, 1):
            mark = app.mark()
            lock()
            app.wait_for_line(LOCKED, since=mark)
            app.hotkey("ctrl+alt+super+c", "Capture")
            app.wait_for_line(PREFIX + "Capture & Send ignored — the session is locked",
                              since=mark)
            app.hotkey("ctrl+alt+super+shift+c", "Capture (No Send)")
            app.wait_for_line(PREFIX + "Capture (no send) ignored — the session is locked",
                              since=mark)
            app.access.press("Capture and send")
            wait_until(lambda since=mark: app.lines_since(since).count(
                PREFIX + "Capture & Send ignored — the session is locked") == 2,
                       what="the button's log line")
            unlock()
            app.wait_for_line(UNLOCKED, since=mark)
            self.assertFalse([line for line in app.lines_since(mark)
                              if line.startswith("[ScreenshotCapture]")])
            self.assert_captured(app)
            self.assertEqual(len(self.backend.requests(QUERY)), count)

    def test_capture_under_way_is_discarded(self):
        folder = pathlib.Path(tempfile.mkdtemp(prefix="bin-"))
        self.addCleanup(shutil.rmtree, folder, ignore_errors=True)
        try:
            os.link(BIN_DIR / "quellora", folder / "quellora")
        except OSError:
            shutil.copy2(BIN_DIR / "quellora", folder / "quellora")
        tool = folder / "quellora-screencapture"
        tool.write_text('#!/bin/sh\necho $$ > "$(dirname "$0")/started"\nexec sleep 1000\n')
        tool.chmod(0o755)
        app = self.signed_in(bin_dir=folder)
        app.hotkey("ctrl+alt+super+c", "Capture")
        wait_until(lambda: (folder / "started").exists() and (folder / "started").read_text(),
                   what="the capture")
        number = int((folder / "started").read_text())
        self.services.lock()
        app.wait_for_line(PREFIX + "Capture discarded — the session was locked")
        wait_until(lambda: not pathlib.Path(f"/proc/{number}").exists(),
                   what="the end of the capture tool")
        wait_until(lambda: not [name for name in app.temporary_files() if "vantiro" in name],
                   what="the removal of the temporary file")
        self.services.unlock()
        app.wait_for_line(UNLOCKED)
        self.assertEqual(self.backend.requests(QUERY), [])

    def test_configuration_is_read_after_sleep(self):
        app = self.signed_in()
        self.assertEqual(self.backend.requests(VERIFY), [])
        mark = app.mark()
        self.services.sleep()
        self.services.wake_up()
        app.wait_for_line("[HeartbeatService] Woken up — polling now", since=mark)
        app.wait_for_line("[HeartbeatService] Poll succeeded, config refreshed", since=mark)
        self.assertEqual(len(self.backend.requests(VERIFY)), 1)


if __name__ == "__main__":
    unittest.main()
