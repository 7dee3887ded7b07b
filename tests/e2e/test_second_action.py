"""A second action, a note or another thread during an answer: nothing is lost or mixed up."""

import threading
import unittest

from harness import SignedInCase, chunk_event, done_event, wait_until
from harness.messages import PREFIX
from harness.server import QUERY

FIRST = PREFIX + "First chunk received, hiding loading dots"


class SecondActionTest(SignedInCase):
    """Each question is answered in two halves; the test releases the second."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.desktop.fill_root((90, 120, 150))

    def setUp(self):
        super().setUp()
        self.access = self.shared_app.access
        self.threads_before = {record["id"] for record in self.shared_app.threads()}
        self.gates = {}
        self.has_keyboard = False
        self.before = len(self.shared_server.requests(QUERY))
        self.shared_server.on(QUERY, self.answer)

    def tearDown(self):
        for gate in self.gates.values():
            gate.set()
        self.access.wait_gone("Stop")

    def answer(self, connection, request):
        question = request.json()["prompt"].split("Current message:\n")[-1]
        gate = self.gates.setdefault(question, threading.Event())
        connection.begin_stream()
        connection.send(chunk_event(f"first half of {question}, "))
        connection.wait_for(gate)
        connection.send(chunk_event(f"second half of {question}") + done_event())

    def whole(self, question):
        return (question, f"first half of {question}, second half of {question}")

    def replace_prompt(self, text):
        """Replaces the text in the box, which keeps the focus."""
        if not self.has_keyboard:
            self.shared_app.focus_prompt()
            self.has_keyboard = True
        self.desktop.press("ctrl+a")
        self.desktop.type_text(text)
        wait_until(lambda: self.shared_app.stored_defaults()["userPrompt"] == text,
                   what="the stored prompt")

    def ask_on(self, question):
        """Replaces the text in the box and sends it; returns when the first half has arrived."""
        mark = self.shared_app.mark()
        self.replace_prompt(question)
        self.desktop.press("return")
        self.shared_app.wait_for_line(FIRST, since=mark)

    def release(self, question):
        """Completes an answer and waits until it is stored."""
        telemetry = len(self.shared_server.requests("/api/telemetry/query"))
        self.gates[question].set()
        self.shared_server.wait_for_request("/api/telemetry/query", telemetry + 1)
        wait_until(lambda: self.whole(question) in self.shared_app.turns(),
                   what=f"the kept answer to {question}")

    def new_threads(self):
        return [[(turn["prompt"], turn["response"]) for turn in record["turns"]]
                for record in self.shared_app.threads()
                if record["id"] not in self.threads_before]

    def wait_threads(self, *expected):
        """Waits until exactly these threads are stored; saving is asynchronous."""
        wait_until(lambda: sorted(self.new_threads()) == sorted(expected),
                   what=f"the threads {expected} on disk")

    def test_send_while_answering(self):
        self.ask_on("one")
        self.ask_on("two")
        self.release("two")
        # The older answer is shown again, below the completed one.
        page = self.access.wait_for_page_text("first half of one")
        self.assertIn("second half of two", page)
        self.assertIsNotNone(self.access.find("Stop"))
        self.release("one")
        page = self.access.wait_for_page_text("second half of one")
        self.assertIn("second half of two", page)
        self.wait_threads([self.whole("two"), self.whole("one")])

    def test_older_answer_ends_first(self):
        self.ask_on("one")
        self.ask_on("two")
        self.release("one")
        self.access.wait_for_page_text("second half of one")
        # The running answer is shown again after its page has loaded.
        page = self.access.wait_for_page_text("first half of two")
        self.assertIn("second half of one", page)
        # The next question was in the box; the older answer does not clear it.
        self.assertEqual(self.shared_app.stored_defaults()["userPrompt"], "two")
        self.release("two")
        self.wait_threads([self.whole("one"), self.whole("two")])
        wait_until(lambda: self.shared_app.stored_defaults()["userPrompt"] == "",
                   what="the empty box")

    def test_capture_and_send_while_answering(self):
        self.ask_on("one")
        self.replace_prompt("two")
        mark = self.shared_app.mark()
        self.shared_app.hotkey("ctrl+alt+super+c", "Capture")
        body = self.shared_server.wait_for_request(QUERY, self.before + 2).json()
        self.assertEqual(body["prompt"], "two")
        self.shared_app.wait_for_line(FIRST, since=mark)
        self.release("one")
        self.release("two")
        self.wait_threads([self.whole("one"), self.whole("two")])

    def test_note_while_answering(self):
        self.ask_on("one")
        self.replace_prompt("remember")
        self.access.press("Add note")
        # The page is loaded again, then gets what has been received of the answer.
        self.access.wait_for_page_text("remember")
        self.assertIn("remember", self.access.wait_for_page_text("first half of one"))
        self.release("one")
        page = self.access.wait_for_page_text("second half of one")
        self.assertIn("remember", page)
        records = [record for record in self.shared_app.threads()
                   if record["id"] not in self.threads_before]
        self.assertEqual([note["text"] for note in records[0]["notes"]], ["remember"])
        self.wait_threads([self.whole("one")])

    def test_new_thread_hotkey_while_answering(self):
        self.ask_on("one")
        mark = self.shared_app.mark()
        self.shared_app.hotkey("super+n", "New Thread")
        self.shared_app.wait_for_line(PREFIX + "New thread started", since=mark)
        self.access.wait_for("Ready")
        self.assertIsNone(self.access.find("Stop"))
        self.ask_on("two")
        self.assertNotIn("one", self.shared_server.wait_for_request(
            QUERY, self.before + 2).json()["prompt"])
        self.release("one")
        page = self.access.page_text()
        self.assertNotIn("half of one", page)
        self.release("two")
        self.wait_threads([self.whole("one")], [self.whole("two")])

    def test_clear_hotkey_while_answering(self):
        self.ask_on("one")
        mark = self.shared_app.mark()
        self.shared_app.hotkey("ctrl+alt+super+x", "Clear")
        self.shared_app.wait_for_line(PREFIX + "Content cleared", since=mark)
        self.access.wait_for_page_text("to capture screen")
        self.release("one")
        self.access.wait_for_page_text("second half of one")
        self.wait_threads([self.whole("one")])

    def test_hotkeys_with_a_staged_screenshot(self):
        self.access.press("Capture without sending")
        self.access.wait_for("Attached screenshot")
        mark = self.shared_app.mark()
        self.shared_app.hotkey("ctrl+alt+super+x", "Clear")
        self.shared_app.wait_for_line(PREFIX + "Content cleared", since=mark)
        # Clearing affects the answer only; the picture stays staged.
        self.assertIsNotNone(self.access.find("Attached screenshot"))
        mark = self.shared_app.mark()
        self.shared_app.hotkey("super+n", "New Thread")
        self.shared_app.wait_for_line(PREFIX + "New thread started", since=mark)
        self.access.wait_gone("Attached screenshot")
        self.ask_on("one")
        self.assertNotIn("image", " ".join(self.shared_server.wait_for_request(
            QUERY, self.before + 1).json()))
        self.release("one")


if __name__ == "__main__":
    unittest.main()
