"""Loss of the compositor."""

import os
import threading
import unittest

from desktop_case import KIND, DesktopCase
from harness import HostileServer, chunk_event, processes, wait_until
from harness.messages import STREAM_COMPLETE
from harness.server import QUERY


@unittest.skipIf(KIND not in ("sway", "kwin"), "there, an X server ends (e2e_display_gone)")
class CompositorGoneTest(DesktopCase):
    """One test per file, because the desktop cannot be restored."""

    def _keep_evidence(self):
        """Disabled: there is no screen."""

    def test_threads_are_stored_and_all_processes_end(self):
        server = self.server()
        app = self.app(server).sign_in()
        app.send_prompt("question")
        app.wait_for_line(STREAM_COMPLETE)
        never = threading.Event()
        self.addCleanup(never.set)
        server.on(QUERY, HostileServer.stream(chunk_event("half an answer"), never))
        self.desktop.type_text("more\n")
        app.access.wait_for_page_text("half an answer")
        ours = processes.descendants(app.process.pid)
        self.desktop.kill_compositor()
        self.assertEqual(app.wait_exit(), 1, app.describe("ended"))
        self.assertEqual([turn[0] for turn in app.turns()], ["question", "more"])
        self.assertEqual(app.turns()[-1][1], "half an answer")

        def left():
            processes.reap()
            return {pid: name for pid, name in ours.items()
                    if os.path.exists(f"/proc/{pid}") and pid in processes.descendants(os.getpid())}
        wait_until(lambda: not left(), timeout=10, what=f"the end of {left()}")


if __name__ == "__main__":
    unittest.main()
