"""Presets, workflow, Brewfile and release guide are consistent."""

import json
import os
import re
import subprocess
import unittest

import yaml

from paths import MACOS, ROOT

WORKFLOW = ROOT / ".github" / "workflows" / "macos.yml"
LINUX_WORKFLOW = ROOT / ".github" / "workflows" / "linux.yml"
GUIDE = ROOT / "docs" / "RELEASE.md"
# Names that CMake searches for, with the formulae that provide them.
FORMULAE = {
    "Qt6": "qt", "PkgConfig": "pkgconf", "tl-expected": "tl-expected", "simdjson": "simdjson",
    "spng": "libspng", "libspng": "libspng", "libturbojpeg": "jpeg-turbo",
    "libdeflate": "libdeflate", "nlohmann_json": "nlohmann-json", "OpenSSL": "openssl@3",
    "Boost": "boost", "CURL": "curl",
    "cpp-httplib": "cpp-httplib", "httplib": "cpp-httplib", "libsodium": "libsodium", "cjose": "cjose",
    "jansson": "jansson", "libqrencode": "qrencode", "libpq": "libpq", "sqlite3": "sqlite",
    "tesseract": "tesseract", "lept": "leptonica", "tomlplusplus": "tomlplusplus",
    "CLI11": "cli11", "libpq": "libpq", "cjose": "cjose", "jansson": "jansson", "libqrencode": "qrencode",
    "GTest": "googletest", "libpng": "libpng", "benchmark": "google-benchmark",
    "npm": "node", "rsvg-convert": "librsvg",
}
# Part of the system, optional, or searched for on Linux or on Debian only.
ELSEWHERE = {"Threads", "OpenMP", "Python3", "iconutil", "png2icns", "macdeployqt", "python3", "xcb",
             "wayland-client", "wayland-scanner", "xkbcommon",
             "gzip", "libcurl"}
LINUX_ONLY = ("tools/", "tests/tools/", "tests/e2e/", "tests/platform/", "src/platform/", "build/")


def commands(text):
    """(kind of preset, name) of each command with a preset."""
    found = re.findall(r"\b(cmake --build|cmake|ctest|cpack) --preset[ =]([\w-]+)", text)
    kinds = {"cmake": "configurePresets", "cmake --build": "buildPresets",
             "ctest": "testPresets", "cpack": "packagePresets"}
    return [(kinds[tool], name) for tool, name in found]


def searched_for():
    """Names passed to find_package, pkg_check_modules and find_program on a Mac."""
    names = set()
    for path in [*ROOT.rglob("CMakeLists.txt"), *(ROOT / "cmake").glob("*.cmake")]:
        if str(path.relative_to(ROOT)).startswith(LINUX_ONLY):
            continue
        text = re.sub(r"#.*", "", path.read_text())
        names.update(re.findall(r"find_package\((\S+?)[\s)]", text))
        names.update(re.findall(r"find_program\(\S+ (?:NAMES )?([\w-]+)", text))
        for modules in re.findall(r"pkg_(?:check_modules|search_module)\(\S+([^)]*)\)", text):
            names.update(set(modules.split()) - {"REQUIRED", "QUIET", "IMPORTED_TARGET"})
    return names


class ReleaseFilesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.presets = json.loads((ROOT / "CMakePresets.json").read_text())
        cls.workflow = yaml.safe_load(WORKFLOW.read_text())
        cls.steps = [step for job in cls.workflow["jobs"].values() for step in job["steps"]]
        cls.scripts = "\n".join(step["run"] for step in cls.steps if "run" in step)

    def preset(self, kind, name):
        return next((preset for preset in self.presets[kind] if preset["name"] == name), None)

    def test_the_presets_are_valid(self):
        result = subprocess.run(["cmake", "--list-presets=all"], cwd=ROOT, capture_output=True,
                                text=True, check=False)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn('"release"', result.stdout)

    def test_macos_has_a_preset_for_every_step(self):
        for kind in ("configurePresets", "buildPresets", "testPresets", "packagePresets"):
            with self.subTest(kind):
                self.assertIsNotNone(self.preset(kind, "macos"))
        self.assertEqual(self.preset("packagePresets", "macos")["generators"], ["DragNDrop"])
        variables = self.preset("configurePresets", "macos")["cacheVariables"]
        self.assertEqual(variables["CMAKE_OSX_ARCHITECTURES"], "arm64")

    def test_commands_name_presets_that_exist(self):
        for name, text in (("workflow", self.scripts), ("guide", GUIDE.read_text()),
                           ("readme", (ROOT / "README.md").read_text())):
            with self.subTest(name):
                used = commands(text)
                self.assertIn(("configurePresets", "macos"), used)
                for kind, preset in used:
                    self.assertIsNotNone(self.preset(kind, preset), f"{kind}: {preset}")
        self.assertEqual([kind for kind, _ in commands(self.scripts)][:4],
                         ["configurePresets", "buildPresets", "testPresets", "packagePresets"])

    def test_referenced_scripts_exist(self):
        for text in (self.scripts, GUIDE.read_text()):
            paths = set(re.findall(r"packaging/macos/[\w.-]+\w", text))
            self.assertIn("packaging/macos/sign", paths)
            for path in paths:
                self.assertTrue((ROOT / path).is_file(), path)
        for script in ("sign", "check-bundle", "ci-keychain"):
            self.assertTrue(os.access(MACOS / script, os.X_OK), script)

    def test_the_workflow_runs_on_arm64_and_signs_tags_only(self):
        jobs = self.workflow["jobs"]
        for name, job in jobs.items():
            self.assertEqual(job["runs-on"], "macos-14", name)
            self.assertIn("timeout-minutes", job)
        self.assertIn("refs/tags/v", jobs["release"]["if"])
        self.assertNotIn("secrets.", str(jobs["build"]))
        for step in jobs["release"]["steps"]:
            self.assertIn("CAN_SIGN", step["if"], step)
        # The identity is removed even after a failure.
        self.assertIn("always()", jobs["release"]["steps"][-1]["if"])
        self.assertEqual(self.workflow["permissions"], {"contents": "read"})

    def test_secrets_are_never_part_of_a_command(self):
        self.assertNotIn("${{", self.scripts)
        self.assertNotIn("${{", LINUX_WORKFLOW.read_text())

    def test_the_workflow_for_linux_builds_and_tests_the_packages(self):
        self.assertEqual(self.preset("packagePresets", "linux"),
                         {"name": "linux", "configurePreset": "release", "generators": ["DEB"]})
        workflow = yaml.safe_load(LINUX_WORKFLOW.read_text())
        self.assertEqual(workflow["permissions"], {"contents": "read"})
        [job] = workflow["jobs"].values()
        self.assertEqual(job["container"]["image"], "debian:12")
        self.assertIn("timeout-minutes", job)
        scripts = "\n".join(step["run"] for step in job["steps"] if "run" in step)
        for kind, preset in commands(scripts):
            self.assertIsNotNone(self.preset(kind, preset), f"{kind}: {preset}")
        used = re.findall(r"^scripts/[\w-]+", scripts, re.M)
        self.assertEqual(used, ["scripts/test-packages"] * 2)
        self.assertTrue(os.access(ROOT / used[0], os.X_OK))
        kept = [step["with"]["path"] for step in job["steps"] if "with" in step]
        self.assertIn("out/packages/*.deb", kept)

    def test_every_dependency_has_a_formula(self):
        lines = [re.sub(r"\s*#.*", "", line) for line in (MACOS / "Brewfile").read_text().splitlines()]
        listed = set()
        for line in filter(None, lines):
            found = re.fullmatch(r'brew "([a-z0-9@.-]+)"', line)
            self.assertIsNotNone(found, line)
            listed.add(found.group(1))
        names = searched_for()
        self.assertGreater(len(names), 15)
        self.assertEqual(names - FORMULAE.keys() - ELSEWHERE, set())
        self.assertEqual({FORMULAE[name] for name in names & FORMULAE.keys()} - listed, set())
        self.assertEqual(listed - set(FORMULAE.values()) - {"cmake", "ninja"}, set())


if __name__ == "__main__":
    unittest.main()
