"""The History sidebar over threads on disk, as earlier runs and other programs leave them."""

import json
import re
import threading
import unittest
import uuid

from harness import HostileServer, wait_until
from harness.server import QUERY, chunk_event
from stored_threads import StoredThreadsCase

PREFIX = "[OverlayWindowController] "
DIALOG = "Delete this thread?"


class HistoryTest(StoredThreadsCase):
    def test_search_open_and_continue_a_thread(self):
        server, app = self.app_with_threads(
            ("Older question", "The older answer.", "2026-01-02T10:00:00Z"),
            ("Newer question", "The newer answer.", "2026-01-03T10:00:00Z"),
            defaults={"keepAIHistoryEnabled": True, "userPrompt": "", "hasLaunchedBefore": True})
        self.open_history(app)
        newer = app.access.bounds(app.access.wait_for(re.compile("^Newer question, ")))
        older = app.access.bounds(app.access.wait_for(re.compile("^Older question, ")))
        self.assertLess(newer[1], older[1], "the newest thread comes first")
        app.access.wait_for("3 Jan 2026", role="heading")
        app.access.click("Search threads")
        app.access.wait_for("Search threads", focused=True)
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
        # The thread grows where it lay.
        wait_until(lambda: len(self.description(self.ids[0])["turns"]) == 2,
                   what="the second turn on disk")
        self.open_history(app)
        older = app.access.bounds(app.access.wait_for(re.compile("^Older question, ")))
        newer = app.access.bounds(app.access.wait_for(re.compile("^Newer question, ")))
        self.assertLess(older[1], newer[1], "the thread that was continued comes first")
        app.access.wait_for("Today", role="heading")

    def test_rename_and_delete_by_keys(self):
        _, app = self.app_with_threads(
            ("Keep me", "answer", "2026-01-02T10:00:00Z"),
            ("Remove me", "answer", "2026-01-03T10:00:00Z"))
        self.open_history(app)
        # The sidebar has the keyboard as soon as it is open.
        app.access.wait_for("Search threads", focused=True)
        self.desktop.press("down")
        app.access.wait_for(re.compile("^Remove me, "), focused=True)
        self.desktop.press("down")
        app.access.wait_for(re.compile("^Keep me, "), focused=True)
        self.desktop.press("F2")
        app.access.wait_for("Thread title", focused=True)
        self.desktop.press("ctrl+a")
        self.desktop.type_text("Plan\n")
        app.wait_for_line(PREFIX + f"Session {self.ids[0]} renamed")
        app.access.wait_for(re.compile("^Plan, "), focused=True)
        stored = self.description(self.ids[0])
        self.assertEqual(stored["customTitle"], "Plan")
        self.assertEqual(stored["updatedAt"], "2026-01-02T10:00:00Z")
        # Blanks bring the derived title back; Escape leaves the title alone.
        self.desktop.press("F2")
        app.access.wait_for("Thread title", focused=True)
        self.desktop.press("ctrl+a")
        self.desktop.type_text("  \n")
        app.access.wait_for(re.compile("^Keep me, "), focused=True)
        wait_until(lambda: "customTitle" not in self.description(self.ids[0]),
                   what="no title of its own")
        self.desktop.press("F2")
        app.access.wait_for("Thread title", focused=True)
        self.desktop.type_text("x")
        self.desktop.press("escape")
        app.access.wait_for(re.compile("^Keep me, "), focused=True)

        self.desktop.press("up")
        app.access.wait_for(re.compile("^Remove me, "), focused=True)
        self.desktop.press("delete")
        app.access.wait_for(DIALOG)
        app.access.wait_for("Cancel", focused=True)
        self.desktop.press("return")
        app.access.wait_gone(DIALOG)
        self.assertTrue((self.root / self.ids[1]).exists())
        self.desktop.press("delete")
        app.access.wait_for("Cancel", focused=True)
        self.desktop.press("tab")
        app.access.wait_for("Delete", focused=True)
        self.desktop.press("return")
        app.wait_for_line(PREFIX + f"Session {self.ids[1]} deleted")
        self.assertFalse((self.root / self.ids[1]).exists())
        app.access.wait_gone(re.compile("^Remove me"))
        app.access.wait_for(re.compile("^Keep me, "), focused=True)
        mark = app.mark()
        self.desktop.press("escape")
        app.wait_for_line(PREFIX + "History button clicked — sidebar open=false, 1 session(s)",
                          since=mark)
        app.access.wait_gone("Search threads")

    def test_deleting_the_thread_on_show_in_mid_answer(self):
        server, app = self.app_with_threads(
            ("Long talk", "The first answer.", "2026-01-03T10:00:00Z"),
            defaults={"keepAIHistoryEnabled": True, "userPrompt": "", "hasLaunchedBefore": True})
        self.open_history(app)
        app.access.press(re.compile("^Long talk, "))
        app.access.wait_for_page_text("The first answer.")
        left = threading.Event()

        def half_an_answer(connection, _request):
            connection.begin_stream()
            connection.send(chunk_event("half an "))
            if connection.wait_closed():
                left.set()
        server.on(QUERY, half_an_answer)
        app.access.click("Write a message")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("more\n")
        app.access.wait_for_page_text("half an")
        self.open_history(app)
        x, y, width, height = app.access.settled_bounds(re.compile("^Long talk, "))
        self.desktop.move_pointer(x + width // 3, y + height // 2)
        app.access.press("Delete thread")
        app.access.wait_for(DIALOG)
        app.access.press("Delete")
        app.wait_for_line(PREFIX + "Content cleared")
        app.wait_for_line(PREFIX + f"Session {self.ids[0]} deleted")
        self.assertTrue(left.wait(10), "the answer was not given up")
        app.access.wait_for("No saved threads yet")
        self.desktop.press("escape")
        # A later question begins a thread of its own, and the deleted one stays away.
        server.on(QUERY, HostileServer.answer_with("fresh"))
        app.access.click("Write a message")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.press("ctrl+a")
        self.desktop.type_text("anew\n")
        app.access.wait_for_page_text("fresh")
        wait_until(lambda: [t["turns"][0]["prompt"] for t in app.threads()] == ["anew"],
                   what="the new thread alone on disk")

    def test_what_is_not_a_thread_is_left_out(self):
        _, app = self.app_with_threads(("Good one", "answer", "2026-01-03T10:00:00Z"))
        bad = [str(uuid.uuid4()).upper() for _ in range(4)]
        for name in bad:
            (self.root / name).mkdir()
        (self.root / bad[0] / "session.json").write_text("{")
        (self.root / bad[1] / "session.json").write_bytes(bytes(range(256)))
        # No description at all in the third; the fourth names an image that is not there.
        stamp = "2026-01-03T10:00:00Z"
        (self.root / bad[3] / "session.json").write_text(json.dumps({
            "id": bad[3], "createdAt": stamp, "updatedAt": stamp, "notes": [], "turns": [],
            "screenshots": [{"index": 0, "capturedAt": stamp}]}))
        (self.root / "notes").mkdir()
        (self.root / ".hidden").write_text("x")
        mark = app.mark()
        self.assertEqual(self.open_history(app), 1)
        left_out = [line for line in app.lines_since(mark) if "left out of History" in line]
        self.assertEqual(len(left_out), 4)
        for name in bad:
            self.assertEqual(sum(name in line for line in left_out), 1)
        app.access.wait_for(re.compile("^Good one, "))


if __name__ == "__main__":
    unittest.main()
