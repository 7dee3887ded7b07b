"""The desktop's text size, from its settings portal and from its X server."""

import unittest

from Xlib import Xatom

from harness import E2ECase, wait_until
from harness.portal import SettingsPortal

FACTOR = ("org.gnome.desktop.interface", "text-scaling-factor", "d")
FONT = ("org.kde.kdeglobals.General", "font", "s")
NORMAL = (420, 480)
LARGE = (505, 542)


class LargeTextTest(E2ECase):
    def setUp(self):
        self.portal = SettingsPortal(self.desktop)
        self.addCleanup(self.portal.close)

    def set_resolution(self, dots_per_inch):
        """What a desktop's settings program tells X clients."""
        text = f"Xft.dpi:\t{dots_per_inch}\n" if dots_per_inch else ""
        self.desktop.root.change_property(
            self.desktop.connection.intern_atom("RESOURCE_MANAGER"), Xatom.STRING, 8,
            text.encode())
        self.desktop.connection.sync()

    def size(self):
        """The size of the program's only window in pixels, or None."""
        found = self.desktop.viewable_windows("Quellora")
        return found[0][3:] if len(found) == 1 else None

    def wait_size(self, size):
        wait_until(lambda: self.size() == size,
                   what=f"a window of {size}, not {self.size()}")

    def test_followed_live(self):
        self.portal.change(*FACTOR, 1.25)
        app = self.app(self.server())
        app.wait_login_window()
        self.wait_size(LARGE)
        self.portal.change(*FACTOR, 1.0)
        self.wait_size(NORMAL)
        self.portal.change(*FONT, "Noto Sans,12.5,-1,5,50,0,0,0,0,0")
        self.wait_size(LARGE)
        self.portal.change(*FONT, "Noto Sans,10,-1,5,50,0,0,0,0,0")
        self.wait_size(NORMAL)

    def test_not_applied_twice(self):
        """A desktop may multiply the resolution by the text size: then the toolkit applies it."""
        self.addCleanup(self.set_resolution, None)
        self.set_resolution(120)
        self.portal.change(*FACTOR, 1.25)
        app = self.app(self.server())
        app.wait_login_window()
        self.wait_size((525, 600))

    def test_applied_if_the_resolution_does_not(self):
        """The window is as high as this screen has room for."""
        self.addCleanup(self.set_resolution, None)
        self.set_resolution(192)
        self.portal.change(*FACTOR, 1.25)
        app = self.app(self.server())
        app.wait_login_window()
        self.wait_size((2 * LARGE[0], 2 * NORMAL[1]))


if __name__ == "__main__":
    unittest.main()
