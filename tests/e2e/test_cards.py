"""The cards above the prompt box: first launch, messages, blocking, the forced update."""

import re
import unittest

from harness import E2ECase, wait_until
from harness.messages import PREFIX
from harness.server import QUERY


def message(kind="INFORMATIONAL", **fields):
    """An administrator message."""
    return {"id": "m1", "type": kind, "headerText": "Maintenance",
            "bodyMarkdown": "Back **soon**.\n\n- [status](https://status.example/now)"} | fields


class FirstLaunchTest(E2ECase):
    def test_acknowledged_or_captured(self):
        self.desktop.fill_root((90, 120, 150))
        for capture in (False, True):
            with self.subTest(capture=capture):
                app = self.app(self.server(), defaults={}).sign_in()
                access = app.access
                access.wait_for("Shortcuts to start with")
                # Nothing is stored yet, so the box shows the built-in instruction.
                self.assertNotIn("userPrompt", app.stored_defaults())
                box = access.find("Write a message")
                self.assertGreater(len(access.text_of(box)), 20)
                if capture:
                    app.hotkey("ctrl+alt+super+shift+c")
                    access.wait_for("Attached screenshot")
                else:
                    access.press("Got it")
                    access.wait_gone("Got it")
                access.wait_gone("Shortcuts to start with")
                wait_until(lambda: app.stored_defaults().get("hasLaunchedBefore") is True,  # pylint: disable=W0640
                           what="the stored mark")
                app.close()


class InformationTest(E2ECase):
    def test_collapse_link_and_action(self):
        server = self.server(adminMessage=message(actionLabel="Read more",
                                                  actionUrl="https://status.example/more"))
        app = self.app(server).sign_in()
        access = app.access
        access.wait_for("Maintenance", "panel")
        _, x, y, width, height = app.panel()
        body = access.wait_for(re.compile("^Back soon"))
        self.assertIn("status", access.text_of(body))
        access.press("Read more")
        wait_until(lambda: "https://status.example/more" in app.opened(), what="the page")
        access.click("Collapse message")
        access.wait_gone("Read more")
        self.assertEqual(access.settled_bounds("Maintenance", "panel")[3], 36)
        # The chevron keeps working from the keyboard, and comes just before the box.
        access.click("Write a message")
        access.wait_focused("Write a message")
        self.desktop.press("shift+tab")
        access.wait_focused("Expand message")
        self.desktop.press("return")
        access.wait_for("Read more")
        access.wait_focused("Collapse message")
        # A press on the link's line opens it.
        left, top, _, bottom = access.settled_bounds(re.compile("^Back soon"))
        self.desktop.click(left + 24, top + bottom - 9)
        wait_until(lambda: "https://status.example/now" in app.opened(), what="the link")
        self.assertEqual(app.panel()[1:], (x, y, width, height))


class BlockedTest(E2ECase):
    def test_blocked_actions_explain_why_and_others_work(self):
        self.desktop.fill_root((90, 120, 150))
        server = self.server(adminMessage=message("BLOCKING"))
        app = self.app(server).sign_in()
        access = app.access
        access.wait_for("Maintenance")
        access.wait_for("Sending is blocked", "status bar")
        self.assertIsNone(access.find(re.compile("(Collapse|Expand) message")))
        for name in ("Send", "Capture and send"):
            node = access.wait_for(name, enabled=True)
            self.assertEqual(node.get_description(), "Blocked: Maintenance")
        mark = app.mark()
        access.press("Send")
        app.wait_for_line(PREFIX + "Send blocked — isBlocked is true", since=mark)
        access.press("Capture and send")
        app.wait_for_line(PREFIX + "Capture & Send blocked — isBlocked is true", since=mark)
        access.press("Capture without sending")
        access.wait_for("Attached screenshot")
        access.click("Write a message")
        access.wait_focused("Write a message")
        self.desktop.type_text("kept note")
        access.wait_for("Add note", enabled=True)
        self.assertEqual(access.find("Add note").get_description(), "")
        access.press("Add note")
        app.wait_for_line(PREFIX + "Note added to current session", since=mark)
        access.wait_for_page_text("kept note")
        wait_until(lambda: app.threads() and app.threads()[0]["notes"], what="the stored note")
        folders = list((app.data_home / "Quellora" / "sessions").iterdir())
        self.assertEqual(len(folders), 1)
        wait_until(lambda: (folders[0] / "screenshot-0.png").exists(), what="the stored picture")
        self.assertEqual(server.requests(QUERY), [])


class ForcedUpdateTest(E2ECase):
    def test_the_remaining_minutes(self):
        server = self.server(adminMessage=message("BLOCKING", forceUpdateInMinutes=5))
        app = self.app(server).sign_in()
        app.wait_for_line(PREFIX + "Forced update countdown started: 5min, message id m1", since=0)
        app.access.wait_for(re.compile("You have 5 minutes before access is restricted\\."))

    def test_over_at_once(self):
        server = self.server(adminMessage=message("BLOCKING", forceUpdateInMinutes=0))
        app = self.app(server).sign_in()
        app.access.wait_for(re.compile("You have 0 minutes before access is restricted\\."))


if __name__ == "__main__":
    unittest.main()
