"""The real program with a private home, its log, and common user actions."""

import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import threading
import time

from . import processes
from .access import Accessibility
from .messages import RUNNING
from .waiting import PATIENCE, wait_until

TEST_EMAIL = "sam@example.com"
TEST_PASSWORD = "correct horse 9"

#: Folder of the programs under test, set by the test runner.
BIN_DIR = pathlib.Path(os.environ.get(
    "QUELLORA_BIN_DIR",
    pathlib.Path(__file__).resolve().parents[3] / "build" / "release" / "bin"))

_LINE = re.compile(r"\[(\d\d:\d\d:\d\d\.\d\d\d)\] (.*)", re.DOTALL)

#: Defaults for most tests: no first-launch hints, empty prompt box, threads saved.
DEFAULTS = {"hasLaunchedBefore": True, "userPrompt": "", "keepAIHistoryEnabled": True}


class App:
    """One run of the program on a desktop.

    All its files are below `folder`, which `close` removes. Log messages (without
    their time) collect in `lines` while it runs.
    """

    def __init__(self, desktop, backend_url, defaults=None, config=None, bin_dir=None,
                 environment=None, launcher=None):
        """With `launcher`, the path of a launcher script, starts the program through it."""
        self.desktop = desktop
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="app-"))
        self.home = self._make_folder("home")
        self.config_home = self._make_folder("config")
        self.data_home = self._make_folder("data")
        self.temporary = self._make_folder("tmp")
        self.work = self._make_folder("work")
        self.opened_log = self.folder / "opened.txt"
        self.process = None
        self.exit_code = None
        self.raw_lines = []
        self.lines = []
        self._cursor = 0
        self._ended = False
        self._changed = threading.Condition()
        self._readers = []
        self.error_output = []
        self.bin_dir = pathlib.Path(bin_dir or BIN_DIR)
        self.command = ([str(launcher), str(self.bin_dir)] if launcher
                        else [str(self.bin_dir / "quellora")])
        self.access = Accessibility(self)
        self.store_defaults(DEFAULTS if defaults is None else defaults)
        if config is not None:
            text = config if isinstance(config, str) else json.dumps(config)
            (self.work / "config.json").write_text(text)
        self.environment = desktop.environment | {
            "PATH": f"{self._fake_openers()}:{desktop.environment['PATH']}",
            "HOME": str(self.home),
            "XDG_CONFIG_HOME": str(self.config_home),
            "XDG_DATA_HOME": str(self.data_home),
            "XDG_CACHE_HOME": str(self._make_folder("cache")),
            "TMPDIR": str(self.temporary),
            "TZ": "UTC",
            "QT_LOGGING_RULES": "qt.webenginecontext=false",
            "QUELLORA_BACKEND_URL": backend_url,
            "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1",
            "QTWEBENGINE_ENABLE_LINUX_ACCESSIBILITY": "1",
        } | (environment or {})

    def _make_folder(self, name):
        folder = self.folder / name
        folder.mkdir(mode=0o700)
        return folder

    def _fake_openers(self):
        """Creates a folder with an `xdg-open` stub that records its arguments."""
        folder = self._make_folder("openers")
        self._opener = folder / "xdg-open"
        self.end_openers_with(0)
        return folder

    def end_openers_with(self, status):
        """Sets the exit status of the `xdg-open` stub."""
        # Replaced atomically, because one may be starting.
        part = self._opener.with_suffix(".part")
        part.write_text(f'#!/bin/sh\nprintf "%s\\n" "$@" >> "{self.opened_log}"\n'
                        f"exit {status}\n")
        part.chmod(0o755)
        part.rename(self._opener)

    # -- process --------------------------------------------------------------------------------

    def start(self):
        """Starts the program; returns self."""
        self.process = processes.spawn(
            self.command, env=self.environment, cwd=self.work,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        for stream, target in ((self.process.stdout, self._take_line),
                               (self.process.stderr, self.error_output.append)):
            reader = threading.Thread(target=self._read, args=(stream, target), daemon=True)
            reader.start()
            self._readers.append(reader)
        return self

    def _read(self, stream, take):
        for raw in iter(stream.readline, b""):
            take(raw.decode("utf-8", "replace").rstrip("\n"))
        if stream is self.process.stdout:
            with self._changed:
                self._ended = True
                self._changed.notify_all()

    def _take_line(self, raw):
        match = _LINE.fullmatch(raw)
        with self._changed:
            self.raw_lines.append(raw)
            self.lines.append(match[2] if match else raw)
            self._changed.notify_all()

    def wait_exit(self, timeout=PATIENCE):
        """Waits for the end of the program and returns its exit status."""
        self.exit_code = self.process.wait(timeout)
        for reader in self._readers:
            reader.join(timeout)
        return self.exit_code

    @property
    def running(self):
        """Whether the program is alive."""
        return self.process is not None and self.process.poll() is None

    def close(self):
        """Kills the program if it still runs and removes its folders."""
        if self.process is not None:
            if self.running:
                self.process.send_signal(signal.SIGCONT)
            processes.stop(self.process, timeout=5)
            for reader in self._readers:
                reader.join(PATIENCE)
        shutil.rmtree(self.folder, ignore_errors=True)

    # -- log ------------------------------------------------------------------------------------

    def mark(self):
        """Current end of the log, for `since`."""
        with self._changed:
            return len(self.lines)

    def wait_for_line(self, pattern, timeout=PATIENCE, since=None):
        """Waits for a log message and returns its index.

        `pattern` is a string, which must be the whole message, or a compiled expression, which
        must match part of it. The search starts after the message found by the last call,
        or at `since`.
        """
        def matches(line):
            return line == pattern if isinstance(pattern, str) else pattern.search(line)

        def find():
            for index in range(start, len(self.lines)):
                if matches(self.lines[index]):
                    return index + 1
            return None

        deadline = time.monotonic() + timeout
        with self._changed:
            start = self._cursor if since is None else since
            while not (found := find()):
                left = deadline - time.monotonic()
                if self._ended or left <= 0:
                    raise AssertionError(self.describe(
                        f"{'ended before' if self._ended else 'waited in vain for'} the log line "
                        f"{pattern!r}", start))
                self._changed.wait(left)
            self._cursor = found
            return found - 1

    def lines_since(self, mark):
        """The messages after a mark."""
        with self._changed:
            return self.lines[mark:]

    def has_line(self, text, since=0):
        """Whether a message with exactly this text has been written."""
        return text in self.lines_since(since)

    def describe(self, problem, start=0):
        """Failure text with an excerpt of the log."""
        shown = "\n    ".join(self.raw_lines[max(0, start - 5):][-60:])
        errors = "\n    ".join(self.error_output[-15:])
        return (f"{problem}\n  log:\n    {shown}\n  standard error:\n    {errors}")

    # -- files ----------------------------------------------------------------------------------

    @property
    def defaults_path(self):
        """Path of the stored preferences."""
        return self.config_home / "Quellora" / "defaults.json"

    def store_defaults(self, values):
        """Writes the preferences before the start."""
        self.defaults_path.parent.mkdir(parents=True, exist_ok=True)
        self.defaults_path.write_text(json.dumps(values))

    @property
    def log_path(self):
        """Path of the launcher's log file."""
        return self.home / "Library" / "Logs" / "Vantiro" / "pipeline.log"

    def stored_defaults(self):
        """The preferences currently on disk."""
        return json.loads(self.defaults_path.read_text())

    def threads(self):
        """The stored threads, oldest first."""
        found = []
        for path in (self.data_home / "Quellora" / "sessions").glob("*/session.json"):
            try:
                found.append((json.loads(path.read_text()), path.stat().st_mtime_ns))
            except (OSError, ValueError):
                continue
        # Stored dates have whole seconds; file times give the order within one.
        return [record for record, _ in
                sorted(found, key=lambda entry: (entry[0]["createdAt"], entry[1]))]

    def turns(self):
        """All stored turns as (prompt, response), in order."""
        turns = [turn for record in self.threads() for turn in record["turns"]]
        return [(turn["prompt"], turn["response"])
                for turn in sorted(turns, key=lambda turn: turn["createdAt"])]

    def opened(self):
        """URLs and files that the program has opened."""
        return self.opened_log.read_text().splitlines() if self.opened_log.exists() else []

    def temporary_files(self):
        """Names of all files in its temporary folder, including subfolders."""
        return sorted(str(path.relative_to(self.temporary))
                      for path in self.temporary.rglob("*"))

    # -- user actions ---------------------------------------------------------------------------

    def wait_login_window(self):
        """Waits until the login window is shown and has the focus."""
        self.wait_for_line("[AppDelegate] Login window shown, overlay deferred until sign-in")
        self.desktop.wait_for_active("Quellora")
        self.access.wait_for("Email", focused=True)

    def fill_login(self, email=TEST_EMAIL, password=TEST_PASSWORD):
        """Types into the two fields."""
        self.desktop.type_text(email + "\t" + password)

    def sign_in(self):
        """Signs in with real key presses and waits for the overlay; returns self."""
        self.wait_login_window()
        self.fill_login()
        self.desktop.press("return")
        self.wait_for_line(RUNNING)
        self.wait_overlay_shown()
        return self

    def focus_prompt(self):
        """Clicks the prompt box and waits until it has the focus."""
        self.access.click("Write a message")
        self.access.wait_for("Write a message", focused=True)

    def send_prompt(self, text, replace=False):
        """Types a prompt into the box and sends it; `replace` overwrites the box's text."""
        self.focus_prompt()
        if replace:
            self.desktop.press("ctrl+a")
        self.desktop.type_text(text + "\n")

    def open_settings(self):
        """Opens the settings from the menu."""
        self.access.press("Menu")
        self.access.press("Settings")
        self.access.wait_for("Response text color")

    def panel(self):
        """(id, x, y, width, height) of the panel on the screen, or None while it is hidden."""
        return self.desktop.panel_of(self)

    def wait_overlay_shown(self):
        """Waits until the panel is the only window on the screen."""
        return wait_until(self.panel, what="the panel on the screen")

    def wait_overlay_hidden(self):
        """Waits until no window of the program is on the screen."""
        wait_until(lambda: not self.desktop.windows_of(self),
                   what="the panel to leave the screen")

    def hotkey(self, combo, fired=None):
        """Presses a global hotkey and, with `fired`, waits until it is reported under that name.

        Repeats the press if it was debounced.
        """
        if not fired:
            self.desktop.press(combo)
            return
        taken = f"[HotkeyManager] Fired: {fired}"
        ignored = f"[HotkeyManager] Ignored re-fire of {fired} within debounce window"
        either = re.compile(f"^({re.escape(taken)}|{re.escape(ignored)})$")

        def is_taken():
            mark = self.mark()
            self.desktop.press(combo)
            return self.lines[self.wait_for_line(either, since=mark)] == taken
        wait_until(is_taken, what=taken, interval=0.32)
