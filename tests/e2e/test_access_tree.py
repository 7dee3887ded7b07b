"""Accessibility of every screen: names, roles, states and Tab order."""

import json
import re
import threading
import unittest
import uuid

from access_walk import Screen, titled
from harness import (App, E2ECase, HostileServer, TEST_PASSWORD, chunk_event, login_response,
                     wait_until)
from harness.server import LOGIN, QUERY

NEWS = {"id": "m1", "type": "INFORMATIONAL", "headerText": "Maintenance",
        "bodyMarkdown": "Back **soon**.", "actionLabel": "Read more",
        "actionUrl": "https://status.example/more"}
ANSWER = "A line of the answer.\n\n" * 40 + "```\ncode\n```\n"
BOX = ["Model", "Prompts", "Add note", "Capture without sending", "Capture and send", "Send",
       "Save thread", "New thread"]
BAR = ["Close", "Minimize", "Zoom", "Opacity", "Menu"]
BUTTON, ITEM, RADIO = "push button", "list item", "radio button"
SIGN_UP = "Don't have an account? Sign up"


class AccessTreeTest(E2ECase):
    """Walks one program through all screens."""

    def setUp(self):
        self.desktop.fill_root((90, 120, 150))
        self.backend = self.server()
        self.program = App(self.desktop, self.backend.url, defaults={"userPrompt": ""})
        self.apps.append(self.program)
        self.addCleanup(self.program.close)
        self.addCleanup(self._keep_evidence)
        self.program.start()
        self.access = self.program.access

    def look(self, below=None, **options):
        """The current screen, after the checks that apply to every screen."""
        screens = []

        def is_sound():
            # A loading page has no name yet.
            screens.append(Screen(self.program, below, **options))
            return not screens[-1].problems()
        try:
            wait_until(is_sound, 3, "a sound screen")
        except AssertionError:
            with self.subTest("every control"):
                self.assertEqual(screens[-1].problems(), [])
        return screens[-1]

    def assert_states(self, item, *expected, absent=()):
        self.assertEqual(set(expected) - item.states, set(), item)
        self.assertEqual(set(absent) & item.states, set(), item)

    def open_from_menu(self, name, sign):
        self.access.press("Menu")
        self.access.press(name, "menu item")
        return self.access.wait_for(sign)

    def test_every_screen(self):
        for screen in (self.login, self.login_error, self.login_waits, self.first_launch,
                       self.empty_history, self.answer, self.streaming, self.attachment,
                       self.model_list, self.menu, self.history, self.no_match, self.rename,
                       self.delete_dialog, self.settings, self.blocking):
            with self.subTest(screen.__name__):
                screen()

    # -- sign-in --------------------------------------------------------------------------------

    def login(self):
        self.program.wait_login_window()
        screen = self.look()
        self.assertEqual(screen.controls(), [
            ("Email", "text"), ("Password", "password text"), ("Forgot password?", "link"),
            ("Sign in", BUTTON), ("Sign in with Google", BUTTON), (SIGN_UP, "link")])
        self.assertEqual(len(screen.all("Quellora", "heading")), 1)
        self.assert_states(screen.get("Sign in", BUTTON), absent=("sensitive",))
        screen.walk_with_tab("Password", "Forgot password?", "Sign in with Google", SIGN_UP)
        screen.walk_with_tab(SIGN_UP, "Sign in with Google", "Forgot password?", "Password",
                             key="shift+tab")

    def login_error(self):
        self.backend.on(LOGIN, HostileServer.status(401))
        self.program.fill_login()
        self.desktop.press("return")
        self.access.wait_for("Invalid email or password")
        self.access.wait_for("Password", focused=True)
        screen = self.look()
        self.assertEqual(screen.secrets(TEST_PASSWORD), [])
        self.assertEqual(screen.get("Invalid email or password").role, "alert")
        password = screen.get("Password")
        self.assertEqual(password.description, "Invalid email or password")
        self.assertEqual(self.access.text_of(password.node), "•" * len(TEST_PASSWORD))
        screen.walk_with_tab("Forgot password?", "Sign in", "Sign in with Google", SIGN_UP,
                             "Email")

    def login_waits(self):
        self.access.press("Sign in with Google")
        self.access.wait_for("Waiting for your browser…")
        screen = self.look()
        self.assertEqual(len(screen.all("Finish signing in there, then come back here.")), 1)
        self.assert_states(screen.get("Cancel", BUTTON), "focusable")
        gate = threading.Event()
        self.addCleanup(gate.set)

        def slow(connection, _request):
            connection.wait_for(gate)
            connection.respond(200, login_response(adminMessage=NEWS))
        self.backend.on(LOGIN, slow)
        self.access.click("Password")
        self.access.wait_for("Password", focused=True)
        self.desktop.press("return")
        self.access.wait_for("Signing in")
        screen = self.look()
        self.assertEqual(screen.all("Sign in", BUTTON), [])
        self.assertEqual(screen.secrets(TEST_PASSWORD), [])
        gate.set()
        self.program.wait_overlay_shown()

    # -- the overlay ----------------------------------------------------------------------------

    def first_launch(self):
        self.access.wait_for("Got it")
        self.access.wait_for("Read more")
        self.program.focus_prompt()
        self.desktop.type_text("x")
        self.access.wait_for("Send", enabled=True)
        screen = self.look()
        self.assertEqual(len(screen.all("Shortcuts to start with", "heading")), 1)
        self.assertEqual(screen.get("Maintenance").role, "panel")
        self.assertEqual(screen.get("Menu").states & {"expandable", "expanded"}, {"expandable"})
        self.assert_states(screen.get("Save thread", "check box"), absent=("checked",))
        self.assert_states(screen.get("Scroll up"), absent=("sensitive",))
        self.assert_states(screen.get("Response scroll position"), absent=("focusable",))
        self.assert_states(screen.get("Write a message"), "editable", "multi-line", "focused")
        screen.walk_with_tab(*BOX, *BAR, "Response", "Collapse message", "Read more", "Got it")
        self.access.press("Collapse message")
        self.access.wait_for("Expand message")
        screen = self.look()
        self.assertEqual(screen.all("Read more"), [])
        self.access.press("Got it")
        self.access.wait_gone("Got it")

    def empty_history(self):
        self.open_from_menu("History", "No saved threads yet")
        self.access.wait_for("Search threads", focused=True)
        screen = self.look(self.access.find("History", "panel"))
        self.assertEqual(len(screen.all("History", "heading")), 1)
        screen.walk_with_tab("Close")
        screen.walk_with_tab("Close", key="shift+tab")
        self.desktop.press("escape")
        self.access.wait_gone("Search threads")

    def answer(self):
        self.access.press("Save thread", "check box")
        self.backend.on(QUERY, HostileServer.answer_with(ANSWER, tokensRemaining=150000,
                                                         tokensUsed=850000))
        self.program.focus_prompt()
        self.desktop.press("return")
        self.access.wait_for("Copy answer")
        self.access.wait_for("Copy code", BUTTON)
        self.access.wait_for("Scroll up", enabled=True)
        self.program.focus_prompt()
        self.desktop.type_text("more")
        self.access.wait_for("Send", enabled=True)
        screen = self.look()
        self.assert_states(screen.get("Save thread", "check box"), "checked")
        self.assertEqual(screen.get("Response scroll position").role, "scroll bar")
        screen.walk_with_tab(*BOX, *BAR, "Usage 85%", "Edit question", "Retry", "Copy answer",
                             "Clicks reach the answer", "Copy code", "Scroll up",
                             "Response scroll position", "Scroll down", "Expand message")

    def streaming(self):
        gate = threading.Event()
        self.addCleanup(gate.set)
        self.backend.on(QUERY, HostileServer.stream(chunk_event("part"), gate))
        self.desktop.press("return")
        self.access.wait_for("Answering…", "status bar")
        screen = self.look()
        self.assertEqual(screen.all("Copy answer"), [])
        self.assertEqual(screen.get("Stop").role, BUTTON)
        self.access.press("Stop")
        self.access.wait_for("Stopped", "status bar")
        gate.set()

    def attachment(self):
        self.access.press("Capture without sending")
        self.access.wait_for("Attached screenshot", "image")
        self.access.wait_for("Capture and send", enabled=True)
        self.program.focus_prompt()
        screen = self.look()
        self.desktop.press("shift+tab")
        wait_until(screen.get("Remove screenshot", BUTTON).has_focus, what="the row's button")
        self.desktop.press("return")
        self.access.wait_gone("Attached screenshot")

    def model_list(self):
        self.access.press("Model", "combo box")
        self.access.wait_for("Model", "list")
        screen = self.look()
        self.assert_states(screen.get("Model", "combo box"), "expanded")
        self.assertEqual([item.name for item in screen.seen if item.role == ITEM],
                         ["Balanced", "Deep"])
        self.assert_states(screen.get("Balanced", ITEM), "selected", "selectable")
        self.assert_states(screen.get("Deep", ITEM), "selectable", absent=("selected",))
        self.assertEqual(screen.get("Deep", ITEM).description, "Slower, more thorough")
        self.desktop.press("escape")
        self.access.wait_gone("Model", "list")
        self.access.wait_for("Model", "combo box", focused=True)

    def menu(self):
        self.access.press("Menu")
        self.access.wait_for("Account", "menu item")
        self.assert_states(self.look().get("Menu", BUTTON), "expanded")
        screen = self.look(self.access.find("Menu", "popup menu"))
        self.assertEqual(screen.controls(), [(name, "menu item") for name in
                                             ("History", "Export or copy thread", "Settings",
                                              "Capture window", "Capture region", "Account",
                                              "Upgrade", "Sign Out")])
        self.assertEqual(screen.get("Usage").role, "panel")
        self.assertIn("85% used", screen.get("Usage").description)
        wait_until(screen.get("History").has_focus, what="the focus on the first row")
        rows = ("Export or copy thread", "Settings", "Capture window", "Capture region", "Account",
                "Upgrade", "Sign Out")
        screen.walk_with_tab(*rows)
        screen.walk_with_tab(*reversed(rows), key="shift+tab")
        self.desktop.press("escape")
        self.access.wait_gone("Account")
        self.access.wait_for("Menu", focused=True)

    # -- History --------------------------------------------------------------------------------

    def store_thread(self, prompt):
        name = str(uuid.uuid4()).upper()
        folder = self.program.data_home / "Quellora" / "sessions" / name
        folder.mkdir(parents=True)
        stamp = "2026-01-03T10:00:00Z"
        (folder / "session.json").write_text(json.dumps({
            "id": name, "createdAt": stamp, "updatedAt": stamp, "screenshots": [],
            "notes": [], "turns": [{"id": str(uuid.uuid4()).upper(), "prompt": prompt,
                                    "response": "answer", "createdAt": stamp}]}))

    def pane(self):
        return self.look(self.access.find("History", "panel"))

    def history(self):
        self.store_thread("An older question")
        self.open_from_menu("History", titled("An older question"))
        self.access.wait_for("Search threads", focused=True)
        screen = self.pane()
        self.assertEqual([item.name for item in screen.seen if item.role == "heading"],
                         ["History", "Today", "3 Jan 2026"])
        rows = [item for item in screen.seen if item.role == ITEM]
        self.assertEqual([row.name.split(",")[0] for row in rows], ["x", "An older question"])
        self.assert_states(rows[0], "selected", "selectable")
        self.assert_states(rows[1], "selectable", absent=("selected",))
        self.assertEqual(rows[1].description, "1 turn")
        # Tab reaches one row and its buttons; arrows move to the others.
        self.desktop.press("tab")
        wait_until(rows[0].has_focus, what="the focus on the first row")
        screen = self.pane()
        screen.walk_with_tab("Export or copy thread", "Rename thread", "Delete thread", "Close",
                             "Search threads")
        self.desktop.press("down")
        wait_until(rows[1].has_focus, what="the focus on the second row")
        self.pane().walk_with_tab("Export or copy thread", "Rename thread", "Delete thread", "Close",
                                  "Search threads")

    def no_match(self):
        self.access.click("Search threads")
        self.access.wait_for("Search threads", focused=True)
        self.desktop.type_text("zzz")
        self.access.wait_for("No matching threads")
        self.pane().walk_with_tab("Clear search", "Clear search", "Close")
        self.access.press("Clear search")
        self.access.wait_for(titled("An older question"))

    def rename(self):
        self.access.click("Search threads")
        self.access.wait_for("Search threads", focused=True)
        self.desktop.press("down")
        self.access.wait_for(titled("x"), focused=True)
        self.desktop.press("down")
        self.access.wait_for(titled("An older question"), focused=True)
        self.desktop.press("F2")
        self.access.wait_for("Thread title", "text", focused=True)
        screen = self.pane()
        self.assertEqual(self.access.text_of(screen.get("Thread title").node), "An older question")
        self.assertEqual(screen.get("Thread title").description, "Return saves, Escape cancels")
        self.desktop.press("escape")
        self.access.wait_for(titled("An older question"), focused=True)

    def delete_dialog(self):
        self.desktop.press("delete")
        dialog = self.access.wait_for("Delete this thread?", "dialog")
        self.access.wait_for("Cancel", focused=True)
        screen = self.look(dialog)
        self.assertIn("An older question", dialog.get_description())
        self.assertEqual(screen.controls(), [("Cancel", BUTTON), ("Delete", BUTTON)])
        screen.walk_with_tab("Delete")
        screen.walk_with_tab("Delete", key="shift+tab")
        self.access.press("Cancel")
        self.access.wait_gone("Delete this thread?")
        self.access.wait_for(titled("An older question"), focused=True)
        self.desktop.press("escape")
        self.access.wait_gone("Search threads")

    # -- settings and blocking ------------------------------------------------------------------

    def settings(self):
        self.open_from_menu("Settings", "Response text color")
        pane = self.access.find("Settings", "panel")
        screen = self.look(pane, scrolled=True)
        self.assertEqual([item.name for item in screen.seen if item.role == "heading"],
                         ["Settings", "Model", "Appearance", "Response text color", "Sending",
                          "Panel", "Prompts", "Answers", "History", "Hotkeys", "About"])
        radios = [item for item in screen.seen if item.role == RADIO]
        self.assertEqual([radio.name for radio in radios],
                         ["Balanced", "Deep", "Light", "Dark", "System"]
                         + [f"Text color: {name}" for name in
                            ("Theme", "White", "Near black", "Green", "Cyan", "Blue", "Violet",
                             "Magenta", "Amber")])
        self.assertEqual([radio.name for radio in radios if "checked" in radio.states],
                         ["Balanced", "System", "Text color: Theme"])
        switches = [item for item in screen.seen if item.role == "check box"]
        self.assertEqual([item.name for item in switches],
                         ["Start a new thread with each Send", "Don't clear prompt after sending",
                          "Look before sending", "Start where I left it",
                          "Notify when an answer is ready", "Keep threads for 30 days"])
        for item in switches:
            if item.name == "Start where I left it":
                self.assert_states(item, "checked")
            else:
                self.assert_states(item, absent=("checked",))
            self.assertTrue(item.description)
        rows = [item.name for item in screen.all(re.compile(", (.*Super.*|not set)$"), BUTTON)]
        self.assertEqual(len([row for row in rows if "Super" in row]), 7)
        prompts = ["Prompt Explain", "Prompt Fix the error", "Prompt Translate"]
        self.assertEqual([f"Capture and send: {name[7:]}, not set" for name in prompts], rows[-3:])
        # The buttons of a prompt appear with the focus.
        prompt_walk = [name for prompt in prompts
                       for name in (prompt, *(tool for tool in (
                           f"Move {prompt[7:]} up", f"Move {prompt[7:]} down",
                           f"Delete {prompt[7:]}")
                           if tool not in ("Move Explain up", "Move Translate down")))]
        licenses = [item.name for item in screen.seen if item.name.startswith("License of ")]
        self.assertIn("License of marked", licenses)
        after = ["Notify when an answer is ready", "Keep threads for 30 days"]
        before = [item.name for item in switches if item.name not in after]
        self.desktop.press("tab")
        wait_until(screen.get("Balanced").has_focus, what="the focus on the first section")
        screen.walk_with_tab("System", "Text color: Theme", "Custom text color",
                             *before, *prompt_walk, "Add a prompt",
                             *after, "Days to keep threads", "Delete all threads", *rows,
                             "Reset all hotkeys",
                             "Need help? See the Help docs ↗", *licenses, "Close")
        self.desktop.press("escape")
        self.access.wait_gone("Response text color")
        self.access.wait_for("Menu", focused=True)

    def blocking(self):
        self.backend.on(QUERY, HostileServer.status(429, b"{}"))
        self.program.focus_prompt()
        self.desktop.press("ctrl+a")
        self.desktop.type_text("again\n")
        self.access.wait_for("Upgrade Now")
        self.access.wait_for("Sending is blocked")
        self.program.focus_prompt()
        screen = self.look()
        self.assertEqual(screen.get("Credit Limit Reached").role, "alert")
        self.assertTrue(screen.get("Credit Limit Reached").description)
        for name in ("Send", "Capture and send"):
            self.assertEqual(screen.get(name, BUTTON).description, "Blocked: Credit Limit Reached")
            self.assert_states(screen.get(name, BUTTON), "sensitive", "focusable")
        self.desktop.press("shift+tab")
        wait_until(screen.get("Upgrade Now", BUTTON).has_focus, what="the card's button")


if __name__ == "__main__":
    unittest.main()
