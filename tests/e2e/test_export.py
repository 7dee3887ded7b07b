"""Exporting and copying threads: from the panel with real keys, and `quellora export`."""

import http.server
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import threading
import unittest

from Xlib import X, Xatom

from harness import processes, wait_until
from harness.app import BIN_DIR
from harness.messages import PREFIX
from stored_threads import StoredThreadsCase

STAMP = "2026-01-03T10:00:00Z"
PICTURE = bytes.fromhex(
    "89504e470d0a1a0a0000000d49484452000000010000000108020000009077"
    "53de0000000c4944415408d763f8cfc0000003010100c9fe92ef0000000049454e44ae426082")
ANSWER = "It is **red**, $x^2$.\n\n```cpp\nint x = 1;\n```\n\n| a | b |\n|---|---|\n| 1 | 2 |\n"


class Canary:
    """A web server that counts who asks."""

    def __init__(self):
        asked = self.asked = []

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):  # pylint: disable=invalid-name
                asked.append(self.path)
                self.send_response(404)
                self.end_headers()

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.address = f"http://127.0.0.1:{self.server.server_address[1]}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def close(self):
        self.server.shutdown()
        self.server.server_close()


def hostile(address):
    """An answer that tries to reach an address in every way that a page has."""
    return f"""before

![p]({address}/1.png) <img src="{address}/2.png" srcset="{address}/3.png 2x">

<script src="{address}/4.js"></script><script>new Image().src="{address}/5"</script>
<style>@import "{address}/6.css"; body{{background:url({address}/7.png)}}</style>
<link rel=stylesheet href="{address}/8.css"><link rel=preload as=image href="{address}/9.png">
<iframe src="{address}/10"></iframe><object data="{address}/11"></object><embed src="{address}/12">
<video src="{address}/13" poster="{address}/14"></video><audio src="{address}/15" autoplay></audio>
<svg><image href="{address}/16"/></svg><table background="{address}/17"><tr><td>x</table>
<p style="background:url({address}/18)">x</p><img src=x onerror="fetch('{address}/19')">
<meta http-equiv=refresh content="0;url={address}/20"><base href="{address}/">
<input type=image src="{address}/21"><form action="{address}/22"></form>

$\\href{{{address}/23}}{{x}} \\htmlStyle{{background:url({address}/24)}}{{y}}$
"""


