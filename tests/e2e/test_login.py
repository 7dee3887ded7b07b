"""The login window: requests, outcomes, and handling of secrets."""

import pathlib
import re
import socket
import threading
import unittest
import urllib.request

from harness import (E2ECase, HostileServer, TEST_EMAIL, TEST_PASSWORD, login_response,
                     wait_until)
from harness.messages import RUNNING
from harness.server import LOGIN, VERIFY


class LoginTest(E2ECase):
    def test_request_on_the_wire(self):
        server = self.server()
        app = self.app(server)
        app.wait_login_window()
        app.fill_login(" sam@example.com ", " pass\\\"word ")
        self.desktop.press("return")
        app.wait_for_line(RUNNING)
        request = server.wait_for_request(LOGIN)
        self.assertEqual(request.method, "POST")
        self.assertEqual(request.header_order("Content-Type", "X-App-Version", "Authorization"),
                         ["Content-Type", "X-App-Version"])
        self.assertEqual(request.header("Content-Type"), "application/json")
        self.assertEqual(request.header("X-App-Version"), "1.0.0")
        body = request.json()
        self.assertEqual(set(body), {"email", "password", "osVersion", "hotkeys", "cpuArch"})
        self.assertEqual(body["email"], " sam@example.com ")
        self.assertEqual(body["password"], " pass\\\"word ")
        self.assertEqual(body["hotkeys"]["capture"], "ctrl+alt+cmd+c")
        self.assertEqual(len(body["hotkeys"]), 7)
        self.assertIn(body["cpuArch"], ("arm64", "x86_64"))
        self.assertTrue(body["osVersion"])

    def test_failures_are_shown_and_the_next_try_works(self):
        server = self.server()
        app = self.app(server)
        app.wait_login_window()
        app.fill_login()
        outcomes = [
            (HostileServer.status(401), "Invalid email or password",
             "[AuthService] Login failed: invalid credentials"),
            (HostileServer.status(403, login_response()),
             "Your account has been suspended. Contact support.",
             "[AuthService] Login failed: account suspended"),
            (HostileServer.status(500, b"<b>boom</b>"),
             "Connection error (500). Check your internet connection.",
             "[AuthService] Login failed: unexpected status code 500"),
            (HostileServer.status(201, login_response()),
             "Connection error (201). Check your internet connection.",
             "[AuthService] Login failed: unexpected status code 201"),
            (HostileServer.status(200, b"{\"token\": 5"), "Unexpected response from server",
             None),
            (HostileServer.status(200, b"[]"), "Unexpected response from server", None),
            (lambda connection, _request: connection.reset(),
             "Connection error (-1). Check your internet connection.", None),
        ]
        for handler, shown, logged in outcomes:
            with self.subTest(shown=shown, logged=logged):
                mark = app.mark()
                server.on(LOGIN, handler)
                self.desktop.press("return")
                if logged:
                    app.wait_for_line(logged, since=mark)
                else:
                    kind = ("network error: " if "-1" in shown else "could not decode response: ")
                    wait_until(lambda: any(
                        line.startswith("[AuthService] Login failed: " + kind)
                        for line in app.lines_since(mark)), what="the log line")
                app.access.wait_for(shown)
                app.access.wait_for("Password", focused=True)
        # The password's text is selected after a failure, so typing replaces it.
        server.on(LOGIN, HostileServer.status(200, login_response()))
        self.desktop.type_text("another one")
        self.desktop.press("return")
        app.wait_for_line(RUNNING)
        self.assertEqual(server.requests(LOGIN)[-1].json()["password"], "another one")

    def test_refused_connection(self):
        server = self.server()
        server.close()
        app = self.app(server)
        app.wait_login_window()
        app.fill_login()
        self.desktop.press("return")
        app.access.wait_for("Connection error (-1). Check your internet connection.")
        self.assertTrue(app.running)

    def test_incomplete_form_cannot_be_sent_with_the_button(self):
        server = self.server()
        app = self.app(server)
        app.wait_login_window()
        app.access.wait_for("Sign in", enabled=False)
        self.desktop.type_text("   \t" + TEST_PASSWORD)
        wait_until(lambda: app.access.text_of(app.access.find("Email")) == "   ",
                   what="the blanks in the field")
        app.access.wait_for("Sign in", enabled=False)
        app.access.click("Sign in")
        app.access.click("Email")
        self.desktop.press("ctrl+a")
        self.desktop.type_text(TEST_EMAIL)
        app.access.wait_for("Sign in", enabled=True)
        self.assertEqual(server.requests(LOGIN), [])
        app.access.click("Sign in")
        app.wait_for_line(RUNNING)
        self.assertEqual(server.requests(LOGIN)[0].json()["email"], TEST_EMAIL)

    def test_second_return_during_sign_in_is_ignored(self):
        release = threading.Event()
        server = self.server()

        def slow(connection, _request):
            connection.wait_for(release)
            connection.respond(200, login_response())
        server.on(LOGIN, slow)
        app = self.app(server)
        app.wait_login_window()
        app.fill_login()
        self.desktop.press("return")
        server.wait_for_request(LOGIN)
        app.access.wait_for("Signing in")
        self.desktop.press("return")
        self.desktop.press("return")
        # A round trip through the program's event loop ensures that the presses were handled.
        app.hotkey("ctrl+alt+super+x", "Clear")
        release.set()
        app.wait_for_line(RUNNING)
        self.assertEqual(len(server.requests(LOGIN)), 1)

    def test_closing_the_window_quits(self):
        app = self.app(self.server())
        app.wait_login_window()
        self.desktop.close_active_window()
        self.assertEqual(app.wait_exit(), 0)
        app.wait_for_line("[LoginWindowController] Login window closed before sign-in — quitting")
        app.wait_for_line("[AppDelegate] applicationWillTerminate — clearing session")
        app.wait_for_line("[AuthService] Session cleared from memory")
        app.wait_for_line("[HotkeyManager] Stopped, all hotkeys unregistered")

    def test_links_open_in_the_browser(self):
        server = self.server()
        app = self.app(server)
        app.wait_login_window()
        app.access.press("Forgot password?")
        wait_until(lambda: f"{server.url}/reset-password" in app.opened(), what="the page")
        app.access.click("Don't have an account? Sign up")
        wait_until(lambda: f"{server.url}/signup" in app.opened(), what="the page")

    def test_links_that_fail_to_open_are_reported(self):
        app = self.app(self.server())
        app.wait_login_window()
        app.end_openers_with(3)
        app.access.click("Forgot password?")
        app.access.wait_for("Could not open the browser: there is no program for it "
                            "(xdg-open, status 3)")
        app.wait_for_line("[LoginWindowController] WARNING: The browser could not be opened: "
                          "there is no program for it (xdg-open, status 3)")
        # The form still works, and the next failure is reported again.
        app.end_openers_with(0)
        app.fill_login()
        self.desktop.press("return")
        app.wait_for_line(RUNNING)

    def test_the_window_is_managed_and_has_a_dark_title_bar(self):
        app = self.app(self.server())
        app.wait_login_window()
        window = self.desktop.wait_for_active("Quellora")
        states = self.desktop.window_states(window)
        self.assertNotIn("_NET_WM_STATE_SKIP_TASKBAR", states)
        self.assertNotIn("_NET_WM_STATE_SKIP_PAGER", states)
        self.assertEqual(self.desktop.window_text(window, "_GTK_THEME_VARIANT"), "dark")
        # Listed in task bars and switchers.
        self.assertIn(window, self.desktop.client_list())
        # The panel that follows is in neither.
        app.fill_login()
        self.desktop.press("return")
        app.wait_for_line(RUNNING)
        panel = app.wait_overlay_shown()[0]
        self.assertIn("_NET_WM_STATE_SKIP_TASKBAR", self.desktop.window_states(panel))
        self.assertNotIn(panel, self.desktop.client_list())

    def test_secrets_are_not_in_logs_files_or_the_accessibility_tree(self):
        server = self.server()
        server.on(LOGIN, HostileServer.status(401))
        app = self.app(server)
        app.wait_login_window()
        app.fill_login()
        self.desktop.press("return")
        app.access.wait_for("Invalid email or password")
        for _, node in app.access.walk():
            self.assertNotIn(TEST_PASSWORD, app.access.text_of(node))
        server.on(LOGIN, HostileServer.status(200, login_response(token="t0ken-5ecret")))
        self.desktop.type_text(TEST_PASSWORD + "\n")
        app.wait_for_line(RUNNING)
        for secret in (TEST_PASSWORD, "t0ken-5ecret"):
            self.assertNotIn(secret, "\n".join(app.raw_lines + app.error_output))
            for path in pathlib.Path(app.folder).rglob("*"):
                if path.is_file():
                    self.assertNotIn(secret.encode(), path.read_bytes(), path)

    def test_redirected_sign_in_does_not_forward_the_password(self):
        thief = self.server()
        server = self.server()
        server.on(LOGIN, HostileServer.status(307, headers=[f"Location: {thief.url}{LOGIN}"]))
        app = self.app(server)
        app.wait_login_window()
        app.fill_login()
        self.desktop.press("return")
        app.access.wait_for("Password", focused=True)
        app.wait_for_line("[AuthService] Login failed: unexpected status code 307")
        self.assertEqual(thief.connection_count, 0)


