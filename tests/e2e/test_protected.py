"""Almost entirely black frames are rejected."""

import unittest

from harness import E2ECase
from harness.server import QUERY

DISCARDED = ("[ScreenshotCapture] Discarding near-black capture "
             "(protected/DRM content suspected)")
CARD = "Couldn't Capture Screen"


class ProtectedContentTest(E2ECase):
    def test_both_actions_reject_a_black_screen(self):
        server = self.server()
        app = self.app(server).sign_in()
        self.desktop.fill_root((0, 0, 0))
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line("[OverlayWindowController] Capture & Send triggered")
        app.wait_for_line(DISCARDED)
        app.wait_for_line("[OverlayWindowController] Capture & Send aborted — "
                          "near-black frame (protected content suspected)")
        app.access.wait_for(CARD)
        app.hotkey("ctrl+alt+super+shift+c", "Capture (No Send)")
        app.wait_for_line("[OverlayWindowController] Capture (no send) triggered")
        app.wait_for_line(DISCARDED)
        app.wait_for_line("[OverlayWindowController] Capture (no send) aborted — "
                          "near-black frame (protected content suspected)")
        self.assertIsNone(app.access.find("Attached screenshot"))
        self.assertEqual(server.requests(QUERY), [])
        self.assertEqual([name for name in app.temporary_files() if "vantiro" in name], [])

    def test_the_limit_between_dark_and_black(self):
        server = self.server()
        app = self.app(server).sign_in()
        window = self.other_window(colours=((8, 8, 8),) * 4)
        self.desktop.move_pointer(3, 3)
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(DISCARDED)
        window.close()
        self.other_window(colours=((9, 9, 9),) * 4)
        mark = app.mark()
        app.access.press("Capture and send")
        server.wait_for_request(QUERY)
        self.assertFalse(app.has_line(DISCARDED, mark))

    def test_a_dark_theme_with_text_is_accepted(self):
        server = self.server()
        app = self.app(server).sign_in()
        self.desktop.fill_root((0, 0, 0))
        # 1.2 % of the screen is light, above the limit of 0.1 %.
        self.other_window(x=900, y=300, width=120, height=120, colours=((220, 220, 220),) * 4)
        app.hotkey("ctrl+alt+super+c", "Capture")
        server.wait_for_request(QUERY)


if __name__ == "__main__":
    unittest.main()
