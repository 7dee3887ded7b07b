"""The list of mistakes and their injection."""

import tempfile
import unittest
from pathlib import Path

import snippets  # noqa: F401  (adds the check's modules to sys.path)

from planted import COMPILE, DECLARATIONS, LINK, MISTAKES, NOWHERE, Mistake
from port_compiler import Command, declarations_folder, port_folder
from selftest import plant


class PlantingTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name) / "1"

    def test_every_replaced_text_occurs_in_its_file(self):
        for mistake in MISTAKES:
            with self.subTest(mistake.name):
                plant(mistake, Path(self.folder.parent) / str(id(mistake)))

    def test_missing_text(self):
        mistake = Mistake("x", COMPILE, "", (("Cocoa.mm", "no such text there", ""),))
        with self.assertRaisesRegex(LookupError, "no such text there"):
            plant(mistake, self.folder)

    def test_only_copies_are_changed(self):
        before = (port_folder / "Cocoa.mm").read_text()
        mistake = Mistake("x", DECLARATIONS, "", (
            ("Cocoa.mm", "NSView", "NSViev"), ("AppKit/AppKit.h", "NSView", "NSViev")))
        sources, declarations = plant(mistake, self.folder)
        self.assertNotIn("NSView", sources["Cocoa.mm"].read_text())
        self.assertNotIn("NSView", (declarations / "AppKit/AppKit.h").read_text())
        self.assertNotEqual(declarations, declarations_folder)
        self.assertEqual((port_folder / "Cocoa.mm").read_text(), before)

    def test_every_stage_catches_a_mistake(self):
        self.assertEqual({m.caught_by for m in MISTAKES}, {COMPILE, DECLARATIONS, LINK, NOWHERE})
        for mistake in MISTAKES:
            self.assertEqual(bool(mistake.says), mistake.caught_by != NOWHERE, mistake.name)


class CommandTest(unittest.TestCase):
    def test_flags(self):
        command = Command({
            "directory": "/build",
            "command": f"/usr/bin/ccache /usr/bin/clang++-14 -DX -isystem {declarations_folder}"
                       " -MD -MT a.o -MF a.o.d -o port/a.mm.o -c /src/a.mm"})
        self.assertEqual(command.flags, ["/usr/bin/clang++-14", "-DX", "-isystem",
                                         str(declarations_folder)])
        self.assertEqual(command.object, Path("/build/port/a.mm.o"))
        self.assertEqual(command.with_declarations("/other")[-1], "/other")


if __name__ == "__main__":
    unittest.main()
