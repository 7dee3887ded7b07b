"""The app with the real local backend: sign-in, reading the screen, usage."""

import unittest

from harness import E2ECase, wait_until
from harness.messages import STREAM_COMPLETE
from harness.backend import Backend


class LocalBackendTest(E2ECase):
    def backend(self):
        backend = Backend(self.desktop.environment)
        self.addCleanup(backend.close)
        return backend

    def test_account_is_created_once(self):
        backend = self.backend()
        email, password = backend.ensure_account()
        self.assertTrue(password)
        self.assertEqual(backend.ensure_account(), (email, None))

    def test_sign_in_and_an_answer(self):
        backend = self.backend()
        email, password = backend.ensure_account()
        backend.start()
        app = self.app(backend)
        app.wait_login_window()
        app.fill_login(email, password + "x")
        self.desktop.press("return")
        app.access.wait_for("Invalid email or password")
        app.access.wait_for("Password", focused=True)
        self.desktop.type_text(password + "\n")
        app.wait_for_line("[AppDelegate] Vantiro Overlay running "
                          "(single-process, no pipeline.py dependency).")
        self.other_window()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(STREAM_COMPLETE, timeout=60)
        turns = wait_until(app.turns, what="the stored turn")
        self.assertEqual(len(turns), 1)
        self.assertGreater(len(turns[0][1]), 20)


if __name__ == "__main__":
    unittest.main()
