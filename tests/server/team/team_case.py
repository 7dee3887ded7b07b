"""What the tests of the team's pages share: the real backend, a browser without a screen, codes."""

import atexit
import base64
import functools
import hashlib
import hmac
import html
import http.client
import http.server
import json
import os
import pathlib
import re
import shutil
import struct
import subprocess
import tempfile
import threading
import time
import unittest
import urllib.parse

from stores import Cluster

PROGRAM = os.environ.get("QUELLORA_BACKEND_PROGRAM") or str(
    pathlib.Path(os.environ["QUELLORA_BIN_DIR"]) / "quellora-backend")
#: How much more time and memory the program may take, for instance because it is instrumented.
ALLOWANCE = float(os.environ.get("QUELLORA_TEST_ALLOWANCE", 1))
PATIENCE = 30 * ALLOWANCE
CALLBACK = "http://127.0.0.1:9877/oauth-callback"


@functools.cache
def shared_cluster():
    """The PostgreSQL server of the tests that run with another store than usual."""
    cluster = Cluster()
    atexit.register(cluster.close)
    return cluster


def one_time_code(secret, step_offset=0, now=None):
    """The code of RFC 6238 that an authenticator app shows."""
    key = base64.b32decode(secret + "=" * (-len(secret) % 8))
    step = int(now if now is not None else time.time()) // 30 + step_offset
    digest = hmac.new(key, struct.pack(">Q", step), hashlib.sha1).digest()
    offset = digest[-1] & 15
    number = struct.unpack(">I", digest[offset:offset + 4])[0] & 0x7FFFFFFF
    return f"{number % 1000000:06}"


class Reply:
    """A reply with its whole body."""

    def __init__(self, response):
        self.status = response.status
        self.headers = response.headers
        self.body = response.read()

    @property
    def text(self):
        return self.body.decode()

    @property
    def json(self):
        return json.loads(self.body)

    @property
    def location(self):
        return self.headers["Location"] or ""


class Visitor:
    """Keeps cookies and fills in forms, as a browser does."""

    def __init__(self, url):
        self.address = urllib.parse.urlsplit(url).netloc
        self.cookies = {}
        self.set_cookies = []

    def request(self, method, path, body=None, headers=None):
        connection = http.client.HTTPConnection(self.address, timeout=PATIENCE)
        fields = dict(headers or {})
        if self.cookies:
            fields["Cookie"] = "; ".join(f"{name}={value}" for name, value in self.cookies.items())
        connection.request(method, path, body, fields)
        reply = Reply(connection.getresponse())
        connection.close()
        for line in reply.headers.get_all("Set-Cookie") or []:
            self.set_cookies.append(line)
            name, value = line.split(";")[0].split("=", 1)
            if "Max-Age=0" in line:
                self.cookies.pop(name, None)
            else:
                self.cookies[name] = value
        return reply

    def get(self, path, headers=None):
        return self.request("GET", path, headers=headers)

    def post(self, path, fields, headers=None):
        return self.request("POST", path, urllib.parse.urlencode(fields),
                            {"Content-Type": "application/x-www-form-urlencoded"} | (headers or {}))

    def post_json(self, path, value, token=None, headers=None):
        extra = {"Authorization": f"Bearer {token}"} if token else {}
        return self.request("POST", path, value if isinstance(value, (bytes, str)) else json.dumps(value),
                            {"Content-Type": "application/json"} | extra | (headers or {}))

    def form_fields(self, path, marker):
        """The hidden fields of the form on a page that contains a text."""
        for form in re.findall(r"<form.*?</form>", self.get(path).text, re.S):
            if marker in form:
                return {name: html.unescape(value) for name, value in re.findall(
                    r'type="hidden" name="([^"]*)" value="([^"]*)"', form)}
        raise AssertionError(f"{path} has no form with {marker!r}")

    def submit(self, path, marker, action=None, target=None, **fields):
        """Submits the form with a marker on a page."""
        values = self.form_fields(path, marker) | fields
        if action:
            values["action"] = action
        return self.post(target or path.split("?")[0], values)


