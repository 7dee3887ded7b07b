"""Screen sizes, several screens, and screens added and removed."""

import re
import unittest

from harness import wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY
from screens_case import ScreensCase

BAR = 34


class PanelPlaceTest(ScreensCase):
    def start(self, server, **options):
        app = self.app(server, **options).sign_in()
        app.wait_overlay_shown()
        return app

    def test_initial_position_on_small_screens(self):
        server = self.server()
        for width, height in ((1280, 720), (1366, 768), (1280, 800)):
            with self.subTest(f"{width}x{height}"):
                self.use_mode(width, height)
                app = self.start(server)
                self.wait_panel(app, (40, 0, 624, min(744, height)), "the first place")
                # The top and bottom controls can be clicked.
                app.focus_prompt()
                app.access.click("Menu")
                app.wait_for_line(PREFIX + "Hamburger button clicked — menu open=true")
                self.desktop.press("escape")
                app.access.click("Zoom")
                self.wait_panel(app, (0, 0, width, height), "the zoomed panel")
                app.access.click("Zoom")
                self.wait_panel(app, (40, 0, 624, min(744, height)), "the panel as before")
                app.close()

    def test_scale_factor_2(self):
        self.use_mode(3840, 2160)
        app = self.start(self.server(), environment={"QT_SCALE_FACTOR": "2"})
        first = (80, 2160 - 2 * (80 + 744), 2 * 624, 2 * 744)
        self.wait_panel(app, first, "the first place")
        self.use_mode(2560, 1440)
        self.wait_panel(app, (80, 0, 2 * 624, 1440), "the panel on the smaller screen")
        app.focus_prompt()
        self.use_mode(3840, 2160)
        self.wait_panel(app, first, "the panel at its own place again")
        self.drag_bar(app, -2000, 900)
        wait_until(lambda: app.panel()[1] == 0, what="the panel at the left edge")
        _, _, y, _, _ = app.panel()
        self.assertLessEqual(y + 2 * BAR, 2160)

    def test_follows_screen_size_changes(self):
        self.use_mode(1920, 1080)
        app = self.start(self.server())
        self.wait_panel(app, (40, 256, 624, 744), "the first place")
        mark = app.mark()
        self.use_mode(1280, 720)
        self.wait_panel(app, (40, 0, 624, 720), "the panel on the small screen")
        app.wait_for_line(PREFIX + "Panel kept on the screen at (40, 0), 624x720", since=mark)
        self.use_mode(1920, 1080)
        self.wait_panel(app, (40, 256, 624, 744), "the panel at its own place again")

        app.access.press("Zoom")
        self.wait_panel(app, (0, 0, 1920, 1080), "the zoomed panel")
        self.use_mode(1366, 768)
        self.wait_panel(app, (0, 0, 1366, 768), "the zoomed panel on the smaller screen")
        app.access.press("Zoom")
        self.wait_panel(app, (40, 24, 624, 744), "the panel as near to its place as it goes")

        # Hidden during the change, it is shown at a reachable position.
        self.use_mode(1920, 1080)
        self.wait_panel(app, (40, 256, 624, 744), "the panel at its own place again")
        app.access.press("Minimize")
        app.wait_overlay_hidden()
        self.use_mode(1280, 720)
        app.hotkey("ctrl+alt+super+t")
        self.wait_panel(app, (40, 0, 624, 720), "the panel shown on the small screen")

    def test_dragging_and_resizing_leave_the_bar_on_the_screen(self):
        self.use_mode(1366, 768)
        app = self.start(self.server())
        self.wait_panel(app, (40, 0, 624, 744), "the first place")
        self.drag_bar(app, -250, 300)
        self.wait_panel(app, (0, 300, 624, 744), "the panel at the left edge, hanging over")
        self.drag_bar(app, 1100, 0)
        self.wait_panel(app, (1366 - 624, 300, 624, 744), "the panel at the right edge")
        self.drag_bar(app, 0, 445)
        self.wait_panel(app, (1366 - 624, 768 - BAR, 624, 744), "the panel at the lower edge")
        self.drag_bar(app, -400, -600)
        self.wait_panel(app, (342, 134, 624, 744), "the panel in the middle")
        # By its upper edge, to the top of the screen.
        _, x, y, width, height = app.panel()
        self.desktop.drag(x + 300, y + 2, x + 300, 0)
        wait_until(lambda: app.panel()[4] > height and app.panel()[2] >= 0,
                   what="the higher panel inside the screen")
        _, x, _, width, _ = app.panel()
        self.assertLessEqual(x + width, 1366)
        # On a smaller screen the panel may overlap the edge as before, except for the bar.
        self.use_mode(1280, 720)
        wait_until(lambda: app.panel()[2] >= 0 and app.panel()[1] + app.panel()[3] <= 1280,
                   what="the bar on the smaller screen")

    def test_removed_monitor(self):
        self.two_monitors()
        app = self.start(self.server())
        self.wait_panel(app, (40, 256, 624, 744), "the first place on the main screen")
        self.drag_bar(app, 2000, -100)
        self.wait_panel(app, (2040, 156, 624, 744), "the panel on the other screen")
        # Dropped across both screens, it belongs to the one with the larger part.
        self.drag_bar(app, -300, 0)
        self.wait_panel(app, (1920, 156, 624, 744), "the panel wholly on the other screen")
        self.drag_bar(app, 300, 0)
        self.wait_panel(app, (2220, 156, 624, 744), "the panel inside the other screen")
        self.remove_right()
        self.wait_panel(app, (1920 - 624, 156, 624, 744), "the panel on the screen that is left")
        app.focus_prompt()
        self.bring_right_back()
        self.wait_panel(app, (2220, 156, 624, 744), "the panel back on the other screen")

        app.access.press("Zoom")
        self.wait_panel(app, (1920, 0, 1920, 1080), "the other screen filled")
        self.remove_right()
        self.wait_panel(app, (0, 0, 1920, 1080), "the screen that is left filled")


class CapturedScreensTest(ScreensCase):
    def capture(self, app):
        mark = app.mark()
        app.hotkey("ctrl+alt+super+c", "Capture")
        index = app.wait_for_line(re.compile(r"bytes JPEG \(\d+x\d+\)$"), since=mark)
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        return re.search(r"\((\d+x\d+)\)$", app.lines[index])[1]

    def test_captures_one_screen_or_all(self):
        self.two_monitors(1200, 900)
        server = self.server()
        app = self.app(server).sign_in()
        app.wait_overlay_shown()
        self.desktop.paint_gradient((200, 150, 100), (100, 150, 200))
        self.desktop.move_pointer(1300, 850)
        self.assertEqual(self.capture(app), "1200x900")

        app.access.press("Menu")
        app.access.press("Settings")
        app.access.wait_for("All screens")
        # The choice is shown only while there is a second screen.
        self.remove_right()
        app.access.wait_gone("All screens")
        self.bring_right_back(1200, 900)
        app.access.wait_for("All screens")
        app.access.press("All screens")
        wait_until(lambda: app.stored_defaults().get("captureAllScreens") is True,
                   what="the stored choice")
        self.desktop.press("escape")
        self.assertEqual(self.capture(app), "1280x480")

        app.close()
        again = self.app(server, defaults={"hasLaunchedBefore": True, "userPrompt": "",
                                           "captureAllScreens": True}).sign_in()
        again.wait_overlay_shown()
        self.assertEqual(self.capture(again), "1280x480")
        self.remove_right()
        self.assertEqual(self.capture(again), "1200x900")
        self.assertEqual(len(server.requests(QUERY)), 4)


if __name__ == "__main__":
    unittest.main()
