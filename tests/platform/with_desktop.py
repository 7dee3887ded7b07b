#!/usr/bin/env python3
"""Runs a program on a private X server with a window manager; both are killed when it exits.

Usage: with_desktop.py [--bare] PROGRAM [ARGUMENT...]

With --bare no window manager is started.
"""

import ctypes
import os
import pathlib
import select
import signal
import subprocess
import sys
import tempfile

START_TIMEOUT = 30  # seconds for the server and for the window manager
PR_SET_PDEATHSIG = 1

# No key bindings, so that every key reaches the tests. A click focuses and raises the window.
OPENBOX_CONFIG = """<?xml version="1.0" encoding="UTF-8"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <focus><focusNew>yes</focusNew><followMouse>no</followMouse></focus>
  <placement><policy>Smart</policy></placement>
  <desktops><number>2</number></desktops>
  <keyboard/>
  <mouse>
    <context name="Client">
      <mousebind button="Left" action="Press">
        <action name="Focus"/><action name="Raise"/>
      </mousebind>
    </context>
  </mouse>
</openbox_config>
"""


def die_with_parent():
    """Kills this child when its parent dies, so that a killed test leaves no server behind."""
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def start(arguments, **options):
    return subprocess.Popen(arguments, preexec_fn=die_with_parent, stdin=subprocess.DEVNULL,
                            **options)


def start_x_server(log):
    reading, writing = os.pipe()
    # A key that a busy machine holds for long must not repeat.
    server = start(["Xvfb", "-displayfd", str(writing), "-screen", "0", "1280x960x24",
                    "-nolisten", "tcp", "-noreset", "-ardelay", "60000"], pass_fds=[writing],
                   stdout=log, stderr=log)
    os.close(writing)
    with os.fdopen(reading) as pipe:
        if not select.select([pipe], [], [], START_TIMEOUT)[0]:
            raise RuntimeError("the X server did not start in time")
        number = pipe.readline().strip()
    if not number:
        raise RuntimeError("the X server exited")
    return server, ":" + number


def start_window_manager(folder, environment, log):
    config = folder / "openbox.xml"
    config.write_text(OPENBOX_CONFIG, encoding="utf-8")
    ready = folder / "ready"
    os.mkfifo(ready)
    reading = os.open(ready, os.O_RDONLY | os.O_NONBLOCK)
    try:
        manager = start(["openbox", "--sm-disable", "--config-file", str(config),
                         "--startup", f"sh -c 'echo > {ready}'"],
                        env=environment, stdout=log, stderr=log)
        if not select.select([reading], [], [], START_TIMEOUT)[0]:
            raise RuntimeError("the window manager did not start in time")
        return manager
    finally:
        os.close(reading)


def main(arguments):
    bare = arguments[0] == "--bare"
    command = arguments[1:] if bare else arguments
    with tempfile.TemporaryDirectory(prefix="desktop-") as name:
        folder = pathlib.Path(name)
        children = []
        with open(folder / "desktop.log", "wb") as log:
            try:
                server, display = start_x_server(log)
                children.append(server)
                environment = dict(os.environ, DISPLAY=display, QT_QPA_PLATFORM="xcb",
                                   XDG_RUNTIME_DIR=name, HOME=name, NO_AT_BRIDGE="1",
                                   DBUS_SYSTEM_BUS_ADDRESS=f"unix:path={name}/none")
                for variable in ("WAYLAND_DISPLAY", "XDG_SESSION_TYPE",
                                 "DBUS_SESSION_BUS_ADDRESS"):
                    environment.pop(variable, None)
                if not bare:
                    children.append(start_window_manager(folder, environment, log))
                test = start(command, env=environment)
                children.append(test)
                return test.wait()
            finally:
                for child in reversed(children):
                    child.kill()
                    child.wait()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
