"""An administrator's day: signing in with a second factor, and every page and command."""

import html
import json
import re
import unittest

from team_case import FakeModel, TeamCase, one_time_code


class SignInTest(TeamCase):
    def setUp(self):
        super().setUp()
        self.admin = self.add_admin()
        self.start()

    def refused(self, **changes):
        fields = {"email": self.admin["email"], "password": self.admin["password"],
                  "code": "000000"} | changes
        reply = self.visitor().submit("/admin/sign-in", "password", **fields)
        self.assertEqual(reply.status, 401)
        self.assertNotIn("quellora_admin", reply.headers.get("Set-Cookie", ""))
        return reply.text

    def test_a_code_is_accepted_once(self):
        code = one_time_code(self.admin["secret"])
        visitor, reply = self.sign_in(self.admin, code)
        self.assertEqual((reply.status, reply.location), (303, "/admin/people"))
        self.assertEqual(visitor.get("/admin/people").status, 200)
        _, again = self.sign_in(self.admin, code)
        self.assertEqual(again.status, 401)
        # The code of the step before is not taken after it either.
        _, earlier = self.sign_in(self.admin, one_time_code(self.admin["secret"], -1))
        self.assertEqual(earlier.status, 401)

    def test_a_recovery_code_is_accepted_once(self):
        code = self.admin["recoveryCodes"][0]
        self.assertEqual(self.sign_in(self.admin, code)[1].status, 303)
        self.assertEqual(self.sign_in(self.admin, code)[1].status, 401)
        self.assertEqual(self.run_json("admin", "list")[0]["recoveryCodesLeft"], 9)

    def test_every_part_must_be_right_and_the_reply_does_not_say_which_was_not(self):
        code = self.admin["recoveryCodes"][0]
        texts = {re.sub(r'value="[^"]*"', "", text) for text in (
            self.refused(), self.refused(password="wrong", code=code),
            self.refused(email="nobody@example.org", code=code), self.refused(code=""))}
        self.assertEqual(len(texts), 1)
        # A wrong password uses up no code.
        self.assertEqual(self.sign_in(self.admin, code)[1].status, 303)

    def test_repeated_failures_are_throttled(self):
        for _ in range(10):
            self.refused()
        _, reply = self.sign_in(self.admin)
        self.assertEqual(reply.status, 429)
        self.assertGreater(int(reply.headers["Retry-After"]), 0)

    def test_the_cookie_is_for_this_server_alone_and_new_at_each_sign_in(self):
        visitor, reply = self.sign_in(self.admin)
        cookie = reply.headers["Set-Cookie"]
        for part in ("HttpOnly", "SameSite=Strict", "Path=/admin"):
            self.assertIn(part, cookie)
        self.assertNotIn("Secure", cookie)
        first = visitor.cookies["quellora_admin"]
        again, _ = self.sign_in(self.admin, visitor=visitor)
        self.assertNotEqual(again.cookies["quellora_admin"], first)
        # The session before has ended.
        again.cookies["quellora_admin"] = first
        self.assertEqual(again.get("/admin/people").location, "/admin/sign-in")
        # A session that was planted before the sign-in does not become one.
        planted = self.visitor()
        planted.cookies["quellora_admin"] = "x" * 43
        planted, _ = self.sign_in(self.admin, visitor=planted)
        self.assertNotEqual(planted.cookies["quellora_admin"], "x" * 43)

    def test_the_cookie_is_secure_behind_tls(self):
        visitor = self.visitor()
        fields = visitor.form_fields("/admin/sign-in", "password") | {
            "email": self.admin["email"], "password": self.admin["password"],
            "code": self.admin["recoveryCodes"][0]}
        reply = visitor.post("/admin/sign-in", fields, {"X-Forwarded-Proto": "https"})
        self.assertIn("Secure", reply.headers["Set-Cookie"])

    def test_signing_out_ends_the_session(self):
        visitor, _ = self.sign_in(self.admin)
        session = visitor.cookies["quellora_admin"]
        self.assertEqual(visitor.submit("/admin/people", "Sign out", target="/admin/sign-out").status, 303)
        visitor.cookies["quellora_admin"] = session
        self.assertEqual(visitor.get("/admin/people").location, "/admin/sign-in")

    def test_no_page_is_shown_without_a_session(self):
        for path in ("people", "person?id=1", "usage", "messages", "models", "logs", "log?id=1",
                     "audit", "me"):
            self.assertEqual(self.visitor().get("/admin/" + path).location, "/admin/sign-in", path)
            reply = self.visitor().post("/admin/" + path.split("?")[0], {"action": "delete"})
            self.assertIn(reply.status, (303, 404), path)

    def test_a_form_of_another_session_is_refused(self):
        visitor, _ = self.sign_in(self.admin)
        for form in ("", "x" * 64):
            reply = visitor.post("/admin/people", {"form": form, "email": "eve@example.org",
                                                   "plan": "p", "cap": "0"})
            self.assertEqual(reply.status, 403)
        other, _ = self.sign_in(self.admin)
        fields = other.form_fields("/admin/people", "Make an invitation") | {
            "email": "eve@example.org", "plan": "p", "cap": "0"}
        self.assertEqual(visitor.post("/admin/people", fields).status, 403)
        self.assertEqual(self.run_json("list-accounts"), [])

    def test_requests_of_other_sites_are_refused(self):
        visitor, _ = self.sign_in(self.admin)
        fields = visitor.form_fields("/admin/people", "Make an invitation")
        reply = visitor.post("/admin/people", fields, {"Origin": "https://evil.example"})
        self.assertEqual(reply.status, 403)

    def test_pages_run_no_script_and_are_not_kept(self):
        visitor, _ = self.sign_in(self.admin)
        for path in ("people", "usage", "messages", "models", "logs", "audit", "me"):
            reply = visitor.get("/admin/" + path)
            policy = reply.headers["Content-Security-Policy"]
            self.assertIn("default-src 'none'", policy)
            self.assertNotIn("script", policy)
            self.assertNotIn("unsafe", policy)
            self.assertEqual(reply.headers["Cache-Control"], "no-store")
            self.assertEqual(reply.headers["X-Frame-Options"], "DENY")
            self.assertNotRegex(reply.text, r"<script|style=|javascript:| on\w+=")
            self.assertNotIn(visitor.cookies["quellora_admin"], reply.text)

    def test_a_new_authenticator_replaces_the_old_one_after_its_code(self):
        visitor, _ = self.sign_in(self.admin)
        visitor.submit("/admin/me", "another authenticator", "propose")
        page = visitor.get("/admin/me").text
        secret = re.search(r"<code>([A-Z2-7 ]{39})</code>", page)[1].replace(" ", "")
        self.assertIn('<svg class="qr"', page)
        self.assertEqual(visitor.submit("/admin/me", "Use the new app", "confirm",
                                        code="000000").status, 400)
        # Until then the old one counts.
        self.assertEqual(self.sign_in(self.admin, one_time_code(self.admin["secret"]))[1].status, 303)
        renewed = visitor.submit("/admin/me", "Use the new app", "confirm",
                                 code=one_time_code(secret))
        codes = re.findall(r"<li><code>([a-z0-9-]{23})</code>", renewed.text)
        self.assertEqual(len(codes), 10)
        self.assertEqual(self.sign_in(self.admin)[1].status, 401)
        self.assertEqual(self.sign_in(self.admin, codes[0])[1].status, 303)
        self.assertEqual(self.sign_in(self.admin, one_time_code(secret, 1))[1].status, 303)

    def test_ending_the_other_sessions(self):
        one, _ = self.sign_in(self.admin)
        two, _ = self.sign_in(self.admin)
        one.submit("/admin/me", "End my other sessions", "others")
        self.assertEqual(one.get("/admin/me").status, 200)
        self.assertEqual(two.get("/admin/me").status, 303)

    def test_adding_an_administrator_again_ends_sessions_and_the_old_factor(self):
        visitor, _ = self.sign_in(self.admin)
        renewed = self.add_admin()
        self.assertEqual(visitor.get("/admin/me").status, 303)
        self.assertEqual(self.sign_in(self.admin)[1].status, 401)
        self.assertEqual(self.sign_in(renewed)[1].status, 303)
        self.run_command("admin", "remove", self.admin["email"])
        self.assertEqual(self.sign_in(renewed)[1].status, 401)
        self.run_command("admin", "remove", self.admin["email"], status=1)


