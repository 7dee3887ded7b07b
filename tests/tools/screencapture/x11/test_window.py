"""The window in front."""

import os
import unittest

from Xlib import X, Xatom

from picture import capture, run
from screen import ROOT_COLOUR, Screen, wait_until

RED, GREEN, BLUE = 0xc81e1e, 0x1ec832, 0x2828dc
NO_WINDOW = 16


class Base(unittest.TestCase):
    window_manager = False

    @classmethod
    def setUpClass(cls):
        cls.screen = Screen(size="640x480x24", window_manager=cls.window_manager)
        cls.addClassCleanup(cls.screen.close)
        cls.screen.fill_root()

    def setUp(self):
        self.screen.place_pointer(639, 479)

    def window(self, rect, colour, **options):
        window = self.screen.window(rect, colour, **options)
        self.addCleanup(self.screen.destroy_all, [window])
        return window

    def assert_no_window(self):
        path = os.path.join(self.screen.folder, "none.png")
        result = run(["-x", "--window", path], self.screen.environment)
        self.assertEqual((result.returncode, result.stderr),
                         (NO_WINDOW, "quellora-screencapture: no window is in front\n"))
        self.assertFalse(os.path.exists(path))


class HintsTest(Base):
    """The hints of a window manager, set by the test."""

    def set_root(self, name, kind, values):
        self.screen.root.change_property(self.screen.atom(name), kind, 32, values)
        self.addCleanup(self.screen.root.delete_property, self.screen.atom(name))
        self.screen.display.sync()

    def activate(self, window):
        self.set_root("_NET_ACTIVE_WINDOW", Xatom.WINDOW, [window.id if window else 0])

    def stack(self, *windows):
        self.set_root("_NET_CLIENT_LIST_STACKING", Xatom.WINDOW, [one.id for one in windows])

    def test_active_window(self):
        back = self.window((10, 20, 200, 100), RED)
        self.window((300, 200, 100, 80), GREEN)
        self.activate(back)
        picture = capture(self.screen, "-x", "--window")
        self.assertEqual((picture.width, picture.height), (200, 100))
        self.assertEqual(picture.colours((0, 0, 200, 100)), {RED})

    def test_only_what_is_on_the_screen(self):
        window = self.window((-50, 400, 200, 200), RED)
        self.activate(window)
        picture = capture(self.screen, "-x", "--window")
        self.assertEqual((picture.width, picture.height), (150, 80))
        self.assertEqual(picture.colours((0, 0, 150, 80)), {RED})

    def test_our_windows_are_left_out_and_never_in_front(self):
        window = self.window((10, 20, 200, 100), RED)
        ours = self.window((50, 40, 60, 300), BLUE, excluded=True)
        for active in (window, ours, None):
            with self.subTest(active=active):
                self.activate(active)
                self.stack(window, ours)
                picture = capture(self.screen, "-x", "--window")
                self.assertEqual((picture.width, picture.height), (200, 100))
                self.assertEqual(picture.colours((0, 0, 200, 100)), {RED})

    def test_topmost_ordinary_window_without_an_active_one(self):
        window = self.window((10, 20, 200, 100), RED)
        dock = self.window((0, 440, 640, 40), GREEN)
        dock.change_property(self.screen.atom("_NET_WM_WINDOW_TYPE"), Xatom.ATOM, 32,
                             [self.screen.atom("_NET_WM_WINDOW_TYPE_DOCK")])
        self.stack(window, dock)
        picture = capture(self.screen, "-x", "--window")
        self.assertEqual(picture.colours((0, 0, 200, 100)), {RED})

    def test_shadow_is_cut_off(self):
        window = self.window((100, 100, 200, 150), RED)
        window.change_property(self.screen.atom("_GTK_FRAME_EXTENTS"), Xatom.CARDINAL, 32,
                               [10, 20, 5, 15])
        self.activate(window)
        picture = capture(self.screen, "-x", "--window")
        self.assertEqual((picture.width, picture.height), (170, 130))
        # A shadow that leaves nothing is none.
        window.change_property(self.screen.atom("_GTK_FRAME_EXTENTS"), Xatom.CARDINAL, 32,
                               [150, 150, 5, 15])
        self.screen.display.sync()
        picture = capture(self.screen, "-x", "--window")
        self.assertEqual((picture.width, picture.height), (200, 150))

    def test_no_window(self):
        self.activate(None)
        self.assert_no_window()
        ours = self.window((50, 40, 60, 300), BLUE, excluded=True)
        self.activate(ours)
        self.stack(ours)
        self.assert_no_window()
        beyond = self.window((700, 10, 50, 50), RED)
        self.activate(beyond)
        self.assert_no_window()

    def test_window_that_is_gone(self):
        window = self.screen.window((10, 20, 200, 100), RED)
        self.activate(window)
        self.screen.destroy_all([window])
        self.assert_no_window()


class BareTest(Base):
    """No window manager: the keyboard focus tells."""

    def test_focused_window(self):
        self.assert_no_window()
        window = self.window((10, 20, 200, 100), GREEN)
        self.screen.display.set_input_focus(window, X.RevertToParent, X.CurrentTime)
        self.screen.display.sync()
        picture = capture(self.screen, "-x", "--window")
        self.assertEqual(picture.colours((0, 0, 200, 100)), {GREEN})


class WindowManagerTest(Base):
    window_manager = True

    def test_frame_belongs_to_the_window(self):
        window = self.screen.root.create_window(
            100, 100, 200, 150, 0, self.screen.screen.root_depth, X.InputOutput, X.CopyFromParent,
            background_pixel=RED)
        window.set_wm_name("Framed")
        window.map()
        self.screen.display.sync()
        self.addCleanup(self.screen.destroy_all, [window])
        active = self.screen.atom("_NET_ACTIVE_WINDOW")

        def is_active():
            found = self.screen.root.get_full_property(active, Xatom.WINDOW)
            return found and list(found.value) == [window.id]
        wait_until(is_active, "the window to be active")
        origin = window.translate_coords(self.screen.root, 0, 0)
        wait_until(lambda: self.screen.pixel(-origin.x + 100, -origin.y + 75) == RED,
                   "the window's contents")
        picture = capture(self.screen, "-x", "--window")
        # The title bar is above the contents.
        self.assertGreaterEqual(picture.width, 200)
        self.assertGreater(picture.height, 150)
        self.assertIn(RED, picture.colours((0, 0, picture.width, picture.height)))
        self.assertNotIn(ROOT_COLOUR, picture.colours((0, 0, picture.width, picture.height)))


if __name__ == "__main__":
    unittest.main()
