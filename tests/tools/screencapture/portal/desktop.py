"""A Wayland session with a private message bus, and a desktop portal that plays each answer."""

import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import threading

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402 pylint: disable=wrong-import-position

_NAME = "org.freedesktop.portal.Desktop"
_PATH = "/org/freedesktop/portal/desktop"
_SCREENSHOT = "org.freedesktop.portal.Screenshot"
_REQUEST = "org.freedesktop.portal.Request"
_INTERFACE = f"""
<node><interface name="{_SCREENSHOT}"><method name="Screenshot">
  <arg type="s" direction="in"/><arg type="a{{sv}}" direction="in"/><arg type="o" direction="out"/>
</method></interface></node>
"""
_CONFIGURATION = """
<busconfig><type>session</type><listen>unix:dir={folder}</listen>
<servicedir>{services}</servicedir>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>
<allow own="*"/></policy></busconfig>
"""
_FLAGS = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
          | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)


class Desktop:
    """The session: a compositor's socket that accepts connections, and a bus without services."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="quellora-portal-test-"))
        self.services = self.folder / "services"
        self.services.mkdir()
        self._compositor = socket.socket(socket.AF_UNIX)
        self._compositor.bind(str(self.folder / "wayland-7"))
        self._compositor.listen()
        configuration = self.folder / "bus.conf"
        configuration.write_text(_CONFIGURATION.format(folder=self.folder, services=self.services))
        self._bus = subprocess.Popen(  # pylint: disable=consider-using-with
            ["dbus-daemon", f"--config-file={configuration}", "--nofork", "--nopidfile",
             "--print-address"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self._bus.stdout.readline().strip()
        self.environment = {
            "PATH": os.environ["PATH"], "LC_ALL": "C", "WAYLAND_DISPLAY": "wayland-7",
            "XDG_RUNTIME_DIR": str(self.folder), "DBUS_SESSION_BUS_ADDRESS": self.address}

    def close(self):
        self._bus.kill()
        self._bus.wait()
        self._bus.stdout.close()
        self._compositor.close()
        shutil.rmtree(self.folder)


class Portal:
    """The portal. `answer` is called for every request with this object and the request's path; it
    may call `respond`. What it returns is the reply: a request's path, or an error's name."""

    def __init__(self, desktop, answer):
        self._answer = answer
        self._context = GLib.MainContext()
        self._loop = GLib.MainLoop(self._context)
        self._bus = None
        self._caller = None
        #: The options of all requests.
        self.requests = []
        started = threading.Event()
        self._thread = threading.Thread(target=self._serve, args=(desktop.address, started))
        self._thread.start()
        if not started.wait(20):
            raise AssertionError("the portal does not start")

    def _serve(self, address, started):
        self._context.push_thread_default()
        self._bus = Gio.DBusConnection.new_for_address_sync(address, _FLAGS, None, None)
        self._bus.set_exit_on_close(False)
        interface = Gio.DBusNodeInfo.new_for_xml(_INTERFACE).interfaces[0]
        self._bus.register_object(_PATH, interface, self._handle, None, None)
        self._bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus",
                            "org.freedesktop.DBus", "RequestName",
                            GLib.Variant("(su)", (_NAME, 0)), None, Gio.DBusCallFlags.NONE, -1,
                            None)
        started.set()
        self._loop.run()
        self._bus.close_sync(None)
        self._context.pop_thread_default()

    def _handle(self, _bus, sender, _path, _interface, _method, arguments, invocation):
        _parent, options = arguments.unpack()
        self.requests.append(options)
        self._caller = sender
        handle = (f"{_PATH}/request/{sender[1:].replace('.', '_')}/"
                  f"{options.get('handle_token', 'none')}")
        reply = self._answer(self, handle)
        if reply.startswith("/"):
            invocation.return_value(GLib.Variant("(o)", (reply,)))
        else:
            invocation.return_dbus_error(reply, "not\nnow")

    def respond(self, handle, code, results, bus=None):
        """Sends a response; `bus` is another sender's connection."""
        self.send(handle, GLib.Variant("(ua{sv})", (code, results)), bus)

    def send(self, handle, arguments, bus=None):
        """Sends a response with any arguments, to those who listen; another sender's to the caller,
        who hears it without listening."""
        sender = bus or self._bus
        sender.emit_signal(self._caller if bus else None, handle, _REQUEST, "Response", arguments)
        sender.flush_sync(None)

    def leave(self):
        """Gives the portal's name up."""
        self._bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus",
                            "org.freedesktop.DBus", "ReleaseName", GLib.Variant("(s)", (_NAME,)),
                            None, Gio.DBusCallFlags.NONE, -1, None)

    def after(self, action):
        """Does something when the reply has been sent."""
        source = GLib.Idle()
        source.set_callback(lambda *_: action() and False)
        source.attach(self._context)

    def close(self):
        self._loop.quit()
        self._thread.join()


def other_program(desktop):
    """Another connection to the bus."""
    bus = Gio.DBusConnection.new_for_address_sync(desktop.address, _FLAGS, None, None)
    bus.set_exit_on_close(False)
    return bus


def text(value):
    return GLib.Variant("s", value)


def number(value):
    return GLib.Variant("u", value)


def tuple_of(kind, value):
    return GLib.Variant(kind, value)
