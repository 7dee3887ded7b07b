"""check-bundle, on bundles of small synthetic Mach-O images."""

import pathlib
import plistlib
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

from paths import MACOS

ARM64 = 0x0100000C
X86_64 = 0x01000007
SYSTEM = "/usr/lib/libSystem.B.dylib"


def text_command(kind, text, fields=()):
    """A load command with a trailing string."""
    start = 12 + 4 * len(fields)
    body = text.encode() + b"\0"
    body += bytes(-(start + len(body)) % 8)
    return struct.pack(f"<3I{len(fields)}I", kind, start + len(body), start, *fields) + body


def image(kind=6, cpu=ARM64, oldest=(13, 0), loads=(SYSTEM,), rpaths=()):
    """A Mach-O image without code: header and load commands."""
    commands = [text_command(0xC, load, (0, 0, 0)) for load in loads]
    commands += [text_command(0x8000001C, rpath) for rpath in rpaths]
    if oldest:
        packed = oldest[0] << 16 | oldest[1] << 8
        commands.append(struct.pack("<6I", 0x32, 24, 1, packed, packed, 0))
    body = b"".join(commands)
    return struct.pack("<8I", 0xFEEDFACF, cpu, 0, kind, len(commands), len(body), 0, 0) + body


def fat(*images):
    head, body, at = b"", b"", 4096
    for cpu, data in images:
        head += struct.pack(">5I", cpu, 0, at, len(data), 12)
        body += data + bytes(4096 - len(data))
        at += 4096
    return (struct.pack(">2I", 0xCAFEBABE, len(images)) + head).ljust(4096, b"\0") + body


class CheckBundleTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="check-bundle-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.app = self.folder / "Quellora.app"
        self.info = {"CFBundleExecutable": "Quellora", "CFBundleIconFile": "Quellora",
                     "LSMinimumSystemVersion": "13.0"}
        self.write_info()
        self.put("Contents/Resources/Quellora.icns", b"icns" + struct.pack(">I", 8))
        self.put_main(loads=(SYSTEM, "@rpath/QtCore.framework/Versions/A/QtCore"))
        frameworks = "Contents/Frameworks"
        for name in ("QtCore", "QtWebEngineCore"):
            root = f"{frameworks}/{name}.framework"
            self.put(f"{root}/Versions/A/{name}", image(rpaths=("@loader_path/../../../",)))
            (self.app / root / "Versions/Current").symlink_to("A")
            (self.app / root / name).symlink_to(f"Versions/Current/{name}")
        engine = f"{frameworks}/QtWebEngineCore.framework"
        for name in ("Helpers", "Resources"):
            (self.app / engine / name).symlink_to(f"Versions/Current/{name}")
        inner = f"{engine}/Versions/A"
        self.put(f"{inner}/Helpers/QtWebEngineProcess.app/Contents/MacOS/QtWebEngineProcess",
                 image(kind=2, rpaths=("@loader_path/../../../../../../../",),
                       loads=("@rpath/QtCore.framework/Versions/A/QtCore",)))
        self.put(f"{inner}/Resources/qtwebengine_resources.pak", b"pages")
        self.put(f"{inner}/Resources/icudtl.dat", b"tables")
        self.put("Contents/PlugIns/platforms/libqcocoa.dylib",
                 fat((X86_64, image(cpu=X86_64)), (ARM64, image())))
        self.put("Contents/Resources/qml/QtQuick/qmldir", b"module QtQuick\n")
        self.put("Contents/Resources/qml/QtWebEngine/qmldir", b"module QtWebEngine\n")

    def put(self, path, data):
        path = self.app / path
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)

    def write_info(self):
        self.put("Contents/Info.plist", plistlib.dumps(self.info))

    def put_main(self, **options):
        self.put("Contents/MacOS/Quellora",
                 image(**({"kind": 2, "rpaths": ("@executable_path/../Frameworks",)} | options)))
        (self.app / "Contents/MacOS/Quellora").chmod(0o755)

    def problems(self, *options):
        result = subprocess.run([sys.executable, "-B", MACOS / "check-bundle", *options, self.app],
                                capture_output=True, text=True, check=False)
        self.assertEqual(result.returncode, 1 if result.stderr else 0, result)
        return result.stderr

    def test_a_complete_bundle_has_no_problems(self):
        self.assertEqual(self.problems("--deployed"), "")

    def test_an_undeployed_bundle_needs_no_libraries(self):
        shutil.rmtree(self.app / "Contents/Frameworks")
        self.assertEqual(self.problems(), "")
        self.assertIn("QtWebEngineProcess: is missing", self.problems("--deployed"))

    def test_basic_problems(self):
        def no_executable():
            (self.app / "Contents/MacOS/Quellora").unlink()

        def not_executable():
            (self.app / "Contents/MacOS/Quellora").chmod(0o644)

        def elf():
            self.put("Contents/MacOS/Quellora", b"\x7fELF" + bytes(60))

        def short_icon():
            self.put("Contents/Resources/Quellora.icns", b"icns" + struct.pack(">I", 9))

        def no_plist():
            self.put("Contents/Info.plist", b"<plist><dict>")

        def no_minimum_system():
            del self.info["LSMinimumSystemVersion"]
            self.write_info()

        for damage, text in (
                (no_executable, "is not there"), (not_executable, "is not there"),
                (elf, "no machine code"), (short_icon, "icon"), (no_plist, "no usable Info.plist"),
                (no_minimum_system, "LSMinimumSystemVersion"),
                (lambda: self.put_main(cpu=X86_64), "is not arm64"),
                (lambda: self.put_main(kind=6), "is no executable"),
                (lambda: self.put_main(oldest=None), "does not say which system"),
                (lambda: self.put_main(oldest=(14, 2)), "needs macOS 14.2, the bundle promises 13.0")):
            with self.subTest(text=text):
                damage()
                self.assertIn(text, self.problems())
                shutil.rmtree(self.folder)
                self.setUp()

    def test_problems_on_other_macs(self):
        plugin = "Contents/PlugIns/tls/libqopensslbackend.dylib"
        for data, text in (
                (image(loads=("/opt/homebrew/lib/libssl.dylib",)), "from outside the bundle"),
                (image(loads=("@rpath/libgone.dylib",)), "which is not in the bundle"),
                (image(loads=("@loader_path/../gone.dylib",)), "which is not in the bundle"),
                (image(rpaths=("/opt/homebrew/lib",)), "looks for libraries in /opt/homebrew/lib"),
                (image(oldest=(15, 0)), "needs macOS 15.0"),
                (fat((X86_64, image(cpu=X86_64))), "holds no arm64 code"),
                (image()[:40], "damaged")):
            with self.subTest(text=text):
                self.put(plugin, data)
                self.assertIn(f"{plugin}: ", self.problems("--deployed"))
                self.assertIn(text, self.problems("--deployed"))

    def test_links_stay_inside(self):
        link = self.app / "Contents/Frameworks/libbrotli.dylib"
        for end in ("/opt/homebrew/lib/libbrotli.dylib", "../../../elsewhere", "gone.dylib"):
            with self.subTest(end):
                (self.folder / "elsewhere").touch()
                link.symlink_to(end)
                self.assertIn("not into the bundle", self.problems("--deployed"))
                link.unlink()

    def test_older_version_commands_and_relative_names(self):
        old = image(oldest=None, loads=("@loader_path/libinner.dylib",))
        commands = struct.pack("<4I", 0x24, 16, 12 << 16 | 3 << 8, 0)
        fields = list(struct.unpack("<8I", old[:32]))
        fields[4] += 1
        fields[5] += len(commands)
        self.put("Contents/Frameworks/libold.dylib",
                 struct.pack("<8I", *fields) + old[32:] + commands)
        self.put("Contents/Frameworks/libinner.dylib", image())
        self.assertEqual(self.problems("--deployed"), "")


if __name__ == "__main__":
    unittest.main()
