"""The administrators' pages in a real browser: every page in both themes, wide and on a phone."""

import datetime
import os
import pathlib
import re
import sqlite3
import sys
import unittest
import urllib.parse

sys.path.append(str(pathlib.Path(__file__).parents[2] / "e2e"))

from harness import wait_until
from harness.browser import Browser
from stores import SqliteStore
from team_case import FakeModel, TeamCase, one_time_code

#: Folder for pictures of the pages, for whoever wants to look at them.
PICTURES = os.environ.get("QUELLORA_PAGE_PICTURES")
LONG = "a-person-with-a-very-long-address.and-more-of-it@department.of.example.org"

# What is wrong with the page on show, as a list of sentences.
FAULTS = r"""(() => {
  const faults = [];
  const name = e => e.tagName.toLowerCase() + (e.className && e.className.baseVal === undefined ? '.' + e.className : '') +
    ' ' + JSON.stringify((e.innerText || e.name || '').slice(0, 40));
  const width = document.documentElement.clientWidth;
  if (document.documentElement.scrollWidth > width || innerWidth > screen.width) faults.push('the page is wider than the screen');
  if (document.scripts.length > 0) faults.push('there is a script');
  const shown = e => e.checkVisibility() && e.getBoundingClientRect().right > 0;
  const parse = text => { const parts = text.match(/[\d.]+/g).map(Number);
    return {rgb: parts.slice(0, 3), alpha: parts.length > 3 ? parts[3] : 1}; };
  const luminance = rgb => rgb.map(v => v / 255).map(v => v <= .04045 ? v / 12.92 : ((v + .055) / 1.055) ** 2.4)
    .reduce((sum, v, i) => sum + v * [.2126, .7152, .0722][i], 0);
  const ratio = (one, two) => { const [a, b] = [luminance(one), luminance(two)].sort((x, y) => y - x);
    return (a + .05) / (b + .05); };
  const ground = e => { for (; e; e = e.parentElement) { const c = parse(getComputedStyle(e).backgroundColor);
    if (c.alpha === 1) return c.rgb; } return [255, 255, 255]; };
  for (const e of document.querySelectorAll('body *')) {
    if (!shown(e) || e.closest('svg')) continue;
    const style = getComputedStyle(e);
    const hasText = [...e.childNodes].some(n => n.nodeType === 3 && n.data.trim());
    if (hasText || e.matches('input, textarea, select')) {
      const contrast = ratio(parse(style.color).rgb, ground(e));
      if (contrast < 4.5) faults.push(`contrast ${contrast.toFixed(1)} of ${name(e)}`);
      const box = e.getBoundingClientRect();
      if (!e.closest('.scroll, pre') && box.right > width + .5) faults.push('beyond the edge: ' + name(e));
      if (e.scrollWidth > e.clientWidth + 1 && style.display !== 'inline' && !e.matches('input, textarea, select, pre'))
        faults.push('text does not fit ' + name(e));
    }
    if (e.matches('input:not([type=hidden]), textarea, select, button.plain')) {
      const edge = ratio(parse(style.borderTopColor).rgb, ground(e.parentElement));
      if (edge < 3 && !e.matches('[type=checkbox], [type=radio]'))
        faults.push(`edge contrast ${edge.toFixed(1)} of ${name(e)}`);
      if (!e.matches('button') && !(e.labels.length || e.ariaLabel)) faults.push('no label: ' + name(e));
    }
    if (e.matches('button, input:not([type=hidden], [type=checkbox], [type=radio]), select, nav a')
        && e.getBoundingClientRect().height < 24) faults.push('hard to hit: ' + name(e));
  }
  if (document.querySelectorAll('h1').length !== 1) faults.push('not one heading');
  if (!document.documentElement.lang || !document.title) faults.push('no language or title');
  return faults; })()"""


