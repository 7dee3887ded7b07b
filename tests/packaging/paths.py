"""Paths of the files under test."""

import os
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("QUELLORA_BUILD_DIR", ROOT / "build" / "release"))
VERSION = os.environ.get("QUELLORA_VERSION", "")
MACOS = ROOT / "packaging" / "macos"
LINUX = ROOT / "packaging" / "linux"
