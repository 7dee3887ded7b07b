"""Configuring finds nothing that only the tests' packages bring, so that ./run can do it alone."""

import pathlib
import re
import shutil
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
# Looked for, but not needed.
OPTIONAL = {"icnsutils"}


def listed(text):
    """The packages that a list names."""
    lines = (line.split("#")[0].strip() for line in text.splitlines())
    return {line for line in lines if line}


def found_paths(cache):
    """Files of the system that the cache of a configured build names."""
    paths = re.findall(r"^[^#/\n][^=\n]*=(/usr/[^;\n]+)$", cache, re.MULTILINE)
    return {path for path in paths if pathlib.Path(path).is_file()}


def owners(paths):
    """The packages that installed the files."""
    done = subprocess.run(["dpkg-query", "-S", *sorted(paths)], capture_output=True, text=True,
                          check=False)
    return {name.split(":")[0] for line in done.stdout.splitlines() if not line.startswith("diversion")
            for name in line.rsplit(": ", 1)[0].split(", ")}


def with_dependencies(packages):
    """The packages and what they need, and so on, as far as it is installed."""
    kinds = ("recommends", "suggests", "conflicts", "breaks", "replaces", "enhances")
    done = subprocess.run(
        ["apt-cache", "depends", "--recurse", "--installed", *(f"--no-{kind}" for kind in kinds),
         *sorted(packages)], capture_output=True, text=True, check=True)
    return {line.split(":")[0] for line in done.stdout.splitlines() if re.match("[a-z0-9]", line)}


@unittest.skipUnless(shutil.which("apt-cache"), "only where the packages are Debian's")
class ConfigurePackagesTest(unittest.TestCase):
    def setUp(self):
        folder = ROOT / "scripts"
        self.first = with_dependencies(listed((folder / "packages.txt").read_text()) |
                                       {"cmake", "g++", "nodejs", "npm"})
        self.tests_only = with_dependencies(
            listed((folder / "packages-test.txt").read_text())) - self.first

    def test_nothing_of_the_tests_packages_is_needed(self):
        paths = found_paths((BUILD / "CMakeCache.txt").read_text())
        needed = owners(paths)
        self.assertIn("qt6-base-dev", needed)
        self.assertEqual(needed & self.tests_only - OPTIONAL, set())

    def test_a_tool_of_the_tests_packages_is_seen(self):
        sway = shutil.which("sway")
        self.assertIsNotNone(sway)
        paths = found_paths(f"# comment\n//text\nTOOL:FILEPATH={sway}\nOTHER:PATH=/usr\n")
        self.assertEqual(paths, {sway})
        self.assertEqual(owners(paths) & self.tests_only, {"sway"})


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv.pop(1))
    unittest.main()
