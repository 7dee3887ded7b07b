"""The display goes away under the running program."""

import os
import pathlib
import threading
import unittest

from harness import E2ECase, HostileServer, chunk_event, processes, wait_until
from harness.server import QUERY


class DisplayGoneTest(E2ECase):
    """One test per file: the display does not come back."""

    def _keep_evidence(self):
        """There is no screen to take a picture of."""

    def test_threads_are_stored_and_nothing_stays(self):
        helpers = set(processes.descendants(os.getpid()))
        server = self.server()
        app = self.app(server).sign_in()
        app.access.click("Write a message")
        app.access.wait_for("Write a message", focused=True)
        self.desktop.type_text("question\n")
        app.wait_for_line("[OverlayWindowController] Stream complete, buffer cleared")
        # The second answer has not ended yet.
        server.on(QUERY, HostileServer.stream(chunk_event("half an answer"), threading.Event()))
        self.desktop.type_text("more\n")
        app.access.wait_for_page_text("half an answer")
        self.desktop.kill_x_server()
        # An orderly failure: neither a signal nor success.
        self.assertEqual(app.wait_exit(), 1, app.describe("ended"))
        self.assertEqual(app.turns(), [("question", "Hello from the server."),
                                       ("more", "half an answer")])
        self.assertEqual(app.temporary_files(), [])

        def ours():
            processes.reap()
            return {pid: name for pid, name in processes.descendants(os.getpid()).items()
                    if pid not in helpers and not name.startswith(("at-spi", "dbus"))}
        wait_until(lambda: not ours(), timeout=10, what=f"the end of {ours()}")
        self.assertEqual(list(pathlib.Path(app.work).glob("core*")), [])


if __name__ == "__main__":
    unittest.main()
