"""A sign-in provider that may lie."""

import base64
import hashlib
import http.server
import json
import pathlib
import re
import subprocess
import tempfile
import threading
import time
import urllib.parse

CLIENT = "quellora-test"
SECRET = "provider-secret+/="


def url64(data):
    return base64.urlsafe_b64encode(data).rstrip(b"=").decode()


class SigningKey:
    """An RSA key of the openssl program."""

    def __init__(self, name="k1"):
        self.name = name
        self._file = tempfile.NamedTemporaryFile(suffix=".pem")
        subprocess.run(["openssl", "genpkey", "-algorithm", "RSA", "-pkeyopt",
                        "rsa_keygen_bits:2048", "-out", self._file.name],
                       check=True, capture_output=True)

    def pem(self):
        """The private and the public key as text."""
        public = subprocess.run(["openssl", "rsa", "-in", self._file.name, "-pubout"], check=True,
                                capture_output=True, text=True).stdout
        return pathlib.Path(self._file.name).read_text(encoding="ascii"), public

    def public(self):
        modulus = subprocess.run(["openssl", "rsa", "-in", self._file.name, "-noout", "-modulus"],
                                 check=True, capture_output=True, text=True).stdout
        number = bytes.fromhex(re.search("Modulus=([0-9A-F]+)", modulus)[1])
        return {"kty": "RSA", "kid": self.name, "use": "sig", "alg": "RS256", "n": url64(number),
                "e": "AQAB"}

    def token(self, claims, **header):
        text = (url64(json.dumps({"alg": "RS256", "kid": self.name} | header).encode()) + "." +
                url64(json.dumps(claims).encode()))
        signature = subprocess.run(["openssl", "dgst", "-sha256", "-sign", self._file.name],
                                   input=text.encode(), check=True, capture_output=True).stdout
        return text + "." + url64(signature)


class FakeProvider(http.server.ThreadingHTTPServer):
    """Knows one person; `lies` changes claims, `token` makes the whole token."""

    daemon_threads = True

    def __init__(self):
        super().__init__(("127.0.0.1", 0), _Handler)
        self.key = SigningKey()
        self.keys = [self.key]
        self.person = {"sub": "person-1", "email": "Ann@Example.org", "email_verified": True}
        self.lies = {}
        self.token = lambda claims: self.key.token(claims)
        self.description = {}
        self.codes = {}
        self.requests = []
        self.secret_in = None
        threading.Thread(target=self.serve_forever, daemon=True).start()

    @property
    def issuer(self):
        return f"http://127.0.0.1:{self.server_port}"

    def authorize(self, address):
        """What the browser brings back from the authorisation page: state and code."""
        parts = urllib.parse.urlsplit(address)
        asked = dict(urllib.parse.parse_qsl(parts.query))
        assert address.startswith(self.issuer + "/authorize?"), address
        assert asked["response_type"] == "code" and asked["client_id"] == CLIENT
        assert asked["code_challenge_method"] == "S256" and "openid" in asked["scope"].split()
        code = f"code-{len(self.codes)}"
        self.codes[code] = asked
        return asked, {"state": asked["state"], "code": code}

    def close(self):
        self.shutdown()
        self.server_close()


class _Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *_arguments):
        pass

    def _reply(self, value, status=200):
        body = json.dumps(value).encode()
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        provider = self.server
        provider.requests.append(self.path)
        if self.path == "/.well-known/openid-configuration":
            self._reply({"issuer": provider.issuer,
                         "authorization_endpoint": provider.issuer + "/authorize",
                         "token_endpoint": provider.issuer + "/token",
                         "jwks_uri": provider.issuer + "/keys"} | provider.description)
        elif self.path == "/keys":
            self._reply({"keys": [key.public() for key in provider.keys]})
        else:
            self._reply({}, 404)

    def do_POST(self):
        provider = self.server
        provider.requests.append(self.path)
        form = dict(urllib.parse.parse_qsl(
            self.rfile.read(int(self.headers["Content-Length"])).decode()))
        asked = provider.codes.pop(form.get("code"), None)
        credentials = base64.b64encode(
            f"{CLIENT}:{urllib.parse.quote(SECRET, safe='')}".encode()).decode()
        challenge = url64(hashlib.sha256(form.get("code_verifier", "").encode()).digest())
        if self.headers["Authorization"] == f"Basic {credentials}":
            provider.secret_in = "header"
        elif (form.get("client_id"), form.get("client_secret")) == (CLIENT, SECRET):
            provider.secret_in = "form"
        else:
            provider.secret_in = None
        if (asked is None or provider.secret_in is None
                or challenge != asked["code_challenge"]
                or form["redirect_uri"] != asked["redirect_uri"]):
            self._reply({"error": "invalid_grant"}, 400)
            return
        now = int(time.time())
        claims = provider.person | {"iss": provider.issuer, "aud": CLIENT, "iat": now,
                                    "exp": now + 300, "nonce": asked["nonce"]}
        claims = {name: value for name, value in (claims | provider.lies).items()
                  if value is not None}
        self._reply({"token_type": "Bearer", "access_token": "x",
                     "id_token": provider.token(claims)})
