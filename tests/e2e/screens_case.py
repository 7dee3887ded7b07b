"""Base case of the tests whose screens change."""

from harness import E2ECase, wait_until

OUTPUT = "screen"


class ScreensCase(E2ECase):
    """The display has one output with changing modes, which is divided into monitors."""

    desktop_options = {"width": 3840, "height": 2160}
    modes = set()

    def xrandr(self, *arguments):
        self.desktop.run("xrandr", *arguments, capture_output=True)

    def use_mode(self, width, height):
        """Makes the whole display one screen of this size."""
        name = f"own-{width}x{height}"
        if name not in self.modes:
            self.xrandr("--newmode", name, "0", str(width), "0", "0", "0", str(height), "0", "0",
                        "0")
            self.xrandr("--addmode", OUTPUT, name)
            self.modes.add(name)
        self.xrandr("--output", OUTPUT, "--mode", name)
        self.desktop.width, self.desktop.height = width, height

    def add_monitor(self, name, x, y, width, height, output="none"):
        self.xrandr("--setmonitor", name, f"{width}/300x{height}/200+{x}+{y}", output)

    def two_monitors(self, width=1920, height=1080):
        self.use_mode(2 * width, height)
        self.add_monitor("left", 0, 0, width, height, OUTPUT)
        self.addCleanup(self.xrandr, "--delmonitor", "left")
        self.add_monitor("right", width, 0, width, height)
        self.addCleanup(self.remove_right)
        self.has_right = True

    def remove_right(self):
        if self.has_right:
            self.xrandr("--delmonitor", "right")
        self.has_right = False

    def bring_right_back(self, width=1920, height=1080):
        self.add_monitor("right", width, 0, width, height)
        self.has_right = True

    def wait_panel(self, app, frame, what):
        wait_until(lambda: app.panel() and app.panel()[1:] == frame, what=f"{what}: {frame}")

    def drag_bar(self, app, by_x, by_y):
        """Drags the panel by the free area of the control bar."""
        _, x, y, _, _ = app.panel()
        self.desktop.drag(x + 220, y + 17, x + 220 + by_x, y + 17 + by_y)
