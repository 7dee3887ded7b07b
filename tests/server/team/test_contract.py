"""The OpenAPI document: linted, and compared with what the backend really answers."""

import copy
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import jsonschema

from team_case import FakeModel, TeamCase

_HERE = pathlib.Path(__file__).parent
_DOCUMENT = _HERE.parents[2] / "server" / "http" / "openapi.json"
_LINTER = _HERE.parent / "contract"


def linter():
    """The pinned linter, installed once per build folder."""
    folder = pathlib.Path(tempfile.gettempdir()) / "quellora-contract-linter"
    if os.environ.get("QUELLORA_CONTRACT_LINTER"):
        folder = pathlib.Path(os.environ["QUELLORA_CONTRACT_LINTER"])
    wanted = (_LINTER / "package-lock.json").read_bytes()
    stamp = folder / "installed"
    if not stamp.exists() or stamp.read_bytes() != wanted:
        folder.mkdir(parents=True, exist_ok=True)
        for name in ("package.json", "package-lock.json"):
            shutil.copy(_LINTER / name, folder)
        subprocess.run(["npm", "ci", "--ignore-scripts", "--no-audit", "--no-fund",
                        "--loglevel=error"], cwd=folder, check=True)
        stamp.write_bytes(wanted)
    return folder / "node_modules" / ".bin" / "spectral"


def lint(document):
    """The linter's exit status and words."""
    with tempfile.TemporaryDirectory() as folder:
        file = pathlib.Path(folder) / "openapi.json"
        file.write_text(json.dumps(document))
        done = subprocess.run([linter(), "lint", "--ruleset", _LINTER / "spectral.yaml",
                               "--fail-severity", "hint", file],
                              capture_output=True, text=True, check=False)
        return done.returncode, done.stdout + done.stderr


class DocumentTest(unittest.TestCase):
    def setUp(self):
        self.document = json.loads(_DOCUMENT.read_text())

    def test_the_linter_finds_nothing(self):
        status, words = lint(self.document)
        self.assertEqual(status, 0, words)

    def test_the_linter_finds_mistakes(self):
        broken = copy.deepcopy(self.document)
        broken["paths"]["/livez"]["get"]["responses"]["200"]["content"] = {
            "application/json": {"schema": {"$ref": "#/components/schemas/Nothing"}}}
        self.assertNotEqual(lint(broken)[0], 0)

    def test_every_schema_is_one(self):
        for schema in self.document["components"]["schemas"].values():
            jsonschema.Draft202012Validator.check_schema(schema)