class CommandTest(StoredThreadsCase):
    """`quellora export`, without a display and without a running program."""

    def setUp(self):
        super().setUp()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="export-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.root = self.folder / "data" / "Quellora" / "sessions"
        self.root.mkdir(parents=True)

    def export(self, *arguments):
        """Runs the command; returns (exit status, output, error output)."""
        environment = {name: value for name, value in self.desktop.environment.items()
                       if name not in ("DISPLAY", "WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS")}
        environment |= {"HOME": str(self.folder), "XDG_DATA_HOME": str(self.folder / "data"),
                        "TZ": "UTC", "LC_ALL": "de_DE.UTF-8"}
        child = processes.spawn([str(pathlib.Path(BIN_DIR) / "quellora"), "export", *arguments],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment,
                                cwd=self.folder)
        self.addCleanup(processes.stop, child)
        output, errors = child.communicate(timeout=120)
        return child.returncode, output.decode(), errors.decode()

    def test_all_formats(self):
        name = self.store("Why is it red?", ANSWER, STAMP, notes=["A note"], pictures=[PICTURE])
        self.assertEqual(self.export("--list"),
                         (0, f"{name}\t2026-01-03 10:00\tWhy is it red?\n", ""))
        for arguments in ((name, "--format", "md", "a.md"),
                          (name.lower(), "--format=html", "a.html"), ("latest", "a.pdf")):
            self.assertEqual(self.export(*arguments), (0, "", ""))
        markdown = (self.folder / "a.md").read_text()
        self.assertIn("![Screenshot 1](a-pictures/screenshot-1.png)", markdown)
        self.assertIn("int x = 1;", markdown)
        self.assertEqual((self.folder / "a-pictures" / "screenshot-1.png").read_bytes(), PICTURE)
        page = (self.folder / "a.html").read_text()
        for part in ("<title>Why is it red?</title>", "data:image/png;base64,", "hljs-type",
                     "class=\"katex\"", "<td>2</td>", "A note"):
            self.assertIn(part, page)
        document = (self.folder / "a.pdf").read_bytes()
        self.assertTrue(document.startswith(b"%PDF-1."))
        box = re.search(rb"/MediaBox \[0 0 ([\d.]+) ([\d.]+)\]", document)
        self.assertEqual([round(float(size) / 10) for size in box.groups()], [59, 84], "A4")
        self.assertEqual({path.stat().st_mode & 0o777 for path in self.folder.glob("a.*")},
                         {0o600})

    def test_exit_statuses(self):
        name = self.store("Question", "Answer", STAMP)
        target = self.folder / "x.md"
        target.write_text("mine")
        missing = "11111111-2222-4333-8444-555555555555"
        for arguments, status, line in (
                ((name, "x.md"), 5, '"x.md" is there already; --force replaces it'),
                ((missing, "y.md"), 4, f"no thread {missing} is stored"),
                ((name, "none/y.pdf"), 6, f'"y.pdf" can\'t be written: the folder '
                                          f'"{self.folder}/none" is not there'),
                ((name, "."), 2, "export needs --format md, html or pdf; see quellora --help"),
                ((name, "--format", "md", "."), 6,
                 f"\"{self.folder.name}\" can't be written: it is a folder"),
                ((name, "--format", "doc", "y.md"), 2,
                 "unknown format 'doc'; see quellora --help"),
                (("x", "y.md"), 2, "'x' is no ID of a thread; see quellora --help")):
            self.assertEqual(self.export(*arguments), (status, "", f"quellora: {line}\n"),
                             arguments)
        self.assertEqual(target.read_text(), "mine")
        self.assertEqual(self.export(name, "--force", "x.md"), (0, "", ""))
        self.assertTrue(target.read_text().startswith("# Question\n"))
        (self.root / name / "session.json").write_text("{")
        status, output, errors = self.export(name, "z.md")
        self.assertEqual((status, output), (1, ""))
        self.assertRegex(errors, r"\Aquellora: the thread can't be read: .+\n\Z")
        self.assertFalse((self.folder / "z.md").exists())

    def test_full_disk(self):
        if os.geteuid() != 0:
            self.skipTest("needs root to mount a small disk")
        disk = self.folder / "disk"
        disk.mkdir()
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", str(disk)],
                          check=False, stderr=subprocess.DEVNULL).returncode:
            self.skipTest("may not mount a small disk")
        self.addCleanup(subprocess.run, ["umount", str(disk)], check=True)
        name = self.store("Question", ANSWER, STAMP)
        self.assertEqual(self.export(name, "disk/x.html"),
                         (6, "", 'quellora: "x.html" can\'t be written: '
                                 "No space left on device\n"))
        self.assertEqual(list(disk.iterdir()), [])

    @unittest.skipUnless(shutil.which("chromium"), "needs the Debian package chromium")
    def test_web_page_asks_nobody(self):
        canary = Canary()
        self.addCleanup(canary.close)
        name = self.store("Question", hostile(canary.address), STAMP, pictures=[PICTURE])
        self.assertEqual(self.export(name, "x.html"), (0, "", ""))
        page = (self.folder / "x.html").read_text()
        self.assertNotIn("<script", page)
        self.assertIn("before", page)

        def open_in_browser(path):
            subprocess.run(["chromium", "--headless", "--no-sandbox", "--disable-gpu",
                            f"--user-data-dir={self.folder / 'profile'}",
                            "--virtual-time-budget=4000", "--dump-dom", path.as_uri()],
                           check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                           timeout=120, env=self.desktop.environment | {"HOME": str(self.folder)})

        open_in_browser(self.folder / "x.html")
        self.assertEqual(canary.asked, [])
        # The same answer without the program's care reaches the canary.
        control = self.folder / "control.html"
        control.write_text("<!DOCTYPE html>" + hostile(canary.address))
        open_in_browser(control)
        self.assertGreater(len(canary.asked), 5)
        # And the policy alone, without the sanitizer, holds the answer back.
        canary.asked.clear()
        control.write_text(page.replace("before", "before" + hostile(canary.address).replace(
            "<meta http-equiv=refresh", "<meta name=nothing")))
        open_in_browser(control)
        self.assertEqual(canary.asked, [])


