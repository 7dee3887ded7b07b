"""The picture's contents, pixel by pixel. The environment selects window manager and compositor, so
that every combination runs the same checks."""

import os
import time
import unittest

from Xlib import X

from picture import capture
from screen import ROOT_COLOUR, Painter, Screen, Watcher, wait_until

WITH_WINDOW_MANAGER = os.environ.get("CAPTURE_TEST_WM") == "1"
WITH_COMPOSITOR = os.environ.get("CAPTURE_TEST_COMPOSITOR") == "1"

RED, GREEN, BLUE, YELLOW, EXCLUDED = 0xc81e1e, 0x1ec832, 0x2828dc, 0xe6dc14, 0xff00ff


def over(backdrop, source, alpha):
    """Premultiplied source over an opaque backdrop, rounded as the Render extension does."""
    def scale(value, factor):
        product = value * factor + 128
        return (product + (product >> 8)) >> 8

    result = 0
    for shift in (16, 8, 0):
        value = (source >> shift & 0xff) + scale(backdrop >> shift & 0xff, 255 - alpha)
        result |= min(255, value) << shift
    return result


class ContentsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.screen = Screen(window_manager=WITH_WINDOW_MANAGER,
                            compositor=[] if WITH_COMPOSITOR else None)
        cls.addClassCleanup(cls.screen.close)
        cls.screen.place_pointer(639, 479)

    def setUp(self):
        self.windows = []
        self.addCleanup(lambda: self.screen.destroy_all(self.windows))
        self.screen.fill_root()
        wait_until(lambda: self.screen.shows_only(ROOT_COLOUR), "an empty desktop")

    def wait_for_colour(self, x, y, colour):
        wait_until(lambda: self.screen.pixel(x, y) == colour,
                   "%06x at %d,%d" % (colour, x, y))

    def window(self, rect, colour, **options):
        """Creates a window and waits until the screen shows it."""
        window = self.screen.window(rect, colour, **options)
        self.windows.append(window)
        if colour is not None and not options.get("managed"):
            x, y, width, height = rect
            border = options.get("border", 0)
            position = (max(0, x + border) + 1, max(0, y + border) + 1)
            if options.get("depth") != 32 and options.get("opacity") is None:
                self.wait_for_colour(*position, colour)
        return window

    def excluded_window(self, rect=(200, 150, 160, 120), **options):
        return self.window(rect, EXCLUDED, excluded=True, **options)

    def painter(self, *arguments, **options):
        painter = Painter(self.screen, *arguments, **options)
        self.addCleanup(painter.close)
        return painter

    def assert_uniform(self, picture, rect, colour):
        self.assertEqual({"%06x" % found for found in picture.colours(rect)}, {"%06x" % colour})

    def assert_same(self, before, after):
        self.assertIsNone(after.differences(before), "bounding box of differing pixels")

    def test_window_is_captured(self):
        self.window((100, 80, 120, 90), RED)
        picture = capture(self.screen)
        self.assertEqual((picture.width, picture.height), (640, 480))
        self.assert_uniform(picture, (100, 80, 120, 90), RED)
        for x, y in ((99, 80), (220, 80), (100, 79), (100, 170), (219, 170), (0, 0)):
            self.assertEqual(picture[x, y], ROOT_COLOUR, (x, y))

    def test_only_value_one_excludes(self):
        window = self.window((100, 80, 120, 90), RED, excluded=True)
        window.change_property(self.screen.atom("_QUELLORA_CAPTURE_EXCLUDE"), 6, 32, [0])
        self.screen.display.sync()
        self.assert_uniform(capture(self.screen), (100, 80, 120, 90), RED)

    def test_excluded_window_over_the_desktop(self):
        before = capture(self.screen)
        self.excluded_window()
        self.assert_same(before, capture(self.screen))

    def test_excluded_window_over_a_window_with_background(self):
        self.window((150, 100, 300, 250), RED)
        before = capture(self.screen)
        self.excluded_window()
        picture = capture(self.screen)
        self.assert_uniform(picture, (200, 150, 160, 120), RED)
        self.assert_same(before, picture)

    def test_excluded_window_over_a_window_that_draws_on_expose(self):
        for background in (None, BLUE):
            with self.subTest(background=background):
                self.painter((150, 100, 300, 250), YELLOW, background=background)
                self.wait_for_colour(300, 200, YELLOW)
                before = capture(self.screen)
                self.excluded_window()
                self.assert_same(before, capture(self.screen))
                self.doCleanups()
                self.setUp()

    def test_waits_for_slow_program(self):
        self.painter((150, 100, 300, 250), YELLOW, background=BLUE, delay=0.04)
        self.wait_for_colour(300, 200, YELLOW)
        before = capture(self.screen)
        self.excluded_window()
        self.assert_same(before, capture(self.screen))

    def test_hung_program_below_excluded_window(self):
        window = self.window((150, 100, 300, 250), None)
        window.change_attributes(event_mask=X.ExposureMask)  # but it never draws
        self.screen.display.sync()
        self.excluded_window()
        start = time.monotonic()
        picture = capture(self.screen)
        self.assertLess(time.monotonic() - start, 10)
        self.assertNotIn(EXCLUDED, picture.colours((0, 0, 640, 480)))

    def test_children_below_excluded_window(self):
        parent = self.window((150, 100, 300, 250), RED)
        self.screen.window((20, 30, 100, 100), BLUE, parent=parent, border=5, border_colour=GREEN)
        self.screen.window((90, 60, 150, 150), YELLOW, parent=parent)
        self.wait_for_colour(300, 250, YELLOW)
        before = capture(self.screen)
        self.excluded_window()
        self.assert_same(before, capture(self.screen))

    def test_stacking_order(self):
        self.window((150, 100, 200, 200), RED)
        self.window((180, 130, 200, 200), BLUE)
        before = capture(self.screen)
        self.excluded_window((160, 110, 230, 180))
        self.window((250, 200, 60, 60), GREEN)  # above the excluded window, like a menu
        picture = capture(self.screen)
        self.assert_uniform(picture, (250, 200, 60, 60), GREEN)
        self.assertEqual(picture[160, 110], RED)
        self.assertEqual(picture[185, 135], BLUE)
        self.assertEqual(picture[385, 120], before[385, 120])
        self.assertNotIn(EXCLUDED, picture.colours((0, 0, 640, 480)))

    def test_excluded_window_fully_covered(self):
        self.excluded_window()
        self.window((190, 140, 200, 160), GREEN)
        picture = capture(self.screen)
        self.assert_uniform(picture, (190, 140, 200, 160), GREEN)
        self.assertNotIn(EXCLUDED, picture.colours((0, 0, 640, 480)))

    def test_several_excluded_windows(self):
        self.window((100, 100, 400, 300), RED)
        before = capture(self.screen)
        self.excluded_window((120, 120, 80, 80))
        self.excluded_window((180, 180, 90, 90))
        self.excluded_window((400, 300, 150, 150))
        self.assert_same(before, capture(self.screen))

    def test_unmapped_excluded_window(self):
        self.window((100, 100, 400, 300), RED)
        excluded = self.excluded_window()
        excluded.unmap()
        self.screen.display.sync()
        self.wait_for_colour(300, 200, RED)
        self.assert_uniform(capture(self.screen), (200, 150, 160, 120), RED)

    def test_argb_window(self):
        # half transparent green, premultiplied
        self.window((150, 100, 300, 250), 0x80008000, depth=32)
        expected = over(ROOT_COLOUR, 0x008000, 0x80) if WITH_COMPOSITOR else 0x008000
        self.wait_for_colour(300, 200, expected)
        before = capture(self.screen)
        self.excluded_window()
        picture = capture(self.screen)
        self.assert_uniform(picture, (200, 150, 160, 120), expected)
        self.assert_same(before, picture)

    def test_argb_excluded_window(self):
        self.window((150, 100, 300, 250), RED)
        before = capture(self.screen)
        self.window((200, 150, 160, 120), 0x40400040, depth=32, excluded=True)
        wait_until(lambda: self.screen.pixel(300, 200) != RED, "the translucent excluded window")
        self.assert_same(before, capture(self.screen))

    def test_opacity(self):
        window = self.window((150, 100, 300, 250), RED)
        self.screen.set_opacity(window, 0.5)
        if WITH_COMPOSITOR:
            wait_until(lambda: self.screen.pixel(300, 200) != RED, "the opacity")
        before = capture(self.screen)
        self.excluded_window()
        picture = capture(self.screen)
        self.assert_same(before, picture)
        for shift in (16, 8, 0):
            value = picture[300, 200] >> shift & 0xff
            red, root = RED >> shift & 0xff, ROOT_COLOUR >> shift & 0xff
            self.assertAlmostEqual(value, (red + root) / 2 if WITH_COMPOSITOR else red, delta=1.5)

    def test_shaped_window_below_excluded_window(self):
        window = self.window((150, 100, 300, 250), RED)
        self.screen.set_shape(window, [(0, 0, 100, 100), (120, 120, 150, 100)])
        self.wait_for_colour(260, 210, ROOT_COLOUR)
        before = capture(self.screen)
        self.excluded_window((170, 120, 240, 200))
        picture = capture(self.screen)
        self.assert_uniform(picture, (170, 120, 80, 80), RED)
        self.assert_uniform(picture, (252, 122, 15, 60), ROOT_COLOUR)
        self.assert_same(before, picture)

    def test_shaped_excluded_window(self):
        self.window((150, 100, 300, 250), RED)
        before = capture(self.screen)
        excluded = self.excluded_window()
        self.screen.set_shape(excluded, [(10 * i, 5 * i, 40, 12) for i in range(12)])
        self.wait_for_colour(355, 160, RED)
        self.assert_same(before, capture(self.screen))

    def test_borders(self):
        self.window((150, 100, 200, 150), RED, border=12, border_colour=YELLOW)
        before = capture(self.screen)
        self.assert_uniform(before, (150, 100, 12, 174), YELLOW)
        self.excluded_window((155, 105, 60, 100), border=7, border_colour=EXCLUDED)
        picture = capture(self.screen)
        self.assert_uniform(picture, (162, 112, 200, 150), RED)
        self.assert_same(before, picture)

    def test_off_screen_parts(self):
        self.window((-60, -50, 200, 150), RED)
        self.window((580, 420, 200, 150), BLUE)
        before = capture(self.screen)
        self.excluded_window((-30, -20, 120, 90))
        self.excluded_window((600, 440, 300, 300))
        self.assert_same(before, capture(self.screen))

    def test_input_only_windows(self):
        self.window((150, 100, 300, 250), RED)
        before = capture(self.screen)
        self.excluded_window()
        self.window((0, 0, 640, 480), None, window_class=X.InputOnly)
        self.assert_same(before, capture(self.screen))

    def test_background_pattern(self):
        pattern = self.screen.root.create_pixmap(50, 30, self.screen.screen.root_depth)
        for colour, rect in ((RED, (0, 0, 50, 30)), (GREEN, (3, 4, 20, 11)),
                             (BLUE, (30, 20, 17, 8))):
            pattern.fill_rectangle(pattern.create_gc(foreground=colour), *rect)
        self.screen.publish_background(pattern)
        self.wait_for_colour(600, 30, RED)
        self.wait_for_colour(605, 35, GREEN)
        before = capture(self.screen)
        self.excluded_window()
        self.assert_same(before, capture(self.screen))

    def test_background_without_root_pixmap_property(self):
        self.screen.remove_background()
        if WITH_COMPOSITOR:
            wait_until(lambda: self.screen.pixel(600, 460) != ROOT_COLOUR, "another background")
        self.window((10, 10, 50, 50), RED)
        before = capture(self.screen)
        self.excluded_window()
        self.assert_same(before, capture(self.screen))

    def test_freed_background_pixmap(self):
        pixmap = self.screen.fill_root(GREEN)
        self.wait_for_colour(600, 460, GREEN)
        before = capture(self.screen)
        pixmap.free()
        self.screen.display.sync()
        self.excluded_window()
        self.assert_same(before, capture(self.screen))

    def test_no_flicker(self):
        self.painter((150, 100, 300, 250), YELLOW, background=BLUE)
        excluded = self.excluded_window()
        watcher = Watcher(self.screen, [excluded])
        self.addCleanup(watcher.close)
        for _ in range(10):
            capture(self.screen, "-C")
            self.assertEqual(self.screen.pixel(250, 200), EXCLUDED)
        self.assertEqual(watcher.events(), [])
        self.assertEqual(self.screen.pixel(250, 200), EXCLUDED)

    def test_stacking_order_is_unchanged(self):
        self.window((150, 100, 300, 250), RED)
        self.excluded_window()
        stack = [window.id for window in self.screen.stack()]
        capture(self.screen)
        self.assertEqual([window.id for window in self.screen.stack()], stack)


