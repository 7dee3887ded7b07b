#!/usr/bin/env python3
"""Creates the header and library folders for the toolchain from the files of fetch-headers.

usage: prepare_sdk.py FOLDER

FOLDER/libraries   links to the headers of the libraries in use, without the host's C library
FOLDER/sdk         stubs of the system's libraries; verify_declarations.py adds the frameworks
"""
import shutil
import sys
from pathlib import Path

from stubs import exported_names, tbd

here = Path(__file__).resolve().parent
headers = Path("/usr/include")
arch_headers = headers / "x86_64-linux-gnu"

# Headers included by our sources and by these libraries.
libraries = """
    CLI boost brotli cjose gtest httplib.h jansson.h jansson_config.h leptonica libdeflate.h nlohmann
    simdjson.h sodium sodium.h spng.h
    sqlite3.h tesseract tl toml++ turbojpeg.h zlib.h png.h pngconf.h pnglibconf.h qrencode.h zconf.h GL KHR
""".split()
# Included by Qt's headers only.
drawing = {"gl.h": "GL/gl.h", "gl3.h": "GL/glcorearb.h", "glext.h": "GL/glext.h"}


def link_headers(folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for name in libraries:
        (folder / name).symlink_to(headers / name)
    (folder / "curl").symlink_to(arch_headers / "curl")
    (folder / "openssl").mkdir()
    for source in [*headers.glob("openssl/*"), *arch_headers.glob("openssl/*")]:
        (folder / "openssl" / source.name).symlink_to(source)
    (folder / "OpenGL").mkdir()
    for name, source in drawing.items():
        (folder / "OpenGL" / name).symlink_to(headers / source)
    for name in ("libpq-fe.h", "postgres_ext.h", "pg_config_ext.h"):
        (folder / name).symlink_to(headers / "postgresql" / name)
    missing = [str(p) for p in folder.rglob("*") if p.is_symlink() and not p.exists()]
    if missing:
        sys.exit(f"prepare_sdk: not installed: {', '.join(missing)}")


def write_system_libraries(root, sdk):
    folder = sdk / "usr/lib"
    folder.mkdir(parents=True, exist_ok=True)
    shutil.copy(root / "libc/lib/libc/darwin/libSystem.13.tbd", folder / "libSystem.tbd")
    shutil.copy(here / "sdk/usr/lib/libobjc.tbd", folder)
    # macOS's libc++ re-exports its ABI library. The wait function takes 64-bit values there, 32-bit
    # values on Linux.
    names = {"__ZNSt3__120__libcpp_atomic_waitEPVKvx"}
    for library in ("libc++.so.1.0", "libc++abi.so.1.0"):
        names |= exported_names(root / "libcxx/usr/lib/llvm-16/lib" / library)
    (folder / "libc++.tbd").write_text(tbd("/usr/lib/libc++.1.dylib", names))


root = Path(sys.argv[1]).resolve()
link_headers(root / "libraries")
write_system_libraries(root, root / "sdk")