class FakeModel(http.server.ThreadingHTTPServer):
    """A provider with the OpenAI chat format whose answers contain a given text."""

    daemon_threads = True

    def __init__(self, answer="It is red."):
        super().__init__(("127.0.0.1", 0), _ModelHandler)
        self.answer = answer
        self.status = 200
        self.hold = threading.Event()
        self.hold.set()
        self.questions = []
        threading.Thread(target=self.serve_forever, daemon=True).start()

    @property
    def url(self):
        return f"http://127.0.0.1:{self.server_port}/v1"

    def close(self):
        self.hold.set()
        self.shutdown()
        self.server_close()


class _ModelHandler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *_arguments):
        pass

    def do_GET(self):
        body = b'{"data":[{"id":"seeing-1"}]}'
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_POST(self):
        self.server.questions.append(self.rfile.read(int(self.headers["Content-Length"])))
        self.send_response(self.server.status)
        if self.server.status != 200:
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        self.send_header("Content-Type", "text/event-stream")
        self.end_headers()

        def event(value):
            self.wfile.write(f"data: {json.dumps(value)}\n\n".encode())
            self.wfile.flush()
        try:
            event({"choices": [{"delta": {"content": self.server.answer}}]})
            self.server.hold.wait(PATIENCE)
            event({"choices": [], "usage": {"prompt_tokens": 12, "completion_tokens": 7}})
            self.wfile.write(b"data: [DONE]\n\n")
        except OSError:
            pass


class TeamCase(unittest.TestCase):
    """A private store; start() serves it."""

    CONFIG = ""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="team-"))
        self.addCleanup(shutil.rmtree, self.folder, True)
        self.config = self.folder / "backend.toml"
        self.config.write_text(self.CONFIG)
        self.environment = {"PATH": os.environ["PATH"], "HOME": str(self.folder),
                            "LANG": "C.UTF-8", "TMPDIR": str(self.folder)}
        if os.environ.get("QUELLORA_TEAM_STORE") == "postgresql":
            self.environment["QUELLORA_BACKEND_DATABASE"] = shared_cluster().new_store().address
        self.lines = []
        self.process = None
        self.url = None

    def run_command(self, *arguments, given="", status=0):
        done = subprocess.run([PROGRAM, "--config", self.config, *arguments],
                              env=self.environment, input=given, text=True,
                              capture_output=True, timeout=PATIENCE, check=False)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout if status == 0 else done.stderr

    def run_json(self, *arguments, given=""):
        return json.loads(self.run_command(*arguments, "--json", given=given))

    def start(self, *options):
        """Serves on a free port; stopped at the end of the test."""
        self.process = subprocess.Popen(
            [PROGRAM, "serve", "--config", self.config, "--port", "0", *options],
            env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(self.stop)
        line = self.process.stdout.readline()
        if not line.startswith("listening on "):
            raise AssertionError("the backend did not start: " + self.process.stderr.read())
        self.url = line.split()[-1]

        def read():
            for text in self.process.stderr:
                self.lines.append(text.rstrip("\n"))
        self.reader = threading.Thread(target=read, daemon=True)
        self.reader.start()
        return self.url

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.terminate()
            self.process.wait(PATIENCE)
        if self.process:
            self.reader.join(PATIENCE)
            self.process.stdout.close()
            self.process.stderr.close()
            self.process = None

    def visitor(self):
        return Visitor(self.url)

    def add_admin(self, email="boss@example.org"):
        """Adds an administrator; returns what is shown once, with the secret."""
        enrolled = self.run_json("admin", "add", email, "--generate")
        enrolled["secret"] = re.search(r"secret=([A-Z2-7]+)", enrolled["uri"])[1]
        return enrolled

    def sign_in(self, enrolled, code=None, visitor=None):
        """Signs the administrator in; returns the visitor and the reply."""
        visitor = visitor or self.visitor()
        reply = visitor.submit("/admin/sign-in", "password", email=enrolled["email"],
                               password=enrolled["password"],
                               code=code or enrolled["recoveryCodes"].pop())
        return visitor, reply

    def log_in(self, email, password):
        """Signs the app in; returns the reply."""
        return self.visitor().post_json("/api/auth/app-login", {"email": email, "password": password,
                                                                "osVersion": "test", "hotkeys": {},
                                                                "cpuArch": "arm64"})

    def account(self, email="ann@example.org", *options):
        """Creates an account; returns the password."""
        output = self.run_command("create-account", email, "--generate", *options)
        return re.search("password: (.*)", output)[1]
