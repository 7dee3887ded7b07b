"""The status item: in the desktop's tray, in its menu, and on desktops without a tray."""

import unittest

from harness import E2ECase, wait_until
from harness.messages import RUNNING
from harness.tray import TrayHost

MENU_LOG = "[MenuBarController] "
NO_TRAY = MENU_LOG + "ERROR: statusItem.button is nil — cannot assign an image"


class TrayTest(E2ECase):
    def tray(self):
        host = TrayHost(self.desktop)
        self.addCleanup(host.close)
        return host

    def test_item_and_menu(self):
        tray = self.tray()
        server = self.server()
        app = self.app(server)
        app.wait_login_window()
        self.assertEqual(tray.items, [])
        app.fill_login()
        self.desktop.press("return")
        app.wait_for_line(RUNNING)
        app.wait_for_line(MENU_LOG + "statusItem.button exists", since=0)
        app.wait_for_line(MENU_LOG + 'NSImage(systemSymbolName: "gear") created successfully',
                          since=0)
        tray.wait_item()
        self.assertEqual(tray.property("Title"), "Quellora")
        self.assertEqual(tray.property("Id"), "Quellora")
        self.assertEqual(tray.property("ToolTip")[2], "Quellora")
        self.assertEqual(tray.property("Status"), "Active")
        self.check_icon(tray.property("IconPixmap"))

        rows = [properties for _, properties in tray.rows()]
        self.assertEqual([(row.get("type"), row.get("label"), row.get("enabled", True))
                          for row in rows],
                         [(None, "Show Quellora", True), ("separator", None, True),
                          (None, "Manage Account", True), (None, "Usage", False),
                          (None, "Settings", False), ("separator", None, True),
                          (None, "Sign Out", True), (None, "Quit", True)])
        self.assertTrue(all("shortcut" not in row and "children-display" not in row
                            and row.get("visible", True) for row in rows))

        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_hidden()
        tray.choose("Show Quellora")
        app.wait_for_line(MENU_LOG + "Show Quellora clicked")
        app.wait_overlay_shown()

        tray.choose("Manage Account")
        app.wait_for_line(MENU_LOG + f"Manage Account clicked, opening {server.url}/account")
        wait_until(lambda: app.opened() == [f"{server.url}/account"], what="the account page")

        mark = app.mark()
        tray.choose("Usage")
        tray.choose("Settings")
        former = [number for number, _ in tray.rows()]
        tray.choose("Sign Out")
        app.wait_for_line(MENU_LOG + "Sign Out clicked", since=mark)
        self.assertEqual([line for line in app.lines_since(mark) if line.startswith(MENU_LOG)],
                         [MENU_LOG + "Sign Out clicked"])
        tray.wait_empty()
        self.desktop.wait_for_active("Quellora")
        app.access.wait_for("Email", focused=True)
        self.assertEqual(len(self.desktop.viewable_windows("Quellora")), 1)

        app.fill_login()
        self.desktop.press("return")
        app.wait_for_line(RUNNING, since=mark)
        tray.wait_item()
        now = [number for number, _ in tray.rows()]
        self.assertEqual(tray.known(former + now), now, "rows of the former menu are kept")
        tray.choose("Quit")
        app.wait_for_line(MENU_LOG + "Quit clicked, terminating application")
        self.assertEqual(app.wait_exit(), 0)
        tray.wait_empty()

    def test_a_left_click_on_the_item_shows_the_panel(self):
        tray = self.tray()
        app = self.app(self.server()).sign_in()
        tray.wait_item()
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_hidden()
        tray.activate()
        app.wait_for_line(MENU_LOG + "Show Quellora clicked")
        app.wait_overlay_shown()

    def test_an_account_page_that_fails_to_open_is_reported_in_the_panel(self):
        tray = self.tray()
        app = self.app(self.server()).sign_in()
        tray.wait_item()
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_hidden()
        app.end_openers_with(3)
        tray.choose("Manage Account")
        app.wait_overlay_shown()
        app.access.wait_for("Could not open the browser: there is no program for it "
                            "(xdg-open, status 3)")

    def check_icon(self, pictures):
        """The gear exists in the usual sizes: its edge is opaque, its corners transparent."""
        self.assertTrue({16, 22, 32, 48} <= {width for width, _, _ in pictures})
        for width, height, argb in pictures:
            self.assertEqual((width, len(argb)), (height, width * height * 4))
            alpha = bytes(argb)[0::4]
            self.assertEqual({alpha[0], alpha[width - 1], alpha[-1]}, {0})
            self.assertGreater(sum(value > 200 for value in alpha), width * height // 8)

    def test_a_tray_that_appears_later_shows_the_item(self):
        app = self.app(self.server()).sign_in()
        self.assertEqual([line for line in app.lines if line.startswith(MENU_LOG + "ERROR")],
                         [NO_TRAY])
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_hidden()

        tray = self.tray()
        tray.wait_item()
        tray.choose("Show Quellora")
        app.wait_overlay_shown()

        # The item reappears after the desktop restarts its panel.
        tray.close()
        tray = self.tray()
        tray.wait_item()
        tray.choose("Sign Out")
        app.wait_for_line(MENU_LOG + "Sign Out clicked")
        tray.wait_empty()


if __name__ == "__main__":
    unittest.main()
