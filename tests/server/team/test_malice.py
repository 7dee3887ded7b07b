"""The backend among people who mean it harm: hostile bytes, browsers, words and guesses."""

import base64
import html.parser
import itertools
import json
import pathlib
import re
import resource
import selectors
import socket
import sqlite3
import statistics
import threading
import time
import unittest
import urllib.parse

import prometheus
from fake_provider import CLIENT, SECRET, FakeProvider
from raw_client import RawClient, ask
from team_case import ALLOWANCE, CALLBACK, PATIENCE, PROGRAM, FakeModel, TeamCase

PAGES = ["/", "/login", "/account", "/account/connect", "/account/billing", "/reset-password", "/signup",
         "/pricing", "/help", "/style.css", "/openapi.json", "/healthz", "/invite", "/login/team",
         "/login/team/done", "/admin", "/admin/sign-in", "/admin/style.css", "/admin/people",
         "/admin/person", "/admin/usage", "/admin/messages", "/admin/models", "/admin/logs",
         "/admin/log", "/admin/audit", "/admin/me"]
# They answer under every name, and say nothing about anybody.
PROBES = ["/livez", "/readyz", "/metrics"]
APP_FORMS = ["/api/auth/app-login", "/api/auth/app-verify", "/api/proxy/query", "/api/telemetry/query",
             "/api/logs/app"]
FORMS = ["/login", "/account/connect", "/account/connect/models", "/account/change", "/invite",
         "/admin/sign-in", "/admin/sign-out", "/admin/people", "/admin/person", "/admin/messages",
         "/admin/models", "/admin/logs", "/admin/log", "/admin/me"]
# What a visit changes by itself.
RESTLESS = {"form_nonces", "rate_events", "changes"}
RESTLESS_COLUMNS = {"seen_at", "last_seen_at"}

HEAD = b"GET /livez HTTP/1.1\r\nHost: 127.0.0.1\r\n"
POST = b"POST /api/auth/app-verify HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
CHUNKED = POST + b"Transfer-Encoding: chunked\r\n\r\n"


def memory_of(pid):
    """Resident bytes of a process."""
    text = pathlib.Path(f"/proc/{pid}/status").read_text()
    return int(re.search(r"VmRSS:\s*(\d+)", text)[1]) * 1024


class MaliceCase(TeamCase):
    """A store with one person, looked at from outside of the program."""

    def tables(self):
        """All that is stored but for what visits change."""
        store = sqlite3.connect(f"file:{next(self.folder.rglob('backend.sqlite'))}?mode=ro", uri=True)
        try:
            schema = store.execute("SELECT name, sql FROM sqlite_master ORDER BY name").fetchall()
            content = {}
            for (name,) in store.execute("SELECT name FROM sqlite_master WHERE type = 'table'").fetchall():
                if name in RESTLESS:
                    continue
                rows = store.execute(f'SELECT * FROM "{name}"')
                kept = [i for i, column in enumerate(rows.description) if column[0] not in RESTLESS_COLUMNS]
                content[name] = sorted(repr([row[i] for i in kept]) for row in rows)
            return schema, content
        finally:
            store.close()


