"""Base case of the tests that run on every kind of desktop."""

import base64
import os
import subprocess
import unittest

from harness import E2ECase, Image, case, desktops, isolation, processes, wait_until
from harness.app import BIN_DIR
from harness.programs import QUARTERS, OtherProgram
from harness.server import QUERY

#: Which desktop: "sway", "kwin", "gnome" or "x11".
KIND = os.environ.get("QUELLORA_TEST_DESKTOP", "sway")


class DesktopCase(E2ECase):
    """A private desktop of the chosen kind."""

    artifacts = case.ARTIFACTS / KIND

    @classmethod
    def setUpClass(cls):
        if E2ECase.desktop is not None:
            return
        if KIND != "x11":
            if os.getuid() == 0 and not isolation.is_readable(BIN_DIR):
                raise unittest.SkipTest(f"needs a build that every user can read, not {BIN_DIR}")
            isolation.enter(cls.artifacts)
        E2ECase.desktop = desktops.start(KIND, **cls.desktop_options)
        unittest.addModuleCleanup(cls._close_desktop)
        if KIND == "gnome":
            E2ECase.desktop.grant_pictures()

    def other(self, dragged_picture=None):
        """Another program that fills the screen and has the focus."""
        program = OtherProgram(self.desktop, full_screen=KIND in ("kwin", "gnome"),
                               dragged_picture=dragged_picture)
        self.addCleanup(program.close)
        return program

    def command(self, app, name):
        """A command for the running program, as a shortcut of the desktop runs it."""
        child = processes.spawn([str(app.bin_dir / "quellora"), name], env=app.environment,
                                cwd=app.work, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        output, _ = child.communicate(timeout=30)
        self.assertEqual(child.returncode, 0, output)

    def trigger_capture(self, app):
        """Capture & Send as a user of this desktop does it."""
        if KIND == "x11":
            app.hotkey("ctrl+alt+super+c", "Capture")
        elif KIND == "sway":
            self.desktop.command("bindsym --no-repeat Ctrl+Mod1+Mod4+c exec "
                                 f"'{app.bin_dir / 'quellora'}' capture")
            self.desktop.press("ctrl+alt+super+c")
        else:
            self.command(app, "capture")

    def captured(self, server, count=1):
        """The picture of the request with this number."""
        data = server.wait_for_request(QUERY, count).json()["imageBase64"]
        return Image.from_file_bytes(base64.b64decode(data, validate=True))

    def assert_shows_only_other(self, image):
        """The picture shows the other program on the whole screen, and nothing of the panel."""
        wrong = []
        for row in range(12, image.height - 8, 24):
            for column in range(12, image.width - 8, 24):
                if (abs(column - image.width // 2) < 8 or abs(row - image.height // 2) < 8
                        or (image.width - column < 60 and image.height - row < 60)):
                    continue  # the border of two quarters; the pointer
                quarter = QUARTERS[(column > image.width // 2) + 2 * (row > image.height // 2)]
                if not image.is_near(column, row, quarter, 14):
                    wrong.append((column, row, image.pixel(column, row)))
        self.assertEqual(wrong[:20], [], "something covers the other program")

    def is_panel_shown(self, app, picture=None):
        """Whether the panel covers the other program at its place, as seen on the screen."""
        picture = picture or self.desktop.screenshot()
        scale = self.desktop.scale
        _, x, y, width, height = app.panel()
        # The bottom panels are opaque enough to change every quarter's colour.
        column, row = int((x + width / 2) * scale), int((y + height - 40) * scale)
        return not any(picture.is_near(column, row, quarter, 14) for quarter in QUARTERS)

    def drag(self, start, end, steps=10):
        """Drags with the first button, without a pause after the press."""
        self.desktop.hold(*start)
        for step in range(1, steps + 1):
            self.desktop.move_pointer(*(round(a + (b - a) * step / steps)
                                        for a, b in zip(start, end)))
        self.desktop.release()

    def focus_other(self, app, other):
        """Clicks beside the panel and waits until the other program gets the keys."""
        mark = other.mark()
        _, x, y, width, _ = app.panel()
        self.desktop.click(x + width + 60, y + 100)
        other.wait_for("click", since=mark)
        self.wait_types_into(other)

    def wait_types_into(self, other):
        """Waits until the other program gets the keys. A desktop takes its time to hand them over."""
        def types():
            here = other.mark()
            self.desktop.press("k")
            try:
                other.wait_for("key k", since=here, timeout=2)
            except AssertionError:
                return False
            return True
        wait_until(types, what="the keyboard in the other program")
