"""Deleting threads and notes, with ten seconds to undo it."""

import re
import signal
import time
import unittest

from harness import wait_until
from harness.messages import PREFIX
from stored_threads import StoredThreadsCase

TWO_THREADS = r"^2 threads, [\d.]+ (kB|bytes)"
STAMP = "2026-01-02T10:00:00Z"
NOTES = ["first note", "second note"]
DEFAULTS = {"keepAIHistoryEnabled": True, "userPrompt": "", "hasLaunchedBefore": True}


class UndoTest(StoredThreadsCase):
    def start(self, **defaults):
        """A signed-in app with two stored threads."""
        _, self.running = self.app_to_start(DEFAULTS | defaults)
        self.name = self.store("Budget question", "The budget answer.", STAMP, NOTES)
        self.other = self.store("Other question", "Another answer.", "2026-01-01T10:00:00Z")
        self.running.start().sign_in()
        self.access = self.running.access
        return self.running

    def is_stored(self, name):
        return (self.root / name / "session.json").is_file()

    def delete_thread(self, title):
        """Deletes a thread in the open history with the pointer; returns when."""
        x, y, width, height = self.access.settled_bounds(re.compile(f"^{title}, "))
        self.desktop.move_pointer(x + width // 3, y + height // 2)
        self.access.click("Delete thread")
        self.access.wait_for(f'"{title}" will be permanently removed from this computer.')
        self.access.click("Delete")
        self.access.wait_for(f"Deleted “{title}”")
        return time.monotonic()

    def titles(self):
        names = [node.get_name() for node in self.access.find_all(re.compile(r" question, "))]
        return sorted({name.split(",")[0] for name in names})

    def wait_titles(self, *expected):
        wait_until(lambda: self.titles() == sorted(expected), what=f"the rows {expected}")

    def test_a_thread_is_gone_after_ten_seconds(self):
        app = self.start()
        self.open_history(app)
        deleted = self.delete_thread("Budget question")
        self.wait_titles("Other question")
        # Reading the list again shows no more of it, and the search does not either.
        self.desktop.press("escape")
        self.access.wait_gone("Search threads")
        self.assertEqual(self.open_history(app), 1)
        self.desktop.type_text("budget")
        self.access.wait_for("No matching threads")
        self.assertTrue(self.is_stored(self.name))
        app.wait_for_line(PREFIX + f"Session {self.name} deleted")
        self.assertGreater(time.monotonic() - deleted, 8)
        self.assertFalse((self.root / self.name).exists())
        self.assertTrue(self.is_stored(self.other))
        self.access.wait_gone("Undo")

    def test_undo_with_the_pointer(self):
        app = self.start()
        self.open_history(app)
        before = self.description(self.name)
        self.delete_thread("Budget question")
        self.access.click("Undo")
        self.wait_titles("Budget question", "Other question")
        self.assertEqual(self.description(self.name), before)
        app.wait_for_line(PREFIX + "Undo clicked")

    def test_undo_by_keyboard_brings_the_thread_on_show_back(self):
        app = self.start()
        self.open_history(app)
        self.access.press(re.compile("^Budget question, "))
        self.access.wait_for_page_text("The budget answer.")
        self.open_history(app)
        self.desktop.press("down")
        self.desktop.press("delete")
        self.access.wait_for("Cancel", focused=True)
        self.desktop.press("tab")
        self.access.wait_for("Delete", focused=True)
        self.desktop.press("return")
        self.access.wait_for("Deleted “Budget question”")
        wait_until(lambda: "The budget answer." not in self.access.page_text(),
                   what="the empty answer area")
        # The strip offers it as well, once the history is closed.
        self.desktop.press("escape")
        self.access.wait_gone("Search threads")
        app.focus_prompt()
        self.desktop.press("F6")
        self.access.wait_focused("Undo")
        self.desktop.press("return")
        self.access.wait_for_page_text("The budget answer.")
        self.assertTrue(self.is_stored(self.name))

    def test_quitting_ends_the_time_to_undo(self):
        app = self.start()
        self.open_history(app)
        self.delete_thread("Budget question")
        app.process.send_signal(signal.SIGTERM)
        app.wait_exit()
        self.assertFalse((self.root / self.name).exists())
        self.assertTrue(self.is_stored(self.other))

    def test_a_crash_removes_nothing(self):
        app = self.start()
        self.open_history(app)
        before = self.description(self.name)
        self.delete_thread("Budget question")
        app.process.kill()
        app.wait_exit()
        self.assertEqual(self.description(self.name), before)

    def test_signing_out_ends_the_time_to_undo(self):
        app = self.start()
        self.open_history(app)
        self.delete_thread("Budget question")
        self.desktop.press("escape")
        self.access.wait_gone("Search threads")
        self.access.press("Menu")
        self.access.press("Sign Out")
        wait_until(lambda: not (self.root / self.name).exists(), what="the end of the thread")

    def test_a_note_comes_back(self):
        app = self.start()
        self.open_history(app)
        self.access.press(re.compile("^Budget question, "))
        self.access.wait_for_page_text("first note")
        before = self.description(self.name)
        self.press_in_page(app, re.compile("^(×|Delete note)$"))
        self.access.wait_for("Deleted a note")
        wait_until(lambda: "first note" not in self.access.page_text(), what="the note to go")
        self.access.click("Undo")
        self.access.wait_for_page_text("first note")
        self.assertEqual(self.description(self.name)["notes"], before["notes"])
        self.access.wait_gone("Undo")
        # And goes, if it is left alone.
        self.press_in_page(app, re.compile("^(×|Delete note)$"))
        wait_until(lambda: [note["text"] for note in self.description(self.name)["notes"]]
                   == ["second note"], what="the note's end on disk")

    def open_storage(self, app):
        """Opens the settings and scrolls to the space of the stored threads."""
        app.open_settings()
        while not self.access.find(re.compile(r"^\d+ threads?, ")):
            for _ in range(4):
                self.desktop.press("down")

    def test_all_threads(self):
        app = self.start()
        (self.root / "my notes").mkdir()
        self.open_storage(app)
        self.access.wait_for(re.compile(TWO_THREADS + "$"))
        self.access.press("Delete all threads")
        self.access.wait_for("Delete all threads?")
        self.access.wait_for("Cancel", focused=True)
        self.desktop.press("tab")
        self.access.wait_for("Delete", focused=True)
        self.desktop.press("return")
        self.access.wait_for("No saved threads")
        self.access.press("Undo")
        self.access.wait_for(re.compile(TWO_THREADS + "$"))
        self.access.press("Delete all threads")
        self.access.wait_for("Delete all threads?")
        self.access.press("Delete")
        app.wait_for_line(PREFIX + "2 sessions deleted")
        self.assertEqual([entry.name for entry in self.root.iterdir()], ["my notes"])

    def test_threads_are_kept_for_some_days(self):
        app = self.start()
        today = self.store("New question", "A new answer.",
                           time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime()))
        self.open_storage(app)
        self.access.press("Keep threads for 30 days")
        self.access.wait_for(re.compile(TWO_THREADS + r", unchanged for more than 30 days, will be "
                                        r"permanently removed from this computer\. This can't be "
                                        r"undone\.$"))
        self.access.press("Cancel")
        self.assertTrue(self.is_stored(self.name))
        self.access.press("Keep threads for 30 days")
        self.access.wait_for("Delete older threads?")
        self.access.press("Delete")
        app.wait_for_line("[ThreadRetention] 2 old session(s) deleted")
        self.assertEqual([entry.name for entry in self.root.iterdir()], [today])
        self.access.wait_for(re.compile(r"^1 thread, "))
        wait_until(lambda: app.stored_defaults().get("keepThreadsDays") == "30",
                   what="the stored days")

    def test_old_threads_go_at_the_start(self):
        app = self.start(keepThreadsDays="30")
        app.wait_for_line("[ThreadRetention] 2 old session(s) deleted")
        self.assertEqual(list(self.root.iterdir()), [])


if __name__ == "__main__":
    unittest.main()
