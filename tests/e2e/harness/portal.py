"""The settings portal of a desktop on its private bus."""

import json
import pathlib
import subprocess
import sys
import threading

from . import processes
from .tray import _load

_PORTAL = "org.freedesktop.portal.Desktop"
_PATH = "/org/freedesktop/portal/desktop"
_SETTINGS = "org.freedesktop.portal.Settings"
_INTERFACE = f"""
<node><interface name="{_SETTINGS}">
  <method name="Read">
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="v" direction="out"/>
  </method>
  <signal name="SettingChanged"><arg type="s"/><arg type="s"/><arg type="v"/></signal>
</interface></node>
"""


def serve(address):
    """Runs the portal in a separate process.

    Reads changes from standard input, as lines of JSON: [group, key, type, value].
    """
    gio, glib = _load()
    flags = (gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
             | gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
    bus = gio.DBusConnection.new_for_address_sync(address, flags, None, None)
    settings = {}

    def call(_bus, _sender, _path, _interface, _method, arguments, invocation):
        value = settings.get(arguments.unpack())
        if value is None:
            invocation.return_dbus_error("org.freedesktop.portal.Error.NotFound", "no such setting")
        else:
            # Read wraps the value twice.
            invocation.return_value(glib.Variant("(v)", (glib.Variant("v", value),)))

    def change(group, key, kind, value):
        settings[(group, key)] = glib.Variant(kind, value)
        bus.emit_signal(None, _PATH, _SETTINGS, "SettingChanged",
                        glib.Variant("(ssv)", (group, key, settings[(group, key)])))
        print("changed", flush=True)

    def read_changes():
        for line in sys.stdin:
            glib.idle_add(lambda words=json.loads(line): change(*words) and False)

    node = gio.DBusNodeInfo.new_for_xml(_INTERFACE)
    bus.register_object(_PATH, node.interfaces[0], call, None, None)
    bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                  "RequestName", glib.Variant("(su)", (_PORTAL, 0)), None,
                  gio.DBusCallFlags.NONE, -1, None)
    threading.Thread(target=read_changes, daemon=True).start()
    print("ready", flush=True)
    glib.MainLoop().run()


class SettingsPortal:
    """A portal that appears on a desktop, without settings at first."""

    def __init__(self, desktop):
        self._process = processes.spawn(
            [sys.executable, "-B", "-c",
             "import sys; from harness import portal; portal.serve(sys.argv[1])",
             desktop.environment["DBUS_SESSION_BUS_ADDRESS"]],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1,
            cwd=pathlib.Path(__file__).parents[1])
        self._expect("ready")

    def change(self, group, key, kind, value):
        """Sets a setting and announces the change; `kind` is its D-Bus type."""
        self._process.stdin.write(json.dumps([group, key, kind, value]) + "\n")
        self._process.stdin.flush()
        self._expect("changed")

    def _expect(self, word):
        line = self._process.stdout.readline().strip()
        if line != word:
            raise AssertionError(f"the settings portal said {line!r} instead of {word!r}")

    def close(self):
        """Removes the portal."""
        processes.stop(self._process)
        self._process.stdin.close()
        self._process.stdout.close()
