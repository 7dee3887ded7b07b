"""Failing providers, as a stand-in written by others plays them in both formats."""

import concurrent.futures
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import threading
import time
import unittest
import urllib.request

import prometheus
from team_case import PATIENCE, TeamCase

_PACKAGES = pathlib.Path(__file__).parents[1] / "providers"
ANSWER = "It is **red**, as far as the picture tells: a long answer in many small pieces."
LIMIT = "\n\n*The answer ends here: it reached the length limit.*"
# In an order in which no model is left alone before the last one.
ERRORS = {"length": (400, {"type": "invalid_request_error", "code": "context_length_exceeded"}),
          "key": (401, {"type": "authentication_error"}),
          "money": (402, {"type": "billing_error", "code": "insufficient_quota"}),
          "server": (500, {"type": "api_error"}),
          "overload": (529, {"type": "overloaded_error"})}
FIXTURES = [
    {"match": {"userMessage": "plain"}, "response": {"content": ANSWER}, "chunkSize": 5},
    {"match": {"userMessage": "cut"}, "response": {"content": ANSWER}, "chunkSize": 5,
     # The pause lets what was written be sent.
     "truncateAfterChunks": 4, "latency": 50},
    {"match": {"userMessage": "limit"},
     "response": {"content": ANSWER, "finishReason": "length"}},
] + [{"match": {"userMessage": "error " + name},
      "response": {"error": {"message": "secret words"} | error, "status": status}}
     for name, (status, error) in ERRORS.items()]


def stand_in():
    """The pinned stand-in, installed once per build folder."""
    folder = pathlib.Path(tempfile.gettempdir()) / "quellora-provider-stand-in"
    if os.environ.get("QUELLORA_PROVIDER_STAND_IN"):
        folder = pathlib.Path(os.environ["QUELLORA_PROVIDER_STAND_IN"])
    wanted = (_PACKAGES / "package-lock.json").read_bytes()
    stamp = folder / "installed"
    if not stamp.exists() or stamp.read_bytes() != wanted:
        folder.mkdir(parents=True, exist_ok=True)
        for name in ("package.json", "package-lock.json"):
            shutil.copy(_PACKAGES / name, folder)
        subprocess.run(["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund",
                        "--loglevel=error"], cwd=folder, check=True)
        stamp.write_bytes(wanted)
    # Its other build imports a function that Debian's Node 18 lacks and that only formats of other
    # providers need.
    return folder / "node_modules" / "@copilotkit" / "aimock" / "dist" / "aimock-cli.cjs"


class Provider:
    """A running stand-in for both providers."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory(prefix="providers-")
        folder = pathlib.Path(self.folder.name)
        (folder / "fixtures.json").write_text(json.dumps({"fixtures": FIXTURES}))
        (folder / "config.json").write_text(
            json.dumps({"llm": {"fixtures": str(folder / "fixtures.json")}}))
        self.process = subprocess.Popen(
            [os.environ.get("QUELLORA_NODE", "node"), stand_in(), "--config",
             folder / "config.json", "--port", "0"], stdout=subprocess.PIPE, text=True)
        for line in self.process.stdout:
            found = re.search(r"listening on (http://\S+)", line)
            if found:
                self.url = found[1]
                break
        else:
            raise AssertionError("the stand-in did not start")
        threading.Thread(target=self.process.stdout.read, daemon=True).start()

    def _control(self, method, path, value=None):
        request = urllib.request.Request(
            f"{self.url}/__aimock/{path}", method=method,
            data=None if value is None else json.dumps(value).encode(),
            headers={"Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=PATIENCE) as reply:
            return json.loads(reply.read() or b"null")

    def chaos(self, **rates):
        self._control("POST", "chaos", rates)

    def requests(self):
        return len(self._control("GET", "journal"))

    def close(self):
        self.process.terminate()
        self.process.wait(PATIENCE)
        self.folder.cleanup()


def setUpModule():
    global WILD, CALM
    WILD = Provider()
    unittest.addModuleCleanup(WILD.close)
    CALM = Provider()
    unittest.addModuleCleanup(CALM.close)


class Outcome:
    """What the app gets."""

    def __init__(self, reply):
        self.status = reply.status
        self.reply = reply
        self.events = [json.loads(line[6:]) for line in reply.text.split("\n")
                       if line.startswith("data: ")]
        self.text = "".join(event["text"] for event in self.events if event["type"] == "chunk")
        self.last = self.events[-1]["type"] if self.events else ""


class ProviderCases:
    """The model "alone" and "backed" are of the provider under test, which may fail."""

    form = ""
    other = ""

    def setUp(self):
        super().setUp()
        WILD.chaos()
        urls = {self.form: WILD.url, self.other: CALM.url}
        self.config.write_text(f"""
