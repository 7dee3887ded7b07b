"""The backend's side towards a provider: back-pressure, leaving, kept connections, TLS, proxies."""

import http.client
import http.server
import json
import socket
import ssl
import subprocess
import threading
import time
import unittest

import prometheus
from team_case import PATIENCE, TeamCase

TEXT = "x" * 4000
EVENT = f'data: {json.dumps({"choices": [{"delta": {"content": TEXT}}]})}\n\n'.encode()
END = (b'data: {"choices": [], "usage": {"prompt_tokens": 12, "completion_tokens": 7}}\n\n'
       b"data: [DONE]\n\n")
HEAD = b"HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n"


class RawProvider:
    """Accepts connections, reads one question on each and hands the socket to a function."""

    def __init__(self, answer):
        self.socket = socket.create_server(("127.0.0.1", 0))
        # What the system takes for a reader that is paused should be little.
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 64 * 1024)
        self.url = f"http://127.0.0.1:{self.socket.getsockname()[1]}/v1"
        self.answer = answer
        threading.Thread(target=self.run, daemon=True).start()

    def run(self):
        while True:
            try:
                client, _ = self.socket.accept()
            except OSError:
                return
            threading.Thread(target=self.serve, args=(client,), daemon=True).start()

    def serve(self, client):
        with client:
            question = b""
            while b"\r\n\r\n" not in question:
                question += client.recv(65536)
            head, _, body = question.partition(b"\r\n\r\n")
            length = int(head.lower().split(b"content-length:")[1].split(b"\r\n")[0])
            while len(body) < length:
                body += client.recv(65536)
            self.answer(client)

    def close(self):
        self.socket.close()


class Provider(http.server.ThreadingHTTPServer):
    """Answers each question at once, on connections that stay, and notes what it was asked for."""

    daemon_threads = True

    def __init__(self, context=None):
        super().__init__(("127.0.0.1", 0), _Handler)
        self.connections = 0
        self.asked = []
        scheme = "https" if context else "http"
        if context:
            self.socket = context.wrap_socket(self.socket, server_side=True,
                                              do_handshake_on_connect=False)
        self.url = f"{scheme}://127.0.0.1:{self.server_port}/v1"
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def process_request(self, request, client_address):
        self.connections += 1
        super().process_request(request, client_address)

    def handle_error(self, *_arguments):
        pass  # Clients that do not trust it leave.

    def close(self):
        self.shutdown()
        self.server_close()


class _Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_arguments):
        pass

    def do_POST(self):
        self.rfile.read(int(self.headers["Content-Length"]))
        self.server.asked.append(self.path)
        body = EVENT + END
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)


class UpstreamCase(TeamCase):
    def serve(self, url, **environment):
        """Serves with a model at an address; returns a session's token."""
        self.config.write_text(f'[openai]\nbase_url = "{url}"\nmodel = "m"\n')
        self.environment |= environment
        self.password = getattr(self, "password", None) or self.account()
        self.start()
        return self.log_in("ann@example.org", self.password).json["token"]

    def question(self, token):
        body = '{"prompt":"?"}'
        return (f"POST /api/proxy/query HTTP/1.1\r\nHost: {self.url.split('//')[1]}\r\n"
                f"Authorization: Bearer {token}\r\nContent-Type: application/json\r\n"
                f"Content-Length: {len(body)}\r\n\r\n{body}").encode()

    def connect(self, receive_buffer=None):
        host, port = self.url.split("//")[1].split(":")
        client = socket.socket()
        self.addCleanup(client.close)
        client.settimeout(PATIENCE)
        if receive_buffer:
            client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        client.connect((host, int(port)))
        return client

    def metrics(self):
        return prometheus.parsed(self.visitor().get("/metrics").text)


class FlowTest(UpstreamCase):
    def provide(self, answer):
        provider = RawProvider(answer)
        self.addCleanup(provider.close)
        return provider.url

    def test_a_slow_client_pauses_its_model(self):
        pieces = 8000
        sent = []
        stuck = threading.Event()

        def answer(client):
            client.settimeout(0.5)
            client.sendall(HEAD)
            for _ in range(pieces):
                rest = EVENT
                while rest:
                    try:
                        rest = rest[client.send(rest):]
                    except TimeoutError:
                        # Nobody reads any more.
                        stuck.set()
                sent.append(len(TEXT))
            client.settimeout(PATIENCE)
            client.sendall(END)
            stuck.set()
        token = self.serve(self.provide(answer))
        client = self.connect(receive_buffer=16 * 1024)
        client.sendall(self.question(token))
        self.assertTrue(stuck.wait(PATIENCE))
        self.assertLess(sum(sent), pieces * len(TEXT) / 2)
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            resident = next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))
        print(f"a client that reads nothing: its model was stopped after {sum(sent) / 2**20:.1f} MiB; "
              f"the backend had {resident / 1024:.0f} MiB")
        reply = client.makefile("rb")
        text = 0
        for line in reply:
            if line.startswith(b'data: {"type":"chunk"'):
                text += len(json.loads(line[6:])["text"])
            elif line.startswith(b'data: {"type":"done"'):
                break
        self.assertEqual(text, pieces * len(TEXT))

    def test_leaving_before_the_first_byte_cancels_the_question(self):
        asked = threading.Event()
        gone = threading.Event()

        def answer(client):
            asked.set()
            client.settimeout(PATIENCE)
            try:
                if client.recv(1) == b"":
                    gone.set()
            except ConnectionError:
                gone.set()
        token = self.serve(self.provide(answer))
        client = self.connect()
        client.sendall(self.question(token))
        self.assertTrue(asked.wait(PATIENCE))
        client.close()
        begin = time.monotonic()
        self.assertTrue(gone.wait(PATIENCE))
        print(f"the provider's connection was closed after {1000 * (time.monotonic() - begin):.1f} ms")
        deadline = time.monotonic() + PATIENCE
        while self.metrics()["quellora_running_answers"][1][("", ())] > 0:
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.02)
        self.stop()
        self.assertEqual(self.run_json("list-accounts")[0]["tokensUsed"], 0)

    def test_connections_to_the_provider_are_kept(self):
        provider = Provider()
        self.addCleanup(provider.close)
        token = self.serve(provider.url)
        # One connection of the client stays on one of the backend's loops.
        connection = http.client.HTTPConnection(self.url.split("//")[1], timeout=PATIENCE)
        self.addCleanup(connection.close)
        for _ in range(5):
            connection.request("POST", "/api/proxy/query", '{"prompt":"?"}', {
                "Content-Type": "application/json", "Authorization": f"Bearer {token}"})
            self.assertIn(b'"type":"done"', connection.getresponse().read())
        self.assertEqual((len(provider.asked), provider.connections), (5, 1))


