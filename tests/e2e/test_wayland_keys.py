"""Who delivers keys on each desktop, and what the program says about it.

`scripts/test-desktops` runs it on all of them.
"""

import re
import unittest

from desktop_case import KIND, DesktopCase
from harness.messages import PREFIX

PLACE = {
    "sway": "In this session only your desktop can bind keys",
    "gnome": "Hotkeys work only over some windows in this session",
}


class KeysTest(DesktopCase):
    @unittest.skipUnless(KIND in ("kwin", "x11"), "this desktop assigns no keys to programs")
    def test_a_key_over_another_program_runs_its_action(self):
        app = self.app(self.server()).sign_in()
        if KIND == "kwin":
            app.wait_for_line(re.compile(
                r"\[DesktopShortcuts\] The desktop delivers keys: capture = Meta\+Ctrl\+Alt\+C, "
                r"clear = Meta\+Ctrl\+Alt\+X, toggle = Meta\+Ctrl\+Alt\+T, .*"), since=0)
        other = self.other()
        mark = other.mark()
        app.hotkey("ctrl+alt+super+x", "Clear")
        app.wait_for_line(PREFIX + "Content cleared")
        self.desktop.press("k")
        other.wait_for("key k", since=mark)
        self.assertEqual(other.events("key x", since=mark), [])
        self.assertIsNone(app.access.find(re.compile("only over some|only your desktop")))

    @unittest.skipUnless(KIND in PLACE, "this desktop delivers the keys")
    def test_one_sentence_tells_where_keys_are_bound(self):
        app = self.app(self.server()).sign_in()
        app.access.wait_for(re.compile(re.escape(PLACE[KIND])))
        # Who uses a command knows.
        self.command(app, "clear")
        app.access.wait_gone(re.compile(re.escape(PLACE[KIND])))


if __name__ == "__main__":
    unittest.main()
