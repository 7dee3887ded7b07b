"""When ./run and ./test reconfigure the build folder, with stubs for dpkg-query and cmake."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from paths import ROOT

DPKG_QUERY = """#!/bin/sh
cat "$STATE/installed"
# As dpkg-query does for unknown package names.
exit 1
"""
CMAKE = """#!/bin/sh
echo "$*" >>"$STATE/cmake.log"
case "$*" in
    --build*) exit 0 ;;
esac
mkdir -p build/release
[ -z "$CONFIGURE_FAILS" ] || exit 1
touch build/release/build.ninja
"""
CONFIGURE = "--preset release --fresh"


class ConfigureAgainTest(unittest.TestCase):
    def setUp(self):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="configure-"))
        self.addCleanup(shutil.rmtree, self.root)
        (self.root / "scripts").mkdir()
        for name in ("lib.sh", "packages.txt", "packages-test.txt"):
            shutil.copy(ROOT / "scripts" / name, self.root / "scripts")
        self.tool("dpkg-query", DPKG_QUERY)
        self.tool("cmake", CMAKE)
        self.tool("node", "#!/bin/sh")
        self.tool("npm", "#!/bin/sh")
        self.install("cmake 3.25.1", "ninja-build 1.11.1")

    def tool(self, name, text):
        path = self.root / "bin" / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(text)
        path.chmod(0o755)

    def install(self, *packages):
        self.root.joinpath("installed").write_text(
            "".join(f"installed {package}\n" for package in packages))

    def build(self, *targets, configure_fails=False):
        """Builds the targets; returns the arguments of each cmake call."""
        log = self.root / "cmake.log"
        log.unlink(missing_ok=True)
        done = subprocess.run(
            ["bash", "-euo", "pipefail", "-c", '. scripts/lib.sh; build "$@"', "build", *targets],
            cwd=self.root, capture_output=True, text=True,
            env={**os.environ, "PATH": f"{self.root}/bin:{os.environ['PATH']}",
                 "STATE": str(self.root), "CONFIGURE_FAILS": "1" if configure_fails else ""})
        self.assertEqual(done.returncode != 0, configure_fails, done.stderr)
        return log.read_text().splitlines()

    def test_the_first_build_configures(self):
        self.assertEqual(self.build("quellora"),
                         [CONFIGURE, "--build --preset release --target quellora"])

    def test_the_next_build_does_not(self):
        self.build("quellora")
        self.assertEqual(self.build(), ["--build --preset release"])

    def test_a_newly_installed_package_reconfigures(self):
        self.build("quellora")
        self.install("cmake 3.25.1", "icnsutils 0.8.1", "ninja-build 1.11.1")
        self.assertEqual(self.build(), [CONFIGURE, "--build --preset release"])
        self.assertEqual(self.build(), ["--build --preset release"])

    def test_a_removed_or_updated_package_reconfigures(self):
        self.build()
        self.install("cmake 3.25.1")
        self.assertIn(CONFIGURE, self.build())
        self.install("cmake 3.25.2")
        self.assertIn(CONFIGURE, self.build())

    def test_a_failed_configuration_is_repeated(self):
        self.build()
        self.install("cmake 3.25.2")
        self.assertEqual(self.build(configure_fails=True), [CONFIGURE])
        self.install("cmake 3.25.1", "ninja-build 1.11.1")
        self.assertIn(CONFIGURE, self.build())

    def test_a_manually_configured_folder_is_reconfigured_once(self):
        (self.root / "build/release").mkdir(parents=True)
        (self.root / "build/release/build.ninja").touch()
        self.assertIn(CONFIGURE, self.build())
        self.assertNotIn(CONFIGURE, self.build())


if __name__ == "__main__":
    unittest.main()
