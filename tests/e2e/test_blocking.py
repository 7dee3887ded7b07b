"""Refusals by the backend: rate limit, used-up allowance, error events, and local blocking."""

import re
import unittest

from harness import E2ECase, HostileServer, wait_until
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.server import QUERY

QUERY_LOG = "[ProxyQueryService] "


class BlockingTest(E2ECase):
    def test_rate_limit_shows_a_card_until_it_ends(self):
        server = self.server()
        server.on(QUERY, HostileServer.status(429, b'{"resetInSeconds": 3}'))
        app = self.app(server).sign_in()
        app.send_prompt("question")
        app.wait_for_line(QUERY_LOG + "Proxy returned 429 (rate limited) — reset in 3s")
        app.access.wait_for("Rate Limited")
        app.access.wait_for(re.compile("please wait 3 seconds"))
        app.access.wait_gone("Rate Limited")
        # Nothing stays blocked.
        server.on(QUERY, HostileServer.answer_with("fine again"))
        app.access.press("Send")
        app.wait_for_line(STREAM_COMPLETE)

    def test_malformed_limit_counts_as_used_up_allowance(self):
        for body in (b'{"resetInSeconds": "42"}', b"", b"<html>", b"[1]",
                     b'{"resetInSeconds": 1.5}', b'{"tokensRemaining": 0}'):
            with self.subTest(body=body):
                server = self.server()
                server.on(QUERY, HostileServer.status(429, body))
                app = self.app(server).sign_in()
                app.send_prompt("question")
                app.wait_for_line(QUERY_LOG + "Proxy returned 429 (cap exceeded)")
                app.access.wait_for("Credit Limit Reached")
                mark = app.mark()
                app.access.press("Send")
                wait_until(lambda: any(
                    "Send blocked — isBlocked is true" in line or "Query pre-blocked" in line
                    for line in app.lines_since(mark)), what="the blocked line")
                self.assertEqual(len(server.requests(QUERY)), 1)
                app.close()

    def test_error_event_shows_the_standard_card_only(self):
        server = self.server()
        server.on(QUERY, HostileServer.stream(
            b'data: {"type":"error","message":"pay at evil.example"}\n'))
        app = self.app(server).sign_in()
        app.send_prompt("question")
        app.wait_for_line(QUERY_LOG + "Proxy sent an error event: pay at evil.example")
        app.wait_for_line(PREFIX + "Server sent an error event (rendered as the standard "
                          "credits-exhausted card, not shown verbatim): pay at evil.example")
        app.access.wait_for("Credit Limit Reached")
        self.assertIsNone(app.access.find(re.compile("evil")))
        self.assertNotIn("evil", app.access.page_text())
        self.assertEqual(app.turns(), [])
        mark = app.mark()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(PREFIX + "Query pre-blocked — client already knows credits are "
                          "exhausted (tokensUsed=1000, tokenCap=1000000, "
                          "lastQueryHitServerMessage=true)", since=mark)
        self.assertEqual(len(server.requests(QUERY)), 1)
        app.access.press("Upgrade Now")
        wait_until(lambda: f"{server.url}/account/billing" in app.opened(), what="the page")

    def test_used_up_allowance_blocks_from_the_start(self):
        server = self.server(tokensUsed=1000, tokensRemaining=0, tokenCap=1000)
        app = self.app(server).sign_in()
        app.access.wait_for_page_text("Out of Credits")
        mark = app.mark()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(PREFIX + "Query pre-blocked — client already knows credits are "
                          "exhausted (tokensUsed=1000, tokenCap=1000, "
                          "lastQueryHitServerMessage=false)", since=mark)
        self.assertEqual(server.requests(QUERY), [])

    def test_administrator_message_blocks(self):
        message = {"id": "m1", "type": "BLOCKING", "headerText": "Update required",
                   "bodyMarkdown": "Please **update** now."}
        server = self.server(adminMessage=message)
        app = self.app(server).sign_in()
        app.access.wait_for("Update required")
        self.other_window()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(PREFIX + "Capture & Send blocked — isBlocked is true")
        self.assertEqual(server.requests(QUERY), [])


if __name__ == "__main__":
    unittest.main()
