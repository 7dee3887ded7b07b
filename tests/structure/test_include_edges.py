"""Allowed includes between the folders of src: dependencies go in one direction only."""

import pathlib
import re
import unittest

SRC = pathlib.Path(__file__).resolve().parents[2] / "src"

# Each folder with the folders it may include from; only folders listed before it.
ALLOWED = {
    "base": [],
    "platform": ["base"],
    "backend": ["base", "platform"],
    "hotkeys": ["base", "platform", "backend"],
    "history": ["base", "platform"],
    "query": ["base", "platform", "backend", "history"],
    "picker": ["base", "platform", "query"],
    "page": ["base", "platform", "backend", "history", "query"],
    "export": ["base", "history", "page"],
    "ui": ["base", "platform"],
    "panels": ["base", "backend", "query"],
    "sheets": ["base", "platform", "backend", "hotkeys", "history", "panels"],
    "login": ["base", "platform", "backend", "ui"],
    "overlay": ["base", "platform", "backend", "hotkeys", "history", "query", "page", "export",
                "ui", "panels", "sheets"],
    "app": ["base", "platform", "backend", "hotkeys", "history", "query", "picker", "page",
            "export", "ui",
            "login", "overlay"],
}
# Folders with views; the others are tested without a screen.
WITH_VIEWS = {"page", "export", "ui", "panels", "sheets", "login", "overlay", "app"}
VIEW_HEADER = re.compile(r"#include <(QQml|QQuick|QtQml|QtQuick|QWebEngine|QtWebEngine|QWebChannel)")
INCLUDE = re.compile(r'^#(?:include|import) "([^"]+)"', re.MULTILINE)
OF_ONE_SYSTEM = re.compile(r"^\s*#\s*(?:if|elif).*(?:Q_OS_|__APPLE__|__linux__|_WIN32)",
                           re.MULTILINE)


def sources():
    for path in sorted(SRC.rglob("*")):
        if path.suffix in (".cpp", ".h", ".mm"):
            yield path, path.relative_to(SRC).parts[0], path.read_text(encoding="utf-8")


class IncludeEdgesTest(unittest.TestCase):
    def test_list_points_downwards_only(self):
        known = []
        for folder, below in ALLOWED.items():
            for other in below:
                self.assertIn(other, known, f"{folder} may not depend on {other}: it is listed later")
            known.append(folder)

    def test_every_folder_is_listed(self):
        folders = {path.name for path in SRC.iterdir() if path.is_dir()}
        self.assertEqual(folders, set(ALLOWED))

    def test_files_include_allowed_folders_only(self):
        used = set()
        wrong = []
        for path, folder, text in sources():
            for included in INCLUDE.findall(text):
                other = included.split("/")[0]
                if other == folder or other not in ALLOWED:
                    continue
                used.add((folder, other))
                if other not in ALLOWED[folder]:
                    wrong.append(f"{path.relative_to(SRC)} includes {included}")
        self.assertEqual(wrong, [])
        unused = {(folder, other) for folder, below in ALLOWED.items() for other in below} - used
        self.assertEqual(unused, set(), "listed, but unused")

    def test_only_folders_with_views_include_view_headers(self):
        wrong = [str(path.relative_to(SRC)) for path, folder, text in sources()
                 if folder not in WITH_VIEWS and VIEW_HEADER.search(text)]
        self.assertEqual(wrong, [])

    def test_only_the_platform_folder_checks_the_system(self):
        wrong = [str(path.relative_to(SRC)) for path, folder, text in sources()
                 if folder != "platform" and OF_ONE_SYSTEM.search(text)]
        self.assertEqual(wrong, [])


if __name__ == "__main__":
    unittest.main()
