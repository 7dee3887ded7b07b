"""Configuring finds nothing that only the tests' packages bring, so that ./run can do it alone."""

import collections
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
    """What the cache of a configured build names of the system's files and folders."""
    return set(re.findall(r"^[^#/\n][^=\n]*=(/usr/[^;\n]+)$", cache, re.MULTILINE))


def owners(paths):
    """The packages that installed each of the files and folders."""
    done = subprocess.run(["dpkg-query", "-S", *sorted(paths)], capture_output=True, text=True,
                          check=False)
    found = collections.defaultdict(set)
    for line in done.stdout.splitlines():
        names, _, path = line.rpartition(": ")
        if not line.startswith("diversion "):
            found[path] |= {name.split(":")[0] for name in names.split(", ")}
    return found


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
            listed((folder / "packages-test.txt").read_text())) - self.first - OPTIONAL

    def of_tests_only(self, cache):
        """Paths in the cache that only packages of the tests brought."""
        found = owners(found_paths(cache))
        return {path for path, names in found.items()
                if not names & self.first and names & self.tests_only}

    def test_nothing_of_the_tests_packages_is_needed(self):
        cache = (BUILD / "CMakeCache.txt").read_text()
        self.assertIn("qt6-base-dev", set().union(*owners(found_paths(cache)).values()))
        self.assertEqual(self.of_tests_only(cache), set())

    def test_what_the_tests_packages_bring_is_seen(self):
        sway = shutil.which("sway")
        self.assertIsNotNone(sway)
        self.assertEqual(
            self.of_tests_only(f"# comment\n//text\nTOOL:FILEPATH={sway}\nOTHER:PATH=/usr/bin\n"),
            {sway})


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv.pop(1))
    unittest.main()
