"""Keys that the desktop assigns: GNOME's portal for keys in a Wayland session."""

import importlib.util
import re
import unittest

from harness import E2ECase, wait_until
from harness.messages import PREFIX
from harness.shortcuts import ShortcutsPortal

SESSION = {"XDG_SESSION_TYPE": "wayland", "XDG_CURRENT_DESKTOP": "GNOME"}
TOGGLE = "Toggle overlay visibility"
PROBLEM = re.compile("Hotkeys work only over some windows in this session")


@unittest.skipUnless(importlib.util.find_spec("dbusmock"),
                     "needs the Debian package python3-dbusmock")
class DesktopKeysTest(E2ECase):
    def portal(self, **options):
        portal = ShortcutsPortal(self.desktop, **options)
        self.addCleanup(portal.close)
        return portal

    def start(self):
        return self.app(self.server(), environment=SESSION).sign_in()

    def wait_delivered(self, app):
        app.wait_for_line(re.compile(re.escape(
            "[DesktopShortcuts] The desktop delivers keys: capture = Press CTRL+ALT+LOGO+c, "
            "clear = Press CTRL+ALT+LOGO+x, toggle = Press CTRL+ALT+LOGO+t, "
            "opacity-up = Press CTRL+ALT+LOGO+bracketright, "
            "opacity-down = Press CTRL+ALT+LOGO+bracketleft, "
            "capture-no-send = Press CTRL+ALT+LOGO+SHIFT+c, new-thread = Press LOGO+n")), since=0)

    def scroll_to(self, app, name, role):
        """Scrolls the settings up from their end until a row is in sight."""
        self.desktop.press("end")
        wait_until(lambda: app.access.find(name, role) or self.desktop.press("up"),
                   what=f"the row {name}")

    def test_desktop_keys_run_actions(self):
        portal = self.portal()
        app = self.app(self.server(), environment=SESSION)
        app.wait_login_window()
        # The user is not asked before knowing what asks.
        self.assertEqual(portal.dialogs(), 0)
        app.fill_login()
        self.desktop.press("return")
        app.wait_overlay_shown()
        self.wait_delivered(app)
        self.assertEqual(portal.dialogs(), 1)
        portal.press("capture")
        app.wait_for_line("[HotkeyManager] Fired: Capture")
        app.wait_for_line(PREFIX + "Capture & Send triggered")
        # Without a portal for pictures the capture fails, and the panel shows why.
        app.wait_for_line(re.compile("Screenshot capture failed"))
        # The program's own combination is no longer held: one press is one action.
        mark = app.mark()
        self.desktop.press("ctrl+alt+super+t")
        portal.press("toggle")
        app.wait_overlay_hidden()
        self.assertEqual(app.lines_since(mark).count("[HotkeyManager] Fired: Toggle"), 1)
        self.assertIsNone(app.access.find(PROBLEM))

    def test_the_user_is_asked_once(self):
        portal = self.portal()
        app = self.start()
        self.wait_delivered(app)
        app.process.terminate()
        self.assertEqual(app.wait_exit(), 0)
        app = self.start()
        self.wait_delivered(app)
        self.assertEqual(portal.dialogs(), 1)
        portal.press("toggle")
        app.wait_overlay_hidden()

    def test_settings_follow_the_desktop(self):
        portal = self.portal()
        app = self.start()
        self.wait_delivered(app)
        app.open_settings()
        self.scroll_to(app, f"{TOGGLE}, Press CTRL+ALT+LOGO+t, assigned by the desktop", "label")
        # Above the visible part of the sheet.
        self.assertIn("Your desktop assigns these keys. To change them, open Settings → Apps → "
                      "Quellora → Global Shortcuts.",
                      [node.get_name() for _, node in app.access.walk()])
        self.assertIsNone(app.access.find("Reset all hotkeys"))
        portal.assign("toggle", "Press F9")
        app.access.wait_for(f"{TOGGLE}, Press F9, assigned by the desktop", "label")
        portal.assign("toggle", "")
        app.access.wait_for(f"{TOGGLE}, no key assigned", "label")
        # The portal ends; the program's own combinations work over some windows.
        portal.close()
        app.access.wait_for(f"{TOGGLE}, Ctrl+Alt+Super+T, works over some windows", "push button")
        self.scroll_to(app, "Reset all hotkeys", "push button")

    def test_declined_keys(self):
        portal = self.portal(declines=True)
        app = self.start()
        app.wait_for_line("[DesktopShortcuts] WARNING: The keys were declined in the desktop's "
                          "dialog; Quellora asks again when it is started the next time.", since=0)
        app.access.wait_for(PROBLEM)
        self.assertEqual(portal.dialogs(), 1)
        app.hotkey("ctrl+alt+super+x", "Clear")
        app.wait_for_line(PREFIX + "Content cleared")
        app.open_settings()
        self.scroll_to(app, f"{TOGGLE}, Ctrl+Alt+Super+T, works over some windows", "push button")
        self.assertEqual(portal.dialogs(), 1)


if __name__ == "__main__":
    unittest.main()
