"""Info.plist and the entitlements of the macOS bundle."""

import plistlib
import re
import unittest

from paths import BUILD, MACOS, ROOT, VERSION

IDENTIFIER = "com.quellora.app"
OLDEST = re.search(r"^CMAKE_OSX_DEPLOYMENT_TARGET:\w+=(.*)$",
                   (BUILD / "CMakeCache.txt").read_text(), re.MULTILINE).group(1)
EXPECTED = {
    "CFBundleDevelopmentRegion": "en",
    "CFBundleDisplayName": "Quellora",
    "CFBundleExecutable": "Quellora",
    "CFBundleIconFile": "Quellora",
    "CFBundleIdentifier": IDENTIFIER,
    "CFBundleInfoDictionaryVersion": "6.0",
    "CFBundleName": "Quellora",
    "CFBundlePackageType": "APPL",
    "CFBundleShortVersionString": VERSION,
    "CFBundleSupportedPlatforms": ["MacOSX"],
    "CFBundleVersion": VERSION,
    "LSApplicationCategoryType": "public.app-category.productivity",
    "LSMinimumSystemVersion": OLDEST,
    "LSUIElement": True,
    "NSHighResolutionCapable": True,
    "NSPrincipalClass": "NSApplication",
    "NSSupportsAutomaticGraphicsSwitching": True,
}
TEXTS = {"NSHumanReadableCopyright", "NSLocalNetworkUsageDescription"}


def info_problems(data):
    """Lists the problems of an Info.plist."""
    problems = []
    for found in re.findall(rb"@\w+@|\$\{?\w+", data):
        problems.append(f"{found.decode()} was not filled in")
    info = plistlib.loads(data)
    for key, value in EXPECTED.items():
        # Compare types too: True == 1, but the system requires a boolean.
        if key not in info or type(info[key]) is not type(value) or info[key] != value:
            problems.append(f"{key} is {info.get(key)!r}, not {value!r}")
    for key in TEXTS:
        if not isinstance(info.get(key), str) or len(info[key]) < 20:
            problems.append(f"{key} has no meaningful text: {info.get(key)!r}")
    for key in info.keys() - EXPECTED.keys() - TEXTS:
        problems.append(f"{key} is unexpected")
    return problems


class InfoPlistTest(unittest.TestCase):
    def setUp(self):
        self.data = (BUILD / "packaging" / "macos" / "Info.plist").read_bytes()

    def test_every_key_has_its_value(self):
        self.assertEqual(info_problems(self.data), [])

    def test_each_change_is_detected(self):
        good = plistlib.loads(self.data)
        for key in good:
            for bad in (None, 1, "@PROJECT_VERSION@"):
                changed = dict(good)
                if bad is None:
                    del changed[key]
                else:
                    changed[key] = bad
                with self.subTest(key=key, value=bad):
                    self.assertNotEqual(info_problems(plistlib.dumps(changed)), [])
        with self.subTest("an unneeded permission"):
            self.assertNotEqual(
                info_problems(plistlib.dumps(good | {"NSCameraUsageDescription": "x" * 40})), [])

    def test_the_version_matches_the_program(self):
        source = (ROOT / "src/base/AppConfig.h").read_text()
        version = re.search(r'appVersion = "([^"]+)"', source).group(1)
        self.assertEqual(plistlib.loads(self.data)["CFBundleVersion"], version)

    def test_the_sources_use_the_same_identifier(self):
        names = set()
        for folder in ("src", "packaging"):
            for path in (ROOT / folder).rglob("*"):
                if path.suffix in {".h", ".cpp", ".mm", ".cmake", ".in"}:
                    names.update(re.findall(r"com\.quellora[\w.]*", path.read_text()))
        self.assertIn(IDENTIFIER, names)
        others = {name for name in names
                  if name != IDENTIFIER and not name.startswith(IDENTIFIER + ".")}
        self.assertEqual(others, set())

    def test_the_deployment_target_is_set_only_once(self):
        """It is a cache variable, so that a build can raise it for libraries that need it."""
        self.assertIn("set(CMAKE_OSX_DEPLOYMENT_TARGET 13.0 CACHE",
                      (ROOT / "CMakeLists.txt").read_text())
        self.assertNotIn("DEPLOYMENT_TARGET", (ROOT / "CMakePresets.json").read_text())


class EntitlementsTest(unittest.TestCase):
    def check(self, name, expected):
        with open(MACOS / name, "rb") as file:
            self.assertEqual(plistlib.load(file), expected)

    def test_the_program_needs_no_exception(self):
        self.check("Quellora.entitlements", {})

    def test_the_page_engine_has_only_the_jit_entitlement(self):
        self.check("QtWebEngineProcess.entitlements", {"com.apple.security.cs.allow-jit": True})

    def test_there_are_no_other_entitlement_files(self):
        self.assertEqual({path.name for path in MACOS.glob("*.entitlements")},
                         {"Quellora.entitlements", "QtWebEngineProcess.entitlements"})


if __name__ == "__main__":
    unittest.main()
