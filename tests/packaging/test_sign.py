"""The signing script's commands, their order and their options."""

import os
import pathlib
import shlex
import shutil
import subprocess
import tempfile
import unittest

from paths import LINUX, MACOS

SIGN = MACOS / "sign"
CODE = b"\xcf\xfa\xed\xfe" + bytes(28)
FAT_CODE = b"\xca\xfe\xba\xbe" + bytes(28)
IDENTITY = "Developer ID Application: Somebody (ABCDE12345)"
HELPER = ("Contents/Frameworks/QtWebEngineCore.framework/Versions/A/Helpers/"
          "QtWebEngineProcess.app")


class SignTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="sign-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        # With a space, to test the quoting.
        self.app = self.folder / "with space" / "Quellora.app"
        self.put("Contents/Info.plist", b"<plist/>")
        self.put("Contents/MacOS/Quellora", CODE)
        self.put("Contents/Resources/Quellora.icns", b"icns")
        self.put("Contents/PlugIns/platforms/libqcocoa.dylib", CODE)
        self.put("Contents/Frameworks/libdeflate.0.dylib", FAT_CODE)
        self.put("Contents/Frameworks/notes.dylib", b"no machine code")
        self.put_framework("QtCore")
        self.put_framework("QtWebEngineCore")
        self.put(HELPER + "/Contents/Info.plist", b"<plist/>")
        self.put(HELPER + "/Contents/MacOS/QtWebEngineProcess", CODE)
        self.link("Contents/Frameworks/QtWebEngineCore.framework/Helpers",
                  "Versions/Current/Helpers")
        self.link("Contents/Resources/qml", "../PlugIns")
        self.link("Contents/Frameworks/libdeflate.dylib", "libdeflate.0.dylib")

    def put(self, path, data):
        path = self.app / path
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)

    def link(self, path, to):
        (self.app / path).symlink_to(to)

    def put_framework(self, name):
        root = f"Contents/Frameworks/{name}.framework"
        self.put(f"{root}/Versions/A/{name}", CODE)
        self.put(f"{root}/Versions/A/Resources/Info.plist", b"<plist/>")
        self.link(f"{root}/Versions/Current", "A")
        self.link(f"{root}/{name}", f"Versions/Current/{name}")

    def sign(self, *arguments, **environment):
        clean = {"PATH": os.environ["PATH"], "LC_ALL": "C"} | environment
        return subprocess.run([SIGN, *arguments], env=clean, capture_output=True, text=True,
                              stdin=subprocess.DEVNULL, check=False)

    def commands(self, *arguments, **environment):
        result = self.sign(*arguments, "--dry-run", **environment)
        self.assertEqual(result.returncode, 0, result.stderr)
        return [shlex.split(line) for line in result.stdout.splitlines()]

    def signed(self, commands):
        """(paths in the app, in order; options by path) of the signing commands."""
        paths, options = [], {}
        for command in commands:
            self.assertEqual(command[0], "codesign")
            if "--sign" in command:
                path = os.path.relpath(command[-1], self.app)
                paths.append(path)
                options[path] = command[1:-1]
        return paths, options

    def test_everything_is_signed_once_and_inside_out(self):
        commands = self.commands("app", "--identity", IDENTITY, str(self.app))
        paths, _ = self.signed(commands)
        self.assertEqual(len(paths), len(set(paths)))
        self.assertEqual(set(paths), {
            ".", HELPER,
            "Contents/Frameworks/QtCore.framework", "Contents/Frameworks/QtWebEngineCore.framework",
            "Contents/Frameworks/libdeflate.0.dylib", "Contents/PlugIns/platforms/libqcocoa.dylib"})
        for inner in paths:
            for outer in paths:
                if inner != outer and (outer == "." or inner.startswith(outer + "/")):
                    self.assertLess(paths.index(inner), paths.index(outer), f"{inner} in {outer}")
        self.assertEqual(commands[-1],
                         ["codesign", "--verify", "--deep", "--strict", "--verbose=2",
                          str(self.app)])

    def test_a_release_is_hardened_and_timestamped(self):
        _, options = self.signed(self.commands("app", "--identity", IDENTITY, str(self.app)))
        for path, given in options.items():
            with self.subTest(path):
                self.assertEqual(given[given.index("--sign") + 1], IDENTITY)
                self.assertIn("--timestamp", given)
                self.assertEqual(given[given.index("--options") + 1], "runtime")
                # --deep would give everything the same entitlements.
                self.assertNotIn("--deep", given)

    def test_only_programs_have_entitlements(self):
        _, options = self.signed(self.commands("app", "--identity", IDENTITY, str(self.app)))
        found = {path: os.path.basename(given[given.index("--entitlements") + 1])
                 for path, given in options.items() if "--entitlements" in given}
        self.assertEqual(found, {".": "Quellora.entitlements",
                                 HELPER: "QtWebEngineProcess.entitlements"})
        for given in options.values():
            if "--entitlements" in given:
                self.assertTrue(os.path.isfile(given[given.index("--entitlements") + 1]))

    def test_ad_hoc_is_not_hardened(self):
        """The hardened runtime would reject libraries without a team identifier."""
        _, options = self.signed(self.commands("app", "--identity", "-", str(self.app)))
        for given in options.values():
            self.assertNotIn("runtime", given)
            self.assertIn("--timestamp=none", given)

    def test_the_image_is_signed_notarised_and_stapled(self):
        image = self.folder / "Quellora-1.0.0-arm64.dmg"
        image.write_bytes(b"image")
        environment = {"QUELLORA_SIGN_IDENTITY": IDENTITY, "QUELLORA_NOTARY_PROFILE": "quellora",
                       "QUELLORA_SIGN_KEYCHAIN": "/some/keychain"}
        signing = self.commands("dmg", str(image), **environment)
        self.assertEqual(signing, [
            ["codesign", "--force", "--sign", IDENTITY, "--timestamp", "--keychain",
             "/some/keychain", str(image)],
            ["codesign", "--verify", "--strict", "--verbose=2", str(image)]])
        self.assertEqual(self.commands("notarize", str(image), **environment), [
            ["xcrun", "notarytool", "submit", str(image), "--keychain-profile", "quellora",
             "--wait", "--keychain", "/some/keychain"],
            ["xcrun", "stapler", "staple", str(image)],
            ["xcrun", "stapler", "validate", str(image)],
            ["spctl", "--assess", "--type", "open", "--context", "context:primary-signature",
             "--verbose=4", str(image)]])

    def test_it_stops_at_the_first_failure(self):
        """With a codesign stub that fails for frameworks."""
        tool = self.folder / "bin" / "codesign"
        tool.parent.mkdir()
        tool.write_text('#!/bin/bash\necho "$@" >>"$SIGNED"\n[[ ${!#} != *.framework ]]\n')
        tool.chmod(0o755)
        signed = self.folder / "signed"
        result = self.sign("app", "--identity", IDENTITY, str(self.app), SIGNED=str(signed),
                           PATH=f"{tool.parent}:{os.environ['PATH']}")
        self.assertNotEqual(result.returncode, 0)
        lines = signed.read_text().splitlines()
        self.assertTrue(lines[-1].endswith(".framework"), lines[-1])
        self.assertFalse(any(line.endswith("Quellora.app") for line in lines))

    def test_usage_errors(self):
        image = self.folder / "image.dmg"
        image.write_bytes(b"image")
        for arguments, text in (
                ((), "Usage:"),
                (("app", str(self.app)), "--identity"),
                (("app", "--identity"), "takes a name"),
                (("app", "--identity", IDENTITY, str(self.folder)), "no application bundle"),
                (("app", "--identity", IDENTITY, str(self.folder / "gone")), "nothing to work on"),
                (("app", "--identity", IDENTITY, "--deep", str(self.app)), "unknown option"),
                (("dmg", "--identity", "-", str(image)), "Developer ID"),
                (("notarize", str(image)), "QUELLORA_NOTARY_PROFILE"),
                (("publish", str(image)), "unknown action")):
            with self.subTest(arguments):
                result = self.sign(*arguments)
                self.assertEqual(result.returncode, 1)
                self.assertIn(text, result.stderr)

    def test_the_scripts_pass_shellcheck(self):
        if not shutil.which("shellcheck"):
            self.skipTest("needs the Debian package shellcheck")
        scripts = [SIGN, MACOS / "ci-keychain", LINUX / "install", LINUX / "quellora-launcher"]
        result = subprocess.run(["shellcheck", *scripts], capture_output=True, text=True,
                                check=False)
        self.assertEqual(result.stdout, "")

    def test_it_uses_no_features_newer_than_bash_3_2(self):
        """macOS ships bash 3.2."""
        text = "\n".join(line for line in SIGN.read_text().splitlines()
                         if not line.lstrip().startswith("#"))
        for later in ("mapfile", "readarray", "declare -A", "local -A", "local -n", ",,}", "^^}",
                      "wait -n", "|&", "&>>", "coproc", "@Q"):
            self.assertNotIn(later, text)


if __name__ == "__main__":
    unittest.main()
