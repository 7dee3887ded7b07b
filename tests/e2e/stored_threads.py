"""Base case with threads stored before the program starts."""

import json
import re
import uuid

from harness import App, E2ECase


def turn(prompt, response, stamp):
    return {"id": str(uuid.uuid4()).upper(), "prompt": prompt, "response": response,
            "createdAt": stamp}


def note(text, stamp):
    return {"id": str(uuid.uuid4()).upper(), "text": text, "createdAt": stamp}


class StoredThreadsCase(E2ECase):
    def app_with_threads(self, *threads, defaults=None):
        """A signed-in app with stored threads (prompt, response, time)."""
        server, app = self.app_to_start(defaults)
        self.ids = [self.store(prompt, response, stamp) for prompt, response, stamp in threads]
        app.start().sign_in()
        return server, app

    def app_to_start(self, defaults=None):
        """An app that is not started, with an empty thread folder."""
        server = self.server()
        app = App(self.desktop, server.url, **({"defaults": defaults} if defaults else {}))
        self.apps.append(app)
        self.addCleanup(app.close)
        self.addCleanup(self._keep_evidence)
        self.root = app.data_home / "Quellora" / "sessions"
        self.root.mkdir(parents=True)
        return server, app

    def store(self, prompt, response, stamp, notes=(), pictures=()):
        """Stores a thread with one turn, notes and pictures; returns its folder's name."""
        name = str(uuid.uuid4()).upper()
        folder = self.root / name
        folder.mkdir()
        for index, picture in enumerate(pictures):
            (folder / f"screenshot-{index}.png").write_bytes(picture)
        (folder / "session.json").write_text(json.dumps({
            "id": name, "createdAt": stamp, "updatedAt": stamp,
            "notes": [note(text, stamp) for text in notes],
            "screenshots": [{"index": index, "capturedAt": stamp}
                            for index in range(len(pictures))],
            "turns": [turn(prompt, response, stamp)]}))
        return name

    def description(self, name):
        return json.loads((self.root / name / "session.json").read_text())

    def open_history(self, app):
        mark = app.mark()
        app.access.press("Menu")
        app.access.press("History")
        opened = re.compile(r"^\[OverlayWindowController\] History button clicked "
                            r"— sidebar open=true, (\d+) session\(s\)$")
        app.wait_for_line(opened, since=mark)
        app.access.wait_for("Search threads")
        return [int(match[1]) for match in map(opened.match, app.lines_since(mark)) if match][0]
