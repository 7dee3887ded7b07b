"""A model connected on the local backend's account page, in a real browser, and used by the app."""

import pathlib
import re
import stat
import unittest

from harness import E2ECase, wait_until
from harness.backend import Backend
from harness.browser import Browser
from harness.messages import PREFIX, STREAM_COMPLETE
from harness.model import ModelServer

KEY = "sk-browser-0123456789"


@unittest.skipUnless(Browser.program(), "needs the Debian package chromium")
class ConnectModelTest(E2ECase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def setUp(self):
        super().setUp()
        self.models = ModelServer(KEY)
        self.addCleanup(self.models.close)
        self.backend = Backend(self.desktop.environment, offline=False)
        self.addCleanup(self.backend.close)
        email, password = self.backend.ensure_account()
        self.backend.start()
        self.quellora = self.app(self.backend)
        self.quellora.wait_login_window()
        self.quellora.fill_login(email, password)
        self.desktop.press("return")
        self.quellora.wait_overlay_shown()
        self.seen = ""

    def see(self, text):
        """Waits for a text and keeps the page's source."""
        self.browser.wait_for_text(text)
        self.seen += self.browser.evaluate("document.documentElement.outerHTML")

    def test_from_the_menu_to_an_answer(self):
        app = self.quellora
        app.access.click("Menu")
        app.access.click("Connect a model", "menu item")
        app.wait_for_line(PREFIX + "Connect a model clicked")
        opened = wait_until(app.opened, what="the account page")
        self.assertEqual(opened, [f"{self.backend.url}/account"])

        browser = self.browser
        browser.visit(opened[0])
        self.see("No model is connected yet")
        browser.click_text("summary", "Another server with the OpenAI chat format")
        browser.type_into("address", self.models.url)
        browser.type_into("key", "a-wrong-key", last=True)
        browser.click_button("Continue", last=True)
        self.see("127.0.0.1 does not accept the key (HTTP 401). It says: “Who are you?”")
        browser.click_button("Start over")
        self.see("No model is connected yet")
        browser.click_text("summary", "Another server with the OpenAI chat format")
        browser.type_into("address", self.models.url)
        browser.type_into("key", KEY, last=True)
        browser.click_button("Continue", last=True)
        self.see("seeing-2")
        browser.click_text("label", "seeing-1")
        browser.click_button("Test")
        self.see("and saw the test picture")
        browser.click_button("Save")
        self.see("Saved. seeing-1 answers from now on")
        self.assertNotIn(KEY, self.seen)
        self.assertNotIn(KEY, browser.url)

        # The pointer comes back to the panel, which learns of the model without a sign-in.
        _, left, top, _, _ = app.panel()
        mark = app.mark()

        def come_back():
            self.desktop.move_pointer(1, 1)
            self.desktop.move_pointer(left + 200, top + 15)
            return app.has_line("[AuthService] Token verification successful", mark)
        wait_until(come_back, what="the new configuration")
        app.access.click("Menu")
        wait_until(lambda: app.access.find("Connect a model", "menu item") is None,
                   what="the menu without that row")
        app.access.click("Menu")
        app.access.click("Model", "combo box")
        row = app.access.wait_for("seeing-1", "list item")
        self.assertEqual(row.get_description(), "127.0.0.1. Pictures stay on this machine")
        app.access.click("Model", "combo box")

        self.other_window()
        asked = len(self.models.questions)
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(STREAM_COMPLETE, timeout=60)
        app.access.wait_for_page_text("It is red.")
        question = self.models.questions[asked]
        self.assertEqual(question["model"], "seeing-1")
        picture = question["messages"][0]["content"][1]["image_url"]["url"]
        self.assertTrue(picture.startswith("data:image/jpeg;base64,"), picture[:40])

        self.assertNotIn(KEY, "\n".join(self.backend.lines))
        self.assertNotIn(KEY, "\n".join(app.raw_lines + app.error_output))
        holding = [path for path in pathlib.Path(self.backend.folder).rglob("*")
                   if path.is_file() and KEY.encode() in path.read_bytes()]
        self.assertEqual([path.name for path in holding], ["connections.json"])
        self.assertEqual(stat.S_IMODE(holding[0].stat().st_mode), 0o600)

    def test_offline_answers_lead_to_the_page(self):
        app = self.quellora
        app.send_prompt("What is this?")
        app.wait_for_line(STREAM_COMPLETE, timeout=60)
        app.access.wait_for_page_text(f"{self.backend.url}/account")

    def test_other_sites_cannot_read_or_send(self):
        browser = self.browser
        browser.visit(self.models.url.replace("/v1", "/page"))
        browser.evaluate(
            f"window.got = ''; fetch('{self.backend.url}/account').then(r => r.text())"
            ".then(text => { window.got = text || 'empty' }, () => { window.got = 'refused' })")
        wait_until(lambda: browser.evaluate("window.got"), what="the other site's request")
        self.assertEqual(browser.evaluate("window.got"), "refused")
        browser.evaluate(
            f"document.body.innerHTML = `<form method=post action='{self.backend.url}"
            "/account/connect'><input name=choice value=server><input name=address "
            f"value='{self.models.url}'></form>`; document.forms[0].submit()")
        browser.wait_for_text("requests from other web pages are refused")
        self.assertFalse(re.search(r"ModelSetup", "\n".join(self.backend.lines)))


if __name__ == "__main__":
    unittest.main()
