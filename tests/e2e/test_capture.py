"""Capture and send: the picture, the request and the answer."""

import base64
import json
import re
import unittest

from harness import E2ECase, HostileServer, Image, wait_until
from harness.messages import STREAM_COMPLETE
from harness.server import QUERY, TELEMETRY
from harness.windows import QUARTERS

CAPTURED = re.compile(r"^\[ScreenshotCapture\] Captured (\d+) bytes PNG -> (\d+) bytes JPEG "
                      r"\((\d+)x(\d+)\)$")
ANSWER = "The *document* has four quarters.\n\n```python\nprint('quarters')\n```\n"


class CaptureTest(E2ECase):
    desktop_options = {"width": 1600, "height": 1000}

    def captured_image(self, server, count=1):
        request = server.wait_for_request(QUERY, count)
        data = base64.b64decode(request.json()["imageBase64"], validate=True)
        return data, Image.from_file_bytes(data)

    def assert_shows_document(self, image, pointer):
        """The picture shows only the document and the pointer."""
        wrong = []
        for row in range(8, image.height - 8, 40):
            for column in range(8, image.width - 8, 40):
                if abs(column - pointer[0]) < 40 and abs(row - pointer[1]) < 40:
                    continue
                if abs(column - image.width // 2) < 8 or abs(row - image.height // 2) < 8:
                    continue
                quarter = QUARTERS[(column > image.width // 2) + 2 * (row > image.height // 2)]
                if not image.is_near(column, row, quarter, 12):
                    wrong.append((column, row, image.pixel(column, row)))
        self.assertEqual(wrong, [], "something covers the document")

    def test_capture_request_and_answer(self):
        server = self.server()
        server.on(QUERY, HostileServer.answer_with(*ANSWER, tokensUsed=321,
                                                   tokensRemaining=998000))
        app = self.app(server).sign_in()
        self.other_window()
        # The panel is on top of the document when the picture is taken.
        self.desktop.move_pointer(1400, 300)
        _, x, y, _, _ = app.panel()
        before = self.desktop.screenshot(x, y, 300, 30)
        self.assertFalse(before.is_near(280, 15, QUARTERS[0]), "the panel is not on top")
        mark = app.mark()
        app.hotkey("ctrl+alt+super+c", "Capture")

        data, image = self.captured_image(server)
        self.assertTrue(data.startswith(b"\xff\xd8\xff"))
        self.assertEqual((image.width, image.height), (1280, 800))
        pointer = (1400 * 0.8, 300 * 0.8)
        self.assert_shows_document(image, pointer)
        around = [image.pixel(column, row)
                  for column in range(1120, 1136) for row in range(240, 256)]
        dark_or_white = [p for p in around if max(p) < 60 or min(p) > 190]
        self.assertTrue(dark_or_white, "the pointer is missing from the picture")

        request = server.wait_for_request(QUERY)
        self.assertEqual(request.method, "POST")
        self.assertEqual(
            request.header_order("Authorization", "X-App-Version", "Content-Type"),
            ["Content-Type", "Authorization", "X-App-Version"])
        self.assertEqual(request.header("Authorization"), "Bearer session-token-1")
        self.assertEqual(request.header("X-App-Version"), "1.0.0")
        self.assertEqual(request.header("Content-Type"), "application/json")
        keys = list(json.loads(request.body).keys())
        self.assertIn(keys, (["prompt", "imageBase64"], ["prompt", "imageBase64", "model"]))
        self.assertEqual(request.json()["prompt"], "Describe what is on the screen.")

        app.wait_for_line(STREAM_COMPLETE)
        index = app.wait_for_line(CAPTURED, since=mark)
        numbers = CAPTURED.match(app.lines[index])
        self.assertEqual(int(numbers[2]), len(data))
        self.assertEqual((numbers[3], numbers[4]), ("1280", "800"))
        text = app.access.wait_for_page_text("print('quarters')")
        self.assertIn("four quarters", text)
        self.assertIn("Describe what is on the screen.", text)
        self.assertNotIn("```", text)
        # The accessible text is also drawn: more than one colour.
        left, top = x + 16, y + 90
        wait_until(lambda: len(self.desktop.screenshot(left, top, 500, 120).colours()) > 20,
                   what="the answer to be drawn in the panel")

        wait_until(app.turns, what="the stored turn")
        self.assertEqual(app.turns(), [("Describe what is on the screen.", ANSWER)])
        thread = app.threads()[0]
        folder = app.data_home / "Quellora" / "sessions" / thread["id"]
        self.assertEqual((folder / "screenshot-0.png").read_bytes(), data)
        self.assertEqual([name for name in app.temporary_files() if "vantiro_capture_" in name],
                         [], "the capture's own file is left behind")

        telemetry = server.wait_for_request(TELEMETRY)
        self.assertEqual(telemetry.header("Authorization"), "Bearer session-token-1")
        record = telemetry.json()
        self.assertGreater(record["response_time_ms"], 0)
        self.assertGreater(record["time_to_first_token_ms"], 0)
        self.assertGreaterEqual(record["response_time_ms"], record["time_to_first_token_ms"])
        for timing in ("response_time_ms", "time_to_first_token_ms", "model_used"):
            record.pop(timing)
        self.assertEqual(record, {
            "used_fallback": False, "prompt_chars": 31, "has_image": True, "input_tokens": 0,
            "output_tokens": 0, "total_tokens": 321, "tokens_used_before": 1000,
            "tokens_remaining_after": 998000, "token_cap": 1000000, "over_cap": False,
            "app_version": "1.0.0", "platform": "mac"})

    def test_panel_with_an_answer_is_not_captured(self):
        server = self.server()
        server.on(QUERY, HostileServer.answer_with("# Big heading\n\n" + "word " * 400))
        app = self.app(server).sign_in()
        self.other_window()
        self.desktop.move_pointer(1590, 990)
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(STREAM_COMPLETE)
        app.access.wait_for_page_text("Big heading")
        mark = app.mark()
        wait_until(lambda: (self.desktop.press("ctrl+alt+super+c") or
                            app.has_line("[HotkeyManager] Fired: Capture", mark)),
                   what="the second capture", interval=0.35)
        _, image = self.captured_image(server, 2)
        self.assert_shows_document(image, (1272, 792))
        # The earlier turn is sent as context; the stored turn has only the prompt.
        prompt = server.wait_for_request(QUERY, 2).json()["prompt"]
        self.assertTrue(prompt.startswith(
            "Previous conversation:\nUser: Describe what is on the screen.\nAssistant: # Big"))
        self.assertTrue(prompt.endswith(
            "\n\nCurrent message:\nDescribe what is on the screen."))

    def test_staged_capture_is_sent_with_the_next_message(self):
        server = self.server()
        app = self.app(server).sign_in()
        self.other_window()
        app.hotkey("ctrl+alt+super+shift+c", "Capture (No Send)")
        app.wait_for_line("[OverlayWindowController] Capture (no send) triggered")
        app.access.wait_for("Attached screenshot")
        self.assertEqual(server.requests(QUERY), [])
        app.send_prompt("What colour is it?")
        request = server.wait_for_request(QUERY)
        self.assertEqual(request.json()["prompt"], "What colour is it?")
        image = Image.from_file_bytes(base64.b64decode(request.json()["imageBase64"]))
        self.assertEqual((image.width, image.height), (1280, 800))
        app.wait_for_line(STREAM_COMPLETE)
        app.access.wait_gone("Attached screenshot")
        self.desktop.type_text("And now?\n")
        second = server.wait_for_request(QUERY, 2)
        self.assertNotIn("imageBase64", second.json())

    def test_removed_attachment_is_not_sent(self):
        server = self.server()
        app = self.app(server).sign_in()
        self.other_window()
        app.access.press("Capture without sending")
        app.access.wait_for("Attached screenshot")
        app.access.press("Remove screenshot")
        app.access.wait_gone("Attached screenshot")
        app.send_prompt("Hello")
        self.assertNotIn("imageBase64", server.wait_for_request(QUERY).json())


if __name__ == "__main__":
    unittest.main()
