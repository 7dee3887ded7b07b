"""The bill of materials of the build, the licences in it, and the script that looks for newer
packages."""

import base64
import json
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

from paths import BUILD, ROOT, VERSION

SBOM = BUILD / "packaging" / "quellora.cdx.json"
LOCK = json.loads((ROOT / "assets" / "package-lock.json").read_text())["packages"]
PROGRAMS = ("quellora", "quellora-screencapture", "quellora-backend")


def program(name):
    """A program of the build, or None when this build has none."""
    path = BUILD / "bin" / name
    return path if path.exists() else None


class BillOfMaterialsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.document = json.loads(SBOM.read_text())
        cls.parts = {part["bom-ref"]: part for part in cls.document["components"]}

    def test_it_is_a_cyclonedx_document_of_this_version(self):
        self.assertEqual(self.document["bomFormat"], "CycloneDX")
        self.assertEqual(self.document["specVersion"], "1.5")
        self.assertRegex(self.document["serialNumber"],
                         r"^urn:uuid:[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$")
        self.assertEqual(self.document["metadata"]["component"]["version"], VERSION)
        self.assertEqual(len(self.parts), len(self.document["components"]), "references repeat")
        for part in self.parts.values():
            self.assertIn(part["type"], ("application", "library"))
            self.assertTrue(part["name"])

    def test_every_package_that_is_compiled_in_has_the_pinned_version_and_hash(self):
        for name in LOCK[""]["dependencies"]:
            with self.subTest(name):
                pinned = LOCK[f"node_modules/{name}"]
                part = self.parts[f"npm:{name}@{pinned['version']}"]
                self.assertEqual(part["version"], pinned["version"])
                digest = base64.b64decode(pinned["integrity"].removeprefix("sha512-")).hex()
                self.assertEqual(part["hashes"], [{"alg": "SHA-512", "content": digest}])
                self.assertEqual(part["purl"],
                                 f"pkg:npm/{name.replace('@', '%40', 1)}@{pinned['version']}")

    def test_every_package_that_is_compiled_in_has_its_whole_licence(self):
        for reference, part in self.parts.items():
            if not reference.startswith("npm:"):
                continue
            with self.subTest(reference):
                licence = part["licenses"][0]["license"]
                self.assertTrue(licence["name"])
                self.assertGreater(len(licence["text"]["content"]), 600)
                self.assertRegex(licence["text"]["content"], "(?i)copyright|license")

    def test_every_package_that_is_fetched_is_pinned_by_a_hash(self):
        for manifest in sorted(ROOT.rglob("package.json")):
            relative = manifest.relative_to(ROOT)
            if relative.parts[0] in ("build", "out") or "node_modules" in relative.parts:
                continue
            with self.subTest(str(relative)):
                lock = json.loads((manifest.parent / "package-lock.json").read_text())["packages"]
                for kind in ("dependencies", "devDependencies"):
                    for version in json.loads(manifest.read_text()).get(kind, {}).values():
                        self.assertRegex(version, r"^\d+\.\d+\.\d+$")
                for name, entry in lock.items():
                    if name:
                        self.assertRegex(entry["integrity"], "^sha512-", name)

    def test_every_library_that_a_program_names_is_listed_with_its_package(self):
        uses = {entry["ref"]: entry["dependsOn"] for entry in self.document["dependencies"]}
        for name in PROGRAMS:
            if not program(name):
                continue
            with self.subTest(name):
                headers = subprocess.run(["readelf", "--dynamic", program(name)], check=True,
                                         capture_output=True, text=True).stdout
                named = set(re.findall(r"\(NEEDED\).*\[(.+)\]", headers))
                self.assertTrue(named)
                used = [self.parts[reference] for reference in uses[f"program:{name}"]]
                listed = {entry["value"] for part in used for entry in part.get("properties", [])}
                self.assertLessEqual(named, listed)
                for part in used:
                    self.assertTrue(part.get("purl"), part["name"])
                    self.assertTrue(part.get("version"), part["name"])

    def test_the_same_build_gives_the_same_document(self):
        with tempfile.TemporaryDirectory() as folder:
            again = pathlib.Path(folder) / "again.json"
            subprocess.run(
                ["python3", ROOT / "packaging" / "make_sbom.py", "--version", VERSION,
                 "--bundled", BUILD / "assets" / "bundled.cdx.json",
                 "--headers", "libexpected-dev", "--headers", "nlohmann-json3-dev",
                 "--headers", "libcli11-dev", "--output", again,
                 *[program(name) for name in PROGRAMS if program(name)]], check=True)
            self.assertEqual(again.read_text(), SBOM.read_text())


class CheckAssetsTest(unittest.TestCase):
    def check(self, answers):
        """(exit status, output) of the script with a registry that gives these versions."""
        with tempfile.TemporaryDirectory() as folder:
            fake = pathlib.Path(folder) / "npm"
            cases = "".join(f'"view {name} version") echo {version} ;;\n'
                            for name, version in answers.items())
            fake.write_text(f'#!/bin/sh\ncase "$*" in\n{cases}*) exit 1 ;;\nesac\n')
            fake.chmod(0o755)
            environment = dict(os.environ, PATH=f"{folder}:{os.environ['PATH']}")
            done = subprocess.run([ROOT / "scripts" / "check-assets"], capture_output=True,
                                  text=True, check=False, env=environment, timeout=60)
            return done.returncode, done.stdout

    def pinned(self):
        """Every package of every manifest with its version."""
        listed = subprocess.run(["git", "ls-files", "package.json", "*/package.json"], cwd=ROOT,
                                check=True, capture_output=True, text=True).stdout.split()
        packages = {}
        for manifest in listed:
            found = json.loads((ROOT / manifest).read_text())
            packages |= found.get("dependencies", {}) | found.get("devDependencies", {})
        return packages

    def test_all_are_the_newest(self):
        status, output = self.check(self.pinned())
        self.assertEqual(status, 0, output)
        self.assertNotIn("behind", output)
        for name, version in self.pinned().items():
            self.assertRegex(output, rf"(?m)^{re.escape(name)} +{re.escape(version)} +newest$")

    def test_one_is_behind(self):
        status, output = self.check(self.pinned() | {"marked": "99.0.0"})
        self.assertEqual(status, 1)
        self.assertRegex(output, r"(?m)^marked +\S+ +behind: 99\.0\.0 is out")

    def test_the_registry_does_not_answer(self):
        status, output = self.check({})
        self.assertEqual(status, 2)
        self.assertIn("the registry did not answer", output)


if __name__ == "__main__":
    unittest.main()
