"""Harness of the end-to-end tests: real programs on a private display, driven as by a user."""

from .access import Accessibility
from .app import App, TEST_EMAIL, TEST_PASSWORD
from .case import E2ECase, SignedInCase
from .desktop import Desktop
from .image import Image
from .server import Connection, HostileServer, Request, done_event, chunk_event, login_response
from .waiting import wait_until
from .windows import OtherWindow

__all__ = [
    "Accessibility", "App", "Connection", "Desktop", "E2ECase", "HostileServer", "Image",
    "OtherWindow", "Request", "SignedInCase", "TEST_EMAIL", "TEST_PASSWORD", "chunk_event",
    "done_event", "login_response", "wait_until",
]
