"""Many captures and answers, threads, sign-ins, display changes, killed page processes and backend
restarts, after which nothing may have grown. scripts/soak runs it at full length."""

import collections
import json
import os
import pathlib
import re
import signal
import statistics
import time
import unittest

from harness import processes, wait_until
from harness.backend import Backend
from harness.messages import PREFIX, RUNNING, STREAM_COMPLETE
from harness.model import ModelServer
from harness.tray import TrayHost
from screens_case import ScreensCase

#: How often each thing happens in a whole run.
WHOLE = {"captures and answers": 5000, "threads opened": 500, "sign-ins": 200,
         "display changes": 100, "page processes killed": 50, "backend restarts": 50}
#: The part of it that is run.
SCALE = float(os.environ.get("QUELLORA_SOAK_SCALE", "0.02"))
#: Longest growth of memory, in percent, from a fifth of the run to its end. A short run still fills
#: caches.
GROWTH = float(os.environ.get("QUELLORA_SOAK_GROWTH", "5" if SCALE >= 0.2 else "25"))
#: What the sanitizers add is no measure.
JUDGES_MEMORY = not os.environ.get("QUELLORA_SOAK_SANITIZED")
#: A file for the figures.
FIGURES = os.environ.get("QUELLORA_SOAK_FIGURES")
#: Idle threads of a pool end after half a minute.
SETTLED = 60
#: Shorter runs measure in each round.
MANY = 80
#: A hot key is ignored for this time after it was pressed.
DEBOUNCE = 0.31

EXPIRED = "[AppDelegate] sessionExpired received — tearing down overlay, showing login window"
LOADED = re.compile(r"^\[OverlayWindowController\] Session \S+ loaded from History ")
ENDED = re.compile("The page's process ended")
MODES = ((1280, 720), (1366, 768))
PANEL_HEIGHT = 744


def page_engine(app):
    """The processes of the page engine."""
    return [pid for pid, name in processes.descendants(app.process.pid).items()
            if name == "QtWebEngineProc"]


class Held:
    """Memory of processes in KiB, the proportional set size: what they have themselves, and with what
    is mapped of files, which comes and goes as the system needs its memory."""

    def __init__(self, pids):
        self.memory = self.resident = 0
        for pid in pids:
            try:
                text = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text(encoding="ascii")
            except (FileNotFoundError, ProcessLookupError):
                continue
            sizes = {kind: int(size) for kind, size in re.findall(r"^(\w+):\s+(\d+)", text, re.M)}
            self.memory += sizes["Pss_Anon"] + sizes["Pss_Shmem"]
            self.resident += sizes["Pss"]


class Sample:
    """What the programs hold at one moment; of the page engine's memory, which rises with each page
    and falls with each new process, the mean of what it held after each answer before."""

    def __init__(self, desktop, app, backend, engine_after_answers):
        engine = page_engine(app)
        held = {"program": [Held([app.process.pid])],
                "page engine": engine_after_answers or [Held(engine)],
                "backend": [Held([backend.pid])]}
        self.memory = {name: statistics.fmean(each.memory for each in some)
                       for name, some in held.items()}
        self.resident = {name: statistics.fmean(each.resident for each in some)
                         for name, some in held.items()}
        self.counts = {
            "descriptors": self._descriptors(app.process.pid),
            "threads": self._threads(app.process.pid),
            "processes of the page engine": collections.Counter({"process": len(engine)}),
            "windows": collections.Counter(self._windows(desktop, desktop.root)),
            "temporary files": self._names(app.temporary),
            "files of the backend": self._names(backend.folder),
            "descriptors of the backend": self._descriptors(backend.pid),
            "threads of the backend": self._threads(backend.pid),
        }

    @staticmethod
    def _names(folder):
        return collections.Counter(str(path.relative_to(folder)) for path in folder.rglob("*"))

    @staticmethod
    def _descriptors(pid):
        found = collections.Counter()
        for entry in pathlib.Path(f"/proc/{pid}/fd").iterdir():
            try:
                found[re.sub(r"^(/dev/shm/)\S*", r"\1", os.readlink(entry).split(":")[0])] += 1
            except FileNotFoundError:
                continue
        return found

    @staticmethod
    def _threads(pid):
        found = collections.Counter()
        for entry in pathlib.Path(f"/proc/{pid}/task").iterdir():
            try:
                found[(entry / "comm").read_text(encoding="utf-8").strip()] += 1
            except (FileNotFoundError, ProcessLookupError):
                continue
        return found

    def _windows(self, desktop, window):
        """The classes of all windows of the X server, in any state."""
        yield " ".join(window.get_wm_class() or ["window"])
        for child in window.query_tree().children:
            yield from self._windows(desktop, child)

    def more_than(self, others):
        """What there is more of than in any of the other samples, by kind and name."""
        found = {}
        for kind, names in self.counts.items():
            most = collections.Counter()
            for other in others:
                most |= other.counts[kind]
            if more := names - most:
                found[kind] = dict(more)
        return found


