"""A headless web browser."""

import base64
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import threading

from . import processes
from .waiting import PATIENCE, wait_until

_FLAGS = ("--headless", "--disable-gpu", "--disable-quic", "--no-first-run",
          "--disable-background-networking", "--disable-component-update", "--disable-sync",
          "--remote-debugging-pipe")


class Browser:
    """Chromium with a private profile, controlled over its debugging pipe.

    All pages open in the same tab; clicks are real pointer events.
    """

    @staticmethod
    def program():
        """Path of the browser, or None if not installed."""
        return shutil.which("chromium")

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="browser-"))
        commands, self._commands = os.pipe()
        self._events, events = os.pipe()
        flags = list(_FLAGS) + [f"--user-data-dir={self.folder / 'profile'}"]
        if os.geteuid() == 0:
            flags.append("--no-sandbox")
        # Chromium expects the pipe at descriptors 3 and 4.
        self._process = processes.spawn(
            ["/bin/bash", "-c", f'exec "$@" 3<&{commands} 4>&{events}', "browser",
             self.program(), *flags, "about:blank"],
            env={"PATH": os.environ["PATH"], "HOME": str(self.folder),
                 "TMPDIR": str(self.folder), "LANG": "C.UTF-8"},
            pass_fds=(commands, events), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(commands)
        os.close(events)
        self._changed = threading.Condition()
        self._answers = {}
        #: URLs that the pages asked for, redirects and parts of pages included.
        self.requests = []
        self._ended = False
        self._number = 0
        self._session = None
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        target = wait_until(self._first_page, what="the browser's tab")
        self._session = self._call("Target.attachToTarget",
                                   {"targetId": target, "flatten": True})["sessionId"]
        self._call("Network.enable")

    def _first_page(self):
        for info in self._call("Target.getTargets")["targetInfos"]:
            if info["type"] == "page":
                return info["targetId"]
        return None

    def _read(self):
        pending = b""
        while True:
            part = os.read(self._events, 65536)
            if not part:
                break
            *messages, pending = (pending + part).split(b"\0")
            for raw in messages:
                message = json.loads(raw)
                if message.get("method") == "Network.requestWillBeSent":
                    self.requests.append(message["params"]["request"]["url"])
                if "id" in message:
                    with self._changed:
                        self._answers[message["id"]] = message
                        self._changed.notify_all()
        with self._changed:
            self._ended = True
            self._changed.notify_all()

    def _call(self, method, parameters=None):
        self._number += 1
        number = self._number
        message = {"id": number, "method": method, "params": parameters or {}}
        if self._session is not None:
            message["sessionId"] = self._session
        os.write(self._commands, json.dumps(message).encode() + b"\0")
        with self._changed:
            self._changed.wait_for(lambda: number in self._answers or self._ended, PATIENCE)
            answer = self._answers.pop(number, None)
        if method == "Runtime.evaluate" and "navigated" in str((answer or {}).get("error")):
            # The page has just been left; the next one is asked.
            return self._call(method, parameters)
        if answer is None or "result" not in answer:
            raise AssertionError(f"the browser did not do {method}: {answer}")
        return answer["result"]

    def evaluate(self, expression):
        """Value of a script expression in the page."""
        return self._call("Runtime.evaluate", {"expression": expression,
                                               "returnByValue": True})["result"].get("value")

    def visit(self, url):
        """Opens a URL and waits until the page is loaded."""
        self._call("Page.navigate", {"url": url})
        wait_until(lambda: self.evaluate("document.readyState") == "complete"
                   and self.url != "about:blank", what="the page")

    def show_at(self, width, height, scheme):
        """Lays the page out for a screen of that size, with the "light" or "dark" theme."""
        self._call("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "screenWidth": width, "screenHeight": height,
            "deviceScaleFactor": 1, "mobile": width < 600})
        self._call("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": scheme}]})

    @property
    def url(self):
        """URL of the current page."""
        return self.evaluate("location.href")

    @property
    def text(self):
        """Text of the page."""
        return self.evaluate("document.body ? document.body.innerText : ''")

    def wait_for_text(self, text):
        """Waits until the page contains a text."""
        wait_until(lambda: text in (self.text or ""),
                   what=f"{text!r} in the browser; it says {self.text!r}")

    def click_button(self, caption, last=False):
        """Clicks the middle of the button with this caption, the first or the last of equal ones."""
        self.click_text("button", caption, last)

    def click_text(self, selector, text, last=False):
        """Clicks the middle of the shown element that a selector finds and whose text this is."""
        self._click(f"element => element.innerText.trim() === {json.dumps(text)}", selector, last,
                    f"the {selector} {text!r}")

    def type_into(self, name, text, last=False):
        """Clicks a field and types a text into it."""
        self._click("() => true", f'input[name="{name}"]', last, f"the field {name!r}")
        self._call("Input.insertText", {"text": text})

    def _click(self, condition, selector, last, what):
        place = wait_until(lambda: self.evaluate(
            # Before the style sheet has arrived, everything is somewhere else.
            "(() => { if (document.readyState !== 'complete') return null;"
            f" const found = [...document.querySelectorAll({json.dumps(selector)})]"
            f".filter(element => element.checkVisibility()).filter({condition});"
            f" const element = found.at({-1 if last else 0}); if (!element) return null;"
            " element.scrollIntoView({block: 'center', behavior: 'instant'});"
            " const box = element.getBoundingClientRect();"
            " return [box.x + box.width / 2, box.y + box.height / 2]; })()"),
            what=what)
        # A page accepts no input before its first paint.
        self._call("Runtime.evaluate", {"awaitPromise": True, "expression":
                                        "new Promise(done => requestAnimationFrame(() =>"
                                        " requestAnimationFrame(() => done())))"})
        for kind in ("mousePressed", "mouseReleased"):
            self._call("Input.dispatchMouseEvent",
                       {"type": kind, "x": place[0], "y": place[1], "button": "left",
                        "clickCount": 1})

    def fill_in(self, name, value):
        """Fills in a field of the page's last form."""
        self.evaluate(f"document.forms[document.forms.length - 1].elements[{json.dumps(name)}]"
                      f".value = {json.dumps(value)}")

    def screenshot(self, path, whole=False):
        """Saves a picture of what is in view, or of the whole page."""
        picture = self._call("Page.captureScreenshot", {
            "format": "png", "captureBeyondViewport": whole})["data"]
        pathlib.Path(path).write_bytes(base64.b64decode(picture))

    def close(self):
        """Ends the browser and removes its profile."""
        processes.stop(self._process)
        os.close(self._commands)
        self._reader.join(PATIENCE)
        os.close(self._events)
        shutil.rmtree(self.folder, ignore_errors=True)
