"""What a screen reader is told by itself: the names of notifications that appear."""

import time

from .waiting import PATIENCE, wait_until


class Announcements:
    """Records announcements from its creation on, until `close`."""

    def __init__(self, access):
        self._access = access
        #: (monotonic time in seconds, text) of each announcement.
        self.heard = []
        atspi, self._glib = access.api
        # So that names are asked for each time.
        access.root()
        self._listener = atspi.EventListener.new(self._take)
        self._listener.register("object:state-changed:showing")

    def _take(self, event):
        try:
            if event.detail1 and event.source.get_role_name() == "notification":
                self.heard.append((time.monotonic(), event.source.get_name()))
        except self._glib.Error:
            pass

    def texts(self, since=0):
        """The announcements so far, from that number on."""
        context = self._glib.MainContext.default()
        while context.iteration(False):
            pass
        return [text for _, text in self.heard[since:]]

    def wait_for(self, text, since=0, timeout=PATIENCE):
        """Waits until a text has been announced, alone or with others."""
        try:
            wait_until(lambda: text in " ".join(self.texts(since)), timeout, repr(text))
        except AssertionError as error:
            raise AssertionError(f"{error}; announced: {self.texts(since)}") from None

    def close(self):
        """Stops listening."""
        self._listener.deregister("object:state-changed:showing")
