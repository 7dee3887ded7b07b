"""The launcher: destination, permissions and rotation of the log."""

import os
import pathlib
import shutil
import signal
import stat
import subprocess
import tempfile
import unittest

from harness import processes, wait_until

ROOT = pathlib.Path(__file__).resolve().parents[2]
LAUNCHER = ROOT / "packaging" / "linux" / "quellora-launcher"
LIMIT = 10 * 1024 * 1024


class LauncherTest(unittest.TestCase):
    """Runs the launcher with a script in place of the program."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="launcher-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.home = self.folder / "home"
        self.home.mkdir()
        self.logs = self.home / "Library" / "Logs" / "Vantiro"
        self.log = self.logs / "pipeline.log"
        self.older = self.logs / "pipeline.log.1"

    def program(self, script):
        """Installs a shell script as the program."""
        path = self.folder / "quellora"
        path.write_text("#!/bin/bash\n" + script)
        path.chmod(0o755)

    def start(self, **options):
        options.setdefault("stdout", subprocess.PIPE)
        child = processes.spawn([str(LAUNCHER), str(self.folder)], stderr=subprocess.PIPE,
                                env={"PATH": os.environ["PATH"], "HOME": str(self.home)},
                                **options)
        self.addCleanup(processes.stop, child)
        return child

    def run_program(self, script):
        """(exit status, standard output, standard error) of one start."""
        self.program(script)
        child = self.start()
        output, errors = child.communicate(timeout=30)
        return child.returncode, output.decode(), errors.decode()

    def wait_log(self, text):
        wait_until(lambda: self.log.exists() and self.log.read_text() == text,
                   what=f"the log to hold {text!r}")

    @staticmethod
    def mode(path):
        return stat.S_IMODE(path.stat().st_mode)

    def test_output_goes_to_the_log_and_to_the_terminal(self):
        status, output, errors = self.run_program("echo one; echo two >&2; exit 7")
        self.assertEqual((status, output, errors), (7, "one\n", "two\n"))
        self.wait_log("one\n")
        self.assertEqual(self.mode(self.logs), 0o700)
        self.assertEqual(self.mode(self.log), 0o600)
        self.run_program("echo three")
        self.wait_log("one\nthree\n")
        self.assertFalse(self.older.exists())

    def test_modes_of_an_existing_log_are_restricted(self):
        self.logs.mkdir(parents=True, mode=0o755)
        self.log.write_text("before\n")
        self.log.chmod(0o644)
        self.run_program("true")
        self.assertEqual((self.mode(self.logs), self.mode(self.log)), (0o700, 0o600))

    def test_large_log_is_rotated(self):
        self.logs.mkdir(parents=True)
        self.older.write_text("oldest")
        with open(self.log, "wb") as file:
            file.truncate(LIMIT + 1)
        self.run_program("echo fresh")
        self.wait_log("fresh\n")
        self.assertEqual(self.older.stat().st_size, LIMIT + 1)
        self.assertEqual(self.mode(self.log), 0o600)

    def test_log_of_exactly_the_limit_is_not_rotated(self):
        self.logs.mkdir(parents=True)
        with open(self.log, "wb") as file:
            file.truncate(LIMIT)
        self.run_program("echo fresh")
        wait_until(lambda: self.log.stat().st_size == LIMIT + len("fresh\n"), what="the line")
        self.assertFalse(self.older.exists())

    def test_second_start_does_not_rotate_a_log_in_use(self):
        self.program('if [ "$(cat "$HOME/number")" = 1 ]; then echo first; read -r < "$HOME/go";'
                     ' echo last; else echo second; fi')
        number = self.home / "number"
        number.write_text("1")
        os.mkfifo(self.home / "go")
        first = self.start()
        self.wait_log("first\n")
        # The file exceeds the limit meanwhile.
        with open(self.log, "ab") as file:
            file.truncate(LIMIT + 1)
        number.write_text("2")
        second = self.start()
        self.assertEqual(second.communicate(timeout=30)[0], b"second\n")
        (self.home / "go").write_text("\n")
        first.communicate(timeout=30)
        wait_until(lambda: self.log.read_bytes().endswith(b"second\nlast\n"), what="both lines")
        self.assertTrue(self.log.read_bytes().startswith(b"first\n"))
        self.assertFalse(self.older.exists())

    def test_program_receives_the_signals_itself(self):
        self.program('trap "echo asked; exit 5" TERM; echo ready; while :; do read -r -t 1 '
                     '< /dev/zero || true; done')
        child = self.start(stdout=subprocess.DEVNULL)
        self.wait_log("ready\n")
        child.send_signal(signal.SIGTERM)
        self.assertEqual(child.wait(30), 5)
        self.wait_log("ready\nasked\n")

    def test_closed_terminal_loses_no_lines(self):
        self.program('echo one; read -r < "$HOME/go"; echo two; echo three')
        os.mkfifo(self.home / "go")
        child = self.start()
        self.wait_log("one\n")
        child.stdout.close()
        (self.home / "go").write_text("\n")
        self.assertEqual(child.wait(30), 0)
        self.wait_log("one\ntwo\nthree\n")

    def test_program_starts_without_a_writable_log(self):
        (self.home / "Library").write_text("in the way")
        status, output, errors = self.run_program("echo one; exit 3")
        self.assertEqual((status, output), (3, "one\n"))
        self.assertIn("no log is kept", errors)


if __name__ == "__main__":
    unittest.main()
