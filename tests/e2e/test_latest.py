"""Reading while an answer grows: whoever scrolls away stays there; "Latest" brings the end back."""

import threading
import unittest

from harness import HostileServer, SignedInCase, chunk_event, done_event, wait_until
from harness.messages import STREAM_COMPLETE
from harness.server import QUERY

BAR = "Response scroll position"
PIECES = 4


def lines(piece):
    return "\n\n".join(f"piece {piece}, line {number}" for number in range(60)) + "\n\n"


class LatestTest(SignedInCase):
    def setUp(self):
        super().setUp()
        self.app, self.access = self.shared_app, self.shared_app.access
        _, self.x, self.y, self.width, self.height = self.app.panel()
        # Looked up while the page is short, because a search walks all of its nodes.
        self.nodes = {name: self.access.wait_for(name)
                      for name in (BAR, "Write a message", "Scroll up")}
        self.column = self.x + self.width - 14
        self.gates = [threading.Event() for _ in range(PIECES)]
        for gate in self.gates:
            self.addCleanup(gate.set)
        events = [chunk_event(lines(0))]
        for number, gate in enumerate(self.gates[:-1], 1):
            events += [gate, chunk_event(lines(number))]
        self.shared_server.on(QUERY, HostileServer.stream(*events, self.gates[-1], done_event()))
        self.ask("question")
        wait_until(lambda: self.access.is_enabled(self.nodes["Scroll up"]), what="a long answer")
        self.wait_at_end()

    #: Height of the track: response area, less the arrows and their gaps.
    track = 532 - 2 * 30

    def thumb(self):
        """(top, height) of the thumb in the track, in logical pixels."""
        _, y, _, height = self.access.bounds(self.nodes[BAR])
        return y - self.y - 72 - 30, height

    def is_at_end(self):
        top, height = self.thumb()
        return abs(top + height - self.track) <= 1

    def wait_at_end(self):
        wait_until(self.is_at_end, what="the end of the answer")

    def wait_away(self):
        """Waits for the offer of the end, and until scrolling has come to rest."""
        self.access.wait_for("Latest")
        last = [None]

        def rests():
            now = self.thumb()
            equal, last[0] = now == last[0], now
            return equal
        wait_until(rests, what="the thumb to rest", interval=0.15)
        self.assertFalse(self.is_at_end())

    def grow(self):
        """Lets the next piece arrive and waits until the page has it."""
        _, before = self.thumb()
        gate = next(gate for gate in self.gates if not gate.is_set())
        gate.set()
        wait_until(lambda: self.thumb()[1] < before - 5, what="the longer page")

    def scrolled(self):
        """Pixels above what is visible, from the thumb; exact to a few lines."""
        top, height = self.thumb()
        return top / height

    def assert_stays_and_returns(self):
        """The page stays where it is while the answer grows, until Latest is pressed."""
        self.wait_away()
        before = self.scrolled()
        self.grow()
        self.assertFalse(self.is_at_end())
        # A fraction of the visible height: the thumb's place is rounded to a pixel.
        self.assertAlmostEqual(self.scrolled(), before, delta=0.15)
        self.assertIsNotNone(self.access.find("Latest"))
        self.access.click("Latest")
        self.wait_at_end()
        self.access.wait_gone("Latest")
        self.grow()
        self.wait_at_end()
        self.assertIsNone(self.access.find("Latest"))

    def wheel(self, button, count, x=None):
        for _ in range(count):
            self.desktop.click(x or self.column, self.y + 300, button)

    def focus_page(self):
        """Moves the focus from the prompt box into the page with F6."""
        self.app.focus_prompt()
        self.desktop.press("shift+f6")
        self.access.wait_focused("")

    def test_nothing_is_offered_at_the_end(self):
        for _ in range(2):
            self.grow()
            self.wait_at_end()
            self.assertIsNone(self.access.find("Latest"))

    def test_wheel(self):
        self.wheel(4, 8)
        self.assert_stays_and_returns()

    def test_wheel_over_the_answer(self):
        self.access.click("Clicks reach the answer", "check box")
        self.wheel(4, 8, self.x + 200)
        self.assert_stays_and_returns()

    def test_keys_in_the_page(self):
        self.focus_page()
        for _ in range(6):
            self.desktop.press("up")
        self.assert_stays_and_returns()

    def test_page_up_and_home(self):
        self.focus_page()
        self.desktop.press("page_up")
        self.wait_away()
        self.desktop.press("home")
        wait_until(lambda: self.thumb()[0] == 0, what="the top")
        self.assert_stays_and_returns()

    def test_thumb(self):
        top, height = self.thumb()
        grip = self.y + 102 + top + height // 2
        self.desktop.drag(self.column, grip, self.column, grip - 80)
        self.assert_stays_and_returns()

    def test_scroll_arrow(self):
        self.access.press("Scroll up")
        self.assert_stays_and_returns()

    def assert_follows_again(self):
        self.wait_at_end()
        self.access.wait_gone("Latest")
        self.grow()
        self.wait_at_end()

    def test_end_key_follows_again(self):
        self.focus_page()
        self.desktop.press("home")
        self.wait_away()
        self.desktop.press("end")
        self.assert_follows_again()

    def test_page_down_follows_again(self):
        self.focus_page()
        self.desktop.press("page_up")
        self.wait_away()
        self.desktop.press("page_down")
        self.desktop.press("page_down")
        self.assert_follows_again()

    def test_wheel_to_the_end_follows_again(self):
        self.wheel(4, 6)
        self.wait_away()
        self.wheel(5, 12)
        self.assert_follows_again()

    def test_thumb_to_the_end_follows_again(self):
        top, height = self.thumb()
        grip = self.y + 102 + top + height // 2
        self.desktop.drag(self.column, grip, self.column, grip - 80)
        self.wait_away()
        top, height = self.thumb()
        grip = self.y + 102 + top + height // 2
        self.desktop.drag(self.column, grip, self.column, grip + 200)
        self.assert_follows_again()

    def test_offered_after_the_answer_until_its_end_is_seen(self):
        self.wheel(4, 8)
        self.wait_away()
        mark = self.app.mark()
        for gate in self.gates:
            gate.set()
        self.app.wait_for_line(STREAM_COMPLETE, since=mark)
        self.access.wait_for("Copy answer")
        self.wait_away()
        self.access.press("Latest")
        self.wait_at_end()
        self.access.wait_gone("Latest")
        self.wheel(4, 8)
        wait_until(lambda: not self.is_at_end(), what="the page to scroll")
        self.assertIsNone(self.access.find("Latest"))


if __name__ == "__main__":
    unittest.main()
