"""The renderers: in software without OpenGL on a machine without graphics, and OpenGL when chosen."""

import pathlib
import unittest

from harness import E2ECase, HostileServer, wait_until
from harness.server import QUERY

OPENGL_DRIVER = ("libGLX_mesa", "libLLVM")


class RenderingTest(E2ECase):
    def show_answer(self, environment=None):
        """Signs in, asks and waits for the answer in the page."""
        server = self.server()
        server.on(QUERY, HostileServer.answer_with("An **answer** to read."))
        self.desktop.fill_root((90, 120, 150))
        app = self.app(server, environment=environment).sign_in()
        mark = app.mark()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line("[OverlayWindowController] Stream complete, buffer cleared", since=mark)
        app.access.wait_for("answer")
        app.focus_prompt()
        self.desktop.type_text("next")
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "next", what="the typed text")
        return app

    def loaded(self, app):
        """The libraries of the OpenGL driver in the program's address space."""
        maps = pathlib.Path(f"/proc/{app.process.pid}/maps").read_text(encoding="utf-8")
        return [name for name in OPENGL_DRIVER if name in maps]

    @unittest.skipIf(pathlib.Path("/dev/dri").exists(), "the machine has a graphics processor")
    def test_software_without_graphics_processor(self):
        app = self.show_answer()
        self.assertEqual(self.loaded(app), [])

    def test_environment_selects_opengl(self):
        app = self.show_answer({"QT_QUICK_BACKEND": "rhi"})
        self.assertIn("libGLX_mesa", self.loaded(app))


if __name__ == "__main__":
    unittest.main()
