"""A region and the window in front on a Wayland desktop, with real keys and mouse.

`scripts/test-desktops` runs it on KWin, GNOME and X11 as well.
"""

import re
import unittest

from desktop_case import KIND, DesktopCase
from harness import wait_until
from harness.programs import QUARTERS
from harness.server import QUERY

SHOWN = re.compile(r"^\[RegionCapture\] Region shown after \d+ ms, ")
PICKER = re.compile(r"^(Choose a region|Region \d+ by )")
RED = QUARTERS[0]


class WaylandRegionTest(DesktopCase):
    def start(self):
        server = self.server()
        app = self.app(server).sign_in()
        other = self.other()
        self.desktop.move_pointer(self.desktop.width - 8, self.desktop.height - 8)
        wait_until(lambda: self.is_panel_shown(app), what="the panel above the other program")
        return server, app, other

    def open_picker(self, app, command="capture-region"):
        mark = app.mark()
        self.command(app, command)
        app.wait_for_line(SHOWN, since=mark)
        # It is shown before it has the keyboard, which the desktop gives it.
        app.access.wait_for(PICKER, focused=True)

    def test_region_drawn_and_adjusted(self):
        server, app, other = self.start()
        _, x, y, width, height = app.panel()
        mark = other.mark()
        self.open_picker(app)
        scale = self.desktop.scale
        middle = (int((x + width / 2) * scale), int((y + height - 40) * scale))
        across = middle[0] > self.desktop.width * scale / 2
        down = middle[1] > self.desktop.height * scale / 2
        half = tuple(value // 2 for value in QUARTERS[across + 2 * down])
        self.desktop.wait_for_picture(lambda now: now.is_near(*middle, half, 20),
                                      "the frozen screen without the panel")
        self.drag((100, 100), (299, 199))
        part = app.access.wait_for(re.compile("^Region "))
        self.assertIsNotNone(part)
        self.desktop.press("right")
        self.desktop.press("shift+down")
        size = (round(199 * scale) + 1, round(99 * scale) + 2)
        self.desktop.press("return")
        image = self.captured(server)
        self.assertLessEqual(abs(image.width - size[0]), 1)
        self.assertLessEqual(abs(image.height - size[1]), 1)
        self.assertTrue(image.is_near(image.width // 2, image.height // 2, RED, 16))
        app.access.wait_gone(PICKER)
        self.wait_types_into(other)
        self.assertEqual(other.events("click", since=mark), [])
        wait_until(lambda: self.is_panel_shown(app), what="the panel after the choice")
        # The same region again, without a choice.
        here = app.mark()
        self.command(app, "capture-last-region")
        again = self.captured(server, 2)
        self.assertEqual((again.width, again.height), (image.width, image.height))
        self.assertFalse([line for line in app.lines_since(here) if SHOWN.match(line)])

    def test_escape_returns_the_keyboard(self):
        server, app, other = self.start()
        self.open_picker(app)
        self.desktop.press("escape")
        app.access.wait_gone(PICKER)
        self.wait_types_into(other)
        self.assertEqual(server.requests(QUERY), [])

    def test_window_in_front(self):
        server, app, _ = self.start()
        self.command(app, "capture-window")
        if KIND == "gnome":
            app.access.wait_for_page_text("takes no pictures of single windows")
            self.assertEqual(server.requests(QUERY), [])
            return
        # The other program fills the screen.
        self.assert_shows_only_other(self.captured(server))


if __name__ == "__main__":
    unittest.main()
