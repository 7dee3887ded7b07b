"""The harness itself: what the other tests rely on."""

import os
import re
import select
import socket
import subprocess
import sys
import threading
import unittest
import urllib.error
import urllib.request

from harness import E2ECase, HostileServer, Image, chunk_event, done_event
from harness import processes
from harness.server import QUERY


class ServerTest(unittest.TestCase):
    def setUp(self):
        self.server = HostileServer()
        self.addCleanup(self.server.close)

    def post(self, path, body=b"{}", headers=None):
        request = urllib.request.Request(self.server.url + path, body, headers or {})
        return urllib.request.urlopen(request, timeout=10)

    def test_records_header_order_and_body(self):
        raw = socket.create_connection(("127.0.0.1", self.server.port))
        self.addCleanup(raw.close)
        raw.sendall(b"POST /api/logs/app?x=1 HTTP/1.1\r\nB: 2\r\nA: 1\r\nHost: h\r\n"
                    b"Content-Length: 3\r\n\r\nab")
        raw.sendall(b"c")
        self.assertTrue(raw.recv(100).startswith(b"HTTP/1.1 202 "))
        request = self.server.wait_for_request("/api/logs/app")
        self.assertEqual(request.header_order("A", "B"), ["B", "A"])
        self.assertEqual(request.body, b"abc")

    def test_unknown_path_is_404(self):
        with self.assertRaises(urllib.error.HTTPError) as caught:
            self.post("/nowhere")
        self.assertEqual(caught.exception.code, 404)

    def test_stream_waits_for_its_event(self):
        release = threading.Event()
        self.server.on(QUERY, HostileServer.stream(chunk_event("a"), release, done_event()))
        with self.post(QUERY) as answer:
            self.assertEqual(answer.readline(), b'data: {"type": "chunk", "text": "a"}\n')
            release.set()
            self.assertIn(b'"done"', answer.read())

    def test_detects_a_disconnected_client(self):
        noticed = threading.Event()

        def handler(connection, _request):
            connection.begin_stream()
            if connection.wait_closed():
                noticed.set()
        self.server.on(QUERY, handler)
        self.post(QUERY).close()
        self.assertTrue(noticed.wait(10))

    def test_counts_connections(self):
        before = self.server.connection_count
        self.post("/api/logs/app").close()
        self.assertEqual(self.server.connection_count, before + 1)


class ProcessesTest(unittest.TestCase):
    def test_helpers_die_with_a_killed_test(self):
        script = ("import sys; sys.path.insert(0, %r)\n"
                  "from harness import processes\n"
                  "child = processes.spawn(['sleep', '1000'])\n"
                  "print(child.pid, flush=True)\n"
                  "sys.stdin.read()\n" % os.path.dirname(os.path.abspath(__file__)))
        parent = subprocess.Popen([sys.executable, "-c", script], stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE)
        self.addCleanup(parent.stdin.close)
        self.addCleanup(parent.stdout.close)
        child = int(parent.stdout.readline())
        watch = os.pidfd_open(child)
        self.addCleanup(os.close, watch)
        parent.kill()
        parent.wait()
        self.assertEqual(select.select([watch], [], [], 10)[0], [watch], "the helper lives on")

    def test_stop_ends_all_descendants(self):
        family = processes.spawn(["sh", "-c", "sleep 1000 & echo $!; wait"],
                                 stdout=subprocess.PIPE)
        watch = os.pidfd_open(int(family.stdout.readline()))
        self.addCleanup(os.close, watch)
        processes.stop(family)
        self.assertEqual(select.select([watch], [], [], 10)[0], [watch], "a grandchild lives on")


class DesktopTest(E2ECase):
    def test_typed_text_and_clicks_reach_the_window(self):
        window = self.other_window()
        self.desktop.type_text("Hi @ {x}\n")
        window.wait_for("key", 0xFF0D)
        typed = [event.detail for event in window.events("key") if event.detail != 0xFFE1]
        self.assertEqual(typed, [*map(ord, "Hi @ {x}"), 0xFF0D])
        self.desktop.click(30, 40)
        press = window.wait_for("press", 1)
        self.assertEqual((press.x, press.y), (30, 40))

    def test_held_keys_do_not_repeat(self):
        settings = subprocess.run(["xset", "q"], capture_output=True, text=True, check=True,
                                  env=self.desktop.environment).stdout
        delay = re.search(r"auto repeat delay: +(\d+)", settings)[1]
        self.assertGreaterEqual(int(delay), 60_000)

    def test_focus_changes_are_recorded_but_grabs_are_not(self):
        first = self.other_window(title="First")
        self.desktop.press("ctrl+alt+super+c")
        first.wait_for("key", ord("c"))
        self.assertEqual(first.events("focus-out"), [])
        self.other_window(title="Second", width=100, height=100)
        first.wait_for("focus-out")

    def test_screenshot_and_codecs_agree(self):
        self.other_window()
        shot = self.desktop.screenshot()
        path = self.desktop.folder / "shot.png"
        shot.save_png(path)
        again = Image.from_file_bytes(path.read_bytes(), "png")
        self.assertEqual(shot.rgb, again.rgb)
        self.assertTrue(shot.is_near(100, 100, (200, 60, 60)))
        self.assertFalse(shot.is_near(100, 100, (60, 180, 75)))


if __name__ == "__main__":
    unittest.main()
