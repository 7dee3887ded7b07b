#!/usr/bin/env python3
"""Writes clang's AST of our declarations of the system's API, as JSON.

usage: dump_declarations.py BUILD >FILE

BUILD   the configured build for macOS, which provides the flags
"""
import json
import sys
from pathlib import Path

from port_compiler import PortCompiler, declarations_folder

tree, said = PortCompiler(Path(sys.argv[1]).resolve()).tree(declarations_folder)
if tree is None:
    sys.exit(f"the declarations do not compile:\n{said}")
json.dump(tree, sys.stdout)
