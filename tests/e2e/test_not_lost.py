"""No data loss: broken answers, used-up credits, full disks."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import threading
import unittest

from harness import E2ECase, HostileServer, chunk_event, done_event, wait_until
from harness.messages import PREFIX
from harness.app import BIN_DIR
from harness.image import png
from harness.server import QUERY, TELEMETRY, VERIFY

SAVE_ERROR = re.compile(r"^\[OverlayWindowController\] ERROR: Failed to save session to disk: .*"
                        r": No space left on device$")
BACK = "Back to thread"


class Case(E2ECase):
    def wait_turns(self, app, *turns):
        wait_until(lambda: app.turns() == list(turns), what=f"the turns {turns} on disk")


class CutOffTest(Case):
    """The partial answer is stored when the session ends."""

    def half_an_answer(self, server):
        left = threading.Event()
        server.on(QUERY, HostileServer.unfinished(left, "half an ", "answer"))
        app = self.app(server).sign_in()
        app.send_prompt("question", replace=True)
        app.access.wait_for_page_text("half an answer")
        self.assertEqual(app.turns(), [])
        return app, left

    def test_termination_requests(self):
        for request in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(request=request):
                app, left = self.half_an_answer(self.server())
                app.process.send_signal(request)
                self.assertEqual(app.wait_exit(), 0)
                self.assertTrue(left.wait(10))
                self.assertEqual(app.turns(), [("question", "half an answer")])
                self.assertEqual(app.stored_defaults()["userPrompt"], "")
                self.assertTrue(app.has_line(
                    PREFIX + "Answer cut off by the end of the session (14 chars kept)"))

    def test_close_button(self):
        app, _ = self.half_an_answer(self.server())
        app.access.press("Close")
        self.assertEqual(app.wait_exit(), 0)
        self.assertEqual(app.turns(), [("question", "half an answer")])

    def test_session_expiry(self):
        server = self.server(heartbeatIntervalSeconds=1)
        app, left = self.half_an_answer(server)
        server.on(VERIFY, HostileServer.status(401))
        app.wait_for_line("[AppDelegate] sessionExpired received — tearing down overlay, "
                          "showing login window")
        self.assertTrue(left.wait(10))
        self.wait_turns(app, ("question", "half an answer"))
        self.assertEqual(server.requests(TELEMETRY), [])


class ErrorPageTest(Case):
    """Error pages lead back to the thread."""

    def test_a_broken_stream_keeps_the_partial_answer(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.send_prompt("first", replace=True)
        app.access.wait_for_page_text("Hello from the server.")
        self.assertIsNone(app.access.find(BACK))
        server.on(QUERY, HostileServer.stream(chunk_event("half an ans")))
        app.send_prompt("second", replace=True)
        shown = app.access.wait_for_page_text("Stream ended unexpectedly")
        self.assertNotIn("half an ans", shown)
        self.wait_turns(app, ("first", "Hello from the server."), ("second", "half an ans"))
        self.assertEqual(app.stored_defaults()["userPrompt"], "second")
        # A click on a control outside the page.
        app.access.click(BACK)
        shown = app.access.wait_for_page_text("half an ans")
        self.assertIn("Hello from the server.", shown)
        self.assertNotIn("Stream ended unexpectedly", shown)
        app.access.wait_gone(BACK)
        self.assertTrue(app.has_line(PREFIX + "Back to thread clicked"))

    def test_back_by_keyboard(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.send_prompt("first", replace=True)
        app.access.wait_for_page_text("Hello from the server.")
        server.on(QUERY, HostileServer.status(500))
        app.send_prompt("second", replace=True)
        app.access.wait_for_page_text("Proxy request failed: HTTP 500")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.press("f6")
        app.access.wait_for(BACK, role="push button", focused=True)
        self.desktop.press("return")
        app.access.wait_for_page_text("Hello from the server.")
        app.access.wait_gone(BACK)

    def test_a_refused_first_question_offers_no_way_back(self):
        server = self.server()
        server.on(QUERY, HostileServer.status(500))
        app = self.app(server).sign_in()
        app.send_prompt("first", replace=True)
        app.access.wait_for_page_text("Proxy request failed: HTTP 500")
        self.assertIsNone(app.access.find(BACK))

    def test_an_error_of_another_thread_keeps_the_answer_shown(self):
        server = self.server()
        gate = threading.Event()
        self.addCleanup(gate.set)
        server.on(QUERY, HostileServer.stream(chunk_event("the other half"), gate))
        app = self.app(server).sign_in()
        app.send_prompt("other", replace=True)
        app.access.wait_for_page_text("the other half")
        app.access.press("New thread")
        app.wait_for_line(PREFIX + "New thread started")
        server.on(QUERY, HostileServer.answer_with("the answer on show"))
        app.send_prompt("mine", replace=True)
        app.access.wait_for_page_text("the answer on show")
        app.access.wait_for("Copy answer")
        mark = app.mark()
        gate.set()
        app.wait_for_line(PREFIX + "ERROR: Stream ended without a done event", since=mark)
        wait_until(lambda: sorted(app.turns()) == [("mine", "the answer on show"),
                                                   ("other", "the other half")],
                   what="both turns on disk")
        self.assertIn("the answer on show", app.access.page_text())
        self.assertFalse(any("loadContent()" in line for line in app.lines_since(mark)))
        self.assertIsNone(app.access.find(BACK))


class CreditsTest(Case):
    """The answer that uses up the credits is stored and reachable with one press."""

    def spends_everything(self, **defaults):
        server = self.server()
        server.on(QUERY, HostileServer.answer_with("worth it", tokensRemaining=-5))
        app = self.app(server, defaults={
            "hasLaunchedBefore": True, "userPrompt": "", "keepAIHistoryEnabled": True} | defaults)
        app.sign_in()
        app.send_prompt("last one", replace=True)
        shown = app.access.wait_for_page_text("Out of Credits")
        self.assertIn("You're out of credits. Upgrade to keep going.", shown)
        self.assertNotIn("worth it", shown)
        self.wait_turns(app, ("last one", "worth it"))
        app.access.click(BACK)
        shown = app.access.wait_for_page_text("worth it")
        self.assertNotIn("Out of Credits", shown)
        app.access.wait_gone(BACK)
        record = server.wait_for_request(TELEMETRY).json()
        self.assertIs(record["over_cap"], True)
        self.assertEqual(record["tokens_remaining_after"], -5)

    def test_one_thread(self):
        self.spends_everything()

    def test_one_thread_per_send(self):
        self.spends_everything(startNewThreadPerSendEnabled=True)

    def test_a_running_answer_is_not_rendered_into_the_page(self):
        server = self.server()
        first, second = threading.Event(), threading.Event()
        self.addCleanup(first.set)
        self.addCleanup(second.set)
        server.on(QUERY, HostileServer.stream(
            chunk_event("short"), first, done_event(tokensRemaining=0)))
        app = self.app(server).sign_in()
        app.send_prompt("one", replace=True)
        app.access.wait_for_page_text("short")
        more = threading.Event()
        self.addCleanup(more.set)
        server.on(QUERY, HostileServer.stream(
            chunk_event("long be"), more, chunk_event("ginning"), second, chunk_event(" and end"),
            done_event(tokensRemaining=0)))
        app.send_prompt("two", replace=True)
        app.access.wait_for_page_text("long be")
        first.set()
        app.access.wait_for_page_text("Out of Credits")
        more.set()
        self.assertNotIn("ginning", app.access.page_text())
        app.access.press(BACK)
        shown = app.access.wait_for_page_text("long beginning")
        self.assertIn("short", shown)
        second.set()
        app.access.wait_for_page_text("long beginning and end")
        self.wait_turns(app, ("one", "short"), ("two", "long beginning and end"))


class PictureTest(Case):
    """Pictures are stored only as long as needed."""

    def with_tool(self, script):
        """An app whose capture tool runs a script; "$last" is the file to write."""
        folder = pathlib.Path(tempfile.mkdtemp(prefix="bin-"))
        self.addCleanup(shutil.rmtree, folder, ignore_errors=True)
        shutil.copy2(BIN_DIR / "quellora", folder / "quellora")
        tool = folder / "quellora-screencapture"
        tool.write_text('#!/bin/sh\nhere=$(dirname "$0")\nfor last; do :; done\n' + script + "\n")
        tool.chmod(0o755)
        os.mkfifo(folder / "never")
        (folder / "small.png").write_bytes(png(320, 200, (200, 100, 50)))
        server = self.server()
        return server, self.app(server, bin_dir=folder).sign_in()

    def test_quitting_during_a_slow_capture(self):
        for leave in (lambda app: app.access.press("Close"),
                      lambda app: app.process.send_signal(signal.SIGTERM)):
            with self.subTest():
                _, app = self.with_tool(
                    'cp "$here/small.png" "$last"; read line < "$here/never"')
                app.access.press("Capture without sending")
                wait_until(lambda app=app: any(name.startswith("vantiro_capture_")
                                               for name in app.temporary_files()),
                           what="the tool's file")
                leave(app)
                self.assertEqual(app.wait_exit(), 0)
                self.assertEqual(app.temporary_files(), [])

    def test_a_removed_picture_leaves_its_thread(self):
        server, app = self.with_tool('cp "$here/small.png" "$last"')
        app.send_prompt("first", replace=True)
        self.wait_turns(app, ("first", "Hello from the server."))
        folder = app.data_home / "Quellora" / "sessions" / app.threads()[0]["id"]

        def pictures():
            return (sorted(path.name for path in folder.glob("*.png")),
                    [shot["index"] for shot in app.threads()[0]["screenshots"]])
        app.access.press("Capture without sending")
        app.access.wait_for("Remove screenshot")
        wait_until(lambda: pictures() == (["screenshot-0.png"], [0]), what="the stored picture")
        app.access.click("Remove screenshot")
        app.access.wait_gone("Remove screenshot")
        wait_until(lambda: pictures() == ([], []), what="the picture to disappear")
        app.access.press("Capture without sending")
        app.access.wait_for("Remove screenshot")
        wait_until(lambda: pictures() == (["screenshot-1.png"], [1]), what="the next picture")
        app.send_prompt("second", replace=True)
        self.assertIn("imageBase64", server.wait_for_request(QUERY, 2).json())
        self.wait_turns(app, ("first", "Hello from the server."),
                        ("second", "Hello from the server."))
        self.assertEqual(pictures(), (["screenshot-1.png"], [1]))
        self.assertEqual(app.temporary_files(), [])


@unittest.skipUnless(os.geteuid() == 0, "mounting a small disk needs root")
class DiskTest(Case):
    """Failed saves and deletions."""

    def small_disk(self, folder, *options):
        """Mounts a file system of 256 KB on a folder for the duration of the test."""
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k,mode=700", "none", folder],
                       check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", str(folder)], check=False)

    @staticmethod
    def fill(path):
        """Fills the file system."""
        try:
            with open(path, "wb", buffering=0) as ballast:
                while ballast.write(b"x" * 4096) == 4096:
                    pass
        except OSError:
            pass

    def app_on_a_small_disk(self):
        server = self.server()
        app = self.app(server)
        self.small_disk(app.data_home)
        return app.sign_in()

    def test_a_full_disk_is_reported_and_a_press_retries(self):
        app = self.app_on_a_small_disk()
        app.send_prompt("first", replace=True)
        self.wait_turns(app, ("first", "Hello from the server."))
        app.access.wait_for("Thread saved")
        ballast = app.data_home / "ballast"
        self.fill(ballast)
        app.send_prompt("second", replace=True)
        app.wait_for_line(SAVE_ERROR)
        node = app.access.wait_for("Not saved", role="push button")
        self.assertIn("No space left on device", node.get_description())
        self.assertEqual(app.turns(), [("first", "Hello from the server.")])
        # Still full: reported again.
        mark = app.mark()
        app.access.click("Not saved", role="push button")
        app.wait_for_line(SAVE_ERROR, since=mark)
        app.access.wait_for("Not saved", role="push button")
        ballast.unlink()
        app.access.click("Not saved", role="push button")
        app.access.wait_for("Thread saved")
        self.assertEqual(app.turns(), [("first", "Hello from the server."),
                                       ("second", "Hello from the server.")])

    def test_a_failed_save_is_retried_at_quit(self):
        app = self.app_on_a_small_disk()
        ballast = app.data_home / "ballast"
        self.fill(ballast)
        app.send_prompt("only in memory", replace=True)
        app.access.wait_for("Not saved", role="push button")
        # Another thread is shown by then.
        app.access.press("New thread")
        app.wait_for_line(PREFIX + "New thread started")
        ballast.unlink()
        app.access.press("Close")
        self.assertEqual(app.wait_exit(), 0)
        self.assertEqual(app.turns(), [("only in memory", "Hello from the server.")])

    def test_a_note_that_cannot_be_deleted_stays(self):
        app = self.app_on_a_small_disk()
        app.focus_prompt()
        self.desktop.type_text("remember this")
        app.access.press("Add note")
        app.access.wait_for_page_text("remember this")
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "", what="the empty box")
        self.desktop.type_text("and this")
        app.access.press("Add note")
        app.access.wait_for_page_text("and this")
        app.access.wait_for("Thread saved")
        ballast = app.data_home / "ballast"
        self.fill(ballast)
        self.press_in_page(app, re.compile("^(×|Delete note)$"))
        app.wait_for_line(SAVE_ERROR)
        app.access.wait_for("Not saved", role="push button")
        app.access.wait_for(re.compile("^The note can't be deleted: No space left"))
        app.access.wait_for_page_text("remember this")
        notes = ["remember this", "and this"]
        self.assertEqual([n["text"] for n in app.threads()[0]["notes"]], notes)
        ballast.unlink()
        self.press_in_page(app, re.compile("^(×|Delete note)$"))
        wait_until(lambda: [n["text"] for n in app.threads()[0]["notes"]] == notes[1:],
                   what="the note to be removed from disk")
        wait_until(lambda: "remember this" not in app.access.page_text(),
                   what="the note to be removed from the page")
        # The page is loaded again, so its text is away for a moment.
        app.access.wait_for_page_text("and this")

    def test_a_thread_that_cannot_be_deleted_stays(self):
        server = self.server()
        app = self.app(server)
        app.sign_in()
        app.send_prompt("keep me", replace=True)
        self.wait_turns(app, ("keep me", "Hello from the server."))
        folder = app.data_home / "Quellora" / "sessions" / app.threads()[0]["id"]
        # A mount point can be written, but not removed.
        subprocess.run(["mount", "--bind", folder, folder], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", str(folder)], check=False)
        app.access.press("Menu")
        app.access.press("History")
        row = re.compile("^keep me, ")
        app.access.wait_for("Search threads", focused=True)
        self.desktop.press("down")
        app.access.wait_for(row, focused=True)
        self.desktop.press("delete")
        app.access.wait_for("Cancel", focused=True)
        app.access.press("Delete")
        app.wait_for_line(re.compile(r"ERROR: Failed to delete session .*resource busy"))
        app.access.wait_for("This thread can't be deleted.")
        app.access.wait_for(row)
        self.desktop.press("escape")
        # It is on show again, too.
        self.assertIn("Hello from the server.", app.access.wait_for_page_text("keep me"))
        # The thread is continued in its folder.
        app.send_prompt("and on", replace=True)
        self.wait_turns(app, ("keep me", "Hello from the server."),
                        ("and on", "Hello from the server."))

    def test_preferences_are_saved_once_the_disk_has_space(self):
        app = self.app(self.server())
        app.sign_in()
        self.small_disk(app.config_home / "Quellora")
        ballast = app.config_home / "Quellora" / "ballast"
        self.fill(ballast)
        app.access.press("Save thread")
        app.wait_for_line(re.compile(r"^\[UserDefaults\] ERROR: Could not write "))
        self.assertNotIn("defaults.json", [path.name for path in ballast.parent.iterdir()])
        ballast.unlink()
        # Nothing else changes, and the program keeps running.
        app.wait_for_line(re.compile(r"^\[UserDefaults\] .* is written again$"))
        self.assertIs(app.stored_defaults()["keepAIHistoryEnabled"], False)
        self.fill(ballast)
        app.access.press("Save thread")
        app.wait_for_line(re.compile(r"^\[UserDefaults\] ERROR: Could not write "))
        ballast.unlink()
        app.access.press("Close")
        self.assertEqual(app.wait_exit(), 0)
        self.assertIs(app.stored_defaults()["keepAIHistoryEnabled"], True)


if __name__ == "__main__":
    unittest.main()
