"""A region, the window in front and the look before sending, with real keys and mouse."""

import base64
import re
import unittest

from harness import E2ECase, Image, wait_until
from harness.app import DEFAULTS
from harness.server import QUERY
from harness.windows import QUARTERS

SHOWN = re.compile(r"^\[RegionCapture\] Region shown after \d+ ms, ")
GIVEN_UP = ("[OverlayWindowController] Capture region & Send given up — nothing was chosen")
KEYS = {"capture_region": "ctrl+alt+cmd+r", "capture_window": "ctrl+alt+cmd+w",
        "capture_last_region": "ctrl+alt+cmd+l"}
PICKER = re.compile(r"^(Choose a region|Region \d+ by )")
RED, GREEN, BLUE, YELLOW = QUARTERS


class RegionTest(E2ECase):
    desktop_options = {"width": 1600, "height": 1000}

    def start(self, **defaults):
        """A signed-in program above a document that has the focus."""
        server = self.server()
        app = self.app(server, defaults=DEFAULTS | {"hotkeyBindings": KEYS} | defaults).sign_in()
        other = self.other_window()
        other.wait_focus()
        return server, app, other

    def open_picker(self, app):
        mark = app.mark()
        app.hotkey("ctrl+alt+super+r", "Capture Region")
        app.wait_for_line(SHOWN, since=mark)
        app.access.wait_for(PICKER)

    def wait_for_question(self, app):
        """The picture is on show, and Return would send it."""
        app.access.wait_for("Send this picture?")
        # The prompt box has a button of this name as well.
        wait_until(lambda: any(app.access.has_state(button, "FOCUSED")
                               for button in app.access.find_all("Send", "push button")),
                   what="the focus on Send")

    def sent(self, server, count=1):
        request = server.wait_for_request(QUERY, count)
        return Image.from_file_bytes(base64.b64decode(request.json()["imageBase64"]))

    def assert_size(self, image, width, height):
        self.assertEqual((image.width, image.height), (width, height))

    def assert_types_into(self, other):
        """The keyboard is back in the other program."""
        other.wait_focus()
        mark = other.mark()
        self.desktop.press("k")
        other.wait_for("key", ord("k"), since=mark)

    def test_region_drawn_with_the_mouse(self):
        server, app, other = self.start()
        _, x, y, width, height = app.panel()
        mark = other.mark()
        self.open_picker(app)
        # The frozen screen without the panel, dimmed.
        dimmed = self.desktop.screenshot()
        panel_middle = (x + width // 2, y + height - 40)
        quarter = QUARTERS[(panel_middle[0] > 800) + 2 * (panel_middle[1] > 500)]
        half = tuple(value // 2 for value in quarter)
        self.assertTrue(dimmed.is_near(*panel_middle, half, 16), dimmed.pixel(*panel_middle))
        # Across the middle of the document, 100 x 60 pixels.
        self.desktop.drag(750, 470, 849, 529)
        app.access.wait_for(re.compile("^Region 100 by 60 at 750, 470"))
        bright = self.desktop.wait_for_picture(
            lambda now: now.is_near(760, 480, RED, 4), "the chosen part to be bright")
        self.assertTrue(bright.is_near(840, 520, YELLOW, 4))
        self.assertTrue(bright.is_near(300, 200, tuple(value // 2 for value in RED), 16))
        self.desktop.press("return")
        image = self.sent(server)
        self.assert_size(image, 100, 60)
        for place, colour in (((10, 10), RED), ((90, 10), GREEN), ((10, 50), BLUE),
                              ((90, 50), YELLOW)):
            self.assertTrue(image.is_near(*place, colour, 16), (place, image.pixel(*place)))
        app.access.wait_gone(PICKER)
        self.assert_types_into(other)
        self.assertEqual(other.events("press", since=mark), [])
        self.assertEqual(app.temporary_files(), [name for name in app.temporary_files()
                                                 if "vantiro_capture_" not in name])
        # The picture is kept with the thread like any other.
        wait_until(app.turns, what="the stored turn")
        folder = app.data_home / "Quellora" / "sessions" / app.threads()[0]["id"]
        kept = Image.from_file_bytes((folder / "screenshot-0.png").read_bytes())
        self.assert_size(kept, 100, 60)

    def test_region_with_keys_only_and_again(self):
        server, app, other = self.start()
        self.open_picker(app)
        self.desktop.press("right")
        app.access.wait_for(re.compile("^Region 800 by 500 at 400, 250"))
        self.desktop.press("ctrl+right")
        self.desktop.press("up")
        self.desktop.press("shift+left")
        self.desktop.press("shift+ctrl+down")
        app.access.wait_for(re.compile("^Region 799 by 510 at 410, 249"))
        self.desktop.press("return")
        self.assert_size(self.sent(server), 799, 510)
        self.assert_types_into(other)
        mark = app.mark()
        app.hotkey("ctrl+alt+super+l", "Capture Last Region")
        again = self.sent(server, 2)
        self.assert_size(again, 799, 510)
        self.assertTrue(again.is_near(10, 10, RED, 16))
        self.assertFalse([line for line in app.lines_since(mark) if SHOWN.match(line)])

    def test_last_region_without_one_lets_the_user_choose(self):
        server, app, other = self.start()
        mark = app.mark()
        app.hotkey("ctrl+alt+super+l", "Capture Last Region")
        app.wait_for_line(SHOWN, since=mark)
        self.desktop.drag(100, 100, 179, 139)
        self.desktop.press("return")
        self.assert_size(self.sent(server), 80, 40)
        self.assert_types_into(other)

    def test_escape_and_the_mouse(self):
        server, app, other = self.start()
        self.open_picker(app)
        self.desktop.drag(100, 100, 300, 300)
        self.desktop.press("escape")
        app.wait_for_line(GIVEN_UP)
        app.access.wait_gone(PICKER)
        self.assert_types_into(other)
        self.assertEqual(server.requests(QUERY), [])
        # Drawn, moved, and taken with a double click.
        self.open_picker(app)
        self.desktop.drag(100, 100, 199, 149)
        app.access.wait_for(re.compile("^Region 100 by 50 at 100, 100"))
        self.desktop.drag(150, 120, 250, 220)
        app.access.wait_for(re.compile("^Region 100 by 50 at 200, 200"))
        self.desktop.click(250, 225)
        self.desktop.click(250, 225)
        self.assert_size(self.sent(server), 100, 50)
        self.assert_types_into(other)

    def test_keyboard_returns_to_the_prompt(self):
        server, app, _ = self.start()
        app.focus_prompt()
        self.desktop.type_text("What is ")
        self.open_picker(app)
        self.desktop.drag(100, 100, 199, 149)
        # Kept for the message that is being written.
        self.desktop.press("shift+return")
        app.access.wait_for("Attached screenshot")
        self.assertEqual(server.requests(QUERY), [])
        app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("this?\n")
        request = server.wait_for_request(QUERY)
        self.assertEqual(request.json()["prompt"], "What is this?")
        self.assert_size(self.sent(server), 100, 50)

    def test_from_the_menu_and_by_command(self):
        server, app, _ = self.start()
        app.access.press("Menu")
        app.access.click("Capture region", "menu item")
        app.access.wait_for(PICKER)
        self.desktop.press("escape")
        app.wait_for_line(GIVEN_UP)
        app.access.press("Menu")
        app.access.click("Capture window", "menu item")
        # The window in front is the document, which fills the screen.
        self.assert_size(self.sent(server), 1280, 800)

    def test_window_in_front(self):
        server, app, _ = self.start()
        window = self.other_window(x=300, y=200, width=500, height=400, title="Smaller")
        window.wait_focus()
        app.hotkey("ctrl+alt+super+w", "Capture Window")
        image = self.sent(server)
        self.assert_size(image, 500, 400)
        self.assertTrue(image.is_near(20, 20, RED, 16))
        self.assertTrue(image.is_near(480, 380, YELLOW, 16))
        # Also while the panel has the keyboard.
        app.focus_prompt()
        app.hotkey("ctrl+alt+super+w", "Capture Window")
        self.assert_size(self.sent(server, 2), 500, 400)

    def test_no_window_in_front(self):
        server = self.server()
        app = self.app(server, defaults=DEFAULTS | {"hotkeyBindings": KEYS}).sign_in()
        app.hotkey("ctrl+alt+super+w", "Capture Window")
        app.access.wait_for_page_text("No window is in front")
        self.assertEqual(server.requests(QUERY), [])

    def test_look_before_sending(self):
        server, app, other = self.start(lookBeforeSending=True, userPrompt="What is it?")
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.access.wait_for("Send this picture?")
        app.access.wait_for("Captured picture")
        self.wait_for_question(app)
        self.desktop.press("escape")
        app.access.wait_gone("Send this picture?")
        app.wait_for_line("[OverlayWindowController] Capture dropped by the user")
        self.assertEqual(server.requests(QUERY), [])
        self.assertEqual(app.threads(), [])
        self.assert_types_into(other)

        app.hotkey("ctrl+alt+super+c", "Capture")
        self.wait_for_question(app)
        self.desktop.press("return")
        request = server.wait_for_request(QUERY)
        self.assertEqual(request.json()["prompt"], "What is it?")
        self.assert_size(self.sent(server), 1280, 800)
        app.access.wait_gone("Send this picture?")
        self.assert_types_into(other)

    def test_look_can_attach(self):
        server, app, _ = self.start(lookBeforeSending=True)
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.access.click("Attach")
        app.access.wait_for("Attached screenshot")
        self.assertEqual(server.requests(QUERY), [])
        app.send_prompt("And this?")
        self.assert_size(self.sent(server), 1280, 800)

    def test_look_is_switched_on_in_settings(self):
        server, app, _ = self.start()
        app.open_settings()
        app.access.press("Look before sending")
        wait_until(lambda: app.stored_defaults().get("lookBeforeSending"), what="the setting")
        self.desktop.press("escape")
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.access.wait_for("Send this picture?")
        self.assertEqual(server.requests(QUERY), [])


if __name__ == "__main__":
    unittest.main()
