"""A backend that stalls during an answer."""

import re
import time
import unittest

from harness import E2ECase, chunk_event, wait_until
from harness.messages import PREFIX
from harness.server import QUERY


class StalledBackendTest(E2ECase):
    def test_stalled_answer_times_out_thirty_seconds_after_the_last_byte(self):
        server = self.server()

        def handler(connection, _request):
            connection.begin_stream()
            connection.send(chunk_event("only this"))
            connection.wait_closed(60)
        server.on(QUERY, handler)
        app = self.app(server).sign_in()
        app.send_prompt("go on")
        app.wait_for_line(PREFIX + "First chunk received, hiding loading dots")
        started = time.monotonic()
        app.wait_for_line(re.compile(r"^\[OverlayWindowController\] ERROR: Unexpected query "
                                     r"error: .+"), timeout=45)
        waited = time.monotonic() - started
        self.assertGreater(waited, 25)
        self.assertLess(waited, 40)
        # The partial answer is stored, as after Stop.
        wait_until(lambda: app.turns() == [("go on", "only this")], what="the stored part")


if __name__ == "__main__":
    unittest.main()
