"""Many apps that ask at once, speaking the app's protocol."""

import base64
import dataclasses
import http.client
import json
import random
import threading
import time

from team_parts import LOOPBACK, wait_until

PASSWORD = "a password of the demonstration"
# The app gives up after so long a silence.
PATIENCE = 30
PICTURE = base64.b64encode(b"\xff\xd8\xff" + bytes(20_000)).decode()
# What the number of a question adds to the length of a prompt tells questions apart in the store.
SHORTEST_PROMPT = 20


@dataclasses.dataclass
class Question:
    """One question and what its client saw of the answer. Times are those of time.monotonic()."""

    account: int
    number: int
    begun: float
    ended: float = 0
    instance: str = ""
    # "done", "error event", "broken off", "no connection", "spent" or "HTTP status".
    outcome: str = ""
    text_bytes: int = 0
    # As its "done" event says.
    tokens: int = 0

    @property
    def name(self):
        return f"question-{self.account}-{self.number}"

    @property
    def prompt_tokens(self):
        return SHORTEST_PROMPT + self.number

    @property
    def prompt(self):
        return f"{self.name} ".ljust(4 * self.prompt_tokens, ".")


class Clients:
    """`count` apps signed in with the accounts in turn."""

    def __init__(self, port, accounts, count):
        self.port = port
        self.accounts = accounts
        self.questions = []
        self.lost_sessions = []
        self.lock = threading.Lock()
        self.numbers = [0] * len(accounts)
        self.stopping = threading.Event()
        self.threads = [threading.Thread(target=self._live, args=(i % len(accounts),), daemon=True)
                        for i in range(count)]
        self.signed_in = 0

    def start(self):
        for thread in self.threads:
            thread.start()
        wait_until(lambda: self.signed_in == len(self.threads), "sign-in of all clients", 120)

    def stop(self):
        """Lets each end what it waits for, and verify its session once more."""
        self.stopping.set()
        for thread in self.threads:
            thread.join(3 * PATIENCE)

    def running(self, instance=None):
        """The questions whose answers arrive now."""
        with self.lock:
            return [question for question in self.questions if not question.ended
                    and question.text_bytes and instance in (None, question.instance)]

    def finished(self):
        with self.lock:
            return [question for question in self.questions if question.ended]

    def _post(self, path, record, token=None):
        connection = http.client.HTTPConnection(LOOPBACK, self.port, timeout=PATIENCE)
        headers = {"Content-Type": "application/json", "X-App-Version": "1.0.0"}
        if token:
            headers["Authorization"] = f"Bearer {token}"
        connection.request("POST", path, json.dumps(record), headers)
        return connection.getresponse()

    def _live(self, account):
        record = {"osVersion": "demo", "hotkeys": {}, "cpuArch": "arm64"}
        login = record | {"email": self.accounts[account], "password": PASSWORD}

        def session():
            reply = self._post("/api/auth/app-login", login)
            return json.load(reply)["token"] if reply.status == 200 else None

        token = wait_until(session, "session", 120)
        with self.lock:
            self.signed_in += 1
        while not self.stopping.is_set():
            question = self._ask(account, token)
            if question.outcome == "HTTP 401":
                self.lost_sessions.append(account)
            # Told to wait, or that the allowance is spent.
            is_refused = question.outcome in ("spent", "HTTP 429")
            pause = 3 if is_refused else random.uniform(0.2, 1)
            self.stopping.wait(pause)

        def verified():
            status = self._post("/api/auth/app-verify", record, token).status
            return status if status in (200, 401, 403) else None

        if wait_until(verified, "verified session") != 200:
            self.lost_sessions.append(account)

    def _ask(self, account, token):
        with self.lock:
            self.numbers[account] += 1
            question = Question(account, self.numbers[account], time.monotonic())
            self.questions.append(question)
        record = {"prompt": question.prompt}
        if question.number % 5 == 0:
            record["imageBase64"] = PICTURE
        outcome = "no connection"
        try:
            reply = self._post("/api/proxy/query", record, token)
            question.instance = reply.headers["X-Instance"] or ""
            outcome = "broken off"
            if reply.status == 200:
                outcome = self._read(reply, question)
            else:
                body = reply.read()
                spent = reply.status == 429 and b"tokensRemaining" in body
                outcome = "spent" if spent else f"HTTP {reply.status}"
        except (OSError, http.client.HTTPException, ValueError):
            pass
        question.outcome = outcome
        question.ended = time.monotonic()
        return question

    @staticmethod
    def _read(reply, question):
        """Reads the events of an answer; returns how it ended."""
        for line in reply:
            if not line.startswith(b"data: "):
                continue
            event = json.loads(line[6:])
            if event["type"] == "chunk":
                question.text_bytes += len(event["text"].encode())
            elif event["type"] == "done":
                question.tokens = event["tokensUsed"]
                return "done"
            else:
                return "error event"
        return "broken off"