class AnswersTest(TeamCase):
    """Whatever is answered here is described there."""

    def setUp(self):
        super().setUp()
        self.document = json.loads(_DOCUMENT.read_text())
        self.model = FakeModel()
        self.addCleanup(self.model.close)
        self.configure()
        self.password = self.account()
        self.seen = set()

    def configure(self, more=""):
        self.config.write_text(f"""{more}
[openai]
base_url = "{self.model.url}"
model = "seeing-1"
""")

    def described(self, method, path, reply):
        """Compares a reply with its description."""
        operation = self.document["paths"][path][method.lower()]
        self.assertIn(str(reply.status), operation["responses"], f"{method} {path}: {reply.text}")
        self.seen.add((path, reply.status))
        response = operation["responses"][str(reply.status)]
        if "$ref" in response:
            response = self.document["components"]["responses"][response["$ref"].split("/")[-1]]
        content = response.get("content")
        if not content:
            self.assertEqual(reply.body, b"")
            return reply
        kind = reply.headers["Content-Type"].split(";")[0]
        self.assertIn(kind, content)
        for name, header in response.get("headers", {}).items():
            if reply.headers[name] is not None:
                self.valid(header["schema"], int(reply.headers[name]))
        if kind == "application/json":
            self.valid(content[kind]["schema"], reply.json)
        elif kind == "text/event-stream":
            for line in reply.text.splitlines():
                if line.startswith("data: "):
                    self.valid(content[kind]["x-event-schema"], json.loads(line[6:]))
        return reply

    def valid(self, schema, value):
        resolver = jsonschema.RefResolver("", self.document)
        jsonschema.Draft202012Validator(schema, resolver=resolver).validate(value)

    def post(self, path, body, token=None, headers=None):
        return self.described("POST", path, self.visitor().post_json(path, body, token, headers))

    def get(self, path, headers=None):
        return self.described("GET", path.split("?")[0], self.visitor().get(path, headers))

    def login(self, **changes):
        return self.post("/api/auth/app-login", {"email": "ann@example.org",
                                                 "password": self.password} | changes)

    def test_answers_and_refusals(self):
        self.start()
        token = self.login().json["token"]
        self.run_command("send-message", "--title", "T", "--text", "B", "--label", "L", "--url",
                         "https://example.org", "--minutes", "5")
        self.assertIn("adminMessage", self.login().json["config"])
        self.login(password="wrong")
        self.post("/api/auth/app-login", {"email": 7})
        self.post("/api/auth/app-verify", {}, token)
        self.post("/api/auth/app-verify", {}, "unknown")
        self.post("/api/auth/app-verify", "[]", token)
        self.post("/api/proxy/query", {"prompt": "?"}, token)
        self.post("/api/proxy/query", {"prompt": 7}, token)
        self.post("/api/proxy/query", {"prompt": "?"}, "unknown")
        self.post("/api/proxy/query", {"prompt": "?"}, token, {"X-App-Version": "0.9"})
        self.model.status = 500
        self.post("/api/proxy/query", {"prompt": "?"}, token)
        telemetry = {name: {"string": "x", "boolean": True, "integer": 1, "number": 1.5}[field["type"]]
                     for name, field in
                     self.document["components"]["schemas"]["Telemetry"]["properties"].items()}
        self.assertEqual(self.post("/api/telemetry/query", telemetry, token).status, 202)
        self.post("/api/telemetry/query", {}, token)
        self.post("/api/logs/app", b"a log", token, {"Content-Type": "text/plain"})
        self.post("/api/logs/app", b"", token, {"Content-Type": "text/plain"})
        for path in ("/api/auth/app-login", "/api/auth/app-verify", "/api/proxy/query",
                     "/api/telemetry/query"):
            self.post(path, "x", token, {"Content-Type": "text/plain"})
            self.post(path, {}, token, {"Origin": "https://evil.example"})
            self.post(path, {}, token, {"Host": "evil.example"})
        self.post("/api/auth/app-login", {"email": "x" * 70000})
        self.run_command("suspend", "ann@example.org")
        self.login()
        self.post("/api/proxy/query", {"prompt": "?"}, token)
        for path in ("/healthz", "/livez", "/readyz", "/metrics", "/openapi.json", "/login"):
            self.get(path)
        self.get("/login?callback=x")
        self.get("/metrics", {"X-Forwarded-For": "10.0.0.1"})
        self.get("/healthz", {"Host": "evil.example"})
        for expected in (("/api/proxy/query", 426), ("/api/proxy/query", 502),
                         ("/api/auth/app-login", 413), ("/api/auth/app-login", 421),
                         ("/api/auth/app-login", 415), ("/api/auth/app-login", 403)):
            self.assertIn(expected, self.seen)

    def test_limits(self):
        self.configure("[limits]\nqueries_per_minute = 2\nlogin_failures = 2\n")
        self.start()
        token = self.login().json["token"]
        for _ in range(3):
            reply = self.post("/api/proxy/query", {"prompt": "?"}, token)
        self.assertEqual(reply.status, 429)
        for _ in range(3):
            reply = self.login(password="wrong")
        self.assertEqual(reply.status, 429)
        self.run_command("set-cap", "ann@example.org", "1")
        self.assertIn("tokensRemaining", self.post("/api/proxy/query", {"prompt": "?"}, token).json)

    def test_the_document_is_served_as_it_is(self):
        self.start()
        self.assertEqual(self.visitor().get("/openapi.json").json, self.document)

    def test_what_the_app_asks_is_described(self):
        """The addresses and fields in the app's own sources."""
        sources = "".join(path.read_text() for path in
                          (_HERE.parents[2] / "src").rglob("*.cpp") if path.parent.name in
                          ("backend", "query", "base", "app"))
        for path in re.findall(r'"(/api/[a-z/-]+)"', sources):
            self.assertIn(path, self.document["paths"])


if __name__ == "__main__":
    unittest.main()
