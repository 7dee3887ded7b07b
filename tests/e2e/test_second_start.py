"""A second start of the program raises the first one's window."""

import signal
import socket
import subprocess
import unittest

from harness import E2ECase, processes, wait_until

ALREADY = "[main] Already running; that window was brought to the front"
SILENT = "[main] ERROR: Already running, but it does not answer"
AGAIN = "[AppDelegate] Started once more — bringing the window to the front"


class SecondStartTest(E2ECase):
    def start_again(self, app, **environment):
        """Starts the program again; returns (exit status, messages)."""
        child = processes.spawn([str(app.bin_dir / "quellora")], stdout=subprocess.PIPE,
                                env=app.environment | environment, cwd=app.work)
        self.addCleanup(processes.stop, child)
        output, _ = child.communicate(timeout=30)
        return child.returncode, [line[15:] for line in output.decode().splitlines()]

    def socket_path(self):
        folder = self.desktop.folder / "runtime"
        return next(folder.glob("quellora-*.socket"))

    def test_login_window_is_raised(self):
        app = self.app(self.server())
        app.wait_login_window()
        other = self.other_window()
        self.desktop.wait_for_active(other.title)
        status, lines = self.start_again(app)
        self.assertEqual(status, 0)
        self.assertEqual(lines[-1], ALREADY)
        self.assertEqual(len(lines), 3)
        app.wait_for_line(AGAIN)
        self.desktop.wait_for_active("Quellora")
        app.access.wait_for("Email", focused=True)
        self.assertEqual(len(self.desktop.viewable_windows("Quellora")), 1)

    def test_hidden_overlay_is_shown_without_the_focus(self):
        app = self.app(self.server()).sign_in()
        app.hotkey("ctrl+alt+super+t", "Toggle")
        app.wait_overlay_hidden()
        other = self.other_window()
        self.desktop.wait_for_active(other.title)
        status, lines = self.start_again(app)
        self.assertEqual((status, lines[-1]), (0, ALREADY))
        app.wait_overlay_shown()
        self.assertEqual(self.desktop.title(self.desktop.active_window()), other.title)
        # The first instance still owns the hot keys.
        app.hotkey("ctrl+alt+super+x", "Clear")

    def test_hanging_instance_does_not_block_the_second(self):
        app = self.app(self.server())
        app.wait_login_window()
        app.process.send_signal(signal.SIGSTOP)
        self.addCleanup(app.process.send_signal, signal.SIGCONT)
        status, lines = self.start_again(app)
        self.assertEqual((status, lines[-1]), (1, SILENT))
        app.process.send_signal(signal.SIGCONT)
        self.assertEqual(self.start_again(app)[0], 0)

    def test_socket_ignores_other_messages(self):
        app = self.app(self.server()).sign_in()
        mark = app.mark()
        for words in (b"activate\n", b"show now\n", b"show\nquit\n", b"\0" * 4096, b"GET / HTTP/1.1\r\n\r\n"):
            with socket.socket(socket.AF_UNIX) as client:
                client.settimeout(10)
                client.connect(str(self.socket_path()))
                client.sendall(words)
                try:
                    self.assertEqual(client.recv(16), b"")
                except ConnectionResetError:
                    pass
        self.assertEqual(self.start_again(app)[0], 0)
        app.wait_for_line(AGAIN)
        self.assertEqual(app.lines_since(mark).count(AGAIN), 1)
        self.assertEqual(self.socket_path().stat().st_mode & 0o077, 0)

    def test_starts_after_a_crash(self):
        server = self.server()
        app = self.app(server)
        app.wait_login_window()
        app.process.kill()
        app.wait_exit()
        self.socket_path()
        again = self.app(server)
        again.wait_login_window()
        self.assertEqual(self.start_again(again)[0], 0)
        again.process.terminate()
        self.assertEqual(again.wait_exit(), 0)
        left = list((self.desktop.folder / "runtime").glob("quellora-*"))
        wait_until(lambda: left == [], timeout=1, what=f"the end of {left}")

    def test_another_runtime_folder_is_another_session(self):
        server = self.server()
        first = self.app(server)
        first.wait_login_window()
        runtime = first.folder / "runtime"
        runtime.mkdir(mode=0o700)
        second = self.app(server, environment={"XDG_RUNTIME_DIR": str(runtime)})
        second.wait_for_line("[AppDelegate] Login window shown, overlay deferred until sign-in")
        self.assertTrue(first.running)


if __name__ == "__main__":
    unittest.main()
