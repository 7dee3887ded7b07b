"""The menu, the model list and notes, used through their accessible names."""

import re
import threading
import unittest

from harness import E2ECase, HostileServer, wait_until
from harness.messages import PREFIX
from harness.server import QUERY, chunk_event


class MenuTest(E2ECase):
    def test_links_and_log_lines(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.access.press("Menu")
        app.wait_for_line(PREFIX + "Hamburger button clicked — menu open=true")
        app.access.press("Account")
        app.wait_for_line(PREFIX + "Account link clicked")
        wait_until(lambda: f"{server.url}/account" in app.opened(), what="the account page")
        # The row has closed the menu, which fades out.
        app.access.wait_gone("Upgrade")
        app.access.press("Menu")
        app.access.press("Upgrade")
        app.wait_for_line(PREFIX + "Usage row Upgrade link clicked")
        wait_until(lambda: f"{server.url}/pricing" in app.opened(), what="the pricing page")

    def test_a_page_that_fails_to_open_is_reported_next_to_stop(self):
        server = self.server()
        release = threading.Event()
        self.addCleanup(release.set)

        def endless(connection, _request):
            connection.begin_stream()
            connection.send(chunk_event("Once upon a time"))
            connection.wait_for(release)
        server.on(QUERY, endless)
        app = self.app(server).sign_in()
        app.send_prompt("go on")
        app.access.wait_for_page_text("Once upon a time")
        app.end_openers_with(3)
        app.access.click("Menu")
        app.access.click("Account")
        app.access.wait_for("Could not open the browser: there is no program for it "
                            "(xdg-open, status 3)", role="notification")
        app.wait_for_line("[Workspace] ERROR: Could not open the browser: there is no program "
                          "for it (xdg-open, status 3)")
        app.access.click("Stop")
        app.access.wait_gone("Stop")
        # It disappears by itself.
        app.access.wait_gone(re.compile("^Could not open"))

    def test_a_missing_opener_is_reported(self):
        app = self.app(self.server(), environment={"PATH": "/nonexistent"}).sign_in()
        app.access.click("Menu")
        app.access.click("Upgrade")
        app.access.wait_for("Could not open the browser: xdg-open is not installed")

    def test_sign_out_is_the_last_row(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.focus_prompt()
        app.access.click("Menu")
        app.access.wait_for("History", focused=True)
        self.desktop.press("end")
        app.access.wait_for("Sign Out", focused=True)
        self.desktop.press("home")
        app.access.wait_for("History", focused=True)
        app.access.click("Sign Out")
        app.wait_for_line(PREFIX + "Sign Out clicked")
        app.wait_for_line("[AuthService] Session cleared from memory")
        app.wait_for_line("[AppDelegate] sessionExpired received — tearing down overlay, "
                          "showing login window")
        self.desktop.wait_for_active("Quellora")
        app.access.wait_for("Email", focused=True)
        self.assertEqual(len(self.desktop.viewable_windows("Quellora")), 1)
        app.fill_login()
        self.desktop.press("return")
        app.wait_overlay_shown()
        app.access.wait_for("Menu")


class ModelTest(E2ECase):
    def test_chosen_model_is_sent_with_the_question(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.access.press("Model")
        app.access.press(re.compile("^Deep"))
        wait_until(lambda: app.stored_defaults().get("selectedModelId") == "deep-1",
                   what="the stored choice")
        app.send_prompt("hello")
        self.assertEqual(server.wait_for_request(QUERY).json()["model"], "deep-1")
        record = server.wait_for_request("/api/telemetry/query").json()
        self.assertEqual(record["model_used"], "deep-1")


class NoteTest(E2ECase):
    def test_note_is_kept_shown_sent_and_deleted(self):
        server = self.server()
        server.on(QUERY, HostileServer.answer_with("noted"))
        app = self.app(server, defaults={"hasLaunchedBefore": True, "userPrompt": ""}).sign_in()
        app.access.wait_for("Add note", enabled=False)
        app.focus_prompt()
        self.desktop.type_text("use metric")
        app.access.press("Add note")
        app.wait_for_line(PREFIX + "Note added to current session")
        app.access.wait_for_page_text("use metric")
        wait_until(lambda: app.threads() and app.threads()[0]["notes"], what="the stored note")
        self.assertEqual(app.threads()[0]["notes"][0]["text"], "use metric")
        self.assertEqual(server.requests(QUERY), [])
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "", what="the empty box")
        self.desktop.type_text("how far\n")
        self.assertEqual(server.wait_for_request(QUERY).json()["prompt"],
                         "Notes:\n- use metric\n\nCurrent message:\nhow far")
        app.access.wait_for_page_text("noted")
        app.access.wait_for("Copy answer")
        mark = app.mark()
        self.press_in_page(app, re.compile("^(×|Delete note)$"))
        app.wait_for_line(PREFIX + "renderThread() — 0 notes, 1 turns", since=mark)
        # Only the note of this thread was stored.
        wait_until(lambda: not app.threads(), what="the note to be removed from disk")
        shown = app.access.wait_for_page_text("noted")
        wait_until(lambda: "use metric" not in app.access.page_text(),
                   what="the note to be removed from the page")
        self.assertIn("how far", shown)
        app.send_prompt("and now")
        self.assertEqual(server.wait_for_request(QUERY, 2).json()["prompt"],
                         "Previous conversation:\nUser: how far\nAssistant: noted\n\n"
                         "Current message:\nand now")


if __name__ == "__main__":
    unittest.main()
