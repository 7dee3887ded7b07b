"""The History sidebar with threads stored before the program starts."""

import json
import re
import threading
import unittest
import uuid

from harness import App, HostileServer, wait_until
from harness.messages import PREFIX
from harness.server import QUERY
from stored_threads import StoredThreadsCase

DIALOG = "Delete this thread?"
HOTKEYS = {"capture": "ctrl+alt+cmd+c", "clear": "ctrl+alt+cmd+x", "toggle": "ctrl+alt+cmd+t",
           "opacity_up": "ctrl+alt+cmd+]", "opacity_down": "ctrl+alt+cmd+["}


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
        app.send_prompt("more")
        self.assertEqual(server.wait_for_request(QUERY).json()["prompt"],
                         "Previous conversation:\nUser: Older question\n"
                         "Assistant: The older answer.\n\nCurrent message:\nmore")
        # The thread is continued in its folder.
        wait_until(lambda: len(self.description(self.ids[0])["turns"]) == 2,
                   what="the second turn on disk")
        self.open_history(app)
        older = app.access.bounds(app.access.wait_for(re.compile("^Older question, ")))
        newer = app.access.bounds(app.access.wait_for(re.compile("^Newer question, ")))
        self.assertLess(older[1], newer[1], "the thread that was continued comes first")
        app.access.wait_for("Today", role="heading")

    def test_search_looks_into_questions_answers_and_notes(self):
        _, app = self.app_to_start()
        stamp = "2026-01-0{}T10:00:00Z"
        self.store("Plain title", "The Crème brûlée\n\nneeds a torch.", stamp.format(3))
        self.store("Another thread", "Nothing here.", stamp.format(2), notes=["Buy a TORCH"])
        self.store("Third\nwith a torch in its question", "Nothing here.", stamp.format(1))
        damaged = self.store("Damaged", "torch", stamp.format(4))
        (self.root / damaged / "session.json").write_text('{"turns": [{"prompt": "torch"')
        app.start().sign_in()
        self.open_history(app)
        app.access.wait_for("Search threads", focused=True)
        self.desktop.type_text("torch")
        for title, description in (
                ("Plain title", "1 turn, Answer: …brûlée needs a torch."),
                ("Another thread", "1 turn, 1 note, Note: Buy a TORCH"),
                ("Third", "1 turn, Question: Third with a torch in its question")):
            row = app.access.wait_for(re.compile(f"^{title}, "))
            wait_until(lambda: row.get_description() == description,  # pylint: disable=W0640
                       what=f"the hit {description}")
        self.desktop.press("ctrl+a")
        self.desktop.type_text("creme BRULEE NEEDS")
        app.access.wait_gone(re.compile("^Third, "))
        app.access.wait_gone(re.compile("^Another thread, "))
        self.desktop.press("return")
        app.access.wait_for_page_text("needs a torch.")

    def test_rename_and_delete_by_keys(self):
        _, app = self.app_with_threads(
            ("Keep me", "answer", "2026-01-02T10:00:00Z"),
            ("Remove me", "answer", "2026-01-03T10:00:00Z"))
        self.open_history(app)
        # The sidebar has the focus once open.
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
        # A blank title restores the derived one; Escape cancels.
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

    def test_deleting_the_current_thread_during_an_answer(self):
        server, app = self.app_with_threads(
            ("Long talk", "The first answer.", "2026-01-03T10:00:00Z"),
            defaults={"keepAIHistoryEnabled": True, "userPrompt": "", "hasLaunchedBefore": True})
        self.open_history(app)
        app.access.press(re.compile("^Long talk, "))
        app.access.wait_for_page_text("The first answer.")
        left = threading.Event()

        server.on(QUERY, HostileServer.unfinished(left, "half an "))
        app.send_prompt("more")
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
        # A later question starts a new thread, and the deleted one does not reappear.
        server.on(QUERY, HostileServer.answer_with("fresh"))
        app.focus_prompt()
        self.desktop.press("ctrl+a")
        self.desktop.type_text("anew\n")
        app.access.wait_for_page_text("fresh")
        wait_until(lambda: [t["turns"][0]["prompt"] for t in app.threads()] == ["anew"],
                   what="the new thread alone on disk")

    def test_the_first_press_on_a_pencil_edits_the_title(self):
        titles = ("First", "Second", "Third")
        _, app = self.app_with_threads(*((title, "answer", f"2026-01-0{9 - index}T10:00:00Z")
                                         for index, title in enumerate(titles)))
        self.open_history(app)
        for title in titles:
            name = re.compile(f"^{title}, ")
            x, y, width, height = app.access.settled_bounds(name)
            self.desktop.move_pointer(x + width // 3, y + height // 2)
            row = app.access.find(name)
            pencil = wait_until(lambda: next((node for node in app.access.shown(row)  # pylint: disable=W0640
                                              if node.get_name() == "Rename thread"), None),
                                what="the pencil of the row")
            x, y, width, height = app.access.bounds(pencil)
            self.desktop.click(x + width // 2, y + height // 2)
            app.access.wait_for("Thread title", focused=True)
            self.desktop.press("backspace")
            self.desktop.press("escape")
            app.access.wait_for(name, focused=True)
            self.assertIsNone(app.access.find(DIALOG))

    def test_f2_renames_the_row_that_a_screen_reader_focused(self):
        _, app = self.app_with_threads(("Newer", "answer", "2026-01-03T10:00:00Z"),
                                       ("Older", "answer", "2026-01-02T10:00:00Z"))
        self.open_history(app)
        app.access.wait_for("Search threads", focused=True)
        app.access.wait_for(re.compile("^Older, ")).get_component_iface().grab_focus()
        app.access.wait_for(re.compile("^Older, "), focused=True)
        self.desktop.press("f2")
        app.access.wait_for("Thread title", focused=True)
        self.desktop.press("ctrl+a")
        self.desktop.type_text("Plan\n")
        app.wait_for_line(PREFIX + f"Session {self.ids[1]} renamed")

    def test_day_headings_precede_their_rows_in_the_tree(self):
        _, app = self.app_with_threads(("Newer", "answer", "2026-01-03T10:00:00Z"),
                                       ("Older", "answer", "2026-01-02T10:00:00Z"))
        self.open_history(app)
        app.access.wait_for(re.compile("^Older, "))
        rows = app.access.find("Threads", "list")
        names = [node.get_name().split(",")[0] for node in app.access.shown(rows)
                 if node.get_role_name() in ("heading", "list item")]
        self.assertEqual(names, ["3 Jan 2026", "Newer", "2 Jan 2026", "Older"])

    def test_the_question_is_visible_with_a_long_title(self):
        server = self.server()
        for width, height in ((624, 744), (320, 280)):
            app = App(self.desktop, server.url,
                      config={"hotkeys": HOTKEYS, "overlay": {"x": 40, "y": 80, "width": width,
                                                              "height": height,
                                                              "default_opacity": 0.88}})
            self.apps.append(app)
            self.addCleanup(app.close)
            self.addCleanup(self._keep_evidence)
            self.root = app.data_home / "Quellora" / "sessions"
            self.root.mkdir(parents=True)
            name = self.store("prompt", "answer", "2026-01-03T10:00:00Z")
            path = self.root / name / "session.json"
            path.write_text(json.dumps(json.loads(path.read_text())
                                       | {"customTitle": "long title " * 218 + "ab"}))
            app.start().sign_in()
            self.open_history(app)
            app.access.wait_for("Search threads", focused=True)
            self.desktop.press("down")
            app.access.wait_for(re.compile("^long title"), focused=True)
            self.desktop.press("delete")
            app.access.wait_for("Cancel", focused=True)
            _, left, top, width, height = app.panel()
            for button in ("Cancel", "Delete"):
                x, y, w, h = app.access.settled_bounds(button, "push button")
                self.assertGreaterEqual(x, left + 16, button)
                self.assertLessEqual(x + w, left + width - 16, button)
                self.assertLessEqual(y + h, top + height - 16, button)
            x, y, _, _ = app.access.settled_bounds(DIALOG, "label")
            self.assertGreaterEqual(y, top + 34 + 16)
            app.access.click("Cancel")
            app.access.wait_gone(DIALOG)
            app.close()

    def test_invalid_threads_are_ignored(self):
        _, app = self.app_with_threads(("Good one", "answer", "2026-01-03T10:00:00Z"))
        bad = [str(uuid.uuid4()).upper() for _ in range(4)]
        for name in bad:
            (self.root / name).mkdir()
        (self.root / bad[0] / "session.json").write_text("{")
        (self.root / bad[1] / "session.json").write_bytes(bytes(range(256)))
        # The third has no metadata; the fourth refers to a missing image.
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