PORT = 9877


class BrowserSignInTest(E2ECase):
    """Sign-in through the browser; the listener's port is fixed."""

    def assert_port_is_free(self):
        with socket.create_server(("127.0.0.1", PORT)):
            pass

    def start(self, server):
        app = self.app(server)
        app.wait_login_window()
        app.access.press("Sign in with Google")
        app.wait_for_line("[LoginWindowController] OAuth callback listener ready, "
                          "opening browser for Google sign-in")
        wanted = f"{server.url}/login?callback=http://127.0.0.1:9877/oauth-callback"
        wait_until(lambda: wanted in app.opened(), what="the browser")
        return app

    @staticmethod
    def visit(query):
        with urllib.request.urlopen(f"http://127.0.0.1:9877/oauth-callback{query}",
                                    timeout=10) as answer:
            return answer.read().decode()

    def test_token_from_the_browser_signs_in(self):
        server = self.server()
        app = self.start(server)
        self.assertIn("You're signed in", self.visit("?token=browser%20token"))
        app.wait_for_line("[AuthService] Token verification successful")
        app.wait_for_line(RUNNING)
        request = server.wait_for_request(VERIFY)
        self.assertEqual(request.header("Authorization"), "Bearer browser token")
        self.assertEqual(request.header_order("X-App-Version", "Authorization", "Content-Type"),
                         ["Authorization", "Content-Type", "X-App-Version"])
        self.assertEqual(set(request.json()), {"osVersion", "hotkeys", "cpuArch"})

    def test_missing_then_rejected_token(self):
        server = self.server()
        server.on(VERIFY, HostileServer.status(401))
        app = self.start(server)
        self.assertIn("Sign-in failed", self.visit("?error=denied"))
        app.wait_for_line("[LoginWindowController] OAuth callback received without a usable token")
        app.access.wait_for("Google sign-in failed. Please try again.")
        app.access.press("Sign in with Google")
        app.wait_for_line("[LoginWindowController] OAuth callback listener ready, "
                          "opening browser for Google sign-in")
        self.visit("?token=old")
        app.wait_for_line("[AuthService] Token verification failed: invalid or expired token")
        app.access.wait_for("Invalid email or password")

    def test_port_taken_then_email_while_waiting(self):
        server = self.server()
        app = self.app(server)
        app.wait_login_window()
        with socket.create_server(("127.0.0.1", PORT)):
            app.access.press("Sign in with Google")
            app.wait_for_line(re.compile(r"^\[OAuthCallbackListener\] ERROR: Failed to create "
                                         r"listener on port 9877: ."))
            app.access.wait_for("Google sign-in failed. Please try again.")
            self.assertEqual(app.opened(), [])
        app.access.press("Sign in with Google")
        app.wait_for_line("[LoginWindowController] OAuth callback listener ready, "
                          "opening browser for Google sign-in")
        app.access.wait_for("Waiting for your browser…")
        wait_until(app.opened, what="the browser")
        app.access.click("Email")
        app.fill_login()
        self.desktop.press("return")
        app.wait_for_line(RUNNING)
        self.assert_port_is_free()
        self.assertEqual(server.requests(VERIFY), [])

    @staticmethod
    def ask(head):
        """What the listener answers to these bytes."""
        with socket.create_connection(("127.0.0.1", PORT), timeout=15) as connection:
            connection.sendall(head)
            answer = b""
            while block := connection.recv(65536):
                answer += block
        return answer

    def test_crowd_and_foreign_pages_do_not_spoil_the_sign_in(self):
        server = self.server()
        app = self.start(server)
        crowd = []
        for _ in range(800):
            stranger = socket.create_connection(("127.0.0.1", PORT), timeout=10)
            crowd.append(stranger)
            self.addCleanup(stranger.close)
        for headers in (b"Host: evil.example:9877\r\n",
                        b"Host: 127.0.0.1:9877\r\nOrigin: https://evil.example\r\n",
                        b"Host: 127.0.0.1:9877\r\nSec-Fetch-Mode: no-cors\r\n"):
            self.assertIn(b"Sign-in failed", self.ask(
                b"GET /oauth-callback?token=of-an-attacker HTTP/1.1\r\n" + headers + b"\r\n"))
        # The window answers meanwhile.
        app.access.click("Email")
        self.desktop.type_text("typed")
        app.access.wait_for("Cancel")
        self.assertIn("You're signed in", self.visit("?token=mine"))
        app.wait_for_line(RUNNING)
        self.assertEqual([request.header("Authorization") for request in server.requests(VERIFY)],
                         ["Bearer mine"])
        self.assert_port_is_free()
        output = "\n".join(app.raw_lines + app.error_output)
        for secret in ("of-an-attacker", "=mine", "Bearer"):
            self.assertNotIn(secret, output)

    def test_port_is_free_after_cancelling(self):
        app = self.start(self.server())
        app.access.press("Cancel")
        app.wait_for_line("[LoginWindowController] Google sign-in cancelled")
        self.assert_port_is_free()

    def test_other_connections_do_not_block_the_browser(self):
        server = self.server()
        app = self.start(server)
        strangers = [socket.create_connection(("127.0.0.1", PORT)) for _ in range(40)]
        for stranger in strangers:
            self.addCleanup(stranger.close)
        self.assertIn("You're signed in", self.visit("?token=mine"))
        app.wait_for_line(RUNNING)
        self.assertEqual(server.wait_for_request(VERIFY).header("Authorization"), "Bearer mine")
        for stranger in strangers:
            stranger.settimeout(10)
            try:
                self.assertEqual(stranger.recv(100), b"")
            except ConnectionResetError:
                continue
        self.assert_port_is_free()

    def test_cancel_ends_the_attempt_and_the_next_one_works(self):
        server = self.server()
        app = self.start(server)
        app.access.click("Cancel")
        app.wait_for_line("[LoginWindowController] Google sign-in cancelled")
        app.access.wait_for("Sign in with Google")
        app.access.wait_gone("Cancel")
        self.assert_port_is_free()
        app.access.click("Sign in with Google")
        app.wait_for_line("[LoginWindowController] OAuth callback listener ready, "
                          "opening browser for Google sign-in")
        self.visit("?token=second")
        app.wait_for_line(RUNNING)
        self.assertEqual(server.wait_for_request(VERIFY).header("Authorization"), "Bearer second")

    def test_cancel_ends_the_verification(self):
        server = self.server()
        asked, release = threading.Event(), threading.Event()

        def slow(connection, _request):
            asked.set()
            connection.wait_for(release)
        server.on(VERIFY, slow)
        app = self.start(server)
        self.visit("?token=slow")
        self.assertTrue(asked.wait(20))
        app.access.press("Cancel")
        app.wait_for_line("[LoginWindowController] Google sign-in cancelled")
        release.set()
        app.access.wait_for("Sign in with Google")
        app.fill_login()
        self.desktop.press("return")
        app.wait_for_line(RUNNING)

    def test_a_browser_that_fails_to_open_is_reported(self):
        server = self.server()
        app = self.app(server)
        app.wait_login_window()
        app.end_openers_with(4)
        app.access.click("Sign in with Google")
        app.access.wait_for("Could not open the browser: its program failed (xdg-open, status 4)")
        app.access.wait_for("Sign in with Google")
        self.assert_port_is_free()
        app.end_openers_with(0)
        app.access.click("Sign in with Google")
        wait_until(lambda: len(app.opened()) == 2, what="the browser")
        self.visit("?token=mine")
        app.wait_for_line(RUNNING)

    def test_without_an_opener(self):
        app = self.app(self.server(), environment={"PATH": "/nonexistent"})
        app.wait_login_window()
        app.access.click("Sign in with Google")
        app.access.wait_for("Could not open the browser: xdg-open is not installed")
        app.access.wait_for("Sign in with Google")
        self.assert_port_is_free()

    def test_the_window_is_raised_above_the_browser(self):
        for query, shown in (("?error=denied", "Google sign-in failed. Please try again."),
                             ("?token=old", "Invalid email or password")):
            with self.subTest(query=query):
                server = self.server()
                server.on(VERIFY, HostileServer.status(401))
                app = self.start(server)
                browser = self.other_window(title="Browser")
                # The user's last press was in the browser.
                self.desktop.click(5, 5)
                browser.wait_for("press")
                self.visit(query)
                self.desktop.wait_for_active("Quellora")
                app.access.wait_for(shown)
                # In front: a press in the middle of the screen reaches the form.
                before = browser.mark()
                app.access.click("Email")
                app.access.wait_for("Email", focused=True)
                self.assertEqual(browser.events("press", before), [])
                app.close()
                browser.close()

    def test_closing_the_window_while_waiting_quits(self):
        app = self.start(self.server())
        self.desktop.wait_for_active("Quellora")
        self.desktop.close_active_window()
        self.assertEqual(app.wait_exit(), 0)
        app.wait_for_line("[LoginWindowController] Login window closed before sign-in — quitting")
        self.assert_port_is_free()


if __name__ == "__main__":
    unittest.main()
