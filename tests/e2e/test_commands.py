"""Commands for the running program: `quellora capture` and the like."""

import subprocess
import unittest

from harness import E2ECase, processes, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY

NOT_RUNNING = "quellora: Quellora is not running\n"


class CommandsTest(E2ECase):
    def command(self, app, *arguments):
        """Runs the program with arguments; returns (exit status, output, error output)."""
        child = processes.spawn([str(app.bin_dir / "quellora"), *arguments],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                env=app.environment, cwd=app.work)
        self.addCleanup(processes.stop, child)
        output, errors = child.communicate(timeout=30)
        return child.returncode, output.decode(), errors.decode()

    def test_commands_act_like_the_hot_keys(self):
        server = self.server()
        self.desktop.fill_root((90, 120, 150))
        app = self.app(server).sign_in()
        other = self.other_window()
        self.desktop.wait_for_active(other.title)

        self.assertEqual(self.command(app, "capture"), (0, "", ""))
        app.wait_for_line(STREAM_COMPLETE)
        self.assertTrue(server.wait_for_request(QUERY, 1).json()["imageBase64"])
        mark = app.mark()
        self.assertEqual(self.command(app, "prompt", "explain"), (0, "", ""))
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        request = server.wait_for_request(QUERY, 2).json()
        self.assertTrue(request["imageBase64"])
        self.assertIn("Explain", request["prompt"])
        self.assertEqual(self.command(app, "prompt", "Nothing"),
                         (1, "", "quellora: refused: no prompt has this name\n"))
        self.assertEqual(self.command(app, "toggle"), (0, "", ""))
        app.wait_overlay_hidden()
        self.assertEqual(self.command(app, "show"), (0, "", ""))
        app.wait_overlay_shown()
        self.assertEqual(self.command(app, "capture-no-send"), (0, "", ""))
        app.access.wait_for("Attached screenshot", "image")
        mark = app.mark()
        self.assertEqual(self.command(app, "clear"), (0, "", ""))
        app.wait_for_line(PREFIX + "Content cleared", since=mark)
        mark = app.mark()
        self.assertEqual(self.command(app, "new-thread"), (0, "", ""))
        app.wait_for_line(PREFIX + "New thread started", since=mark)
        for name in ("opacity-down", "opacity-up", "toggle-clicks"):
            mark = app.mark()
            self.assertEqual(self.command(app, name), (0, "", ""))
            app.wait_for_line(f"[AppDelegate] Command: {name}", since=mark)
        self.assertEqual(self.desktop.title(self.desktop.active_window()), other.title)

        self.assertEqual(self.command(app, "quit"), (0, "", ""))
        self.assertEqual(app.wait_exit(), 0)
        self.assertEqual(self.command(app, "quit"), (3, "", NOT_RUNNING))

    def test_refused_before_sign_in(self):
        app = self.app(self.server())
        app.wait_login_window()
        self.assertEqual(self.command(app, "capture"),
                         (1, "", "quellora: refused: sign in first\n"))

    def test_needs_no_display_for_help(self):
        app = self.app(self.server())
        app.wait_login_window()
        del app.environment["DISPLAY"]
        status, output, errors = self.command(app, "--help")
        self.assertEqual((status, errors), (0, ""))
        self.assertIn("capture-no-send", output)
        self.assertRegex(self.command(app, "--version")[1], r"^quellora \d+\.\d+\.\d+\n$")
        self.assertEqual(self.command(app, "captur"),
                         (2, "", "quellora: unknown argument 'captur'; see quellora --help\n"))

    def test_settings_offer_the_desktops_lines(self):
        app = self.app(self.server(), environment={"XDG_SESSION_TYPE": "wayland",
                                                   "XDG_CURRENT_DESKTOP": "sway"}).sign_in()
        app.open_settings()
        line = f"bindsym Ctrl+Mod1+Mod4+c exec '{app.bin_dir / 'quellora'}' capture"
        self.desktop.press("end")
        app.access.press(f"Copy {line}")
        self.desktop.press("escape")
        app.access.wait_gone("Settings", "heading")
        app.focus_prompt()
        self.desktop.press("ctrl+v")
        wait_until(lambda: app.stored_defaults().get("userPrompt") == line, what="the pasted line")

    def test_or_start_starts_the_program(self):
        app = self.app(self.server())
        app.wait_login_window()
        app.process.terminate()
        self.assertEqual(app.wait_exit(), 0)
        child = processes.spawn([str(app.bin_dir / "quellora"), "--or-start", "toggle"],
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                env=app.environment, cwd=app.work)
        self.addCleanup(processes.stop, child)
        wait_until(lambda: self.command(app, "show")[0] == 0, what="the started program")
        self.assertEqual(self.command(app, "quit"), (0, "", ""))
        self.assertEqual(child.wait(30), 0)


if __name__ == "__main__":
    unittest.main()
