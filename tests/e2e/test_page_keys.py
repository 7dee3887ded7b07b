"""Keyboard and accessibility support of the response page."""

import re
import unittest

from harness import HostileServer, SignedInCase, wait_until
from harness.server import QUERY

LONG = "a prompt of many words that goes on for line after line " * 12
BUTTON = "push button"
OPEN_SCREENSHOT = re.compile(r"/screenshot-0\.jpg$")


class PageKeysTest(SignedInCase):
    def make_thread(self):
        """A thread with a note, a picture and a prompt that is clamped."""
        self.desktop.fill_root((90, 120, 150))
        access = self.shared_app.access
        self.shared_app.focus_prompt()
        self.desktop.type_text("a note")
        access.press("Add note")
        access.wait_for("Delete note", BUTTON)
        access.press("Capture without sending")
        access.wait_for("Attached screenshot", "image")
        self.shared_server.on(QUERY, HostileServer.answer_with("a [link](https://example.com/x)"))
        self.ask(LONG)
        self.wait_answer()
        return access.wait_for("Screenshot 1", BUTTON)

    def focused_in_page(self):
        access = self.shared_app.access
        page = access.find(re.compile(""), "document web")
        return next((node for node in access.shown(page) if access.has_state(node, "FOCUSED")), None)

    def focused_height(self):
        node = wait_until(self.focused_in_page, what="the focus in the page")
        component = node.get_component_iface()
        return component.get_extents(self.shared_app.access.api[0].CoordType.SCREEN).height \
            if component else 0

    def tab_to(self, name):
        """Presses Tab until the control with this name in the page has the focus."""
        access = self.shared_app.access
        for _ in range(4):
            before = wait_until(self.focused_in_page, what="the focus in the page")
            if name in (access.text_of(before), (before.get_name() or "")[:len(name)]):
                return before
            self.desktop.press("tab")
            wait_until(lambda last=before: self.focused_in_page() not in (None, last),
                       what="the next control of the page")
        raise AssertionError(f"Tab does not reach {name!r}")

    def test_keyboard_reaches_and_opens_everything(self):
        self.make_thread()
        app, access = self.shared_app, self.shared_app.access
        access.wait_for("Write a message", focused=True)
        self.desktop.press("shift+f6")
        access.wait_focused("")
        self.tab_to("Delete note")
        self.tab_to("Screenshot 1")
        self.desktop.press("return")
        wait_until(lambda: [path for path in app.opened() if OPEN_SCREENSHOT.search(path)],
                   what="the picture to be opened")
        self.tab_to("a prompt of many words")
        closed = wait_until(self.focused_height, what="the prompt's height")
        self.desktop.press("return")
        wait_until(lambda: self.focused_height() > closed * 1.5, what="the whole prompt")
        self.desktop.press("space")
        wait_until(lambda: self.focused_height() == closed, what="the clamped prompt")
        self.tab_to("link")
        self.desktop.press("return")
        wait_until(lambda: "https://example.com/x" in app.opened(), what="the link to be opened")

    def test_screen_reader_focuses_and_presses(self):
        self.make_thread()
        app, access = self.shared_app, self.shared_app.access
        before = len(app.opened())
        self.desktop.press("shift+f6")
        access.wait_focused("")
        access.focus("Screenshot 1", BUTTON)
        self.desktop.press("return")
        wait_until(lambda: any(OPEN_SCREENSHOT.search(path) for path in app.opened()[before:]),
                   what="the picture to be opened")
        access.focus("Delete note", BUTTON)
        self.desktop.press("return")
        access.wait_gone("Delete note")
        wait_until(lambda: not app.threads()[-1]["notes"], what="the note to be removed from disk")


if __name__ == "__main__":
    unittest.main()
