"""The part of a private desktop that is the same everywhere: folders, helpers, session bus."""

import atexit
import os
import pathlib
import select
import shutil
import subprocess
import tempfile
import time

from . import processes
from .waiting import PATIENCE

_BUS_CONFIGURATION = """<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=/tmp</listen>
  <servicedir>{services}</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""
_ACCESSIBILITY_SERVICE = pathlib.Path("/usr/share/dbus-1/services/org.a11y.Bus.service")


class Session:
    """Folders, helper processes and a session bus of one private desktop.

    Only one per test process, because the accessibility library binds to the first bus it
    sees. `close` ends everything, or the kernel does when the test process dies.
    """

    def __init__(self):
        processes.adopt_orphans()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="desktop-"))
        self._children = []
        atexit.register(self.close)
        runtime = self.folder / "runtime"
        runtime.mkdir(mode=0o700)
        self.environment = {
            "PATH": os.environ["PATH"],
            "HOME": str(self.folder),
            "LANG": "C.UTF-8",
            "XDG_RUNTIME_DIR": str(runtime),
        }

    def log_of(self, program):
        """What a helper has written so far."""
        path = self.folder / (pathlib.Path(program).name + ".log")
        return path.read_text(errors="replace") if path.exists() else ""

    def _start(self, *arguments, environment=None, **options):
        log = open(self.folder / (pathlib.Path(arguments[0]).name + ".log"), "ab")
        with log:
            child = processes.spawn(arguments, env=self.environment | (environment or {}),
                                    stdout=options.pop("stdout", log), stderr=log, **options)
        self._children.append(child)
        return child

    @staticmethod
    def _read_line(descriptor, what):
        """First line that a helper writes to `descriptor`."""
        data = b""
        deadline = time.monotonic() + PATIENCE
        while not data.endswith(b"\n"):
            ready, _, _ = select.select([descriptor], [], [], max(0, deadline - time.monotonic()))
            part = os.read(descriptor, 4096) if ready else b""
            if not part:
                raise AssertionError(f"{what} did not start")
            data += part
        return data.decode().strip()

    def _start_plain_bus(self):
        """Starts a session bus that starts the accessibility bus on request, but none of the
        machine's other services: a desktop portal would show its own dialogs. Returns its address.
        """
        services = self.folder / "services"
        services.mkdir()
        shutil.copy(_ACCESSIBILITY_SERVICE, services)
        configuration = self.folder / "session.conf"
        configuration.write_text(_BUS_CONFIGURATION.format(services=services), encoding="utf-8")
        return self._start_bus(f"--config-file={configuration}")

    def _start_bus(self, *options):
        """Starts a message bus; returns its address."""
        reader, writer = os.pipe()
        self._start("dbus-daemon", *(options or ("--session",)), "--nofork", "--nopidfile",
                    f"--print-address={writer}", pass_fds=[writer])
        os.close(writer)
        try:
            return self._read_line(reader, "the session bus")
        finally:
            os.close(reader)

    def _bind_accessibility(self):
        """The accessibility library reads these on first use."""
        for name in ("DISPLAY", "WAYLAND_DISPLAY", "XDG_RUNTIME_DIR", "DBUS_SESSION_BUS_ADDRESS",
                     "DBUS_SYSTEM_BUS_ADDRESS"):
            if name in self.environment:
                os.environ[name] = self.environment[name]
            else:
                os.environ.pop(name, None)

    def run(self, *arguments, **options):
        """Runs a helper program to completion on this desktop."""
        return subprocess.run(arguments, env=self.environment, check=True, **options)

    def close(self):
        """Ends every helper and removes the private folder. Idempotent."""
        atexit.unregister(self.close)
        for child in reversed(self._children):
            processes.stop(child, timeout=2)
        self._children = []
        processes.kill_all_descendants()
        processes.reap()
        shutil.rmtree(self.folder, ignore_errors=True)
