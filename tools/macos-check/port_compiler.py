"""Compiles modified copies of the port's sources with the flags of the macOS build."""
import json
import os
import re
import shlex
import shutil
import subprocess
from pathlib import Path

here = Path(__file__).resolve().parent
root = here.parents[1]
declarations_folder = here / "sdk/include"
port_folder = root / "src/platform/macos"


def run(command, folder=None):
    """Runs a command; returns its status and output."""
    result = subprocess.run([str(c) for c in command], cwd=folder, capture_output=True, text=True)
    return result.returncode, result.stdout + result.stderr


class Command:
    """The build's compile command of one source.

    flags    without ccache, source and outputs
    folder   working directory
    object   output file
    """

    def __init__(self, entry):
        words = shlex.split(entry["command"])
        words = words[next(i for i, w in enumerate(words) if "clang" in Path(w).name):]
        self.folder = Path(entry["directory"])
        self.object = self.folder / words[words.index("-o") + 1]
        self.flags = []
        skip = False
        for word in words:
            if skip:
                skip = False
            elif word in ("-o", "-c", "-MF", "-MT"):
                skip = True
            elif word != "-MD":
                self.flags.append(word)

    def with_declarations(self, folder):
        """The flags with another folder in place of sdk/include."""
        own = os.path.realpath(declarations_folder)
        return [re.sub(r"^(-I)?(/.*)$", lambda m: (m[1] or "") + str(folder), f)
                if os.path.realpath(f.removeprefix("-I")) == own else f for f in self.flags]


class PortCompiler:
    """Compiles copies of the port's sources against a given folder of declarations.

    Headers of Qt and the standard library are precompiled once.
    """

    def __init__(self, build, scratch=None):
        """`scratch` is a folder for prepare()'s output."""
        entries = json.loads((build / "compile_commands.json").read_text())
        self.commands = {Path(e["file"]).name: Command(e) for e in entries
                         if Path(e["file"]).resolve().parent == port_folder
                         and e["file"].endswith(".mm")}
        if not self.commands:
            raise SystemExit(f"{build} compiles no source of the port")
        self._scratch = scratch
        self._ahead = {}

    def prepare(self, name):
        """Precompiles the library headers with this source's flags."""
        command = self.commands[name]
        key = tuple(command.flags)
        if key in self._ahead:
            return
        header = self._scratch / f"ahead{len(self._ahead)}.h"
        header.write_text("".join(f"#include <{n}>\n" for n in library_headers()))
        language = ["-x", "objective-c++-header"]
        made = header.with_suffix(".pch")
        status, said = run([*without_language(command.flags), *language, header, "-o", made],
                           command.folder)
        if status:
            raise SystemExit(f"selftest: cannot compile ahead:\n{said}")
        self._ahead[key] = made

    def check(self, source, name, declarations):
        """Compiler errors of a copy of the source `name`, or an empty string."""
        command = self.commands[name]
        ahead = ["-Xclang", "-include-pch", "-Xclang", self._ahead[tuple(command.flags)]]
        status, said = run([*command.with_declarations(declarations), *ahead, "-fsyntax-only",
                            source], command.folder)
        return said or "failed" if status else ""

    def make(self, source, name, made):
        """Compiles a copy of the source into the object file `made`; returns errors."""
        command = self.commands[name]
        status, said = run([*command.flags, "-o", made, "-c", source], command.folder)
        return said or "failed" if status else ""

    def tree(self, declarations):
        """(clang's AST dump of the declarations in a folder, errors)"""
        command = next(iter(self.commands.values()))
        result = subprocess.run(
            [*command.with_declarations(declarations), "-fsyntax-only", "-Xclang",
             "-ast-dump=json", str(here / "all.mm")],
            cwd=command.folder, capture_output=True, text=True)
        if result.returncode:
            return None, result.stderr
        return json.loads(result.stdout), ""


def without_language(flags):
    """The flags without -x options."""
    kept = list(flags)
    while "-x" in kept:
        del kept[kept.index("-x"):kept.index("-x") + 2]
    return kept


def library_headers():
    """Qt and standard library headers included by the port."""
    names = set()
    for path in [*port_folder.iterdir(), *port_folder.parent.glob("*.h")]:
        names |= set(re.findall(r"^#include <(Q\w+|[a-z_]+)>", path.read_text(), re.MULTILINE))
    return sorted(names)


class PortLinker:
    """Links the program with one of the port's objects replaced."""

    program = "bin/Quellora.app/Contents/MacOS/Quellora"

    def __init__(self, build, sdk, scratch):
        self._build = build
        self._sdk = sdk
        self._scratch = scratch
        status, said = run(["ninja", "-C", build, "-t", "commands", "-s", self.program])
        steps = said.strip().splitlines()[-1].split(" && ") if status == 0 else []
        self._command = next((s for s in steps if f"-o {self.program} " in s), None)
        if not self._command:
            raise SystemExit(f"selftest: {build} does not say how it links:\n{said}")

    def link(self, replaced, name):
        """Linker errors of the program with this object, or an empty string."""
        words = shlex.split(self._command)
        output = self._scratch / name
        words[words.index(self.program)] = str(output)
        for i, word in enumerate(words):
            if word.endswith(".a") and replaced.name in run(
                    ["llvm-ar-14", "t", self._build / word])[1].split():
                archive = self._scratch / f"{name}.a"
                shutil.copy(self._build / word, archive)
                run(["llvm-ar-14", "r", archive, replaced])
                words[i] = str(archive)
        status, said = run(words, self._build)
        # A by-product of tools/macos-check/link.
        (self._sdk / "stubs" / f"{name}.names.tbd").unlink(missing_ok=True)
        return said or "failed" if status else ""
