"""Capture while a compositor draws the panel translucently."""

import base64
import unittest

from harness import E2ECase, Image
from harness.server import QUERY
from harness.windows import QUARTERS


class CompositedCaptureTest(E2ECase):
    desktop_options = {"compositor": ""}

    def test_translucent_panel_is_not_captured(self):
        server = self.server()
        app = self.app(server).sign_in()
        self.other_window()
        self.desktop.move_pointer(self.desktop.width - 5, self.desktop.height - 5)
        app.hotkey("ctrl+alt+super+c", "Capture")
        request = server.wait_for_request(QUERY)
        image = Image.from_file_bytes(base64.b64decode(request.json()["imageBase64"]))
        self.assertEqual((image.width, image.height), (1280, 960))
        _, x, y, width, height = app.panel()
        wrong = [(column, row)
                 for row in range(max(y, 0) + 4, min(y + height, 960) - 4, 12)
                 for column in range(x + 4, x + width - 4, 12)
                 if abs(column - 640) > 12 and abs(row - 480) > 12
                 and not image.is_near(column, row,
                                       QUARTERS[(column > 640) + 2 * (row > 480)], 12)]
        self.assertEqual(wrong, [], "the panel shows in the picture")


if __name__ == "__main__":
    unittest.main()
