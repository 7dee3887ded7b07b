"""Installed and packed files on Linux."""

import os
import pathlib
import shutil
import stat
import subprocess
import tarfile
import tempfile
import unittest

from paths import BUILD, LINUX, ROOT

PROGRAMS = {"quellora", "quellora-backend", "quellora-screencapture", "quellora-launcher"}
SIZES = (16, 24, 32, 48, 64, 128, 256, 512)
FILES = ({f"lib/quellora/{name}" for name in PROGRAMS}
         | {"bin/quellora", "share/applications/quellora.desktop",
            "share/icons/hicolor/scalable/apps/quellora.svg"}
         | {f"share/icons/hicolor/{size}x{size}/apps/quellora.png" for size in SIZES})


class InstallTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="install-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def run_quietly(self, *command, **options):
        result = subprocess.run(command, capture_output=True, text=True, check=False, **options)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        return result.stdout

    def check_installed(self, prefix):
        found = {str(path.relative_to(prefix)) for path in prefix.rglob("*") if not path.is_dir()}
        self.assertEqual(found, FILES)
        for name in PROGRAMS:
            self.assertTrue(os.access(prefix / "lib/quellora" / name, os.X_OK), name)
        self.assertEqual(os.readlink(prefix / "bin/quellora"), "../lib/quellora/quellora-launcher")

    def test_install_rules(self):
        prefix = self.folder / "prefix"
        self.run_quietly("cmake", "--install", BUILD, "--prefix", prefix)
        self.check_installed(prefix)

    def test_the_installation_can_be_moved(self):
        """The launcher resolves the link and finds the program in its own folder."""
        self.run_quietly("cmake", "--install", BUILD, "--prefix", self.folder / "one")
        moved = self.folder / "two"
        (self.folder / "one").rename(moved)
        program = moved / "lib/quellora/quellora"
        program.unlink()
        program.write_text("#!/bin/bash\necho started from $0\n")
        program.chmod(0o755)
        output = self.run_quietly(moved / "bin/quellora",
                                  env={"PATH": os.environ["PATH"], "HOME": str(self.folder)})
        self.assertEqual(output, f"started from {program}\n")

    def test_staging_stays_in_the_staging_folder(self):
        self.run_quietly("cmake", "--install", BUILD, "--prefix", "/opt/quellora-staging-test",
                         env=os.environ | {"DESTDIR": str(self.folder)})
        self.check_installed(self.folder / "opt/quellora-staging-test")

    def test_package(self):
        self.run_quietly("cpack", "-G", "TGZ", "-B", self.folder,
                         "--config", BUILD / "CPackConfig.cmake", cwd=self.folder)
        packages = list(self.folder.glob("*.tar.gz"))
        self.assertEqual(len(packages), 1)
        name = packages[0].name[:-len(".tar.gz")]
        with tarfile.open(packages[0]) as package:
            members = {member.name[len(name) + 1:]: member for member in package.getmembers()
                       if not member.isdir()}
        self.assertEqual(set(members), FILES)
        for program in PROGRAMS:
            self.assertTrue(members[f"lib/quellora/{program}"].mode & stat.S_IXOTH, program)

    def test_the_script_installs_and_removes_all_files(self):
        if BUILD.resolve() != (ROOT / "build/release").resolve():
            self.skipTest("the script installs the release build only")
        prefix = self.folder / "a prefix"
        self.run_quietly(LINUX / "install", prefix)
        self.check_installed(prefix)
        other = prefix / "share/icons/hicolor/16x16/apps/other.png"
        other.touch()
        self.run_quietly(LINUX / "install", "--remove", prefix)
        left = [path for path in prefix.rglob("*") if not path.is_dir()]
        self.assertEqual(left, [other])

    def test_the_desktop_file_names_the_icon(self):
        lines = (LINUX / "quellora.desktop").read_text().splitlines()
        self.assertIn("Icon=quellora", lines)
        self.assertIn("Exec=quellora", lines)


if __name__ == "__main__":
    unittest.main()
