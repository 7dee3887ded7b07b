"""Keyboard focus while the menu, History or Settings is open: it stays inside, Escape closes."""

import re
import unittest

from harness import wait_until
from harness.server import QUERY
from stored_threads import StoredThreadsCase

STAMP = "2026-01-03T10:00:00Z"


class OpenSheetsTest(StoredThreadsCase):
    def start(self):
        self.server_, self.app_ = self.app_with_threads(("A question", "An answer.", STAMP))
        self.access = self.app_.access
        self.window = self.other_window()
        self.window.wait_focus()

    def focus_document(self):
        _, x, y, width, _ = self.app_.panel()
        mark = self.window.mark()
        self.desktop.click(x + width + 60, y + 100)
        self.window.wait_for("press", 1, since=mark)
        self.window.wait_focus()

    def wait_panel_key(self):
        panel = self.app_.panel()[0]
        wait_until(lambda: self.desktop.focus_window() == panel, what="the focus of the panel")

    def answer_centre(self):
        _, x, y, _, _ = self.app_.panel()
        return x + 200, y + 450

    def open_menu(self):
        self.access.click("Menu")
        self.access.wait_for("Account", "menu item")

    def assert_nothing_sent(self):
        self.assertEqual(self.server_.requests(QUERY), [])
        self.assertFalse(any("Send button clicked" in line for line in self.app_.lines_since(0)))

    def test_menu_keeps_f6_and_escape_closes_it_from_the_answer(self):
        self.start()
        self.app_.focus_prompt()
        self.desktop.type_text("do not send")
        wait_until(lambda: self.app_.stored_defaults().get("userPrompt") == "do not send",
                   what="the stored prompt")
        self.open_menu()
        self.access.wait_for("History", "menu item", focused=True)
        for key in ("f6", "shift+f6", "f6"):
            self.desktop.press(key)
        self.desktop.press("down")
        self.access.wait_for("Settings", "menu item", focused=True)
        # A press on the answer moves the focus there; F6 returns it to the menu.
        self.desktop.click(*self.answer_centre())
        self.access.wait_focused("")
        self.desktop.press("f6")
        wait_until(lambda: self.access.has_state(self.access.find("Settings", "menu item"),
                                                 "FOCUSED"), what="the focus in the menu")
        self.desktop.click(*self.answer_centre())
        self.access.wait_focused("")
        self.desktop.press("escape")
        self.access.wait_gone("Account", "menu item")
        self.app_.focus_prompt()
        self.assert_nothing_sent()

    def test_history_keeps_f6_and_typed_text(self):
        self.start()
        self.app_.focus_prompt()
        self.desktop.type_text("do not send")
        self.open_history(self.app_)
        self.access.wait_for("Search threads", focused=True)
        for key in ("f6", "shift+f6"):
            self.desktop.press(key)
        self.desktop.type_text("zzz\n")
        self.access.wait_for("No matching threads")
        self.access.wait_for("Search threads", focused=True)
        self.desktop.press("escape")
        self.access.wait_gone("Search threads")
        self.assert_nothing_sent()

    def test_a_press_in_history_returns_the_focus(self):
        self.start()
        self.open_history(self.app_)
        self.wait_panel_key()
        self.focus_document()
        _, x, y, _, height = self.app_.panel()
        # In the empty area below the rows.
        self.desktop.click(x + 150, y + height - 100)
        self.wait_panel_key()
        self.desktop.type_text("zzz")
        self.access.wait_for("No matching threads")
        self.desktop.press("escape")
        self.access.wait_gone("Search threads")

    def test_a_rename_interrupted_by_another_program_can_be_repeated(self):
        self.start()
        self.open_history(self.app_)
        self.wait_panel_key()
        self.desktop.press("down")
        self.access.wait_for(re.compile("^A question, "), focused=True)
        self.desktop.press("f2")
        self.access.wait_for("Thread title", focused=True)
        self.focus_document()
        self.access.wait_gone("Thread title")
        _, x, y, _, height = self.app_.panel()
        self.desktop.click(x + 150, y + height - 100)
        self.wait_panel_key()
        self.access.wait_for(re.compile("^A question, "), focused=True)
        self.desktop.press("f2")
        self.access.wait_for("Thread title", focused=True)

    def test_a_press_in_settings_returns_the_focus(self):
        self.start()
        self.open_menu()
        self.access.click("Settings", "menu item")
        self.access.wait_for("Response text color")
        self.wait_panel_key()
        self.focus_document()
        _, x, y, _, _ = self.app_.panel()
        self.desktop.click(x + 200, y + 58)
        self.wait_panel_key()
        self.desktop.press("escape")
        self.access.wait_gone("Response text color")

    def test_escape_closes_the_menu_over_history_first(self):
        self.start()
        self.open_history(self.app_)
        self.access.wait_for("Search threads", focused=True)
        self.open_menu()
        self.desktop.press("escape")
        self.access.wait_gone("Account", "menu item")
        self.access.wait_for("Search threads", focused=True)
        self.desktop.press("escape")
        self.access.wait_gone("Search threads")


if __name__ == "__main__":
    unittest.main()
