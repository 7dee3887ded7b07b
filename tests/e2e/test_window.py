"""The panel as a window: zoom, dragging, traits, sheets and Escape."""

import re
import unittest

from harness import E2ECase, wait_until
from harness.messages import PREFIX


class WindowTest(E2ECase):
    def test_zoom_fills_the_screen_and_returns(self):
        app = self.app(self.server()).sign_in()
        before = app.panel()[1:]
        app.access.press("Zoom")
        app.wait_for_line(PREFIX + "Zoom button — grew to fill the current screen's visible frame")
        wait_until(lambda: app.panel()[1:] == (0, 0, self.desktop.width, self.desktop.height),
                   what="the panel to fill the screen")
        app.access.press("Zoom")
        app.wait_for_line(PREFIX + "Zoom button — restored to prior frame")
        wait_until(lambda: app.panel()[1:] == before, what="the earlier frame")

    def test_dragging_the_control_bar_moves_the_panel(self):
        app = self.app(self.server()).sign_in()
        _, x, y, width, height = app.panel()
        self.desktop.drag(x + 220, y + 17, x + 320, y - 23)
        wait_until(lambda: app.panel()[1:] == (x + 100, y - 40, width, height),
                   what="the panel to have moved")

    def test_window_type_and_states(self):
        app = self.app(self.server()).sign_in()
        states = self.desktop.window_states(app.panel()[0])
        for state in ("ABOVE", "SKIP_TASKBAR", "SKIP_PAGER"):
            self.assertIn(f"_NET_WM_STATE_{state}", states)

    def test_escape_closes_the_menu_and_nothing_else(self):
        app = self.app(self.server()).sign_in()
        app.focus_prompt()
        app.access.press("Menu")
        app.wait_for_line(PREFIX + "Hamburger button clicked — menu open=true")
        app.access.wait_for("Account")
        self.desktop.press("escape")
        app.wait_for_line(PREFIX + "Hamburger button clicked — menu open=false")
        self.desktop.press("escape")
        # The focus is back on the menu button; a click moves it to the prompt again.
        app.access.wait_for("Menu", focused=True)
        app.focus_prompt()
        self.desktop.type_text("still here")
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "still here",
                   what="typing after Escape")
        self.assertIsNotNone(app.panel())

    def test_unsupported_capture_exclusion_is_logged_once(self):
        app = self.app(self.server()).sign_in()
        warnings = [line for line in app.lines
                    if re.match(r"^\[\w+\] WARNING: .*captur", line, re.IGNORECASE)]
        self.assertEqual(len(warnings), 1, app.describe("one warning expected"))


if __name__ == "__main__":
    unittest.main()
