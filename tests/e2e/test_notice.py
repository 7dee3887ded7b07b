"""The notification about an answer that ends while the panel is hidden."""

import threading
import unittest

from harness import E2ECase, HostileServer, chunk_event, done_event, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY
from harness.services import DesktopServices

SETTING = {"notifyWhenAnswerReady": True}


class NoticeTest(E2ECase):
    def setUp(self):
        self.backend = self.server()
        self.go_on = threading.Event()
        self.addCleanup(self.go_on.set)

    def services(self):
        services = DesktopServices(self.desktop)
        self.addCleanup(services.close)
        return services

    def answer_while_hidden(self, app, question="a secret question"):
        """Hides the panel while an answer arrives; returns when the answer is complete."""
        mark = app.mark()
        self.go_on.clear()
        self.backend.on(QUERY, HostileServer.stream(
            chunk_event("The hidden "), self.go_on, chunk_event("answer"), done_event()))
        app.send_prompt(question)
        app.wait_for_line(PREFIX + "First chunk received, hiding loading dots", since=mark)
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_hidden()
        self.go_on.set()
        app.wait_for_line(STREAM_COMPLETE, since=mark)

    def test_answer_is_announced(self):
        services = self.services()
        app = self.app(self.backend, defaults=SETTING).sign_in()
        self.answer_while_hidden(app)
        notice = services.wait_notices(1)
        self.assertEqual(notice[0], "Quellora")
        self.assertEqual(notice[1], 0)
        self.assertEqual(notice[3:6], ["Your answer is ready", "Show Quellora to read it.",
                                       ["default", "Show Quellora"]])
        self.assertNotIn("secret", str(notice))
        self.assertNotIn("hidden answer", str(notice))
        self.assertEqual(services.closed(), [])
        # A click on it shows the panel, which closes it.
        services.choose_default_action(1)
        app.wait_overlay_shown()
        wait_until(lambda: services.closed() == [1], what="the end of the notification")

    def test_announced_only_on_request(self):
        services = self.services()
        app = self.app(self.backend).sign_in()
        self.answer_while_hidden(app)
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_shown()
        app.open_settings()
        # It is further down in the sheet.
        while (before := app.access.focused_name()) != "Notify when an answer is ready":
            self.desktop.press("tab")
            wait_until(lambda name=before: app.access.focused_name() != name,
                       what="the next control")
        self.desktop.press("space")
        wait_until(lambda: app.stored_defaults().get("notifyWhenAnswerReady") is True,
                   what="the stored setting")
        self.desktop.press("escape")
        app.access.wait_gone("Notify when an answer is ready")
        self.answer_while_hidden(app)
        services.wait_notices(1)
        self.assertEqual(len(services.notices()), 1)

    def test_without_a_notification_service(self):
        app = self.app(self.backend, defaults=SETTING).sign_in()
        self.answer_while_hidden(app)
        wait_until(lambda: [line for line in app.lines if line.startswith(
            "[Notifications] WARNING: No notification service answers: ")], what="the log line")
        self.assertTrue(app.running)
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_shown()
        app.access.wait_for_page_text("The hidden answer")


if __name__ == "__main__":
    unittest.main()