class WireTest(MaliceCase):
    def setUp(self):
        super().setUp()
        self.start()

    def refused(self, data, statuses=(400,)):
        reply, is_closed = ask(self.url, data)
        self.assertIsNotNone(reply, data[:200])
        self.assertIn(reply.status, statuses, data[:200])
        self.assertTrue(is_closed, data[:200])

    def test_who_sends_byte_by_byte_is_closed_and_others_are_served(self):
        begins = {"head": HEAD + b"X: ", "body": POST + b"Content-Length: 60000\r\n\r\n",
                  "chunk": CHUNKED, "trailer": CHUNKED + b"0\r\nX: "}
        drip = {"head": b"y", "body": b"y", "chunk": b"1\r\ny\r\n", "trailer": b"y"}
        waiting = []
        for kind in list(begins) * 25:
            client = RawClient(self.url)
            self.addCleanup(client.socket.close)
            client.send(begins[kind])
            waiting.append((kind, client, time.monotonic()))
        ended = {kind: [] for kind in begins}
        served = []
        with selectors.DefaultSelector() as selector:
            for entry in waiting:
                selector.register(entry[1].socket, selectors.EVENT_READ, entry)
            while selector.get_map():
                self.assertLess(time.monotonic() - waiting[0][2], PATIENCE)
                for key, _ in selector.select(0.2):
                    kind, client, begin = key.data
                    self.assertEqual(client.reply().status, 408, kind)
                    ended[kind].append(time.monotonic() - begin)
                    selector.unregister(client.socket)
                for key in list(selector.get_map().values()):
                    key.data[1].send(drip[key.data[0]])
                begin = time.monotonic()
                self.assertEqual(self.visitor().get("/help").status, 200)
                served.append(time.monotonic() - begin)
        for _, client, _ in waiting:
            self.assertTrue(client.is_closed())
        print(f"\nslow clients: {len(waiting)}, closed after "
              + ", ".join(f"{kind} {min(times):.1f}-{max(times):.1f} s" for kind, times in ended.items())
              + f"; {len(served)} other requests meanwhile, median {statistics.median(served) * 1000:.1f} ms, "
              f"slowest {max(served) * 1000:.0f} ms")

    def test_thousands_of_connections(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))
        wanted = min(10_000, hard - 500 if hard != resource.RLIM_INFINITY else 10_000)
        address = ("127.0.0.1", int(self.url.split(":")[-1]))
        before = memory_of(self.process.pid)
        begin = time.monotonic()
        open_ones = []
        self.addCleanup(lambda: [one.close() for one in open_ones])
        for number in range(wanted):
            one = socket.create_connection(address, PATIENCE)
            open_ones.append(one)
            # Every other one has begun a request.
            if number % 2:
                one.sendall(HEAD)
        opened = time.monotonic() - begin
        account = self.account()
        begin = time.monotonic()
        self.assertEqual(self.log_in("ann@example.org", account).status, 200)
        signed_in = time.monotonic() - begin
        # Accepting goes on while others are served.
        while self.connections() < wanted:
            self.assertLess(time.monotonic() - begin, PATIENCE)
        grown = memory_of(self.process.pid) - before
        begin = time.monotonic()
        for number, one in enumerate(open_ones):
            one.sendall(b"\r\n" if number % 2 else HEAD + b"\r\n")
        for one in open_ones:
            self.assertTrue(one.recv(4096).startswith(b"HTTP/1.1 200 OK\r\n"))
        answered = time.monotonic() - begin
        for one in open_ones:
            one.close()
        begin = time.monotonic()
        while self.connections() > 1:
            self.assertLess(time.monotonic() - begin, PATIENCE)
        print(f"\nconnections: {wanted} open at once in {opened:.2f} s, {grown / wanted / 1024:.2f} KiB each; "
              f"sign-in meanwhile {signed_in * 1000:.0f} ms; all answered in {answered:.2f} s")

    def connections(self):
        metrics = prometheus.parsed(self.visitor().get("/metrics").text)
        return sum(metrics["quellora_connections"][1].values())

    def test_requests_sent_ahead_are_answered_in_order(self):
        count = 400
        requests = []
        for number in range(count):
            named = b"X-Request-Id: %016d\r\n" % number
            requests.append((HEAD + named + b"\r\n", b"GET /nothing HTTP/1.1\r\nHost: x\r\n" + named + b"\r\n",
                             POST + named + b"Content-Length: 2\r\n\r\n{}",
                             POST + named + b"Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n\r\n")[number % 4])
        with RawClient(self.url) as client:
            sender = threading.Thread(target=client.send, args=(b"".join(requests),))
            sender.start()
            for number in range(count):
                reply = client.reply()
                self.assertEqual(reply.headers["x-request-id"], f"{number:016}")
                self.assertIn(reply.status, ((200,), (404,), (401, 429), (401, 429))[number % 4])
            sender.join()
        # What cannot be told apart from a body is not answered.
        for refused in (b"POST /nothing HTTP/1.1\r\nHost: x\r\nContent-Length: 40\r\n\r\n",
                        b"GET /livez HTTP/1.1\r\nHost: x\r\nContent-Length: 40\r\n\r\n",
                        HEAD + b"Connection: close\r\n\r\n"):
            reply, is_closed = ask(self.url, refused + HEAD + b"\r\n")
            self.assertIn(reply.status, (200, 404, 413))
            self.assertTrue(is_closed)

    def test_what_servers_read_differently_is_refused(self):
        hidden = HEAD + b"\r\n"
        fields = [b"Content-Length: 4\r\nTransfer-Encoding: chunked", b"Transfer-Encoding: chunked\r\nContent-Length: 4",
                  b"Content-Length: 2\r\nContent-Length: 2", b"Content-Length: 2\r\ncontent-length: 3",
                  b"Content-Length: 2, 2", b"Content-Length: 2 2", b"Content-Length: 0x2", b"Content-Length: +2",
                  b"Content-Length: -2", b"Content-Length: 2;", b"Content-Length: \xef\xbc\x92",
                  b"Content-Length: 18446744073709551618", b"Content-Length : 2", b"Content-Length\t: 2",
                  b"Content-Length:\r\n 2", b"X: y\r\n Content-Length: 2", b"X: y\r\n\tContent-Length: 2",
                  b"Transfer-Encoding:\r\n chunked", b"Transfer-Encoding: chunked, chunked",
                  b"Transfer-Encoding: identity, chunked", b"Transfer-Encoding: chunked, identity",
                  b"Transfer-Encoding: xchunked", b"Transfer-Encoding: chunked;q=1",
                  b"Transfer-Encoding: \"chunked\"", b"Transfer-Encoding: \x0bchunked", b"Transfer-Encoding : chunked",
                  b"Transfer-Encoding: chunked\r\nTransfer-Encoding: x", b"Transfer-Encoding: \r\nContent-Length: 2",
                  b"X\0: y", b"X: y\0z", b"X: y\nContent-Length: 2", b"X: y\rContent-Length: 2", b": y", b"X y",
                  b"X Y: z", b"X(: y", b"\xffX: y", b"Host: 127.0.0.1", b"Host: evil.example"]
        bodies = [b"2\n{}\n0\n\n", b"2\n{}\r\n0\r\n\r\n", b"0x2\r\n{}\r\n0\r\n\r\n", b"+2\r\n{}\r\n0\r\n\r\n",
                  b"-2\r\n{}\r\n0\r\n\r\n", b" 2\r\n{}\r\n0\r\n\r\n", b"2 \r\n{}\r\n0\r\n\r\n", b"2_\r\n{}\r\n0\r\n\r\n",
                  b"2\r\n{}0\r\n\r\n", b"2\r\n{}}\r\n0\r\n\r\n", b"\r\n2\r\n{}\r\n0\r\n\r\n", b"2;a\nb\r\n{}\r\n0\r\n\r\n",
                  b"2;\rb\r\n{}\r\n0\r\n\r\n", b"2\r{}\r\n0\r\n\r\n", b"10000000000000002\r\n{}\r\n0\r\n\r\n",
                  b"2\r\n{}\r\n0\r\nX : y\r\n\r\n", b"2\r\n{}\r\n0\r\nX y\r\n\r\n", b"2\r\n{}\r\n0\nX: y\n\n"]
        lines = [b"GET /livez HTTP/1.1\nHost: x\n\n", b"GET /livez HTTP/1.1\r\nHost: x\n\n", b"GET  /livez HTTP/1.1\r\nHost: x\r\n\r\n",
                 b"GET /livez  HTTP/1.1\r\nHost: x\r\n\r\n", b"GET\t/livez HTTP/1.1\r\nHost: x\r\n\r\n",
                 b"GET /li\0vez HTTP/1.1\r\nHost: x\r\n\r\n", b"GET /li vez HTTP/1.1\r\nHost: x\r\n\r\n",
                 b"GET /livez HTTP/1.1\r\n\r\n", b"GET /livez HTTP/1.1\r\n Host: x\r\n\r\n", b"\r\n\r\n" + hidden,
                 b"GET /livez HTTP/1.2\r\nHost: x\r\n\r\n", b"GET /livez HTTP/1.1 \r\nHost: x\r\n\r\n",
                 b"GET /livez http/1.1\r\nHost: x\r\n\r\n", b"GET /%00 HTTP/1.1\r\nHost: x\r\n\r\n",
                 b"GET /%0d%0aX:y HTTP/1.1\r\nHost: x\r\n\r\n",
                 b"POST /livez HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"]
        for field in fields:
            self.refused(POST + field + b"\r\n\r\n{}" + hidden)
        for body in bodies:
            self.refused(CHUNKED + body + hidden)
        for line in lines:
            self.refused(line + hidden)
        # Sizes that fit in no body.
        self.refused(CHUNKED + b"FFFFFFFFFFFFFFFF\r\n{}" + hidden, (400, 413))
        print(f"\nshapes of smuggling: {len(fields) + len(bodies) + len(lines) + 1}, all refused and closed")

    def test_endless_heads_bodies_and_lines_cost_no_memory(self):
        megabyte = b"y" * 1_048_576
        endless = {"request line": (b"GET /", megabyte, (431,)), "name of a field": (HEAD, megabyte, (431,)),
                   "value": (HEAD + b"X: ", megabyte, (431,)), "fields": (HEAD, b"X: y\r\n" * 170_000, (431,)),
                   "empty fields": (HEAD, b"X:\r\n" * 200_000, (431,)),
                   "extension of a chunk": (CHUNKED + b"2;", megabyte, (400,)),
                   "size of a chunk": (CHUNKED, b"0" * 1_048_576, (400,)),
                   "trailer": (CHUNKED + b"0\r\n", b"X: y\r\n" * 170_000, (400,)),
                   "body": (POST + b"Content-Length: 99999999\r\n\r\n", megabyte, (413,)),
                   "chunks": (CHUNKED, b"1\r\ny\r\n" * 170_000, (413,))}
        before = memory_of(self.process.pid)
        for begin, more, statuses in endless.values():
            with RawClient(self.url) as client:
                client.send(begin)
                # Goes on after the refusal, which still arrives.
                for _ in range(8):
                    client.send(more)
                self.assertIn(client.reply().status, statuses, begin)
        grown = memory_of(self.process.pid) - before
        self.assertLess(grown, (4 << 20) * ALLOWANCE)
        print(f"\nendless things: {len(endless)} of 8 MiB, memory grew by {grown / 1024:.0f} KiB")
        # At the limit of 16 KiB a head is taken, beyond it is not.
        for length, status in ((16_384, 200), (16_385, 431)):
            padding = length - len(HEAD) - len(b"X: \r\n\r\n")
            with RawClient(self.url) as client:
                client.send(HEAD + b"X: " + b"y" * padding + b"\r\n\r\n")
                self.assertEqual(client.reply().status, status)

    def test_other_methods_are_not_found(self):
        for path in PAGES + PROBES + APP_FORMS + FORMS:
            others = ["PUT", "DELETE", "PATCH", "OPTIONS", "TRACE", "CONNECT", "PROPFIND", "get", "X" * 100]
            others += ["POST"] if path not in APP_FORMS + FORMS else []
            others += ["GET", "HEAD"] if path not in PAGES + PROBES else []
            for method in others:
                with RawClient(self.url) as client:
                    client.send(f"{method} {path} HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n".encode())
                    reply = client.reply(method != "HEAD")
                    self.assertEqual(reply.status, 404, (method, path))
                    self.assertFalse([name for name in reply.headers
                                      if name.startswith("access-control-")])