class SoakTest(ScreensCase):
    desktop_options = {"width": 1366, "height": 768}

    def setUp(self):
        self.desktop.fill_root((90, 120, 160))
        self.tray = TrayHost(self.desktop)
        self.addCleanup(self.tray.close)
        self.models = ModelServer()
        self.addCleanup(self.models.close)
        self.backend = Backend(self.desktop.environment, offline=False, config=f"""
[limits]
queries_per_minute = 100000
auth_requests_per_minute = 1000000
[openai]
base_url = "{self.models.url}"
model = "seeing-1"
""")
        self.addCleanup(self.backend.close)
        self.account = self.backend.ensure_account()
        self.backend.start()
        self.done = collections.Counter()
        self.asked = 0
        self.pressed = 0
        #: Of the page engine, after each answer since the last sample.
        self.engine = []
        self.quellora = self.app(self.backend, defaults={
            "hasLaunchedBefore": True, "keepAIHistoryEnabled": True, "userPrompt": "What is this?"})
        self.quellora.wait_login_window()

    def sign_in(self):
        app = self.quellora
        mark = app.mark()
        app.fill_login(*self.account)
        self.desktop.press("return")
        app.wait_for_line(RUNNING, since=mark)
        app.wait_overlay_shown()
        self.tray.wait_item()

    def sign_out_and_in(self):
        mark = self.quellora.mark()
        self.tray.choose("Sign Out")
        self.quellora.wait_for_line(EXPIRED, since=mark)
        self.tray.wait_empty()
        self.desktop.wait_for_active("Quellora")
        self.quellora.access.wait_for("Email", focused=True)
        self.sign_in()

    def capture(self):
        app, mark = self.quellora, self.quellora.mark()
        # Two presses in quick succession count as one.
        wait_until(lambda: time.monotonic() > self.pressed + DEBOUNCE, interval=0.01)
        self.pressed = time.monotonic()
        app.hotkey("ctrl+alt+super+c", "Capture")
        app.wait_for_line(STREAM_COMPLETE, since=mark)
        # Of the answer's page. While it loads, no process shows it yet.
        app.wait_for_line(PREFIX + "WebView finished loading")
        self.engine.append(Held(page_engine(app)))

    def open_a_thread(self):
        """Opens another thread than the current one from the sidebar, then begins a new one."""
        app, mark = self.quellora, self.quellora.mark()
        app.access.press("Menu")
        app.access.press("History")
        app.access.wait_for("Search threads", focused=True)
        # Keys have nowhere to go while the list is read.
        app.access.wait_for(re.compile(", "), "list item")
        for key in ("down", "down", "return"):
            self.desktop.press(key)
        app.wait_for_line(LOADED, since=mark)
        app.access.press("New thread")
        app.wait_for_line(PREFIX + "New thread started", since=mark)

    def change_display(self):
        width, height = MODES[self.done["display changes"] % 2]
        self.use_mode(width, height)
        wait_until(lambda: self.quellora.panel() and
                   self.quellora.panel()[4] == min(height, PANEL_HEIGHT),
                   what="the panel as high as the screen allows")

    def kill_page_process(self):
        app, mark = self.quellora, self.quellora.mark()
        for pid, name in processes.descendants(app.process.pid).items():
            command = pathlib.Path(f"/proc/{pid}/cmdline").read_bytes()
            if name == "QtWebEngineProc" and b"--type=renderer" in command:
                os.kill(pid, signal.SIGKILL)
        app.wait_for_line(ENDED, since=mark)
        app.access.wait_for_page_text("It is red.")

    def restart_backend(self):
        self.assertEqual(self.backend.stop(), 0, self.backend.lines[-20:])
        self.backend.start()

    def sample(self):
        found = Sample(self.desktop, self.quellora, self.backend, self.engine)
        self.engine.clear()
        return found

    def work(self):
        """Everything in turn, evenly; returns what was held each time that a page process was about
        to be killed."""
        rounds = max(8, round(WHOLE["threads opened"] * SCALE))
        samples = []
        for number in range(rounds):
            def is_due(what):
                each = WHOLE[what] / WHOLE["threads opened"]
                return int((number + 1) * each) - int(number * each)
            for what, step in (
                    ("captures and answers", self.capture), ("threads opened", self.open_a_thread),
                    ("sign-ins", self.sign_out_and_in), ("display changes", self.change_display)):
                for _ in range(is_due(what)):
                    step()
                    self.done[what] += 1
            if is_due("page processes killed") or rounds < MANY:
                self.capture()
                self.done["captures and answers"] += 1
                self.asked += len(self.models.questions)
                self.models.questions.clear()
                self.assertEqual(self.asked, self.done["captures and answers"])
                samples.append(self.sample())
                self.kill_page_process()
                self.done["page processes killed"] += 1
                self.restart_backend()
                self.done["backend restarts"] += 1
        return samples

    @staticmethod
    def growth(early, samples, kind):
        """By name: KiB before, KiB at the end, and percent."""
        found = {}
        for name in getattr(early[0], kind):
            before, after = (statistics.median(getattr(sample, kind)[name] for sample in some)
                             for some in (early, samples[-3:]))
            found[name] = (before, after, 100 * (after - before) / before)
        return found

    def test_nothing_grows(self):
        self.sign_in()
        begin = time.monotonic()
        samples = self.work()
        seconds = round(time.monotonic() - begin)
        fifth = len(samples) // 5
        early = samples[fifth:fifth + 3]

        def late():
            return self.sample().more_than(early)
        try:
            wait_until(lambda: not late(), SETTLED)
        except AssertionError:
            self.assertEqual(late(), {}, "there is more than after a fifth of the work")

        memory, resident = self.growth(early, samples, "memory"), self.growth(early, samples, "resident")
        wait_until(lambda: len(self.quellora.turns()) == self.asked, what="all answers on disk")
        self.assertEqual(self.backend.stop(), 0, self.backend.lines[-20:])
        self.tray.choose("Quit")
        self.assertEqual(self.quellora.wait_exit(), 0, self.quellora.describe("ended"))
        if FIGURES:
            pathlib.Path(FIGURES).write_text(json.dumps({
                "done": self.done, "seconds": seconds, "memory": memory, "resident": resident,
                "samples": [sample.memory for sample in samples],
                "counts": {kind: names.total() for kind, names in early[0].counts.items()}}))
        if JUDGES_MEMORY:
            for found in (memory, resident):
                for name, (before, after, growth) in found.items():
                    self.assertLessEqual(growth, GROWTH, f"{name}: {before} KiB, then {after} KiB")


if __name__ == "__main__":
    unittest.main()
