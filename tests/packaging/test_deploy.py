"""The deployment script for the installed bundle, with stubs for the Mac's tools."""

import os
import pathlib
import plistlib
import shutil
import subprocess
import tempfile
import unittest

from paths import MACOS, ROOT

IDENTITY = "Developer ID Application: Somebody (ABCDE12345)"
# Configures the script as the build does, with this test's paths.
CONFIGURE = """
set(QUELLORA_BUNDLE_NAME Quellora)
configure_file("${template}" "${out}" @ONLY)
"""


class DeployTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="deploy-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.stage = self.folder / "stage"
        self.app = self.stage / "Applications" / "Quellora.app"
        (self.app / "Contents").mkdir(parents=True)
        (self.app / "Contents/Info.plist").write_bytes(plistlib.dumps({
            "CFBundleExecutable": "Quellora", "CFBundleIconFile": "Quellora",
            "LSMinimumSystemVersion": "13.0"}))
        self.log = self.folder / "log"
        # The scripts call each other by relative path.
        self.scripts = self.folder / "packaging"
        shutil.copytree(MACOS, self.scripts)
        self.tool("bin/macdeployqt")
        self.tool("bin/codesign")
        (self.folder / "configure.cmake").write_text(CONFIGURE)
        subprocess.run(
            ["cmake", f"-Dtemplate={MACOS}/Deploy.cmake.in", f"-Dout={self.folder}/Deploy.cmake",
             f"-DQUELLORA_MACDEPLOYQT={self.folder}/bin/macdeployqt",
             f"-DQUELLORA_MACOS_DIR={self.scripts}", f"-DPROJECT_SOURCE_DIR={ROOT}",
             "-DQT6_INSTALL_PREFIX=/opt/qt", "-DQT6_INSTALL_LIBS=lib",
             "-P", self.folder / "configure.cmake"], check=True, capture_output=True)

    def tool(self, path, status=0):
        """Creates a stub that logs its arguments."""
        path = self.folder / path
        path.parent.mkdir(exist_ok=True)
        path.write_text(f'#!/bin/bash\necho "{path.name} $*" >>"$LOG"\nexit {status}\n')
        path.chmod(0o755)

    def deploy(self, **environment):
        """(exit status, messages, calls) of the script."""
        clean = {"PATH": f"{self.folder}/bin:{os.environ['PATH']}", "LOG": str(self.log),
                 "DESTDIR": str(self.stage)} | environment
        result = subprocess.run(
            ["cmake", "-DCMAKE_INSTALL_PREFIX=/Applications", "-P", self.folder / "Deploy.cmake"],
            env=clean, capture_output=True, text=True, check=False)
        calls = self.log.read_text().splitlines() if self.log.exists() else []
        return result.returncode, result.stdout + result.stderr, calls

    def test_deploys_then_signs_then_checks(self):
        self.tool("packaging/check-bundle")
        status, output, calls = self.deploy()
        self.assertEqual(status, 0, output)
        self.assertEqual(calls[0], f"macdeployqt {self.app} -qmldir={ROOT}/src "
                                   "-libpath=/opt/qt/lib -always-overwrite -verbose=1")
        self.assertTrue(calls[1].startswith("codesign --force --sign - "), calls[1])
        self.assertTrue(calls[1].endswith(str(self.app)), calls[1])
        self.assertTrue(calls[2].startswith("codesign --verify "), calls[2])
        self.assertEqual(calls[3:], [f"check-bundle --deployed {self.app}"])

    def test_uses_the_identity_from_the_environment(self):
        self.tool("packaging/check-bundle")
        _, _, calls = self.deploy(QUELLORA_SIGN_IDENTITY=IDENTITY)
        self.assertIn(f"--sign {IDENTITY} --timestamp --options runtime", calls[1])
        self.log.unlink()
        _, _, calls = self.deploy(QUELLORA_SIGN_IDENTITY="")
        self.assertIn("--sign - ", calls[1])

    def test_problems_are_errors_only_with_an_identity(self):
        """This test's bundle is incomplete."""
        status, output, _ = self.deploy()
        self.assertEqual(status, 0)
        self.assertIn("QtWebEngineProcess: is missing", output)
        self.assertIn("may not run on other Macs", output)
        status, output, _ = self.deploy(QUELLORA_SIGN_IDENTITY=IDENTITY)
        self.assertNotEqual(status, 0)
        self.assertIn("would not run on every Mac", output)

    def test_a_failing_tool_aborts_the_deployment(self):
        for tool, further in (("macdeployqt", "codesign"), ("codesign", "check-bundle")):
            with self.subTest(tool):
                self.tool("packaging/check-bundle")
                self.tool(f"bin/{tool}", status=3)
                status, _, calls = self.deploy()
                self.assertNotEqual(status, 0)
                self.assertTrue(calls[-1].startswith(tool + " "), calls)
                self.assertFalse(any(call.startswith(further + " ") for call in calls), calls)
                self.tool(f"bin/{tool}")
                self.log.unlink()


if __name__ == "__main__":
    unittest.main()
