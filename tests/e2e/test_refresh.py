"""Configuration refreshes during user activity have no side effects."""

import re
import threading
import unittest

from harness import E2ECase, HostileServer, chunk_event, done_event, login_response, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY, VERIFY

REFRESHED = "[HeartbeatService] Poll succeeded, config refreshed"
NEWS = {"id": "news", "type": "INFORMATIONAL", "headerText": "Good news",
        "bodyMarkdown": "There is more."}
UPDATE = {"id": "update", "type": "BLOCKING", "headerText": "Update required",
          "bodyMarkdown": "Please update.", "forceUpdateInMinutes": 5}


class RefreshTest(E2ECase):
    def setUp(self):
        self.fresh = {}
        self.backend = self.server(heartbeatIntervalSeconds=1)
        self.backend.on(VERIFY, lambda connection, _request: connection.respond(
            200, login_response(**({"heartbeatIntervalSeconds": 1} | self.fresh))))

    def refresh(self, app, **config):
        """Changes the backend's configuration and waits for the refresh."""
        self.fresh = config
        polls = len(self.backend.requests(VERIFY))
        self.backend.wait_for_request(VERIFY, polls + 1)
        app.wait_for_line(REFRESHED, since=app.mark())

    def test_refreshes_do_not_disturb_typing(self):
        app = self.app(self.backend).sign_in()
        app.access.click("Write a message")
        box = app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("one three")
        for _ in range(5):
            self.desktop.press("left")
        self.refresh(app, adminMessage=NEWS, tokensUsed=850000, tokensRemaining=150000)
        app.access.wait_for("Good news")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("two ")
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "one two three",
                   what="the caret where it was")
        # A selection persists too: typing replaces it.
        self.desktop.press("home")
        self.desktop.press("shift+right")
        self.desktop.press("shift+right")
        self.desktop.press("shift+right")
        app.access.press("Collapse message")
        app.access.wait_for("Expand message")
        self.refresh(app, adminMessage=NEWS, availableModels=[
            {"id": "other-1", "displayName": "Other", "descriptor": "Another one"}],
            model="other-1")
        self.assertIsNotNone(app.access.find("Expand message"))
        self.desktop.type_text("1")
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "1 two three",
                   what="the selection where it was")
        self.desktop.type_text("\n")
        query = self.backend.wait_for_request(QUERY).json()
        self.assertIn("other-1", str(query))
        app.wait_for_line(STREAM_COMPLETE)
        self.refresh(app)
        app.access.wait_gone("Good news")
        self.assertTrue(app.access.is_enabled(box))

    def test_refreshes_do_not_disturb_an_answer(self):
        go_on = threading.Event()
        self.addCleanup(go_on.set)
        self.backend.on(QUERY, HostileServer.stream(
            chunk_event("The first half"), go_on, chunk_event(" and the second half"),
            done_event(tokensRemaining=0)))
        app = self.app(self.backend).sign_in()
        app.access.press("Menu")
        app.wait_for_line(PREFIX + "Hamburger button clicked — menu open=true", since=0)
        app.access.press("Menu")
        app.send_prompt("question")
        app.access.wait_for_page_text("The first half")
        self.refresh(app, adminMessage=UPDATE, tokensUsed=1000000, tokensRemaining=0)
        app.access.wait_for("Update required")
        app.access.wait_for(re.compile("You have 5 minutes before access is restricted"))
        self.assertIn("The first half", app.access.page_text())
        go_on.set()
        app.access.wait_for_page_text("The first half and the second half")
        wait_until(lambda: app.turns() == [("question", "The first half and the second half")],
                   what="the whole answer on disk")
        started = [line for line in app.lines if "Forced update countdown started" in line]
        self.assertEqual(started, [
            PREFIX + "Forced update countdown started: 5min, message id update"])
        mark = app.mark()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(re.compile("blocked — isBlocked is true|Query pre-blocked"), since=mark)
        # The message is removed and the allowance raised: back to normal.
        self.refresh(app)
        app.access.wait_gone("Update required")
        self.desktop.type_text("again\n")
        self.backend.wait_for_request(QUERY, 2)


if __name__ == "__main__":
    unittest.main()
