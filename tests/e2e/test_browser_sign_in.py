"""Sign-in with a real browser on the local backend's own page."""

import pathlib
import unittest
import urllib.parse

from harness import E2ECase, wait_until
from harness.messages import RUNNING
from harness.backend import Backend
from harness.browser import Browser


@unittest.skipUnless(Browser.program(), "needs the Debian package chromium")
class BrowserSignInTest(E2ECase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)
        cls.backend = Backend(cls.desktop.environment)
        cls.addClassCleanup(cls.backend.close)
        cls.email, cls.password = cls.backend.ensure_account()
        cls.backend.start()

    def start(self):
        """Presses the Google button and follows the browser to the sign-in page."""
        app = self.app(self.backend)
        app.wait_login_window()
        app.access.press("Sign in with Google")
        app.wait_for_line("[LoginWindowController] OAuth callback listener ready, "
                          "opening browser for Google sign-in")
        opened = wait_until(app.opened, what="the browser")
        self.assertEqual(len(opened), 1)
        self.browser.visit(opened[0])
        self.browser.wait_for_text("Sign in to Quellora")
        return app

    def assert_signed_in(self, app):
        """Both sides report the sign-in, and the token is stored nowhere."""
        self.browser.wait_for_text("You're signed in")
        self.assertIn("You can close this browser tab and return to Vantiro.", self.browser.text)
        address = urllib.parse.urlsplit(self.browser.url)
        self.assertEqual((address.netloc, address.path), ("127.0.0.1:9877", "/oauth-callback"))
        token = dict(urllib.parse.parse_qsl(address.query))["token"]
        app.wait_for_line("[AuthService] Token verification successful")
        app.wait_for_line("[LoginWindowController] Login successful, closing login window")
        app.wait_for_line(RUNNING)
        app.wait_overlay_shown()
        self.assertGreater(len(token), 20)
        self.assertNotIn(token, "\n".join(app.raw_lines + app.error_output))
        self.assertNotIn(token, "\n".join(self.backend.lines))
        for path in pathlib.Path(app.folder).rglob("*"):
            if path.is_file():
                self.assertNotIn(token.encode(), path.read_bytes(), path)

    def test_one_click_on_the_local_account(self):
        app = self.start()
        self.browser.click_button(f"Continue as {self.email}")
        self.assert_signed_in(app)

    def test_password_typed_into_the_page_after_a_wrong_one(self):
        app = self.start()
        self.fill(self.password + "x")
        self.browser.wait_for_text("Wrong e-mail or password.")
        self.fill(self.password)
        self.assert_signed_in(app)

    def fill(self, password):
        """Fills in and submits the page's form."""
        self.browser.fill_in("email", self.email)
        self.browser.fill_in("password", password)
        self.browser.click_button("Sign in")


if __name__ == "__main__":
    unittest.main()
