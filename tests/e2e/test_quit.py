"""Quitting leaves no processes and files behind."""

import os
import signal
import threading
import unittest
import uuid

from harness import E2ECase, HostileServer, processes, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY

LAST_LINES = [
    PREFIX + "Close button clicked, quitting application",
    "[AppDelegate] applicationWillTerminate — clearing session",
    "[AuthService] Session cleared from memory",
    "[HotkeyManager] Stopped, all hotkeys unregistered",
]


class QuitTest(E2ECase):
    def start(self, server):
        self.helpers = set(processes.descendants(os.getpid()))
        return self.app(server).sign_in()

    def assert_nothing_left(self, app, last_lines=tuple(LAST_LINES)):
        self.assertEqual(app.wait_exit(), 0)
        # Session bus services belong to the desktop.
        def ours():
            processes.reap()
            return {pid: name for pid, name in processes.descendants(os.getpid()).items()
                    if pid not in self.helpers and not name.startswith(("at-spi", "dbus"))}
        wait_until(lambda: not ours(), timeout=10, what=f"the end of {ours()}")
        found = [line for line in app.lines if line in last_lines]
        self.assertEqual(found, list(last_lines))
        self.assertEqual(app.temporary_files(), [])

    def test_close_button(self):
        app = self.start(self.server())
        app.access.press("Close")
        self.assert_nothing_left(app)

    def test_quit_during_an_answer(self):
        left = threading.Event()
        server = self.server()

        server.on(QUERY, HostileServer.unfinished(left, "never ends"))
        app = self.start(server)
        self.other_window()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.access.wait_for_page_text("never ends")
        app.access.press("Close")
        self.assert_nothing_left(app)
        self.assertTrue(left.wait(10))

    def test_next_start_works_after_a_kill(self):
        server = self.server()
        app = self.start(server)
        app.process.kill()
        app.wait_exit()
        # The next start removes the opened pictures of the killed process, and nothing else.
        previews = app.temporary / "quellora-thread-preview"
        left = previews / f"process-{str(uuid.uuid4()).upper()}" / "thread"
        left.mkdir(parents=True)
        (left / "screenshot-0.jpg").write_bytes(b"picture")
        foreign = previews / "mine.txt"
        foreign.write_text("mine")
        wait_until(lambda: not {
            pid: name for pid, name in processes.descendants(os.getpid()).items()
            if pid not in self.helpers and not name.startswith(("at-spi", "dbus"))
        } or processes.reap(), timeout=15, what="the engine's processes to follow")
        again = self.app(server, environment={"TMPDIR": str(app.temporary)})
        again.wait_login_window()
        again.wait_for_line("[HotkeyManager] Registered Capture -> ctrl+alt+cmd+c", since=0)
        wait_until(lambda: not left.parent.exists(), what="the abandoned pictures to go")
        self.assertEqual(foreign.read_text(), "mine")

    def test_termination_signals_quit_regularly(self):
        for request in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(request=request):
                app = self.start(self.server())
                app.send_prompt("question")
                app.wait_for_line(STREAM_COMPLETE)
                app.process.send_signal(request)
                self.assert_nothing_left(app, LAST_LINES[1:])
                self.assertEqual(app.turns(), [("question", "Hello from the server.")])

    def test_closing_the_login_window(self):
        self.helpers = set(processes.descendants(os.getpid()))
        app = self.app(self.server())
        app.wait_login_window()
        self.desktop.close_active_window()
        self.assert_nothing_left(app, [
            "[LoginWindowController] Login window closed before sign-in — quitting",
            *LAST_LINES[1:]])


if __name__ == "__main__":
    unittest.main()