class TlsTest(UpstreamCase):
    def provider(self, name, has_expired=False):
        """A provider with a certificate of its own for a name; returns it and the file."""
        key, certificate = self.folder / "key.pem", self.folder / "certificate.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                        "-nodes", "-days", "2", "-subj", "/CN=provider", "-addext",
                        f"subjectAltName={name}", "-keyout", key, "-out", certificate],
                       check=True, capture_output=True)
        if has_expired:
            subprocess.run(["openssl", "x509", "-in", certificate, "-signkey", key, "-days", "-1",
                            "-out", certificate], check=True, capture_output=True)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificate, key)
        provider = Provider(context)
        self.addCleanup(provider.close)
        return provider, str(certificate)

    def ask(self, token):
        return self.visitor().post_json("/api/proxy/query", {"prompt": "?"}, token)

    def assert_refused(self, provider, token):
        self.assertEqual(self.ask(token).status, 502)
        self.assertEqual(provider.asked, [])
        errors = self.metrics()["quellora_provider_errors_total"][1]
        self.assertEqual({dict(labels)["kind"] for _, labels in errors}, {"certificate"})

    def test_a_certificate_that_nobody_vouches_for_is_refused(self):
        provider, _ = self.provider("IP:127.0.0.1")
        self.assert_refused(provider, self.serve(provider.url))

    def test_a_certificate_that_is_trusted_is_accepted(self):
        provider, certificate = self.provider("IP:127.0.0.1")
        token = self.serve(provider.url, SSL_CERT_FILE=certificate)
        self.assertIn('"type":"done"', self.ask(token).text)
        self.assertEqual(provider.asked, ["/v1/chat/completions"])

    def test_a_trusted_certificate_that_has_expired_is_refused(self):
        provider, certificate = self.provider("IP:127.0.0.1", has_expired=True)
        self.assert_refused(provider, self.serve(provider.url, SSL_CERT_FILE=certificate))

    def test_a_handshake_that_is_cut_or_none(self):
        received = []
        listener = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(listener.close)
        answers = [b"", bytes.fromhex("160303007a0200"), b"\xff" * 600, b"HTTP/1.1 200 OK\r\n\r\n"]

        def run():
            # Failures that could pass are tried again.
            while True:
                try:
                    client, _ = listener.accept()
                except OSError:
                    return
                with client:
                    received.append(client.recv(65536))
                    client.sendall(answers[len(received) % len(answers)])
        threading.Thread(target=run, daemon=True).start()
        token = self.serve(f"https://127.0.0.1:{listener.getsockname()[1]}/v1")
        for _ in answers:
            self.assertGreaterEqual(self.ask(token).status, 429)
        self.assertGreaterEqual(len(received), len(answers))
        for hello in received:
            self.assertNotIn(b"prompt", hello)
            self.assertNotIn(b"HTTP/", hello)

    def test_a_trusted_certificate_for_another_name_is_refused(self):
        provider, certificate = self.provider("DNS:provider.example")
        self.assert_refused(provider, self.serve(provider.url, SSL_CERT_FILE=certificate))


class ProxyTest(UpstreamCase):
    def setUp(self):
        super().setUp()
        self.proxy = Provider()
        self.addCleanup(self.proxy.close)
        self.variables = {"http_proxy": self.proxy.url.removesuffix("/v1")}

    def test_a_provider_elsewhere_is_asked_through_the_proxy(self):
        token = self.serve("http://models.example/v1", **self.variables)
        reply = self.visitor().post_json("/api/proxy/query", {"prompt": "?"}, token)
        self.assertIn('"type":"done"', reply.text)
        self.assertEqual(self.proxy.asked, ["http://models.example/v1/chat/completions"])

    def test_a_provider_on_this_machine_is_asked_without_the_proxy(self):
        provider = Provider()
        self.addCleanup(provider.close)
        token = self.serve(provider.url, **self.variables)
        reply = self.visitor().post_json("/api/proxy/query", {"prompt": "?"}, token)
        self.assertIn('"type":"done"', reply.text)
        self.assertEqual((self.proxy.asked, provider.asked), ([], ["/v1/chat/completions"]))


if __name__ == "__main__":
    unittest.main()
