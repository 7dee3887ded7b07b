"""The guide's proxy configurations, run by the real proxies with TLS."""

import http.client
import json
import os
import shutil
import socket
import ssl
import subprocess
import time
import unittest

from guide import example, replaced
from team_case import FakeModel, PATIENCE, TeamCase

NAME = "quellora.example.org"
PASSWORD = "correct horse"


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class ProxiesTest(TeamCase):
    def setUp(self):
        super().setUp()
        self.model = FakeModel("first piece")
        self.addCleanup(self.model.close)
        self.config.write_text(f"""
[server]
allowed_hosts = ["{NAME}"]
trusted_proxies = ["127.0.0.1"]
[limits]
auth_requests_per_minute = 2
[openai]
base_url = "{self.model.url}"
model = "seeing-1"
""")
        self.run_command("create-account", "ann@example.org", "--password-stdin",
                         given=PASSWORD + "\n")
        self.start()
        self.make_certificates()
        self.port = free_port()
        # The second instance of the examples is down.
        self.upstreams = {"10.0.0.11:9878": self.url.split("//")[1],
                          "10.0.0.12:9878": f"127.0.0.1:{free_port()}"}

    def make_certificates(self):
        """An authority of the test, and a certificate of it for the name."""
        def openssl(*words):
            subprocess.run(["openssl", *words], cwd=self.folder, check=True, capture_output=True,
                           timeout=PATIENCE)
        openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj",
                "/CN=Authority of the test", "-keyout", "ca.key", "-out", "ca.crt")
        openssl("req", "-newkey", "rsa:2048", "-nodes", "-subj", f"/CN={NAME}", "-keyout",
                "quellora.key", "-out", "quellora.csr")
        (self.folder / "names").write_text(f"subjectAltName=DNS:{NAME}\n")
        openssl("x509", "-req", "-in", "quellora.csr", "-CA", "ca.crt", "-CAkey", "ca.key",
                "-CAcreateserial", "-days", "2", "-extfile", "names", "-out", "quellora.crt")
        (self.folder / "quellora.pem").write_text((self.folder / "quellora.crt").read_text() +
                                                  (self.folder / "quellora.key").read_text())

    def run_proxy(self, check, command):
        """Checks the configuration, starts the proxy and waits until it accepts."""
        checked = subprocess.run(check, capture_output=True, text=True, timeout=PATIENCE,
                                 check=False)
        self.assertEqual(checked.returncode, 0, checked.stdout + checked.stderr)
        self.assertNotRegex(checked.stdout + checked.stderr, r"(?i)\[(warn|alert|emerg)")
        with open(self.folder / "proxy.log", "wb") as log:
            process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log)

        def stop():
            process.terminate()
            process.wait(PATIENCE)
        self.addCleanup(stop)
        deadline = time.monotonic() + PATIENCE
        while True:
            try:
                self.ask("GET", "/livez")
                return
            except OSError:
                self.assertIsNone(process.poll(), (self.folder / "proxy.log").read_text())
                self.assertLess(time.monotonic(), deadline)
                time.sleep(0.05)

    def ask(self, method, path, record=None, headers=None, source="127.0.0.1"):
        """The response, whose body is still to be read."""
        trust = ssl.create_default_context(cafile=str(self.folder / "ca.crt"))
        plain = socket.create_connection(("127.0.0.1", self.port), PATIENCE, (source, 0))
        connection = http.client.HTTPConnection(NAME)
        connection.sock = trust.wrap_socket(plain, server_hostname=NAME)
        self.addCleanup(connection.close)
        connection.request(method, path, record and json.dumps(record),
                           {"Content-Type": "application/json"} | (headers or {}))
        return connection.getresponse()

    def sign_in(self, source, headers=None):
        response = self.ask("POST", "/api/auth/app-login",
                            {"email": "ann@example.org", "password": PASSWORD, "osVersion": "test",
                             "hotkeys": {}, "cpuArch": "arm64"}, headers, source)
        return response.status, json.load(response)

    def check_proxy(self):
        """What the guide promises of each proxy."""
        status, session = self.sign_in("127.0.0.2")
        self.assertEqual(status, 200)
        # An answer comes in pieces: the first one while the model still holds back the rest.
        self.model.hold.clear()
        answer = self.ask("POST", "/api/proxy/query", {"prompt": "?"},
                          {"Authorization": f"Bearer {session['token']}"})
        self.assertEqual(answer.status, 200)
        self.assertIn("first piece", answer.readline().decode())
        self.model.hold.set()
        self.assertIn(b'"type":"done"', answer.read())
        # Clients are told apart by the address that the proxy names, not by what they claim.
        claim = {"X-Forwarded-For": "192.0.2.1"}
        self.assertEqual(self.sign_in("127.0.0.2", claim)[0], 200)
        self.assertEqual(self.sign_in("127.0.0.2", claim)[0], 429)
        self.assertEqual(self.sign_in("127.0.0.3")[0], 200)
        # Nobody behind the proxy counts as somebody on this machine.
        self.assertEqual(self.ask("GET", "/metrics").status, 403)
        # The sign-in of administrators knows that the connection is encrypted.
        page = self.ask("GET", "/admin", headers={"X-Forwarded-Proto": "http"})
        location = page.headers["Location"]
        if location:
            page = self.ask("GET", location)
        self.assertEqual(page.status, 200)
        # The largest body that the backend takes by default arrives there.
        uploaded = self.ask("POST", "/api/logs/app", "x" * 60_000_000,
                            {"Authorization": f"Bearer {session['token']}"})
        self.assertEqual(uploaded.status, 202, uploaded.read(200))

    @unittest.skipUnless(shutil.which("haproxy"), "needs the Debian package haproxy")
    def test_haproxy(self):
        file = self.folder / "haproxy.cfg"
        file.write_text(replaced(example("haproxy"), self.upstreams | {
            "maxconn 20000": "maxconn 200",
            "bind :443": f"bind 127.0.0.1:{self.port}",
            "/etc/haproxy/quellora.pem": self.folder / "quellora.pem"}))
        self.run_proxy(["haproxy", "-c", "-f", file], ["haproxy", "-db", "-f", file])
        self.check_proxy()

    @unittest.skipUnless(shutil.which("nginx"), "needs the Debian package nginx-light")
    def test_nginx(self):
        (self.folder / "quellora.conf").write_text(replaced(example("nginx"), self.upstreams | {
            "listen 443 ": f"listen 127.0.0.1:{self.port} ",
            "/etc/nginx/quellora.": f"{self.folder}/quellora."}))
        user = "user root root;\n" if os.getuid() == 0 else ""
        temporary = "".join(f"  {kind}_temp_path {self.folder}/{kind};\n"
                            for kind in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        file = self.folder / "nginx.conf"
        file.write_text(f"{user}daemon off;\npid {self.folder}/nginx.pid;\n"
                        f"error_log {self.folder}/error.log;\nevents {{}}\n"
                        f"http {{\n  access_log off;\n{temporary}"
                        f"  include {self.folder}/quellora.conf;\n}}\n")
        command = ["nginx", "-p", self.folder, "-e", self.folder / "error.log", "-c", file]
        self.run_proxy([*command, "-t"], command)
        self.check_proxy()


if __name__ == "__main__":
    unittest.main()
