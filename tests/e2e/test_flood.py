"""Floods of answer data: nothing is lost, and the program stays responsive."""

import threading
import unittest

from harness import HostileServer, SignedInCase, chunk_event, done_event, wait_until
from harness.messages import PREFIX
from harness.server import QUERY


class FloodTest(SignedInCase):

    def kept_answer(self):
        """The answer in the stored thread."""
        turns = wait_until(lambda: self.shared_app.turns()[self.turns_before:], what="the turn")
        self.assertEqual(len(turns), 1)
        return turns[0][1]

    def toggle(self, state):
        """Presses the hot key that toggles the panel, which is `state` before."""
        mark = self.shared_app.mark()
        self.desktop.press("ctrl+alt+super+t")
        self.shared_app.wait_for_line(
            f"{PREFIX}Toggling visibility (currently {state})", since=mark)

    def test_hot_key_works_during_a_flood_of_tiny_chunks(self):
        answered = threading.Event()
        self.addCleanup(answered.set)
        sent = []

        def handler(connection, _request):
            connection.begin_stream()
            number = 0
            # At least a hundred thousand chunks, then until the key was handled.
            while number < 100_000 or not answered.is_set():
                words = [str(n)[-1 - n % 4:] + ("\n\n" if n % 50 == 0 else "")
                         for n in range(number, number + 1000)]
                sent.extend(words)
                number += 1000
                connection.send(b"".join(chunk_event(word) for word in words))
            connection.send(done_event())

        self.shared_server.on(QUERY, handler)
        self.ask("question")
        self.shared_app.wait_for_line(
            f"{PREFIX}First chunk received, hiding loading dots", since=self.mark)
        self.toggle("visible")
        self.assertFalse(self.shared_app.has_line(
            f"{PREFIX}Stream complete, buffer cleared", self.mark))
        answered.set()
        self.wait_answer()
        mark = self.shared_app.mark()
        self.assertTrue(self.kept_answer() == "".join(sent), "the answer is not what was sent")
        # By then the hot key is no longer debounced.
        self.shared_app.wait_for_line(f"{PREFIX}WebView finished loading", since=mark)
        self.toggle("hidden")

    def test_one_chunk_of_five_megabytes(self):
        text = "".join(f"Paragraph {n} is *as* long as `any` other.\n\n"
                       for n in range(5 * 1024 * 1024 // 48))
        self.shared_server.on(QUERY, HostileServer.answer_with(text))
        self.ask("question")
        self.wait_answer()
        # Rendering keeps the page busy, but not the program.
        self.toggle("visible")
        self.assertTrue(self.kept_answer() == text, "the answer is not what was sent")


if __name__ == "__main__":
    unittest.main()
