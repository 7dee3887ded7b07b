"""The page engine's sandbox, which works for every user except root."""

import os
import pathlib
import pwd
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from harness import E2ECase, case
from harness.app import BIN_DIR
from harness.processes import descendants


def run_as_nobody():
    """Runs this file again as `nobody`; returns its exit status."""
    user = pwd.getpwnam("nobody")
    evidence = case.ARTIFACTS / "sandbox"
    evidence.mkdir(parents=True, exist_ok=True)
    home = tempfile.mkdtemp(prefix="nobody-")
    for folder in (home, evidence):
        os.chown(folder, user.pw_uid, user.pw_gid)
    environment = os.environ | {"HOME": home, "USER": user.pw_name, "LOGNAME": user.pw_name,
                                "QUELLORA_E2E_ARTIFACTS": str(evidence)}
    environment.pop("XDG_RUNTIME_DIR", None)
    try:
        return subprocess.run([sys.executable, "-B", __file__, *sys.argv[1:]], env=environment,
                              user=user.pw_uid, group=user.pw_gid, extra_groups=[],
                              cwd=home, check=False).returncode
    finally:
        shutil.rmtree(home, ignore_errors=True)
        for folder in (evidence, evidence.parent):
            if not any(folder.iterdir()):
                folder.rmdir()


def is_readable_for_all():
    """Whether `nobody` can read the tests and run the program."""
    return all(folder.stat().st_mode & 0o005 == 0o005
               for path in (BIN_DIR / "quellora", pathlib.Path(__file__).resolve())
               for folder in (path, *path.parents) if folder.is_dir())


def setUpModule():
    if subprocess.run(["unshare", "--user", "--map-root-user", "true"], check=False,
                      stderr=subprocess.DEVNULL).returncode != 0:
        raise unittest.SkipTest("needs user namespaces")


def state(pid):
    """Fields of /proc/<pid>/status."""
    text = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="utf-8")
    return dict(re.findall(r"^(\w+):\s*(.*)$", text, re.MULTILINE))


class SandboxTest(E2ECase):
    def test_pages_are_rendered_in_the_sandbox(self):
        app = self.app(self.server()).sign_in()
        app.send_prompt("question")
        app.access.wait_for_page_text("Hello from the server.")
        self.assertFalse(any("sandbox" in line for line in app.lines))
        self.assertFalse(any("andboxing disabled" in line for line in app.error_output))
        renderers = []
        for pid, name in descendants(app.process.pid).items():
            command = pathlib.Path(f"/proc/{pid}/cmdline").read_bytes()
            if name == "QtWebEngineProc" and b"--type=renderer" in command:
                renderers.append(state(pid))
        self.assertNotEqual(renderers, [])
        for renderer in renderers:
            # System calls are filtered, and it is in a separate PID namespace.
            self.assertEqual(renderer["Seccomp"], "2", renderer)
            self.assertEqual(renderer["NoNewPrivs"], "1", renderer)
            self.assertGreater(len(renderer["NSpid"].split()), 1, renderer)


if __name__ == "__main__":
    if os.geteuid() != 0:
        unittest.main()
    elif is_readable_for_all():
        sys.exit(run_as_nobody())
    else:
        print("skipped: needs folders that an ordinary user can read")
