"""Installed and packed files on Linux."""

import os
import pathlib
import shutil
import stat
import subprocess
import tarfile
import tempfile
import unittest

from paths import BUILD, LINUX, ROOT

PROGRAMS = {"quellora", "quellora-backend", "quellora-screencapture", "quellora-launcher"}
SIZES = (16, 24, 32, 48, 64, 128, 256, 512)
LINKS = {"quellora": "quellora-launcher", "quellora-screencapture": "quellora-screencapture",
         "quellora-backend": "quellora-backend"}
BACKEND_FILES = {"lib/quellora/quellora-backend", "bin/quellora-backend",
                 "share/man/man1/quellora-backend.1.gz",
                 "share/bash-completion/completions/quellora-backend"}
FILES = (BACKEND_FILES
         | {f"lib/quellora/{name}" for name in PROGRAMS} | {f"bin/{name}" for name in LINKS}
         | {"share/applications/quellora.desktop",
            "share/metainfo/com.quellora.app.metainfo.xml",
            "share/man/man1/quellora.1.gz", "share/man/man1/quellora-screencapture.1.gz",
            "share/bash-completion/completions/quellora",
            "share/icons/hicolor/scalable/apps/quellora.svg",
            "share/icons/hicolor/symbolic/apps/quellora-symbolic.svg",
            "share/doc/quellora/quellora.cdx.json"}
         | {f"share/icons/hicolor/{size}x{size}/apps/quellora.png" for size in SIZES})


def debian_files(package):
    """What only Debian's packages contain."""
    documents = f"share/doc/{package}"
    return {f"{documents}/copyright", f"{documents}/changelog.gz",
            f"{documents}/changelog.Debian.gz", f"share/lintian/overrides/{package}"}


DEBIAN_FILES = {
    "quellora": FILES - BACKEND_FILES | debian_files("quellora") | {
        "share/applications/quellora-screenshot.desktop"},
    "quellora-backend": BACKEND_FILES | debian_files("quellora-backend") | {
        "lib/systemd/user/quellora-backend.service",
        "lib/systemd/system/quellora-backend.service",
        "share/doc/quellora-backend/examples/quellora-backend.example.toml"},
}


class InstallTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="install-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def run_quietly(self, *command, **options):
        result = subprocess.run(command, capture_output=True, text=True, check=False, **options)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        return result.stdout

    def check_installed(self, prefix):
        found = {str(path.relative_to(prefix)) for path in prefix.rglob("*") if not path.is_dir()}
        self.assertEqual(found, FILES)
        for name in PROGRAMS:
            self.assertTrue(os.access(prefix / "lib/quellora" / name, os.X_OK), name)
        for name, program in LINKS.items():
            self.assertEqual(os.readlink(prefix / "bin" / name), f"../lib/quellora/{program}")

    def test_install_rules(self):
        prefix = self.folder / "prefix"
        self.run_quietly("cmake", "--install", BUILD, "--prefix", prefix)
        self.check_installed(prefix)

    def test_the_installation_can_be_moved(self):
        """The launcher resolves the link and finds the program in its own folder."""
        self.run_quietly("cmake", "--install", BUILD, "--prefix", self.folder / "one")
        moved = self.folder / "two"
        (self.folder / "one").rename(moved)
        program = moved / "lib/quellora/quellora"
        program.unlink()
        program.write_text("#!/bin/bash\necho started from $0\n")
        program.chmod(0o755)
        output = self.run_quietly(moved / "bin/quellora",
                                  env={"PATH": os.environ["PATH"], "HOME": str(self.folder)})
        self.assertEqual(output, f"started from {program}\n")

    def test_the_launcher_passes_arguments_on(self):
        """The output of a start is logged, that of other runs is the caller's alone."""
        program = self.folder / "quellora"
        program.write_text('#!/bin/bash\nprintf "<%s>" "$@"\nexit 3\n')
        program.chmod(0o755)
        for arguments, is_logged in (
                (["toggle"], False), (["--version"], False), (["-h"], False),
                (["capture", "a b"], False), (["--unknown"], False), ([], True),
                (["--or-start", "capture"], True), (["capture", "--or-start"], True),
                (["-style", "Basic"], True)):
            with self.subTest(arguments):
                shutil.rmtree(self.folder / "Library", ignore_errors=True)
                result = subprocess.run(
                    [LINUX / "quellora-launcher", self.folder, *arguments], text=True, check=False,
                    capture_output=True,
                    env={"PATH": os.environ["PATH"], "HOME": str(self.folder)})
                self.assertEqual((result.returncode, result.stdout),
                                 (3, "".join(f"<{word}>" for word in arguments or [""])))
                log = self.folder / "Library/Logs/Vantiro/pipeline.log"
                self.assertEqual(log.exists() and log.read_text(),
                                 result.stdout if is_logged else False)

    def test_staging_stays_in_the_staging_folder(self):
        self.run_quietly("cmake", "--install", BUILD, "--prefix", "/opt/quellora-staging-test",
                         env=os.environ | {"DESTDIR": str(self.folder)})
        self.check_installed(self.folder / "opt/quellora-staging-test")

    def test_package(self):
        self.run_quietly("cpack", "-G", "TGZ", "-B", self.folder,
                         "--config", BUILD / "CPackConfig.cmake", cwd=self.folder)
        packages = list(self.folder.glob("*.tar.gz"))
        self.assertEqual(len(packages), 1)
        name = packages[0].name[:-len(".tar.gz")]
        with tarfile.open(packages[0]) as package:
            members = {member.name[len(name) + 1:]: member for member in package.getmembers()
                       if not member.isdir()}
        self.assertEqual(set(members), FILES)
        for program in PROGRAMS:
            self.assertTrue(members[f"lib/quellora/{program}"].mode & stat.S_IXOTH, program)

    @unittest.skipUnless(shutil.which("dpkg-deb"), "needs dpkg")
    def test_debian_packages(self):
        # Finding the libraries' packages takes long and is left to scripts/test-packages.
        self.run_quietly("cpack", "-G", "DEB", "-B", self.folder,
                         "-D", "CPACK_DEBIAN_PACKAGE_SHLIBDEPS=OFF",
                         "--config", BUILD / "CPackConfig.cmake", cwd=self.folder)
        packages = {path.name.split("_")[0]: path for path in self.folder.glob("*.deb")}
        self.assertEqual(packages.keys(), DEBIAN_FILES.keys())
        for name, path in packages.items():
            with self.subTest(name):
                listing = self.run_quietly("dpkg-deb", "--contents", path).splitlines()
                found = {line.split(" ./usr/", 1)[1].split(" -> ")[0]: line for line in listing
                         if line[0] != "d"}
                self.assertEqual(found.keys(), DEBIAN_FILES[name])
                for member, line in found.items():
                    mode = "-rwxr-xr-x" if member.startswith("lib/quellora/") else "-rw-r--r--"
                    if not member.startswith("bin/"):
                        self.assertTrue(line.startswith(f"{mode} root/root "), line)
                field = self.run_quietly("dpkg-deb", "--field", path, "Description")
                self.assertNotIn("A calm", field)
        depends = self.run_quietly("dpkg-deb", "--field", packages["quellora"], "Depends")
        for needed in ("qml6-module-qtwebengine", "qt6-wayland"):
            self.assertIn(needed, depends.replace(",", "").split())
        self.assertIn("xdg-desktop-portal",
                      self.run_quietly("dpkg-deb", "--field", packages["quellora"], "Recommends"))

    def test_the_script_installs_and_removes_all_files(self):
        if BUILD.resolve() != (ROOT / "build/release").resolve():
            self.skipTest("the script installs the release build only")
        prefix = self.folder / "a prefix"
        self.run_quietly(LINUX / "install", prefix)
        self.check_installed(prefix)
        plain = self.folder / "plain"
        self.run_quietly(LINUX / "install", plain)
        permission = plain / "share/applications/quellora-screenshot.desktop"
        self.assertIn(f"Exec={plain.resolve()}/lib/quellora/quellora",
                      permission.read_text().splitlines())
        self.run_quietly(LINUX / "install", "--remove", plain)
        self.assertEqual([path for path in plain.rglob("*") if not path.is_dir()], [])
        other = prefix / "share/icons/hicolor/16x16/apps/other.png"
        other.touch()
        self.run_quietly(LINUX / "install", "--remove", prefix)
        left = [path for path in prefix.rglob("*") if not path.is_dir()]
        self.assertEqual(left, [other])

    def test_the_desktop_file_names_the_icon(self):
        lines = (LINUX / "quellora.desktop").read_text().splitlines()
        self.assertIn("Icon=quellora", lines)
        self.assertIn("Exec=quellora", lines)


if __name__ == "__main__":
    unittest.main()
