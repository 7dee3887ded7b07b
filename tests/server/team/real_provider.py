"""A real provider of OpenID Connect: Debian's glewlwyd with a store and a port of its own."""

import http.client
import json
import pathlib
import shutil
import socket
import sqlite3
import subprocess
import tempfile
import time
import urllib.parse

from fake_provider import SigningKey

PROGRAM = shutil.which("glewlwyd")
_SCHEMA = "/usr/share/dbconfig-common/data/glewlwyd/install/sqlite3"
_MODULES = "/usr/lib/glewlwyd"
_PATIENCE = 30
CLIENT = "quellora"
SECRET = "a secret: 50% of +/&="


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class RealProvider:
    """Knows the client of the backend, whose pages are at `redirect`."""

    def __init__(self, redirect):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="team-provider-"))
        self.port = free_port()
        self.url = f"http://127.0.0.1:{self.port}"
        self.issuer = f"{self.url}/api/oidc"
        database = self.folder / "store.sqlite"
        store = sqlite3.connect(database)
        store.executescript(pathlib.Path(_SCHEMA).read_text(encoding="utf-8"))
        store.close()
        settings = {"port": self.port, "bind_address": "127.0.0.1", "external_url": self.url,
                    "login_url": "login.html", "api_prefix": "api", "log_mode": "file",
                    "log_level": "INFO", "log_file": str(self.folder / "log"),
                    "session_expiration": 3600, "session_key": "session", "admin_scope": "g_admin",
                    "profile_scope": "g_profile", "user_module_path": f"{_MODULES}/user",
                    "client_module_path": f"{_MODULES}/client",
                    "user_auth_scheme_module_path": f"{_MODULES}/scheme",
                    "plugin_module_path": f"{_MODULES}/plugin", "hash_algorithm": "SHA512"}
        (self.folder / "conf").write_text(
            "".join(f"{name} = {json.dumps(value)}\n" for name, value in settings.items()) +
            f'database = {{ type = "sqlite3"\n path = "{database}" }}\n')
        with open(self.folder / "output", "w", encoding="utf-8") as output:
            self._process = subprocess.Popen([PROGRAM, "--config-file", self.folder / "conf"],
                                             stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        self._admin = Session(self)
        deadline = time.monotonic() + _PATIENCE
        while not self._is_up():
            if self._process.poll() is not None or time.monotonic() > deadline:
                raise AssertionError(self.log())
            time.sleep(0.05)
        self._admin.sign_in("admin", "password")
        self._configure(redirect)

    def _is_up(self):
        try:
            self._admin.request("GET", "/config")
            return True
        except OSError:
            return False

    def log(self):
        return "".join((self.folder / name).read_text() for name in ("output", "log")
                       if (self.folder / name).exists())

    def _configure(self, redirect):
        # Users have no such property by themselves.
        users = self._admin.ask("GET", "/mod/user/database")
        users["parameters"]["data-format"]["email-verified"] = {
            "multiple": False, "read": True, "write": True}
        self._admin.ask("PUT", "/mod/user/database", users)
        self._admin.ask("PUT", "/mod/user/database/reset")
        self._admin.ask("POST", "/scope", {"name": "email", "display_name": "E-mail address",
                                           "password_required": False, "scheme": {}})
        key = SigningKey()
        private, public = key.pem()
        self._admin.ask("POST", "/mod/plugin", {
            "module": "oidc", "name": "oidc", "display_name": "OpenID Connect", "parameters": {
                "iss": self.issuer, "subject-type": "public", "jwt-type": "rsa",
                "jwt-key-size": "256", "key": private, "cert": public, "jwks-show": True,
                "access-token-duration": 600, "refresh-token-duration": 600, "code-duration": 60,
                "refresh-token-rolling": False, "allow-non-oidc": False,
                "auth-type-code-enabled": True, "auth-type-token-enabled": False,
                "auth-type-id-token-enabled": True, "auth-type-password-enabled": False,
                "auth-type-client-enabled": False, "auth-type-refresh-enabled": False,
                "pkce-allowed": True, "pkce-required": True, "pkce-method-plain-allowed": False,
                "email-claim": "mandatory", "name-claim": "no", "scope-claim": "no",
                "address-claim": {"type": "no"},
                "claims": [{"name": "email_verified", "user-property": "email-verified",
                            "type": "boolean", "boolean-value-true": "yes",
                            "boolean-value-false": "no", "mandatory": True}]}})
        self._admin.ask("POST", "/client", {
            "client_id": CLIENT, "name": "Quellora", "confidential": True, "enabled": True,
            "client_secret": SECRET, "redirect_uri": [redirect], "authorization_type": ["code"],
            "token_endpoint_auth_method": ["client_secret_basic",
                                                                 "client_secret_post"], "scope": []})

    def add_person(self, name, email, is_verified):
        """Somebody who may use the client; returns the password."""
        password = f"password of {name}"
        self._admin.ask("POST", "/user", {
            "username": name, "name": name, "email": email, "enabled": True, "password": password,
            "email-verified": "yes" if is_verified else "no",
            "scope": ["openid", "email", "g_profile"]})
        return password

    def close(self):
        self._process.terminate()
        self._process.wait(_PATIENCE)
        shutil.rmtree(self.folder, ignore_errors=True)


class Session:
    """A browser's session at the provider, which its pages would use in the same way."""

    def __init__(self, provider):
        self.provider = provider
        self.cookie = None

    def request(self, method, path, value=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.provider.port, timeout=_PATIENCE)
        headers = {"Content-Type": "application/json"} if value is not None else {}
        if self.cookie:
            headers["Cookie"] = self.cookie
        address = path if path.startswith("/api/") else "/api" + path
        connection.request(method, address, None if value is None else json.dumps(value), headers)
        reply = connection.getresponse()
        body = reply.read()
        connection.close()
        if reply.headers["Set-Cookie"]:
            self.cookie = reply.headers["Set-Cookie"].split(";")[0]
        return reply, body

    def ask(self, method, path, value=None):
        reply, body = self.request(method, path, value)
        if reply.status != 200:
            raise AssertionError(f"{method} {path}: {reply.status} {body!r}\n{self.provider.log()}")
        return json.loads(body) if body else None

    def sign_in(self, name, password):
        self.ask("POST", "/auth", {"username": name, "password": password})

    def grant(self, scopes):
        """What the page that asks for consent does."""
        self.ask("PUT", f"/auth/grant/{CLIENT}", {"scope": scopes})

    def authorize(self, address):
        """Where the provider sends the browser from the authorisation page."""
        assert address.startswith(self.provider.url), address
        reply, body = self.request("GET", address[len(self.provider.url):])
        if reply.status != 302:
            raise AssertionError(f"{reply.status} {body!r}\n{self.provider.log()}")
        return reply.headers["Location"]

    def go_on(self, login_page):
        """Where the login page sends the browser once the person has signed in and consented."""
        assert login_page.startswith(self.provider.url + "/login.html?"), login_page
        query = dict(urllib.parse.parse_qsl(urllib.parse.urlsplit(login_page).query))
        return self.authorize(query["callback_url"] + "&g_continue")
