"""What the sanitizers leave out has a reason, and what they found names the test that shows it."""

import importlib.machinery
import importlib.util
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LISTS = ROOT / "tests" / "sanitizers"
# What each kind of list may hold.
ENTRIES = {
    "leak.supp": re.compile(r"leak:\S+"),
    "thread.supp": re.compile(r"(race|race_top|mutex|deadlock|thread|signal|called_from_lib):\S+"),
}


def problems(text, entry):
    """What is wrong in a list of suppressions."""
    found = []
    before = ""
    for number, line in enumerate(text.splitlines(), 1):
        if line and not line.startswith("#"):
            if not entry.fullmatch(line):
                found.append(f"line {number} is no suppression: {line}")
            if len(before.lstrip("# ")) < 20:
                found.append(f"line {number} has no reason above it: {line}")
            if re.search(r"quellora", line):
                found.append(f"line {number} leaves out our own code: {line}")
        before = line
    return found


def load_script():
    loader = importlib.machinery.SourceFileLoader("sanitizers", str(ROOT / "scripts" / "sanitizers"))
    script = importlib.util.module_from_spec(importlib.util.spec_from_loader("sanitizers", loader))
    loader.exec_module(script)
    return script


class SuppressionsTest(unittest.TestCase):
    def test_each_has_a_reason(self):
        self.assertEqual({path.name for path in LISTS.glob("*.supp")}, set(ENTRIES))
        for name, entry in ENTRIES.items():
            with self.subTest(name):
                self.assertEqual(problems((LISTS / name).read_text(encoding="utf-8"), entry), [])

    def test_bad_lists_are_refused(self):
        entry = ENTRIES["leak.supp"]
        reason = "# Kept by the library until the process ends.\n"
        self.assertEqual(problems(f"{reason}leak:libexample.so\n", entry), [])
        for text, problem in ((f"{reason}\nleak:libexample.so\n", "has no reason"),
                              (f"{reason}leak:one.so\nleak:two.so\n", "has no reason"),
                              ("# Why not.\nleak:libexample.so\n", "has no reason"),
                              (f"{reason}race:libexample.so\n", "is no suppression"),
                              (f"{reason}leak:quellora::Settings\n", "our own code")):
            with self.subTest(text):
                self.assertIn(problem, "".join(problems(text, entry)))


class MendedTest(unittest.TestCase):
    def test_each_fault_is_of_a_group_that_is_tried(self):
        script = load_script()
        known = {(name, group) for _, name, groups in script.SANITIZERS.values() for group in groups}
        for line in script.MENDED.read_text(encoding="utf-8").splitlines():
            if not line.startswith("#"):
                parts = [part.strip() for part in line.split("|")]
                self.assertEqual(len(parts), 3, line)
                self.assertIn(tuple(parts[:2]), known, line)


if __name__ == "__main__":
    unittest.main()
