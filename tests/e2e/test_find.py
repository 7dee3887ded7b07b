"""Finding text in the thread on show, with real keys."""

import re
import threading
import unittest

from harness import HostileServer, wait_until
from harness.server import QUERY
from stored_threads import StoredThreadsCase

LINES = "\n\n".join(["A line of text."] * 60)


class FindTest(StoredThreadsCase):
    def start(self, response):
        server, self.app = self.app_with_threads(
            ("Where is the needle?", response, "2026-01-02T10:00:00Z"),
            defaults={"keepAIHistoryEnabled": True, "userPrompt": "", "hasLaunchedBefore": True})
        self.open_history(self.app)
        self.app.access.press(re.compile("^Where is the needle[?], "))
        self.app.access.wait_for_page_text("A line of text.")
        self.app.focus_prompt()
        return server

    def test_find_step_and_close(self):
        self.start("A Néedle.\n\n" + LINES + "\n\nThe **nee**dle.")
        access = self.app.access
        self.desktop.press("ctrl+f")
        access.wait_for("Find in thread", focused=True)
        self.desktop.type_text("NEEDLE")
        # The thread is shown from its end, where the search starts.
        access.wait_for("3 of 3")
        for keys, count in (("return", "1 of 3"), ("return", "2 of 3"), ("shift+return", "1 of 3"),
                            ("shift+return", "3 of 3")):
            self.desktop.press(keys)
            access.wait_for(count)
        access.press("Next match")
        access.wait_for("1 of 3")
        self.desktop.type_text("x")
        access.wait_for("No matches")
        self.desktop.press("escape")
        access.wait_gone("Find in thread")
        access.wait_for("Write a message", focused=True)
        self.desktop.type_text("typed")
        wait_until(lambda: self.app.access.text_of(access.find("Write a message")) == "typed",
                   what="the letters in the prompt box")
        # The text searched last is there again; it is searched and selected.
        self.desktop.press("ctrl+f")
        access.wait_for("No matches")
        self.desktop.type_text("line")
        access.wait_for(re.compile("^[0-9]+ of 60$"))

    def test_find_from_the_page_and_back(self):
        self.start("One needle. " + LINES)
        access = self.app.access
        access.wait_for("Write a message", focused=True)
        self.desktop.press("shift+f6")
        access.wait_focused("")
        self.desktop.press("ctrl+f")
        access.wait_for("Find in thread", focused=True)
        self.desktop.type_text("needle")
        access.wait_for(re.compile("^[12] of 2$"))
        self.desktop.press("escape")
        access.wait_gone("Find in thread")
        access.wait_focused("")

    def test_hit_of_history_is_shown(self):
        self.start("First needle.\n\n" + LINES + "\n\nAnother needle.\n\n" + LINES)
        access = self.app.access
        access.press("Menu")
        access.press("History")
        access.wait_for("Search threads", focused=True)
        self.desktop.type_text("another nee")
        access.press(re.compile("^Where is the needle[?], "))
        # The only one; the page shows the thread's end without it.
        access.wait_for("1 of 1")
        access.wait_for("Find in thread")
        access.press("Close find")
        access.wait_gone("Find in thread")

    def test_streaming_answer_is_counted(self):
        server = self.start(LINES)
        access = self.app.access
        left = threading.Event()
        server.on(QUERY, HostileServer.unfinished(left, "a needle and a needle "))
        self.app.send_prompt("more")
        access.wait_for_page_text("a needle and a needle")
        self.desktop.press("ctrl+f")
        self.desktop.type_text("needle")
        access.wait_for(re.compile("^[0-9] of 3$"))
        access.press("Stop")
        access.wait_for(re.compile("^[0-9] of 3$"))
        self.assertTrue(left.wait(10))


if __name__ == "__main__":
    unittest.main()