class FormReader(html.parser.HTMLParser):
    """The forms of a page: target, fields as a browser would send them, and the buttons."""

    def __init__(self, text):
        super().__init__()
        self.forms = []
        self._select = None
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        named = {name: value or "" for name, value in attrs}
        if tag == "form" and named.get("method") == "post":
            self.forms.append({"action": named.get("action", ""), "fields": {}, "buttons": []})
        if not self.forms:
            return
        form = self.forms[-1]
        name = named.get("name")
        if tag == "button" and name:
            form["buttons"].append((name, named.get("value", "")))
        elif tag == "select":
            self._select = name
        elif tag == "option" and self._select:
            form["fields"].setdefault(self._select, named.get("value", ""))
        elif tag in ("input", "textarea") and name:
            if named.get("type") not in ("checkbox", "radio") or "checked" in named or name not in form["fields"]:
                form["fields"][name] = named.get("value") or "on"


class BrowserTest(MaliceCase):
    """Somebody else's web page in the browser of a person, and somebody else's requests."""

    PROOFS = ("nonce", "form", "setup", "token")

    def setUp(self):
        super().setUp()
        self.model = FakeModel()
        self.addCleanup(self.model.close)
        self.provider = FakeProvider()
        self.addCleanup(self.provider.close)
        self.config.write_text(f"""
[limits]
auth_requests_per_minute = 100000
[openai]
base_url = "{self.model.url}"
model = "seeing-1"
[oidc]
issuer = "{self.provider.issuer}"
client_id = "{CLIENT}"
client_secret = "{SECRET}"
allowed_domains = ["example.org"]
""")
        self.password = self.account()
        self.admin = self.add_admin()
        self.invitation = self.run_json("invite", "bob@example.org")["path"]
        self.start()
        self.boss, _ = self.sign_in(self.admin)
        token = self.log_in("ann@example.org", self.password).json["token"]
        self.visitor().post_json("/api/logs/app", "a log", token)
        self.boss.submit("/admin/messages", "Send", "send", to="0", kind="information", minutes="",
                         header="H", body="B", label="", address="")
        self.boss.submit("/admin/me", "authenticator", "begin")
        # A connection, and another one that is being set up.
        for _ in range(2):
            self.boss.submit("/account", 'inputmode="url"', target="/account/connect",
                             address=self.model.url, key="canary-key")
            self.assertIn("seeing-1", self.boss.get("/account/connect").text)
            if not (self.folder / ".local/share/Quellora/connections.json").exists():
                self.boss.submit("/account/connect", "Save", "save", target="/account/connect/models", m0="on")
        self.person = re.search(r'person\?id=(\d+)">ann', self.boss.get("/admin/people").text)[1]
        self.log = re.search(r"/admin/log\?id=(\d+)", self.boss.get("/admin/logs").text)[1]

    def everything(self):
        files = {path.name: path.read_bytes() for path in self.folder.rglob("connections.json")}
        return self.tables(), files, self.boss.get("/admin/people").status, \
            re.search(r'name="setup" value="[^"]*"', self.boss.get("/account/connect").text)[0]

    def all_forms(self):
        pages = ["/login?callback=" + urllib.parse.quote(CALLBACK, safe=""), "/account", "/account/connect",
                 self.invitation, "/admin/sign-in", f"/admin/person?id={self.person}",
                 f"/admin/log?id={self.log}"] + [path for path in PAGES if path.startswith("/admin/")]
        for page in pages:
            for form in FormReader(self.boss.get(page).text).forms:
                form["fields"].update({name: value for name, value in (
                    ("email", "ann@example.org"), ("password", self.password), ("again", self.password),
                    ("code", self.admin["recoveryCodes"][0])) if name in form["fields"]})
                target = form["action"] or page.split("?")[0]
                for name, value in form["buttons"] or [("", "")]:
                    yield target, form["fields"] | ({name: value} if name else {})

    def test_no_form_is_taken_from_elsewhere(self):
        before = self.everything()
        self.assertNotEqual(before[1], {})
        forms = list(self.all_forms())
        self.assertEqual({target for target, _ in forms}, set(FORMS))
        strange_boss, _ = self.sign_in(self.admin)
        before = self.everything()
        foreign = {"form": FormReader(strange_boss.get("/admin/me").text).forms[-1]["fields"]["form"],
                   "setup": "A" * 43, "token": "A" * 43}
        origin = {"Origin": "http://evil.example"}
        tried = 0
        for target, fields in forms:
            proofs = [name for name in self.PROOFS if name in fields]
            self.assertEqual(len(proofs), 1, (target, fields))
            proof = proofs[0]
            # A number for another kind of form.
            other = "/account" if target in ("/login", "/admin/sign-in") else "/admin/sign-in"
            stranger = foreign.get(proof) or re.search(r'name="nonce" value="([^"]*)"',
                                                       self.boss.get(other).text)[1]
            without = {name: value for name, value in fields.items() if name != proof}
            attempts = [(without, {}), (without | {proof: ""}, {}), (without | {proof: "guess"}, {}),
                        (without | {proof: stranger}, {})]
            attempts += [(fields, headers) for headers in (
                origin, {"Origin": "null"}, {"Origin": self.url.replace("127.0.0.1", "localhost")},
                {"Origin": self.url + "0"}, {"Sec-Fetch-Site": "cross-site"}, {"Sec-Fetch-Site": "same-site"},
                {"Host": "evil.example", "Origin": "http://evil.example"})]
            for changed, headers in attempts:
                visitor = self.visitor()
                visitor.cookies = dict(self.boss.cookies)
                reply = visitor.post(target, changed, headers)
                self.assertIn(reply.status, (400, 403, 404, 421), (target, changed, headers))
                self.assertEqual((reply.location, visitor.set_cookies), ("", []), (target, changed, headers))
                tried += 1
            # Nobody's browser.
            if target.startswith("/admin/") and target != "/admin/sign-in":
                reply = self.visitor().post(target, fields)
                self.assertEqual((reply.status, reply.location), (303, "/admin/sign-in"))
            self.assertEqual(self.everything(), before, target)
        # The same forms do something when they come from their page.
        target, fields = next(entry for entry in forms if entry[1].get("action") == "suspend")
        self.assertEqual(self.boss.post(target, fields, {"Origin": self.url}).status, 303)
        self.assertNotEqual(self.tables(), before[0])
        print(f"\nforms: {len(forms)} of {len(FORMS)} addresses, {tried} forged submissions, nothing changed")

    def test_other_names_and_other_sites_get_nothing(self):
        names = ["evil.example", "127.0.0.1.evil.example", "localhost.evil.example", "evil.example:9878",
                 "127.0.0.1:80@evil.example", "[::1]evil.example", "0.0.0.0", "127.1", "2130706433", "0x7f.0.0.1",
                 "[::ffff:127.0.0.1]", "localhost.", "127.0.0.1,evil.example", "127.0.0.1 evil.example",
                 "evil.example#127.0.0.1", "", " "]
        for path in PAGES:
            for name in names:
                reply = self.boss.get(path, {"Host": name})
                self.assertEqual(reply.status, 421, (path, name))
                self.assertEqual(reply.location, "")
        for path in APP_FORMS + FORMS:
            for name in names:
                self.assertEqual(self.boss.post(path, {}, {"Host": name}).status, 421, (path, name))
            for headers in ({"Origin": "http://evil.example"}, {"Origin": "null"}, {"Origin": "file://"},
                            {"Origin": self.url + ".evil.example"}, {"Sec-Fetch-Site": "cross-site"}):
                reply = self.boss.post(path, {}, headers)
                self.assertEqual(reply.status, 403, (path, headers))
                self.assertNotIn("Access-Control-Allow-Origin", reply.headers)
        for path in PROBES:
            reply = self.visitor().get(path, {"Host": "evil.example"})
            self.assertEqual(reply.status, 403 if path == "/metrics" else 200)
        # A name that means this machine, and a script of another site that only reads.
        reply = self.boss.get("/account", {"Origin": "http://evil.example"})
        self.assertNotIn("Access-Control-Allow-Origin", reply.headers)
        self.assertEqual(reply.headers["Cross-Origin-Resource-Policy"], "same-origin")

    def test_words_that_mean_something_elsewhere_are_words(self):
        before = self.everything()
        words = ["' OR '1'='1", "'; DROP TABLE accounts; --", "1 UNION SELECT password_hash FROM accounts",
                 "1); DELETE FROM sessions; --", "\\'; --", "%' OR 1=1 --", "?1", "$1", ":1", "1e999", "-1",
                 "9223372036854775808", "0x1", "../../../../etc/passwd", "..\\..\\etc\\passwd",
                 "%2e%2e%2fetc%2fpasswd", "/etc/passwd\0.html", "\0", "\r\nX-Injected: yes", "\ud7ff\uffff", "\u202e",
                 "{{7*7}}", "${7*7}", "<script>alert(1)</script>", "\"><img src=x onerror=alert(1)>", "%s%n", "a" * 3000]
        raw = [b"%ff%fe", b"%c0%ae%c0%ae%c0%af", b"%", b"%zz", b"%00", b"+"]
        quoted = [urllib.parse.quote(word, safe="").encode() for word in words] + raw
        parameters = ["id", "q", "page", "who", "action", "before", "days", "model", "done", "token", "callback",
                      "state", "code", "iss"]
        token = self.log_in("ann@example.org", self.password).json["token"]
        before = self.everything()
        for path, word in itertools.product(PAGES, quoted):
            query = b"&".join(name.encode() + b"=" + word for name in parameters)
            reply = self.boss.get(f"{path}?{query.decode()}")
            self.assertLess(reply.status, 500, (path, word))
            self.assertNotIn("X-Injected", reply.headers)
            self.assertNotIn("<script>alert", reply.text)
            self.assertNotIn("<img src=x", reply.text)
            self.assertNotIn("root:", reply.text)
        for word in quoted:
            for begin in ("/", "/admin/", "/api/", "/account/", "/style.css/"):
                self.assertIn(self.visitor().get(begin + word.decode()).status, (400, 404), (begin, word))
        for path in ("/../etc/passwd", "/style.css/../../etc/passwd", "//etc/passwd", "/./admin", "/admin/../account",
                     "/%2e%2e/etc/passwd", "/admin%2fpeople%2f..", "/*", "/admin/*", "http://127.0.0.1/admin"):
            self.assertIn(self.visitor().get(path).status, (400, 404), path)
        proofs = {form["fields"].get("form") for form in FormReader(self.boss.get("/admin/me").text).forms}
        for word in quoted:
            text = word.decode()
            for path in ("/login", "/admin/sign-in", "/invite", "/account/change", "/account/connect",
                         "/account/connect/models"):
                names = ("nonce", "account", "callback", "email", "password", "again", "code", "token", "setup",
                         "provider", "address", "choice", "key", "action")
                reply = self.boss.request("POST", path, "&".join(f"{name}={text}" for name in names),
                                          {"Content-Type": "application/x-www-form-urlencoded"})
                self.assertIn(reply.status, (400, 403, 404), (path, word))
            for path in ("/admin/person", "/admin/messages", "/admin/models", "/admin/logs", "/admin/log", "/admin/me"):
                names = ("id", "message", "to", "default", "m0", "cap", "minutes", "kind", "code")
                body = "&".join([f"form={next(iter(proofs))}"] + [f"{name}={text}" for name in names])
                if path not in ("/admin/logs", "/admin/me", "/admin/messages", "/admin/models"):
                    path += "?id=" + text
                reply = self.boss.request("POST", path, body + ("&action=test" if "logs" not in path else "&action=stop"),
                                          {"Content-Type": "application/x-www-form-urlencoded"})
                self.assertLess(reply.status, 500, (path, word))
        for word in words:
            for path, fields in (("/api/auth/app-login", {"email": word, "password": word, "osVersion": word,
                                                          "hotkeys": {word: word}, "cpuArch": word}),
                                 ("/api/auth/app-verify", {word: word}),
                                 ("/api/proxy/query", {"prompt": "", "model": word, "imageBase64": word, "sessionId": word,
                                                       "queryId": word, "history": word}),
                                 ("/api/telemetry/query", {"model_used": word, "platform": word, word: word})):
                reply = self.visitor().post_json(path, fields, None if "login" in path else token)
                self.assertLess(reply.status, 500, (path, word))
            if word.isprintable():
                forged = urllib.parse.quote(word, safe=" ')(;=")
                for headers in ({"Authorization": f"Bearer {forged}"}, {"Cookie": f"quellora_admin={forged}"},
                                {"X-Forwarded-For": forged}, {"X-Request-Id": forged}):
                    reply = self.visitor().post_json("/api/auth/app-verify", {}, headers=headers)
                    self.assertEqual(reply.status, 401, headers)
        after = self.everything()
        self.assertEqual(after[0][0], before[0][0])
        for table in ("accounts", "admins", "sessions", "messages", "uploaded_logs", "invitations"):
            self.assertEqual(after[0][1][table], before[0][1][table], table)
        self.stop()
        self.assertFalse([line for line in self.lines if "request failed" in line])

    def test_what_was_given_before_signing_in_is_not_kept(self):
        planted = "planted" + "A" * 36
        victim = self.visitor()
        victim.cookies["quellora_admin"] = planted
        victim, reply = self.sign_in(self.admin, visitor=victim)
        self.assertEqual(reply.status, 303)
        self.assertNotEqual(victim.cookies["quellora_admin"], planted)
        attacker = self.visitor()
        attacker.cookies["quellora_admin"] = planted
        self.assertEqual(attacker.get("/admin/people").location, "/admin/sign-in")
        # A session of the attacker's own ends when somebody signs in over it.
        own, _ = self.sign_in(self.admin)
        mine = own.cookies["quellora_admin"]
        victim = self.visitor()
        victim.cookies["quellora_admin"] = mine
        self.sign_in(self.admin, visitor=victim)
        self.assertNotEqual(victim.cookies["quellora_admin"], mine)
        self.assertEqual(own.get("/admin/people").location, "/admin/sign-in")
        # The app gets a session that it did not name.
        for given in ({"token": planted, "sessionId": planted}, {}):
            reply = self.visitor().post_json("/api/auth/app-login", {
                "email": "ann@example.org", "password": self.password} | given, planted,
                {"Cookie": f"session={planted}"})
            self.assertNotIn(planted, (reply.json["token"], reply.json["sessionId"]))
        self.assertEqual(self.visitor().post_json("/api/auth/app-verify", {}, planted).status, 401)
        # The browser of a team's sign-in.
        browser = self.visitor()
        browser.cookies["quellora_team"] = planted
        _, answer = self.provider.authorize(browser.get(
            "/login/team?callback=" + urllib.parse.quote(CALLBACK, safe="")).location)
        self.assertNotEqual(browser.cookies["quellora_team"], planted)
        attacker = self.visitor()
        attacker.cookies["quellora_team"] = planted
        self.assertEqual(attacker.get("/login/team/done?" + urllib.parse.urlencode(answer)).status, 400)


