"""Asking the last question again, editing it, and the versions of its answer."""

import shutil
import threading
import unittest

from harness import App, E2ECase, chunk_event, done_event, processes, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY

DEFAULTS = {"keepAIHistoryEnabled": True, "userPrompt": "", "hasLaunchedBefore": True,
            "hotkeyBindings": {"retry": "ctrl+alt+m"}}
FIRST = PREFIX + "First chunk received, hiding loading dots"


class RetryTest(E2ECase):
    def setUp(self):
        self.desktop.fill_root((90, 120, 150))
        self.server_of_app = self.server()
        self.app_of_test = self.app(self.server_of_app, defaults=DEFAULTS).sign_in()
        self.access = self.app_of_test.access

    def answer(self, text):
        self.server_of_app.on(QUERY, self.server_of_app.answer_with(text))

    def complete(self, act):
        """Does something that leads to a whole answer."""
        mark = self.app_of_test.mark()
        act()
        self.app_of_test.wait_for_line(STREAM_COMPLETE, since=mark)
        self.access.wait_gone("Stop")

    def ask(self, question, answer):
        self.answer(answer)
        self.complete(lambda: self.app_of_test.send_prompt(question))
        wait_until(lambda: self.app_of_test.stored_defaults()["userPrompt"] == "",
                   what="the empty box")

    def last_request(self):
        return self.server_of_app.requests(QUERY)[-1].json()

    def wait_stored(self, *versions, shown, prompts=None):
        """Waits until the stored thread's last turn has these answers."""
        def look():
            threads = self.app_of_test.threads()
            if not threads or not threads[-1]["turns"]:
                return False
            turn = threads[-1]["turns"][-1]
            others = list(turn.get("versions", {}).get("others", []))
            position = turn.get("versions", {}).get("shown", 0)
            others.insert(position, turn)
            return ([other["response"] for other in others] == list(versions)
                    and position == shown
                    and prompts in (None, [other["prompt"] for other in others]))
        wait_until(look, what=f"the stored versions {versions}")

    def test_retry_by_button_key_and_command(self):
        app = self.app_of_test
        self.answer("First answer.")
        self.complete(lambda: app.hotkey("ctrl+alt+super+c", "Capture"))
        picture = self.last_request()["imageBase64"]
        self.access.wait_for("Retry")

        # The strip, with the keyboard.
        self.answer("Second answer.")
        app.focus_prompt()
        self.desktop.press("f6")
        self.access.wait_for("Edit question", focused=True)
        self.desktop.press("tab")
        self.access.wait_for("Retry", focused=True)
        self.complete(lambda: self.desktop.press("return"))
        self.access.wait_for_page_text("Second answer.")
        self.assertNotIn("First answer.", self.access.page_text())
        self.assertEqual(self.last_request()["imageBase64"], picture)
        self.assertEqual(self.last_request()["prompt"], "Describe what is on the screen.")
        self.wait_stored("First answer.", "Second answer.", shown=1)

        # The hot key, with the model chosen meanwhile.
        self.answer("Third answer.")
        self.access.press("Model")
        self.access.press("Deep", "list item")
        self.complete(lambda: app.hotkey("ctrl+alt+m", "Retry"))
        self.assertEqual(self.last_request()["model"], "deep-1")
        self.wait_stored("First answer.", "Second answer.", "Third answer.", shown=2)

        # The pages of the strip.
        self.access.wait_for("Version 3 of 3")
        self.access.click("Earlier answer")
        self.access.wait_for("Version 2 of 3")
        self.access.wait_for_page_text("Second answer.")
        self.access.click("Earlier answer")
        self.access.wait_for_page_text("First answer.")
        self.wait_stored("First answer.", "Second answer.", "Third answer.", shown=0)
        # Only the version on show goes along.
        self.ask("next question", "Fine.")
        self.assertIn("First answer.", self.last_request()["prompt"])
        self.assertNotIn("Third answer.", self.last_request()["prompt"])

        # A turn further up has its pages in the page.
        self.press_in_page(app, "Later version")
        self.access.wait_for_page_text("Second answer.")

        # The command.
        self.answer("Fine again.")
        self.complete(lambda: processes.spawn(
            [str(app.bin_dir / "quellora"), "retry"], env=app.environment,
            cwd=app.work).wait(30))
        self.wait_stored("Fine.", "Fine again.", shown=1)

    def test_failed_question(self):
        app = self.app_of_test
        self.server_of_app.on(QUERY, self.server_of_app.status(500))
        app.send_prompt("what is this?")
        self.access.wait_for_page_text("Proxy request failed: HTTP 500")
        self.answer("Here it is.")
        self.complete(lambda: self.access.click("Retry"))
        self.access.wait_for_page_text("Here it is.")
        self.assertEqual(self.last_request()["prompt"], "what is this?")
        self.wait_stored("Here it is.", shown=0)
        wait_until(lambda: app.stored_defaults()["userPrompt"] == "", what="the empty box")

        # A retry that fails half-way keeps both.
        self.server_of_app.on(QUERY, self.server_of_app.stream(chunk_event("Half of")))
        self.access.click("Retry")
        self.access.wait_for_page_text("Stream ended unexpectedly")
        self.wait_stored("Here it is.", "Half of", shown=0)
        self.access.click("Back to thread")
        self.access.wait_for_page_text("Here it is.")
        self.access.wait_for("Version 1 of 2")

    def test_quit_and_start_again_during_a_retry(self):
        app = self.app_of_test
        self.ask("what is this?", "Whole answer.")
        release = threading.Event()
        self.addCleanup(release.set)
        self.server_of_app.on(QUERY, self.server_of_app.stream(
            chunk_event("Cut"), release, done_event()))
        mark = app.mark()
        self.access.click("Retry")
        app.wait_for_line(FIRST, since=mark)
        processes.spawn([str(app.bin_dir / "quellora"), "quit"], env=app.environment,
                        cwd=app.work).wait(30)
        self.assertEqual(app.wait_exit(), 0)
        self.wait_stored("Whole answer.", "Cut", shown=0)

        again = App(self.desktop, self.server_of_app.url, defaults=DEFAULTS)
        self.apps.append(again)
        self.addCleanup(again.close)
        shutil.copytree(app.data_home, again.data_home, dirs_exist_ok=True)
        again.start().sign_in()
        self.app_of_test, self.access = again, again.access
        self.access.press("Menu")
        self.access.press("History")
        self.access.wait_for("Search threads", focused=True)
        self.desktop.press("tab")
        self.desktop.press("return")
        self.access.wait_for_page_text("Whole answer.")
        self.access.click("Later answer")
        self.access.wait_for_page_text("Cut")
        self.wait_stored("Whole answer.", "Cut", shown=1)

    def test_edit_question(self):
        app = self.app_of_test
        self.access.press("Capture without sending")
        self.access.wait_for("Attached screenshot", "image")
        self.ask("waht is this?", "Unclear.")
        picture = self.last_request()["imageBase64"]
        self.desktop.type_text("draft")
        wait_until(lambda: app.stored_defaults()["userPrompt"] == "draft", what="the draft")

        # Escape brings back what was in the box.
        self.access.click("Edit question")
        self.access.wait_for("Editing the last question · with its screenshot")
        self.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("!")
        wait_until(lambda: app.stored_defaults()["userPrompt"] == "waht is this?!",
                   what="the edited question")
        self.desktop.press("escape")
        self.access.wait_gone("Cancel editing")
        wait_until(lambda: app.stored_defaults()["userPrompt"] == "draft", what="the draft")

        self.answer("A lamp.")
        self.access.click("Edit question")
        self.access.wait_for("Cancel editing")
        self.desktop.press("ctrl+a")
        self.desktop.type_text("what is this?")
        self.complete(lambda: self.desktop.press("return"))
        self.access.wait_for_page_text("A lamp.")
        self.assertEqual(self.last_request()["imageBase64"], picture)
        self.assertEqual(self.last_request()["prompt"], "what is this?")
        self.wait_stored("Unclear.", "A lamp.", shown=1,
                         prompts=["waht is this?", "what is this?"])
        wait_until(lambda: app.stored_defaults()["userPrompt"] == "draft", what="the draft")


if __name__ == "__main__":
    unittest.main()
