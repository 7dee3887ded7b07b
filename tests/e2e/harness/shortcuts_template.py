"""Template for python-dbusmock: the desktop portal of GNOME 48 as far as keys are concerned.

The user is asked about actions that are not known yet; their keys are stored for later sessions.
The interface CONTROL plays the user.
"""

import dbus

BUS_NAME = "org.freedesktop.portal.Desktop"
MAIN_OBJ = "/org/freedesktop/portal/desktop"
MAIN_IFACE = "org.freedesktop.portal.GlobalShortcuts"
SYSTEM_BUS = False

REQUEST = "org.freedesktop.portal.Request"
SESSION = "org.freedesktop.portal.Session"
CONTROL = "com.quellora.test.Desktop"


def load(mock, parameters):
    """Called by dbusmock."""
    mock.AddProperties(MAIN_IFACE, {"version": dbus.UInt32(1)})
    mock.is_declining = bool(parameters.get("declines", False))
    mock.dialogs = 0
    #: id -> (description, key)
    mock.stored = {}
    mock.session = None
    mock.sessions = set()
    mock.is_bound = False


def _shortcuts(self):
    properties = {name: {"description": description} | (
        {"trigger_description": key} if key else {})
        for name, (description, key) in self.stored.items()}
    return dbus.Array([(name, dbus.Dictionary(values, signature="sv"))
                       for name, values in properties.items()], signature="(sa{sv})")


def _respond(self, kind, options, sender, code, results):
    path = f"{MAIN_OBJ}/{kind}/{sender[1:].replace('.', '_')}/{options['handle_token']}"
    self.EmitSignalDetailed(REQUEST, "Response", "ua{sv}",
                            [dbus.UInt32(code), dbus.Dictionary(results, signature="sv")],
                            {"path": path, "destination": sender})
    return dbus.ObjectPath(path)


@dbus.service.method(MAIN_IFACE, in_signature="a{sv}", out_signature="o", sender_keyword="sender")
def CreateSession(self, options, sender=None):
    """Opens a session without keys."""
    self.session = (f"{MAIN_OBJ}/session/{sender[1:].replace('.', '_')}/"
                    f"{options['session_handle_token']}")
    self.is_bound = False
    if self.session not in self.sessions:
        self.sessions.add(self.session)
        self.AddObject(self.session, SESSION, {}, [("Close", "", "", "")])
    return _respond(self, "request", options, sender, 0, {"session_handle": self.session})


@dbus.service.method(MAIN_IFACE, in_signature="oa(sa{sv})sa{sv}", out_signature="o",
                     sender_keyword="sender")
def BindShortcuts(self, session, shortcuts, _window, options, sender=None):
    """Asks the user about new actions, who takes what is suggested or declines."""
    if session != self.session or self.is_bound:
        return _respond(self, "request", options, sender, 2, {})
    if any(str(name) not in self.stored for name, _ in shortcuts):
        self.dialogs += 1
        if self.is_declining:
            return _respond(self, "request", options, sender, 1, {})
        for name, properties in shortcuts:
            suggested = properties.get("preferred_trigger")
            self.stored.setdefault(str(name), (str(properties["description"]),
                                               "Press " + suggested if suggested else ""))
    self.is_bound = True
    return _respond(self, "request", options, sender, 0, {"shortcuts": _shortcuts(self)})


@dbus.service.method(MAIN_IFACE, in_signature="oa{sv}", out_signature="o", sender_keyword="sender")
def ListShortcuts(self, _session, options, sender=None):
    """The stored keys, whether or not the session may use them."""
    return _respond(self, "request", options, sender, 0, {"shortcuts": _shortcuts(self)})


@dbus.service.method(CONTROL, in_signature="s", out_signature="")
def Press(self, name):
    """The user presses an action's key."""
    if self.is_bound and self.stored[str(name)][1]:
        self.EmitSignal(MAIN_IFACE, "Activated", "osta{sv}",
                        [dbus.ObjectPath(self.session), name, dbus.UInt64(1), {}])


@dbus.service.method(CONTROL, in_signature="ss", out_signature="")
def Assign(self, name, key):
    """The user assigns another key in the desktop's settings, or with an empty text none."""
    self.stored[str(name)] = (self.stored[str(name)][0], str(key))
    self.EmitSignal(MAIN_IFACE, "ShortcutsChanged", "oa(sa{sv})",
                    [dbus.ObjectPath(self.session), _shortcuts(self)])


@dbus.service.method(CONTROL, in_signature="", out_signature="i")
def Dialogs(self):
    """How often the user was asked."""
    return self.dialogs
