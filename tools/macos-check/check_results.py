#!/usr/bin/env python3
"""Checks the output of the build for macOS.

usage: check_results.py [--list-objects] REPOSITORY BUILD

Every macOS source is compiled, with and without the stricter declarations; the programs are Mach-O
executables for arm64; the application bundle passes check-bundle.
--list-objects prints the objects of all sources, including tests except the backend's: GoogleTest
needs a header of the C++ ABI that is not fetched.
"""
import json
import shlex
import subprocess
import sys
from collections import defaultdict
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

lists_objects = sys.argv[1] == "--list-objects"
root, build = (Path(a).resolve() for a in sys.argv[-2:])
# Sources and programs of other systems.
elsewhere = ["src/platform/linux", "src/platform/wayland", "tools/screencapture"]

problems = []
# A source may belong to several targets, not all of which are built.
commands = defaultdict(list)
for entry in json.loads((build / "compile_commands.json").read_text()):
    commands[Path(entry["file"]).resolve()].append(entry)


def objects_of(path):
    """Object files of a source, as named in the build."""
    for entry in commands[path]:
        arguments = shlex.split(entry["command"])
        yield arguments[arguments.index("-o") + 1]


if lists_objects:
    print("\n".join(name for path in commands if root / "tests/server" not in path.parents
                    for name in objects_of(path)))
    sys.exit()


def own_sources():
    for folder in ("src", "server", "assets"):
        for path in sorted((root / folder).rglob("*")):
            name = str(path.relative_to(root))
            if path.suffix in (".cpp", ".mm", ".c") and "node_modules" not in name and \
                    not any(name.startswith(e + "/") for e in elsewhere):
                yield path


def compile_as_the_system_declares(path):
    """Compiles a source of the port with the looser option types of the system's headers."""
    command = [a for a in shlex.split(commands[path][0]["command"]) if a != "-DSDK_STRICT"]
    # Without ccache: -fsyntax-only is not cached.
    command = command[1:] if command[0].endswith("ccache") else command
    output = command.index("-o")
    command[output:output + 2] = ["-fsyntax-only"]
    result = subprocess.run(command, cwd=commands[path][0]["directory"], capture_output=True,
                            text=True)
    return f"{path.relative_to(root)}:\n{result.stderr}" if result.returncode else None


sources = list(own_sources())
problems += [f"not compiled for macOS: {p.relative_to(root)}" for p in sources
             if not any((build / name).exists() for name in objects_of(p))]
port = [p for p in sources if p.suffix == ".mm" and commands[p]]
if not port:
    problems.append("no source of the port was compiled")
with ThreadPoolExecutor() as pool:
    problems += filter(None, pool.map(compile_as_the_system_declares, port))

programs = [build / name for name in ("bin/Quellora.app/Contents/MacOS/Quellora",
                                      "bin/quellora-backend", "tests/contract_mac")]
for program in programs:
    kind = subprocess.run(["file", "-b", program], capture_output=True, text=True).stdout
    if not kind.startswith("Mach-O 64-bit arm64 executable"):
        problems.append(f"{program.relative_to(build)}: {kind.strip()}")

bundle = subprocess.run([root / "packaging/macos/check-bundle", build / "bin/Quellora.app"],
                        capture_output=True, text=True)
if bundle.returncode:
    problems.append(bundle.stdout + bundle.stderr)

for problem in problems:
    print("ERROR", problem)
print(f"{len(sources)} sources, {len(port)} of them of the port; {len(programs)} programs; "
      f"{len(problems)} errors")
sys.exit(bool(problems))
