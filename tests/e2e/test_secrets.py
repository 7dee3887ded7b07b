"""Token, password, prompts and answers are neither stored nor logged."""

import pathlib
import re
import unittest

from harness import E2ECase, HostileServer, login_response, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.processes import descendants
from harness.server import LOGIN, LOGS, QUERY, VERIFY

ROOT = pathlib.Path(__file__).resolve().parents[2]
TOKENS = ("token-of-the-sign-in", "token-of-the-refresh")
PASSWORDS = ("wrong pass-word 1", "right pass-word 2")


class SecretsTest(E2ECase):
    """Runs every flow once with a log file; threads are stored only if the user adds a note."""

    def ask(self, app, text):
        app.send_prompt(text)
        app.wait_for_line(PREFIX + "Send button clicked — prompt-only query")

    def sign_in(self, app, password):
        app.fill_login(password=password)
        self.desktop.press("return")

    def empty_login(self, app):
        """Clears the form after a failed sign-in."""
        app.access.click("Email")
        self.desktop.press("ctrl+a")

    def test_core_dumps_hold_no_memory(self):
        app = self.app(self.server()).sign_in()
        app.send_prompt("question")
        app.access.wait_for_page_text("Hello from the server.")
        pids = [app.process.pid, *descendants(app.process.pid)]
        names = [pathlib.Path(f"/proc/{pid}/comm").read_text() for pid in pids]
        self.assertIn("QtWebEngineProc\n", names)
        for pid in pids:
            limits = pathlib.Path(f"/proc/{pid}/limits").read_text()
            self.assertEqual(re.search(r"Max core file size +(\S+)", limits)[1], "0")
            # What a collecting program gets, which the limit does not stop.
            self.assertEqual(int(pathlib.Path(f"/proc/{pid}/coredump_filter").read_text(), 16), 0)

    def test_no_flow_writes_secrets(self):
        server = self.server(heartbeatIntervalSeconds=2)
        polls = [HostileServer.status(200, login_response(
            token=TOKENS[1], heartbeatIntervalSeconds=2, requestLogs=True))]
        server.on(VERIFY, lambda connection, request: polls[0](connection, request))
        server.on(LOGIN, HostileServer.status(401))
        app = self.app(server, launcher=ROOT / "packaging" / "linux" / "quellora-launcher",
                       defaults={"hasLaunchedBefore": True, "userPrompt": "",
                                 "keepAIHistoryEnabled": False})
        app.wait_login_window()
        self.sign_in(app, PASSWORDS[0])
        app.wait_for_line(re.compile(r"^\[AuthService\] Login failed"))
        server.on(LOGIN, HostileServer.status(200, login_response(
            token=TOKENS[0], heartbeatIntervalSeconds=2)))
        self.empty_login(app)
        self.sign_in(app, PASSWORDS[1])
        app.wait_for_line("[AppDelegate] MenuBarController created")
        app.wait_overlay_shown()

        server.on(QUERY, HostileServer.answer_with("first-secret-", "answer"))
        self.ask(app, "first-secret-prompt")
        app.wait_for_line(STREAM_COMPLETE)
        self.other_window()
        server.on(QUERY, HostileServer.answer_with("second-secret-answer"))
        app.focus_prompt()
        self.desktop.type_text("second-secret-prompt")
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "second-secret-prompt",
                   what="the prompt in the box")
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(STREAM_COMPLETE)
        self.assertIn("imageBase64", server.wait_for_request(QUERY, 2).json())
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "", what="the empty box")

        server.on(QUERY, HostileServer.status(500, b"third-secret-answer"))
        self.ask(app, "third-secret-prompt")
        app.wait_for_line(PREFIX + "ERROR: Proxy HTTP 500")
        app.focus_prompt()
        self.desktop.press("ctrl+a")
        server.on(QUERY, HostileServer.status(429, b'{"resetInSeconds": 1}'))
        self.ask(app, "fourth-secret-prompt")
        app.access.wait_for("Rate Limited")
        app.access.wait_gone("Rate Limited")

        app.access.press("New thread")
        app.wait_for_line(PREFIX + "New thread started")
        app.focus_prompt()
        self.desktop.press("ctrl+a")
        self.desktop.type_text("a note to keep")
        app.access.press("Add note")
        app.wait_for_line(PREFIX + "Note added to current session")
        wait_until(lambda: any("a note to keep" in str(thread) for thread in app.threads()),
                   what="the stored note")

        log = server.wait_for_request(LOGS).body.decode()
        self.assertEqual(server.wait_for_request(LOGS).header("Authorization"),
                         f"Bearer {TOKENS[1]}")
        polls[0] = HostileServer.status(401)
        app.wait_for_line("[HeartbeatService] Token invalid/expired — session expired")
        self.desktop.wait_for_active("Quellora")
        app.access.wait_for("Email", focused=True)
        polls[0] = HostileServer.status(200, login_response())
        self.sign_in(app, PASSWORDS[1])
        app.wait_for_line("[AppDelegate] MenuBarController created")
        app.access.press("Close")
        self.assertEqual(app.wait_exit(), 0)

        kept = app.log_path.read_text()
        self.assertIn("[main] Process started", kept)
        self.assertTrue(kept.startswith(log))
        secrets = [*TOKENS, *PASSWORDS, "session-token-1", *(
            f"{number}-secret-{kind}" for number in ("first", "second", "third", "fourth")
            for kind in ("prompt", "answer")), "first-secret-"]
        console = "\n".join(app.raw_lines + app.error_output)
        self.assertEqual([secret for secret in secrets if secret in console], [])
        looked_at = set()
        for path in app.folder.rglob("*"):
            if path.is_file():
                looked_at.add(path.name)
                data = path.read_bytes()
                found = [secret for secret in secrets for form in ("utf-8", "utf-16-le")
                         if secret.encode(form) in data]
                self.assertEqual(found, [], path)
                # Files with the user's texts are readable by their owner only.
                if b"a note to keep" in data or path == app.log_path:
                    self.assertEqual(path.stat().st_mode & 0o077, 0, path)
        self.assertTrue({"pipeline.log", "defaults.json", "session.json"} <= looked_at)


if __name__ == "__main__":
    unittest.main()