class GuessingTest(MaliceCase):
    def guess(self, address, email, password, forwarded=None):
        body = json.dumps({"email": email, "password": password}).encode()
        more = f"X-Forwarded-For: {forwarded}\r\n".encode() if forwarded else b""
        reply, _ = ask(self.url, b"POST /api/auth/app-login HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n"
                       b"Content-Type: application/json\r\n" + more + b"Content-Length: %d\r\n\r\n" % len(body) + body,
                       address)
        return reply.status

    def at_full_speed(self, guesses):
        """Makes guesses from sixteen threads; returns their statuses."""
        statuses = []
        waiting = iter(list(guesses))
        lock = threading.Lock()

        def work():
            while True:
                with lock:
                    guess = next(waiting, None)
                if guess is None:
                    return
                status = self.guess(*guess)
                with lock:
                    statuses.append(status)
        threads = [threading.Thread(target=work) for _ in range(16)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return statuses

    def test_many_addresses_guess_one_password(self):
        self.config.write_text("[limits]\nlogin_window_seconds = 5\n")
        password = self.account()
        self.start()
        # What a client says of itself makes it nobody else.
        begin = time.monotonic()
        statuses = self.at_full_speed((f"127.0.0.{2 + number % 250}", "ann@example.org", f"guess {number}",
                                       f"10.0.0.{number % 250}") for number in range(1500))
        spent = time.monotonic() - begin
        windows = int(spent // 5) + 1
        checked = statuses.count(401)
        self.assertEqual(set(statuses), {401, 429})
        self.assertGreaterEqual(checked, 10)
        self.assertLessEqual(checked, 10 * windows)
        # The page asks the same limiter, and after the window the right password opens.
        deadline = time.monotonic() + PATIENCE
        refused = 0
        while (status := self.guess("127.0.0.1", "ann@example.org", password)) == 429:
            refused += 1
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.2)
        self.assertEqual(status, 200)
        self.assertGreater(refused, 0)
        print(f"\nguessing: {len(statuses)} guesses from 250 addresses in {spent:.2f} s "
              f"({len(statuses) / spent:.0f} a second), {checked} were checked; the right password opened "
              "after the window")

    def test_one_address_guesses_at_many_accounts(self):
        self.config.write_text("[limits]\nauth_requests_per_minute = 30\n")
        password = self.account()
        self.start()
        statuses = self.at_full_speed(("127.0.0.9", f"person{number}@example.org", "guess", f"10.0.0.{number}")
                                      for number in range(200))
        self.assertEqual((statuses.count(401), statuses.count(429)), (30, 170))
        # Others are not held up.
        self.assertEqual(self.guess("127.0.0.10", "ann@example.org", password), 200)

    def test_an_administrator_is_guessed_side_by_side(self):
        admin = self.add_admin()
        self.start()
        statuses = []
        # The form of each is opened before, so that all arrive at the same time.
        visitors = [self.visitor() for _ in range(40)]
        forms = [visitor.form_fields("/admin/sign-in", "password") for visitor in visitors]

        def work(visitor, form):
            statuses.append(visitor.post("/admin/sign-in", form | {
                "email": admin["email"], "password": admin["password"], "code": "000000"}).status)
        threads = [threading.Thread(target=work, args=entry) for entry in zip(visitors, forms)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual((statuses.count(401), statuses.count(429)), (10, 30))

    def test_unknown_addresses_take_as_long(self):
        self.config.write_text("[limits]\nauth_requests_per_minute = 100000\nlogin_failures = 100000\n")
        self.account()
        self.start()
        times = {"ann@example.org": [], "nobody@example.org": []}
        spent = {email: 0 for email in times}
        ticks = pathlib.Path(f"/proc/{self.process.pid}/stat")
        for number in range(20):
            for email in sorted(times, reverse=number % 2 == 0):
                before = sum(map(int, ticks.read_text().rsplit(")", 1)[1].split()[11:13]))
                begin = time.perf_counter()
                self.assertEqual(self.guess("127.0.0.1", email, "guess"), 401)
                times[email].append(time.perf_counter() - begin)
                spent[email] += sum(map(int, ticks.read_text().rsplit(")", 1)[1].split()[11:13])) - before
        known, unknown = (statistics.median(times[email]) * 1000 for email in times)
        print(f"\nsign-in refused: known address {known:.1f} ms, unknown {unknown:.1f} ms (medians of 20), "
              f"ratio {unknown / known:.3f}; processor ticks {list(spent.values())}")


class SecretsTest(MaliceCase):
    """A whole journey, and every place where something of it could stay."""

    PROMPT, ANSWER, LOG = "canary-prompt-91", "canary-answer-92", "canary-log-93"
    PASSWORD, KEY = "canary-password-94", "canary-key-95"

    def watch(self):
        """Reads what every user of the machine may see of running programs until the test ends."""
        while not self.ended.is_set():
            for entry in pathlib.Path("/proc").glob("[0-9]*"):
                try:
                    self.seen.add((entry / "cmdline").read_bytes())
                    parent = int((entry / "stat").read_text().rsplit(")", 1)[1].split()[1])
                    if int(entry.name) == self.process.pid or parent == self.process.pid:
                        self.seen.add((entry / "environ").read_bytes())
                        self.seen.add((entry / "comm").read_bytes())
                except OSError:
                    continue
            self.looks += 1

    def test_core_dumps_hold_no_memory(self):
        self.start()
        process = pathlib.Path(f"/proc/{self.process.pid}")
        self.assertEqual(re.search(r"Max core file size +(\S+) +(\S+)", (process / "limits").read_text()).groups(),
                         ("0", "0"))
        # What a collecting program gets, which the limit does not stop.
        self.assertEqual(int((process / "coredump_filter").read_text(), 16), 0)

    def test_nothing_private_stays_where_it_does_not_belong(self):
        model = FakeModel(self.ANSWER)
        self.addCleanup(model.close)
        self.run_command("create-account", "ann@example.org", "--password-stdin", given=self.PASSWORD + "\n")
        admin = self.add_admin()
        self.start()
        self.seen, self.looks, self.ended = set(), 0, threading.Event()
        watcher = threading.Thread(target=self.watch)
        watcher.start()
        try:
            boss, _ = self.sign_in(admin)
            session = boss.cookies["quellora_admin"]
            boss.submit("/account", 'inputmode="url"', target="/account/connect", address=model.url, key=self.KEY)
            boss.submit("/account/connect", "Save", "save", target="/account/connect/models", m0="on")
            token = self.log_in("ann@example.org", self.PASSWORD).json["token"]
            login = "/login?callback=" + urllib.parse.quote(CALLBACK, safe="")
            reply = self.visitor().submit(login, "password", email="ann@example.org", password=self.PASSWORD)
            handover = urllib.parse.unquote(reply.location.split("token=")[1])
            exchanged = self.visitor().post_json("/api/auth/app-verify", {}, handover).json["token"]
            picture = base64.b64encode(b"\xff\xd8\xff" + bytes(range(200)) * 20).decode()
            reply = self.visitor().post_json("/api/proxy/query", {"prompt": self.PROMPT, "imageBase64": picture},
                                             token)
            self.assertIn(self.ANSWER, reply.text)
            self.assertIn(picture.encode(), model.questions[-1])
            picture = picture[100:160]
            reply = self.visitor().post_json("/api/proxy/query", {"prompt": self.PROMPT}, token)
            self.assertIn(self.ANSWER, reply.text)
            self.assertTrue([question for question in model.questions if self.PROMPT.encode() in question])
            self.visitor().post_json("/api/logs/app", self.LOG, token)
            invitation = re.search(r"token=([\w-]+)", self.run_command("invite", "bob@example.org"))[1]
            self.visitor().submit("/invite?token=" + invitation, "Set password", password=self.PASSWORD,
                                  again=self.PASSWORD)
            model.status = 500
            self.visitor().post_json("/api/proxy/query", {"prompt": self.PROMPT}, token)
            boss.post("/admin/sign-out", boss.form_fields("/admin/people", "Sign out"))
        finally:
            self.ended.set()
            watcher.join()
        private = {self.PROMPT, self.ANSWER, self.PASSWORD, self.KEY, picture, token, handover, exchanged, session,
                   invitation, admin["password"], *admin["recoveryCodes"]}
        files = {path: path.read_bytes() for path in self.folder.rglob("*") if path.is_file()}
        self.stop()
        places = {"log": "\n".join(self.lines).encode(), "names": "\n".join(map(str, files)).encode(),
                  "processes": b"\n".join(self.seen)}
        for secret in private | {self.LOG, admin["secret"]}:
            for place, content in places.items():
                self.assertNotIn(secret.encode(), content, place)
        # In files only the key, in its own one, which nobody else may read.
        holding = {path.name for path, content in files.items() for secret in private if secret.encode() in content}
        self.assertEqual(holding, {"connections.json"})
        self.assertEqual(next(self.folder.rglob("connections.json")).stat().st_mode & 0o777, 0o600)
        self.assertTrue([line for line in self.seen if line.startswith(str(PROGRAM).encode())])
        print(f"\nsecrets: {len(private) + 2} searched in {len(files)} files and their names, {len(self.lines)} lines "
              f"and what {self.looks} looks saw of processes; the key in connections.json alone")


if __name__ == "__main__":
    unittest.main()
