"""Global hotkeys: actions, debouncing, lock keys, conflicts, release at exit."""

import re
import unittest

from Xlib import X
from Xlib import display as xdisplay
from Xlib import error as xerror

from harness import E2ECase, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY

CAPTURE = "ctrl+alt+super+c"


class HotkeyTest(E2ECase):
    def test_before_sign_in_they_do_nothing(self):
        server = self.server()
        app = self.app(server)
        app.wait_login_window()
        mark = app.mark()
        app.hotkey(CAPTURE, "Capture")
        app.hotkey("ctrl+alt+super+t", "Toggle")
        self.assertEqual(app.lines_since(mark),
                         ["[HotkeyManager] Fired: Capture", "[HotkeyManager] Fired: Toggle"])
        self.assertEqual(server.connection_count, 0)

    def test_two_quick_presses_are_one_capture(self):
        server = self.server()
        app = self.app(server).sign_in()
        self.other_window()
        mark = app.mark()
        self.desktop.press(CAPTURE)
        self.desktop.press(CAPTURE)
        app.wait_for_line("[HotkeyManager] Ignored re-fire of Capture within debounce window",
                          since=mark)
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        lines = app.lines_since(mark)
        self.assertEqual(lines.count("[HotkeyManager] Fired: Capture"), 1)
        self.assertEqual(lines.count(PREFIX + "Capture & Send triggered"), 1)
        self.assertEqual(len(server.requests(QUERY)), 1)

    def test_debouncing_is_per_action(self):
        app = self.app(self.server()).sign_in()
        mark = app.mark()
        self.desktop.press("ctrl+alt+super+]")
        self.desktop.press("ctrl+alt+super+[")
        app.wait_for_line(PREFIX + "Opacity adjusted by +0.1 -> 0.98", since=mark)
        app.wait_for_line(PREFIX + "Opacity adjusted by -0.1 -> 0.88", since=mark)

    def repeat(self, app, combo, line):
        """Repeats a press until it is no longer debounced."""
        mark = app.mark()

        def is_taken():
            before = app.mark()
            self.desktop.press(combo)
            app.wait_for_line(re.compile(r"\[HotkeyManager\] (Fired:|Ignored re-fire of) "),
                              since=before)
            return any("] Fired: " in text for text in app.lines_since(before))
        wait_until(is_taken, what=line, interval=0.32)
        app.wait_for_line(line, since=mark)

    def test_opacity_stops_at_its_limits(self):
        app = self.app(self.server(), config={
            "hotkeys": {"capture": CAPTURE.replace("super", "cmd"), "clear": "ctrl+alt+cmd+x",
                        "toggle": "ctrl+alt+cmd+t", "opacity_up": "ctrl+alt+cmd+]",
                        "opacity_down": "ctrl+alt+cmd+["},
            "overlay": {"x": 40, "y": 80, "width": 624, "height": 744,
                        "default_opacity": 0.05}}).sign_in()
        self.repeat(app, "ctrl+alt+super+[", PREFIX + "Opacity adjusted by -0.1 -> 0.00")
        self.repeat(app, "ctrl+alt+super+]", PREFIX + "Opacity adjusted by +0.1 -> 0.10")

    def test_opacity_from_098_ends_at_one(self):
        app = self.app(self.server()).sign_in()
        self.repeat(app, "ctrl+alt+super+]", PREFIX + "Opacity adjusted by +0.1 -> 0.98")
        self.repeat(app, "ctrl+alt+super+]", PREFIX + "Opacity adjusted by +0.1 -> 1.00")

    def test_toggle_hides_and_shows(self):
        app = self.app(self.server()).sign_in()
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_for_line(PREFIX + "Toggling visibility (currently visible)")
        app.wait_for_line(PREFIX + "Window hidden")
        app.wait_overlay_hidden()
        self.repeat(app, "ctrl+alt+super+t", PREFIX + "Toggling visibility (currently hidden)")
        app.wait_for_line(PREFIX + "Window shown")
        app.wait_overlay_shown()

    def test_clear_keeps_the_thread_and_new_thread_ends_it(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.send_prompt("first")
        app.wait_for_line(STREAM_COMPLETE)
        app.access.wait_for_page_text("Hello from the server.")
        app.hotkey("ctrl+alt+super+x", "Clear")
        app.wait_for_line(PREFIX + "Content cleared")
        app.wait_for_line(PREFIX + "loadContent() — building HTML for 0 char payload")
        app.access.wait_for_page_text("to capture screen")
        self.desktop.type_text("second\n")
        self.assertIn("User: first", server.wait_for_request(QUERY, 2).json()["prompt"])
        app.wait_for_line(STREAM_COMPLETE)
        app.hotkey("super+n", "New Thread")
        app.wait_for_line(PREFIX + "New thread started")
        self.desktop.type_text("third\n")
        self.assertEqual(server.wait_for_request(QUERY, 3).json()["prompt"], "third")

    def test_lock_keys_are_ignored(self):
        app = self.app(self.server()).sign_in()
        for lock in ("num_lock", "caps_lock"):
            with self.subTest(lock=lock):
                self.desktop.press(lock)
                try:
                    self.repeat(app, "ctrl+alt+super+]", "[HotkeyManager] Fired: Opacity Up")
                finally:
                    self.desktop.press(lock)

    def grab(self):
        """Another program that holds the capture combination, or an X error."""
        other = xdisplay.Display(self.desktop.name)
        root = other.screen().root
        code = other.keysym_to_keycode(ord("c"))
        problem = xerror.CatchError(xerror.BadAccess)
        root.grab_key(code, X.ControlMask | X.Mod1Mask | X.Mod4Mask, False, X.GrabModeAsync,
                      X.GrabModeAsync, onerror=problem)
        other.sync()
        return other, problem.get_error()

    def test_combination_grabbed_by_another_program(self):
        other, problem = self.grab()
        self.addCleanup(other.close)
        self.assertIsNone(problem)
        app = self.app(self.server())
        app.wait_login_window()
        app.wait_for_line(re.compile(
            r"^\[HotkeyManager\] ERROR: Failed to register Capture \(ctrl\+alt\+cmd\+c\), "
            r"OSStatus -?\d+ — likely already claimed by another app$"), since=0)
        app.wait_for_line("[HotkeyManager] Registered Clear -> ctrl+alt+cmd+x", since=0)
        app.fill_login()
        self.desktop.press("return")
        app.access.wait_for("Startup issue")
        app.access.wait_for(re.compile("Ctrl\\+Alt\\+Super\\+C \\(Capture\\)"))

    def test_unknown_key(self):
        app = self.app(self.server(), defaults={"hotkeyBindings": {"clear": "ctrl+f5"}})
        app.wait_login_window()
        app.wait_for_line("[HotkeyManager] ERROR: Unsupported hotkey combo 'ctrl+f5' for Clear — "
                          "no virtual keycode mapping for its key, skipping registration", since=0)

    def test_they_are_grabbed_while_running_and_released_at_exit(self):
        app = self.app(self.server())
        app.wait_login_window()
        other, problem = self.grab()
        other.close()
        self.assertIsNotNone(problem, "the combination was not held")
        self.desktop.close_active_window()
        self.assertEqual(app.wait_exit(), 0)
        other, problem = self.grab()
        other.close()
        self.assertIsNone(problem, "the combination is still held")


if __name__ == "__main__":
    unittest.main()
