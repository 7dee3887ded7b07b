"""The whole journey without eyes, mouse and keyboard: over accessibility alone."""

import re
import threading
import unittest
from unittest import mock

from harness import (App, E2ECase, HostileServer, TEST_EMAIL, TEST_PASSWORD, chunk_event, done_event,
                     wait_until)
from harness.announcements import Announcements
from harness.server import QUERY

BUTTON, ITEM, SWITCH = "push button", "list item", "check box"
FIRST = "The export filters on local time. The rows are "
SECOND = "stored in **UTC**, e.g. as `created`.\n\n```python\nstart = 1\nend = 2\n```\n"
THIRD = "\n- Convert the [boundary](https://example.com/a/b) once\n- Compare"


class HearingTest(E2ECase):
    def setUp(self):
        self.desktop.fill_root((90, 120, 150))
        self.backend = self.server()
        self.program = App(self.desktop, self.backend.url, defaults={"userPrompt": ""})
        self.apps.append(self.program)
        self.addCleanup(self.program.close)
        self.addCleanup(self._keep_evidence)
        self.program.start()
        self.access = self.program.access
        # Neither keys nor the pointer.
        for name in ("_fake", "move_pointer"):
            forbidden = mock.patch.object(self.desktop, name, side_effect=AssertionError(name))
            forbidden.start()
            self.addCleanup(forbidden.stop)
        self.access.wait_for("Email")
        self.announcements = Announcements(self.access)
        self.addCleanup(self.announcements.close)

    def fill(self, name, text):
        """Writes a text into a field."""
        node = self.access.wait_for(name)
        self.assertTrue(node.get_editable_text_iface().set_text_contents(text))

    def mark(self):
        return len(self.announcements.heard)

    def hear(self, text, since=0):
        self.announcements.wait_for(text, since)

    def sign_in(self):
        self.fill("Email", TEST_EMAIL)
        self.fill("Password", TEST_PASSWORD)
        self.access.wait_for("Sign in", BUTTON, enabled=True)
        self.access.press("Sign in", BUTTON)
        self.access.wait_for("Write a message")

    def ask(self, text):
        self.fill("Write a message", text)
        self.access.wait_for("Send", BUTTON, enabled=True)
        self.access.press("Send", BUTTON)

    def menu(self, name):
        self.access.press("Menu")
        self.access.wait_for(name, "menu item")
        self.access.press(name, "menu item")

    def test_whole_journey(self):
        self.sign_in()
        self.access.press("Got it", BUTTON)
        self.access.wait_gone("Got it")
        self.access.press("Save thread", SWITCH)
        for step in (self.hear_an_answer, self.hear_a_stop, self.hear_an_attachment,
                     self.write_a_note, self.copy_and_switch, self.open_history, self.change_settings,
                     self.hear_an_error, self.sign_out):
            with self.subTest(step.__name__):
                step()

    def hear_an_answer(self):
        gates = [threading.Event() for _ in range(3)]
        for gate in gates:
            self.addCleanup(gate.set)
        self.backend.on(QUERY, HostileServer.stream(
            chunk_event(FIRST), gates[0], chunk_event(SECOND), gates[1], chunk_event(THIRD), gates[2],
            done_event()))
        mark = self.mark()
        self.ask("Why does the export skip rows?")
        # A sentence is heard as soon as it is complete, and no sooner.
        self.hear("The export filters on local time.", mark)
        self.assertNotIn("The rows are", " ".join(self.announcements.texts(mark)))
        gates[0].set()
        self.hear("The rows are stored in UTC, e.g. as created. Code block, python, 2 lines.", mark)
        gates[1].set()
        self.hear("Convert the boundary once", mark)
        gates[2].set()
        self.hear("Compare", mark)
        self.hear("Answer complete", mark)
        self.access.wait_for("Copy answer", BUTTON)
        said = " ".join(self.announcements.texts(mark))
        for mark_of_source in ("*", "`", "start = 1", "example.com"):
            self.assertNotIn(mark_of_source, said)
        # One per 400 ms. They are recorded somewhat later than they are sent.
        times = [moment for moment, _ in self.announcements.heard[mark:]]
        self.assertLessEqual((len(times) - 1) * 0.4, times[-1] - times[0] + 0.4)

    def hear_a_stop(self):
        gate = threading.Event()
        self.addCleanup(gate.set)
        self.backend.on(QUERY, HostileServer.stream(chunk_event("Half an answer"), gate))
        mark = self.mark()
        self.ask("And now?")
        self.hear("Answering…", mark)
        self.access.press("Stop", BUTTON)
        self.hear("Stopped", mark)
        gate.set()

    def hear_an_attachment(self):
        mark = self.mark()
        self.access.press("Capture without sending")
        self.hear("Screenshot attached", mark)
        self.access.press("Remove screenshot")
        self.access.wait_gone("Remove screenshot")

    def write_a_note(self):
        self.fill("Write a message", "check the regions")
        self.access.wait_for("Add note", enabled=True)
        self.access.press("Add note")
        self.access.wait_for_page_text("check the regions")

    def copy_and_switch(self):
        mark = self.mark()
        self.access.press("Copy answer", BUTTON)
        self.hear("Copied", mark)
        self.access.press("Clicks reach the answer", SWITCH)
        self.hear("Clicks: answer", mark)
        self.access.press("Clicks reach the answer", SWITCH)
        self.hear("Clicks: through", mark)

    def open_history(self):
        self.access.press("New thread")
        self.access.wait_gone("Copy answer")
        self.menu("History")
        row = re.compile("^(Why does the export skip rows|check the regions)")
        self.access.wait_for(row, ITEM)
        self.access.press(row, ITEM)
        self.access.wait_for_page_text("Convert the boundary once")
        if self.access.find("Search threads"):
            self.access.press("Close")
            self.access.wait_gone("Search threads")

    def change_settings(self):
        name = "Start a new thread with each Send"
        self.menu("Settings")
        self.access.wait_for(name, SWITCH)
        self.access.press(name, SWITCH)
        wait_until(lambda: self.program.stored_defaults().get("startNewThreadPerSendEnabled"),
                   what="the stored switch")
        self.access.find("Settings", "panel")
        self.close_sheet(name)

    def close_sheet(self, sign):
        """Presses the Close of the sheet, which is not that of the window."""
        close = [node for node in self.access.find_all("Close", BUTTON)][-1]
        actions = close.get_action_iface()
        names = [actions.get_action_name(index).lower() for index in range(actions.get_n_actions())]
        actions.do_action(names.index("press"))
        self.access.wait_gone(sign)

    def hear_an_error(self):
        self.backend.on(QUERY, HostileServer.status(500, b"{}"))
        mark = self.mark()
        self.ask("once more")
        self.hear("500", mark)

    def sign_out(self):
        self.menu("Sign Out")
        self.access.wait_for("Email")


if __name__ == "__main__":
    unittest.main()
