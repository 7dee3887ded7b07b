"""Clicks on the answer once they are switched on: text, links, pictures, code, wheel, keyboard."""

import re
import threading
import unittest

import pointer_case
from harness import HostileServer, chunk_event, done_event, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY

CODE = "print('copied')"
ANSWER = f"alphabet\n\nA [link](https://example.com/x)\n\n```python\n{CODE}\n```"
LINES = "\n\n".join(f"line {number}" for number in range(120))
SWITCH = "Clicks reach the answer"
ON, OFF = PREFIX + "Clicks go to the answer", PREFIX + "Clicks go through the answer"


class AnswerClicksTest(pointer_case.PointerCase):
    app_options = {"config": {"hotkeys": {
        "capture": "ctrl+alt+cmd+c", "clear": "ctrl+alt+cmd+x", "toggle": "ctrl+alt+cmd+t",
        "opacity_up": "ctrl+alt+cmd+]", "opacity_down": "ctrl+alt+cmd+[",
        "toggle_clicks": "ctrl+alt+cmd+j"}, "overlay": {
            "x": 40, "y": 80, "width": 624, "height": 744, "default_opacity": 0.88}}}

    def setUp(self):
        super().setUp()
        self.lines = self.app.mark()

    def tearDown(self):
        if self.is_on():
            self.access.press(SWITCH, "check box")
        super().tearDown()

    def is_on(self):
        node = self.access.find(SWITCH, "check box")
        return node is not None and self.access.has_state(node, "CHECKED")

    def show(self, answer=ANSWER):
        self.shared_server.on(QUERY, HostileServer.answer_with(answer, tokensRemaining=150000))
        self.ask("question")
        self.wait_answer()
        self.switch_on()

    def switch_on(self):
        """Switches with the mouse while the document has the keyboard."""
        self.focus_document()
        self.access.settled_bounds(SWITCH, "check box")
        self.access.click(SWITCH, "check box")
        self.app.wait_for_line(ON, since=self.lines)
        wait_until(self.is_on, what="the switch")
        self.presses = self.window.mark()

    def place(self, node):
        x, y, width, height = self.bounds(node)
        return x + width // 2, y + height // 2

    def text_bounds(self, text):
        """Where a text of the page is on the screen."""
        page = self.access.find(re.compile(""), "document web")
        return self.bounds(wait_until(
            lambda: next((node for node in self.access.shown(page)
                          if node.get_child_count() == 0 and self.access.text_of(node) == text),
                         None), what=f"{text!r} in the page"))

    def text(self, text):
        """The centre of a text of the page."""
        x, y, width, height = self.text_bounds(text)
        return x + width // 2, y + height // 2

    def ends(self, text):
        """The left and the right end of a text of the page."""
        x, y, width, height = self.text_bounds(text)
        return (x + 1, y + height // 2), (x + width - 1, y + height // 2)

    def click_on(self, name, role):
        self.desktop.click(*self.place(self.in_page(name, role)))

    def wait_keyboard(self):
        wait_until(lambda: self.desktop.focus_window() == self.app.panel()[0],
                   what="the answer to have the keyboard")

    def assert_document_types(self, letter):
        wait_until(lambda: self.desktop.focus_window() == self.window.window_id,
                   what="the document to have the keyboard again")
        mark = self.window.mark()
        self.desktop.type_text(letter)
        self.window.wait_for("key", ord(letter), since=mark)

    def assert_nothing_went_through(self):
        self.assertEqual(self.window.events("press", since=self.presses), [])

    def assert_pasted(self, text):
        """The clipboard has this text: it is pasted into the prompt box."""
        self.app.focus_prompt()
        self.desktop.press("ctrl+a")
        self.desktop.press("ctrl+v")
        try:
            wait_until(lambda: (self.stored("userPrompt") or "").strip() == text, 10,
                       "the pasted text")
        except AssertionError as error:
            raise AssertionError(f"{error}; it is {self.stored('userPrompt')!r}") from None

    def assert_clicks_pass(self):
        at = self.text("alphabet")
        mark = self.window.mark()

        def passes():
            self.desktop.click(*at)
            return any((event.x, event.y) == at
                       for event in self.window.events("press", since=mark))
        wait_until(passes, what="clicks to pass through", interval=0.1)

    def test_text_is_selected_and_copied(self):
        self.show()
        at = self.text("alphabet")
        self.desktop.click(*at)
        self.wait_keyboard()
        # The second press of a double click selects the word.
        self.desktop.click(*at)
        self.desktop.press("ctrl+c")
        self.desktop.press("escape")
        self.assert_document_types("k")
        self.assert_nothing_went_through()
        self.assert_pasted("alphabet")

    def test_dragging_selects(self):
        self.show()
        # Ends in the middle of the page, behind the link.
        x, y = self.place(self.in_page("^link$", "link"))
        self.desktop.drag(*self.ends("alphabet")[0], x + 100, y)
        self.wait_keyboard()
        self.desktop.press("ctrl+c")
        self.assert_nothing_went_through()
        self.assert_pasted("alphabet\n\nA link")

    def test_a_press_elsewhere_returns_the_keyboard(self):
        self.show()
        _, x, y, width, _ = self.app.panel()
        for place in ((x + 200, y + 53), (x + width - 14, y + 400)):
            self.desktop.click(*self.text("alphabet"))
            self.wait_keyboard()
            self.desktop.click(*place)
            self.assert_document_types("k")
        self.desktop.click(*self.text("alphabet"))
        self.wait_keyboard()
        self.focus_document()
        self.assert_document_types("k")
        # Nothing was typed into the panel.
        self.assertFalse(self.stored("userPrompt"))

    def test_prompt_gets_its_keyboard_back(self):
        self.show()
        self.app.focus_prompt()
        self.desktop.click(*self.text("alphabet"))
        self.access.wait_focused("")
        self.desktop.press("escape")
        self.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("more")
        wait_until(lambda: self.stored("userPrompt") == "more", what="typing after Escape")

    def test_link_and_copy_button(self):
        self.show()
        before = len(self.app.opened())
        self.click_on("^link$", "link")
        wait_until(lambda: "https://example.com/x" in self.app.opened()[before:],
                   what="the link to be opened")
        self.click_on("^Copy code$", "push button")
        self.assert_nothing_went_through()
        self.assert_pasted(CODE)

    def test_dragging_a_link_opens_no_window(self):
        self.show()
        before = len(self.app.opened())
        at = self.place(self.in_page("^link$", "link"))
        windows = set(self.desktop.client_list())
        self.desktop.hold(*at)
        self.desktop.move_pointer(at[0] + 30, at[1] + 60)
        self.desktop.move_pointer(at[0] + 700, at[1] + 60)
        seen = [each for each in self.desktop.viewable_windows("") if each[0] != self.app.panel()[0]]
        self.desktop.release()
        self.assertEqual(set(self.desktop.client_list()), windows)
        self.assertEqual([each for each in seen if each[3:] != seen[0][3:]], [])
        self.assertEqual(self.app.opened()[before:], [])
        # The program still takes presses.
        self.desktop.click(*self.text("alphabet"))
        self.wait_keyboard()

    def test_picture(self):
        self.access.click("Capture without sending")
        self.access.wait_for("Attached screenshot")
        self.show()
        before = len(self.app.opened())
        self.click_on("^Screenshot 1$", "push button")
        wait_until(lambda: [path for path in self.app.opened()[before:] if path.endswith(".jpg")],
                   what="the picture to be opened")
        self.assert_nothing_went_through()

    def test_wheel(self):
        self.show(LINES)
        bar = self.access.wait_for("Response scroll position")
        at = self.bounds(self.access.find(re.compile(""), "document web"))
        before = self.access.settled_bounds("Response scroll position")
        for _ in range(5):
            self.desktop.click(at[0] + 200, at[1] + 200, 4)
        wait_until(lambda: self.access.bounds(bar)[1] < before[1], what="the page to scroll")
        self.assert_nothing_went_through()
        # Turning the wheel takes no keyboard.
        self.assert_document_types("k")

    def test_selecting_holds_a_growing_answer(self):
        gate = threading.Event()
        self.addCleanup(gate.set)
        self.shared_server.on(QUERY, HostileServer.stream(
            chunk_event("alphabet\n\n"), gate, chunk_event(LINES), done_event()))
        self.ask("question")
        self.switch_on()
        (x, y), end = self.ends("alphabet")

        def picture():
            return self.desktop.screenshot(x, y - 6, end[0] - x, 12).rgb
        plain = picture()
        self.desktop.hold(x, y)
        try:
            self.desktop.move_pointer(*end)
            wait_until(lambda: picture() != plain, what="the selection")
            selected = picture()
            gate.set()
            self.app.wait_for_line(STREAM_COMPLETE, since=self.mark)
            self.assertEqual(picture(), selected, "the page moved under the pointer")
        finally:
            self.desktop.release()
        self.access.wait_for("Scroll up", enabled=True)
        self.desktop.press("ctrl+c")
        self.assert_pasted("alphabet")

    def test_hiding_the_panel_switches_it_off(self):
        self.show()
        self.desktop.click(*self.text("alphabet"))
        self.wait_keyboard()
        self.app.hotkey("ctrl+alt+super+t", "Toggle")
        self.app.wait_overlay_hidden()
        self.assert_document_types("k")
        self.app.hotkey("ctrl+alt+super+t", "Toggle")
        self.app.wait_overlay_shown()
        self.assertFalse(self.is_on())
        self.assert_clicks_pass()

    def test_hotkey(self):
        self.show()
        self.app.hotkey("ctrl+alt+super+j", "Toggle Clicks")
        self.app.wait_for_line(OFF, since=self.lines)
        self.assert_clicks_pass()
        self.app.hotkey("ctrl+alt+super+t", "Toggle")
        self.app.wait_overlay_hidden()
        mark = self.app.mark()
        # It shows the panel as well.
        self.app.hotkey("ctrl+alt+super+j", "Toggle Clicks")
        self.app.wait_for_line(ON, since=mark)
        self.app.wait_overlay_shown()
        wait_until(self.is_on, what="the switch")
        self.presses = self.window.mark()
        self.desktop.click(*self.text("alphabet"))
        self.wait_keyboard()
        self.assert_nothing_went_through()

    def test_switching_off_lets_clicks_pass_again(self):
        self.show()
        self.access.click(SWITCH, "check box")
        self.app.wait_for_line(OFF, since=self.lines)
        self.assert_clicks_pass()
        self.assert_document_types("k")


if __name__ == "__main__":
    unittest.main()
