"""The running session: refreshed configuration, expiry, redirects, log upload."""

import re
import threading
import unittest

from harness import E2ECase, HostileServer, login_response, wait_until
from harness.messages import PREFIX, RUNNING, STREAM_COMPLETE
from harness.server import LOGS, QUERY, TELEMETRY, VERIFY


class HeartbeatTest(E2ECase):
    def test_refresh_then_suspension_then_expiry_and_a_new_sign_in(self):
        phase = [HostileServer.status(200, login_response(
            token="token-2", adminMessage={"id": "n", "type": "INFORMATIONAL",
                                           "headerText": "Good news", "bodyMarkdown": "Hello"}))]
        server = self.server(heartbeatIntervalSeconds=1)
        server.on(VERIFY, lambda connection, request: phase[0](connection, request))
        app = self.app(server).sign_in()
        app.wait_for_line("[HeartbeatService] Starting, interval: 1.0s", since=0)
        app.wait_for_line("[AuthService] Token verification successful")
        app.wait_for_line("[HeartbeatService] Poll succeeded, config refreshed")
        app.access.wait_for("Good news")
        self.assertEqual(server.wait_for_request(VERIFY, 2).header("Authorization"),
                         "Bearer token-2")

        phase[0] = HostileServer.status(403)
        app.wait_for_line("[AuthService] Token verification failed: account suspended")
        app.wait_for_line(re.compile(r"^\[HeartbeatService\] Poll failed \(non-fatal\): "))
        self.assertIsNotNone(app.panel())

        phase[0] = HostileServer.status(401)
        app.wait_for_line("[HeartbeatService] Token invalid/expired — session expired")
        app.wait_for_line("[AppDelegate] sessionExpired received — tearing down overlay, "
                          "showing login window")
        app.wait_for_line("[AuthService] Session cleared from memory")
        app.wait_for_line("[LoginWindowController] Activated app and made login window key")
        self.desktop.wait_for_active("Quellora")
        app.access.wait_for("Email", focused=True)
        polls = len(server.requests(VERIFY))
        mark = app.mark()
        app.hotkey("ctrl+alt+super+t", "Toggle")
        self.assertNotIn(PREFIX + "Toggling visibility (currently visible)",
                         app.lines_since(mark))
        phase[0] = HostileServer.status(200, login_response())
        app.fill_login()
        self.desktop.press("return")
        app.wait_for_line(RUNNING)
        self.assertEqual(app.lines.count(PREFIX + "init complete"), 2)
        wait_until(lambda: len(server.requests(VERIFY)) > polls, what="the new heartbeat")


class RedirectTest(E2ECase):
    """The token is sent to the backend only, whatever it answers."""

    def test_token_and_prompt_stay_with_the_backend(self):
        for status in (301, 302, 303, 307, 308):
            with self.subTest(status=status):
                thief = self.server()
                server = self.server(heartbeatIntervalSeconds=1)
                for path in (QUERY, TELEMETRY, VERIFY, LOGS):
                    server.on(path, HostileServer.status(
                        status, headers=[f"Location: {thief.url}{path}"]))
                app = self.app(server).sign_in()
                app.send_prompt("private words")
                app.wait_for_line(PREFIX + f"ERROR: Proxy HTTP {status}")
                app.wait_for_line(f"[AuthService] Token verification failed: unexpected status "
                                  f"code {status}", since=0)
                self.assertEqual(thief.connection_count, 0)
                app.close()


class LogUploadTest(E2ECase):
    def test_log_is_sent_on_request(self):
        server = self.server(requestLogs=True)
        app = self.app(server)
        folder = app.home / "Library" / "Logs" / "Vantiro"
        folder.mkdir(parents=True)
        (folder / "pipeline.log").write_text("[00:00:00.000] earlier line — é\n")
        app.sign_in()
        request = server.wait_for_request(LOGS)
        self.assertEqual(request.body.decode(), "[00:00:00.000] earlier line — é\n")
        self.assertEqual(request.header("Content-Type"), "text/plain")
        self.assertEqual(request.header_order("X-App-Version", "Content-Type", "Authorization"),
                         ["Authorization", "Content-Type", "X-App-Version"])
        app.wait_for_line("[LogShipper] Logs shipped successfully (35 bytes)", since=0)

    def test_refreshed_configuration_requests_the_log(self):
        server = self.server(heartbeatIntervalSeconds=1)
        server.on(VERIFY, HostileServer.status(200, login_response(
            token="token-2", requestLogs=True)))
        app = self.app(server)
        folder = app.home / "Library" / "Logs" / "Vantiro"
        folder.mkdir(parents=True)
        (folder / "pipeline.log").write_text("[00:00:00.000] x\n")
        app.sign_in()
        app.wait_for_line("[LogShipper] Logs shipped successfully (17 bytes)", since=0)
        first = server.wait_for_request(LOGS)
        self.assertEqual(first.header("Authorization"), "Bearer token-2")
        self.assertEqual(first.body, b"[00:00:00.000] x\n")
        # Every request uploads the whole file again.
        self.assertEqual(server.wait_for_request(LOGS, 2).body, first.body)

    def test_without_a_log_nothing_is_sent(self):
        server = self.server(requestLogs=True)
        app = self.app(server).sign_in()
        app.wait_for_line("[LogShipper] No log file found or empty — skipping", since=0)
        self.assertEqual(server.requests(LOGS), [])


class SlowTelemetryTest(E2ECase):
    def test_telemetry_failure_is_ignored(self):
        server = self.server()
        server.on(TELEMETRY, lambda connection, _request: connection.reset())
        app = self.app(server).sign_in()
        app.send_prompt("hello")
        app.wait_for_line(re.compile(
            r"^\[OverlayWindowController\] Telemetry send failed \(non-fatal\): .+"))
        app.access.wait_for_page_text("Hello from the server.")
        gate = threading.Event()
        self.addCleanup(gate.set)
        server.on(TELEMETRY, lambda connection, _request: connection.wait_for(gate))
        mark = app.mark()
        self.desktop.type_text("again\n")
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        self.desktop.type_text("and again\n")
        server.wait_for_request(QUERY, 3)


if __name__ == "__main__":
    unittest.main()
