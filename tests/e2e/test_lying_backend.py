"""A backend that lies: a clear word each, nothing is sent elsewhere, and memory stays bounded."""

import pathlib
import re
import socket
import ssl
import subprocess
import tempfile
import threading
import unittest
import zlib

from harness import E2ECase, HostileServer, SignedInCase, chunk_event, login_response
from harness.messages import STREAM_COMPLETE
from harness.server import LOGIN, QUERY
from harness.waiting import ALLOWANCE

MEBI = 1 << 20
STREAM = b"HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
FAILED = re.compile(r"^\[OverlayWindowController\] ERROR: ")


def endless(head, block, total):
    """Handler that sends `block` again and again after `head`, `total` bytes at most."""
    def handler(connection, _request):
        connection.send(head)
        for _ in range(total // len(block)):
            connection.send(block)
    return handler


def packed(block, count):
    """`count` copies of `block` as one gzip file."""
    packer = zlib.compressobj(9, wbits=31)
    return b"".join([packer.compress(block) for _ in range(count)] + [packer.flush()])


class Memory:
    """Peak of the resident memory of a program's main process, measured from now on."""

    def __init__(self, app):
        self._process = pathlib.Path(f"/proc/{app.process.pid}")
        # 5 resets the peak.
        (self._process / "clear_refs").write_text("5")
        self.before = self._mebibytes("VmRSS")

    def _mebibytes(self, field):
        status = (self._process / "status").read_text()
        return int(re.search(rf"^{field}:\s+(\d+) kB", status, re.MULTILINE)[1]) // 1024

    def peak(self, name):
        """Prints and returns the growth to the peak in MiB."""
        peak = self._mebibytes("VmHWM")
        print(f"{name}: {self.before} MiB before, {peak} MiB at the peak", flush=True)
        return peak - self.before


class LyingCase(SignedInCase):
    def lie(self, name, handler, page, growth=48):
        """Asks, reads the error, and asks again."""
        app = self.shared_app
        memory = Memory(app)
        self.shared_server.on(QUERY, handler)
        self.ask("question")
        app.wait_for_line(FAILED, since=self.mark)
        app.access.wait_for_page_text(page)
        self.empty_prompt()
        self.shared_server.on(QUERY, HostileServer.answer_with("The truth."))
        mark = app.mark()
        app.send_prompt("again")
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        app.access.wait_for_page_text("The truth.")
        self.assertLess(memory.peak(name), growth * ALLOWANCE)


class EndlessAnswerTest(LyingCase):
    def test_a_gibibyte_of_answer(self):
        block = chunk_event("words and words " * 256) * 16
        self.lie("1 GiB of answer", endless(STREAM + b"\r\n", block, 1024 * MEBI),
                 "The answer is longer than 8 MiB", growth=512)


class LyingAnswerTest(LyingCase):
    def test_a_gibibyte_of_ignored_lines(self):
        block = (b": " + b"x" * 1021 + b"\n") * 64
        self.lie("1 GiB of ignored lines", endless(STREAM + b"\r\n", block, 1024 * MEBI),
                 "Stream ended unexpectedly")

    def test_a_gibibyte_of_error(self):
        self.lie("1 GiB of error body", endless(
            b"HTTP/1.1 500 Status\r\nContent-Length: 1073741824\r\n\r\n", b"x" * 65536,
            1024 * MEBI), "Proxy request failed: HTTP 500")

    def test_a_packed_gibibyte(self):
        bomb = packed((b": " + b"x" * 1021 + b"\n") * 1024, 1024)
        self.lie("1 GiB packed into 1 MiB", endless(
            STREAM + b"Content-Encoding: gzip\r\nContent-Length: %d\r\n\r\n" % len(bomb), bomb,
            len(bomb)), "Stream ended unexpectedly")

    def test_redirect(self):
        canary = HostileServer()
        self.addCleanup(canary.close)
        for code in (302, 307):
            self.mark = self.shared_app.mark()
            self.lie(f"redirect {code}", HostileServer.status(
                code, headers=(f"Location: {canary.url}{QUERY}",)),
                f"Proxy request failed: HTTP {code}")
        self.assertEqual(canary.connection_count, 0)

    def test_one_byte_a_second_can_be_stopped(self):
        app = self.shared_app
        left = threading.Event()

        def handler(connection, _request):
            connection.send(STREAM + b"\r\n")
            for byte in chunk_event("slow") * 100:
                connection.send(bytes([byte]))
                if connection.wait_closed(1):
                    left.set()
                    return
        self.shared_server.on(QUERY, handler)
        self.ask("question")
        app.access.press("Stop")
        self.assertTrue(left.wait(10), "Stop did not end the transfer")
        app.access.wait_gone("Stop")
        self.empty_prompt()
        self.shared_server.on(QUERY, HostileServer.answer_with("The truth."))
        app.send_prompt("again")
        app.access.wait_for_page_text("The truth.")


class LyingSignInTest(E2ECase):
    def test_a_gibibyte_of_sign_in(self):
        server = self.server()
        server.on(LOGIN, endless(
            b"HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n\r\n", b" " * 65536,
            1024 * MEBI))
        app = self.app(server)
        app.wait_login_window()
        memory = Memory(app)
        app.fill_login()
        self.desktop.press("return")
        app.access.wait_for("Unexpected response from server")
        server.on(LOGIN, HostileServer.status(200, login_response()))
        self.desktop.press("return")
        app.wait_overlay_shown()
        # Includes the panel and its page engine.
        self.assertLess(memory.peak("1 GiB of sign-in"), 160 * ALLOWANCE)

    def test_no_password_without_a_trusted_connection(self):
        received = []
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(
                ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                 "ec_paramgen_curve:P-256", "-nodes", "-subj", "/CN=127.0.0.1", "-addext",
                 "subjectAltName=IP:127.0.0.1", "-days", "2", "-keyout", f"{folder}/key",
                 "-out", f"{folder}/certificate"], check=True, capture_output=True)
            context.load_cert_chain(f"{folder}/certificate", f"{folder}/key")

        def self_signed(connection):
            with context.wrap_socket(connection, server_side=True) as encrypted:
                received.append(encrypted.recv(4096))

        def plain(connection):
            connection.recv(4096)
            connection.sendall(b"HTTP/1.1 400 Status\r\nContent-Length: 0\r\n\r\n")
        listener = socket.create_server(("127.0.0.1", 0))
        self.addCleanup(listener.close)

        def serve():
            for answer in (self_signed, plain):
                connection, _ = listener.accept()
                with connection:
                    try:
                        answer(connection)
                    except OSError:
                        continue
        thread = threading.Thread(target=serve, daemon=True)
        thread.start()
        app = self.app(f"https://127.0.0.1:{listener.getsockname()[1]}")
        app.wait_login_window()
        app.fill_login()
        for _ in range(2):
            mark = app.mark()
            self.desktop.press("return")
            app.wait_for_line(re.compile(r"^\[AuthService\] Login failed: network error: .+"),
                              since=mark)
            print(app.lines_since(mark)[-1], flush=True)
            app.access.wait_for("Connection error (-1). Check your internet connection.")
        thread.join(10)
        self.assertEqual(b"".join(received), b"")


if __name__ == "__main__":
    unittest.main()
