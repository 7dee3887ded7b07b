"""The main journey from sign-in to the next question, on every kind of desktop.

`scripts/test-desktops` runs it on KWin, GNOME and X11 as well.
"""

import re
import threading
import unittest

from desktop_case import KIND, DesktopCase
from harness import HostileServer, chunk_event, done_event, wait_until
from harness.messages import STREAM_COMPLETE
from harness.server import QUERY

GONE_FOR_FRAMES = re.compile(r"^\[ScreenSource\] The panel was gone for \d+ frames? \(\d+ ms")


class JourneyTest(DesktopCase):
    def test_capture_answer_next_question_and_back(self):
        server = self.server()
        released = threading.Event()
        server.on(QUERY, HostileServer.stream(
            chunk_event("# The quarters\n\nFirst part. " + "Some words. " * 60), released,
            chunk_event("\n\nSecond part."), done_event()))
        app = self.app(server).sign_in()
        other = self.other()
        self.desktop.move_pointer(self.desktop.width - 8, self.desktop.height - 8)
        wait_until(lambda: self.is_panel_shown(app), what="the panel above the other program")
        mark = other.mark()
        self.desktop.press("k")
        other.wait_for("key k", since=mark)
        before = self.desktop.screenshot()

        logged = app.mark()
        self.trigger_capture(app)
        self.assert_shows_only_other(self.captured(server))
        self.assertTrue(self.is_panel_shown(app), "the panel did not come back")
        if KIND == "sway":
            app.wait_for_line(GONE_FOR_FRAMES, since=logged)

        # The first part is on the screen while the answer still runs.
        app.access.wait_for_page_text("First part.")
        _, x, y, width, _ = app.panel()
        scale = self.desktop.scale
        area = [int(value * scale) for value in (x + 16, y + 90, width - 60, 120)]
        self.desktop.wait_for_picture(
            lambda now: now.differing_pixels(before, *area, tolerance=60) > 300,
            "the answer on the screen")
        self.assertFalse(app.has_line(STREAM_COMPLETE))
        released.set()
        app.wait_for_line(STREAM_COMPLETE)
        app.access.wait_for_page_text("Second part.")
        # The other program never noticed.
        self.assertNotIn("active 0", other.events(since=mark))

        # The next question: a real click into the prompt and real keys.
        server.on(QUERY, HostileServer.answer_with("Yellow."))
        mark = other.mark()
        app.send_prompt("Which colour is it?")
        request = server.wait_for_request(QUERY, 2)
        self.assertTrue(request.json()["prompt"].endswith("Which colour is it?"))
        self.assertEqual(other.events("key", since=mark), [])
        app.access.wait_for_page_text("Yellow.")

        self.focus_other(app, other)
        self.assertTrue(self.is_panel_shown(app), "the click hid the panel")


if __name__ == "__main__":
    unittest.main()
