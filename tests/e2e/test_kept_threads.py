"""Stored parts of a thread, and the assignment of pictures to questions."""

import re
import threading
import unittest

from harness import HostileServer, chunk_event, done_event, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY
from stored_threads import StoredThreadsCase

STAMP = "2026-01-02T10:00:00Z"
NOTES = ["first note", "second note", "third note"]
PICTURES = [b"\xff\xd8 one", b"\xff\xd8 two"]
RED, GREEN, BLUE, GREY = (220, 20, 20), (20, 200, 20), (20, 20, 220), (120, 120, 120)


def kept(saves=True, **more):
    return {"keepAIHistoryEnabled": saves, "userPrompt": "", "hasLaunchedBefore": True} | more


class KeptThreadsTest(StoredThreadsCase):
    def setUp(self):
        self.desktop.fill_root(GREY)

    def start(self, **defaults):
        """A signed-in app with a stored thread with notes and pictures."""
        self.server_of_app, self.running = self.app_to_start(kept(**defaults))
        self.name = self.store("Stored question", "The stored answer.", STAMP, NOTES, PICTURES)
        self.running.start().sign_in()
        self.access = self.running.access
        return self.running

    def open_thread(self, title):
        self.open_history(self.running)
        self.access.press(re.compile(f"^{title}, "))
        self.access.wait_gone("Search threads")

    def type_prompt(self, text):
        self.running.focus_prompt()
        self.desktop.press("ctrl+a")
        self.desktop.type_text(text)
        wait_until(lambda: self.running.stored_defaults()["userPrompt"] == text,
                   what="the stored prompt")

    def ask(self, text):
        mark = self.running.mark()
        self.type_prompt(text)
        self.desktop.press("return")
        self.running.wait_for_line(STREAM_COMPLETE, since=mark)
        wait_until(lambda: self.running.stored_defaults()["userPrompt"] == "",
                   what="the empty box")

    def add_note(self, text):
        mark = self.running.mark()
        self.type_prompt(text)
        self.access.press("Add note")
        self.running.wait_for_line(PREFIX + "Note added to current session", since=mark)
        self.running.focus_prompt()
        self.desktop.press("ctrl+a")
        self.desktop.press("delete")
        wait_until(lambda: self.running.stored_defaults()["userPrompt"] == "",
                   what="the empty box")

    def switch_saving(self, on):
        self.access.press("Save thread")
        wait_until(lambda: self.running.stored_defaults()["keepAIHistoryEnabled"] is on,
                   what=f"the stored switch to be {on}")

    def focused_bounds(self):
        return [self.access.bounds(node) for node in self.access.shown()
                if self.access.has_state(node, "FOCUSED")]

    def delete_note(self, text):
        """Deletes a note by keyboard."""
        self.access.wait_for_page_text(text)
        _, text_y, _, _ = self.access.settled_bounds(text)
        crosses = self.access.find_all(re.compile("^(×|Delete note)$"))
        wanted = min(crosses, key=lambda cross: abs(self.access.bounds(cross)[1] - text_y))
        self.running.focus_prompt()
        self.desktop.press("F6")
        while not self.access.has_state(wanted, "FOCUSED"):
            before = self.focused_bounds()
            self.desktop.press("tab")
            wait_until(lambda: self.focused_bounds() != before, what="the next Tab stop")
        self.desktop.press("return")
        wait_until(lambda: text not in self.access.page_text(), what=f"{text} to go")

    def content(self, name):
        """(questions, notes, numbers of the pictures) on disk."""
        stored = self.description(name)
        for picture in stored["screenshots"]:
            self.assertTrue((self.root / name / f"screenshot-{picture['index']}.png").is_file())
        return ([turn["prompt"] for turn in stored["turns"]],
                [note["text"] for note in stored["notes"]],
                [picture["index"] for picture in stored["screenshots"]])

    def wait_content(self, name, *expected):
        wait_until(lambda: self.content(name) == expected, what=f"{expected} on disk")

    def test_a_reopened_thread_loses_nothing_with_saving_off(self):
        self.start(saves=False)
        self.open_thread("Stored question")
        self.access.wait_for_page_text("The stored answer.")
        self.delete_note("second note")
        self.wait_content(self.name, ["Stored question"], ["first note", "third note"], [0, 1])
        self.ask("not kept")
        self.add_note("fourth note")
        self.wait_content(self.name, ["Stored question"],
                          ["first note", "third note", "fourth note"], [0, 1])
        for index, picture in enumerate(PICTURES):
            path = self.root / self.name / f"screenshot-{index}.png"
            self.assertEqual(path.read_bytes(), picture)

    def test_a_reopened_thread_loses_nothing_when_saving_is_toggled(self):
        self.start(saves=True)
        self.open_thread("Stored question")
        self.ask("second question")
        self.wait_content(self.name, ["Stored question", "second question"], NOTES, [0, 1])
        self.switch_saving(False)
        self.delete_note("first note")
        self.switch_saving(True)
        self.ask("third question")
        self.wait_content(self.name, ["Stored question", "second question", "third question"],
                          NOTES[1:], [0, 1])

    def test_an_empty_thread_is_not_listed_and_a_staged_picture_is_kept(self):
        app = self.start(saves=False)
        self.access.press("New thread")
        self.switch_saving(True)
        self.switch_saving(False)
        self.assertEqual(self.open_history(app), 1)
        self.desktop.press("escape")
        self.access.wait_gone("Search threads")
        # First a picture, then saving, then the question.
        self.access.press("Capture without sending")
        self.access.wait_for("Attached screenshot")
        self.switch_saving(True)
        self.ask("with a picture")
        self.assertIn("imageBase64", self.server_of_app.requests(QUERY)[-1].json())
        wait_until(lambda: len(app.threads()) == 2, what="the thread on disk")
        name = next(record["id"] for record in app.threads() if record["id"] != self.name)
        self.wait_content(name, ["with a picture"], [], [0])
        self.assertEqual(self.description(name)["turns"][0]["screenshotIndex"], 0)

    def colours_on_the_page(self):
        """Colours of the thumbnails in the panel."""
        _, x, y, width, height = self.running.panel()
        shot = self.desktop.screenshot(x, y, width, height)
        found = shot.colours()
        return {name for name, colour in (("red", RED), ("green", GREEN), ("blue", BLUE))
                if any(all(abs(a - b) < 40 for a, b in zip(colour, pixel)) for pixel in found)}

    def wait_for_blue_alone(self):
        self.access.wait_for_page_text("The last answer.")
        wait_until(lambda: self.colours_on_the_page() == {"blue"}, what="the one thumbnail")

    def test_thumbnails_belong_to_their_questions(self):
        app = self.start(saves=True)
        server = self.server_of_app
        # One staged and removed.
        self.desktop.fill_root(RED)
        self.access.press("Capture without sending")
        self.access.wait_for("Attached screenshot")
        self.access.press("Remove screenshot")
        self.access.wait_gone("Attached screenshot")
        self.ask("without red")
        # One whose question failed.
        self.desktop.fill_root(GREEN)
        server.on(QUERY, HostileServer.status(500))
        self.type_prompt("failed")
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(PREFIX + "ERROR: Proxy HTTP 500")
        server.on(QUERY, HostileServer.answer_with("An answer."))
        self.ask("without green")
        # One staged during another answer.
        gate = threading.Event()
        self.addCleanup(gate.set)

        def slow(connection, _request):
            connection.begin_stream()
            connection.send(chunk_event("half an "))
            connection.wait_for(gate)
            connection.send(chunk_event("answer.") + done_event())
        server.on(QUERY, slow)
        mark = app.mark()
        self.type_prompt("without blue")
        self.desktop.press("return")
        self.access.wait_for_page_text("half an")
        self.desktop.fill_root(BLUE)
        self.access.press("Capture without sending")
        self.access.wait_for("Attached screenshot")
        self.desktop.fill_root(GREY)
        gate.set()
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        server.on(QUERY, HostileServer.answer_with("The last answer."))
        self.ask("with blue")

        name = next(record["id"] for record in app.threads() if record["id"] != self.name)
        asked = ["without red", "without green", "without blue", "with blue"]
        wait_until(lambda: self.content(name)[0] == asked, what="the questions on disk")
        links = [turn["screenshotIndex"] for turn in self.description(name)["turns"]]
        self.assertEqual(links[:3], [None, None, None])
        blue = max(self.content(name)[2])
        self.assertEqual(links[3], blue)
        self.wait_for_blue_alone()

        mark = app.mark()
        self.access.press("New thread")
        app.wait_for_line(PREFIX + "New thread started", since=mark)
        self.open_thread("without red")
        self.wait_for_blue_alone()

    def test_one_thread_per_send_keeps_showing_the_thread(self):
        app = self.start(saves=True, startNewThreadPerSendEnabled=True)
        self.server_of_app.on(QUERY, HostileServer.answer_with("The first answer."))
        self.ask("first question")
        self.access.wait_for_page_text("The first answer.")
        # The strip shows its title, its answer can be copied, and notes are added to it.
        self.access.wait_for("first question")
        self.access.press("Copy answer")
        self.running.focus_prompt()
        self.desktop.press("ctrl+v")
        wait_until(lambda: app.stored_defaults()["userPrompt"] == "The first answer.",
                   what="the copied answer in the box")
        self.add_note("a note")
        name = next(record["id"] for record in app.threads() if record["id"] != self.name)
        self.wait_content(name, ["first question"], ["a note"], [])
        self.delete_note("a note")
        self.wait_content(name, ["first question"], [], [])
        # A picture staged now is sent with the next question, in a new thread.
        self.access.press("Capture without sending")
        self.access.wait_for("Attached screenshot")
        self.server_of_app.on(QUERY, HostileServer.answer_with("The second answer."))
        self.ask("second question")
        body = self.server_of_app.requests(QUERY)[-1].json()
        self.assertEqual(body["prompt"], "second question")
        self.assertIn("imageBase64", body)
        wait_until(lambda: len(app.threads()) == 3, what="the second thread on disk")
        second = next(record["id"] for record in app.threads()
                      if record["id"] not in (self.name, name))
        self.wait_content(second, ["second question"], [], [0])
        self.wait_content(name, ["first question"], [], [])
        self.assertEqual([path.name for path in (self.root / name).iterdir()], ["session.json"])


if __name__ == "__main__":
    unittest.main()
