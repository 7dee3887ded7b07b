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
        return [self.folder / name for name in PROGRAMS]

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
            found = set(re.findall(r"\b__\w+_chk(?:_fail)?\b", readelf("--dyn-syms", path)))
            self.assertIn("__stack_chk_fail", found, path.name)
            # The app calls no function that has a checked form: it leaves buffers to the toolkit.
            if path.name != "quellora":
                self.assertIn("__snprintf_chk", found, path.name)

    def test_containers_check_their_bounds(self):
        for path in self.each_program():
            self.assertIn("__glibcxx_assert_fail", readelf("--symbols", path))

    def test_libraries_come_from_the_system_or_beside_the_program(self):
        for path in self.each_program():
            for folders in re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]",
                                      readelf("--dynamic", path)):
                for folder in folders.split(":"):
                    self.assertRegex(folder, r"^\$ORIGIN(/|$)", path.name)


if __name__ == "__main__":
    unittest.main()
