"""The scrollbar next to the answer: arrows, wheel, keys, dragging, and a growing answer."""

import threading
import unittest

from harness import HostileServer, SignedInCase, chunk_event, done_event, wait_until
from harness.messages import STREAM_COMPLETE
from harness.server import QUERY
from harness.waiting import ALLOWANCE

LINES = "\n\n".join(f"line {number}" for number in range(120))
BAR = "Response scroll position"


class ScrollbarTest(SignedInCase):
    def setUp(self):
        super().setUp()
        self.access = self.shared_app.access
        _, self.x, self.y, self.width, self.height = self.shared_app.panel()
        # Looked up while the page is short, because a search walks all of its nodes.
        self.nodes = {name: self.access.wait_for(name)
                      for name in ("Scroll up", "Scroll down", BAR, "Write a message")}

    def click_on(self, name):
        left, top, width, height = self.access.bounds(self.nodes[name])
        self.desktop.click(left + width // 2, top + height // 2)

    def press(self, name):
        actions = self.nodes[name].get_action_iface()
        offered = [actions.get_action_name(index).lower()
                   for index in range(actions.get_n_actions())]
        actions.do_action(offered.index("press"))

    def wait_enabled(self):
        wait_until(lambda: self.access.is_enabled(self.nodes["Scroll up"]), what="the arrows")

    def thumb(self):
        """(top, height) of the thumb in the track, in logical pixels."""
        _, y, _, height = self.access.bounds(self.nodes[BAR])
        return y - self.y - 72 - 30, height

    #: Height of the track: response area, less the arrows and their gaps.
    track = 532 - 2 * 30

    def wait_thumb(self, condition, what):
        return wait_until(lambda: (lambda place: place if condition(*place) else None)(
            self.thumb()), what=what)

    def at_top(self, top, _height):
        return top == 0

    def at_bottom(self, top, height):
        return abs(top + height - self.track) <= 1

    def show(self, text):
        self.shared_server.on(QUERY, HostileServer.answer_with(text))
        self.ask("question")
        self.wait_answer()

    def show_long(self):
        self.show(LINES)
        self.wait_enabled()
        # The page that replaces the stream starts scrolled to its end.
        self.wait_thumb(self.at_bottom, "the end of the answer")

    def wheel(self, button, count, x=None):
        for _ in range(count):
            self.desktop.click(x or self.x + self.width - 14, self.y + 300, button)

    def focus_bar(self):
        self.click_on("Write a message")
        self.access.wait_focused("Write a message")
        self.nodes[BAR].get_component_iface().grab_focus()
        self.access.wait_focused(BAR)

    def test_arrows_wheel_and_keys(self):
        self.show_long()
        self.focus_bar()
        self.desktop.press("home")
        self.wait_thumb(self.at_top, "the top")
        # Two arrow presses scroll as far as three wheel notches: 2 × 60 = 3 × 40.
        self.click_on("Scroll down")
        self.wait_thumb(lambda top, _: top > 0, "the first step")
        first = self.wait_rest()
        self.click_on("Scroll down")
        self.wait_thumb(lambda top, _: top > first[0], "the second step")
        after_arrows = self.wait_rest()
        self.wheel(4, 3)
        self.wait_thumb(self.at_top, "the top again")
        self.wheel(5, 3)
        self.wait_thumb(lambda top, _: abs(top - after_arrows[0]) <= 1, "the same place")
        self.press("Scroll up")
        self.wait_thumb(lambda top, _: abs(top - first[0]) <= 1, "one step back")
        self.desktop.press("end")
        self.wait_thumb(self.at_bottom, "the end")
        self.desktop.press("page_up")
        self.wait_thumb(lambda top, height: top + height < self.track - 2, "a page up")
        self.desktop.press("page_down")
        self.wait_thumb(self.at_bottom, "the end again")
        self.desktop.press("up")
        self.wait_thumb(lambda top, height: top + height < self.track - 1, "a line up")

    def wait_rest(self):
        last = [None]

        def same():
            now = self.thumb()
            equal, last[0] = now == last[0], now
            return now if equal else None
        return wait_until(same, what="the thumb to rest", interval=0.15)

    def test_dragging_stops_at_the_ends(self):
        self.show_long()
        top, height = self.wait_rest()
        column = self.x + self.width - 14
        self.desktop.drag(column, self.y + 102 + top + height // 2, column, self.y - 60)
        self.wait_thumb(self.at_top, "the upper end")
        self.desktop.drag(column, self.y + 102 + 10, column, self.y + self.height + 40)
        self.wait_thumb(self.at_bottom, "the lower end")
        # A press on the track outside the thumb does nothing.
        self.desktop.click(column, self.y + 104)
        self.press("Scroll up")
        place = self.wait_thumb(lambda top, height: not self.at_bottom(top, height), "a step up")
        self.assertGreater(place[0], self.track // 2)

    def test_very_long_answers_keep_a_thumb_of_28(self):
        self.show("\n\n".join(["x"] * 2500))
        self.wait_thumb(lambda _, height: height == 28, "the shortest thumb")

    def test_short_answers_disable_it(self):
        self.show("short")
        self.access.wait_for_page_text("short")
        for name in ("Scroll up", "Scroll down"):
            self.access.wait_for(name, enabled=False)
        self.wait_thumb(lambda top, height: (top, height) == (0, self.track), "the full track")

    def stream(self):
        """Asks for an answer whose pieces the test releases; returns the events."""
        gates = [threading.Event(), threading.Event()]
        for gate in gates:
            self.addCleanup(gate.set)
        self.shared_server.on(QUERY, HostileServer.stream(
            chunk_event(LINES), gates[0], chunk_event("\n\n" + LINES), gates[1], done_event()))
        self.ask("question")
        self.wait_enabled()
        self.wait_thumb(self.at_bottom, "the end of the first part")
        return gates

    def test_follows_a_growing_answer(self):
        gates = self.stream()
        _, height = self.wait_rest()
        gates[0].set()
        self.wait_thumb(lambda top, now: now < height - 10 and self.at_bottom(top, now),
                        "the end of the longer answer")
        gates[1].set()
        self.wait_answer()

    def take_hold(self, column):
        """Presses the thumb until it follows the pointer; returns (initial top, grab position).

        A growing page may move the thumb away before the press.
        """
        for _ in range(3):
            top, height = self.wait_rest()
            grip = self.y + 102 + top + height // 2
            self.desktop.hold(column, grip)
            self.desktop.move_pointer(column, grip - 20)
            try:
                wait_until(lambda: abs(self.thumb()[0] - (top - 20)) <= 1, what="the thumb to follow",
                           timeout=5 * ALLOWANCE)
                return top, grip
            except AssertionError:
                self.desktop.release()
        self.fail("the thumb never follows the pointer")

    def test_growing_does_not_interrupt_a_drag(self):
        gates = self.stream()
        column = self.x + self.width - 14
        top, grip = self.take_hold(column)
        try:
            self.desktop.move_pointer(column, grip - 100)
            held = self.wait_thumb(lambda now, _: abs(now - (top - 100)) <= 1, "the thumb to follow")
            mark = self.shared_app.mark()
            gates[0].set()
            gates[1].set()
            # The answer is complete, and the thumb is still at the pointer.
            self.shared_app.wait_for_line(STREAM_COMPLETE, since=mark)
            wait_until(lambda: self.shared_app.turns()[self.turns_before:], what="the stored answer")
            self.assertEqual(self.thumb(), held)
            self.desktop.move_pointer(column, grip - 120)
            self.wait_thumb(lambda now, _: abs(now - (top - 120)) <= 1, "the thumb to follow on")
        finally:
            self.desktop.release()

    def test_hiding_the_panel_ends_a_drag(self):
        gates = self.stream()
        column = self.x + self.width - 14
        app = self.shared_app
        _, grip = self.take_hold(column)
        try:
            app.hotkey("ctrl+alt+super+t", "Toggle")
            app.wait_overlay_hidden()
            # Released while the panel is hidden.
            self.desktop.release()
            app.hotkey("ctrl+alt+super+t", "Toggle")
            app.wait_overlay_shown()
        finally:
            self.desktop.release()
        before = self.wait_rest()
        self.desktop.move_pointer(column, grip - 60)
        # The drag has ended: the thumb follows the rest of the answer.
        mark = app.mark()
        gates[0].set()
        gates[1].set()
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        self.wait_thumb(lambda _, height: height < before[1] - 10, "the thumb of the whole answer")
        self.wait_answer()


if __name__ == "__main__":
    unittest.main()
