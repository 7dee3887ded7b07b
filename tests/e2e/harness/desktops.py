"""The private desktops by their names."""

from .desktop import Desktop
from .gnome import GnomeDesktop
from .kwin import KWinDesktop
from .sway import SwayDesktop

BY_NAME = {"x11": Desktop, "sway": SwayDesktop, "kwin": KWinDesktop, "gnome": GnomeDesktop}


def start(name, **options):
    """Starts a desktop."""
    return BY_NAME[name](**options)
