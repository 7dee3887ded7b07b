"""Pointer operation of the bottom panels: every control, and click-through."""

import contextlib
import threading
import unittest

import pointer_case
from Xlib import X, Xatom
from Xlib import display as xdisplay
from Xlib import error
from Xlib.protocol import event
from harness import HostileServer, chunk_event, done_event, wait_until
from harness.messages import PREFIX
from harness.server import QUERY


class SelectionOwner:
    """Another program that owns the CLIPBOARD or PRIMARY selection."""

    def __init__(self, desktop, selection, text):
        self._text = text.encode()
        self._display = xdisplay.Display(desktop.name)
        self._window = self._display.screen().root.create_window(0, 0, 1, 1, 0, X.CopyFromParent)
        self._window.set_selection_owner(self._display.intern_atom(selection), X.CurrentTime)
        self._display.sync()
        threading.Thread(target=self._run, name="selection", daemon=True).start()

    def _run(self):
        with contextlib.suppress(error.ConnectionClosedError):  # the desktop has ended
            self._serve()

    def _serve(self):
        targets = self._display.intern_atom("TARGETS")
        utf8 = self._display.intern_atom("UTF8_STRING")
        while True:
            asked = self._display.next_event()
            if asked.type == X.SelectionClear:
                return
            if asked.type != X.SelectionRequest:
                continue
            answered = asked.property
            if asked.target == targets:
                asked.requestor.change_property(asked.property, Xatom.ATOM, 32, [targets, utf8])
            elif asked.target == utf8:
                asked.requestor.change_property(asked.property, utf8, 8, self._text)
            else:
                answered = X.NONE
            asked.requestor.send_event(event.SelectionNotify(
                time=asked.time, requestor=asked.requestor, selection=asked.selection,
                target=asked.target, property=answered))
            self._display.flush()


class MouseTest(pointer_case.PointerCase):
    def test_long_pasted_text_is_shown_below_the_field(self):
        text = "many words " * 10000
        access = self.access
        for selection in ("PRIMARY", "CLIPBOARD"):
            SelectionOwner(self.desktop, selection, text)
            self.type_prompt("Why?")
            if selection == "PRIMARY":
                access.click("Write a message", button=2)
            else:
                self.desktop.press("ctrl+v")
            access.wait_for("Pasted text · 110,000 characters")
            self.assertIn(text, self.stored("userPrompt"))
            if selection == "PRIMARY":
                access.click("Remove pasted text")
                access.wait_gone("Remove pasted text")
                wait_until(lambda: len(self.stored("userPrompt")) < 10, what="the short prompt")
                self.empty_prompt()
        self.desktop.press("return")
        self.assertEqual(self.request()["prompt"], "Why?\n" + text)
        wait_until(lambda: self.stored("userPrompt") == "", what="the emptied box")
        access.wait_gone("Remove pasted text")

    def test_buttons_work_without_taking_the_focus(self):
        mark = self.window.mark()
        self.access.click("Save thread")
        wait_until(lambda: self.stored("keepAIHistoryEnabled") is False, what="the choice")
        self.access.click("Save thread")
        wait_until(lambda: self.stored("keepAIHistoryEnabled") is True, what="the choice")
        self.access.click("Capture without sending")
        self.access.wait_for("Attached screenshot")
        self.access.wait_for("Screenshot attached")
        self.access.click("Capture and send")
        # The new picture is sent, the staged one dropped.
        self.assertIn("image", " ".join(self.request()))
        self.access.wait_gone("Attached screenshot")
        self.access.wait_for("Copy answer")
        self.access.click("Copy answer")
        self.access.click("Model", "combo box")
        self.access.click("Model 2", "list item")
        wait_until(lambda: self.stored("selectedModelId") == "m2", what="the stored choice")
        self.access.wait_gone("Model", "list")
        self.access.click("Usage 85%")
        self.access.wait_for("Account")
        self.access.click("Menu")
        self.access.wait_gone("Account")
        self.assertEqual(self.desktop.focus_window(), self.window.window_id)
        self.assertEqual([event for event in self.window.events(since=mark)
                          if event.kind in ("focus-in", "focus-out", "press")], [])
        self.assertEqual(len(self.shared_server.requests(QUERY)), self.before + 1)

    def test_staged_screenshot_is_sent_only_once(self):
        self.access.click("Capture without sending")
        self.access.wait_for("1280 × 960 · goes with your next message")
        self.type_prompt("first")
        self.access.click("Send")
        self.assertIn("image", " ".join(self.request()))
        self.access.wait_gone("Attached screenshot")
        wait_until(lambda: self.stored("userPrompt") == "", what="the empty box")
        self.before += 1
        self.type_prompt("second")
        self.access.click("Send")
        self.assertNotIn("image", " ".join(self.request()))

    def test_removed_screenshot_is_not_sent(self):
        self.access.click("Capture without sending")
        self.access.click("Remove screenshot")
        self.access.wait_gone("Attached screenshot")
        self.type_prompt("without")
        self.access.click("Send")
        self.assertNotIn("image", " ".join(self.request()))

    def test_note_and_stop(self):
        gate = threading.Event()
        self.addCleanup(gate.set)
        self.shared_server.on(QUERY, HostileServer.stream(
            chunk_event("partial"), gate, done_event(tokensRemaining=150000)))
        self.type_prompt("remember this")
        self.access.click("Add note")
        wait_until(lambda: self.stored("userPrompt") == "", what="the empty box")
        self.type_prompt("question")
        self.access.click("Send")
        self.assertEqual(self.request()["prompt"],
                         "Notes:\n- remember this\n\nCurrent message:\nquestion")
        self.access.wait_for_page_text("partial")
        self.access.click("Stop")
        self.access.wait_gone("Stop")
        wait_until(lambda: self.shared_app.turns()[self.turns_before:]
                   == [("question", "partial")], what="the stored part")

    def test_disabled_buttons_ignore_clicks(self):
        mark = self.shared_app.mark()
        self.access.click("Send")
        self.access.click("Add note")
        self.access.click("New thread")
        self.shared_app.wait_for_line(PREFIX + "New thread started", since=mark)
        self.assertEqual([line for line in self.shared_app.lines_since(mark)
                          if "Note added" in line or "Send button" in line], [])
        self.assertEqual(len(self.shared_server.requests(QUERY)), self.before)

    def test_click_through_follows_the_height_of_the_panels(self):
        self.assert_border(140)
        self.access.click("Capture without sending")
        self.access.wait_for("Attached screenshot")
        self.assert_border(204)
        self.access.click("Model", "combo box")
        self.access.wait_for("Model", "list")
        self.assert_border(204 + 3 * 36 + 8 + 8)
        self.access.click("Model", "combo box")
        self.access.wait_gone("Model", "list")
        self.access.click("Remove screenshot")
        self.access.wait_gone("Attached screenshot")
        self.assert_border(140)
        self.shared_app.focus_prompt()
        for lines, height in ((4, 180), (7, 200)):
            for _ in range(lines - 1):
                self.desktop.press("shift+return")
            wait_until(lambda: (self.stored("userPrompt") or "").count("\n") >= 3,
                       what="the lines")
            self.assert_border(height)
            self.shared_app.focus_prompt()
        self.empty_prompt()
        self.assert_border(140)


if __name__ == "__main__":
    unittest.main()
