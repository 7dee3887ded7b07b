"""A private display with an optional window manager and compositor, and test windows."""

import contextlib
import os
import select
import shutil
import subprocess
import tempfile
import threading
import time

from Xlib import X, Xatom, display, error, ext
from Xlib.ext import shape
from Xlib.protocol import event as xevent

# python-xlib misnumbers the events of other extensions if the display lacks some of them.
ext.__extensions__[:] = [entry for entry in ext.__extensions__ if entry[0] == "SHAPE"]

DEADLINE = 15.0
ROOT_COLOUR = 0x204060
CAPTURE_EXCLUDE = "_QUELLORA_CAPTURE_EXCLUDE"


def wait_until(condition, what):
    """Polls until condition() is true; raises AssertionError after the deadline."""
    end = time.monotonic() + DEADLINE
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("timed out waiting for " + what)
        time.sleep(0.005)


def stop(process):
    """Terminates a process; kills it after the deadline."""
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(DEADLINE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


class Screen:
    """Xvfb on a free display number chosen by the server."""

    def __init__(self, size="640x480x24", arguments=(), window_manager=False, compositor=None):
        self._processes = contextlib.ExitStack()
        self.folder = tempfile.mkdtemp(prefix="quellora-capture-test-")
        self._processes.callback(shutil.rmtree, self.folder, True)
        try:
            self._start_server(size, arguments)
            self.environment = dict(os.environ, DISPLAY=self.name, LC_ALL="C")
            self.display = display.Display(self.name)
            self._processes.callback(self._disconnect)
            self.screen = self.display.screen()
            self.root = self.screen.root
            if window_manager:
                self._start_window_manager()
            if compositor is not None:
                self._start_compositor(compositor)
        except BaseException:
            self._processes.close()
            raise

    def _start_server(self, size, arguments):
        read_end, write_end = os.pipe()
        command = ["Xvfb", "-displayfd", str(write_end), "-screen", "0", size, "-noreset",
                   *arguments]
        if "-listen" not in arguments:
            command += ["-nolisten", "tcp"]
        process = subprocess.Popen(command, pass_fds=[write_end], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        self._processes.callback(stop, process)
        self.server = process
        os.close(write_end)
        with os.fdopen(read_end, "rb") as output:
            if not select.select([output], [], [], DEADLINE)[0]:
                raise AssertionError("the display server did not start")
            number = output.readline().strip().decode()
        if not number:
            raise AssertionError("the display server exited at start")
        self.name = ":" + number

    def _run(self, *command):
        environment = dict(self.environment, HOME=self.folder, XDG_CONFIG_HOME=self.folder,
                           XDG_CACHE_HOME=self.folder, XDG_DATA_HOME=self.folder)
        process = subprocess.Popen(command, env=environment, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        self._processes.callback(stop, process)

    def _start_window_manager(self):
        # openbox sets its EWMH properties before it manages windows; it runs --startup afterwards.
        marker = os.path.join(self.folder, "window-manager-started")
        self._run("openbox", "--sm-disable", "--startup", "touch " + marker)
        wait_until(lambda: os.path.exists(marker), "the window manager")

    def _start_compositor(self, arguments):
        self._run("picom", "--backend", "xrender", "--config", "/dev/null", *arguments)
        selection = self.atom("_NET_WM_CM_S0")
        wait_until(lambda: self.display.get_selection_owner(selection) != X.NONE, "the compositor")

    def _disconnect(self):
        with contextlib.suppress(error.ConnectionClosedError):  # a test may have killed the server
            self.display.close()

    def close(self):
        self._processes.close()

    def atom(self, name):
        return self.display.intern_atom(name)

    def pixel(self, x, y):
        """The colour of a pixel on the screen."""
        data = self.root.get_image(x, y, 1, 1, X.ZPixmap, 0xffffffff).data
        return int.from_bytes(data[:3], "little")

    def shows_only(self, colour):
        """Whether the whole screen has one colour."""
        size = self.root.get_geometry()
        data = self.root.get_image(0, 0, size.width, size.height, X.ZPixmap, 0xffffffff).data
        return all(set(data[i::4]) == {colour >> 8 * i & 0xff} for i in range(3))

    def fill_root(self, colour=ROOT_COLOUR):
        """Publishes a solid background, as wallpaper programs do."""
        pixmap = self.root.create_pixmap(8, 8, self.screen.root_depth)
        gc = pixmap.create_gc(foreground=colour)
        pixmap.fill_rectangle(gc, 0, 0, 8, 8)
        self.publish_background(pixmap)
        return pixmap

    def publish_background(self, pixmap):
        self.root.change_attributes(background_pixmap=pixmap)
        self.root.change_property(self.atom("_XROOTPMAP_ID"), Xatom.PIXMAP, 32, [pixmap.id])
        self.root.clear_area()
        self.display.sync()

    def remove_background(self):
        self.root.delete_property(self.atom("_XROOTPMAP_ID"))
        self.display.sync()

    def argb_visual(self):
        for depth in self.screen.allowed_depths:
            if depth.depth == 32:
                return depth.visuals[0].visual_id
        raise AssertionError("no visual of depth 32")

    def window(self, rect, colour=None, excluded=False, depth=None, border=0, border_colour=0,
               managed=False, opacity=None, title=None, parent=None, window_class=X.InputOutput):
        """Creates and maps a window and waits until it is viewable.

        Without a colour the background is undefined."""
        x, y, width, height = rect
        arguments = {"override_redirect": 0 if managed else 1,
                     "event_mask": X.StructureNotifyMask}
        visual = X.CopyFromParent
        if depth == 32:
            visual = self.argb_visual()
            arguments["colormap"] = self.root.create_colormap(visual, X.AllocNone)
        if window_class == X.InputOnly:
            depth = 0
        else:
            arguments["border_pixel"] = border_colour
            if colour is not None:
                arguments["background_pixel"] = colour
        window = (parent or self.root).create_window(x, y, width, height, border,
                                                     depth or X.CopyFromParent, window_class,
                                                     visual, **arguments)
        if excluded:
            self.exclude(window)
        if opacity is not None:
            self.set_opacity(window, opacity)
        if title is not None:
            window.set_wm_name(title)
        if managed:
            window.set_wm_normal_hints(flags=(1 << 0) | (1 << 2), min_width=1, min_height=1)
        window.map()
        self.display.sync()
        wait_until(lambda: window.get_attributes().map_state == X.IsViewable, "a window")
        return window

    def exclude(self, window):
        window.change_property(self.atom(CAPTURE_EXCLUDE), Xatom.CARDINAL, 32, [1])

    def set_opacity(self, window, opacity):
        window.change_property(self.atom("_NET_WM_WINDOW_OPACITY"), Xatom.CARDINAL, 32,
                               [round(opacity * 0xffffffff)])
        self.display.sync()

    def set_shape(self, window, rects):
        window.shape_rectangles(shape.SO.Set, shape.SK.Bounding, X.Unsorted, 0, 0,
                                [{"x": x, "y": y, "width": w, "height": h}
                                 for x, y, w, h in rects])
        self.display.sync()

    def raise_managed(self, window):
        """Asks the window manager to raise a client."""
        message = xevent.ClientMessage(window=window, client_type=self.atom("_NET_RESTACK_WINDOW"),
                                       data=(32, [2, 0, X.Above, 0, 0]))
        self.root.send_event(message, X.SubstructureRedirectMask | X.SubstructureNotifyMask)
        self.display.sync()

    def frame_of(self, window):
        """The top-level ancestor of a window."""
        while True:
            parent = window.query_tree().parent
            if parent == self.root or parent == 0:
                return window
            window = parent

    def destroy_all(self, windows):
        """Destroys windows and restores the background."""
        for window in windows:
            window.destroy()
        self.fill_root()

    def stack(self):
        return self.root.query_tree().children

    def place_pointer(self, x, y):
        self.root.warp_pointer(x, y)
        self.display.sync()


class Painter(threading.Thread):
    """A separate X client whose window is drawn only on Expose events."""

    def __init__(self, screen, rect, colour, background=None, delay=0.0):
        super().__init__(daemon=True)
        self.display = display.Display(screen.name)
        root = self.display.screen().root
        arguments = {} if background is None else {"background_pixel": background}
        self.window = root.create_window(*rect, 0, X.CopyFromParent, X.InputOutput,
                                         X.CopyFromParent, override_redirect=1,
                                         event_mask=X.ExposureMask, **arguments)
        self.gc = self.window.create_gc(foreground=colour)
        self.delay = delay
        self.exposures = 0
        self._stopping = False
        self._wake_read, self._wake_write = os.pipe()
        self.window.map()
        self.display.flush()
        # From here on only the thread may use the connection.
        self.start()
        wait_until(lambda: self.exposures > 0, "the first drawing")

    def run(self):
        while not self._stopping:
            if not self.display.pending_events():
                select.select([self.display, self._wake_read], [], [])
                if self._stopping:
                    break
            while self.display.pending_events():
                event = self.display.next_event()
                if event.type == X.Expose:
                    if self.exposures and self.delay:
                        select.select([self._wake_read], [], [], self.delay)  # slow program
                    self.window.fill_rectangle(self.gc, event.x, event.y, event.width,
                                               event.height)
                    self.display.sync()
                    self.exposures += 1
            self.display.flush()

    def close(self):
        self._stopping = True
        os.write(self._wake_write, b"x")
        self.join(DEADLINE)
        self.display.close()
        os.close(self._wake_read)
        os.close(self._wake_write)


class Watcher:
    """Records the events of windows that indicate flicker."""

    NAMES = {X.MapNotify: "map", X.UnmapNotify: "unmap", X.ConfigureNotify: "configure",
             X.Expose: "expose", X.VisibilityNotify: "visibility", X.DestroyNotify: "destroy",
             X.ReparentNotify: "reparent"}

    def __init__(self, screen, windows):
        self.display = display.Display(screen.name)
        for window in windows:
            self.display.create_resource_object("window", window.id).change_attributes(
                event_mask=X.StructureNotifyMask | X.ExposureMask | X.VisibilityChangeMask)
        self.display.sync()
        self.events()

    def events(self):
        """The names of the events since the last call."""
        self.display.sync()
        names = []
        while self.display.pending_events():
            names.append(self.NAMES.get(self.display.next_event().type, "other"))
        return names

    def close(self):
        self.display.close()
