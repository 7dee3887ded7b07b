"""A desktop that assigns keys to programs, played by python-dbusmock."""

import pathlib
import subprocess

from . import processes
from .tray import _load
from .waiting import wait_until

_TEMPLATE = pathlib.Path(__file__).with_name("shortcuts_template.py")
_PORTAL = "org.freedesktop.portal.Desktop"
_PATH = "/org/freedesktop/portal/desktop"


class ShortcutsPortal:
    """The portal for keys on a desktop's session bus."""

    def __init__(self, desktop, declines=False):
        """With `declines`, the user declines to assign keys."""
        self._gio, self._glib = _load()
        address = desktop.environment["DBUS_SESSION_BUS_ADDRESS"]
        flags = (self._gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
                 | self._gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self._bus = self._gio.DBusConnection.new_for_address_sync(address, flags, None, None)
        parameters = '{"declines": true}' if declines else "{}"
        self._process = processes.spawn(
            ["/usr/bin/python3", "-B", "-m", "dbusmock", "--session", "--template",
             str(_TEMPLATE), "--parameters", parameters],
            env=desktop.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(self._is_running, what="the desktop's portal")

    def _is_running(self):
        return self._call("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "NameHasOwner",
                          "(s)", _PORTAL)[0]

    def _call(self, service, path, interface, method, signature, *arguments):
        return self._bus.call_sync(
            service, path, interface, method, self._glib.Variant(signature, arguments), None,
            self._gio.DBusCallFlags.NO_AUTO_START, -1, None).unpack()

    def _control(self, method, signature="()", *arguments):
        return self._call(_PORTAL, _PATH, "com.quellora.test.Desktop", method, signature,
                          *arguments)

    def press(self, action):
        """The user presses the key of an action, e.g. "capture"."""
        self._control("Press", "(s)", action)

    def assign(self, action, key):
        """The user assigns a key in the desktop's settings; an empty text removes it."""
        self._control("Assign", "(ss)", action, key)

    def dialogs(self):
        """How often the user was asked about keys."""
        return self._control("Dialogs")[0]

    def close(self):
        """Ends the portal; again: no effect."""
        processes.stop(self._process)
        if not self._bus.is_closed():
            self._bus.close_sync(None)