class ManagedWindowsTest(ContentsTest):
    """Framed windows; runs only with a window manager."""

    def managed(self, rect, colour, **options):
        window = self.window(rect, colour, managed=True, title="test", **options)
        position = window.translate_coords(self.screen.root, 0, 0)
        self.wait_for_colour(-position.x + 5, -position.y + 5, colour)
        return window

    def test_frame_of_an_excluded_client_is_excluded(self):
        self.managed((150, 100, 300, 250), RED)
        before = capture(self.screen)
        excluded = self.managed((200, 150, 160, 120), EXCLUDED, excluded=True)
        self.assertNotEqual(self.screen.frame_of(excluded).id, excluded.id)
        # The excluded window takes the focus; title bar colours depend on it.
        self.screen.display.set_input_focus(X.PointerRoot, X.RevertToPointerRoot, X.CurrentTime)
        picture = capture(self.screen)
        self.assertNotIn(EXCLUDED, picture.colours((0, 0, 640, 480)))
        frame = self.screen.frame_of(excluded).get_geometry()
        below = (max(210, frame.x), max(160, frame.y), 100, 80)
        self.assert_uniform(picture, below, RED)
        self.assertEqual(before[300, 250], picture[300, 250])

    def test_property_on_a_nested_child(self):
        outer = self.window((200, 150, 160, 120), EXCLUDED)
        inner = outer
        for _ in range(4):
            inner = self.screen.window((5, 5, 100, 80), EXCLUDED, parent=inner)
        self.assertIn(EXCLUDED, capture(self.screen).colours((200, 150, 160, 120)))
        self.screen.exclude(inner)
        self.screen.display.sync()
        self.assert_uniform(capture(self.screen), (200, 150, 160, 120), ROOT_COLOUR)

    def test_opacity_of_a_framed_client(self):
        window = self.managed((150, 100, 300, 250), RED)
        self.screen.set_opacity(window, 0.5)
        if WITH_COMPOSITOR:
            wait_until(lambda: self.screen.pixel(300, 250) != RED, "the opacity")
        before = capture(self.screen)
        self.excluded_window((220, 180, 100, 80))
        self.assertEqual("%06x" % capture(self.screen)[250, 220], "%06x" % before[250, 220])


