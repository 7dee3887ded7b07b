"""Text stubs (.tbd) that list a library's exported symbols for a Mach-O linker."""
import os
import subprocess
from pathlib import Path


def tbd(install_name, symbols, classes=()):
    """The text of a stub for arm64."""
    lines = [
        "--- !tapi-tbd",
        "tbd-version: 4",
        "targets: [ arm64-macos ]",
        f"install-name: '{install_name}'",
        "exports:",
        "  - targets: [ arm64-macos ]",
        f"    symbols: [ {', '.join(repr(s) for s in sorted(symbols))} ]",
    ]
    if classes:
        lines.append(f"    objc-classes: [ {', '.join(sorted(classes))} ]")
    return "\n".join(lines + ["...", ""])


def exported_names(library):
    """Exported symbols of an ELF library, with the leading underscore of Mach-O."""
    out = subprocess.run(
        ["llvm-nm-14", "-D", "--defined-only", "-j", str(library)],
        check=True, capture_output=True, text=True).stdout
    return {"_" + name.split("@")[0] for name in out.split() if not name.startswith("Qt_")}


def install_name_of(library):
    name = library.name.split(".so")[0]
    if name.startswith("libQt6"):
        framework = "Qt" + name[len("libQt6"):]
        return f"@rpath/{framework}.framework/Versions/A/{framework}"
    return f"@rpath/{name}.dylib"


def stub_of(library, folder):
    """Path of an ELF library's stub, which is written if missing or outdated."""
    real = library.resolve()
    stub = folder / (library.name.split(".so")[0] + ".tbd")
    if not stub.exists() or stub.stat().st_mtime < real.stat().st_mtime:
        folder.mkdir(parents=True, exist_ok=True)
        part = stub.with_suffix(f".{os.getpid()}.part")
        part.write_text(tbd(install_name_of(library), exported_names(real)))
        part.replace(stub)
    return stub


def demangled(names):
    """Maps each mangled C++ Mach-O name to its demangled form."""
    names = sorted(names)
    out = subprocess.run(
        ["llvm-cxxfilt-14"], input="\n".join(n[1:] for n in names) + "\n",
        check=True, capture_output=True, text=True).stdout.split("\n")
    return {name: text for name, text in zip(names, out) if text != name[1:]}


def spelled_alike(text):
    """A demangled name without differences between libstdc++ and libc++: inner namespaces, and
    long versus long long for 64-bit integers."""
    for inner in ("__1::", "__cxx11::", "__exception_ptr::"):
        text = text.replace("std::" + inner, "std::")
    return text.replace("long long", "long").replace("[abi:cxx11]", "")
