"""The common base of the private Wayland desktops: start-up, keyboard, pointer and pictures.

A desktop has the interface of `Desktop` as far as an app, its controls and most tests need it.
Positions are logical pixels of the whole desktop; pictures have the pixels of the output.
"""

import os
import pathlib
import subprocess

from . import keys, processes
from .app import BIN_DIR
from .image import Image
from .session import Session
from .waiting import PATIENCE, wait_until

#: Folder of the test programs of the build.
TOOLS = pathlib.Path(os.environ.get("QUELLORA_TEST_TOOLS", BIN_DIR.parent / "tests"))


class InputProgram:
    """Keyboard, pointer and pictures by the test program `wayland_input`."""

    def __init__(self, environment, width, height):
        self._process = processes.spawn(
            [str(TOOLS / "wayland_input" / "wayland_input")], env=environment, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, text=True, bufsize=1)
        self._answer("start")
        self.send(f"size {width} {height}")

    def _answer(self, command):
        answer = self._process.stdout.readline().strip()
        if answer != "ok":
            raise AssertionError(f"wayland_input, {command}: {answer or 'it ended'}")

    def send(self, command):
        """Carries out a command; returns once the compositor has taken it."""
        self._process.stdin.write(command + "\n")
        self._process.stdin.flush()
        self._answer(command)

    def move_to(self, x, y):
        """Moves the pointer to a position of the desktop."""
        self.send(f"to {int(x)} {int(y)}")

    def move_by(self, x, y):
        """Moves the pointer by an offset."""
        self.send(f"by {x} {y}")

    def button(self, code, pressed):
        """Presses or releases a button."""
        self.send(f"button {code} {int(pressed)}")

    def key(self, code, pressed):
        """Presses or releases a key."""
        self.send(f"key {code} {int(pressed)}")

    def wheel(self, steps):
        """Turns the wheel, down if positive."""
        self.send(f"wheel {steps}")

    def close(self):
        """Releases the devices. Idempotent."""
        if not self._process.stdin.closed:
            try:
                self._process.stdin.close()
            except BrokenPipeError:
                pass
            processes.stop(self._process)


class WaylandDesktop(Session):
    """A compositor of one's own. Subclasses start it and know its habits."""

    #: Name of the desktop, as in XDG_CURRENT_DESKTOP.
    session_name = ""
    #: Name of the compositor's executable.
    program = ""
    #: Pixels of a picture per logical pixel.
    scale = 1
    input = None

    def __init__(self, width=1280, height=800):
        super().__init__()
        self.width, self.height = width, height
        self.name = "wayland-test"
        self.environment |= {
            "DBUS_SESSION_BUS_ADDRESS": self._start_bus(),
            "LIBGL_ALWAYS_SOFTWARE": "1",
            "XDG_SESSION_TYPE": "wayland",
            "XDG_CURRENT_DESKTOP": self.session_name,
        }
        self.environment["DBUS_SYSTEM_BUS_ADDRESS"] = self._system_bus()
        self._compositor = None
        self._start_compositor()
        self.environment["WAYLAND_DISPLAY"] = self.name
        self._bind_accessibility()
        self.input = self._make_input()

    # -- for subclasses -------------------------------------------------------------------------

    def _system_bus(self):
        """Address of the system bus. The machine's own must not matter."""
        return self.environment["DBUS_SESSION_BUS_ADDRESS"]

    def _start_compositor(self):
        """Starts `self._compositor` and waits until it accepts clients."""
        raise NotImplementedError

    def _make_input(self):
        return InputProgram(self.environment, self.width, self.height)

    def wait_for_active(self, title, timeout=PATIENCE):
        """Waits until a window with this title is active, where the desktop can tell."""

    def windows_of(self, app):
        """(node, x, y, width, height) of all windows of the program on the screen."""
        return [(node, *app.access.bounds(node)) for node in app.access.windows()]

    def panel_of(self, app):
        """(node, x, y, width, height) of the program's panel, or None while it is hidden."""
        found = self.windows_of(app)
        return found[0] if len(found) == 1 else None

    def active_process(self):
        """Id of the active window's process, or 0."""
        raise NotImplementedError

    def wait_settled(self):
        """Waits until windows that were just opened or closed have reached their places."""

    def screenshot(self, x=0, y=0, width=None, height=None):
        """An Image of the screen or of a part of it, with all that is on it."""
        picture = self._whole_picture()
        if (x, y, width, height) == (0, 0, None, None):
            return picture
        return picture.part(x, y, width or picture.width - x, height or picture.height - y)

    def _whole_picture(self):
        raise NotImplementedError

    # -- set-up ---------------------------------------------------------------------------------

    def _wait_for_socket(self):
        socket = pathlib.Path(self.environment["XDG_RUNTIME_DIR"]) / self.name

        def is_there():
            if self._compositor.poll() is not None:
                raise AssertionError(
                    f"{self.program} ended:\n{self.log_of(self.program)[-2000:]}")
            return socket.exists()
        wait_until(is_there, what=f"{self.program} to accept clients")

    def kill_compositor(self):
        """Kills the compositor. The desktop is unusable afterwards."""
        self._compositor.kill()
        self._compositor.wait()

    def close(self):
        """Ends every helper and removes the private folder. Idempotent."""
        if self.input is not None:
            self.input.close()
            self.input = None
        super().close()

    # -- keyboard and pointer -------------------------------------------------------------------

    def press(self, combo):
        """Presses and releases a combination such as "ctrl+alt+super+c"."""
        codes = [keys.code_of(part) for part in (combo.split("+") if combo != "+" else ["+"])]
        for code in codes:
            self.input.key(code, True)
        for code in reversed(codes):
            self.input.key(code, False)

    def type_text(self, text):
        """Types a text with real key presses."""
        for character in text:
            code, shifted = keys.of_character(character)
            pressed = [keys.SHIFT, code] if shifted else [code]
            for one in pressed:
                self.input.key(one, True)
            for one in reversed(pressed):
                self.input.key(one, False)

    def move_pointer(self, x, y):
        """Moves the pointer."""
        self.input.move_to(x, y)

    def click(self, x, y, button=1):
        """Moves the pointer and clicks there."""
        self.hold(x, y, button)
        self.release(button)

    def hold(self, x, y, button=1):
        """Moves the pointer and presses there until `release`."""
        self.input.move_to(x, y)
        self.input.button(self._button(button), True)

    def release(self, button=1):
        """Releases the button pressed by `hold`."""
        self.input.button(self._button(button), False)

    @staticmethod
    def _button(number):
        return keys.RIGHT_BUTTON if number == 3 else keys.LEFT_BUTTON

    def wheel(self, x, y, steps):
        """Turns the wheel at a position, down if positive."""
        self.input.move_to(x, y)
        self.input.wheel(steps)

    def drag(self, x, y, to_x, to_y, steps=5):
        """Drags with the first button in several steps."""
        self.hold(x, y)
        for step in range(1, steps + 1):
            self.input.move_to(x + (to_x - x) * step / steps, y + (to_y - y) * step / steps)
        self.release()

    # -- pictures -------------------------------------------------------------------------------

    def wait_for_picture(self, condition, what, timeout=PATIENCE):
        """Takes pictures until one fulfils the condition; returns that one."""
        def look():
            picture = self.screenshot()
            return picture if condition(picture) else None
        return wait_until(look, timeout, what, interval=0.05)

    def _read_picture(self, path):
        data = pathlib.Path(path).read_bytes()
        os.unlink(path)
        return Image.from_ppm(data)