class CompositorEffectsTest(unittest.TestCase):
    """Shadows and unredirection; runs only with a compositor."""

    def test_shadow_of_excluded_window_is_removed(self):
        screen = Screen(window_manager=WITH_WINDOW_MANAGER,
                        compositor=["--shadow", "--shadow-opacity", "1"])
        self.addCleanup(screen.close)
        screen.fill_root()
        wait_until(lambda: screen.pixel(100, 100) == ROOT_COLOUR, "the background")
        before = capture(screen)
        screen.window((200, 150, 160, 120), EXCLUDED, excluded=True)
        wait_until(lambda: screen.pixel(201, 151) == EXCLUDED, "the excluded window")
        wait_until(lambda: screen.pixel(364, 220) != ROOT_COLOUR, "the shadow")
        self.assertIsNone(capture(screen).differences(before))

    def test_unredirected_window(self):
        """Compositors may unredirect full-screen windows."""
        screen = Screen(window_manager=WITH_WINDOW_MANAGER, compositor=["--unredir-if-possible"])
        self.addCleanup(screen.close)
        screen.fill_root()
        painter = Painter(screen, (0, 0, 640, 480), YELLOW)
        self.addCleanup(painter.close)
        wait_until(lambda: screen.pixel(300, 200) == YELLOW, "the window")
        before = capture(screen)
        self.assertEqual(before.colours((0, 0, 640, 480)), {YELLOW})
        screen.window((200, 150, 160, 120), EXCLUDED, excluded=True)
        self.assertIsNone(capture(screen).differences(before))


def load_tests(loader, _standard_tests, _pattern):
    suite = loader.loadTestsFromTestCase(ContentsTest)
    if WITH_WINDOW_MANAGER:
        names = [name for name in vars(ManagedWindowsTest) if name.startswith("test_")]
        suite.addTests(ManagedWindowsTest(name) for name in names)
    if WITH_COMPOSITOR:
        suite.addTests(loader.loadTestsFromTestCase(CompositorEffectsTest))
    return suite


if __name__ == "__main__":
    unittest.main()
