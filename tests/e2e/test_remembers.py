"""What a later start remembers: the panel's place, size and opacity, and the answer's text size."""

import unittest

from harness import E2ECase, wait_until
from harness.messages import PREFIX


class RemembersTest(E2ECase):
    def place(self, app):
        _, x, y, width, height = app.panel()
        return x, y, width, height

    def drag_panel(self, app, by_x, by_y):
        _, x, y, width, _ = app.panel()
        self.desktop.drag(x + width // 2 - 60, y + 17, x + width // 2 - 60 + by_x, y + 17 + by_y)

    def moved(self, **options):
        """A program whose panel was moved and made clearer, and where the panel is."""
        app = self.app(self.server(), **options).sign_in()
        before = self.place(app)
        self.drag_panel(app, 70, 40)
        after = (before[0] + 70, before[1] + 40, *before[2:])
        wait_until(lambda: self.place(app) == after, what="the moved panel")
        app.hotkey("ctrl+alt+super+[", "Opacity Down")
        app.wait_for_line(PREFIX + "Opacity adjusted by -0.1 -> 0.78")
        return app, before, after

    def stored(self, app, key):
        return app.stored_defaults().get(key)

    def again(self, app, **changes):
        """A later start with what the first one stored."""
        wait_until(lambda: "0.78" in str(self.stored(app, "panelPlaces")), what="the stored place")
        defaults = app.stored_defaults() | changes
        app.close()
        return self.app(self.server(), defaults=defaults).sign_in()

    def test_the_panel_starts_where_it_was_left(self):
        app, _, after = self.moved()
        later = self.again(app)
        wait_until(lambda: self.place(later) == after, what="the panel where it was left")
        later.hotkey("ctrl+alt+super+]", "Opacity Up")
        later.wait_for_line(PREFIX + "Opacity adjusted by +0.1 -> 0.88")

    def test_off_starts_as_configured(self):
        app, before, _ = self.moved()
        later = self.again(app, startsWhereLeft=False)
        wait_until(lambda: self.place(later) == before, what="the panel as configured")
        later.hotkey("ctrl+alt+super+]", "Opacity Up")
        later.wait_for_line(PREFIX + "Opacity adjusted by +0.1 -> 0.98")

    def test_a_place_off_the_screen_is_brought_back(self):
        app, _, _ = self.moved()
        places = self.stored(app, "panelPlaces")
        far = {key: "9000 9000 9000 500 0.78 1" for key in places}
        later = self.again(app, panelPlaces=far)
        x, y, width, height = self.place(later)
        self.assertTrue(0 <= x and x + width <= 1280 and 0 <= y <= 960 - 34, (x, y, width, height))

    def test_the_answers_text_size_is_remembered(self):
        app = self.app(self.server()).sign_in()
        app.send_prompt("question")
        app.access.wait_for_page_text("Hello from the server.")

        def text_height(program):
            return max(program.access.bounds(node)[3] for node in
                       program.access.find_all("Hello from the server."))
        normal = text_height(app)
        app.focus_prompt()
        self.desktop.press("ctrl+=")
        app.access.wait_for("Answer text 110%")
        for _ in range(5):
            self.desktop.press("ctrl+=")
        app.access.wait_for("Answer text 200%")
        wait_until(lambda: text_height(app) > 1.5 * normal, what="the larger text")
        wait_until(lambda: self.stored(app, "answerTextSize") == "200", what="the stored size")
        self.desktop.press("ctrl+-")
        app.access.wait_for("Answer text 175%")
        self.desktop.press("ctrl+0")
        app.access.wait_for("Answer text 100%")
        wait_until(lambda: text_height(app) == normal, what="the normal text")


if __name__ == "__main__":
    unittest.main()
