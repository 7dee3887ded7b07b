"""The captured area with several monitors, and screens of the maximum size."""

import subprocess
import unittest

from Xlib import X

from picture import capture
from screen import Screen

LEFT, RIGHT, GAP = 0xc81e1e, 0x1ec832, 0x2828dc


class SeveralMonitorsTest(unittest.TestCase):
    """Two monitors of different height on one display."""

    @classmethod
    def setUpClass(cls):
        cls.screen = Screen(size="1000x500x24")
        cls.addClassCleanup(cls.screen.close)

    def setUp(self):
        root = self.screen.root
        pixmap = root.create_pixmap(1000, 500, self.screen.screen.root_depth)
        for colour, rect in ((GAP, (0, 0, 1000, 500)), (LEFT, (0, 0, 600, 500)),
                             (RIGHT, (600, 100, 400, 300))):
            pixmap.fill_rectangle(pixmap.create_gc(foreground=colour), *rect)
        self.screen.publish_background(pixmap)
        self.set_monitors(("left", "600/300x500/200+0+0", "screen"),
                          ("right", "400/300x300/200+600+100", "none"))

    def set_monitors(self, *monitors):
        for name in ("left", "right"):
            self.xrandr("--delmonitor", name, check=False)
        for monitor in monitors:
            self.xrandr("--setmonitor", *monitor)

    def xrandr(self, *arguments, check=True):
        subprocess.run(["xrandr", *arguments], env=self.screen.environment, check=check,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def assert_shows(self, pointer, size, colours, *options):
        self.screen.place_pointer(*pointer)
        picture = capture(self.screen, *options)
        self.assertEqual((picture.width, picture.height), size)
        self.assertEqual(set(picture.colours((0, 0, *size))), colours)

    def test_captures_screen_with_pointer(self):
        self.assert_shows((0, 0), (600, 500), {LEFT})
        self.assert_shows((599, 499), (600, 500), {LEFT})
        self.assert_shows((600, 100), (400, 300), {RIGHT})
        self.assert_shows((999, 399), (400, 300), {RIGHT})

    def test_captures_nearest_screen_if_pointer_is_on_none(self):
        self.assert_shows((990, 5), (400, 300), {RIGHT})
        self.assert_shows((605, 5), (600, 500), {LEFT})

    def test_all_screens(self):
        self.assert_shows((990, 250), (1000, 500), {LEFT, RIGHT, 0}, "--all")

    def test_removed_monitor(self):
        self.xrandr("--delmonitor", "right")
        # Areas outside all monitors are not captured, wherever the pointer is.
        self.assert_shows((990, 250), (600, 500), {LEFT})
        self.assert_shows((990, 250), (600, 500), {LEFT}, "--all")

    def test_excluded_windows(self):
        excluded = self.screen.window((500, 150, 300, 100), 0xff00ff, excluded=True)
        self.addCleanup(self.screen.destroy_all, [excluded])
        self.assert_shows((10, 10), (600, 500), {LEFT})
        self.assert_shows((700, 150), (400, 300), {RIGHT})
        self.assert_shows((700, 150), (1000, 500), {LEFT, RIGHT, 0}, "--all")


class LargestScreensTest(unittest.TestCase):
    def check(self, width, height):
        screen = Screen(size=f"{width}x{height}x24")
        try:
            root = screen.root
            root.fill_rectangle(
                root.create_gc(foreground=LEFT, subwindow_mode=X.IncludeInferiors),
                0, 0, width, height)
            corner = root.create_gc(foreground=RIGHT, subwindow_mode=X.IncludeInferiors)
            root.fill_rectangle(corner, width - 100, height - 80, 100, 80)
            screen.display.sync()
            picture = capture(screen)
            self.assertEqual((picture.width, picture.height), (width, height))
            self.assertEqual(set(picture.colours((width - 100, height - 80, 100, 80))), {RIGHT})
            self.assertEqual(set(picture.colours((width - 300, height - 80, 200, 80))), {LEFT})
            self.assertEqual(set(picture.colours((0, 0, 200, 80))), {LEFT})
        finally:
            screen.close()

    def test_wide(self):
        self.check(32767, 1080)

    def test_tall(self):
        self.check(1080, 32767)


if __name__ == "__main__":
    unittest.main()
