"""Changing hotkeys in the settings with real key presses: applied, exclusive, stored, reset."""

import re
import unittest

from Xlib import X
from Xlib import display as xdisplay
from Xlib import error as xerror

from harness import E2ECase, SignedInCase, wait_until
from harness.messages import PREFIX
from harness.server import QUERY

CLEAR = "Clear the response area"
MASKS = {"ctrl": X.ControlMask, "alt": X.Mod1Mask, "super": X.Mod4Mask, "shift": X.ShiftMask}


class Holder:
    """Another program that grabs a combination."""

    def __init__(self, desktop, combo):
        *modifiers, key = combo.split("+")
        self.connection = xdisplay.Display(desktop.name)
        problem = xerror.CatchError(xerror.BadAccess)
        self.connection.screen().root.grab_key(
            self.connection.keysym_to_keycode(ord(key)), sum(MASKS[name] for name in modifiers),
            False, X.GrabModeAsync, X.GrabModeAsync, onerror=problem)
        self.connection.sync()
        self.has_it = problem.get_error() is None

    def close(self):
        self.connection.close()


class RebindingTest(SignedInCase):
    """One program whose settings stay open from test to test."""

    def setUp(self):
        self.apps = [self.shared_app]
        self.addCleanup(self._keep_evidence)
        self.window = self.other_window()
        self.open_settings()
        self.addCleanup(self.restore)

    def open_settings(self):
        app = self.shared_app
        if app.access.find("Reset all hotkeys") is None:
            app.open_settings()
            self.desktop.press("end")
        app.access.wait_for("Reset all hotkeys")

    def restore(self):
        """Restores the bindings of the configuration file."""
        app = self.shared_app
        self.open_settings()
        mark = app.mark()
        app.access.press("Reset all hotkeys")
        app.wait_for_line(PREFIX + "All hotkeys reset to config.json defaults, persisted + "
                          "re-registered live", since=mark)

    def press_close(self):
        """Presses the sheet's close button, not the window's."""
        app = self.shared_app
        buttons = app.access.find_all("Close")
        buttons[-1].get_action_iface().do_action(0)

    def can_grab(self, combo):
        holder = Holder(self.desktop, combo)
        holder.close()
        return holder.has_it

    def record(self, title, shown, combo=None):
        """Starts recording and optionally presses a combination; returns the mark before."""
        app = self.shared_app
        mark = app.mark()
        app.access.press(f"{title}, {shown}")
        app.wait_for_line(PREFIX + f"Hotkey capture started for {title}", since=mark)
        app.access.wait_for(f"{title}, Press a shortcut…")
        if combo:
            self.desktop.press(combo)
        return mark

    def test_a_new_combo_is_grabbed_and_the_old_one_released(self):
        app = self.shared_app
        mark = self.record(CLEAR, "Ctrl+Alt+Super+X", "ctrl+alt+m")
        app.wait_for_line(PREFIX + f"Hotkey {CLEAR} -> ctrl+alt+m, persisted + registered live",
                          since=mark)
        app.access.wait_for(f"{CLEAR}, Ctrl+Alt+M")
        wait_until(lambda: app.stored_defaults().get("hotkeyBindings") == {"clear": "ctrl+alt+m"},
                   what="the stored override")
        self.assertFalse(self.can_grab("ctrl+alt+m"))
        self.assertTrue(self.can_grab("ctrl+alt+super+x"))
        mark = app.mark()
        app.hotkey("ctrl+alt+m", "Clear")
        self.desktop.press("ctrl+alt+super+x")
        app.hotkey("ctrl+alt+super+]", "Opacity Up")
        self.assertEqual(app.lines_since(mark).count("[HotkeyManager] Fired: Clear"), 1)
        # Resets one row to the file's combination.
        mark = app.mark()
        app.access.press(f"Reset {CLEAR}")
        app.wait_for_line(PREFIX + f"Hotkey {CLEAR} reset to config.json default "
                          "(ctrl+alt+cmd+x)", since=mark)
        app.access.wait_for(f"{CLEAR}, Ctrl+Alt+Super+X")
        app.access.wait_gone(f"Reset {CLEAR}")
        self.assertTrue(self.can_grab("ctrl+alt+m"))
        self.assertFalse(self.can_grab("ctrl+alt+super+x"))
        wait_until(lambda: app.stored_defaults().get("hotkeyBindings") == {},
                   what="the removed override")

    def test_the_recorder_receives_all_keys(self):
        app = self.shared_app
        server_before = len(self.shared_server.requests(QUERY))
        document = self.window.mark()
        mark = self.record(CLEAR, "Ctrl+Alt+Super+X")
        # Bound combinations, single keys and Tab reach only the recorder.
        self.desktop.press("ctrl+alt+super+c")
        app.access.wait_for("Already used by Capture screen and send to Balanced. "
                            "Try a different combo.")
        self.desktop.type_text("c")
        self.desktop.press("tab")
        self.desktop.press("space")
        self.desktop.press("escape")
        app.wait_for_line("[HotkeyManager] Resumed all hotkeys after capture", since=mark)
        app.access.wait_for(f"{CLEAR}, Ctrl+Alt+Super+X", focused=False)
        self.assertEqual([line for line in app.lines_since(mark) if "Fired" in line], [])
        self.assertEqual(self.window.events("key", since=document), [])
        self.assertEqual(len(self.shared_server.requests(QUERY)), server_before)
        self.assertIsNotNone(app.access.find("Reset all hotkeys"), "Escape closed the sheet")
        app.hotkey("ctrl+alt+super+[", "Opacity Down")
        # The next Escape closes the sheet, and the focus returns to the document.
        self.desktop.press("escape")
        app.access.wait_gone("Reset all hotkeys")
        wait_until(lambda: self.desktop.focus_window() == self.window.window_id,
                   what="the focus of the document")

    def test_a_system_shortcut_asks_first(self):
        app = self.shared_app
        mark = self.record(CLEAR, "Ctrl+Alt+Super+X", "super+shift+3")
        app.wait_for_line(PREFIX + "Hotkey capture: 'cmd+shift+3' may conflict with system "
                          "shortcut 'Screenshot (full screen)' — awaiting confirmation",
                          since=mark)
        app.access.wait_for("This may conflict with Screenshot (full screen)")
        self.desktop.press("ctrl+alt+m")
        app.access.press("Cancel")
        app.access.wait_for(f"{CLEAR}, Press a shortcut…")
        self.desktop.press("super+shift+4")
        app.access.press("Use anyway")
        app.wait_for_line(PREFIX + f"Hotkey {CLEAR} -> cmd+shift+4, persisted + registered live",
                          since=mark)
        self.assertNotIn(PREFIX + f"Hotkey {CLEAR} -> ctrl+alt+m, persisted + registered live",
                         app.lines_since(mark))
        app.hotkey("super+shift+4", "Clear")

    def test_a_combo_grabbed_by_another_program_is_rolled_back(self):
        app = self.shared_app
        holder = Holder(self.desktop, "ctrl+alt+k")
        self.addCleanup(holder.close)
        self.assertTrue(holder.has_it)
        mark = self.record(CLEAR, "Ctrl+Alt+Super+X", "ctrl+alt+k")
        app.wait_for_line(PREFIX + f"Hotkey {CLEAR} -> ctrl+alt+k FAILED to register — rolled "
                          "back, not persisted", since=mark)
        app.access.wait_for("Couldn't register that combo — kept your previous one.")
        app.access.wait_for(f"{CLEAR}, Ctrl+Alt+Super+X")
        self.assertFalse(app.stored_defaults().get("hotkeyBindings"))
        self.assertFalse(self.can_grab("ctrl+alt+super+x"))
        app.hotkey("ctrl+alt+super+x", "Clear")

    def test_lock_keys_are_ignored(self):
        app = self.shared_app
        for number, (lock, key) in enumerate((("num_lock", "5"), ("caps_lock", "g"))):
            with self.subTest(lock=lock):
                shown = ("Ctrl+Alt+Super+X", "Ctrl+Shift+5")[number]
                self.desktop.press(lock)
                try:
                    mark = self.record(CLEAR, shown, f"ctrl+shift+{key}")
                    app.wait_for_line(PREFIX + f"Hotkey {CLEAR} -> ctrl+shift+{key}, persisted + "
                                      "registered live", since=mark)
                finally:
                    self.desktop.press(lock)

    def test_recording_ends_when_its_row_or_sheet_closes(self):
        app = self.shared_app
        resumed = "[HotkeyManager] Resumed all hotkeys after capture"
        with self.subTest("cancel"):
            mark = self.record(CLEAR, "Ctrl+Alt+Super+X")
            app.access.press("Cancel recording")
            app.wait_for_line(resumed, since=mark)
        with self.subTest("another row"):
            mark = self.record(CLEAR, "Ctrl+Alt+Super+X")
            app.access.press("Increase opacity, Ctrl+Alt+Super+]")
            app.wait_for_line(resumed, since=mark)
            app.access.wait_for(f"{CLEAR}, Ctrl+Alt+Super+X")
            app.access.wait_for("Increase opacity, Press a shortcut…")
        with self.subTest("another program"):
            mark = app.mark()
            _, x, y, width, _ = app.panel()
            self.desktop.click(x + width + 60, y + 100)
            app.wait_for_line(resumed, since=mark)
        with self.subTest("closed sheet"):
            mark = self.record(CLEAR, "Ctrl+Alt+Super+X")
            self.press_close()
            app.wait_for_line(resumed, since=mark)
            app.access.wait_gone("Reset all hotkeys")
            self.open_settings()
        with self.subTest("hidden panel"):
            mark = self.record(CLEAR, "Ctrl+Alt+Super+X")
            app.access.press("Minimize")
            app.wait_for_line(PREFIX + "Window hidden", since=mark)
            app.wait_for_line(resumed, since=mark)
            app.hotkey("ctrl+alt+super+t", "Toggle")
            app.wait_overlay_shown()


