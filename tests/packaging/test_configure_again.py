"""When the two commands configure the build folder anew, with stand-ins for dpkg and cmake."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from places import ROOT

DPKG_QUERY = """#!/bin/sh
cat "$STATE/installed"
# What dpkg-query does when it does not know one of the names.
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
        """The arguments of each call of cmake while the targets are built."""
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

    def test_a_package_that_came_is_looked_up(self):
        self.build("quellora")
        self.install("cmake 3.25.1", "icnsutils 0.8.1", "ninja-build 1.11.1")
        self.assertEqual(self.build(), [CONFIGURE, "--build --preset release"])
        self.assertEqual(self.build(), ["--build --preset release"])

    def test_a_package_that_went_or_changed_is_looked_up(self):
        self.build()
        self.install("cmake 3.25.1")
        self.assertIn(CONFIGURE, self.build())
        self.install("cmake 3.25.2")
        self.assertIn(CONFIGURE, self.build())

    def test_a_failed_configuration_is_not_remembered(self):
        self.build()
        self.install("cmake 3.25.2")
        self.assertEqual(self.build(configure_fails=True), [CONFIGURE])
        self.install("cmake 3.25.1", "ninja-build 1.11.1")
        self.assertIn(CONFIGURE, self.build())

    def test_a_folder_that_was_configured_by_hand_is_configured_once(self):
        (self.root / "build/release").mkdir(parents=True)
        (self.root / "build/release/build.ninja").touch()
        self.assertIn(CONFIGURE, self.build())
        self.assertNotIn(CONFIGURE, self.build())


if __name__ == "__main__":
    unittest.main()
