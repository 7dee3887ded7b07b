#!/usr/bin/env python3
"""Injects known mistakes into copies of the macOS port and of the declarations it is compiled
against, and verifies that each is caught by the expected stage: compiler, check of the declarations
or linker. Known undetectable mistakes must pass, so that the documented limits stay accurate.

usage: selftest.py --build DIR --sdk DIR --pascal DIR

--build    the build for macOS
--sdk      the folder filled by fetch-headers
--pascal   the packages folder of Free Pascal's sources

planted.py lists the mistakes. A mistake whose text is no longer in its file is an error, as is one
that an earlier stage catches. Exit status 1 if there is any error.
"""
import argparse
import os
import shutil
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from planted import COMPILE, DECLARATIONS, LINK, MISTAKES, NOWHERE
from port_compiler import PortCompiler, PortLinker, declarations_folder, port_folder
from verify_declarations import read_descriptions, verify


class SelfTest:
    """Runs all mistakes through the stages."""

    def __init__(self, arguments, scratch):
        self._scratch = scratch
        self._compiler = PortCompiler(arguments.build, scratch)
        self._linker = PortLinker(arguments.build, arguments.sdk, scratch)
        self._descriptions = read_descriptions(
            declarations_folder, arguments.sdk / "api/types", arguments.pascal)

    def run(self):
        """Returns error messages; prints the successes."""
        for name in self._compiler.commands:
            self._compiler.prepare(name)
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            results = [pool.submit(self._control, name) for name in self._compiler.commands]
            results += [pool.submit(self._control_of_all)]
            results += [pool.submit(self._try, number, m) for number, m in enumerate(MISTAKES)]
            return [r.result() for r in results if r.result()]

    def _control(self, name):
        """Error message if an unchanged source does not compile, else empty."""
        said = self._compiler.check(port_folder / name, name, declarations_folder)
        return said and f"{name} does not compile without a mistake:\n{said}"

    def _control_of_all(self):
        """Error message if the unchanged declarations or program fail a stage, else empty."""
        _, said = self._declaration_errors(declarations_folder)
        if said:
            return f"errors in the declarations without a mistake:\n{said}"
        name = next(c[0] for m in MISTAKES if m.caught_by == LINK for c in m.changes)
        said = self._link(port_folder / name, name, "control")
        return said and f"does not link without a mistake:\n{said}"

    def _try(self, number, mistake):
        """Error message if a mistake is not caught as expected, else None."""
        folder = self._scratch / str(number)
        try:
            sources, declarations = plant(mistake, folder)
        except LookupError as missing:
            return f"{mistake.name}: not planted: {missing}"
        caught_by, said = self._stage(mistake, folder, sources, declarations)
        if caught_by != mistake.caught_by:
            return (f"{mistake.name}: to be caught by {mistake.caught_by},"
                    f" was by {caught_by}\n{said}".rstrip())
        if mistake.says not in said:
            return f"{mistake.name}: caught by {caught_by}, but for another reason:\n{said}"
        print(f"caught by {caught_by}: {mistake.name}"
              if caught_by != NOWHERE else f"known to pass: {mistake.name}")
        return None

    def _stage(self, mistake, folder, sources, declarations):
        """(first stage that catches the mistake, its output)"""
        for name, source in sources.items():
            said = self._compiler.check(source, name, declarations)
            if said:
                return COMPILE, said
        if declarations != declarations_folder:
            stage, said = self._declaration_errors(declarations)
            if said:
                return stage, said
        # Only if expected to matter: linking takes seconds.
        if mistake.caught_by == LINK:
            for name, source in sources.items():
                said = self._link(source, name, folder.name)
                if said:
                    return LINK, said
        return NOWHERE, ""

    def _declaration_errors(self, declarations):
        tree, said = self._compiler.tree(declarations)
        if said:
            return COMPILE, said
        return DECLARATIONS, "\n".join(verify(tree, declarations, *self._descriptions)[0])

    def _link(self, source, name, output):
        folder = self._scratch / f"{output}-objects"
        folder.mkdir()
        made = folder / self._compiler.commands[name].object.name
        return self._compiler.make(source, name, made) or self._linker.link(made, output)


def plant(mistake, folder):
    """Applies a mistake to copies of its files; returns ({source name: copy}, declarations)."""
    sources, declarations = {}, declarations_folder
    for file, text, replacement in mistake.changes:
        if "/" in file:
            if declarations == declarations_folder:
                declarations = folder / "include"
                shutil.copytree(declarations_folder, declarations)
            path = declarations / file
        else:
            path = folder / file
            if file not in sources:
                folder.mkdir(exist_ok=True)
                shutil.copy(port_folder / file, path)
                sources[file] = path
        before = path.read_text()
        if text not in before:
            raise LookupError(f"{file} has no {text!r}")
        path.write_text(before.replace(text, replacement))
    return sources, declarations


def main():
    parser = argparse.ArgumentParser()
    for name in ("--build", "--sdk", "--pascal"):
        parser.add_argument(name, type=Path, required=True)
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="macos-check-") as scratch:
        errors = SelfTest(arguments, Path(scratch)).run()
    for error in errors:
        print("ERROR", error)
    print(f"{len(MISTAKES)} mistakes planted, {len(errors)} errors")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