class KeptTest(E2ECase):
    def test_bindings_survive_a_restart_and_reset_all_removes_them(self):
        server = self.server()
        app = self.app(server, defaults={
            "hasLaunchedBefore": True, "userPrompt": "",
            "hotkeyBindings": {"clear": "ctrl+alt+m", "new_thread": "ctrl+alt+n"}}).sign_in()
        app.wait_for_line("[HotkeyManager] Registered Clear -> ctrl+alt+m", since=0)
        app.hotkey("ctrl+alt+m", "Clear")
        app.open_settings()
        self.desktop.press("end")
        app.access.wait_for(f"{CLEAR}, Ctrl+Alt+M")
        app.access.wait_for("Start a new thread, Ctrl+Alt+N")
        app.access.press("Reset all hotkeys")
        app.wait_for_line(PREFIX + "All hotkeys reset to config.json defaults, persisted + "
                          "re-registered live")
        app.access.wait_for(f"{CLEAR}, Ctrl+Alt+Super+X")
        wait_until(lambda: "hotkeyBindings" not in app.stored_defaults(),
                   what="the removed overrides")
        app.hotkey("ctrl+alt+super+x", "Clear")
        self.assertIsNone(app.access.find(f"Reset {CLEAR}"))

    def test_after_reset_all_the_next_start_uses_the_file(self):
        server = self.server()
        config = {"hotkeys": {"capture": "ctrl+alt+cmd+c", "clear": "ctrl+alt+l",
                              "toggle": "ctrl+alt+cmd+t", "opacity_up": "ctrl+alt+cmd+]",
                              "opacity_down": "ctrl+alt+cmd+["},
                  "overlay": {"x": 40, "y": 80, "width": 624, "height": 744,
                              "default_opacity": 0.88}}
        first = self.app(server, config=config, defaults={
            "hasLaunchedBefore": True, "userPrompt": "",
            "hotkeyBindings": {"clear": "ctrl+alt+m", "new_thread": "ctrl+alt+n"}}).sign_in()
        first.wait_for_line("[HotkeyManager] Registered Clear -> ctrl+alt+m", since=0)
        first.open_settings()
        self.desktop.press("end")
        first.access.press("Reset all hotkeys")
        first.wait_for_line(PREFIX + "All hotkeys reset to config.json defaults, persisted + "
                            "re-registered live")
        first.process.terminate()
        first.wait_exit()

        second = self.app(server, config=config,
                          environment={"XDG_CONFIG_HOME": str(first.config_home)})
        second.wait_login_window()
        second.wait_for_line("[HotkeyManager] Registered Clear -> ctrl+alt+l", since=0)
        second.wait_for_line("[HotkeyManager] Registered New Thread -> cmd+n", since=0)
        self.assertNotIn("hotkeyBindings", first.stored_defaults())
        self.assertEqual([line for line in second.lines if "ctrl+alt+m" in line], [])
        second.hotkey("ctrl+alt+l", "Clear")


