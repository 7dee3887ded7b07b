"""The team's own sign-in: with a provider that lies, and with a real one."""

import json
import time
import unittest
import urllib.parse

import real_provider
from fake_provider import CLIENT, SECRET, FakeProvider, SigningKey, url64
from team_case import CALLBACK, TeamCase
from team_parts import wait_until

_BEGIN = "/login/team?callback=" + urllib.parse.quote(CALLBACK, safe="")


class SignInCase(TeamCase):
    def signed_in_as(self, reply):
        """The app's configuration after the browser has come to its listener."""
        self.assertEqual(reply.status, 303, reply.text)
        self.assertTrue(reply.location.startswith(CALLBACK + "?token="), reply.location)
        token = urllib.parse.parse_qs(urllib.parse.urlsplit(reply.location).query)["token"][0]
        verified = self.visitor().post_json("/api/auth/app-verify", {}, token)
        self.assertEqual(verified.status, 200)
        # The token in the address is good for one exchange.
        self.assertEqual(self.visitor().post_json("/api/auth/app-verify", {}, token).status, 401)
        return verified.json


class TeamSignInTest(SignInCase):
    def setUp(self):
        super().setUp()
        self.provider = FakeProvider()
        self.addCleanup(self.provider.close)
        self.configure('allowed_domains = ["example.org"]')

    def configure(self, more=""):
        self.config.write_text(f"""
[oidc]
issuer = "{self.provider.issuer}"
client_id = "{CLIENT}"
client_secret = "{SECRET}"
name = "Example <Ltd>"
{more}
""")

    def begin(self, visitor):
        reply = visitor.get(_BEGIN)
        self.assertEqual(reply.status, 303, reply.text)
        return self.provider.authorize(reply.location)

    def sign_in(self, visitor=None, **changes):
        visitor = visitor or self.visitor()
        _, answer = self.begin(visitor)
        answer = {name: value for name, value in (answer | changes).items() if value is not None}
        return visitor.get("/login/team/done?" + urllib.parse.urlencode(answer))

    def refused(self, status, **changes):
        reply = self.sign_in(**changes)
        self.assertEqual(reply.status, status, reply.text)
        self.assertNotIn("token=", reply.location)
        return reply.text

    def emails(self):
        return [account["email"] for account in self.run_json("list-accounts")]

    def test_it_ends_at_the_apps_listener(self):
        self.start()
        page = self.visitor().get("/login?callback=" + urllib.parse.quote(CALLBACK, safe="")).text
        self.assertIn("Sign in with Example &lt;Ltd&gt;", page)
        first = self.signed_in_as(self.sign_in())
        second = self.signed_in_as(self.sign_in())
        self.assertNotEqual(first["token"], second["token"])
        self.assertEqual(self.emails(), ["ann@example.org"])
        self.assertEqual(self.provider.requests.count("/.well-known/openid-configuration"), 1)
        # Later the subject counts, whatever the address has become.
        self.provider.person["email"] = "ann.married@elsewhere.example"
        self.signed_in_as(self.sign_in())
        self.assertEqual(self.emails(), ["ann@example.org"])

    def test_without_provider_there_is_no_such_page(self):
        self.config.write_text("")
        self.start()
        self.assertEqual(self.visitor().get(_BEGIN).status, 404)
        self.assertNotIn("Sign in with",
                         self.visitor().get("/login?callback=" + CALLBACK).text)

    def test_the_secret_goes_where_the_provider_wants_it(self):
        for methods, place in ((None, "header"), (["client_secret_basic"], "header"),
                               (["client_secret_post"], "form"),
                               # Special characters are unambiguous in the form only.
                               (["client_secret_basic", "client_secret_post"], "form")):
            self.provider.description = (
                {"token_endpoint_auth_methods_supported": methods} if methods else {})
            self.start()
            self.signed_in_as(self.sign_in())
            self.assertEqual(self.provider.secret_in, place)
            self.stop()

    def test_only_the_app_may_begin(self):
        self.start()
        for callback in ("", "http://127.0.0.1:9877/other", "https://evil.example"):
            reply = self.visitor().get("/login/team?callback=" + callback)
            self.assertEqual(reply.status, 400)

    def test_invited_people_and_nobody_else_without_allowed_domains(self):
        self.configure()
        self.run_command("invite", "ann@example.org")
        self.account("bob@example.org")
        self.start()
        self.signed_in_as(self.sign_in())
        for email in ("bob@example.org", "carl@example.org"):
            self.provider.person.update(sub=email, email=email)
            self.assertIn("Nobody has invited", self.refused(403))
        self.assertEqual(self.emails(), ["ann@example.org", "bob@example.org"])

    def test_a_domain_is_allowed_as_a_whole(self):
        self.start()
        for email in ("ann@notexample.org", "ann@example.org.evil.example", "ann@sub.example.org"):
            self.provider.person["email"] = email
            self.refused(403)
        self.assertEqual(self.emails(), [])

    def test_an_address_must_be_verified(self):
        self.start()
        for change in ({"email_verified": False}, {"email_verified": None}, {"email": None},
                       {"email": "no address"}):
            self.provider.lies = change
            self.assertIn("not verified", self.refused(403))
        self.assertEqual(self.emails(), [])

    def test_another_person_does_not_take_over_an_address(self):
        self.start()
        self.signed_in_as(self.sign_in())
        self.provider.person["sub"] = "person-2"
        self.assertIn("another person", self.refused(403))

    def test_a_suspended_account_stays_out(self):
        self.start()
        self.signed_in_as(self.sign_in())
        self.run_command("suspend", "ann@example.org")
        self.assertIn("suspended", self.refused(403))

    def test_claims_that_lie(self):
        self.start()
        now = int(time.time())
        for lie in ({"iss": "https://evil.example"}, {"iss": self.provider.issuer + "/"},
                    {"aud": "another-client"}, {"aud": [CLIENT, "another-client"]},
                    {"nonce": "another"}, {"nonce": None}, {"exp": now - 120}, {"exp": None},
                    {"iat": now + 3600}, {"sub": None}):
            self.provider.lies = lie
            self.refused(502)
        self.provider.lies = {}
        self.signed_in_as(self.sign_in())
        self.assertFalse([line for line in self.lines if "person-1" in line or "code-" in line])

    def test_signatures_that_lie(self):
        self.start()
        honest = self.provider.token
        other = SigningKey()

        def unsigned(claims):
            return (url64(b'{"alg":"none"}') + "." + url64(json.dumps(claims).encode()) + ".")

        def changed(claims):
            head, _, signature = honest(claims).split(".")
            return ".".join((head, url64(json.dumps(claims | {"sub": "x"}).encode()), signature))
        for token in (unsigned, changed, other.token, lambda _: "", lambda _: "a.b.c",
                      lambda claims: honest(claims)[:-8]):
            self.provider.token = token
            self.refused(502)
        self.assertEqual(self.emails(), [])

    def test_a_changed_key_is_fetched(self):
        self.start()
        self.signed_in_as(self.sign_in())
        self.provider.key = SigningKey("k2")
        self.provider.keys = [self.provider.key]
        # Once a minute at most, so that made-up keys cause no flood.
        self.refused(502)
        self.assertEqual(self.provider.requests.count("/keys"), 1)

    def test_an_answer_counts_once_and_for_its_browser(self):
        self.start()
        visitor = self.visitor()
        _, answer = self.begin(visitor)
        address = "/login/team/done?" + urllib.parse.urlencode(answer)
        cookies = dict(visitor.cookies)
        self.assertEqual(self.visitor().get(address).status, 400)
        self.signed_in_as(visitor.get(address))
        visitor.cookies = cookies
        self.assertEqual(visitor.get(address).status, 400)
        self.assertEqual(visitor.get("/login/team/done").status, 400)
        self.assertEqual(visitor.get("/login/team/done?state=made-up&code=x").status, 400)
        # Another sign-in's answer in this browser: its state is another browser's.
        other = self.visitor()
        _, stolen = self.begin(other)
        self.begin(visitor)
        self.assertEqual(visitor.get("/login/team/done?" + urllib.parse.urlencode(stolen)).status, 400)

    def test_the_cookie_of_a_sign_in(self):
        self.start()
        reply = self.visitor().get(_BEGIN)
        for part in ("HttpOnly", "SameSite=Lax", "Path=/login/team", "Max-Age=600"):
            self.assertIn(part, reply.headers["Set-Cookie"])

    def test_answers_of_another_provider_are_not_exchanged(self):
        self.provider.description = {"authorization_response_iss_parameter_supported": True}
        self.start()
        exchanges = self.provider.requests.count("/token")
        self.refused(502, iss="https://evil.example")
        self.refused(502)
        self.assertEqual(self.provider.requests.count("/token"), exchanges)
        self.signed_in_as(self.sign_in(iss=self.provider.issuer))

    def test_refusals_of_the_provider(self):
        self.start()
        self.assertIn("did not sign you in", self.refused(403, code=None, error="access_denied"))
        self.refused(502, code="made-up")

    def test_descriptions_that_lie(self):
        for description in ({"issuer": "https://evil.example"}, {"token_endpoint": None},
                            {"token_endpoint": "http://evil.example/token"},
                            {"authorization_endpoint": "javascript:alert(1)"},
                            {"code_challenge_methods_supported": ["plain"]}):
            with self.subTest(description):
                self.provider.description = description
                self.start()
                self.assertEqual(self.visitor().get(_BEGIN).status, 502)
                self.stop()

    def test_a_provider_that_is_away(self):
        self.start()
        self.provider.close()
        reply = self.visitor().get(_BEGIN)
        self.assertEqual(reply.status, 502)
        self.assertIn("cannot be reached", reply.text)

    def test_configurations_that_cannot_be(self):
        for text, word in (('issuer = "http://id.example.org"\nclient_id = "x"', "https"),
                           ('issuer = "https://id.example.org"', "client_id"),
                           ('client_secret_file = "/no/such/file"', "client_secret_file"),
                           ('isuer = "x"', "isuer")):
            self.config.write_text("[oidc]\n" + text + "\n")
            self.assertIn(word, self.run_command("check-config", status=1))


