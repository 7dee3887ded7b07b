"""System-specific terms for keys and the machine in texts, and the names of models."""

import re
import unittest

from harness import E2ECase, login_response, wait_until
from harness.server import VERIFY

#: Another system's terms for keyboard, settings and machines.
FOREIGN = re.compile(r"\b(Option|Cmd|Command|macOS|Mac)\b")
CLAUDE = re.compile("claude", re.IGNORECASE)
GIVEN = [{"id": "claude-1", "displayName": "Deep", "descriptor": "Slower"}]


class WordsCase(E2ECase):
    def texts(self, app):
        """Every name, description and text on the screen."""
        found = [app.access.page_text()]
        for node in app.access.shown():
            found += [node.get_name() or "", node.get_description() or "",
                      app.access.text_of(node)]
        return found

    def assert_no(self, app, words):
        self.assertEqual([text for text in self.texts(app) if words.search(text)], [])


class SystemWordsTest(WordsCase):
    def test_keys_and_the_machine_on_every_screen(self):
        app = self.app(self.server(), defaults={"userPrompt": "", "keepAIHistoryEnabled": True})
        app.wait_login_window()
        self.assert_no(app, FOREIGN)
        app.fill_login()
        self.desktop.press("return")
        app.access.wait_for("Shortcuts to start with")
        app.access.wait_for_page_text("Ctrl+Alt+Super+C")
        for keys in ("Ctrl+Alt+Super+C", "Ctrl+Alt+Super+T", "Ctrl+Alt+Super+]"):
            app.access.wait_for(keys)
        self.assert_no(app, FOREIGN)
        app.access.press("Got it")
        app.access.wait_gone("Got it")

        app.access.press("Menu")
        app.access.wait_for("Settings")
        self.assert_no(app, FOREIGN)
        app.access.press("Settings")
        app.access.wait_for("Match your background: dark theme over dark apps, light theme over "
                            "documents or bright UIs. System follows your desktop's setting.")
        self.assert_no(app, FOREIGN)
        self.desktop.press("end")
        app.access.wait_for("Capture (no send), Ctrl+Alt+Super+Shift+C")
        app.access.wait_for("Start a new thread, Super+N")
        self.assert_no(app, FOREIGN)
        self.desktop.press("escape")
        app.access.wait_gone("Reset all hotkeys")

        app.send_prompt("question")
        wait_until(lambda: len(app.threads()) == 1, what="the stored thread")
        app.access.press("Menu")
        app.access.press("History")
        x, y, width, height = app.access.settled_bounds(re.compile("^question, "))
        self.desktop.move_pointer(x + width // 3, y + height // 2)
        app.access.press("Delete thread")
        app.access.wait_for("\"question\" will be permanently removed from this computer.")
        self.assert_no(app, FOREIGN)


class ModelNamesTest(WordsCase):
    def setUp(self):
        self.fresh = {}
        self.backend = self.server(heartbeatIntervalSeconds=1)
        self.backend.on(VERIFY, lambda connection, _request: connection.respond(
            200, login_response(**({"heartbeatIntervalSeconds": 1} | self.fresh))))

    def test_texts_name_the_chosen_model_if_the_default_is_not_offered(self):
        app = self.app(self.backend, defaults={"userPrompt": ""}).sign_in()
        app.access.wait_for_page_text("→ Balanced responds here")
        app.access.wait_for("Capture screen and send to Balanced")
        self.assert_no(app, CLAUDE)
        # Shown texts follow the user's choice.
        app.access.press("Model")
        app.access.press(re.compile("^Deep"))
        app.access.wait_for_page_text("→ Deep responds here")
        app.access.wait_for("Capture screen and send to Deep")
        app.access.press("Got it")
        app.open_settings()
        app.access.wait_for("Choose which model handles your requests.")
        self.desktop.press("end")
        app.access.wait_for("Capture screen and send to Deep, Ctrl+Alt+Super+C")
        self.assert_no(app, CLAUDE)
        # And the backend's offers.
        self.fresh = {"availableModels": GIVEN, "model": "claude-1"}
        app.access.wait_for("Capture screen and send to Claude, Ctrl+Alt+Super+C")
        self.desktop.press("home")
        app.access.wait_for("Choose which Claude model handles your requests.")
        self.desktop.press("escape")
        app.access.wait_for_page_text("→ Claude responds here")

    def test_texts_are_unchanged_if_the_default_name_is_offered(self):
        app = self.app(self.server(availableModels=GIVEN, model="claude-1"),
                       defaults={"userPrompt": ""}).sign_in()
        app.access.wait_for_page_text("to capture screen → Claude responds here")
        app.access.wait_for("Capture screen and send to Claude")
        app.open_settings()
        app.access.wait_for("Choose which Claude model handles your requests.")


if __name__ == "__main__":
    unittest.main()
