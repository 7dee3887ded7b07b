"""Base classes of the tests."""

import os
import pathlib
import sys
import unittest

from .app import App
from .desktop import Desktop
from .messages import PREFIX, STREAM_COMPLETE
from .server import QUERY, HostileServer
from .waiting import wait_until
from .windows import OtherWindow

#: Folder for screenshots and logs of failed tests.
ARTIFACTS = pathlib.Path(os.environ.get(
    "QUELLORA_E2E_ARTIFACTS", pathlib.Path(__file__).resolve().parents[3] / "out" / "e2e"))


class E2ECase(unittest.TestCase):
    """One desktop per test file; every test starts its own programs."""

    #: Arguments for the Desktop.
    desktop_options = {}
    desktop = None
    #: Folder for screenshots and logs of failed tests.
    artifacts = ARTIFACTS

    @classmethod
    def setUpClass(cls):
        if E2ECase.desktop is None:
            E2ECase.desktop = Desktop(**cls.desktop_options)
            unittest.addModuleCleanup(cls._close_desktop)

    @staticmethod
    def _close_desktop():
        E2ECase.desktop.close()
        E2ECase.desktop = None

    def run(self, result=None):
        self.apps = []
        self._result = result
        self._problems_before = self._problems()
        return super().run(result)

    def _problems(self):
        return len(self._result.failures) + len(self._result.errors) if self._result else 0

    def _keep_evidence(self):
        """Cleanup that runs first: saves a screenshot and the logs after a failure."""
        if self._problems() == self._problems_before or self.desktop is None:
            return
        self.artifacts.mkdir(parents=True, exist_ok=True)
        name = self.id().replace("__main__", pathlib.Path(sys.argv[0]).stem)
        self.desktop.screenshot().save_png(self.artifacts / f"{name}.png")
        for index, app in enumerate(self.apps):
            text = "\n".join(app.raw_lines + ["", "standard error:"] + app.error_output)
            (self.artifacts / f"{name}-{index}.log").write_text(text + "\n")

    def server(self, **config):
        """Starts a server that is closed at the end of the test."""
        server = HostileServer(**config)
        self.addCleanup(self._close_server, server)
        return server

    def _close_server(self, server):
        server.close()
        self.assertEqual(server.errors, [], "the test server failed")

    def app(self, server, **options):
        """Starts a program that is closed at the end of the test."""
        url = server if isinstance(server, str) else server.url
        app = App(self.desktop, url, **options)
        self.apps.append(app)
        self.addCleanup(app.close)
        self.addCleanup(self._keep_evidence)
        return app.start()

    def press_in_page(self, app, name):
        """Moves the focus from the prompt box to a control of the response page and presses it."""
        app.focus_prompt()
        while before := app.access.focused_name():
            self.desktop.press("f6")
            wait_until(lambda: app.access.focused_name() != before, what="the focus to move on")
        while not app.access.has_state(app.access.wait_for(name), "FOCUSED"):
            focused = self._focused_in_page(app)
            self.desktop.press("tab")
            wait_until(lambda: self._focused_in_page(app) != focused, what="the next control")
        self.desktop.press("return")

    @staticmethod
    def _focused_in_page(app):
        """Index of the focused control of the page."""
        page = app.access.find("Response", "document web")
        return [index for index, node in enumerate(app.access.shown(page))
                if app.access.has_state(node, "FOCUSED")] if page else None

    def other_window(self, **options):
        """Opens a document window that is closed at the end of the test."""
        window = OtherWindow(self.desktop, **options)
        self.addCleanup(window.close)
        return window


class SignedInCase(E2ECase):
    """One signed-in program for all tests of a class; each test starts with a new thread."""

    server_config = {}
    app_options = {}

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.shared_server = HostileServer(**cls.server_config)
        cls.addClassCleanup(cls.shared_server.close)
        cls.shared_app = App(cls.desktop, cls.shared_server.url, **cls.app_options)
        cls.addClassCleanup(cls.shared_app.close)
        cls.shared_app.start().sign_in()

    def setUp(self):
        self.apps = [self.shared_app]
        self.addCleanup(self._keep_evidence)
        self.shared_server.on(QUERY, HostileServer.answer_with("Hello from the server."))
        app = self.shared_app
        mark = app.mark()
        app.access.press("New thread")
        app.wait_for_line(PREFIX + "New thread started", since=mark)
        if app.stored_defaults().get("userPrompt"):
            self.empty_prompt()
        self.mark = app.mark()
        self.turns_before = len(app.turns())

    def empty_prompt(self):
        """Clears the prompt box."""
        app = self.shared_app
        app.focus_prompt()
        self.desktop.press("ctrl+a")
        self.desktop.press("delete")
        wait_until(lambda: app.stored_defaults().get("userPrompt") == "", what="the empty box")

    def stored(self, key):
        """A stored preference."""
        return self.shared_app.stored_defaults().get(key)

    def ask(self, text):
        """Sends a prompt with the keyboard, as a user would."""
        app = self.shared_app
        app.send_prompt(text)
        app.wait_for_line(PREFIX + "Send button clicked — prompt-only query", since=self.mark)

    def wait_answer(self):
        """Waits for the end of the answer; returns the app."""
        app = self.shared_app
        app.wait_for_line(STREAM_COMPLETE, since=self.mark)
        return app
