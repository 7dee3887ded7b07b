"""The panel as a part of a Wayland desktop: focus, place, clicks, outputs, scale.

`scripts/test-desktops` runs it on KWin, GNOME and X11 as well.
"""

import unittest

from desktop_case import KIND, DesktopCase
from harness import HostileServer, wait_until
from harness.server import QUERY


class PanelTest(DesktopCase):
    """One program for all tests; each starts where the last one left the panel."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.shared_server = HostileServer()
        cls.addClassCleanup(cls.shared_server.close)

    def start(self):
        """A signed-in program above another one, in which the user works."""
        app = self.app(self.shared_server).sign_in()
        other = self.other()
        wait_until(lambda: self.is_panel_shown(app), what="the panel above the other program")
        return app, other

    def assert_keyboard_in(self, other):
        mark = other.mark()
        self.desktop.press("k")
        other.wait_for("key k", since=mark)

    def test_hide_and_show_keep_place_and_focus(self):
        app, other = self.start()
        mark = other.mark()
        self.assert_keyboard_in(other)
        before = app.panel()[1:]
        for _ in range(2):
            self.command(app, "toggle")
            app.wait_overlay_hidden()
            self.desktop.wait_for_picture(
                lambda now: now.is_near(int((before[0] + before[2] / 2) * self.desktop.scale),
                                        int((before[1] + 30) * self.desktop.scale),
                                        (200, 60, 60), 14), "the other program without the panel")
            self.command(app, "toggle")
            app.wait_overlay_shown()
            wait_until(lambda: self.is_panel_shown(app), what="the panel again")
        self.assertEqual(app.panel()[1:], before)
        self.assert_keyboard_in(other)
        self.assertNotIn("active 0", other.events(since=mark))

    def test_click_on_a_button_leaves_the_keyboard_where_it_is(self):
        app, other = self.start()
        mark = app.mark()
        app.access.click("New thread")
        app.wait_for_line("[OverlayWindowController] New thread started", since=mark)
        # KWin gives every clicked surface the keyboard; the panel gives it back.
        self.wait_types_into(other)

    def test_stays_above_a_clicked_window(self):
        app, other = self.start()
        self.focus_other(app, other)
        self.assertTrue(self.is_panel_shown(app))
        second = self.other()
        wait_until(lambda: self.is_panel_shown(app), what="the panel above the new window")
        second.close()

    @unittest.skipIf(KIND == "gnome", "XWayland does not hand clicks on to other programs")
    def test_clicks_and_wheel_over_the_answer_reach_the_other_program(self):
        app, other = self.start()
        mark = other.mark()
        _, x, y, width, _ = app.panel()
        self.desktop.click(x + width // 2, y + 120)
        other.wait_for(f"click {x + width // 2} {y + 120}", since=mark)
        if KIND != "x11":
            self.desktop.wheel(x + width // 2, y + 120, 1)
            other.wait_for("wheel -", since=mark)

    def test_dragging_the_bar_moves_the_panel_exactly(self):
        app, _ = self.start()
        _, x, y, width, height = app.panel()
        self.drag((x + 220, y + 17), (x + 320, y + 57))
        wait_until(lambda: app.panel()[1:] == (x + 100, y + 40, width, height),
                   what="the panel to have moved by (100, 40), not "
                        f"{app.panel()[1:]} from {(x, y)}")
        wait_until(lambda: self.is_panel_shown(app), what="the panel at its new place")
        # The old place is uncovered.
        scale = self.desktop.scale
        self.desktop.wait_for_picture(
            lambda now: now.is_near(int((x + 50) * scale), int((y + 20) * scale), (200, 60, 60), 14),
            "the other program at the panel's old place")

    def test_resizing_by_the_corner(self):
        app, _ = self.start()
        _, x, y, width, height = app.panel()
        self.drag((x + width - 3, y + height - 3), (x + width - 63, y + height - 43))
        wait_until(lambda: app.panel()[1:] == (x, y, width - 60, height - 40),
                   what=f"the panel to have shrunk by (60, 40) from {(width, height)}")


class AnswerClicksTest(DesktopCase):
    """Clicks on the answer, once they are switched on."""

    SWITCH = "Clicks reach the answer"

    def switch(self, app, line):
        mark = app.mark()
        app.access.settled_bounds(self.SWITCH, "check box")
        app.access.click(self.SWITCH, "check box")
        app.wait_for_line("[OverlayWindowController] " + line, since=mark)

    def test_text_is_selected_and_the_keyboard_given_back(self):
        server = self.server()
        server.on(QUERY, HostileServer.answer_with("alphabet " * 600))
        app = self.app(server).sign_in()
        other = self.other()
        app.send_prompt("question")
        app.access.wait_for_page_text("alphabet")
        wait_until(lambda: self.is_panel_shown(app), what="the panel above the other program")
        self.focus_other(app, other)
        self.switch(app, "Clicks go to the answer")
        mark = other.mark()
        _, x, y, width, _ = app.panel()
        at = (x + width // 2, y + 200)

        def is_copied():
            self.desktop.click(*at)
            self.desktop.click(*at)
            self.desktop.press("ctrl+c")
            app.focus_prompt()
            self.desktop.press("ctrl+a")
            self.desktop.press("ctrl+v")
            try:
                wait_until(lambda: app.stored_defaults().get("userPrompt", "").strip() == "alphabet",
                           5, "the pasted word")
            except AssertionError:
                return False
            return True
        # A press takes the keyboard; the compositor may need a moment to move it.
        wait_until(is_copied, what="the selected word in the prompt box")
        self.assertFalse([event for event in other.events(since=mark)
                          if event.startswith("click")])
        self.focus_other(app, other)
        # Qt notices on X11 only after 400 ms that another window has the focus.
        wait_until(lambda: not any(app.access.has_state(window, "ACTIVE")
                                   for window in app.access.windows()),
                   what="the panel to know that it has no focus")
        mark = other.mark()
        self.desktop.click(*at)
        other.wait_for("active 0", since=mark)
        self.desktop.press("escape")
        self.wait_types_into(other)
        self.switch(app, "Clicks go through the answer")
        if KIND != "gnome":  # XWayland does not hand clicks on to other programs.
            mark = other.mark()

            def goes_through():
                self.desktop.click(*at)
                try:
                    other.wait_for(f"click {at[0]} {at[1]}", since=mark, timeout=2)
                except AssertionError:
                    return False
                return True
            # The compositor learns of the panel's new input region a moment after the switch.
            wait_until(goes_through, what="a click through the answer")


class RememberedPlaceTest(DesktopCase):
    """A later start."""

    def test_the_panel_starts_where_it_was_left(self):
        app = self.app(self.server()).sign_in()
        other = self.other()
        wait_until(lambda: self.is_panel_shown(app), what="the panel above the other program")
        before = app.panel()[1:]
        _, x, y, width, height = app.panel()
        self.drag((x + 220, y + 17), (x + 290, y + 57))
        wait_until(lambda: app.panel()[1:] == (x + 70, y + 40, width, height),
                   what="the panel to have moved")
        wait_until(lambda: "panelPlaces" in app.stored_defaults(), what="the stored place")
        defaults = app.stored_defaults()
        app.close()
        later = self.app(self.server(), defaults=defaults).sign_in()
        wait_until(lambda: later.panel()[1:] == (x + 70, y + 40, width, height),
                   what=f"the panel where it was left, not {before}")
        wait_until(lambda: self.is_panel_shown(later), what="the panel on the screen there")
        other.close()


@unittest.skipIf(KIND != "sway", "only sway changes the scale while it runs")
class ScaleTest(DesktopCase):
    """Scales other than 1."""

    def test_scales(self):
        app = self.app(self.server()).sign_in()
        self.addCleanup(self.desktop.set_scale, 1)
        for scale in (1.5, 2):
            self.desktop.set_scale(scale)
            other = self.other()
            wait_until(lambda: self.is_panel_shown(app), what=f"the panel at scale {scale}")
            app.focus_prompt()
            self.desktop.type_text("x")
            wait_until(lambda: app.stored_defaults().get("userPrompt", "").endswith("x"),
                       what=f"typing at scale {scale}")
            # Exactly there, also where a logical pixel has no whole number of pixels.
            mark = other.mark()
            _, x, y, width, _ = app.panel()
            self.desktop.click(x + width // 2, y + 120)
            other.wait_for(f"click {x + width // 2} {y + 120}", since=mark)
            other.close()


@unittest.skipIf(KIND != "sway", "only sway adds an output while it runs")
class SecondOutputTest(DesktopCase):
    """The last test, because sway's outputs without hardware cannot be taken away."""

    def test_crossing_to_a_second_output(self):
        server = self.server()
        app = self.app(server).sign_in()
        self.desktop.add_output(1280, 800, 1280, 0)
        _, x, y, width, height = app.panel()
        goal = (x + 1380, y + 40, width, height)

        def crossed():
            _, left, top, *_ = app.panel()
            self.drag((left + 220, top + 17), (goal[0] + 220, goal[1] + 17), steps=20)
            # Until the program has learned of the new output, the panel stops at the edge of the
            # first one.
            stopped = (1279 - 220, goal[1], width, height)
            wait_until(lambda: app.panel()[1:] in (goal, stopped),
                       what=f"the panel at {goal}, not {app.panel()[1:]}")
            return app.panel()[1:] == goal
        wait_until(crossed, what=f"the panel to have moved by (1380, 40) from {(x, y)}")
        wait_until(lambda: self._covered(1), what="the panel's picture there")
        self.assertFalse(self._covered(0), "something is left on the first output")

    def _covered(self, output):
        """Whether an output shows more than its empty background."""
        return len(self.desktop.output_picture(output).colours()) > 20


if __name__ == "__main__":
    unittest.main()
