"""The comparison of the demonstration notices every difference."""

import dataclasses
import unittest

from counting_provider import REPORTED_PER_PIECE, TOKENS_PER_PIECE, Served
from team_books import IN_FLIGHT, RESERVED_AHEAD, Row, compare
from team_clients import Question

PIECES = 10
WHOLE = REPORTED_PER_PIECE * PIECES
TEXT = 4 * TOKENS_PER_PIECE


class BooksTest(unittest.TestCase):
    def setUp(self):
        self.question = Question(2, 7, begun=1, ended=2, outcome="done", text_bytes=PIECES * TEXT)
        input_tokens = self.question.prompt_tokens
        self.question.tokens = input_tokens + WHOLE
        self.served = Served(requests=1, pieces=PIECES, whole=True)
        self.row = Row(2, input_tokens, "settled", 0, input_tokens, WHOLE)
        self.rows = [self.row]

    def cut_off(self, state="settled"):
        """The client saw four pieces, the provider delivered five."""
        self.question.outcome = "broken off"
        self.question.text_bytes = 4 * TEXT
        self.served = Served(requests=1, pieces=5)
        self.row.state = state
        self.row.output = 5 * TOKENS_PER_PIECE

    def compare(self):
        served = {self.question.name: self.served} if self.served else {}
        return compare([self.question], served, self.rows, PIECES)

    def assert_right(self, kind):
        self.assertEqual(self.compare(), ({kind: 1}, []))

    def assert_wrong(self, words):
        problems = self.compare()[1]
        self.assertEqual(len(problems), 1)
        self.assertIn(words, problems[0])

    def test_whole_answers(self):
        self.assert_right("whole, exact")
        for field, value in (("output", WHOLE - 1), ("output", WHOLE + 1), ("input", 1),
                             ("reserved", 1)):
            with self.subTest(field=field, value=value):
                right = self.row
                self.rows = [dataclasses.replace(right, **{field: value})]
                self.assertEqual(len(self.compare()[1]), 1)
                self.rows = [right]

    def test_what_the_client_was_told_counts(self):
        self.question.tokens -= 1
        self.assert_wrong("is counted otherwise")

    def test_twice(self):
        self.rows.append(dataclasses.replace(self.row))
        self.assert_wrong("2 times")

    def test_asked_twice(self):
        self.served.requests = 2
        self.assert_wrong("was asked")

    def test_not_at_all(self):
        for self.rows in ([], [dataclasses.replace(self.row, input=0, output=0)]):
            self.assert_wrong("not counted")

    def test_text_that_a_client_saw_is_counted(self):
        self.cut_off()
        self.rows = []
        self.served.pieces = IN_FLIGHT
        self.assert_wrong("not counted")
        self.question.text_bytes = 0
        self.assert_right("no text read")
        self.served = None
        self.assert_right("not served")

    def test_never_served(self):
        self.served = None
        self.assert_wrong("never asked")

    def test_never_asked(self):
        self.row.estimate += 1
        self.served.pieces = 0
        self.question.text_bytes = 0
        self.assert_wrong("never asked")

    def test_still_running(self):
        self.row.state = "running"
        self.assert_wrong("still runs")

    def test_cut_off(self):
        self.cut_off()
        self.assert_right("cut off, as far as it came")
        for output in (4 * TOKENS_PER_PIECE - 1, 6 * TOKENS_PER_PIECE + 1):
            self.row.output = output
            self.assert_wrong("out of bounds")

    def test_the_lease_is_over(self):
        self.cut_off("expired")
        self.row.output = 6 * TOKENS_PER_PIECE + RESERVED_AHEAD
        self.assert_right("lease over, as reserved")
        for output in (4 * TOKENS_PER_PIECE - 1, 6 * TOKENS_PER_PIECE + RESERVED_AHEAD + 1):
            self.row.output = output
            self.assert_wrong("out of bounds")


if __name__ == "__main__":
    unittest.main()
