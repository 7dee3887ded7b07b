"""The real local backend with private data."""

import pathlib
import re
import shutil
import subprocess
import tempfile
import threading

from . import processes
from .app import BIN_DIR
from .waiting import PATIENCE

_LISTENING = re.compile(r"listening on (http://127\.0\.0\.1:\d+)")


class Backend:
    """One `quellora-backend` on a free loopback port, with a private data folder.

    Knows nothing of providers in the user's environment; offline unless told otherwise. `config`
    is the text of its configuration file.
    """

    def __init__(self, desktop_environment, bin_dir=None, offline=True, config=""):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="backend-"))
        self._environment = {key: value for key, value in desktop_environment.items()
                             if key in ("PATH", "LANG")} | {
            "HOME": str(self.folder),
            "XDG_CONFIG_HOME": str(self.folder / "config"),
            "XDG_DATA_HOME": str(self.folder / "data"),
            "TMPDIR": str(self.folder),
        }
        file = self.folder / "backend.toml"
        file.write_text(config)
        self._program = [str(pathlib.Path(bin_dir or BIN_DIR) / "quellora-backend"),
                         "--config", str(file)]
        self._options = ["--offline"] if offline else []
        self.url = None
        self.lines = []
        self._process = None
        self._reader = None

    def command(self, *arguments):
        """Runs a backend command; returns its output."""
        return subprocess.run([*self._program, *arguments], env=self._environment, check=True,
                              stdout=subprocess.PIPE, text=True).stdout

    def ensure_account(self):
        """Creates the account if missing; returns (email, password), password None if it existed."""
        fields = dict(line.split(": ", 1) for line in self.command("ensure-account").splitlines()
                      if ": " in line)
        return fields["email"], fields.get("password")

    def start(self):
        """Starts the server and waits for its address, the same one at every start."""
        port = self.url.rpartition(":")[2] if self.url else "0"
        self._process = processes.spawn(
            [*self._program, "serve", "--port", port, *self._options], env=self._environment,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.url = None
        listening = threading.Event()
        output = self._process.stdout

        def read():
            for line in output:
                self.lines.append(line.rstrip("\n"))
                found = _LISTENING.search(line)
                if found:
                    self.url = found[1]
                    listening.set()
            listening.set()
        self._reader = threading.Thread(target=read, daemon=True)
        self._reader.start()
        if not listening.wait(PATIENCE) or self.url is None:
            raise AssertionError("the backend did not start:\n" + "\n".join(self.lines))
        return self

    @property
    def pid(self):
        """Id of the process that serves."""
        return self._process.pid

    def stop(self):
        """Stops the server and returns its exit status; start() goes on with the same data."""
        if self._process is None:
            return None
        self._process.terminate()
        self._reader.join(PATIENCE)
        processes.stop(self._process)
        status, self._process = self._process.returncode, None
        return status

    def close(self):
        """Stops the backend and removes its data."""
        self.stop()
        shutil.rmtree(self.folder, ignore_errors=True)
