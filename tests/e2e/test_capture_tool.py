"""Failures of the capture tool, with a stub in place of the tool."""

import os
import pathlib
import re
import shutil
import tempfile
import unittest

from harness import App, E2ECase, HostileServer, wait_until
from harness.messages import STREAM_COMPLETE
from harness.app import BIN_DIR
from harness.image import png
from harness.server import QUERY

FAILED = "[OverlayWindowController] ERROR: Screenshot capture failed: "


class CaptureToolTest(E2ECase):
    """One program with a tool stub that runs the script "behaviour"."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.bin_dir = pathlib.Path(tempfile.mkdtemp(prefix="bin-"))
        cls.addClassCleanup(shutil.rmtree, cls.bin_dir, ignore_errors=True)
        try:
            os.link(BIN_DIR / "quellora", cls.bin_dir / "quellora")
        except OSError:
            shutil.copy2(BIN_DIR / "quellora", cls.bin_dir / "quellora")
        cls.tool = cls.bin_dir / "quellora-screencapture"
        cls.tool.write_text('#!/bin/sh\nhere=$(dirname "$0")\n'
                            'printf "%s\\n" "$@" > "$here/arguments"\n. "$here/behaviour"\n')
        cls.tool.chmod(0o755)
        cls.shared_server = HostileServer()
        cls.addClassCleanup(cls.shared_server.close)
        cls.shared_app = App(cls.desktop, cls.shared_server.url, bin_dir=cls.bin_dir)
        cls.addClassCleanup(cls.shared_app.close)
        cls.shared_app.start().sign_in()

    def setUp(self):
        self.apps = [self.shared_app]
        self.addCleanup(self._keep_evidence)
        self.queries_before = len(self.shared_server.requests(QUERY))

    def behave(self, script):
        (self.bin_dir / "behaviour").write_text(script + "\n")

    def capture(self):
        mark = self.shared_app.mark()
        self.shared_app.access.press("Capture and send")
        self.shared_app.wait_for_line("[OverlayWindowController] Capture & Send triggered",
                                      since=mark)
        return mark

    def assert_failed(self, mark, description, in_page=True):
        app = self.shared_app
        index = app.wait_for_line(re.compile("^" + re.escape(FAILED)), since=mark)
        text = app.lines[index][len(FAILED):]
        if isinstance(description, str):
            self.assertEqual(text, description)
        else:
            self.assertRegex(text, description)
        app.wait_for_line("[OverlayWindowController] Window shown", since=mark)
        if in_page:
            page = app.access.wait_for_page_text(text)
            self.assertIn("Capture Error:", page)
        self.assertEqual([name for name in app.temporary_files() if "vantiro" in name], [])
        self.assertEqual(len(self.shared_server.requests(QUERY)), self.queries_before)

    def test_exit_status(self):
        self.behave("exit 1")
        self.assert_failed(self.capture(), "screencapture exited with status 1")
        arguments = (self.bin_dir / "arguments").read_text().splitlines()
        self.assertEqual(arguments[:2], ["-x", "-C"])
        self.assertEqual(len(arguments), 3)
        path = pathlib.Path(arguments[2])
        self.assertEqual(path.parent, self.shared_app.temporary)
        self.assertRegex(path.name, r"^vantiro_capture_[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-"
                                    r"[0-9A-F]{4}-[0-9A-F]{12}\.png$")

    def test_failure_after_writing_leaves_no_file(self):
        self.behave('echo half > "$3"; exit 3')
        self.assert_failed(self.capture(), "screencapture exited with status 3")

    def test_no_file(self):
        self.behave("exit 0")
        self.assert_failed(self.capture(), re.compile(r"^(?!Could not decode|screencapture ).+"),
                           in_page=False)

    def test_garbage_file(self):
        self.behave('echo "this is no picture" > "$3"')
        self.assert_failed(self.capture(), "Could not decode captured screenshot")

    def test_empty_file(self):
        self.behave(': > "$3"')
        self.assert_failed(self.capture(), "Could not decode captured screenshot")

    def test_truncated_picture(self):
        whole = png(400, 300, (200, 100, 50))
        (self.bin_dir / "half.png").write_bytes(whole[:len(whole) // 2])
        self.behave('cp "$here/half.png" "$3"')
        self.assert_failed(self.capture(), "Could not decode captured screenshot")

    def test_missing_tool(self):
        hidden = self.bin_dir / "hidden"
        self.tool.rename(hidden)
        try:
            self.assert_failed(self.capture(),
                               re.compile(r"^Could not launch screencapture: .+"), in_page=False)
        finally:
            hidden.rename(self.tool)

    def test_tool_picture_is_scaled_and_removed(self):
        (self.bin_dir / "ready.png").write_bytes(png(3024, 1964, (200, 100, 50)))
        self.behave('cp "$here/ready.png" "$3"')
        mark = self.capture()
        self.shared_app.wait_for_line(re.compile(r"JPEG \(1280x831\)$"), since=mark)
        self.shared_server.wait_for_request(QUERY, self.queries_before + 1)
        self.shared_app.wait_for_line(STREAM_COMPLETE, since=mark)
        wait_until(lambda: not [name for name in self.shared_app.temporary_files()
                                if "vantiro_capture" in name], what="the file to be removed")

    def test_stop_ends_a_hanging_tool(self):
        self.behave('echo half > "$3"; echo $$ > "$here/pid"; exec sleep 1000')
        app = self.shared_app
        mark = self.capture()
        wait_until(lambda: (self.bin_dir / "pid").exists()
                   and (self.bin_dir / "pid").read_text().endswith("\n"), what="the tool")
        process = pathlib.Path("/proc") / (self.bin_dir / "pid").read_text().strip()
        self.assertTrue(process.exists())
        app.access.wait_for("Capturing screen…")
        app.access.click("Stop")
        app.wait_for_line("[OverlayWindowController] Capture given up by the user", since=mark)
        app.access.wait_for("Stopped")
        app.access.wait_gone("Stop")
        wait_until(lambda: not process.exists() or "Z" in (process / "stat").read_text().split()[2],
                   what="the end of the tool")
        wait_until(lambda: not [name for name in app.temporary_files()
                                if "vantiro_capture" in name], what="the file to be removed")
        # The next capture works and contains nothing of the first.
        (self.bin_dir / "small.png").write_bytes(png(320, 200, (200, 100, 50)))
        self.behave('cp "$here/small.png" "$3"')
        app.access.wait_for("Capture and send", enabled=True)
        mark = self.capture()
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        self.assertEqual(len(self.shared_server.requests(QUERY)), self.queries_before + 1)

    def test_keyboard_stop_ends_a_hanging_tool(self):
        self.behave('exec sleep 1000')
        app = self.shared_app
        mark = self.capture()
        app.access.wait_for("Capturing screen…")
        app.focus_prompt()
        self.desktop.press("super+.")
        app.wait_for_line("[OverlayWindowController] Capture given up by the user", since=mark)

    def test_a_slow_tool_does_not_block_the_program(self):
        release = self.bin_dir / "release"
        os.mkfifo(release)
        (self.bin_dir / "small.png").write_bytes(png(320, 200, (200, 100, 50)))
        self.behave('read line < "$here/release"; cp "$here/small.png" "$3"')
        app = self.shared_app
        mark = self.capture()
        self.desktop.press("ctrl+alt+super+[")
        app.wait_for_line(re.compile(r"^\[OverlayWindowController\] Opacity adjusted by -0\.1"),
                          since=mark)
        self.desktop.press("ctrl+alt+super+t")
        app.wait_for_line("[OverlayWindowController] Window hidden", since=mark)
        with open(release, "w", encoding="ascii") as gate:
            gate.write("go\n")
        app.wait_for_line(re.compile(r"JPEG \(320x200\)$"), since=mark)
        # The answer shows the hidden panel again.
        app.wait_for_line("[OverlayWindowController] Window shown", since=mark)
        app.wait_overlay_shown()
        app.wait_for_line(STREAM_COMPLETE, since=mark)


if __name__ == "__main__":
    unittest.main()