class DayTest(TeamCase):
    """What administrators do on the pages."""

    def setUp(self):
        super().setUp()
        self.model = FakeModel()
        self.addCleanup(self.model.close)
        self.config.write_text(f"""
[openai]
base_url = "{self.model.url}"
model = "seeing-1"
[[models]]
id = "first"
provider = "openai"
display_name = "First <model>"
[[models]]
id = "second"
provider = "openai"
""")
        self.password = self.account()
        self.admin = self.add_admin()
        self.start()
        self.boss, _ = self.sign_in(self.admin)

    def person_id(self, email="ann@example.org"):
        return re.search(r'person\?id=(\d+)">' + re.escape(email),
                         self.boss.get("/admin/people").text)[1]

    def act(self, action, marker, **fields):
        return self.boss.submit(f"/admin/person?id={self.person_id()}", marker, action, **fields)

    def trail(self):
        return [(entry["action"], entry["detail"]) for entry in self.run_json("audit")]

    def config_of_ann(self):
        reply = self.log_in("ann@example.org", self.password)
        self.assertEqual(reply.status, 200)
        return reply.json["config"]

    def test_an_invited_person_sets_a_password(self):
        reply = self.boss.submit("/admin/people", "Make an invitation", email="Bob@Example.org ",
                                 plan="team", cap="5000")
        token = re.search(r"/invite\?token=([\w-]{43})", reply.text)[1]
        self.assertEqual(self.log_in("bob@example.org", "").status, 401)
        visitor = self.visitor()
        page = f"/invite?token={token}"
        self.assertIn("bob@example.org", visitor.get(page).text)
        self.assertEqual(visitor.submit(page, "Set password", password="short",
                                        again="short").status, 400)
        self.assertEqual(visitor.submit(page, "Set password", password="long enough 1",
                                        again="long enough 2").status, 400)
        self.assertEqual(visitor.submit(page, "Set password", password="long enough",
                                        again="long enough").status, 200)
        config = self.log_in("bob@example.org", "long enough").json["config"]
        self.assertEqual((config["plan"], config["tokenCap"]), ("team", 5000))
        # The link has been used.
        self.assertEqual(visitor.get(page).status, 404)
        self.assertEqual(visitor.post("/invite", {"token": token, "password": "another one",
                                                  "again": "another one"}).status, 404)
        self.assertEqual(self.log_in("bob@example.org", "another one").status, 401)
        self.assertNotIn(token, "\n".join(self.lines))

    def test_a_newer_link_replaces_the_older_one(self):
        first = self.run_json("invite", "bob@example.org")["path"]
        second = self.run_json("invite", "bob@example.org")["path"]
        self.assertEqual(self.visitor().get(first).status, 404)
        self.assertEqual(self.visitor().get(second).status, 200)
        third = self.boss.submit(f"/admin/person?id={self.person_id('bob@example.org')}",
                                 "New invitation link", "invite").text
        self.assertEqual(self.visitor().get(second).status, 404)
        self.assertEqual(self.visitor().get(
            "/invite?token=" + re.search(r"token=([\w-]+)", third)[1]).status, 200)

    def test_what_cannot_be_invited_is_said(self):
        for fields, text in (({"email": "ann@example.org"}, "already an account"),
                             ({"email": "nobody"}, "no e-mail address"),
                             ({"plan": ""}, "plan"), ({"cap": "much"}, "no allowance"),
                             ({"cap": "10000000000000"}, "no allowance")):
            reply = self.boss.submit("/admin/people", "Make an invitation",
                                     **({"email": "c@example.org", "plan": "p", "cap": "0"} | fields))
            self.assertEqual(reply.status, 400)
            self.assertIn(text, reply.text)
        self.assertEqual(len(self.run_json("list-accounts")), 1)

    def test_suspending_resuming_and_signing_out(self):
        token = self.log_in("ann@example.org", self.password).json["token"]

        def verify():
            return self.visitor().post_json("/api/auth/app-verify", {}, token).status
        self.assertRegex(self.boss.get("/admin/people").text, 'data-name="Last seen">never')
        self.assertEqual(verify(), 200)
        self.assertRegex(self.boss.get("/admin/people").text, r'data-name="Last seen">\d{4}-')
        self.assertEqual(self.act("suspend", "Suspend").status, 303)
        self.assertEqual(verify(), 403)
        self.assertIn("Suspended", self.boss.get("/admin/people").text)
        self.act("resume", "Resume")
        self.assertEqual(verify(), 200)
        self.act("sign-out", "Sign out everywhere")
        self.assertEqual(verify(), 401)
        self.assertEqual([name for name, _ in self.trail()][:3], ["sign-out", "resume", "suspend"])

    def test_allowance_and_plan(self):
        self.assertEqual(self.act("allowance", "Set allowance", cap="1234").status, 303)
        self.assertEqual(self.act("plan", "Set plan", plan="gold <b>").status, 303)
        config = self.config_of_ann()
        self.assertEqual((config["tokenCap"], config["plan"]), (1234, "gold <b>"))
        self.assertIn("gold &lt;b&gt;", self.boss.get("/admin/people").text)
        for value in ("", "-1", "1.5", "10000000000000"):
            self.assertEqual(self.act("allowance", "Set allowance", cap=value).status, 400)
        self.assertEqual(self.act("plan", "Set plan", plan="x" * 61).status, 400)
        self.assertEqual(self.trail()[:2], [("set-plan", "gold <b>"),
                                            ("set-allowance", "1234 tokens a month")])

    def test_deleting_leaves_a_pseudonym(self):
        person = re.search("person-[0-9a-f]{32}", self.boss.get(
            f"/admin/person?id={self.person_id()}").text)[0]
        number = self.person_id()
        self.act("suspend", "Suspend")
        self.assertEqual(self.act("delete", "Delete ann").location, "/admin/people?done=delete")
        self.assertEqual(self.boss.get(f"/admin/person?id={number}").status, 404)
        page = self.boss.get("/admin/audit").text
        self.assertNotIn("ann@example.org", page)
        self.assertIn(person, page)
        self.assertEqual(self.run_json("list-accounts"), [])
        about = self.boss.get(f"/admin/audit?who={person}").text
        self.assertIn(">suspend</td>", about)
        self.assertNotIn(">admin-sign-in</td>", about)

    def test_exporting_everything_of_a_person(self):
        token = self.log_in("ann@example.org", self.password).json["token"]
        self.visitor().post_json("/api/logs/app", "a line of the log", token)
        self.visitor().post_json("/api/proxy/query", {"prompt": "What?"}, token)
        reply = self.act("export", "Export everything")
        self.assertIn("attachment", reply.headers["Content-Disposition"])
        record = reply.json
        self.assertEqual(record["accounts"][0]["email"], "ann@example.org")
        self.assertEqual(record["uploaded_logs"][0]["text"], "a line of the log")
        self.assertEqual(record["usage_daily"][0]["output_tokens"], 7)
        self.assertEqual(len(record["sessions"]), 1)
        self.assertNotIn(token, reply.text)
        self.assertNotIn("argon2", reply.text)

    def test_usage_by_person_model_and_day(self):
        token = self.log_in("ann@example.org", self.password).json["token"]
        for model in ("first", "second", "second"):
            self.visitor().post_json("/api/proxy/query", {"prompt": "What?", "model": model}, token)
        page = self.boss.get("/admin/usage").text
        self.assertRegex(page, r'aria-label="Tokens per day: 57 tokens, most on [\d-]+ with 57"')
        self.assertRegex(page, r'second</td><td class="num" data-name="Questions">2</td>'
                               r'<td class="num" data-name="Tokens in">24</td>')
        one = self.boss.get("/admin/usage?model=first&days=7").text
        self.assertIn("19 tokens", one)
        self.assertEqual(self.boss.get("/admin/usage?days=99999&id=77&model=%3Cx").status, 200)
        entries = self.run_json("usage")
        self.assertEqual({entry["model"]: entry["queries"] for entry in entries},
                         {"first": 1, "second": 2})
        self.assertEqual(self.run_json("usage", "ann@example.org", "--days", "1"), entries)

    def test_messages_reach_the_app_until_they_are_withdrawn(self):
        self.assertNotIn("adminMessage", self.config_of_ann())
        self.boss.submit("/admin/messages", "Send", "send", to="0", kind="blocking", minutes="",
                         header="Closed", body="We are *closed*.\r\nSorry.", label="Why",
                         address="https://example.org/why")
        message = self.config_of_ann()["adminMessage"]
        identity = message.pop("id")
        self.assertEqual(message, {"type": "BLOCKING", "headerText": "Closed",
                                   "bodyMarkdown": "We are *closed*.\nSorry.",
                                   "actionLabel": "Why", "actionUrl": "https://example.org/why"})
        reply = self.boss.submit("/admin/messages", "Withdraw", "withdraw", message=identity)
        self.assertEqual(reply.location, "/admin/messages?done=withdraw")
        self.assertNotIn("adminMessage", self.config_of_ann())
        # For one person, with a countdown.
        self.account("bob@example.org")
        self.boss.submit("/admin/messages", "Send", "send", to=self.person_id(), kind="update",
                         minutes="90", header="Update", body="Please update.", label="", address="")
        self.assertEqual(self.config_of_ann()["adminMessage"]["forceUpdateInMinutes"], 90)
        self.assertEqual([entry["to"] for entry in self.run_json("list-messages")],
                         ["ann@example.org", "everybody"])

    def test_messages_that_cannot_be_sent(self):
        good = {"to": "0", "kind": "information", "minutes": "", "header": "H", "body": "B",
                "label": "", "address": ""}
        for change in ({"header": " "}, {"body": ""}, {"label": "Go"},
                       {"label": "Go", "address": "javascript:alert(1)"}, {"kind": "update"},
                       {"label": "Go", "address": "https://"},
                       {"label": "Go", "address": "https://a.example/ b"},
                       {"label": "Go", "address": "https://bank.example@evil.example/"},
                       {"minutes": "5"}, {"to": "77"}, {"header": "x" * 121},
                       {"kind": "update", "minutes": "9999999"}):
            reply = self.boss.submit("/admin/messages", "Send", "send", **(good | change))
            self.assertEqual(reply.status, 400, change)
            self.assertIn('role="alert"', reply.text)
        self.assertEqual(self.run_json("list-messages"), [])

    def test_models_and_the_default_prompt(self):
        self.assertEqual(self.config_of_ann()["model"], "first")
        reply = self.boss.submit("/admin/models", "name=\"default\"", "models",
                                 **{"": "second", "m1": "second", "default": "second"})
        self.assertEqual(reply.location, "/admin/models?done=models")
        config = self.config_of_ann()
        self.assertEqual([model["id"] for model in config["availableModels"]], ["second"])
        self.assertEqual(config["model"], "second")
        # A model that is not offered does not answer.
        token = self.log_in("ann@example.org", self.password).json["token"]
        answer = self.visitor().post_json("/api/proxy/query", {"prompt": "?", "model": "first"}, token)
        self.assertIn('"usedFallback":true', answer.text)
        for fields in ({"default": "second"}, {"m1": "second", "default": "first"}):
            self.assertEqual(self.boss.submit("/admin/models", "name=\"default\"", "models",
                                              **fields).status, 400)
        self.boss.submit("/admin/models", "Save prompt", "prompt", prompt="Look.\r\nBriefly.")
        self.assertEqual(self.config_of_ann()["defaultPrompt"], "Look.\nBriefly.")
        self.visitor().post_json("/api/proxy/query", {"prompt": " "}, token)
        self.assertIn(b"Briefly.", self.model.questions[-1])
        self.boss.submit("/admin/models", "Save prompt", "configured", prompt="")
        self.assertIn("silent", self.config_of_ann()["defaultPrompt"])
        self.assertNotIn("Briefly", json.dumps(self.run_json("audit")))

    def test_logs_are_listed_read_and_downloaded(self):
        token = self.log_in("ann@example.org", self.password).json["token"]
        log = "first line\n<script>alert(1)</script> \x1b[31mred\n"
        self.visitor().post_json("/api/logs/app", log, token)
        page = self.boss.get("/admin/logs").text
        number = re.search(r"/admin/log\?id=(\d+)", page)[1]
        shown = self.boss.get(f"/admin/log?id={number}").text
        self.assertIn("&lt;script&gt;alert(1)&lt;/script&gt; [31mred", shown)
        file = self.boss.submit(f"/admin/log?id={number}", "Download", "download")
        self.assertEqual(file.text, log)
        self.assertIn("attachment", file.headers["Content-Disposition"])
        self.assertEqual(file.headers["X-Content-Type-Options"], "nosniff")
        self.assertEqual(self.boss.get("/admin/log?id=77").status, 404)
        self.assertEqual(self.run_command("read-log", number), log)
        self.assertEqual(self.run_json("list-logs")[0]["email"], "ann@example.org")
        self.assertEqual([name for name, _ in self.trail()].count("read-log"), 4)
        self.boss.submit("/admin/logs", "Ask all apps", "ask")
        self.assertIs(self.config_of_ann()["requestLogs"], True)
        self.boss.submit("/admin/logs", "Stop asking", "stop")
        self.assertIs(self.config_of_ann()["requestLogs"], False)

    def test_the_trail_has_pages_and_knows_its_people(self):
        for number in range(60):
            self.run_command("set-plan", "ann@example.org", f"plan {number}")
        first = self.boss.get("/admin/audit").text
        self.assertIn("plan 59", first)
        self.assertNotIn("plan 3<", first)
        older = re.search(r'href="([^"]*)">Older', first)[1]
        self.assertIn("plan 3<", self.boss.get(html.unescape(older)).text)
        mine = self.boss.get("/admin/audit?who=BOSS%40example.org").text
        self.assertIn(">admin-sign-in</td>", mine)
        self.assertNotIn("plan 59", mine)
        self.assertIn("No entry.", self.boss.get("/admin/audit?who=eve").text)

    def test_the_trail_by_action(self):
        for number in range(60):
            self.run_command("set-plan", "ann@example.org", f"plan {number}")
            if number % 10 == 0:
                self.run_command("set-cap", "ann@example.org", str(number))
        page = self.boss.get("/admin/audit?who=ann%40example.org&action=set-plan").text
        self.assertIn('<option selected>set-plan</option>', page)
        self.assertNotIn("tokens a month", page)
        self.assertIn("plan 10<", page)
        older = html.unescape(re.search(r'href="([^"]*)">Older', page)[1])
        page = self.boss.get(older).text
        self.assertIn("plan 9<", page)
        self.assertNotIn("plan 10<", page)
        self.assertNotIn("tokens a month", page)
        self.assertNotIn("Older", page)
        newest = html.unescape(re.search(r'href="([^"]*)">Newest', page)[1])
        self.assertIn("plan 59<", self.boss.get(newest).text)
        self.assertIn("No entry.", self.boss.get("/admin/audit?action=%3Cnone").text)
        caps = self.run_json("audit", "--action", "set-allowance")
        self.assertEqual([entry["detail"] for entry in caps],
                         [f"{number} tokens a month" for number in (50, 40, 30, 20, 10)] + ["no limit"])
        rest = self.run_json("audit", "--action", "set-allowance", "--before", str(caps[1]["id"]),
                             "--count", "2")
        self.assertEqual(rest, caps[2:4])

    def test_accounts_and_passwords_of_the_command_line_are_in_the_trail(self):
        self.run_command("ensure-account", "bob@example.org")
        self.run_command("ensure-account", "bob@example.org")
        self.run_command("set-password", "bob@example.org", "--generate")
        self.run_command("set-password", "eve@example.org", "--generate", status=1)
        self.run_command("create-account", "bob@example.org", "--generate", status=1)
        self.run_command("create-account", "cat@example.org", "--generate", "--plan", "team",
                         "--cap", "5")
        trail = self.run_json("audit", "--count", "3")
        self.assertEqual([(entry["action"], entry["detail"]) for entry in trail],
                         [("create-account", "team, 5 tokens a month"), ("set-password", ""),
                          ("create-account", "local, no limit")])
        self.assertEqual(trail[1]["subject"], trail[2]["subject"])
        self.assertEqual({entry["actor"] for entry in trail}, {"command line"})

    def test_search_among_people(self):
        for number in range(60):
            self.run_command("create-account", f"p{number:02}@example.org", "--generate")
        page = self.boss.get("/admin/people").text
        self.assertIn("Page 1 of 2", page)
        self.assertIn("p59@", self.boss.get("/admin/people?page=2").text)
        found = self.boss.get("/admin/people?q=P07").text
        self.assertIn("p07@", found)
        self.assertNotIn("p08@", found)
        self.assertIn("Nobody", self.boss.get("/admin/people?q=%3Cnobody").text)

    def test_commands_do_what_the_pages_do(self):
        sent = self.run_json("send-message", "--title", "T", "--text", "B", "--kind", "blocking")
        self.assertEqual(self.config_of_ann()["adminMessage"]["id"], sent["id"])
        self.run_command("withdraw-message", sent["id"])
        self.run_command("withdraw-message", sent["id"], status=1)
        self.assertNotIn("adminMessage", self.config_of_ann())
        self.run_command("offer-models", "second")
        self.assertEqual([model["offered"] for model in self.run_json("list-models")], [False, True])
        self.run_command("offer-models", "third", status=1)
        self.run_command("set-prompt", given="Be brief.\n")
        self.assertEqual(self.config_of_ann()["defaultPrompt"], "Be brief.")
        self.run_command("set-prompt", "--reset")
        self.run_command("suspend", "ann@example.org")
        self.assertEqual(self.run_json("audit", "ann@example.org")[0]["action"], "suspend")
        self.assertEqual({entry["actor"] for entry in self.run_json("audit", "ann@example.org")},
                         {"command line"})


if __name__ == "__main__":
    unittest.main()
