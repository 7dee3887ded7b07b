"""Services of a desktop on its private bus: login manager, screen locker, notifications.

The login manager belongs on the system bus; a desktop's programs use one bus for both.
"""

import json
import pathlib
import subprocess
import sys
import threading

from . import processes
from .tray import _load
from .waiting import PATIENCE, wait_until

LOGIN = "org.freedesktop.login1"
SAVER = "org.freedesktop.ScreenSaver"
NOTIFICATIONS = "org.freedesktop.Notifications"
PROPERTIES = "org.freedesktop.DBus.Properties"

_LOGIN_PATH = "/org/freedesktop/login1"
_SESSION_PATH = _LOGIN_PATH + "/session/_31"
_SAVER_PATH = "/org/freedesktop/ScreenSaver"
_NOTIFICATIONS_PATH = "/org/freedesktop/Notifications"

_INTERFACES = f"""
<node>
<interface name="{LOGIN}.Manager">
  <method name="GetSessionByPID">
    <arg type="u" direction="in"/><arg type="o" direction="out"/>
  </method>
  <signal name="PrepareForSleep"><arg type="b"/></signal>
</interface>
<interface name="{LOGIN}.Session">
  <property name="LockedHint" type="b" access="read"/>
  <signal name="Lock"/><signal name="Unlock"/>
</interface>
<interface name="{SAVER}">
  <method name="GetActive"><arg type="b" direction="out"/></method>
  <signal name="ActiveChanged"><arg type="b"/></signal>
</interface>
<interface name="{NOTIFICATIONS}">
  <method name="Notify">
    <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="as" direction="in"/>
    <arg type="a{{sv}}" direction="in"/><arg type="i" direction="in"/>
    <arg type="u" direction="out"/>
  </method>
  <method name="CloseNotification"><arg type="u" direction="in"/></method>
  <signal name="NotificationClosed"><arg type="u"/><arg type="u"/></signal>
  <signal name="ActionInvoked"><arg type="u"/><arg type="s"/></signal>
</interface>
</node>
"""


def serve(address):
    """Runs the services in a separate process.

    Prints each call as a line of JSON; reads the signals to emit from standard input:
    [path, interface, signal, signature, arguments].
    """
    gio, glib = _load()
    flags = (gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
             | gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
    bus = gio.DBusConnection.new_for_address_sync(address, flags, None, None)
    last = 0

    def say(*words):
        print(json.dumps(words), flush=True)

    def call(_bus, _sender, _path, _interface, method, arguments, invocation):
        nonlocal last
        say(method, *arguments.unpack())
        answers = {"GetSessionByPID": ("(o)", (_SESSION_PATH,)), "GetActive": ("(b)", (False,))}
        if method == "Notify":
            last = arguments.unpack()[1] or last + 1
            answers["Notify"] = ("(u)", (last,))
        answer = answers.get(method)
        invocation.return_value(glib.Variant(*answer) if answer else None)

    def read(_bus, _sender, _path, _interface, name):
        say("read", name)
        return glib.Variant("b", False)

    def emit_signals():
        for line in sys.stdin:
            path, interface, signal, signature, arguments = json.loads(line)
            if interface == PROPERTIES:
                arguments[1] = {name: glib.Variant("b", value)
                                for name, value in arguments[1].items()}
            bus.emit_signal(None, path, interface, signal,
                            glib.Variant(signature, tuple(arguments)))

    interfaces = {one.name: one for one in gio.DBusNodeInfo.new_for_xml(_INTERFACES).interfaces}
    for path, name in ((_LOGIN_PATH, LOGIN + ".Manager"), (_SESSION_PATH, LOGIN + ".Session"),
                       (_SAVER_PATH, SAVER), (_NOTIFICATIONS_PATH, NOTIFICATIONS)):
        bus.register_object(path, interfaces[name], call, read, None)
    for name in (LOGIN, SAVER, NOTIFICATIONS):
        bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                      "RequestName", glib.Variant("(su)", (name, 0)), None,
                      gio.DBusCallFlags.NONE, -1, None)
    threading.Thread(target=emit_signals, daemon=True).start()
    say("ready")
    glib.MainLoop().run()


class DesktopServices:
    """A login manager, a screen locker and a notification service that appear on a desktop."""

    def __init__(self, desktop):
        self.calls = []
        self._process = processes.spawn(
            [sys.executable, "-B", "-c",
             "import sys; from harness import services; services.serve(sys.argv[1])",
             desktop.environment["DBUS_SESSION_BUS_ADDRESS"]],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1,
            cwd=pathlib.Path(__file__).parents[1])
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        wait_until(lambda: ["ready"] in self.calls, what="the desktop's services")

    def _read(self):
        for line in self._process.stdout:
            self.calls = self.calls + [json.loads(line)]

    def close(self):
        """Removes the services."""
        processes.stop(self._process)
        self._reader.join(PATIENCE)
        self._process.stdin.close()
        self._process.stdout.close()

    def _emit(self, path, interface, signal, signature="()", *arguments):
        self._process.stdin.write(
            json.dumps([path, interface, signal, signature, arguments]) + "\n")
        self._process.stdin.flush()

    def wait_watched(self):
        """Waits until the program has read the state of its session and asked the locker."""
        wait_until(lambda: ["read", "LockedHint"] in self.calls and ["GetActive"] in self.calls,
                   what="the program to watch its session")

    def lock(self):
        """The login manager asks the session to lock."""
        self._emit(_SESSION_PATH, LOGIN + ".Session", "Lock")

    def unlock(self):
        """The login manager asks the session to unlock."""
        self._emit(_SESSION_PATH, LOGIN + ".Session", "Unlock")

    def set_locked_hint(self, is_locked):
        """The locker tells the login manager that the session is locked."""
        self._emit(_SESSION_PATH, PROPERTIES, "PropertiesChanged", "(sa{sv}as)",
                   LOGIN + ".Session", {"LockedHint": is_locked}, [])

    def set_locker_active(self, is_active):
        """The screen locker covers or uncovers the screen."""
        self._emit(_SAVER_PATH, SAVER, "ActiveChanged", "(b)", is_active)

    def sleep(self):
        """The machine is about to sleep."""
        self._emit(_LOGIN_PATH, LOGIN + ".Manager", "PrepareForSleep", "(b)", True)

    def wake_up(self):
        """The machine woke up."""
        self._emit(_LOGIN_PATH, LOGIN + ".Manager", "PrepareForSleep", "(b)", False)

    def notices(self):
        """The arguments of all calls of Notify."""
        return [call[1:] for call in self.calls if call[0] == "Notify"]

    def wait_notices(self, count):
        """Waits until this many notifications were requested; returns the latest one."""
        wait_until(lambda: len(self.notices()) >= count, what=f"{count} notifications")
        return self.notices()[-1]

    def closed(self):
        """The numbers given to CloseNotification."""
        return [call[1] for call in self.calls if call[0] == "CloseNotification"]

    def choose_default_action(self, number):
        """The user clicks a notification."""
        self._emit(_NOTIFICATIONS_PATH, NOTIFICATIONS, "ActionInvoked", "(us)", number, "default")
