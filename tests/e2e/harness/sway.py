"""A private sway desktop without hardware."""

import json
import socket
import struct

from .waiting import PATIENCE, wait_until
from .wayland_desktop import WaylandDesktop

_MAGIC = b"i3-ipc"
_RUN_COMMAND, _GET_WORKSPACES, _GET_OUTPUTS, _GET_TREE = 0, 1, 3, 4

#: Every window floats with the size it asks for, the newest on top; a click focuses and raises.
#: There is no key binding, so that every key reaches the tests.
_CONFIG = """
xwayland disable
default_border none
default_floating_border none
focus_follows_mouse no
focus_on_window_activation focus
floating_maximum_size -1 x -1
for_window [title=".*"] floating enable
for_window [title="^Other program"] move absolute position 0 0
for_window [title="^Document$"] move absolute position 0 0
seat seat0 xcursor_theme default 24
output HEADLESS-1 resolution {width}x{height} position 0 0 scale {scale} bg {background} solid_color
"""


class SwayDesktop(WaylandDesktop):
    """sway with one or more outputs drawn in memory."""

    session_name = "sway"
    program = "sway"
    #: Colour of the empty desktop.
    background = (0x20, 0x40, 0x60)

    def __init__(self, width=1280, height=800, scale=1, config=""):
        """`width` and `height` are pixels of the output, `scale` pixels per logical pixel."""
        self.scale = scale
        self._pixels = (width, height)
        self._config = config
        super().__init__(round(width / scale), round(height / scale))

    def _start_compositor(self):
        runtime = self.environment["XDG_RUNTIME_DIR"]
        config = self.folder / "sway.conf"
        red, green, blue = self.background
        width, height = self._pixels
        config.write_text(_CONFIG.format(
            width=width, height=height, scale=self.scale,
            background=f"#{red:02x}{green:02x}{blue:02x}") + self._config)
        self._socket_path = f"{runtime}/sway.sock"
        # As sway sets it for the programs that it starts.
        self.environment["SWAYSOCK"] = self._socket_path
        self._compositor = self._start(
            "sway", "--config", str(config), environment={
                "WLR_BACKENDS": "headless", "WLR_RENDERER": "pixman",
                "WLR_LIBINPUT_NO_DEVICES": "1", "SWAYSOCK": self._socket_path})
        # Takes the first free name in its own folder.
        self.name = "wayland-1"
        self._wait_for_socket()
        wait_until(lambda: self.outputs(), what="the output of sway")


    # -- its own socket -------------------------------------------------------------------------

    def _ask(self, kind, text=""):
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(PATIENCE)
            connection.connect(self._socket_path)
            body = text.encode()
            connection.sendall(_MAGIC + struct.pack("=II", len(body), kind) + body)
            data = b""
            while len(data) < 14 or len(data) < 14 + struct.unpack("=I", data[6:10])[0]:
                part = connection.recv(65536)
                if not part:
                    raise AssertionError("sway closed its socket")
                data += part
            return json.loads(data[14:])

    def command(self, text):
        """Runs commands of sway's configuration language."""
        for result in self._ask(_RUN_COMMAND, text):
            if not result.get("success"):
                raise AssertionError(f"sway refused {text!r}: {result.get('error')}")

    def outputs(self):
        """The active outputs as sway describes them."""
        try:
            return [output for output in self._ask(_GET_OUTPUTS) if output.get("active")]
        except OSError:
            return []

    def add_output(self, width, height, x, y, scale=1):
        """Adds an output at a position of the desktop; returns its name."""
        before = {output["name"] for output in self.outputs()}
        self.command("create_output")
        name = wait_until(lambda: {output["name"] for output in self.outputs()} - before,
                          what="the new output").pop()
        self.command(f"output {name} resolution {width}x{height} position {x} {y} scale {scale} "
                     "bg #604020 solid_color")
        self._resize_input()
        return name

    def set_scale(self, scale, output="HEADLESS-1"):
        """Changes the scale of an output."""
        self.command(f"output {output} scale {scale}")
        self.scale = scale
        self._resize_input()

    def _resize_input(self):
        boxes = [output["rect"] for output in self.outputs()]
        self.width = max(box["x"] + box["width"] for box in boxes)
        self.height = max(box["y"] + box["height"] for box in boxes)
        self.input.send(f"size {self.width} {self.height}")

    def windows(self):
        """All ordinary windows, the topmost last: title, pid, focused, rect."""
        found = []

        def visit(node):
            if node.get("pid"):
                found.append({key: node.get(key) for key in ("name", "pid", "focused", "rect")})
            for child in node.get("nodes", []) + node.get("floating_nodes", []):
                visit(child)
        visit(self._ask(_GET_TREE))
        return found

    def active_process(self):
        """Id of the active window's process, or 0."""
        return next((window["pid"] for window in self.windows() if window["focused"]), 0)

    def wait_for_active(self, title, timeout=PATIENCE):
        """Waits until a window with this title has the focus; returns it."""
        def look():
            return next((window for window in self.windows()
                         if window["name"] == title and window["focused"]), None)
        return wait_until(look, timeout, f"the window {title!r} to be active")

    # -- pictures -------------------------------------------------------------------------------

    def _whole_picture(self):
        return self.output_picture(0)

    def output_picture(self, number):
        """An Image of one output, in its own pixels."""
        path = self.folder / "picture.ppm"
        self.input.send(f"picture {number} {path}")
        return self._read_picture(path)
