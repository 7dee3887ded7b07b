"""Compares what the provider served, what the clients saw and what the store counted, answer by
answer.

How an answer is to be counted, once each:
- whole: with the provider's figures, which its client got to see;
- cut off, since its client, HAProxy or the server went away: by the text that had arrived at the
  instance, so at least what the client saw and at most what the provider delivered;
- on an instance that died or was cut off, once its lease is over: with what was reserved for it,
  which is at least what the client saw;
- without any text: not at all.
"""

import collections
import dataclasses

from counting_provider import REPORTED_PER_PIECE, TOKENS_PER_PIECE
from team_clients import SHORTEST_PROMPT

# What is reserved ahead of the text, at most.
RESERVED_AHEAD = 512
# Pieces that the system of an instance may have acknowledged although it was told to stop reading.
IN_FLIGHT = 3


@dataclasses.dataclass
class Row:
    """One answer in the store."""

    account: int
    estimate: int
    state: str
    reserved: int
    input: int
    output: int

    @property
    def total(self):
        return self.input + self.output


def compare(questions, served, rows, pieces):
    """(what was counted how often, problems). `served` is the provider's ledger by the names of
    questions, `pieces` those of a whole answer."""
    counts = collections.Counter()
    problems = []
    by_question = collections.defaultdict(list)
    for row in rows:
        by_question[f"question-{row.account}-{row.estimate - SHORTEST_PROMPT}"].append(row)
    asked = {question.name: question for question in questions}
    for name in by_question.keys() - asked.keys():
        problems.append(f"{name} was counted, but never asked")
    for name, question in asked.items():
        delivered = served.get(name)
        found = by_question.get(name, [])
        counted = [row for row in found if row.total]
        if len(found) > 1:
            problems.append(f"{name} is in the store {len(found)} times")
        elif delivered and delivered.requests > 1 and delivered.pieces:
            problems.append(f"the provider was asked {name} {delivered.requests} times")
        elif any(row.state == "running" for row in found):
            problems.append(f"{name} still runs")
        elif not counted:
            if question.text_bytes or (delivered and delivered.pieces > IN_FLIGHT):
                problems.append(f"{name} was served, but not counted: {delivered}, {question}")
            counts["not served" if not delivered or not delivered.pieces else "no text read"] += 1
        else:
            kind, problem = _judge(question, delivered, counted[0], pieces)
            counts[kind] += 1
            if problem:
                problems.append(f"{name} {problem}: {counted[0]}, {delivered}, {question}")
    return counts, problems


def _judge(question, delivered, row, pieces):
    """How a counted answer was counted, and what is wrong with that."""
    if not delivered or not delivered.requests:
        return "never served", "was counted, but the provider was never asked"
    if row.reserved or row.input != question.prompt_tokens:
        return "wrong", "has wrong figures"
    exact = row.output == REPORTED_PER_PIECE * pieces
    if question.outcome == "done":
        right = exact and question.tokens == row.total and delivered.pieces == pieces
        return "whole, exact", None if right else "was whole and is counted otherwise"
    least = question.text_bytes // 4
    # The last piece may have arrived although its connection broke before the provider knew.
    most = TOKENS_PER_PIECE * (delivered.pieces + 1)
    if row.state == "expired":
        right = least <= row.output <= most + RESERVED_AHEAD
        kind = "lease over, as reserved" if delivered.pieces else "lease over before any text"
        return kind, None if right else "is counted out of bounds"
    if delivered.whole and exact:
        return "whole, exact", None
    right = least <= row.output <= most
    return "cut off, as far as it came", None if right else "is counted out of bounds"
