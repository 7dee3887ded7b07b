"""The mouse cursor: captured with -C only, positioned by its hot spot, also above reconstructed
areas."""

import unittest

from Xlib import X

from picture import capture
from screen import ROOT_COLOUR, Screen

RED, EXCLUDED, CURSOR = 0xc81e1e, 0xff00ff, 0x00ff80


class CursorTest(unittest.TestCase):
    def setUp(self):
        self.screen = Screen()
        self.addCleanup(self.screen.close)
        self.screen.fill_root()
        self.screen.window((100, 80, 300, 250), RED)

    def show_cursor(self, x, y):
        """Sets the root window's cursor to an 8×8 block with its hot spot at (2, 3)."""
        root = self.screen.root
        block = root.create_pixmap(8, 8, 1)
        block.fill_rectangle(block.create_gc(foreground=1), 0, 0, 8, 8)
        colour = (CURSOR >> 16 << 8, (CURSOR >> 8 & 0xff) * 257, (CURSOR & 0xff) * 257)
        cursor = block.create_cursor(block, colour, colour, 2, 3)
        root.change_attributes(cursor=cursor)
        self.screen.place_pointer(x, y)

    def test_captured_only_with_option(self):
        self.show_cursor(200, 150)
        without = capture(self.screen, "-x")
        picture = capture(self.screen, "-x", "-C")
        self.assertEqual(without.colours((0, 0, 640, 480)), {ROOT_COLOUR, RED})
        self.assertEqual(picture.differences(without), (198, 147, 8, 8))
        self.assertEqual(picture.colours((198, 147, 8, 8)), {CURSOR})

    def test_over_excluded_window(self):
        self.show_cursor(200, 150)
        before = capture(self.screen, "-C")
        self.screen.window((150, 120, 160, 120), EXCLUDED, excluded=True)
        self.assertIsNone(capture(self.screen, "-C").differences(before))

    def test_clipped_at_screen_edge(self):
        self.show_cursor(0, 0)
        picture = capture(self.screen, "-C")
        self.assertEqual(picture.differences(capture(self.screen)), (0, 0, 6, 5))
        self.screen.place_pointer(639, 479)
        picture = capture(self.screen, "-C")
        self.assertEqual(picture.differences(capture(self.screen)), (637, 476, 3, 4))

    def test_standard_cursor(self):
        self.screen.root.change_attributes(cursor=X.NONE)
        self.screen.place_pointer(450, 400)
        changed = capture(self.screen, "-C").differences(capture(self.screen))
        self.assertIsNotNone(changed)
        x, y, width, height = changed
        self.assertTrue(x <= 450 < x + width and y <= 400 < y + height, changed)


if __name__ == "__main__":
    unittest.main()
