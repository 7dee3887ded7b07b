"""The user's prompts: typed after a slash, from the menu, by their hotkey, and in the settings."""

import unittest

from harness import E2ECase, wait_until
from harness.app import DEFAULTS
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY

EXPLAIN = "Explain what is on the screen in simple words."


class PromptsTest(E2ECase):
    def setUp(self):
        # A black screen counts as protected content.
        self.desktop.fill_root((90, 120, 150))

    def prompt_is(self, app, text):
        wait_until(lambda: app.stored_defaults().get("userPrompt") == text,
                   what=f"the prompt {text!r}")

    def test_a_slash_inserts_a_prompt_that_is_sent(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.focus_prompt()
        self.desktop.type_text("/")
        app.access.wait_for("Translate", "list item")
        self.desktop.type_text("ex")
        app.access.wait_gone("Translate", "list item")
        self.desktop.press("return")
        self.prompt_is(app, EXPLAIN)
        self.assertEqual(len(server.requests(QUERY)), 0)
        self.desktop.press("return")
        self.assertEqual(server.wait_for_request(QUERY, 1).json()["prompt"], EXPLAIN)

    def test_a_path_is_sent_as_typed(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.send_prompt("/etc/hosts")
        self.assertEqual(server.wait_for_request(QUERY, 1).json()["prompt"], "/etc/hosts")
        app.wait_for_line(STREAM_COMPLETE)
        # Escape leaves even the start of a name to the text.
        app.focus_prompt()
        self.desktop.type_text("/e")
        app.access.wait_for("Explain", "list item")
        self.desktop.press("escape")
        app.access.wait_gone("Explain", "list item")
        self.desktop.press("return")
        self.assertTrue(server.wait_for_request(QUERY, 2).json()["prompt"].endswith("/e"))

    def test_the_menu_inserts_with_the_mouse(self):
        app = self.app(self.server()).sign_in()
        app.access.click("Prompts")
        app.access.wait_for("Prompts", "list")
        app.access.click("Explain", "list item")
        app.access.wait_gone("Prompts", "list")
        self.prompt_is(app, EXPLAIN)

    def test_a_hotkey_captures_and_sends_and_leaves_the_box(self):
        server = self.server()
        app = self.app(server, defaults=DEFAULTS | {
            "hotkeyBindings": {"prompt.explain": "ctrl+alt+e"}}).sign_in()
        app.focus_prompt()
        self.desktop.type_text("draft")
        self.prompt_is(app, "draft")
        mark = app.mark()
        app.hotkey("ctrl+alt+e", "Prompt explain")
        app.wait_for_line(PREFIX + "Capture & Send triggered", since=mark)
        request = server.wait_for_request(QUERY, 1).json()
        self.assertEqual(request["prompt"], EXPLAIN)
        self.assertTrue(request["imageBase64"])
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        self.prompt_is(app, "draft")

    def test_settings_add_a_prompt_and_its_hotkey(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.open_settings()
        wait_until(lambda: app.access.find("Add a prompt") or self.desktop.press("down"),
                   what="the button in the sheet")
        app.access.press("Add a prompt")
        app.access.wait_for("Name of the prompt", focused=True)
        self.desktop.type_text("Sum up\n")
        app.access.wait_for("Text of the prompt", focused=True)
        self.desktop.type_text("Sum it up.")
        self.desktop.press("ctrl+return")
        app.access.wait_for("Prompt Sum up")
        self.desktop.press("end")
        app.access.press("Capture and send: Sum up, not set")
        app.access.wait_for("Capture and send: Sum up, Press a shortcut…")
        self.desktop.press("ctrl+alt+u")
        app.access.wait_for("Capture and send: Sum up, Ctrl+Alt+U")
        self.desktop.press("escape")
        app.access.wait_gone("Add a prompt")
        self.desktop.press("ctrl+alt+u")
        self.assertEqual(server.wait_for_request(QUERY, 1).json()["prompt"], "Sum it up.")


class UnsetTest(E2ECase):
    def test_an_action_is_unset_in_the_settings(self):
        app = self.app(self.server()).sign_in()
        app.open_settings()
        self.desktop.press("end")
        app.access.focus("Clear the response area, Ctrl+Alt+Super+X")
        self.desktop.press("delete")
        app.access.wait_for("Clear the response area, not set")
        self.assertEqual(app.stored_defaults()["hotkeyBindings"], {"clear": ""})
        mark = app.mark()
        self.desktop.press("ctrl+alt+super+x")
        app.hotkey("super+n", "New Thread")
        self.assertFalse([line for line in app.lines_since(mark) if "Fired: Clear" in line])

    def test_an_unset_action_is_no_problem_at_start(self):
        app = self.app(self.server(), defaults=DEFAULTS | {"hotkeyBindings": {"clear": ""}})
        app.wait_login_window()
        lines = app.lines_since(0)
        self.assertFalse([line for line in lines if "Clear" in line], lines)
        self.assertFalse([line for line in lines if "ERROR" in line], lines)


if __name__ == "__main__":
    unittest.main()
