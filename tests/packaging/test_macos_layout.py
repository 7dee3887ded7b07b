"""The macOS install rules, run on Linux: two empty programs are built and installed as a bundle.

Uses clang and lld for Mach-O. The programs make no system calls, so that an empty stub of
libSystem suffices.
"""

import pathlib
import plistlib
import re
import shutil
import subprocess
import tempfile
import unittest

from paths import BUILD, MACOS, ROOT, VERSION

TOOLS = ("clang-14", "ld64.lld-14", "llvm-install-name-tool-14", "llvm-ar-14", "llvm-ranlib-14")
PROJECT = """
cmake_minimum_required(VERSION 3.25)
project(quellora VERSION @VERSION@ LANGUAGES C)
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_SOURCE_DIR}/cmake)
include(packaging/macos/Bundle.cmake)
add_subdirectory(assets/icons)
add_executable(quellora main.c)
quellora_make_bundle(quellora)
add_executable(quellora-backend main.c)
add_subdirectory(packaging)
"""
TOOLCHAIN = """
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 22)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_OSX_ARCHITECTURES arm64)
set(CMAKE_OSX_DEPLOYMENT_TARGET 13.0)
set(CMAKE_OSX_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/sdk)
set(CMAKE_C_COMPILER clang-14)
set(CMAKE_C_COMPILER_TARGET arm64-apple-macos13)
set(CMAKE_AR /usr/bin/llvm-ar-14)
set(CMAKE_RANLIB /usr/bin/llvm-ranlib-14)
set(CMAKE_INSTALL_NAME_TOOL /usr/bin/llvm-install-name-tool-14)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_USER_MAKE_RULES_OVERRIDE ${CMAKE_CURRENT_LIST_DIR}/rules.cmake)
set(CMAKE_EXE_LINKER_FLAGS_INIT "--ld-path=/usr/bin/ld64.lld-14 -mlinker-version=711")
"""
# CMake takes the rpath flag from the host system unless it is set.
RULES = """
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG -Wl,-rpath,)
"""
SYSTEM_LIBRARY = """--- !tapi-tbd
tbd-version: 4
targets: [ arm64-macos ]
install-name: '/usr/lib/libSystem.B.dylib'
exports:
  - targets: [ arm64-macos ]
    symbols: [ dyld_stub_binder ]
...
"""


@unittest.skipUnless(all(map(shutil.which, TOOLS)),
                     "needs the Debian packages clang-14, lld-14 and llvm-14")
class MacosLayoutTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="macos-layout-"))
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        source = cls.folder / "source"
        (source / "assets").mkdir(parents=True)
        for name in ("cmake", "packaging", "LICENSE", "assets/icons"):
            (source / name).symlink_to(ROOT / name)
        (source / "main.c").write_text("int main(void) { return 0; }\n")
        (source / "CMakeLists.txt").write_text(PROJECT.replace("@VERSION@", VERSION))
        (cls.folder / "toolchain.cmake").write_text(TOOLCHAIN)
        (cls.folder / "rules.cmake").write_text(RULES)
        library = cls.folder / "sdk/usr/lib/libSystem.tbd"
        library.parent.mkdir(parents=True)
        library.write_text(SYSTEM_LIBRARY)
        cls.build = cls.folder / "build"
        cls.run_tool("cmake", "-G", "Ninja", "-S", source, "-B", cls.build,
                     f"-DCMAKE_TOOLCHAIN_FILE={cls.folder}/toolchain.cmake",
                     "-DCMAKE_BUILD_TYPE=Release")
        cls.run_tool("cmake", "--build", cls.build)
        cls.run_tool("cmake", "--install", cls.build, "--prefix", cls.folder / "out")
        cls.app = cls.folder / "out" / "Quellora.app"

    @staticmethod
    def run_tool(*command):
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        if result.returncode:
            raise AssertionError(f"{command}\n{result.stdout}\n{result.stderr}")
        return result.stdout

    def test_only_the_bundle_is_installed(self):
        found = {str(path.relative_to(self.folder / "out"))
                 for path in (self.folder / "out").rglob("*") if path.is_file()}
        self.assertEqual(found, {"Quellora.app/Contents/Info.plist",
                                 "Quellora.app/Contents/MacOS/Quellora",
                                 "Quellora.app/Contents/Resources/Quellora.icns"})

    def test_the_bundle_passes_the_check(self):
        self.run_tool(MACOS / "check-bundle", self.app)
        with open(self.app / "Contents/Info.plist", "rb") as file:
            info = plistlib.load(file)
        with open(BUILD / "packaging/macos/Info.plist", "rb") as file:
            self.assertEqual(info, plistlib.load(file))

    def test_the_rpath_is_inside_the_bundle(self):
        program = (self.app / "Contents/MacOS/Quellora").read_bytes()
        self.assertEqual(program.count(b"@executable_path/../Frameworks\0"), 1)

    def test_the_backend_is_an_optional_component(self):
        out = self.folder / "backend"
        self.run_tool("cmake", "--install", self.build, "--component", "backend",
                      "--prefix", out)
        found = [str(path.relative_to(out)) for path in out.rglob("*") if path.is_file()]
        self.assertEqual(found, ["bin/quellora-backend"])

    def test_the_disk_image_settings(self):
        settings = dict(re.findall(r'^set\((CPACK_\w+) "(.*)"\)$',
                                   (self.build / "CPackConfig.cmake").read_text(), re.MULTILINE))
        self.assertEqual(settings["CPACK_GENERATOR"], "DragNDrop")
        self.assertEqual(settings["CPACK_PACKAGE_FILE_NAME"], f"Quellora-{VERSION}-arm64")
        self.assertEqual(settings["CPACK_DMG_VOLUME_NAME"], "Quellora")
        self.assertEqual(settings["CPACK_DMG_DISABLE_APPLICATIONS_SYMLINK"], "OFF")
        self.assertEqual(settings["CPACK_DMG_SLA_USE_RESOURCE_FILE_LICENSE"], "OFF")
        self.assertEqual(settings["CPACK_MONOLITHIC_INSTALL"], "ON")


if __name__ == "__main__":
    unittest.main()
