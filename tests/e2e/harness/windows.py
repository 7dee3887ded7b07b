"""Another program: an X client that records the input it receives."""

import collections
import os
import select
import threading

from Xlib import X, Xatom, Xcursorfont
from Xlib import display as xdisplay

from .waiting import PATIENCE, wait_until

#: One recorded event: kind is "focus-in", "focus-out", "key", "press", "release" or "wheel".
Event = collections.namedtuple("Event", "kind detail x y")

#: Colours of the four quarters of the document: top left, top right, bottom left, bottom right.
QUARTERS = ((200, 60, 60), (60, 180, 75), (66, 99, 216), (240, 200, 60))


class OtherWindow:
    """A window with a four-coloured document, with its own X connection and thread."""

    def __init__(self, desktop, x=0, y=0, width=None, height=None, title="Document",
                 colours=QUARTERS, override_redirect=False):
        self.desktop = desktop
        self.width = width or desktop.width
        self.height = height or desktop.height
        self.title = title
        self._colours = colours
        self._events = []
        self._closed = False
        self._changed = threading.Condition()
        self._ready = threading.Event()
        self._wake_reader, self._wake_writer = os.pipe()
        self._display = xdisplay.Display(desktop.name)
        self._create(x, y, override_redirect)
        self._thread = threading.Thread(target=self._listen, name="other-window", daemon=True)
        self._thread.start()
        if not self._ready.wait(PATIENCE):
            raise AssertionError("the document window was never shown")
        if not override_redirect:
            desktop.wait_for_active(title)

    def _create(self, x, y, override_redirect):
        screen = self._display.screen()
        arrow = self._display.open_font("cursor").create_glyph_cursor(
            self._display.open_font("cursor"), Xcursorfont.top_left_arrow,
            Xcursorfont.top_left_arrow + 1, (0, 0, 0), (65535, 65535, 65535))
        self._window = screen.root.create_window(
            x, y, self.width, self.height, 0, screen.root_depth, X.InputOutput, X.CopyFromParent,
            background_pixel=0, cursor=arrow, override_redirect=override_redirect,
            event_mask=(X.ExposureMask | X.FocusChangeMask | X.KeyPressMask | X.ButtonPressMask
                        | X.ButtonReleaseMask | X.StructureNotifyMask))
        self.window_id = self._window.id
        self._window.set_wm_name(self.title)
        self._window.change_text_property(
            self._display.intern_atom("_NET_WM_NAME"),
            self._display.intern_atom("UTF8_STRING"), self.title.encode())
        self._window.set_wm_normal_hints(flags=1 << 0 | 1 << 2, x=x, y=y)
        # No decorations, so that the document has the requested geometry.
        hints = self._display.intern_atom("_MOTIF_WM_HINTS")
        self._window.change_property(hints, hints, 32, [2, 0, 0, 0, 0])
        self._window.change_property(
            self._display.intern_atom("_NET_WM_WINDOW_TYPE"), Xatom.ATOM, 32,
            [self._display.intern_atom("_NET_WM_WINDOW_TYPE_NORMAL")])
        self._window.map()
        self._display.flush()

    def _paint(self):
        half_width, half_height = self.width // 2, self.height // 2
        for index, (red, green, blue) in enumerate(self._colours):
            context = self._window.create_gc(foreground=red << 16 | green << 8 | blue)
            self._window.fill_rectangle(
                context, half_width * (index % 2), half_height * (index // 2),
                self.width - half_width, self.height - half_height)
            context.free()
        self._display.sync()

    def _listen(self):
        while True:
            while self._display.pending_events():
                self._handle(self._display.next_event())
            ready, _, _ = select.select([self._display.fileno(), self._wake_reader], [], [])
            if self._wake_reader in ready:
                self._display.close()
                return

    def _handle(self, event):
        if event.type == X.Expose:
            if event.count == 0:
                self._paint()
                self._ready.set()
        elif event.type in (X.FocusIn, X.FocusOut):
            # A key grab takes the focus during the press; this is no real focus change.
            if event.mode in (X.NotifyNormal, X.NotifyWhileGrabbed):
                self._record("focus-in" if event.type == X.FocusIn else "focus-out", 0, 0, 0)
        elif event.type == X.KeyPress:
            keysym = self._display.keycode_to_keysym(event.detail, event.state & X.ShiftMask)
            self._record("key", keysym, event.event_x, event.event_y)
        elif event.type == X.ButtonPress:
            self._record("press", event.detail, event.event_x, event.event_y)
        elif event.type == X.ButtonRelease:
            self._record("release", event.detail, event.event_x, event.event_y)

    def _record(self, *fields):
        with self._changed:
            self._events.append(Event(*fields))
            self._changed.notify_all()

    def events(self, kind=None, since=0):
        """The events recorded so far."""
        with self._changed:
            return [event for event in self._events[since:] if kind in (None, event.kind)]

    def mark(self):
        """Current end of the recording, for `since`."""
        with self._changed:
            return len(self._events)

    def wait_focus(self):
        """Waits until the window has the keyboard focus."""
        wait_until(lambda: self.desktop.focus_window() == self.window_id,
                   what="the focus of the document")

    def wait_for(self, kind, detail=None, since=0, timeout=PATIENCE):
        """Waits for an event of this kind; returns it."""
        def find():
            for event in self._events[since:]:
                if event.kind == kind and detail in (None, event.detail):
                    return event
            return None
        with self._changed:
            if not self._changed.wait_for(find, timeout):
                raise AssertionError(f"no {kind} {detail or ''} reached the other window; "
                                     f"it saw {self._events[since:]}")
            return find()

    def close(self):
        """Destroys the window. Idempotent."""
        if self._closed:
            return
        self._closed = True
        if self._thread.is_alive():
            os.write(self._wake_writer, b".")
            self._thread.join(PATIENCE)
        for descriptor in (self._wake_reader, self._wake_writer):
            os.close(descriptor)