@unittest.skipUnless(real_provider.PROGRAM, "needs the Debian package glewlwyd")
class RealProviderTest(SignInCase):
    """The same with a provider that nobody here wrote."""

    def setUp(self):
        super().setUp()
        port = real_provider.free_port()
        self.provider = real_provider.RealProvider(f"http://127.0.0.1:{port}/login/team/done")
        self.addCleanup(self.provider.close)
        self.configure(real_provider.SECRET)
        self.start("--port", str(port))

    def configure(self, secret):
        self.config.write_text(f"""
[oidc]
issuer = "{self.provider.issuer}"
client_id = "{real_provider.CLIENT}"
client_secret = "{secret}"
allowed_domains = ["example.org"]
""")

    def come_back(self, name, password, visitor=None):
        """Signs in at the provider and consents; what the backend replies to the browser then."""
        visitor = visitor or self.visitor()
        session = real_provider.Session(self.provider)
        begun = visitor.get(_BEGIN)
        self.assertEqual(begun.status, 303, begun.text)
        login = session.authorize(begun.location)
        self.assertNotIn("code=", urllib.parse.urlsplit(login).query.split("callback_url")[0])
        session.sign_in(name, password)
        session.grant("openid email")
        back = session.go_on(login)
        self.assertTrue(back.startswith(self.url + "/login/team/done?"), back)
        self.back = back[len(self.url):]
        return visitor.get(self.back)

    def email_of(self, reply):
        self.signed_in_as(reply)
        return [account["email"] for account in self.run_json("list-accounts")]

    def test_it_ends_at_the_apps_listener(self):
        password = self.provider.add_person("ann", "Ann@Example.org", True)
        visitor = self.visitor()
        self.assertEqual(self.email_of(self.come_back("ann", password, visitor)),
                         ["ann@example.org"])
        # Neither the browser nor anybody else can use the answer again.
        for again in (visitor, self.visitor()):
            self.assertEqual(again.get(self.back).status, 400)
        self.assertEqual(self.email_of(self.come_back("ann", password)), ["ann@example.org"])
        self.assertEqual([entry["action"] for entry in self.run_json("audit")],
                         ["first-team-sign-in"])

    def test_an_address_must_be_verified_and_of_the_team(self):
        for name, email, is_verified in (("bob", "bob@example.org", False),
                                         ("carl", "carl@elsewhere.example", True)):
            password = self.provider.add_person(name, email, is_verified)
            reply = self.come_back(name, password)
            self.assertEqual(reply.status, 403, reply.text)
        self.assertEqual(self.run_json("list-accounts"), [])

    def test_a_wrong_secret_signs_nobody_in(self):
        password = self.provider.add_person("ann", "ann@example.org", True)
        port = self.url.rsplit(":", 1)[1]
        self.stop()
        self.configure("another secret")
        self.start("--port", port)
        self.assertEqual(self.come_back("ann", password).status, 502)
        # The log is read beside the replies.
        wait_until(lambda: any("exchange of the code" in line for line in self.lines),
                   "the log's line")
        self.assertNotIn("another secret", "\n".join(self.lines))
        self.assertEqual(self.run_json("list-accounts"), [])


if __name__ == "__main__":
    unittest.main()
