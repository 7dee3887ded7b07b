#!/usr/bin/env python3
"""Lays out what the toolchain compiles and links against, from what fetch-headers has brought.

usage: prepare_sdk.py FOLDER

FOLDER/libraries   headers of the libraries in use, without those of the machine's C library
FOLDER/sdk         names of the system's libraries; those of the frameworks come from the check of
                   our declarations
"""
import shutil
import sys
from pathlib import Path

from stubs import exported_names, tbd

here = Path(__file__).resolve().parent
headers = Path("/usr/include")
arch_headers = headers / "x86_64-linux-gnu"

# What our sources and these libraries' own headers include.
libraries = """
    CLI brotli gtest httplib.h leptonica libdeflate.h nlohmann simdjson.h sodium sodium.h spng.h
    sqlite3.h tesseract tl toml++ turbojpeg.h zlib.h png.h pngconf.h pnglibconf.h zconf.h GL KHR
""".split()
# The toolkit's headers name them; nothing of ours calls any of it.
drawing = {"gl.h": "GL/gl.h", "gl3.h": "GL/glcorearb.h", "glext.h": "GL/glext.h"}


def link_headers(folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for name in libraries:
        (folder / name).symlink_to(headers / name)
    (folder / "openssl").mkdir()
    for source in [*headers.glob("openssl/*"), *arch_headers.glob("openssl/*")]:
        (folder / "openssl" / source.name).symlink_to(source)
    (folder / "OpenGL").mkdir()
    for name, source in drawing.items():
        (folder / "OpenGL" / name).symlink_to(headers / source)
    missing = [str(p) for p in folder.rglob("*") if p.is_symlink() and not p.exists()]
    if missing:
        sys.exit(f"prepare_sdk: not installed: {', '.join(missing)}")


def write_system_libraries(root, sdk):
    folder = sdk / "usr/lib"
    folder.mkdir(parents=True, exist_ok=True)
    shutil.copy(root / "libc/lib/libc/darwin/libSystem.13.tbd", folder / "libSystem.tbd")
    shutil.copy(here / "sdk/usr/lib/libobjc.tbd", folder)
    # The system's libc++ hands on what its ABI library exports.
    # Counts with 64 bits there, with 32 on the system that the names come from.
    names = {"__ZNSt3__120__libcpp_atomic_waitEPVKvx"}
    for library in ("libc++.so.1.0", "libc++abi.so.1.0"):
        names |= exported_names(root / "libcxx/usr/lib/llvm-16/lib" / library)
    (folder / "libc++.tbd").write_text(tbd("/usr/lib/libc++.1.dylib", names))


root = Path(sys.argv[1]).resolve()
link_headers(root / "libraries")
write_system_libraries(root, root / "sdk")
