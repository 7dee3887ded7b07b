"""Loss of the display connection."""

import os
import pathlib
import threading
import unittest

from harness import E2ECase, HostileServer, chunk_event, processes, wait_until
from harness.messages import STREAM_COMPLETE
from harness.server import QUERY


class DisplayGoneTest(E2ECase):
    """One test per file, because the display cannot be restored."""

    def _keep_evidence(self):
        """Disabled: there is no screen."""

    def test_threads_are_stored_and_all_processes_end(self):
        helpers = set(processes.descendants(os.getpid()))
        server = self.server()
        app = self.app(server).sign_in()
        app.send_prompt("question")
        app.wait_for_line(STREAM_COMPLETE)
        # The second answer has not ended yet.
        server.on(QUERY, HostileServer.stream(chunk_event("half an answer"), threading.Event()))
        self.desktop.type_text("more\n")
        app.access.wait_for_page_text("half an answer")
        self.desktop.kill_x_server()
        # A regular failure status: neither a signal nor success.
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
