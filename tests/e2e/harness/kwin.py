"""A private KWin desktop without hardware."""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import threading

from .app import BIN_DIR
from .bus import Bus
from .image import Image
from .waiting import PATIENCE, wait_until
from .wayland_desktop import InputProgram, WaylandDesktop

_KWIN = "org.kde.KWin"
_SCREENSHOT = "org.kde.KWin.ScreenShot2"
#: KWin takes pictures only for programs that a desktop file permits to.
_PERMITTED = """[Desktop Entry]
Type=Application
Name={name}
Exec={program}
Terminal=false
X-KDE-DBUS-Restricted-Interfaces=org.kde.KWin.ScreenShot2
"""


class KWinInput(InputProgram):
    """Moves by offsets while a button is held: KWin reports no offsets of absolute moves."""

    _position = (0, 0)
    _held = False

    def move_to(self, x, y):
        """Moves the pointer to a position of the desktop."""
        if self._held:
            self.move_by(int(x) - self._position[0], int(y) - self._position[1])
        else:
            super().move_to(x, y)
        self._position = (int(x), int(y))

    def button(self, code, pressed):
        """Presses or releases a button."""
        self._held = pressed
        super().button(code, pressed)


class KWinDesktop(WaylandDesktop):
    """KWin with one output drawn in memory."""

    session_name = "KDE"
    program = "kwin_wayland"

    def __init__(self, width=1280, height=800, scale=1):
        self.scale = scale
        self._pixels = (width, height)
        self.bus = None
        super().__init__(round(width / scale), round(height / scale))

    def _start_compositor(self):
        # The installed file has a capability, which the kernel does not grant here.
        folder = self.folder / "bin"
        folder.mkdir()
        program = folder / self.program
        shutil.copyfile(shutil.which(self.program), program)
        program.chmod(0o755)
        home = self.folder / "kde"
        applications = home / "applications"
        applications.mkdir(parents=True)
        for path in (sys.executable, BIN_DIR / "quellora"):
            program_path = pathlib.Path(path).resolve()
            # The name of the file that Debian's interpreter has, so that this one replaces it.
            (applications / f"{program_path.name}.desktop").write_text(
                _PERMITTED.format(name=program_path.name, program=program_path))
        self.environment |= {
            "XDG_DATA_DIRS": f"{home}:/usr/local/share:/usr/share",
            "KDE_FULL_SESSION": "true", "KDE_SESSION_VERSION": "5",
        }
        # KWin would read the desktop files too late for the first picture.
        self.run("kbuildsycoca5", stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        width, height = self._pixels
        self._compositor = self._start(
            str(program), "--virtual", "--width", str(width), "--height", str(height),
            "--scale", str(self.scale), "--no-lockscreen", "--socket", self.name,
            environment={
                # With the other renderer there are no pictures.
                "KWIN_COMPOSE": "O2",
                # Keyboard and pointer of the tests.
                "KWIN_WAYLAND_NO_PERMISSION_CHECKS": "1",
            })
        self._wait_for_socket()
        self.bus = Bus(self.environment["DBUS_SESSION_BUS_ADDRESS"])
        self._answers = []
        self.bus.serve("/answer", "quellora.Answer", "Take", "s", self._answers.append)
        self.bus.set_activation_environment(
            {key: self.environment[key] for key in
             ("XDG_CURRENT_DESKTOP", "XDG_SESSION_TYPE", "XDG_DATA_DIRS", "XDG_RUNTIME_DIR",
              "KDE_FULL_SESSION", "KDE_SESSION_VERSION")} | {"WAYLAND_DISPLAY": self.name})

    def _make_input(self):
        return KWinInput(self.environment, self.width, self.height)

    def evaluate(self, expression):
        """The value of an expression of KWin's own scripts."""
        script = self.folder / "question.js"
        script.write_text(f'callDBus("{self.bus.name}", "/answer", "quellora.Answer", "Take", '
                          f'JSON.stringify({expression}));')
        self._answers.clear()
        number, = self.bus.call(_KWIN, "/Scripting", "org.kde.kwin.Scripting", "loadScript",
                                "(ss)", str(script), "question")
        try:
            self.bus.call(_KWIN, f"/{number}", "org.kde.kwin.Script", "run")
            self.bus.wait_served(lambda: self._answers)
        finally:
            self.bus.call(_KWIN, "/Scripting", "org.kde.kwin.Scripting", "unloadScript", "(s)",
                          "question")
        return json.loads(self._answers[0])

    def active_process(self):
        """Id of the active window's process, or 0."""
        return self.evaluate("workspace.activeClient ? workspace.activeClient.pid : 0")

    def wait_for_active(self, title, timeout=PATIENCE):
        """Waits until a window with this title is active."""
        wait_until(lambda: self.evaluate(
            "workspace.activeClient ? workspace.activeClient.caption : ''") == title, timeout,
            f"the window {title!r} to be active")

    def _whole_picture(self):
        reader, writer = os.pipe()
        data = bytearray()

        def read():
            with os.fdopen(reader, "rb") as pipe:
                data.extend(pipe.read())
        thread = threading.Thread(target=read)
        thread.start()
        try:
            result, = self.bus.call(
                _KWIN, "/org/kde/KWin/ScreenShot2", _SCREENSHOT, "CaptureArea",
                "(iiuua{sv}h)", 0, 0, self.width, self.height,
                {"native-resolution": self.bus.variant("b", True)}, 0, files=[writer])
        finally:
            os.close(writer)
            thread.join()
        width, height, stride = result["width"], result["height"], result["stride"]
        if stride != width * 4:
            raise AssertionError(f"rows of {stride} bytes for {width} pixels")
        return Image.from_bgrx(width, height, bytes(data))

    def close(self):
        """Ends every helper and removes the private folder. Idempotent."""
        if self.bus is not None:
            self.bus.close()
            self.bus = None
        super().close()
