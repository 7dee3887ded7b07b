"""Keyboard operation of the bottom panels and the strip: Tab order, F6 and the controls' keys."""

import threading
import unittest

from harness import HostileServer, SignedInCase, wait_until
from harness.messages import PREFIX
from harness.server import QUERY

MODELS = [{"id": f"m{number}", "displayName": f"Model {number}", "descriptor": f"Number {number}"}
          for number in range(8)]
IN_THE_BOX = ["Model", "Prompts", "Add note", "Capture without sending", "Capture and send",
              "Send", "Save thread", "New thread"]
ABOVE = ["Close", "Minimize", "Zoom", "Opacity", "Menu"]
CLICKS = "Clicks reach the answer"


class KeyboardTest(SignedInCase):
    server_config = {"availableModels": MODELS, "model": "m0", "tokensUsed": 850000,
                     "tokensRemaining": 150000}

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.desktop.fill_root((90, 120, 150))

    def setUp(self):
        super().setUp()
        self.access = self.shared_app.access
        self.shared_server.on(QUERY, HostileServer.answer_with("Hello from the server.",
                                                               tokensRemaining=150000))
        self.shared_app.focus_prompt()

    def key(self, combo, focused):
        """Presses a key and waits for the focus on a control."""
        self.desktop.press(combo)
        self.access.wait_focused(focused)

    def go_to(self, name):
        """Tabs from the prompt box to a control of the box or the row below."""
        names = [each for each in IN_THE_BOX
                 if each not in ("Add note", "Send") or self.stored("userPrompt")]
        for each in names[:names.index(name) + 1]:
            self.desktop.press("tab")
        self.access.wait_focused(name)

    def type_prompt(self, text):
        self.desktop.type_text(text)
        wait_until(lambda: self.stored("userPrompt") == text, what="the stored prompt")

    def request(self, before):
        return self.shared_server.wait_for_request(QUERY, before + 1).json()

    def test_tab_order(self):
        self.ask("question")
        self.wait_answer()
        self.access.wait_for("Copy answer")
        wait_until(lambda: self.stored("userPrompt") == "", what="the empty box")
        self.type_prompt("x")
        for name in IN_THE_BOX + ABOVE + ["Usage 85%", "Edit question", "Retry", "Copy answer",
                                          CLICKS, ""]:
            self.key("tab", name)
        self.key("shift+tab", CLICKS)

    def test_tab_skips_disabled_actions(self):
        for name in [each for each in IN_THE_BOX if each not in ("Add note", "Send")]:
            self.key("tab", name)

    def test_f6_cycles_through_prompt_strip_and_page(self):
        for name in ("Usage 85%", "", "Write a message"):
            self.key("f6", name)
        for name in ("", "Usage 85%", "Write a message"):
            self.key("shift+f6", name)

    def test_note(self):
        self.type_prompt("metric units")
        self.go_to("Add note")
        self.desktop.press("return")
        self.shared_app.wait_for_line(PREFIX + "Note added to current session", since=self.mark)
        wait_until(lambda: self.stored("userPrompt") == "", what="the empty box")
        wait_until(lambda: any(record["notes"] for record in self.shared_app.threads()[-1:]),
                   what="the stored note")
        self.assertEqual(self.shared_app.threads()[-1]["notes"][0]["text"], "metric units")

    def test_capture_staged_and_removed(self):
        self.go_to("Capture without sending")
        self.desktop.press("space")
        self.access.wait_for("Attached screenshot")
        self.shared_app.focus_prompt()
        self.key("shift+tab", "Remove screenshot")
        self.desktop.press("return")
        self.access.wait_gone("Attached screenshot")
        self.access.wait_focused("Write a message")
        before = len(self.shared_server.requests(QUERY))
        self.desktop.type_text("no picture\n")
        self.assertNotIn("image", self.request(before))

    def test_capture_and_send(self):
        before = len(self.shared_server.requests(QUERY))
        self.type_prompt("what is it")
        self.go_to("Capture and send")
        self.desktop.press("return")
        body = self.request(before)
        self.assertEqual(body["prompt"], "what is it")
        self.assertTrue([value for value in body.values()
                         if isinstance(value, str) and len(value) > 1000], "no picture was sent")

    def test_send_button(self):
        before = len(self.shared_server.requests(QUERY))
        self.type_prompt("by button")
        self.go_to("Send")
        self.desktop.press("space")
        self.assertEqual(self.request(before)["prompt"], "by button")

    def test_whitespace_is_not_sent(self):
        before = len(self.shared_server.requests(QUERY))
        self.type_prompt("   ")
        self.desktop.press("shift+return")
        wait_until(lambda: self.stored("userPrompt") == "   \n", what="the stored blanks")
        self.access.wait_for("Send", enabled=False)
        self.access.wait_for("Add note", enabled=False)
        self.desktop.press("return")
        # The later effects show that Return did nothing.
        self.desktop.type_text("a\n")
        self.assertEqual(self.request(before)["prompt"], "   \na")
        self.assertEqual(len(self.shared_server.requests(QUERY)), before + 1)

    def test_save_thread(self):
        self.go_to("Save thread")
        for key, value in (("space", False), ("return", True)):
            self.desktop.press(key)
            wait_until(lambda: self.stored("keepAIHistoryEnabled") is value,  # pylint: disable=W0640
                       what="the stored choice")
            node = self.access.find("Save thread", "check box")
            wait_until(lambda: self.access.has_state(node, "CHECKED") is value,  # pylint: disable=W0640
                       what="the state of the switch")

    def test_new_thread(self):
        self.go_to("New thread")
        mark = self.shared_app.mark()
        self.desktop.press("return")
        self.shared_app.wait_for_line(PREFIX + "New thread started", since=mark)

    def test_usage_opens_the_menu_and_escape_closes_it(self):
        self.key("f6", "Usage 85%")
        self.desktop.press("return")
        self.access.wait_for("Account")
        self.desktop.press("escape")
        self.access.wait_gone("Account")
        self.access.wait_focused("Menu")

    def test_copied_answer_can_be_pasted(self):
        self.ask("question")
        self.wait_answer()
        self.access.wait_for("Copy answer")
        self.key("f6", "Usage 85%")
        for name in ("Edit question", "Retry", "Copy answer"):
            self.key("tab", name)
        self.desktop.press("return")
        self.shared_app.focus_prompt()
        self.desktop.press("ctrl+v")
        wait_until(lambda: self.stored("userPrompt") == "Hello from the server.",
                   what="the pasted answer")

    def test_command_period_stops(self):
        left = threading.Event()

        self.shared_server.on(QUERY, HostileServer.unfinished(left, "partial"))
        self.ask("long question")
        self.access.wait_for("Stop")
        self.shared_app.wait_for_line(PREFIX + "First chunk received, hiding loading dots",
                                      since=self.mark)
        self.desktop.press("escape")
        self.assertIsNotNone(self.access.find("Stop"), "Escape must not stop an answer")
        self.desktop.press("super+.")
        self.assertTrue(left.wait(10), "the transfer was not ended")
        wait_until(lambda: ("long question", "partial") in self.shared_app.turns(),
                   what="the stored part")
        self.access.wait_for("Stopped", "status bar")

    def test_model_list(self):
        self.go_to("Model")
        self.desktop.press("down")
        rows = self.access.wait_for("Model", "list", focused=True)
        # Five rows show; the other three scroll.
        self.assertEqual(self.access.settled_bounds("Model", "list")[3], 5 * 36)
        self.assertGreaterEqual(rows.get_child_count(), 5)
        self.desktop.press("end")
        self.desktop.press("up")
        self.desktop.press("return")
        wait_until(lambda: self.stored("selectedModelId") == "m6", what="the stored choice")
        self.access.wait_gone("Model", "list")
        self.access.wait_focused("Model")
        picker = self.access.find("Model", "combo box")
        self.assertEqual(picker.get_description(), "Model 6")
        self.desktop.press("return")
        self.access.wait_for("Model", "list", focused=True)
        self.desktop.press("home")
        self.desktop.press("escape")
        self.access.wait_gone("Model", "list")
        self.access.wait_focused("Model")
        self.assertEqual(self.stored("selectedModelId"), "m6")
        self.shared_app.focus_prompt()
        before = len(self.shared_server.requests(QUERY))
        self.desktop.type_text("hello\n")
        self.assertEqual(self.request(before)["model"], "m6")


if __name__ == "__main__":
    unittest.main()
