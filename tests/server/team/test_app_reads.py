"""The backend's real answers, read by the app's own readers: no field is lost or misunderstood."""

import json
import os
import subprocess
import unittest

from team_case import PATIENCE, FakeModel, TeamCase

READER = os.environ["QUELLORA_APP_READS"]
#: Of the app's QueryError::Kind.
RATE_LIMITED, CAP_EXCEEDED, SERVER_MESSAGE, HTTP_ERROR = range(4)


class AppReadsTest(TeamCase):
    def setUp(self):
        super().setUp()
        self.model = FakeModel("It is „red“ \U0001F534\u2028 \"quoted\" \\ and\nmore.")
        self.addCleanup(self.model.close)
        self.configure()
        self.password = self.account("ann@example.org", "--cap", "100000", "--plan", "größer")

    def configure(self, more=""):
        self.config.write_text(f"""{more}
[openai]
base_url = "{self.model.url}"
model = "seeing-1"
[[models]]
id = "first"
provider = "openai"
display_name = "Erstes “Modell”"
descriptor = "sees well"
[[models]]
id = "second"
provider = "openai"
""")

    def read(self, *arguments, given=b""):
        done = subprocess.run([READER, *arguments], input=given, capture_output=True,
                              timeout=PATIENCE, check=False,
                              env=self.environment | {"QT_QPA_PLATFORM": "offscreen"})
        self.assertEqual(done.returncode, 0, done.stderr)
        return [json.loads(line) for line in done.stdout.splitlines() if line.startswith(b"{")]

    def assert_read_whole(self, reply):
        """The reader's record has exactly what was answered."""
        self.assertEqual(reply.status, 200, reply.text)
        self.assertEqual(self.read("record", given=reply.body), [reply.json])
        return reply.json

    def login(self):
        return self.log_in("ann@example.org", self.password)

    def events(self, body):
        return [json.loads(line[6:]) for line in body.decode().split("\n")
                if line.startswith("data: ")]

    def ask(self, token, **more):
        return self.visitor().post_json("/api/proxy/query", {"prompt": "What?"} | more, token)

    def test_sign_in_session_models_and_usage(self):
        self.start()
        first = self.assert_read_whole(self.login())
        self.assertEqual(len(first["config"]["availableModels"]), 2)
        self.ask(first["token"])
        second = self.assert_read_whole(
            self.visitor().post_json("/api/auth/app-verify", {}, first["token"]))
        self.assertEqual(second["config"]["tokensUsed"], 19)
        self.run_command("set-cap", "ann@example.org", "20")
        config = self.assert_read_whole(self.login())["config"]
        self.assertTrue(config["usageWarning75"] and config["usageWarning90"])
        self.run_command("set-cap", "ann@example.org", "0")
        self.assert_read_whole(self.login())

    def test_messages_of_every_kind(self):
        self.start()
        for options in ((), ("--kind", "blocking"), ("--minutes", "90"),
                        ("--label", "Why", "--url", "https://example.org/why?a=1&b=2"),
                        ("--kind", "blocking", "--minutes", "0", "--label", "L", "--url",
                         "http://example.org")):
            sent = self.run_json("send-message", "--title", "Titel „1“", "--text",
                                 "A *text*\n\nof <two> lines \u2028.", *options)["id"]
            message = self.assert_read_whole(self.login())["config"]["adminMessage"]
            self.assertEqual(message["id"], sent)
            self.run_command("withdraw-message", sent)
        self.assertNotIn("adminMessage", self.assert_read_whole(self.login())["config"])

    def test_what_administrators_choose(self):
        self.start()
        self.run_command("set-prompt", given="Look\t“closely” \U0001F440.\nAnd again.\n")
        self.run_command("offer-models", "second")
        config = self.assert_read_whole(self.login())["config"]
        self.assertEqual(config["model"], "second")
        self.assertEqual(config["defaultPrompt"], "Look\t“closely” \U0001F440.\nAnd again.")

    def test_logs_that_are_asked_for_and_other_settings(self):
        self.configure("[service]\nrequest_logs = true\ndebug_logging = true\n"
                       "heartbeat_interval_seconds = 60\nminimum_app_version = \"0.9.1\"\n")
        self.start()
        config = self.assert_read_whole(self.login())["config"]
        self.assertEqual((config["requestLogs"], config["debugLogging"],
                          config["heartbeatIntervalSeconds"], config["minimumAppVersion"]),
                         (True, True, 60, "0.9.1"))

    def test_an_unconfigured_backend(self):
        self.config.write_text("")
        self.start()
        token = self.assert_read_whole(self.login())["token"]
        body = self.ask(token).body
        self.assertEqual(self.read("events", given=body), self.events(body))

    def test_the_events_of_answers(self):
        self.start()
        token = self.login().json["token"]
        answered = self.ask(token).body
        fallback = self.ask(token, model="unknown").body
        kinds = set()
        for body in (answered, fallback):
            events = self.events(body)
            kinds |= {event["type"] for event in events}
            self.assertEqual(self.read("events", given=body), events)
        self.assertEqual(kinds, {"chunk", "done"})
        self.assertEqual("".join(event.get("text", "") for event in self.events(answered)),
                         self.model.answer)
        self.assertTrue(self.events(fallback)[-1]["usedFallback"])

    def test_the_apps_client_understands_answers_and_refusals(self):
        self.configure("[limits]\nqueries_per_minute = 2\n")
        self.start()
        token = self.login().json["token"]

        def outcome(token=token):
            return self.read("query", self.url, token)[-1]
        self.assertEqual(outcome(), {"type": "done", "tokensRemaining": 99981, "tokensUsed": 19,
                                     "usageWarning75": False, "usageWarning90": False,
                                     "usedFallback": False})
        self.assertEqual(outcome("unknown")["status"], 401)
        self.run_command("set-cap", "ann@example.org", "19")
        spent = outcome()
        self.assertEqual((spent["kind"], spent["tokensRemaining"]), (CAP_EXCEEDED, 0))
        self.run_command("set-cap", "ann@example.org", "0")
        limited = outcome()
        while limited.get("type") == "done":
            limited = outcome()
        self.assertEqual(limited["kind"], RATE_LIMITED)
        self.assertTrue(0 < limited["resetInSeconds"] <= 60, limited)
        self.run_command("suspend", "ann@example.org")
        self.assertEqual(outcome()["kind"], HTTP_ERROR)
        self.assertEqual(outcome()["status"], 403)


if __name__ == "__main__":
    unittest.main()
