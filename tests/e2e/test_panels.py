"""The menu, the model list and notes, used through their accessible names."""

import re
import unittest

from harness import E2ECase, HostileServer, wait_until
from harness.server import QUERY

PREFIX = "[OverlayWindowController] "


class MenuTest(E2ECase):
    def test_links_and_log_lines(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.access.press("Menu")
        app.wait_for_line(PREFIX + "Hamburger button clicked — menu open=true")
        app.access.press("Account")
        app.wait_for_line(PREFIX + "Account link clicked")
        wait_until(lambda: f"{server.url}/account" in app.opened(), what="the account page")
        if app.access.find("Upgrade") is None:
            app.access.press("Menu")
        app.access.press("Upgrade")
        app.wait_for_line(PREFIX + "Usage row Upgrade link clicked")
        wait_until(lambda: f"{server.url}/pricing" in app.opened(), what="the pricing page")


class ModelTest(E2ECase):
    def test_model_choice_goes_with_the_question(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.access.press("Model")
        app.access.press(re.compile("^Deep"))
        wait_until(lambda: app.stored_defaults().get("selectedModelId") == "deep-1",
                   what="the stored choice")
        app.access.click("Write a message")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("hello\n")
        self.assertEqual(server.wait_for_request(QUERY).json()["model"], "deep-1")
        record = server.wait_for_request("/api/telemetry/query").json()
        self.assertEqual(record["model_used"], "deep-1")


class NoteTest(E2ECase):
    def test_note_is_kept_shown_sent_and_deleted(self):
        server = self.server()
        server.on(QUERY, HostileServer.answer_with("noted"))
        app = self.app(server, defaults={"hasLaunchedBefore": True, "userPrompt": ""}).sign_in()
        app.access.wait_for("Add note", enabled=False)
        app.access.click("Write a message")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("use metric")
        app.access.press("Add note")
        app.wait_for_line(PREFIX + "Note added to current session")
        app.access.wait_for_page_text("use metric")
        wait_until(lambda: app.threads() and app.threads()[0]["notes"], what="the kept note")
        self.assertEqual(app.threads()[0]["notes"][0]["text"], "use metric")
        self.assertEqual(server.requests(QUERY), [])
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "", what="the empty box")
        self.desktop.type_text("how far\n")
        self.assertEqual(server.wait_for_request(QUERY).json()["prompt"],
                         "Notes:\n- use metric\n\nCurrent message:\nhow far")


if __name__ == "__main__":
    unittest.main()
