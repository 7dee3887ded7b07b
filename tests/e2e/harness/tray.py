"""A desktop's tray: shows status items and their menus over the session bus."""

import pathlib
import subprocess
import sys
import threading

from . import processes
from .waiting import PATIENCE, wait_until

ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"
WATCHER = "org.kde.StatusNotifierWatcher"
PROPERTIES = "org.freedesktop.DBus.Properties"

_INTERFACE = f"""
<node><interface name="{WATCHER}">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
  <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
  <signal name="StatusNotifierHostRegistered"/>
</interface></node>
"""


def _load():
    import gi  # pylint: disable=import-outside-toplevel
    gi.require_version("Gio", "2.0")
    from gi.repository import Gio, GLib  # pylint: disable=import-outside-toplevel
    return Gio, GLib


def serve(address):
    """Runs the watcher and host in a separate process; prints the items."""
    gio, glib = _load()
    flags = (gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
             | gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
    bus = gio.DBusConnection.new_for_address_sync(address, flags, None, None)
    items = {}

    def say(*words):
        print(*words, flush=True)

    def call(_bus, sender, _path, _interface, method, arguments, invocation):
        if method == "RegisterStatusNotifierItem":
            name = arguments.unpack()[0]
            service, path = (sender, name) if name.startswith("/") else (name, "/StatusNotifierItem")
            known = sender in items
            items[sender] = (service, path)
            bus.emit_signal(None, "/StatusNotifierWatcher", WATCHER,
                            "StatusNotifierItemRegistered", glib.Variant("(s)", (service + path,)))
            if not known:
                say("item", service, path)
        invocation.return_value(None)

    def read(_bus, _sender, _path, _interface, name):
        return {"RegisteredStatusNotifierItems":
                    glib.Variant("as", [service + path for service, path in items.values()]),
                "IsStatusNotifierHostRegistered": glib.Variant("b", True),
                "ProtocolVersion": glib.Variant("i", 0)}[name]

    def owner_changed(_bus, _sender, _path, _interface, _signal, arguments):
        name, _, now = arguments.unpack()
        for sender, (service, path) in list(items.items()):
            if not now and name in (sender, service):
                del items[sender]
                say("gone", service, path)

    bus.signal_subscribe("org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged",
                         "/org/freedesktop/DBus", None, gio.DBusSignalFlags.NONE, owner_changed)
    node = gio.DBusNodeInfo.new_for_xml(_INTERFACE)
    bus.register_object("/StatusNotifierWatcher", node.interfaces[0], call, read, None)
    bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                  "RequestName", glib.Variant("(su)", (WATCHER, 0)), None,
                  gio.DBusCallFlags.NONE, -1, None)
    bus.emit_signal(None, "/StatusNotifierWatcher", WATCHER, "StatusNotifierHostRegistered", None)
    say("ready")
    glib.MainLoop().run()


class TrayHost:
    """A StatusNotifier tray that appears on a desktop."""

    def __init__(self, desktop):
        self._gio, self._glib = _load()
        address = desktop.environment["DBUS_SESSION_BUS_ADDRESS"]
        flags = (self._gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
                 | self._gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self._bus = self._gio.DBusConnection.new_for_address_sync(address, flags, None, None)
        self.items = []
        self._ready = threading.Event()
        self._process = processes.spawn([sys.executable, "-B", "-c",
                                         "import sys; from harness import tray; "
                                         "tray.serve(sys.argv[1])", address],
                                        stdout=subprocess.PIPE, text=True,
                                        cwd=pathlib.Path(__file__).parents[1])
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        if not self._ready.wait(PATIENCE):
            raise AssertionError("the tray did not start")

    def _read(self):
        for line in self._process.stdout:
            kind, *rest = line.split()
            if kind == "ready":
                self._ready.set()
            elif kind == "item":
                self.items = self.items + [tuple(rest)]
            elif kind == "gone":
                self.items = [item for item in self.items if item != tuple(rest)]

    def close(self):
        """Removes the tray. Idempotent."""
        if self._process is None:
            return
        processes.stop(self._process)
        self._reader.join(PATIENCE)
        self._bus.close_sync(None)
        self._process = None

    # -- items and menus ------------------------------------------------------------------------

    def wait_item(self):
        """Waits until exactly one item is shown."""
        wait_until(lambda: len(self.items) == 1, what="the item in the tray")

    def wait_empty(self):
        """Waits until no item is shown."""
        wait_until(lambda: not self.items, what="the item to leave the tray")

    def _call(self, path, interface, method, arguments=None):
        service = self.items[0][0]
        return self._bus.call_sync(service, path, interface, method, arguments, None,
                                   self._gio.DBusCallFlags.NONE, 10_000, None).unpack()

    def property(self, name):
        """A property of the item."""
        return self._call(self.items[0][1], PROPERTIES, "Get",
                          self._glib.Variant("(ss)", (ITEM, name)))[0]

    def activate(self):
        """Clicks the item."""
        self._call(self.items[0][1], ITEM, "Activate", self._glib.Variant("(ii)", (0, 0)))

    def rows(self):
        """The menu from top to bottom: (id, properties)."""
        _, (_, _, children) = self._call(
            self.property("Menu"), MENU, "GetLayout", self._glib.Variant("(iias)", (0, -1, [])))
        return [(number, properties) for number, properties, _ in children]

    def known(self, numbers):
        """Those of these ids under which the program still keeps a menu row."""
        found, = self._call(self.property("Menu"), MENU, "GetGroupProperties",
                            self._glib.Variant("(aias)", (numbers, [])))
        return [number for number, _ in found]

    def choose(self, label):
        """Chooses a menu row."""
        number = next(number for number, properties in self.rows()
                      if properties.get("label") == label)
        self._call(self.property("Menu"), MENU, "Event", self._glib.Variant(
            "(isvu)", (number, "clicked", self._glib.Variant("s", ""), 0)))
