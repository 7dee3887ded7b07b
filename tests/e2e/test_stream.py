"""Answer streams in all forms, and their results."""

import json
import re
import threading
import unittest

from harness import HostileServer, SignedInCase, chunk_event, done_event, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY


def chunk(text):
    """The JSON of a chunk without line prefix and line end."""
    return json.dumps({"type": "chunk", "text": text}, ensure_ascii=False).encode()


class AnswerTest(SignedInCase):
    """Valid streams, however unusual; each results in exactly one stored turn."""

    def answer_to(self, handler, prompt="question"):
        """Asks, waits for the end and returns the stored answer."""
        self.shared_server.on(QUERY, handler)
        self.ask(prompt)
        self.wait_answer()
        turns = wait_until(lambda: self.shared_app.turns()[self.turns_before:], what="the turn")
        self.assertEqual(len(turns), 1)
        self.assertEqual(turns[0][0], prompt)
        return turns[0][1]

    def stream(self, *pieces):
        return HostileServer.stream(*pieces)

    def test_every_byte_in_a_separate_packet(self):
        def handler(connection, _request):
            connection.begin_stream()
            connection.send_bytewise(chunk_event("Grüße, ") + chunk_event("世界 🌍")
                                     + done_event())
        self.assertEqual(self.answer_to(handler), "Grüße, 世界 🌍")

    def test_raw_multibyte_characters_split_between_packets(self):
        data = b"data: " + chunk("é世🌍") + b"\n"
        middle = data.index("🌍".encode()) + 2
        gate = threading.Event()
        gate.set()
        self.assertEqual(
            self.answer_to(self.stream(data[:middle], gate, data[middle:], done_event())),
            "é世🌍")

    def test_line_ends_of_every_kind(self):
        done = done_event().strip()
        for end in (b"\n", b"\r\n", b"\r", b"\r\n\r\n"):
            with self.subTest(end=end):
                self.turns_before = len(self.shared_app.turns())
                self.mark = self.shared_app.mark()
                self.assertEqual(self.answer_to(self.stream(
                    b"data: " + chunk("one ") + end, b"data: " + chunk("two") + end, done + end)),
                    "one two")

    def test_last_line_without_an_end(self):
        self.assertEqual(self.answer_to(self.stream(chunk_event("x"), done_event().strip())), "x")

    def test_carriage_return_and_line_feed_in_different_packets(self):
        gate = threading.Event()
        gate.set()
        self.assertEqual(self.answer_to(self.stream(
            b"data: " + chunk("a") + b"\r", gate, b"\ndata: " + chunk("b") + b"\r", gate,
            b"\n", done_event())), "ab")

    def test_unicode_separators_are_not_line_ends(self):
        text = "a\u2028b\u2029c\u0085d"
        line = json.dumps({"type": "chunk", "text": text}, ensure_ascii=False)
        self.assertIn("\u2028", line)
        self.assertEqual(self.answer_to(self.stream(
            b"data: " + line.encode() + b"\n", done_event())), text)

    def test_ignored_lines(self):
        ignored = [
            b"data:" + chunk("no blank") + b"\n",
            b"DATA: " + chunk("upper case") + b"\n",
            b" data: " + chunk("indented") + b"\n",
            b": a comment\n", b"event: chunk\n", b"id: 7\n", b"retry: 1\n", b"\n", b"data: \n",
            b"data: not json\n", b"data: [1, 2]\n", b"data: \"chunk\"\n", b"data: null\n",
            b"data: {\"type\": 5, \"text\": \"number\"}\n", b"data: {\"text\": \"no type\"}\n",
            b"data: {\"type\": \"chunky\", \"text\": \"unknown\"}\n",
            b"data: {\"type\": \"chunk\", \"text\": \"open\n",
            b"data: " + b"[" * 5000 + b"\n",
            b"data: " + chunk("trailing") + b" garbage\n",
        ]
        pieces = [chunk_event("be")]
        for line in ignored:
            pieces.append(line)
        self.assertEqual(self.answer_to(self.stream(
            *pieces, chunk_event("fore and after"), done_event())), "before and after")

    def test_invalid_utf8_becomes_replacement_characters(self):
        self.assertEqual(self.answer_to(self.stream(
            b"data: {\"type\": \"chunk\", \"text\": \"a\xffb\"}\n", done_event())), "a\ufffdb")

    def test_missing_or_mistyped_text_is_empty(self):
        self.assertEqual(self.answer_to(self.stream(
            b"data: {\"type\":\"chunk\"}\n", b"data: {\"type\":\"chunk\",\"text\":7}\n",
            b"data: {\"type\":\"chunk\",\"text\":null}\n", chunk_event("x"), done_event())), "x")

    def test_done_without_a_chunk(self):
        self.assertEqual(self.answer_to(self.stream(done_event())), "")

    def test_done_with_fields_of_other_types(self):
        odd = {"tokensRemaining": 980000, "usageWarning75": "yes", "usedFallback": 1,
               "tokensUsed": "12"}
        self.assertEqual(self.answer_to(self.stream(chunk_event("x"), done_event(**odd))), "x")
        record = wait_until(lambda: [r.json() for r in self.shared_server.requests(
            "/api/telemetry/query")][-1:], what="telemetry")[0]
        self.assertIs(record["used_fallback"], False)

    def test_nothing_after_done_is_read(self):
        left = threading.Event()

        def handler(connection, _request):
            connection.begin_stream()
            connection.send(chunk_event("kept") + done_event() + chunk_event("late"))
            if connection.wait_closed():
                left.set()
        self.assertEqual(self.answer_to(handler), "kept")
        self.assertTrue(left.wait(10), "the transfer was not cancelled after the last event")

    def test_chunked_transfer_encoding(self):
        body = chunk_event("one ") + chunk_event("two") + done_event()

        def handler(connection, _request):
            connection.send(b"HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
                            b"Transfer-Encoding: chunked\r\n\r\n")
            for start in range(0, len(body), 7):
                part = body[start:start + 7]
                connection.send(b"%x\r\n%s\r\n" % (len(part), part))
            connection.send(b"0\r\n\r\n")
        self.assertEqual(self.answer_to(handler), "one two")

    def test_ten_thousand_chunks(self):
        words = [f"w{number} " for number in range(10000)]
        blocks = [b"".join(chunk_event(word) for word in words[start:start + 100])
                  for start in range(0, 10000, 100)]
        answer = self.answer_to(self.stream(*blocks, done_event()))
        self.assertEqual(answer, "".join(words))
        self.shared_app.access.wait_for_page_text("w9999")

    def test_script_characters_are_shown_literally(self):
        text = "It's a `back\\tick` and C:\\new\\path isn't `` ` `` gone"
        self.assertEqual(self.answer_to(self.stream(chunk_event(text), done_event())), text)
        shown = self.shared_app.access.wait_for_page_text("back\\tick")
        self.assertIn("It's a", shown.replace("’", "'"))

    def test_text_is_shown_while_streaming(self):
        gate = threading.Event()
        self.addCleanup(gate.set)
        self.shared_server.on(QUERY, self.stream(
            chunk_event("early words"), gate, chunk_event(" and the rest"), done_event()))
        self.ask("question")
        self.shared_app.access.wait_for_page_text("early words")
        self.shared_app.access.wait_for("Stop")
        self.assertFalse(self.shared_app.has_line(STREAM_COMPLETE, self.mark))
        gate.set()
        self.wait_answer()
        self.shared_app.access.wait_for_page_text("and the rest")
        self.shared_app.access.wait_gone("Stop")
        self.shared_app.access.wait_for("Copy answer")

    def test_stop_keeps_the_partial_answer(self):
        left = threading.Event()

        self.shared_server.on(QUERY, HostileServer.unfinished(left, "partial answer"))
        telemetry = len(self.shared_server.requests("/api/telemetry/query"))
        self.ask("long question")
        self.shared_app.access.wait_for_page_text("partial answer")
        self.shared_app.access.press("Stop")
        self.assertTrue(left.wait(10), "Stop did not end the transfer")
        turns = wait_until(lambda: self.shared_app.turns()[self.turns_before:], what="the turn")
        self.assertEqual(turns, [("long question", "partial answer")])
        self.shared_app.access.wait_gone("Stop")
        self.assertEqual(len(self.shared_server.requests("/api/telemetry/query")), telemetry)

    def test_stop_before_the_first_word_keeps_the_prompt(self):
        left = threading.Event()

        def handler(connection, _request):
            if connection.wait_closed():
                left.set()
        self.shared_server.on(QUERY, handler)
        self.ask("patience")
        self.shared_app.access.press("Stop")
        self.assertTrue(left.wait(10), "Stop did not end the transfer")
        self.shared_app.access.wait_gone("Stop")
        self.assertEqual(self.shared_app.turns()[self.turns_before:], [])
        self.assertEqual(self.shared_app.stored_defaults()["userPrompt"], "patience")
        self.empty_prompt()