class StartupIssueTest(E2ECase):
    """The card about hot keys that could not be registered."""

    def change(self, app, title, shown, combo):
        if app.access.find("Reset all hotkeys") is None:
            app.open_settings()
            self.desktop.press("end")
        mark = app.mark()
        app.access.press(f"{title}, {shown}")
        app.wait_for_line(PREFIX + f"Hotkey capture started for {title}", since=mark)
        self.desktop.press(combo)
        return mark

    def test_a_conflict_is_reported_once_until_resolved(self):
        holder = Holder(self.desktop, "ctrl+alt+super+x")
        self.addCleanup(holder.close)
        self.assertTrue(holder.has_it)
        app = self.app(self.server()).sign_in()
        card = re.compile(r"^Ctrl\+Alt\+Super\+X \(Clear\) is unavailable — already in use by "
                          r"another app\.")
        app.access.wait_for("Startup issue")
        text = app.access.text_of(app.access.wait_for(card))
        # Every recording registers all of them again.
        for _ in range(2):
            mark = self.change(app, CLEAR, "Ctrl+Alt+Super+X", "escape")
            app.wait_for_line("[HotkeyManager] Resumed all hotkeys after capture", since=mark)
        self.desktop.press("escape")
        app.access.wait_gone("Reset all hotkeys")
        self.assertEqual(app.access.text_of(app.access.wait_for(card)), text)
        self.assertEqual(text.count("is unavailable"), 1)
        mark = self.change(app, CLEAR, "Ctrl+Alt+Super+X", "ctrl+alt+m")
        app.wait_for_line(PREFIX + f"Hotkey {CLEAR} -> ctrl+alt+m, persisted + registered live",
                          since=mark)
        self.desktop.press("escape")
        app.access.wait_gone("Startup issue")
        self.assertIsNone(app.access.find(card))

    def test_a_conflict_with_an_own_combination_names_its_row(self):
        app = self.app(self.server(), defaults={
            "hasLaunchedBefore": True, "userPrompt": "",
            "hotkeyBindings": {"toggle": "cmd+X",
                               "clear": "CMD+x"}}).sign_in()
        app.access.wait_for("Startup issue")
        app.access.wait_for(re.compile(
            r"^Super\+X \(Toggle\) is unavailable — already used by Clear the response area\. "
            r"Choose another shortcut for one of the two in Settings\.$"))
        # Rebinding one action frees the combination for the other.
        mark = self.change(app, CLEAR, "Super+X", "ctrl+alt+m")
        app.wait_for_line("[HotkeyManager] Registered Toggle -> cmd+X", since=mark)
        self.desktop.press("escape")
        app.access.wait_gone("Startup issue")
        app.hotkey("super+x", "Toggle")
        app.wait_overlay_hidden()


if __name__ == "__main__":
    unittest.main()
