"""Menu, history and settings, used through their accessible names."""

import json
import re
import unittest
import uuid

from harness import App, E2ECase, HostileServer, wait_until
from harness.server import QUERY

PREFIX = "[OverlayWindowController] "


class MenuTest(E2ECase):
    def test_links_and_log_lines(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.access.press("Menu")
        app.wait_for_line(PREFIX + "Hamburger button clicked — menu open=true")
        app.access.press("Account")
        app.wait_for_line(PREFIX + "Account link clicked")
        wait_until(lambda: f"{server.url}/account" in app.opened(), what="the account page")
        if app.access.find("Upgrade") is None:
            app.access.press("Menu")
        app.access.press("Upgrade")
        app.wait_for_line(PREFIX + "Usage row Upgrade link clicked")
        wait_until(lambda: f"{server.url}/pricing" in app.opened(), what="the pricing page")


class HistoryTest(E2ECase):
    """Threads on disk before the start, as an earlier run leaves them."""

    def app_with_threads(self, *threads):
        """A signed-in app whose folder holds threads (prompt, response, minutes ago)."""
        server = self.server()
        app = App(self.desktop, server.url)
        self.apps.append(app)
        self.addCleanup(app.close)
        self.addCleanup(self._keep_evidence)
        self.ids = []
        for prompt, response, stamp in threads:
            name = str(uuid.uuid4()).upper()
            self.ids.append(name)
            folder = app.data_home / "Quellora" / "sessions" / name
            folder.mkdir(parents=True)
            (folder / "session.json").write_text(json.dumps({
                "id": name, "createdAt": stamp, "updatedAt": stamp, "notes": [],
                "screenshots": [],
                "turns": [{"id": str(uuid.uuid4()).upper(), "prompt": prompt,
                           "response": response, "createdAt": stamp}]}))
        broken = app.data_home / "Quellora" / "sessions" / str(uuid.uuid4()).upper()
        broken.mkdir()
        (broken / "session.json").write_text("{")
        app.start().sign_in()
        return server, app

    def open_history(self, app):
        mark = app.mark()
        app.access.press("Menu")
        app.access.press("History")
        app.wait_for_line(re.compile(r"^\[OverlayWindowController\] History button clicked — "
                                     r"sidebar open=true.*session\(s\)"), since=mark)
        app.access.wait_for("Search threads")

    def test_open_search_and_continue_a_thread(self):
        server, app = self.app_with_threads(
            ("Older question", "The older answer.", "2026-01-02T10:00:00Z"),
            ("Newer question", "The newer answer.", "2026-01-03T10:00:00Z"))
        self.open_history(app)
        newer = app.access.bounds(app.access.wait_for(re.compile("^Newer question")))
        older = app.access.bounds(app.access.wait_for(re.compile("^Older question")))
        self.assertLess(newer[1], older[1], "the newest thread comes first")
        app.access.click("Search threads")
        self.desktop.type_text("oLDer")
        app.access.wait_gone(re.compile("^Newer question"))
        app.access.press(re.compile("^Older question"))
        app.wait_for_line(PREFIX + f"Session {self.ids[0]} loaded from History "
                          "(0 notes, 1 turns, 0 screenshots)")
        app.access.wait_for_page_text("The older answer.")
        app.access.click("Write a message")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("more\n")
        self.assertEqual(server.wait_for_request(QUERY).json()["prompt"],
                         "Previous conversation:\nUser: Older question\n"
                         "Assistant: The older answer.\n\nCurrent message:\nmore")

    def test_delete_asks_first(self):
        _, app = self.app_with_threads(
            ("Keep me", "answer", "2026-01-02T10:00:00Z"),
            ("Remove me", "answer", "2026-01-03T10:00:00Z"))
        folder = app.data_home / "Quellora" / "sessions" / self.ids[1]
        self.open_history(app)
        x, y, width, height = app.access.settled_bounds(re.compile("^Remove me"))
        self.desktop.move_pointer(x + width // 2, y + height // 2)
        app.access.press("Delete thread")
        app.access.wait_for("Delete this thread?")
        app.access.press("Cancel")
        app.access.wait_gone("Delete this thread?")
        self.assertTrue(folder.exists())
        app.access.press("Delete thread")
        app.access.press("Delete")
        app.wait_for_line(PREFIX + f"Session {self.ids[1]} deleted")
        self.assertFalse(folder.exists())
        app.access.wait_gone(re.compile("^Remove me"))
        app.access.wait_for(re.compile("^Keep me"))

    def test_no_threads(self):
        app = self.app(self.server()).sign_in()
        self.open_history(app)
        app.access.wait_for("No saved threads yet")


class SettingsTest(E2ECase):
    def open_settings(self, app):
        app.access.press("Menu")
        app.access.press("Settings")
        app.access.wait_for("Response text color")

    def test_rebinding_a_hotkey_is_live_and_kept(self):
        server = self.server()
        app = self.app(server).sign_in()
        self.open_settings(app)
        app.access.press("Clear the response area, Ctrl+Option+Cmd+X")
        app.wait_for_line(PREFIX + "Hotkey capture started for Clear the response area")
        self.desktop.press("ctrl+alt+super+c")
        app.access.wait_for("Already used by Capture screen and send to Claude. "
                            "Try a different combo.")
        self.desktop.press("ctrl+alt+m")
        app.wait_for_line(PREFIX + "Hotkey Clear the response area -> ctrl+alt+m, "
                          "persisted + registered live")
        self.assertEqual(app.stored_defaults()["hotkeyBindings"], {"clear": "ctrl+alt+m"})
        app.hotkey("ctrl+alt+m", "Clear")
        mark = app.mark()
        self.desktop.press("ctrl+alt+super+x")
        app.hotkey("ctrl+alt+super+]", "Opacity Up")
        self.assertNotIn("[HotkeyManager] Fired: Clear", app.lines_since(mark))
        self.assertEqual(server.requests(QUERY), [])

    def test_text_colour(self):
        app = self.app(self.server()).sign_in()
        self.open_settings(app)
        app.access.click("Custom text color")
        app.access.wait_for("Custom text color", focused=True)
        self.desktop.press("ctrl+a")
        self.desktop.type_text("#fff\n")
        app.access.wait_for("Enter a valid hex color, e.g. #8899aa")
        self.assertNotIn("responseTextColorHex", app.stored_defaults())
        self.desktop.press("ctrl+a")
        self.desktop.type_text(" 8899AA \n")
        wait_until(lambda: app.stored_defaults().get("responseTextColorHex") == "#8899aa",
                   what="the stored colour")
        app.access.wait_gone("Enter a valid hex color, e.g. #8899aa")

    def test_one_thread_per_send(self):
        server = self.server()
        app = self.app(server).sign_in()
        self.open_settings(app)
        app.access.press("Start a new thread with each Send")
        wait_until(lambda: app.stored_defaults().get("startNewThreadPerSendEnabled") is True,
                   what="the stored switch")
        app.access.click("Custom text color")
        self.desktop.press("escape")
        app.access.wait_gone("Response text color")
        for number in (1, 2):
            app.access.click("Write a message")
            app.access.wait_for("Write a message", focused=True)
            mark = app.mark()
            self.desktop.type_text(f"question {number}\n")
            app.wait_for_line(PREFIX + "Stream complete, buffer cleared", since=mark)
            self.assertEqual(server.wait_for_request(QUERY, number).json()["prompt"],
                             f"question {number}")
        wait_until(lambda: len(app.threads()) == 2, what="two kept threads")

    def test_model_choice_goes_with_the_question(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.access.press("Model")
        app.access.press(re.compile("^Deep"))
        wait_until(lambda: app.stored_defaults().get("selectedModelId") == "deep-1",
                   what="the stored choice")
        app.access.click("Write a message")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("hello\n")
        self.assertEqual(server.wait_for_request(QUERY).json()["model"], "deep-1")
        record = server.wait_for_request("/api/telemetry/query").json()
        self.assertEqual(record["model_used"], "deep-1")


class NoteTest(E2ECase):
    def test_note_is_kept_shown_sent_and_deleted(self):
        server = self.server()
        server.on(QUERY, HostileServer.answer_with("noted"))
        app = self.app(server, defaults={"hasLaunchedBefore": True, "userPrompt": ""}).sign_in()
        app.access.wait_for("Add note", enabled=False)
        app.access.click("Write a message")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("use metric")
        app.access.press("Add note")
        app.wait_for_line(PREFIX + "Note added to current session")
        app.access.wait_for_page_text("use metric")
        wait_until(lambda: app.threads() and app.threads()[0]["notes"], what="the kept note")
        self.assertEqual(app.threads()[0]["notes"][0]["text"], "use metric")
        self.assertEqual(server.requests(QUERY), [])
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "", what="the empty box")
        self.desktop.type_text("how far\n")
        self.assertEqual(server.wait_for_request(QUERY).json()["prompt"],
                         "Notes:\n- use metric\n\nCurrent message:\nhow far")


if __name__ == "__main__":
    unittest.main()
