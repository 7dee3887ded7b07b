"""Pictures that are pasted or dropped on Wayland."""

import base64
import shutil
import subprocess
import unittest

from desktop_case import KIND, DesktopCase
from harness import Image, processes
from harness.server import QUERY
from test_attach import png

RED = (200, 40, 40)


class WaylandAttachTest(DesktopCase):
    def start(self):
        """The program and its server."""
        server = self.server()
        return self.app(server).sign_in(), server

    def picture(self, app, width, height):
        path = app.home / "picture.png"
        path.write_bytes(png(width, height, RED))
        return path

    def assert_sent(self, app, server, size):
        """The attached picture goes with the next question."""
        app.access.wait_for("Attached screenshot", "image")
        app.access.wait_for(f"{size[0]} × {size[1]} · goes with your next message")
        app.send_prompt("what is this?")
        data = server.wait_for_request(QUERY, 1).json()["imageBase64"]
        image = Image.from_file_bytes(base64.b64decode(data, validate=True))
        self.assertEqual((image.width, image.height), size)
        self.assertTrue(image.is_near(size[0] // 2, size[1] // 2, RED, 14))

    @unittest.skipIf(KIND == "x11", "the clipboard of X11 has tests of its own")
    @unittest.skipUnless(shutil.which("wl-copy"), "needs the Debian package wl-clipboard")
    def test_pasted_picture(self):
        app, server = self.start()
        self.other()
        path = self.picture(app, 400, 300)
        with path.open("rb") as content:
            copier = processes.spawn(["wl-copy", "--foreground", "--type", "image/png"],
                                     stdin=content, env=self.desktop.environment,
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(processes.stop, copier)
        app.focus_prompt()
        self.desktop.press("ctrl+v")
        self.assert_sent(app, server, (400, 300))

    def test_dropped_picture(self):
        app, server = self.start()
        other = self.other(dragged_picture=self.picture(app, 320, 200))
        _, x, y, width, height = app.panel()
        start = (x + width + 60, y + 100)
        target = (x + width // 2, y + height - 60)
        self.desktop.hold(*start)
        self.desktop.move_pointer(start[0] + 20, start[1] + 20)
        other.wait_for("drag")
        self.desktop.move_pointer(target[0] - 10, target[1])
        self.desktop.move_pointer(*target)
        app.access.wait_for("Drop to attach the picture")
        # Away again, and back.
        self.desktop.move_pointer(*start)
        app.access.wait_gone("Drop to attach the picture")
        self.desktop.move_pointer(target[0] - 10, target[1])
        self.desktop.move_pointer(*target)
        app.access.wait_for("Drop to attach the picture")
        self.desktop.release()
        other.wait_for("dropped 1")
        app.access.wait_gone("Drop to attach the picture")
        self.assert_sent(app, server, (320, 200))


if __name__ == "__main__":
    unittest.main()
