"""A backend that accepts the question and never answers."""

import re
import time
import unittest

from harness import E2ECase
from harness.server import QUERY


class SilentBackendTest(E2ECase):
    def test_query_times_out_after_thirty_seconds(self):
        server = self.server()
        server.on(QUERY, lambda connection, _request: connection.wait_closed(60))
        app = self.app(server).sign_in()
        app.send_prompt("anyone there")
        server.wait_for_request(QUERY)
        started = time.monotonic()
        app.wait_for_line(re.compile(r"^\[ProxyQueryService\] Network error: .+"), timeout=45)
        waited = time.monotonic() - started
        self.assertGreater(waited, 25)
        self.assertLess(waited, 40)
        app.access.wait_for_page_text("Could not reach backend proxy: ")
        self.assertEqual(app.stored_defaults()["userPrompt"], "anyone there")


if __name__ == "__main__":
    unittest.main()
