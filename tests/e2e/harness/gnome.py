"""A private GNOME desktop without hardware."""

import os
import pathlib

from . import keys
from .bus import Bus
from .image import Image
from .waiting import wait_until
from .wayland_desktop import WaylandDesktop

_REMOTE = "org.gnome.Mutter.RemoteDesktop"
_SESSION = _REMOTE + ".Session"
_SHELL = "org.gnome.Shell"

#: A bus without services of its own: those of the machine must not matter.
_SYSTEM_BUS = """<busconfig>
  <type>system</type>
  <listen>unix:dir={folder}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""


#: Nothing of the desktop's own covers the windows.
_SETTINGS = """[org/gnome/desktop/notifications]
show-banners=false
[org/gnome/desktop/interface]
enable-hot-corners=false
"""


class RemoteInput:
    """Keyboard and pointer by mutter's interface for remote desktops."""

    def __init__(self, bus, width, height):
        self._bus = bus
        self._corner = (width - 1, height - 1)
        self._position = None
        path, = bus.call(_REMOTE, "/org/gnome/Mutter/RemoteDesktop", _REMOTE, "CreateSession")
        self._path = path
        self._call("Start")
        # The shell creates each device with its first event and loses that event.
        self.key(keys.SHIFT, True)
        self.key(keys.SHIFT, False)
        self.move_to(0, height - 1)

    def _call(self, method, signature="()", *arguments):
        self._bus.call(_REMOTE, self._path, _SESSION, method, signature, *arguments)

    def send(self, _command):
        """Other commands are not understood."""
        raise AssertionError("not on GNOME")

    def move_to(self, x, y):
        """Moves the pointer to a position of the desktop."""
        if self._position is None:
            # The pointer stops at the corner, wherever it was.
            self.move_by(5000, 5000)
            self._position = self._corner
        here = self._position
        self.move_by(int(x) - here[0], int(y) - here[1])
        self._position = (int(x), int(y))

    def move_by(self, x, y):
        """Moves the pointer by an offset."""
        if x or y:
            self._call("NotifyPointerMotionRelative", "(dd)", float(x), float(y))

    def button(self, code, pressed):
        """Presses or releases a button."""
        self._call("NotifyPointerButton", "(ib)", code, pressed)

    def key(self, code, pressed):
        """Presses or releases a key."""
        self._call("NotifyKeyboardKeycode", "(ub)", code, pressed)

    def wheel(self, steps):
        """Turns the wheel, down if positive."""
        self._call("NotifyPointerAxisDiscrete", "(ui)", 0, steps)

    def close(self):
        """Ends with its connection."""


class GnomeDesktop(WaylandDesktop):
    """GNOME Shell with one virtual monitor, and Xwayland for our panel."""

    session_name = "GNOME"
    program = "gnome-shell"

    def __init__(self, width=1280, height=800, scale=1):
        if scale != 1:
            raise ValueError("the virtual monitor has no scale")
        self.bus = None
        super().__init__(width, height)
        # Xwayland starts with its first client.
        wait_until(lambda: pathlib.Path(f"/tmp/.X11-unix/X{self._display[1:]}").exists(),
                   what="the socket of Xwayland")

    def _system_bus(self):
        config = self.folder / "system-bus.conf"
        config.write_text(_SYSTEM_BUS.format(folder=self.environment["XDG_RUNTIME_DIR"]))
        return self._start_bus("--config-file", str(config))

    def _start_compositor(self):
        self.environment |= {"GSETTINGS_BACKEND": "keyfile"}
        settings = self.folder / ".config" / "glib-2.0" / "settings"
        settings.mkdir(parents=True)
        (settings / "keyfile").write_text(_SETTINGS)
        self._compositor = self._start(
            self.program, "--headless", "--wayland-display", self.name, "--virtual-monitor",
            f"{self.width}x{self.height}", "--unsafe-mode")
        self._wait_for_socket()
        self.bus = Bus(self.environment["DBUS_SESSION_BUS_ADDRESS"])
        wait_until(lambda: self.bus.has_owner(_SHELL) and self.bus.has_owner(_REMOTE),
                   what="the services of the shell")
        # The session starts with the overview, in which windows are only previews.
        wait_until(lambda: self.evaluate("Main.layoutManager._startingUp") == "false",
                   what="the end of the shell's start")
        self.evaluate("Main.overview.hide()")
        wait_until(lambda: self.evaluate("Main.overview.visible") == "false",
                   what="the overview to close")
        self._display = self.evaluate("imports.gi.GLib.getenv('DISPLAY')").strip('"')
        self.environment["DISPLAY"] = self._display
        authority = self.evaluate("imports.gi.GLib.getenv('XAUTHORITY')").strip('"')
        if authority != "null":
            self.environment["XAUTHORITY"] = authority
        self.bus.set_activation_environment(
            {key: value for key, value in self.environment.items()
             if key.startswith(("XDG_", "GSETTINGS", "DISPLAY", "XAUTH"))}
            | {"WAYLAND_DISPLAY": self.name})

    def grant_pictures(self, application=""):
        """Answers the portal's question about pictures in advance, as the user would."""
        self.bus.call("org.freedesktop.impl.portal.PermissionStore",
                      "/org/freedesktop/impl/portal/PermissionStore",
                      "org.freedesktop.impl.portal.PermissionStore", "SetPermission",
                      "(sbssas)", "screenshot", True, "screenshot", application, ["yes"])

    def evaluate(self, script):
        """The value of an expression of the shell's own language, as JSON."""
        succeeded, value = self.bus.call(_SHELL, "/org/gnome/Shell", _SHELL, "Eval", "(s)", script)
        if not succeeded:
            raise AssertionError(f"the shell cannot evaluate {script!r}: {value}")
        return value

    def active_process(self):
        """Id of the active window's process, or 0."""
        return int(self.evaluate(
            "(w => w && !w.is_override_redirect() ? w.get_pid() : 0)(global.display.focus_window)"
        ))

    def wait_settled(self):
        """Waits until no window is being animated: until then, clicks may miss it."""
        wait_until(lambda: self.evaluate(
            "Main.wm._mapping.size + Main.wm._resizing.size + Main.wm._destroying.size") == "0",
            what="the windows to come to rest")

    def press(self, combo):
        """Presses and releases a combination such as "ctrl+alt+super+c"."""
        # Keys come over a connection of their own: what X clients asked for before comes first.
        for _ in range(3):
            self.evaluate("0")
        super().press(combo)

    def _make_input(self):
        return RemoteInput(self.bus, self.width, self.height)

    def _whole_picture(self):
        path = str(self.folder / "picture.png")
        taken, used = self.bus.call(
            _SHELL, "/org/gnome/Shell/Screenshot", "org.gnome.Shell.Screenshot", "Screenshot",
            "(bbs)", False, False, path)
        if not taken:
            raise AssertionError("the shell took no picture")
        data = pathlib.Path(used).read_bytes()
        os.unlink(used)
        return Image.from_file_bytes(data, "png")

    def close(self):
        """Ends every helper and removes the private folder. Idempotent."""
        if self.bus is not None:
            self.bus.close()
            self.bus = None
        super().close()
