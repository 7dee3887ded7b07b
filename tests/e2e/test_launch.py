"""From process start to the running overlay: exact log lines, and the configuration."""

import re
import unittest

from harness import E2ECase
from harness.messages import RUNNING

REGISTERED = {
    "Capture": "ctrl+alt+cmd+c", "Clear": "ctrl+alt+cmd+x", "Toggle": "ctrl+alt+cmd+t",
    "Opacity Up": "ctrl+alt+cmd+]", "Opacity Down": "ctrl+alt+cmd+[",
    "Capture (No Send)": "ctrl+alt+cmd+shift+c", "New Thread": "cmd+n",
}

#: Components with fixed start-up lines; others may log in between.
FIXED = re.compile(r"\[(main|AppConfig|AppDelegate|Config|PermissionChecker|HotkeyManager"
                   r"|LoginWindowController|AuthService|HeartbeatService)\] ")


def launch_lines(url, configuration="[Config] config.json not found, using built-in defaults",
                 hotkeys=None):
    """Every fixed line from the start to the login window."""
    return [
        "[main] Process started, launching NSApplication",
        f"[AppConfig] Using QUELLORA_BACKEND_URL override: {url}",
        "[main] Delegate assigned, entering run loop",
        "[AppDelegate] applicationDidFinishLaunching",
        configuration,
        "[AppDelegate] Activation policy set to .accessory (no Dock/App Switcher)",
        "[AppDelegate] Edit menu installed to prime standard key-equivalent shortcuts",
        "[PermissionChecker] Accessibility permission trusted: true",
        "[PermissionChecker] Screen Recording permission granted: true",
        *(f"[HotkeyManager] Registered {name} -> {combo}"
          for name, combo in (REGISTERED | (hotkeys or {})).items()),
        "[LoginWindowController] Login window created",
        "[LoginWindowController] Activated app and made login window key",
        "[AppDelegate] Login window shown, overlay deferred until sign-in",
    ]


class LaunchTest(E2ECase):
    def fixed_lines(self, app, since=0):
        # The one line about the page engine's sandbox appears for root only.
        return [line for line in app.lines_since(since)
                if FIXED.match(line) and "sandbox" not in line.lower()]

    def test_log_from_start_to_overlay(self):
        server = self.server()
        app = self.app(server)
        app.wait_login_window()
        self.assertEqual(self.fixed_lines(app), launch_lines(server.url))

        mark = app.mark()
        app.fill_login()
        self.desktop.press("return")
        app.wait_for_line(RUNNING)
        self.assertEqual(self.fixed_lines(app, mark), [
            "[AuthService] Login successful",
            "[LoginWindowController] Login successful, closing login window",
            "[AppDelegate] OverlayWindowController created",
            "[AppDelegate] Overlay window shown",
            "[HeartbeatService] Starting, interval: 86400.0s",
            "[AppDelegate] MenuBarController created",
            RUNNING,
        ])
        overlay = [line for line in app.lines_since(mark)
                   if line.startswith("[OverlayWindowController] ")]
        prefix = "[OverlayWindowController] "
        expected = [
            re.escape(prefix + "init"),
            re.escape(prefix + "NonFocusPanel created (624.0x744.0)"),
            re.escape(prefix) + r"Positioned at .+ on screen .+",
            re.escape(prefix) + r"Building content view \(bounds: .+",
            re.escape(prefix + "Content view built and attached "
                               "(WebView + control bar + bottom panels)"),
            re.escape(prefix + "init complete"),
            re.escape(prefix) + r"Usage bar updated: .*\(?0\.1%\), tier=grey",
        ]
        position = 0
        for line in overlay:
            if position < len(expected) and re.fullmatch(expected[position], line):
                position += 1
        self.assertEqual(position, len(expected),
                         app.describe(f"no line {expected[position:][:1]} in its place"))

    def test_every_line_has_a_monotonic_time(self):
        app = self.app(self.server()).sign_in()
        times = []
        for line in app.raw_lines:
            self.assertRegex(line, r"^\[\d\d:\d\d:\d\d\.\d\d\d\] \S")
            times.append(line[1:13])
        self.assertEqual(times, sorted(times))

    def test_panel_size_and_place(self):
        app = self.app(self.server()).sign_in()
        _, x, y, width, height = app.panel()
        self.assertEqual((width, height), (624, 744))
        self.assertEqual((x, y), (40, self.desktop.height - 80 - 744))

    def test_configuration_file_sets_hotkeys_and_geometry(self):
        hotkeys = {"capture": "ctrl+alt+k", "clear": "ctrl+alt+l", "toggle": "ctrl+alt+j",
                   "opacity_up": "ctrl+alt+=", "opacity_down": "ctrl+alt+-"}
        server = self.server()
        app = self.app(server, config={
            "hotkeys": hotkeys,
            "overlay": {"x": 100, "y": 50, "width": 500, "height": 600, "default_opacity": 0.5}})
        app.wait_login_window()
        self.assertEqual(self.fixed_lines(app), launch_lines(
            server.url, f"[Config] Loaded {app.work}/config.json",
            {"Capture": "ctrl+alt+k", "Clear": "ctrl+alt+l", "Toggle": "ctrl+alt+j",
             "Opacity Up": "ctrl+alt+=", "Opacity Down": "ctrl+alt+-"}))
        app.fill_login()
        self.desktop.press("return")
        app.wait_for_line("[OverlayWindowController] NonFocusPanel created (500.0x600.0)")
        app.wait_for_line(RUNNING)
        app.wait_overlay_shown()
        _, x, y, width, height = app.panel()
        self.assertEqual((x, y, width, height), (100, self.desktop.height - 50 - 600, 500, 600))
        app.hotkey("ctrl+alt+=", "Opacity Up")
        app.wait_for_line("[OverlayWindowController] Opacity adjusted by +0.1 -> 0.60")

    def test_invalid_configuration_file_is_ignored(self):
        app = self.app(self.server(), config='{"overlay": {"width": 500}}')
        app.wait_login_window()
        path = f"{app.work}/config.json"
        app.wait_for_line(re.compile(
            rf"^\[Config\] Failed to parse {re.escape(path)}: .+\. Using built-in defaults$"),
            since=0)
        app.wait_for_line("[HotkeyManager] Registered Capture -> ctrl+alt+cmd+c", since=0)

    def test_stored_hotkey_overrides_take_precedence(self):
        app = self.app(self.server(), defaults={"hotkeyBindings": {"clear": "ctrl+alt+m"}})
        app.wait_login_window()
        app.wait_for_line("[HotkeyManager] Registered Clear -> ctrl+alt+m", since=0)
        app.wait_for_line("[HotkeyManager] Registered Capture -> ctrl+alt+cmd+c", since=0)

    def test_signs_in_again_after_every_launch(self):
        server = self.server()
        first = self.app(server).sign_in()
        first.close()
        second = self.app(server)
        second.wait_login_window()
        self.assertEqual(len(server.requests("/api/auth/app-verify")), 0)


if __name__ == "__main__":
    unittest.main()
