"""The settings sheet: effects of every control in the program, on disk and on the screen."""

import re
import unittest

from harness import E2ECase, HostileServer, SignedInCase, wait_until
from harness.messages import STREAM_COMPLETE
from harness.app import DEFAULTS
from harness.server import QUERY

DARK, LIGHT = (28, 30, 36), (247, 245, 240)


class SheetMixin:
    """Helpers for the sheet."""

    def close_settings(self, app):
        # The window's own close button comes first.
        app.access.find_all("Close")[-1].get_action_iface().do_action(0)
        app.access.wait_gone("Settings", "panel")

    def wait_colour(self, app, colour, x=300, y=60):
        """Waits for a colour at a position in the panel, in logical pixels."""
        _, left, top, _, _ = app.panel()

        def look():
            return self.desktop.screenshot().is_near(left + x, top + y, colour, tolerance=6)
        wait_until(look, what=f"the colour {colour} in the panel", interval=0.1)

    def wait_stored(self, app, key, value):
        wait_until(lambda: app.stored_defaults().get(key) == value, what=f"{key} = {value!r}")


class SettingsTest(SheetMixin, SignedInCase):
    app_options = {"defaults": DEFAULTS | {"com.quellora.app.appearance": "dark"}}

    def tearDown(self):
        app = self.shared_app
        if app.access.find("Settings", "panel") is not None:
            self.close_settings(app)

    def test_mouse_and_escape(self):
        app = self.shared_app
        window = self.other_window()
        app.access.click("Menu")
        app.access.click("Settings")
        app.access.wait_for("Response text color")
        # It covers everything below the control bar and receives clicks and keys.
        self.wait_colour(app, DARK)
        _, x, y, width, height = app.panel()
        mark = window.mark()
        self.desktop.click(x + 12, y + height // 2)
        self.desktop.press("escape")
        app.access.wait_gone("Response text color")
        wait_until(lambda: self.desktop.focus_window() == window.window_id,
                   what="the focus of the document")
        self.desktop.type_text("k")
        window.wait_for("key", ord("k"), since=mark)
        self.assertEqual([event for event in window.events(since=mark)
                          if event.kind in ("press", "key")][0].kind, "key")
        self.assertEqual(len(window.events("key", since=mark)), 1)

    def test_keyboard_alone(self):
        app = self.shared_app
        app.focus_prompt()
        app.access.press("Menu")
        app.access.wait_for("Account")

        def is_on_settings():
            return app.access.has_state(app.access.find("Settings", "menu item"), "FOCUSED")
        wait_until(lambda: is_on_settings() or self.desktop.press("down"), what="the Settings row")
        self.desktop.press("return")
        app.access.wait_for("Response text color")
        self.desktop.press("tab")
        app.access.wait_for("Balanced", "radio button", focused=True)
        self.desktop.press("down")
        app.access.wait_for("Deep", "radio button", focused=True)
        self.wait_stored(app, "selectedModelId", "deep-1")
        self.desktop.press("up")
        self.wait_stored(app, "selectedModelId", "balanced-1")
        self.desktop.press("tab")
        self.desktop.press("tab")
        app.access.wait_for("Text color: Theme", focused=True)
        self.desktop.press("escape")
        app.access.wait_gone("Response text color")
        app.access.wait_for("Menu", focused=True)

    def test_appearance_applies_immediately(self):
        app = self.shared_app
        app.open_settings()
        app.access.press("Light", "radio button")
        self.wait_stored(app, "com.quellora.app.appearance", "light")
        self.wait_colour(app, LIGHT)
        # The frame stays dark; the answer area changes once the sheet is closed.
        self.wait_colour(app, (18, 18, 28), x=200, y=17)
        self.close_settings(app)
        _, x, y, _, _ = app.panel()
        wait_until(lambda: min(self.desktop.screenshot().average(x + 30, y + 400, 20, 20)) > 150,
                   what="a light answer area", interval=0.1)
        app.open_settings()
        app.access.press("Dark", "radio button")
        self.wait_stored(app, "com.quellora.app.appearance", "dark")
        self.wait_colour(app, DARK)

    def test_text_colour_reaches_the_page(self):
        app = self.shared_app
        self.ask("hello")
        self.wait_answer()
        app.access.wait_for_page_text("Hello from the server.")
        app.open_settings()
        app.access.press("Text color: Magenta")
        self.wait_stored(app, "responseTextColorHex", "#ff4fd8")
        self.close_settings(app)
        _, x, y, width, _ = app.panel()

        def coloured(test):
            picture = self.desktop.screenshot(x + 8, y + 80, width - 60, 260)
            return any(test(*colour) for colour in picture.colours())
        wait_until(lambda: coloured(lambda r, g, b: r > 220 and g < 110 and b > 180),
                   what="magenta text", interval=0.1)
        app.open_settings()
        app.access.click("Custom text color")
        app.access.wait_for("Custom text color", focused=True)
        self.desktop.press("ctrl+a")
        self.desktop.type_text("#fff\n")
        app.access.wait_for("Enter a valid hex color, e.g. #8899aa")
        self.assertEqual(app.stored_defaults()["responseTextColorHex"], "#ff4fd8")
        self.desktop.press("ctrl+a")
        self.desktop.type_text(" 00FF00 \n")
        self.wait_stored(app, "responseTextColorHex", "#00ff00")
        app.access.wait_gone("Enter a valid hex color, e.g. #8899aa")
        app.access.press("Text color: Theme")
        wait_until(lambda: "responseTextColorHex" not in app.stored_defaults(),
                   what="no custom colour")
        self.close_settings(app)
        wait_until(lambda: not coloured(lambda r, g, b: g > 200 and r < 100 or r - g > 120),
                   what="the theme's text colour", interval=0.1)

    def test_escape_discards_a_partly_typed_colour(self):
        app = self.shared_app
        app.open_settings()
        app.access.press("Text color: Green")
        self.wait_stored(app, "responseTextColorHex", "#3ddc84")
        app.access.click("Custom text color")
        app.access.wait_for("Custom text color", focused=True)
        self.desktop.press("ctrl+a")
        self.desktop.type_text("#00ff00")
        field = app.access.find("Custom text color")
        wait_until(lambda: app.access.text_of(field) == "#00ff00", what="the typed colour")
        self.desktop.press("escape")
        app.access.wait_gone("Response text color")
        app.open_settings()
        self.assertEqual(app.access.text_of(app.access.wait_for("Custom text color")), "#3ddc84")
        # Later choices are stored after earlier ones.
        app.access.press("Text color: Theme")
        wait_until(lambda: "responseTextColorHex" not in app.stored_defaults(),
                   what="no custom colour")
        self.close_settings(app)

    def test_choosing_the_marked_model_stores_it(self):
        app = self.shared_app
        app.open_settings()
        marked = next(node for node in app.access.find_all(re.compile("^(Balanced|Deep)$"),
                                                           "radio button")
                      if app.access.has_state(node, "CHECKED"))
        self.assertEqual(marked.get_name(), "Balanced")
        if "selectedModelId" not in app.stored_defaults():
            app.access.click("Balanced", "radio button")
            self.wait_stored(app, "selectedModelId", "balanced-1")
        self.close_settings(app)

    def test_help_links_and_unsupported_features(self):
        app = self.shared_app
        app.open_settings()
        app.access.wait_for("Other programs' screenshots and screen sharing show this panel.")
        self.desktop.press("end")
        app.access.press("Need help? See the Help docs ↗")
        wait_until(lambda: f"{self.shared_server.url}/help" in app.opened(), what="the help page")


class SendingTest(SheetMixin, E2ECase):
    def ask(self, app, text):
        mark = app.mark()
        app.send_prompt(text, replace=True)
        app.wait_for_line(STREAM_COMPLETE, since=mark)

    def test_switches_and_model_affect_requests_and_are_stored(self):
        server = self.server()
        server.on(QUERY, HostileServer.answer_with("one"))
        app = self.app(server).sign_in()
        app.open_settings()
        app.access.press("Start a new thread with each Send")
        self.wait_stored(app, "startNewThreadPerSendEnabled", True)
        app.access.press("Don't clear prompt after sending", "check box")
        self.wait_stored(app, "dontClearPromptAfterSendEnabled", True)
        app.access.press("Deep", "radio button")
        self.wait_stored(app, "selectedModelId", "deep-1")
        self.close_settings(app)
        self.ask(app, "question")
        self.wait_stored(app, "userPrompt", "question")
        self.ask(app, "another")
        request = server.wait_for_request(QUERY, 2).json()
        self.assertEqual((request["prompt"], request["model"]), ("another", "deep-1"))
        wait_until(lambda: len(app.threads()) == 2, what="two stored threads")
        kept = app.stored_defaults()
        app.close()
        again = self.app(server, defaults=kept).sign_in()
        again.open_settings()
        for name in ("Start a new thread with each Send", "Don't clear prompt after sending"):
            node = again.access.wait_for(name)
            self.assertTrue(again.access.has_state(node, "CHECKED"), name)
        node = again.access.wait_for("Deep", "radio button")
        self.assertTrue(again.access.has_state(node, "CHECKED"))


if __name__ == "__main__":
    unittest.main()