[limits]
queries_per_minute = 10000
concurrent_queries = 8
[timing]
retry_milliseconds = 1
longest_retry_seconds = 0
[anthropic]
base_url = "{urls['anthropic']}"
api_key = "canary-key"
[openai]
base_url = "{urls['openai']}/v1"
api_key = "canary-key"
[[models]]
id = "alone"
provider = "{self.form}"
[[models]]
id = "backed"
provider = "{self.form}"
fallback = ["calm"]
[[models]]
id = "calm"
provider = "{self.other}"
""")
        self.password = self.account()
        self.start()
        self.token = self.log_in("ann@example.org", self.password).json["token"]

    def ask(self, model, prompt="plain"):
        return Outcome(self.visitor().post_json("/api/proxy/query",
                                                {"prompt": prompt, "model": model}, self.token))

    def counted(self):
        """{model: number of answers} of this month."""
        counts = {}
        for row in self.run_json("usage", "--days", "1"):
            counts[row["model"]] = counts.get(row["model"], 0) + row["queries"]
        return {model: count for model, count in counts.items() if count}

    def samples(self, metric):
        text = self.visitor().get("/metrics").text
        return prometheus.parsed(text)[metric][1]

    def breaker(self, model):
        for _, labels in self.samples("quellora_model_breaker_info"):
            if dict(labels)["model"] == model:
                return dict(labels)["state"]
        raise AssertionError(model)

    def assert_whole(self, outcome, is_fallback=False):
        self.assertEqual((outcome.status, outcome.text, outcome.last), (200, ANSWER, "done"))
        self.assertEqual(outcome.events[-1]["usedFallback"], is_fallback)
        # Also where the provider counts nothing.
        self.assertGreater(outcome.events[-1]["tokensUsed"], len(ANSWER) / 8)

    def test_an_answer_arrives_whole_and_is_counted(self):
        self.assert_whole(self.ask("alone"))
        self.assertEqual(self.counted(), {"alone": 1})

    def test_each_failure_has_its_reply_and_costs_nothing(self):
        for rates, status in (({"rateLimitRate": 1}, 429), ({"dropRate": 1}, 502),
                              ({"malformedRate": 1}, 502), ({"disconnectRate": 1}, 502)):
            with self.subTest(rates):
                WILD.chaos(**rates)
                outcome = self.ask("alone")
                self.assertEqual(outcome.status, status)
                if status == 429:
                    self.assertGreater(outcome.reply.json["resetInSeconds"], 0)
                else:
                    self.assertTrue(outcome.reply.json["error"])
        self.assertEqual(self.counted(), {})

    def test_another_model_answers_for_each_failure(self):
        for rate in ("rateLimitRate", "dropRate", "malformedRate", "disconnectRate"):
            with self.subTest(rate):
                WILD.chaos(**{rate: 1})
                self.assert_whole(self.ask("backed"), is_fallback=True)
        self.assertEqual(self.counted(), {"calm": 4})

    def test_a_model_that_fails_often_is_left_alone(self):
        WILD.chaos(dropRate=1)
        for _ in range(2):
            self.assertEqual(self.ask("alone").status, 502)
        self.assertEqual(self.breaker("alone"), "open")
        self.assertEqual(self.breaker("calm"), "closed")
        before = WILD.requests()
        self.assertEqual(self.ask("alone").status, 502)
        self.assertEqual(WILD.requests(), before)

    def test_documented_errors_have_words_of_their_own(self):
        seen = set()
        for name in ERRORS:
            with self.subTest(name):
                outcome = self.ask("backed", "error " + name)
                # The other provider knows the same fixtures and fails, too.
                self.assertEqual(outcome.status, 502)
                self.assertNotIn("secret", outcome.reply.text)
                seen.add(outcome.reply.json["error"])
        self.assertEqual(len(seen), 3)
        self.stop()
        self.assertNotIn("secret words", "\n".join(self.lines))
        self.assertNotIn("canary", "\n".join(self.lines))

    def test_an_answer_that_breaks_off_is_counted_once_and_not_repeated(self):
        wild, calm = WILD.requests(), CALM.requests()
        outcome = self.ask("backed", "cut")
        self.assertEqual(outcome.status, 200)
        self.assertTrue(outcome.text and ANSWER.startswith(outcome.text))
        self.assertNotEqual(outcome.text, ANSWER)
        self.assertEqual(outcome.last, "chunk")
        self.assertEqual((WILD.requests() - wild, CALM.requests() - calm), (1, 0))
        self.assertEqual(self.counted(), {"backed": 1})

    def test_an_answer_at_its_limit_says_so(self):
        outcome = self.ask("alone", "limit")
        self.assertEqual((outcome.text, outcome.last), (ANSWER + LIMIT, "done"))

    def test_many_questions_in_chaos_end_once_each(self):
        WILD.chaos(dropRate=0.15, malformedRate=0.15, rateLimitRate=0.15, disconnectRate=0.15)
        begin = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(6) as pool:
            backed = list(pool.map(self.ask, ["backed"] * 30))
            alone = list(pool.map(self.ask, ["alone"] * 30))
        self.assertLess(time.monotonic() - begin, 4 * PATIENCE)
        for outcome in backed:
            self.assertEqual((outcome.status, outcome.text, outcome.last), (200, ANSWER, "done"))
        for outcome in alone:
            self.assertIn(outcome.status, (200, 429, 502))
            if outcome.status == 200:
                self.assertEqual((outcome.text, outcome.last), (ANSWER, "done"))
        fallbacks = sum(outcome.events[-1]["usedFallback"] for outcome in backed)
        whole = sum(outcome.status == 200 for outcome in alone)
        wanted = {"alone": whole, "backed": 30 - fallbacks, "calm": fallbacks}
        self.assertEqual(self.counted(), {model: n for model, n in wanted.items() if n})


class AnthropicTest(ProviderCases, TeamCase):
    form, other = "anthropic", "openai"


class OpenAiTest(ProviderCases, TeamCase):
    form, other = "openai", "anthropic"


if __name__ == "__main__":
    unittest.main()
