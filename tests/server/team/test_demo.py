"""scripts/team-demo: its short form, and that nothing outlives it however it ends."""

import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

DEMO = pathlib.Path(__file__).resolve().parents[3] / "scripts" / "team-demo"
PROGRAM = os.environ.get("QUELLORA_BACKEND_PROGRAM") or str(
    pathlib.Path(os.environ["QUELLORA_BIN_DIR"]) / "quellora-backend")
PATIENCE = 60 * float(os.environ.get("QUELLORA_TEST_ALLOWANCE", 1))


def processes():
    """{(process, its start time): parent} of this machine."""
    found = {}
    for place in pathlib.Path("/proc").glob("[0-9]*/stat"):
        try:
            fields = place.read_text().rpartition(")")[2].split()
        except OSError:
            continue
        if fields[0] not in "ZX":
            found[(int(place.parent.name), fields[19])] = int(fields[1])
    return found


def descendants(ancestor):
    """The process and all that it started, as far as they are still below it."""
    known = processes()
    family = {ancestor}
    while True:
        more = {number for (number, _), parent in known.items() if parent in family} - family
        if not more:
            return {key for key in known if key[0] in family}
        family |= more


class DemoTest(unittest.TestCase):
    def start(self, *options):
        """The demonstration, once the database and the pooler run."""
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        # PostgreSQL runs as a user of its own.
        os.chmod(self.folder.name, 0o755)
        demo = subprocess.Popen(
            [sys.executable, "-B", DEMO, "--short", "--program", PROGRAM, "--keep",
             os.path.join(self.folder.name, "logs"), *options], stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, start_new_session=True,
            env=os.environ | {"TMPDIR": self.folder.name})
        self.addCleanup(demo.stdout.close)
        self.addCleanup(demo.wait)
        self.addCleanup(demo.kill)
        for line in demo.stdout:
            if "pgbouncer" in line:
                return demo
        self.fail("it ended early")

    def assert_nothing_left(self, family):
        self.assertGreater(len(family), 10)
        deadline = time.monotonic() + PATIENCE
        while left := family & processes().keys():
            self.assertLess(time.monotonic(), deadline, left)
            time.sleep(0.05)

    def test_the_short_form(self):
        done = subprocess.run([sys.executable, "-B", DEMO, "--short", "--program", PROGRAM],
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertRegex(done.stdout, r"the store counted [1-9]\d+ answers once each")

    def test_nothing_outlives_a_kill(self):
        for options in ((), ("--loopback",)):
            with self.subTest(options):
                demo = self.start(*options)
                family = descendants(demo.pid)
                demo.kill()
                self.assert_nothing_left(family)

    def test_what_starts_late_does_not_outlive_a_kill(self):
        with tempfile.TemporaryDirectory() as folder:
            # Runs once the parent has gone.
            late = pathlib.Path(folder, "setpriv")
            late.write_text('#!/bin/sh\nwhile kill -0 $PARENT 2> /dev/null; do sleep 0.01; done\n'
                            f'exec {shutil.which("setpriv")} "$@"\n')
            late.chmod(0o755)
            parent = subprocess.run(
                [sys.executable, "-B", "-c",
                 "import os, pathlib, sys; from team_parts import Processes\n"
                 "os.environ['PARENT'] = str(os.getpid())\n"
                 "print(Processes(pathlib.Path(sys.argv[1])).start('part', ['sleep', '1d']).pid,"
                 " flush=True)\n"
                 "os._exit(0)", folder],
                cwd=pathlib.Path(__file__).parent, stdout=subprocess.PIPE, text=True, check=True,
                env=os.environ | {"PATH": f"{folder}:{os.environ['PATH']}"})
            part = int(parent.stdout)
            self.addCleanup(self.end, part)
            deadline = time.monotonic() + PATIENCE
            while any(number == part for number, _ in processes()):
                self.assertLess(time.monotonic(), deadline)
                time.sleep(0.05)

    @staticmethod
    def end(process):
        with contextlib.suppress(ProcessLookupError):
            os.kill(process, signal.SIGKILL)

    def test_nothing_outlives_an_interruption(self):
        demo = self.start("--loopback")
        family = descendants(demo.pid)
        os.killpg(demo.pid, signal.SIGINT)
        self.assertEqual(demo.wait(PATIENCE), 1)
        self.assert_nothing_left(family)
        self.assertEqual([name for name in os.listdir(self.folder.name)
                          if re.match("quellora-team-", name)], [])


if __name__ == "__main__":
    unittest.main()
