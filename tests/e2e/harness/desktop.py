"""A private desktop: X server, window manager, session bus, keyboard and pointer."""

import os
import pathlib
import select
import time

from Xlib import X, Xatom
from Xlib import display as xdisplay
from Xlib import error as xerror
from Xlib.ext import xtest
from Xlib.protocol import event

from .image import Image
from .session import Session
from .waiting import PATIENCE, wait_until

_HERE = pathlib.Path(__file__).resolve().parent

_NAMED_KEYS = {
    "ctrl": 0xFFE3, "alt": 0xFFE9, "super": 0xFFEB, "shift": 0xFFE1, "return": 0xFF0D,
    "tab": 0xFF09, "escape": 0xFF1B, "backspace": 0xFF08, "delete": 0xFFFF, "space": 0x20,
    "home": 0xFF50, "end": 0xFF57, "up": 0xFF52, "down": 0xFF54, "left": 0xFF51, "right": 0xFF53,
    "page_up": 0xFF55, "page_down": 0xFF56, "f2": 0xFFBF, "f6": 0xFFC3, "num_lock": 0xFF7F,
    "caps_lock": 0xFFE5,
}
_SHIFT = _NAMED_KEYS["shift"]


class Desktop(Session):
    """A private X display with a window manager and a session bus."""

    connection = None
    #: Pixels of a picture per pixel of a position.
    scale = 1

    def __init__(self, width=1280, height=960, compositor=None, window_manager=True):
        """`compositor`: None, or the path of a picom configuration ("" for its default)."""
        super().__init__()
        self.width, self.height = width, height
        self.name = self._start_x_server()
        self.environment["DISPLAY"] = self.name
        self.connection = xdisplay.Display(self.name)
        self.root = self.connection.screen().root
        self.root.change_attributes(event_mask=X.PropertyChangeMask)
        self.connection.sync()
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self._start_plain_bus()
        # The machine's login manager must not matter: it may say that the screen is locked.
        self.environment["DBUS_SYSTEM_BUS_ADDRESS"] = (
            self.environment["DBUS_SESSION_BUS_ADDRESS"])
        self._probe = None
        if window_manager:
            self._start_window_manager()
            self._probe = self.root.create_window(0, 0, 1, 1, 0, X.CopyFromParent,
                                                  event_mask=X.PropertyChangeMask)
        if compositor is not None:
            self._start_compositor(compositor)
        self._bind_accessibility()

    # -- set-up ---------------------------------------------------------------------------------

    def _start_x_server(self):
        reader, writer = os.pipe()
        # On a busy machine a key may stay down for long between its press and its release, and must
        # not repeat.
        self._start("Xvfb", "-displayfd", str(writer), "-screen", "0",
                    f"{self.width}x{self.height}x24", "-nolisten", "tcp", "-noreset",
                    "-dpi", "96", "-ardelay", "60000", pass_fds=[writer])
        os.close(writer)
        try:
            return ":" + self._read_line(reader, "the X server")
        finally:
            os.close(reader)

    def _start_window_manager(self):
        # openbox sets its root properties before it manages windows, and runs --startup afterwards.
        ready = self.folder / "window-manager-ready"
        os.mkfifo(ready)
        descriptor = os.open(ready, os.O_RDWR)
        self._start("openbox", "--sm-disable", "--config-file", str(_HERE / "openbox.xml"),
                    "--startup", f"sh -c 'echo ready > {ready}'")
        try:
            self._read_line(descriptor, "the window manager")
        finally:
            os.close(descriptor)

    def _start_compositor(self, configuration):
        arguments = ["picom", "--backend", "xrender", "--no-vsync"]
        arguments += ["--config", configuration or os.devnull]
        self._start(*arguments)
        manager = self.connection.intern_atom("_NET_WM_CM_S0")
        wait_until(lambda: self.connection.get_selection_owner(manager) != X.NONE,
                   what="the compositor")

    def kill_x_server(self):
        """Kills the X server. The desktop is unusable afterwards."""
        self._children[0].kill()
        self._children[0].wait()

    def close(self):
        """Ends every helper and removes the private folder. Idempotent."""
        if self.connection is not None:
            try:
                self.connection.close()
            except (xerror.ConnectionClosedError, OSError):
                pass
            self.connection = None
        super().close()

    # -- windows --------------------------------------------------------------------------------

    def wait_for_root(self, condition, what, timeout=PATIENCE):
        """Evaluates `condition` now and after each change of a root property until it is true."""
        deadline = time.monotonic() + timeout
        while True:
            value = condition()
            if value:
                return value
            left = deadline - time.monotonic()
            if left <= 0:
                raise AssertionError(f"waited {timeout:.0f} s for {what}")
            # The short timeout covers changes without a property event.
            select.select([self.connection.fileno()], [], [], min(left, 0.2))
            while self.connection.pending_events():
                self.connection.next_event()

    def active_window(self):
        """Id of the window that the window manager considers active, or 0."""
        found = self.root.get_full_property(
            self.connection.intern_atom("_NET_ACTIVE_WINDOW"), Xatom.WINDOW)
        return int(found.value[0]) if found and found.value else 0

    def wait_for_active(self, title, timeout=PATIENCE):
        """Waits until a window with this title is active, and returns its id."""
        def is_active():
            window = self.active_window()
            return window if window and self.title(window) == title else 0
        return self.wait_for_root(is_active, f"the window {title!r} to be active", timeout)

    def title(self, window_id):
        """Title of a window, empty if it has none or no longer exists."""
        window = self.connection.create_resource_object("window", window_id)
        try:
            utf8 = window.get_full_property(self.connection.intern_atom("_NET_WM_NAME"),
                                            X.AnyPropertyType)
            if utf8:
                value = utf8.value
                return value.decode() if isinstance(value, bytes) else str(value)
            return window.get_wm_name() or ""
        except xerror.XError:
            return ""

    def close_active_window(self):
        """Asks the active window to close, as its title bar's close button does."""
        message = event.ClientMessage(
            window=self.active_window(),
            client_type=self.connection.intern_atom("_NET_CLOSE_WINDOW"),
            data=(32, [X.CurrentTime, 2, 0, 0, 0]))
        self.root.send_event(
            message, event_mask=X.SubstructureRedirectMask | X.SubstructureNotifyMask)
        self.connection.sync()

    def viewable_windows(self, title):
        """(id, x, y, width, height) of all viewable windows with this title, in root pixels."""
        found = []

        def visit(window):
            try:
                if (self.title(window.id) == title
                        and window.get_attributes().map_state == X.IsViewable):
                    size = window.get_geometry()
                    origin = window.translate_coords(self.root, 0, 0)
                    # translate_coords returns the negated position of the window's origin.
                    found.append((window.id, -origin.x, -origin.y, size.width, size.height))
                for child in window.query_tree().children:
                    visit(child)
            except xerror.XError:
                return
        visit(self.root)
        return found

    def windows_of(self, _app):
        """(id, x, y, width, height) of all windows of the program on the screen."""
        return self.viewable_windows("Quellora")

    def panel_of(self, app):
        """(id, x, y, width, height) of the program's panel, or None while it is hidden."""
        found = self.windows_of(app)
        return found[0] if len(found) == 1 else None

    def wait_settled(self):
        """Windows reach their places at once."""

    def window_states(self, window_id):
        """Names of a window's _NET_WM_STATE atoms."""
        window = self.connection.create_resource_object("window", window_id)
        found = window.get_full_property(self.connection.intern_atom("_NET_WM_STATE"), Xatom.ATOM)
        return [self.connection.get_atom_name(atom) for atom in found.value] if found else []

    def window_text(self, window_id, name):
        """A text property of a window, or None."""
        window = self.connection.create_resource_object("window", window_id)
        found = window.get_full_property(self.connection.intern_atom(name), X.AnyPropertyType)
        if found is None:
            return None
        return found.value.decode() if isinstance(found.value, bytes) else str(found.value)

    def client_list(self):
        """Ids of the managed windows, as listed in a window switcher."""
        found = self.root.get_full_property(
            self.connection.intern_atom("_NET_CLIENT_LIST"), Xatom.WINDOW)
        return list(found.value) if found else []

    def focus_window(self):
        """Id of the window that has the keyboard focus."""
        focus = self.connection.get_input_focus().focus
        return focus if isinstance(focus, int) else focus.id

    # -- keyboard and pointer -------------------------------------------------------------------

    def _keycode(self, key):
        keysym = _NAMED_KEYS.get(key.lower()) if len(key) > 1 else None
        if keysym is None:
            if len(key) != 1:
                raise ValueError(f"unknown key {key!r}")
            keysym = ord(key) if ord(key) < 256 else 0x01000000 | ord(key)
        places = list(self.connection.keysym_to_keycodes(keysym))
        if not places:
            raise ValueError(f"no key produces {key!r}")
        code, index = min(places, key=lambda place: place[1])
        return code, index

    def _fake(self, kind, detail):
        xtest.fake_input(self.connection, kind, detail)
        self.connection.sync()

    def press(self, combo):
        """Presses and releases a combination such as "ctrl+alt+super+c"."""
        parts = combo.split("+") if combo != "+" else ["+"]
        codes = [self._keycode(part)[0] for part in parts]
        for code in codes:
            self._fake(X.KeyPress, code)
        for code in reversed(codes):
            self._fake(X.KeyRelease, code)

    def type_text(self, text):
        """Types a text with real key presses of the current layout."""
        for character in text:
            code, index = self._keycode({"\n": "return", "\t": "tab"}.get(character, character))
            if index == 1:
                self._fake(X.KeyPress, self._keycode("shift")[0])
            self._fake(X.KeyPress, code)
            self._fake(X.KeyRelease, code)
            if index == 1:
                self._fake(X.KeyRelease, self._keycode("shift")[0])

    def move_pointer(self, x, y):
        """Moves the pointer."""
        xtest.fake_input(self.connection, X.MotionNotify, x=int(x), y=int(y))
        self.connection.sync()

    def click(self, x, y, button=1):
        """Moves the pointer and clicks there."""
        self.move_pointer(x, y)
        self._fake(X.ButtonPress, button)
        self._wait_for_window_manager()
        self._fake(X.ButtonRelease, button)
        self._wait_for_window_manager()

    def _wait_for_window_manager(self):
        """Waits until the window manager has handled all previous events.

        It grabs each press until it has handled it; a click before that would be lost.
        """
        if self._probe is None:
            return
        request = event.ClientMessage(
            window=self._probe.id,
            client_type=self.connection.intern_atom("_NET_REQUEST_FRAME_EXTENTS"),
            data=(32, [0, 0, 0, 0, 0]))
        self.root.send_event(
            request, event_mask=X.SubstructureRedirectMask | X.SubstructureNotifyMask)
        self.connection.flush()
        answer = self.connection.intern_atom("_NET_FRAME_EXTENTS")
        deadline = time.monotonic() + PATIENCE
        while True:
            while self.connection.pending_events():
                found = self.connection.next_event()
                if (found.type == X.PropertyNotify and found.window == self._probe
                        and found.atom == answer):
                    return
            left = deadline - time.monotonic()
            if left <= 0:
                raise AssertionError("the window manager does not answer")
            select.select([self.connection.fileno()], [], [], left)

    def hold(self, x, y, button=1):
        """Moves the pointer and presses there until `release`."""
        self.move_pointer(x, y)
        self._fake(X.ButtonPress, button)
        self._wait_for_window_manager()

    def release(self, button=1):
        """Releases the button pressed by `hold`."""
        self._fake(X.ButtonRelease, button)
        self._wait_for_window_manager()

    def drag(self, x, y, to_x, to_y):
        """Drags with the first button in several steps."""
        self.move_pointer(x, y)
        self._fake(X.ButtonPress, 1)
        for step in range(1, 6):
            self.move_pointer(x + (to_x - x) * step / 5, y + (to_y - y) * step / 5)
        self._fake(X.ButtonRelease, 1)

    # -- pictures -------------------------------------------------------------------------------

    def screenshot(self, x=0, y=0, width=None, height=None):
        """An Image of the screen, including the panel."""
        width, height = width or self.width, height or self.height
        answer = self.root.get_image(x, y, width, height, X.ZPixmap, 0xFFFFFFFF)
        data = answer.data if isinstance(answer.data, bytes) else answer.data.encode("latin1")
        return Image.from_bgrx(width, height, data)

    def wait_for_picture(self, condition, what, timeout=PATIENCE):
        """Takes pictures until one fulfils the condition; returns that one."""
        def look():
            picture = self.screenshot()
            return picture if condition(picture) else None
        return wait_until(look, timeout, what, interval=0.05)

    def fill_root(self, colour):
        """Fills the root window with one colour."""
        red, green, blue = colour
        self.root.change_attributes(background_pixel=red << 16 | green << 8 | blue)
        self.root.clear_area()
        self.connection.sync()

    def paint_gradient(self, top, bottom):
        """Sets a vertical gradient as root pixmap, where compositors expect it."""
        pixmap = self.root.create_pixmap(self.width, self.height,
                                         self.connection.screen().root_depth)
        for row in range(self.height):
            share = row / self.height
            red, green, blue = (round(a + (b - a) * share) for a, b in zip(top, bottom))
            context = pixmap.create_gc(foreground=red << 16 | green << 8 | blue)
            pixmap.fill_rectangle(context, 0, row, self.width, 1)
            context.free()
        self.root.change_attributes(background_pixmap=pixmap)
        self.root.change_property(self.connection.intern_atom("_XROOTPMAP_ID"), Xatom.PIXMAP, 32,
                                  [pixmap.id])
        self.root.clear_area()
        self.connection.sync()
