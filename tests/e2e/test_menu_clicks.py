"""Clicks on the answer while the menu is open: they work, and the menu stays open."""

import unittest

import pointer_case
from harness import HostileServer, wait_until
from harness.server import QUERY

LONG = "many words that go on for line after line " * 16
CODE = "wide = '" + "0123456789" * 20 + "'"
# The lines between the two leave the code below the menu.
ANSWER = ("A [link](https://example.com/x)\n\nand\n\nsome\n\nmore\n\nof\n\nthe\n\nlines and code:\n\n"
          f"```python\n{CODE}\n```")


class MenuClicksTest(pointer_case.PointerCase):
    def setUp(self):
        super().setUp()
        self.shared_server.on(QUERY, HostileServer.answer_with(ANSWER, tokensRemaining=150000))
        self.access.click("Capture without sending")
        self.access.wait_for("Attached screenshot")
        self.ask(LONG)
        self.wait_answer()
        wait_until(lambda: self.stored("userPrompt") == "", what="the empty box")
        # Last, so that it is below the menu.
        self.type_prompt("a note")
        self.access.click("Add note")
        self.access.wait_for_page_text("a note")
        self.access.wait_for("Copy code", "push button")
        self.focus_document()
        self.access.click("Menu")
        self.access.wait_for("Account", "menu item")
        self.presses = self.window.mark()
        self.lines = self.app.mark()

    def tearDown(self):
        if self.access.find("Account", "menu item"):
            self.access.click("Menu")
            self.access.wait_gone("Account")

    def place(self, node):
        """The centre of a page node, which must not be covered by the menu."""
        x, y, width, height = self.bounds(node)
        left, top, card_width, card_height = self.access.bounds(
            self.access.find("Menu", "popup menu"))
        at = x + width // 2, y + height // 2
        self.assertFalse(left <= at[0] < left + card_width and top <= at[1] < top + card_height,
                         "the menu covers it")
        return at

    def thumbnail(self):
        return self.access.find("Screenshot 1", "push button") or self.in_page("", "image")

    def click_on(self, name, role):
        self.desktop.click(*self.place(self.in_page(name, role)))

    def assert_menu_stayed(self):
        """Only the page received the press, neither the menu nor the other program."""
        self.assertIsNotNone(self.access.find("Account", "menu item"))
        self.assertEqual([line for line in self.app.lines_since(self.lines) if "menu open" in line],
                         [])
        self.assertEqual(self.window.events("press", since=self.presses), [])

    def test_thumbnail(self):
        before = len(self.app.opened())
        self.desktop.click(*self.place(self.thumbnail()))
        wait_until(lambda: [path for path in self.app.opened()[before:] if path.endswith(".jpg")],
                   what="the picture to be opened")
        self.assert_menu_stayed()

    def test_link(self):
        before = len(self.app.opened())
        self.click_on("^link$", "link")
        wait_until(lambda: "https://example.com/x" in self.app.opened()[before:],
                   what="the link to be opened")
        self.assert_menu_stayed()

    def test_clamped_text(self):
        link = self.in_page("^link$", "link")
        thumbnail = self.thumbnail()
        closed = self.access.bounds(link)[1]
        left, top, width, _ = self.bounds(thumbnail)
        at = left + width + 60, top + 8
        self.desktop.click(*at)
        # The content below moves, down in the page or up on the screen.
        wait_until(lambda: self.access.bounds(link)[1] != closed, what="the whole text")
        self.assert_menu_stayed()
        self.desktop.click(*at)
        wait_until(lambda: self.access.bounds(link)[1] == closed, what="the clamped text")
        self.assert_menu_stayed()

    def test_copy_code(self):
        self.click_on("^Copy code$", "push button")
        self.assert_menu_stayed()
        self.access.click("Menu")
        self.access.wait_gone("Account")
        self.shared_app.focus_prompt()
        self.desktop.press("ctrl+a")
        self.desktop.press("ctrl+v")
        wait_until(lambda: (self.stored("userPrompt") or "").strip() == CODE,
                   what="the pasted code")

    def test_note_deletion(self):
        thread = self.app.threads()[-1]["id"]

        def notes():
            return [each["notes"] for each in self.app.threads() if each["id"] == thread][0]
        wait_until(notes, what="the stored note")
        self.click_on("^(Delete note|×)$", "push button")
        wait_until(lambda: not notes(), what="the note to be removed from disk")
        self.assert_menu_stayed()

    def test_sideways_scrolling(self):
        x, y, width, _ = self.bounds(self.in_page("^Copy code$", "push button"))
        right = x + width
        # The line of code and its scrollbar.
        area = right - 450, y + 14, 300, 20
        bar = right - 435, y + 51

        def picture():
            return self.desktop.screenshot(*area).rgb
        wait_until(lambda: picture() == picture(), what="a page at rest")
        before = picture()
        self.desktop.drag(*bar, bar[0] + 150, bar[1])
        wait_until(lambda: picture() != before, what="the code to move")
        self.assert_menu_stayed()
        self.desktop.drag(bar[0] + 150, bar[1], bar[0] - 100, bar[1])
        wait_until(lambda: picture() == before, what="the code to move back")
        self.assert_menu_stayed()

    def test_a_press_outside_the_answer_closes_the_menu(self):
        _, x, y, width, height = self.app.panel()
        for place in ((x + 200, y + 53), (x + width - 14, y + 400), (x + 300, y + height - 100)):
            self.desktop.click(*place)
            self.access.wait_gone("Account")
            self.access.click("Menu")
            self.access.wait_for("Account", "menu item")
        self.assertEqual(self.window.events("press", since=self.presses), [])


if __name__ == "__main__":
    unittest.main()
