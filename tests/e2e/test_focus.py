"""The panel and the program in which the user works: focus, clicks, typing."""

import threading
import unittest

from harness import E2ECase, HostileServer, chunk_event, done_event, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY


class FocusTest(E2ECase):
    """The document covers the whole screen; the panel stays above it."""

    def start(self, server=None):
        server = server or self.server()
        app = self.app(server).sign_in()
        window = self.other_window()
        window.wait_focus()
        # The event may arrive after the server has changed the focus.
        window.wait_for("focus-in")
        return server, app, window

    def assert_kept_focus(self, window, mark):
        self.assertEqual(self.desktop.focus_window(), window.window_id)
        self.assertEqual([event for event in window.events(since=mark)
                          if event.kind.startswith("focus")], [])
        self.desktop.type_text("k")
        window.wait_for("key", ord("k"), since=mark)

    def response_centre(self, app):
        """A point over the answer, away from the frame."""
        _, x, y, width, _ = app.panel()
        return x + (width - 28) // 2, y + 72 + 120

    def test_sign_in_returns_the_focus(self):
        window = self.other_window()
        app = self.app(self.server()).sign_in()
        wait_until(lambda: self.desktop.focus_window() == window.window_id,
                   what="the document to have the focus again")
        self.assertNotEqual(app.panel()[0], self.desktop.active_window())

    def test_answers_and_toggling_never_take_the_focus(self):
        server, app, window = self.start()
        mark = window.mark()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(STREAM_COMPLETE)
        app.access.wait_for_page_text("Hello from the server.")
        self.assert_kept_focus(window, mark)
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_hidden()
        self.assert_kept_focus(window, mark)
        # An answer shows the hidden panel again, without the focus.
        gate = threading.Event()
        self.addCleanup(gate.set)
        server.on(QUERY, HostileServer.stream(chunk_event("more"), gate, done_event()))
        start = app.mark()
        wait_until(lambda: self.desktop.press("ctrl+alt+super+c")
                   or app.has_line("[HotkeyManager] Fired: Capture", start),
                   what="the next capture", interval=0.32)
        app.wait_overlay_shown()
        self.assert_kept_focus(window, mark)
        gate.set()
        app.wait_for_line(STREAM_COMPLETE, since=start)
        self.assert_kept_focus(window, mark)

    def test_clicks_over_the_answer_reach_the_document(self):
        _, app, window = self.start()
        mark = window.mark()
        x, y = self.response_centre(app)
        for button in (1, 3, 4, 5):
            self.desktop.click(x, y, button)
            press = window.wait_for("press", button, since=mark)
            self.assertEqual((press.x, press.y), (x, y))
        self.assertEqual(self.desktop.focus_window(), window.window_id)

    def test_clicks_on_the_frame_do_not_reach_the_document(self):
        _, app, window = self.start()
        _, x, y, width, height = app.panel()
        mark = window.mark()
        places = {"control bar": (x + 200, y + 17), "strip": (x + 200, y + 53),
                  "scrollbar": (x + width - 14, y + 300),
                  "bottom panels": (x + 300, y + height - 10)}
        for place, (left, top) in places.items():
            self.desktop.click(left, top)
        # A click beside the panel shows that the earlier ones have been delivered.
        self.desktop.click(x + width + 60, y + 100)
        window.wait_for("press", 1, since=mark)
        self.assertEqual(len(window.events("press", since=mark)), 1, places)

    def test_open_menu_receives_the_clicks(self):
        _, app, window = self.start()
        x, y = self.response_centre(app)
        app.access.press("Menu")
        app.wait_for_line(PREFIX + "Hamburger button clicked — menu open=true")
        app.access.wait_for("Account")
        mark = window.mark()
        self.desktop.click(x, y + 150)
        _, left, top, width, _ = app.panel()
        self.desktop.click(left + width + 60, top + 100)
        window.wait_for("press", 1, since=mark)
        self.assertEqual(len(window.events("press", since=mark)), 1,
                         "a click went through the answer while the menu was open")
        # The answer received it, so the menu stays open.
        self.assertIsNotNone(app.access.find("Account"))
        self.desktop.click(left + 200, top + 53)
        app.wait_for_line(PREFIX + "Hamburger button clicked — menu open=false")
        mark = window.mark()

        def passes():
            self.desktop.click(x, y)
            return any((event.x, event.y) == (x, y)
                       for event in window.events("press", since=mark))
        wait_until(passes, what="clicks to pass through again", interval=0.1)

    def test_typing_after_a_click_on_the_prompt(self):
        server, app, window = self.start()
        app.focus_prompt()
        mark = window.mark()
        self.desktop.type_text("two words")
        self.desktop.press("shift+return")
        self.desktop.type_text("second line\n")
        request = server.wait_for_request(QUERY)
        self.assertEqual(request.json()["prompt"], "two words\nsecond line")
        self.assertEqual(window.events("key", since=mark), [])
        app.wait_for_line(STREAM_COMPLETE)
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "",
                   what="the empty prompt box")
        # A click on the document returns the focus.
        _, x, y, width, _ = app.panel()
        self.desktop.click(x + width + 60, y + 100)
        window.wait_focus()
        self.desktop.type_text("k")
        window.wait_for("key", ord("k"), since=mark)

    def test_buttons_do_not_take_the_focus(self):
        _, app, window = self.start()
        mark = window.mark()
        app.access.click("New thread")
        app.wait_for_line(PREFIX + "New thread started")
        self.assert_kept_focus(window, mark)

    def test_escape_in_the_prompt_changes_nothing(self):
        _, app, _ = self.start()
        app.focus_prompt()
        self.desktop.type_text("keep")
        self.desktop.press("escape")
        self.desktop.type_text(" me")
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "keep me",
                   what="the prompt to be stored")
        self.assertIsNotNone(app.panel())


class ScaledFocusTest(E2ECase):
    """The same borders at a scale factor of 2."""

    def test_clicks_pass_exactly_over_the_answer(self):
        hotkeys = {"capture": "ctrl+alt+cmd+c", "clear": "ctrl+alt+cmd+x",
                   "toggle": "ctrl+alt+cmd+t", "opacity_up": "ctrl+alt+cmd+]",
                   "opacity_down": "ctrl+alt+cmd+["}
        app = self.app(self.server(), environment={"QT_SCALE_FACTOR": "2"}, config={
            "hotkeys": hotkeys, "overlay": {"x": 20, "y": 20, "width": 560, "height": 440,
                                            "default_opacity": 0.88}}).sign_in()
        window = self.other_window()
        _, x, y, width, height = app.panel()
        self.assertEqual((width, height), (1120, 880))
        mark = window.mark()
        inside = [(x + 4, y + 2 * 72 + 4), (x + width - 2 * 28 - 6, y + 2 * 72 + 4),
                  (x + 300, y + 2 * 72 + 100)]
        outside = [(x + 300, y + 2 * 72 - 6), (x + width - 2 * 28 + 6, y + 2 * 72 + 100),
                   (x + 300, y + height - 8)]
        for place in inside + outside:
            self.desktop.click(*place)
        self.desktop.click(x + width + 30, y + 100)

        def beside():
            return [event for event in window.events("press", since=mark)
                    if event.x == x + width + 30]
        wait_until(beside, what="the click beside the panel")
        reached = [(event.x, event.y) for event in window.events("press", since=mark)][:-1]
        self.assertEqual(reached, inside)


if __name__ == "__main__":
    unittest.main()
