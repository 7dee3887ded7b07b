"""Another program that offers data: on the clipboard, or by a drag with the real pointer."""

import contextlib
import threading

from Xlib import X, Xatom
from Xlib import display as xdisplay
from Xlib import error
from Xlib.protocol import event

from .waiting import wait_until

_VERSION = 5


class Offer:
    """Offers contents by their media types until the desktop ends."""

    def __init__(self, desktop, **contents):
        """`contents` by media type, with "__" for the slash: image__png=b"…"."""
        self.desktop = desktop
        self._display = xdisplay.Display(desktop.name)
        self._contents = {self._atom(name.replace("__", "/")): data
                          for name, data in contents.items()}
        self._window = self._display.screen().root.create_window(0, 0, 1, 1, 0, X.CopyFromParent)
        # Requests of the test go through a connection of their own: an event that arrives with a
        # reply to another thread would wake nobody.
        self._control = xdisplay.Display(desktop.name)
        self._messages = []
        self._is_dragged = False

    def _atom(self, name):
        return self._display.intern_atom(name)

    def copy(self):
        """Puts the contents on the clipboard."""
        self._own("CLIPBOARD")
        return self

    def _own(self, selection):
        self._window.set_selection_owner(self._atom(selection), X.CurrentTime)
        self._display.sync()
        threading.Thread(target=self._run, name="offer", daemon=True).start()

    def _run(self):
        with contextlib.suppress(error.ConnectionClosedError):  # the desktop has ended
            while True:
                received = self._display.next_event()
                if received.type == X.SelectionRequest:
                    self._answer(received)
                elif received.type == X.ClientMessage:
                    self._messages.append(received)

    def _answer(self, asked):
        answered = asked.property
        if asked.target == self._atom("TARGETS"):
            asked.requestor.change_property(asked.property, Xatom.ATOM, 32,
                                            [asked.target, *self._contents])
        elif asked.target in self._contents:
            asked.requestor.change_property(asked.property, asked.target, 8,
                                            self._contents[asked.target])
        else:
            answered = X.NONE
        asked.requestor.send_event(event.SelectionNotify(
            time=asked.time, requestor=asked.requestor, selection=asked.selection,
            target=asked.target, property=answered))
        self._display.flush()

    # -- drags ----------------------------------------------------------------------------------

    def _target(self):
        """The window beneath the pointer that takes drags, or None."""
        window = self._control.screen().root
        aware = self._control.intern_atom("XdndAware")
        while window:
            if window.get_full_property(aware, X.AnyPropertyType):
                return window
            window = window.query_pointer().child or None
        return None

    def _send(self, target, name, *data):
        padded = [self._window.id, *data] + [0] * (4 - len(data))
        target.send_event(event.ClientMessage(
            window=target, client_type=self._control.intern_atom(name), data=(32, padded)))
        self._control.flush()

    def _wait_for(self, name):
        kind = self._control.intern_atom(name)

        def found():
            return next((each for each in self._messages if each.client_type == kind), None)
        return wait_until(found, what=name).data[1]

    def drag_to(self, x, y):
        """Holds the data over a point; returns whether the window there would take it."""
        self.desktop.move_pointer(x, y)
        if not self._is_dragged:
            self._own("XdndSelection")
            self._is_dragged = True
        self._messages.clear()
        self.over = self._target()
        if self.over is None:
            return False
        types = list(self._contents)
        self._send(self.over, "XdndEnter", _VERSION << 24 | (len(types) > 3), *types[:3])
        self._send(self.over, "XdndPosition", 0, int(x) << 16 | int(y), X.CurrentTime,
                   self._control.intern_atom("XdndActionCopy"))
        return bool(self._wait_for("XdndStatus")[1] & 1)

    def leave(self):
        """Takes the data away again."""
        self._send(self.over, "XdndLeave")

    def drop(self):
        """Lets go of the data; returns whether it was taken."""
        self._send(self.over, "XdndDrop", 0, X.CurrentTime)
        return bool(self._wait_for("XdndFinished")[1] & 1)
