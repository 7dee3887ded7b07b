"""Base case for pointer tests: a signed-in panel above a focused document."""

import re

from harness import HostileServer, SignedInCase, wait_until
from harness.server import QUERY

MODELS = [{"id": f"m{number}", "displayName": f"Model {number}", "descriptor": f"Number {number}"}
          for number in range(3)]


class PointerCase(SignedInCase):
    """A focused document below the panel."""

    server_config = {"availableModels": MODELS, "model": "m0", "tokensUsed": 850000,
                     "tokensRemaining": 150000}

    def setUp(self):
        self.window = self.other_window()
        super().setUp()
        self.app = self.shared_app
        self.access = self.app.access
        self.shared_server.on(QUERY, HostileServer.answer_with("Hello from the server.",
                                                               tokensRemaining=150000))
        self.focus_document()
        self.before = len(self.shared_server.requests(QUERY))

    def tearDown(self):
        if self.access.find("Remove screenshot"):
            self.access.click("Remove screenshot")
            self.access.wait_gone("Remove screenshot")

    def beside(self):
        _, x, y, width, _ = self.shared_app.panel()
        return x + width + 40, y + 40

    def focus_document(self):
        """Focuses the document with a click."""
        mark = self.window.mark()
        self.desktop.click(*self.beside())
        self.window.wait_for("press", 1, since=mark)
        self.window.wait_focus()

    def in_page(self, name, role):
        """The node of the page with this role whose name contains an expression."""
        page = self.access.find(re.compile(""), "document web")
        return wait_until(lambda: next((node for node in self.access.shown(page)
                                        if node.get_role_name() == role
                                        and re.search(name, node.get_name() or "")), None),
                          what=f"the {role} in the page")

    def bounds(self, node):
        """Screen bounds of a page node; the engine reports window coordinates."""
        page = self.access.bounds(self.access.find(re.compile(""), "document web"))
        _, left, top, _, _ = self.app.panel()
        x, y, width, height = self.access.bounds(node)
        return x + left - page[0], y + top + 72 - page[1], width, height

    def type_prompt(self, text):
        self.shared_app.focus_prompt()
        self.desktop.type_text(text)
        wait_until(lambda: self.stored("userPrompt") == text.replace("\n", ""),
                   what="the stored prompt")

    def request(self):
        return self.shared_server.wait_for_request(QUERY, self.before + 1).json()

    def assert_border(self, panels_height):
        """Checks that clicks pass just above the bottom panels, but not below their upper edge."""
        _, x, y, width, height = self.shared_app.panel()
        edge = y + height - panels_height
        column = x + width // 2

        def passes():
            mark = self.window.mark()
            self.desktop.click(column, edge - 2)
            self.desktop.click(*self.beside())
            self.window.wait_for("press", 1, since=mark)
            wait_until(lambda: self.window.events("press", since=mark)[-1].x == self.beside()[0],
                       what="the click beside the panel")
            return (column, edge - 2) in [(event.x, event.y)
                                          for event in self.window.events("press", since=mark)]
        wait_until(passes, 10, f"clicks to pass above panels of {panels_height}")
        mark = self.window.mark()
        self.desktop.click(column, edge + 2)
        self.desktop.click(*self.beside())
        wait_until(lambda: self.window.events("press", since=mark), what="the click beside")
        self.assertEqual([event.x for event in self.window.events("press", since=mark)],
                         [self.beside()[0]], "a click went through the panels")