@unittest.skipUnless(Browser.program(), "needs the Debian package chromium")
class PagesTest(TeamCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def setUp(self):
        super().setUp()
        self.model = FakeModel()
        self.addCleanup(self.model.close)
        store = self.folder / "store.sqlite"
        self.config.write_text(f"""
data_file = "{store}"
[openai]
base_url = "{self.model.url}"
model = "seeing-1"
[[models]]
id = "first"
provider = "openai"
display_name = "First model"
[[models]]
id = "second"
provider = "openai"
display_name = "Second model, which has a rather long name"
""")
        self.password = self.account("ann@example.org", "--cap", "50000")
        self.enrolled = self.add_admin()
        self.browser.show_at(1280, 900, "light")
        self.asked_before = len(self.browser.requests)
        self.start()
        self.store = SqliteStore(store)
        self.token = self.log_in("ann@example.org", self.password).json["token"]

    def fill(self):
        """A busy month."""
        self.account(LONG, "--cap", "1000", "--plan", "a plan with quite a long name")
        for number in range(55):
            self.run_command("invite", f"person{number:02}@example.org")
        self.run_command("suspend", "person07@example.org")
        self.run_command("send-message", "--title", "Maintenance on Sunday", "--text",
                         "The service is away from 8 to 9.\n\nhttps://status.example.org/" + "x" * 120)
        self.run_command("send-message", LONG, "--title", "Please update", "--text", "Thank you.",
                         "--kind", "blocking", "--minutes", "90", "--label", "Why", "--url",
                         "https://example.org/why")
        withdrawn = self.run_json("send-message", "--title", "Old", "--text", "Gone.")["id"]
        self.run_command("withdraw-message", withdrawn)
        self.visitor().post_json("/api/logs/app", "2026-11-22 09:00:00 [AppDelegate] Started\n" * 60 +
                                 "a line that never ends: " + "x" * 400, self.token)
        self.visitor().post_json("/api/proxy/query", {"prompt": "What?"}, self.token)
        wait_until(lambda: self.store.rows("usage_daily"))
        # A month cannot be waited for.
        today = datetime.datetime.now(datetime.timezone.utc).date()
        with sqlite3.connect(self.store.file, timeout=30) as connection:
            for day in range(1, 30):
                for account in (1, 2):
                    for model in ("first", "second"):
                        connection.execute(
                            "INSERT INTO usage_daily VALUES(?, ?, ?, ?, ?, ?)",
                            (account, str(today - datetime.timedelta(day)), model,
                             900 + 37 * day * account, 40 * day, day))
            connection.execute("INSERT INTO usage VALUES(2, strftime('%Y-%m', 'now'), 900, 40, 3)")
        connection.close()

    def go(self, path):
        self.browser.visit(self.url + path)

    def sign_in(self):
        self.go("/admin")
        self.browser.wait_for_text("Administration")
        self.browser.type_into("email", self.enrolled["email"])
        self.browser.type_into("password", self.enrolled["password"])
        self.browser.type_into("code", one_time_code(self.enrolled["secret"]))
        self.browser.click_button("Sign in")
        self.browser.wait_for_text("Invite somebody")

    def assert_sound(self, name):
        """The page on show is sound in both themes, wide and on a phone."""
        for width, height in ((1280, 900), (390, 844)):
            for scheme in ("light", "dark"):
                with self.subTest(page=name, width=width, scheme=scheme):
                    self.browser.show_at(width, height, scheme)
                    wait_until(lambda: self.browser.evaluate(
                        f"screen.width === {width} && matchMedia("
                        f"'(prefers-color-scheme: {scheme})').matches && document.readyState"
                        " === 'complete' && [...document.styleSheets].length > 0"))
                    if PICTURES:
                        self.browser.screenshot(
                            pathlib.Path(PICTURES) / f"{name}-{width}-{scheme}.png", whole=True)
                    self.assertEqual(self.browser.evaluate(FAULTS), [])
        self.browser.show_at(1280, 900, "light")

    def test_every_page_in_both_themes_wide_and_on_a_phone(self):
        self.fill()
        self.go("/admin/sign-in")
        self.assert_sound("sign-in")
        self.sign_in()
        self.assert_sound("people")
        ids = {row["email"]: row["id"] for row in self.store.rows("accounts")}
        log = self.store.rows("uploaded_logs")[0]["id"]
        for name, path in (("people-page-2", "people?page=2"), ("nobody", "people?q=nobody"),
                           ("person", "person?id=1&done=allowance"),
                           ("person-long", f"person?id={ids[LONG]}"),
                           ("person-invited", f"person?id={ids['person07@example.org']}"),
                           ("usage", "usage"), ("usage-of-one", f"usage?id={ids[LONG]}&days=7"),
                           ("messages", "messages"), ("models", "models"), ("logs", "logs"),
                           ("log", f"log?id={log}"), ("audit", "audit"),
                           ("audit-action", "audit?action=suspend"), ("audit-none", "audit?who=eve"),
                           ("me", "me"), ("gone", "person?id=7777")):
            self.go("/admin/" + path)
            self.browser.evaluate("document.querySelectorAll('details').forEach(d => d.open = true)")
            self.assert_sound(name)
        self.go("/admin/me")
        self.browser.click_button("Set up another authenticator app")
        self.browser.wait_for_text("Scan this with the app")
        self.assert_sound("me-new-app")
        link = self.run_json("invite", "person08@example.org")["path"]
        self.go(link)
        self.assert_sound("invitation")
        self.go("/invite?token=used")
        self.assert_sound("invitation-gone")
        # No page asked anybody but the server, and all of them had their style.
        asked = [urllib.parse.urlsplit(url) for url in self.browser.requests[self.asked_before:]]
        self.assertEqual({url.netloc for url in asked}, {urllib.parse.urlsplit(self.url).netloc})
        self.assertIn("/admin/style.css", {url.path for url in asked})

    def test_a_code_once_used_is_refused_in_words(self):
        self.sign_in()
        self.browser.click_button("Sign out")
        self.browser.wait_for_text("Administration")
        self.browser.type_into("email", self.enrolled["email"])
        self.browser.type_into("password", self.enrolled["password"])
        self.browser.type_into("code", "000000")
        self.browser.click_button("Sign in")
        self.browser.wait_for_text("Wrong address, password or code.")
        self.assert_sound("sign-in-refused")

    def test_inviting_and_setting_the_password(self):
        self.sign_in()
        self.browser.type_into("email", "New@Example.org")
        self.browser.click_button("Make an invitation link")
        self.browser.wait_for_text("It works once and for seven days")
        self.assert_sound("invited")
        link = self.browser.evaluate("document.querySelector('code.link').innerText")
        self.assertTrue(link.startswith(self.url + "/invite?token="), link)
        self.browser.visit(link)
        self.browser.wait_for_text("new@example.org")
        for field in ("password", "again"):
            self.browser.type_into(field, "a long password")
        self.browser.click_button("Set password")
        self.browser.wait_for_text("You are set up")
        self.assert_sound("set-up")
        self.assertEqual(self.log_in("new@example.org", "a long password").status, 200)

    def test_an_address_that_is_none_is_stopped_before_and_after_it_is_sent(self):
        self.sign_in()
        self.browser.type_into("email", "ann@example.org")
        self.browser.click_button("Make an invitation link")
        self.browser.wait_for_text("There is already an account with that address.")
        self.assertEqual(self.browser.evaluate("document.querySelector('[name=email]').value"),
                         "ann@example.org")
        self.assert_sound("people-refused")
        self.browser.fill_in("email", "no address")
        self.browser.click_button("Make an invitation link")
        self.assertFalse(self.browser.evaluate(
            "document.querySelector('[name=email]').checkValidity()"))
        self.assertEqual(len(self.run_json("list-accounts")), 1)

    def test_suspending_resuming_and_the_allowance(self):
        self.sign_in()
        self.browser.click_text("td a", "ann@example.org")
        self.browser.wait_for_text("In the audit trail")
        self.browser.click_button("Suspend")
        self.browser.wait_for_text("Nothing of this person is answered any more.")
        self.assertEqual(self.visitor().post_json("/api/auth/app-verify", {}, self.token).status, 403)
        self.browser.click_button("Resume")
        self.browser.wait_for_text("Resumed.")
        config = self.visitor().post_json("/api/auth/app-verify", {}, self.token).json["config"]
        self.assertEqual(config["tokenCap"], 50000)
        self.browser.evaluate("document.querySelector('[name=cap]').value = ''")
        self.browser.type_into("cap", "1234")
        self.browser.click_button("Set allowance")
        self.browser.wait_for_text("The allowance is changed.")
        self.browser.wait_for_text("1,234 tokens a month")
        self.browser.click_text("summary", "Delete")
        self.browser.click_button("Delete ann@example.org")
        self.browser.wait_for_text("Deleted, with everything of that person.")
        self.assertEqual(self.run_json("list-accounts"), [])
        self.browser.click_text("nav a", "Audit trail")
        self.browser.wait_for_text("set-allowance")
        self.browser.evaluate("document.querySelector('[name=action]').value = 'suspend'")
        self.browser.click_button("Show")
        wait_until(lambda: "action=suspend" in self.browser.url)
        self.browser.wait_for_text("person-")
        self.assertEqual(self.browser.evaluate("document.querySelectorAll('tbody tr').length"), 1)

    def test_a_message_and_its_withdrawal(self):
        self.sign_in()
        self.browser.click_text("nav a", "Messages")
        self.browser.wait_for_text("No message is shown.")
        self.browser.evaluate("document.querySelector('[name=kind]').value = 'update'")
        self.browser.type_into("minutes", "90")
        self.browser.type_into("header", "Update")
        self.browser.evaluate("document.querySelector('[name=body]').value = 'Please *update*.'")
        self.browser.click_button("Send")
        self.browser.wait_for_text("Sent. The app shows it")
        message = self.log_in("ann@example.org", self.password).json["config"]["adminMessage"]
        self.assertEqual((message["headerText"], message["bodyMarkdown"],
                          message["forceUpdateInMinutes"]), ("Update", "Please *update*.", 90))
        self.assert_sound("message-sent")
        self.browser.click_button("Withdraw")
        self.browser.wait_for_text("Withdrawn.")
        self.assertNotIn("adminMessage",
                         self.log_in("ann@example.org", self.password).json["config"])


if __name__ == "__main__":
    unittest.main()