class PanelTest(StoredThreadsCase):
    def clipboard(self, target):
        """What another program gets from the clipboard in this form."""
        connection = self.desktop.connection
        window = self.desktop.root.create_window(0, 0, 1, 1, 0, X.CopyFromParent)
        place = connection.intern_atom("QUELLORA_TEST")
        window.convert_selection(connection.intern_atom("CLIPBOARD"),
                                 connection.intern_atom(target), place, X.CurrentTime)

        def answered():
            found = window.get_full_property(place, X.AnyPropertyType)
            return found if found and found.property_type != Xatom.ATOM else None

        found = wait_until(answered, what=f"the clipboard as {target}")
        window.destroy()
        return found.value.decode() if isinstance(found.value, bytes) else found.value

    def choose_file(self, title, path):
        """Answers the file dialog with real keys."""
        self.desktop.wait_for_active(title)
        self.desktop.press("ctrl+a")
        self.desktop.type_text(f"{path}\n")

    def test_history_row_exports_with_keys(self):
        _, app = self.app_with_threads(("Why is it red?", ANSWER, STAMP))
        self.open_history(app)
        app.access.wait_for("Search threads", focused=True)
        self.desktop.press("down")
        app.access.wait_for(re.compile("^Why is it red?"), focused=True)
        self.desktop.press("tab")
        app.access.wait_for("Export or copy thread", focused=True)
        self.desktop.press("return")
        app.access.wait_for("Export as Markdown…", focused=True)
        self.desktop.press("escape")
        app.access.wait_gone("Export as Markdown…")
        app.access.press("Export or copy thread")
        app.access.wait_for("Export as Markdown…", focused=True)
        self.desktop.press("down")
        self.desktop.press("down")
        app.access.wait_for("Export as PDF…", focused=True)
        self.desktop.press("return")
        target = app.home / "red.pdf"
        # The panel would cover the dialog.
        app.wait_overlay_hidden()
        self.choose_file("Export as PDF", target)
        app.wait_overlay_shown()
        app.wait_for_line(PREFIX + "Thread exported as PDF", timeout=60)
        self.assertTrue(target.read_bytes().startswith(b"%PDF-1."))
        app.access.wait_for('Exported "red.pdf"')

    def test_thread_on_show(self):
        server = self.server()
        app = self.app(server).sign_in()
        other = self.other_window()
        self.desktop.wait_for_active(other.title)
        app.access.press("Menu")
        app.access.wait_for("History")
        app.access.wait_gone("Export or copy thread")
        app.access.press("Menu")
        app.access.wait_gone("History")
        app.send_prompt("What is it?")
        app.access.wait_for("Copy answer", enabled=True)

        app.access.press("Menu")
        app.access.press("Export or copy thread")
        app.access.press("Export as Markdown…")
        target = app.home / "it.md"
        target.write_text("mine")
        # Nothing is replaced without the user's consent.
        self.choose_file("Export as Markdown", target)
        app.access.press("No")
        self.assertEqual(target.read_text(), "mine")
        self.desktop.wait_for_active("Export as Markdown")

        def is_closed():
            # The first one may close the list of completions.
            self.desktop.press("escape")
            return not self.desktop.viewable_windows("Export as Markdown")

        wait_until(is_closed, what="the dialog to close")
        self.assertEqual(target.read_text(), "mine")

        app.access.press("Menu")
        app.access.press("Export or copy thread")
        app.access.press("Export as Markdown…")
        self.choose_file("Export as Markdown", app.home / "new")
        app.wait_for_line(PREFIX + "Thread exported as Markdown")
        self.assertIn("> What is it?", (app.home / "new.md").read_text())

        app.access.press("Menu")
        app.access.press("Export or copy thread")
        app.access.press("Copy as Markdown")
        app.access.wait_for("Thread copied as Markdown")
        self.assertIn("> What is it?", self.clipboard("UTF8_STRING"))
        app.access.press("Menu")
        app.access.press("Export or copy thread")
        app.access.press("Copy as rich text")
        app.access.wait_for("Thread copied as rich text", timeout=60)
        self.assertIn("<b>Question</b>", self.clipboard("text/html"))
        self.assertIn("> What is it?", self.clipboard("UTF8_STRING"))
        app.access.press("Menu")
        app.access.press("Export or copy thread")
        app.access.press("Copy answer as rich text")
        app.access.wait_for("Answer copied as rich text", timeout=60)
        self.assertRegex(self.clipboard("text/html"), r"<p>.+</p>")

    def test_failure_is_told(self):
        _, app = self.app_with_threads(("Why?", "Because.", STAMP))
        self.open_history(app)
        app.access.press(re.compile("^Why?"))
        app.access.wait_for_page_text("Because.")
        app.access.press("Menu")
        app.access.press("Export or copy thread")
        app.access.press("Export as web page…")
        # Nobody may create files there, not even root.
        self.choose_file("Export as web page", "/sys/x.html")
        app.access.wait_for(re.compile("^\"x.html\" can't be written: "))


if __name__ == "__main__":
    unittest.main()
