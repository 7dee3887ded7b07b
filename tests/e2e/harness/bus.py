"""Calls over a private message bus."""

import time


def load():
    """Gio and GLib."""
    import gi  # pylint: disable=import-outside-toplevel
    gi.require_version("Gio", "2.0")
    from gi.repository import Gio, GLib  # pylint: disable=import-outside-toplevel
    return Gio, GLib


class Bus:
    """A connection of its own to the bus at an address."""

    def __init__(self, address):
        gio, self._glib = load()
        self._gio = gio
        self._connection = gio.DBusConnection.new_for_address_sync(
            address, gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
            | gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
        self._connection.set_exit_on_close(False)

    def call(self, service, path, interface, method, signature="()", *arguments, files=(),
             timeout=20):
        """Calls a method; returns the tuple of its results. `files`: descriptors to pass."""
        passed = self._gio.UnixFDList.new()
        for descriptor in files:
            passed.append(descriptor)
        try:
            result, _ = self._connection.call_with_unix_fd_list_sync(
                service, path, interface, method, self._glib.Variant(signature, arguments), None,
                self._gio.DBusCallFlags.NONE, int(timeout * 1000), passed, None)
        except self._glib.Error as error:
            raise AssertionError(f"{interface}.{method}: {error.message}") from None
        finally:
            # Closes its duplicates: the reader at the other end of a pipe waits for that.
            del passed
        return result.unpack()

    def serve(self, path, interface, method, signature, handler):
        """Offers an object with one method without results; `wait_served` delivers its calls."""
        node = self._gio.DBusNodeInfo.new_for_xml(
            f'<node><interface name="{interface}"><method name="{method}">'
            f'<arg type="{signature}" direction="in"/></method></interface></node>')

        def call(_bus, _sender, _path, _interface, _method, arguments, invocation):
            invocation.return_value(None)
            handler(*arguments.unpack())
        self._connection.register_object(path, node.interfaces[0], call, None, None)

    def wait_served(self, condition, timeout=20):
        """Delivers calls until the condition holds."""
        context = self._glib.MainContext.default()
        deadline = time.monotonic() + timeout
        while not condition():
            if time.monotonic() > deadline:
                raise AssertionError("nobody called")
            if not context.iteration(False):
                time.sleep(0.002)

    @property
    def name(self):
        """Its unique name on the bus."""
        return self._connection.get_unique_name()

    def variant(self, signature, value):
        """A value with a type of its own, for dictionaries."""
        return self._glib.Variant(signature, value)

    def has_owner(self, name):
        """Whether a program owns this name."""
        return self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                         "NameHasOwner", "(s)", name)[0]

    def set_activation_environment(self, values):
        """Sets variables of the programs that the bus starts."""
        self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                  "UpdateActivationEnvironment", "(a{ss})", values)

    def close(self):
        """Closes the connection."""
        self._connection.close_sync(None)
