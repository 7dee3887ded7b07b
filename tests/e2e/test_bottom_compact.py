"""The bottom panels in the smallest window: click-through and icon buttons."""

import unittest

import pointer_case
from harness import wait_until
from harness.messages import PREFIX

HOTKEYS = {"capture": "ctrl+alt+cmd+c", "clear": "ctrl+alt+cmd+x", "toggle": "ctrl+alt+cmd+t",
           "opacity_up": "ctrl+alt+cmd+]", "opacity_down": "ctrl+alt+cmd+["}


class CompactMouseTest(pointer_case.PointerCase):
    app_options = {"config": {"hotkeys": HOTKEYS, "overlay": {
        "x": 30, "y": 30, "width": 320, "height": 280, "default_opacity": 0.88}}}

    def test_click_through_follows_the_height_of_the_panels(self):
        self.assert_border(76)
        self.access.click("Capture without sending")
        self.access.wait_for("Attached screenshot")
        self.assert_border(76 + 36 + 6)
        self.access.click("Remove screenshot")
        self.access.wait_gone("Attached screenshot")
        self.access.click("Model", "combo box")
        self.access.wait_for("Model", "list")
        # The answer keeps 48; what is left of the 208 below the strip holds two of the rows.
        self.assert_border(160)
        self.access.click("Model", "combo box")
        self.access.wait_gone("Model", "list")
        self.assert_border(76)

    def test_thread_controls_are_icons_in_the_box(self):
        self.access.click("Save thread", "check box")
        wait_until(lambda: self.stored("keepAIHistoryEnabled") is False, what="the choice")
        node = self.access.find("Save thread", "check box")
        self.assertFalse(self.access.has_state(node, "CHECKED"))
        self.access.click("Save thread", "check box")
        wait_until(lambda: self.stored("keepAIHistoryEnabled") is True, what="the choice")
        wait_until(lambda: self.access.has_state(
            self.access.find("Save thread", "check box"), "CHECKED"), what="the checked state")
        mark = self.shared_app.mark()
        self.access.click("New thread")
        self.shared_app.wait_for_line(PREFIX + "New thread started", since=mark)
        self.type_prompt("small")
        self.access.click("Send")
        self.assertEqual(self.request()["prompt"], "small")


if __name__ == "__main__":
    unittest.main()
