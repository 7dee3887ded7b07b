#!/usr/bin/env python3
"""Checks the hand-written declarations of the system's API against two published descriptions of it;
README.md names their sources.

usage: verify_declarations.py --ast FILE --headers DIR --api DIR --pascal DIR [--stubs OUT]

--ast      clang's JSON AST dump of a file that includes every header, with -DSDK_STRICT
--headers  the declarations (sdk/include)
--api      description A: the types folder of @nativescript/macos-node-api
--pascal   description B: the packages folder of Free Pascal's sources
--stubs    also write a linker stub of every framework, with the names of description A

Prints a line for every error and note, then the totals. Exit status 1 if there is any error.
"""
import argparse
import json
import sys
from pathlib import Path

from declarations import headers, stub_files
from declarations.clang_ast import Reader
from declarations.compare import Comparison
from declarations.pascal import Pascal
from declarations.typescript import TypeScript


def read_descriptions(folder, api_folder, pascal_folder):
    """Reads both descriptions, for the frameworks that have headers in `folder`."""
    api, pascal_sources = TypeScript(), Pascal()
    api.read_folder(api_folder, headers.frameworks(folder))
    pascal_sources.read_folder(pascal_folder)
    return api, pascal_sources


def verify(tree, folder, api, pascal_sources):
    """Checks the declarations in a folder; returns (errors, notes, number confirmed)."""
    reader = Reader(tree, folder)
    verdicts = Comparison(api, pascal_sources).check_all(reader.declarations)
    errors = [str(v) for v in verdicts if v.outcome == "error"]
    errors += headers.unseen(folder, reader.declarations)
    errors += headers.unchecked_macros(folder)
    if not len(verdicts) == len(reader.declarations) == reader.counted:
        errors.append(f"error: of {reader.counted} declarations {len(verdicts)} were looked at")
    notes = [str(v) for v in verdicts if v.outcome == "note"]
    confirmed = sum(v.outcome == "confirmed" for v in verdicts)
    return errors, notes, confirmed


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1].split("\n")[0])
    for name in ("--ast", "--headers", "--api", "--pascal"):
        parser.add_argument(name, type=Path, required=True)
    parser.add_argument("--stubs", type=Path)
    arguments = parser.parse_args()

    api, pascal_sources = read_descriptions(arguments.headers, arguments.api, arguments.pascal)
    tree = json.loads(arguments.ast.read_text())
    errors, notes, confirmed = verify(tree, arguments.headers, api, pascal_sources)
    print(*notes, *errors, sep="\n")
    print(f"{confirmed} declarations confirmed, {len(notes)} notes, {len(errors)} errors")
    if arguments.stubs:
        stub_files.write(arguments.stubs, api)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
