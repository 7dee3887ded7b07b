"""How the installed programs are hardened, read from the files."""

import pathlib
import re
import subprocess
import tempfile
import unittest

from paths import BUILD

PROGRAMS = ("quellora", "quellora-screencapture", "quellora-backend")


def readelf(option, path):
    """What readelf prints of a file."""
    return subprocess.run(["readelf", "--wide", option, path], check=True, capture_output=True,
                          text=True).stdout


class HardeningTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name) / "lib" / "quellora"
        subprocess.run(["cmake", "--install", BUILD, "--prefix", folder.name], check=True,
                       stdout=subprocess.DEVNULL)

    def each_program(self):
        for name in PROGRAMS:
            with self.subTest(name):
                yield self.folder / name

    def test_programs_load_at_any_address(self):
        for path in self.each_program():
            self.assertRegex(readelf("--file-header", path), r"Type:\s+DYN")
            self.assertRegex(readelf("--dynamic", path), r"\(FLAGS_1\).*\bPIE\b")

    def test_functions_are_resolved_at_the_start_and_their_tables_read_only(self):
        for path in self.each_program():
            self.assertRegex(readelf("--dynamic", path), r"\(FLAGS_1\).*\bNOW\b")
            self.assertIn("GNU_RELRO", readelf("--program-headers", path))

    def test_no_memory_is_writable_and_executable(self):
        for path in self.each_program():
            headers = readelf("--program-headers", path)
            segments = re.findall(r"^  (LOAD|GNU_STACK|GNU_RELRO)\s.*\s([R ][W ][E ])\s+0x", headers, re.M)
            self.assertIn("GNU_STACK", [name for name, _ in segments])
            for name, rights in segments:
                self.assertFalse("W" in rights and "E" in rights, (name, rights))

    def test_overflows_of_the_stack_and_of_buffers_are_noticed(self):
        for path in self.each_program():
            symbols = readelf("--dyn-syms", path)
            self.assertRegex(symbols, r"\b__stack_chk_fail\b")
            self.assertRegex(symbols, r"\b__(mem\w+|v?snprintf|v?fprintf|read|poll|fdelt)_chk\b")

    def test_containers_check_their_bounds(self):
        for path in self.each_program():
            self.assertIn("__glibcxx_assert_fail", readelf("--symbols", path))

    def test_libraries_come_from_the_systems_folders_only(self):
        for path in self.each_program():
            self.assertNotRegex(readelf("--dynamic", path), r"\((RPATH|RUNPATH)\)")


if __name__ == "__main__":
    unittest.main()
