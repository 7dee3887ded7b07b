"""Accessibility of the bottom panels and the strip."""

import threading
import unittest

from harness import HostileServer, SignedInCase, chunk_event, done_event, wait_until
from harness.messages import PREFIX
from harness.server import QUERY


#: Name and role of everything always shown in the regular size.
ALWAYS = [("Write a message", "text"), ("Model", "combo box"),
          ("Prompts", "push button"), ("Add note", "push button"),
          ("Capture without sending", "push button"), ("Capture and send", "push button"),
          ("Send", "push button"), ("Save thread", "check box"), ("New thread", "push button"),
          ("Close", "push button"), ("Minimize", "push button"), ("Zoom", "push button"),
          ("Opacity", "slider"), ("Scroll up", "push button"), ("Scroll down", "push button"),
          ("Response scroll position", "scroll bar")]


class AccessTest(SignedInCase):
    server_config = {"tokensUsed": 850000, "tokensRemaining": 150000}

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.desktop.fill_root((90, 120, 150))

    def setUp(self):
        super().setUp()
        self.access = self.shared_app.access
        self.before = len(self.shared_server.requests(QUERY))
        self.shared_server.on(QUERY, HostileServer.answer_with("Hello from the server.",
                                                               tokensRemaining=150000))

    def shown(self):
        """(name, role) of every named shown control."""
        return {(node.get_name(), node.get_role_name()): node
                for _, node in self.access.walk()
                if node.get_name() and self.access.has_state(node, "SHOWING")}

    def write(self, text):
        """Sets the prompt through the text interface, as dictation does."""
        node = self.access.wait_for("Write a message", "text")
        node.get_editable_text_iface().set_text_contents(text)
        wait_until(lambda: self.stored("userPrompt") == text, what="the stored prompt")

    def test_the_prompt_stays_inside_its_box(self):
        prompt = self.access.wait_for("Write a message", "text")
        self.write("\n".join(f"line {number}" for number in range(40)))
        picker = self.access.bounds(self.access.wait_for("Model", "combo box"))
        _, left, top, width, height = self.shared_app.panel()

        def is_inside():
            x, y, w, h = self.access.bounds(prompt)
            # The box is 148 high now, with its actions in the lowest 34.
            return (left + 12 <= x and x + w <= left + width - 12
                    and top + height - 52 - 148 <= y and y + h <= picker[1] and h == 100)
        wait_until(is_inside, what="the field inside its box")
        self.empty_prompt()

    def test_names_roles_and_states(self):
        shown = self.shown()
        for entry in ALWAYS + [("Usage 85%", "push button"), ("Ready", "label")]:
            self.assertIn(entry, shown)
        for name in ("Add note", "Send", "Scroll up", "Scroll down"):
            self.assertFalse(self.access.is_enabled(shown[name, "push button"]), name)
        for name, reason in (("Send", "Send needs text in the box"),
                             ("Add note", "Write the note in the box first")):
            self.assertEqual(shown[name, "push button"].get_description(), reason)
        chosen = "Deep" if self.stored("selectedModelId") == "deep-1" else "Balanced"
        self.assertEqual(shown["Model", "combo box"].get_description(), chosen)
        save = shown["Save thread", "check box"]
        self.assertTrue(self.access.has_state(save, "CHECKED"))
        box = shown["Write a message", "text"]
        self.assertTrue(self.access.has_state(box, "EDITABLE", "MULTI_LINE", "FOCUSABLE"))
        # Everything shown has a name.
        nameless = [node.get_role_name() for _, node in self.access.walk()
                    if not node.get_name() and self.access.has_state(node, "SHOWING")
                    and node.get_role_name() in ("push button", "check box", "combo box", "text")]
        self.assertEqual(nameless, [])

    def test_every_press(self):
        app = self.shared_app
        self.access.press("Save thread")
        wait_until(lambda: self.stored("keepAIHistoryEnabled") is False, what="the choice")
        self.access.press("Save thread")
        wait_until(lambda: self.stored("keepAIHistoryEnabled") is True, what="the choice")
        self.access.press("Model", "combo box")
        chosen = self.access.wait_for("Balanced", "list item")
        self.assertTrue(self.access.has_state(chosen, "SELECTED"))
        self.access.press("Deep", "list item")
        wait_until(lambda: self.stored("selectedModelId") == "deep-1", what="the stored choice")
        self.write("a note")
        self.access.press("Add note")
        app.wait_for_line(PREFIX + "Note added to current session", since=self.mark)
        self.access.press("Capture without sending")
        self.access.wait_for("Attached screenshot", "image")
        self.access.press("Remove screenshot")
        self.access.wait_gone("Attached screenshot")
        self.write("a question")
        self.access.press("Send")
        body = self.shared_server.wait_for_request(QUERY, self.before + 1).json()
        self.assertEqual((body["prompt"], body["model"]),
                         ("Notes:\n- a note\n\nCurrent message:\na question", "deep-1"))
        self.access.wait_for("Copy answer")
        self.access.press("Usage 85%")
        self.access.press("Menu")
        self.access.press("Capture and send")
        self.shared_server.wait_for_request(QUERY, self.before + 2)

    def test_status_is_announced(self):
        gate = threading.Event()
        self.addCleanup(gate.set)
        begin = threading.Event()
        self.addCleanup(begin.set)
        self.shared_server.on(QUERY, HostileServer.stream(
            begin, chunk_event("part"), gate, done_event(tokensRemaining=150000)))
        self.write("a question")
        self.access.press("Send")
        self.access.wait_for("Waiting for answer…", "status bar")
        begin.set()
        self.access.wait_for("Answering…", "status bar")
        stop = self.access.find("Stop", "push button")
        self.assertEqual(stop.get_description(), "Super+.")
        self.access.press("Stop")
        self.access.wait_for("Stopped", "status bar")

    def test_note_of_an_unsaved_thread_stores_notes_and_pictures_only(self):
        app = self.shared_app
        self.access.press("Save thread")
        wait_until(lambda: self.stored("keepAIHistoryEnabled") is False, what="the choice")
        self.addCleanup(self.access.press, "Save thread")
        known = len(app.threads())
        self.write("not kept")
        self.access.press("Send")
        self.access.wait_for("Copy answer")
        self.access.press("Capture without sending")
        self.access.wait_for("Attached screenshot", "image")
        self.assertEqual(len(app.threads()), known)
        # The note keeps the thread's pictures and notes, not its answers.
        self.write("kept note")
        self.access.press("Add note")
        record = wait_until(lambda: app.threads()[known:], what="the stored thread")[0]
        self.assertEqual([note["text"] for note in record["notes"]], ["kept note"])
        self.assertEqual(record["turns"], [])
        self.assertEqual(len(record["screenshots"]), 1)
        self.access.wait_gone("Attached screenshot")


if __name__ == "__main__":
    unittest.main()