class BrokenAnswerTest(SignedInCase):
    """Failing streams: an error page; the partial answer is stored, and the prompt stays."""

    def fails_with(self, handler, logged, page, kept=None):
        app = self.shared_app
        telemetry = len(self.shared_server.requests("/api/telemetry/query"))
        self.shared_server.on(QUERY, handler)
        self.ask("question")
        app.wait_for_line(logged, since=self.mark)
        app.wait_for_line(PREFIX + "Window shown", since=self.mark)
        shown = app.access.wait_for_page_text(page)
        self.assertIn("Error:", shown)
        turns = [("question", kept)] if kept else []
        wait_until(lambda: app.turns()[self.turns_before:] == turns, what=f"the turns {turns}")
        self.assertEqual(self.stored("userPrompt"), "question")
        self.assertEqual(len(self.shared_server.requests("/api/telemetry/query")), telemetry)
        # The text is still in the box; clear it for the next question.
        self.empty_prompt()

    def test_end_without_done(self):
        self.fails_with(HostileServer.stream(chunk_event("half an ans")),
                        PREFIX + "ERROR: Stream ended without a done event",
                        "Stream ended unexpectedly", kept="half an ans")

    def test_empty_stream(self):
        self.fails_with(HostileServer.stream(),
                        PREFIX + "ERROR: Stream ended without a done event",
                        "Stream ended unexpectedly")

    def test_statuses(self):
        for status in (500, 401, 404, 201, 302):
            with self.subTest(status=status):
                self.mark = self.shared_app.mark()
                self.fails_with(HostileServer.status(status, b"<secret body>"),
                                PREFIX + f"ERROR: Proxy HTTP {status}",
                                f"Proxy request failed: HTTP {status}")
                self.assertTrue(self.shared_app.has_line(
                    f"[ProxyQueryService] Proxy request failed: HTTP {status}", self.mark))

    def test_reset_before_the_answer(self):
        self.fails_with(lambda connection, _request: connection.reset(),
                        re.compile(r"^\[ProxyQueryService\] Network error: .+"),
                        "Could not reach backend proxy: ")

    def test_break_in_the_middle(self):
        broken_off = chunk_event("half an ans")

        def handler(connection, _request):
            connection.send(b"HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
                            b"Transfer-Encoding: chunked\r\n\r\n")
            connection.send(b"%x\r\n%s\r\n40\r\nda" % (len(broken_off), broken_off))
        self.fails_with(handler, re.compile(
            r"^\[OverlayWindowController\] ERROR: Unexpected query error: .+"), "Error:",
            kept="half an ans")

    def test_a_line_without_end_is_bounded(self):
        block = b"x" * (1 << 20)

        def handler(connection, _request):
            connection.begin_stream()
            connection.send(b"data: ")
            for _ in range(64):
                connection.send(block)
        self.fails_with(handler, re.compile(r"^\[OverlayWindowController\] ERROR: .+"), "Error:")


if __name__ == "__main__":
    unittest.main()
